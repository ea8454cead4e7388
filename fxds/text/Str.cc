#include "fxds/Str.h"

#include <endian.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <istream>
#include <ostream>
#include <streambuf>

#include "fxds/Transcriber.h"
#include "fxds/TypeObj.h"
#include "fxds/detail/Allocate.h"

// A string without text points at one shared zero byte, so that empty strings
// cost nothing; whoever removes the last byte goes back to it (clear()). Who
// owns its block is told by that pointer alone, never by the length. Sources
// may lie in the own block: every function either has finished with the source
// before the block moves or finds it again by its offset.

// Constant-initialised: strings are made before main() by static objects.
char fxStr::emptyString = '\0';
unsigned int fxStr::resizeIncrement = 10;
int fxStr::delim_idx = -1;

namespace {

// Membership of a byte in a set, in one step whatever the size of the set.
class ByteSet {
public:
    // `n` = 0 stands for strlen(set).
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

// First index in [pos, length) whose byte is wanted, or the length.
template <class Wanted>
unsigned int scan(const fxStr& str, unsigned int pos, Wanted wanted) {
    const unsigned int length = str.length();
    while (pos < length && !wanted(str.data[pos])) ++pos;
    return std::min(pos, length);
}

// Last index in [0, pos) whose byte is wanted, plus one, or 0.
template <class Wanted>
unsigned int scanBack(const fxStr& str, unsigned int pos, Wanted wanted) {
    FX_ASSERT(pos <= str.length());
    while (pos > 0 && !wanted(str.data[pos - 1])) --pos;
    return pos;
}

std::uint64_t wordAt(const char* bytes) {
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return le64toh(word);
}

// A word that ends in the `n` bytes at `bytes`, n <= 8, and is zero before.
// It is put together in registers: bytes stored one by one and loaded as a word
// would have to wait for the stores.
std::uint64_t lastBytes(const char* bytes, unsigned int n) {
    if (n == 8) return wordAt(bytes);
    if (n == 0) return 0;
    std::uint64_t word;
    if (n >= 4) {
        std::uint32_t halves[2];
        std::memcpy(&halves[0], bytes, 4);
        std::memcpy(&halves[1], bytes + n - 4, 4);
        word = le32toh(halves[0]) | std::uint64_t{le32toh(halves[1])} << 8 * (n - 4);
    } else {
        const auto at = [bytes](unsigned int i) {
            return std::uint64_t{static_cast<unsigned char>(bytes[i])} << 8 * i;
        };
        word = at(0) | at(n / 2) | at(n - 1);
    }
    return word << 8 * (8 - n);
}

// The delimiter's slot: 0 is "none set", so a delimiter of zero is kept as
// a value that no byte has.
constexpr long zeroDelimiter = 256;

char delimiterOf(std::istream& in) {
    // An index that was never allocated would make iword() fail the stream.
    const long slot = fxStr::delim_idx < 0 ? 0 : in.iword(fxStr::delim_idx);
    return slot == 0 ? '\n' : static_cast<char>(slot);
}

// The bytes that a stream has read already. A class derived from the buffer
// may name its members, and the pointers to them suit every buffer.
class Lookahead : std::streambuf {
public:
    // The bytes ahead in the buffer, up to the delimiter: a view.
    static std::string_view run(const std::streambuf& buffer, char delimiter) {
        const char* begin = (buffer.*&Lookahead::gptr)();
        const char* end = (buffer.*&Lookahead::egptr)();
        if (begin == end) return {};
        const size_t ahead = std::min<size_t>(static_cast<size_t>(end - begin), INT_MAX);
        const void* found = std::memchr(begin, delimiter, ahead);
        return {begin, found != nullptr
                           ? static_cast<size_t>(static_cast<const char*>(found) - begin)
                           : ahead};
    }
    static void take(std::streambuf& buffer, std::string_view run) {
        (buffer.*&Lookahead::gbump)(static_cast<int>(run.size()));
    }
};

// Most formats consist of texts and whole numbers just as they are. These are
// put together here, in half the time that vsnprintf() takes to do it; it gets
// every format that has anything else.
class PlainFormatter {
public:
    PlainFormatter(char* buffer, size_t room) : begin(buffer), at(buffer), end(buffer + room) {}

