// The phone's reply archive: unpacked with the program's limits into a scratch staging folder,
// then landed beside a user's file as an operation lands it. Whatever the archive holds, a
// refusal leaves nothing behind, nothing lands outside the results folder, and the user's file
// keeps its content.
#include "FuzzSupport.h"

#include "operations/SafeArchive.h"

#include <QDir>
#include <QFile>

#include <optional>

using FuzzSupport::check;

namespace {

const QByteArray userContent = QByteArrayLiteral("the user's own file");

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString root = FuzzSupport::scratch().path() + QStringLiteral("/run");
    QDir(root).removeRecursively();
    const QString staging = root + QStringLiteral("/work/unpack");
    const QString results = root + QStringLiteral("/results");
    check(QDir().mkpath(staging) && QDir().mkpath(results));
    const QString zip = root + QStringLiteral("/work/reply.zip");
    {
        QFile file(zip);
        check(file.open(QIODevice::WriteOnly));
        file.write(reinterpret_cast<const char*>(data), qint64(size));
    }
    // A user's file with a name the replies of the corpus use.
    const QString existing = results + QStringLiteral("/report.pdf");
    {
        QFile file(existing);
        check(file.open(QIODevice::WriteOnly));
        file.write(userContent);
    }

    // Free space as a small disk would have it: bombs meet the limit quickly.
    const qint64 freeBytes = 1024 * 1024;
    const SafeArchive::Result result = SafeArchive::extract(zip, staging, freeBytes);
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
        QString error;
        const std::optional<QStringList> landed = SafeArchive::landAll(landings, results, &error);
        const QStringList there
            = QDir(results).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
        if (landed) {
            check(landed->size() == landings.size() && there.size() == landings.size() + 1);
            for (const QString& path : *landed)
                check(QFileInfo(path).absolutePath() == QFileInfo(results).absoluteFilePath());
        } else {
            check(there == QStringList { QStringLiteral("report.pdf") }); // all or nothing
        }
    }
    QFile user(existing);
    check(user.open(QIODevice::ReadOnly) && user.readAll() == userContent);
    return 0;
}
