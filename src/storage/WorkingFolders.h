#pragma once

#include <QString>

#include <optional>

// The working folder in the user's documents folder and its two result folders. The
// locations are plain absolute paths without a trailing slash, set once at launch.
namespace WorkingFolders {

// Sets the four locations from the platform's documents folder and creates the three
// working folders that are missing. A folder that cannot be created is logged; the others
// are still tried. Something at a folder's place that is not a folder of the user's own (a
// link, a file, another account's folder) is set aside and the folder made anew, both logged;
// when it cannot be set aside, that location stays unset.
void prepareWorkingFolders();

// The same, under the given documents folder (what the platform call hands the above).
void prepareWorkingFolders(const QString& documents);

std::optional<QString> documentsFolder();
std::optional<QString> varnexFolder();
std::optional<QString> encryptedFilesFolder();
std::optional<QString> decryptedFilesFolder();

} // namespace WorkingFolders
