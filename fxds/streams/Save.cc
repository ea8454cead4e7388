#include "fxds/Save.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <exception>
#include <memory>
#include <string>

#include "fxds/StdioStream.h"
#include "fxds/base/OpenFile.h"
#include "fxds/base/Uninterrupted.h"
#include "fxds/streams/NewFile.h"

// A file is replaced by renaming another one onto it, in the same folder, which is on the
// same file system. Everything that may fail is tried before that: access to the path, the
// folder, the new file, its bytes and their way to the disk.
//
// Invariants:
// (1) Until fxNewFile::takePlaceOf() the file at the path is untouched.
// (2) Every way out before that removes the new file: its destructor unlinks it.
// (3) The folder is opened once. All later operations are relative to its descriptor, so a
//     changed working folder or a renamed folder makes no difference.

namespace {

struct Failure {
    int error;
};

// A failed system call ends the saving with its errno.
int checked(int result) {
    if (result < 0) throw Failure{errno != 0 ? errno : EIO};
    return result;
}

class Descriptor {
public:
    explicit Descriptor(int fd_) : fd(checked(fd_)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { ::close(fd); }

    const int fd;
};

// A file in its folder, behind all symbolic links, whether it exists or not. Paths are
// resolved once: an xdr() may change the working folder, and folders may be renamed
// meanwhile.
class Target {
public:
    explicit Target(std::string path) {
        constexpr int mostLinks = 40;
        char link[PATH_MAX];
        if (path.empty()) throw Failure{ENOENT};
        if (path.find('\0') != std::string::npos) throw Failure{EINVAL};
        for (int i = 0; i < mostLinks; ++i) {
            const size_t slash = path.rfind('/');
            const bool hasFolder = slash != std::string::npos;
            name = hasFolder ? path.substr(slash + 1) : path;
            enter(hasFolder ? path.substr(0, slash + 1) : ".", O_PATH);
            const ssize_t length = ::readlinkat(folder->fd, name.c_str(), link, sizeof link);
            if (length < 0) {
                enter(".", O_RDONLY);  // which can be synced
                return;
            }
            path.assign(link, static_cast<size_t>(length));
        }
        throw Failure{ELOOP};
    }

    // Whether the file exists. Only regular files are replaced.
    bool isThere(struct stat& status) const {
        const int flags = AT_SYMLINK_NOFOLLOW;
        if (name.empty()) throw Failure{EISDIR};
        const int result = ::fstatat(folder->fd, name.c_str(), &status, flags);
        if (result != 0 && errno == ENOENT) return false;
        checked(result);
        if (S_ISDIR(status.st_mode)) throw Failure{EISDIR};
        if (!S_ISREG(status.st_mode)) throw Failure{S_ISLNK(status.st_mode) ? ELOOP : EINVAL};
        return true;
    }
    void checkIsWritable() const {
        checked(::faccessat(folder->fd, name.c_str(), W_OK, AT_EACCESS));
    }

    std::unique_ptr<Descriptor> folder;
    std::string name;

private:
    void enter(const std::string& path, int mode) {
        const int from = folder != nullptr ? folder->fd : AT_FDCWD;
        const int flags = mode | O_DIRECTORY | O_CLOEXEC;
        folder = std::make_unique<Descriptor>(
            fxUninterrupted([&] { return ::openat(from, path.c_str(), flags); }));
    }
};

// Keeps a stream from being deleted with its transcriber.
class Kept {
public:
    explicit Kept(fxStream& stream_) : stream(stream_) { stream.take(); }
    Kept(const Kept&) = delete;
    Kept& operator=(const Kept&) = delete;
    ~Kept() { --stream.refCount; }

private:
    fxStream& stream;
};

// The fault of a stream that failed has its errno, if any.
fxStreamFault writeTo(fxStream& stream, fxDetail::WriteRoot* writeRoot, void* root) {
    fxStreamFault fault;
    const Kept kept(stream);
    errno = 0;
    const std::unique_ptr<fxTranscriber> writer(fxTranscriber::getWriter(&stream));
    if (writer != nullptr && writeRoot(*writer, root)) return fault;
    const int error = errno;
    const fxStreamFault* const objection = writer != nullptr ? writer->objection() : nullptr;
    if (objection != nullptr) fault = *objection;
    if (root == nullptr) fault.reason = "there is no object";
    const bool isUnwritable = objection != nullptr || root == nullptr;
    fault.kind = isUnwritable ? fxStreamFault::unwritable : fxStreamFault::systemError;
    if (!isUnwritable) fault.error = error;
    if (!isUnwritable && error == 0) fault.reason = "the stream does not take the bytes";
    return fault;
}

void saveAs(const Target& target, fxDetail::WriteRoot* writeRoot, void* root,
            fxStreamFault& fault) {
    struct stat old = {};
    const bool isThere = target.isThere(old);
    if (isThere) target.checkIsWritable();
    fxNewFile file(target.folder->fd, isThere ? &old : nullptr);
    fault = writeTo(file, writeRoot, root);
    if (file.error() == 0 && fault) return;
    if (!file.finish()) throw Failure{file.error()};  // a full disk shows here at the latest
    target.isThere(old);                              // the path may lead to another file by now
    if (!file.takePlaceOf(target.name)) throw Failure{file.error()};
    // Some file systems have nothing to sync.
    if (fxUninterrupted([&] { return ::fsync(target.folder->fd); }) != 0 && errno != EINVAL) {
        throw Failure{errno};
    }
}

void* loadFrom(fxStream& stream, fxTypeObj& type, fxStreamFault& fault) {
    const Kept kept(stream);
    const std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(&stream, fault));
    try {
        return reader != nullptr ? reader->readObject(type) : nullptr;
    } catch (const std::exception& thrown) {
        if (!fault) fault.kind = fxStreamFault::refused;
        if (fault.kind == fxStreamFault::refused) fault.reason = thrown.what();
        return nullptr;
    }
}

}  // namespace

fxStreamFault fxDetail::saveRoot(const std::string& path, WriteRoot* write, void* root) {
    fxStreamFault fault;
    try {
        saveAs(Target(path), write, root, fault);
    } catch (const Failure& failure) {
        fault = fxStreamFault();
        fault.kind = fxStreamFault::systemError;
        fault.error = failure.error;
        fault.reason = fxFileError(path, failure.error);
    }
    if (fault) fault.path = fxShownPath(path);
    return fault;
}

fxStreamFault fxDetail::saveRoot(fxStream& stream, WriteRoot* write, void* root) {
    return writeTo(stream, write, root);
}

void* fxDetail::loadRoot(const std::string& path, fxTypeObj& type, fxStreamFault& fault) {
    const int fd = fxOpenFile(path);
    void* root = nullptr;
    int error = fd < 0 ? errno : 0;
    if (fd >= 0) {
        fxStdioStream stream(fd, fxStream::fxStreamRead);
        root = loadFrom(stream, type, fault);
        // A stream takes a failing device for the end of its bytes.
        char byte = 0;
        if (root == nullptr && ::read(fd, &byte, 1) < 0 && errno != EAGAIN) error = errno;
        if (stream.hasError()) ::close(fd);
    }
    if (error != 0) fault = fxStreamFault();
    if (error != 0) fault.kind = fxStreamFault::systemError;
    if (error != 0) fault.reason = fxFileError(path, error);
    fault.error = error;
    if (root == nullptr) fault.path = fxShownPath(path);
    return root;
}

void* fxDetail::loadRoot(fxStream& stream, fxTypeObj& type, fxStreamFault& fault) {
    return loadFrom(stream, type, fault);
}
