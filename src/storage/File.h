#pragma once

#include <QList>
#include <QString>

#include <memory>
#include <optional>

// One file in a screen's list. Lists share the records, and a record carries its own
// selection mark, so a mark survives as long as the record does.
class File
{
public:
    explicit File(std::optional<QString> filePath = std::nullopt, bool isChecked = false)
        : isChecked(isChecked)
        , filePath(std::move(filePath))
    {
    }

    bool isChecked = false;
    std::optional<QString> filePath;

    // All dot-separated pieces of the file's name but the last, joined with ".".
    QString fileName() const;
    // The last dot-separated piece of the file's name, upper-cased.
    QString fileType() const;
    // Decimal units with one decimal: "999 B", "1.0 KB", "1000.0 KB", "1.0 MB".
    std::optional<QString> fileSize() const;
    // The modification time as "dd-MM-yy HH:mm" in local time.
    std::optional<QString> fileModified() const;

    // Equal when the paths are (two absent paths included); the mark takes no part.
    friend bool operator==(const File& a, const File& b) { return a.filePath == b.filePath; }
};

using FilePtr = std::shared_ptr<File>;
using FileList = QList<FilePtr>;

// The name of a path's last component split at every "." with empty pieces dropped.
QStringList fileNamePieces(const QString& path);

// Formats a byte count the way the file lists show it.
QString formatFileSize(quint64 bytes);

// Lists equal when they have the same length and equal records in order.
bool sameFiles(const FileList& a, const FileList& b);
