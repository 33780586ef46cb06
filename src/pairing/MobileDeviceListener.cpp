#include "pairing/MobileDeviceListener.h"

#include "app/Log.h"
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

#include <condition_variable>
#include <cstdarg>
#include <cstring>
#include <mutex>
#include <thread>
#include <unordered_map>

namespace {

using Clock = std::chrono::steady_clock;

// One request in progress: its head as the handler sees it, and the body read so far.
struct RequestState
{
    ListenerRequest request;
    QString peer;
};

QString peerOf(const sockaddr* address)
{
    if (!address || address->sa_family != AF_INET)
        return {};
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text, sizeof(text));
    return QString::fromLatin1(text);
}

bool isLocalPeer(const sockaddr* address)
{
    if (!address || address->sa_family != AF_INET)
        return false;
    return LocalAddressRule::isLocalIPv4(
        ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr));
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
    qCDebug(lcPairing) << "server:" << QByteArray(text).trimmed();
}

} // namespace

struct MobileDeviceListener::Impl
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

    std::mutex mutex;
    std::unordered_map<MHD_Connection*, Open> open;
    std::condition_variable wake;
    bool stopping = false;
    std::thread sweeper;

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
        // Only the local network may talk to the listener at all.
        if (!isLocalPeer(address))
            return MHD_NO;
        static_cast<Impl*>(cls)->makeRoom();
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
                qCInfo(lcPairing).noquote()
                    << "refused" << head.method << Log::escaped(QString::fromLatin1(head.path)) << "from"
                    << peer << "->" << *refusal;
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
        self->settle(connection);
        const ListenerOutcome outcome = handleListenerRequest(state->request, state->peer);
        if (!outcome.refusal.isEmpty())
            Log::line(u"[MobileDeviceListener] Refused a pairing message from " + state->peer + u": "
                + Log::escaped(outcome.refusal));
        // The handler has parsed; the phone connection decides, on the main thread.
        if (outcome.pairing || outcome.associatesChanged || outcome.groupsChanged) {
            QMetaObject::invokeMethod(
                self->phone,
                [phone = self->phone, outcome, peer = state->peer] {
                    if (outcome.pairing)
                        phone->offer(*outcome.pairing, peer);
                    phone->noteChangeSignal(outcome.associatesChanged, outcome.groupsChanged);
                },
                Qt::QueuedConnection);
        }
        qCDebug(lcPairing) << state->request.method << state->request.path << "from" << state->peer << "->"
                           << outcome.status;
        return answer(connection, outcome.status);
    }
};

MobileDeviceListener::MobileDeviceListener(PhoneConnection& phone, quint16 port, ListenerLimits limits)
    : m_port(port)
    , m_impl(std::make_unique<Impl>(phone, limits))
{
}

MobileDeviceListener::~MobileDeviceListener()
{
    stop();
}

bool MobileDeviceListener::start()
{
    if (m_impl->daemon)
        return true;
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
    m_impl->daemon = MHD_start_daemon(MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_EPOLL | MHD_USE_ERROR_LOG,
        m_port, &Impl::acceptPolicy, m_impl.get(), &Impl::access, m_impl.get(), MHD_OPTION_SOCK_ADDR,
        &address, MHD_OPTION_CONNECTION_LIMIT, limits.totalConnections + 64,
        MHD_OPTION_PER_IP_CONNECTION_LIMIT, limits.perPeerConnections, MHD_OPTION_CONNECTION_TIMEOUT,
        idleSeconds, MHD_OPTION_CONNECTION_MEMORY_LIMIT, size_t(16 * 1024), MHD_OPTION_NOTIFY_CONNECTION,
        &Impl::notifyConnection, m_impl.get(), MHD_OPTION_NOTIFY_COMPLETED, &Impl::requestCompleted, nullptr,
        MHD_OPTION_EXTERNAL_LOGGER, &logFromLibrary, nullptr, MHD_OPTION_END);
    if (!m_impl->daemon) {
        Log::line(QStringLiteral(
            "[MobileDeviceListener] ❌ Cannot listen on port %1: the phone cannot pair until it is free")
                      .arg(m_port));
        return false;
    }
    const MHD_DaemonInfo* info = MHD_get_daemon_info(m_impl->daemon, MHD_DAEMON_INFO_BIND_PORT);
    m_boundPort = info ? info->port : m_port;
    m_impl->stopping = false;
    m_impl->sweeper = std::thread([impl = m_impl.get()] { impl->sweep(); });
    return true;
}

void MobileDeviceListener::stop()
{
    if (!m_impl->daemon)
        return;
    {
        std::lock_guard lock(m_impl->mutex);
        m_impl->stopping = true;
    }
    m_impl->wake.notify_all();
    m_impl->sweeper.join();
    MHD_stop_daemon(m_impl->daemon);
    m_impl->daemon = nullptr;
    m_impl->open.clear();
    m_boundPort = 0;
}
