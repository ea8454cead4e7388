#include "fxds/Save.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include "fxds/StdioStream.h"
#include "fxds/streams/OpenFile.h"

// A file is replaced by renaming another one onto it, in the same folder, which
// is on the same file system. Everything that may fail is tried before that: what
// is at the path, the folder, the new file, its bytes and their way to the disk.

namespace {

struct Failure {
    int error;
};

// For what the system refuses: the errno ends the saving.
int checked(int result) {
    if (result < 0) throw Failure{errno != 0 ? errno : EIO};
    return result;
}

template <class Call>
int uninterrupted(Call call) {
    int result = -1;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
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

// The path that symbolic links lead to, whether something is there or not.
std::string linkTarget(std::string path) {
    constexpr int mostLinks = 40;
    char target[PATH_MAX];
    for (int i = 0; i < mostLinks; ++i) {
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
        if (length < 0) return path;
        const size_t slash = path.rfind('/');
        const bool isAbsolute = length > 0 && *target == '/';
        path.erase(isAbsolute || slash == std::string::npos ? 0 : slash + 1);
        path.append(target, static_cast<size_t>(length));
    }
    throw Failure{ELOOP};
}

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// The file that takes the place of another one, or goes.
class NewFile {
public:
    // Requires: `old` is null or a file that is replaced.
    NewFile(const std::string& folder, const struct stat* old) {
        static std::atomic<unsigned int> count{0};
        const unsigned int mode = old != nullptr ? S_IRUSR | S_IWUSR : 0666;
        const std::string prefix = folder + "/.saving-" + std::to_string(::getpid()) + '-';
        do {
            path = prefix + std::to_string(++count);
            fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        } while (fd < 0 && (errno == EEXIST || errno == EINTR));
        checked(fd);
        if (old == nullptr) return;
        const bool isOwned = ::fchown(fd, old->st_uid, old->st_gid) == 0;
        const unsigned int bits = isOwned ? 07777U : 0777U;
        if (::fchmod(fd, old->st_mode & bits) != 0) error = errno;
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile() {
        if (!path.empty()) ::unlink(path.c_str());
    }

    void rename(const std::string& to) {
        checked(::rename(path.c_str(), to.c_str()));
        path.clear();
    }

    std::string path;  // empty once it was renamed
    int fd = -1;       // not owned: a stream adopts it
    int error = 0;     // of its permissions
};

// Keeps a stream from dying with its transcriber.
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
    if (!isUnwritable) fault.reason = "the stream does not take the bytes";
    return fault;
}

void saveAs(const std::string& path, fxDetail::WriteRoot* writeRoot, void* root,
            fxStreamFault& fault) {
    struct stat old = {};
    const bool isThere = ::stat(path.c_str(), &old) == 0;
    if (!isThere && errno != ENOENT) throw Failure{errno};
    if (isThere && !S_ISREG(old.st_mode)) throw Failure{S_ISDIR(old.st_mode) ? EISDIR : EINVAL};
    if (isThere) checked(::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS));
    const Descriptor folder(::open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    NewFile file(folderOf(path), isThere ? &old : nullptr);
    fxStdioStream stream(file.fd, fxStream::fxStreamWrite);
    if (stream.hasError()) {
        ::close(file.fd);
        throw Failure{ENOMEM};
    }
    if (file.error != 0) throw Failure{file.error};
    fault = writeTo(stream, writeRoot, root);
    if (fault) return;
    errno = 0;
    checked(stream.flush() ? 0 : -1);  // a full disk shows here at the latest
    checked(uninterrupted([&] { return ::fsync(file.fd); }));
    checked(stream.close() ? 0 : -1);
    file.rename(path);
    // Some file systems have nothing to sync.
    if (uninterrupted([&] { return ::fsync(folder.fd); }) != 0 && errno != EINVAL) {
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

fxStreamFault fxDetail::saveRoot(const char* path, WriteRoot* write, void* root) {
    fxStreamFault fault;
    try {
        saveAs(linkTarget(path), write, root, fault);
    } catch (const Failure& failure) {
        fault.kind = fxStreamFault::systemError;
        fault.error = failure.error;
    }
    if (fault) fault.path = path;
    return fault;
}

fxStreamFault fxDetail::saveRoot(fxStream& stream, WriteRoot* write, void* root) {
    return writeTo(stream, write, root);
}

void* fxDetail::loadRoot(const char* path, fxTypeObj& type, fxStreamFault& fault) {
    const int fd = fxOpenFile(path);
    void* root = nullptr;
    int error = fd < 0 ? errno : 0;
    if (fd >= 0) {
        fxStdioStream stream(fd, fxStream::fxStreamRead);
        root = loadFrom(stream, type, fault);
        // To a stream, a device that fails is the end of its bytes.
        char byte = 0;
        if (root == nullptr && ::read(fd, &byte, 1) < 0 && errno != EAGAIN) error = errno;
        if (stream.hasError()) ::close(fd);
    }
    if (error != 0) fault = fxStreamFault();
    if (error != 0) fault.kind = fxStreamFault::systemError;
    fault.error = error;
    if (root == nullptr) fault.path = path;
    return root;
}

void* fxDetail::loadRoot(fxStream& stream, fxTypeObj& type, fxStreamFault& fault) {
    return loadFrom(stream, type, fault);
}
