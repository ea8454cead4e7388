#include "fxds/Str.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fxds/StackBuffer.h"
#include "fxds/TempStr.h"
#include "tests/fuzz/Input.h"
#include "tests/support/TestSeed.h"

namespace {

bool sharesEmptyByte(const fxStr& s) {
    return s.slength == 1 && s.data == &fxStr::emptyString && fxStr::emptyString == '\0';
}

// What must hold of every string at every moment.
void expectText(const fxStr& s, std::string_view text) {
    ASSERT_EQ(s.view(), text);
    ASSERT_EQ(s.data[s.slength - 1], '\0');
    ASSERT_EQ(s.data == &fxStr::emptyString, text.empty());
}

template <class T>
bool isIn(const T& object, const char* place) {
    const char* const begin = reinterpret_cast<const char*>(&object);
    return place >= begin && place < begin + sizeof object;
}

}  // namespace

TEST(Str, EmptyStringsShareOneByte) {
    const char* null = nullptr;
    for (const fxStr& empty : {fxStr(), fxStr(""), fxStr(null), fxStr("abc", 0), fxStr(0),
                               fxStr(0U), fxStr(std::string_view()), fxStr("abc").extract(3, 0),
                               fxStr(" \t ").trim(), fxStr(" \t ").trimRight(), fxStr().trim()}) {
        EXPECT_TRUE(sharesEmptyByte(empty));
    }
    void (*const ways[])(fxStr&) = {[](fxStr& s) { s.remove(2, 3); },  // wherever it starts
                                    [](fxStr& s) { s.remove(0, 10); },
                                    [](fxStr& s) { EXPECT_EQ(s.format("%c%300d", 0, 1), 1U); },
                                    [](fxStr& s) { s = static_cast<const char*>(nullptr); },
                                    [](fxStr& s) { s.adopt(strdup(""), 1); },
                                    [](fxStr& s) { expectText(fxStr(std::move(s)), "abc"); }};
    for (const auto leavesNothing : ways) {
        fxStr s("abc");
        leavesNothing(s);
        EXPECT_TRUE(sharesEmptyByte(s));
    }
}

TEST(Str, ConstructionAndAssignmentCopyWhatTheyAreTold) {
    fxStr s("hello");
    const fxStr& same = s;
    s = same;
    s = std::move(const_cast<fxStr&>(same));
    const struct {
        fxStr made;
        std::string_view text;
    } cases[] = {{fxStr(5U), {"\0\0\0\0\0", 5}},
                 {fxStr(2), {"\0\0", 2}},
                 {fxStr("a\0b", 3), {"a\0b", 3}},
                 {fxStr("a\0b"), "a"},
                 {same, "hello"},
                 {fxStr("a longer text") | s, "a longer texthello"},
                 {fxStr(42, nullptr), "42"},
                 {fxStr(1.5F, nullptr), "1.5"},
                 {fxStr(0.1F, "%.3f"), "0.100"},
                 {fxStr(1e21, nullptr), "1e+21"},
                 {fxStr(0.1, "%g%%"), "0.1%"},
                 {fxStr(" \t a b\r\n").trim(), "a b"},
                 {fxStr(" \t a b\r\n").trimRight(), " \t a b"},
                 {fxStr("xxaxx").trim("x"), "a"},
                 {fxStr("abcdef").head(2), "ab"},
                 {fxStr("abcdef").tail(2), "ef"},
                 {same.copy(), "hello"}};
    for (const auto& c : cases) expectText(c.made, c.text);
    EXPECT_TRUE(s[0] == 'h' && s[4U] == 'o' && s[std::size_t{5}] == '\0');
    EXPECT_EQ(std::string(s.begin(), s.end()), "hello");
}

// Both with what is put together by hand and with what is left to the C library,
// in one format and around the room that the first has.
TEST(Str, PlainFormatsComeOutAsPrintfWritesThem) {
    const auto expectSame = [](const char* format, auto... values) {
        char expected[600];
        std::snprintf(expected, sizeof expected, format, values...);
        fxStr s("before");
        EXPECT_EQ(s.format(format, values...), std::strlen(expected) + 1) << format;
        EXPECT_STREQ(s.c_str(), expected);
    };
    const char* const none = nullptr;
    int written = 0;
    expectSame("%s: %d, %u%%%lld", "text", INT_MIN, UINT_MAX, LLONG_MIN);
    expectSame("%ld%lu.<%s>", LONG_MIN, ULONG_MAX, none);
    expectSame("%s%5d%d%c%x", "a", 3, 1, 'x', 255);
    expectSame("%o|%-20s|%*d|%.2s|%ld|%Lf|%p%n", UINT_MAX, "left", 5, 42, "cut", LONG_MIN, 2.5L,
               static_cast<void*>(nullptr), &written);
    EXPECT_GT(written, 40);
    for (size_t length = 240; length < 260; ++length) {
        expectSame("%s%d", std::string(length, 'x').c_str(), 123456);
        expectSame("-%s", std::string(length, 'x').c_str());
    }
}

