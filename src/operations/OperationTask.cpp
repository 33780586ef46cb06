#include "operations/OperationTask.h"

#include "app/Log.h"
#include "operations/WholeWrite.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QStorageInfo>
#include <QUuid>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

std::function<qint64(const QString&)>& freeSpaceProbe()
{
    static std::function<qint64(const QString&)> probe;
    return probe;
}

} // namespace

OperationTask::OperationTask(QString url, QString resultsFolder, QString failureTitle, QObject* parent)
    : QObject(parent)
    , m_url(std::move(url))
    , m_operationId(makeOperationId())
    , m_resultsFolder(std::move(resultsFolder))
    , m_failureTitle(std::move(failureTitle))
{
    qRegisterMetaType<OperationTask::Result>();
    qRegisterMetaType<OperationTask::Stage>();
}

OperationTask::~OperationTask()
{
    stopWorker();
}

void OperationTask::stopWorker()
{
    m_cancel = true;
    if (m_worker.joinable())
        m_worker.join();
}

QString OperationTask::makeOperationId()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

QString OperationTask::clientType()
{
    return u"MacOS(v" + QCoreApplication::applicationVersion() + u')';
}

void OperationTask::setFreeSpaceProbeForTesting(std::function<qint64(const QString&)> probe)
{
    freeSpaceProbe() = std::move(probe);
}

void OperationTask::start()
{
    if (m_running.exchange(true))
        return;
    m_worker = std::thread([this] {
        const Result result = run();
        // Dropped by Qt when the task is gone by then.
        QMetaObject::invokeMethod(
            this,
            [this, result] {
                if (m_worker.joinable())
                    m_worker.join();
                m_running = false;
                Q_EMIT finished(result);
            },
            Qt::QueuedConnection);
    });
}

void OperationTask::cancel(CancelReason reason)
{
    if (m_cancel.load())
        return;
    m_phoneLost = reason == CancelReason::PhoneLost;
    m_cancel = true;
}

OperationTask::Result OperationTask::cancelledResult() const
{
    if (!m_phoneLost.load())
        return { Outcome::Cancelled, {}, {}, {}, true };
    //: Failure dialog when the phone stopped answering during an operation
    //% "Contact with the phone was lost, so the operation was stopped. Nothing was changed: "
    //% "your files and the result folder are as they were."
    Result lost = failedWith(qtTrId("operationPhoneLost"));
    lost.stopped = true;
    return lost;
}

void OperationTask::report(Stage stage, qint64 done, qint64 total)
{
    // Four updates a second are as many as a person can read, and each one repaints on the
    // main thread; a new stage, and the end of a stage of known size, are always told.
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    const bool known = stage == Stage::Sending || stage == Stage::Unpacking;
    const bool end = known && total > 0 && done >= total;
    if (stage == m_lastStage && now - m_lastReport < 250 && !end)
        return;
    m_lastReport = now;
    m_lastStage = stage;
    QMetaObject::invokeMethod(
        this, [this, stage, done, total] { Q_EMIT progress(stage, done, total); }, Qt::QueuedConnection);
}

qint64 OperationTask::freeSpace() const
{
    if (const auto& probe = freeSpaceProbe())
        return probe(m_resultsFolder);
    return QStorageInfo(m_resultsFolder).bytesAvailable();
}

OperationTask::Result OperationTask::connectionFailed() const
{
    //: Dialog description when the encryption is unsuccessful
    //% "Connection timeout"
    return failedWith(qtTrId("connectionTimeout"));
}

OperationTask::Result OperationTask::notEnoughSpace() const
{
    //: Dialog description when the results would not fit on the disk; %1 is the results folder
    //% "There is not enough free space in %1."
    return failedWith(qtTrId("notEnoughFreeSpace").arg(QDir::toNativeSeparators(m_resultsFolder)));
}

OperationTask::Result OperationTask::replyNotSaved(const QString& reason) const
{
    //: Dialog description when the phone's reply cannot be stored; %1 says why
    //% "The phone's reply could not be saved: %1."
    return failedWith(qtTrId("replyNotSaved").arg(reason));
}

