// The log follower, as its user meets it.
#include <gtest/gtest.h>

#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"

TEST(Follow, FollowsCountsAndGoesOnWhereItEnded) {
    const TestDirectory directory;
    const std::string log = directory.file("log", "error one\nfine\nerr");
    const std::string state = directory.path + "/state";
    const auto append = [&](const char* text) { std::ofstream(log, std::ios::app) << text; };
    for (const bool isSecond : {false, true}) {
        Session follow({{FOLLOW_PATH, "-s", state, log, "err(or)?", "two$"}});
        if (!isSecond) {
            EXPECT_EQ(follow.until("one\n"), "error one\n");
            append("or two\n");
            EXPECT_EQ(follow.until("two\n"), "error two\n");
            follow.tell(SIGUSR1);
            EXPECT_EQ(follow.until("$\n"), "2 err(or)?\n1 two$\n");
            EXPECT_EQ(follow.end(SIGTERM), 0);
            EXPECT_EQ(follow.until("$\n"), "2 err(or)?\n1 two$\n");
            append("error meanwhile\n");
        } else {
            EXPECT_EQ(follow.until("\n"), "error meanwhile\n");
            append("error at last\nerr");
            std::filesystem::rename(log, log + ".1");
            directory.file("log", "error in the new file\n");
            EXPECT_EQ(follow.until("file\n"), "error at last\nerr\nerror in the new file\n");
            directory.file("log", "error, cut\n");
            EXPECT_EQ(follow.until("\n"), "error, cut\n");
            EXPECT_EQ(follow.end(SIGINT), 0);
            EXPECT_EQ(follow.until("$\n"), "7 err(or)?\n1 two$\n");
        }
    }
    expectCommands("cd " + directory.path + "; follow() { " FOLLOW_PATH " \"$@\"; }; ",
                   {{"echo no state > state; follow -s state log x", "state...", 1},
                    {"printf 'aa\\nbb\\nab\\ncc' | follow - a+ b", "aa\nbb\nab\n2 a+\n2 b\n", 0},
                    {"follow - '(x'", "follow: no expression: (x\n", 2}});
}
