#include "pairing/PairingGate.h"

#include "app/BaseUrlStore.h"
#include "app/Log.h"
#include "app/Session.h"
#include "app/Settings.h"

#include <QCoreApplication>
#include <QTimer>

namespace {

QString describe(const PairingMessage& message)
{
    return QStringLiteral("\"%1\" (%2, %3)")
        .arg(Log::escaped(message.mobileDeviceName), message.ip,
            Log::escaped(message.email.value_or(QString())));
}

} // namespace

PairingGate& PairingGate::instance()
{
    static PairingGate gate;
    return gate;
}

PairingGate::PairingGate()
{
    // First use may come from the listener's thread; timers and receivers live on the main one.
    if (auto* app = QCoreApplication::instance(); app && thread() != app->thread())
        moveToThread(app->thread());
    m_trusted = TrustedPhone::load();
}

bool PairingGate::isTrustedMessage(const PairingMessage& message, const QString& peer) const
{
    if (!m_trusted)
        return false;
    if (message.email)
        return *message.email == m_trusted->email;
    return peer == m_trusted->address;
}

PairingGate::Decision PairingGate::offer(const PairingMessage& message, const QString& peer)
{
    std::unique_lock lock(m_mutex);
    if (isTrustedMessage(message, peer)) {
        lock.unlock();
        applyTrusted(message);
        return Decision::Applied;
    }
    // The shown request never changes; a newer message of a phone already waiting behind it
    // takes that one's place.
    for (std::size_t i = 0; i < m_queue.size(); ++i) {
        if (m_queue[i].peer != peer)
            continue;
        if (i > 0)
            m_queue[i].message = message;
        lock.unlock();
        Q_EMIT pendingChanged();
        return Decision::Held;
    }
    if (int(m_queue.size()) >= maxWaiting) {
        lock.unlock();
        Log::line(u"[PairingGate] Too many phones waiting; dropped the request of " + describe(message));
        return Decision::Dropped;
    }
    const quint64 id = m_nextId++;
    m_queue.push_back(PendingPairing { id, message, peer });
    const auto hold = m_holdTime;
    lock.unlock();
    Log::line(u"[PairingGate] A phone asks to pair: " + describe(message) + u"; waiting for the user");
    QMetaObject::invokeMethod(
        this, [this, id, hold] { QTimer::singleShot(hold, this, [this, id] { expire(id); }); },
        Qt::QueuedConnection);
    Q_EMIT pendingChanged();
    return Decision::Held;
}

void PairingGate::applyTrusted(const PairingMessage& message)
{
    if (message.email)
        Settings::setString(Settings::userEmailKey, *message.email);
    if (message.baseURL)
        BaseUrlStore::setBaseURL(*message.baseURL);
    Session& session = Session::instance();
    {
        std::lock_guard lock(m_mutex);
        if (!m_trusted)
            return; // forgotten meanwhile
        TrustedPhone updated = *m_trusted;
        updated.name = message.mobileDeviceName;
        updated.address = message.ip;
        updated.baseURL = Settings::string(Settings::baseUrlKey).value_or(updated.baseURL);
        if (updated != *m_trusted) {
            updated.save();
            m_trusted = updated;
        }
        m_lost.reset();
    }
    // Address and name first, the connected flag last, so that whoever sees the flag sees them.
    session.setPhoneIPAddress(message.ip);
    session.setMobileDeviceName(message.mobileDeviceName);
    session.setPhoneConnected(true);
    Q_EMIT pairingApplied();
}

std::optional<PendingPairing> PairingGate::pending() const
{
    std::lock_guard lock(m_mutex);
    if (m_queue.empty())
        return std::nullopt;
    return m_queue.front();
}

int PairingGate::waitingBehind() const
{
    std::lock_guard lock(m_mutex);
    return std::max(0, int(m_queue.size()) - 1);
}

