// The file that fxSave() writes beside another one. Private to the library.
#ifndef FXDS_STREAMS_NEWFILE_H
#define FXDS_STREAMS_NEWFILE_H

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>

#include "fxds/TypedStream.h"

struct stat;

/// A file with a name of its own, which takes the place of another one or is removed by the
/// destructor. After the first failure every operation answers false, and error() says why.
///
/// A copy of the object in a process that was forked fails with ECANCELED, and its destructor
/// leaves the file alone: it belongs to the process that made it. No bytes are in a FILE, which
/// exit() in such a process would write. A write beyond the limit on the size of files fails
/// with EFBIG and raises no signal.
class fxNewFile : public fxTypedStream<fxNewFile> {
public:
    /// Makes the file in `folder`, a borrowed descriptor, with the owner and the permission bits
    /// of `old`, as far as the system allows it, or those of a new file if that is null.
    fxNewFile(int folder, const struct stat* old);
    ~fxNewFile() override;

    bool hasError() override { return failure != 0; }
    bool atEOF() override { return false; }
    bool isReading() override { return false; }
    bool isWriting() override { return true; }
    fxStreamType getType() override { return fxStreamWrite; }

    bool finish();                                ///< Hands all bytes to the disk, and closes.
    bool takePlaceOf(const std::string& target);  ///< Gets this name in the folder.
    int error() const { return failure; }         ///< An errno; 0 if nothing has failed.

private:
    friend class fxTypedStream<fxNewFile>;
    static constexpr size_t bufferBytes = size_t{1} << 16;

    static bool get(void*, size_t) { return false; }
    bool put(const void* bytes, size_t byteCount);
    bool send(const char* bytes, size_t byteCount);
    bool sendBuffer();
    bool isUsable();
    bool check(long result);

    const int folder;
    const pid_t maker;
    int fd = -1;
    int failure = 0;
    std::string name;  // empty once the file has that of the target
    std::unique_ptr<char[]> buffer;
    size_t used = 0;
};

#endif
