#include "fxds/search/RegStarts.h"

#include <algorithm>
#include <cstring>

#include "fxds/search/ByteVectors.h"

// Each method passes over no place where a match starts. A place that it returns proves
// nothing: the matcher tries it. So a method may be as coarse as it is fast, but never too
// strict.

namespace fxRegProgram {
namespace {

// Vectors are filled only from bytes that exist: strnlen() has checked them, in stretches
// that grow.
using fxByteVectors::vectorSize;

// The first byte within `length`, a multiple of 16, that is in one of the ranges; the end
// otherwise.
template <size_t count>
const char* findInRanges(const ByteRange* ranges, const char* from, size_t length) {
    fxByteVectors::Ranges<count> vectors;
    for (size_t i = 0; i < count; ++i) vectors.set(i, ranges[i].least, ranges[i].span);
    const auto itself = [](const char* place) { return place; };
    for (const char* const end = from + length; from != end; from += vectorSize) {
        const __m128i hits = vectors.contain(fxByteVectors::load(from));
        const char* const found = fxByteVectors::firstAmong(hits, from, itself);
        if (found != nullptr) return found;
    }
    return from;
}

}  // namespace

// Calls find(begin, length) for stretches of the subject from `from` on until it returns a
// place other than the end of the stretch. Returns that place, or the end of the subject.
template <class Find>
const char* StartFinder::inStretches(const char* from, Find find) {
    // Stretches begin short and grow, so that a match near the start does not cost a pass
    // over the whole subject. `checked` stays for the next call.
    constexpr size_t longest = 65536;
    for (;;) {
        if (checked <= from) {
            checked = from + strnlen(from, stretch);
            stretch = std::min(2 * stretch, longest);
        }
        const char* const found = find(from, static_cast<size_t>(checked - from));
        if (found != checked || *found == 0) return found;
        from = found;
    }
}

const char* StartFinder::find(const char* from) {
    switch (plan.startKind) {
        case Start::pairs:
            return findPair(from);
        case Start::runAndPair:
            return findRunAndPair(from);
        case Start::needed:
            return findBeforeNeeded(from);
        case Start::set:
            from = skipTo(plan.start, from);
            return *from != 0 || plan.startsAtEnd ? from : nullptr;
        case Start::anchored:
            return from == subject ? from : nullptr;
        default:
            return from;
    }
}

// The first byte in the set, which contains the end of the text. Checking four bytes per
// turn saves 8 % of the time of [0-9]+[.][0-9]+.
const char* StartFinder::skipTo(const TableSet& set, const char* from) const {
    while (!isIn(set, from)) {
        if (isIn(set, from + 1)) return from + 1;
        if (isIn(set, from + 2)) return from + 2;
        if (isIn(set, from + 3)) return from + 3;
        from += 4;
    }
    return from;
}

// If every match is a run and then a text, the first text determines the first place of the
// run: as far back as its bytes go.
const char* StartFinder::findRunAndPair(const char* from) {
    const Step* const firstRun = &steps[plan.runFirst];
    for (const char* text = from; (text = findPair(text)) != nullptr; ++text) {
        const char* first = text;
        while (first != from && isIn(firstRun->set, firstRun->setMask, first - 1)) --first;
        if (text - first >= firstRun->least) return first;
    }
    return nullptr;
}

// No match starts between the first needed byte and the next but behind it. The part of a
// match before the byte is walked backwards from there: a few bytes at first, because most
// ways end soon, and further only when a match has been tried in vain.
const char* StartFinder::findBeforeNeeded(const char* from) {
    constexpr size_t few = 32;
    for (;;) {
        if (needed == nullptr || needed < from) {
            needed = findNeeded(from);
            goBack(from, few);
        } else if (!isEarliestKnown && from > earliest) {
            goBack(from, static_cast<size_t>(needed - from));
        }
        if (*needed == 0) return nullptr;
        if (earliest != nullptr) {
            from = std::max(from, earliest);
            while (from <= needed && plan.start.mask != 0 && !isIn(plan.start, from)) ++from;
            if (from <= needed) return from;
        }
        from = needed + 1;
    }
}

// Sets `earliest`, and whether it is known, after going back by at most `most` bytes.
// This runs the automaton of the prefix backwards: `places` has a bit for each place that
// may take the byte before `p`. A place that may also take the first byte of a match makes
// that byte a start.
void StartFinder::goBack(const char* from, size_t most) {
    isEarliestKnown = plan.prefix == nullptr || *needed == 0;
    earliest = from;
    if (isEarliestKnown) return;
    const Prefix& prefix = *plan.prefix;
    const char* const least = static_cast<size_t>(needed - from) > most ? needed - most : from;
    const char* start = prefix.canBeEmpty ? needed : nullptr;
    uint32_t places = prefix.last;
    for (const char* p = needed; places != 0; --p) {
        if (p == least) {
            if (least != from) return;
            break;
        }
        uint32_t taking = places & prefix.taking[byteAt(p - 1)];
        if ((taking & prefix.first) != 0) start = p - 1;
        for (places = 0; taking != 0; taking &= taking - 1) {
            places |= prefix.preceding[__builtin_ctz(taking)];
        }
    }
    earliest = start;
    isEarliestKnown = true;
}

// The first needed byte, or the end. Near ones are found faster without vectors.
const char* StartFinder::findNeeded(const char* from) {
    constexpr size_t near = 16;
    for (const char* const end = from + near; from != end; ++from) {
        if (isIn(plan.needed, from)) return from;
    }
    if (plan.rangeCount == 0) return skipTo(plan.needed, from);
    if (plan.rangeCount == 1 && plan.ranges[0].span == 0) {
        return strchrnul(from, plan.ranges[0].least);
    }
    return inStretches(from, [this](const char* begin, size_t length) {
        const size_t whole = length / vectorSize * vectorSize;
        const char* const end = begin + length;
        const char* found = nullptr;
        switch (plan.rangeCount) {
            case 1:
                found = findInRanges<1>(plan.ranges, begin, whole);
                break;
            case 2:
                found = findInRanges<2>(plan.ranges, begin, whole);
                break;
            case 3:
                found = findInRanges<3>(plan.ranges, begin, whole);
                break;
            default:
                found = findInRanges<4>(plan.ranges, begin, whole);
        }
        if (found == begin + whole) {
            while (found != end && !isIn(plan.needed, found)) ++found;
        }
        return found;
    });
}

// Whether one of the pairs is at `p`, with its text. The comparison stops at the
// terminator, which is in no text; and `before` bytes exist in front of `p`, because
// findPair() has passed over as many.
bool StartFinder::isPair(const char* p) const {
    for (size_t i = 0; i < plan.pairCount; ++i) {
        const BytePair& pair = plan.pairs[i];
        if (byteAt(p) != pair.first || byteAt(p + 1) != pair.second) continue;
        const char* const text = plan.program + pair.text;
        const char* const there = p - pair.before;
        size_t same = 0;
        while (same < pair.length && there[same] == text[same]) ++same;
        if (same == pair.length) return true;
    }
    return false;
}

// The first place at `from` or later where one of the pairs is with its text.
const char* StartFinder::findPair(const char* from) {
    const size_t before = plan.pairs[0].before;
    if (strnlen(from, before) < before) return nullptr;
    from += before;
    const char* const found = plan.pairCount == 1   ? findAmong<1>(from)
                              : plan.pairCount <= 2 ? findAmong<2>(from)
                              : plan.pairCount <= 4 ? findAmong<4>(from)
                                                    : findAmong<Plan::pairLimit>(from);
    return *found != 0 ? found - before : nullptr;
}

// Searches for at most `count` pairs; the last one is used several times.
template <size_t count>
const char* StartFinder::findAmong(const char* from) {
    fxByteVectors::Pairs<count> vectors;
    for (size_t i = 0; i < count; ++i) {
        const BytePair& pair = plan.pairs[std::min(i, plan.pairCount - size_t{1})];
        vectors.set(i, pair.first, pair.second);
    }
    const auto check = [this](const char* place) { return isPair(place) ? place : nullptr; };
    return inStretches(from, [&](const char* begin, size_t length) {
        const char* const end = begin + length;
        for (; end - begin >= static_cast<long>(vectorSize); begin += vectorSize) {
            const __m128i hits = vectors.areAt(begin);  // reads the terminator at most
            const char* const found = fxByteVectors::firstAmong(hits, begin, check);
            if (found != nullptr) return found;
        }
        while (begin != end && !isPair(begin)) ++begin;
        return begin;
    });
}

}  // namespace fxRegProgram
