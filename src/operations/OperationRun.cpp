#include "operations/OperationRun.h"

#include "app/Session.h"
#include "operations/EncryptTask.h"
#include "storage/File.h"

#include <algorithm>

namespace {

using Stage = OperationTask::Stage;

// Main thread only, like the runs themselves.
QList<OperationRun*>& runningRuns()
{
    static QList<OperationRun*> runs;
    return runs;
}

QString stageTextOf(Stage stage, qint64 done, qint64 total)
{
    switch (stage) {
    case Stage::Sending:
        if (total <= 0) {
            // Nothing measured yet: the transfer is still reaching the phone.
            //: Progress before the first bytes go to the phone
            //% "Connecting to the phone..."
            return qtTrId("stageConnecting");
        }
        //: Progress while files go to the phone
        //% "Sending %1 of %2"
        return qtTrId("stageSending").arg(formatFileSize(quint64(done)), formatFileSize(quint64(total)));
    case Stage::Waiting:
        //: Progress while the phone works on the files
        //% "Waiting for the phone..."
        return qtTrId("stageWaiting");
    case Stage::Receiving:
        // The results are saved as they arrive: one stage for both.
        if (total > 0) {
            //: Progress while the results come back and are saved as they arrive
            //% "Receiving and saving %1 of %2"
            return qtTrId("stageReceivingSavingOf")
                .arg(formatFileSize(quint64(done)), formatFileSize(quint64(total)));
        }
        //: Progress while the results come back and are saved as they arrive, of unknown size
        //% "Receiving and saving %1"
        return qtTrId("stageReceivingSaving").arg(formatFileSize(quint64(done)));
    case Stage::Unpacking:
    case Stage::MovingIn:
        //: Progress while the results are unpacked
        //% "Saving the results..."
        return qtTrId("stageUnpacking");
    case Stage::Checking:
        //: Progress while the files the phone refused as a batch are tried in smaller groups
        //% "Checking which files the phone can open…"
        return qtTrId("stageChecking");
    }
    return {};
}

} // namespace

OperationRun* OperationRun::encrypt(const Session& session, const QString& resultFolder,
    const QStringList& files, const QString& recipients, int audience, QObject* parent)
{
    auto task = std::make_unique<EncryptTask>(
        files, recipients, resultFolder, session.phoneServiceUrl(u"/encryptFile/"));
    return new OperationRun(
        session, std::move(task), resultFolder, true, audience, int(files.size()), parent);
}

OperationRun* OperationRun::decrypt(const Session& session, const QString& resultFolder,
    const QList<DecryptTask::Intake>& files, QObject* parent)
{
    auto task = std::make_unique<DecryptTask>(files, resultFolder, session.phoneServiceUrl(u"/decryptFile/"));
    const auto marked = std::count_if(files.begin(), files.end(), [](const auto& f) { return f.marked; });
    return new OperationRun(session, std::move(task), resultFolder, false, 0, int(marked), parent);
}

OperationRun::OperationRun(const Session& session, std::unique_ptr<OperationTask> task, QString resultFolder,
    bool encrypt, int audience, int fileCount, QObject* parent)
    : QObject(parent)
    , m_task(std::move(task))
    , m_resultFolder(std::move(resultFolder))
    , m_encrypt(encrypt)
    , m_audience(audience)
    , m_fileCount(fileCount)
{
    qRegisterMetaType<OperationRun::Outcome>();
    m_stageText = stageTextOf(Stage::Sending, 0, 0);
    m_tick.setInterval(1000);
    connect(&m_tick, &QTimer::timeout, this, &OperationRun::showWaited);
    connect(m_task.get(), &OperationTask::progress, this, &OperationRun::onProgress);
    connect(m_task.get(), &OperationTask::finished, this, &OperationRun::onTaskFinished);
    connect(&session, &Session::phoneConnectedChanged, this, &OperationRun::onPhoneConnectedChanged);
}

OperationRun::~OperationRun()
{
    runningRuns().removeOne(this);
}

QList<OperationRun*> OperationRun::running()
{
    return runningRuns();
}

void OperationRun::start()
{
    m_clock.start();
    runningRuns().append(this);
    m_task->start();
}

void OperationRun::cancel()
{
    m_task->cancel();
    m_cancelled = true;
    m_tick.stop();
    //: Progress once the user cancelled
    //% "Cancelling..."
    setStage(qtTrId("stageCancelling"));
    setDetail(QString());
}

void OperationRun::setStage(const QString& text, qint64 done, qint64 total)
{
    m_stageText = text;
    Q_EMIT stageChanged(text, done, total);
}

void OperationRun::setDetail(const QString& text)
{
    m_detailText = text;
    Q_EMIT detailChanged(text);
}

void OperationRun::showWaited()
{
    //: Under the progress while the phone works, %1 is a time such as 0:42
    //% "Waiting for %1"
    setDetail(qtTrId("timeWaited")
                  .arg(TransferRate::formatDuration((m_clock.elapsed() - m_waitingSinceMs) / 1000)));
}

void OperationRun::onProgress(Stage stage, qint64 done, qint64 total)
{
    m_stage = stage;
    if (m_cancelled)
        return;
    const qint64 now = m_clock.elapsed();
    if (stage == Stage::Sending || stage == Stage::Receiving)
        m_rate.sample(done, total, now);
    // While the phone works nothing is measured: the bar is busy, the detail counts the time.
    const bool known = stage != Stage::Waiting;
    setStage(stageTextOf(stage, done, total), known ? done : 0, known ? total : 0);
    if (stage == Stage::Waiting) {
        if (m_waitingSinceMs < 0) {
            m_waitingSinceMs = now;
            m_tick.start();
            showWaited();
        }
        return;
    }
    m_waitingSinceMs = -1;
    m_tick.stop();
    const bool moving = stage == Stage::Sending || stage == Stage::Receiving;
    setDetail(moving ? m_rate.describe() : QString());
}

