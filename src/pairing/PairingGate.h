#pragma once

#include "pairing/ListenerRequestHandler.h"
#include "pairing/TrustedPhone.h"

#include <QDateTime>
#include <QObject>

#include <chrono>
#include <deque>
#include <mutex>
#include <optional>

// A pairing message from a phone that is not the trusted one, waiting for the user.
struct PendingPairing
{
    quint64 id = 0;
    PairingMessage message;
    QString peer; // the address it came from (always the "ip" it names)
};

// Who the desktop works with, as one small state machine. The trusted phone is the one the user
// accepted: remembered across starts, its pairing messages take effect at once (with whatever
// new name, address or base URL they bring), the watchdog reports when it is lost and when it
// answers again. Every other phone's message, the very first one included, waits in a queue
// until the user presses Pair (or Switch while a phone is connected) or Ignore, or 60 s pass; the
// one shown never changes under the user's eyes, newer ones wait behind it.
//
// A message is the trusted phone's when its e-mail is the trusted e-mail. One without an e-mail
// proves nothing (the e-mail is all that tells phones apart), so it counts only when it comes
// from the trusted phone's own address. The listener has already made sure that every message
// comes from the address its "ip" names.
//
// offer() and trustedPhone() are called on the listener's thread, everything else on the
// main thread. Signals reach main-thread receivers queued.
class PairingGate : public QObject
{
    Q_OBJECT

public:
    static PairingGate& instance();

    static constexpr std::chrono::milliseconds holdTime { 60000 };
    // Requests waiting at once; more are dropped (a host with many addresses cannot pile
    // up an endless queue).
    static constexpr int maxWaiting = 8;

    enum class Decision { Applied, Held, Dropped };
    Decision offer(const PairingMessage& message, const QString& peer);

    // The request the bar shows and its buttons act on, and how many wait behind it.
    std::optional<PendingPairing> pending() const;
    int waitingBehind() const;
    // Pair / Switch: the waiting phone becomes the trusted one, with fresh screens (its people
    // and groups are not the old phone's). False when id is no longer the one shown.
    bool acceptPending(quint64 id);
    void ignorePending(quint64 id);

    std::optional<TrustedPhone> trustedPhone() const;

    // At start: the remembered phone becomes the one the watchdog looks for.
    void restore();
    // The watchdog's findings: pings failed long enough; the trusted phone answered again.
    void phoneLost();
    void phoneFound();

    struct LostContact
    {
        QString name;
        QDateTime at;
    };
    std::optional<LostContact> lostContact() const;

    // Forget this phone: nothing is trusted any more, the session ends, the next phone asks.
    void forget();

    void setHoldTimeForTesting(std::chrono::milliseconds time) { m_holdTime = time; }
    // Drops the queue and reloads the trusted phone from the settings.
    void resetForTesting();

Q_SIGNALS:
    void pendingChanged();
    // The phone's session values changed: a new phone, a reconnection, a new name or address.
    void pairingApplied();

private:
    PairingGate();
    bool isTrustedMessage(const PairingMessage& message, const QString& peer) const;
    void applyTrusted(const PairingMessage& message);
    void expire(quint64 id);

    mutable std::mutex m_mutex;
    std::optional<TrustedPhone> m_trusted;
    std::optional<LostContact> m_lost;
    std::deque<PendingPairing> m_queue;
    quint64 m_nextId = 1;
    std::chrono::milliseconds m_holdTime = holdTime;
};
