// The program of the guide to saving works, and bears damage.
#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"

TEST(Saving, WhatIsSavedLoadsAndADamagedFileIsOneLine) {
    const TestDirectory directory;
    const std::string damaged = "saving: album is not complete: ...";
    expectCommands("cd " + directory.path + "; saving() { " FXDS_SAVING " \"$@\"; }; ",
                   {{"saving save album", "", 0},
                    {"saving save album; ls", "album\n", 0},  // also over an existing file
                    {"saving load album",
                     "Engines, rated 2 times\n"
                     "  Cards: 61.5 s, 0 peaks, 0 plays, by Ada\n"
                     "  Wheels: 183.0 s, 3 peaks, 7 plays (live), by Ada\n",
                     0},
                    {FXDUMP_PATH " --check album", "album: valid: ...", 0},
                    {"mv album whole; head -c -1 whole > album; saving load album", damaged, 1},
                    {"head -c 100 whole > album; saving load album", damaged, 1},
                    {"head -c 20 whole > album; saving load album", damaged, 1},
                    {": > album; saving load album", damaged, 1}});
}
