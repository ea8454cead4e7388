// A set of byte values. Private to the library.
#ifndef FXDS_SEARCH_REGBYTESET_H
#define FXDS_SEARCH_REGBYTESET_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace fxRegProgram {

struct ByteSet {
    uint64_t words[4] = {0, 0, 0, 0};

    static ByteSet all() { return ~ByteSet(); }
    static ByteSet of(unsigned char c) {
        ByteSet set;
        set.add(c);
        return set;
    }
    void add(unsigned char c) { words[c >> 6] |= uint64_t{1} << (c & 63); }
    void remove(unsigned char c) { words[c >> 6] &= ~(uint64_t{1} << (c & 63)); }
    bool has(unsigned char c) const { return (words[c >> 6] >> (c & 63) & 1) != 0; }
    bool isEmpty() const { return (words[0] | words[1] | words[2] | words[3]) == 0; }
    size_t count() const {
        size_t sum = 0;
        for (const uint64_t word : words) sum += bitsOf(word);
        return sum;
    }
    unsigned char lowest() const {
        int c = 0;
        while (!has(static_cast<unsigned char>(c))) ++c;
        return static_cast<unsigned char>(c);
    }
    ByteSet operator~() const {
        return combine(*this, [](uint64_t a, uint64_t) { return ~a; });
    }
    ByteSet operator|(const ByteSet& b) const {
        return combine(b, [](uint64_t x, uint64_t y) { return x | y; });
    }
    ByteSet operator&(const ByteSet& b) const {
        return combine(b, [](uint64_t x, uint64_t y) { return x & y; });
    }
    bool operator==(const ByteSet& b) const {
        return std::memcmp(words, b.words, sizeof words) == 0;
    }
    template <class F>
    void forEach(F f) const {
        for (size_t i = 0; i < 4; ++i) {
            for (uint64_t left = words[i]; left != 0; left &= left - 1) {
                f(static_cast<unsigned char>(64 * i + static_cast<size_t>(__builtin_ctzll(left))));
            }
        }
    }

private:
    // Not the builtin, which is a function call where the machine may lack the instruction.
    static size_t bitsOf(uint64_t word) {
        word -= word >> 1 & 0x5555555555555555;
        word = (word & 0x3333333333333333) + (word >> 2 & 0x3333333333333333);
        return ((word + (word >> 4)) & 0x0F0F0F0F0F0F0F0F) * 0x0101010101010101 >> 56;
    }

    template <class F>
    ByteSet combine(const ByteSet& b, F f) const {
        ByteSet result;
        for (int i = 0; i < 4; ++i) result.words[i] = f(words[i], b.words[i]);
        return result;
    }
};

}  // namespace fxRegProgram

#endif
