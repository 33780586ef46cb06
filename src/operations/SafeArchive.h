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

enum class Failure {
    None,
    BadName,
    NotAPlainFile,
    TooManyEntries,
    NoSpace,
    Broken,
    CannotWrite,
    Cancelled,
    Encrypted, // protected by a password
};

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

// Where a streamed archive's bytes come from: each call hands the next block, which stays
// valid until `retainedBlocks` more have been handed out; 0 at the end, -1 when the bytes
// stopped coming (the source knows why).
using BlockReader = std::function<qint64(const char** block)>;
inline constexpr int retainedBlocks = 8;

// As extract(), reading the archive in one pass as its bytes arrive. A zip's central directory
// comes last: it is read too, and an entry it calls a link, a special file or encrypted refuses
// the whole archive, as the seekable reader would.
Result extractStream(const BlockReader& read, const QString& stagingFolder, qint64 budgetBytes,
    const std::atomic<bool>* cancel = nullptr, int mode = 0600);

// How many bytes of a zip's start hold its first local header with the entry's name and
// extra field; 30 (the fixed part) while fewer bytes than that are known.
qsizetype localHeaderLength(const QByteArray& head);

// Whether a zip starting with `head` (its first local header, whole) cannot be read in one
// pass: its first entry is stored and its size only follows its data, so nothing but the
// central directory says where it ends.
bool needsSeeking(const QByteArray& head);

// An entry name as the archive holds it: UTF-8 when it is valid UTF-8, otherwise (names
// written without the UTF-8 flag by older tools) code page 437.
QString decodeName(const QByteArray& raw);

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
