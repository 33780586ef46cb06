#pragma once

#include <QString>

// The shell's user-visible texts, looked up by their translation ids.
namespace Texts {
QString varnexDesktopNotConnected();
QString varnexDesktopConnected();

// A phone's name as the screens show it. The name comes from the network: control and
// formatting characters and line or paragraph separators are dropped, so it cannot break a
// line or disguise what surrounds it, and it is cut to `longest` characters.
QString deviceName(const QString& name, qsizetype longest = 64);
} // namespace Texts
