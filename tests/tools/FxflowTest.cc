// The tool that runs, checks, tests and shows flows: what its user notices.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"

namespace {

const char errorsFlow[] =
    "log   = Lines file=app.log\n"
    "error = Match pattern=ERROR\n"
    "count = Count\n"
    "say   = Print format=\"%s so far\"\n"
    "log.line -> error.text\n"
    "error.matched -> count.count\n"
    "count.value -> say.value\n";

std::string tickFlow(const std::string& format) {
    return "ticker = Ticker every=0.01\ncount = Count\nsay = Print format=\"" + format +
           "\"\nticker.tick -> count.count\ncount.value -> say.value\n";
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// A folder of files, and of the sockets of flows.
class Fxflow : public ::testing::Test {
protected:
    Fxflow() {
        folder.file("app.log", "ERROR one\nall is well\nERROR two\n");
        folder.file("other.log", "ERROR three\n");
        folder.file("errors.flow", errorsFlow);
        chmod(folder.path.c_str(), 0700);
    }

    std::string commandOf(const std::string& arguments) const {
        return "cd " + folder.path + " || exit\nexport XDG_RUNTIME_DIR=$PWD\nPATH=" +
               std::filesystem::path(FXFLOW_PATH).parent_path().string() + ":$PATH\n" + arguments;
    }
    std::string outputOfShell(const std::string& command) {
        return outputOf(commandOf(command), status);
    }

    const TestDirectory folder;
    int status = -1;
};

TEST_F(Fxflow, AnswersCommandLines) {
    folder.file("twice.flow", "a = Lnes\nb = Print frmat=x\na.line -> b.value\nb.x -> other.y\n");
    folder.file("good.flow",
                "include \"errors.flow\"\n"
                "test \"errors count\" {\n"
                "  send log.line ERROR 3 times\n"
                "  expect count.value 1\n"
                "  expect last say.printed \"3 so far\"\n"
                "  expect no error.missed\n"
                "}\n");
    folder.file("bad.flow",
                "include \"good.flow\"\n"
                "test \"five & ]]>\\xff\\xc2\\x9b\xC3\xA9\" {\n"
                "  send log.line ERROR 5 times\n"
                "  pass 1.5\n"
                "  expect last count.value 6\n"
                "}\n");
    folder.file("beside.flow", "r = Rate every=1\n");
    folder.file("beside.flow.test",
                "include \"beside.flow\"\n"
                "test \"after a second\" {\n"
                "  send r.count\n  expect no r.value\n  pass 1\n  expect r.value 1.0\n"
                "}\n");
    folder.file("circle.flow",
                "f = Format format=%s\nf.text -> f.value\ntest round {\n  send f.value x\n}\n");
    folder.file("lone.flow", "");
    folder.file("lone.flow.test", "test \"it\" {\n}\n");
    folder.link("upper.so", UPPER_PATH);
    folder.file("upper.flow",
                "include errors.flow\nuse upper.so\nup = Upper\ncry = Print\n"
                "error.missed -> up.text\nup.text -> cry.value\n");
    folder.file("tick.flow", tickFlow("%s"));
    folder.file(
        "round.flow",
        tickFlow("%s") + "f = Format format=%s\ncount.value -> f.value\nf.text -> f.value\n");
    folder.file("dear.flow", "a = Print\nuse \"nowhere.so\"\nb = Unknown\n");
    const std::vector<Command> rows = {
        {"fxflow errors.flow", "1 so far\n2 so far\n", 0},
        {"fxflow --set log.file=other.log --set say.format=%s! errors.flow", "1!\n", 0},
        {"fxflow --set lag.file=x errors.flow", "error: there is no object \"lag\"...", 1},
        {"fxflow --set log errors.flow", "fxflow: --set takes OBJECT.PROPERTY=VALUE, not log\n", 2},
        {"fxflow --check errors.flow good.flow", "", 0},
        {"fxflow --check twice.flow",
         "twice.flow:1:5: error: there is no class \"Lnes\"; did you mean \"Lines\"?\n"
         "twice.flow:2:11: error: Print has no property \"frmat\"; did you mean \"format\"?\n"
         "twice.flow:4:3: error: Print has no output \"x\"; it has \"printed\"\n"
         "twice.flow:4:8: error: there is no object \"other\"; there are \"a\", \"b\"\n",
         1},
        {"sed '1,/^```flow/d; /^```/,$d' " FXDS_SOURCE_DIR "/docs/flow/grammar.md > g.flow; "
         "grep -c ' -> ' g.flow; fxflow --check g.flow",
         "3\n", 0},
        {"fxflow nowhere.flow", "nowhere.flow: error: ...", 1},
        {"fxflow --check dear.flow", "dear.flow:2:5: error: a check loads no plug-in ...", 1},
        {"fxflow dear.flow", "dear.flow:2:5: error: ...", 1},
        {"printf 'use \"x\\\\x00\"' > zero.flow; fxflow zero.flow 2>&1 | grep -o 'Invalid.*'",
         "Invalid argument\n", 0},
        {"fxflow upper.flow | grep WELL", "ALL IS WELL\n", 0},
        {"fxflow $(fxflow --check upper.flow 2>&1 | grep -o -e '--plugin .*') --check upper.flow",
         "", 0},
        {"fxflow --plugin ./upper.so --describe Upper", "Upper: ...", 0},
        {"fxflow --plugin ./nowhere.so errors.flow", "fxflow: ...", 1},
        {"fxflow test good.flow", "good.flow\n  ok      errors count\n1 test, 0 failed\n", 0},
        {"fxflow test --junit report.xml bad.flow",
         "bad.flow\n"
         "  ok      errors count\n"
         "  FAILED  five & ]]>\\xff\\xc2\\x9b\xC3\xA9\n"
         "    bad.flow:5:3: error: expected 6 from count.value, got 5\n"
         "2 tests, 1 failed\n",
         1},
        {"grep -c 'five &amp; ]]&gt;.xff.xc2.x9b\xC3\xA9\"' report.xml", "1\n", 0},
        {"fxflow --set r.every=1 test beside.flow",
         "beside.flow\n  ok      after a second\n1 test, 0 failed\n", 0},
        {"fxflow test circle.flow | sed -n 3p",
         "    circle.flow:4:3: error: values go round without end\n", 0},
        {"fxflow test lone.flow", "lone.flow.test:1:1: error: does not include the flow...", 1},
        {"fxflow test --junit report.xml dear.flow 2>/dev/null",
         "0 tests, 0 failed, not tested: 1 file\n", 1},
        {"grep -c 'errors=\"1\"\\|<error message=\"dear.flow:2:5' report.xml", "2\n", 0},
        {"fxflow test errors.flow", "fxflow: errors.flow has no tests\n0 tests, 0 failed\n", 2},
        {"fxflow --list | grep '^Rate '", "Rate ...", 0},
        {"fxflow --describe Level", "Level: ...", 0},
        {"fxflow --describe Lvel", "fxflow: there is no class \"Lvel\"; did you mean \"Level\"?\n",
         1},
        {"fxflow --text good.flow > again.flow && fxflow --text again.flow | cmp - again.flow", "",
         0},
        {"fxflow --dot errors.flow", "digraph ...", 0},
        {"cd fxflow; touch x.99999999 .99999999; fxflow running; ls -A; rm x.* .9*",
         ".99999999\nx.99999999\n", 0},
        {"fxflow top", "fxflow: no flow is running\n", 1},
        {"fxflow", "usage: fxflow ...", 2},
        {"fxflow --check --list errors.flow", "usage: fxflow ...", 2},
        {"fxflow --load none errors.flow", "fxflow: ...", 1},
        {"fxflow --load s --save s errors.flow", "1 so far\n2 so far\n", 0},
        {"fxflow --load s --save s --set log.file=other.log errors.flow", "3 so far\n", 0},
        {"fxflow errors.flow > /dev/full", "fxflow: say: cannot write...", 1},
        {"fxflow --save piped tick.flow 2>/dev/null | sed q; test -s piped", "1\n", 0},
        {"timeout 0.2 fxflow round.flow 2>&1 >/dev/null",
         "fxflow: still queued at the end, and lost: ...", 124},
        {"chmod 755 fxflow; fxflow errors.flow", "fxflow: no other terminal can look into...", 0},
        {"rmdir fxflow; ln -s . fxflow; fxflow running", "fxflow: ...", 1},
    };
    expectCommands(commandOf(""), rows);
}

int numberIn(const std::string& line) {
    const size_t digit = line.find_first_of("0123456789");
    return digit != std::string::npos ? std::stoi(line.substr(digit)) : -1;
}

// One session, from start to end: a changed file, a faulty one, views from other terminals.
TEST_F(Fxflow, ChangesAndIsWatchedWhileItRuns) {
    folder.file("tick.flow", "include \"rest.flow\"\n");
    folder.file("rest.flow", tickFlow("first %s."));
    Session flow({{"/bin/sh", "-c", commandOf("exec fxflow --save state tick.flow")}});
    const int before = numberIn(flow.lineWith("first 3."));

    folder.file("rest.flow", tickFlow("second %s."));
    EXPECT_EQ(flow.lineWith("tick", 2), "fxflow: tick.flow is applied: 0 new, 1 changed, 0 gone\n");
    EXPECT_GT(numberIn(flow.lineWith("second")), before) << "count has forgotten";

    folder.file("rest.flow", tickFlow("third %s.") + "count.valu -> say.value\n");
    EXPECT_TRUE(
        contains(flow.lineWith(": error: ", 2), "rest.flow:6:7: error: Count has no output"));
    EXPECT_TRUE(contains(flow.lineWith("faulty", 2), "the flow goes on"));
    EXPECT_NE(flow.lineWith("second"), "");

    folder.file("rest.flow", "");
    EXPECT_EQ(flow.lineWith("error", 2), "tick.flow: error: has no objects\n");

    folder.file("rest.flow", tickFlow("fourth %s."));
    flow.tell(SIGHUP);
    EXPECT_NE(flow.lineWith("fourth"), "");

    EXPECT_TRUE(contains(outputOfShell("fxflow running"), "tick "));
    const std::string tapped = outputOfShell("fxflow tap tick count.value | head -3");
    EXPECT_EQ(std::count(tapped.begin(), tapped.end(), '\n'), 3) << tapped;
    EXPECT_TRUE(contains(tapped, " count.value ")) << tapped;
    EXPECT_TRUE(contains(outputOfShell("fxflow tap say.printed | head -1"), "\"fourth "));
    EXPECT_EQ(outputOfShell("fxflow tap count.valu"),
              "fxflow: count has no channel \"valu\"; did you mean \"value\"?\n");
    EXPECT_EQ(status, 1);
    const std::string table = outputOfShell("fxflow top --every 0.1 --count 2 tick");
    EXPECT_TRUE(contains(table, "3 objects, ")) << table;
    EXPECT_TRUE(contains(table, "  count.value ")) << table;
    EXPECT_TRUE(contains(outputOfShell("fxflow show"), "format=\"fourth %s.\""));
    EXPECT_TRUE(contains(outputOfShell("fxflow top nowhere"), "there is no flow nowhere"));

    EXPECT_EQ(flow.end(SIGTERM), 0);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path + "/fxflow"));
    EXPECT_TRUE(std::filesystem::exists(folder.path + "/state"));
}

