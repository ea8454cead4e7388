// The places where a match may start. Private to the library.
#ifndef FXDS_SEARCH_REGSTARTS_H
#define FXDS_SEARCH_REGSTARTS_H

#include "fxds/search/RegReader.h"

namespace fxRegProgram {

/// The places of one search: calls of find() go from left to right.
class StartFinder : private RegReader {
public:
    StartFinder(const Plan& plan_, const char* subject_) : RegReader(plan_, subject_) {}

    /// The first place at `from` or later where a match may start, null for none.
    const char* find(const char* from);

private:
    const char* findBeforeNeeded(const char* from);
    const char* findNeeded(const char* from);
    void goBack(const char* from, size_t most);
    const char* findPair(const char* from);
    template <size_t count>
    const char* findAmong(const char* from);
    const char* findRunAndPair(const char* from);
    const char* skipTo(const TableSet& set, const char* from) const;
    bool isPair(const char* p) const;
    template <class Find>
    const char* inStretches(const char* from, Find find);

    // Invariants, with `from` of the latest call:
    // (1) `needed` is null, or the first needed byte at `from` or later, or the end.
    // (2) No match starts in [from, earliest), and none up to `needed` if that is null.
    // (3) The subject does not end in [from, checked).
    const char* needed = nullptr;
    const char* earliest = nullptr;
    bool isEarliestKnown = false;  // otherwise a lower bound only
    const char* checked = nullptr;
    size_t stretch = 256;  // bytes to check next
};

}  // namespace fxRegProgram

#endif
