#include <algorithm>
#include <cstdint>
#include <cstring>

#include "fxds/Str.h"

// Searches, and the pieces between two finds. A search is for one byte or for a
// set of bytes: both are classes that test whether a byte is wanted, and each
// search is written once over them.

namespace {

// One byte.
class OneByte {
public:
    explicit OneByte(char wanted) : byte(wanted) {}
    bool operator()(char c) const { return c == byte; }

    const char byte;
};

// Membership of a byte in a set, in one step for any size of the set.
class ByteSet {
public:
    // `n` = 0 means strlen(set).
    ByteSet(const char* set, unsigned int n) {
        if (n == 0) n = fxStr::textLength(set);
        for (unsigned int i = 0; i < n; ++i) {
            const auto byte = static_cast<unsigned char>(set[i]);
            words[byte / 64] |= std::uint64_t{1} << (byte % 64);
        }
    }
    bool operator()(char c) const {
        const auto byte = static_cast<unsigned char>(c);
        return (words[byte / 64] >> (byte % 64) & 1) != 0;
    }

private:
    std::uint64_t words[4] = {};
};

template <class Bytes>
auto exceptFor(const Bytes& bytes) {
    return [&bytes](char c) { return !bytes(c); };
}

// First index in [pos, length) whose byte is wanted, or the length.
template <class Wanted>
unsigned int scan(const fxStr& str, unsigned int pos, const Wanted& wanted) {
    const unsigned int length = str.length();
    while (pos < length && !wanted(str.data[pos])) ++pos;
    return std::min(pos, length);
}
unsigned int scan(const fxStr& str, unsigned int pos, const OneByte& wanted) {
    if (pos >= str.length()) return str.length();
    const void* const found = std::memchr(str.data + pos, wanted.byte, str.length() - pos);
    if (found == nullptr) return str.length();
    return static_cast<unsigned int>(static_cast<const char*>(found) - str.data);
}

// Last index in [0, pos) whose byte is wanted, plus one, or 0.
template <class Wanted>
unsigned int scanBack(const fxStr& str, unsigned int pos, const Wanted& wanted) {
    FX_ASSERT(pos <= str.length());
    while (pos > 0 && !wanted(str.data[pos - 1])) --pos;
    return pos;
}

// The text [begin, end), empty when that is no range: the bounds found in a
// text of blanks only are in reverse order.
fxStr between(const fxStr& str, unsigned int begin, unsigned int end) {
    return begin < end ? str.extract(begin, end - begin) : fxStr();
}

template <class Bytes>
fxStr tokenAt(const fxStr& str, unsigned int& pos, const Bytes& delimiters) {
    const unsigned int begin = pos;
    const unsigned int end = scan(str, begin, delimiters);
    pos = scan(str, end, exceptFor(delimiters));
    return between(str, begin, end);
}

template <class Bytes>
fxStr tokenBefore(const fxStr& str, unsigned int& pos, const Bytes& delimiters) {
    const unsigned int end = pos;
    const unsigned int begin = scanBack(str, end, delimiters);
    pos = scanBack(str, begin, exceptFor(delimiters));
    return between(str, begin, end);
}

}  // namespace

fxStr fxStr::trim(const char* set) const {
    const ByteSet blanks(set, 0);
    const unsigned int begin = scan(*this, 0, exceptFor(blanks));
    return between(*this, begin, scanBack(*this, length(), exceptFor(blanks)));
}

fxStr fxStr::trimRight(const char* set) const { return head(skipR(length(), set)); }

unsigned int fxStr::next(unsigned int pos, char c) const { return scan(*this, pos, OneByte(c)); }

unsigned int fxStr::next(unsigned int pos, const char* set, unsigned int n) const {
    return scan(*this, pos, ByteSet(set, n));
}

unsigned int fxStr::nextR(unsigned int pos, char c) const {
    return scanBack(*this, pos, OneByte(c));
}

unsigned int fxStr::nextR(unsigned int pos, const char* set, unsigned int n) const {
    return scanBack(*this, pos, ByteSet(set, n));
}

unsigned int fxStr::skip(unsigned int pos, char c) const {
    return scan(*this, pos, exceptFor(OneByte(c)));
}

unsigned int fxStr::skip(unsigned int pos, const char* set, unsigned int n) const {
    return scan(*this, pos, exceptFor(ByteSet(set, n)));
}

unsigned int fxStr::skipR(unsigned int pos, char c) const {
    return scanBack(*this, pos, exceptFor(OneByte(c)));
}

unsigned int fxStr::skipR(unsigned int pos, const char* set, unsigned int n) const {
    return scanBack(*this, pos, exceptFor(ByteSet(set, n)));
}

fxStr fxStr::token(unsigned int& pos, char c) const { return tokenAt(*this, pos, OneByte(c)); }

fxStr fxStr::token(unsigned int& pos, const char* set, unsigned int n) const {
    return tokenAt(*this, pos, ByteSet(set, n));
}

fxStr fxStr::tokenR(unsigned int& pos, char c) const { return tokenBefore(*this, pos, OneByte(c)); }

fxStr fxStr::tokenR(unsigned int& pos, const char* set, unsigned int n) const {
    return tokenBefore(*this, pos, ByteSet(set, n));
}
