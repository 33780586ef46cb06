#include "app/CommandLine.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "desktop/SingleInstance.h"
#include "pairing/PhoneConnection.h"
#include "shell/AppDelegate.h"
#include "shell/AppServices.h"
#include "shell/AppWindow.h"
#include "shell/QuitGuard.h"
#include "tray/TrayIcon.h"

#include <QApplication>
#include <QDir>
#include <QTextStream>

#include <memory>

static void nameApplication()
{
    QCoreApplication::setOrganizationName(QString::fromLatin1(Settings::organization));
    QCoreApplication::setApplicationName(QString::fromLatin1(Settings::application));
    QCoreApplication::setApplicationVersion(QStringLiteral(VARNEX_VERSION));
}

int main(int argc, char* argv[])
{
    AppDelegate delegate;
    QStringList files;
    bool hidden = false;
    bool serveOnly = false;
    // Arguments are answered before any window system, setting, folder or port is touched, so
    // --help and --version work without a display and never start a session; a later start
    // hands its files over without a display too.
    {
        QCoreApplication probe(argc, argv);
        nameApplication();
        installTranslations(probe);
        // A command is answered by the running program, which this start only asks.
        if (isScriptCommand(QCoreApplication::arguments()))
            return delegate.runCommand(QCoreApplication::arguments());
        if (const auto answer = answerCommandLine(QCoreApplication::arguments())) {
            QTextStream(answer->exitCode == 0 ? stdout : stderr) << answer->output;
            return answer->exitCode;
        }
        files = commandLineFiles(QCoreApplication::arguments(), QDir::currentPath());
        hidden = startsHidden(QCoreApplication::arguments());
        serveOnly = servesOnly(QCoreApplication::arguments());
        // A hidden start (at login, for a command, by the bus) finding one running leaves it be.
        if (!delegate.claimSingleInstance())
            return hidden && files.isEmpty() ? 0 : delegate.handOverToRunningInstance(files);
    }

    QApplication app(argc, argv);
    nameApplication();
    // Lets Wayland desktops match the window to the installed menu entry and its icon.
    QGuiApplication::setDesktopFileName(QStringLiteral("org.varnex.Desktop"));
    // With a tray icon, closing the window leaves the program running (TrayIcon); a start for
    // commands or at login has no window to close at all.
    // A start only for commands shows no tray icon: it is gone again in a moment.
    const bool withTray = !serveOnly && TrayIcon::isAvailable();
    QApplication::setQuitOnLastWindowClosed(
        AppDelegate::applicationShouldTerminateAfterLastWindowClosed() && !withTray);
    installTranslations(app);

    delegate.applicationDidFinishLaunching();

    int status = 0;
    {
        // The window goes before what it was built on.
        AppWindow window(delegate.services());
        // Ctrl+Q, and closing while an operation runs asks first.
        auto* quitGuard = new QuitGuard(&window);
        window.showPairing();
        // Hidden, the tray (where there is one) or the next start shows it.
        if (!hidden)
            window.show();
        std::unique_ptr<TrayIcon> tray;
        if (withTray) {
            tray = std::make_unique<TrayIcon>(
                window, delegate.services().phone, [&window] { return QuitGuard::confirmQuit(&window); });
            quitGuard->setQuit([&tray] { tray->quit(); });
        }
        delegate.watchWindow(&window);
        if (serveOnly)
            delegate.quitWhenIdle(&window);
        // Files wait in the window until the main screens show (after pairing).
        if (!files.isEmpty())
            window.openFiles(files);
        window.takeHandOvers(*delegate.singleInstance());
        delegate.listenForLaterStarts();
        status = app.exec();
    }
    delegate.applicationWillTerminate();
    return status;
}
