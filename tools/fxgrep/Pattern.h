// What fxgrep looks for in a line.
#ifndef FXGREP_PATTERN_H
#define FXGREP_PATTERN_H

#include <memory>
#include <string>

#include "Options.h"
#include "fxds/SLinearPattern.h"

/// A literal text. The library's offsets are ints, so long texts are searched in
/// parts that overlap.
class Literal {
public:
    explicit Literal(const fxStr& text) : length(text.length()), pattern(text) {}

    /// Where it is first in [from, end), or null.
    const char* find(const char* from, const char* end) const;

    const size_t length;

private:
    const fxSLinearPattern pattern;
};

/// Something to look for in a line. The byte behind the line is ours to write.
class Search {
public:
    virtual ~Search() = default;

    /// Finds the first match in [line, end) that starts at `from` or later and
    /// sets its ends. `from` is `line` first and then lies behind the last match.
    virtual bool find(char* line, char* end, const char* from) = 0;

    /// Text that is in every line with a match; null when nothing is known.
    virtual const Literal* required() const { return nullptr; }

    /// The template with the last match, which must still be there.
    virtual std::string expand(const char* text) const { return text; }

    const char* matchBegin = nullptr;
    const char* matchEnd = nullptr;
};

/// The search for the patterns of the options; null, with the reason told, when one
/// of them is faulty.
std::unique_ptr<Search> makeSearch(const Options& options);

/// Whether the expression compiles; tells why not.
bool isGoodExpression(const char* text);

#endif
