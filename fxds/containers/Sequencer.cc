#include "fxds/Sequencer.h"

// Invariants:
// (1) The taken numbers are in `ranges`, ascending by start.
// (2) Ranges neither overlap nor touch, as long as no taken number is reserved:
//     those that come to touch are merged at once.
//
// So the first range is enough to hand out a number: below its start everything
// is free, and if it starts at 0, its end is the lowest free number.

fxSequencer::fxSequencer() = default;

fxSequencer::~fxSequencer() = default;

unsigned int fxSequencer::operator()() {
    if (ranges.isEmpty()) {
        ranges.append({0, 1});
        return 0;
    }
    fxSeqRange& first = ranges[0];
    if (first.start > 0) {
        ++first.length;
        return --first.start;
    }
    const unsigned int number = first.length++;
    trymerge(0);
    return number;
}

unsigned int fxSequencer::operator()(unsigned int number) {
    unsigned int above = 0;  // the first range that starts above the number
    while (above < ranges.length() && ranges[above].start <= number) ++above;

    if (above < ranges.length() && number == ranges[above].start - 1) {
        --ranges[above].start;
        ++ranges[above].length;
    } else {
        ranges.insert({number, 1}, above);
    }
    if (above > 0) trymerge(above - 1);
    return number;
}

void fxSequencer::trymerge(unsigned int index) {
    const unsigned int count = ranges.length();
    if (index >= count || index + 1 >= count) return;
    if (ranges[index].start + ranges[index].length != ranges[index + 1].start) return;
    ranges[index].length += ranges[index + 1].length;
    ranges.remove(index + 1, 1);
}
