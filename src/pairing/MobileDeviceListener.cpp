#include "pairing/MobileDeviceListener.h"

#include "app/Log.h"
#include "pairing/ListenerRequestHandler.h"

#include <QLoggingCategory>

#include <httplib.h>

Q_LOGGING_CATEGORY(lcListener, "varnex.pairing", QtInfoMsg)

namespace {

ListenerRequest headOf(const httplib::Request& req)
{
    ListenerRequest head;
    head.method = QByteArray::fromStdString(req.method);
    head.path = QByteArray::fromStdString(req.path);
    head.hasOrigin = req.has_header("Origin");
    const std::string encoding = req.get_header_value("Transfer-Encoding");
    head.isChunked = !encoding.empty() && encoding != "identity";
    if (req.has_header("Content-Length")) {
        bool ok = false;
        head.contentLength = QByteArray::fromStdString(req.get_header_value("Content-Length")).toLongLong(&ok);
        if (!ok)
            head.contentLength = maxListenerBodySize + 1; // unreadable length: refuse
    }
    return head;
}

} // namespace

MobileDeviceListener::MobileDeviceListener(quint16 port)
    : m_port(port)
{
}

MobileDeviceListener::~MobileDeviceListener()
{
    stop();
}

bool MobileDeviceListener::start()
{
    if (m_server)
        return true;
    auto server = std::make_unique<httplib::Server>();
    server->set_payload_max_length(size_t(maxListenerBodySize));
    server->set_read_timeout(5, 0);
    // The library's default also sets SO_REUSEPORT, which would let a second instance share
    // the port and receive half of the phone's messages; a busy port must fail instead.
    server->set_socket_options([](socket_t sock) {
        int yes = 1;
        ::setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    });
    server->set_write_timeout(5, 0);

    // Refuse before the body is read: browsers' cross-site posts and oversized bodies.
    server->set_pre_routing_handler([](const httplib::Request& req, httplib::Response& res) {
        if (auto refusal = screenListenerRequestHead(headOf(req))) {
            res.status = *refusal;
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });

    auto handler = [](const httplib::Request& req, httplib::Response& res) {
        ListenerRequest request = headOf(req);
        request.body = QByteArray::fromStdString(req.body);
        const ListenerOutcome outcome = handleListenerRequest(request);
        applyListenerOutcome(outcome);
        res.status = outcome.status;
        qCDebug(lcListener) << request.method << request.path << "->" << outcome.status;
    };
    server->Post("/myInformation", handler);
    server->Post("/updateAssociates", handler);
    server->Post("/updateGroups", handler);

    int bound = 0;
    if (m_port == 0) {
        bound = server->bind_to_any_port("0.0.0.0");
    } else {
        bound = server->bind_to_port("0.0.0.0", m_port) ? m_port : -1;
    }
    if (bound <= 0) {
        Log::line(QStringLiteral("[MobileDeviceListener] ❌ Cannot listen on port %1: the phone cannot pair until it is free")
                      .arg(m_port));
        return false;
    }
    m_boundPort = quint16(bound);
    m_server = std::move(server);
    m_thread = std::thread([server = m_server.get()] { server->listen_after_bind(); });
    // stop() only stops a server that is already running: wait for it, so that a quick stop
    // cannot be lost.
    while (!m_server->is_running())
        std::this_thread::yield();
    return true;
}

void MobileDeviceListener::stop()
{
    if (!m_server)
        return;
    m_server->stop();
    if (m_thread.joinable())
        m_thread.join();
    m_server.reset();
    m_boundPort = 0;
}
