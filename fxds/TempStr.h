// The value of a concatenation expression: text | text | text.
#ifndef FXDS_TEMPSTR_H
#define FXDS_TEMPSTR_H

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "fxds/Config.h"

/// Accumulates the text of a chain of `|`. The first `|` between two strings
/// makes one (see TextOperators.h); every further `|` appends to it, so a chain costs
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
    ~fxTempStr() { dropBlock(); }

    unsigned int length() const { return slength - 1; }  ///< Bytes of text.
    bool isEmpty() const { return slength == 1; }
    const char* c_str() const { return data; }                  ///< View, ends in a zero.
    std::string_view view() const { return {data, length()}; }  ///< View of the text.
    /// The same, for functions that take a view: f(a | b). Good until the call returns.
    operator std::string_view() const { return view(); }

    /// Appends the `n` bytes at `s`, which may lie in this very text. Returns
    /// this object.
    fxTempStr& concat(char const* s, unsigned int n) {
        if (data != buffer || size_t{slength} + n > inlineBytes) return concatBlock(s, n);
        if (n != 0) std::memmove(data + length(), s, n);
        slength += n;
        data[length()] = '\0';
        return *this;
    }

private:
    void place(bool inBuffer);
    void dropBlock() {
        if (data != buffer) std::free(data);
    }
    fxTempStr& concatBlock(char const* s, unsigned int n);

    static constexpr unsigned int inlineBytes = 100;

    char buffer[inlineBytes];

public:
    char* data;            ///< `buffer`, or an owned block. Read only for others.
    unsigned int slength;  ///< Bytes in use, the terminating zero included.
};

#endif
