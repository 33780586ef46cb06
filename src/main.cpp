#include "app/CommandLine.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "shell/AppDelegate.h"
#include "shell/AppWindow.h"

#include <QApplication>
#include <QTextStream>

static void nameApplication()
{
    QCoreApplication::setOrganizationName(QString::fromLatin1(Settings::organization));
    QCoreApplication::setApplicationName(QString::fromLatin1(Settings::application));
    QCoreApplication::setApplicationVersion(QStringLiteral(VARNEX_VERSION));
}

int main(int argc, char* argv[])
{
    // Arguments are answered before any window system, setting, folder or port is touched, so
    // --help and --version work without a display and never start a session.
    if (argc > 1) {
        QCoreApplication probe(argc, argv);
        nameApplication();
        installTranslations(probe);
        if (const auto answer = answerCommandLine(QCoreApplication::arguments())) {
            QTextStream(answer->exitCode == 0 ? stdout : stderr) << answer->output;
            return answer->exitCode;
        }
    }

    QApplication app(argc, argv);
    nameApplication();
    // Lets Wayland desktops match the window to the installed menu entry and its icon.
    QGuiApplication::setDesktopFileName(QStringLiteral("org.varnex.Desktop"));
    QApplication::setQuitOnLastWindowClosed(AppDelegate::applicationShouldTerminateAfterLastWindowClosed());
    installTranslations(app);

    AppDelegate delegate;
    if (!delegate.claimSingleInstance())
        return 1;
    delegate.applicationDidFinishLaunching();

    AppWindow window;
    window.showPairing();
    window.show();

    const int status = app.exec();
    delegate.applicationWillTerminate();
    return status;
}
