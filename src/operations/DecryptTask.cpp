#include "operations/DecryptTask.h"

#include "app/Log.h"

#include <QDir>
#include <QFileInfo>

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
    qint64 total = 0;
    for (const Intake& f : m_files)
        total += f.marked ? QFileInfo(f.path).size() : 0;
    const auto work = prepare(m_folder, total);
    if (!work)
        return failed();
    auto cleanup = qScopeGuard([&work] { QDir(*work).removeRecursively(); });

    const QString zip = *work + u'/' + m_operationId + u".zip";
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

    const auto entries = unpack(zip, *work, m_folder);
    if (cancelled())
        return { Outcome::Cancelled, {}, {}, {} };
    if (!entries)
        return { Outcome::Succeeded, {}, {}, {} };
    // Every intake file, marked or not, looks for its result; entries that match no intake
    // file go away with the operation's folder.
    Result result { Outcome::Succeeded, {}, {}, {} };
    for (const Intake& f : m_files) {
        const QString name = File(f.path).fileName();
        const auto entry = std::find_if(entries->begin(), entries->end(),
                                        [&name](const SafeArchive::Entry& e) { return e.name == name; });
        if (entry == entries->end()) {
            Log::line(u"Cannot copy " + name + u": the phone sent no such file");
            continue;
        }
        if (const QString landed = land(*entry, name, m_folder); !landed.isEmpty())
            result.written.append(landed);
    }
    return result;
}
