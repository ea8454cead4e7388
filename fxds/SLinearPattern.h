// Search for a literal text.
#ifndef FXDS_SLINEARPATTERN_H
#define FXDS_SLINEARPATTERN_H

#include <cstddef>
#include <cstdint>

#include "fxds/TextPattern.h"

/// Finds a byte string, zero bytes included, exactly as it is. An empty pattern
/// is found at 0 in any buffer.
///
/// Cost: building fills 256 table entries; a search skips ahead by up to the
/// length of the pattern. Results are offsets below 2 GiB.
class FX_API fxSLinearPattern : public fxTextPattern {
public:
    /// Copies the `len` bytes at `s`; `len` 0 means strlen(s).
    fxSLinearPattern(const char* s, unsigned int len);
    /// The same for a whole string; an empty one is the empty pattern.
    explicit fxSLinearPattern(const fxStr& s);
    ~fxSLinearPattern() override;

    /// -1 when the pattern is not in the `len` bytes at `buf`.
    int findBuffer(const char* buf, unsigned int len) const override;
    int findEndBuffer(const char* buf, unsigned int len) const override;
    void bracketBuffer(const char* buf, unsigned int len, int& start, int& end) const override;

private:
    void constructor(const char* s, unsigned int len);
    const char* search(const char* buf, size_t len) const;

    uint32_t skip[256];      // by the byte under the pattern's end: how far to move on
    char* pattern;           // new[]
    uint32_t patternLength;  // in bytes
};

#endif
