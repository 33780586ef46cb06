#include "operations/SafeArchive.h"

#include "operations/UniqueNames.h"
#include "operations/WholeWrite.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

#include <archive.h>
#include <archive_entry.h>

#include <QHash>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace SafeArchive {

namespace {

int renameNoReplace(const char* from, const char* to)
{
    return ::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
}

int (*linkFunction)(const char*, const char*) = &::link;
int (*renameFunction)(const char*, const char*) = &renameNoReplace;

bool isForbiddenCharacter(char32_t c)
{
    return c < 0x20 || (c >= 0x7f && c <= 0x9f) // control characters
        || c == 0x2028
        || c == 0x2029 // line and paragraph separators
        // Format characters: bidirectional marks, embeddings, overrides and isolates, zero-width
        // spaces and joiners, the byte order mark, tags.
        || QChar::category(c) == QChar::Other_Format
        || c == 0xfffd; // what an invalid UTF-8 sequence decodes to
}

enum class Path { File, Skip, Refuse };

// Where an entry's path points: a top-level file, something inside a folder (skipped), or
// somewhere no entry may point at all.
Path classify(const QString& path)
{
    if (path.isEmpty() || path.startsWith(u'/') || path.contains(u'\\') || path.contains(QChar(0)))
        return Path::Refuse;
    const QStringList pieces = path.split(u'/');
    for (const QString& piece : pieces) {
        if (piece == u"..")
            return Path::Refuse;
    }
    return pieces.size() == 1 ? Path::File : Path::Skip;
}

struct ReadCloser
{
    void operator()(archive* a) const { archive_read_free(a); }
};

Result fail(const QString& stagingFolder, Failure failure, const QString& detail)
{
    // All or nothing: what was written so far goes again.
    QDir staging(stagingFolder);
    for (const QString& name : staging.entryList(QDir::Files | QDir::Hidden | QDir::System))
        staging.remove(name);
    return { false, failure, detail, {} };
}

// The copy of last resort: a new file created exclusively, filled, flushed.
int copyExclusive(const QByteArray& from, const QByteArray& to)
{
    const int in = ::open(from.constData(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return -1;
    struct stat st
    {
    };
    ::fstat(in, &st);
    const int out
        = ::open(to.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, st.st_mode & 0777);
    if (out < 0) {
        const int saved = errno;
        ::close(in);
        errno = saved;
        return -1;
    }
    char buffer[64 * 1024];
    bool ok = true;
    for (ssize_t n; ok && (n = ::read(in, buffer, sizeof buffer)) != 0;)
        ok = n > 0 ? WholeWrite::writeAll(out, buffer, n) : errno == EINTR;
    ok = ok && ::fsync(out) == 0;
    const int saved = errno;
    ::close(in);
    ::close(out);
    if (!ok) {
        ::unlink(to.constData());
        errno = saved ? saved : EIO;
        return -1;
    }
    ::unlink(from.constData());
    return 0;
}

// Puts `from` at `to` unless something is there already (EEXIST then).
int placeExclusive(const QByteArray& from, const QByteArray& to)
{
    if (linkFunction(from.constData(), to.constData()) == 0) {
        ::unlink(from.constData());
        return 0;
    }
    if (errno == EEXIST || errno == ENAMETOOLONG || errno == ENOSPC || errno == EACCES || errno == ENOENT)
        return -1;
    // No hard links here (EPERM, ENOTSUP, EMLINK, ...): a rename that never replaces.
    if (renameFunction(from.constData(), to.constData()) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP && errno != EXDEV)
        return -1;
    return copyExclusive(from, to);
}

void syncFolder(const QString& folder)
{
    const int fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

} // namespace

bool isSafeEntryName(const QString& name, const QSet<QString>& sentNames)
{
    const bool dotAllowed = sentNames.contains(name) && name != u"." && name != u"..";
    if (name.isEmpty() || (name.startsWith(u'.') && !dotAllowed) || name.contains(u'/')
        || name.contains(u'\\') || name.toUtf8().size() > 255)
        return false;
    for (const char32_t c : name.toUcs4()) {
        if (isForbiddenCharacter(c))
            return false;
    }
    return true;
}

QString printableName(const QString& name)
{
    QList<uint> shown = name.toUcs4();
    for (uint& c : shown) {
        if (isForbiddenCharacter(c))
            c = 0xfffd;
    }
    // Unbroken names do not wrap: beyond this a dialog would cut them off at its edge.
    constexpr qsizetype longest = 60;
    constexpr qsizetype side = (longest - 1) / 2;
    if (shown.size() > longest)
        shown = shown.first(side) + QList<uint> { 0x2026 } + shown.last(side);
    return QString::fromUcs4(reinterpret_cast<const char32_t*>(shown.constData()), shown.size());
}

namespace {

// Code page 437's upper half, as unzip tools show names written without the UTF-8 flag.
constexpr char16_t cp437High[128] = { 0x00c7, 0x00fc, 0x00e9, 0x00e2, 0x00e4, 0x00e0, 0x00e5, 0x00e7, 0x00ea,
    0x00eb, 0x00e8, 0x00ef, 0x00ee, 0x00ec, 0x00c4, 0x00c5, 0x00c9, 0x00e6, 0x00c6, 0x00f4, 0x00f6, 0x00f2,
    0x00fb, 0x00f9, 0x00ff, 0x00d6, 0x00dc, 0x00a2, 0x00a3, 0x00a5, 0x20a7, 0x0192, 0x00e1, 0x00ed, 0x00f3,
    0x00fa, 0x00f1, 0x00d1, 0x00aa, 0x00ba, 0x00bf, 0x2310, 0x00ac, 0x00bd, 0x00bc, 0x00a1, 0x00ab, 0x00bb,
    0x2591, 0x2592, 0x2593, 0x2502, 0x2524, 0x2561, 0x2562, 0x2556, 0x2555, 0x2563, 0x2551, 0x2557, 0x255d,
    0x255c, 0x255b, 0x2510, 0x2514, 0x2534, 0x252c, 0x251c, 0x2500, 0x253c, 0x255e, 0x255f, 0x255a, 0x2554,
    0x2569, 0x2566, 0x2560, 0x2550, 0x256c, 0x2567, 0x2568, 0x2564, 0x2565, 0x2559, 0x2558, 0x2552, 0x2553,
    0x256b, 0x256a, 0x2518, 0x250c, 0x2588, 0x2584, 0x258c, 0x2590, 0x2580, 0x03b1, 0x00df, 0x0393, 0x03c0,
    0x03a3, 0x03c3, 0x00b5, 0x03c4, 0x03a6, 0x0398, 0x03a9, 0x03b4, 0x221e, 0x03c6, 0x03b5, 0x2229, 0x2261,
    0x00b1, 0x2265, 0x2264, 0x2320, 0x2321, 0x00f7, 0x2248, 0x00b0, 0x2219, 0x00b7, 0x221a, 0x207f, 0x00b2,
    0x25a0, 0x00a0 };

quint16 le16(const char* p)
{
    return quint16(quint8(p[0]) | quint8(p[1]) << 8);
}
quint32 le32(const char* p)
{
    return quint32(le16(p)) | quint32(le16(p + 2)) << 16;
}
quint64 le64(const char* p)
{
    return quint64(le32(p)) | quint64(le32(p + 4)) << 32;
}

// The entry's name; empty when it has none.
QString nameOf(archive_entry* entry)
{
    if (const char* utf8 = archive_entry_pathname_utf8(entry)) {
        const QString name = QString::fromUtf8(utf8);
        if (!name.contains(QChar(0xfffd)))
            return name;
    }
    const char* raw = archive_entry_pathname(entry);
    return raw ? decodeName(QByteArray(raw)) : QString();
}

// Writes the data of the current entry to `fd`; false with errno set when it could not.
struct Written
{
    bool ok = true;
    int error = 0;
    int lastRead = ARCHIVE_OK;
    qint64 size = 0;
};

Written writeEntry(archive* a, int fd, qint64& written, qint64 limit,
    const std::function<void(qint64, qint64)>& onProgress, const std::atomic<bool>* cancel)
{
    Written w;
    const void* block = nullptr;
    size_t length = 0;
    la_int64_t offset = 0;
    while ((w.lastRead = archive_read_data_block(a, &block, &length, &offset)) == ARCHIVE_OK) {
        // Sparse entries leave holes: the file's size follows the offsets.
        if (offset != w.size && ::lseek(fd, offset, SEEK_SET) < 0) {
            w.ok = false;
            break;
        }
        w.ok = WholeWrite::writeAll(fd, static_cast<const char*>(block), qint64(length));
        w.size = offset + qint64(length);
        written += qint64(length);
        if (!w.ok || written > limit || (cancel && cancel->load()))
            break;
        if (onProgress)
            onProgress(written, limit);
    }
    w.error = errno;
    // Flushed all at once before they land (flush()): one wait for the disk, not one per file.
    if (w.ok && w.size > 0 && ::ftruncate(fd, w.size) != 0)
        w.ok = false;
    if (!w.ok && !w.error)
        w.error = errno ? errno : EIO;
    return w;
}

// Reads entries until the end and writes the plain top-level files; `afterEnd` has the last
// word on an archive read to its end.
Result unpack(archive* a, const QString& stagingFolder, qint64 budgetBytes,
    const std::function<void(qint64, qint64)>& onProgress, const std::atomic<bool>* cancel, int mode,
    const QSet<QString>& sentNames, const std::function<Result()>& afterEnd = {})
{
    const qint64 limit = qMax<qint64>(budgetBytes, 0);
    Result result;
    qint64 written = 0;
    int seen = 0;
    archive_entry* entry = nullptr;
    while (true) {
        if (cancel && cancel->load())
            return fail(stagingFolder, Failure::Cancelled, {});
        const int next = archive_read_next_header(a, &entry);
        if (next == ARCHIVE_EOF)
            break;
        if (cancel && cancel->load())
            return fail(stagingFolder, Failure::Cancelled, {});
        if (next != ARCHIVE_OK && next != ARCHIVE_WARN)
            return fail(stagingFolder, Failure::Broken, QString::fromUtf8(archive_error_string(a)));
        if (++seen > maxEntries)
            return fail(stagingFolder, Failure::TooManyEntries, {});
        const QString name = nameOf(entry);
        if (name.isEmpty()) // no name that can be read at all
            return fail(stagingFolder, Failure::BadName, QString(QChar(0xfffd)));
        if (archive_entry_is_encrypted(entry))
            return fail(stagingFolder, Failure::Encrypted, name);
        const Path where = classify(name);
        if (where == Path::Refuse)
            return fail(stagingFolder, Failure::BadName, name);
        const auto type = archive_entry_filetype(entry);
        if (archive_entry_hardlink(entry) || archive_entry_symlink(entry)
            || (type != AE_IFREG && type != AE_IFDIR))
            return fail(stagingFolder, Failure::NotAPlainFile, name);
        // Folders and what they hold (a Mac's __MACOSX/ resource files too) are no results:
        // skipped, as if they were not there.
        if (type == AE_IFDIR || where == Path::Skip)
            continue;
        if (!isSafeEntryName(name, sentNames))
            return fail(stagingFolder, Failure::BadName, name);
        if (archive_entry_size_is_set(entry) && written + archive_entry_size(entry) > limit)
            return fail(stagingFolder, Failure::NoSpace, name);

        const QString temp = stagingFolder + QStringLiteral("/%1.part").arg(result.entries.size());
        const int fd = ::open(
            QFile::encodeName(temp).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode);
        if (fd < 0)
            return fail(stagingFolder, Failure::CannotWrite, QString::fromLocal8Bit(std::strerror(errno)));
        const Written w = writeEntry(a, fd, written, limit, onProgress, cancel);
        ::close(fd);
        result.entries.append({ name, temp, w.size });
        if (cancel && cancel->load())
            return fail(stagingFolder, Failure::Cancelled, {});
        if (written > limit || (!w.ok && w.error == ENOSPC))
            return fail(stagingFolder, Failure::NoSpace, name);
        if (!w.ok)
            return fail(stagingFolder, Failure::CannotWrite, QString::fromLocal8Bit(std::strerror(w.error)));
        if (w.lastRead != ARCHIVE_EOF && w.lastRead != ARCHIVE_OK) {
            const QString why = QString::fromUtf8(archive_error_string(a));
            // libarchive reads no password-protected data; some writers only say so here.
            if (archive_read_has_encrypted_entries(a) > 0)
                return fail(stagingFolder, Failure::Encrypted, name);
            return fail(stagingFolder, Failure::Broken, name + u": " + why);
        }
    }
    if (afterEnd) {
        const Result last = afterEnd();
        if (!last.ok)
            return fail(stagingFolder, last.failure, last.detail);
    }
    result.ok = true;
    return result;
}

// Names and kinds of entries from the central directory at the end of a zip (`tail` holds
// the stream's bytes from `tailStart` to its end).
Result checkCentralDirectory(const QByteArray& tail, qint64 tailStart)
{
    const auto broken = [](const char* why) {
        return Result { false, Failure::Broken, QString::fromLatin1(why), {} };
    };
    const qsizetype n = tail.size();
    const char* p = tail.constData();
    qsizetype end = -1;
    // Writers to a pipe may pad the end (bsdtar fills its last 10 KiB block with zeros).
    for (qsizetype i = n - 22; i >= 0; --i) {
        if (p[i] == 'P' && p[i + 1] == 'K' && p[i + 2] == 5 && p[i + 3] == 6
            && i + 22 + le16(p + i + 20) <= n) {
            end = i;
            break;
        }
    }
    if (end < 0)
        return broken("no end of central directory");
    quint64 count = le16(p + end + 10);
    quint64 size = le32(p + end + 12);
    quint64 offset = le32(p + end + 16);
    if (count == 0xffff || size == 0xffffffff || offset == 0xffffffff) {
        const qsizetype locator = end - 20;
        if (locator < 0 || le32(p + locator) != 0x07064b50)
            return broken("no zip64 locator");
        const qint64 at = qint64(le64(p + locator + 8)) - tailStart;
        if (at < 0 || at + 56 > locator || le32(p + at) != 0x06064b50)
            return broken("no zip64 end of central directory");
        count = le64(p + at + 32);
        size = le64(p + at + 40);
        offset = le64(p + at + 48);
    }
    const qint64 start = qint64(offset) - tailStart;
    if (count > quint64(maxEntries))
        return { false, Failure::TooManyEntries, {}, {} };
    if (start < 0 || start + qint64(size) > end)
        return broken("central directory out of place");
    qint64 at = start;
    for (quint64 i = 0; i < count; ++i) {
        if (at + 46 > start + qint64(size) || le32(p + at) != 0x02014b50)
            return broken("central directory damaged");
        const quint8 host = quint8(p[at + 5]);
        const quint16 flags = le16(p + at + 8);
        const qsizetype nameLength = le16(p + at + 28);
        const qint64 next = at + 46 + nameLength + le16(p + at + 30) + le16(p + at + 32);
        if (next > start + qint64(size))
            return broken("central directory damaged");
        const QByteArray raw(p + at + 46, nameLength);
        const QString name = decodeName(raw);
        // Said to be UTF-8 and is not: no guessing then.
        if ((flags & 0x800) && QString::fromUtf8(raw).toUtf8() != raw)
            return { false, Failure::BadName, QString::fromUtf8(raw), {} };
        if (flags & 1)
            return { false, Failure::Encrypted, name, {} };
        // Unix (3) and macOS (19) keep the file type in the upper half of the attributes.
        const quint32 type = (le32(p + at + 38) >> 16) & 0170000;
        if ((host == 3 || host == 19) && type != 0 && type != 0100000 && type != 0040000)
            return { false, Failure::NotAPlainFile, name, {} };
        at = next;
    }
    return { true, Failure::None, {}, {} };
}

struct Stream
{
    const BlockReader* read = nullptr;
    struct Block
    {
        const char* data;
        qint64 size;
        qint64 offset;
    };
    QList<Block> recent; // still valid, oldest first
    qint64 handed = 0;
    bool failed = false;
};

la_ssize_t readBlock(archive*, void* user, const void** buffer)
{
    auto* s = static_cast<Stream*>(user);
    const char* block = nullptr;
    const qint64 n = (*s->read)(&block);
    if (n < 0) {
        s->failed = true;
        return -1;
    }
    if (s->recent.size() >= retainedBlocks)
        s->recent.removeFirst();
    s->recent.append({ block, n, s->handed });
    s->handed += n;
    *buffer = block;
    return la_ssize_t(n);
}

} // namespace

QString decodeName(const QByteArray& raw)
{
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString asUtf8 = utf8.decode(raw);
    if (!utf8.hasError())
        return asUtf8;
    QString name;
    name.reserve(raw.size());
    for (const char c : raw)
        name.append(quint8(c) < 0x80 ? QChar(char16_t(quint8(c))) : QChar(cp437High[quint8(c) - 0x80]));
    return name;
}

qsizetype localHeaderLength(const QByteArray& head)
{
    if (head.size() < 30)
        return 30;
    return 30 + le16(head.constData() + 26) + le16(head.constData() + 28);
}

bool needsSeeking(const QByteArray& head)
{
    if (head.size() < 30 || !head.startsWith("PK\x03\x04"))
        return false;
    const quint16 flags = le16(head.constData() + 6);
    const quint16 method = le16(head.constData() + 8);
    if (!(flags & 0x8) || method == 8)
        return false;
    // Most writers still put the sizes in front when they know them.
    quint64 size = le32(head.constData() + 18);
    if (size == 0xffffffff) {
        // Zip64: the size is in the extra field (id 1), when the head reaches that far.
        const qsizetype nameLength = le16(head.constData() + 26);
        const qsizetype extraEnd = localHeaderLength(head);
        size = 0;
        for (qsizetype at = 30 + nameLength; at + 4 <= qMin(extraEnd, head.size());) {
            const quint16 id = le16(head.constData() + at);
            const quint16 length = le16(head.constData() + at + 2);
            if (id == 1 && length >= 16 && at + 20 <= head.size())
                size = le64(head.constData() + at + 12);
            at += 4 + length;
        }
    }
    return size == 0;
}

Result extract(const QString& archivePath, const QString& stagingFolder, qint64 budgetBytes,
    const std::function<void(qint64, qint64)>& onProgress, const std::atomic<bool>* cancel, int mode,
    const QSet<QString>& sentNames)
{
    if (QFileInfo(archivePath).size() <= 0)
        return fail(stagingFolder, Failure::Broken, QStringLiteral("empty reply"));
    std::unique_ptr<archive, ReadCloser> a(archive_read_new());
    archive_read_support_format_zip(a.get());
    if (archive_read_open_filename(a.get(), QFile::encodeName(archivePath).constData(), 64 * 1024)
        != ARCHIVE_OK)
        return fail(stagingFolder, Failure::Broken, QString::fromUtf8(archive_error_string(a.get())));
    return unpack(a.get(), stagingFolder, budgetBytes, onProgress, cancel, mode, sentNames);
}

Result extractStream(const BlockReader& read, const QString& stagingFolder, qint64 budgetBytes,
    const std::atomic<bool>* cancel, int mode, const QSet<QString>& sentNames)
{
    Stream stream;
    stream.read = &read;
    std::unique_ptr<archive, ReadCloser> a(archive_read_new());
    archive_read_support_format_zip_streamable(a.get());
    if (archive_read_open(a.get(), &stream, nullptr, readBlock, nullptr) != ARCHIVE_OK)
        return fail(stagingFolder, Failure::Broken, QString::fromUtf8(archive_error_string(a.get())));
    const auto afterEnd = [&]() -> Result {
        // The central directory begins where the reader stopped, in a block it still holds.
        const qint64 position = archive_read_header_position(a.get());
        QByteArray tail;
        qint64 tailStart = -1;
        for (const Stream::Block& b : std::as_const(stream.recent)) {
            if (b.offset + b.size <= position)
                continue;
            const qint64 from = qMax<qint64>(position - b.offset, 0);
            if (tailStart < 0)
                tailStart = b.offset + from;
            tail.append(b.data + from, b.size - from);
        }
        if (tailStart < 0)
            tailStart = stream.handed;
        if (tailStart > position)
            return { false, Failure::Broken, QStringLiteral("central directory out of reach"), {} };
        // Bounded: 10,000 entries with the longest names take less than this.
        constexpr qsizetype tailLimit = 32 << 20;
        const char* block = nullptr;
        for (qint64 n; (n = read(&block)) != 0;) {
            if (n < 0 || tail.size() + n > tailLimit)
                return { false, Failure::Broken, QStringLiteral("reply cut short or too long"), {} };
            tail.append(block, n);
        }
        return checkCentralDirectory(tail, tailStart);
    };
    return unpack(a.get(), stagingFolder, budgetBytes, {}, cancel, mode, sentNames, afterEnd);
}

bool flush(const QString& folder, const std::atomic<bool>* cancel)
{
    const int fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return !(cancel && cancel->load());
    // syncfs cannot be interrupted and may wait long on a busy disk: it runs on a thread of its
    // own that owns the descriptor, so a cancel is answered at once and the flush ends unwatched.
    auto done = std::make_shared<std::atomic<bool>>(false);
    std::thread([fd, done] {
        ::syncfs(fd);
        ::close(fd);
        *done = true;
    }).detach();
    while (!done->load()) {
        if (cancel && cancel->load())
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

Landed landAll(const QList<Landing>& landings, const QString& folder, const std::atomic<bool>* cancel,
    const std::function<void(qint64, qint64)>& onProgress)
{
    Landed result;
    const auto stop = [&] {
        for (const QString& path : std::as_const(result.paths)) {
            if (!path.isEmpty())
                QFile::remove(path);
        }
        return Landed { {}, {}, true };
    };
    if (!flush(folder, cancel))
        return stop();
    // For each wanted name, the counter after the last one taken: every earlier candidate was
    // found taken, so the rule's first free name cannot lie below it.
    QHash<QString, int> nextCounter;
    const qint64 all = landings.size();
    for (const Landing& landing : landings) {
        if (cancel && cancel->load())
            return stop();
        const QString& name = landing.name;
        const QByteArray from = QFile::encodeName(landing.tempPath);
        int counter = nextCounter.value(name, 0);
        QString path;
        QString error;
        for (;; ++counter) {
            const QString target
                = folder + u'/' + (counter == 0 ? name : UniqueNames::withCounter(name, counter));
            // Never a check-then-write race with other programs: the file system refuses a taken name.
            if (placeExclusive(from, QFile::encodeName(target)) == 0) {
                path = target;
                break;
            }
            if (errno != EEXIST || counter >= 1000000) {
                error = QString::fromLocal8Bit(std::strerror(errno));
                break;
            }
        }
        if (!path.isEmpty())
            nextCounter.insert(name, counter + 1);
        result.paths.append(path);
        result.errors.append(error);
        if (onProgress)
            onProgress(result.paths.size(), all);
    }
    // The new names themselves, with one flush of the folder.
    syncFolder(folder);
    if (cancel && cancel->load())
        return stop();
    return result;
}

void setLinkFunctionsForTesting(
    int (*link)(const char*, const char*), int (*noReplace)(const char*, const char*))
{
    linkFunction = link ? link : &::link;
    renameFunction = noReplace ? noReplace : &renameNoReplace;
}

} // namespace SafeArchive
