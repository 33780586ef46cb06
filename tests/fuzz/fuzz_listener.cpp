// Whatever a LAN peer can send to the pairing port: the input is written as is to the real
// listener over loopback (request line, headers, body), then the peer stops sending and reads
// the answer. The listener must answer or close, never crash or hang.
#include "FuzzSupport.h"

#include "app/Session.h"
#include "pairing/MobileDeviceListener.h"

#include <arpa/inet.h>
#include <cstdlib>
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

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    FuzzSupport::start(argc, argv);
    Session::instance(); // made on this thread, as the application does before listening
    listener = new MobileDeviceListener(0);
    if (!listener->start())
        std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        std::abort();
    // Close with a reset: a million short connections must not use up the local ports.
    const linger noLinger { 1, 0 };
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &noLinger, sizeof(noLinger));
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_port = htons(listener->port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
        std::abort(); // the listener is gone
    sendAll(fd, data, size);
    ::shutdown(fd, SHUT_WR);
    // Read until the listener closes. Its read and keep-alive time-outs (5 s each) bound that
    // even for a peer that stops mid-request; far beyond them the listener is stuck.
    char buffer[4096];
    pollfd waiting { fd, POLLIN, 0 };
    while (true) {
        if (::poll(&waiting, 1, 25000) != 1)
            std::abort(); // neither an answer nor a close: a worker is held for good
        if (::recv(fd, buffer, sizeof(buffer), 0) <= 0)
            break;
    }
    ::close(fd);
    Session::instance().setPhoneConnected(false);
    return 0;
}