    // Whether the format is plain and its result fits.
    bool run(const char* format, va_list arguments) {
        bool isGood = true;
        for (; isGood && *format != '\0'; ++format) {
            if (*format != '%') {
                isGood = put(format, 1);
                continue;
            }
            const bool isLong = *++format == 'l';
            if (isLong) ++format;
            if (*format == 'd') {
                isGood =
                    isLong ? putNumber(va_arg(arguments, long)) : putNumber(va_arg(arguments, int));
            } else if (*format == 'u') {
                isGood = isLong ? putNumber(va_arg(arguments, unsigned long))
                                : putNumber(va_arg(arguments, unsigned int));
            } else if (*format == 's' && !isLong) {
                const char* const text = va_arg(arguments, const char*);
                isGood = text != nullptr && put(text, std::strlen(text));
            } else {
                return false;
            }
        }
        return isGood;
    }
    size_t length() const { return static_cast<size_t>(at - begin); }

private:
    bool put(const char* text, size_t bytes) {
        if (bytes > static_cast<size_t>(end - at)) return false;
        std::memcpy(at, text, bytes);
        at += bytes;
        return true;
    }
    template <class Number>
    bool putNumber(Number number) {
        const auto result = std::to_chars(at, end, number);
        at = result.ptr;
        return result.ec == std::errc();
    }

