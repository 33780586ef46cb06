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

QString deviceName(const QString& name, qsizetype longest)
{
    QString shown;
    shown.reserve(name.size());
    for (QChar c : name) {
        switch (c.category()) {
        case QChar::Other_Control:
        case QChar::Other_Format:
        case QChar::Separator_Line:
        case QChar::Separator_Paragraph:
            break;
        default:
            shown += c;
        }
    }
    shown = shown.trimmed();
    if (shown.size() > longest) {
        qsizetype cut = longest - 1;
        if (shown.at(cut - 1).isHighSurrogate())
            --cut; // never half a character
        shown = shown.left(cut) + u'…';
    }
    return shown;
}

} // namespace Texts
