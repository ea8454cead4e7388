#include "fxds/TempStr.h"

#include "fxds/detail/Allocate.h"

// Invariant: the pointer, not the length, decides whether the text is in the
// buffer or in a block: a copy of exactly 100 bytes lies in a block, the result
// of a concatenation of 100 bytes in the buffer. Blocks have one byte to spare.

namespace {

void copyBytes(char* to, const char* from, unsigned int n) {
    if (n != 0) std::memcpy(to, from, n);
}

}  // namespace

fxTempStr::fxTempStr(char const* a, unsigned int aLength, char const* b, unsigned int bLength)
    : slength(fxLengthField(size_t{aLength} + bLength + 1)) {
    place(slength <= inlineBytes);
    copyBytes(data, a, aLength);
    copyBytes(data + aLength, b, bLength);
    data[length()] = '\0';
}

fxTempStr::fxTempStr(const fxTempStr& src) : slength(src.slength) {
    place(slength < inlineBytes);
    std::memcpy(data, src.data, slength);
}

fxTempStr& fxTempStr::operator=(const fxTempStr& src) {
    if (this == &src) return *this;
    dropBlock();
    slength = src.slength;
    place(slength < inlineBytes);
    std::memcpy(data, src.data, slength);
    return *this;
}

fxTempStr& fxTempStr::concatBlock(char const* s, unsigned int n) {
    const unsigned int grown = fxLengthField(size_t{slength} + n);
    const size_t within = fxOffsetIn(data, slength, s);
    if (data != buffer) {
        data = static_cast<char*>(fxGrowBlock(data, size_t{grown} + 1));
    } else if (grown > inlineBytes) {
        data = static_cast<char*>(fxNewBlock(size_t{grown} + 1));
        std::memcpy(data, buffer, slength);
    }
    if (within != fxOutside) s = data + within;
    if (n != 0) std::memmove(data + length(), s, n);
    slength = grown;
    data[length()] = '\0';
    return *this;
}

void fxTempStr::place(bool inBuffer) {
    data = inBuffer ? buffer : static_cast<char*>(fxNewBlock(size_t{slength} + 1));
}