    char* const begin;
    char* at;
    char* const end;
};

}  // namespace

// Construction.

fxStr::fxStr(unsigned int n) : slength(fxLengthField(size_t{n} + 1)), data(&emptyString) {
    if (n == 0) {
        emptyString = '\0';
    } else {
        data = static_cast<char*>(fxNewZeroBlock(slength));
    }
}

fxStr::fxStr(const char* s) : fxStr() {
    if (s != nullptr) assignBytes(s, std::strlen(s));
}

fxStr::fxStr(const char* s, unsigned int n) : fxStr() { assignBytes(s, n); }

fxStr::fxStr(std::string_view text) : fxStr() { assignBytes(text.data(), text.size()); }

fxStr::fxStr(const fxStr& other) : fxStr() { assignBytes(other.data, other.length()); }

fxStr::fxStr(const fxTempStr& text) : fxStr() { assignBytes(text.data, text.length()); }

fxStr::fxStr(int v, const char* fmt) : fxStr() {
    if (fmt != nullptr) {
        format(fmt, v);
        return;
    }
    char digits[16];
    const auto result = std::to_chars(digits, digits + sizeof digits, v);
    assignBytes(digits, static_cast<size_t>(result.ptr - digits));
}

fxStr::fxStr(float v, const char* fmt) : fxStr() {
    format(fmt != nullptr ? fmt : "%g", static_cast<double>(v));
}

fxStr::fxStr(double v, const char* fmt) : fxStr() { format(fmt != nullptr ? fmt : "%lg", v); }

fxStr& fxStr::operator=(const fxStr& other) {
    assignBytes(other.data, other.length());
    return *this;
}

fxStr& fxStr::operator=(const char* s) {
    assignBytes(s, s != nullptr ? std::strlen(s) : 0);
    return *this;
}

fxStr& fxStr::operator=(std::string_view text) {
    assignBytes(text.data(), text.size());
    return *this;
}

fxStr& fxStr::operator=(const fxTempStr& text) {
    assignBytes(text.data, text.length());
    return *this;
}

// Editing.

void fxStr::append(const char* s, unsigned int n) {
    if (n == 0) n = textLength(s);
    if (n == 0) return;
    if (!ownsBlock()) {
        assignBytes(s, n);
        return;
    }
    const bool inside = pointsInside(s);
    const size_t offset = inside ? static_cast<size_t>(s - data) : 0;
    const unsigned int grown = fxLengthField(size_t{slength} + n);
    resizeInternal(grown - 1);
    if (inside) {
        std::memmove(data + length(), data + offset, n);  // may reach over the terminator
    } else {
        std::memcpy(data + length(), s, n);
    }
    slength = grown;
    data[length()] = '\0';
}

void fxStr::append(char c) {
    const unsigned int grown = fxLengthField(size_t{slength} + 1);
    resizeInternal(grown - 1);
    data[slength - 1] = c;
    data[slength] = '\0';
    slength = grown;
}

void fxStr::insert(const char* s, unsigned int pos, unsigned int n) {
    FX_ASSERT(pos <= length());
    if (n == 0) n = textLength(s);
    if (n == 0) return;
    if (!ownsBlock()) {
        assignBytes(s, n);
        return;
    }
    const bool inside = pointsInside(s);
    const size_t offset = inside ? static_cast<size_t>(s - data) : 0;
    const unsigned int grown = fxLengthField(size_t{slength} + n);
    resizeInternal(grown - 1);
    char* gap = data + pos;
    std::memmove(gap + n, gap, slength - pos);
    slength = grown;
    if (!inside) {
        std::memcpy(gap, s, n);
        return;
    }
    // What lay before the gap is where it was, the rest has moved up by n.
    const size_t before = offset < pos ? std::min<size_t>(n, pos - offset) : 0;
    std::memcpy(gap, data + offset, before);
    std::memcpy(gap + before, data + offset + before + n, n - before);
}

void fxStr::insert(char c, unsigned int pos) { insert(&c, pos, 1); }

void fxStr::remove(unsigned int start, unsigned int n) {
    if (n >= length()) {
        clear();
        return;
    }
    FX_ASSERT(start <= length() - n);
    char* gap = data + start;
    std::memmove(gap, gap + n, slength - start - n);
    slength -= n;
}

fxStr fxStr::cut(unsigned int start, unsigned int n) {
    fxStr result = extract(start, n);
    remove(start, n);
    return result;
}

void fxStr::replace(const char* s, unsigned int pos, unsigned int n) {
    if (n == 0) n = textLength(s);
    FX_ASSERT(n <= length() && pos <= length() - n);
    if (n != 0) std::memmove(data + pos, s, n);
}

void fxStr::resize(unsigned int n, unsigned char) {
    const unsigned int wanted = fxLengthField(size_t{n} + 1);
    resizeInternal(n);
    if (n == 0) return;
    if (wanted > slength) std::memset(data + length(), 0, wanted - length());
    slength = wanted;
    data[n] = '\0';
}

void fxStr::setMaxLength(unsigned int n) {
    if (ownsBlock()) resizeInternal(std::max(n, length()));
}

void fxStr::lower() {
    for (char& c : *this) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

void fxStr::raise() {
    for (char& c : *this) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

// Extraction.

fxStr fxStr::extract(unsigned int start, unsigned int n) const {
    FX_ASSERT(n <= length() && start <= length() - n);
    return fxStr(data + start, n);
}

fxStr fxStr::head(unsigned int n) const { return extract(0, n); }

fxStr fxStr::tail(unsigned int n) const { return extract(length() - n, n); }

fxStr fxStr::copy() const { return *this; }

fxStr fxStr::trim(const char* set) const {
    const ByteSet blank(set, 0);
    const auto solid = [&blank](char c) { return !blank(c); };
    return range(scan(*this, 0, solid), scanBack(*this, length(), solid));
}

fxStr fxStr::trimRight(const char* set) const { return head(skipR(length(), set)); }

// The text [begin, end), empty when that is no range: the found ends of a text
// that is all blanks are the wrong way round.
fxStr fxStr::range(unsigned int begin, unsigned int end) const {
    return begin < end ? extract(begin, end - begin) : fxStr();
}

// Searches.

unsigned int fxStr::next(unsigned int pos, char c) const {
    if (pos >= length()) return length();
    const void* found = std::memchr(data + pos, c, length() - pos);
    return found == nullptr ? length()
                            : static_cast<unsigned int>(static_cast<const char*>(found) - data);
}

unsigned int fxStr::next(unsigned int pos, const char* set, unsigned int n) const {
    return scan(*this, pos, ByteSet(set, n));
}

unsigned int fxStr::nextR(unsigned int pos, char c) const {
    return scanBack(*this, pos, [c](char byte) { return byte == c; });
}

unsigned int fxStr::nextR(unsigned int pos, const char* set, unsigned int n) const {
    return scanBack(*this, pos, ByteSet(set, n));
}

unsigned int fxStr::skip(unsigned int pos, char c) const {
    return scan(*this, pos, [c](char byte) { return byte != c; });
}

unsigned int fxStr::skip(unsigned int pos, const char* set, unsigned int n) const {
    return scan(*this, pos, [bytes = ByteSet(set, n)](char byte) { return !bytes(byte); });
}

unsigned int fxStr::skipR(unsigned int pos, char c) const {
    return scanBack(*this, pos, [c](char byte) { return byte != c; });
}

unsigned int fxStr::skipR(unsigned int pos, const char* set, unsigned int n) const {
    return scanBack(*this, pos, [bytes = ByteSet(set, n)](char byte) { return !bytes(byte); });
}

fxStr fxStr::token(unsigned int& pos, char c) const {
    const unsigned int begin = pos;
    const unsigned int end = next(begin, c);
    pos = skip(end, c);
    return range(begin, end);
}

fxStr fxStr::token(unsigned int& pos, const char* set, unsigned int n) const {
    const ByteSet delimiters(set, n);
    const unsigned int begin = pos;
    const unsigned int end = scan(*this, begin, delimiters);
    pos = scan(*this, end, [&delimiters](char c) { return !delimiters(c); });
    return range(begin, end);
}

fxStr fxStr::tokenR(unsigned int& pos, char c) const {
    const unsigned int end = pos;
    const unsigned int begin = nextR(end, c);
    pos = skipR(begin, c);
    return range(begin, end);
}

fxStr fxStr::tokenR(unsigned int& pos, const char* set, unsigned int n) const {
    const ByteSet delimiters(set, n);
    const unsigned int end = pos;
    const unsigned int begin = scanBack(*this, end, delimiters);
    pos = scanBack(*this, begin, [&delimiters](char c) { return !delimiters(c); });
    return range(begin, end);
}

// Hashing and formatting.

unsigned long fxStr::hash() const {
    const unsigned int len = length();
    if (len > 15) return wordAt(data + 8) << 3 ^ wordAt(data);
    if (len <= 8) return lastBytes(data, len) << 3;
    // The bytes from 8 on stay out: the results are kept as they always were.
    const std::uint64_t first = wordAt(data);
    return first << 8 * (16 - len) << 3 ^ first;
}

unsigned int fxStr::format(const char* fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    const unsigned int result = vformat(fmt, arguments);
    va_end(arguments);
    return result;
}

// The own text may be an argument, so it stays until the result is complete.
// Short results, nearly all, are formatted once and into the block that is there.
unsigned int fxStr::vformat(const char* fmt, va_list arguments) {
    char local[256];
    va_list again;
    va_copy(again, arguments);
    PlainFormatter formatter(local, sizeof local);
    const bool isPlain = formatter.run(fmt, again);
    va_end(again);
    if (isPlain) {
        assignBytes(local, formatter.length());
        return slength;
    }
    va_copy(again, arguments);
    const int total = std::vsnprintf(local, sizeof local, fmt, arguments);
    if (total < 0) {
        clear();
    } else if (static_cast<size_t>(total) < sizeof local) {
        assignBytes(local, std::strlen(local));  // a zero from %c ends the text
    } else {
        const size_t bytes = static_cast<size_t>(total) + 1;
        char* block = static_cast<char*>(fxNewBlock(bytes));
        std::vsnprintf(block, bytes, fmt, again);
        adopt(block, textLength(block) + 1);
    }
    va_end(again);
    return slength;
}

// Transcription.

void* fxStr::newInstance(fxTypeObj& type) { return fxTypeFunctions<fxStr>::newInstance(type); }

void fxStr::deleteInstance(void* str) { fxTypeFunctions<fxStr>::deleteInstance(str); }

fxTypeObj* fxStr::getTypeObj() const { return &fxStr_type; }

fxBool fxStr::xdr(void* str, fxTranscriber& transcriber) {
    return static_cast<fxStr*>(str)->xdr(transcriber);
}

fxBool fxStr::xdr(fxTranscriber& transcriber) {
    const bool isReading = transcriber.isReading();
    if (isReading) clear();
    unsigned int lengthBytes = slength;
    if (!transcriber.xdr(&lengthBytes, 1) || lengthBytes == 0) return 0;
    if (lengthBytes == 1) return 1;
    return isReading ? readText(transcriber, lengthBytes)
                     : transcriber.xdrText(*this, &data, lengthBytes);
}

// The length is taken over with the block and never before it, so that the
// string is whole at every moment, whenever (and if ever) the block comes.
fxBool fxStr::readText(fxTranscriber& transcriber, unsigned int lengthBytes) {
    const bool isDone = transcriber.xdrText(*this, &data, lengthBytes);
    if (isDone && data == &emptyString) return 1;  // the text comes later
    const bool isText = isDone && data != nullptr && data[lengthBytes - 1] == '\0';
    if (isText) {
        slength = lengthBytes;
    } else {
        clear();
    }
    return isText;
}

void fxStr::adopt(char* block, unsigned int lengthBytes) {
    FX_ASSERT(lengthBytes >= 1 && block[lengthBytes - 1] == '\0');
    dropBlock();
    data = block;
    slength = lengthBytes;
    if (lengthBytes == 1) clear();
}

// Private functions.

bool fxStr::pointsInside(const char* s) const {
    const std::less<> before;
    return !before(s, data) && before(s, data + slength);
}

// Gives the block room for `n` bytes of text and the terminator; the text and
// `slength` stay. Blocks never get smaller than the text that is there.
void fxStr::resizeInternal(unsigned int n) {
    if (!ownsBlock()) {
        if (n == 0) return;
        data = static_cast<char*>(fxNewBlock(size_t{n} + 1));
        data[0] = '\0';
    } else if (n == 0) {
        clear();
    } else if (n >= slength) {
        data = static_cast<char*>(fxGrowBlock(data, size_t{n} + 1));
    }
}

// Makes the text a copy of the `n` bytes at `s`, which may lie in the block.
void fxStr::assignBytes(const char* s, size_t n) {
    if (n == 0) {
        clear();
        return;
    }
    const unsigned int bytes = fxLengthField(n + 1);
    if (ownsBlock() && bytes <= slength) {
        std::memmove(data, s, n);
    } else {
        char* block = static_cast<char*>(fxNewBlock(bytes));
        std::memcpy(block, s, n);
        dropBlock();
        data = block;
    }
    slength = bytes;
    data[n] = '\0';
}

// Comparison and streams.

int compare(char const* a, char const* b) {
    return std::strcmp(a != nullptr ? a : "", b != nullptr ? b : "");
}

bool operator==(const fxStr& a, const char* b) {
    const size_t length = b != nullptr ? std::strlen(b) : 0;
    return a.length() == length && (length == 0 || std::memcmp(a.data, b, length) == 0);
}

std::ostream& operator<<(std::ostream& out, const fxStr& str) { return out << str.c_str(); }

// The stream's own functions look ahead, and so fill its buffer and mind its
// states; what lies in the buffer then is searched and copied in one piece.
std::istream& operator>>(std::istream& in, fxStr& str) {
    using Traits = std::istream::traits_type;
    const char delimiter = delimiterOf(in);
    const int stop = Traits::to_int_type(delimiter);
    unsigned int count = 0;
    int c = in.peek();
    while (c != Traits::eof() && c != stop) {
        const std::string_view run = Lookahead::run(*in.rdbuf(), delimiter);
        const unsigned int grown = fxLengthField(count + std::max<size_t>(run.size(), 1));
        if (grown > str.length()) {
            const size_t step = size_t{count} + std::max(count, fxStr::resizeIncrement);
            str.resize(std::max(grown, fxLengthField(step)));
        }
        if (run.empty()) {  // an unbuffered stream
            str.data[count] = static_cast<char>(in.get());
        } else {
            std::memcpy(str.data + count, run.data(), run.size());
            Lookahead::take(*in.rdbuf(), run);
        }
        count = grown;
        c = in.peek();
    }
    str.resize(count);
    if (c == stop) {
        in.get();
    } else if (count == 0) {
        in.setstate(std::ios_base::failbit);
    }
    return in;
}

std::istream& _delimiter(std::istream& in, char c) {
    if (fxStr::delim_idx < 0) fxStr::delim_idx = std::ios_base::xalloc();
    in.iword(fxStr::delim_idx) = c == '\0' ? zeroDelimiter : static_cast<unsigned char>(c);
    return in;
}
