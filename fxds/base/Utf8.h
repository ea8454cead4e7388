// Characters of UTF-8. Private to the library and the tools.
#ifndef FXDS_BASE_UTF8_H
#define FXDS_BASE_UTF8_H

#include <cstddef>
#include <string_view>

/// The length in bytes of the UTF-8 character at the start of the text; 0 if there is none.
/// Requires: the text is not empty.
inline size_t fxUtf8Length(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80) return 1;
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
    }
    // Neither longer than necessary, nor a surrogate, nor beyond the last character.
    const unsigned char second = byte(1);
    if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F)) return 0;
    if ((first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) return 0;
    return length;
}

#endif
