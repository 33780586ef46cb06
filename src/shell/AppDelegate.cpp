#include "shell/AppDelegate.h"

#include "app/Session.h"
#include "app/StoredSession.h"
#include "operations/OperationTask.h"
#include "pairing/MobileDeviceListener.h"
#include "storage/WorkingFolders.h"

AppDelegate::AppDelegate() = default;
AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching()
{
    Session::instance(); // made on the main thread, before any listener thread touches it
    WorkingFolders::prepareWorkingFolders();
    // Operation folders an interrupted run left behind; nothing else is ever removed.
    for (const auto& folder : { WorkingFolders::encryptedFilesFolder(), WorkingFolders::decryptedFilesFolder() }) {
        if (folder)
            removeLeftoverOperationFolders(*folder);
    }
    m_listener = std::make_unique<MobileDeviceListener>(MobileDeviceListener::defaultPort);
    m_listener->start();
    StoredSession::log();
}
