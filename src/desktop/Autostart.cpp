#include "desktop/Autostart.h"

#include "desktop/DesktopLog.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QStandardPaths>

QString Autostart::entryPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + QStringLiteral("/autostart/org.varnex.Desktop.desktop");
}

bool Autostart::isEnabled()
{
    return QFile::exists(entryPath());
}

QString Autostart::entryText(const QString& program)
{
    // A desktop entry's Exec quotes an argument with spaces and escapes these characters.
    QString quoted = program;
    for (const QChar c : { u'\\', u'"', u'`', u'$' })
        quoted.replace(c, QString(u'\\') + c);
    if (quoted.contains(u' '))
        quoted = u'"' + quoted + u'"';
    QFile file(QStringLiteral(":/autostart/org.varnex.Desktop.desktop"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    for (QString& line : lines) {
        if (line.startsWith(u"Exec="))
            line = u"Exec=" + quoted + u" --hidden";
    }
    return lines.join(u'\n');
}

bool Autostart::setEnabled(bool enabled, const QString& program)
{
    const QString path = entryPath();
    if (!enabled)
        return !QFile::exists(path) || QFile::remove(path);
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(entryText(program).toUtf8()) < 0 || !file.commit()) {
        qCWarning(lcDesktop) << "Cannot write the autostart entry" << path << file.errorString();
        return false;
    }
    return true;
}
