#pragma once

#include <QList>
#include <QSet>
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

// A name a result file may carry: at most 255 bytes of UTF-8, no control, format (zero-width,
// bidirectional) or line and paragraph separator characters, no leading dot, no "/" or "\".
// A name in `sentNames` (what the desktop itself sent, as the phone names its result) may
// start with a dot: the user's own ".env" comes back as ".env.vx". "." and ".." never pass.
bool isSafeEntryName(const QString& name, const QSet<QString>& sentNames = {});

// A name as a dialog may show it: the characters no result may carry replaced by U+FFFD, and
// a long one shortened in the middle, so a hostile name can neither garble nor overflow it.
QString printableName(const QString& name);

// Unpacks `archive` into `stagingFolder` (which must exist, empty, on the destination's
// volume), each file created exclusively with `mode`; flush() puts them on the disk. Names are
// judged by isSafeEntryName with `sentNames`. On failure the staging folder's contents are
// removed again.
Result extract(const QString& archive, const QString& stagingFolder, qint64 budgetBytes,
    const std::function<void(qint64 done, qint64 total)>& onProgress = {},
    const std::atomic<bool>* cancel = nullptr, int mode = 0600, const QSet<QString>& sentNames = {});

// Where a streamed archive's bytes come from: each call hands the next block, which stays
// valid until `retainedBlocks` more have been handed out; 0 at the end, -1 when the bytes
// stopped coming (the source knows why).
using BlockReader = std::function<qint64(const char** block)>;
inline constexpr int retainedBlocks = 8;

// As extract(), reading the archive in one pass as its bytes arrive. A zip's central directory
// comes last: it is read too, and an entry it calls a link, a special file or encrypted refuses
// the whole archive, as the seekable reader would.
Result extractStream(const BlockReader& read, const QString& stagingFolder, qint64 budgetBytes,
    const std::atomic<bool>* cancel = nullptr, int mode = 0600, const QSet<QString>& sentNames = {});

// How many bytes of a zip's start hold its first local header with the entry's name and
// extra field; 30 (the fixed part) while fewer bytes than that are known.
qsizetype localHeaderLength(const QByteArray& head);

// Whether a zip starting with `head` (its first local header, whole) cannot be read in one
// pass: its first entry's size only follows its data, and only deflate ends by itself. The
// streaming reader takes a stored entry's end from the central directory it cannot reach, and
// refuses LZMA and bzip2 of unknown length ("Truncated lzma data"), as Python's zipfile writes
// them to a pipe.
bool needsSeeking(const QByteArray& head);

// An entry name as the archive holds it: UTF-8 when it is valid UTF-8, otherwise (names
// written without the UTF-8 flag by older tools) code page 437.
QString decodeName(const QByteArray& raw);

struct Landing
{
    QString tempPath;
    QString name; // wanted name; a counter is added when it is taken
};

struct Landed
{
    QStringList paths; // per landing, its final path; empty when it did not land
    QStringList errors; // per landing, why it did not land (the system's reason)
    bool cancelled = false; // nothing landed then: what had landed was removed again
};

// Puts the staged files on the disk with one flush of their file system, however many they
// are; false when `cancel` turned true first (the flush goes on unwatched).
bool flush(const QString& folder, const std::atomic<bool>* cancel = nullptr);

// Flushes, then moves every staged file into `folder` under the first name of the unique-name
// rule that is free, never replacing an existing file: an exclusive hard link, or where the
// file system has none, a rename that refuses to replace, or an exclusive copy. Each landing
// stands alone: one that cannot land does not keep the others out. The counting goes on from
// the last name a landing of the same name took, so a thousand results of one name cost a
// thousand moves, not half a million probes. A cancel stops it between two files and removes
// what had landed. `onProgress` hears (landed, all).
Landed landAll(const QList<Landing>& landings, const QString& folder,
    const std::atomic<bool>* cancel = nullptr,
    const std::function<void(qint64 done, qint64 total)>& onProgress = {});

// Test seam: the hard-link call (by default ::link) and the rename that never replaces (by
// default renameat2 with RENAME_NOREPLACE), so file systems without them can be played.
// Pass nullptr to restore either.
void setLinkFunctionsForTesting(int (*link)(const char* from, const char* to),
    int (*renameNoReplace)(const char* from, const char* to) = nullptr);

} // namespace SafeArchive
