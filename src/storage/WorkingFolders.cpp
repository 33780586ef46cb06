#include "storage/WorkingFolders.h"

#include "app/Log.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <unistd.h>

namespace WorkingFolders {

namespace {

struct Locations
{
    std::optional<QString> documents;
    std::optional<QString> varnex;
    std::optional<QString> encrypted;
    std::optional<QString> decrypted;
};

Locations& locations()
{
    static Locations value;
    return value;
}

QString withoutTrailingSlash(QString path)
{
    while (path.size() > 1 && path.endsWith(u'/'))
        path.chop(1);
    return path;
}

} // namespace

void prepareWorkingFolders()
{
    QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    if (documents.isEmpty()) {
        // No documents folder named by the platform: keep results in the home folder's
        // "Documents" rather than in an unexpected place, and say so.
        documents = QDir::homePath() + QStringLiteral("/Documents");
        Log::line(QStringLiteral("No documents folder configured; using ") + documents);
    }
    prepareWorkingFolders(documents);
}

void prepareWorkingFolders(const QString& documents)
{
    Locations& l = locations();
    l.documents = withoutTrailingSlash(documents);
    l.varnex = *l.documents + QStringLiteral("/Varnex");
    l.encrypted = *l.varnex + QStringLiteral("/EncryptedFiles");
    l.decrypted = *l.varnex + QStringLiteral("/DecryptedFiles");

    for (const auto& folder : { l.varnex, l.encrypted, l.decrypted }) {
        if (!folder)
            continue;
        // Results are the user's decrypted files: only they may list or open the folders.
        constexpr auto ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;
        const QFileInfo info(*folder);
        if (info.isSymLink() || (info.exists() && !info.isDir()))
            continue; // something else at the path is left alone, whatever it is
        if (info.isDir()) {
            if (info.ownerId() == ::getuid())
                QFile::setPermissions(*folder, ownerOnly);
            continue;
        }
        if (!QDir().mkpath(*folder))
            Log::line(Log::debugQuoted(QStringLiteral("Cannot create directory: ") + *folder));
        else
            QFile::setPermissions(*folder, ownerOnly);
    }
}

std::optional<QString> documentsFolder() { return locations().documents; }
std::optional<QString> varnexFolder() { return locations().varnex; }
std::optional<QString> encryptedFilesFolder() { return locations().encrypted; }
std::optional<QString> decryptedFilesFolder() { return locations().decrypted; }

} // namespace WorkingFolders
