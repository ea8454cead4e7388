#include "Dialect.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "Options.h"
#include "TextSet.h"
#include "fxds/base/Utf8.h"

namespace {

// The set that begins at `at`, behind the bracket and a ^; `at` then is behind its end. As
// in the engine, a bracket or a bar that comes first is a member.
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

// Brackets and bars are placed where they are members.
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

// Notations of other dialects, and the equivalents here.
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
                {"(?", "groups are (x); for letters of either case there is -i"}};

// The names between brackets and colons in a set.
const struct {
    const char* name;
    const char* here;
} classes[] = {{"digit", "write 0-9"},
               {"alpha", "write A-Za-z"},
               {"alnum", "write A-Za-z0-9"},
               {"upper", "write A-Z"},
               {"lower", "write a-z"},
               {"xdigit", "write 0-9A-Fa-f"},
               {"space", "write a space and a tab"},
               {"blank", "write a space and a tab"}};

// The length of {2}, {2,}, {,3} or {2,3} at `at`; 0 if there is none.
size_t countLength(const std::string& text, size_t at) {
    const size_t begin = at;
    if (at >= text.size() || text[at++] != '{') return 0;
    const size_t counts = at;
    const auto skipDigits = [&] {
        while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) != 0) ++at;
    };
    skipDigits();
    if (at < text.size() && text[at] == ',') ++at;
    skipDigits();
    const bool hasDigits = at > counts && (text[counts] != ',' || at > counts + 1);
    return hasDigits && at < text.size() && text[at] == '}' ? at + 1 - begin : 0;
}

bool refuse(const std::string& what, const std::string& advice) {
    complain(what.c_str(), ("not known in expressions here: " + advice).c_str());
    return false;
}

// The advice for a notation of other dialects that begins at `at`, and its length; or null
// and 0.
const char* findAdvice(const std::string& text, size_t at, size_t& length) {
    for (const auto& [other, here] : dialects) {
        length = std::strlen(other);
        if (text.compare(at, length, other) == 0) return here;
    }
    length = 0;
    return nullptr;
}

// Checks the bytes between the brackets of a set. A class such as [:digit:] ends a set of
// this dialect with its colon: the bracket behind it is the set's.
bool isGoodSet(const std::string& members, char behind) {
    for (const char kind : {':', '.', '='}) {
        const size_t begin = members.find(std::string("[") + kind);
        if (begin == std::string::npos || members.size() < begin + 4 || members.back() != kind)
            continue;
        const std::string name = members.substr(begin + 2, members.size() - begin - 3);
        if (kind != ':' && behind != ']') continue;
        const auto* const known = std::find_if(std::begin(classes), std::end(classes),
                                               [&](const auto& each) { return name == each.name; });
        const bool isKnown = kind == ':' && known != std::end(classes);
        return refuse(members.substr(begin) + ']', isKnown ? known->here : "write the characters");
    }
    for (size_t at = 0; at < members.size(); ++at) {
        const size_t length = fxUtf8Length(std::string_view(members).substr(at));
        if (length > 1) {
            const std::string character = members.substr(at, length);
            return refuse(character, "a set is of bytes; write (" + character + "|x)");
        }
        size_t size = 0;
        const char* const advice = findAdvice(members, at, size);
        if (advice != nullptr && members[at] == '\\' &&
            std::strchr("<>", members[at + 1]) == nullptr)
            return refuse(members.substr(at, size) + " in a set", advice);
    }
    size_t backslashes = 0;
    while (backslashes < members.size() && members[members.size() - 1 - backslashes] == '\\') {
        ++backslashes;
    }
    if (backslashes % 2 == 0 || behind != ']') return true;
    return refuse("\\] in a set", "write ] first, and a backslash before another character");
}

// The byte behind the set that ends before `at`, if that is the next bracket.
char nextBracket(const std::string& text, size_t at) {
    const size_t next = text.find_first_of("[]", at);
    return next != std::string::npos ? text[next] : '\0';
}

// Checks a character outside of sets, `length` bytes long.
bool isGoodCharacter(const std::string& text, size_t at, size_t length, bool isGuessed) {
    if (text[at] == '\\' && length == 2) {
        const char c = text[at + 1];
        if (std::isalnum(static_cast<unsigned char>(c)) != 0)
            return refuse(text.substr(at, 2), "for the character itself write it alone");
        if (isGuessed && c == '|')
            return refuse("\\|", "alternatives are a|b; for the character use [|], -E or -F");
        if (isGuessed && c == '{' && at + 2 < text.size() &&
            std::isdigit(static_cast<unsigned char>(text[at + 2])) != 0)
            return refuse("\\{", "write what is repeated so often; for the brace use -E or -F");
    } else if (const size_t count = countLength(text, at)) {
        return refuse(text.substr(at, count),
                      "write what is repeated so often, or \\{ for a brace");
    } else if (length > 1 && at + length < text.size() &&
               std::strchr("*+?", text[at + length]) != nullptr) {
        const std::string character = text.substr(at, length);
        return refuse(text.substr(at, length + 1), "write (" + character + ")" + text[at + length]);
    }
    return true;
}

