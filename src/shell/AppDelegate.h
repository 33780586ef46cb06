#pragma once

#include <QStringList>

#include <chrono>
#include <memory>

struct AppServices;
class CommandAnswers;
class DBusService;
class DesktopNotifier;
class QWidget;
class ScriptingService;
class MobileDeviceListener;
class PhoneConnection;
class PhoneServiceClient;
class SingleInstance;

// Runs the start-up sequence and owns what lives as long as the process: the phone connection
// (the one owner of the session values), the phone service client, the device listener, the
// desktop notifier; the group API's client is the shared one. Screens are made by the shell
// after start-up and handed these through services().
class AppDelegate
{
public:
    AppDelegate();
    ~AppDelegate();

    // One program per user at a time: true when this is the first start. Needs no
    // application object, so a later start never needs a display.
    bool claimSingleInstance();
    // A later start: hands `files` to the first one, which brings its window forward. The
    // status to exit with: 0 once the first took them, 1 when it did not answer in time
    // (said on standard error).
    int handOverToRunningInstance(const QStringList& files);
    // The first start: takes what later starts hand over (SingleInstance::filesHandedOver) and
    // the commands they ask for.
    void listenForLaterStarts();
    // A command (`varnex-desktop status`): asks the running program, starting one hidden, only
    // for it, when none runs, and prints its answer. The status to exit with (ExitCode).
    int runCommand(const QStringList& arguments);
    // Logs when the window first shows (a start for commands or at login shows none).
    void watchWindow(QWidget* window);
    // Started only for commands (--serve): quits once none is waiting and no operation of
    // theirs runs, unless `window` was shown meanwhile (the user opened it).
    void quitWhenIdle(QWidget* window);
    // How long the program waits for a command's later start to connect before quitting.
    static constexpr std::chrono::milliseconds firstCommandWait { 10000 };
    static constexpr std::chrono::milliseconds lingerAfterCommands { 1500 };
    SingleInstance* singleInstance() const { return m_instance.get(); }

    static constexpr std::chrono::milliseconds handOverTimeout { 2000 };

    // Prepares the working folders, makes the phone connection (which starts looking for the
    // trusted phone of the last run), starts the listener and logs whether a stored session
    // exists. The window opens on pairing whatever the stored session says. The scripting
    // face starts too: commands of later starts, and the service on the session bus.
    void applicationDidFinishLaunching();

    // Nothing is saved at exit: everything persistent is already on disk. The listener and
    // the single-instance socket stop here, while the application object still exists (this
    // object outlives it: a later start must be told apart before any display is opened).
    void applicationWillTerminate();

    static constexpr bool applicationShouldTerminateAfterLastWindowClosed() { return true; }

    AppServices& services() const { return *m_services; }

private:
    std::unique_ptr<SingleInstance> m_instance;
    std::unique_ptr<PhoneServiceClient> m_phoneService;
    std::unique_ptr<PhoneConnection> m_phone;
    std::unique_ptr<DesktopNotifier> m_notifier;
    std::unique_ptr<MobileDeviceListener> m_listener;
    std::unique_ptr<ScriptingService> m_scripting;
    std::unique_ptr<CommandAnswers> m_answers;
    std::unique_ptr<DBusService> m_bus;
    std::shared_ptr<bool> m_windowShown = std::make_shared<bool>(false);
    std::unique_ptr<AppServices> m_services;
};
