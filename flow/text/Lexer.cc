#include "flow/text/Lexer.h"

#include <algorithm>
#include <array>
#include <utility>

#include "fxds/base/Utf8.h"

// The lexer reads each byte a fixed number of times, whatever the text.

namespace {

constexpr std::string_view hexDigits = "0123456789abcdef";

std::array<bool, 256> bareBytes() {
    std::array<bool, 256> bare{};
    for (const char c : std::string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                         "0123456789_.+/:%-")) {
        bare[static_cast<unsigned char>(c)] = true;
    }
    return bare;
}

bool isBare(char c) {
    static const std::array<bool, 256> bare = bareBytes();
    return bare[static_cast<unsigned char>(c)];
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

int hexValue(char c) {
    const size_t value = hexDigits.find(c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c);
    return value < 16 ? static_cast<int>(value) : -1;
}

// Whether it is a control character, or one that XML does not allow. Requires: UTF-8.
bool isControl(std::string_view character) {
    const char first = character[0];
    if (character.size() == 1) return (first >= 0 && first < ' ') || first == '\x7F';
    if (character.size() == 2) return first == '\xC2' && character[1] < '\xA0';
    return character == "\xEF\xBF\xBE" || character == "\xEF\xBF\xBF";
}

// Moves the first character of the text to the end of `shown`, or its first byte as \xHH.
void appendPrintable(std::string_view& text, std::string& shown) {
    const size_t length = fxUtf8Length(text);
    const std::string_view character = text.substr(0, length);
    const auto byte = static_cast<unsigned char>(text[0]);
    const bool isShown = length != 0 && !isControl(character);
    if (isShown) {
        shown += character;
    } else {
        ((shown += "\\x") += hexDigits[byte / 16]) += hexDigits[byte % 16];
    }
    text.remove_prefix(isShown ? length : 1);
}

}  // namespace

bool fxFlowIsChannel(std::string_view text) {
    for (const char c : text) {
        const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
        if (!isLetter && !(c >= '0' && c <= '9')) return false;
    }
    return !text.empty();
}

bool fxFlowIsName(std::string_view text) {
    return fxFlowIsChannel(text) && !(text[0] >= '0' && text[0] <= '9');
}

bool fxFlowIsBare(std::string_view value) {
    for (const char c : value) {
        if (!isBare(c)) return false;
    }
    return !value.empty() && value.find("->") == std::string_view::npos;
}

std::string fxFlowInQuotes(std::string_view value) {
    std::string quoted = "\"";
    while (!value.empty()) {
        const char c = value.front();
        if (c == '"' || c == '\\') {
            (quoted += '\\') += c;
        } else if (c == '\n' || c == '\t') {
            quoted += c == '\n' ? "\\n" : "\\t";
        } else {
            appendPrintable(value, quoted);
            continue;
        }
        value.remove_prefix(1);
    }
    return quoted += '"';
}

std::string fxFlowDetail::printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) appendPrintable(text, shown);
    return shown;
}

std::string fxFlowToken::shown() const {
    if (kind == Kind::lineEnd) return "the end of the line";
    if (kind == Kind::textEnd) return "the end of the text";
    return fxFlowShown(text);
}

fxFlowLexer::fxFlowLexer(std::string_view text_, fxFlowFile file_, fxFlowProblems& problems_)
    : text(text_), file(std::move(file_)), problems(problems_) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (text.substr(0, byteOrderMark.size()) == byteOrderMark) here = byteOrderMark.size();
}

unsigned int fxFlowLexer::columnOf(size_t place) const {
    return static_cast<unsigned int>(place - lineBegin + 1);
}

void fxFlowLexer::tell(size_t place, const std::string& what) const {
    problems.add({file, line, columnOf(place)}, what);
}

// Whether a backslash here ends its line.
bool fxFlowLexer::isContinued() const {
    size_t end = here + 1;
    while (isBlank(at(end))) ++end;
    return end >= text.size() || text[end] == '\n';
}

