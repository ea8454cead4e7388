// Opens what is to be read whole. Private to the streams.
#ifndef FXDS_STREAMS_OPENFILE_H
#define FXDS_STREAMS_OPENFILE_H

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

/// A descriptor for reading the file at `path`; negative, with the reason in errno,
/// when there is none. What is no file is not opened: reading it might never end.
inline int fxOpenFile(const std::string& path) {
    if (path.find('\0') != std::string::npos) return errno = EINVAL, -1;
    int fd;
    do {
        fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    } while (fd < 0 && errno == EINTR);
    struct stat status;
    if (fd < 0 || (fstat(fd, &status) == 0 && S_ISREG(status.st_mode))) return fd;
    ::close(fd);
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return -1;
}

/// The path as a fault names it: an empty one shows, too.
inline std::string fxShownPath(const std::string& path) { return !path.empty() ? path : "''"; }

#endif
