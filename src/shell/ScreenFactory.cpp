#include "shell/ScreenFactory.h"

#include "files/DecryptViewController.h"
#include "files/EncryptViewController.h"
#include "pairing/QRCodeViewController.h"
#include "shell/AboutViewController.h"
#include "shell/MainViewController.h"
#include "shell/ProgressOverlay.h"

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
