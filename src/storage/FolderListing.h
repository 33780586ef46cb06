#pragma once

#include "storage/File.h"

#include <optional>

// Lists a result folder into fresh, unmarked records: the names in the order the file
// system returns them, without hidden names and without names that lack an extension.
// Nothing when the folder cannot be read (logged).
std::optional<FileList> listWorkingFolder(const QString& folder);

// The refresh rule both result lists follow: an unchanged listing keeps the current
// records and their marks; a changed one replaces them. True when replaced.
bool replaceIfChanged(FileList& current, FileList fresh);

// listWorkingFolder followed by replaceIfChanged; true when the list was replaced.
bool refreshFromFolder(FileList& current, const std::optional<QString>& folder);
