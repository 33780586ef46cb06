#include "shell/ScreenFactory.h"

#include "screens/AboutViewController.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/QRCodeViewController.h"
#include "shell/MainViewController.h"
#include "widgets/ProgressOverlay.h"

namespace ScreenFactory {

QWidget* make(const QString& identifier, QWidget* parent)
{
    if (identifier == u"main_vc")
        return new MainViewController(parent);
    if (identifier == u"qrCode_vc")
        return new QRCodeViewController(parent);
    if (identifier == u"EncryptViewController")
        return new EncryptViewController(parent);
    if (identifier == u"DecryptViewController")
        return new DecryptViewController(parent);
    if (identifier == u"AboutViewController")
        return new AboutViewController(parent);
    if (identifier == u"EncryptingViewController")
        return new EncryptingViewController(parent);
    if (identifier == u"DecryptingViewController")
        return new DecryptingViewController(parent);
    return nullptr;
}

} // namespace ScreenFactory
