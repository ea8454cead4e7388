// The pages that teach show programs that we build, and what these print.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <vector>

#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"

namespace {

struct Page {
    const char* name;  // the file, in the source tree
    const char* program;
    std::vector<const char*> sources;  // in examples/, whose code the page shows
    unsigned int codeBlocks;           // at least so many
};

const Page pages[] = {
    {"README.md", "quickstart", {"quickstart.cc", "flows/errors.flow"}, 2},
    {"docs/guide/1-objects.md", "guide/guide_step1", {"guide/House.h", "guide/step1.cc"}, 4},
    {"docs/guide/2-sending.md", "guide/guide_step2", {"guide/Vent.h", "guide/step2.cc"}, 4},
    {"docs/guide/3-loop.md", "guide/guide_step3", {"guide/Station.h", "guide/step3.cc"}, 3},
    {"docs/guide/4-properties.md", "guide/guide_step4", {"guide/Settings.h", "guide/step4.cc"}, 4},
    {"docs/guide/5-saving.md",
     "guide/guide_step5",
     {"guide/Journal.h", "guide/Journal.cc", "guide/step5.cc"},
     4},
    {"docs/guide/6-searching.md", "guide/guide_step6", {"guide/Search.h", "guide/step6.cc"}, 4},
    {"docs/guide/7-flows.md", "guide/guide_step7", {"guide/step7.cc"}, 4},
    {"docs/guide/connections.md", "guide/guide_connections", {"guide/connections.cc"}, 5},
    {"docs/guide/hooks.md", "guide/guide_hooks", {"guide/hooks.cc"}, 3},
    {"docs/guide/ownership.md", "guide/guide_ownership", {"guide/ownership.cc"}, 3},
    {"docs/guide/values.md", "guide/guide_values", {"guide/values.cc"}, 5},
    {"docs/guide/coming-from.md",
     "guide/guide_peers",
     {"guide/peers/ours.cc", "guide/peers/qt.cc", "guide/peers/glib.cc", "guide/peers/boost.cc"},
     38},
    // Its program has a test of its own.
    {"docs/guide/saving.md", nullptr, {"saving.cc"}, 7},
    {"docs/guide/exceptions.md", nullptr, {}, 0},
};

/// What stands in the page between fences of this language.
std::vector<std::string> blocksOf(const std::string& page, const std::string& language) {
    std::vector<std::string> blocks;
    const std::string fence = "```" + language + "\n";
    for (size_t at = 0; (at = page.find(fence, at)) != std::string::npos;) {
        at += fence.size();
        const size_t end = page.find("```", at);
        if (end == std::string::npos) break;
        blocks.push_back(page.substr(at, end - at));
        at = end + 3;
    }
    return blocks;
}

// And its index leads to every page.
TEST(Guide, ShowsTheProgramsThatWeBuildAndWhatTheyPrint) {
    const std::string index = contents(FXDS_SOURCE_DIR "/docs/guide/README.md");
    for (const Page& page : pages) {
        SCOPED_TRACE(page.name);
        const std::string file = std::filesystem::path(page.name).filename();
        EXPECT_TRUE(file == page.name || index.find("](" + file + ")") != std::string::npos);
        const std::string text = contents(FXDS_SOURCE_DIR "/" + std::string(page.name));
        std::string code;
        for (const char* source : page.sources) {
            code += contents(FXDS_SOURCE_DIR "/examples/" + std::string(source));
        }
        std::vector<std::string> blocks = blocksOf(text, "cpp");
        for (const std::string& block : blocksOf(text, "flow")) blocks.push_back(block);
        EXPECT_GE(blocks.size(), page.codeBlocks);
        for (const std::string& block : blocks) {
            EXPECT_NE(code.find(block), std::string::npos) << block;
        }
        if (page.program == nullptr) continue;
        std::string shown;
        for (const std::string& block : blocksOf(text, "text")) shown += block;
        int status = -1;
        EXPECT_EQ(outputOf(FXDS_EXAMPLES "/" + std::string(page.program), status), shown);
        EXPECT_EQ(status, 0);
    }
}

// What the program prints for each topic, the word before the colon.
std::map<std::string, std::string> topicsOf(const std::string& program) {
    int status = -1;
    std::istringstream lines(outputOf(FXDS_EXAMPLES "/guide/" + program, status));
    EXPECT_EQ(status, 0) << program;
    std::map<std::string, std::string> topics;
    for (std::string line; std::getline(lines, line);) {
        topics[line.substr(0, line.find(':'))] += line + '\n';
    }
    return topics;
}

TEST(Guide, OtherLibrariesPrintTheSame) {
    std::map<std::string, std::string> ours = topicsOf("guide_peers");
    for (const std::string peer : {"peer_qt", "peer_glib", "peer_boost"}) {
        if (std::filesystem::exists(FXDS_EXAMPLES "/guide/" + peer)) {
            for (const auto& [topic, text] : topicsOf(peer)) EXPECT_EQ(text, ours[topic]) << peer;
        } else {
            std::printf("left out: %s is not built\n", peer.c_str());
        }
    }
}

#ifdef FXDS_BUILD_DIR
// Commands that are not run here.
struct Left {
    const char* begin;
    const char* reason;
} const left[] = {
    {"./run", "builds all, and starts the monitor, which its own test does"},
    {"./check", "builds all, and runs this test"},
    {"cmake ", "builds or installs; Rooms finds its presets, and Install installs"},
    {"g++ -std=c++17 program.cc", "needs what is installed; Install runs it"},
    {"bench/", "measures for minutes"},
    {"build/bench/", "is not built here"},
    {"build/fuzz/", "runs for a minute, and is not built here"},
    {"FX_TEST_ROUNDS=1000 build/asan/tests/TortureTest", "runs for minutes"},
    {"clang-tidy ", "needs the preset clang; ./check looks at every file with it"},
    {"tests/mutations/run", "runs for half an hour; MutationsApply looks at its faults"},
};

/// The commands that the page shows, without what is said of them.
std::vector<std::string> commandsOf(const std::string& page) {
    const std::regex command(
        "    (([A-Z_]+=\\S+ )?((\\./|build/|bench/|tests/)[a-z]|"
        "(cmake|g\\+\\+|clang-tidy|mkdir|fxdump|fxgrep|fxflow) ).*)");
    std::vector<std::string> commands;
    std::istringstream lines(page);
    bool isFenced = false;
    for (std::string line, next; std::getline(lines, line);) {
        if (line.rfind("```", 0) == 0) isFenced = !isFenced;
        while (!line.empty() && line.back() == '\\' && std::getline(lines, next)) {
            line.replace(line.size() - 1, 1, next);
        }
        std::smatch match;
        if (isFenced || !std::regex_match(line, match, command)) continue;
        commands.push_back(std::regex_replace(match[1].str(), std::regex(" +# .*"), ""));
    }
    return commands;
}

// One after the other in one folder, where the first program is, with this build in
// place of those that they name.
TEST(Documents, CommandsWork) {
    const std::pair<const char*, std::string> replaced[] = {
        {"build/[a-z]+(?=/)", FXDS_BUILD_DIR},
        {"-I\\.", "-I" FXDS_SOURCE_DIR},
        {"^g\\+\\+", FXDS_COMPILER},
        {"( )examples/", "$1" FXDS_SOURCE_DIR "/examples/"},
        {"/tmp/new", FXDS_SOURCE_DIR "/tests/fuzz/corpus/Str"},
        {"( |^)tests/", "$1" FXDS_SOURCE_DIR "/tests/"}};
    const std::string readme = contents(FXDS_SOURCE_DIR "/README.md");
    const TestDirectory folder;
    folder.file("first.cc", blocksOf(readme, "cpp").at(0));
    std::vector<std::filesystem::path> files = {FXDS_SOURCE_DIR "/README.md"};
    for (const char* const place : {"", "docs", "docs/guide"}) {
        for (const auto& entry :
             std::filesystem::directory_iterator(FXDS_SOURCE_DIR "/" + std::string(place))) {
            const bool isPage = entry.path().extension() == ".md";
            if (isPage && entry.path() != files[0]) files.push_back(entry);
        }
    }
    std::set<const char*> used;
    for (const auto& file : files) {
        for (std::string command : commandsOf(contents(file))) {
            SCOPED_TRACE(file.string() + ": " + command);
            const auto* const found =
                std::find_if(std::begin(left), std::end(left),
                             [&](const Left& row) { return command.rfind(row.begin, 0) == 0; });
            if (found != std::end(left)) {
                std::printf("left out: %s: %s\n", command.c_str(), found->reason);
                used.insert(found->begin);
                continue;
            }
            for (const auto& [what, with] : replaced) {
                command = std::regex_replace(command, std::regex(what), with);
            }
            int status = -1;
            const std::string shown =
                outputOf("cd " + folder.path + " && (" + command + ")", status);
            EXPECT_EQ(status, 0) << shown;
            if (command.find("first.cc") != std::string::npos) {
                EXPECT_EQ(shown, blocksOf(readme, "text").at(0));
            }
        }
    }
    EXPECT_EQ(used.size(), std::size(left)) << "commands that no page shows";
}
#endif

}  // namespace
