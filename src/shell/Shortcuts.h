#pragma once

class MainViewController;

// The window's keyboard shortcuts, standard keys where a standard exists: Ctrl+1 / Ctrl+2
// the two screens, F1 About, Ctrl+F the recipients' search (the file screens add Ctrl+O,
// Delete and Ctrl+A). A button's shortcut is its own (QAbstractButton::setShortcut), so
// assistive technology announces it as the button's key binding; its tool tip names it too.
void installShortcuts(MainViewController* main);