void OperationRun::onPhoneConnectedChanged(bool connected)
{
    // A phone that went silent would leave the transfer waiting for ever: once the phone counts
    // as lost, the operation ends with nothing changed. Results already received in full are
    // still saved.
    if (connected || m_cancelled || m_stage == Stage::Unpacking || m_stage == Stage::MovingIn
        || !m_task->isRunning())
        return;
    m_cancelled = true;
    m_task->cancel(OperationTask::CancelReason::PhoneLost);
}

void OperationRun::onTaskFinished(const OperationTask::Result& result)
{
    runningRuns().removeOne(this);
    m_tick.stop(); // the progress stops counting once the outcome is told
    Q_EMIT finished(outcomeOf(result));
}

OperationRun::Outcome OperationRun::outcomeOf(const OperationTask::Result& result) const
{
    Outcome outcome;
    outcome.outcome = result.outcome;
    outcome.stopped = result.stopped;
    if (outcome.cancelled())
        return outcome;
    for (const OperationTask::FileResult& f : result.files)
        outcome.files.append({ f.source, f.result, f.problem });
    outcome.ignored = result.ignored;
    const bool succeeded = result.outcome == OperationTask::Outcome::Succeeded;
    const QStringList written = succeeded ? result.written : QStringList();
    const int failed = int(std::count_if(
        result.files.begin(), result.files.end(), [](const auto& f) { return !f.problem.isEmpty(); }));
    outcome.summary = summaryOf(succeeded, result.title, int(written.size()));
    outcome.dialogTitle = result.title;
    outcome.dialogText = result.message;
    outcome.results = written;
    if (succeeded && failed > 0) {
        // Some landed, some not: the summary counts both, the dialog and the note say which.
        outcome.summary += u", " + notDoneText(failed);
        outcome.dialogTitle = partialTitle();
        outcome.dialogText = OperationTask::listOfProblems(result.files);
    }
    outcome.note.summary = outcome.summary;
    if (succeeded) {
        QStringList names;
        for (const QString& path : written.mid(0, 3))
            names.append(path.section(u'/', -1));
        outcome.note.body = names.join(u", ") + (written.size() > 3 ? QStringLiteral(", …") : QString());
        if (failed > 0)
            outcome.note.body = outcome.dialogText;
        outcome.note.folder = m_resultFolder;
        outcome.note.files = written;
    } else {
        outcome.note.body = result.message;
    }
    return outcome;
}

QString OperationRun::partialTitle() const
{
    if (m_encrypt) {
        //: Dialog title when some files were encrypted and some were not
        //% "Some files could not be encrypted"
        return qtTrId("partialEncryptionTitle");
    }
    //: Dialog title when some files were decrypted and some were not
    //% "Some files could not be decrypted"
    return qtTrId("partialDecryptionTitle");
}

QString OperationRun::notDoneText(int count) const
{
    if (m_encrypt) {
        if (count == 1) {
            //: Ends the summary when one of the files was not encrypted, as in "2 files encrypted for 1 person, 1 could not be"
            //% "1 could not be"
            return qtTrId("summaryNotEncryptedOne");
        }
        //: Ends the summary when several files were not encrypted, %1 is how many
        //% "%1 could not be"
        return qtTrId("summaryNotEncryptedMany").arg(count);
    }
    if (count == 1) {
        //: Ends the summary when one of the files was not decrypted, as in "2 files decrypted, 1 could not be"
        //% "1 could not be"
        return qtTrId("summaryNotDecryptedOne");
    }
    //: Ends the summary when several files were not decrypted, %1 is how many
    //% "%1 could not be"
    return qtTrId("summaryNotDecryptedMany").arg(count);
}

QString OperationRun::summaryOf(bool succeeded, const QString& failureTitle, int count) const
{
    if (!succeeded)
        return failureTitle;
    if (!m_encrypt) {
        if (count == 1) {
            //: Summary after decrypting one file
            //% "1 file decrypted"
            return qtTrId("summaryDecryptedOne");
        }
        //: Summary after decrypting several files, %1 is how many
        //% "%1 files decrypted"
        return qtTrId("summaryDecryptedMany").arg(count);
    }
    // Singular and plural by hand: English and German need no more forms, and the English
    // catalogue has no plural forms of its own.
    QString summary;
    if (count == 1) {
        //: Summary after encrypting one file; followed by the people it was for
        //% "1 file encrypted"
        summary = qtTrId("summaryEncryptedOne");
    } else {
        //: Summary after encrypting several files, %1 is how many; followed by the people it was for
        //% "%1 files encrypted"
        summary = qtTrId("summaryEncryptedMany").arg(count);
    }
    if (m_audience == 1) {
        //: Ends the summary after encrypting for one person
        //% "for 1 person"
        summary += u' ' + qtTrId("summaryForOnePerson");
    } else if (m_audience > 1) {
        //: Ends the summary after encrypting for several people, %1 is how many
        //% "for %1 people"
        summary += u' ' + qtTrId("summaryForPeople").arg(m_audience);
    }
    return summary;
}
