#pragma once

#include <QString>

#include <optional>

// A group name from the user: trimmed, then a letter followed by 1 to 249 letters or digits.
namespace GroupNameRule {
// The trimmed name, or nothing with the message to show.
struct Verdict
{
    std::optional<QString> name;
    QString message;
};
Verdict check(const QString& typed);
} // namespace GroupNameRule