// Visitors that send nonsense, read nothing, or come in crowds, and flows that have died.
TEST_F(Fxflow, BearsHostileVisitors) {
    folder.file("tick.flow",
                "ticker = Ticker every=0.001\ncount = Count\nsay = Print\n"
                "long = Format format=\"%s " +
                    std::string(4000, 'x') +
                    "\"\n"
                    "ticker.tick -> count.count\ncount.value -> long.value, say.value\n");
    Session flow({{"/bin/sh", "-c", commandOf("exec fxflow tick.flow")}});
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
    EXPECT_EQ(outputOfShell("fxflow running"), "");
    EXPECT_TRUE(std::filesystem::is_empty(folder.path + "/fxflow"));
}

// The page is a session: its blocks of flows are files, called as their first lines say,
// and its blocks of commands are run and print what stands below them.
TEST_F(Fxflow, FiveMinutesPageIsTrue) {
    std::ifstream page(FXDS_SOURCE_DIR "/docs/flow/five-minutes.md");
    std::string block;
    std::string kind;
    std::string commands;
    std::string shown;
    int blocks = 0;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("```", 0) != 0) {
            const bool isCommand = line.rfind("$ ", 0) == 0;
            (isCommand           ? commands
             : kind == "console" ? shown
                                 : block) += line.substr(isCommand ? 2 : 0) + '\n';
            continue;
        }
        if (kind == "flow") {
            folder.file(block.substr(2, block.find(':') - 2), block);
        } else if (kind == "console") {
            EXPECT_EQ(outputOfShell(commands), shown) << commands;
            ++blocks;
        }
        kind = kind.empty() ? line.substr(3) : "";
        block = commands = shown = "";
    }
    EXPECT_GE(blocks, 7);
}

}  // namespace
