#pragma once

#include <QString>

#include <functional>

// Names that never land on an earlier result: "report.pdf", then "report (1).pdf",
// "report (2).pdf" and so on, the counter restarting at 1 for every file.
namespace UniqueNames {

// The longest file name Linux file systems take, in bytes.
constexpr int maxNameBytes = 255;

// The next candidate after `name` with `counter`: the base before the last extension, the
// counter in brackets, then the extension. A name without an extension gets the counter at
// its end ("README (1)"). The base is shortened when the candidate would pass `maxBytes`.
QString withCounter(const QString& name, int counter, int maxBytes = maxNameBytes);

// The first candidate for which `taken` is false.
QString unique(const QString& name, const std::function<bool(const QString& candidate)>& taken,
    int maxBytes = maxNameBytes);

// A staged upload name that no "<name>.vx" in the encrypted-results folder takes; with ".vx"
// it stays within maxNameBytes when `name` does.
QString uniqueEncryptedName(const QString& folder, const QString& name);
// A decrypted file's name that nothing in the decrypted-results folder takes.
QString uniqueDecryptedName(const QString& folder, const QString& name);

// A name as libcurl writes it in a part header: '"', CR and LF percent-escaped. The phone
// names its results by what it read there.
QString asInPartHeader(QString name);

} // namespace UniqueNames
