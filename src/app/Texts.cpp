#include "app/Texts.h"

#include <QCoreApplication>

namespace Texts {

QString varnexDesktopNotConnected()
{
    //: Application name
    //% "Varnex Dekstop Application (Not connected)"
    return qtTrId("VarnexDesktopNotConnected");
}

QString varnexDesktopConnected()
{
    //: Application name
    //% "Varnex Dekstop Application (Connected: "
    return qtTrId("VarnexDesktopConnected");
}

} // namespace Texts
