#include "operations/UniqueNames.h"

#include <QFileInfo>

namespace UniqueNames {

QString withCounter(const QString& name, int counter)
{
    const QStringList pieces = name.split(u'.', Qt::SkipEmptyParts);
    if (pieces.size() < 2)
        return name + QStringLiteral(" (%1)").arg(counter);
    const QString ext = pieces.last();
    const QString base = name.left(name.size() - ext.size() - 1);
    return base + QStringLiteral(" (%1).").arg(counter) + ext;
}

QString unique(const QString& name, const std::function<bool(const QString&)>& taken)
{
    QString candidate = name;
    for (int counter = 1; taken(candidate); ++counter)
        candidate = withCounter(name, counter);
    return candidate;
}

QString uniqueEncryptedName(const QString& folder, const QString& name)
{
    return unique(name, [&folder](const QString& c) {
        const QFileInfo info(folder + u'/' + c + u".vx");
        return info.exists() || info.isSymLink();
    });
}

QString uniqueDecryptedName(const QString& folder, const QString& name)
{
    return unique(name, [&folder](const QString& c) {
        const QFileInfo info(folder + u'/' + c);
        return info.exists() || info.isSymLink();
    });
}

QString asInPartHeader(QString name)
{
    return name.replace(u'"', QStringLiteral("%22")).replace(u'\r', QStringLiteral("%0D")).replace(u'\n', QStringLiteral("%0A"));
}

} // namespace UniqueNames
