// The tools where a page of commands does not do: hostile visitors, a terminal, too little
// memory. ConsoleTest has their command lines.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"

namespace {

int numberIn(const std::string& line) {
    const size_t digit = line.find_first_of("0123456789");
    return digit != std::string::npos ? std::stoi(line.substr(digit)) : -1;
}

// Visitors that send nonsense, read nothing, or come in crowds, and flows that have died.
TEST(Fxflow, BearsHostileVisitors) {
    const TestDirectory folder;
    int status = -1;
    const std::string fxflow =
        "cd " + folder.path + "; export XDG_RUNTIME_DIR=$PWD; exec " FXFLOW_PATH;
    folder.file("tick.flow",
                "ticker = Ticker every=0.001\ncount = Count\nsay = Print\n"
                "long = Format format=\"%s " +
                    std::string(4000, 'x') +
                    "\"\n"
                    "ticker.tick -> count.count\ncount.value -> long.value, say.value\n");
    Session flow({{"/bin/sh", "-c", fxflow + " tick.flow"}});
    flow.lineWith("1");
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path + "/fxflow")) {
        struct stat socket;
        EXPECT_EQ(lstat(entry.path().c_str(), &socket), 0);
        EXPECT_EQ(socket.st_mode & 0777U, 0600U);
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s", entry.path().c_str());
    }
    std::vector<int> visitors(40);
    for (int& each : visitors) {
        each = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(each, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) break;
    }
    const std::string nonsense = std::string(200000, 'n') + "\ntop 99999999999999999999\n\n";
    EXPECT_GT(send(visitors[1], nonsense.data(), nonsense.size(), MSG_NOSIGNAL), 0);
    EXPECT_EQ(send(visitors[0], "tap long.text\n", 14, MSG_NOSIGNAL), 14);
    flow.lineWith("1000");  // by then more than its buffer has been sent to the first
    const int before = numberIn(flow.lineWith(""));
    std::FILE* const lines = fdopen(visitors[0], "r");
    char line[8192];
    unsigned long dropped = 0;
    while (dropped == 0 && std::fgets(line, sizeof line, lines) != nullptr) {
        std::sscanf(line, "d %lu", &dropped);
    }
    EXPECT_GT(dropped, 0UL);
    EXPECT_GE(numberIn(flow.lineWith("")), before);
    std::fclose(lines);
    for (size_t i = 1; i < visitors.size(); ++i) close(visitors[i]);

    flow.end(SIGKILL);
    EXPECT_FALSE(std::filesystem::is_empty(folder.path + "/fxflow"));
    EXPECT_EQ(outputOf(fxflow + " running", status), "");
    EXPECT_TRUE(std::filesystem::is_empty(folder.path + "/fxflow"));
}

class Fxgrep : public testing::Test {
protected:
    // Its output goes to `out` when that is given.
    Result run(const std::vector<std::string>& arguments, const std::string& input, int out = -1) {
        Program program = {{FXGREP_PATH},
                           directory.path,
                           {{"TERM", "xterm"}, {"NO_COLOR", nullptr}},
                           {-1, out, -1}};
        program.words.insert(program.words.end(), arguments.begin(), arguments.end());
        return ::run(program, input);
    }

    const TestDirectory directory;
};

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
