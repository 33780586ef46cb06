#include "app/Session.h"

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
}

void Session::setPhone(const QString& address, const QString& name)
{
    m_phoneIPAddress = address;
    m_mobileDeviceName = name;
}

void Session::setPhoneConnected(bool connected)
{
    if (std::exchange(m_isPhoneConnected, connected) == connected)
        return;
    Q_EMIT phoneConnectedChanged(connected);
}

void Session::replacePhone()
{
    ++m_phoneEpoch;
    Q_EMIT phoneReplaced();
}

void Session::markAssociatesUpdated()
{
    m_associatesUpdatedAt = QDateTime::currentDateTimeUtc();
    Q_EMIT associatesUpdated(m_associatesUpdatedAt);
}

void Session::markGroupsUpdated()
{
    m_groupsUpdatedAt = QDateTime::currentDateTimeUtc();
    Q_EMIT groupsUpdated(m_groupsUpdatedAt);
}

QString Session::phoneServiceUrl(QStringView path) const
{
    if (path.startsWith(u":8080"))
        path = path.mid(5);
    return QStringLiteral("http://") + m_phoneIPAddress + u':' + QString::number(m_phoneServicePort) + path;
}

void Session::resetForTesting()
{
    setPhone(QString(), QString());
    setPhoneConnected(false);
}
