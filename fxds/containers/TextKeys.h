// Fingerprints of bytes, and texts as keys, where every branch counts. Private to
// the library.
#ifndef FXDS_CONTAINERS_TEXTKEYS_H
#define FXDS_CONTAINERS_TEXTKEYS_H

#include <cstdint>
#include <cstring>
#include <string_view>

#include "fxds/detail/Mix.h"

// Bytes are read in words of 8, the last of which overlap those before them.
// Fewer than 8 bytes are one word. Names take few branches: a search whose keys
// have other lengths than those before waits for each branch that depends on
// the length.
//
// Invariants:
// (1) The fingerprint depends on the bytes up to the first zero alone: the functions for known
//     lengths give the same number as the general one. Tags in nodes come from any of them.
// (2) Only the bytes of a text are read, not its terminator.
//
// A length below the least of a range wraps around when that is subtracted, and so one
// comparison finds both ends of the range.

namespace fxTextKeys {

template <class Word>
inline Word load(const char* from) {
    Word word;
    std::memcpy(&word, from, sizeof word);
    return word;
}
inline std::uint64_t wordAt(const char* from) { return load<std::uint64_t>(from); }

// Requires: count < 8.
inline std::uint64_t shortWord(const char* bytes, std::size_t count) {
    if (count >= 4) {
        return load<std::uint32_t>(bytes) |
               static_cast<std::uint64_t>(load<std::uint32_t>(bytes + count - 4)) << 32;
    }
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < count; ++i) {
        word |= static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[i])) << 8 * i;
    }
    return word;
}

// Every other word, folded in by multiplication.
class Lane {
public:
    explicit Lane(std::uint64_t start) : sum(start) {}
    void fold(std::uint64_t word) {
        sum = fxMix64(sum ^ word);
        sum ^= sum >> 32;
    }
    std::uint64_t sum;
};

// Of 8 to 16 bytes.
inline std::uint64_t fingerprintOf(std::size_t count, std::uint64_t first, std::uint64_t last) {
    Lane even(count);
    Lane odd(~count);
    even.fold(first);
    odd.fold(last);
    even.fold(odd.sum);
    return even.sum;
}

// Of 17 to 32 bytes.
inline std::uint64_t fingerprintOf(std::size_t count, std::uint64_t first, std::uint64_t second,
                                   std::uint64_t third, std::uint64_t last) {
    Lane even(count);
    Lane odd(~count);
    even.fold(first);
    odd.fold(second);
    even.fold(third);
    odd.fold(last);
    even.fold(odd.sum);
    return even.sum;
}

// Calls `see` on every word, too.
template <class See>
inline std::uint64_t fingerprint(const char* bytes, std::size_t count, See see) {
    Lane even(count);
    Lane odd(~count);
    const auto fold = [&](Lane& lane, std::uint64_t word) {
        lane.fold(word);
        see(word);
    };
    if (count < 8) {
        fold(even, shortWord(bytes, count));
    } else if (count <= 16) {
        see(wordAt(bytes));
        see(wordAt(bytes + count - 8));
        return fingerprintOf(count, wordAt(bytes), wordAt(bytes + count - 8));
    } else {
        for (std::size_t i = 0; i + 16 < count; i += 16) {
            fold(even, wordAt(bytes + i));
            fold(odd, wordAt(bytes + i + 8));
        }
        fold(even, wordAt(bytes + count - 16));
        fold(odd, wordAt(bytes + count - 8));
    }
    even.fold(odd.sum);
    return even.sum;
}

inline std::uint64_t fingerprint(const char* bytes, std::size_t count) {
    return fingerprint(bytes, count, [](std::uint64_t) {});
}

inline constexpr std::uint64_t ones = 0x0101010101010101U;

// Has the top bit of a byte set if a byte of `word` is zero.
inline std::uint64_t zerosIn(std::uint64_t word) { return (word - ones) & ~word & ones << 7; }

// Out of line, which keeps the searches small.
[[gnu::noinline]] inline std::uint64_t fingerprintAny(std::string_view text) {
    // The bytes missing from a short word are no zeros of the text.
    const std::uint64_t missing = text.size() < 4 ? ~0UL << 8 * text.size() : 0;
    std::uint64_t zeros = 0;
    const std::uint64_t whole = fingerprint(
        text.data(), text.size(), [&](std::uint64_t word) { zeros |= zerosIn(word | missing); });
    return zeros == 0 ? whole : fingerprint(text.data(), text.find('\0'));
}

/// The fingerprint of a text up to its first zero.
[[gnu::always_inline]] inline std::uint64_t fingerprint(std::string_view text) {
    const std::size_t count = text.size();
    const char* const bytes = text.data();
    if (count - 8 > 24) return fingerprintAny(text);
    const std::uint64_t first = wordAt(bytes);
    const std::uint64_t last = wordAt(bytes + count - 8);
    std::uint64_t zeros = zerosIn(first) | zerosIn(last);
    std::uint64_t whole = 0;
    if (count <= 16) {
        whole = fingerprintOf(count, first, last);
    } else {
        const std::uint64_t second = wordAt(bytes + 8);
        const std::uint64_t third = wordAt(bytes + count - 16);
        zeros |= zerosIn(second) | zerosIn(third);
        whole = fingerprintOf(count, first, second, third, last);
    }
    return __builtin_expect(zeros == 0, 1) ? whole : fingerprintAny(text);
}

/// Whether both have the same bytes.
[[gnu::always_inline]] inline bool areSame(std::string_view a, std::string_view b) {
    const std::size_t count = a.size();
    if (count != b.size()) return false;
    const auto difference = [&](std::size_t i) {
        return wordAt(a.data() + i) ^ wordAt(b.data() + i);
    };
    if (count - 8 <= 8) return (difference(0) | difference(count - 8)) == 0;
    if (count - 17 <= 15) {
        return (difference(0) | difference(8) | difference(count - 16) | difference(count - 8)) ==
               0;
    }
    return count == 0 || std::memcmp(a.data(), b.data(), count) == 0;
}

/// Copies that are compared in the place of texts of up to copiedBytes: what a search
/// looks at is then in one piece of memory with the entry.
inline constexpr std::size_t copiedBytes = 16;
inline void copy(std::string_view text, char* to) {
    const std::size_t count = text.size();
    if (count > copiedBytes) return;
    if (count < 8) {
        std::memcpy(to, text.data(), count);
        return;
    }
    const std::uint64_t first = wordAt(text.data());
    const std::uint64_t last = wordAt(text.data() + count - 8);
    std::memcpy(to, &first, sizeof first);
    std::memcpy(to + count - 8, &last, sizeof last);
}

}  // namespace fxTextKeys

#endif
