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

// In edition 1, plays do not follow the pointer to the artist.
TEST_F(Saving, ReadsEditionOne) {
    run("save");
    std::string bytes = contents(path);
    // The edition, that of the base, the length of the title.
    const std::string second("\x02\0\0\0\0\0\0\0\x01\0\0\0\0\0\0\0\x07\0\0\0\0\0\0\0", 24);
    const std::string plays("\x4b\x08\x0b\0\0\0\x07\0\0\0\0\0\0\0", 14);
    const size_t edition = bytes.find(second);
    const size_t pointer = bytes.find(plays);
    ASSERT_NE(edition, std::string::npos);
    ASSERT_NE(pointer, std::string::npos);
    bytes.replace(pointer, plays.size(), std::string("\x0b\x0b\0\0\0", 5));
    bytes[edition] = 1;
    std::ofstream(path, std::ios::binary) << bytes;
    EXPECT_NE(run("load").find("Wheels: 183.0 s, 3 peaks, 0 plays (live), by Ada"),
              std::string::npos);

    bytes[edition] = 3;  // from the future
    std::ofstream(path, std::ios::binary) << bytes;
    EXPECT_EQ(run("load"), "saving: " + path +
                               " is from a newer version of this program: class Track, "
                               "edition 3\n");
    EXPECT_EQ(status, 1);
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

TEST_F(Saving, AFullDiskLeavesTheOldFile) {
    run("save");
    const std::string before = contents(path);
    EXPECT_EQ(outputOf("trap '' XFSZ; ulimit -f 0; exec " FXDS_SAVING " save " + path, status),
              "saving: " + path + ": File too large\n");
    EXPECT_EQ(status, 1);
    EXPECT_EQ(contents(path), before);
}

}  // namespace