// A zero ends the text; what comes before an error stays, however long it is.
TEST(Str, FormatsEndAtZerosAndErrors) {
    const struct {
        const char* format;
        std::string text;
    } cases[] = {{"%d ab%cd", "7 ab"}, {"load 50%", "load 50"},
                 {"%d%", "7"},         {"a %d%lc b", "a 7"},
                 {"%d%c%", "7"},       {"%400d%lc", std::string(399, ' ') + "7"}};
    for (const auto& c : cases) {
        fxStr s("before");
        const char* volatile format = c.format;  // compilers look into formats
        EXPECT_EQ(s.format(format, 7, 0x4E00), c.text.size() + 1) << c.format;
        expectText(s, c.text);
    }
}

// The address sanitizer moves a block whenever it grows.
TEST(Str, AppendsFindRoom) {
    fxStr s;
    s.setMaxLength(100);
    EXPECT_TRUE(sharesEmptyByte(s));
    int blocks = 0;
    for (const char* block = nullptr; s.length() < 10000; s.append('x')) {
        blocks += std::exchange(block, s.data) != s.data;
    }
    EXPECT_LE(blocks, 15);
    s.setMaxLength(20003);
    const char* const block = s.data;
    while (s.length() < 20003) s.append('x');
    EXPECT_EQ(s.data, block);
}

TEST(Str, CaseChangesTakeEveryByte) {
    fxStr s("aZ\0\xe4[9", 6);
    s.raise();
    expectText(s, std::string_view("AZ\0\xe4[9", 6));
    s.lower();
    expectText(s, std::string_view("az\0\xe4[9", 6));
}

// Edits, tokens, formats and items of streams against std::string.
TEST(Str, AgreesWithModel) {
    std::mt19937 rng(testSeed());
    for (int round = 0; round < 2000; ++round) {
        std::vector<std::uint8_t> decisions(rng() % 3000);
        for (std::uint8_t& byte : decisions) byte = static_cast<std::uint8_t>(rng());
        LLVMFuzzerTestOneInput(decisions.data(), decisions.size());
    }
}

TEST(Str, CountsOfZeroAskForTheTextsLength) {
    fxStr s("b");
    s.append("c");
    s.insert("a", 0);
    s.insert('-', 1);
    expectText(s, "a-bc");
    s.replace("xy", 2);
    s.append(s.c_str() + 2);
    s.append("");
    s.insert("", 3);
    expectText(s, "a-xyxy");
}

// The model tokenises, which searches in all four ways; these are the rest.
TEST(Str, SearchesTakeBytesAndSets) {
    const fxStr s("a,\0;c,", 6);
    const unsigned int found[][2] = {
        {s.next(0, ','), 1},  {s.next(2, ';'), 3},  {s.next(0, ";,"), 1},  // up to a zero
        {s.next(2, ""), 6},   {s.next(9, 'a'), 6},  {s.next(9, "a"), 6},  {s.skip(9, 'x'), 6},
        {s.skip(9, "x"), 6},  {s.skip(0, ",a"), 2}, {s.nextR(5, ','), 2}, {s.nextR(5, ";,"), 4},
        {s.nextR(0, ','), 0}, {s.skipR(6, ','), 5}, {s.skipR(5, "c;"), 3}};
    for (const auto& [index, expected] : found) EXPECT_EQ(index, expected);
    unsigned int pos = 0;
    EXPECT_EQ(s.token(pos, ";,"), "a");
    EXPECT_EQ(s.tokenR(pos = 5, ";,"), "c");
}

