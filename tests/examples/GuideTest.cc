// The pages that teach show programs that we build, and what these print.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
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

// The program of a page has its name, or the number of its step.
std::string programOf(const std::string& page) {
    if (page == "README.md") return "/quickstart";
    const std::string stem = std::filesystem::path(page).stem();
    const bool isStep = std::isdigit(static_cast<unsigned char>(stem[0])) != 0;
    return "/guide/guide_" + (isStep                  ? "step" + stem.substr(0, 1)
                              : stem == "coming-from" ? "peers"
                                                      : stem);
}

// And the index leads to every page.
TEST(Guide, ShowsTheProgramsThatWeBuildAndWhatTheyPrint) {
    std::string code;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(FXDS_SOURCE_DIR "/examples")) {
        if (entry.is_regular_file()) code += contents(entry.path());
    }
    std::vector<std::string> pages = {"README.md"};
    for (const auto& entry : std::filesystem::directory_iterator(FXDS_SOURCE_DIR "/docs/guide")) {
        pages.push_back("docs/guide/" + entry.path().filename().string());
    }
    const std::string index = contents(FXDS_SOURCE_DIR "/docs/guide/README.md");
    int programs = 0;
    for (const std::string& page : pages) {
        SCOPED_TRACE(page);
        const std::string file = std::filesystem::path(page).filename();
        EXPECT_TRUE(file == "README.md" || index.find("](" + file + ")") != std::string::npos);
        const std::string text = contents(FXDS_SOURCE_DIR "/" + page);
        std::vector<std::string> blocks = blocksOf(text, "cpp");
        for (const std::string& block : blocksOf(text, "flow")) blocks.push_back(block);
        for (const std::string& block : blocks) {
            EXPECT_NE(code.find(block), std::string::npos) << block;
        }
        const std::string program = FXDS_EXAMPLES + programOf(page);
        if (!std::filesystem::exists(program)) continue;
        EXPECT_GE(blocks.size(), 2U);
        ++programs;
        std::string shown;
        for (const std::string& block : blocksOf(text, "text")) shown += block;
        int status = -1;
        EXPECT_EQ(outputOf(program, status), shown);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(programs, 13);
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
    {"cmake ", "builds or installs; Rooms finds its presets, Install runs what README.md installs"},
    {"export PKG_CONFIG_PATH", "needs what is installed; Install runs it"},
    {"g++ -std=c++17 program.cc $(pkg-config", "needs what is installed; Install runs it"},
    {"bench/", "measures for minutes"},
    {"build/bench/", "is not built here"},
    {"build/fuzz/", "runs for a minute, and is not built here"},
    {"clang-tidy ", "needs the preset clang; ./check looks at every file with it"},
    {"tests/mutations/run", "runs for half an hour; MutationsApply looks at its faults"},
};

/// The commands that the page shows, without what is said of them.
std::vector<std::string> commandsOf(const std::string& page) {
    const std::regex command(
        "    (([A-Z_]+=\\S+ )?((\\./|build/|bench/|tests/)[a-z]|"
        "(cmake|export|g\\+\\+|clang-tidy|mkdir|fxdump|fxgrep|fxflow) ).*)");
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
        {"TEST_ROUNDS=1000", "TEST_ROUNDS=1"},
        {"-I\\.", "-I" FXDS_SOURCE_DIR},
        {"^g\\+\\+", FXDS_COMPILER},
        {"( )examples/", "$1" FXDS_SOURCE_DIR "/examples/"},
        {"/tmp/new", FXDS_SOURCE_DIR "/tests/fuzz/corpus/Str"},
        {"( |^)tests/", "$1" FXDS_SOURCE_DIR "/tests/"}};
    const std::string readme = contents(FXDS_SOURCE_DIR "/README.md");
    const TestDirectory folder;
    for (const char* const name : {"first.cc", "program.cc"}) {
        folder.file(name, blocksOf(readme, "cpp").at(0));
    }
    std::vector<std::filesystem::path> files = {FXDS_SOURCE_DIR "/README.md"};
    for (const char* const place : {"", "docs", "docs/flow", "docs/guide"}) {
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
    const std::string page = contents(FXDS_SOURCE_DIR "/docs/debugging.md");
    const size_t at = page.find("    fxds timer   start");
    const std::string lines = page.substr(at, page.find("\n\n", at) + 1 - at);
    EXPECT_EQ(contents(folder.path + "/trace")
                  .find(std::regex_replace(lines, std::regex(" {4}fx"), "fx")),
              0U);
}
#endif

}  // namespace
