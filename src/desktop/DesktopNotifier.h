#pragma once

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QStringList>

#include <functional>

class QDBusPendingCallWatcher;

// Desktop notifications over D-Bus (org.freedesktop.Notifications), sent without blocking.
// Each carries the menu entry's id, so the desktop shows our name and icon, and up to two
// actions: "Show in folder" (the file manager selects the files through
// org.freedesktop.FileManager1, or the folder opens) and "Open" (a single result). Only the
// actions of our own notifications are taken.
class DesktopNotifier : public QObject
{
    Q_OBJECT

public:
    struct Note
    {
        QString summary;
        QString body;
        QString folder; // where the files are; empty: no actions
        QStringList files; // absolute paths of the results
    };

    static constexpr const char* desktopEntry = "org.varnex.Desktop";
    static constexpr const char* showFolderAction = "show-folder";
    static constexpr const char* openAction = "open";

    explicit DesktopNotifier(
        const QDBusConnection& bus = QDBusConnection::sessionBus(), QObject* parent = nullptr);

    // The one notifier of the program, on the session bus.
    static DesktopNotifier& instance();

    // Sends `note`; shown() or notShown() follows once the service answered, and
    // `whenNotShown` runs when no service took it.
    void notify(const Note& note, std::function<void()> whenNotShown = {});

    // Shows `files` selected in the file manager (org.freedesktop.FileManager1), or opens
    // `folder` when no file manager answers that or there are no files.
    void showInFolder(const QStringList& files, const QString& folder);

    // Opens a file with its application, or a folder in the file manager; the screens set
    // it to their dialogs seam (this folder links no widgets).
    std::function<bool(const QString& path)> openPath;

Q_SIGNALS:
    void shown(uint id);
    // No notification service answered: the caller draws attention another way.
    void notShown();
    // One of our notifications' actions ran (after its effect was asked for).
    void actionTaken(uint id, const QString& action);

private Q_SLOTS:
    void onActionInvoked(uint id, const QString& action);
    void onClosed(uint id, uint reason);

private:
    void open(const QString& path);

    QDBusConnection m_bus;
    QHash<uint, Note> m_notes; // our notifications still on screen
};
