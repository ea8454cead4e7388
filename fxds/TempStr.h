// The value of a concatenation expression: text | text | text.
#ifndef FXDS_TEMPSTR_H
#define FXDS_TEMPSTR_H

#include <string_view>

#include "fxds/Config.h"

class fxStr;

/// Accumulates the text of a chain of `|`. The first `|` between two strings
/// makes one; every further `|` appends to that same object, so a chain costs
/// one buffer however long it is, and none from the heap for up to 100 bytes
/// with the terminator. Turn the result into an fxStr to keep it:
///
///     fxStr path = directory | "/" | name;
///
/// The object lives until the end of the full expression, so never bind the
/// result of a chain to a reference. A named fxTempStr is changed by `|`.
///
/// It never contains a pointer to text of others: everything is copied.
class FX_API fxTempStr {
public:
    /// The `aLength` bytes at `a` followed by the `bLength` bytes at `b`. Either
    /// pointer may be null when its length is 0.
    fxTempStr(char const* a, unsigned int aLength, char const* b, unsigned int bLength);
    fxTempStr(const fxTempStr& src);
    fxTempStr& operator=(const fxTempStr& src);
    ~fxTempStr();

    unsigned int length() const { return slength - 1; }  ///< Bytes of text.
    bool isEmpty() const { return slength == 1; }
    const char* c_str() const { return data; }                  ///< View, ends in a zero.
    std::string_view view() const { return {data, length()}; }  ///< View of the text.

    /// Appends the `n` bytes at `s`, which may lie in this very text. Returns
    /// this object.
    fxTempStr& concat(char const* s, unsigned int n);

private:
    void place(bool inBuffer);
    void dropBlock();

    static constexpr unsigned int inlineBytes = 100;

    char buffer[inlineBytes];

public:
    char* data;            ///< `buffer`, or a block of ours. Read only for others.
    unsigned int slength;  ///< Bytes in use, the terminating zero included.
};

/// Concatenation. A null `char const*` counts as the empty text.
FX_API fxTempStr operator|(const fxStr& a, const fxStr& b);
FX_API fxTempStr operator|(const fxStr& a, const char* b);
FX_API fxTempStr operator|(const char* a, const fxStr& b);

/// Appends to `a` itself and returns it: `a` is the accumulator, although it
/// is taken by constant reference so that a temporary can be bound to it.
/// Requires: `a` was not defined as a constant object.
FX_API fxTempStr& operator|(const fxTempStr& a, const fxStr& b);
FX_API fxTempStr& operator|(const fxTempStr& a, const char* b);

#endif