TEST(Str, OrderEndsAtZeroBytesAndEqualityDoesNot) {
    const fxStr a("ab\0x", 4), b("ab");
    EXPECT_TRUE(compare(a, b) == 0 && compare(a, "ab") == 0 && !(a < b || a > b));
    EXPECT_TRUE(a <= b && a >= b && a != b && a != "ab" && "ab" != a && a != std::string("ab"));
    EXPECT_TRUE(b == "ab" && "ab" == b && b == fxStr("ab") && std::string("ab") == b);
    EXPECT_TRUE(b < "b" && "b" > b && b <= "ab" && "aa" <= b && b >= "aa" && "b" >= b && "a" < b);
    EXPECT_TRUE(fxStr("\xff") > "a");  // bytes are unsigned here
    EXPECT_TRUE(fxStr() == static_cast<const char*>(nullptr));
    EXPECT_TRUE(compare("a", b) < 0 && compare("b", "a") > 0);
}

TEST(Str, HashesAreAsStated) {
    const std::pair<const char*, unsigned long> cases[] = {
        {"", 0},
        {"a", 0x0800000000000000},
        {"ab", 0x1308000000000000},
        {"abcdefgh", 0x433b332b231b1308},
        {"abcdefghi", 0x6067666564636261},
        {"abcdefghijkl", 0x4b7c756d64636261},
        {"abcdefghijklmno", 0x53544d467f706a61},
        {"abcdefghijklmnop", 0xeb1c150e07383129},
    };
    for (const auto& [text, hash] : cases) EXPECT_EQ(fxStr(text).hash(), hash) << text;
    EXPECT_EQ(fxStr("12345678abcd").hash(), fxStr("12345678wxyz").hash());
    EXPECT_EQ(fxStr("0123456789abcdef").hash(), fxStr("0123456789abcdefgh").hash());
}

TEST(Str, DelimitersBelongToTheirStream) {
    std::istringstream commas("a,b"), lines("a,b\n");
    fxStr a, line, b;
    EXPECT_EQ(&_delimiter(commas, ','), &commas);
    commas >> a;
    lines >> line;
    commas >> _delimiter('\n') >> b;
    EXPECT_TRUE(a == "a" && line == "a,b" && b == "b" && lines.good());
    EXPECT_TRUE(commas && commas.eof());  // the last item had no delimiter
}

TEST(Str, AThrowingStreamLeavesAWholeString) {
    std::istringstream in("an item without an end");
    in.exceptions(std::ios_base::eofbit);
    fxStr s;
    EXPECT_THROW(in >> s, std::ios_base::failure);
    EXPECT_EQ(s.data[s.length()], '\0');
    EXPECT_TRUE(s.view().substr(0, 7) == "an item");
}

TEST(Str, OutputEndsAtAZeroByte) {
    std::ostringstream out;
    out.width(5);
    out << fxStr("ab\0c", 4) << '|' << fxStr() << '|';
    EXPECT_EQ(out.str(), "   ab||");
}

TEST(TempStr, AChainMakesOneObject) {
    const fxStr a("a"), b("b"), zero("a\0b", 3), empty;
    const fxStr joined = "<" | a | ", " | b | ">";
    EXPECT_EQ(joined, "<a, b>");
    fxTempStr t = a | b;
    EXPECT_EQ(&(t | "c"), &t);
    EXPECT_EQ(&(t | a), &t);
    EXPECT_EQ(t.view(), "abca");
    EXPECT_EQ((a | static_cast<const char*>(nullptr)).view(), "a");
    EXPECT_EQ((a | b) | (b | a), "abba");  // the right side becomes a string first
    EXPECT_EQ(std::string("<") | a | std::string("\0>", 2), std::string("<a\0>", 4));
    EXPECT_EQ(fxStr(zero | zero).view(), std::string_view("a\0ba\0b", 6));
    fxStr s("old");
    s = s | "/" | s;
    EXPECT_EQ(s, "old/old");
    s = empty | empty;
    EXPECT_EQ(s.data, &fxStr::emptyString);
}

