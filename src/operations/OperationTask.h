#pragma once

#include "operations/MultipartUpload.h"
#include "operations/OperationFolder.h"
#include "operations/SafeArchive.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <variant>

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
    enum class Stage { Sending, Waiting, Receiving, Unpacking };
    Q_ENUM(Stage)
    enum class Outcome { Succeeded, Failed, Refused, Cancelled };

    struct Result
    {
        Outcome outcome = Outcome::Failed;
        QString title; // empty when nothing is to be shown
        QString message;
        QStringList written; // the result files that landed
        // Ended before its course (cancelled, or the phone was lost): the user's choices stay.
        bool stopped = false;
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

    // What the phone sent back, unpacked in the operation's own folder (which goes when this
    // goes), or the result to report when it never got that far.
    struct Received
    {
        std::unique_ptr<OperationFolder> folder;
        QList<SafeArchive::Entry> entries;
    };
    // Sends the parts, stores the reply and unpacks it. `refusal400` is the message of a 400
    // status, when it has one of its own.
    std::variant<Result, Received> sendAndUnpack(const QList<MultipartUpload::Part>& parts,
        qint64 uploadBytes, const std::optional<QString>& refusal400, int fileMode);
    // Moves the files in, all or none; the result to report.
    Result landAll(const QList<SafeArchive::Landing>& landings);

    Result failedWith(const QString& message) const
    {
        return { Outcome::Failed, m_failureTitle, message, {} };
    }
    Result connectionFailed() const;
    Result cancelledResult() const;
    bool cancelled() const { return m_cancel.load(); }

    QString m_url;
    QString m_operationId;
    QString m_resultsFolder;

private:
    void report(Stage stage, qint64 done, qint64 total);
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
    qint64 m_lastReport = 0;
    std::optional<Stage> m_lastStage;
};
Q_DECLARE_METATYPE(OperationTask::Result)
