// A growable byte accumulator that starts on the stack.
#ifndef FXDS_STACKBUFFER_H
#define FXDS_STACKBUFFER_H

#include <cstring>
#include <string_view>

#include "fxds/Config.h"

/// Collects bytes. The first 1000 of them cost no allocation, so keep it as a
/// local variable. The content is [base, next); no terminating zero is implied,
/// put one with addc(0) where a text is wanted.
class FX_API fxStackBuffer {
public:
    /// `growthIncrement` is the least number of bytes that a growth adds; 0
    /// means 500.
    explicit fxStackBuffer(unsigned int growthIncrement = 0);
    fxStackBuffer(const fxStackBuffer& src);
    fxStackBuffer& operator=(const fxStackBuffer&) = delete;
    ~fxStackBuffer();

    /// Start of the content; a view, good until the next byte is added.
    const char* getBase() const { return base; }
    unsigned int length() const { return static_cast<unsigned int>(next - base); }
    /// Bytes that there is room for without growing.
    unsigned int capacity() const { return static_cast<unsigned int>(end - base); }
    bool isEmpty() const { return next == base; }
    std::string_view view() const { return {base, length()}; }  ///< View of the content.

    /// Empties the buffer; the storage is kept.
    void reset() { next = base; }

    /// Appends one byte.
    void addc(char c) {
        if (next >= end) grow(growthIncrement);
        *next++ = c;
    }

    /// Appends the `n` bytes at `s`, which may lie in this very buffer. `s` may
    /// be null when `n` is 0.
    void put(const char* s, unsigned int n) {
        if (n > static_cast<size_t>(end - next)) {
            putGrown(s, n);
        } else if (n != 0) {
            std::memcpy(next, s, n);
            next += n;
        }
    }

    /// Raises the capacity by `n` or by growthIncrement bytes, whichever is
    /// more. The content is kept. Fatal beyond 4 GiB.
    void grow(unsigned int n);

private:
    void putGrown(const char* s, unsigned int n);

    static constexpr unsigned int inlineBytes = 1000;

    char buffer[inlineBytes];

public:
    char* next;                    ///< Where the next byte goes.
    char* end;                     ///< One past the last usable byte.
    char* base;                    ///< `buffer`, or an owned block.
    unsigned int growthIncrement;  ///< Least number of bytes that a growth adds; 0 is taken as 1.
};

#endif
