#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "fxds/Ref.h"
#include "fxds/RegEx.h"
#include "fxds/RegExp.h"
#include "fxds/SLinearPattern.h"
#include "fxds/search/RegInternals.h"  // to choose how it searches and count its steps
#include "tests/support/RegExpModel.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TestSeed.h"

namespace {

struct Free {
    void operator()(fxregexp* compiled) const { std::free(compiled); }
};
using Compiled = std::unique_ptr<fxregexp, Free>;

Compiled compile(const char* pattern) { return Compiled(fxregcomp(pattern)); }
Compiled compile(const std::string& pattern) { return compile(pattern.c_str()); }

std::string messageFor(const char* pattern) {
    const char* message;
    const Compiled compiled(fxregcomp(pattern, &message));
    EXPECT_EQ(compiled == nullptr, message != nullptr);
    EXPECT_EQ(compiled == nullptr, compile(pattern) == nullptr);
    return message != nullptr ? message : "";
}

// "start-end" of the match and of each group that took part, "no" for no match.
std::string show(const char* subject, const char* const* startp, const char* const* endp) {
    std::string text;
    for (int group = 0; group < 10; ++group) {
        if (startp[group] == nullptr && endp[group] == nullptr) continue;
        if (!text.empty()) text += ' ';
        if (group > 0) text += std::to_string(group) + ":";
        text += std::to_string(startp[group] - subject) + "-";
        text += endp[group] != nullptr ? std::to_string(endp[group] - subject) : "?";
    }
    return text.empty() ? "no" : text;
}

std::string matchOf(fxregexp* compiled, const std::string& subject) {
    const int found = fxregexec(compiled, subject.c_str());
    const std::string text = show(subject.c_str(), compiled->startp, compiled->endp);
    EXPECT_EQ(found, text != "no");
    return text;
}

std::string matchOf(const std::string& pattern, const std::string& subject) {
    const Compiled compiled = compile(pattern);
    return compiled != nullptr ? matchOf(compiled.get(), subject) : "faulty";
}

// The same with the parts of the engine: walking in step from every place.
std::string walkFrom(const fxregexp* compiled, const std::string& subject, size_t offset,
                     bool isEverywhere) {
    fxRegProgram::Plan plan = *fxRegProgram::planOf(compiled);
    if (isEverywhere) plan.startKind = fxRegProgram::Start::anywhere;
    const char* startp[10] = {};
    const char* endp[10] = {};
    size_t effort = 0;
    fxRegProgram::search(plan, subject.c_str(), subject.c_str() + offset, startp, endp, effort,
                         {0, 0});
    return show(subject.c_str(), startp, endp);
}

// What a search from an offset on finds, whichever way it goes.
std::string matchFrom(fxregexp* compiled, const std::string& subject, size_t offset) {
    fxregexec(compiled, subject.c_str(), subject.c_str() + offset);
    const std::string walked = walkFrom(compiled, subject, offset, true);
    EXPECT_EQ(walkFrom(compiled, subject, offset, false), walked);
    EXPECT_EQ(show(subject.c_str(), compiled->startp, compiled->endp), walked);
    return walked;
}

// What the comparison with the model does not reach: bytes that its patterns and
// subjects lack. And a few that hold the model to the truth.
TEST(RegExp, PatternsMatchWhatTheyStandFor) {
    const struct {
        const char *pattern, *subject, *expected;
    } cases[] = {{"a\nb", "b", "0-1"},
                 {"a\\**", "a***", "0-4"},
                 {"a.c", "a\nc", "0-3"},
                 {"a[^b]c", "a\nc", "0-3"},
                 {"x{2}", "x{2}", "0-4"},
                 {"a\\\nb", "a\nb", "0-3"},
                 {"\xE9+", "x\xE9\xE9", "1-3"},
                 {"\\<", "_", "0-0"},
                 {"[\\]", "\\", "0-1"},
                 {"[|\n]", "\n", "0-1"},
                 {"[a-\xFF]", "\xFE", "0-1"},
                 {"[\x80-\xFF]", "a", "no"},
                 {"a|ab", "ab", "0-1"},
                 {"(a|ab)(c)d|abce", "abce", "0-4"},
                 {"(a|ab)(c|bcd)(d*)", "abcd", "0-4 1:0-1 2:1-4 3:4-4"},
                 {"((x)|(y))*", "xy", "0-2 1:1-2 2:0-1 3:1-2"}};
    for (const auto& c : cases) {
        EXPECT_EQ(matchOf(c.pattern, c.subject), c.expected) << c.pattern << " in " << c.subject;
    }
}

// Where they are is in ValuesTest; which they are, in the model.
TEST(RegExp, FaultyPatternsAreRefusedWithAReason) {
    const std::pair<const char*, std::vector<const char*>> table[] = {
        {"*+ operand could be empty", {"(a*)+", "(|a)+", "()*", "(a?)*", "^*", "\\<*", "$+"}},
        {"nested *?+", {"a**", "a?+", "(a)+?"}},
        {"?+* follows nothing", {"+", "a|*b", "(*a)", "a\n+"}},
        {"unmatched ()", {"a)", "(a", "((a)", ")"}},
        {"unmatched []", {"[]", "[^]", "[a-", "[", "[a-b"}},
        {"trailing \\", {"\\", "(a\\"}},
        {"invalid [] range", {"[z-a]", "[a-c-b]"}},
        {"too many ()", {"()()()()()()()()()()", "((((((((((a"}},
        {"NULL argument", {nullptr}},
        {"", {"^?", "()", "(((((((((a)))))))))", "()?", "\\<?", "]"}}};
    for (const auto& [message, patterns] : table) {
        for (const char* pattern : patterns) EXPECT_EQ(messageFor(pattern), message);
    }
}

TEST(RegExp, ProgramsAreLimitedInSize) {
    // Magic byte, BRANCH, EXACTLY with its zero and END: 11 bytes besides the text.
    EXPECT_NE(compile(std::string(32766 - 11, 'a')), nullptr);
    EXPECT_EQ(messageFor(std::string(32767 - 11, 'a').c_str()), "regexp too big");
    EXPECT_EQ(messageFor(std::string(100000, '.').c_str()), "regexp too big");
    std::string alternatives = "b";
    for (int i = 0; i < 3000; ++i) alternatives += "|a";
    EXPECT_EQ(matchOf(alternatives + "|c", "xxc"), "2-3");
}

// The first byte, each node as offset:opcode>next, and the size.
std::string programOf(const char* pattern) {
    const Compiled compiled = compile(pattern);
    const char* const code =
        reinterpret_cast<const char*>(compiled.get()) + offsetof(fxregexp, program);
    const size_t size = static_cast<size_t>(compiled->programSize_);
    const fxRegProgram::Program program(code, size);
    std::string text = std::to_string(static_cast<unsigned char>(code[0]));
    for (size_t node = 1; node < size; node = program.following(node)) {
        text += ' ' + std::to_string(node) + ':' + std::to_string(code[node]) + '>' +
                std::to_string(program.next(node));
    }
    return text + " /" + std::to_string(size);
}

TEST(RegExp, ProgramsHaveTheirLayout) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "156 1:6>7 4:9>7 7:0>0 /10"},
        {"a\\*b", "156 1:6>11 4:8>11 11:0>0 /14"},
        {"(a)+b",
         "156 1:6>35 4:21>7 7:6>15 10:8>15 15:31>18 18:6>24 21:7>4 24:6>27 27:9>30 30:8>35 "
         "35:0>0 /38"},
        {"a?[b-d]*", "156 1:6>28 4:6>12 7:8>15 12:6>15 15:9>18 18:10>28 21:4>0 28:0>0 /31"}};
    for (const auto& [pattern, program] : cases) EXPECT_EQ(programOf(pattern), program);
}

