#include "pairing/MobileDeviceListener.h"

#include "app/Log.h"
#include "pairing/AddressFinder.h"
#include "pairing/ListenerRequestHandler.h"
#include "pairing/LocalAddressRule.h"
#include "pairing/PairingLog.h"
#include "pairing/PairingRateLimiter.h"
#include "pairing/PhoneConnection.h"

#include <QLoggingCategory>

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdarg>
#include <cstring>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <unordered_map>

namespace {

using Clock = std::chrono::steady_clock;

// One request in progress: its head as the handler sees it, and the body read so far; for a
// pairing message, the answer once the phone connection decided.
struct RequestState
{
    ListenerRequest request;
    QString peer;
    int decided = 0;
};

using Addresses = std::shared_ptr<const QSet<quint32>>;

QString peerOf(const sockaddr* address)
{
    if (!address || address->sa_family != AF_INET)
        return {};
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text, sizeof(text));
    return QString::fromLatin1(text);
}

bool isPhonePeer(const sockaddr* address, const QSet<quint32>& own)
{
    if (!address || address->sa_family != AF_INET)
        return false;
    return LocalAddressRule::isPhoneHost(
        ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr), own);
}

// Why the port cannot be bound, tried the way the library binds it, in words for the user.
QString bindProblem(quint16 port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int one = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    const int error
        = fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ? errno : 0;
    if (fd >= 0)
        ::close(fd);
    if (error == EADDRINUSE) {
        //: Pairing screen, in place of the code, when another program holds the listener's port. %1 is the port.
        //% "Your phone cannot reach Varnex Desktop: another program on this computer is using port %1, where the phone sends its pairing message. Close that program. Varnex Desktop tries again every few seconds."
        return qtTrId("listenerPortTaken").arg(port);
    }
    //: Pairing screen, in place of the code, when the listener cannot start. %1 is the port, %2 the system's reason.
    //% "Your phone cannot reach Varnex Desktop: port %1, where the phone sends its pairing message, cannot be opened (%2). Varnex Desktop tries again every few seconds."
    return qtTrId("listenerCannotStart")
        .arg(QString::number(port), QString::fromLocal8Bit(std::strerror(error ? error : EIO)));
}

MHD_Result addToHeadSize(void* cls, MHD_ValueKind, const char* key, const char* value)
{
    // name, ": ", value, line end
    *static_cast<qint64*>(cls) += qint64(std::strlen(key)) + (value ? qint64(std::strlen(value)) : 0) + 4;
    return MHD_YES;
}

ListenerRequest headOf(MHD_Connection* connection, const char* url, const char* method, const char* version)
{
    ListenerRequest head;
    head.method = QByteArray(method);
    head.path = QByteArray(url);
    head.hasOrigin = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Origin") != nullptr;
    const char* transfer = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Transfer-Encoding");
    head.isChunked = transfer && qstricmp(transfer, "identity") != 0;
    const char* encoding = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Content-Encoding");
    head.hasContentEncoding = encoding && qstricmp(encoding, "identity") != 0;
    if (const char* length = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Content-Length")) {
        bool ok = false;
        head.contentLength = QByteArray(length).trimmed().toLongLong(&ok);
        if (!ok || head.contentLength < 0)
            head.contentLength = maxListenerBodySize + 1; // unreadable length: refuse
    }
    qint64 size = qint64(std::strlen(method) + std::strlen(url) + std::strlen(version)) + 4;
    MHD_get_connection_values(connection, MHD_HEADER_KIND, addToHeadSize, &size);
    MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, addToHeadSize, &size);
    head.headSize = size;
    return head;
}

MHD_Result answer(MHD_Connection* connection, int status)
{
    MHD_Response* response = MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT);
    // One request per connection: whatever follows an answer is never parsed as a request.
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
    const MHD_Result queued = MHD_queue_response(connection, unsigned(status), response);
    MHD_destroy_response(response);
    return queued;
}

void logFromLibrary(void*, const char* format, va_list arguments)
{
    char text[512];
    std::vsnprintf(text, sizeof(text), format, arguments);
    // The library may quote what a peer sent.
    qCDebug(lcPairing).noquote() << "server:"
                                 << Log::escaped(QString::fromLatin1(QByteArray(text).trimmed()));
}

