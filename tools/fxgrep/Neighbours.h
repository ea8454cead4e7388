// Two bytes that are next to each other, by the sets that they belong to.
#ifndef FXGREP_NEIGHBOURS_H
#define FXGREP_NEIGHBOURS_H

#include <bitset>
#include <cstddef>

#include "LineFilter.h"
#include "fxds/search/ByteVectors.h"

typedef std::bitset<256> Bytes;

/// How often the bytes occur in a text of a thousand, roughly.
size_t frequencyOf(const Bytes& bytes);
size_t frequencyOf(char byte);

/// A byte of `left`, and directly behind it one of `right`. In front of a line is a newline,
/// and behind it another one; or, around the parts of a line, zero bytes.
struct NeighbourSets {
    Bytes left;
    Bytes right;
    bool areAll = false;  // whether there is a match wherever they occur

    bool areKnown() const { return left.any(); }
    /// How often they occur in a million bytes, roughly.
    size_t frequency() const { return frequencyOf(left) * frequencyOf(right); }
};

/// Finds lines with such neighbours.
class Neighbours : public LineFilter {
public:
    explicit Neighbours(const NeighbourSets& sets_);

    const char* find(const char* from, const char* end) const override;

private:
    static constexpr size_t rangeCount = 3;
    typedef fxByteVectors::Ranges<rangeCount> Ranges;

    // The last range is repeated to make three; more are joined, so that a place in the ranges
    // may not be in the set.
    static Ranges rangesOf(const Bytes& bytes);

    const NeighbourSets sets;
    const Ranges left;
    const Ranges right;
};

#endif
