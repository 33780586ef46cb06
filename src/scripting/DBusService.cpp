#include "scripting/DBusService.h"

#include "app/CommandLine.h"
#include "desktop/DesktopNotifier.h"
#include "scripting/ScriptingService.h"

#include <QDBusConnectionInterface>
#include <QDBusMetaType>

QDBusArgument& operator<<(QDBusArgument& argument, const DBusPerson& person)
{
    argument.beginStructure();
    argument << person.email << person.name;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusPerson& person)
{
    argument.beginStructure();
    argument >> person.email >> person.name;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusGroup& group)
{
    argument.beginStructure();
    argument << group.name << group.members;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusGroup& group)
{
    argument.beginStructure();
    argument >> group.name >> group.members;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusFileOutcome& file)
{
    argument.beginStructure();
    argument << file.source << file.result << file.problem;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusFileOutcome& file)
{
    argument.beginStructure();
    argument >> file.source >> file.result >> file.problem;
    argument.endStructure();
    return argument;
}

DBusService::DBusService(ScriptingService& service, DesktopNotifier& notifier, QObject* parent)
    : QObject(parent)
    , m_service(service)
    , m_notifier(notifier)
    , m_bus(QString())
{
    qDBusRegisterMetaType<DBusPerson>();
    qDBusRegisterMetaType<QList<DBusPerson>>();
    qDBusRegisterMetaType<DBusGroup>();
    qDBusRegisterMetaType<QList<DBusGroup>>();
    qDBusRegisterMetaType<DBusFileOutcome>();
    qDBusRegisterMetaType<QList<DBusFileOutcome>>();
    connect(&service, &ScriptingService::progress, this, &DBusService::Progress);
    connect(&service, &ScriptingService::finished, this,
        [this](const QString& id, const OperationRun::Outcome& outcome) {
            QList<DBusFileOutcome> files;
            for (const auto& file : outcome.files)
                files.append({ file.source, file.result, file.problem });
            Q_EMIT Finished(
                id, ScriptingService::outcomeWord(outcome), ScriptingService::exitCodeOf(outcome), files);
            // A file manager's menu started it and shows nothing of it: the desktop tells the end.
            if (m_ownOperations.removeOne(id) && !outcome.cancelled())
                m_notifier.notify(outcome.note);
        });
}

DBusService::~DBusService()
{
    if (m_bus.isConnected()) {
        m_bus.unregisterObject(QStringLiteral("/"));
        m_bus.unregisterService(QString::fromLatin1(serviceName));
    }
}

bool DBusService::registerOn(const QDBusConnection& bus)
{
    if (!bus.isConnected())
        return false;
    m_bus = bus;
    if (!m_bus.registerObject(QStringLiteral("/"), this,
            QDBusConnection::ExportScriptableSlots | QDBusConnection::ExportScriptableSignals)) {
        return false;
    }
    return m_bus.registerService(QString::fromLatin1(serviceName));
}

QDBusMessage DBusService::failureReply(const QDBusMessage& call, int exitCode, const QString& message) const
{
    QString name = QStringLiteral("org.varnex.Desktop.Error.Failed");
    if (exitCode == ExitCode::noPhone)
        name = QStringLiteral("org.varnex.Desktop.Error.NoPhone");
    else if (exitCode == ExitCode::usage)
        name = QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs");
    return call.createErrorReply(name, message);
}

void DBusService::whenReady(bool people, std::function<QDBusMessage(const QDBusMessage& call)> answer)
{
    setDelayedReply(true);
    const QDBusMessage call = message();
    QDBusConnection bus = connection();
    m_service.whenReady(people, this, [this, call, bus, answer = std::move(answer)](auto failure) mutable {
        bus.send(failure ? failureReply(call, failure->exitCode, failure->message) : answer(call));
    });
}

QVariantMap DBusService::Status()
{
    const auto status = m_service.status();
    return { { u"phone"_qs, status.phone }, { u"name"_qs, status.name }, { u"email"_qs, status.email },
        { u"address"_qs, status.address }, { u"operations"_qs, int(status.operations.size()) } };
}

QList<DBusPerson> DBusService::People()
{
    whenReady(true, [this](const QDBusMessage& call) {
        QList<DBusPerson> people;
        for (const auto& person : m_service.people())
            people.append({ person.email, person.name });
        return call.createReply(QVariant::fromValue(people));
    });
    return {};
}

QList<DBusGroup> DBusService::Groups()
{
    whenReady(true, [this](const QDBusMessage& call) {
        QList<DBusGroup> groups;
        for (const auto& group : m_service.groups())
            groups.append({ group.name, group.members });
        return call.createReply(QVariant::fromValue(groups));
    });
    return {};
}

QStringList DBusService::RecentGroups()
{
    return ScriptingService::recentGroups();
}

QStringList DBusService::RecentPeople()
{
    return ScriptingService::recentPeople();
}

QString DBusService::Encrypt(const QStringList& to, const QStringList& groups, const QStringList& files)
{
    whenReady(true, [this, to, groups, files](const QDBusMessage& call) {
        const auto started = m_service.encrypt(to, groups, files);
        if (const auto* failed = std::get_if<ScriptingService::Failure>(&started))
            return failureReply(call, failed->exitCode, failed->message);
        m_ownOperations.append(std::get<QString>(started));
        return call.createReply(std::get<QString>(started));
    });
    return {};
}

QString DBusService::Decrypt(const QStringList& files)
{
    whenReady(false, [this, files](const QDBusMessage& call) {
        const auto started = m_service.decrypt(files);
        if (const auto* failed = std::get_if<ScriptingService::Failure>(&started))
            return failureReply(call, failed->exitCode, failed->message);
        m_ownOperations.append(std::get<QString>(started));
        return call.createReply(std::get<QString>(started));
    });
    return {};
}

bool DBusService::Cancel(const QString& id)
{
    return m_service.cancel(id);
}
