#include "storage/WorkingFolders.h"

#include "app/Log.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <cstdio>
#include <sys/stat.h>
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

// What is at `path` when it is not a folder of this user's, in words for the log.
std::optional<QString> strangeness(const QFileInfo& info)
{
    if (info.isSymLink())
        return u"a link to " + info.symLinkTarget();
    if (info.exists() && !info.isDir())
        return QStringLiteral("not a folder");
    if (info.exists() && info.ownerId() != ::getuid())
        return u"a folder of another account (" + info.owner() + u')';
    return std::nullopt;
}

// Results are the user's decrypted files: they land only in a real folder of the user's own,
// which only the user may list or open (0700). Something else at the path (a link, which
// could lead into another account's folder, a file, another account's folder) is set aside
// under a new name, kept as it is, and the folder is made anew. False when it cannot be set
// aside: nothing is saved there then.
bool usable(const QString& folder)
{
    constexpr auto ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;
    const QFileInfo info(folder);
    if (const auto strange = strangeness(info)) {
        QString aside = folder + QStringLiteral(".set-aside");
        for (int n = 2; QFileInfo(aside).exists() || QFileInfo(aside).isSymLink(); ++n)
            aside = folder + QStringLiteral(".set-aside-%1").arg(n);
        if (std::rename(QFile::encodeName(folder).constData(), QFile::encodeName(aside).constData()) != 0) {
            Log::line(u"[WorkingFolders] ❌ " + folder + u" is " + *strange
                + u", not a folder of your own, and cannot be moved away: results are not saved there."
                  u" Move it away and start Varnex Desktop again.");
            return false;
        }
        Log::line(u"[WorkingFolders] ⚠️ " + folder + u" was " + *strange + u": kept as " + aside
            + u"; results go to a new folder");
    } else if (info.isDir()) {
        QFile::setPermissions(folder, ownerOnly);
        return true;
    }
    if (!QDir().mkpath(QFileInfo(folder).path()) || ::mkdir(QFile::encodeName(folder).constData(), 0700) != 0)
        Log::line(Log::debugQuoted(QStringLiteral("Cannot create directory: ") + folder));
    else
        QFile::setPermissions(folder, ownerOnly);
    return true;
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

    for (auto* folder : { &l.varnex, &l.encrypted, &l.decrypted }) {
        if (!usable(**folder))
            folder->reset(); // the log said why
    }
}

std::optional<QString> documentsFolder()
{
    return locations().documents;
}
std::optional<QString> varnexFolder()
{
    return locations().varnex;
}
std::optional<QString> encryptedFilesFolder()
{
    return locations().encrypted;
}
std::optional<QString> decryptedFilesFolder()
{
    return locations().decrypted;
}

} // namespace WorkingFolders
