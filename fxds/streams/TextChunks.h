// Memory for many short texts that are freed together.
#ifndef FXDS_STREAMS_TEXTCHUNKS_H
#define FXDS_STREAMS_TEXTCHUNKS_H

#include <cstddef>
#include <memory>
#include <vector>

// Invariant: [next, next + left) is the unused rest of the last chunk.

class fxTextChunks {
public:
    static constexpr size_t maxText = 4096;  ///< Longest text that add() takes.

    /// Room for `byteCount` bytes, kept until clear(). Requires: byteCount <= maxText.
    char* add(size_t byteCount) {
        if (byteCount > left) {
            chunks.emplace_back(new char[chunkBytes]);
            next = chunks.back().get();
            left = chunkBytes;
        }
        char* const room = next;
        next += byteCount;
        left -= byteCount;
        return room;
    }
    void clear() {
        chunks.clear();
        left = 0;
    }

private:
    static constexpr size_t chunkBytes = size_t{1} << 16;

    std::vector<std::unique_ptr<char[]>> chunks;
    char* next = nullptr;
    size_t left = 0;
};

#endif
