#include "pairing/PhoneConnection.h"

#include "app/BaseUrlStore.h"
#include "app/Log.h"
#include "app/Session.h"
#include "app/Settings.h"
#include "app/Texts.h"

#include <QTimer>

namespace {

using Clock = std::chrono::steady_clock;

QString describe(const PairingMessage& message)
{
    return QStringLiteral("\"%1\" (%2, %3)")
        .arg(Log::escaped(message.mobileDeviceName), message.ip,
            Log::escaped(message.email.value_or(QString())));
}

// Two names alike as the screens show them (case and spacing apart).
bool looksAlike(const QString& a, const QString& b)
{
    return Texts::deviceName(a).simplified().toCaseFolded()
        == Texts::deviceName(b).simplified().toCaseFolded();
}

bool sameEmail(const std::optional<QString>& a, const QString& b)
{
    return a && !b.isEmpty() && a->compare(b, Qt::CaseInsensitive) == 0;
}

} // namespace

PhoneConnection::PhoneConnection(
    Session& session, ConnectionWatchdog::Ping ping, Options options, QObject* parent)
    : QObject(parent)
    , m_session(session)
    , m_options(options)
    , m_watchdog(std::move(ping), options.watchdog, this)
{
    connect(&m_watchdog, &ConnectionWatchdog::lost, this, &PhoneConnection::phoneLost);
    connect(&m_watchdog, &ConnectionWatchdog::found, this, &PhoneConnection::phoneFound);
    setTrusted(TrustedPhone::load());
}

void PhoneConnection::start()
{
    if (!m_trusted || m_state != State::NoPhone)
        return;
    m_session.setPhone(m_trusted->address, m_trusted->name);
    Log::line(u"[PairingGate] Looking for the trusted phone \"" + Log::escaped(m_trusted->name) + u"\" at "
        + m_trusted->address);
    setState(State::Seeking);
}

void PhoneConnection::setState(State state)
{
    const bool connected = state == State::Connected;
    if (connected)
        m_watchdog.watch();
    else if (m_trusted)
        m_watchdog.seek();
    else
        m_watchdog.stop();
    if (m_state == state)
        return;
    m_state = state;
    m_session.setPhoneConnected(connected);
    Q_EMIT stateChanged(state);
}

void PhoneConnection::setTrusted(std::optional<TrustedPhone> trusted)
{
    m_trusted = std::move(trusted);
    m_trustedAddress.store(std::make_shared<const QString>(m_trusted ? m_trusted->address : QString()));
}

bool PhoneConnection::isTrustedMessage(const PairingMessage& message, const QString& peer) const
{
    if (!m_trusted)
        return false;
    if (message.email)
        return *message.email == m_trusted->email;
    return peer == m_trusted->address;
}

PhoneConnection::Decision PhoneConnection::offer(const PairingMessage& message, const QString& peer)
{
    if (!isTrustedMessage(message, peer))
        return hold(message, peer);
    // A base URL that is no web address is refused (and logged) when applied: no change.
    const bool sameService = !message.baseURL || !BaseUrlStore::isWellFormedUrl(*message.baseURL)
        || *message.baseURL == m_trusted->baseURL;
    if ((peer == m_trusted->address && sameService) || m_state != State::Connected) {
        adopt(message, false);
        return Decision::Applied;
    }
    return hold(message, peer);
}

PhoneConnection::Decision PhoneConnection::hold(const PairingMessage& message, const QString& peer)
{
    for (PendingPairing& waiting : m_queue) {
        if (waiting.peer != peer)
            continue;
        // The request the user looks at stays as it is; another takes the newer message.
        if (waiting.id != m_shownId) {
            waiting.message = message;
            Q_EMIT pendingChanged();
        }
        return Decision::Held;
    }
    const auto now = Clock::now();
    m_pushedOut.removeIf([now](auto entry) { return entry.value() <= now; });
    if (int(m_queue.size()) >= maxWaiting) {
        if (m_pushedOut.contains(peer)) {
            Log::line(u"[PairingGate] Every place is taken; dropped the request of " + describe(message));
            return Decision::Dropped;
        }
        const auto oldest = std::find_if(
            m_queue.begin(), m_queue.end(), [this](const PendingPairing& p) { return p.id != m_shownId; });
        Log::line(u"[PairingGate] Every place is taken; the request of " + describe(oldest->message)
            + u" gives way to a newer one");
        // Bounded: a host with thousands of addresses only makes it start over.
        if (m_pushedOut.size() >= 1024)
            m_pushedOut.clear();
        m_pushedOut.insert(oldest->peer, now + m_options.holdTime);
        m_queue.erase(oldest);
    }
    const quint64 id = m_nextId++;
    m_queue.push_back(PendingPairing { id, message, peer });
    if (!m_shownId)
        m_shownId = id;
    Log::line(u"[PairingGate] A phone asks to pair: " + describe(message) + u"; waiting for the user");
    QTimer::singleShot(
        m_options.holdTime, this, [this, id] { remove([id](auto& p) { return p.id == id; }); });
    Q_EMIT pendingChanged();
    return Decision::Held;
}

void PhoneConnection::remove(const std::function<bool(const PendingPairing&)>& which)
{
    if (!std::erase_if(m_queue, which))
        return;
    if (std::none_of(m_queue.begin(), m_queue.end(), [this](auto& p) { return p.id == m_shownId; }))
        m_shownId = m_queue.empty() ? 0 : m_queue.front().id;
    Q_EMIT pendingChanged();
}

