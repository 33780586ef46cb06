#pragma once

#include <QString>

#include <functional>

namespace Log {

// Writes one line to standard output and flushes it at once. These lines are part of the
// program's observable behaviour (scripts and tests read them), so they bypass qDebug's
// message handler and its formatting.
void line(const QString& text);

// Also hands every line to observer (tests read the lines this way); an empty function
// removes it.
void setObserver(std::function<void(const QString&)> observer);

// The line a debug print of a string shows: the text in double quotes, with quotes and
// backslashes escaped.
QString debugQuoted(const QString& text);

// Text from the network made safe for one log line: control characters (line breaks, escape
// sequences), bidirectional overrides and backslashes become visible escapes, so a peer can
// neither forge extra lines nor hide what it sent.
QString escaped(const QString& text);

} // namespace Log
