#include "flow/ValueType.h"

#include <charconv>
#include <system_error>

// Texts of numbers are the shortest that read back as the same number.

const char* fxFlowDeliveryName(fxFlowDelivery delivery) {
    switch (delivery) {
        case fxFlowDelivery::urgent:
            return "urgent";
        case fxFlowDelivery::newest:
            return "newest";
        case fxFlowDelivery::now:
            return "now";
        case fxFlowDelivery::queued:
            break;
    }
    return "queued";
}

namespace {

template <class Number>
bool numberFrom(const std::string& text, Number& value) {
    Number read = 0;
    const char* const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, read);
    if (result.ec != std::errc() || result.ptr != end) return false;
    value = read;
    return true;
}

template <class Number>
std::string textFrom(Number value) {
    const Number size = std::fabs(value);
    const bool isUsual = value == 0 || (size >= Number(1e-4) && size < Number(1e15));
    char digits[64];
    const std::to_chars_result result =
        isUsual ? std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed)
                : std::to_chars(digits, digits + sizeof digits, value);
    return std::string(digits, result.ptr);
}

// Whether an element of an array is written without quotes.
bool isBare(std::string_view text) {
    return !text.empty() && text.find_first_of("\",\\") == std::string_view::npos &&
           text.front() != ' ' && text.back() != ' ';
}

// The element that begins at `at`, which is moved behind it; false for none.
bool elementFrom(const std::string& text, size_t& at, std::string& element) {
    element.clear();
    if (at == text.size() || text[at] != '"') {
        const size_t end = std::min(text.find(',', at), text.size());
        element = text.substr(at, end - at);
        at = end;
        return isBare(element);
    }
    for (++at; at < text.size() && text[at] != '"'; ++at) {
        if (text[at] == '\\' && ++at == text.size()) return false;
        element += text[at];
    }
    return at++ < text.size();
}

}  // namespace

std::string fxFlowDetail::textOf(bool value) { return value ? "yes" : "no"; }

std::string fxFlowDetail::textOf(long value) { return std::to_string(value); }

std::string fxFlowDetail::textOf(float value) { return textFrom(value); }

std::string fxFlowDetail::textOf(double value) { return textFrom(value); }

std::string fxFlowDetail::textOf(const fxStrArray& value) {
    std::string text;
    const char* separator = "";
    for (const fxStr& each : value) {
        text += separator;
        separator = ", ";
        if (isBare(each.view())) {
            text += each.view();
            continue;
        }
        text += '"';
        for (const char c : each.view()) {
            if (c == '"' || c == '\\') text += '\\';
            text += c;
        }
        text += '"';
    }
    return text;
}

bool fxFlowDetail::fromText(const std::string& text, bool& value) {
    const bool isYes = text == "yes" || text == "true";
    if (!isYes && text != "no" && text != "false") return false;
    value = isYes;
    return true;
}

bool fxFlowDetail::fromText(const std::string& text, long& value) {
    return numberFrom(text, value);
}

bool fxFlowDetail::fromText(const std::string& text, double& value) {
    return numberFrom(text, value);
}

bool fxFlowDetail::fromText(const std::string& text, fxStrArray& value) {
    fxStrArray read;
    std::string element;
    for (size_t at = 0; at < text.size();) {
        if (!elementFrom(text, at, element)) return false;
        read.append(fxStr(std::string_view(element)));
        if (at == text.size()) break;
        if (text[at] != ',' || ++at == text.size()) return false;
        while (at < text.size() && text[at] == ' ') ++at;
        if (at == text.size()) return false;
    }
    value = read;
    return true;
}
