#include "pairing/PairingGate.h"

#include "app/Log.h"
#include "app/Session.h"
#include "app/Settings.h"

#include <QCoreApplication>
#include <QTimer>

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
    connect(&Session::instance(), &Session::phoneConnectedChanged, this, [this](bool connected) {
        if (!connected)
            clearPending(); // back on the pairing screen, pairing is instant again
    });
}

bool PairingGate::isSamePhone(const PairingMessage& message, const QString& peer)
{
    const QString storedEmail = Settings::string(Settings::userEmailKey).value_or(QString());
    const bool sameBase = !message.baseURL || message.baseURL == Settings::string(Settings::baseUrlKey);
    return peer == message.ip && message.ip == Session::instance().phoneIPAddress()
        && message.email.value_or(QString()) == storedEmail && sameBase;
}

PairingGate::Decision PairingGate::offer(const PairingMessage& message, const QString& peer)
{
    std::unique_lock lock(m_mutex);
    if (!Session::instance().isPhoneConnected() || isSamePhone(message, peer)) {
        lock.unlock();
        applyPairingMessage(message);
        Q_EMIT pairingApplied();
        return Decision::Applied;
    }
    const quint64 id = m_nextId++;
    m_pending = PendingPairing { id, message, peer };
    const auto hold = m_holdTime;
    lock.unlock();
    Log::line(
        QStringLiteral("[PairingGate] Another phone asks to pair: \"%1\" (%2) from %3; waiting for the user")
            .arg(Log::escaped(message.mobileDeviceName), message.ip, peer));
    QMetaObject::invokeMethod(
        this, [this, id, hold] { QTimer::singleShot(hold, this, [this, id] { ignorePending(id); }); },
        Qt::QueuedConnection);
    Q_EMIT pendingChanged();
    return Decision::Held;
}

std::optional<PendingPairing> PairingGate::pending() const
{
    std::lock_guard lock(m_mutex);
    return m_pending;
}

bool PairingGate::acceptPending(quint64 id)
{
    std::unique_lock lock(m_mutex);
    if (!m_pending || m_pending->id != id)
        return false;
    const PairingMessage message = m_pending->message;
    m_pending.reset();
    lock.unlock();
    applyPairingMessage(message);
    // Fresh screens for the new phone: the old one's people, groups and group ids mean nothing
    // to it.
    Session::instance().replacePhone();
    Q_EMIT pendingChanged();
    Q_EMIT pairingApplied();
    return true;
}

void PairingGate::ignorePending(quint64 id)
{
    {
        std::lock_guard lock(m_mutex);
        if (!m_pending || m_pending->id != id)
            return;
        m_pending.reset();
    }
    Q_EMIT pendingChanged();
}

void PairingGate::clearPending()
{
    {
        std::lock_guard lock(m_mutex);
        if (!m_pending)
            return;
        m_pending.reset();
    }
    Q_EMIT pendingChanged();
}

void PairingGate::disconnect()
{
    clearPending();
    Session::instance().setPhoneConnected(false);
}

void PairingGate::resetForTesting()
{
    clearPending();
    m_holdTime = holdTime;
}