void PhoneConnection::adopt(const PairingMessage& message, bool anotherPhone)
{
    if (message.email)
        Settings::setString(Settings::userEmailKey, *message.email);
    TrustedPhone trusted = anotherPhone || !m_trusted ? TrustedPhone {} : *m_trusted;
    if (anotherPhone) {
        trusted.email = message.email.value_or(QString());
        // The old phone's group service is not the new one's: without a base URL of its own,
        // the new phone has none (its e-mail goes into every group request's path).
        BaseUrlStore::clear();
    }
    if (message.baseURL && BaseUrlStore::setBaseURL(*message.baseURL))
        trusted.baseURL = *message.baseURL;
    trusted.name = message.mobileDeviceName;
    trusted.address = message.ip;
    if (trusted != m_trusted) {
        trusted.save();
        setTrusted(trusted);
    }
    m_lost.reset();
    m_session.setPhone(message.ip, message.mobileDeviceName);
    // Fresh screens for a new phone: the old one's people, groups and group ids mean nothing
    // to it. The old screens go before the new phone's state brings up the main window.
    if (anotherPhone)
        m_session.replacePhone();
    setState(State::Connected);
    Q_EMIT pairingApplied();
}

void PhoneConnection::noteChangeSignal(const QString& peer, bool associates, bool groups)
{
    // Any host can post them; each one costs the phone a fetch.
    if (m_state != State::Connected || peer != m_session.phoneIPAddress())
        return;
    if (associates)
        m_session.markAssociatesUpdated();
    if (groups)
        m_session.markGroupsUpdated();
}

std::optional<PendingPairing> PhoneConnection::pending() const
{
    for (const PendingPairing& p : m_queue) {
        if (p.id == m_shownId)
            return p;
    }
    return std::nullopt;
}

QList<PendingPairing> PhoneConnection::waiting() const
{
    return QList<PendingPairing>(m_queue.begin(), m_queue.end());
}

void PhoneConnection::choosePending(quint64 id)
{
    if (id == m_shownId || std::none_of(m_queue.begin(), m_queue.end(), [id](auto& p) { return p.id == id; }))
        return;
    m_shownId = id;
    Q_EMIT pendingChanged();
}

Resemblance PhoneConnection::resemblance(const PendingPairing& request) const
{
    Resemblance r;
    for (const PendingPairing& other : m_queue) {
        if (other.id == request.id)
            continue;
        r.nameOfAnotherWaiting
            |= looksAlike(other.message.mobileDeviceName, request.message.mobileDeviceName);
        r.emailOfAnotherWaiting |= sameEmail(request.message.email, other.message.email.value_or(QString()));
    }
    if (m_trusted) {
        r.nameOfTrusted = looksAlike(m_trusted->name, request.message.mobileDeviceName);
        r.emailOfTrusted = sameEmail(request.message.email, m_trusted->email);
        r.claimsTrusted = isTrustedMessage(request.message, request.peer);
    }
    return r;
}

bool PhoneConnection::acceptPending(quint64 id)
{
    const auto chosen = pending();
    if (!chosen || chosen->id != id)
        return false;
    Log::line(u"[PairingGate] The user paired with " + describe(chosen->message));
    // Others waiting from the same address are this phone too.
    remove([&](const PendingPairing& p) { return p.peer == chosen->peer; });
    adopt(chosen->message, true);
    return true;
}

void PhoneConnection::ignorePending(quint64 id)
{
    const auto shown = pending();
    if (shown && shown->id == id)
        remove([&](const PendingPairing& p) { return p.peer == shown->peer; });
}

void PhoneConnection::setListenerProblem(const QString& problem)
{
    if (std::exchange(m_listenerProblem, problem) != problem)
        Q_EMIT listenerProblemChanged();
}

void PhoneConnection::phoneLost()
{
    if (m_state != State::Connected)
        return;
    m_lost = LostContact { m_session.mobileDeviceName(), QDateTime::currentDateTime() };
    Log::line(u"[PairingGate] Lost contact with " + Log::escaped(m_session.mobileDeviceName())
        + u"; looking for it at " + m_session.phoneIPAddress());
    setState(State::Lost);
    // It no longer answers at its address: the newest message with its e-mail from elsewhere
    // is where it went.
    const auto moved = std::find_if(m_queue.rbegin(), m_queue.rend(),
        [this](const PendingPairing& p) { return isTrustedMessage(p.message, p.peer); });
    if (moved != m_queue.rend()) {
        const PendingPairing request = *moved;
        remove([&](const PendingPairing& p) { return p.peer == request.peer; });
        adopt(request.message, false);
    }
}

void PhoneConnection::phoneFound()
{
    if (!m_trusted || m_state == State::Connected || m_session.phoneIPAddress() != m_trusted->address)
        return;
    m_lost.reset();
    Log::line(
        u"[PairingGate] " + Log::escaped(m_session.mobileDeviceName()) + u" answers again; reconnected");
    setState(State::Connected);
    Q_EMIT pairingApplied();
}

void PhoneConnection::forget()
{
    setTrusted(std::nullopt);
    m_lost.reset();
    TrustedPhone::forget();
    Log::line(QStringLiteral("[PairingGate] Forgot the trusted phone"));
    setState(State::NoPhone);
    m_session.replacePhone();
    m_session.setPhone(QString(), QString());
}
