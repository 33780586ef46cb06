#pragma once

#include "operations/MultipartUpload.h"
#include "operations/SafeArchive.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>

// One encrypt or decrypt operation as a task: start(), cancel(), progress by stage, and a
// finished result carrying what the user should be told. The transfer and the unpacking run
// on a worker thread; signals arrive on the thread that owns the task.
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
        QString title;   // empty when nothing is to be shown
        QString message;
        QStringList written; // the result files that landed
    };

    ~OperationTask() override;

    void start();
    void cancel() { m_cancel = true; }
    bool isRunning() const { return m_running; }
    QString operationId() const { return m_operationId; }

    // An operation's folder name: a fresh upper-case UUID.
    static QString makeOperationId();
    // "MacOS(v" + version + ")".
    static QString clientType();

Q_SIGNALS:
    void progress(OperationTask::Stage stage, qint64 done, qint64 total);
    void finished(const OperationTask::Result& result);

protected:
    explicit OperationTask(QString url, QObject* parent);

    // Runs on the worker thread.
    virtual Result run() = 0;

    // Makes the operation's folder inside `folder` and checks that the reply and its unpacked
    // files will fit; the folder's path, or nothing (logged).
    std::optional<QString> prepare(const QString& folder, qint64 uploadBytes);
    // Sends the parts and writes the reply to `replyPath`, reporting progress.
    MultipartUpload::Outcome upload(const QList<MultipartUpload::Part>& parts, const QString& replyPath);
    // Unpacks the reply inside `work`; nothing when cancelled or refused (logged).
    std::optional<QList<SafeArchive::Entry>> unpack(const QString& zip, const QString& work, const QString& folder);
    // Moves an unpacked file into `folder` as `name`, or the first free counted name; logged
    // when it cannot.
    static QString land(const SafeArchive::Entry& entry, const QString& name, const QString& folder);
    void report(Stage stage, qint64 done, qint64 total);
    bool cancelled() const { return m_cancel.load(); }
    const std::atomic<bool>& cancelFlag() const { return m_cancel; }

    QString m_url;
    QString m_operationId;

private:
    std::atomic<bool> m_cancel { false };
    std::atomic<bool> m_running { false };
    std::thread m_worker;
    qint64 m_lastReport = 0;
};
Q_DECLARE_METATYPE(OperationTask::Result)

// Removes operation folders that an interrupted run left behind in `folder`: folders (and
// their old archives) named with the upper-case UUIDs operations make. Nothing else.
int removeLeftoverOperationFolders(const QString& folder);
