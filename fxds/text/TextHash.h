// The hash of a string. Private to the library.
#ifndef FXDS_TEXT_TEXTHASH_H
#define FXDS_TEXT_TEXTHASH_H

#include <cstdint>
#include <cstring>
#include <string_view>

namespace fxTextKeys {

template <class Word>
inline Word load(const char* from) {
    Word word;
    std::memcpy(&word, from, sizeof word);
    return word;
}
inline std::uint64_t wordAt(const char* from) { return load<std::uint64_t>(from); }

// A word that ends in the `count` bytes at `bytes`, count <= 8, and is zero before. It is put
// together in registers: bytes stored one by one and loaded as a word would have to wait
// for the stores.
inline std::uint64_t lastBytes(const char* bytes, std::size_t count) {
    if (count == 8) return wordAt(bytes);
    if (count == 0) return 0;
    std::uint64_t word;
    if (count >= 4) {
        word = load<std::uint32_t>(bytes) | std::uint64_t{load<std::uint32_t>(bytes + count - 4)}
                                                << 8 * (count - 4);
    } else {
        const auto at = [bytes](std::size_t i) {
            return std::uint64_t{static_cast<unsigned char>(bytes[i])} << 8 * i;
        };
        word = at(0) | at(count / 2) | at(count - 1);
    }
    return word << 8 * (8 - count);
}

/// The hash of a string of these bytes.
[[gnu::always_inline]] inline unsigned long hash(std::string_view text) {
    const std::size_t count = text.size();
    const char* const bytes = text.data();
    if (count - 9 < 7) {  // the bytes from 8 on stay out: part of the contract
        const std::uint64_t first = wordAt(bytes);
        return first << 8 * (16 - count) << 3 ^ first;
    }
    if (count > 15) return wordAt(bytes + 8) << 3 ^ wordAt(bytes);
    return lastBytes(bytes, count) << 3;
}

}  // namespace fxTextKeys

#endif
