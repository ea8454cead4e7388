#include "fxds/Str.h"

#include <malloc.h>

#include <algorithm>
#include <cctype>
#include <cstdint>

#include "fxds/Transcriber.h"
#include "fxds/TypeObj.h"
#include "fxds/detail/Allocate.h"
#include "fxds/text/TextHash.h"

// The bytes of strings: construction, editing, hashing, transcription. Searches
// are in StrSearch.cc, formats in StrFormat.cc, streams in StrStream.cc.
//
// Invariants, between any two calls:
// (1) data[slength - 1] is zero, and slength is at least 1.
// (2) A string owns its block if and only if data != &emptyString and room is not
//     inEntry; the length does not matter.
// (3) An empty string points at emptyString: an operation that removes the last
//     byte frees the block (clear()).
// (4) Unless it is inEntry, room is no more than what the block has, and 0 without one:
//     what sets `data` sets `room`, too.
// A source may lie in the own block: a function has either finished with the source before
// the block moves, or finds it again by its offset.

// Constant-initialised: strings are made before main() by static objects.
char fxStr::emptyString = '\0';
unsigned int fxStr::resizeIncrement = 10;
int fxStr::delim_idx = -1;

namespace {

constexpr size_t leastBlock = 24;  // which malloc() hands out in any case

}  // namespace

// Construction.

fxStr::fxStr(unsigned int n) : slength(fxLengthField(size_t{n} + 1)), room(0), data(&emptyString) {
    if (n == 0) {
        emptyString = '\0';
    } else {
        setBlock(fxNewZeroBlock(slength), slength);
    }
}

fxStr::fxStr(const char* s) : fxStr() {
    if (s != nullptr) assignBytes(s, std::strlen(s));
}

fxStr::fxStr(const char* s, unsigned int n) : fxStr() { assignBytes(s, n); }

fxStr::fxStr(std::string_view text) : fxStr() { assignBytes(text.data(), text.size()); }

fxStr::fxStr(const fxStr& other) : fxStr() { assignBytes(other.data, other.length()); }

fxStr::fxStr(const fxTempStr& text) : fxStr() { assignBytes(text.data, text.length()); }

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
    append(std::string_view(s, n != 0 ? n : textLength(s)));
}

void fxStr::append(std::string_view text) {
    if (text.empty()) return;
    makeBlockOwn();
    if (!ownsBlock()) {
        if (text.size() >= leastBlock) {
            assignBytes(text.data(), text.size());
            return;
        }
        enlargeBlock(leastBlock);
    }
    const char* const from = makeRoom(text, true);
    std::memmove(data + length(), from, text.size());  // may reach over the terminator
    setLength(slength + static_cast<unsigned int>(text.size()));
}

void fxStr::appendGrowing(char c) { append(std::string_view(&c, 1)); }

void fxStr::insert(const char* s, unsigned int pos, unsigned int n) {
    insert(std::string_view(s, n != 0 ? n : textLength(s)), pos);
}

void fxStr::insert(std::string_view text, unsigned int pos) {
    FX_ASSERT(pos <= length());
    if (text.empty()) return;
    makeBlockOwn();
    if (!ownsBlock()) {
        assignBytes(text.data(), text.size());
        return;
    }
    const char* const from = makeRoom(text, false);
    const auto n = static_cast<unsigned int>(text.size());
    const size_t within = fxOffsetIn(data, slength, from);
    char* gap = data + pos;
    std::memmove(gap + n, gap, slength - pos);
    setLength(slength + n);
    if (within == fxOutside) {
        std::memcpy(gap, from, n);
        return;
    }
    // The text before the gap is in its place; the rest has moved up by n.
    const size_t before = within < pos ? std::min<size_t>(n, pos - within) : 0;
    std::memcpy(gap, data + within, before);
    std::memcpy(gap + before, data + within + before + n, n - before);
}

void fxStr::insert(char c, unsigned int pos) { insert(std::string_view(&c, 1), pos); }

void fxStr::remove(unsigned int start, unsigned int n) {
    if (n >= length()) {
        clear();
        return;
    }
    FX_ASSERT(start <= length() - n);
    makeBlockOwn();
    char* gap = data + start;
    std::memmove(gap, gap + n, length() - start - n);
    setLength(slength - n);
}

fxStr fxStr::cut(unsigned int start, unsigned int n) {
    fxStr result = extract(start, n);
    remove(start, n);
    return result;
}

void fxStr::replace(const char* s, unsigned int pos, unsigned int n) {
    replace(std::string_view(s, n != 0 ? n : textLength(s)), pos);
}

void fxStr::replace(std::string_view text, unsigned int pos) {
    FX_ASSERT(text.size() <= length() && pos <= length() - text.size());
    if (!text.empty()) std::memmove(data + pos, text.data(), text.size());
}

// The result is put together separately: both arguments may lie in the text.
unsigned int fxStr::replaceAll(fxTextView what, fxTextView with) {
    unsigned int count = 0;
    if (what.empty()) return count;
    std::size_t at = 0;
    for (; (at = find(what, at)) != npos; at += what.size()) ++count;
    if (count == 0) return count;
    const std::size_t kept = length() - count * what.size();
    fxStr result(fxLengthField(kept + count * with.size()));
    char* to = result.data;
    const auto copy = [&to](std::string_view text) {
        to = std::copy(text.begin(), text.end(), to);
    };
    for (at = 0; to != result.end();) {
        const std::size_t next = find(what, at);
        copy(view().substr(at, next - at));
        if (next == npos) break;
        copy(with);
        at = next + what.size();
    }
    *this = std::move(result);
    return count;
}

