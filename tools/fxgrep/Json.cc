#include "Json.h"

#include <cstdio>

size_t characterLength(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80) return 1;
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
    }
    // Neither longer than need be, nor a surrogate, nor beyond the last character.
    const unsigned char second = byte(1);
    if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F)) return 0;
    if ((first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) return 0;
    return length;
}

std::string jsonText(std::string_view text) {
    std::string result = "\"";
    while (!text.empty()) {
        const size_t length = characterLength(text);
        const char c = text.front();
        if (length == 0) {
            result += "\\ufffd";
        } else if (static_cast<unsigned char>(c) < ' ') {
            char code[8];
            std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned int>(c));
            result += code;
        } else {
            if (c == '"' || c == '\\') result += '\\';
            result += text.substr(0, length);
        }
        text.remove_prefix(length != 0 ? length : 1);
    }
    return result += '"';
}
