#include "Neighbours.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstring>
#include <vector>

// Sixteen places are checked at once, with vectors that every x86-64 has.

namespace {

constexpr size_t vectorSize = sizeof(__m128i);

__m128i load(const char* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

__m128i sixteen(unsigned char c) { return _mm_set1_epi8(static_cast<char>(c)); }

size_t valueOf(char c) { return static_cast<unsigned char>(c); }

// Three ranges of bytes, ready for comparisons.
struct RangeVectors {
    template <class Ranges>
    explicit RangeVectors(const Ranges& ranges) {
        for (size_t i = 0; i < 3; ++i) {
            least[i] = sixteen(ranges.least[i]);
            span[i] = sixteen(ranges.span[i]);
        }
    }
    __m128i areIn(__m128i bytes) const {
        __m128i hits = _mm_setzero_si128();
        for (size_t i = 0; i < 3; ++i) {
            const __m128i distance = _mm_sub_epi8(bytes, least[i]);
            hits = _mm_or_si128(hits, _mm_cmpeq_epi8(_mm_min_epu8(distance, span[i]), distance));
        }
        return hits;
    }
    __m128i least[3];
    __m128i span[3];
};

}  // namespace

size_t frequencyOf(char byte) {
    const auto isOneOf = [byte](const char* some) { return std::strchr(some, byte) != nullptr; };
    if (byte == '\0') return 0;
    if (byte == ' ') return 150;
    if (isOneOf("etaoinsr")) return 45;
    if (byte == '\n') return 25;
    if (isOneOf("ldcuhpfmg")) return 18;
    return byte > ' ' && byte <= '~' ? 6 : 1;
}

size_t frequencyOf(const Bytes& bytes) {
    size_t sum = 0;
    for (size_t c = 0; c < bytes.size(); ++c) {
        if (bytes[c]) sum += frequencyOf(static_cast<char>(c));
    }
    return sum;
}

Neighbours::Ranges::Ranges(const Bytes& bytes) {
    struct Range {
        size_t first;
        size_t last;
    };
    std::vector<Range> ranges;
    for (size_t c = 0; c < bytes.size(); ++c) {
        if (!bytes[c]) continue;
        if (ranges.empty() || ranges.back().last + 1 != c) ranges.push_back({c, c});
        ranges.back().last = c;
    }
    while (ranges.size() > count) {  // joins the two with the smallest gap
        size_t best = 1;
        for (size_t i = 2; i < ranges.size(); ++i) {
            const auto gap = [&](size_t at) { return ranges[at].first - ranges[at - 1].last; };
            if (gap(i) < gap(best)) best = i;
        }
        ranges[best - 1].last = ranges[best].last;
        ranges.erase(ranges.begin() + static_cast<std::ptrdiff_t>(best));
    }
    for (size_t i = 0; i < count; ++i) {
        const Range range = ranges.empty() ? Range{0, 0} : ranges[std::min(i, ranges.size() - 1)];
        least[i] = static_cast<unsigned char>(range.first);
        span[i] = static_cast<unsigned char>(range.last - range.first);
    }
}

Neighbours::Neighbours(const NeighbourSets& sets_)
    : LineFilter(sets_.areAll), sets(sets_), lefts(sets_.left), rights(sets_.right) {}

// Between two newlines is an empty line, to which the second one belongs.
const char* Neighbours::find(const char* from, const char* end) const {
    const auto areAt = [this](const char* p, char behind) {
        return sets.left[valueOf(*p)] && sets.right[valueOf(behind)];
    };
    const auto inLine = [](const char* p) { return *p == '\n' ? p + 1 : p; };
    if (from == end) return nullptr;
    if (sets.left['\n'] && sets.right[valueOf(*from)]) return from;
    const RangeVectors left(lefts);
    const RangeVectors right(rights);
    const char* p = from;
    for (; static_cast<size_t>(end - p) > vectorSize; p += vectorSize) {
        int hits = _mm_movemask_epi8(_mm_and_si128(left.areIn(load(p)), right.areIn(load(p + 1))));
        for (; hits != 0; hits &= hits - 1) {
            const char* const place = p + __builtin_ctz(static_cast<unsigned int>(hits));
            if (areAt(place, place[1])) return inLine(place);
        }
    }
    for (; p + 1 != end; ++p) {
        if (areAt(p, p[1])) return inLine(p);
    }
    return *p != '\n' && areAt(p, '\n') ? p : nullptr;
}
