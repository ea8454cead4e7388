// The interface of the patterns that texts are searched for.
#ifndef FXDS_TEXTPATTERN_H
#define FXDS_TEXTPATTERN_H

#include "fxds/RCObj.h"
#include "fxds/Str.h"

/// A literal or a regular expression, to be searched for in text. Positions are
/// offsets in bytes from the start of the buffer.
class FX_API fxTextPattern : public fxRCObj {
public:
    fxTextPattern() = default;
    fxTextPattern(const fxTextPattern&) = delete;
    fxTextPattern& operator=(const fxTextPattern&) = delete;
    ~fxTextPattern() override;

    /// Returns where the first occurrence in the `len` bytes at `buf` starts, or
    /// a negative number when there is none.
    virtual int findBuffer(const char* buf, unsigned int len) const = 0;

    /// Returns where the first occurrence ends, or 0 when there is none: use
    /// one of the other two to distinguish that from an empty occurrence at the
    /// start.
    virtual int findEndBuffer(const char* buf, unsigned int len) const = 0;

    /// Sets both ends of the first occurrence: `start` as findBuffer() returns
    /// it, `end` 0 when there is none.
    virtual void bracketBuffer(const char* buf, unsigned int len, int& start, int& end) const = 0;

    ///@{
    /// The same for a whole string.
    int find(const fxStr& text) const { return findBuffer(text, text.length()); }
    int findEnd(const fxStr& text) const { return findEndBuffer(text, text.length()); }
    void bracket(const fxStr& text, int& start, int& end) const {
        bracketBuffer(text, text.length(), start, end);
    }
    ///@}
};

#endif
