// Whatever a LAN peer can send to the pairing port: the input is written as is to the real
// listener over loopback (request line, headers, body), then the peer stops sending and reads
// the answer. The listener must answer whole requests, and go on serving whatever came before.
#include "FuzzSupport.h"

#include "app/Session.h"
#include "pairing/LoopbackClient.h"
#include "pairing/MobileDeviceListener.h"
#include "pairing/PhoneConnection.h"

#include <chrono>

namespace {

// The phone connection the listener hands its messages to; no phone answers its pings.
PhoneConnection& phone()
{
    static auto* made = new PhoneConnection(Session::instance(), [](auto, QObject*, auto) {});
    return *made;
}

// Made on first use and kept for the whole run (a static pointer, so no leak is reported).
quint16 listenerPort()
{
    static MobileDeviceListener* listener = [] {
        // The fuzzer's peer is on loopback, which counts as a LAN host only when asked for.
        qputenv("VARNEX_ALLOW_LOOPBACK_PHONE", "1");
        // The program's caps, except the pairing burst: 429s after ten messages would keep the
        // fuzzer from the pairing code for ten seconds at a time.
        ListenerLimits limits;
        limits.pairingBurst = 1 << 30;
        auto* made = new MobileDeviceListener(phone(), 0, limits);
        FuzzSupport::check(made->start());
        return made;
    }();
    return listener->port();
}

// A plain request must still be answered: nothing an earlier input did (a crash of the
// server thread, a slot held for ever, a lock left taken) may stop the listener serving. Its
// per-peer cap may still hold connections being dropped, so this tries for a while.
bool stillServing()
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
        LoopbackClient client(listenerPort());
        client.resetOnClose();
        client.send(LoopbackClient::request("POST", "/updateAssociates", {}));
        client.readUntilClosed();
        if (client.status() == 200)
            return true;
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    LoopbackClient client(listenerPort());
    FuzzSupport::check(client.isConnected()); // else the listener is gone
    client.resetOnClose();
    client.send(QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size)));
    client.finishSending();
    // A whole request is answered at once. An unfinished one the listener keeps until its
    // deadline (seconds): waiting for that would slow the search a thousand-fold, so the peer
    // gives up after a moment and resets the connection, as an impatient one would.
    client.readUntilClosed(50);
    client.close();
    static unsigned inputs = 0;
    if (++inputs % 200 == 1)
        FuzzSupport::check(stillServing());
    // What the listener handed over, as the program's loop runs it; a phone accepted is
    // forgotten again.
    QCoreApplication::processEvents();
    if (phone().trustedPhone())
        phone().forget();
    return 0;
}
