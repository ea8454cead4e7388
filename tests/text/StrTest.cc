#include "fxds/Str.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

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

// Shows a text in pieces; with pieces of 0 bytes it has no buffer at all.
class PiecewiseBuffer : public std::streambuf {
public:
    PiecewiseBuffer(std::string all, size_t size) : text(std::move(all)), piece(size) {}

protected:
    int_type underflow() override {
        if (shown == text.size()) return traits_type::eof();
        if (piece != 0) {
            const size_t size = std::min(piece, text.size() - shown);
            setg(&text[shown], &text[shown], &text[shown] + size);
            shown += size;
            return traits_type::to_int_type(*gptr());
        }
        return traits_type::to_int_type(text[shown]);
    }
    int_type uflow() override {
        if (piece != 0) return std::streambuf::uflow();
        return shown == text.size() ? traits_type::eof() : traits_type::to_int_type(text[shown++]);
    }

private:
    std::string text;
    size_t piece;
    size_t shown = 0;
};

}  // namespace

TEST(Str, EmptyStringsShareOneByte) {
    const char* null = nullptr;
    for (const fxStr& empty : {fxStr(), fxStr(""), fxStr(null), fxStr("abc", 0), fxStr(0),
                               fxStr(0U), fxStr(std::string_view()), fxStr("abc").extract(3, 0)}) {
        EXPECT_TRUE(sharesEmptyByte(empty));
    }
    void (*const ways[])(fxStr&) = {[](fxStr& s) { s.remove(0, 3); },
                                    [](fxStr& s) { s.remove(2, 3); },  // wherever it starts
                                    [](fxStr& s) { s.remove(0, 10); },
                                    [](fxStr& s) { EXPECT_EQ(s.cut(0, 3), "abc"); },
                                    [](fxStr& s) { s.resize(0); },
                                    [](fxStr& s) { EXPECT_EQ(s.format("%s", ""), 1U); },
                                    [](fxStr& s) { EXPECT_EQ(s.format("%c%300d", 0, 1), 1U); },
                                    [](fxStr& s) { s = ""; },
                                    [](fxStr& s) { s.adopt(strdup(""), 1); },
                                    [](fxStr& s) { expectText(fxStr(std::move(s)), "abc"); }};
    for (const auto leavesNothing : ways) {
        fxStr s("abc");
        leavesNothing(s);
        EXPECT_TRUE(sharesEmptyByte(s));
    }
}

TEST(Str, ConstructionCopiesWhatItIsTold) {
    expectText(fxStr(5U), std::string_view("\0\0\0\0\0", 5));
    expectText(fxStr(2), std::string_view("\0\0", 2));
    expectText(fxStr("a\0b", 3), std::string_view("a\0b", 3));
    expectText(fxStr("a\0b"), "a");
}

TEST(Str, AssignmentSurvivesItself) {
    fxStr s("hello");
    const fxStr& same = s;
    s = same;
    expectText(s, "hello");
    s = std::move(const_cast<fxStr&>(same));
    expectText(s, "hello");
    s = fxStr("a longer text") | s;
    expectText(s, "a longer texthello");
    s = static_cast<const char*>(nullptr);
    expectText(s, "");
}

TEST(Str, MovingTheBytesMovesTheString) {
    alignas(fxStr) unsigned char from[sizeof(fxStr)];
    alignas(fxStr) unsigned char to[sizeof(fxStr)];
    new (from) fxStr("moved");
    std::memcpy(to, from, sizeof to);
    fxStr* s = reinterpret_cast<fxStr*>(to);
    s->append(" on");
    expectText(*s, "moved on");
    s->~fxStr();
}

TEST(Str, NumbersAreFormattedAsPrintfDoes) {
    expectText(fxStr(42, nullptr), "42");
    expectText(fxStr(INT_MIN, nullptr), "-2147483648");
    expectText(fxStr(1.5F, nullptr), "1.5");
    expectText(fxStr(0.1F, "%.3f"), "0.100");
    expectText(fxStr(1e21, nullptr), "1e+21");
    expectText(fxStr(0.1, "%g%%"), "0.1%");
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
    expectSame("%s: %d, %u", "text", INT_MIN, UINT_MAX);
    expectSame("%ld%lu.", LONG_MIN, ULONG_MAX);
    expectSame("%d%%", 40);
    expectSame("%s%5d", "a", 3);
    expectSame("%s and %lld", "a", LLONG_MIN);
    expectSame("%d%c%x", 1, 'x', 255);
    for (size_t length = 240; length < 260; ++length) {
        expectSame("%s%d", std::string(length, 'x').c_str(), 123456);
        expectSame("-%s", std::string(length, 'x').c_str());
    }
    const char* const none = nullptr;
    expectSame("<%s>", none);
    expectSame("%o|%-20s|%*d|%.2s|%ld|%Lf|%p", UINT_MAX, "left", 5, 42, "cut", LONG_MIN, 2.5L,
               static_cast<void*>(nullptr));
    int written = 0;
    fxStr().format("12345%n", &written);
    EXPECT_EQ(written, 5);
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
    EXPECT_EQ(s.next(0, ','), 1U);
    EXPECT_EQ(s.next(2, ';'), 3U);
    EXPECT_EQ(s.next(0, ";,"), 1U);  // sets without a count end at a zero
    EXPECT_EQ(s.next(0, "\0;", 2), 2U);
    EXPECT_EQ(s.next(2, ""), 6U);
    EXPECT_EQ(s.next(9, 'a') + s.next(9, "a") + s.skip(9, 'x') + s.skip(9, "x"), 24U);
    EXPECT_EQ(s.skip(1, ','), 2U);
    EXPECT_EQ(s.skip(0, ",a"), 2U);
    EXPECT_EQ(s.nextR(5, ','), 2U);
    EXPECT_EQ(s.nextR(5, ";,"), 4U);
    EXPECT_EQ(s.nextR(0, ','), 0U);
    EXPECT_EQ(s.skipR(6, ','), 5U);
    EXPECT_EQ(s.skipR(5, "c;"), 3U);
    unsigned int pos = 0;
    EXPECT_EQ(s.token(pos, ";,"), "a");
    EXPECT_EQ(s.tokenR(pos = 5, ";,"), "c");
}