QString escapedLatin1(const QByteArray& bytes)
{
    return Log::escaped(QString::fromLatin1(bytes));
}

} // namespace

struct MobileDeviceListener::Impl : std::enable_shared_from_this<Impl>
{
    Impl(PhoneConnection& phone, const ListenerLimits& limits)
        : phone(&phone)
        , limits(limits)
        , rateLimiter(limits.pairingBurst, limits.pairingWindow)
    {
    }

    struct Open
    {
        int fd = -1;
        Clock::time_point opened;
        QString peer;
        bool settled = false; // arrived whole, or already dropped
    };

    PhoneConnection* phone;
    ListenerLimits limits;
    PairingRateLimiter rateLimiter;
    MHD_Daemon* daemon = nullptr;

    // This computer's own addresses as the main thread last published them.
    std::atomic<Addresses> own { std::make_shared<const QSet<quint32>>() };

    std::mutex mutex;
    std::unordered_map<MHD_Connection*, Open> open;
    // Pairing messages waiting for the phone connection's decision, by ticket.
    struct Suspended
    {
        MHD_Connection* connection;
        RequestState* state;
    };
    std::unordered_map<quint64, Suspended> suspended;
    quint64 nextTicket = 1; // the server thread's
    std::condition_variable wake;
    bool stopping = false;
    std::thread sweeper;

    // On the main thread: the decision reaches the waiting connection, unless the listener
    // stopped meanwhile (and answered it itself).
    void answerLater(quint64 ticket, int status)
    {
        std::unique_lock lock(mutex);
        const auto it = suspended.find(ticket);
        if (it == suspended.end())
            return;
        const Suspended waiting = it->second;
        suspended.erase(it);
        lock.unlock();
        waiting.state->decided = status;
        MHD_resume_connection(waiting.connection);
    }

    void answerAllWaiting(int status)
    {
        std::unique_lock lock(mutex);
        auto all = std::exchange(suspended, {});
        lock.unlock();
        for (auto& [ticket, waiting] : all) {
            waiting.state->decided = status;
            MHD_resume_connection(waiting.connection);
        }
    }

    void settle(MHD_Connection* connection)
    {
        std::lock_guard lock(mutex);
        if (auto it = open.find(connection); it != open.end())
            it->second.settled = true;
    }

    // The library's own time-out restarts with every byte, so a peer sending one byte a
    // second would hold its connection for ever. Shutting the socket down makes the server
    // thread see the end of the stream and close the connection itself; the table entry goes
    // (under the same lock) before the library closes the descriptor, so a reused descriptor
    // is never touched.
    void sweep()
    {
        const auto tick = std::clamp(
            limits.requestDeadline / 10, std::chrono::milliseconds(20), std::chrono::milliseconds(200));
        std::unique_lock lock(mutex);
        while (!stopping) {
            wake.wait_for(lock, tick);
            const auto now = Clock::now();
            for (auto& [connection, entry] : open) {
                if (!entry.settled && now - entry.opened >= limits.requestDeadline) {
                    entry.settled = true;
                    ::shutdown(entry.fd, SHUT_RDWR);
                    qCDebug(lcPairing) << "dropped a request that did not arrive in time";
                }
            }
        }
    }

    // When every place is taken, the oldest request still arriving gives way, so hosts that
    // hold connections half-sent cannot keep anyone out for longer than it takes to make new
    // ones; the trusted phone's own connections never give way.
    void makeRoom()
    {
        const std::shared_ptr<const QString> trusted = phone->trustedAddress();
        const QString& trustedAddress = *trusted;
        std::lock_guard lock(mutex);
        Open* oldest = nullptr;
        unsigned arriving = 0;
        for (auto& [connection, entry] : open) {
            if (entry.settled)
                continue;
            ++arriving;
            if (entry.fd >= 0 && (!oldest || entry.opened < oldest->opened) && entry.peer != trustedAddress)
                oldest = &entry;
        }
        if (arriving < limits.totalConnections || !oldest)
            return;
        oldest->settled = true;
        ::shutdown(oldest->fd, SHUT_RDWR);
        qCDebug(lcPairing) << "full: dropped the oldest unfinished request, from" << oldest->peer;
    }

