#pragma once

#include "pairing/ListenerRequestHandler.h"

#include <QObject>

#include <chrono>
#include <mutex>
#include <optional>

// A pairing message from another phone while one is connected, waiting for the user.
struct PendingPairing
{
    quint64 id = 0;
    PairingMessage message;
    QString peer; // the address it came from
};

// Decides when a pairing message takes effect. Not connected (the user is looking at the QR
// code): at once. Connected, from the same phone: at once, as a phone that re-pairs after a
// restart expects. The same phone means the same "ip" and e-mail, sent from that very address,
// and no other base URL: "ip" and e-mail travel in plain text, so a host that copies them must
// not be able to move the base URL (where the user's files go) without being asked. Anything
// else waits for the user, who may switch to it or ignore it; unanswered it lapses after
// holdTime. So no host on the network can silently take the place of the user's phone.
//
// offer() is called on the listener's thread; everything else on the main thread. Signals
// reach main-thread receivers queued.
class PairingGate : public QObject
{
    Q_OBJECT

public:
    static PairingGate& instance();

    static constexpr std::chrono::milliseconds holdTime { 60000 };

    enum class Decision { Applied, Held };
    Decision offer(const PairingMessage& message, const QString& peer);

    std::optional<PendingPairing> pending() const;

    // Switch: applies the waiting message exactly as an accepted pairing. False when id is no
    // longer the one waiting (it lapsed or another replaced it).
    bool acceptPending(quint64 id);
    void ignorePending(quint64 id);

    // Forgets the phone: the connected flag goes false, the stored e-mail and base URL stay
    // (as after a lost phone).
    void disconnect();

    void setHoldTimeForTesting(std::chrono::milliseconds time) { m_holdTime = time; }
    void resetForTesting();

Q_SIGNALS:
    void pendingChanged();
    void pairingApplied();

private:
    PairingGate();
    static bool isSamePhone(const PairingMessage& message, const QString& peer);
    void clearPending();

    mutable std::mutex m_mutex;
    std::optional<PendingPairing> m_pending;
    quint64 m_nextId = 1;
    std::chrono::milliseconds m_holdTime = holdTime;
};
