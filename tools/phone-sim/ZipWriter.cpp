#include "ZipWriter.h"

#include <QFile>

#include <archive.h>
#include <archive_entry.h>

#include <memory>

namespace ZipWriter {

namespace {

struct ArchiveCloser
{
    void operator()(archive* a) const { archive_write_free(a); }
};
struct EntryFree
{
    void operator()(archive_entry* e) const { archive_entry_free(e); }
};

bool writeEntry(archive* a, const Entry& entry)
{
    std::unique_ptr<archive_entry, EntryFree> e(archive_entry_new());
    const QByteArray name = entry.name.toUtf8();
    archive_entry_set_pathname(e.get(), name.constData());
    archive_entry_set_mtime(e.get(), time(nullptr), 0);
    if (!entry.symlinkTarget.isEmpty()) {
        const QByteArray target = entry.symlinkTarget.toUtf8();
        archive_entry_set_filetype(e.get(), AE_IFLNK);
        archive_entry_set_perm(e.get(), 0777);
        archive_entry_set_symlink(e.get(), target.constData());
        archive_entry_set_size(e.get(), 0);
        return archive_write_header(a, e.get()) == ARCHIVE_OK;
    }
    if (entry.name.endsWith(u'/')) { // a directory entry
        archive_entry_set_filetype(e.get(), AE_IFDIR);
        archive_entry_set_perm(e.get(), 0755);
        archive_entry_set_size(e.get(), 0);
        return archive_write_header(a, e.get()) == ARCHIVE_OK;
    }
    archive_entry_set_filetype(e.get(), AE_IFREG);
    archive_entry_set_perm(e.get(), 0644);

    QFile source(entry.sourcePath);
    qint64 size = entry.data.size();
    if (!entry.sourcePath.isEmpty()) {
        if (!source.open(QIODevice::ReadOnly))
            return false;
        size = source.size();
    } else if (entry.repeatZeros > 0) {
        size = entry.repeatZeros;
    }
    archive_entry_set_size(e.get(), size);
    if (archive_write_header(a, e.get()) != ARCHIVE_OK)
        return false;

    if (!entry.sourcePath.isEmpty()) {
        QByteArray buffer(1024 * 1024, Qt::Uninitialized);
        qint64 n = 0;
        while ((n = source.read(buffer.data(), buffer.size())) > 0) {
            if (archive_write_data(a, buffer.constData(), size_t(n)) != n)
                return false;
        }
        return n == 0;
    }
    if (entry.repeatZeros > 0) {
        const QByteArray zeros(1024 * 1024, '\0');
        for (qint64 left = entry.repeatZeros; left > 0; left -= zeros.size()) {
            const qint64 n = qMin<qint64>(left, zeros.size());
            if (archive_write_data(a, zeros.constData(), size_t(n)) != n)
                return false;
        }
        return true;
    }
    return entry.data.isEmpty()
        || archive_write_data(a, entry.data.constData(), size_t(entry.data.size())) == entry.data.size();
}

} // namespace

bool write(const QString& target, const QList<Entry>& entries, bool compress)
{
    std::unique_ptr<archive, ArchiveCloser> a(archive_write_new());
    archive_write_set_format_zip(a.get());
    archive_write_set_format_option(a.get(), "zip", "compression", compress ? "deflate" : "store");
    const QByteArray path = QFile::encodeName(target);
    bool ok = archive_write_open_filename(a.get(), path.constData()) == ARCHIVE_OK;
    for (const Entry& entry : entries) {
        if (!ok)
            break;
        ok = writeEntry(a.get(), entry);
    }
    ok = archive_write_close(a.get()) == ARCHIVE_OK && ok;
    if (!ok)
        QFile::remove(target);
    return ok;
}

} // namespace ZipWriter
