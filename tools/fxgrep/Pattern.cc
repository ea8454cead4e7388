#include "Pattern.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "fxds/RegEx.h"

// The patterns become one: a literal text where there is only one and its letters
// are as they are, otherwise one expression with an alternative for each.

const char* Literal::find(const char* from, const char* end) const {
    constexpr size_t part = size_t{1} << 30;
    for (;;) {
        const size_t left = static_cast<size_t>(end - from);
        const int at = pattern.findBuffer(from, static_cast<unsigned int>(std::min(left, part)));
        if (at >= 0) return from + at;
        if (left <= part) return nullptr;
        from += part - length;
    }
}

namespace {

class LiteralSearch : public Search {
public:
    explicit LiteralSearch(const fxStr& text) : literal(text) {}

    bool find(char*, char* end, const char* from) override {
        matchBegin = literal.find(from, end);
        if (matchBegin == nullptr) return false;
        matchEnd = matchBegin + literal.length;
        return true;
    }

    const Literal* required() const override { return literal.length != 0 ? &literal : nullptr; }

private:
    const Literal literal;
};

class ExpressionSearch : public Search {
public:
    /// `isGrouped_`: the whole is a group of its own, which templates do not count.
    ExpressionSearch(const fxStr& text, bool isGrouped_) : expression(text), isGrouped(isGrouped_) {
        const fxregexp* const compiled = expression.expression();
        if (compiled == nullptr || compiled->regmust == nullptr) return;
        must = std::make_unique<Literal>(compiled->regmust);
    }

    bool isValid() const { return expression.isValid(); }

    // What lies between zero bytes is searched as a line of its own. Going on
    // behind a match starts in the part of that match.
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

    const Literal* required() const override { return must.get(); }

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
    std::unique_ptr<Literal> must;
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

// Matches that no character of a word precedes. The expression itself sees to what
// follows.
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
    const Literal* required() const override { return search->required(); }
    std::string expand(const char* text) const override { return search->expand(text); }

private:
    const std::unique_ptr<Search> search;
};

// An expression that matches exactly this text.
std::string quoted(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (std::strchr("\n$().[^|*+?\\", c) != nullptr) result += '\\';
        result += c;
    }
    return result;
}

// The set that begins at `at`, behind the bracket and a ^; `at` then is behind its
// end. As the engine reads it: a bracket or a bar that comes first is one of the set.
std::vector<bool> readSet(const std::string& text, size_t& at) {
    std::vector<bool> set(256);
    bool isFirst = true;
    for (; at < text.size() && (text[at] != ']' || isFirst); ++at, isFirst = false) {
        unsigned int last = static_cast<unsigned char>(text[at]);
        const unsigned int first = last;
        if (at + 2 < text.size() && text[at + 1] == '-' && text[at + 2] != ']') {
            at += 2;
            last = static_cast<unsigned char>(text[at]);
        }
        for (unsigned int c = first; c <= last; ++c) set[c] = true;
    }
    if (at < text.size()) ++at;
    return set;
}

unsigned char otherCase(unsigned int c) {
    const int byte = static_cast<int>(c);
    return static_cast<unsigned char>(std::islower(byte) != 0 ? std::toupper(byte)
                                                              : std::tolower(byte));
}

// Brackets and bars stand where they mean themselves.
std::string writeSet(const std::vector<bool>& set, bool isNegated) {
    std::string members;
    for (unsigned int c = 1; c < 256; ++c) {
        if (set[c] && std::strchr("]^-", static_cast<int>(c)) == nullptr)
            members += static_cast<char>(c);
    }
    if (set[']']) members.insert(0, "]");
    if (set['^'] && members.empty() && !isNegated && !set['-']) return "\\^";
    if (set['^'] && members.empty() && !isNegated) return "(\\^|-)";
    if (set['^']) members += '^';
    if (set['-']) members += '-';
    return (isNegated ? "[^" : "[") + members + ']';
}

// The same expression for letters of either case.
std::string withoutCase(const std::string& text) {
    std::string result;
    for (size_t at = 0; at < text.size();) {
        const char c = text[at++];
        if (c == '\\' && at < text.size()) {
            (result += c) += text[at++];
        } else if (c == '[') {
            const bool isNegated = at < text.size() && text[at] == '^';
            if (isNegated) ++at;
            std::vector<bool> set = readSet(text, at);
            for (unsigned int letter = 'A'; letter <= 'Z'; ++letter) {
                const bool isIn = set[letter] || set[otherCase(letter)];
                set[letter] = set[otherCase(letter)] = isIn;
            }
            result += writeSet(set, isNegated);
        } else if (std::isalpha(static_cast<unsigned char>(c)) != 0) {
            (((result += '[') += c) +=
             static_cast<char>(otherCase(static_cast<unsigned char>(c)))) += ']';
        } else {
            result += c;
        }
    }
    return result;
}

