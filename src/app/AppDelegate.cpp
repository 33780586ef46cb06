#include "app/AppDelegate.h"

#include "app/BaseUrlStore.h"
#include "app/Log.h"
#include "app/Session.h"
#include "app/Settings.h"
#include "encrypt/OperationTask.h"
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
    logStoredSession();
}

bool AppDelegate::hasCompleteStoredSession()
{
    return Settings::string(Settings::userEmailKey).has_value() && BaseUrlStore::hasBaseURL();
}

void AppDelegate::logStoredSession()
{
    if (!hasCompleteStoredSession()) {
        Log::line(QStringLiteral("[AppDelegate] ⚠️ User not authenticated - waiting for QR code scan from iOS"));
        return;
    }
    Log::line(QStringLiteral("[AppDelegate] ✅ User authenticated: ") + Settings::string(Settings::userEmailKey).value_or(QString()));
    Log::line(QStringLiteral("[AppDelegate] ✅ BaseURL: ")
              + Settings::string(Settings::baseUrlKey).value_or(QStringLiteral("not set")));
}
