#pragma once

#include <QColor>
#include <QPalette>

// The shell's colours, all opaque.
namespace Colors {
inline const QColor primaryColor { 255, 192, 0 }; // amber: window, selected tab text, overlays
inline const QColor grayColor { 247, 247, 247 }; // panel, selected tab, unselected tab text
inline const QColor darkOrange { 254, 173, 2 }; // unselected tabs

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

// The program's own surfaces and texts (the panel under the screens, the white boxes and cards
// on it), light, or dark when the desktop's palette is: the amber and its dark text are the same
// in both. Every text keeps 4.5:1 on the surfaces it is drawn on.
struct Scheme
{
    bool dark = false;
    QColor panel; // the panel under the screens (grayColor when light)
    QColor card; // lists, fields, cards: white when light
    QColor memberCard; // a group member's card inside the list
    QColor button; // a plain control's face on the panel
    QColor text;
    QColor title; // the screens' titles
    QColor muted; // secondary text on cards and the panel
    QColor amberText; // amber as text: selected tab, file types
    QColor border; // a field's outline
};
// The scheme for the palette the application has now.
const Scheme& scheme();

// `base` with the scheme's colours, so the controls on the program's own surfaces (which follow
// the palette) read on them: dark text and light bevels on the light ones, and the other way
// round. Selection colours stay the system's.
QPalette schemePalette(QPalette base, const Scheme& colours = scheme());

// `base` made light: a surface that stays white whatever the desktop's scheme (the pairing
// code's box: a code reads on white only).
QPalette lightPalette(QPalette base);
} // namespace Colors