// What other dialects write, and how it is written here.
const struct {
    const char* other;
    const char* here;
} dialects[] = {{"\\d", "write [0-9]"},
                {"\\D", "write [^0-9]"},
                {"\\w", "write [A-Za-z0-9_]"},
                {"\\W", "write [^A-Za-z0-9_]"},
                {"\\s", "write a set with a space and a tab in it"},
                {"\\S", "write [^...] with a space and a tab in it"},
                {"\\b", "write \\< for the start of a word, \\> for its end"},
                {"\\t", "write the tab itself"},
                {"\\n", "a line has none; give several patterns with -e"},
                {"[:digit:]", "write 0-9"},
                {"[:alpha:]", "write A-Za-z"},
                {"[:alnum:]", "write A-Za-z0-9"},
                {"[:upper:]", "write A-Z"},
                {"[:lower:]", "write a-z"},
                {"[:xdigit:]", "write 0-9A-Fa-f"},
                {"[:space:]", "write a space and a tab"}};

// The length of {2}, {2,} or {2,3} at `at`; 0 where there is none.
size_t countLength(const std::string& text, size_t at) {
    const size_t begin = at;
    if (at >= text.size() || text[at++] != '{') return 0;
    const size_t digits = at;
    while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) != 0) ++at;
    if (at == digits) return 0;
    if (at < text.size() && text[at] == ',') ++at;
    while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) != 0) ++at;
    return at < text.size() && text[at] == '}' ? at + 1 - begin : 0;
}

bool refuse(const std::string& what, const std::string& advice) {
    complain(what.c_str(), ("not known in expressions here: " + advice).c_str());
    return false;
}

// Tells of what other dialects mean something by and this one does not.
bool isOfThisDialect(const std::string& text) {
    for (size_t at = 0; at < text.size(); ++at) {
        const bool isInSet = text[at] == '[';
        for (const auto& [other, here] : dialects) {
            const bool isClass = other[0] == '[';
            if (text.compare(at + (isClass ? 1 : 0), std::strlen(other), other) == 0 &&
                isClass == isInSet) {
                return refuse(other, here);
            }
        }
        if (isInSet) {
            at += at + 1 < text.size() && text[at + 1] == '^' ? 2 : 1;
            readSet(text, at);
            --at;
        } else if (text[at] == '\\' && at + 1 < text.size()) {
            ++at;
            if (std::isalnum(static_cast<unsigned char>(text[at])) == 0) continue;
            return refuse(text.substr(at - 1, 2), "for the character itself write it alone");
        } else if (const size_t length = countLength(text, at)) {
            return refuse(text.substr(at, length),
                          "write what is repeated so often, or \\{ for a brace");
        }
    }
    return true;
}

bool looksLikeExpression(const std::string& text) {
    if (text.find_first_of(".+*?^$()[]|\\") != std::string::npos) return true;
    for (size_t at = 0; (at = text.find('{', at)) != std::string::npos; ++at) {
        if (countLength(text, at) != 0) return true;
    }
    return false;
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
    for (const std::string& pattern : options.patterns) {
        const bool isExpression = options.kind == Options::expression ||
                                  (options.kind == Options::guess && looksLikeExpression(pattern));
        if (isExpression && (!isOfThisDialect(pattern) || !isGoodExpression(pattern.c_str())))
            return nullptr;
        isLiteral = isLiteral && !isExpression;
        if (isLiteral) return std::make_unique<LiteralSearch>(fxStr(pattern));
        const std::string part = isExpression ? pattern : quoted(pattern);
        (all += separator) += options.ignoresCase ? withoutCase(part) : part;
        separator = "|";
    }
    // In groups only where they are needed: templates count groups.
    if (options.isWholeLine) {
        all = "^(" + all + ")$";
    } else if (options.isWholeWord) {
        all = '(' + all + ")\\>";
    }
    auto search =
        std::make_unique<ExpressionSearch>(fxStr(all), options.isWholeLine || options.isWholeWord);
    if (!search->isValid()) {
        const bool hasZero = all.find('\0') != std::string::npos;
        complain("the pattern",
                 hasZero ? "a zero byte in it" : "too long, or more than nine groups");
        return nullptr;
    }
    if (!options.isWholeWord) return search;
    return std::make_unique<WordSearch>(std::move(search));
}
