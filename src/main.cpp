#include "app/CommandLine.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "desktop/SingleInstance.h"
#include "shell/AppDelegate.h"
#include "shell/AppWindow.h"
#include "shell/QuitGuard.h"

#include <QApplication>
#include <QDir>
#include <QTextStream>

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
    // Arguments are answered before any window system, setting, folder or port is touched, so
    // --help and --version work without a display and never start a session; a later start
    // hands its files over without a display too.
    {
        QCoreApplication probe(argc, argv);
        nameApplication();
        installTranslations(probe);
        if (const auto answer = answerCommandLine(QCoreApplication::arguments())) {
            QTextStream(answer->exitCode == 0 ? stdout : stderr) << answer->output;
            return answer->exitCode;
        }
        files = commandLineFiles(QCoreApplication::arguments(), QDir::currentPath());
        if (!delegate.claimSingleInstance())
            return delegate.handOverToRunningInstance(files);
    }

    QApplication app(argc, argv);
    nameApplication();
    // Lets Wayland desktops match the window to the installed menu entry and its icon.
    QGuiApplication::setDesktopFileName(QStringLiteral("org.varnex.Desktop"));
    QApplication::setQuitOnLastWindowClosed(AppDelegate::applicationShouldTerminateAfterLastWindowClosed());
    installTranslations(app);

    delegate.applicationDidFinishLaunching();

    int status = 0;
    {
        // The window goes before what it was built on.
        AppWindow window(delegate.services());
        // Ctrl+Q, and closing while an operation runs asks first.
        new QuitGuard(&window);
        window.showPairing();
        window.show();
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
