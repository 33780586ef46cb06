#include "decrypt/DecryptTask.h"

#include "app/Log.h"
#include "encrypt/SafeArchive.h"
#include "encrypt/UniqueNames.h"

#include <QDir>
#include <QFileInfo>
#include <QStorageInfo>

namespace {

QString failedTitle()
{
    //: Dialog title when decryption is unsuccessful
    //% "Decryption failed"
    return qtTrId("unsuccessfulDecryptionTitle");
}

OperationTask::Result failed()
{
    //: Dialog description when the encryption is unsuccessful
    //% "Connection timeout"
    return { OperationTask::Outcome::Failed, failedTitle(), qtTrId("connectionTimeout"), {} };
}

} // namespace

DecryptTask::DecryptTask(QList<Intake> files, QString resultsFolder, QString url, QObject* parent)
    : OperationTask(std::move(url), parent)
    , m_files(std::move(files))
    , m_folder(std::move(resultsFolder))
{
}

QList<MultipartUpload::Part> DecryptTask::parts(const QList<Intake>& files)
{
    QList<MultipartUpload::Part> parts { { QStringLiteral("type"), clientType().toUtf8(), {}, {}, {} } };
    for (const Intake& f : files) {
        if (!f.marked)
            continue;
        const QString name = f.path.section(u'/', -1);
        parts.append({ File(f.path).fileName(), {}, f.path, name, MultipartUpload::contentTypeFor(name) });
    }
    return parts;
}

OperationTask::Result DecryptTask::run()
{
    const QString work = m_folder + u'/' + m_operationId;
    if (!QDir().mkpath(work + QStringLiteral("/unpack"))) {
        Log::line(u"Cannot create " + work);
        return failed();
    }
    auto cleanup = qScopeGuard([&work] { QDir(work).removeRecursively(); });

    qint64 total = 0;
    for (const Intake& f : m_files)
        total += f.marked ? QFileInfo(f.path).size() : 0;
    if (QStorageInfo(m_folder).bytesAvailable() < 2 * total + 16 * 1024 * 1024) {
        Log::line(QStringLiteral("Not enough free space for the decrypted files in ") + m_folder);
        return failed();
    }
    const QString zip = work + u'/' + m_operationId + u".zip";
    const MultipartUpload::Outcome outcome = upload(parts(m_files), zip);
    if (outcome.cancelled)
        return { Outcome::Cancelled, {}, {}, {} };
    if (!outcome.failure.isEmpty()) {
        Log::line(u"The phone's reply did not arrive whole: " + outcome.failure);
        return failed();
    }
    if (outcome.status == 400) {
        //: Error dialog when trying to decrypt files that are not encrypted for you
        //% "Some of the files are encrypted for other users"
        return { Outcome::Refused, failedTitle(), qtTrId("dialogOtherUsersDecryption"), {} };
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
        Log::line(u"Cannot unpack the decrypted files: " + unpacked.failure);
        return { Outcome::Succeeded, {}, {}, {} };
    }
    // Every intake file, marked or not, looks for its result; entries that match no intake
    // file go away with the operation's folder.
    Result result { Outcome::Succeeded, {}, {}, {} };
    for (const Intake& f : m_files) {
        const QString name = File(f.path).fileName();
        const auto entry = std::find_if(unpacked.entries.begin(), unpacked.entries.end(),
                                        [&name](const SafeArchive::Entry& e) { return e.name == name; });
        if (entry == unpacked.entries.end()) {
            Log::line(u"Cannot copy " + name + u": the phone sent no such file");
            continue;
        }
        const QString landed = SafeArchive::moveIn(entry->tempPath, m_folder, [&name](int counter) {
            return counter == 0 ? name : UniqueNames::withCounter(name, counter);
        });
        if (landed.isEmpty())
            Log::line(u"Cannot copy " + name + u" into " + m_folder);
        else
            result.written.append(landed);
    }
    return result;
}
