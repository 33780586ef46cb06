#include "recipients/GroupNameRule.h"

#include <QRegularExpression>

namespace GroupNameRule {

Verdict check(const QString& typed)
{
    const QString name = typed.trimmed();
    if (name.isEmpty())
        //% "Group name cannot be empty"
        return { std::nullopt, qtTrId("groupNameEmpty") };
    static const QRegularExpression rule(QStringLiteral("^[a-zA-Z][a-zA-Z0-9]{1,249}$"));
    if (!rule.match(name).hasMatch())
        //% "Group name must start with a letter and contain only letters and numbers (2-250 characters)"
        return { std::nullopt, qtTrId("groupNameRule") };
    return { name, {} };
}

} // namespace GroupNameRule
