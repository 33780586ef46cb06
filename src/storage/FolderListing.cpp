#include "storage/FolderListing.h"

#include "app/Log.h"

#include <QFile>

#include <filesystem>
#include <system_error>

std::optional<FileList> listWorkingFolder(const QString& folder)
{
    std::error_code error;
    std::filesystem::directory_iterator it(QFile::encodeName(folder).toStdString(), error);
    if (error) {
        Log::line(QStringLiteral("Cannot read files in Varnex folder"));
        return std::nullopt;
    }
    FileList files;
    for (const std::filesystem::directory_iterator end; it != end; it.increment(error)) {
        const QString name = QFile::decodeName(it->path().filename().c_str());
        if (name.startsWith(u'.'))
            continue;
        if (name.split(u'.', Qt::SkipEmptyParts).size() < 2)
            continue;
        files.append(std::make_shared<File>(folder + u'/' + name));
    }
    if (error) {
        Log::line(QStringLiteral("Cannot read files in Varnex folder"));
        return std::nullopt;
    }
    return files;
}

bool replaceIfChanged(FileList& current, FileList fresh)
{
    if (sameFiles(current, fresh))
        return false;
    current = std::move(fresh);
    return true;
}

bool refreshFromFolder(FileList& current, const std::optional<QString>& folder)
{
    if (!folder) {
        Log::line(QStringLiteral("Cannot read files in Varnex folder"));
        return false;
    }
    auto fresh = listWorkingFolder(*folder);
    return fresh && replaceIfChanged(current, std::move(*fresh));
}
