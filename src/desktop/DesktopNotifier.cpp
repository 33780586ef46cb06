#include "desktop/DesktopNotifier.h"

#include "desktop/DesktopLog.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QLoggingCategory>
#include <QUrl>

namespace {

const QString notificationsService = QStringLiteral("org.freedesktop.Notifications");
const QString notificationsPath = QStringLiteral("/org/freedesktop/Notifications");
const QString fileManagerService = QStringLiteral("org.freedesktop.FileManager1");
const QString fileManagerPath = QStringLiteral("/org/freedesktop/FileManager1");

} // namespace

DesktopNotifier::DesktopNotifier(const QDBusConnection& bus, QObject* parent)
    : QObject(parent)
    , m_bus(bus)
{
    // Not checked for a service first: the bus may start one on demand.
    m_bus.connect(notificationsService, notificationsPath, notificationsService,
        QStringLiteral("ActionInvoked"), this, SLOT(onActionInvoked(uint, QString)));
    m_bus.connect(notificationsService, notificationsPath, notificationsService,
        QStringLiteral("NotificationClosed"), this, SLOT(onClosed(uint, uint)));
}

DesktopNotifier& DesktopNotifier::instance()
{
    static DesktopNotifier notifier;
    return notifier;
}

void DesktopNotifier::notify(const Note& note, std::function<void()> whenNotShown)
{
    QStringList actions;
    if (!note.folder.isEmpty()) {
        //: Action of a desktop notification: shows the results in the file manager
        //% "Show in folder"
        actions << QString::fromLatin1(showFolderAction) << qtTrId("notificationShowInFolder");
        if (note.files.size() == 1) {
            //: Action of a desktop notification: opens the one result file
            //% "Open"
            actions << QString::fromLatin1(openAction) << qtTrId("notificationOpen");
        }
    }
    const QVariantMap hints { { QStringLiteral("desktop-entry"), QString::fromLatin1(desktopEntry) } };
    QDBusMessage call = QDBusMessage::createMethodCall(
        notificationsService, notificationsPath, notificationsService, QStringLiteral("Notify"));
    call << QString::fromLatin1("Varnex Desktop") << uint(0) << QString::fromLatin1(desktopEntry)
         << note.summary << note.body << actions << hints << int(-1);
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, note, whenNotShown] {
        watcher->deleteLater();
        const QDBusPendingReply<uint> reply = *watcher;
        if (reply.isError()) {
            qCInfo(lcDesktop) << "No desktop notification:" << reply.error().message();
            if (whenNotShown)
                whenNotShown();
            Q_EMIT notShown();
            return;
        }
        m_notes.insert(reply.value(), note);
        Q_EMIT shown(reply.value());
    });
}

void DesktopNotifier::onActionInvoked(uint id, const QString& action)
{
    // Every program's notifications share the signal; only ours are ours to act on.
    const auto it = m_notes.constFind(id);
    if (it == m_notes.cend())
        return;
    const Note note = *it;
    if (action == QLatin1String(showFolderAction))
        showInFolder(note.files, note.folder);
    else if (action == QLatin1String(openAction) && note.files.size() == 1)
        open(note.files.constFirst());
    else
        return;
    Q_EMIT actionTaken(id, action);
}

void DesktopNotifier::onClosed(uint id, uint)
{
    m_notes.remove(id);
}

void DesktopNotifier::showInFolder(const QStringList& files, const QString& folder)
{
    QStringList uris;
    for (const QString& file : files)
        uris.append(QUrl::fromLocalFile(file).toString(QUrl::FullyEncoded));
    if (uris.isEmpty()) {
        open(folder);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        fileManagerService, fileManagerPath, fileManagerService, QStringLiteral("ShowItems"));
    call << uris << QString();
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, folder] {
        watcher->deleteLater();
        // No file manager that selects items: the folder at least.
        if (watcher->isError())
            open(folder);
    });
}

void DesktopNotifier::open(const QString& path)
{
    if (openPath)
        openPath(path);
}
