#pragma once

#include "pairing/ConnectionWatchdog.h"
#include "pairing/ListenerRequestHandler.h"
#include "pairing/TrustedPhone.h"

#include <QDateTime>
#include <QHash>
#include <QObject>

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
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

// What a waiting request has in common with others, which its own name cannot hide.
struct Resemblance
{
    bool nameOfAnotherWaiting = false;
    bool emailOfAnotherWaiting = false;
    bool nameOfTrusted = false;
    bool emailOfTrusted = false;
    // It counts as the trusted phone's (its e-mail) but waits, as it comes from another
    // address or brings another base URL while the trusted phone still answers at its own:
    // the phone moved, or someone who read the e-mail on the network poses as it.
    bool claimsTrusted = false;
};

// Who the desktop works with, as one state machine on the main thread: no phone; looking for
// the trusted phone (after a start); connected; lost (the trusted phone stopped answering).
// The trusted phone is the one the user accepted: remembered across starts, its pairing
// messages take effect at once (see below for a new address or base URL), and the watchdog
// finds it again by itself. Every other phone's message, the very first one
// included, waits until the user presses Pair (or Switch while a phone is connected) or
// Ignore, or 60 s pass. The request the user looks at never changes under their eyes.
//
// A message is the trusted phone's when its e-mail is the trusted e-mail. One without an
// e-mail proves nothing (the e-mail is all that tells phones apart), so it counts only when it
// comes from the trusted phone's own address. The listener has already made sure that every
// message comes from the address its "ip" names. The e-mail crosses the network in clear, so
// it moves the trusted phone to another address or another base URL by itself only while the
// trusted phone no longer answers at its own; otherwise the message waits for the user.
//
// A crowd cannot hold the waiting places: each address holds one (its newer message updates
// it), and when all are taken a newcomer takes the place of the oldest one the user is not
// looking at. The address pushed out cannot push out another while the places stay full: its
// messages are dropped (the listener answers 503, so the phone asks again) until a place is
// free or holdTime has passed. Copies of one e-mail are kept, each from its address, and
// marked: merging them would let a copy push out the real phone.
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
    // Requests waiting at once.
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

    // A parsed pairing message, as the listener hands it over. Dropped: not kept (the
    // listener answers 503, never 200).
    enum class Decision { Applied, Held, Dropped };
    Decision offer(const PairingMessage& message, const QString& peer);
    // The phone's change signals ("/updateAssociates", "/updateGroups"), from peer: only the
    // connected phone's count.
    void noteChangeSignal(const QString& peer, bool associates, bool groups);

    // The request the user looks at, which the bar's buttons act on; and every waiting one,
    // oldest first.
    std::optional<PendingPairing> pending() const;
    QList<PendingPairing> waiting() const;
    // The user looks at another waiting request.
    void choosePending(quint64 id);
    Resemblance resemblance(const PendingPairing& request) const;
    // Pair / Switch: the waiting phone becomes the trusted one, with fresh screens (its people
    // and groups are not the old phone's). False when id is no longer the one shown.
    bool acceptPending(quint64 id);
    void ignorePending(quint64 id);

    // Why phones cannot reach this computer's listener now, in words for the user; empty
    // while it listens. Set by the listener.
    QString listenerProblem() const { return m_listenerProblem; }
    void setListenerProblem(const QString& problem);

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
    void listenerProblemChanged();
    // The phone's session values changed: a new phone, a reconnection, a new name or address.
    void pairingApplied();

private:
    bool isTrustedMessage(const PairingMessage& message, const QString& peer) const;
    Decision hold(const PairingMessage& message, const QString& peer);
    void remove(const std::function<bool(const PendingPairing&)>& which);
    // The message's phone becomes (or stays) the trusted one and is connected.
    void adopt(const PairingMessage& message, bool anotherPhone);
    void setTrusted(std::optional<TrustedPhone> trusted);
    void setState(State state);
    void phoneLost();
    void phoneFound();

    Session& m_session;
    Options m_options;
    ConnectionWatchdog m_watchdog;
    State m_state = State::NoPhone;
    std::optional<TrustedPhone> m_trusted;
    std::optional<LostContact> m_lost;
    std::deque<PendingPairing> m_queue; // oldest first
    quint64 m_shownId = 0;
    quint64 m_nextId = 1;
    // Addresses whose request was pushed out, and until when they cannot push out another.
    QHash<QString, std::chrono::steady_clock::time_point> m_pushedOut;
    QString m_listenerProblem;
    std::atomic<std::shared_ptr<const QString>> m_trustedAddress;
};