bool PairingGate::acceptPending(quint64 id)
{
    std::unique_lock lock(m_mutex);
    if (m_queue.empty() || m_queue.front().id != id)
        return false;
    const PendingPairing chosen = m_queue.front();
    m_queue.pop_front();
    // Others waiting from the same address are this phone too.
    std::erase_if(m_queue, [&](const PendingPairing& p) { return p.peer == chosen.peer; });
    lock.unlock();

    const PairingMessage& message = chosen.message;
    Log::line(u"[PairingGate] The user paired with " + describe(message));
    if (message.email)
        Settings::setString(Settings::userEmailKey, *message.email);
    if (message.baseURL)
        BaseUrlStore::setBaseURL(*message.baseURL);
    TrustedPhone trusted { message.email.value_or(QString()), message.mobileDeviceName, message.ip,
        Settings::string(Settings::baseUrlKey).value_or(QString()) };
    trusted.save();
    {
        std::lock_guard relock(m_mutex);
        m_trusted = trusted;
        m_lost.reset();
    }
    Session& session = Session::instance();
    session.setPhoneIPAddress(message.ip);
    session.setMobileDeviceName(message.mobileDeviceName);
    // Fresh screens for the new phone: the old one's people, groups and group ids mean nothing
    // to it. The old screens go before the new phone's flag brings up the main window.
    session.replacePhone();
    session.setPhoneConnected(true);
    Q_EMIT pendingChanged();
    Q_EMIT pairingApplied();
    return true;
}

void PairingGate::ignorePending(quint64 id)
{
    std::unique_lock lock(m_mutex);
    if (m_queue.empty() || m_queue.front().id != id)
        return;
    const QString peer = m_queue.front().peer;
    std::erase_if(m_queue, [&](const PendingPairing& p) { return p.peer == peer; });
    lock.unlock();
    Q_EMIT pendingChanged();
}

void PairingGate::expire(quint64 id)
{
    {
        std::lock_guard lock(m_mutex);
        if (!std::erase_if(m_queue, [id](const PendingPairing& p) { return p.id == id; }))
            return;
    }
    Q_EMIT pendingChanged();
}

std::optional<TrustedPhone> PairingGate::trustedPhone() const
{
    std::lock_guard lock(m_mutex);
    return m_trusted;
}

void PairingGate::restore()
{
    std::optional<TrustedPhone> trusted;
    {
        std::lock_guard lock(m_mutex);
        m_trusted = TrustedPhone::load();
        trusted = m_trusted;
    }
    Session& session = Session::instance();
    if (trusted && !session.isPhoneConnected()) {
        session.setPhoneIPAddress(trusted->address);
        session.setMobileDeviceName(trusted->name);
        Log::line(u"[PairingGate] Looking for the trusted phone \"" + Log::escaped(trusted->name) + u"\" at "
            + trusted->address);
    }
}

void PairingGate::phoneLost()
{
    Session& session = Session::instance();
    if (!session.isPhoneConnected())
        return;
    {
        std::lock_guard lock(m_mutex);
        m_lost = LostContact { session.mobileDeviceName(), QDateTime::currentDateTime() };
    }
    Log::line(u"[PairingGate] Lost contact with " + Log::escaped(session.mobileDeviceName())
        + u"; looking for it at " + session.phoneIPAddress());
    session.setPhoneConnected(false);
}

void PairingGate::phoneFound()
{
    Session& session = Session::instance();
    {
        std::lock_guard lock(m_mutex);
        if (!m_trusted || session.isPhoneConnected() || session.phoneIPAddress() != m_trusted->address)
            return;
        m_lost.reset();
    }
    Log::line(u"[PairingGate] " + Log::escaped(session.mobileDeviceName()) + u" answers again; reconnected");
    session.setPhoneConnected(true);
    Q_EMIT pairingApplied();
}

std::optional<PairingGate::LostContact> PairingGate::lostContact() const
{
    std::lock_guard lock(m_mutex);
    return m_lost;
}

void PairingGate::forget()
{
    {
        std::lock_guard lock(m_mutex);
        m_trusted.reset();
        m_lost.reset();
    }
    TrustedPhone::forget();
    Log::line(QStringLiteral("[PairingGate] Forgot the trusted phone"));
    Session& session = Session::instance();
    session.setPhoneConnected(false);
    session.replacePhone();
    session.setPhoneIPAddress(QString());
    session.setMobileDeviceName(QString());
}

void PairingGate::resetForTesting()
{
    {
        std::lock_guard lock(m_mutex);
        m_queue.clear();
        m_lost.reset();
        m_trusted = TrustedPhone::load();
    }
    m_holdTime = holdTime;
    Q_EMIT pendingChanged();
}
