// Opens a file that is to be read whole. Private to the library.
#ifndef FXDS_BASE_OPENFILE_H
#define FXDS_BASE_OPENFILE_H

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "fxds/base/Uninterrupted.h"

/// Returns a descriptor for reading the file at `path`; negative, with the reason in errno,
/// when there is none. Only regular files are opened: reading others might never end, and
/// opening alone can have an effect, such as letting the writers of a FIFO go on.
inline int fxOpenFile(const std::string& path) {
    if (path.find('\0') != std::string::npos) return errno = EINVAL, -1;
    struct stat status;
    if (::stat(path.c_str(), &status) != 0) return -1;
    if (S_ISREG(status.st_mode)) {
        const int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
        const int fd = fxUninterrupted([&] { return ::open(path.c_str(), flags); });
        if (fd < 0 || (fstat(fd, &status) == 0 && S_ISREG(status.st_mode))) return fd;
        ::close(fd);  // it has become something else
    }
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return -1;
}

/// What an errno of a file at `path` means for the user. EINVAL, whose own words are "Invalid
/// argument", is given for what is no regular file.
inline std::string fxFileError(const std::string& path, int error) {
    if (error != EINVAL) return std::strerror(error);
    return path.find('\0') != std::string::npos ? "no path has a zero byte" : "not a regular file";
}

/// The path as a fault shows it: '' for an empty one.
inline std::string fxShownPath(const std::string& path) { return !path.empty() ? path : "''"; }

#endif
