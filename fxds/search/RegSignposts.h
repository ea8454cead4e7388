// Byte sets and pairs by which a search finds the places where a match may start, computed
// from the steps. Private to the library.
#ifndef FXDS_SEARCH_REGSIGNPOSTS_H
#define FXDS_SEARCH_REGSIGNPOSTS_H

#include <cstddef>
#include <vector>

#include "fxds/search/RegByteSet.h"
#include "fxds/search/RegInternals.h"

namespace fxRegProgram {

/// An array of at most `limit` items, for results that are useful only if they are short.
template <class T, size_t limit>
class Few {
public:
    bool add(const T& item) {
        if (count == limit) return false;
        items[count++] = item;
        return true;
    }
    /// The index of an item, or size() if it is absent.
    size_t find(const T& item) const {
        size_t i = 0;
        while (i < count && !(items[i] == item)) ++i;
        return i;
    }
    void clear() { count = 0; }
    size_t size() const { return count; }
    const T& operator[](size_t i) const { return items[i]; }
    const T* begin() const { return items; }
    const T* end() const { return items + count; }

private:
    T items[limit];
    size_t count = 0;
};

/// A set of bytes of which every match contains one.
struct NeededSet {
    ByteSet set;
    unsigned int cost = ~0U;  // the lower the better; the initial value means none
};

/// The pair of a text of at least two bytes that is rarest in other texts.
BytePair rarestPair(const char* program, const Step& text);

/// The pairs with which every match begins, where there are few.
struct FirstPairs {
    Few<BytePair, Plan::pairLimit> pairs;
    unsigned int cost = ~0U;
};

/// Works on the steps of a plan under construction. They lead to later ones, except for the
/// ways back of loops.
class Signposts {
public:
    /// `takes` has for each step the bytes of which it takes one, except for an EXACTLY;
    /// `first` has for each step the bytes that can come next, from there on.
    Signposts(const std::vector<Step>& steps_, const std::vector<ByteSet>& takes_,
              const std::vector<ByteSet>& first_, const char* program_, unsigned short start_)
        : steps(steps_), takes(takes_), first(first_), program(program_), start(start_) {}

    /// Finds a set that is rare in text and costs less than `best`. Returns whether there
    /// is one.
    bool findNeeded(NeededSet& best);

    /// Adds the part of a match before the first byte of a needed set to an empty prefix.
    /// Returns false if it has too many places.
    bool findPrefix(const ByteSet& set, Prefix& prefix) const;

    /// Finds the first pairs. Returns whether there are few.
    bool findFirstPairs(FirstPairs& found) const;

private:
    struct Way {
        unsigned short step;
        unsigned short offset;  // of its text, for an EXACTLY
        bool operator==(const Way& other) const {
            return step == other.step && offset == other.offset;
        }
    };
    typedef Few<Way, 2 * Prefix::limit> Ways;

    bool isNeeded(const ByteSet& set);
    void consider(const ByteSet& set, NeededSet& best);
    bool collectWays(unsigned short from, Ways& ways) const;
    bool waysBehind(const Way& way, Ways& ways) const;
    ByteSet takenBy(const Way& way) const;

    const std::vector<Step>& steps;
    const std::vector<ByteSet>& takes;
    const std::vector<ByteSet>& first;
    const char* const program;
    const unsigned short start;
    std::vector<unsigned char> isReached;
};

}  // namespace fxRegProgram

#endif
