#include "operations/SafeArchive.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <archive.h>
#include <archive_entry.h>

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace SafeArchive {

bool isSafeEntryName(const QString& name)
{
    if (name.isEmpty() || name == u"." || name == u"..")
        return false;
    // Top-level names only: that rules out absolute paths, "..", and folders in one test.
    return !name.contains(u'/') && !name.contains(u'\\') && !name.contains(QChar(0));
}

namespace {

struct ReadCloser
{
    void operator()(archive* a) const { archive_read_free(a); }
};

Result fail(const QString& stagingFolder, const QString& why)
{
    // All or nothing: what was written so far goes again.
    QDir staging(stagingFolder);
    for (const QString& name : staging.entryList(QDir::Files | QDir::Hidden | QDir::System))
        staging.remove(name);
    return { false, why, {} };
}

} // namespace

Result extract(const QString& archivePath, const QString& stagingFolder, qint64 freeBytes,
               const std::function<void(qint64, qint64)>& onProgress, const std::atomic<bool>* cancel)
{
    const qint64 archiveSize = QFileInfo(archivePath).size();
    if (archiveSize <= 0)
        return fail(stagingFolder, QStringLiteral("empty reply"));
    const qint64 limit = qMin<qint64>(freeBytes, qint64(double(archiveSize) * maxExpansion));

    std::unique_ptr<archive, ReadCloser> a(archive_read_new());
    archive_read_support_format_zip(a.get());
    if (archive_read_open_filename(a.get(), QFile::encodeName(archivePath).constData(), 16 * 1024) != ARCHIVE_OK)
        return fail(stagingFolder, QString::fromUtf8(archive_error_string(a.get())));

    Result result;
    qint64 written = 0;
    archive_entry* entry = nullptr;
    while (true) {
        const int next = archive_read_next_header(a.get(), &entry);
        if (next == ARCHIVE_EOF)
            break;
        if (next != ARCHIVE_OK && next != ARCHIVE_WARN)
            return fail(stagingFolder, QString::fromUtf8(archive_error_string(a.get())));
        const char* rawName = archive_entry_pathname_utf8(entry);
        const QString name = rawName ? QString::fromUtf8(rawName) : QString::fromLocal8Bit(archive_entry_pathname(entry));
        if (!isSafeEntryName(name))
            return fail(stagingFolder, u"refused entry name: " + name);
        if (archive_entry_filetype(entry) != AE_IFREG || archive_entry_hardlink(entry) || archive_entry_symlink(entry))
            return fail(stagingFolder, u"refused entry that is not a plain file: " + name);
        if (archive_entry_size_is_set(entry) && written + archive_entry_size(entry) > limit)
            return fail(stagingFolder, u"refused: the content would exceed the free space or a sane expansion: " + name);

        const QString temp = stagingFolder + QStringLiteral("/%1.part").arg(result.entries.size());
        const int fd = ::open(QFile::encodeName(temp).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd < 0)
            return fail(stagingFolder, u"cannot create " + temp);
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
            const char* p = static_cast<const char*>(block);
            for (size_t left = length; left > 0;) {
                const ssize_t n = ::write(fd, p, left);
                if (n <= 0) {
                    ok = false;
                    break;
                }
                p += n;
                left -= size_t(n);
            }
            size = offset + qint64(length);
            written += qint64(length);
            if (!ok || written > limit || (cancel && cancel->load()))
                break;
            if (onProgress)
                onProgress(written, limit);
        }
        if (ok && size > 0 && ::ftruncate(fd, size) != 0)
            ok = false;
        ::close(fd);
        result.entries.append({ name, temp, size });
        if (cancel && cancel->load())
            return fail(stagingFolder, QStringLiteral("cancelled"));
        if (written > limit)
            return fail(stagingFolder, u"refused: the content would exceed the free space or a sane expansion: " + name);
        if (!ok || (r != ARCHIVE_EOF && r != ARCHIVE_OK))
            return fail(stagingFolder, u"broken entry: " + name + u": " + QString::fromUtf8(archive_error_string(a.get())));
    }
    result.ok = true;
    return result;
}

QString moveIn(const QString& tempPath, const QString& folder, const std::function<QString(int)>& nameFor)
{
    const QByteArray from = QFile::encodeName(tempPath);
    for (int counter = 0; counter < 100000; ++counter) {
        const QString target = folder + u'/' + nameFor(counter);
        // link() fails when the name is taken: no check-then-write race with other programs.
        if (::link(from.constData(), QFile::encodeName(target).constData()) == 0) {
            ::unlink(from.constData());
            return target;
        }
        if (errno != EEXIST)
            return {};
    }
    return {};
}

} // namespace SafeArchive
