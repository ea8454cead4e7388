// The search for patterns in a line.
#ifndef FXGREP_PATTERN_H
#define FXGREP_PATTERN_H

#include <memory>
#include <string>

#include "LineFilter.h"
#include "Options.h"

/// A search in a line. The byte behind the line may be overwritten.
class Search {
public:
    virtual ~Search() = default;

    /// Finds the first match in [line, end) that starts at `from` or later and
    /// sets its ends. `from` is `line` first and then lies behind the last match.
    virtual bool find(char* line, char* end, const char* from) = 0;

    /// Finds the lines that may match; null if that would take as long as the search.
    virtual const LineFilter* required() const { return nullptr; }

    /// The template with the last match, which must still be there.
    virtual std::string expand(const char* text) const { return text; }

    const char* matchBegin = nullptr;
    const char* matchEnd = nullptr;
};

/// The search for the patterns of the options; null, after a report, when one of them is
/// faulty.
std::unique_ptr<Search> makeSearch(const Options& options);

/// Whether the expression compiles; reports why not.
bool isGoodExpression(const char* text);

#endif
