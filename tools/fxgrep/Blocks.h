// The lines of a file, a block at a time.
#ifndef FXGREP_BLOCKS_H
#define FXGREP_BLOCKS_H

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <vector>

/// Blocks of whole lines, which grow with the longest line. One object serves any
/// number of files, one after the other: making the buffer takes longer than
/// reading a small file.
class Blocks {
public:
    Blocks() : buffer(size_t{1} << 16) {}

    /// Continues with this file, from its present offset. With `looksForZero_`, stops if
    /// the first block has a zero byte.
    void start(int newFile, bool looksForZero_) {
        file = newFile;
        kept = 0;
        error = 0;
        isAtEnd = isBinary = false;
        looksForZero = looksForZero_;
    }

    /// Reads on until there is a block of whole lines; the last one may lack its newline.
    /// Returns false at the end, at a zero byte that is searched for, and on an error,
    /// which `error` names.
    bool next() {
        if (kept != 0) std::memmove(buffer.data(), end, kept);
        while (error == 0 && !isAtEnd) {
            const size_t searched = kept;
            // One byte stays free, for a terminator behind the last line.
            if (kept + 1 == buffer.size()) buffer.resize(2 * buffer.size());
            const ssize_t count = read(file, buffer.data() + kept, buffer.size() - 1 - kept);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) error = errno;
            if (count == 0) isAtEnd = true;
            if (count <= 0) break;
            kept += static_cast<size_t>(count);
            const char* const added = buffer.data() + searched;
            const void* const newline = memrchr(added, '\n', static_cast<size_t>(count));
            const char* const lineEnd = static_cast<const char*>(newline);
            // Checked at once, as the holes of a file may be longer than memory.
            const size_t looked = lineEnd != nullptr ? static_cast<size_t>(lineEnd - added)
                                                     : static_cast<size_t>(count);
            isBinary = looksForZero && std::memchr(added, 0, looked) != nullptr;
            if (isBinary) return false;
            if (lineEnd != nullptr) return take(lineEnd + 1);
        }
        return kept != 0 && take(buffer.data() + kept);
    }

    char* begin = nullptr;
    char* end = nullptr;
    int error = 0;
    bool isBinary = false;  // whether a zero byte that is searched for was found

private:
    bool take(const char* blockEnd) {
        begin = buffer.data();
        end = begin + (blockEnd - begin);
        kept -= static_cast<size_t>(end - begin);
        looksForZero = false;
        return true;
    }

    int file = -1;
    std::vector<char> buffer;
    size_t kept = 0;  // bytes behind the block, for the next one
    bool isAtEnd = false;
    bool looksForZero = false;
};

#endif
