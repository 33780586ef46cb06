#include "shell/AppDelegate.h"

#include "api/NetworkClient.h"
#include "api/PhoneServiceClient.h"
#include "app/CommandLine.h"
#include "app/Session.h"
#include "app/Settings.h"
#include "app/StoredSession.h"
#include "desktop/DesktopLog.h"
#include "desktop/DesktopNotifier.h"
#include "desktop/SingleInstance.h"
#include "operations/OperationFolder.h"
#include "pairing/MobileDeviceListener.h"
#include "pairing/PhoneConnection.h"
#include "scripting/CommandAnswers.h"
#include "scripting/DBusService.h"
#include "scripting/ScriptingService.h"
#include "shell/AppServices.h"
#include "storage/WorkingFolders.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDir>
#include <QElapsedTimer>
#include <QEvent>
#include <QLoggingCategory>
#include <QPointer>
#include <QProcess>
#include <QTextStream>
#include <QTimer>
#include <QWidget>

#include <csignal>

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

// The phone's service port: the phone's own, unless the test suite runs the simulator on a free
// one (VARNEX_PHONE_SERVICE_PORT); nothing else sets it.
void applyPhoneServicePort(Session& session)
{
    bool set = false;
    const int port = qEnvironmentVariableIntValue("VARNEX_PHONE_SERVICE_PORT", &set);
    if (set && port > 0 && port <= 65535)
        session.setPhoneServicePortForTesting(quint16(port));
}

volatile std::sig_atomic_t interrupted = 0;

// Notes that the window showed: a program started for commands then stays, and the log says it.
class WindowWatch : public QObject
{
public:
    WindowWatch(QObject* parent, std::shared_ptr<bool> shown)
        : QObject(parent)
        , m_shown(std::move(shown))
    {
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Show && !*m_shown) {
            *m_shown = true;
            qCInfo(lcDesktop) << "The window shows";
        }
        return QObject::eventFilter(watched, event);
    }

private:
    std::shared_ptr<bool> m_shown;
};

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
    if (!m_instance)
        return;
    if (m_answers) {
        QObject::connect(
            m_instance.get(), &SingleInstance::commandReceived, m_answers.get(), &CommandAnswers::answer);
    }
    m_instance->listen();
}

int AppDelegate::runCommand(const QStringList& arguments)
{
    QTextStream out(stdout);
    QTextStream err(stderr);
    const auto parsed = parseScriptCommand(arguments, QDir::currentPath());
    if (const auto* answer = std::get_if<CommandLineAnswer>(&parsed)) {
        (answer->exitCode == 0 ? out : err) << answer->output;
        return answer->exitCode;
    }
    const ScriptCommand& command = std::get<ScriptCommand>(parsed);
    if (!m_instance)
        m_instance = std::make_unique<SingleInstance>();
    if (!m_instance->isRunning()) {
        if (command.noStart) {
            //: On standard error when a command asked only of a running program finds none
            //% "Varnex Desktop is not running."
            err << qtTrId("commandNotRunning") << u'\n';
            return ExitCode::noPhone;
        }
        // Started hidden, for this command only: it quits again once it has answered. Its own
        // output goes nowhere, so that a script reading ours is not held open by it.
        QProcess program;
        program.setProgram(QCoreApplication::applicationFilePath());
        program.setArguments({ QStringLiteral("--serve") });
        program.setStandardInputFile(QProcess::nullDevice());
        program.setStandardOutputFile(QProcess::nullDevice());
        program.setStandardErrorFile(QProcess::nullDevice());
        // From a terminal without a display (ssh, say) it needs none: its window never shows.
        if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
            && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
            program.setProcessEnvironment(environment);
        }
        program.startDetached();
    }
    // Ctrl+C cancels what the command started, and the command then ends as cancelled.
    std::signal(SIGINT, [](int) { interrupted = 1; });
    const int status = m_instance->runCommand(
        command.arguments(), std::chrono::seconds(20), [] { return interrupted != 0; }, out, err);
    if (status >= 0)
        return status;
    //: On standard error when the running program did not answer a command
    //% "Varnex Desktop did not answer."
    err << qtTrId("commandNoAnswer") << u'\n';
    return ExitCode::failed;
}

void AppDelegate::watchWindow(QWidget* window)
{
    window->installEventFilter(new WindowWatch(window, m_windowShown));
    if (m_scripting)
        m_scripting->setWindowShown(
            [window = QPointer<QWidget>(window)] { return window && window->isVisible(); });
}

void AppDelegate::quitWhenIdle(QWidget* window)
{
    auto* timer = new QTimer(window);
    auto clock = std::make_shared<QElapsedTimer>();
    clock->start();
    auto wait = std::make_shared<std::chrono::milliseconds>(firstCommandWait);
    QObject::connect(timer, &QTimer::timeout, window, [this, timer, clock, wait] {
        if (*m_windowShown) {
            timer->stop(); // the user opened the window: an ordinary start now
            return;
        }
        if (m_scripting->isBusy() || m_answers->open() > 0) {
            clock->restart();
            return;
        }
        if (m_answers->taken() > 0)
            *wait = lingerAfterCommands;
        if (clock->elapsed() >= wait->count())
            QCoreApplication::quit();
    });
    timer->start(100);
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
    applyPhoneServicePort(session);
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
    m_scripting = std::make_unique<ScriptingService>(*m_phone, *m_phoneService, NetworkClient::shared());
    m_answers = std::make_unique<CommandAnswers>(*m_scripting);
    m_bus = std::make_unique<DBusService>(*m_scripting, *m_notifier);
    if (!m_bus->registerOn(QDBusConnection::sessionBus()))
        qCInfo(lcDesktop) << "Not on the session bus: no service org.varnex.Desktop";
    StoredSession::log();
}

void AppDelegate::applicationWillTerminate()
{
    m_bus.reset();
    m_answers.reset();
    m_scripting.reset();
    m_listener.reset();
    m_instance.reset();
    m_services.reset();
    m_notifier.reset();
    m_phone.reset();
    m_phoneService.reset();
}
