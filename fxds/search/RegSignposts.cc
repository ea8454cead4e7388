#include "fxds/search/RegSignposts.h"

#include <algorithm>
#include <array>

// A signpost is a property of every match that is cheaper to search for than a match: a
// byte that each contains, or the two bytes that each begins with. A wrong one loses
// matches; so whenever something here is too complicated, the result is that there is no
// signpost. Costs are frequencies and only decide which signpost is used.

namespace fxRegProgram {
namespace {

// The frequency of each byte in text, of 10,000: prose and programs mixed.
constexpr std::array<unsigned short, 256> frequencies = [] {
    std::array<unsigned short, 256> table{};
    for (size_t c = 0; c < table.size(); ++c) table[c] = c > ' ' && c < 0x7F ? 30 : 5;
    for (size_t c = '0'; c <= '9'; ++c) table[c] = 60;
    for (size_t c = 'A'; c <= 'Z'; ++c) table[c] = 40;
    constexpr unsigned short letters[] = {570, 110, 200, 290, 860, 160, 150, 370, 520,
                                          10,  60,  270, 180, 500, 530, 140, 10,  420,
                                          460, 630, 220, 80,  130, 15,  120, 10};
    for (size_t i = 0; i < std::size(letters); ++i) table['a' + i] = letters[i];
    constexpr unsigned char signs[] = {'_', '-', '.', ',', '/', '(', ')', '"'};
    for (const unsigned char c : signs) table[c] = 80;
    table[' '] = 1500;
    table['\n'] = 250;
    return table;
}();

constexpr unsigned int tooOften = 1200;  // searching for more frequent bytes saves little

unsigned int frequencyOf(unsigned char c) { return frequencies[c]; }
unsigned int frequencyOf(char c) { return frequencyOf(static_cast<unsigned char>(c)); }

unsigned int frequencyOf(const ByteSet& set) {
    constexpr size_t many = 64;
    if (set.count() > many) return tooOften + 1;
    unsigned int sum = 0;
    set.forEach([&sum](unsigned char c) { sum += frequencyOf(c); });
    return sum;
}

ByteSet rarestOf(const char* text, size_t length) {
    return ByteSet::of(static_cast<unsigned char>(*std::min_element(
        text, text + length, [](char a, char b) { return frequencyOf(a) < frequencyOf(b); })));
}

bool isRepetition(const Step& step) { return step.op == STAR || step.op == PLUS; }

// The pair of a text behind its first `before` bytes.
BytePair pairAt(const char* program, const Step& text, size_t before) {
    const char* const pair = program + text.text + before;
    return {static_cast<unsigned char>(pair[0]), static_cast<unsigned char>(pair[1]),
            static_cast<unsigned short>(before), static_cast<unsigned short>(text.length),
            text.text};
}

}  // namespace

BytePair rarestPair(const char* program, const Step& text) {
    size_t best = 0;
    unsigned int least = ~0U;
    for (size_t i = 0; i + 1 < text.length; ++i) {
        const char* const pair = program + text.text + i;
        const unsigned int often = frequencyOf(pair[0]) * frequencyOf(pair[1]);
        if (often >= least) continue;
        least = often;
        best = i;
    }
    return pairAt(program, text, best);
}

// A set is needed if END cannot be reached by taking other bytes only. One pass in the
// order of the steps is enough: a step leads to later ones, or back to a loop that was
// entered from its start.
bool Signposts::isNeeded(const ByteSet& set) {
    isReached.assign(steps.size(), 0);
    isReached[start] = 1;
    for (size_t i = start; i < steps.size(); ++i) {
        if (isReached[i] == 0) continue;
        const Step& step = steps[i];
        if (step.op == END) return false;
        bool goesOn = takes[i].isEmpty() || !(takes[i] & ~set).isEmpty();
        if (step.op == EXACTLY) {
            const char* const text = program + step.text;
            goesOn = std::none_of(text, text + step.length, [&set](char c) {
                return set.has(static_cast<unsigned char>(c));
            });
        }
        if (step.op == BRANCH) {
            isReached[step.body] = 1;
            if (step.later != Step::none) isReached[step.later] = 1;
        } else if (goesOn || (isRepetition(step) && step.least == 0)) {
            isReached[step.next] = 1;  // the start of a loop has been reached before
        }
    }
    return true;
}

// The subject before a needed byte is checked before a match is tried, so a set with a
// non-empty prefix is better than one that is rarer.
void Signposts::consider(const ByteSet& set, NeededSet& best) {
    constexpr unsigned int withoutPrefix = 16;
    unsigned int cost = frequencyOf(set);
    if (set.isEmpty() || cost > tooOften) return;
    if (!(set & first[start]).isEmpty()) cost *= withoutPrefix;
    if (cost >= best.cost || !isNeeded(set)) return;
    best.set = set;
    best.cost = cost;
}

// Only the first steps of a big expression are considered.
bool Signposts::findNeeded(NeededSet& best) {
    constexpr size_t most = 32;
    const unsigned int before = best.cost;
    for (size_t i = start; i < std::min(steps.size(), start + most); ++i) {
        if (steps[i].op == EXACTLY) {
            consider(rarestOf(program + steps[i].text, steps[i].length), best);
        } else if (steps[i].op != BRANCH) {
            consider(takes[i], best);
        } else if (!first[i].has(0)) {
            consider(first[i], best);
        }
    }
    return best.cost < before;
}

// A place is one way of taking a byte that is not in the set. Returns false if there are
// too many.
//
// Invariants, at the beginning of each turn: places[i] has bit i. `ways` are the ways of
// taking a byte behind the place with the bit `before`, or from the start of a match. Turn
// 0 is for the start, turn n for the place n - 1, so every place is continued once.
bool Signposts::findPrefix(const ByteSet& set, Prefix& prefix) const {
    Few<Way, Prefix::limit> places;
    Ways ways;
    if (!collectWays(start, ways)) return false;
    uint16_t before = 0;  // the place that precedes the ways, 0 for the start
    for (size_t done = 0;; ++done) {
        for (const Way& way : ways) {
            const ByteSet taken = takenBy(way);
            if (!(taken & set).isEmpty()) {
                prefix.last = static_cast<uint16_t>(prefix.last | before);
                if (before == 0) prefix.canBeEmpty = true;
            }
            const ByteSet others = taken & ~set;
            if (others.isEmpty()) continue;
            const size_t place = places.find(way);
            const auto bit = static_cast<uint16_t>(1U << place);
            if (place == places.size()) {
                if (!places.add(way)) return false;
                others.forEach([&prefix, bit](unsigned char c) {
                    prefix.taking[c] = static_cast<uint16_t>(prefix.taking[c] | bit);
                });
            }
            uint16_t& joined = before == 0 ? prefix.first : prefix.preceding[place];
            joined = static_cast<uint16_t>(joined | (before == 0 ? bit : before));
        }
        if (done == places.size()) return true;
        ways.clear();
        if (!waysBehind(places[done], ways)) return false;
        before = static_cast<uint16_t>(1U << done);
    }
}

// Collects the ways of taking a byte from a step on. Returns false when a match can end
// without one, or there are too many.
// `met` keeps the order and lets no step be visited twice, so loops end.
bool Signposts::collectWays(unsigned short from, Ways& ways) const {
    Few<unsigned short, 64> met;
    met.add(from);
    for (size_t done = 0; done < met.size(); ++done) {
        const unsigned short index = met[done];
        const Step& step = steps[index];
        if (step.op == END) return false;
        const auto meet = [&met](unsigned short next) {
            return met.find(next) < met.size() || met.add(next);
        };
        if (step.op == BRANCH) {
            if (!meet(step.body) || (step.later != Step::none && !meet(step.later))) return false;
            continue;
        }
        const bool takesByte = step.op == EXACTLY || !takes[index].isEmpty();
        if (takesByte && !ways.add({index, 0})) return false;
        const bool isPassed = !takesByte || (isRepetition(step) && step.least == 0);
        if (isPassed && !meet(step.next)) return false;
    }
    return true;
}

bool Signposts::waysBehind(const Way& way, Ways& ways) const {
    const Step& step = steps[way.step];
    if (step.op == EXACTLY && way.offset + 1U < step.length) {
        return ways.add({way.step, static_cast<unsigned short>(way.offset + 1)});
    }
    if (isRepetition(step) && step.run != Step::ofOptional && !ways.add(way)) return false;
    return collectWays(step.next, ways);
}

ByteSet Signposts::takenBy(const Way& way) const {
    const Step& step = steps[way.step];
    return step.op == EXACTLY
               ? ByteSet::of(static_cast<unsigned char>(program[step.text + way.offset]))
               : takes[way.step];
}

// Neighbouring bytes depend on each other, so pairs are more frequent than the product of
// their frequencies; and they select less than a set whose prefix is known.
bool Signposts::findFirstPairs(FirstPairs& found) const {
    constexpr unsigned int bias = 4;
    found.cost = 150;
    Ways ways;
    if (!collectWays(start, ways)) return false;
    for (const Way& way : ways) {
        Ways behind;
        if (!waysBehind(way, behind)) return false;
        ByteSet seconds;
        for (const Way& second : behind) seconds = seconds | takenBy(second);
        const ByteSet firsts = takenBy(way);
        const size_t count = firsts.count() * seconds.count();
        if (found.pairs.size() + count > Plan::pairLimit) return false;
        const Step& step = steps[way.step];
        const bool isText = step.op == EXACTLY && step.length > 1;
        firsts.forEach([&](unsigned char a) {
            seconds.forEach([&](unsigned char b) {
                found.pairs.add(isText ? pairAt(program, step, 0) : BytePair{a, b, 0, 0, 0});
                found.cost += bias * frequencyOf(a) * frequencyOf(b) / 10000;
            });
        });
    }
    return true;
}

}  // namespace fxRegProgram
