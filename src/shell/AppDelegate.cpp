#include "shell/AppDelegate.h"

#include "app/Session.h"
#include "app/StoredSession.h"
#include "operations/OperationFolder.h"
#include "app/Settings.h"
#include "pairing/MobileDeviceListener.h"
#include "pairing/PairingGate.h"
#include "storage/WorkingFolders.h"
#include "widgets/Dialogs.h"

#include <QDir>
#include <QLockFile>
#include <QStandardPaths>

namespace {

// The phone posts to the default port. The test suite runs the real program while other runs
// (and maybe an installed copy) hold that port, so it moves the listener with
// VARNEX_LISTENER_PORT (0: any free port); nothing else sets it.
quint16 listenerPort()
{
    bool set = false;
    const int port = qEnvironmentVariableIntValue("VARNEX_LISTENER_PORT", &set);
    return set && port >= 0 && port <= 65535 ? quint16(port) : MobileDeviceListener::defaultPort;
}

} // namespace

AppDelegate::AppDelegate() = default;
AppDelegate::~AppDelegate() = default;

bool AppDelegate::claimSingleInstance()
{
    QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (folder.isEmpty())
        folder = QDir::tempPath();
    QDir().mkpath(folder);
    m_instanceLock = std::make_unique<QLockFile>(folder + QStringLiteral("/varnex-desktop.lock"));
    // Never stale by age: only a lock whose program is gone is taken over.
    m_instanceLock->setStaleLockTime(0);
    if (m_instanceLock->tryLock(0))
        return true;
    m_instanceLock.reset();
    //: Dialog title when the program is started a second time
    //% "Varnex Desktop is already running"
    const QString title = qtTrId("alreadyRunningTitle");
    //: Dialog description when the program is started a second time
    //% "Use the window that is already open. Only one Varnex Desktop can run at a time."
    showAlert(nullptr, title, qtTrId("alreadyRunningDescription"), Dialogs::Style::Informational);
    return false;
}

void AppDelegate::applicationDidFinishLaunching()
{
    Session::instance(); // made on the main thread, before any listener thread touches it
    Settings::protectFile(); // a file an older version left readable to others
    // The trusted phone of the last run is the one to look for; the window's watchdog finds it.
    PairingGate::instance().restore();
    WorkingFolders::prepareWorkingFolders();
    // Operation folders an interrupted run left behind; nothing else is ever removed.
    for (const auto& folder : { WorkingFolders::encryptedFilesFolder(), WorkingFolders::decryptedFilesFolder() }) {
        if (folder)
            OperationFolder::removeLeftovers(*folder);
    }
    m_listener = std::make_unique<MobileDeviceListener>(listenerPort());
    m_listener->start();
    StoredSession::log();
}