void fxStr::resize(unsigned int n, unsigned char) {
    const unsigned int wanted = fxLengthField(size_t{n} + 1);
    if (n == 0) {
        clear();
        return;
    }
    makeBlockOwn();
    enlargeBlock(wanted);
    if (wanted > slength) std::memset(data + length(), 0, wanted - length());
    setLength(wanted);
}

void fxStr::setMaxLength(unsigned int n) {
    makeBlockOwn();
    if (!ownsBlock()) return;
    enlargeBlock(fxLengthField(size_t{std::max(n, length())} + 1));
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

fxStr fxStr::substr(std::size_t start, std::size_t n) const {
    return start < length() ? fxStr(view().substr(start, n)) : fxStr();
}

// Hashing.

unsigned long fxStr::hash() const { return hash(view()); }

unsigned long fxStr::hash(std::string_view text) { return fxTextKeys::hash(text); }

// Transcription.

void* fxStr::newInstance(fxTypeObj& type) { return fxTypeFunctions<fxStr>::newInstance(type); }

void fxStr::deleteInstance(void* str) { fxTypeFunctions<fxStr>::deleteInstance(str); }

fxTypeObj* fxStr::getTypeObj() const { return &fxStr_type; }

fxBool fxStr::xdr(void* str, fxTranscriber& transcriber) {
    return static_cast<fxStr*>(str)->xdr(transcriber);
}

fxBool fxStr::xdr(fxTranscriber& transcriber) {
    if (transcriber.isReading()) {
        const bool isTaken = data == &emptyString && transcriber.takeReadyText(*this);
        return isTaken || readText(transcriber);
    }
    unsigned int lengthBytes = slength;
    if (!transcriber.xdr(&lengthBytes, 1) || lengthBytes == 0) return 0;
    return lengthBytes == 1 || transcriber.xdrText(*this, &data, lengthBytes);
}

// The length is taken over with the block and never before it, so that the string is valid
// at every moment, whenever (and if ever) the block comes.
fxBool fxStr::readText(fxTranscriber& transcriber) {
    clear();
    unsigned int lengthBytes = slength;
    const bool hasLength = transcriber.takeReady(lengthBytes) || transcriber.xdr(&lengthBytes, 1);
    if (!hasLength || lengthBytes == 0) return 0;
    if (lengthBytes == 1) return 1;
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
    room = 0;
    if (lengthBytes == 1) clear();
}

// Private functions.

// Whether `room` is true, as long as only this class has set the block.
bool fxStr::hasRoom() const { return room <= inEntry || room <= malloc_usable_size(data); }

// `bytes` may exceed what a length can be.
void fxStr::setBlock(void* block, size_t bytes) {
    data = static_cast<char*>(block);
    room = static_cast<unsigned int>(std::min<size_t>(bytes, UINT32_MAX));
}

// Sets the length and its terminator, for which there is room.
void fxStr::setLength(unsigned int lengthBytes) {
    slength = lengthBytes;
    data[length()] = '\0';
}

void fxStr::copyToOwnBlock() {
    void* const block = fxNewBlock(slength);
    std::memcpy(block, data, slength);
    setBlock(block, slength);
}

// Gives the block `bytes` bytes; the text and `slength` stay. Blocks never get
// smaller.
void fxStr::enlargeBlock(size_t bytes) {
    if (!ownsBlock()) {
        setBlock(fxNewBlock(bytes), bytes);
        data[0] = '\0';
    } else if (bytes > std::max(slength, room)) {
        setBlock(fxGrowBlock(data, slength, bytes), bytes);
    }
}

// Gives the block room for `more` behind the text, and returns where `more` lies
// then: it may be in the block. The string owns its block.
const char* fxStr::makeRoom(std::string_view more, bool isAppended) {
    const size_t needed = fxLengthField(slength + more.size());
    if (needed <= room) return more.data();
    const size_t within = fxOffsetIn(data, slength, more.data());
    size_t bytes = isAppended ? std::clamp<size_t>(2 * needed, leastBlock, UINT32_MAX) : needed;
    void* block = std::realloc(data, bytes);
    if (block == nullptr) block = fxGrowBlock(data, bytes = needed);
    setBlock(block, bytes);
    return within != fxOutside ? data + within : more.data();
}

// Makes the text a copy of the `n` bytes at `s`, which may lie in the block.
void fxStr::assignBytes(const char* s, size_t n) {
    if (n == 0) {
        clear();
        return;
    }
    const unsigned int bytes = fxLengthField(std::max(n, n + 1));  // which may wrap
    const unsigned int count = bytes - 1;  // n, and in 32 bits for the compiler, too
    if (ownsBlock() && bytes <= std::max(slength, room)) {
        std::memmove(data, s, count);
    } else {
        void* const block = fxNewBlock(bytes);
        std::memcpy(block, s, count);
        dropBlock();
        setBlock(block, bytes);
    }
    setLength(bytes);
}

// Comparison.

int compare(char const* a, char const* b) {
    return std::strcmp(a != nullptr ? a : "", b != nullptr ? b : "");
}

int fxCompareTexts(std::string_view a, std::string_view b) {
    return a.substr(0, a.find('\0')).compare(b.substr(0, b.find('\0')));
}

bool operator==(const fxStr& a, const char* b) {
    const size_t length = b != nullptr ? std::strlen(b) : 0;
    return a.length() == length && (length == 0 || std::memcmp(a.data, b, length) == 0);
}
