// The program of the guide to saving works, and bears damage.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/support/RunProgram.h"

namespace {

class Saving : public ::testing::Test {
protected:
    Saving() {
        EXPECT_NE(mkdtemp(directory), nullptr);
        path = directory + std::string("/album");
    }
    ~Saving() override {
        unlink(path.c_str());
        EXPECT_EQ(rmdir(directory), 0);  // and nothing else was left in it
    }
    std::string run(const std::string& arguments) {
        return outputOf(FXDS_SAVING " " + arguments + " " + path, status);
    }

    char directory[32] = "/tmp/saving-XXXXXX";
    std::string path;
    int status = -1;
};

TEST_F(Saving, WhatIsSavedLoads) {
    EXPECT_EQ(run("save"), "");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(run("save"), "");  // also over an existing file
    EXPECT_EQ(run("load"),
              "Engines, rated 2 times\n"
              "  Cards: 61.5 s, 0 peaks, 0 plays, by Ada\n"
              "  Wheels: 183.0 s, 3 peaks, 7 plays (live), by Ada\n");
    EXPECT_EQ(status, 0);
    outputOf(FXDUMP_PATH " --check " + path, status);
    EXPECT_EQ(status, 0);
}

TEST_F(Saving, ADamagedFileIsOneLine) {
    run("save");
    const std::string bytes = contents(path);
    for (const size_t length : {size_t{0}, size_t{20}, size_t{100}, bytes.size() - 1}) {
        std::ofstream(path, std::ios::binary) << bytes.substr(0, length);
        EXPECT_EQ(run("load").find("saving: " + path + " is not complete: "), 0U);
        EXPECT_EQ(status, 1);
    }
}

}  // namespace