TEST(RegExp, ShortcutsAreThoseOfASingleAlternative) {
    const struct {
        const char *pattern, *start, *must;
    } cases[] = {{"abc", "a", ""},         {"^abc", "^", ""},     {"a|b", "", ""},
                 {"a*bc", "", "bc"},       {"a+xy*zw", "", "zw"}, {"a?bc", "", ""},
                 {"(a*b)c", "", "c"},      {"^a\nb", "", ""},     {"[ab]*cd(ef)gh", "", "gh"},
                 {"x+abc(d)ef", "", "abc"}};
    for (const auto& c : cases) {
        const Compiled compiled = compile(c.pattern);
        const char start = compiled->reganch != 0 ? '^' : compiled->regstart;
        EXPECT_EQ(start, c.start[0]) << c.pattern;
        EXPECT_STREQ(compiled->regmust != nullptr ? compiled->regmust : "", c.must);
        EXPECT_EQ(static_cast<size_t>(compiled->regmlen), std::strlen(c.must));
    }
}

// Why there is no result, empty where there is one.
std::string reasonFor(fxregexp* compiled, const char* subject) {
    const char* message = "untouched";
    const int found = fxregexec(compiled, subject, subject, &message);
    EXPECT_EQ(fxregexec(compiled, subject), found);
    EXPECT_TRUE(found == 0 || message == nullptr);
    return message != nullptr ? message : "";
}

