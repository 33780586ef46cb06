#pragma once

#include <QColor>
#include <QPalette>

// The shell's colours, all opaque.
namespace Colors {
inline const QColor primaryColor { 255, 192, 0 };  // amber: window, selected tab text, overlays
inline const QColor grayColor { 247, 247, 247 };   // panel, selected tab, unselected tab text
inline const QColor darkOrange { 254, 173, 2 };    // unselected tabs

// Text colours that stay readable (4.5:1 and more) on the surfaces above. White on the amber
// reaches only about 1.6:1, so text on amber is dark, and amber used as text is a deep one.
inline const QColor ink { 45, 45, 45 }; // text on amber, orange, white and grey
inline const QColor mutedInk { 100, 100, 100 }; // secondary text on white and grey
inline const QColor amberInk { 150, 90, 0 }; // amber as text: selected tab, file types

// WCAG's contrast ratio of two opaque colours, from 1 to 21.
double contrastRatio(const QColor& a, const QColor& b);

// `text` as it reads on `background`: unchanged when it reaches `ratio`, else the same hue made
// darker (on a light background) or lighter (on a dark one) until it does.
QColor readableOn(const QColor& text, const QColor& background, double ratio = 4.5);

// `palette` with every disabled text colour, and every placeholder, moved towards the enabled
// text colour until it reads at 4.5:1 on its background: a switched-off control and a hint in
// an empty field look faded, yet stay readable.
QPalette readable(QPalette palette);

// `base` made light: the program's own surfaces (the grey panel, the white code box) stay light
// whatever the system's colour scheme, so the controls on them, which follow the palette, keep
// dark text and light bevels also when the desktop uses a dark palette. Selection colours stay
// the system's.
inline QPalette lightPalette(QPalette base)
{
    const QColor faded = mutedInk;
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
