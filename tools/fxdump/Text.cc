#include "Text.h"

#include "fxds/streams/RecordParser.h"

namespace {

constexpr char digits[] = "0123456789abcdef";

// Not isprint(), whose result depends on the locale.
bool isPrintable(unsigned char byte) { return byte >= 0x20 && byte < 0x7F; }

void appendHex(std::string& text, unsigned char byte) {
    text += digits[byte >> 4U];
    text += digits[byte & 0xFU];
}

}  // namespace

std::string escaped(std::string_view bytes, size_t limit) {
    std::string text;
    for (const char c : bytes.substr(0, limit)) {
        const unsigned char byte = static_cast<unsigned char>(c);
        if (c == '\\' || c == '"') {
            text += '\\';
            text += c;
        } else if (isPrintable(byte)) {
            text += c;
        } else {
            text += "\\x";
            appendHex(text, byte);
        }
    }
    if (bytes.size() > limit) text += "...";
    return text;
}

std::string quoted(std::string_view bytes, size_t limit) {
    std::string text = '"' + escaped(bytes, limit) + '"';
    if (bytes.size() > limit) text += " (" + fxStreamParts::counted(bytes.size(), "byte") + ")";
    return text;
}

std::string idText(unsigned int id) { return "#" + std::to_string(id); }

std::string dumped(std::string_view bytes) {
    std::string text;
    for (size_t i = 0; i < bytesPerLine; ++i) {
        if (i < bytes.size()) {
            appendHex(text, static_cast<unsigned char>(bytes[i]));
            text += ' ';
        } else {
            text += "   ";
        }
        if (i == bytesPerLine / 2 - 1) text += ' ';
    }
    text += " |";
    for (const char c : bytes.substr(0, bytesPerLine)) {
        text += isPrintable(static_cast<unsigned char>(c)) ? c : '.';
    }
    return text + "|";
}