// Facts about the matches of a part of an expression.
struct Matches {
    bool areAll = false;             // `texts` are all possible matches
    std::vector<std::string> texts;  // where areAll
    std::vector<std::string> parts;  // each match contains one of these; empty if none are known

    // The first bytes, which may come behind others, and the last ones, which may come before
    // others; none where there may be no byte. What ^ and $ match is a newline or a zero
    // byte, but only for those on their other side.
    Bytes first = {};
    Bytes last = {};
    bool hasFirst = false;
    bool hasLast = false;
    bool isByte = false;            // one byte or several of a set, or ^ or $
    NeighbourSets neighbours = {};  // each match has some; or unknown
};

// The bytes that end a line for an expression.
Bytes lineEnds() { return Bytes().set(0).set('\n'); }

Matches oneByte(const Bytes& set) {
    Matches matches;
    matches.first = matches.last = set & ~lineEnds();
    matches.hasFirst = matches.hasLast = matches.isByte = true;
    matches.neighbours = {matches.last, Bytes().set()};
    return matches;
}

Matches oneByte(char c) {
    Matches matches = oneByte(Bytes().set(static_cast<unsigned char>(c)));
    matches.areAll = true;
    matches.texts = {std::string(1, c)};
    return matches;
}

Matches noByte() {
    Matches matches;
    matches.areAll = true;
    matches.texts = {""};
    return matches;
}

void preferRarer(NeighbourSets& some, const NeighbourSets& others) {
    if (others.areKnown() && (!some.areKnown() || others.frequency() < some.frequency()))
        some = others;
}

constexpr size_t mostTexts = 16;  // that are combined with others

// Reads an expression that compiles. Its facts may be incomplete, but are never wrong.
class Reader {
public:
    Reader(const std::string& text_, bool ignoresCase_) : text(text_), ignoresCase(ignoresCase_) {}

    Matches readAlternatives() {
        Matches all = readSequence();
        bool haveParts = collect(all);
        while (at < text.size() && (text[at] == '|' || text[at] == '\n')) {
            ++at;
            Matches next = readSequence();
            haveParts = collect(next) && haveParts;
            joinBytes(all, next);
            all.areAll =
                all.areAll && next.areAll && all.texts.size() + next.texts.size() <= mostTexts;
            all.texts.insert(all.texts.end(), next.texts.begin(), next.texts.end());
            all.parts.insert(all.parts.end(), next.parts.begin(), next.parts.end());
        }
        if (!haveParts) all.parts.clear();
        return all;
    }

    bool hasPlaces = false;  // whether it had ^, $, \< or \>

private:
    // For a whole alternative, the facts about its parts.
    bool collect(Matches& matches) const {
        if (matches.areAll) improve(matches.parts, matches.texts);
        return !matches.parts.empty();
    }

    Matches readSequence() {
        Matches all = noByte();  // the texts: all that the last pieces can be
        std::vector<Matches> pieces;
        while (at < text.size() && std::strchr("|)\n", text[at]) == nullptr) {
            Matches piece = readAtom();
            const char sign = at < text.size() ? text[at] : '\0';
            if (sign != '\0' && std::strchr("*+?", sign) != nullptr) ++at;
            if (sign == '*' || sign == '?') {
                piece.hasFirst = piece.hasLast = piece.isByte = false;
                piece.neighbours = {};
            }
            pieces.push_back(piece);
            if (sign == '?' && piece.areAll) {
                piece.texts.emplace_back();
                piece.parts.clear();
            } else if (sign == '*' || sign == '?') {
                piece.areAll = false;
                piece.texts.clear();
                piece.parts.clear();
            }
            const bool fits = piece.areAll && all.texts.size() * piece.texts.size() <= mostTexts;
            std::vector<std::string> longer;
            if (fits) {
                for (const std::string& before : all.texts) {
                    for (const std::string& behind : piece.texts) longer.push_back(before + behind);
                }
            }
            if (fits && sign != '+') {
                all.texts = std::move(longer);
                continue;
            }
            // The pieces before it are complete; its last repetition begins the following
            // text.
            improve(all.parts, fits ? longer : all.texts);
            improve(all.parts, piece.areAll ? piece.texts : piece.parts);
            all.areAll = false;
            all.texts = piece.areAll && piece.texts.size() <= mostTexts
                            ? piece.texts
                            : std::vector<std::string>{""};
        }
        if (!all.areAll) improve(all.parts, all.texts);
        addBytes(all, pieces);
        return all;
    }

    // For either of two alternatives, the facts about bytes.
    static void joinBytes(Matches& all, const Matches& next) {
        all.first |= next.first;
        all.last |= next.last;
        all.hasFirst = all.hasFirst && next.hasFirst;
        all.hasLast = all.hasLast && next.hasLast;
        const bool areKnown = all.neighbours.areKnown() && next.neighbours.areKnown();
        all.neighbours.left |= next.neighbours.left;
        all.neighbours.right |= next.neighbours.right;
        all.neighbours.areAll = false;
        if (!areKnown) all.neighbours = {};
    }

