#include "pairing/PhoneConnection.h"

#include "app/BaseUrlStore.h"
#include "app/Log.h"
#include "app/Session.h"
#include "app/Settings.h"

#include <QTimer>

namespace {

QString describe(const PairingMessage& message)
{
    return QStringLiteral("\"%1\" (%2, %3)")
        .arg(Log::escaped(message.mobileDeviceName), message.ip,
            Log::escaped(message.email.value_or(QString())));
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
    if (isTrustedMessage(message, peer)) {
        adopt(message, false);
        return Decision::Applied;
    }
    // The shown request never changes; a newer message of a phone already waiting behind it
    // takes that one's place.
    for (std::size_t i = 0; i < m_queue.size(); ++i) {
        if (m_queue[i].peer != peer)
            continue;
        if (i > 0)
            m_queue[i].message = message;
        Q_EMIT pendingChanged();
        return Decision::Held;
    }
    if (int(m_queue.size()) >= maxWaiting) {
        Log::line(u"[PairingGate] Too many phones waiting; dropped the request of " + describe(message));
        return Decision::Dropped;
    }
    const quint64 id = m_nextId++;
    m_queue.push_back(PendingPairing { id, message, peer });
    Log::line(u"[PairingGate] A phone asks to pair: " + describe(message) + u"; waiting for the user");
    QTimer::singleShot(m_options.holdTime, this, [this, id] { expire(id); });
    Q_EMIT pendingChanged();
    return Decision::Held;
}

void PhoneConnection::adopt(const PairingMessage& message, bool anotherPhone)
{
    if (message.email)
        Settings::setString(Settings::userEmailKey, *message.email);
    TrustedPhone trusted = anotherPhone || !m_trusted ? TrustedPhone {} : *m_trusted;
    if (anotherPhone) {
        trusted.email = message.email.value_or(QString());
        // The new phone's group service is where the stored base URL points, whichever phone
        // stored it.
        trusted.baseURL = Settings::string(Settings::baseUrlKey).value_or(QString());
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

void PhoneConnection::noteChangeSignal(bool associates, bool groups)
{
    if (associates)
        m_session.markAssociatesUpdated();
    if (groups)
        m_session.markGroupsUpdated();
}

std::optional<PendingPairing> PhoneConnection::pending() const
{
    if (m_queue.empty())
        return std::nullopt;
    return m_queue.front();
}

int PhoneConnection::waitingBehind() const
{
    return std::max(0, int(m_queue.size()) - 1);
}

bool PhoneConnection::acceptPending(quint64 id)
{
    if (m_queue.empty() || m_queue.front().id != id)
        return false;
    const PendingPairing chosen = m_queue.front();
    // Others waiting from the same address are this phone too.
    std::erase_if(m_queue, [&](const PendingPairing& p) { return p.peer == chosen.peer; });
    Log::line(u"[PairingGate] The user paired with " + describe(chosen.message));
    adopt(chosen.message, true);
    Q_EMIT pendingChanged();
    return true;
}

void PhoneConnection::ignorePending(quint64 id)
{
    if (m_queue.empty() || m_queue.front().id != id)
        return;
    const QString peer = m_queue.front().peer;
    std::erase_if(m_queue, [&](const PendingPairing& p) { return p.peer == peer; });
    Q_EMIT pendingChanged();
}

void PhoneConnection::expire(quint64 id)
{
    if (std::erase_if(m_queue, [id](const PendingPairing& p) { return p.id == id; }))
        Q_EMIT pendingChanged();
}

void PhoneConnection::phoneLost()
{
    if (m_state != State::Connected)
        return;
    m_lost = LostContact { m_session.mobileDeviceName(), QDateTime::currentDateTime() };
    Log::line(u"[PairingGate] Lost contact with " + Log::escaped(m_session.mobileDeviceName())
        + u"; looking for it at " + m_session.phoneIPAddress());
    setState(State::Lost);
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
