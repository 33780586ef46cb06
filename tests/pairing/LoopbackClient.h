#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

// One TCP connection to the listener from a chosen loopback address (any 127.x.y.z), so a
// test can play several hosts. Plain sockets: the tests need to send half a head, hold a
// connection idle, or see exactly what the listener answers and when it closes. Waiting on
// the application's thread, it runs the calls queued to it meanwhile: a pairing message is
// answered only once the phone connection there has decided.
class LoopbackClient
{
public:
    LoopbackClient(quint16 port, const char* source = "127.0.0.1")
    {
        m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int late = 1; // the local port is picked at connect: many connections, few ports
        ::setsockopt(m_fd, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &late, sizeof(late));
        sockaddr_in from {};
        from.sin_family = AF_INET;
        inet_pton(AF_INET, source, &from.sin_addr);
        sockaddr_in to {};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        inet_pton(AF_INET, "127.0.0.1", &to.sin_addr);
        if (::bind(m_fd, reinterpret_cast<sockaddr*>(&from), sizeof(from)) != 0
            || ::connect(m_fd, reinterpret_cast<sockaddr*>(&to), sizeof(to)) != 0) {
            ::close(m_fd);
            m_fd = -1;
        }
    }
    ~LoopbackClient() { close(); }
    LoopbackClient(const LoopbackClient&) = delete;
    LoopbackClient& operator=(const LoopbackClient&) = delete;

    bool isConnected() const { return m_fd >= 0; }
    void close()
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }

    bool send(const QByteArray& bytes)
    {
        return m_fd >= 0
            && ::send(m_fd, bytes.constData(), size_t(bytes.size()), MSG_NOSIGNAL) == bytes.size();
    }

    // The peer is done sending: the listener reads the end of the stream after the bytes.
    void finishSending() { ::shutdown(m_fd, SHUT_WR); }

    // close() then resets the connection: no time-wait, so thousands of short connections do
    // not use up the local ports.
    void resetOnClose()
    {
        const linger noLinger { 1, 0 };
        ::setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &noLinger, sizeof(noLinger));
    }

    // Reads what arrives until the listener closes (or resets) the connection or timeoutMs pass.
    QByteArray readUntilClosed(int timeoutMs = 10000)
    {
        QElapsedTimer clock;
        clock.start();
        do
            waitForAnything(int(std::max<qint64>(0, timeoutMs - clock.elapsed())));
        while (m_fd >= 0 && !m_closed && clock.elapsed() < timeoutMs);
        return m_received;
    }

    bool closedByPeer(int timeoutMs = 0)
    {
        readUntilClosed(timeoutMs);
        return m_closed;
    }

    // Waits up to timeoutMs for any bytes or the end of the stream; false when nothing came.
    bool waitForAnything(int timeoutMs)
    {
        pollfd entry { m_fd, POLLIN, 0 };
        const bool pump = QCoreApplication::instance()
            && QThread::currentThread() == QCoreApplication::instance()->thread();
        QElapsedTimer clock;
        clock.start();
        int ready = 0;
        do {
            if (pump)
                QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall);
            const int slice = int(std::max<qint64>(0, timeoutMs - clock.elapsed()));
            ready = ::poll(&entry, 1, pump ? std::min(slice, 5) : slice);
        } while (!m_closed && ready == 0 && clock.elapsed() < timeoutMs);
        if (m_closed || ready <= 0)
            return m_closed;
        char buffer[4096];
        const ssize_t got = ::recv(m_fd, buffer, sizeof(buffer), 0);
        if (got > 0)
            m_received.append(buffer, got);
        else
            m_closed = true;
        return true;
    }

    // The status of the (first) answer, 0 before one arrived.
    int status() const { return m_received.startsWith("HTTP/1.") ? m_received.mid(9, 3).toInt() : 0; }

    static QByteArray request(const QByteArray& method, const QByteArray& path, const QByteArray& body,
        const QByteArray& extraHeaders = {})
    {
        return method + ' ' + path + " HTTP/1.1\r\nHost: desktop\r\n" + extraHeaders
            + "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
    }

    // A whole request on a fresh connection: the answer's status, 0 when none came.
    static int exchange(quint16 port, const QByteArray& bytes, const char* source = "127.0.0.1")
    {
        LoopbackClient client(port, source);
        client.send(bytes);
        client.readUntilClosed();
        return client.status();
    }

private:
    int m_fd = -1;
    bool m_closed = false;
    QByteArray m_received;
};
