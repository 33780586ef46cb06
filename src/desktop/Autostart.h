#pragma once

#include <QString>

// "Start at login": an entry in the user's autostart folder (XDG_CONFIG_HOME/autostart) that
// starts the program hidden, so the trusted phone is found and commands answer at once.
// Opt-in; nothing is written until the user asks.
namespace Autostart {

QString entryPath();
bool isEnabled();
// Writes the entry for `program` (this executable's path), or removes it; false when the
// folder or file cannot be written.
bool setEnabled(bool enabled, const QString& program);
// The entry's text for `program`.
QString entryText(const QString& program);

} // namespace Autostart
