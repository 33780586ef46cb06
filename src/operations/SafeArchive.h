#pragma once

#include <QList>
#include <QString>

#include <atomic>
#include <functional>

// Unpacks the phone's zip replies without trusting them, and moves the results in all or
// nothing. An entry with an absolute path, "..", a link or a special file, or a name no
// result may carry, refuses the whole archive; folder entries and files inside folders of an
// otherwise sound archive are skipped. The content is capped by a byte budget (the caller's
// free space minus a reserve) and by an entry count, never by a ratio: real files such as
// logs or sparse images expand far more than a hundred-fold.
namespace SafeArchive {

inline constexpr int maxEntries = 10000;

enum class Failure { None, BadName, NotAPlainFile, TooManyEntries, NoSpace, Broken, CannotWrite, Cancelled };

struct Entry
{
    QString name; // as named in the archive
    QString tempPath; // where it was written, inside the staging folder
    qint64 size = 0;
};

struct Result
{
    bool ok = false;
    Failure failure = Failure::None;
    QString detail; // the entry's name, or the library's text
    QList<Entry> entries;
};

// A name a result file may carry: at most 255 bytes of UTF-8, no control or bidirectional
// formatting characters, no leading dot, no "/" or "\".
bool isSafeEntryName(const QString& name);

// A name as a dialog may show it: the characters no result may carry replaced by U+FFFD, and
// a long one shortened in the middle, so a hostile name can neither garble nor overflow it.
QString printableName(const QString& name);

// Unpacks `archive` into `stagingFolder` (which must exist, empty, on the destination's
// volume), each file created exclusively with `mode`, flushed to disk. On failure the staging
// folder's contents are removed again.
Result extract(const QString& archive, const QString& stagingFolder, qint64 budgetBytes,
    const std::function<void(qint64 done, qint64 total)>& onProgress = {},
    const std::atomic<bool>* cancel = nullptr, int mode = 0600);

// Moves a staged file into `folder` under the first name `nameFor(counter)` that is free,
// never replacing an existing file: an exclusive hard link, or where the file system has
// none, a rename that refuses to replace, or an exclusive copy. Returns the final path, or
// nothing with `error` set.
QString moveIn(const QString& tempPath, const QString& folder,
    const std::function<QString(int counter)>& nameFor, QString* error = nullptr);

struct Landing
{
    QString tempPath;
    QString name; // wanted name; a counter is added when it is taken
};

// Moves every staged file in, or none: when one cannot land, those already moved in are
// removed again. Returns the final paths, or nothing with `error` set.
std::optional<QStringList> landAll(const QList<Landing>& landings, const QString& folder, QString* error);

// Test seam: the hard-link call (by default ::link) and the rename that never replaces (by
// default renameat2 with RENAME_NOREPLACE), so file systems without them can be played.
// Pass nullptr to restore either.
void setLinkFunctionsForTesting(int (*link)(const char* from, const char* to),
    int (*renameNoReplace)(const char* from, const char* to) = nullptr);

} // namespace SafeArchive
