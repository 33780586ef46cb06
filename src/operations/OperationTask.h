#pragma once

#include "operations/MultipartUpload.h"
#include "operations/OperationFolder.h"
#include "operations/SafeArchive.h"

#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

// One encrypt or decrypt operation as a task: start(), cancel(), progress by stage, and a
// finished result carrying what the user should be told. The transfer and the unpacking run
// on a worker thread; signals arrive on the thread that owns the task.
//
// Lifetime: the worker reads the derived task's members, so every derived destructor calls
// stopWorker() first; destroying a running task cancels it and waits (at most a tenth of a
// second or so: every stage looks at the cancel flag that often).
class OperationTask : public QObject
{
    Q_OBJECT

public:
    // Checking: the phone refused a batch, and its files are tried in smaller groups to find
    // those it can open. MovingIn: the results move into their folder.
    enum class Stage { Sending, Waiting, Receiving, Unpacking, Checking, MovingIn };
    Q_ENUM(Stage)
    enum class Outcome { Succeeded, Failed, Refused, Cancelled };

    // What became of one file the user sent.
    struct FileResult
    {
        QString source;
        QString result; // where its result landed; empty when none did
        QString problem; // why not; empty when it landed
    };

    struct Result
    {
        Outcome outcome = Outcome::Failed;
        QString title; // empty when nothing is to be shown
        QString message;
        QStringList written; // the result files that landed
        // Ended before its course (cancelled, or the phone was lost): the user's choices stay.
        bool stopped = false;
        // Every file the user sent, in order; empty after a cancel. Succeeded means at least
        // one result landed: the others say why not.
        QList<FileResult> files;
        // Names of reply entries that matched no file sent: logged, never landed.
        QStringList ignored;
    };

    // Free space kept for the rest of the system: replies and results never eat into it.
    static constexpr qint64 reserveBytes = 64LL * 1024 * 1024;

    ~OperationTask() override;

    // Why an operation stops before its end: the user asked, or the phone stopped answering
    // (which ends it as a failure that says so). The first reason given holds.
    enum class CancelReason { User, PhoneLost };

    void start();
    void cancel(CancelReason reason = CancelReason::User);
    bool isRunning() const { return m_running; }
    QString operationId() const { return m_operationId; }
    // The title of this operation's failure dialog ("Encryption failed", ...).
    QString failureTitle() const { return m_failureTitle; }

    // The files that failed, one "name: why" line each, as many as a dialog has room for.
    static QString listOfProblems(const QList<FileResult>& files);

    // An operation's folder name: a fresh upper-case UUID.
    static QString makeOperationId();
    // "MacOS(v" + version + ")".
    static QString clientType();

    // Test seam: how the free bytes of a folder are read (a full disk can be played).
    static void setFreeSpaceProbeForTesting(std::function<qint64(const QString& folder)> probe);

Q_SIGNALS:
    void progress(OperationTask::Stage stage, qint64 done, qint64 total);
    void finished(const OperationTask::Result& result);

protected:
    OperationTask(QString url, QString resultsFolder, QString failureTitle, QObject* parent);

    // Cancels and joins the worker; every derived destructor calls it before its members go.
    void stopWorker();

    // Runs on the worker thread.
    virtual Result run() = 0;

    // One file to send and how its result comes back.
    struct Item
    {
        QString source;
        QString landAs; // the name its result lands under (the unique-name rule may add a counter)
        QStringList replyNames; // the names the phone may give its result
        qint64 size = 0;
        // Filled as the operation goes:
        QString tempPath; // its result, unpacked in the operation's folder
        QString problem; // why it has no result
        bool refused = false; // the phone refused it
    };

    // What one request came back with.
    struct Reply
    {
        enum class Kind { Received, Refused, Failed } kind = Kind::Failed;
        QList<SafeArchive::Entry> entries; // Received: unpacked in the operation's folder
        QString answer; // Refused (status 400 where `refusable`): what the phone said, cleaned
        Result failure; // Failed (a cancel too)
    };

    // Removes an operation's folder; what the disk still writes is left to a thread of its own
    // after a moment, so that a Cancel is told at once.
    struct LetGo
    {
        void operator()(OperationFolder* folder) const;
    };
    using Folder = std::unique_ptr<OperationFolder, LetGo>;
    // The operation's own folder, which goes when this goes; nothing, with `failure` set, when
    // it cannot be made.
    Folder openFolder(Result* failure);
    // Sends the parts and unpacks the reply into a fresh folder inside `folder`. `refusable`:
    // a 400 status is the phone refusing the files, not a failure.
    Reply send(const OperationFolder& folder, const QList<MultipartUpload::Part>& parts, qint64 uploadBytes,
        bool refusable, int fileMode, const QSet<QString>& sentNames);
    // Leaves out the files that cannot be read, each with its problem; true when any is left.
    static bool refuseUnreadable(QList<Item>& items);
    // Gives each item the first entry bearing one of its reply names; the others are ignored.
    void match(QList<Item>& items, const QList<int>& which, const QList<SafeArchive::Entry>& entries);
    // Moves the results in and says what became of every file.
    Result conclude(QList<Item>& items);
    // Every file that was to be sent fails with `failure`'s message, or its own problem.
    static Result failAll(Result failure, const QList<Item>& items);

    Result failedWith(const QString& message) const
    {
        return { Outcome::Failed, m_failureTitle, message, {} };
    }
    Result connectionFailed() const;
    Result cancelledResult() const;
    bool cancelled() const { return m_cancel.load(); }
    void report(Stage stage, qint64 done, qint64 total);
    // While the files are checked in groups, each transfer's own progress is not told.
    bool m_quietTransfers = false;
    QStringList m_ignored;

    QString m_url;
    QString m_operationId;
    QString m_resultsFolder;

private:
    qint64 freeSpace() const;
    Result notEnoughSpace() const;
    // Writes a reply that cannot be read in one pass to `path`, whole; a failure, or none.
    QList<Result> spill(MultipartUpload::Transfer& transfer, const QByteArray& head, const QString& path);
    Result replyNotSaved(const QString& reason) const;

    QString m_failureTitle;
    std::atomic<bool> m_cancel { false };
    std::atomic<bool> m_phoneLost { false };
    std::atomic<bool> m_running { false };
    std::thread m_worker;
    int m_replies = 0; // requests sent so far: each reply unpacks into a folder of its own
    qint64 m_lastReport = 0;
    std::optional<Stage> m_lastStage;
};
Q_DECLARE_METATYPE(OperationTask::Result)
