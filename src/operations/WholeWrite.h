#pragma once

#include <QtGlobal>

namespace WholeWrite {

// Writes `length` bytes to `fd`, going on after a short write or a signal; false with errno
// set when the descriptor takes no more.
bool writeAll(int fd, const char* data, qint64 length);

} // namespace WholeWrite
