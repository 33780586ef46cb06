#pragma once

#include "desktop/DesktopNotifier.h"
#include "operations/DecryptTask.h"
#include "operations/TransferRate.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <memory>

class Session;

// One encrypt or decrypt operation from its start to what the user is told, with no screen:
// it runs the task, turns its progress into the texts a person reads (the stage, then speed
// and time left, or how long the phone has been working), stops when the phone is lost, and
// ends with the outcome: summary line, dialog, notification and the results. A screen shows
// these and forwards Cancel; a command line could print them.
class OperationRun : public QObject
{
    Q_OBJECT

public:
    struct Outcome
    {
        OperationTask::Outcome outcome = OperationTask::Outcome::Cancelled;
        // The line under the result list; empty after a cancel, which tells nothing.
        QString summary;
        // The failure dialog; no dialog when the title is empty.
        QString dialogTitle;
        QString dialogText;
        // What a window in the background sends to the desktop.
        DesktopNotifier::Note note;
        // The results that landed (absolute paths); empty unless it succeeded.
        QStringList results;
        // What became of each file the user sent, in the order sent.
        struct FileOutcome
        {
            QString source; // the file as listed (absolute path)
            QString result; // where its result landed (absolute path); empty when none did
            QString problem; // why not, in a few words a user reads; empty when it landed
        };
        QList<FileOutcome> files;
        // Entries of the phone's reply that matched no file sent: not landed (the log has them).
        QStringList ignored;
        // Ended before its course (cancelled, or the phone was lost): the user's marks and
        // choices stay for another try.
        bool stopped = false;

        bool cancelled() const { return outcome == OperationTask::Outcome::Cancelled; }
    };

    // Encrypts `files` for `recipients` ("a@x;b@y;", as the phone takes them), who are
    // `audience` people, into `resultFolder`.
    static OperationRun* encrypt(const Session& session, const QString& resultFolder,
        const QStringList& files, const QString& recipients, int audience, QObject* parent = nullptr);
    // Decrypts the marked `files` into `resultFolder`.
    static OperationRun* decrypt(const Session& session, const QString& resultFolder,
        const QList<DecryptTask::Intake>& files, QObject* parent = nullptr);

    ~OperationRun() override;

    void start();
    // The operations running now in this program, oldest first: what status and the tray show,
    // whoever started them.
    static QList<OperationRun*> running();
    bool encrypts() const { return m_encrypt; }
    int fileCount() const { return m_fileCount; }
    // The user gives up: nothing is told at the end, and nothing is left behind.
    void cancel();
    bool isRunning() const { return m_task->isRunning(); }

    // What the progress shows now.
    QString stageText() const { return m_stageText; }
    QString detailText() const { return m_detailText; }

    OperationTask* task() const { return m_task.get(); }

Q_SIGNALS:
    // `done` of `total` for a bar: bytes sent, bytes received of the reply's length when it is
    // known, files checked or moved in. Both 0 while there is nothing to measure (waiting for
    // the phone, a reply of unknown length): a busy bar.
    void stageChanged(const QString& text, qint64 done, qint64 total);
    void detailChanged(const QString& text);
    void finished(const OperationRun::Outcome& outcome);

private:
    OperationRun(const Session& session, std::unique_ptr<OperationTask> task, QString resultFolder,
        bool encrypt, int audience, int fileCount, QObject* parent);

    void onProgress(OperationTask::Stage stage, qint64 done, qint64 total);
    void onPhoneConnectedChanged(bool connected);
    void onTaskFinished(const OperationTask::Result& result);
    Outcome outcomeOf(const OperationTask::Result& result) const;
    QString summaryOf(bool succeeded, const QString& failureTitle, int count) const;
    QString partialTitle() const;
    QString notDoneText(int count) const;
    void setStage(const QString& text, qint64 done = 0, qint64 total = 0);
    void setDetail(const QString& text);
    void showWaited();

    std::unique_ptr<OperationTask> m_task;
    QString m_resultFolder;
    bool m_encrypt;
    int m_audience;
    TransferRate m_rate;
    QElapsedTimer m_clock;
    QTimer m_tick; // the time waited, each second: the task is quiet while the phone works
    qint64 m_waitingSinceMs = -1;
    bool m_cancelled = false;
    int m_fileCount = 0;
    OperationTask::Stage m_stage = OperationTask::Stage::Sending;
    QString m_stageText;
    QString m_detailText;
};
Q_DECLARE_METATYPE(OperationRun::Outcome)
