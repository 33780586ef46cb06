#include "shell/ScreenFactory.h"

#include "screens/QRCodeViewController.h"
#include "shell/AppServices.h"
#include "shell/MainViewController.h"
#include "widgets/ProgressOverlay.h"

namespace ScreenFactory {

QWidget* make(const QString& identifier, AppServices& services, QWidget* parent)
{
    if (identifier == u"main_vc")
        return new MainViewController(services, parent);
    if (identifier == u"qrCode_vc")
        return new QRCodeViewController(services.phone, parent);
    if (identifier == u"EncryptingViewController")
        return new EncryptingViewController(parent);
    if (identifier == u"DecryptingViewController")
        return new DecryptingViewController(parent);
    return nullptr;
}

} // namespace ScreenFactory