    static MHD_Result acceptPolicy(void* cls, const sockaddr* address, socklen_t)
    {
        auto* self = static_cast<Impl*>(cls);
        // Only other hosts of the local network may talk to the listener at all.
        if (!isPhonePeer(address, *self->own.load()))
            return MHD_NO;
        self->makeRoom();
        return MHD_YES;
    }

    static void notifyConnection(
        void* cls, MHD_Connection* connection, void**, MHD_ConnectionNotificationCode code)
    {
        auto* self = static_cast<Impl*>(cls);
        std::lock_guard lock(self->mutex);
        if (code == MHD_CONNECTION_NOTIFY_STARTED) {
            const MHD_ConnectionInfo* info
                = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
            const MHD_ConnectionInfo* client
                = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
            self->open[connection] = Open { info ? info->connect_fd : -1, Clock::now(),
                peerOf(client ? client->client_addr : nullptr), !info };
        } else {
            self->open.erase(connection);
        }
    }

    static void requestCompleted(void*, MHD_Connection*, void** context, MHD_RequestTerminationCode)
    {
        delete static_cast<RequestState*>(*context);
        *context = nullptr;
    }

    static MHD_Result access(void* cls, MHD_Connection* connection, const char* url, const char* method,
        const char* version, const char* uploadData, size_t* uploadDataSize, void** context)
    {
        auto* self = static_cast<Impl*>(cls);
        auto* state = static_cast<RequestState*>(*context);
        if (!state) {
            // The head has arrived: refuse what must not be read before reading it.
            ListenerRequest head = headOf(connection, url, method, version);
            const MHD_ConnectionInfo* info
                = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
            const QString peer = peerOf(info ? info->client_addr : nullptr);
            if (auto refusal = screenListenerRequestHead(head)) {
                self->settle(connection);
                qCInfo(lcPairing).noquote() << "refused" << escapedLatin1(head.method)
                                            << escapedLatin1(head.path) << "from" << peer << "->" << *refusal;
                return answer(connection, *refusal);
            }
            if (head.method == "POST" && head.path == "/myInformation" && !self->rateLimiter.admit(peer)) {
                self->settle(connection);
                qCInfo(lcPairing) << "too many pairing messages from" << peer;
                return answer(connection, MHD_HTTP_TOO_MANY_REQUESTS);
            }
            *context = new RequestState { std::move(head), peer };
            return MHD_YES;
        }
        if (*uploadDataSize > 0) {
            // A stated length was checked against the cap. A chunked change signal states none:
            // what passes the cap is read and dropped, and the answer is 413.
            QByteArray& body = state->request.body;
            const qint64 room = maxListenerBodySize + 1 - body.size();
            body.append(uploadData, qsizetype(std::min<qint64>(room, qint64(*uploadDataSize))));
            *uploadDataSize = 0;
            return MHD_YES;
        }
        if (state->decided)
            return answer(connection, state->decided); // resumed with the phone connection's decision
        self->settle(connection);
        const ListenerOutcome outcome = handleListenerRequest(state->request, state->peer, *self->own.load());
        if (!outcome.refusal.isEmpty())
            Log::line(u"[MobileDeviceListener] Refused a pairing message from " + state->peer + u": "
                + Log::escaped(outcome.refusal));
        qCDebug(lcPairing).noquote() << escapedLatin1(state->request.method)
                                     << escapedLatin1(state->request.path) << "from" << state->peer << "->"
                                     << outcome.status;
        // The handler has parsed; the phone connection decides, on the main thread.
        if (outcome.pairing) {
            const quint64 ticket = self->nextTicket++;
            {
                std::lock_guard lock(self->mutex);
                self->suspended[ticket] = Suspended { connection, state };
            }
            MHD_suspend_connection(connection);
            QMetaObject::invokeMethod(
                self->phone,
                [weak = self->weak_from_this(), ticket, message = *outcome.pairing, peer = state->peer] {
                    const auto impl = weak.lock();
                    if (!impl)
                        return;
                    const auto decision = impl->phone->offer(message, peer);
                    impl->answerLater(ticket, decision == PhoneConnection::Decision::Dropped ? 503 : 200);
                },
                Qt::QueuedConnection);
            return MHD_YES;
        }
        if (outcome.associatesChanged || outcome.groupsChanged) {
            QMetaObject::invokeMethod(
                self->phone,
                [phone = self->phone, outcome, peer = state->peer] {
                    phone->noteChangeSignal(peer, outcome.associatesChanged, outcome.groupsChanged);
                },
                Qt::QueuedConnection);
        }
        return answer(connection, outcome.status);
    }
};

