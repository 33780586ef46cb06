#pragma once

#include <QString>

#include <optional>

// A group name from the user: trimmed, then an ASCII letter followed by 1 to 249 ASCII letters
// or digits. Only A-Z count as letters, so "Steuerbüro" is refused saying so.
namespace GroupNameRule {
struct Verdict
{
    // The trimmed name when it passes.
    std::optional<QString> name;
    // Why not, in the words of what was typed wrong; empty for an empty name, of which there
    // is nothing to say.
    QString message;
};
Verdict check(const QString& typed);
} // namespace GroupNameRule