// A concatenation of 100 bytes is inline, a copy of them has a block.
TEST(TempStr, AgreesWithModel) {
    std::mt19937 rng(testSeed());
    const std::string text(120, 'x');
    for (int round = 0; round < 3000; ++round) {
        const auto first = static_cast<unsigned int>(rng() % 120);
        auto t = std::make_unique<fxTempStr>(text.data(), first, "yz", 2);
        std::string model = text.substr(0, first) + "yz";
        bool isInline = model.size() < 100;
        for (int step = 0; step < 6; ++step) {
            const size_t at = rng() % model.size(), n = rng() % std::min<size_t>(model.size(), 9);
            if (rng() % 4 == 0) {
                const fxTempStr& same = *t;
                *t = same;
                auto copy = std::make_unique<fxTempStr>(*t);
                if (rng() % 2 == 0) *(copy = std::make_unique<fxTempStr>("", 0, "", 0)) = *t;
                t = std::move(copy);
                isInline = model.size() < 99;
            } else {
                const std::string piece = model.substr(at, n);
                const bool isOwn = rng() % 2 == 0;
                t->concat(isOwn ? t->data + at : piece.data(),
                          static_cast<unsigned int>(piece.size()));
                model += piece;
                isInline = isInline && model.size() < 100;
            }
            ASSERT_EQ(t->view(), model);
            ASSERT_EQ(t->c_str()[t->length()], '\0');
            ASSERT_EQ(isIn(*t, t->data), isInline) << model.size();
        }
    }
}

// It grows by the increment or by the shortfall; a copy has room for as much.
TEST(StackBuffer, AgreesWithModel) {
    std::mt19937 rng(testSeed());
    const std::string text(1200, 'x');
    for (int round = 0; round < 2000; ++round) {
        const unsigned int increments[] = {0, 1, 7, 700};
        const unsigned int increment = increments[rng() % 4];
        auto buffer = std::make_unique<fxStackBuffer>(increment);
        const size_t least = increment != 0 ? increment : 500;
        std::string model;
        size_t capacity = 1000;
        for (int step = 0; step < 8; ++step) {
            const size_t at = rng() % (model.size() + 1);
            const std::string piece =
                rng() % 2 == 0 ? model.substr(at, rng() % 900) : text.substr(rng() % 1200);
            const auto n = static_cast<unsigned int>(piece.size());
            const size_t needed = model.size() + n, room = capacity;
            switch (rng() % 5) {
                case 0:
                    buffer->addc('c');
                    model += 'c';
                    if (model.size() > room) capacity += least;
                    break;
                case 1:
                    buffer = std::make_unique<fxStackBuffer>(*buffer);
                    EXPECT_EQ(buffer->growthIncrement, least);
                    break;
                case 2:
                    if (rng() % 2 == 0) buffer->reset(), model.clear();
                    if (rng() % 4 == 0) buffer->grow(n), capacity += std::max<size_t>(n, least);
                    break;
                default:
                    buffer->put(
                        piece == model.substr(at, n) ? buffer->getBase() + at : piece.data(), n);
                    model += piece;
                    if (needed > room) capacity += std::max(needed - room, least);
            }
            ASSERT_EQ(buffer->view(), model);
            ASSERT_EQ(buffer->capacity(), capacity);
            ASSERT_EQ(isIn(*buffer, buffer->base), capacity == 1000);
        }
    }
    fxStackBuffer none;
    none.growthIncrement = 0;  // taken as 1
    none.put(text.data(), 1000), none.put(nullptr, 0), none.addc('!');
    EXPECT_EQ(none.capacity(), 1001U);
}

TEST(StrDeathTest, LengthsThatDoNotFitAreFatal) {
    EXPECT_DEATH(fxStr(UINT_MAX), "does not fit 32 bits");
    fxStr s("a");
    EXPECT_DEATH(s.append("b", UINT_MAX), "does not fit 32 bits");
    EXPECT_DEATH(s.resize(UINT_MAX), "does not fit 32 bits");
    EXPECT_DEATH(s.setMaxLength(UINT_MAX), "does not fit 32 bits");
    EXPECT_DEATH(fxStr::number(1, 37), "37 is no base of numbers");
    EXPECT_DEATH(fxTempStr("", UINT_MAX, "", 1), "does not fit 32 bits");
    EXPECT_DEATH(fxTempStr("", 0, "", 0).concat("", UINT_MAX), "does not fit 32 bits");
}

#ifdef FXDS_CHECKED
TEST(StrDeathTest, CheckedBuildsTestRanges) {
    fxStr s("abc");
    EXPECT_DEATH(s.extract(2, 2), "precondition");
    EXPECT_DEATH(s.tail(4), "precondition");
    EXPECT_DEATH(s.remove(2, 2), "precondition");
    EXPECT_DEATH(s.insert("x", 4), "precondition");
    EXPECT_DEATH(s.replace("xy", 2), "precondition");
    EXPECT_DEATH(s[-1], "precondition");
    s.setMaxLength(1000);  // and that nothing else sets the block
    EXPECT_DEATH((s.data = strdup("abc"), s.append('d')), "precondition");
}
#endif
