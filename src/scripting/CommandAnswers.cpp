#include "scripting/CommandAnswers.h"

#include "app/CommandLine.h"
#include "desktop/CommandChannel.h"
#include "scripting/ScriptingService.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>

namespace {

QString json(const QJsonObject& object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

QString json(const QJsonArray& array)
{
    return QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Compact));
}

// A text on one line: what the phone or the disk said may hold line breaks.
QString oneLine(QString text)
{
    return text.replace(u'\n', u' ').simplified();
}

QJsonObject outcomeObject(const QString& id, const OperationRun::Outcome& outcome)
{
    QJsonArray files;
    for (const auto& file : outcome.files)
        files.append(QJsonObject {
            { u"source"_qs, file.source }, { u"result"_qs, file.result }, { u"problem"_qs, file.problem } });
    QJsonObject object { { u"id"_qs, id }, { u"outcome"_qs, ScriptingService::outcomeWord(outcome) },
        { u"exitCode"_qs, ScriptingService::exitCodeOf(outcome) }, { u"summary"_qs, outcome.summary },
        { u"files"_qs, files }, { u"ignored"_qs, QJsonArray::fromStringList(outcome.ignored) } };
    if (!outcome.dialogTitle.isEmpty())
        object.insert(u"message"_qs, oneLine(outcome.dialogTitle + u": " + outcome.dialogText));
    return object;
}

} // namespace

CommandAnswers::CommandAnswers(ScriptingService& service, QObject* parent)
    : QObject(parent)
    , m_service(service)
{
}

void CommandAnswers::finish(CommandChannel* channel, int exitCode)
{
    m_waiting.remove(channel);
    channel->finish(exitCode);
}

void CommandAnswers::answer(CommandChannel* channel)
{
    ++m_taken;
    m_waiting.insert(channel);
    // Gone before its answer (the later start was killed): it no longer waits.
    connect(channel, &QObject::destroyed, this, [this](QObject* gone) { m_waiting.remove(gone); });
    const auto parsed = parseScriptCommand(
        QStringList { QStringLiteral("varnex-desktop") } + channel->arguments(), QString());
    if (const auto* wrong = std::get_if<CommandLineAnswer>(&parsed)) {
        channel->printError(wrong->output.trimmed());
        finish(channel, ExitCode::usage);
        return;
    }
    const ScriptCommand command = std::get<ScriptCommand>(parsed);
    using Name = ScriptCommand::Name;
    const QPointer<CommandChannel> guard(channel);
    const auto fail = [this, guard](const ScriptingService::Failure& failure) {
        for (const QString& line : failure.message.split(u'\n'))
            guard->printError(oneLine(line));
        finish(guard, failure.exitCode);
    };

    if (command.name == Name::Status) {
        const auto status = m_service.status();
        QJsonArray operations;
        QStringList lines { u"phone: "_qs + status.phone };
        if (!status.name.isEmpty())
            lines << u"name: "_qs + oneLine(status.name);
        if (!status.email.isEmpty())
            lines << u"email: "_qs + status.email;
        if (!status.address.isEmpty())
            lines << u"address: "_qs + status.address;
        const QString window = status.windowShown ? u"shown"_qs : u"hidden"_qs;
        lines << u"window: "_qs + window;
        for (const auto& operation : status.operations) {
            const QString kind = operation.encrypt ? u"encrypt"_qs : u"decrypt"_qs;
            operations.append(QJsonObject { { u"id"_qs, operation.id }, { u"kind"_qs, kind },
                { u"files"_qs, operation.files }, { u"stage"_qs, operation.stage } });
            lines << u"operation: "_qs + kind + u", " + QString::number(operation.files)
                    + (operation.files == 1 ? u" file: "_qs : u" files: "_qs) + operation.stage;
        }
        if (command.json) {
            channel->print(json(QJsonObject { { u"phone"_qs, status.phone }, { u"name"_qs, status.name },
                { u"email"_qs, status.email }, { u"address"_qs, status.address }, { u"window"_qs, window },
                { u"operations"_qs, operations } }));
        } else {
            for (const QString& line : std::as_const(lines))
                channel->print(line);
        }
        finish(channel, ExitCode::done);
        return;
    }

    const bool operation = command.name == Name::Encrypt || command.name == Name::Decrypt;
    const bool needsPeople = command.name != Name::Decrypt;
    m_service.whenReady(needsPeople, channel, [this, guard, command, operation, fail](auto failure) {
        if (failure) {
            fail(*failure);
            return;
        }
        if (!operation) {
            if (command.name == Name::People) {
                QJsonArray array;
                for (const auto& person : m_service.people()) {
                    array.append(QJsonObject { { u"email"_qs, person.email }, { u"name"_qs, person.name } });
                    if (!command.json)
                        guard->print(person.email + u'\t' + oneLine(person.name));
                }
                if (command.json)
                    guard->print(json(array));
            } else {
                QJsonArray array;
                for (const auto& group : m_service.groups()) {
                    array.append(QJsonObject { { u"name"_qs, group.name },
                        { u"members"_qs, QJsonArray::fromStringList(group.members) } });
                    if (!command.json)
                        guard->print(oneLine(group.name) + u'\t' + group.members.join(u", "));
                }
                if (command.json)
                    guard->print(json(array));
            }
            finish(guard, ExitCode::done);
            return;
        }
        const auto started = command.name == Name::Encrypt
            ? m_service.encrypt(command.to, command.groups, command.files)
            : m_service.decrypt(command.files);
        if (const auto* failed = std::get_if<ScriptingService::Failure>(&started)) {
            fail(*failed);
            return;
        }
        const QString id = std::get<QString>(started);
        if (!command.wait) {
            if (command.json)
                guard->print(json(QJsonObject { { u"id"_qs, id }, { u"outcome"_qs, u"started"_qs } }));
            finish(guard, ExitCode::done);
            return;
        }
        // Ctrl+C in the later start cancels the operation; it then ends as cancelled.
        connect(guard, &CommandChannel::cancelRequested, &m_service, [this, id] { m_service.cancel(id); });
        connect(&m_service, &ScriptingService::finished, guard,
            [this, guard, id, json = command.json](
                const QString& ended, const OperationRun::Outcome& outcome) {
                if (ended != id)
                    return;
                if (json) {
                    guard->print(::json(outcomeObject(id, outcome)));
                } else {
                    for (const auto& file : outcome.files) {
                        if (!file.result.isEmpty())
                            guard->print(file.result);
                        else if (!file.problem.isEmpty())
                            guard->printError(file.source + u": " + oneLine(file.problem));
                    }
                    // A failure of the whole operation says so once, beside its files.
                    if (outcome.results.isEmpty() && !outcome.dialogTitle.isEmpty())
                        guard->printError(oneLine(outcome.dialogTitle + u": " + outcome.dialogText));
                }
                finish(guard, ScriptingService::exitCodeOf(outcome));
            });
    });
}
