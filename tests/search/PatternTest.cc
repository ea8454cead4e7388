#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

#include "fxds/RegEx.h"
#include "fxds/SLinearPattern.h"
#include "tests/support/TestSeed.h"

namespace {

// "find/findEnd [start,end]" in the first `len` bytes, which the heap bounds.
std::string searched(const fxTextPattern& pattern, const std::string& text) {
    const std::unique_ptr<char[]> buf(new char[text.size() + 1]);
    text.copy(buf.get(), text.size());
    buf[text.size()] = 0;
    const unsigned int len = static_cast<unsigned int>(text.size());
    int start = 77, end = 77;
    pattern.bracketBuffer(buf.get(), len, start, end);
    return std::to_string(pattern.findBuffer(buf.get(), len)) + "/" +
           std::to_string(pattern.findEndBuffer(buf.get(), len)) + " [" + std::to_string(start) +
           "," + std::to_string(end) + "]";
}

TEST(SLinearPattern, TellsBothEnds) {
    EXPECT_EQ(searched(fxSLinearPattern("needle", 0), "hay, needle"), "5/11 [5,11]");
    EXPECT_EQ(searched(fxSLinearPattern("needle", 4), "hay, need"), "5/9 [5,9]");
    EXPECT_EQ(searched(fxSLinearPattern(fxStr("ab")), "aab ab"), "1/3 [1,3]");
    EXPECT_EQ(searched(fxSLinearPattern("absent", 0), "here"), "-1/0 [-1,0]");
    EXPECT_EQ(searched(fxSLinearPattern("Case", 0), "case"), "-1/0 [-1,0]");
    EXPECT_EQ(searched(fxSLinearPattern("a\0b", 3), std::string("a\0a\0b", 5)), "2/5 [2,5]");
    EXPECT_EQ(searched(fxSLinearPattern("\xE9\xFF", 0), "a\xE9\xE9\xFF"), "2/4 [2,4]");
}

TEST(SLinearPattern, EmptyIsFoundAtOnce) {
    EXPECT_EQ(searched(fxSLinearPattern(fxStr()), "abc"), "0/0 [0,0]");
    EXPECT_EQ(searched(fxSLinearPattern("", 0), ""), "0/0 [0,0]");
    EXPECT_EQ(fxSLinearPattern(fxStr()).findBuffer(nullptr, 0), 0);
}

TEST(SLinearPattern, ShortBuffersAreNotRead) {
    EXPECT_EQ(fxSLinearPattern("longer", 0).findBuffer(nullptr, 5), -1);
}

TEST(SLinearPattern, AgreesWithStdString) {
    std::mt19937 rng(testSeed());
    for (int round = 0; round < 20000; ++round) {
        std::string text(rng() % (round % 10 == 0 ? 2000 : 60), 'a');
        for (char& c : text) c = "aab\0"[rng() % 4];
        std::string word(1 + rng() % 8, 'a');
        for (char& c : word) c = "aab\0"[rng() % 4];
        if (rng() % 2 == 0) text.insert(rng() % (text.size() + 1), word);
        if (rng() % 50 == 0) word = text.substr(0, 250) + "b";
        const size_t at = text.find(word);
        const fxSLinearPattern pattern(word.data(), static_cast<unsigned int>(word.size()));
        const std::string start = at == std::string::npos ? "-1" : std::to_string(at);
        const std::string end = at == std::string::npos ? "0" : std::to_string(at + word.size());
        ASSERT_EQ(searched(pattern, text), start + "/" + end + " [" + start + "," + end + "]");
    }
}

TEST(RegEx, TellsBothEnds) {
    EXPECT_EQ(searched(fxRegEx("b+"), "abbc"), "1/3 [1,3]");
    EXPECT_EQ(searched(fxRegEx(fxStr("x")), "abc"), "-1/0 [-1,0]");
    EXPECT_EQ(searched(fxRegEx(""), "abc"), "0/0 [0,0]");
    EXPECT_EQ(searched(fxRegEx("(ab"), "ab"), "-2/0 [-2,0]");
    EXPECT_FALSE(fxRegEx("(ab").isValid());
    EXPECT_FALSE(fxRegEx(static_cast<const char*>(nullptr)).isValid());
}

TEST(RegEx, SearchesTheWholeTextWhateverTheLength) {
    EXPECT_EQ(fxRegEx("c").findBuffer("abc", 1), 2);
    EXPECT_EQ(fxRegEx("c$").findEndBuffer("abc", 0), 3);
}

TEST(RegEx, ShowsTheGroupsOfTheLastSearch) {
    const fxRegEx expression("(a)(b)?");
    const fxStr text("xa");
    EXPECT_EQ(expression.find(text), 1);
    EXPECT_EQ(expression.expression()->startp[1], text.c_str() + 1);
    EXPECT_EQ(expression.expression()->startp[2], nullptr);
}

TEST(TextPattern, SearchesStringsThroughTheBase) {
    fxTextPattern* const patterns[] = {new fxSLinearPattern("b.", 0), new fxRegEx("b.")};
    const int expected[][2] = {{3, 5}, {1, 3}};
    for (int i = 0; i < 2; ++i) {
        patterns[i]->take();
        int start, end;
        patterns[i]->bracket("abcb.", start, end);
        EXPECT_EQ(start, expected[i][0]);
        EXPECT_EQ(end, expected[i][1]);
        EXPECT_EQ(patterns[i]->find("abcb."), start);
        EXPECT_EQ(patterns[i]->findEnd("abcb."), end);
        patterns[i]->release();
    }
}

TEST(IsRegEx, GoesBySpecialCharacters) {
    for (const char* text : {"a.c", "a+", "a*", "^a", "a$", "(", ")", "{", "a{2}", "}", "[", "]"}) {
        EXPECT_TRUE(fxIsRegEx(text)) << text;
    }
    for (const char* text : {"", "abc", "a|b", "a?", "a\\b", "a\nb"}) {
        EXPECT_FALSE(fxIsRegEx(text)) << text;
    }
}

}  // namespace