TEST(RegExp, SearchesThatCannotBeMadeTellWhy) {
    const Compiled compiled = compile("a");
    EXPECT_EQ(reasonFor(compiled.get(), "a") + reasonFor(compiled.get(), "b"), "");
    EXPECT_EQ(reasonFor(compiled.get(), nullptr), "NULL parameter");
    EXPECT_EQ(reasonFor(nullptr, "a"), "NULL parameter");
    char* const code = reinterpret_cast<char*>(compiled.get()) + offsetof(fxregexp, program);
    for (const int at : {1, 2, 4, 6, 9, 0}) {
        const char before = std::exchange(code[at], 41);
        EXPECT_EQ(reasonFor(compiled.get(), "a"), "corrupted program") << at;
        if (at != 0) code[at] = before;
    }
    char dest[] = "untouched";
    fxregsub(compiled.get(), "x", dest);
    EXPECT_STREQ(dest, "untouched");
}

// Every size gives the same text, cut, and touches no byte beyond it.
TEST(RegExp, TemplatesInsertTheMatch) {
    const struct {
        const char *pattern, *subject, *text, *result;
    } cases[] = {{"b+", "abbc", "[&]", "[bb]"},
                 {"(a)(b)?(c)", "xac", "\\3\\2\\1-\\0-&", "ca-ac-ac"},
                 {"a", "a", "\\&\\\\&\\n\\", "&\\a\\n\\"},
                 {"a", "a", "", ""},
                 {"()", "a", "<\\1\\9>", "<>"}};
    for (const auto& c : cases) {
        const Compiled compiled = compile(c.pattern);
        ASSERT_EQ(fxregexec(compiled.get(), c.subject), 1);
        char dest[100];
        fxregsub(compiled.get(), c.text, dest);
        const std::string whole = dest;
        EXPECT_EQ(whole, c.result);
        for (size_t size = 0; size < whole.size() + 3; ++size) {
            std::vector<char> part(size);
            EXPECT_EQ(fxregsub(compiled.get(), c.text, part.data(), size),
                      static_cast<long>(whole.size()));
            EXPECT_TRUE(size == 0 || part.data() == whole.substr(0, size - 1));
        }
    }
}

TEST(RegExp, SubstitutionRefusesWhatItCannotUse) {
    const Compiled compiled = compile("abc");
    char subject[] = "abc";
    ASSERT_EQ(fxregexec(compiled.get(), subject), 1);
    char dest[] = "untouched";
    fxregsub(nullptr, "x", dest);
    fxregsub(compiled.get(), nullptr, dest);
    fxregsub(compiled.get(), "x", nullptr);
    EXPECT_EQ(fxregsub(compiled.get(), "x", nullptr, 1), -1);
    EXPECT_STREQ(dest, "untouched");
    subject[1] = 0;  // the match now ends behind the end of the subject
    EXPECT_EQ(fxregsub(compiled.get(), "<&>", dest, sizeof dest), -1);
    EXPECT_EQ(std::string(dest, 6), std::string("<a\0\0uc", 6));
}

// All strings of up to `length` of the tokens.
void forAll(const std::vector<std::string>& tokens, int length, const std::string& text,
            const std::function<void(const std::string&)>& f) {
    f(text);
    if (length == 0) return;
    for (const std::string& token : tokens) forAll(tokens, length - 1, text + token, f);
}

// Whether the pattern compiles, and what it matches, is as in the model. Returns
// the number of comparisons.
int expectModel(const std::string& pattern, const std::vector<std::string>& subjects) {
    const Compiled compiled = compile(pattern);
    const RegExpModel model(pattern);
    EXPECT_EQ(compiled != nullptr, model.isValid()) << pattern;
    if (compiled == nullptr || !model.isValid()) return 0;
    for (const std::string& subject : subjects) {
        const char* startp[10] = {};
        const char* endp[10] = {};
        const size_t offset = subject.size() % 3;  // often 0
        model.search(subject.c_str(), startp, endp, offset);
        EXPECT_EQ(matchFrom(compiled.get(), subject, offset), show(subject.c_str(), startp, endp))
            << pattern << " in " << subject << " from " << offset;
        if (testing::Test::HasFailure()) break;
    }
    return static_cast<int>(subjects.size());
}

std::string anyOf(std::mt19937& rng, const std::vector<const char*>& tokens, size_t most) {
    std::string text;
    for (size_t n = 1 + rng() % most; n > 0; --n) text += tokens[rng() % tokens.size()];
    return text;
}

