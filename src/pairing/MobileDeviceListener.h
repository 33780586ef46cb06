#pragma once

#include <QtGlobal>

#include <chrono>
#include <memory>

class PhoneConnection;

// The bars the listener holds against a hostile local network. The defaults are the
// application's; tests shorten the time-based ones.
struct ListenerLimits
{
    unsigned perPeerConnections = 16;
    unsigned totalConnections = 256;
    // A request must arrive whole this soon after its connection opened, however slowly it
    // trickles in; idle connections are dropped after the same time.
    std::chrono::milliseconds requestDeadline { 5000 };
    int pairingBurst = 10;
    std::chrono::milliseconds pairingWindow { 10000 };
};

// The desktop's small HTTP server that the phone calls to pair and to announce changes.
// One event-driven thread serves every connection, so a slow or idle peer never holds up
// another's pairing message; each connection carries one request and is closed after its
// answer, so nothing can hide in a body. Handlers only parse: each parsed message goes to the
// phone connection on the main thread, which decides.
class MobileDeviceListener
{
public:
    static constexpr quint16 defaultPort = 8888;

    // port 0 picks a free port (tests); the application uses defaultPort.
    explicit MobileDeviceListener(
        PhoneConnection& phone, quint16 port = defaultPort, ListenerLimits limits = {});
    ~MobileDeviceListener();

    MobileDeviceListener(const MobileDeviceListener&) = delete;
    MobileDeviceListener& operator=(const MobileDeviceListener&) = delete;

    // Binds all IPv4 interfaces and serves in the background. False (and a log line) when
    // the port cannot be bound; the application goes on without the listener.
    bool start();
    void stop();

    // The bound port once started, else 0.
    quint16 port() const { return m_boundPort; }

    struct Impl;

private:
    quint16 m_port;
    quint16 m_boundPort = 0;
    std::unique_ptr<Impl> m_impl;
};
