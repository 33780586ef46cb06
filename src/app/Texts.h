#pragma once

#include <QString>

// The shell's user-visible texts, looked up by their translation ids.
namespace Texts {
QString varnexDesktopNotConnected();
QString varnexDesktopConnected();
} // namespace Texts
