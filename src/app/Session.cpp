#include "app/Session.h"

#include <QCoreApplication>
#include <QThread>

Session& Session::instance()
{
    static Session session;
    return session;
}

Session::Session(quint16 phoneServicePort, QObject* parent)
    : QObject(parent)
    , m_associatesUpdatedAt(QDateTime::currentDateTimeUtc())
    , m_groupsUpdatedAt(m_associatesUpdatedAt)
    , m_phoneServicePort(phoneServicePort)
{
    // The first use may come from a listener thread; the object belongs to the main thread so
    // that its signals reach the screens queued.
    if (auto* app = QCoreApplication::instance(); app && thread() != app->thread())
        moveToThread(app->thread());
}

QString Session::phoneIPAddress() const
{
    std::lock_guard lock(m_mutex);
    return m_phoneIPAddress;
}

void Session::setPhoneIPAddress(const QString& address)
{
    std::lock_guard lock(m_mutex);
    m_phoneIPAddress = address;
}

QString Session::mobileDeviceName() const
{
    std::lock_guard lock(m_mutex);
    return m_mobileDeviceName;
}

void Session::setMobileDeviceName(const QString& name)
{
    std::lock_guard lock(m_mutex);
    m_mobileDeviceName = name;
}

void Session::setPhoneConnected(bool connected)
{
    if (m_isPhoneConnected.exchange(connected) == connected)
        return;
    Q_EMIT phoneConnectedChanged(connected);
}

void Session::replacePhone()
{
    ++m_phoneEpoch;
    Q_EMIT phoneReplaced();
}

QDateTime Session::associatesUpdatedAt() const
{
    std::lock_guard lock(m_mutex);
    return m_associatesUpdatedAt;
}

QDateTime Session::groupsUpdatedAt() const
{
    std::lock_guard lock(m_mutex);
    return m_groupsUpdatedAt;
}

void Session::markAssociatesUpdated()
{
    QDateTime now = QDateTime::currentDateTimeUtc();
    {
        std::lock_guard lock(m_mutex);
        m_associatesUpdatedAt = now;
    }
    Q_EMIT associatesUpdated(now);
}

void Session::markGroupsUpdated()
{
    QDateTime now = QDateTime::currentDateTimeUtc();
    {
        std::lock_guard lock(m_mutex);
        m_groupsUpdatedAt = now;
    }
    Q_EMIT groupsUpdated(now);
}

QString Session::phoneServiceUrl(QStringView path) const
{
    if (path.startsWith(u":8080"))
        path = path.mid(5);
    return QStringLiteral("http://") + phoneIPAddress() + u':' + QString::number(m_phoneServicePort.load()) + path;
}

void Session::resetForTesting()
{
    {
        std::lock_guard lock(m_mutex);
        m_phoneIPAddress.clear();
        m_mobileDeviceName.clear();
    }
    setPhoneConnected(false);
}
