#pragma once

#include "operations/OperationRun.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <variant>

class AssociationsStore;
class NetworkClient;
class PhoneConnection;
class PhoneServiceClient;
class RecipientsController;

// What the command line and the session bus ask of the running program, on the same core as
// the screens: operations are OperationRuns (the same requests on the wire), people and groups
// come from an associations store kept in step by a RecipientsController, and the recipients
// of an encryption are computed by that store's own rule. No screen is needed. Main thread.
class ScriptingService : public QObject
{
    Q_OBJECT

public:
    ScriptingService(PhoneConnection& phone, PhoneServiceClient& phoneService, NetworkClient& api,
        QObject* parent = nullptr);
    ~ScriptingService() override;

    // Why something asked for cannot be done, with the status a command exits with.
    struct Failure
    {
        int exitCode = 0;
        QString message; // one line
    };
    struct Person
    {
        QString email;
        QString name;
    };
    struct Group
    {
        QString name;
        QStringList members; // e-mails
    };
    struct Operation
    {
        QString id; // empty for one the window started
        bool encrypt = false;
        int files = 0;
        QString stage;
    };
    struct Status
    {
        QString phone; // "connected", "looking", "lost" or "none"
        QString name;
        QString email;
        QString address;
        bool windowShown = false;
        QList<Operation> operations;
    };

    // How long a command waits for the trusted phone to answer (after a start, say) before it
    // counts as no phone.
    static constexpr std::chrono::milliseconds phoneWait { 5000 };
    // How long it waits for the phone's people and groups.
    static constexpr std::chrono::milliseconds loadWait { 15000 };

    // `done` runs (once, from the event loop) when the phone is connected and, with `people`,
    // its people and groups are loaded; or with why not. Not at all once `context` is gone.
    void whenReady(bool people, QObject* context, std::function<void(std::optional<Failure>)> done);

    // How status tells whether the window shows (it lives above this layer).
    void setWindowShown(std::function<bool()> shown) { m_windowShown = std::move(shown); }

    QList<Person> people() const;
    QList<Group> groups() const;
    Status status() const;
    // The groups and people the last encryptions of the command line and the bus were for,
    // newest first; read from the settings, so they answer at once.
    static QStringList recentGroups();
    static QStringList recentPeople();

    // Starts an encryption for the people (e-mails) and groups (names) the phone knows
    // (whenReady(true) first), or a decryption; the operation's id, or why nothing was sent.
    std::variant<QString, Failure> encrypt(
        const QStringList& to, const QStringList& groups, const QStringList& files);
    std::variant<QString, Failure> decrypt(const QStringList& files);
    bool cancel(const QString& id);

    // True while an operation of this service runs or a caller waits for the phone.
    bool isBusy() const { return !m_runs.isEmpty() || !m_waiters.empty(); }

    // The status a command exits with for an operation's outcome, and its word for JSON and
    // the bus: "done", "some-failed", "refused", "failed", "no-phone", "cancelled".
    static int exitCodeOf(const OperationRun::Outcome& outcome);
    static QString outcomeWord(const OperationRun::Outcome& outcome);

Q_SIGNALS:
    void progress(const QString& id, const QString& stage, qint64 done, qint64 total);
    void finished(const QString& id, const OperationRun::Outcome& outcome);
    // Nothing runs and nobody waits any more.
    void idle();

private:
    struct Waiter
    {
        bool people = false;
        QPointer<QObject> context;
        std::function<void(std::optional<Failure>)> done;
        std::chrono::steady_clock::time_point since;
    };
    void checkWaiters();
    void startRecipients();
    void dropRecipients();
    std::optional<Failure> admit(bool encrypt, const QStringList& files, QStringList* admitted) const;
    QString track(OperationRun* run);
    static void remember(const QStringList& people, const QStringList& groups);

    PhoneConnection& m_phone;
    PhoneServiceClient& m_phoneService;
    NetworkClient& m_api;
    std::unique_ptr<AssociationsStore> m_store;
    std::unique_ptr<RecipientsController> m_controller;
    bool m_loaded = false;
    std::vector<Waiter> m_waiters;
    QTimer m_poll;
    QHash<QString, QPointer<OperationRun>> m_runs;
    std::function<bool()> m_windowShown;
};
