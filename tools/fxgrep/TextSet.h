// Literal texts, and the search for any of several.
#ifndef FXGREP_TEXTSET_H
#define FXGREP_TEXTSET_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "LineFilter.h"
#include "fxds/SLinearPattern.h"

/// A literal text. The library's offsets are ints, so long texts are searched in
/// parts that overlap.
class Literal {
public:
    explicit Literal(const std::string& text);

    /// The first occurrence in [from, end), or null.
    const char* find(const char* from, const char* end) const;

    const size_t length;

private:
    const fxSLinearPattern pattern;
};

/// Finds lines with any of several texts.
class TextSet : public LineFilter {
public:
    /// Requires: worthOf(texts, ignoresCase) is not 0. `ignoresCase` applies to the letters
    /// A to Z. `areAll`: there is a match wherever one of the texts is.
    TextSet(const std::vector<std::string>& texts, bool ignoresCase, bool areAll);

    const char* find(const char* from, const char* end) const override;

    /// How much such a search saves a search for an expression all of whose matches contain
    /// one of the texts: 0 when it may cost more than it saves.
    static size_t worthOf(const std::vector<std::string>& texts, bool ignoresCase);

private:
    static constexpr unsigned int pairCount = 4096;
    static unsigned int pair(unsigned char a, unsigned char b) { return (a * 32U ^ b) % pairCount; }
    void enter(size_t text);
    bool isAt(const char* place, const char* end) const;
    const char* checkPair(const char* place, const char* from, const char* end) const;
    template <size_t count>
    const char* findPairs(const char* from, const char* end) const;
    const char* findMany(const char* from, const char* end) const;

    // A text by two neighbouring bytes of it, which are `before` bytes behind its beginning.
    struct Rarest {
        std::string text;
        size_t before;
    };

    std::unique_ptr<const Literal> single;  // instead of all members below
    std::vector<Rarest> few;                // instead of those below
    std::vector<std::string> pairs;         // the different ones of these, two bytes each

    std::vector<std::string> texts;
    size_t shortest = 0;
    unsigned char plain[256];  // the value by which a byte is compared
    // How far the window, as long as the shortest text, can move on when its last two bytes
    // are these; 0 when a text may begin with the window's bytes.
    std::vector<unsigned char> moves;
    // For those, by the last two bytes again, a list of the texts: its head, and for each
    // text the next one. A text is denoted by its index plus 1.
    std::vector<uint32_t> heads, nexts;
};

#endif
