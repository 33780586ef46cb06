#pragma once

#include <QColor>

// The shell's colours, all opaque.
namespace Colors {
inline const QColor primaryColor { 255, 192, 0 };  // amber: window, selected tab text, overlays
inline const QColor grayColor { 247, 247, 247 };   // panel, selected tab, unselected tab text
inline const QColor darkOrange { 254, 173, 2 };    // unselected tabs
} // namespace Colors
