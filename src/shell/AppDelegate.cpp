#include "shell/AppDelegate.h"

#include "api/NetworkClient.h"
#include "api/PhoneServiceClient.h"
#include "app/Session.h"
#include "app/Settings.h"
#include "app/StoredSession.h"
#include "desktop/DesktopNotifier.h"
#include "desktop/SingleInstance.h"
#include "operations/OperationFolder.h"
#include "pairing/MobileDeviceListener.h"
#include "pairing/PhoneConnection.h"
#include "shell/AppServices.h"
#include "storage/WorkingFolders.h"

#include <QTextStream>

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
    if (!m_instance)
        m_instance = std::make_unique<SingleInstance>();
    return m_instance->claim();
}

int AppDelegate::handOverToRunningInstance(const QStringList& files)
{
    if (!m_instance)
        m_instance = std::make_unique<SingleInstance>();
    if (m_instance->handOver(files, handOverTimeout) == SingleInstance::HandOver::Delivered)
        return 0;
    //: On standard error when a second start finds the first one not answering
    //% "Varnex Desktop is already running but does not answer. Close it and start again."
    QTextStream(stderr) << qtTrId("alreadyRunningNoAnswer") << u'\n';
    return 1;
}

void AppDelegate::listenForLaterStarts()
{
    if (m_instance)
        m_instance->listen();
}

void AppDelegate::applicationDidFinishLaunching()
{
    Settings::protectFile(); // a file an older version left readable to others
    WorkingFolders::prepareWorkingFolders();
    // Operation folders an interrupted run left behind; nothing else is ever removed.
    for (const auto& folder :
        { WorkingFolders::encryptedFilesFolder(), WorkingFolders::decryptedFilesFolder() }) {
        if (folder)
            OperationFolder::removeLeftovers(*folder);
    }
    // The trusted phone of the last run is the one to look for; the watchdog finds it.
    Session& session = Session::instance();
    m_phoneService = std::make_unique<PhoneServiceClient>(session);
    m_phone = std::make_unique<PhoneConnection>(
        session, [client = m_phoneService.get()](auto timeout, QObject* context, auto done) {
            client->ping(timeout, context, std::move(done));
        });
    m_phone->start();
    m_notifier = std::make_unique<DesktopNotifier>();
    m_services = std::make_unique<AppServices>(
        AppServices { *m_phone, *m_notifier, *m_phoneService, NetworkClient::shared() });
    m_listener = std::make_unique<MobileDeviceListener>(*m_phone, listenerPort());
    m_listener->start();
    StoredSession::log();
}

void AppDelegate::applicationWillTerminate()
{
    m_listener.reset();
    m_instance.reset();
    m_services.reset();
    m_notifier.reset();
    m_phone.reset();
    m_phoneService.reset();
}
