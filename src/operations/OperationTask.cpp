#include "operations/OperationTask.h"

#include "app/Log.h"
#include "operations/WholeWrite.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStorageInfo>
#include <QUuid>

#include <algorithm>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
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
                // Cancelled after the work was done but before it was told: a cancel is never
                // told as a success, and leaves the result folder as it was.
                if (m_cancel.load() && !m_phoneLost.load() && result.outcome != Outcome::Cancelled) {
                    for (const QString& path : result.written)
                        QFile::remove(path);
                    Q_EMIT finished(cancelledResult());
                    return;
                }
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
    const bool end = total > 0 && done >= total;
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

void OperationTask::LetGo::operator()(OperationFolder* folder) const
{
    // Results cancelled as they reached the disk wait for it when they are removed (seconds
    // for thousands); the folder stays locked until they are gone, and a start after a quit
    // meanwhile removes what is left.
    if (folder->removeWithin(100)) {
        delete folder;
        return;
    }
    std::thread([folder] { delete folder; }).detach();
}

OperationTask::Folder OperationTask::openFolder(Result* failure)
{
    QString error;
    Folder folder(OperationFolder::create(m_resultsFolder, m_operationId, &error).release());
    if (!folder) {
        Log::line(error);
        *failure = replyNotSaved(error);
    }
    return folder;
}

namespace {

// What the phone said with a refusal, as a person may read it: the "message" of a JSON answer,
// or its plain text, on one line, without the characters no name may carry, and short.
QString cleanedAnswer(const QByteArray& body)
{
    const QJsonDocument json = QJsonDocument::fromJson(body);
    QString text = json.isObject() ? json.object().value(u"message").toString() : QString::fromUtf8(body);
    if (text.contains(QChar(0)))
        return {};
    text = SafeArchive::printableName(text.simplified());
    return text;
}

} // namespace

