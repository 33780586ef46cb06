#include "operations/EncryptTask.h"

#include "operations/UniqueNames.h"
#include "storage/File.h"

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
    QList<Item> items;
    for (const QString& file : m_files)
        items.append({ file, {}, {}, 0, {}, {}, false });
    if (!refuseUnreadable(items))
        return conclude(items);
    QList<int> sent;
    QStringList files;
    qint64 total = 0;
    for (qsizetype i = 0; i < items.size(); ++i) {
        if (items.at(i).problem.isEmpty()) {
            sent.append(int(i));
            files.append(items.at(i).source);
            total += items.at(i).size;
        }
    }
    const QStringList staged = stagedNames(files, m_resultsFolder);
    // Each result is named after the name sent, plus ".vx"; a name with a double quote comes
    // back as the phone read it from the part header, where libcurl writes '"' as "%22": such
    // results land under the name that was sent.
    QSet<QString> sentNames;
    for (qsizetype k = 0; k < sent.size(); ++k) {
        Item& item = items[sent.at(k)];
        item.landAs = staged.at(k) + u".vx";
        item.replyNames = { item.landAs, UniqueNames::asInPartHeader(staged.at(k)) + u".vx" };
        sentNames += QSet<QString>(item.replyNames.begin(), item.replyNames.end());
    }
    Result failure;
    const auto folder = openFolder(&failure);
    if (!folder)
        return failAll(failure, items);
    const Reply reply = send(*folder, parts(files, staged, m_recipients), total, false, 0644, sentNames);
    if (reply.kind != Reply::Kind::Received)
        return reply.failure.outcome == Outcome::Cancelled ? reply.failure : failAll(reply.failure, items);
    match(items, sent, reply.entries);
    return conclude(items);
}
