#include "Pattern.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "Dialect.h"
#include "TextSet.h"
#include "fxds/RegEx.h"

// The patterns become one: a literal text if there is only one and it matches its own
// letters, otherwise one expression with an alternative for each.

namespace {

class LiteralSearch : public Search {
public:
    explicit LiteralSearch(const std::string& text) : literal(text), set({text}, false, true) {}

    bool find(char*, char* end, const char* from) override {
        matchBegin = literal.find(from, end);
        if (matchBegin == nullptr) return false;
        matchEnd = matchBegin + literal.length;
        return true;
    }

    const LineFilter* required() const override { return literal.length != 0 ? &set : nullptr; }

private:
    const Literal literal;
    const TextSet set;
};

class ExpressionSearch : public Search {
public:
    /// `isGrouped_`: the whole is one group more, which templates do not count. `must_`
    /// finds the lines that may match; null if there is no faster way.
    ExpressionSearch(const fxStr& text, bool isGrouped_, std::unique_ptr<const LineFilter> must_)
        : expression(text), isGrouped(isGrouped_), must(std::move(must_)) {}

    bool isValid() const { return expression.isValid(); }

    // The parts between zero bytes are searched as separate lines. A search behind a match
    // starts in the part of that match.
    bool find(char* line, char* end, const char* from) override {
        const char behind = *end;
        *end = 0;
        const bool isNew = from == line || from[-1] == 0;
        if (isNew) part = from;
        bool isFound =
            isFoundBy(isNew ? expression.search(part, from) : expression.searchNext(part, from));
        while (!isFound) {
            from += std::strlen(from) + 1;
            if (from > end) break;
            part = from;
            isFound = isFoundBy(expression.search(part, from));
        }
        *end = behind;
        return isFound;
    }

    const LineFilter* required() const override { return must.get(); }

    /// The template with the last match, which must still be there.
    std::string expand(const char* text) const override {
        std::string wanted = text;
        for (size_t at = 0; isGrouped && at + 1 < wanted.size(); ++at) {
            if (wanted[at] != '\\') continue;
            ++at;
            if (wanted[at] >= '1' && wanted[at] <= '8') ++wanted[at];
        }
        const fxregexp* const compiled = expression.expression();
        const long length = fxregsub(compiled, wanted.c_str(), nullptr, 0);
        std::string result(static_cast<size_t>(length), '\0');
        fxregsub(compiled, wanted.c_str(), result.data(), result.size() + 1);
        return result;
    }

private:
    bool isFoundBy(const fxregexp* found) {
        if (found == nullptr) return false;
        matchBegin = found->startp[0];
        matchEnd = found->endp[0];
        return true;
    }

    const fxRegEx expression;
    const bool isGrouped;
    const std::unique_ptr<const LineFilter> must;
    const char* part = nullptr;
};

// Finds nothing: there are no patterns.
class NoSearch : public Search {
public:
    bool find(char*, char*, const char*) override { return false; }
};

bool isWordCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// Matches with no word character before them. The expression itself checks the character
// behind.
class WordSearch : public Search {
public:
    explicit WordSearch(std::unique_ptr<Search> search_) : search(std::move(search_)) {}

    bool find(char* line, char* end, const char* from) override {
        while (search->find(line, end, from)) {
            if (search->matchBegin == line || !isWordCharacter(search->matchBegin[-1])) {
                matchBegin = search->matchBegin;
                matchEnd = search->matchEnd;
                return true;
            }
            from = search->matchBegin + 1;
            if (from > end) break;
        }
        return false;
    }
    const LineFilter* required() const override { return search->required(); }
    std::string expand(const char* text) const override { return search->expand(text); }

private:
    const std::unique_ptr<Search> search;
};

// What finds the lines that may match: one of the texts, which every match contains if
// `areRequired` and which are matches if `areAll`, or neighbours of bytes, if these are rare
// or make the search for the expression superfluous. Null if nothing does.
std::unique_ptr<const LineFilter> makeFilter(const std::string& expression, bool areRequired,
                                             bool areAll, const std::vector<std::string>& texts,
                                             const Options& options) {
    constexpr size_t most = 15000;  // in a million bytes
    const bool isWorth = areRequired && TextSet::worthOf(texts, options.ignoresCase) != 0;
    const bool isByte = isWorth && texts.size() == 1 && texts.front().size() == 1;
    const NeighbourSets sets = requiredNeighbours(expression);
    const bool areRare = sets.frequency() < (isByte    ? 1000 * frequencyOf(texts.front()[0])
                                             : isWorth ? 0
                                                       : most);
    const bool areEnough = sets.areAll && !isWorth && !options.needsPlaces();
    if (sets.areKnown() && (areRare || areEnough)) return std::make_unique<Neighbours>(sets);
    return isWorth ? std::make_unique<TextSet>(texts, options.ignoresCase, areAll) : nullptr;
}

}  // namespace

bool isGoodExpression(const char* text) {
    const char* message;
    fxregexp* const compiled = fxregcomp(text, &message);
    std::free(compiled);
    if (compiled == nullptr) complain(text, message);
    return compiled != nullptr;
}

std::unique_ptr<Search> makeSearch(const Options& options) {
    if (options.patterns.empty()) return std::make_unique<NoSearch>();
    std::string all;
    const char* separator = "";
    bool isLiteral = options.patterns.size() == 1 && !options.ignoresCase && !options.isWholeLine &&
                     !options.isWholeWord && options.replacement == nullptr;
    bool isRequired = true;                                      // one of the texts, by each match
    bool areAll = !options.isWholeLine && !options.isWholeWord;  // matches, wherever they are
    std::vector<std::string> texts;
    for (const std::string& pattern : options.patterns) {
        const bool isGuessed = options.kind == Options::guess;
        const bool isExpression =
            options.kind == Options::expression || (isGuessed && looksLikeExpression(pattern));
        if (isExpression &&
            (!isOfThisDialect(pattern, isGuessed) || !isGoodExpression(pattern.c_str())))
            return nullptr;
        isLiteral = isLiteral && !isExpression;
        if (isLiteral) return std::make_unique<LiteralSearch>(pattern);
        std::vector<std::string> some = {pattern};
        bool areAllHere = true;
        if (isExpression) some = requiredTexts(pattern, options.ignoresCase, areAllHere);
        areAll = areAll && areAllHere;
        isRequired = isRequired && !some.empty();
        texts.insert(texts.end(), some.begin(), some.end());
        const std::string part = isExpression ? pattern : quoted(pattern);
        (all += separator) += options.ignoresCase ? withoutCase(part) : part;
        separator = "|";
    }
    // In groups only where they are needed, because templates count groups.
    if (options.isWholeLine) {
        all = "^(" + all + ")$";
    } else if (options.isWholeWord) {
        all = '(' + all + ")\\>";
    }
    auto search =
        std::make_unique<ExpressionSearch>(fxStr(all), options.isWholeLine || options.isWholeWord,
                                           makeFilter(all, isRequired, areAll, texts, options));
    if (!search->isValid()) {
        const bool hasZero = all.find('\0') != std::string::npos;
        complain("the pattern",
                 hasZero ? "a zero byte in it" : "too long, or more than nine groups");
        return nullptr;
    }
    if (!options.isWholeWord) return search;
    return std::make_unique<WordSearch>(std::move(search));
}
