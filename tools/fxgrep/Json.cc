#include "Json.h"

#include <cstdio>

#include "fxds/base/Utf8.h"

std::string jsonText(std::string_view text) {
    std::string result = "\"";
    while (!text.empty()) {
        const size_t length = fxUtf8Length(text);
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