namespace {

QString reasonOf(const SafeArchive::Result& unpacked)
{
    using SafeArchive::Failure;
    switch (unpacked.failure) {
    case Failure::BadName:
        //: Why a reply was not saved; %1 is the refused name
        //% "it holds a file whose name cannot be used (%1)"
        return qtTrId("replyBadName").arg(SafeArchive::printableName(unpacked.detail));
    case Failure::NotAPlainFile:
        //: Why a reply was not saved; %1 is the entry's name
        //% "it holds a link or a special file (%1)"
        return qtTrId("replyNotAPlainFile").arg(SafeArchive::printableName(unpacked.detail));
    case Failure::TooManyEntries:
        //: Why a reply was not saved
        //% "it holds more than %1 files"
        return qtTrId("replyTooManyEntries").arg(SafeArchive::maxEntries);
    case Failure::CannotWrite:
        //: Why a reply was not saved; %1 is the system's reason
        //% "a file could not be written (%1)"
        return qtTrId("replyCannotWrite").arg(unpacked.detail);
    case Failure::Encrypted:
        //: Why a reply was not saved: the zip archive from the phone is protected by a password
        //% "it is protected by a password, which Varnex cannot open"
        return qtTrId("replyEncrypted");
    case Failure::Broken:
    case Failure::NoSpace:
    case Failure::Cancelled:
    case Failure::None:
        break;
    }
    //: Why a reply was not saved
    //% "it is damaged or not a zip archive"
    return qtTrId("replyBroken");
}

} // namespace

std::variant<OperationTask::Result, OperationTask::Received> OperationTask::sendAndUnpack(
    const QList<MultipartUpload::Part>& parts, qint64 uploadBytes, const std::optional<QString>& refusal400,
    int fileMode)
{
    // The results need room: refuse before sending anything. The reply itself is unpacked as
    // it arrives and takes no room of its own (unless it has to be kept whole, see below).
    if (freeSpace() - reserveBytes < uploadBytes)
        return notEnoughSpace();
    QString error;
    Received received { OperationFolder::create(m_resultsFolder, m_operationId, &error), {} };
    if (!received.folder) {
        Log::line(error);
        return replyNotSaved(error);
    }
    const QString work = received.folder->path();
    const QString unpackFolder = work + QStringLiteral("/unpack");
    if (!QDir().mkdir(unpackFolder))
        return replyNotSaved(u"cannot create " + unpackFolder);

    MultipartUpload::Transfer transfer(
        m_url, parts,
        [this](const MultipartUpload::Progress& p) {
            // Until the connection stands, nothing is measured (no total yet): the screen keeps
            // saying that it connects rather than showing made-up figures.
            if (p.received == 0 && p.total <= 0)
                return;
            if (p.received > 0)
                report(Stage::Receiving, p.received, p.receiveTotal);
            else if (p.total > 0 && p.sent >= p.total)
                report(Stage::Waiting, p.sent, p.total);
            else
                report(Stage::Sending, p.sent, p.total);
        },
        m_cancel);
    const int status = transfer.status();
    // What went wrong with the transfer itself comes first: a reply cut short is a lost
    // connection, whatever the unpacking made of its last bytes.
    const auto transferProblem = [&](const MultipartUpload::Outcome& outcome) -> std::optional<Result> {
        using Problem = MultipartUpload::Outcome::Problem;
        if (outcome.cancelled || cancelled())
            return cancelledResult();
        // A refusal is a refusal even when the phone drops the connection right after saying so.
        if (outcome.status == 400 && refusal400)
            return Result { Outcome::Refused, m_failureTitle, *refusal400, {} };
        switch (outcome.problem) {
        case Problem::FileChanged:
            //: Dialog description when a file changed size while it was being sent; %1 is its name
            //% "%1 changed while it was being sent. Nothing was saved; please try again."
            return failedWith(qtTrId("fileChangedWhileSent").arg(outcome.problemDetail.section(u'/', -1)));
        case Problem::FileUnreadable:
            // Moved, deleted or made unreadable after it was picked; told like any failed request.
            Log::line(u"Cannot read a file to send: " + Log::escaped(outcome.problemDetail));
            return connectionFailed();
        case Problem::ReplyTooLarge:
        case Problem::ReplyNotWritten:
        case Problem::None:
            break;
        }
        if (!outcome.failure.isEmpty()) {
            Log::line(u"The phone's reply did not arrive whole: " + outcome.failure);
            return connectionFailed();
        }
        if (outcome.status != 200)
            return connectionFailed();
        return std::nullopt;
    };
    if (status != 200 || cancelled()) {
        if (auto problem = transferProblem(transfer.finish(false)))
            return *problem;
        return connectionFailed();
    }

    // The first block says whether the reply can be read in one pass.
    QByteArray head;
    const char* block = nullptr;
    qint64 firstLength = 0;
    while (head.size() < SafeArchive::localHeaderLength(head) && (firstLength = transfer.next(&block)) > 0)
        head.append(block, firstLength);
    if (head.isEmpty()) {
        if (auto problem = transferProblem(transfer.finish(false)))
            return *problem;
        // Status 200 without a body: there is nothing to store.
        //: Why a reply was not saved
        //% "it is empty"
        return replyNotSaved(qtTrId("replyEmpty"));
    }

    SafeArchive::Result unpacked;
    if (SafeArchive::needsSeeking(head)) {
        // A stored entry whose size follows its data: only the central directory at the end
        // says where it ends, so this reply is kept whole and read from the disk.
        Log::line(QStringLiteral("The phone's reply cannot be read in one pass; it is saved whole first"));
        auto spilled = spill(transfer, head, work + u'/' + m_operationId + u".zip");
        if (auto problem = transferProblem(transfer.finish(false)))
            return *problem;
        if (!spilled.isEmpty())
            return spilled.front();
        report(Stage::Unpacking, 0, 1);
        unpacked = SafeArchive::extract(
            work + u'/' + m_operationId + u".zip", unpackFolder, freeSpace() - reserveBytes,
            [this](qint64 done, qint64 all) { report(Stage::Unpacking, done, all); }, &m_cancel, fileMode);
        if (!QFile::remove(work + u'/' + m_operationId + u".zip"))
            Log::line(QStringLiteral("Cannot delete zip archive"));
    } else {
        // Handed on as it came: the blocks read for the look at the head go first.
        bool headGiven = false;
        const SafeArchive::BlockReader read = [&](const char** out) -> qint64 {
            if (!headGiven) {
                headGiven = true;
                *out = head.constData();
                return head.size();
            }
            return transfer.next(out);
        };
        unpacked
            = SafeArchive::extractStream(read, unpackFolder, freeSpace() - reserveBytes, &m_cancel, fileMode);
    }
    // Read to its end when the archive was whole, so a reply cut short is still seen as such.
    if (auto problem = transferProblem(transfer.finish(unpacked.ok)))
        return *problem;
    if (cancelled())
        return cancelledResult();
    if (!unpacked.ok) {
        // The detail may hold a name from the phone: escaped, it cannot forge log lines.
        Log::line(u"Cannot unpack the phone's reply: " + Log::escaped(unpacked.detail));
        if (unpacked.failure == SafeArchive::Failure::NoSpace)
            return notEnoughSpace();
        return replyNotSaved(reasonOf(unpacked));
    }
    received.entries = unpacked.entries;
    return received;
}