    // For a sequence of these pieces, the facts about bytes. Each place between two pieces
    // has neighbours if there are bytes on both sides of it.
    static void addBytes(Matches& all, const std::vector<Matches>& pieces) {
        std::vector<Matches> behind(pieces.size() + 1);  // the pieces from each one on
        for (size_t i = pieces.size(); i-- > 0;) {
            behind[i].first = pieces[i].first;
            behind[i].hasFirst = pieces[i].hasFirst || behind[i + 1].hasFirst;
            if (!pieces[i].hasFirst) behind[i].first |= behind[i + 1].first;
        }
        all.first = behind.front().first;
        all.hasFirst = behind.front().hasFirst;
        for (size_t i = 0; i < pieces.size(); ++i) {
            if (all.hasLast && behind[i].hasFirst)
                preferRarer(all.neighbours, {all.last, behind[i].first});
            preferRarer(all.neighbours, pieces[i].neighbours);
            if (pieces[i].hasLast) all.last.reset();
            all.last |= pieces[i].last;
            all.hasLast = all.hasLast || pieces[i].hasLast;
        }
        const size_t count = pieces.size();
        const bool areBytes = std::all_of(pieces.begin(), pieces.end(),
                                          [](const Matches& piece) { return piece.isByte; });
        const bool areTwo = count == 2 && pieces[0].hasLast && pieces[1].hasFirst;
        all.neighbours.areAll = areBytes && (count == 1 || areTwo);
    }

    Matches readAtom() {
        const char c = text[at++];
        if (c == '(') {
            Matches group = readAlternatives();
            ++at;
            return group;
        }
        if (c == '.') return oneByte(Bytes().set());
        if (c == '^' || c == '$') {
            Matches edge = noByte();
            (c == '^' ? edge.last : edge.first) = lineEnds();
            (c == '^' ? edge.hasLast : edge.hasFirst) = edge.isByte = hasPlaces = true;
            return edge;
        }
        if (c == '[') return readSetAtom();
        if (c != '\\' || at == text.size()) return oneByte(c);
        const char quotedOne = text[at++];
        if (quotedOne != '<' && quotedOne != '>') return oneByte(quotedOne);
        hasPlaces = true;
        return noByte();
    }

    Matches readSetAtom() {
        const bool isNegated = at < text.size() && text[at] == '^';
        if (isNegated) ++at;
        const std::vector<bool> set = readSet(text, at);
        Bytes bytes;
        for (size_t c = 0; c < set.size(); ++c) bytes[c] = set[c] != isNegated;
        Matches matches = oneByte(bytes);
        for (size_t c = 0; c < set.size() && !isNegated; ++c) {
            if (set[c]) matches.texts.emplace_back(1, static_cast<char>(c));
        }
        matches.areAll = !isNegated && matches.texts.size() <= mostTexts;
        return matches;
    }

    void improve(std::vector<std::string>& parts, const std::vector<std::string>& others) const {
        if (TextSet::worthOf(others, ignoresCase) > TextSet::worthOf(parts, ignoresCase))
            parts = others;
    }

    const std::string& text;
    const bool ignoresCase;
    size_t at = 0;
};

}  // namespace

bool looksLikeExpression(const std::string& text) {
    if (text.find_first_of(".+*?^$()[]|\\") != std::string::npos) return true;
    for (size_t at = 0; (at = text.find('{', at)) != std::string::npos; ++at) {
        if (countLength(text, at) != 0) return true;
    }
    return false;
}

bool isOfThisDialect(const std::string& text, bool isGuessed) {
    for (size_t at = 0; at < text.size();) {
        if (text[at] == '[') {
            at += at + 1 < text.size() && text[at + 1] == '^' ? 2 : 1;
            const size_t begin = at;
            readSet(text, at);
            const size_t end = at > begin && text[at - 1] == ']' ? at - 1 : at;
            if (!isGoodSet(text.substr(begin, end - begin), nextBracket(text, at))) return false;
            continue;
        }
        size_t length = 0;
        const char* const advice = findAdvice(text, at, length);
        if (advice != nullptr) return refuse(text.substr(at, length), advice);
        const bool isQuoted = text[at] == '\\' && at + 1 < text.size();
        length =
            isQuoted ? 2 : std::max<size_t>(1, fxUtf8Length(std::string_view(text).substr(at)));
        if (!isGoodCharacter(text, at, length, isGuessed)) return false;
        at += length;
    }
    return true;
}

std::string quoted(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (std::strchr("\n$().[^|*+?\\", c) != nullptr) result += '\\';
        result += c;
    }
    return result;
}

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

std::vector<std::string> requiredTexts(const std::string& expression, bool ignoresCase,
                                       bool& areAll) {
    Reader reader(expression, ignoresCase);
    const Matches all = reader.readAlternatives();
    areAll = all.areAll && all.parts == all.texts && !reader.hasPlaces;
    return all.parts;
}

NeighbourSets requiredNeighbours(const std::string& expression) {
    return Reader(expression, false).readAlternatives().neighbours;
}
