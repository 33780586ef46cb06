// The phone's reply archive: unpacked with the program's limits into a scratch staging folder,
// read from the disk and read as it arrives, then landed beside a user's file as an operation
// lands it. Whatever the archive holds, a
// refusal leaves nothing behind, nothing lands outside the results folder, and the user's file
// keeps its content.
#include "FuzzSupport.h"

#include "operations/SafeArchive.h"

#include <QDir>
#include <QFile>

#include <functional>

using FuzzSupport::check;

namespace {

const QByteArray userContent = QByteArrayLiteral("the user's own file");
// Free space as a small disk would have it: bombs meet the limit quickly.
const qint64 freeBytes = 1024 * 1024;

// Unpacks with `unpack` into a fresh staging folder and lands the result beside a user's file.
void unpackAndLand(
    const QString& root, const std::function<SafeArchive::Result(const QString& staging)>& unpack)
{
    const QString staging = root + QStringLiteral("/work/unpack");
    const QString results = root + QStringLiteral("/results");
    check(QDir().mkpath(staging) && QDir().mkpath(results));
    // A user's file with a name the replies of the corpus use.
    const QString existing = results + QStringLiteral("/report.pdf");
    {
        QFile file(existing);
        check(file.open(QIODevice::WriteOnly));
        file.write(userContent);
    }

    const SafeArchive::Result result = unpack(staging);
    const QStringList left
        = QDir(staging).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    if (!result.ok) {
        check(left.isEmpty() && result.entries.isEmpty());
    } else {
        qint64 total = 0;
        QList<SafeArchive::Landing> landings;
        for (const SafeArchive::Entry& entry : result.entries) {
            check(SafeArchive::isSafeEntryName(entry.name));
            check(QFileInfo(entry.tempPath).absolutePath() == QFileInfo(staging).absoluteFilePath());
            total += entry.size;
            landings.append({ entry.tempPath, entry.name });
        }
        check(total <= freeBytes);
        const SafeArchive::Landed landed = SafeArchive::landAll(landings, results);
        const QStringList there
            = QDir(results).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
        // Each result lands on its own, inside the results folder, beside the user's file.
        qsizetype count = 0;
        for (const QString& path : landed.paths) {
            check(path.isEmpty() || QFileInfo(path).absolutePath() == QFileInfo(results).absoluteFilePath());
            count += path.isEmpty() ? 0 : 1;
        }
        check(landed.paths.size() == landings.size() && there.size() == count + 1);
    }
    QFile user(existing);
    check(user.open(QIODevice::ReadOnly) && user.readAll() == userContent);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString root = FuzzSupport::scratch().path() + QStringLiteral("/run");
    QDir(root).removeRecursively();
    // Read from the disk, as a reply that has to be kept whole is.
    const QString zip = root + QStringLiteral("/reply.zip");
    check(QDir().mkpath(root));
    {
        QFile file(zip);
        check(file.open(QIODevice::WriteOnly));
        file.write(reinterpret_cast<const char*>(data), qint64(size));
    }
    unpackAndLand(root + QStringLiteral("/file"),
        [&](const QString& staging) { return SafeArchive::extract(zip, staging, freeBytes); });
    // Read as it arrives, in blocks whose size the first byte picks (any boundary may matter).
    const qint64 block = size > 0 ? 1 + qint64(data[0]) * 37 : 1;
    unpackAndLand(root + QStringLiteral("/stream"), [&](const QString& staging) {
        qint64 offset = 0;
        const SafeArchive::BlockReader read = [&](const char** out) -> qint64 {
            const qint64 n = qMin<qint64>(block, qint64(size) - offset);
            *out = reinterpret_cast<const char*>(data) + offset;
            offset += n;
            return n;
        };
        return SafeArchive::extractStream(read, staging, freeBytes);
    });
    return 0;
}
