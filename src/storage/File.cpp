#include "storage/File.h"

#include <QDateTime>
#include <QFileInfo>
#include <QLocale>

QStringList fileNamePieces(const QString& path)
{
    const QString name = path.section(u'/', -1);
    return name.split(u'.', Qt::SkipEmptyParts);
}

QString File::fileName() const
{
    QStringList pieces = fileNamePieces(filePath.value_or(QString()));
    if (pieces.size() < 2)
        return {};
    pieces.removeLast();
    return pieces.join(u'.');
}

QString File::fileType() const
{
    // A name made only of dots has no piece at all: it shows no type.
    const QStringList pieces = fileNamePieces(filePath.value_or(QString()));
    return pieces.isEmpty() ? QString() : pieces.last().toUpper();
}

QString formatFileSize(quint64 n)
{
    if (n < 1000)
        return QString::number(n) + QStringLiteral(" B");
    if (n < 1000000)
        return QString::asprintf("%.1f KB", double(n) / 1000.0);
    if (n < 1000000000)
        return QString::asprintf("%.1f MB", double(n) / 1000000.0);
    return QString::asprintf("%.1f GB", double(n) / 1000000000.0);
}

std::optional<QString> File::fileSize() const
{
    if (!filePath)
        return std::nullopt;
    const QFileInfo info(*filePath);
    if (!info.exists())
        return std::nullopt;
    return formatFileSize(quint64(info.size()));
}

std::optional<QString> File::fileModified() const
{
    if (!filePath)
        return std::nullopt;
    const QFileInfo info(*filePath);
    const QDateTime modified = info.exists() ? info.lastModified() : QDateTime();
    if (!modified.isValid())
        return std::nullopt;
    return QLocale().toString(modified.toLocalTime(), QStringLiteral("dd-MM-yy HH:mm"));
}

bool sameFiles(const FileList& a, const FileList& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const FilePtr& x, const FilePtr& y) { return *x == *y; });
}
