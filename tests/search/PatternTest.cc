#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <random>
#include <string>
#include <utility>

#include "fxds/Ref.h"
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
    pattern.bracket(fxStr(text), start, end);
    EXPECT_TRUE(pattern.find(fxStr(text)) == start && pattern.findEnd(fxStr(text)) == end);
    pattern.bracketBuffer(buf.get(), len, start, end);
    return std::to_string(pattern.findBuffer(buf.get(), len)) + "/" +
           std::to_string(pattern.findEndBuffer(buf.get(), len)) + " [" + std::to_string(start) +
           "," + std::to_string(end) + "]";
}

// Besides the model: the ways to make one, case, and what must not be read.
TEST(SLinearPattern, TakesItsBytesFromATextOrAString) {
    EXPECT_EQ(searched(fxSLinearPattern("needle", 0), "hay, needle"), "5/11 [5,11]");
    EXPECT_EQ(searched(fxSLinearPattern("needle", 4), "hay, need"), "5/9 [5,9]");
    EXPECT_EQ(searched(fxSLinearPattern(fxStr("Ab")), "ab Ab"), "3/5 [3,5]");
    EXPECT_EQ(searched(fxSLinearPattern("\xE9\xFF", 0), "a\xE9\xE9\xFF"), "2/4 [2,4]");
    EXPECT_EQ(fxSLinearPattern(fxStr()).findBuffer(nullptr, 0), 0);
    EXPECT_EQ(fxSLinearPattern("longer", 0).findBuffer(nullptr, 5), -1);
}

TEST(SLinearPattern, AgreesWithStdString) {
    std::mt19937 rng(testSeed());
    for (int round = 0; round < 20000; ++round) {
        std::string text(rng() % (round % 10 == 0 ? 2000 : 60), 'a');
        for (char& c : text) c = "aab\0"[rng() % 4];
        std::string word(rng() % 9, 'a');
        for (char& c : word) c = "aab\0"[rng() % 4];
        if (rng() % 2 == 0) text.insert(rng() % (text.size() + 1), word);
        if (rng() % 50 == 0) word = text.substr(0, 250) + "b";
        const size_t at = text.find(word);
        const unsigned int length = static_cast<unsigned int>(word.size());
        const fxSLinearPattern pattern(word.data(), length);  // "" has the length 0 too
        const std::string start = at == std::string::npos ? "-1" : std::to_string(at);
        const std::string end = at == std::string::npos ? "0" : std::to_string(at + word.size());
        ASSERT_EQ(searched(pattern, text), start + "/" + end + " [" + start + "," + end + "]");
    }
}

TEST(RegEx, TellsBothEndsAndItsGroups) {
    const std::pair<const char*, const char*> cases[] = {
        {"b+", "1/3 [1,3]"}, {"x", "-1/0 [-1,0]"}, {"", "0/0 [0,0]"}, {"(ab", "-2/0 [-2,0]"}};
    for (const auto& [pattern, found] : cases) EXPECT_EQ(searched(fxRegEx(pattern), "abbc"), found);
    EXPECT_FALSE(fxRegEx("(ab").isValid() || fxRegEx(static_cast<const char*>(nullptr)).isValid());
    EXPECT_EQ(fxRegEx(fxStr("c$")).findEndBuffer("abc", 0), 3) << "the whole text";
    const fxRegEx expression("(a)(b)?");
    const fxStr text("xa");
    EXPECT_EQ(expression.find(text), 1);
    EXPECT_EQ(expression.expression()->startp[1], text.c_str() + 1);
    EXPECT_EQ(expression.expression()->startp[2], nullptr);
}

// The same 16 MiB, 128 times, and then a page with what is looked for.
TEST(RegEx, OffsetsThatAreNoIntsAreNotFound) {
    constexpr size_t part = size_t{16} << 20, whole = 128 * part, page = 4096;
    const int file = memfd_create("text", MFD_CLOEXEC);
    const std::string bytes = std::string(part, 'a') + "b" + std::string(page - 1, '\0');
    ASSERT_EQ(write(file, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    void* const reserved = mmap(nullptr, whole + page, PROT_NONE, MAP_PRIVATE | MAP_ANON, -1, 0);
    ASSERT_NE(reserved, MAP_FAILED);
    char* const text = static_cast<char*>(reserved);
    for (size_t at = 0; at <= whole; at += part) {
        const bool isLast = at == whole;
        ASSERT_NE(mmap(text + at, isLast ? page : part, PROT_READ, MAP_SHARED | MAP_FIXED, file,
                       isLast ? part : 0),
                  MAP_FAILED);
    }
    const fxRegEx expression("b");
    int start, end;
    expression.bracketBuffer(text, 0, start, end);
    EXPECT_EQ(start, -1);
    EXPECT_EQ(end, 0);
    EXPECT_NE(expression.search(text, text), nullptr);
    EXPECT_EQ(expression.expression()->startp[0], text + whole);
    munmap(reserved, whole + page);
    close(file);
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
