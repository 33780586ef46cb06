#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>

// The phone's session values as the rest of the program reads them: its address and name,
// whether it is connected, and when it last said that its users or groups changed. They are
// written by their one owner, the phone connection in pairing/, on the main thread; everyone
// else is handed a const reference and follows the signals.
class Session : public QObject
{
    Q_OBJECT

public:
    static constexpr quint16 defaultPhoneServicePort = 8080;

    // `phoneServicePort` is the phone's service port (tests run a simulator on a free one).
    explicit Session(quint16 phoneServicePort = defaultPhoneServicePort, QObject* parent = nullptr);

    // Transitional: the process-wide session of the unmigrated code; goes once every object
    // receives its session through its constructor.
    static Session& instance();

    QString phoneIPAddress() const { return m_phoneIPAddress; }
    QString mobileDeviceName() const { return m_mobileDeviceName; }
    bool isPhoneConnected() const { return m_isPhoneConnected; }

    // Changes whenever the phone the screens were made for is replaced by another, or forgotten.
    // Work begun under one epoch and finishing under another is dropped instead of being shown
    // over, or sent to, whatever came next. A phone lost and found again keeps its epoch: it is
    // the same phone, and the same screens come back.
    quint64 phoneEpoch() const { return m_phoneEpoch; }

    QDateTime associatesUpdatedAt() const { return m_associatesUpdatedAt; }
    QDateTime groupsUpdatedAt() const { return m_groupsUpdatedAt; }

    // "http://" + phone address + ":8080" + path, the form of every call to the phone's own
    // service; path is "/ping" and the like (a leading ":8080" is accepted and dropped).
    QString phoneServiceUrl(QStringView path) const;

    // Written by the phone connection only (scripts/check-layers holds every other folder to
    // that); tests set up a session with them.
    void setPhone(const QString& address, const QString& name);
    void setPhoneIPAddress(const QString& address) { m_phoneIPAddress = address; }
    void setPhoneConnected(bool connected);
    // The user chose another phone, or forgot this one: the screens of the old one go.
    void replacePhone();
    void markAssociatesUpdated();
    void markGroupsUpdated();

    // Transitional, with instance().
    void setPhoneServicePortForTesting(quint16 port) { m_phoneServicePort = port; }
    void resetForTesting();

Q_SIGNALS:
    void phoneConnectedChanged(bool connected);
    void phoneReplaced();
    void associatesUpdated(const QDateTime& at);
    void groupsUpdated(const QDateTime& at);

private:
    QString m_phoneIPAddress;
    QString m_mobileDeviceName;
    QDateTime m_associatesUpdatedAt;
    QDateTime m_groupsUpdatedAt;
    bool m_isPhoneConnected = false;
    quint64 m_phoneEpoch = 0;
    quint16 m_phoneServicePort;
};
