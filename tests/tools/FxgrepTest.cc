// The line searcher as its users run it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"

namespace {

// The program runs in a directory of the test.
class Fxgrep : public testing::Test {
protected:
    // Its output goes to `out` when that is given.
    Result run(const std::vector<std::string>& arguments, const std::string& input = "",
               int out = -1) {
        const char* const home = directory.path.c_str();
        Program program = {{FXGREP_PATH},
                           directory.path,
                           {{"TERM", "xterm"},
                            {"NO_COLOR", nullptr},
                            {"HOME", home},
                            {"FXGREP_DIR", home},
                            {"FXGREP_UNSET", nullptr}},
                           {-1, out, -1}};
        program.words.insert(program.words.end(), arguments.begin(), arguments.end());
        return ::run(program, input);
    }

    void makeTree() const {
        directory.directory("tree");
        directory.directory("tree/.git");
        directory.directory("tree/below");
        directory.file("tree/.git/config", "class alpha\n");
        directory.file("tree/binary", std::string("class\0alpha\n", 12));
        directory.file("tree/one.cc",
                       "class Alpha {\n  int alpha;\n\n};\nint beta(alpha);\n// end\n");
        directory.file("tree/two.h", "none\n\nalphabet\nALPHA\n int x_alpha; \n");
        directory.file("tree/below/three.cc", "a\nb\nc\nclass\nd\ne\nalpha beta\nf\ng");
    }