MobileDeviceListener::MobileDeviceListener(PhoneConnection& phone, quint16 port, ListenerLimits limits)
    : m_phone(phone)
    , m_port(port)
    , m_impl(std::make_shared<Impl>(phone, limits))
{
    m_retry.setInterval(limits.retryPeriod);
    connect(&m_retry, &QTimer::timeout, this, [this] {
        publishOwnAddresses();
        if (!m_impl->daemon)
            start();
    });
}

MobileDeviceListener::~MobileDeviceListener()
{
    stop();
}

void MobileDeviceListener::publishOwnAddresses()
{
    m_impl->own.store(std::make_shared<const QSet<quint32>>(
        AddressFinder::ownAddresses(AddressFinder::systemInterfaces())));
}

bool MobileDeviceListener::start()
{
    m_retry.start();
    if (m_impl->daemon)
        return true;
    publishOwnAddresses();
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_port = htons(m_port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    const ListenerLimits& limits = m_impl->limits;
    const unsigned idleSeconds = unsigned(std::max<qint64>(
        1, std::chrono::duration_cast<std::chrono::seconds>(limits.requestDeadline).count()));
    // One internal epoll thread serves every connection; the head and the library's buffers of
    // a connection live in a 16 KiB pool, so a head over 8 KiB is refused by the handler and
    // one much larger by the library itself. The library's default address reuse does not
    // share the port, so a second instance fails to bind instead of stealing messages.
    // The library's own limit sits above ours: at ours, a new connection pushes out the oldest
    // unfinished one (makeRoom) instead of being turned away; the margin covers connections
    // being closed.
    m_impl->daemon = MHD_start_daemon(
        MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_EPOLL | MHD_USE_ERROR_LOG | MHD_ALLOW_SUSPEND_RESUME,
        m_port, &Impl::acceptPolicy, m_impl.get(), &Impl::access, m_impl.get(), MHD_OPTION_SOCK_ADDR,
        &address, MHD_OPTION_CONNECTION_LIMIT, limits.totalConnections + 64,
        MHD_OPTION_PER_IP_CONNECTION_LIMIT, limits.perPeerConnections, MHD_OPTION_CONNECTION_TIMEOUT,
        idleSeconds, MHD_OPTION_CONNECTION_MEMORY_LIMIT, size_t(16 * 1024), MHD_OPTION_NOTIFY_CONNECTION,
        &Impl::notifyConnection, m_impl.get(), MHD_OPTION_NOTIFY_COMPLETED, &Impl::requestCompleted, nullptr,
        MHD_OPTION_EXTERNAL_LOGGER, &logFromLibrary, nullptr, MHD_OPTION_END);
    if (!m_impl->daemon) {
        // Said once, not at every retry.
        if (m_phone.listenerProblem().isEmpty())
            Log::line(QStringLiteral(
                "[MobileDeviceListener] ❌ Cannot listen on port %1: the phone cannot pair until it is free")
                          .arg(m_port));
        m_phone.setListenerProblem(bindProblem(m_port));
        return false;
    }
    const MHD_DaemonInfo* info = MHD_get_daemon_info(m_impl->daemon, MHD_DAEMON_INFO_BIND_PORT);
    m_boundPort = info ? info->port : m_port;
    m_impl->stopping = false;
    m_impl->sweeper = std::thread([impl = m_impl.get()] { impl->sweep(); });
    if (!m_phone.listenerProblem().isEmpty())
        Log::line(QStringLiteral("[MobileDeviceListener] ✅ Listening on port %1").arg(m_boundPort));
    m_phone.setListenerProblem({});
    return true;
}

void MobileDeviceListener::stop()
{
    m_retry.stop();
    if (!m_impl->daemon)
        return;
    {
        std::lock_guard lock(m_impl->mutex);
        m_impl->stopping = true;
    }
    m_impl->wake.notify_all();
    m_impl->sweeper.join();
    // No message can be kept any more: the phones waiting for an answer ask again.
    m_impl->answerAllWaiting(503);
    MHD_stop_daemon(m_impl->daemon);
    m_impl->daemon = nullptr;
    m_impl->open.clear();
    m_boundPort = 0;
}