// All patterns of a few tokens, then long ones.
TEST(RegExpModel, Agrees) {
    const bool isLong = std::getenv("FX_TEST_MORE") != nullptr;
    std::vector<std::string> subjects = {"a b"};
    forAll({"a", "b"}, isLong ? 5 : 3, "", [&](const std::string& s) { subjects.push_back(s); });
    int pairs = 0, patterns = 0;
    forAll({"a", "b", "(", ")", "|", "*", "+", "?", ".", "^", "$", "[^a]", "\\<", "\\>"},
           isLong ? 5 : 4, "", [&](const std::string& pattern) {
               if (patterns++ % testShare != 0 || HasFailure()) return;
               pairs += expectModel(pattern, subjects);
           });
    EXPECT_GT(pairs, 50000 / testShare);
    std::mt19937 rng(testSeed());
    const int rounds = isLong ? 2000000 : 40000 / testShare;
    for (int round = pairs = 0; round < rounds && !HasFailure(); ++round) {
        for (std::string& subject : subjects) {
            subject = anyOf(rng, {"a", "a", "b", "b", "c", " ", "-"}, 10);
        }
        subjects.resize(3);
        pairs += expectModel(
            anyOf(rng,
                  {"a",  "b",  "c", "a",   "b",    "(",     "(", ")",    ")",    "|",      "*",
                   "+",  "?",  "*", "?",   ".",    "^",     "$", "[^a]", "[bc]", "\\<",    "\\>",
                   "(a", "b)", "[", "[^]", "[a-c", "[^a-b", "]", "[-a]", "b-]",  "[b-c-a]"},
                  14),
            subjects);
    }
    EXPECT_GT(pairs, rounds / 20);
}

// Where matches are far apart, vectors find the places where they may start.
TEST(RegExpModel, FindsFarMatches) {
    std::mt19937 rng(testSeed());
    int matches = 0;
    for (int round = 0; round < 4000 && !HasFailure(); ++round) {
        const std::string pattern =
            anyOf(rng, {"q",     "qu",   "v",      "vix",   "=",    "[0-9]+", "[a-z]+",
                        "[qvw]", "[^q]", "[A-Zx]", "(qu|v", "(a|q", "|jz",    ")",
                        ")*",    " *",   "u?",     ".",     "\\<",  "$",      "[^a-z]"},
                  6);
        const Compiled compiled = compile(pattern);
        if (compiled == nullptr) continue;
        std::string subject;
        for (size_t n = rng() % 6; n > 0; --n) {
            subject += std::string(rng() % 3 == 0 ? rng() % 700 : rng() % 40, "a -Z"[rng() % 4]);
            subject +=
                anyOf(rng, {"qu", "vix", "jz", "=", "7", "a", " ", "q", "X", "u", "\xE9"}, 1);
        }
        matches += matchFrom(compiled.get(), subject, rng() % (subject.size() + 1)) != "no";
        EXPECT_FALSE(HasFailure()) << pattern << " in " << subject;
    }
    EXPECT_GT(matches, 100);
}

std::string repeated(const std::string& text, size_t bytes) {
    std::string result;
    result.reserve(bytes + 8);
    while (result.size() < bytes) result += text;
    return result;
}

TEST(RegExpHostile, LongSubjectsNeedNoDeepStack) {
    onStackOf(64 * 1024, [] {
        constexpr size_t size = 1 << 20;
        const std::string n = std::to_string(size);
        const std::string abs = repeated("ab", size);
        EXPECT_EQ(matchOf("(ab)*", abs), "0-" + n + " 1:" + std::to_string(size - 2) + "-" + n);
        EXPECT_EQ(matchOf("(a|b)*c", abs), "no");
        const std::string last = std::to_string(size - 1) + "-" + n;
        EXPECT_EQ(matchOf("((a)|(b))*$", abs), "0-" + n + " 1:" + last +
                                                   " 2:" + std::to_string(size - 2) + "-" +
                                                   std::to_string(size - 1) + " 3:" + last);
    });
}

// The steps that all searches of a text take together, for each byte of it.
double effortOf(const std::string& pattern, const std::string& text) {
    const Compiled compiled = compile(pattern), forgetful = compile(pattern);
    size_t effort = 0;
    const char* from = text.c_str();
    const char* startp[10];
    const char* endp[10];
    while (fxRegProgram::search(*fxRegProgram::planOf(compiled.get()), text.c_str(), from, startp,
                                endp, effort, fxRegProgram::Patience(), true)) {
        if (text.size() < 2000) {
            EXPECT_EQ(fxregexec(forgetful.get(), text.c_str(), from), 1);
            EXPECT_EQ(startp[0], forgetful->startp[0]);
            EXPECT_EQ(endp[0], forgetful->endp[0]);
        }
        if (*endp[0] == 0) break;
        from = endp[0] == startp[0] ? endp[0] + 1 : endp[0];
    }
    return static_cast<double>(effort) / static_cast<double>(text.size());
}

