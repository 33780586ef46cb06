#include "operations/DecryptTask.h"

#include "app/Log.h"
#include "operations/UniqueNames.h"

#include <QFileInfo>

namespace {

QString failedTitle()
{
    //: Dialog title when decryption is unsuccessful
    //% "Decryption failed"
    return qtTrId("unsuccessfulDecryptionTitle");
}

} // namespace

DecryptTask::DecryptTask(QList<Intake> files, QString resultsFolder, QString url, QObject* parent)
    : OperationTask(std::move(url), std::move(resultsFolder), failedTitle(), parent)
    , m_files(std::move(files))
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
    //: Error dialog when trying to decrypt files that are not encrypted for you
    //% "Some of the files are encrypted for other users"
    auto received = sendAndUnpack(parts(m_files), total, qtTrId("dialogOtherUsersDecryption"), 0600);
    if (auto* result = std::get_if<Result>(&received))
        return *result;
    const QList<SafeArchive::Entry>& entries = std::get<Received>(received).entries;
    // Every intake file, marked or not, looks for its result; entries that match no intake
    // file go away with the operation's folder. A name with a double quote may come back as
    // libcurl wrote it in the part header ("%22").
    QList<SafeArchive::Landing> landings;
    for (const Intake& f : m_files) {
        const QString name = File(f.path).fileName();
        const QString sent = UniqueNames::asInPartHeader(name);
        const auto entry = std::find_if(entries.begin(), entries.end(),
            [&](const SafeArchive::Entry& e) { return e.name == name || e.name == sent; });
        if (entry == entries.end()) {
            Log::line(u"Cannot copy " + name + u": the phone sent no such file");
            continue;
        }
        if (std::any_of(landings.begin(), landings.end(),
                [&](const auto& l) { return l.tempPath == entry->tempPath; }))
            continue; // two intake files of one name: the result lands once
        landings.append({ entry->tempPath, name });
    }
    return landAll(landings);
}
