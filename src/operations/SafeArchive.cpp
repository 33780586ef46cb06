#include "operations/SafeArchive.h"

#include "operations/UniqueNames.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <archive.h>
#include <archive_entry.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/stat.h>
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
        || c == 0x061c || c == 0x200e || c == 0x200f // bidirectional marks
        || (c >= 0x202a && c <= 0x202e) || (c >= 0x2066 && c <= 0x2069) // embeddings, overrides, isolates
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

bool writeAll(int fd, const char* p, size_t length)
{
    while (length > 0) {
        const ssize_t n = ::write(fd, p, length);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        p += n;
        length -= size_t(n);
    }
    return true;
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
        ok = n > 0 ? writeAll(out, buffer, size_t(n)) : errno == EINTR;
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

bool isSafeEntryName(const QString& name)
{
    if (name.isEmpty() || name.startsWith(u'.') || name.contains(u'/') || name.contains(u'\\')
        || name.toUtf8().size() > 255)
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

Result extract(const QString& archivePath, const QString& stagingFolder, qint64 budgetBytes,
    const std::function<void(qint64, qint64)>& onProgress, const std::atomic<bool>* cancel, int mode)
{
    if (QFileInfo(archivePath).size() <= 0)
        return fail(stagingFolder, Failure::Broken, QStringLiteral("empty reply"));
    const qint64 limit = qMax<qint64>(budgetBytes, 0);

    std::unique_ptr<archive, ReadCloser> a(archive_read_new());
    archive_read_support_format_zip(a.get());
    if (archive_read_open_filename(a.get(), QFile::encodeName(archivePath).constData(), 16 * 1024)
        != ARCHIVE_OK)
        return fail(stagingFolder, Failure::Broken, QString::fromUtf8(archive_error_string(a.get())));

    Result result;
    qint64 written = 0;
    int seen = 0;
    archive_entry* entry = nullptr;
    while (true) {
        const int next = archive_read_next_header(a.get(), &entry);
        if (next == ARCHIVE_EOF)
            break;
        if (next != ARCHIVE_OK && next != ARCHIVE_WARN)
            return fail(stagingFolder, Failure::Broken, QString::fromUtf8(archive_error_string(a.get())));
        if (++seen > maxEntries)
            return fail(stagingFolder, Failure::TooManyEntries, {});
        const char* rawName = archive_entry_pathname_utf8(entry);
        if (!rawName)
            return fail(
                stagingFolder, Failure::BadName, QString::fromLocal8Bit(archive_entry_pathname(entry)));
        const QString name = QString::fromUtf8(rawName);
        const Path where = classify(name);
        if (where == Path::Refuse)
            return fail(stagingFolder, Failure::BadName, name);
        const auto type = archive_entry_filetype(entry);
        if (archive_entry_hardlink(entry) || archive_entry_symlink(entry)
            || (type != AE_IFREG && type != AE_IFDIR))
            return fail(stagingFolder, Failure::NotAPlainFile, name);
        // Folders and what they hold are no results: skipped, as if they were not there.
        if (type == AE_IFDIR || where == Path::Skip)
            continue;
        if (!isSafeEntryName(name))
            return fail(stagingFolder, Failure::BadName, name);
        if (archive_entry_size_is_set(entry) && written + archive_entry_size(entry) > limit)
            return fail(stagingFolder, Failure::NoSpace, name);

        const QString temp = stagingFolder + QStringLiteral("/%1.part").arg(result.entries.size());
        const int fd = ::open(
            QFile::encodeName(temp).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode);
        if (fd < 0)
            return fail(stagingFolder, Failure::CannotWrite, QString::fromLocal8Bit(std::strerror(errno)));
        qint64 size = 0;
        const void* block = nullptr;
        size_t length = 0;
        la_int64_t offset = 0;
        int r = ARCHIVE_OK;
        bool ok = true;
        while ((r = archive_read_data_block(a.get(), &block, &length, &offset)) == ARCHIVE_OK) {
            // Sparse entries leave holes: the file's size follows the offsets.
            if (offset != size && ::lseek(fd, offset, SEEK_SET) < 0) {
                ok = false;
                break;
            }
            ok = writeAll(fd, static_cast<const char*>(block), length);
            size = offset + qint64(length);
            written += qint64(length);
            if (!ok || written > limit || (cancel && cancel->load()))
                break;
            if (onProgress)
                onProgress(written, limit);
        }
        const int writeErrno = errno;
        if (ok && size > 0 && ::ftruncate(fd, size) != 0)
            ok = false;
        // Flushed before it lands: a crash never leaves a result that looks whole but is not.
        if (ok && ::fsync(fd) != 0)
            ok = false;
        ::close(fd);
        result.entries.append({ name, temp, size });
        if (cancel && cancel->load())
            return fail(stagingFolder, Failure::Cancelled, {});
        if (written > limit || (!ok && writeErrno == ENOSPC))
            return fail(stagingFolder, Failure::NoSpace, name);
        if (!ok)
            return fail(
                stagingFolder, Failure::CannotWrite, QString::fromLocal8Bit(std::strerror(writeErrno)));
        if (r != ARCHIVE_EOF && r != ARCHIVE_OK)
            return fail(stagingFolder, Failure::Broken,
                name + u": " + QString::fromUtf8(archive_error_string(a.get())));
    }
    result.ok = true;
    return result;
}

QString moveIn(const QString& tempPath, const QString& folder, const std::function<QString(int)>& nameFor,
    QString* error)
{
    const QByteArray from = QFile::encodeName(tempPath);
    for (int counter = 0; counter < 100000; ++counter) {
        const QString target = folder + u'/' + nameFor(counter);
        // Never a check-then-write race with other programs: the file system refuses a taken name.
        if (placeExclusive(from, QFile::encodeName(target)) == 0)
            return target;
        if (errno != EEXIST) {
            if (error)
                *error = QString::fromLocal8Bit(std::strerror(errno));
            return {};
        }
    }
    if (error)
        *error = QString::fromLocal8Bit(std::strerror(EEXIST));
    return {};
}

std::optional<QStringList> landAll(const QList<Landing>& landings, const QString& folder, QString* error)
{
    QStringList landed;
    for (const Landing& landing : landings) {
        const QString& name = landing.name;
        const QString path = moveIn(
            landing.tempPath, folder,
            [&name](int counter) { return counter == 0 ? name : UniqueNames::withCounter(name, counter); },
            error);
        if (path.isEmpty()) {
            for (const QString& done : std::as_const(landed))
                QFile::remove(done);
            if (error)
                *error = printableName(name) + u": " + *error;
            return std::nullopt;
        }
        landed.append(path);
    }
    syncFolder(folder);
    return landed;
}

void setLinkFunctionsForTesting(
    int (*link)(const char*, const char*), int (*noReplace)(const char*, const char*))
{
    linkFunction = link ? link : &::link;
    renameFunction = noReplace ? noReplace : &renameNoReplace;
}

} // namespace SafeArchive
