#include "operations/EncryptTask.h"

#include "app/Log.h"
#include "operations/UniqueNames.h"
#include "storage/File.h"

#include <QDir>
#include <QFileInfo>

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
    qint64 total = 0;
    for (const QString& f : m_files)
        total += QFileInfo(f).size();
    const auto work = prepare(m_folder, total);
    if (!work)
        return failed();
    auto cleanup = qScopeGuard([&work] { QDir(*work).removeRecursively(); });

    const QString zip = *work + u'/' + m_operationId + u".zip";
    const MultipartUpload::Outcome outcome = upload(parts(m_files, stagedNames(m_files, m_folder), m_recipients), zip);
    if (outcome.cancelled)
        return { Outcome::Cancelled, {}, {}, {} };
    if (!outcome.failure.isEmpty()) {
        Log::line(u"The phone's reply did not arrive whole: " + outcome.failure);
        return failed();
    }
    if (outcome.status != 200)
        return failed();

    const auto entries = unpack(zip, *work, m_folder);
    if (cancelled())
        return { Outcome::Cancelled, {}, {}, {} };
    Result result { Outcome::Succeeded, {}, {}, {} };
    for (const SafeArchive::Entry& entry : entries.value_or(QList<SafeArchive::Entry>())) {
        if (const QString landed = land(entry, entry.name, m_folder); !landed.isEmpty())
            result.written.append(landed);
    }
    return result;
}
