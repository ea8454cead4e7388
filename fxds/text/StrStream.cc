#include <algorithm>
#include <climits>
#include <cstring>
#include <istream>
#include <ostream>
#include <streambuf>

#include "fxds/Str.h"

// Strings and the standard streams. The delimiter of a stream's items is kept in
// a word slot of the stream.

namespace {

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

}  // namespace

std::ostream& operator<<(std::ostream& out, const fxStr& str) { return out << str.c_str(); }

// The stream's own functions look ahead, and so fill its buffer and keep its
// states; then the contents of the buffer are searched and copied in one piece.
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
            constexpr size_t longest = UINT_MAX - 1;
            str.resize(std::max(grown, static_cast<unsigned int>(std::min(step, longest))));
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
