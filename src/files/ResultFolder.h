#pragma once

#include "storage/File.h"

#include <QFileSystemWatcher>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <optional>

class Session;

// A result folder listed into a list of files: at once when the folder changes (watched), and
// periodically while the phone is connected as the fallback. An unchanged folder keeps the
// records and their marks.
class ResultFolder : public QObject
{
    Q_OBJECT

public:
    ResultFolder(const Session& session, std::optional<QString> folder, std::chrono::milliseconds period,
        QObject* parent = nullptr);

    const FileList& files() const { return m_files; }
    FileList& files() { return m_files; }
    std::optional<QString> folder() const { return m_folder; }

    // Lists the folder now; true when the list was replaced.
    bool refresh();
    // Starts the periodic listing; it ends by itself once the phone is disconnected.
    void startPeriodicRefresh();
    bool isPeriodicRefreshRunning() const { return m_timer.isActive(); }

Q_SIGNALS:
    void replaced();

private:
    void watch();

    const Session& m_session;
    std::optional<QString> m_folder;
    FileList m_files;
    QTimer m_timer;
    bool m_periodic = false;
    QTimer m_settle;
    QFileSystemWatcher m_watcher;
};
