#pragma once

#include <QtGlobal>

#include <memory>
#include <thread>

namespace httplib {
class Server;
}

// The desktop's small HTTP server that the phone calls to pair and to announce changes.
// Handlers run on the server library's threads and only write the session values.
class MobileDeviceListener
{
public:
    static constexpr quint16 defaultPort = 8888;

    // port 0 picks a free port (tests); the application uses defaultPort.
    explicit MobileDeviceListener(quint16 port = defaultPort);
    ~MobileDeviceListener();

    MobileDeviceListener(const MobileDeviceListener&) = delete;
    MobileDeviceListener& operator=(const MobileDeviceListener&) = delete;

    // Binds all IPv4 interfaces and serves in the background. False (and a log line) when
    // the port cannot be bound; the application goes on without the listener.
    bool start();
    void stop();

    // The bound port once started, else 0.
    quint16 port() const { return m_boundPort; }

private:
    quint16 m_port;
    quint16 m_boundPort = 0;
    std::unique_ptr<httplib::Server> m_server;
    std::thread m_thread;
};
