#include "scripting/ScriptingService.h"

#include "app/CommandLine.h"
#include "app/Session.h"
#include "app/Settings.h"
#include "files/IntakeList.h"
#include "pairing/PhoneConnection.h"
#include "recipients/AssociationsStore.h"
#include "recipients/RecipientsController.h"
#include "storage/WorkingFolders.h"

#include <QSet>

namespace {

constexpr auto recentGroupsKey = "recentGroups";
constexpr auto recentPeopleKey = "recentPeople";
constexpr qsizetype recentCount = 8;

QString fullName(const User& user)
{
    return QString(user.firstName.value_or(QString()) + u' ' + user.lastName.value_or(QString())).trimmed();
}

} // namespace

ScriptingService::ScriptingService(
    PhoneConnection& phone, PhoneServiceClient& phoneService, NetworkClient& api, QObject* parent)
    : QObject(parent)
    , m_phone(phone)
    , m_phoneService(phoneService)
    , m_api(api)
{
    m_poll.setInterval(25);
    connect(&m_poll, &QTimer::timeout, this, &ScriptingService::checkWaiters);
    connect(&phone, &PhoneConnection::stateChanged, this, &ScriptingService::checkWaiters);
    // The people and groups were the old phone's.
    connect(&phone.session(), &Session::phoneReplaced, this, &ScriptingService::dropRecipients);
}

ScriptingService::~ScriptingService() = default;

void ScriptingService::whenReady(
    bool people, QObject* context, std::function<void(std::optional<Failure>)> done)
{
    m_waiters.push_back({ people, context, std::move(done), std::chrono::steady_clock::now() });
    m_poll.start();
    // Never inside the caller: it may be a socket's read handler.
    QMetaObject::invokeMethod(this, &ScriptingService::checkWaiters, Qt::QueuedConnection);
}

void ScriptingService::startRecipients()
{
    if (!m_controller) {
        m_store = std::make_unique<AssociationsStore>();
        m_controller
            = std::make_unique<RecipientsController>(*m_store, m_phone.session(), m_phoneService, m_api);
        // Queued: the groups fetch that follows the users starts after this signal.
        connect(
            m_controller.get(), &RecipientsController::usersLoaded, this,
            [this] {
                m_loaded = true;
                checkWaiters();
            },
            Qt::QueuedConnection);
    }
    if (!m_controller->isStarted())
        m_controller->start();
}

void ScriptingService::dropRecipients()
{
    m_controller.reset();
    m_store.reset();
    m_loaded = false;
}

void ScriptingService::checkWaiters()
{
    const auto state = m_phone.state();
    const auto now = std::chrono::steady_clock::now();
    std::vector<std::pair<Waiter, std::optional<Failure>>> answered;
    for (auto it = m_waiters.begin(); it != m_waiters.end();) {
        const auto waited = now - it->since;
        std::optional<std::optional<Failure>> answer;
        if (!it->context) {
            it = m_waiters.erase(it);
            continue;
        }
        if (state == PhoneConnection::State::Connected) {
            if (it->people)
                startRecipients();
            if (!it->people || (m_loaded && !m_controller->isBusy())) {
                answer.emplace();
            } else if (waited > loadWait) {
                //: On standard error when the phone did not list its people and groups in time
                //% "The phone did not send its people and groups."
                answer = Failure { ExitCode::failed, qtTrId("scriptPeopleNotLoaded") };
            }
        } else if (state == PhoneConnection::State::NoPhone) {
            //: On standard error when a command needs a phone and none is paired
            //% "No phone is paired: open Varnex Desktop and pair your phone."
            answer = Failure { ExitCode::noPhone, qtTrId("scriptNoPhonePaired") };
        } else if (waited > phoneWait) {
            //: On standard error when a command needs the phone and it does not answer
            //% "The phone does not answer: is it on the same network, with the Varnex app open?"
            answer = Failure { ExitCode::noPhone, qtTrId("scriptPhoneNotAnswering") };
        }
        if (answer) {
            answered.emplace_back(std::move(*it), *answer);
            it = m_waiters.erase(it);
        } else {
            ++it;
        }
    }
    if (m_waiters.empty())
        m_poll.stop();
    for (auto& [waiter, failure] : answered) {
        if (waiter.context)
            waiter.done(failure);
    }
    if (!answered.empty() && !isBusy())
        Q_EMIT idle();
}

QList<ScriptingService::Person> ScriptingService::people() const
{
    QList<Person> result;
    if (!m_store)
        return result;
    for (const UserPtr& user : m_store->users())
        result.append({ user->email.value_or(QString()), fullName(*user) });
    return result;
}

