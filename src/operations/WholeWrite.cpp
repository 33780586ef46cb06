#include "operations/WholeWrite.h"

#include <cerrno>
#include <unistd.h>

namespace WholeWrite {

bool writeAll(int fd, const char* data, qint64 length)
{
    while (length > 0) {
        const ssize_t n = ::write(fd, data, size_t(length));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            if (n == 0)
                errno = EIO;
            return false;
        }
        data += n;
        length -= n;
    }
    return true;
}

} // namespace WholeWrite
