// fxStr against std::string: editing, searching, tokenising, formatting and
// reading from streams.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>

#include "fxds/Str.h"
#include "fxds/StrSet.h"
#include "tests/fuzz/Input.h"

namespace {

// Shows a text in pieces; with pieces of 0 bytes it has no buffer at all.
class PiecewiseBuffer : public std::streambuf {
public:
    PiecewiseBuffer(std::string all, size_t size) : text(std::move(all)), piece(size) {}

protected:
    int_type underflow() override {
        if (shown == text.size()) return traits_type::eof();
        char* const next = &text[shown];
        const size_t size = std::min(piece, text.size() - shown);
        shown += size;
        if (piece != 0) setg(next, next, next + size);
        return traits_type::to_int_type(*next);
    }
    int_type uflow() override {
        const int_type next = piece == 0 ? underflow() : std::streambuf::uflow();
        shown += piece == 0 && next != traits_type::eof();
        return next;
    }

private:
    std::string text;
    size_t piece, shown = 0;
};

void requireSame(const fxStr& s, const std::string& model) {
    FUZZ_REQUIRE(s.view() == model);
    FUZZ_REQUIRE(s.data[s.slength - 1] == '\0');
    FUZZ_REQUIRE((s.data == &fxStr::emptyString) == model.empty());
}

// One edit, whose source is a text of the input or a part of the string itself.
void edit(FuzzInput& input, fxStr& s, std::string& model) {
    const unsigned int pos = input.upTo(s.length());
    const unsigned int count = input.upTo(s.length() - pos);
    const unsigned int operation = input.upTo(15);
    const bool isOwn = operation % 2 != 0;
    const std::string text = isOwn ? model.substr(pos, count) : input.text(300);
    const char* source = isOwn ? s.data + pos : text.data();
    const auto n = static_cast<unsigned int>(text.size());
    const unsigned int target = input.upTo(s.length());
    const bool isCounted = n != 0 && target % 2 != 0;  // a count of 0 asks for strlen()
    const std::string_view view(source, n);
    switch (operation / 2) {
        case 0:
            if (isCounted) s.append(source, n);
            if (!isCounted) isOwn ? s.append(view) : s.append(fxStr(view));
            model += text;
            break;
        case 1:
            if (isCounted) s.insert(source, target, n);
            if (!isCounted) isOwn ? s.insert(view, target) : s.insert(fxStr(view), target);
            model.insert(target, text);
            break;
        case 2:
            if (n > s.length() - target) break;
            if (isCounted) s.replace(source, target, n);
            if (!isCounted) isOwn ? s.replace(view, target) : s.replace(fxStr(view), target);
            model.replace(target, n, text);
            break;
        case 3:
            if (isOwn) FUZZ_REQUIRE(s.cut(pos, count).view() == text);
            if (!isOwn) s.remove(pos, count);
            model.erase(pos, count);
            break;
        case 4:
            s.resize(input.upTo(600), 'x');
            model.resize(s.length());
            break;
        case 5:
            s = std::string_view(source, n);
            model = text;
            break;
        case 6:
            s.format("%s<%.*s>%*d", s.c_str(), static_cast<int>(n), source,
                     static_cast<int>(target), 7);
            model = model.c_str() + ("<" + std::string(text.c_str()) + ">") +
                    std::string(target > 1 ? target - 1 : 0, ' ') + "7";
            break;
        default:
            if (isCounted) s = fxStr(std::move(s));
            s.setMaxLength(count);
            if (isOwn && !s.isEmpty()) {  // another block has no room behind
                char* const block = static_cast<char*>(std::malloc(s.slength));
                std::memcpy(block, s.data, s.slength);
                s.adopt(block, s.slength);
                FUZZ_REQUIRE(s.data == block);
            }
            for (unsigned int i = 0; i <= count % 50; ++i) s.append(static_cast<char>(target));
            model.append(count % 50 + 1, static_cast<char>(target));
    }
}

// A key, whose text lies in its entry while it is short and has not grown.
void editAll(FuzzInput& input) {
    std::string model = input.text(20);
    fxStrSet keys;
    keys.add(fxStr(model));
    fxStr& s = const_cast<fxStr&>(*keys.begin());
    while (!input.isEmpty() && s.length() < 20000) {
        edit(input, s, model);
        requireSame(s, model);
    }
}

void tokeniseAll(FuzzInput& input) {
    const std::string set = input.text(4) + ',';
    const std::string text = input.rest();
    const auto n = static_cast<unsigned int>(set.size());
    const fxStr s(text);
    const auto token = [&](unsigned int& at) {
        return n == 1 ? s.token(at, set[0]) : s.token(at, set.data(), n);
    };
    const auto tokenBefore = [&](unsigned int& at) {
        return n == 1 ? s.tokenR(at, set[0]) : s.tokenR(at, set.data(), n);
    };
    unsigned int pos = 0;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find_first_of(set, begin), text.size());
        FUZZ_REQUIRE(token(pos).view() == text.substr(begin, end - begin));
        begin = std::min(text.find_first_not_of(set, end), text.size());
        FUZZ_REQUIRE(pos == begin);
    }
    pos = s.length();
    for (size_t end = text.size(); end > 0;) {
        const size_t begin = text.find_last_of(set, end - 1) + 1;  // npos + 1 is 0
        FUZZ_REQUIRE(tokenBefore(pos).view() == text.substr(begin, end - begin));
        end = begin == 0 ? 0 : text.find_last_not_of(set, begin - 1) + 1;
        FUZZ_REQUIRE(pos == end);
    }
}

// A conversion put together from the input, with an argument of its type.
void formatOne(FuzzInput& input) {
    const char flag = "-+ #0."[input.upTo(5)];
    const unsigned int width = input.upTo(700);
    const unsigned int precision = input.upTo(400);
    const std::string start = '%' + std::string(1, flag == '.' ? ' ' : flag) +
                              std::to_string(width) +
                              (flag == '.' ? '.' + std::to_string(precision) : std::string());
    const std::string number = input.text(8);
    double real = 0;
    std::memcpy(&real, number.data(), number.size());
    const int whole = static_cast<int>(input.upTo(65535)) - 32768;
    const std::string realFormat = start + "eEfgG"[input.upTo(4)];
    const std::string wholeFormat = start + "dioxXc"[input.upTo(5)];
    char expected[2000];
    std::snprintf(expected, sizeof expected, realFormat.c_str(), real);
    FUZZ_REQUIRE(fxStr(real, realFormat.c_str()).view() == expected);
    std::snprintf(expected, sizeof expected, wholeFormat.c_str(), whole);
    FUZZ_REQUIRE(fxStr(whole, wholeFormat.c_str()).view() == expected);
}

void readAll(FuzzInput& input) {
    const auto delimiter = static_cast<char>(input.byte());
    const std::string text = input.rest();
    PiecewiseBuffer buffer(text, text.size() % 8);
    std::istream in(&buffer);
    std::istringstream reference(text);
    in >> _delimiter(delimiter);
    fxStr item;
    std::string expected;
    while (std::getline(reference, expected, delimiter)) {
        FUZZ_REQUIRE(in >> item);
        requireSame(item, expected);
    }
    FUZZ_REQUIRE(!(in >> item));
    requireSame(item, "");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    switch (input.upTo(3)) {
        case 0:
            editAll(input);
            break;
        case 1:
            tokeniseAll(input);
            break;
        case 2:
            formatOne(input);
            break;
        default:
            readAll(input);
    }
    return 0;
}