QList<ScriptingService::Group> ScriptingService::groups() const
{
    QList<Group> result;
    if (!m_store)
        return result;
    for (const GroupPtr& group : m_store->groups()) {
        QStringList members;
        for (const GroupMemberModel& member : group->groupMembers)
            members.append(member.email);
        result.append({ group->name, members });
    }
    return result;
}

ScriptingService::Status ScriptingService::status() const
{
    Status status;
    switch (m_phone.state()) {
    case PhoneConnection::State::Connected:
        status.phone = QStringLiteral("connected");
        break;
    case PhoneConnection::State::Seeking:
        status.phone = QStringLiteral("looking");
        break;
    case PhoneConnection::State::Lost:
        status.phone = QStringLiteral("lost");
        break;
    case PhoneConnection::State::NoPhone:
        status.phone = QStringLiteral("none");
        break;
    }
    if (const auto trusted = m_phone.trustedPhone()) {
        status.name = trusted->name;
        status.email = trusted->email;
        status.address = trusted->address;
    }
    status.windowShown = m_windowShown && m_windowShown();
    for (OperationRun* run : OperationRun::running()) {
        QString id;
        for (auto it = m_runs.begin(); it != m_runs.end(); ++it) {
            if (it.value() == run)
                id = it.key();
        }
        status.operations.append({ id, run->encrypts(), run->fileCount(), run->stageText() });
    }
    return status;
}

QStringList ScriptingService::recentGroups()
{
    return Settings::open()->value(QString::fromLatin1(recentGroupsKey)).toStringList();
}

QStringList ScriptingService::recentPeople()
{
    return Settings::open()->value(QString::fromLatin1(recentPeopleKey)).toStringList();
}

void ScriptingService::remember(const QStringList& people, const QStringList& groups)
{
    auto settings = Settings::open();
    const auto merge = [&settings](const char* key, QStringList recent) {
        for (const QString& earlier : settings->value(QString::fromLatin1(key)).toStringList()) {
            if (!recent.contains(earlier))
                recent.append(earlier);
        }
        settings->setValue(QString::fromLatin1(key), recent.mid(0, recentCount));
    };
    merge(recentPeopleKey, people);
    merge(recentGroupsKey, groups);
    settings->sync();
    Settings::protectFile();
}

std::optional<ScriptingService::Failure> ScriptingService::admit(
    bool encrypt, const QStringList& files, QStringList* admitted) const
{
    // The screens' own admission rule: regular readable files, one of each name, and encrypted
    // ones only to decrypt.
    IntakeList intake(encrypt ? IntakeList::Kind::Encrypt : IntakeList::Kind::Decrypt);
    const QList<IntakeList::Refusal> refused = intake.addFiles(files);
    if (!refused.isEmpty()) {
        QStringList lines;
        for (const IntakeList::Refusal& refusal : refused)
            lines.append(refusal.path + QStringLiteral(": ") + IntakeList::reasonText(refusal.reason));
        return Failure { ExitCode::usage, lines.join(u'\n') };
    }
    for (const FilePtr& file : intake.files())
        admitted->append(file->filePath.value_or(QString()));
    return std::nullopt;
}

