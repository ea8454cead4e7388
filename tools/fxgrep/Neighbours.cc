#include "Neighbours.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

size_t valueOf(char c) { return static_cast<unsigned char>(c); }

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

Neighbours::Neighbours(const NeighbourSets& sets_)
    : LineFilter(sets_.areAll),
      sets(sets_),
      left(rangesOf(sets.left)),
      right(rangesOf(sets.right)) {}

// Between two newlines is an empty line, to which the second one belongs.
const char* Neighbours::find(const char* from, const char* end) const {
    const auto areAt = [this](const char* p, char behind) {
        return sets.left[valueOf(*p)] && sets.right[valueOf(behind)];
    };
    const auto inLine = [](const char* p) { return *p == '\n' ? p + 1 : p; };
    if (from == end) return nullptr;
    if (sets.left['\n'] && sets.right[valueOf(*from)]) return from;
    const auto check = [&](const char* p) { return areAt(p, p[1]) ? inLine(p) : nullptr; };
    const char* p = from;
    for (; static_cast<size_t>(end - p) > fxByteVectors::vectorSize;
         p += fxByteVectors::vectorSize) {
        const __m128i hits = _mm_and_si128(left.contain(fxByteVectors::load(p)),
                                           right.contain(fxByteVectors::load(p + 1)));
        const char* const found = fxByteVectors::firstAmong(hits, p, check);
        if (found != nullptr) return found;
    }
    for (; p + 1 != end; ++p) {
        if (areAt(p, p[1])) return inLine(p);
    }
    return *p != '\n' && areAt(p, '\n') ? p : nullptr;
}

// Private functions.

Neighbours::Ranges Neighbours::rangesOf(const Bytes& bytes) {
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
    while (ranges.size() > rangeCount) {  // joins the two with the smallest gap
        size_t best = 1;
        for (size_t i = 2; i < ranges.size(); ++i) {
            const auto gap = [&](size_t at) { return ranges[at].first - ranges[at - 1].last; };
            if (gap(i) < gap(best)) best = i;
        }
        ranges[best - 1].last = ranges[best].last;
        ranges.erase(ranges.begin() + static_cast<std::ptrdiff_t>(best));
    }
    Ranges vectors;
    for (size_t i = 0; i < rangeCount; ++i) {
        const Range range = ranges.empty() ? Range{0, 0} : ranges[std::min(i, ranges.size() - 1)];
        vectors.set(i, static_cast<unsigned char>(range.first),
                    static_cast<unsigned char>(range.last - range.first));
    }
    return vectors;
}