    const TestDirectory directory;
};

using Arguments = std::vector<std::string>;

TEST_F(Fxgrep, PrintsLinesAndMatchesOfStandardInput) {
    const struct {
        Arguments arguments;
        const char *input, *output;
        int status;
    } cases[] = {{{"b"}, "abc\nx\nb\n", "abc\nb\n", 0},
                 {{"b"}, "x\nb", "b\n", 0},
                 {{"q"}, "abc\n", "", 1},
                 {{"a.c"}, "abc\na.c\n", "abc\na.c\n", 0},
                 {{"-F", "a.c"}, "abc\na.c\n", "a.c\n", 0},
                 {{"a{b}"}, "ab\na{b}\n", "a{b}\n", 0},
                 {{"-F", "a|b"}, "a\na|b\n", "a|b\n", 0},
                 {{"b\na.c"}, "a.c\nab\nac\n", "a.c\nab\n", 0},
                 {{"-o", "-w", "--replace", "\\1", "(a)b?"}, "ab abc\n", "a\n", 0},
                 {{"-i", "[]a-c^-]x|^Q"}, "BX\n^X\nqr\nxx\n", "BX\n^X\nqr\n", 0},
                 {{"--json", "ab"},
                  "x\nab\"\377\n",
                  "{\"path\": \"(standard input)\", \"line\": 2, \"text\": \"ab\\\"\\ufffd\", "
                  "\"matches\": [{\"start\": 0, \"end\": 2}]}\n",
                  0},
                 {{""}, "a\n\n", "a\n\n", 0},
                 {{"--", "-n"}, "-n\n", "-n\n", 0},
                 {{"-nc", "b"}, "b\n", "1\n", 0},
                 {{"-o", "ab*"}, "xabb a\nb\n", "abb\na\n", 0},
                 {{"-no", "aa"}, "aaaaa\n\naa\n", "1:aa\n1:aa\n3:aa\n", 0},
                 {{"-o", "^a"}, "aaa\n", "a\n", 0},  // behind a match the line goes on
                 {{"-oE", "\\<a"}, "aa a\n", "a\na\n", 0},
                 {{"-o", "x*"}, "axxb\n", "xx\n", 0},
                 {{"-o", "x*"}, "ab\n", "", 0},
                 {{"-oc", "a"}, "aa\na\n", "2\n", 0},
                 {{"--replace", "<\\2|\\1|&>", "([a-z]+)=([0-9]+)"},
                  "a=1, bc=22\n",
                  "<1|a|a=1>\n<22|bc|bc=22>\n",
                  0},
                 {{"-F", "--replace", "[&]", "a.*\\<b"}, "xa.*\\<b a.b\n", "[a.*\\<b]\n", 0},
                 {{"-o", "--replace", "[\\0]", "lit"}, "literal\n", "[lit]\n", 0}};
    for (const auto& c : cases) {
        const Result result = run(c.arguments, c.input);
        EXPECT_EQ(result.output, c.output) << c.arguments.back();
        EXPECT_EQ(result.status, c.status) << c.arguments.back();
        EXPECT_EQ(result.errors, "");
    }
}

TEST_F(Fxgrep, AnswersCommandLines) {
    makeTree();
    for (const char* name : {"folder", "a", "a/sub", "b"}) directory.directory(name);
    for (const char* name : {"one", "a/x.cc", "b/x.cc", "b/x.h"}) directory.file(name, "needle\n");
    directory.file("two", "x\nneedle\n");
    directory.file("patterns", "ALPHA\nx_\n");
    mkfifo((directory.path + "/b/waits.cc").c_str(), 0600);  // is not read
    const std::string found = "/a/x.cc:needle\n/b/x.cc:needle\n";
    const std::string before = "cd " + directory.path +
                               "; export HOME=$PWD FXGREP_DIR=$PWD; fxgrep() { " FXGREP_PATH
                               " \"$@\" 2>&1; }; here() { sed \"s|$PWD||\"; }; ";
    expectCommands(
        before,
        {{"fxgrep needle one", "needle\n", 0},
         {"fxgrep -n needle one two - < one",
          "one:1:needle\ntwo:2:needle\n(standard input):1:needle\n", 0},
         {"fxgrep -c x one two", "one:0\ntwo:1\n", 0},
         {"fxgrep needle missing one folder", "fxgrep: missing: No such file or directory\n...", 2},
         {"fxgrep needle missing one folder | grep one", "one:needle\n", 0},
         {"fxgrep needle folder", "fxgrep: folder: Is a directory\n", 2},
         {"fxgrep --path '~/a:~/b' --name '.*\\.cc' needle | here", found, 0},
         {"fxgrep --path '$FXGREP_DIR/a:~/b/' --name '.*\\.cc' needle | here", found, 0},
         {"fxgrep --path '~/a::$FXGREP_DIR/b' --name '.*\\.cc' needle | here", found, 0},
         {"fxgrep --path '$FXGREP_DIR/folder' needle", "", 1},
         {"fxgrep -c --path b needle | sort", "b/x.cc:1\nb/x.h:1\n", 0},
         {"fxgrep --path '$FXGREP_UNSET/x:~/a' needle",
          "fxgrep: $FXGREP_UNSET/x: a variable is not set\n...", 2},
         {"fxgrep --path /no/such:~/a needle | tail -1 | here", "/a/x.cc:needle\n", 0},
         {"fxgrep -r --include 'o*' --exclude below '[^a-z_]alpha' tree",
          "tree/one.cc:  int alpha;\ntree/one.cc:int beta(alpha);\n", 0},
         {"fxgrep -ra -c class tree/.git", "tree/.git/config:1\n", 0},
         {"fxgrep -l --null -r ALPHA tree | tr '\\0' '|'", "tree/two.h|", 0},
         {"fxgrep -c -f patterns tree/two.h", "2\n", 0},
         {"fxgrep -f tree tree/two.h", "fxgrep: tree: Is a directory\n", 2},
         {"fxgrep -sq none missing tree/two.h", "", 0},
         {"fxgrep --version", "fxgrep of libostrelfxds ...", 0},
         {"fxgrep --help | grep -c -e '--replace TEMPLATE'", "1\n", 0},
         {"fxgrep '(a'", "fxgrep: (a: unmatched ()\n", 2},
         {"fxgrep --path . --name '*' a", "fxgrep: ...", 2},
         {"fxgrep --color=often a", "fxgrep: often: not always, never or auto\n", 2},
         {"fxgrep | grep -c usage", "1\n", 0},
         {"fxgrep -y a | grep -c usage", "1\n", 0},
         {"fxgrep --name a b | grep -c usage", "1\n", 0},
         {"fxgrep --what a", "fxgrep: ...", 2},
         {"echo 'a|b{2' | fxgrep -E 'a\\|b\\{2'", "a|b{2\n", 0},
         {"echo a/b | fxgrep 'caf\u00e9|[\\\\/]'", "a/b\n", 0},
         {"yes a | " FXGREP_PATH " a > /dev/full", "fxgrep: ...", 2},
         {"exec 3>>two; " FXGREP_PATH " needle two one >&3",
          "fxgrep: two: the input is also the output\n", 2},
         {"tail -1 two", "one:needle\n", 0}});
    std::string names;  // in their order, whichever thread finds it
    for (int i = 100; i < 300; ++i) {
        const std::string name = "tree/below/" + std::to_string(i);
        directory.file(name, std::string(i % 7 == 0 ? 100000 : 0, '\n') + "many\n");
        names += name + '\n';
    }
    EXPECT_EQ(run({"-r", "-l", "man[y]", "tree"}).output, names);
}

TEST_F(Fxgrep, TakesBinaryFilesAndLinesOfAnyLength) {
    const std::string zeros("a\0b\nc\0needle\0d\n", 15);
    EXPECT_EQ(run({"needle"}, zeros).output, zeros.substr(4));
    EXPECT_EQ(run({"ne+dle$"}, zeros).output, zeros.substr(4));
    EXPECT_EQ(run({"-o", "[abcd]"}, zeros).output, "a\nb\nc\nd\nd\n");
    EXPECT_EQ(run({"^[bd]"}, zeros).output, zeros);
    EXPECT_EQ(run({"-on", "^[ac]"}, zeros).output, "1:a\n2:c\n");
    const std::string line = std::string(3000000, 'x') + "needle";
    const std::string text = "short\n" + line + "\n" + line;
    EXPECT_EQ(run({"needle"}, text).output, line + "\n" + line + "\n");
    EXPECT_EQ(run({"-n", "^short$"}, text).output, "1:short\n");
    EXPECT_EQ(run({"-on", "need[l]e$"}, text).output, "2:needle\n3:needle\n");
    // Many matches: short enough for checkers that read on to the end of a text.
    EXPECT_EQ(run({"-o", "[x]"}, line.substr(0, 20000)).output.size(), 40000U);
    std::string many;
    for (int i = 0; i < 100000; ++i) many += std::to_string(i) + "\n";
    EXPECT_EQ(run({"-n", "99999"}, many).output, "100000:99999\n");
    EXPECT_EQ(run({"-c", "7$"}, many).output, "10000\n");
}

TEST_F(Fxgrep, RefusesOtherDialects) {
    const char* const dialects[][2] = {{"[0-9]\\d", "\\d"},
                                       {"a{2,}", "{2,}"},
                                       {"a{,2}", "{,2}"},
                                       {"[[:digit:]_]", "[:digit:]"},
                                       {"[x[:punct:][:digit:]]", "[:punct:]"},
                                       {"[^\\w.]", "\\w in a set"},
                                       {"[^\\]]*x", "\\] in a set"},
                                       {"x[\u00e4\u00f6]", "\u00e4"},
                                       {"caf\u00e9?s", "\u00e9?"},
                                       {"(?i)a", "(?"},
                                       {"one\\|two", "\\|"},
                                       {"[ab]\\{2\\}", "\\{"},
                                       {"\\bword", "\\b"},
                                       {"(a)\\1", "\\1"}};
    for (const auto& [pattern, what] : dialects) {
        const Result result = run({pattern});
        EXPECT_EQ(result.errors.find(std::string("fxgrep: ") + what + ": not known"), 0u)
            << pattern;
        EXPECT_EQ(result.status, 2);
    }
}

// Where both mean the same, the lines are those of grep -E.
TEST_F(Fxgrep, AgreesWithGrep) {
    makeTree();
    const char* const patterns[] = {
        "alpha|foo", "^(class|int) [a-z]+",
        "[^a-z ]$",  "\\<alpha",
        "^$",        "(class|none|//* end|beta|alphabet)?(cl[au]ss|ALPHA|in+t|beta|none)",
        "x*",        "."};
    const Arguments options[] = {{},
                                 {"-i"},
                                 {"-v"},
                                 {"-w"},
                                 {"-x"},
                                 {"-n"},
                                 {"-c"},
                                 {"-l"},
                                 {"-L"},
                                 {"-h", "-n"},
                                 {"-m", "2"},
                                 {"-q"},
                                 {"-A1"},
                                 {"-B", "2", "-n"},
                                 {"-C1", "-v"},
                                 {"-i", "-w", "-o"},
                                 {"-c", "-v", "-i"}};
    const auto sorted = [](const std::string& text) {
        std::vector<std::string> lines;
        size_t at = 0;
        for (size_t end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
            lines.push_back(text.substr(at, end - at));
        }
        std::sort(lines.begin(), lines.end());
        return lines;
    };
    for (const char* pattern : patterns) {
        for (Arguments arguments : options) {
            if (!arguments.empty() && arguments.back() == "-o" &&
                std::string(pattern) != "\\<alpha")
                continue;
            arguments.insert(arguments.begin(), {"-E", "-r", "-e", pattern});
            arguments.emplace_back("tree");
            const Result ours = run(arguments);
            Program grep = {{"/usr/bin/env", "grep", "--exclude=binary", "--exclude-dir=.git"},
                            directory.path,
                            {{"LC_ALL", "C"}},
                            {-1, -1, -1}};
            grep.words.insert(grep.words.end(), arguments.begin(), arguments.end());
            const Result theirs = ::run(grep, "");
            EXPECT_EQ(sorted(ours.output), sorted(theirs.output))
                << testing::PrintToString(arguments);
            EXPECT_EQ(ours.status, theirs.status) << testing::PrintToString(arguments);
            EXPECT_EQ(ours.errors, "");
        }
    }
}

TEST_F(Fxgrep, ColoursMatchesOnATerminal) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(grantpt(terminal), 0);
    ASSERT_EQ(unlockpt(terminal), 0);
    const int out = open(ptsname(terminal), O_RDWR | O_NOCTTY);
    EXPECT_EQ(run({"-n", "b"}, "abcb\n", out).status, 0);
    close(out);
    EXPECT_EQ(readAll(terminal), "\33[32m1\33[m:a\33[1;31mb\33[mc\33[1;31mb\33[m\r\n");
    close(terminal);
}

#ifndef __SANITIZE_ADDRESS__

// Sanitizers map more memory than a limit would leave.
TEST_F(Fxgrep, ReportsLinesThatAreTooLongForTheMemory) {
    rlimit before;
    getrlimit(RLIMIT_AS, &before);
    const rlimit small = {rlim_t{64} << 20, before.rlim_max};
    directory.file("long", std::string(40 << 20, 'a'));
    directory.directory("tree");
    ASSERT_EQ(truncate(directory.file("tree/holes", "").c_str(), off_t{1} << 32), 0);
    setrlimit(RLIMIT_AS, &small);
    const Result result = run({"-cr", "(a|b)*c", "long", "tree", "-"}, "abc\n");
    setrlimit(RLIMIT_AS, &before);
    EXPECT_EQ(result.output, "(standard input):1\n");
    EXPECT_EQ(result.errors, "fxgrep: long: a line is too long for the memory\n");
    EXPECT_EQ(result.status, 2);
}

#endif

}  // namespace
