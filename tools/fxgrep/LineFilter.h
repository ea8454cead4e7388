// The search for lines that may match.
#ifndef FXGREP_LINEFILTER_H
#define FXGREP_LINEFILTER_H

/// Finds lines that have what every match needs.
class LineFilter {
public:
    explicit LineFilter(bool isExact_) : isExact(isExact_) {}
    LineFilter(const LineFilter&) = delete;
    LineFilter& operator=(const LineFilter&) = delete;
    virtual ~LineFilter() = default;

    /// A place in the first line of [from, end) that may match, or null. Requires: a line
    /// starts at `from`.
    virtual const char* find(const char* from, const char* end) const = 0;

    const bool isExact;  ///< Whether every line that it finds matches.
};

#endif
