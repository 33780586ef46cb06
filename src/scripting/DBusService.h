#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusContext>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

class DesktopNotifier;
class ScriptingService;

// A person (e-mail, name), a group (name, members' e-mails) and a file's outcome (source,
// result, problem) as the bus carries them: (ss), (sas), (sss).
struct DBusPerson
{
    QString email;
    QString name;
};
struct DBusGroup
{
    QString name;
    QStringList members;
};
struct DBusFileOutcome
{
    QString source;
    QString result;
    QString problem;
};
QDBusArgument& operator<<(QDBusArgument& argument, const DBusPerson& person);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusPerson& person);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusGroup& group);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusGroup& group);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusFileOutcome& file);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusFileOutcome& file);
Q_DECLARE_METATYPE(DBusPerson)
Q_DECLARE_METATYPE(DBusGroup)
Q_DECLARE_METATYPE(DBusFileOutcome)

// The program's face on the session bus, for scripts and file managers: the service
// org.varnex.Desktop, object "/", interface org.varnex.Desktop. The same answers as the
// commands, through the same scripting service. Operations started here tell their end as a
// desktop notification too, as nobody else would.
class DBusService : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.varnex.Desktop")

public:
    static constexpr const char* serviceName = "org.varnex.Desktop";

    DBusService(ScriptingService& service, DesktopNotifier& notifier, QObject* parent = nullptr);
    ~DBusService() override;

    // Takes the name and the object on `bus`; false when there is no bus or another holds it.
    bool registerOn(const QDBusConnection& bus);

public Q_SLOTS:
    // "phone" (connected, looking, lost, none), "name", "email", "address", "operations" (count).
    Q_SCRIPTABLE QVariantMap Status();
    Q_SCRIPTABLE QList<DBusPerson> People();
    Q_SCRIPTABLE QList<DBusGroup> Groups();
    Q_SCRIPTABLE QStringList RecentGroups();
    Q_SCRIPTABLE QStringList RecentPeople();
    // The operation's id; when nothing was sent, the error org.varnex.Desktop.Error.NoPhone,
    // org.freedesktop.DBus.Error.InvalidArgs (an unknown recipient, a file that cannot be
    // sent) or org.varnex.Desktop.Error.Failed.
    Q_SCRIPTABLE QString Encrypt(const QStringList& to, const QStringList& groups, const QStringList& files);
    Q_SCRIPTABLE QString Decrypt(const QStringList& files);
    Q_SCRIPTABLE bool Cancel(const QString& id);

Q_SIGNALS:
    Q_SCRIPTABLE void Progress(const QString& id, const QString& stage, qlonglong done, qlonglong total);
    // "outcome" as the commands' JSON says it, with the exit status a command would give.
    Q_SCRIPTABLE void Finished(
        const QString& id, const QString& outcome, int exitCode, const QList<DBusFileOutcome>& files);

private:
    // Answers the call being handled once the phone is ready, with `answer`'s reply.
    void whenReady(bool people, std::function<QDBusMessage(const QDBusMessage& call)> answer);
    QDBusMessage failureReply(const QDBusMessage& call, int exitCode, const QString& message) const;

    ScriptingService& m_service;
    DesktopNotifier& m_notifier;
    QDBusConnection m_bus;
    QStringList m_ownOperations;
};