// Blanks, comments, and ends of lines that go on. Returns whether there were some.
bool fxFlowLexer::skipBlanks() {
    const size_t begin = here;
    bool isPassing = goesOn;  // the next end of a line
    while (here < text.size()) {
        const char c = text[here];
        if (isBlank(c)) {
            ++here;
        } else if (c == '#') {
            here = std::min(text.find('\n', here), text.size());
        } else if (c == '\\' && isContinued()) {
            here = std::min(text.find('\n', here), text.size());
            isPassing = true;
        } else if (c == '\n' && isPassing) {
            lineBegin = ++here;
            ++line;
            isPassing = goesOn;
        } else {
            break;
        }
    }
    goesOn = false;
    return here != begin;
}

void fxFlowLexer::next(fxFlowToken& token) {
    typedef fxFlowToken::Kind Kind;
    const bool isFirst = here == lineBegin;
    token.isGlued = !skipBlanks() && !isFirst;
    token.text.clear();
    token.place = {file, line, columnOf(here)};
    if (here >= text.size()) {
        token.kind = Kind::textEnd;
    } else if (const char c = text[here]; c == '\n') {
        token.kind = Kind::lineEnd;
        lineBegin = ++here;
        ++line;
    } else if (c == '"') {
        takeQuoted(token);
    } else if (isArrow(here)) {
        token.kind = Kind::arrow;
        token.text = "->";
        here += 2;
        goesOn = true;
    } else if (isBare(c)) {
        takeWord(token);
    } else if (c != '\0' && std::string_view("=,(){}").find(c) != std::string_view::npos) {
        token.kind = Kind::sign;
        token.text = c;
        ++here;
        goesOn = c == ',';
    } else {
        takeUnknown(token);
    }
}

void fxFlowLexer::takeWord(fxFlowToken& token) {
    const size_t begin = here;
    while (here < text.size() && isBare(text[here]) && !isArrow(here)) ++here;
    token.kind = fxFlowToken::Kind::word;
    token.text = text.substr(begin, here - begin);
}

void fxFlowLexer::takeQuoted(fxFlowToken& token) {
    token.kind = fxFlowToken::Kind::quoted;
    const size_t begin = here++;
    while (here < text.size() && text[here] != '\n') {
        const char c = text[here];
        if (c == '"') {
            ++here;
            return;
        }
        if (c != '\\') {
            token.text += c;
            ++here;
        } else if (!takeEscape(token.text)) {
            token.kind = fxFlowToken::Kind::unknown;
        }
    }
    // A fault in a backslash may have hidden the end: that is one fault.
    if (isTelling && token.kind != fxFlowToken::Kind::unknown)
        tell(begin, "these quotes are not closed");
    token.kind = fxFlowToken::Kind::unknown;
}

// Returns false, and reports the problem, if there is no valid escape.
bool fxFlowLexer::takeEscape(std::string& value) {
    const size_t begin = here;
    const char c = at(begin + 1);
    here += 2;
    if (c == '"' || c == '\\') {
        value += c;
    } else if (c == 'n' || c == 't') {
        value += c == 'n' ? '\n' : '\t';
    } else if (c == 'x' && hexValue(at(begin + 2)) >= 0 && hexValue(at(begin + 3)) >= 0) {
        value += static_cast<char>(hexValue(at(begin + 2)) * 16 + hexValue(at(begin + 3)));
        here += 2;
    } else {
        here = begin + 1;
        if (isTelling)
            tell(begin,
                 R"(in quotes a backslash begins \" \\ \n \t or \xHH; one of its own is \\)");
        return false;
    }
    return true;
}

void fxFlowLexer::takeUnknown(fxFlowToken& token) {
    const size_t begin = here++;
    while ((static_cast<unsigned char>(at(here)) & 0xC0U) == 0x80U) ++here;  // the same character
    token.kind = fxFlowToken::Kind::unknown;
    token.text = text.substr(begin, here - begin);
    if (isTelling)
        tell(begin, "values with " + fxFlowShown(token.text) + " in them are written in quotes");
}
