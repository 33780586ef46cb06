#include "operations/UniqueNames.h"

#include <QFile>
#include <QFileInfo>

namespace UniqueNames {

namespace {

qsizetype bytesOf(const QString& text)
{
    return QFile::encodeName(text).size();
}

} // namespace

QString withCounter(const QString& name, int counter, int maxBytes)
{
    const QStringList pieces = name.split(u'.', Qt::SkipEmptyParts);
    const bool hasExt = pieces.size() >= 2;
    const QString tail = hasExt ? QStringLiteral(" (%1).").arg(counter) + pieces.last()
                                : QStringLiteral(" (%1)").arg(counter);
    QString base = hasExt ? name.left(name.size() - pieces.last().size() - 1) : name;
    // A name near the file system's limit would not take the counter: its base gives way, by
    // whole characters, rather than the result failing to land.
    while (!base.isEmpty() && bytesOf(base + tail) > maxBytes) {
        base.chop(1);
        if (!base.isEmpty() && base.back().isHighSurrogate())
            base.chop(1);
    }
    return base + tail;
}

QString unique(const QString& name, const std::function<bool(const QString&)>& taken, int maxBytes)
{
    QString candidate = name;
    for (int counter = 1; taken(candidate); ++counter)
        candidate = withCounter(name, counter, maxBytes);
    return candidate;
}

QString uniqueEncryptedName(const QString& folder, const QString& name)
{
    return unique(
        name,
        [&folder](const QString& c) {
            const QFileInfo info(folder + u'/' + c + u".vx");
            return info.exists() || info.isSymLink();
        },
        maxNameBytes - 3);
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
    return name.replace(u'"', QStringLiteral("%22"))
        .replace(u'\r', QStringLiteral("%0D"))
        .replace(u'\n', QStringLiteral("%0A"));
}

} // namespace UniqueNames
