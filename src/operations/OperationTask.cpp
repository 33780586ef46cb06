#include "operations/OperationTask.h"

#include "app/Log.h"
#include "operations/UniqueNames.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStorageInfo>
#include <QDateTime>
#include <QDir>
#include <QRegularExpression>
#include <QUuid>

OperationTask::OperationTask(QString url, QObject* parent)
    : QObject(parent)
    , m_url(std::move(url))
    , m_operationId(makeOperationId())
{
    qRegisterMetaType<OperationTask::Result>();
    qRegisterMetaType<OperationTask::Stage>();
}

OperationTask::~OperationTask()
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

void OperationTask::start()
{
    if (m_running.exchange(true))
        return;
    m_worker = std::thread([this] {
        const Result result = run();
        QMetaObject::invokeMethod(this, [this, result] {
            if (m_worker.joinable())
                m_worker.join();
            m_running = false;
            Q_EMIT finished(result);
        }, Qt::QueuedConnection);
    });
}

void OperationTask::report(Stage stage, qint64 done, qint64 total)
{
    // At most every 50 ms, so a fast transfer does not flood the screen with updates.
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (now - m_lastReport < 50 && done < total)
        return;
    m_lastReport = now;
    QMetaObject::invokeMethod(this, [this, stage, done, total] { Q_EMIT progress(stage, done, total); },
                              Qt::QueuedConnection);
}

MultipartUpload::Outcome OperationTask::upload(const QList<MultipartUpload::Part>& parts, const QString& replyPath)
{
    report(Stage::Sending, 0, 1);
    return MultipartUpload::send(
        m_url, parts, replyPath,
        [this](const MultipartUpload::Progress& p) {
            if (p.received > 0)
                report(Stage::Receiving, p.received, 0);
            else if (p.total > 0 && p.sent >= p.total)
                report(Stage::Waiting, p.sent, p.total);
            else
                report(Stage::Sending, p.sent, p.total);
        },
        m_cancel);
}

std::optional<QString> OperationTask::prepare(const QString& folder, qint64 uploadBytes)
{
    const QString work = folder + u'/' + m_operationId;
    if (folder.isEmpty() || !QDir().mkpath(work + QStringLiteral("/unpack"))) {
        Log::line(u"Cannot create " + work);
        return std::nullopt;
    }
    // The reply and its unpacked files both need room: refuse before sending anything.
    if (QStorageInfo(folder).bytesAvailable() < 2 * uploadBytes + 16 * 1024 * 1024) {
        Log::line(u"Not enough free space for the results in " + folder);
        QDir(work).removeRecursively();
        return std::nullopt;
    }
    return work;
}

std::optional<QList<SafeArchive::Entry>> OperationTask::unpack(const QString& zip, const QString& work, const QString& folder)
{
    report(Stage::Unpacking, 0, 1);
    const SafeArchive::Result unpacked = SafeArchive::extract(
        zip, work + QStringLiteral("/unpack"), QStorageInfo(folder).bytesAvailable(),
        [this](qint64 done, qint64 all) { report(Stage::Unpacking, done, all); }, &m_cancel);
    if (cancelled())
        return std::nullopt;
    if (!unpacked.ok) {
        Log::line(u"Cannot unpack the phone's reply: " + unpacked.failure);
        return std::nullopt;
    }
    return unpacked.entries;
}

QString OperationTask::land(const SafeArchive::Entry& entry, const QString& name, const QString& folder)
{
    const QString landed = SafeArchive::moveIn(entry.tempPath, folder, [&name](int counter) {
        return counter == 0 ? name : UniqueNames::withCounter(name, counter);
    });
    if (landed.isEmpty())
        Log::line(u"Cannot move " + name + u" into " + folder);
    return landed;
}

int removeLeftoverOperationFolders(const QString& folder)
{
    static const QRegularExpression uuid(
        QStringLiteral("^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}(\\.zip)?$"));
    int removed = 0;
    QDir dir(folder);
    for (const QFileInfo& info : dir.entryInfoList(QDir::Dirs | QDir::Files | QDir::NoDotAndDotDot | QDir::Hidden)) {
        if (!uuid.match(info.fileName()).hasMatch() || info.isSymLink())
            continue;
        const bool isZip = info.fileName().endsWith(u".zip");
        if (isZip ? (info.isFile() && QFile::remove(info.filePath())) : (info.isDir() && QDir(info.filePath()).removeRecursively()))
            ++removed;
    }
    return removed;
}
