#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

// Writes zip archives with libarchive, streaming file contents from disk.
namespace ZipWriter {

struct Entry
{
    QString name; // the name inside the archive, written as given; "x/" is a directory
    QString sourcePath; // file whose bytes form the entry, or
    QByteArray data; // the entry's bytes when no sourcePath
    qint64 repeatZeros = 0; // or that many zero bytes (for expansion tests)
    QString symlinkTarget; // non-empty: a symbolic-link entry
};

// Compressed entries are deflated, others stored. False on any error (the target is removed).
bool write(const QString& target, const QList<Entry>& entries, bool compress = false);

} // namespace ZipWriter
