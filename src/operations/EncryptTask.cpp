#include "operations/EncryptTask.h"

#include "operations/UniqueNames.h"
#include "storage/File.h"

#include <QFileInfo>

namespace {

QString failedTitle()
{
    //: Dialog title when encryption is unsuccessful
    //% "Encryption failed"
    return qtTrId("unsuccessfulEncryptionTitle");
}

} // namespace

EncryptTask::EncryptTask(
    QStringList files, QString recipients, QString resultsFolder, QString url, QObject* parent)
    : OperationTask(std::move(url), std::move(resultsFolder), failedTitle(), parent)
    , m_files(std::move(files))
    , m_recipients(std::move(recipients))
{
}

QStringList EncryptTask::stagedNames(const QStringList& files, const QString& resultsFolder)
{
    QStringList names;
    for (const QString& path : files)
        names.append(UniqueNames::uniqueEncryptedName(resultsFolder, path.section(u'/', -1)));
    return names;
}

QList<MultipartUpload::Part> EncryptTask::parts(
    const QStringList& files, const QStringList& staged, const QString& recipients)
{
    QList<MultipartUpload::Part> parts { { QStringLiteral("emails"), recipients.toUtf8(), {}, {}, {} },
        { QStringLiteral("type"), clientType().toUtf8(), {}, {}, {} } };
    for (int i = 0; i < files.size(); ++i) {
        // Named by the staged name without its last extension, filed by the staged name; the
        // bytes stream from the user's own file.
        parts.append({ File(staged.at(i)).fileName(), {}, files.at(i), staged.at(i),
            MultipartUpload::contentTypeFor(staged.at(i)) });
    }
    return parts;
}

OperationTask::Result EncryptTask::run()
{
    qint64 total = 0;
    for (const QString& f : m_files)
        total += QFileInfo(f).size();
    const QStringList staged = stagedNames(m_files, m_resultsFolder);
    auto received = sendAndUnpack(parts(m_files, staged, m_recipients), total, std::nullopt, 0644);
    if (auto* result = std::get_if<Result>(&received))
        return *result;
    // A name with a double quote comes back as the phone read it from the part header,
    // where libcurl writes '"' as "%22": such results land under the name that was sent.
    QHash<QString, QString> sentNames;
    for (const QString& name : staged) {
        if (name.contains(u'"'))
            sentNames.insert(UniqueNames::asInPartHeader(name) + u".vx", name + u".vx");
    }
    QList<SafeArchive::Landing> landings;
    for (const SafeArchive::Entry& entry : std::get<Received>(received).entries)
        landings.append({ entry.tempPath, sentNames.value(entry.name, entry.name) });
    return landAll(landings);
}
