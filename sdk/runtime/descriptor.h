// Descriptors that are never those of the console, 0 to 2, even when it has closed its own.
#ifndef SDK_RUNTIME_DESCRIPTOR_H
#define SDK_RUNTIME_DESCRIPTOR_H

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace sim {

// The open file under a number above 2, close-on-exec; takes `file` over, the result of an open().
// -1 with errno set when that failed, or this does.
inline int above_console(int file) {
    constexpr int FIRST = 3;
    if (file < 0 || file >= FIRST) return file;
    const int moved = fcntl(file, F_DUPFD_CLOEXEC, FIRST);
    const int error = errno;
    ::close(file);
    errno = error;
    return moved;
}

}  // namespace sim

#endif  // SDK_RUNTIME_DESCRIPTOR_H