// Going back would take more steps than there are atoms, or their square.
TEST(RegExpHostile, StepsAreInProportionToSubjectTimesProgram) {
    const struct {
        std::string pattern;
        const char* subject;
    } cases[] = {{"(x+x+)+y", "x"},
                 {"(x+x+)+[yz]", "x"},
                 {"((a|a)+b?)+$", "a"},
                 {"(a*a*a*a*a*b)?$", "a"},
                 {"a*a*a*a*a*[bc]", "a"},
                 {"a[^b]*b|a", "a"},  // many matches, each after a look far ahead
                 {"(a|ac|ca)*b|[ac]", "acca"},
                 {"(a|c)*bc|[ac]|b",
                  "acccccccccccccccccccccccccccccccccccccccccccccccccccccc"
                  "cccccccccccccccccccccccccccccccccccccccccccccccbcacab"},
                 {"(ab|a|b)*[cd]", "ab"},
                 {"([a-z]+ )+[0-9]", "word "},
                 {"(a|b)*c", "abababababababababababababababababababababababababababababc"},
                 {repeated("a?", 300) + "b", "a"},
                 {repeated("[0-9]?", 900) + "x", "0123456789"},
                 {repeated("(a|b)?", 54) + repeated("b?", 282) + "c", "ab"},
                 {repeated("a*", 300) + "b", "a"}};
    for (const auto& c : cases) {
        const Compiled compiled = compile(c.pattern);
        const double most = 2.0 * compiled->programSize_ + 10;
        for (const size_t size : {1000U, 30000U}) {
            EXPECT_LT(effortOf(c.pattern, repeated(c.subject, size)), most)
                << c.pattern << ' ' << size;
        }
    }
    const std::string letters(1000, 'a');
    EXPECT_EQ(matchOf(repeated("a?", 2000) + letters, letters), "0-1000");
}

// Where malloc() gives nothing, and with a stack of a few pages.
TEST(RegExpHostile, SearchesAllocateNothing) {
    const Compiled compiled[] = {compile("(x+x+)+y|(a|b)*c"), compile("(((a)|(b))(c)?)*$")};
    const std::string subject = repeated("abcab", 100000);
    const auto searchWithoutMemory = [&] {
#ifndef __SANITIZE_ADDRESS__
        const rlimit none = {0, RLIM_INFINITY};
        setrlimit(RLIMIT_AS, &none);
        for (size_t size = size_t{1} << 20; size != 0; size /= 2) {
            while (std::malloc(size) != nullptr) {
            }
        }
#endif
        const int count = fxregexec(compiled[0].get(), subject.c_str()) +
                          fxregexec(compiled[1].get(), subject.c_str());
        _exit(count == 2 && compiled[1]->endp[5] == subject.c_str() + 99998 ? 0 : 1);
    };
    EXPECT_EXIT(searchWithoutMemory(), testing::ExitedWithCode(0), "");
}

TEST(RegExpHostile, BlocksAreInProportionToTheirPrograms) {
    const std::string nine = "(((((((((a)))))))))";
    for (const std::string& pattern :
         {std::string(32000, 'a'), repeated("a?", 4000), repeated("[b-y]*", 6000), nine,
          nine + repeated("x*", 8000), nine + std::string(32000, 'x'), std::string(5000, '|')}) {
        const Compiled compiled = compile(pattern);
        ASSERT_NE(compiled, nullptr) << pattern.substr(0, 10);
        EXPECT_LE(malloc_usable_size(compiled.get()), 1024U + 400U * compiled->programSize_);
    }
}

// Each thread has its own expression; they share nothing that is written.
TEST(RegExp, ThreadsMatchIndependently) {
    const auto work = [](const char* pattern, const char* expected) {
        const Compiled compiled = compile(pattern);
        const std::string subject = repeated("ab", 300) + "c";
        for (int i = 0; i < 300; ++i) ASSERT_EQ(matchOf(compiled.get(), subject), expected);
    };
    std::thread other(work, "(a|b|ab)*c", "0-301 1:299-300");
    work("(ab)*(c)", "0-301 1:298-300 2:300-301");
    other.join();
}

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
