// Fingerprints of bytes, and texts as keys, where every branch counts. Private to
// the library.
#ifndef FXDS_CONTAINERS_TEXTKEYS_H
#define FXDS_CONTAINERS_TEXTKEYS_H

#include <cstdint>
#include <cstring>
#include <string_view>

#include "fxds/detail/Mix.h"
#include "fxds/text/TextHash.h"

// Bytes are read in words of 8, the last of which overlap those before them.
// Fewer than 8 bytes are one word. Names take few branches: a search whose keys
// have other lengths than those before waits for each branch that depends on
// the length.
//
// Invariants:
// (1) The fingerprint of a text depends on the bytes up to the first zero alone, and is the
//     same number from quickFingerprint() and fingerprintAny(). Tags in nodes come from both.
// (2) Only the bytes of a text are read, not its terminator.
//
// A length below the least of a range wraps around when that is subtracted, and so one
// comparison finds both ends of the range.

namespace fxTextKeys {

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
        fold(even, wordAt(bytes));
        fold(odd, wordAt(bytes + count - 8));
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

[[gnu::always_inline]] inline std::uint64_t fingerprint(std::string_view text);

// Out of line, which keeps the searches small.
[[gnu::noinline]] inline std::uint64_t fingerprintAny(std::string_view text) {
    // The bytes missing from a short word are no zeros of the text.
    const std::uint64_t missing = text.size() < 4 ? ~0UL << 8 * text.size() : 0;
    std::uint64_t zeros = 0;
    const std::uint64_t whole = fingerprint(
        text.data(), text.size(), [&](std::uint64_t word) { zeros |= zerosIn(word | missing); });
    return zeros == 0 ? whole : fingerprint(text.substr(0, text.find('\0')));
}

// Both halves of the product, with the first digits of pi.
inline std::uint64_t product(std::uint64_t a, std::uint64_t b) {
    __extension__ typedef unsigned __int128 Wide;
    const Wide whole = Wide(a ^ 0x243F6A8885A308D3U) * (b ^ 0x13198A2E03707344U);
    return static_cast<std::uint64_t>(whole) ^ static_cast<std::uint64_t>(whole >> 64);
}

/// Whether the fingerprint of a text of that length takes no loop.
inline bool isQuick(std::size_t count) { return count - 8 <= 24; }

// The fingerprint, and something else than 0 in `zeros` if it is none, because there is a zero
// in the text. Requires: isQuick()
struct Quick {
    std::uint64_t whole;
    std::uint64_t zeros;
};
[[gnu::always_inline]] inline Quick quickFingerprint(std::string_view text) {
    const std::size_t count = text.size();
    const char* const bytes = text.data();
    const std::uint64_t first = wordAt(bytes);
    const std::uint64_t last = wordAt(bytes + count - 8);
    std::uint64_t zeros = zerosIn(first) | zerosIn(last);
    std::uint64_t whole = product(first, last + count);
    if (count > 16) {
        const std::uint64_t second = wordAt(bytes + 8);
        const std::uint64_t third = wordAt(bytes + count - 16);
        zeros |= zerosIn(second) | zerosIn(third);
        whole += product(second + count, third);
    }
    return {whole, zeros};
}

/// The fingerprint of a text up to its first zero.
[[gnu::always_inline]] inline std::uint64_t fingerprint(std::string_view text) {
    if (!isQuick(text.size())) return fingerprintAny(text);
    const Quick quick = quickFingerprint(text);
    return __builtin_expect(quick.zeros == 0, 1) ? quick.whole : fingerprintAny(text);
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

/// Room for the text of a key behind its entry: what a search looks at is then in one piece
/// of memory. The first key of a table decides which.
inline constexpr std::size_t room = 16;
inline constexpr std::size_t longRoom = 32;
inline std::size_t roomFor(std::size_t count) {
    return count - room < longRoom - room ? longRoom : room;
}

/// Requires: `to` has room.
[[gnu::always_inline]] inline void copy(std::string_view text, char* to) {
    const std::size_t count = text.size();
    if (count < 8) {
        std::memcpy(to, text.data(), count);
        return;
    }
    const auto copyAt = [&](std::size_t i) {
        const std::uint64_t word = wordAt(text.data() + i);
        std::memcpy(to + i, &word, sizeof word);
    };
    copyAt(0);
    if (count > 16) {
        copyAt(8);
        copyAt(count - 16);
    }
    copyAt(count - 8);
}

}  // namespace fxTextKeys

#endif
