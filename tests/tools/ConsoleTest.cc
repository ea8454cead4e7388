// The tools and the examples as their users meet them: pages of commands, with what these
// show. In a block "console", a line with "$ " is a command of the shell, one with "> " goes
// on with it, and the others are its output on both files, up to a "..." at the end of a
// line; "[2]" is an exit status that is not 0. A block "flow" is a file, named in its first
// line. ~ stands for the folder of the page.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"

namespace {

struct Step {
    std::string command, shown = "", status = "[0]";
};

class Console : public testing::TestWithParam<const char*> {
protected:
    // Makes the files of the page, and returns its steps.
    std::vector<Step> read(const std::string& page) const {
        std::vector<Step> steps;
        std::istringstream lines(contents(FXDS_SOURCE_DIR "/" + page));
        std::string kind, file;
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind("```", 0) == 0) {
                if (kind == "flow")
                    folder.file(file.substr(2, file.find_first_of(":\n") - 2), file);
                kind = kind.empty() ? line.substr(3) : "";
                file = "";
            } else if (kind == "flow") {
                file += line + '\n';
            } else if (kind == "console" && line.rfind("$ ", 0) == 0) {
                steps.push_back({line.substr(2) + '\n'});
            } else if (kind == "console" && line.rfind("> ", 0) == 0) {
                steps.back().command += line.substr(2) + '\n';
            } else if (kind == "console") {
                const bool isStatus = std::regex_match(line, std::regex("\\[[0-9]+\\]"));
                if (isStatus) steps.back().status = line;
                if (!isStatus) steps.back().shown += line + '\n';
            }
        }
        return steps;
    }

    const TestDirectory folder;
};

// One shell runs all commands. What hangs ends, with all that it has started.
TEST_P(Console, ShowsWhatThePageShows) {
    const std::vector<Step> steps = read(GetParam());
    ASSERT_GE(steps.size(), 3U);
    std::string script = "cd " + folder.path +
                         "\nexport HOME=$PWD XDG_RUNTIME_DIR=$PWD LC_ALL=C SOURCES=" FXDS_SOURCE_DIR
                         " UPPER=" UPPER_PATH " PATH=";
    for (const char* program : {FXGREP_PATH, FXDUMP_PATH, FXFLOW_PATH, FXDS_SAVING}) {
        script += std::filesystem::path(program).parent_path().string() + ":";
    }
    script += "$PATH\n";
    for (const Step& step : steps) script += step.command + "printf '\\1[%d]\\1' $?\n";
    std::string all =
        run({{"/usr/bin/env", "timeout", "200", "/bin/sh", "-c", "exec 2>&1; " + script}}).output;
    for (size_t at; (at = all.find(folder.path)) != std::string::npos;) {
        all.replace(at, folder.path.size(), "~");
    }
    std::istringstream outputs(all);
    for (const Step& step : steps) {
        SCOPED_TRACE(step.command);
        std::string output, status;
        std::getline(outputs, output, '\1');
        std::getline(outputs, status, '\1');
        const size_t part = step.shown.find("...\n");
        EXPECT_EQ(output.substr(0, part), step.shown.substr(0, part));
        const bool hasStatus = GetParam()[0] == 't';  // documents show none
        EXPECT_EQ(status, hasStatus ? step.status : status);
    }
}

INSTANTIATE_TEST_SUITE_P(Pages, Console,
                         testing::Values("docs/flow/five-minutes.md", "tests/examples/follow.md",
                                         "tests/examples/monitor.md", "tests/examples/saving.md",
                                         "tests/flow/texts.md", "tests/tools/fxdump.md",
                                         "tests/tools/fxflow.md", "tests/tools/fxgrep.md"));

}  // namespace
