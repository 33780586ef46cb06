#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>

#include <atomic>
#include <mutex>

// The process-wide session values shared by the listener's threads, the screens and the
// watchdog. Each value is safe to read and write from any thread; every change is also
// announced by a signal, which reaches receivers on the main thread queued.
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

    QString phoneIPAddress() const;
    void setPhoneIPAddress(const QString& address);

    QString mobileDeviceName() const;
    void setMobileDeviceName(const QString& name);

    bool isPhoneConnected() const { return m_isPhoneConnected.load(); }
    void setPhoneConnected(bool connected);

    // Changes whenever the phone the screens were made for is replaced by another, or forgotten.
    // Work begun under one epoch and finishing under another is dropped instead of being shown
    // over, or sent to, whatever came next. A phone lost and found again keeps its epoch: it is
    // the same phone, and the same screens come back.
    quint64 phoneEpoch() const { return m_phoneEpoch.load(); }
    // The user chose another phone, or forgot this one: the screens of the old one go.
    void replacePhone();

    QDateTime associatesUpdatedAt() const;
    QDateTime groupsUpdatedAt() const;
    void markAssociatesUpdated();
    void markGroupsUpdated();

    // "http://" + phone address + ":8080" + path, the form of every call to the phone's own
    // service; path is "/ping" and the like (a leading ":8080" is accepted and dropped).
    QString phoneServiceUrl(QStringView path) const;

    void setPhoneServicePortForTesting(quint16 port) { m_phoneServicePort.store(port); }

    // Restores the initial values of a fresh process; for tests that run several scenarios.
    void resetForTesting();

Q_SIGNALS:
    void phoneConnectedChanged(bool connected);
    void phoneReplaced();
    void associatesUpdated(const QDateTime& at);
    void groupsUpdated(const QDateTime& at);

private:

    mutable std::mutex m_mutex;
    QString m_phoneIPAddress;
    QString m_mobileDeviceName;
    QDateTime m_associatesUpdatedAt;
    QDateTime m_groupsUpdatedAt;
    std::atomic<bool> m_isPhoneConnected { false };
    std::atomic<quint64> m_phoneEpoch { 0 };
    std::atomic<quint16> m_phoneServicePort { defaultPhoneServicePort };
};
