#include "fxds/SLinearPattern.h"

#include <algorithm>
#include <cstring>

#include "fxds/detail/Allocate.h"

// The byte of the text below the pattern's last byte determines how far the
// pattern can move on: to where that byte occurs in it last, not counting its
// own last byte. The search of the C library examines several bytes at once and
// is faster on long texts, but slower to start: only texts without a match in
// their first bytes are passed to it.

namespace {
constexpr size_t nearBytes = 64;
constexpr size_t tooShort = 3;  // bytes of a pattern that hardly moves on
}  // namespace

fxSLinearPattern::fxSLinearPattern(const char* s, unsigned int len) {
    constructor(s, len != 0 ? len : fxLengthField(std::strlen(s)));
}

fxSLinearPattern::fxSLinearPattern(const fxStr& s) { constructor(s, s.length()); }

fxSLinearPattern::~fxSLinearPattern() { delete[] pattern; }

void fxSLinearPattern::constructor(const char* s, unsigned int len) {
    patternLength = len;
    pattern = new char[len];
    if (len != 0) std::memcpy(pattern, s, len);
    std::fill_n(skip, 256, len);
    for (uint32_t i = 0; i + 1 < len; ++i) {
        skip[static_cast<unsigned char>(pattern[i])] = len - 1 - i;
    }
}

int fxSLinearPattern::findBuffer(const char* buf, unsigned int len) const {
    if (patternLength == 0) return 0;
    if (patternLength > len) return -1;
    const char* const found = search(buf, len);
    return found != nullptr ? static_cast<int>(found - buf) : -1;
}

// Requires: 1 <= patternLength <= len.
const char* fxSLinearPattern::search(const char* buf, size_t len) const {
    if (patternLength <= tooShort) {
        return static_cast<const char*>(memmem(buf, len, pattern, patternLength));
    }
    const size_t before = patternLength - 1;
    const char last = pattern[before];
    const size_t nearEnd = std::min(len, std::max<size_t>(nearBytes, patternLength));
    size_t i = before;
    while (i < nearEnd) {
        const char* const start = buf + i - before;
        if (buf[i] == last && std::memcmp(start, pattern, before) == 0) return start;
        i += skip[static_cast<unsigned char>(buf[i])];
    }
    if (i >= len) return nullptr;
    return static_cast<const char*>(
        memmem(buf + i - before, len - i + before, pattern, patternLength));
}

int fxSLinearPattern::findEndBuffer(const char* buf, unsigned int len) const {
    int start;
    int end;
    fxSLinearPattern::bracketBuffer(buf, len, start, end);
    return end;
}

void fxSLinearPattern::bracketBuffer(const char* buf, unsigned int len, int& start,
                                     int& end) const {
    start = fxSLinearPattern::findBuffer(buf, len);
    end = start >= 0 ? start + static_cast<int>(patternLength) : 0;
}
