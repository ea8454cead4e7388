// Search for a regular expression: the engine of RegExp.h as a text pattern.
#ifndef FXDS_REGEX_H
#define FXDS_REGEX_H

#include "fxds/RegExp.h"
#include "fxds/TextPattern.h"

/// Finds a regular expression; RegExp.h describes the syntax and the cost of a search.
///
/// The searches ignore `len` and look at the whole of the zero-terminated
/// buffer. An expression that did not compile is found nowhere, with -2 for the
/// -1 of not found. Offsets are ints: a match that ends beyond 2 GiB - 1 counts as
/// not found; search() finds it. One object belongs to one thread at a time.
class FX_API fxRegEx : public fxTextPattern {
public:
    ///@{
    /// Compiles the expression; one that is faulty or null shows in isValid().
    explicit fxRegEx(const char* pattern);
    explicit fxRegEx(const fxStr& pattern);
    ///@}
    ~fxRegEx() override;

    bool isValid() const { return compiled != nullptr; }  ///< Whether the expression compiled.

    /// Requires, as do the other two: `buf` is zero-terminated.
    int findBuffer(const char* buf, unsigned int len) const override;
    int findEndBuffer(const char* buf, unsigned int len) const override;
    void bracketBuffer(const char* buf, unsigned int len, int& start, int& end) const override;

    /// Searches `buf` for the first match that starts at `from` or later, whatever
    /// the distance. Returns expression(), or null when there is none.
    /// Requires: `from` lies in the zero-terminated `buf` or at its end.
    const fxregexp* search(const char* buf, const char* from) const;
    /// As search(), to go on in a buffer that is unchanged since the last search, if
    /// that was of this buffer; see fxregnext().
    const fxregexp* searchNext(const char* buf, const char* from) const;

    /// View: the compiled expression with the groups of the last search, whose
    /// buffer they point into; null when the pattern did not compile.
    const fxregexp* expression() const { return compiled; }

private:
    fxregexp* compiled;  // malloc() block
};

/// True when `s` was likely meant as an expression, that is, when it contains
/// one of these characters:
///
///     . + * ^ $ ( ) { } [ ]
///
/// Bars, question marks and backslashes alone do not count.
FX_API bool fxIsRegEx(const char* s);

#endif
