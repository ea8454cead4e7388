#include "TextSet.h"

#include <algorithm>
#include <cctype>

// A few texts are searched by the library, one after the other. For many, a window as long
// as the shortest is moved through the bytes. Its last two bytes determine how far it may
// move on: to where some text has that pair, and by its whole length but one if none has.
// So it needs some length to be faster than an expression.

namespace {

constexpr size_t mostFew = 4;
constexpr size_t leastWindow = 4;

bool isLetter(char c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; }

bool areFew(const std::vector<std::string>& texts, bool ignoresCase) {
    return texts.size() <= mostFew &&
           (!ignoresCase || std::none_of(texts.begin(), texts.end(), [](const std::string& text) {
               return std::any_of(text.begin(), text.end(), isLetter);
           }));
}

size_t shortestOf(const std::vector<std::string>& texts) {
    size_t shortest = texts.empty() ? 0 : texts.front().size();
    for (const std::string& text : texts) shortest = std::min(shortest, text.size());
    return shortest;
}

}  // namespace

Literal::Literal(const std::string& text)
    : length(text.size()), pattern(text.data(), static_cast<unsigned int>(text.size())) {}

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

TextSet::TextSet(const std::vector<std::string>& texts_, bool ignoresCase) {
    if (areFew(texts_, ignoresCase)) {
        for (const std::string& text : texts_) few.push_back(std::make_unique<Literal>(text));
        return;
    }
    texts = texts_;
    for (unsigned int c = 0; c < 256; ++c) {
        plain[c] = static_cast<unsigned char>(ignoresCase ? std::tolower(static_cast<int>(c))
                                                          : static_cast<int>(c));
    }
    for (std::string& text : texts) {
        for (char& c : text) c = static_cast<char>(plain[static_cast<unsigned char>(c)]);
    }
    shortest = std::min<size_t>(shortestOf(texts), 255);
    moves.assign(pairs, static_cast<unsigned char>(shortest - 1));
    heads.assign(pairs, 0);
    nexts.assign(texts.size(), 0);
    for (size_t i = 0; i < texts.size(); ++i) enter(i);
}

const char* TextSet::find(const char* from, const char* end) const {
    if (few.size() == 1) return few.front()->find(from, end);
    return few.empty() ? findMany(from, end) : findFew(from, end);
}

// A single letter or space occurs nearly everywhere.
size_t TextSet::worthOf(const std::vector<std::string>& texts, bool ignoresCase) {
    const size_t shortest = shortestOf(texts);
    const bool isFew = areFew(texts, ignoresCase);
    if (shortest == 0 || (!isFew && shortest < leastWindow)) return 0;
    const bool isCommon = std::any_of(texts.begin(), texts.end(), [](const std::string& text) {
        const char c = text.front();
        return text.size() == 1 && (isLetter(c) || (c >= '0' && c <= '9') || c == ' ' || c == '\t');
    });
    return isCommon ? 0 : 8 * shortest - std::min(texts.size(), mostFew + 2);
}

// Private functions.

void TextSet::enter(size_t text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(texts[text][i]); };
    for (size_t i = 1; i < shortest; ++i) {
        unsigned char& move = moves[pair(byte(i - 1), byte(i))];
        move = std::min(move, static_cast<unsigned char>(shortest - 1 - i));
    }
    uint32_t& head = heads[pair(byte(shortest - 2), byte(shortest - 1))];
    nexts[text] = head;
    head = static_cast<uint32_t>(text) + 1;
}

// Whether one of the texts begins at the place, where a whole window fits.
bool TextSet::isAt(const char* place, const char* end) const {
    const auto byte = [&](size_t i) { return plain[static_cast<unsigned char>(place[i])]; };
    const auto left = static_cast<size_t>(end - place);
    uint32_t each = heads[pair(byte(shortest - 2), byte(shortest - 1))];
    for (; each != 0; each = nexts[each - 1]) {
        const std::string& text = texts[each - 1];
        size_t i = 0;
        while (i < text.size() && i < left && byte(i) == static_cast<unsigned char>(text[i])) ++i;
        if (i == text.size()) return true;
    }
    return false;
}

// In growing pieces, so that the bytes searched in vain for one text, because another one
// comes first, are in proportion to the distance to that.
const char* TextSet::findFew(const char* from, const char* end) const {
    for (size_t piece = 256; from != end; piece *= 2) {
        const auto left = static_cast<size_t>(end - from);
        const char* limit = from + std::min(piece, left);
        const char* first = nullptr;
        for (const std::unique_ptr<const Literal>& text : few) {
            const size_t behind = std::min(text->length - 1, static_cast<size_t>(end - limit));
            const char* const hit = text->find(from, limit + behind);
            if (hit != nullptr && hit < limit) first = limit = hit;
        }
        if (first != nullptr) return first;
        from = limit;
    }
    return nullptr;
}

const char* TextSet::findMany(const char* from, const char* end) const {
    const size_t window = shortest - 1;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(from);
    const auto count = static_cast<size_t>(end - from);
    for (size_t at = window; at < count;) {
        const unsigned char move = moves[pair(plain[bytes[at - 1]], plain[bytes[at]])];
        if (move == 0 && isAt(from + at - window, end)) return from + at - window;
        at += std::max<size_t>(move, 1);
    }
    return nullptr;
}
