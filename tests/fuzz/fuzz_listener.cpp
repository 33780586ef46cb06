// Whatever a LAN peer can send to the pairing port: the input is written as is to the real
// listener over loopback (request line, headers, body), then the peer stops sending and reads
// the answer. The listener must answer whole requests, and go on serving whatever came before.
#include "FuzzSupport.h"

#include "app/Session.h"
#include "pairing/MobileDeviceListener.h"

#include <QCoreApplication>

#include <arpa/inet.h>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

MobileDeviceListener* listener = nullptr;

bool sendAll(int fd, const uint8_t* data, size_t size)
{
    while (size > 0) {
        const ssize_t n = ::send(fd, data, size, MSG_NOSIGNAL);
        if (n <= 0)
            return false; // the listener may close early (a refused head): that is an answer
        data += n;
        size -= size_t(n);
    }
    return true;
}

int connectToListener()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        std::abort();
    // Close with a reset: many short connections must not use up the local ports, and the
    // listener drops a reset connection at once.
    const linger noLinger { 1, 0 };
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &noLinger, sizeof(noLinger));
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_port = htons(listener->port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
        std::abort(); // the listener is gone
    return fd;
}

// Reads what the listener sends until it closes or `waitMs` pass without a byte. Returns the
// first bytes of the answer.
QByteArray readAnswer(int fd, int waitMs)
{
    QByteArray answer;
    char buffer[4096];
    pollfd waiting { fd, POLLIN, 0 };
    while (::poll(&waiting, 1, waitMs) == 1) {
        const ssize_t n = ::recv(fd, buffer, sizeof(buffer), 0);
        if (n <= 0)
            break;
        if (answer.size() < 64)
            answer.append(buffer, qsizetype(n));
    }
    return answer;
}

// A plain request must still be answered: nothing an earlier input did (a crash of the
// server thread, a slot held for ever, a lock left taken) may stop the listener serving. Its
// per-peer cap may still hold connections being dropped, so this tries for a while.
void checkStillServing()
{
    static const char request[] = "POST /updateAssociates HTTP/1.1\r\nHost: x\r\nContent-Length: 0\r\n\r\n";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
        const int fd = connectToListener();
        sendAll(fd, reinterpret_cast<const uint8_t*>(request), std::strlen(request));
        const QByteArray answer = readAnswer(fd, 10000);
        ::close(fd);
        if (answer.startsWith("HTTP/1.1 200"))
            return;
        ::usleep(50 * 1000);
    }
    std::abort(); // the listener no longer serves
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    FuzzSupport::start(argc, argv);
    Session::instance(); // made on this thread, as the application does before listening
    // The program's caps, except the pairing burst: 429s after ten messages would keep the
    // fuzzer from the pairing code for ten seconds at a time.
    ListenerLimits limits;
    limits.pairingBurst = 1 << 30;
    listener = new MobileDeviceListener(0, limits);
    if (!listener->start())
        std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const int fd = connectToListener();
    sendAll(fd, data, size);
    ::shutdown(fd, SHUT_WR);
    // A whole request is answered at once. An unfinished one the listener keeps until its
    // deadline (seconds): waiting for that would slow the search a thousand-fold, so the peer
    // gives up after a moment and resets the connection, as an impatient one would.
    readAnswer(fd, 50);
    ::close(fd);
    static unsigned inputs = 0;
    if (++inputs % 200 == 1)
        checkStillServing();
    QCoreApplication::processEvents(); // the session's queued signals, as the program's loop runs them
    Session::instance().setPhoneConnected(false);
    return 0;
}
