// The log follower, as its user meets it.
#include <gtest/gtest.h>

#include <csignal>

#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"

namespace {

// Reads from the file until the text ends so, or the input does.
std::string readUntil(int file, const std::string& end) {
    std::string text;
    for (char c; text.size() < end.size() || text.substr(text.size() - end.size()) != end;) {
        if (read(file, &c, 1) != 1) break;
        text += c;
    }
    return text;
}

}  // namespace

TEST(Follow, FollowsCountsAndGoesOnWhereItEnded) {
    const TestDirectory directory;
    const std::string log = directory.file("log", "error one\nfine\nerr");
    const std::string state = directory.path + "/state";
    const auto append = [&](const char* text) { std::ofstream(log, std::ios::app) << text; };
    for (const bool isSecond : {false, true}) {
        int output[2];
        ASSERT_EQ(pipe2(output, O_CLOEXEC), 0);
        const pid_t child = start(
            {{FOLLOW_PATH, "-s", state, log, "err(or)?", "two$"}, ".", {}, {-1, output[1], -1}});
        close(output[1]);
        if (!isSecond) {
            EXPECT_EQ(readUntil(output[0], "one\n"), "error one\n");
            append("or two\n");
            EXPECT_EQ(readUntil(output[0], "two\n"), "error two\n");
            kill(child, SIGUSR1);
            EXPECT_EQ(readUntil(output[0], "$\n"), "2 err(or)?\n1 two$\n");
            kill(child, SIGTERM);
            EXPECT_EQ(readAll(output[0]), "2 err(or)?\n1 two$\n");
            append("error meanwhile\n");
        } else {
            EXPECT_EQ(readUntil(output[0], "\n"), "error meanwhile\n");
            append("error at last\nerr");
            std::filesystem::rename(log, log + ".1");
            directory.file("log", "error in the new file\n");
            EXPECT_EQ(readUntil(output[0], "file\n"),
                      "error at last\nerr\nerror in the new file\n");
            directory.file("log", "error, cut\n");
            EXPECT_EQ(readUntil(output[0], "\n"), "error, cut\n");
            kill(child, SIGINT);
            EXPECT_EQ(readAll(output[0]), "7 err(or)?\n1 two$\n");
        }
        int end = -1;
        EXPECT_EQ(waitpid(child, &end, 0), child);
        EXPECT_EQ(end, 0);
        close(output[0]);
    }
    std::ofstream(state) << "no state";
    const Result damaged = run({{FOLLOW_PATH, "-s", state, log, "x"}});
    EXPECT_EQ(damaged.status, 1);
    EXPECT_EQ(damaged.errors.find(state), 0U) << damaged.errors;
}

TEST(Follow, ReadsStandardInputToItsEnd) {
    const Result result = run({{FOLLOW_PATH, "-", "a+", "b"}}, "aa\nbb\nab\ncc");
    EXPECT_EQ(result.output, "aa\nbb\nab\n2 a+\n2 b\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(run({{FOLLOW_PATH, "-", "(x"}}).errors, "follow: no expression: (x\n");
}