std::variant<QString, ScriptingService::Failure> ScriptingService::encrypt(
    const QStringList& to, const QStringList& groupNames, const QStringList& files)
{
    if (m_phone.state() != PhoneConnection::State::Connected || !m_store)
        return Failure { ExitCode::noPhone, qtTrId("scriptPhoneNotAnswering") };
    // Every recipient must be one the phone knows, before anything is sent.
    QList<UserPtr> users;
    QList<GroupPtr> groups;
    QStringList unknown;
    for (const QString& email : to) {
        const auto& all = m_store->users();
        const auto found = std::find_if(all.begin(), all.end(), [&email](const UserPtr& u) {
            return u->email && u->email->compare(email, Qt::CaseInsensitive) == 0;
        });
        if (found == all.end())
            unknown.append(email);
        else
            users.append(*found);
    }
    for (const QString& name : groupNames) {
        const auto& all = m_store->groups();
        const auto found
            = std::find_if(all.begin(), all.end(), [&name](const GroupPtr& g) { return g->name == name; });
        if (found == all.end())
            unknown.append(name);
        else
            groups.append(*found);
    }
    if (!unknown.isEmpty()) {
        //: On standard error when the encrypt command names people or groups the phone does not know; %1 lists them
        //% "Not known to the phone (see 'varnex-desktop people' and 'varnex-desktop groups'): %1"
        return Failure { ExitCode::usage,
            qtTrId("scriptUnknownRecipients").arg(unknown.join(QStringLiteral(", "))) };
    }
    QStringList admitted;
    if (auto failure = admit(true, files, &admitted))
        return *failure;

    // The store's own recipients rule, applied to these choices alone: the marks are set on the
    // records directly (nothing is saved, nothing is told) and put back at once.
    QList<std::optional<bool>> userMarks;
    QList<bool> groupMarks;
    for (const UserPtr& user : m_store->users()) {
        userMarks.append(user->isChecked);
        user->isChecked = users.contains(user);
    }
    for (const GroupPtr& group : m_store->groups()) {
        groupMarks.append(group->isChecked);
        group->isChecked = groups.contains(group);
    }
    const QString recipients = m_store->recipientsString();
    const int audience = int(m_store->selectedRecipientEmails().size());
    for (qsizetype i = 0; i < m_store->users().size(); ++i)
        m_store->users().at(i)->isChecked = userMarks.at(i);
    for (qsizetype i = 0; i < m_store->groups().size(); ++i)
        m_store->groups().at(i)->isChecked = groupMarks.at(i);
    if (recipients.isEmpty()) {
        //: On standard error when the groups named have no members with an e-mail
        //% "The groups named have no members to encrypt for."
        return Failure { ExitCode::usage, qtTrId("scriptNoAddresses") };
    }

    auto* run = OperationRun::encrypt(m_phone.session(),
        WorkingFolders::encryptedFilesFolder().value_or(QString()), admitted, recipients, audience, this);
    QStringList emails;
    for (const UserPtr& user : users)
        emails.append(user->email.value_or(QString()));
    const QString id = track(run);
    // Once the phone has its work: writing the settings waits on the disk.
    remember(emails, groupNames);
    return id;
}

std::variant<QString, ScriptingService::Failure> ScriptingService::decrypt(const QStringList& files)
{
    if (m_phone.state() != PhoneConnection::State::Connected)
        return Failure { ExitCode::noPhone, qtTrId("scriptPhoneNotAnswering") };
    QStringList admitted;
    if (auto failure = admit(false, files, &admitted))
        return *failure;
    QList<DecryptTask::Intake> intake;
    for (const QString& path : std::as_const(admitted))
        intake.append({ path, true });
    return track(OperationRun::decrypt(
        m_phone.session(), WorkingFolders::decryptedFilesFolder().value_or(QString()), intake, this));
}

QString ScriptingService::track(OperationRun* run)
{
    const QString id = run->task()->operationId();
    m_runs.insert(id, run);
    connect(
        run, &OperationRun::stageChanged, this, [this, id](const QString& text, qint64 done, qint64 total) {
            Q_EMIT progress(id, text, done, total);
        });
    connect(run, &OperationRun::finished, this, [this, id, run](const OperationRun::Outcome& outcome) {
        m_runs.remove(id);
        run->deleteLater();
        Q_EMIT finished(id, outcome);
        if (!isBusy())
            Q_EMIT idle();
    });
    run->start();
    return id;
}

bool ScriptingService::cancel(const QString& id)
{
    const QPointer<OperationRun> run = m_runs.value(id);
    if (!run)
        return false;
    run->cancel();
    return true;
}

int ScriptingService::exitCodeOf(const OperationRun::Outcome& outcome)
{
    using Outcome = OperationTask::Outcome;
    switch (outcome.outcome) {
    case Outcome::Cancelled:
        return ExitCode::cancelled;
    case Outcome::Refused:
        return ExitCode::refused;
    case Outcome::Failed:
        // Stopped before its course without a cancel: the phone was lost.
        return outcome.stopped ? ExitCode::noPhone : ExitCode::failed;
    case Outcome::Succeeded:
        break;
    }
    const bool anyFailed = std::any_of(
        outcome.files.begin(), outcome.files.end(), [](const auto& f) { return !f.problem.isEmpty(); });
    return anyFailed ? ExitCode::someFailed : ExitCode::done;
}

QString ScriptingService::outcomeWord(const OperationRun::Outcome& outcome)
{
    switch (exitCodeOf(outcome)) {
    case ExitCode::done:
        return QStringLiteral("done");
    case ExitCode::someFailed:
        return QStringLiteral("some-failed");
    case ExitCode::refused:
        return QStringLiteral("refused");
    case ExitCode::noPhone:
        return QStringLiteral("no-phone");
    case ExitCode::cancelled:
        return QStringLiteral("cancelled");
    }
    return QStringLiteral("failed");
}
