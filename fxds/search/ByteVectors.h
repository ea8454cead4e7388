// Sixteen bytes of text at a time, by the vectors that every x86-64 has. Private to the
// library and its tools.
#ifndef FXDS_SEARCH_BYTEVECTORS_H
#define FXDS_SEARCH_BYTEVECTORS_H

#include <emmintrin.h>

#include <cstddef>

namespace fxByteVectors {

constexpr size_t vectorSize = sizeof(__m128i);

/// The bytes from `p` on, all of which exist.
inline __m128i load(const char* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

inline __m128i sixteen(unsigned char c) { return _mm_set1_epi8(static_cast<char>(c)); }

/// Calls find(place) for the places of the bits in `hits`, from `p` on, until that is not
/// null. Returns it, or null.
template <class Find>
const char* firstAmong(__m128i hits, const char* p, Find find) {
    for (int left = _mm_movemask_epi8(hits); left != 0; left &= left - 1) {
        const char* const found = find(p + __builtin_ctz(static_cast<unsigned int>(left)));
        if (found != nullptr) return found;
    }
    return nullptr;
}

/// `count` ranges of bytes, each from `least` to `least + span`.
template <size_t count>
class Ranges {
public:
    void set(size_t index, unsigned char least, unsigned char span) {
        leasts[index] = sixteen(least);
        spans[index] = sixteen(span);
    }
    /// A bit for each byte that is in a range.
    __m128i contain(__m128i bytes) const {
        __m128i hits = _mm_setzero_si128();
        for (size_t i = 0; i < count; ++i) {
            const __m128i distance = _mm_sub_epi8(bytes, leasts[i]);
            hits = _mm_or_si128(hits, _mm_cmpeq_epi8(_mm_min_epu8(distance, spans[i]), distance));
        }
        return hits;
    }

private:
    __m128i leasts[count];
    __m128i spans[count];
};

/// `count` pairs of bytes that are next to each other.
template <size_t count>
class Pairs {
public:
    void set(size_t index, unsigned char first, unsigned char second) {
        firsts[index] = sixteen(first);
        seconds[index] = sixteen(second);
    }
    /// A bit for each of the sixteen places from `p` on where a pair is. Reads the byte
    /// behind them, too.
    __m128i areAt(const char* p) const {
        const __m128i here = load(p);
        const __m128i next = load(p + 1);
        __m128i hits = _mm_setzero_si128();
        for (size_t i = 0; i < count; ++i) {
            hits = _mm_or_si128(hits, _mm_and_si128(_mm_cmpeq_epi8(here, firsts[i]),
                                                    _mm_cmpeq_epi8(next, seconds[i])));
        }
        return hits;
    }

private:
    __m128i firsts[count];
    __m128i seconds[count];
};

}  // namespace fxByteVectors

#endif