QList<OperationTask::Result> OperationTask::spill(
    MultipartUpload::Transfer& transfer, const QByteArray& head, const QString& path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        return { replyNotSaved(QString::fromLocal8Bit(std::strerror(errno))) };
    const qint64 limit = freeSpace() - reserveBytes;
    qint64 written = 0;
    const char* block = head.constData();
    qint64 n = head.size();
    bool ok = true;
    int error = 0;
    do {
        if (written + n > limit) {
            ::close(fd);
            Log::line(QStringLiteral("The phone's reply went past the free space"));
            return { notEnoughSpace() };
        }
        ok = WholeWrite::writeAll(fd, block, n);
        error = ok ? 0 : errno;
        written += n;
        report(Stage::Receiving, written, 0);
    } while (ok && (n = transfer.next(&block)) > 0);
    ::close(fd);
    if (!ok) {
        Log::line(u"Cannot write the phone's reply: " + QString::fromLocal8Bit(std::strerror(error)));
        if (error == ENOSPC)
            return { notEnoughSpace() };
        return { replyNotSaved(QString::fromLocal8Bit(std::strerror(error))) };
    }
    return {};
}

OperationTask::Result OperationTask::landAll(const QList<SafeArchive::Landing>& landings)
{
    if (cancelled())
        return cancelledResult();
    QString error;
    const auto landed = SafeArchive::landAll(landings, m_resultsFolder, &error);
    if (!landed) {
        // The reason may name an entry of the phone's reply.
        Log::line(u"Cannot move the results into " + m_resultsFolder + u": " + Log::escaped(error));
        //: Dialog description when the results cannot be put into their folder; %1 is the folder, %2 why
        //% "The results could not be moved into %1: %2."
        return failedWith(qtTrId("resultsNotMovedIn").arg(QDir::toNativeSeparators(m_resultsFolder), error));
    }
    return { Outcome::Succeeded, {}, {}, *landed };
}
