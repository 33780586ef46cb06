#include "shell/AppDelegate.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "shell/AppWindow.h"

#include <QApplication>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QString::fromLatin1(Settings::organization));
    QApplication::setApplicationName(QString::fromLatin1(Settings::application));
    QApplication::setApplicationVersion(QStringLiteral(VARNEX_VERSION));
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
