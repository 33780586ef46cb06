// File names as users have them (quotes, dots, newlines, 300 characters, any script): each
// line of the input names a file to send, or with a leading "+" a result already on disk. The
// upload names and parts are made by the code the operations run, and must never take an
// earlier result's name nor carry a path.
#include "FuzzSupport.h"

#include "operations/DecryptTask.h"
#include "operations/EncryptTask.h"
#include "operations/UniqueNames.h"

#include <QDir>
#include <QFile>


using FuzzSupport::check;

namespace {

// Only names a file system can hold become files.
bool touch(const QString& folder, const QString& name)
{
    if (name.isEmpty() || name == u"." || name == u".." || name.contains(u'/') || name.contains(QChar(0))
        || QFile::encodeName(name).size() > 255)
        return false;
    QFile file(folder + u'/' + name);
    return file.open(QIODevice::WriteOnly);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 4096)
        return 0;
    const QString root = FuzzSupport::scratch().path() + QStringLiteral("/names");
    QDir(root).removeRecursively();
    const QString sources = root + QStringLiteral("/sources");
    const QString results = root + QStringLiteral("/results");
    check(QDir().mkpath(sources) && QDir().mkpath(results));

    QStringList files;
    QList<DecryptTask::Intake> intake;
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    for (const QString& line : text.split(u'\n')) {
        if (line.startsWith(u'+')) {
            touch(results, line.mid(1));
        } else if (touch(sources, line) && !files.contains(sources + u'/' + line)) {
            files.append(sources + u'/' + line);
            intake.append({ files.last(), true });
        }
        // Else landing would try the same taken name again and again.
        check(UniqueNames::withCounter(line, 1) != UniqueNames::withCounter(line, 2));
    }

    const QStringList staged = EncryptTask::stagedNames(files, results);
    check(staged.size() == files.size());
    for (const QString& name : staged) {
        check(!name.contains(u'/'));
        check(!QFileInfo::exists(results + u'/' + name + u".vx"));
    }
    for (const auto& parts : { EncryptTask::parts(files, staged, QStringLiteral("ann@example.com")),
             DecryptTask::parts(intake) }) {
        for (const MultipartUpload::Part& part : parts) {
            check(!part.name.contains(u'/') && !part.filename.contains(u'/'));
            check(part.filePath.isEmpty()
                || QFileInfo(part.filePath).absolutePath() == QFileInfo(sources).absoluteFilePath());
            check(!part.contentType.isEmpty() || part.filePath.isEmpty());
            // A name must not end its header line or its quoted string early.
            const QString header = UniqueNames::asInPartHeader(part.filename);
            check(!header.contains(u'"') && !header.contains(u'\r') && !header.contains(u'\n'));
        }
    }
    return 0;
}
