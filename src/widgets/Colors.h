#pragma once

#include <QColor>
#include <QPalette>

// The shell's colours, all opaque.
namespace Colors {
inline const QColor primaryColor { 255, 192, 0 };  // amber: window, selected tab text, overlays
inline const QColor grayColor { 247, 247, 247 };   // panel, selected tab, unselected tab text
inline const QColor darkOrange { 254, 173, 2 };    // unselected tabs

// `base` made light: the program's own surfaces (the grey panel, the white code box) stay light
// whatever the system's colour scheme, so the controls on them, which follow the palette, keep
// dark text and light bevels also when the desktop uses a dark palette. Selection colours stay
// the system's.
inline QPalette lightPalette(QPalette base)
{
    const QColor ink(45, 45, 45), faded(150, 150, 150);
    const QPalette bevels(QColor(235, 235, 235), grayColor);
    for (auto group : { QPalette::Active, QPalette::Inactive, QPalette::Disabled }) {
        for (auto role :
            { QPalette::Light, QPalette::Midlight, QPalette::Mid, QPalette::Dark, QPalette::Shadow })
            base.setColor(group, role, bevels.color(group, role));
        const bool enabled = group != QPalette::Disabled;
        base.setColor(group, QPalette::Window, grayColor);
        base.setColor(group, QPalette::WindowText, enabled ? ink : faded);
        base.setColor(group, QPalette::Base, Qt::white);
        base.setColor(group, QPalette::AlternateBase, grayColor);
        base.setColor(group, QPalette::Text, enabled ? ink : faded);
        base.setColor(group, QPalette::Button, QColor(235, 235, 235));
        base.setColor(group, QPalette::ButtonText, enabled ? ink : faded);
        base.setColor(group, QPalette::PlaceholderText, faded);
    }
    return base;
}
} // namespace Colors
