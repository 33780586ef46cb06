#pragma once

#include <QList>
#include <QString>

#include <atomic>
#include <functional>

// Unpacks the phone's zip replies without trusting them: only plain files at the top level,
// no absolute paths, no "..", no links or devices; nothing larger than the free space or a
// hundred times the archive; and all or nothing: a refused or broken archive leaves no file.
namespace SafeArchive {

inline constexpr double maxExpansion = 100.0;

struct Entry
{
    QString name;     // as named in the archive
    QString tempPath; // where it was written, inside the staging folder
    qint64 size = 0;
};

struct Result
{
    bool ok = false;
    QString failure; // for the log
    QList<Entry> entries;
};

bool isSafeEntryName(const QString& name);

// Unpacks `archive` into `stagingFolder` (which must exist, empty, on the destination's
// volume). On failure the staging folder's contents are removed again.
Result extract(const QString& archive, const QString& stagingFolder, qint64 freeBytes,
               const std::function<void(qint64 done, qint64 total)>& onProgress = {},
               const std::atomic<bool>* cancel = nullptr);

// Moves a staged file into `folder` under the first name `nameFor(counter)` that is free,
// never replacing an existing file (an exclusive hard link, then the staged name is dropped).
// Returns the final path, or nothing.
QString moveIn(const QString& tempPath, const QString& folder, const std::function<QString(int counter)>& nameFor);

} // namespace SafeArchive
