#include "files/ResultFolder.h"

#include "app/Session.h"
#include "storage/FolderListing.h"

#include <QFileInfo>

ResultFolder::ResultFolder(
    const Session& session, std::optional<QString> folder, std::chrono::milliseconds period, QObject* parent)
    : QObject(parent)
    , m_session(session)
    , m_folder(std::move(folder))
{
    m_timer.setInterval(period);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        if (!m_session.isPhoneConnected()) {
            m_timer.stop();
            return;
        }
        refresh();
    });
    // The periodic listing pauses while the phone is away and resumes when it is back.
    connect(&m_session, &Session::phoneConnectedChanged, this, [this](bool connected) {
        if (connected && m_periodic && !m_timer.isActive()) {
            refresh();
            m_timer.start();
        }
    });
    // A burst of changes (an archive being unpacked) gives one listing.
    m_settle.setSingleShot(true);
    m_settle.setInterval(50);
    connect(&m_settle, &QTimer::timeout, this, &ResultFolder::refresh);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, &m_settle, qOverload<>(&QTimer::start));
    watch();
}

void ResultFolder::watch()
{
    // The watch is lost when the folder is removed; arm it again once it is back.
    if (m_folder && m_watcher.directories().isEmpty() && QFileInfo(*m_folder).isDir())
        m_watcher.addPath(*m_folder);
}

bool ResultFolder::refresh()
{
    watch();
    FileList copy = m_files;
    if (!refreshFromFolder(copy, m_folder))
        return false;
    m_files = std::move(copy);
    Q_EMIT replaced();
    return true;
}

void ResultFolder::startPeriodicRefresh()
{
    m_periodic = true;
    if (m_session.isPhoneConnected())
        m_timer.start();
}
