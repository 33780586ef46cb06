#pragma once

class QAbstractButton;

// Appends the button's shortcut to its tool tip (or to its name when it has no tip), so the
// key is seen where the button is explained. Assistive technology hears it as the button's
// key binding (QAbstractButton::shortcut) already.
void showShortcutInToolTip(QAbstractButton* button);
