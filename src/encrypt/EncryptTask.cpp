#include "encrypt/EncryptTask.h"

#include "app/Log.h"
#include "encrypt/SafeArchive.h"
#include "encrypt/UniqueNames.h"
#include "storage/File.h"

#include <QDir>
#include <QFileInfo>
#include <QStorageInfo>

namespace {

OperationTask::Result failed()
{
    //: Dialog title when encryption is unsuccessful
    //% "Encryption failed"
    const QString title = qtTrId("unsuccessfulEncryptionTitle");
    //: Dialog description when the encryption is unsuccessful
    //% "Connection timeout"
    const QString message = qtTrId("connectionTimeout");
    return { OperationTask::Outcome::Failed, title, message, {} };
}

} // namespace

EncryptTask::EncryptTask(QStringList files, QString recipients, QString resultsFolder, QString url, QObject* parent)
    : OperationTask(std::move(url), parent)
    , m_files(std::move(files))
    , m_recipients(std::move(recipients))
    , m_folder(std::move(resultsFolder))
{
}

QStringList EncryptTask::stagedNames(const QStringList& files, const QString& resultsFolder)
{
    QStringList names;
    for (const QString& path : files)
        names.append(UniqueNames::uniqueEncryptedName(resultsFolder, path.section(u'/', -1)));
    return names;
}

QList<MultipartUpload::Part> EncryptTask::parts(const QStringList& files, const QStringList& staged, const QString& recipients)
{
    QList<MultipartUpload::Part> parts { { QStringLiteral("emails"), recipients.toUtf8(), {}, {}, {} },
                                         { QStringLiteral("type"), clientType().toUtf8(), {}, {}, {} } };
    for (int i = 0; i < files.size(); ++i) {
        // Named by the staged name without its last extension, filed by the staged name; the
        // bytes stream from the user's own file.
        parts.append({ File(staged.at(i)).fileName(), {}, files.at(i), staged.at(i), MultipartUpload::contentTypeFor(staged.at(i)) });
    }
    return parts;
}

OperationTask::Result EncryptTask::run()
{
    const QString work = m_folder + u'/' + m_operationId;
    if (!QDir().mkpath(work + QStringLiteral("/unpack"))) {
        Log::line(u"Cannot create " + work);
        return failed();
    }
    auto cleanup = qScopeGuard([&work] { QDir(work).removeRecursively(); });

    qint64 total = 0;
    for (const QString& f : m_files)
        total += QFileInfo(f).size();
    // The reply and its unpacked files both need room; refuse before sending anything.
    if (QStorageInfo(m_folder).bytesAvailable() < 2 * total + 16 * 1024 * 1024) {
        Log::line(QStringLiteral("Not enough free space for the encrypted files in ") + m_folder);
        return failed();
    }
    const QStringList staged = stagedNames(m_files, m_folder);
    const QString zip = work + u'/' + m_operationId + u".zip";
    const MultipartUpload::Outcome outcome = upload(parts(m_files, staged, m_recipients), zip);
    if (outcome.cancelled)
        return { Outcome::Cancelled, {}, {}, {} };
    if (!outcome.failure.isEmpty()) {
        Log::line(u"The phone's reply did not arrive whole: " + outcome.failure);
        return failed();
    }
    if (outcome.status != 200)
        return failed();

    report(Stage::Unpacking, 0, 1);
    const SafeArchive::Result unpacked =
        SafeArchive::extract(zip, work + QStringLiteral("/unpack"), QStorageInfo(m_folder).bytesAvailable(),
                             [this](qint64 done, qint64 all) { report(Stage::Unpacking, done, all); }, &cancelFlag());
    if (cancelled())
        return { Outcome::Cancelled, {}, {}, {} };
    if (!unpacked.ok) {
        Log::line(u"Cannot unpack the encrypted files: " + unpacked.failure);
        return { Outcome::Succeeded, {}, {}, {} };
    }
    Result result { Outcome::Succeeded, {}, {}, {} };
    for (const SafeArchive::Entry& entry : unpacked.entries) {
        const QString landed = SafeArchive::moveIn(entry.tempPath, m_folder, [&entry](int counter) {
            return counter == 0 ? entry.name : UniqueNames::withCounter(entry.name, counter);
        });
        if (landed.isEmpty())
            Log::line(u"Cannot move " + entry.name + u" into " + m_folder);
        else
            result.written.append(landed);
    }
    return result;
}
