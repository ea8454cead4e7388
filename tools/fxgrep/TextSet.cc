#include "TextSet.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "Neighbours.h"
#include "fxds/search/ByteVectors.h"

// A single text is searched by the library. Of a few, two neighbouring bytes each are
// searched, for all at once, sixteen places at a time. For many, a window as long as the
// shortest is moved through the bytes. Its last two bytes determine how far it may move on:
// to where some text has that pair, and by its whole length but one if none has. So it needs
// some length to be faster than an expression.

namespace {

constexpr size_t mostFew = 8;
constexpr size_t leastWindow = 4;

bool isLetter(char c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; }

size_t shortestOf(const std::vector<std::string>& texts) {
    size_t shortest = texts.empty() ? 0 : texts.front().size();
    for (const std::string& text : texts) shortest = std::min(shortest, text.size());
    return shortest;
}

bool areFew(const std::vector<std::string>& texts, bool ignoresCase) {
    return (texts.size() == 1 || (texts.size() <= mostFew && shortestOf(texts) >= 2)) &&
           (!ignoresCase || std::none_of(texts.begin(), texts.end(), [](const std::string& text) {
               return std::any_of(text.begin(), text.end(), isLetter);
           }));
}

// Where the rarest two neighbours are. Of equally rare ones the last, as texts that are
// alternatives of one expression often end alike.
size_t rarestPair(const std::string& text) {
    const auto frequency = [&](size_t at) {
        return frequencyOf(text[at]) * frequencyOf(text[at + 1]);
    };
    size_t rarest = 0;
    for (size_t at = 1; at + 1 < text.size(); ++at) {
        if (frequency(at) <= frequency(rarest)) rarest = at;
    }
    return rarest;
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

TextSet::TextSet(const std::vector<std::string>& texts_, bool ignoresCase, bool areAll)
    : LineFilter(areAll) {
    const bool isFew = areFew(texts_, ignoresCase);
    if (isFew && texts_.size() == 1) single = std::make_unique<Literal>(texts_.front());
    if (single != nullptr) return;
    for (size_t i = 0; isFew && i < texts_.size(); ++i) {
        const size_t at = rarestPair(texts_[i]);
        few.push_back({texts_[i], at});
        const std::string two = texts_[i].substr(at, 2);
        if (std::find(pairs.begin(), pairs.end(), two) == pairs.end()) pairs.push_back(two);
    }
    if (isFew) return;
    texts = texts_;
    for (unsigned int c = 0; c < 256; ++c) {
        plain[c] = static_cast<unsigned char>(ignoresCase ? std::tolower(static_cast<int>(c))
                                                          : static_cast<int>(c));
    }
    for (std::string& text : texts) {
        for (char& c : text) c = static_cast<char>(plain[static_cast<unsigned char>(c)]);
    }
    shortest = std::min<size_t>(shortestOf(texts), 255);
    moves.assign(pairCount, static_cast<unsigned char>(shortest - 1));
    heads.assign(pairCount, 0);
    nexts.assign(texts.size(), 0);
    for (size_t i = 0; i < texts.size(); ++i) enter(i);
}

const char* TextSet::find(const char* from, const char* end) const {
    if (single != nullptr) return single->find(from, end);
    switch (pairs.size()) {
        case 0:
            return findMany(from, end);
        case 1:
            return findPairs<1>(from, end);
        case 2:
            return findPairs<2>(from, end);
        case 3:
        case 4:
            return findPairs<4>(from, end);
        default:
            return findPairs<mostFew>(from, end);
    }
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
    return isCommon ? 0 : 8 * shortest - std::min<size_t>(texts.size(), 6);
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

// The place, if one of the texts is around it.
const char* TextSet::checkPair(const char* place, const char* from, const char* end) const {
    for (const auto& [text, before] : few) {
        if (static_cast<size_t>(place - from) >= before &&
            static_cast<size_t>(end - place) >= text.size() - before &&
            std::memcmp(place - before, text.data(), text.size()) == 0)
            return place;
    }
    return nullptr;
}

// Searches for at most `count` pairs; the last one is used several times.
template <size_t count>
const char* TextSet::findPairs(const char* from, const char* end) const {
    fxByteVectors::Pairs<count> vectors;
    for (size_t i = 0; i < count; ++i) {
        const std::string& two = pairs[std::min(i, pairs.size() - 1)];
        vectors.set(i, static_cast<unsigned char>(two[0]), static_cast<unsigned char>(two[1]));
    }
    const auto check = [&](const char* place) { return checkPair(place, from, end); };
    const char* p = from;
    for (; static_cast<size_t>(end - p) > fxByteVectors::vectorSize;
         p += fxByteVectors::vectorSize) {
        const char* const found = fxByteVectors::firstAmong(vectors.areAt(p), p, check);
        if (found != nullptr) return found;
    }
    for (; p != end; ++p) {
        if (checkPair(p, from, end) != nullptr) return p;
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
