#include "recipients/GroupNameRule.h"

#include <QRegularExpression>

namespace GroupNameRule {

Verdict check(const QString& typed)
{
    const QString name = typed.trimmed();
    if (name.isEmpty())
        return {};
    static const QRegularExpression characters(QStringLiteral("^[a-zA-Z][a-zA-Z0-9]*$"));
    if (!characters.match(name).hasMatch())
        //: Under the group name field while the name has other characters
        //% "Use only the letters A-Z and digits, starting with a letter."
        return { std::nullopt, qtTrId("groupNameCharacters") };
    if (name.size() < 2 || name.size() > 250)
        //: Under the group name field while the name is too short or too long
        //% "Use 2 to 250 characters."
        return { std::nullopt, qtTrId("groupNameLength") };
    return { name, {} };
}

} // namespace GroupNameRule