OperationTask::Reply OperationTask::send(const OperationFolder& folder,
    const QList<MultipartUpload::Part>& parts, qint64 uploadBytes, bool refusable, int fileMode,
    const QSet<QString>& sentNames)
{
    Reply reply;
    const auto failed = [&reply](Result result) {
        reply.kind = result.outcome == Outcome::Refused ? Reply::Kind::Refused : Reply::Kind::Failed;
        reply.failure = std::move(result);
        return reply;
    };
    // The results need room: refuse before sending anything. The reply itself is unpacked as
    // it arrives and takes no room of its own (unless it has to be kept whole, see below).
    if (freeSpace() - reserveBytes < uploadBytes)
        return failed(notEnoughSpace());
    const QString work = folder.path();
    const QString replyId = QString::number(++m_replies);
    const QString unpackFolder = work + u"/unpack-" + replyId;
    if (!QDir().mkdir(unpackFolder))
        return failed(replyNotSaved(u"cannot create " + unpackFolder));

    MultipartUpload::Transfer transfer(
        m_url, parts,
        [this](const MultipartUpload::Progress& p) {
            // Until the connection stands, nothing is measured (no total yet): the screen keeps
            // saying that it connects rather than showing made-up figures.
            if (m_quietTransfers || (p.received == 0 && p.total <= 0))
                return;
            if (p.received > 0)
                report(Stage::Receiving, p.received, p.receiveTotal);
            else if (p.total > 0 && p.sent >= p.total)
                report(Stage::Waiting, 0, 0);
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
        if (outcome.status == 400 && refusable)
            return Result { Outcome::Refused, m_failureTitle, {}, {} };
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
    if (status == 400 && refusable && !cancelled()) {
        // The phone may say why: a few words are kept, the rest is not read.
        QByteArray body;
        const char* block = nullptr;
        for (qint64 n; body.size() < 4096 && (n = transfer.next(&block)) > 0;)
            body.append(block, n);
        reply.answer = cleanedAnswer(body.left(4096));
    }
    if (status != 200 || cancelled()) {
        if (auto problem = transferProblem(transfer.finish(false)))
            return failed(*problem);
        return failed(connectionFailed());
    }

    // The first block says whether the reply can be read in one pass.
    QByteArray head;
    const char* block = nullptr;
    qint64 firstLength = 0;
    while (head.size() < SafeArchive::localHeaderLength(head) && (firstLength = transfer.next(&block)) > 0)
        head.append(block, firstLength);
    if (head.isEmpty()) {
        if (auto problem = transferProblem(transfer.finish(false)))
            return failed(*problem);
        // Status 200 without a body: there is nothing to store.
        //: Why a reply was not saved
        //% "it is empty"
        return failed(replyNotSaved(qtTrId("replyEmpty")));
    }

    SafeArchive::Result unpacked;
    if (SafeArchive::needsSeeking(head)) {
        // Only the central directory at the end says where the first entry ends: this reply is
        // kept whole and read from the disk.
        Log::line(QStringLiteral("The phone's reply cannot be read in one pass; it is saved whole first"));
        const QString zip = work + u"/reply-" + replyId + u".zip";
        auto spilled = spill(transfer, head, zip);
        if (auto problem = transferProblem(transfer.finish(false)))
            return failed(*problem);
        if (!spilled.isEmpty())
            return failed(spilled.front());
        report(Stage::Unpacking, 0, 1);
        unpacked = SafeArchive::extract(
            zip, unpackFolder, freeSpace() - reserveBytes,
            [this](qint64 done, qint64 all) {
                if (!m_quietTransfers)
                    report(Stage::Unpacking, done, all);
            },
            &m_cancel, fileMode, sentNames);
        if (!QFile::remove(zip))
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
        unpacked = SafeArchive::extractStream(
            read, unpackFolder, freeSpace() - reserveBytes, &m_cancel, fileMode, sentNames);
    }
    // Read to its end when the archive was whole, so a reply cut short is still seen as such.
    if (auto problem = transferProblem(transfer.finish(unpacked.ok)))
        return failed(*problem);
    if (cancelled())
        return failed(cancelledResult());
    if (!unpacked.ok) {
        // The detail may hold a name from the phone: escaped, it cannot forge log lines.
        Log::line(u"Cannot unpack the phone's reply: " + Log::escaped(unpacked.detail));
        if (unpacked.failure == SafeArchive::Failure::NoSpace)
            return failed(notEnoughSpace());
        return failed(replyNotSaved(reasonOf(unpacked)));
    }
    reply.kind = Reply::Kind::Received;
    reply.entries = unpacked.entries;
    return reply;
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

bool OperationTask::refuseUnreadable(QList<Item>& items)
{
    bool any = false;
    for (Item& item : items) {
        // Opened as the upload opens it: a pipe must not block, and only a regular file goes.
        const int fd = ::open(QFile::encodeName(item.source).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        struct stat st
        {
        };
        const bool readable = fd >= 0 && ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
        if (fd >= 0)
            ::close(fd);
        if (!readable) {
            Log::line(u"Cannot read a file to send: " + Log::escaped(item.source));
            //: Why a file was not sent: it could not be opened, or is no longer a plain file
            //% "it could not be read"
            item.problem = qtTrId("fileUnreadable");
            continue;
        }
        item.size = st.st_size;
        any = true;
    }
    return any;
}

void OperationTask::match(
    QList<Item>& items, const QList<int>& which, const QList<SafeArchive::Entry>& entries)
{
    QList<bool> used(entries.size(), false);
    for (const int i : which) {
        Item& item = items[i];
        for (qsizetype e = 0; e < entries.size(); ++e) {
            if (!used.at(e) && item.replyNames.contains(entries.at(e).name)) {
                used[e] = true;
                item.tempPath = entries.at(e).tempPath;
                break;
            }
        }
        if (item.tempPath.isEmpty()) {
            Log::line(u"Cannot copy " + Log::escaped(item.landAs) + u": the phone sent no such file");
            //: Why a file has no result: the phone's reply held none for it
            //% "the phone sent no result for it"
            item.problem = qtTrId("fileNoResult");
        }
    }
    // More results than files sent: what no file asked for stays out of the result folder. The
    // log names a few; a reply of thousands would drown it.
    const qsizetype before = m_ignored.size();
    for (qsizetype e = 0; e < entries.size(); ++e) {
        if (used.at(e))
            continue;
        if (m_ignored.size() - before < 5)
            Log::line(
                u"The phone sent a result no file asked for, not saved: " + Log::escaped(entries.at(e).name));
        m_ignored.append(entries.at(e).name);
    }
    if (m_ignored.size() - before > 5)
        Log::line(
            QStringLiteral("... and %1 more results no file asked for").arg(m_ignored.size() - before - 5));
}

OperationTask::Result OperationTask::failAll(Result failure, const QList<Item>& items)
{
    for (const Item& item : items)
        failure.files.append({ item.source, {}, item.problem.isEmpty() ? failure.message : item.problem });
    return failure;
}

OperationTask::Result OperationTask::conclude(QList<Item>& items)
{
    // A lost phone still tells what became of each file; a cancel tells nothing.
    const auto stopped = [&] {
        const Result stop = cancelledResult();
        return stop.outcome == Outcome::Cancelled ? stop : failAll(stop, items);
    };
    if (cancelled())
        return stopped();
    QList<SafeArchive::Landing> landings;
    QList<int> landing; // the item of each landing
    for (qsizetype i = 0; i < items.size(); ++i) {
        if (!items.at(i).tempPath.isEmpty()) {
            landings.append({ items.at(i).tempPath, items.at(i).landAs });
            landing.append(int(i));
        }
    }
    SafeArchive::Landed landed;
    if (!landings.isEmpty()) {
        report(Stage::MovingIn, 0, landings.size());
        landed = SafeArchive::landAll(landings, m_resultsFolder, &m_cancel,
            [this](qint64 done, qint64 all) { report(Stage::MovingIn, done, all); });
        if (landed.cancelled)
            return stopped();
    }
    Result result { Outcome::Succeeded, {}, {}, {} };
    QString notMovedIn;
    for (qsizetype l = 0; l < landings.size(); ++l) {
        Item& item = items[landing.at(l)];
        if (!landed.paths.at(l).isEmpty()) {
            result.written.append(landed.paths.at(l));
            continue;
        }
        const QString why = SafeArchive::printableName(item.landAs) + u": " + landed.errors.at(l);
        // The name may come from the phone's reply.
        Log::line(u"Cannot move a result into " + m_resultsFolder + u": " + Log::escaped(why));
        if (notMovedIn.isEmpty())
            notMovedIn = why;
        //: Why a file has no result: it could not be put into the result folder; %1 says why
        //% "its result could not be saved (%1)"
        item.problem = qtTrId("fileNotMovedIn").arg(landed.errors.at(l));
    }
    qsizetype next = 0;
    for (qsizetype i = 0; i < items.size(); ++i) {
        const bool isLanded = next < landing.size() && landing.at(next) == i;
        QString path;
        if (isLanded)
            path = landed.paths.at(next++);
        result.files.append({ items.at(i).source, path, path.isEmpty() ? items.at(i).problem : QString() });
    }
    result.ignored = m_ignored;
    if (!result.written.isEmpty())
        return result;
    // Nothing landed: the failure dialog says why, as one sentence when it is one reason.
    result.outcome = Outcome::Failed;
    result.title = m_failureTitle;
    const bool allRefused = std::all_of(items.begin(), items.end(), [](const Item& i) { return i.refused; });
    const bool noneMovedIn = !landings.isEmpty() && landings.size() == items.size();
    if (allRefused) {
        result.outcome = Outcome::Refused;
        //: Error dialog when trying to decrypt files that are not encrypted for you
        //% "Some of the files are encrypted for other users"
        result.message = qtTrId("dialogOtherUsersDecryption");
    } else if (noneMovedIn) {
        //: Dialog description when the results cannot be put into their folder; %1 is the folder, %2 why
        //% "The results could not be moved into %1: %2."
        result.message
            = qtTrId("resultsNotMovedIn").arg(QDir::toNativeSeparators(m_resultsFolder), notMovedIn);
    } else {
        result.message = listOfProblems(result.files);
    }
    return result;
}

QString OperationTask::listOfProblems(const QList<FileResult>& files)
{
    // A dialog has room for a few lines; the per-file list has them all.
    constexpr int shown = 5;
    QStringList lines;
    int failed = 0;
    for (const FileResult& f : files) {
        if (f.problem.isEmpty())
            continue;
        if (++failed <= shown)
            lines.append(SafeArchive::printableName(f.source.section(u'/', -1)) + u": " + f.problem);
    }
    if (failed > shown) {
        //: Ends a list of files that failed, %1 is how many more failed
        //% "and %1 more"
        lines.append(qtTrId("problemsMore").arg(failed - shown));
    }
    return lines.join(u'\n');
}