TEST(Str, TrimTakesBlanksOffTheEnds) {
    EXPECT_EQ(fxStr(" \t a b\r\n").trim(), "a b");
    EXPECT_EQ(fxStr(" \t a b\r\n").trimRight(), " \t a b");
    EXPECT_EQ(fxStr("xxaxx").trim("x"), "a");
    EXPECT_TRUE(sharesEmptyByte(fxStr(" \t ").trim()));
    EXPECT_TRUE(sharesEmptyByte(fxStr(" \t ").trimRight()));
    EXPECT_TRUE(sharesEmptyByte(fxStr().trim()));
}

TEST(Str, PartsAreCopies) {
    const fxStr s("abcdef");
    EXPECT_TRUE(s.head(2) == "ab" && s.tail(2) == "ef" && s.copy() == s);
    EXPECT_TRUE(s[0] == 'a' && s[5U] == 'f' && s[std::size_t{6}] == '\0');
    EXPECT_EQ(std::string(s.begin(), s.end()), "abcdef");
}

TEST(Str, OrderEndsAtZeroBytesAndEqualityDoesNot) {
    const fxStr a("ab\0x", 4);
    const fxStr b("ab");
    EXPECT_EQ(compare(a, b), 0);
    EXPECT_EQ(compare(a, "ab"), 0);
    EXPECT_FALSE(a < b || a > b);
    EXPECT_TRUE(a <= b && a >= b);
    EXPECT_TRUE(a != b && a != "ab" && "ab" != a);
    EXPECT_TRUE(b == "ab" && "ab" == b && b == fxStr("ab") && b == std::string("ab"));
    EXPECT_TRUE(std::string("ab") == b && a != std::string("ab") && std::string("ab") != a);
    EXPECT_TRUE(b < "b" && "b" > b && b <= "ab" && "aa" <= b && b >= "aa" && "b" >= b && "a" < b);
    EXPECT_TRUE(fxStr("\xff") > "a");  // bytes are unsigned here
    EXPECT_TRUE(fxStr() == static_cast<const char*>(nullptr));
    EXPECT_LT(compare("a", b), 0);
    EXPECT_GT(compare("b", "a"), 0);
}

TEST(Str, HashesAreAsStated) {
    const struct {
        const char* text;
        unsigned long hash;
    } cases[] = {
        {"", 0},
        {"a", 0x0800000000000000},
        {"ab", 0x1308000000000000},
        {"abcdefgh", 0x433b332b231b1308},
        {"abcdefghi", 0x6067666564636261},
        {"abcdefghijkl", 0x4b7c756d64636261},
        {"abcdefghijklmno", 0x53544d467f706a61},
        {"abcdefghijklmnop", 0xeb1c150e07383129},
    };
    for (const auto& each : cases) EXPECT_EQ(fxStr(each.text).hash(), each.hash) << each.text;
    EXPECT_EQ(fxStr("12345678abcd").hash(), fxStr("12345678wxyz").hash());
    EXPECT_EQ(fxStr("0123456789abcdef").hash(), fxStr("0123456789abcdefgh").hash());
}

TEST(Str, StandardHashSeesTheWholeText) {
    std::unordered_set<fxStr> seen;
    for (int i = 0; i < 100; ++i) seen.insert("a long common beginning " | fxStr(i, nullptr));
    EXPECT_EQ(seen.size(), 100U);
    EXPECT_EQ(seen.count("a long common beginning 99"), 1U);
}

TEST(Str, ItemsMayComeInPiecesOfAnySize) {
    const std::vector<std::string> items{"alpha", "", "a longer item\tthan the others", "omega"};
    for (const char delimiter : {',', '\0', '\xff'}) {
        std::string text;
        for (const std::string& item : items) text += item + delimiter;
        text.pop_back();
        for (const size_t piece : {0U, 1U, 3U, 7U, 100U}) {
            PiecewiseBuffer buffer(text, piece);
            std::istream in(&buffer);
            in >> _delimiter(delimiter);
            std::vector<std::string> read;
            for (fxStr item; in >> item;) read.emplace_back(item.view());
            EXPECT_EQ(read, items) << piece;
        }
    }
}

TEST(Str, DelimitersBelongToTheirStream) {
    std::istringstream commas("a,b"), lines("a,b\n");
    EXPECT_EQ(&_delimiter(commas, ','), &commas);
    fxStr s;
    commas >> s;
    EXPECT_EQ(s, "a");
    lines >> s;
    EXPECT_EQ(s, "a,b");
    EXPECT_TRUE(lines.good());
    commas >> _delimiter('\n') >> s;
    EXPECT_EQ(s, "b");
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

TEST(StrDeathTest, LengthsThatDoNotFitAreFatal) {
    EXPECT_DEATH(fxStr(UINT_MAX), "does not fit 32 bits");
    fxStr s("a");
    EXPECT_DEATH(s.append("b", UINT_MAX), "does not fit 32 bits");
    EXPECT_DEATH(s.resize(UINT_MAX), "does not fit 32 bits");
    EXPECT_DEATH(fxStr::number(1, 37), "37 is no base of numbers");
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
}
#endif
