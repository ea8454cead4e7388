// The program that the README shows: it is the one we build, and it works.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

std::string contents(const char* path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

TEST(Quickstart, TheReadmeShowsTheProgramThatWeBuild) {
    const std::string program = contents(FXDS_SOURCE_DIR "/examples/quickstart.cc");
    ASSERT_FALSE(program.empty());
    const std::string readme = contents(FXDS_SOURCE_DIR "/README.md");
    EXPECT_NE(readme.find("```cpp\n" + program + "```"), std::string::npos);
}

TEST(Quickstart, CountsAsText) {
    FILE* output = popen(FXDS_QUICKSTART, "r");
    ASSERT_NE(output, nullptr);
    std::string text;
    char line[64];
    while (std::fgets(line, sizeof line, output) != nullptr) text += line;
    EXPECT_EQ(pclose(output), 0);
    EXPECT_EQ(text, "tick 1\ntick 2\ntick 3\n");
}

}  // namespace
