#include "recipients/GroupNameRule.h"

#include <QRegularExpression>

namespace GroupNameRule {

Verdict check(const QString& typed)
{
    const QString name = typed.trimmed();
    if (name.isEmpty())
        return { std::nullopt, QStringLiteral("Group name cannot be empty") };
    static const QRegularExpression rule(QStringLiteral("^[a-zA-Z][a-zA-Z0-9]{1,249}$"));
    if (!rule.match(name).hasMatch())
        return { std::nullopt,
                 QStringLiteral("Group name must start with a letter and contain only letters and numbers (2-250 characters)") };
    return { name, {} };
}

} // namespace GroupNameRule
