#pragma once

#include "pairing/ConnectionWatchdog.h"
#include "pairing/ListenerRequestHandler.h"
#include "pairing/TrustedPhone.h"

#include <QDateTime>
#include <QObject>

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <optional>

class Session;

// A pairing message from a phone that is not the trusted one, waiting for the user.
struct PendingPairing
{
    quint64 id = 0;
    PairingMessage message;
    QString peer; // the address it came from (always the "ip" it names)
};

// Who the desktop works with, as one state machine on the main thread: no phone; looking for
// the trusted phone (after a start); connected; lost (the trusted phone stopped answering).
// The trusted phone is the one the user accepted: remembered across starts, its pairing
// messages take effect at once (with whatever new name, address or base URL they bring), and
// the watchdog finds it again by itself. Every other phone's message, the very first one
// included, waits in a queue until the user presses Pair (or Switch while a phone is
// connected) or Ignore, or 60 s pass; the one shown never changes under the user's eyes, newer
// ones wait behind it.
//
// A message is the trusted phone's when its e-mail is the trusted e-mail. One without an
// e-mail proves nothing (the e-mail is all that tells phones apart), so it counts only when it
// comes from the trusted phone's own address. The listener has already made sure that every
// message comes from the address its "ip" names.
//
// This is the only writer of the session values: everyone else reads them through session().
class PhoneConnection : public QObject
{
    Q_OBJECT

public:
    enum class State { NoPhone, Seeking, Connected, Lost };
    Q_ENUM(State)

    struct Options
    {
        // How long a waiting request is kept.
        std::chrono::milliseconds holdTime { 60000 };
        ConnectionWatchdog::Timing watchdog;
    };
    // Requests waiting at once; more are dropped (a host with many addresses cannot pile up an
    // endless queue).
    static constexpr int maxWaiting = 8;

    // `ping` reaches the phone's service at the session's address (the watchdog's pings).
    PhoneConnection(
        Session& session, ConnectionWatchdog::Ping ping, Options options, QObject* parent = nullptr);
    PhoneConnection(Session& session, ConnectionWatchdog::Ping ping, QObject* parent = nullptr)
        : PhoneConnection(session, std::move(ping), Options {}, parent)
    {
    }

    const Session& session() const { return m_session; }
    State state() const { return m_state; }

    // The remembered phone becomes the one to look for, and the watchdog starts.
    void start();

    // A parsed pairing message, as the listener hands it over.
    enum class Decision { Applied, Held, Dropped };
    Decision offer(const PairingMessage& message, const QString& peer);
    // The phone's change signals ("/updateAssociates", "/updateGroups").
    void noteChangeSignal(bool associates, bool groups);

    // The request the bar shows and its buttons act on, and how many wait behind it.
    std::optional<PendingPairing> pending() const;
    int waitingBehind() const;
    // Pair / Switch: the waiting phone becomes the trusted one, with fresh screens (its people
    // and groups are not the old phone's). False when id is no longer the one shown.
    bool acceptPending(quint64 id);
    void ignorePending(quint64 id);

    std::optional<TrustedPhone> trustedPhone() const { return m_trusted; }

    struct LostContact
    {
        QString name;
        QDateTime at;
    };
    std::optional<LostContact> lostContact() const { return m_lost; }

    // Forget this phone: nothing is trusted any more, the session ends, the next phone asks.
    void forget();

    // The trusted phone's address as last published, for the listener's threads: its
    // connections never give way to a flood. Empty when none is trusted.
    std::shared_ptr<const QString> trustedAddress() const { return m_trustedAddress.load(); }

Q_SIGNALS:
    void stateChanged(PhoneConnection::State state);
    void pendingChanged();
    // The phone's session values changed: a new phone, a reconnection, a new name or address.
    void pairingApplied();

private:
    bool isTrustedMessage(const PairingMessage& message, const QString& peer) const;
    // The message's phone becomes (or stays) the trusted one and is connected.
    void adopt(const PairingMessage& message, bool anotherPhone);
    void setTrusted(std::optional<TrustedPhone> trusted);
    void setState(State state);
    void phoneLost();
    void phoneFound();
    void expire(quint64 id);

    Session& m_session;
    Options m_options;
    ConnectionWatchdog m_watchdog;
    State m_state = State::NoPhone;
    std::optional<TrustedPhone> m_trusted;
    std::optional<LostContact> m_lost;
    std::deque<PendingPairing> m_queue;
    quint64 m_nextId = 1;
    std::atomic<std::shared_ptr<const QString>> m_trustedAddress;
};
