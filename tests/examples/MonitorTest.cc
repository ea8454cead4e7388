// The monitor, run as a user would: with pipes, and on a terminal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"

namespace {

// A directory with what the kernel would tell.
class FakeProc {
    const TestDirectory room;

public:
    FakeProc() {
        room.directory("net");
        writeStat(100, 200);
        write("meminfo",
              "MemTotal:  8388608 kB\nMemFree: 9 kB\nMemAvailable:  2097152 kB\n"
              "SwapTotal: 1000 kB\nSwapFree:  400 kB\n");
        write("loadavg", "0.52 0.40 0.30 2/345 6789\n");
        write("diskstats", "8 0 sda 9 0 2 0 9 0 4 0\n8 1 sda1 9 0 2 0 9 0 4 0\n");
        write("net/dev",
              "Inter-|   Receive  |  Transmit\n face |bytes packets|bytes packets\n"
              "    lo:  900 1 0 0 0 0 0 0  900 1 0 0 0 0 0 0\n"
              "  eth0: 5000 1 0 0 0 0 0 0 7000 1 0 0 0 0 0 0\n");
    }

    // At once, so that the monitor never sees half of a file.
    void write(const std::string& name, const std::string& text) const {
        std::filesystem::rename(room.file("new", text), directory + "/" + name);
    }
    void writeStat(int busy, int idle) const {
        const std::string ticks =
            " " + std::to_string(busy) + " 0 0 " + std::to_string(idle) + "\n";
        write("stat", "cpu " + ticks + "cpu0" + ticks + "cpu1 0 0 0 1\n");
    }

    const std::string directory = room.path;
};

Program monitor(const std::vector<std::string>& arguments) {
    Program program = {{MONITOR_PATH}, ".", {{"TERM", "xterm"}, {"LC_ALL", "C"}}};
    program.words.insert(program.words.end(), arguments.begin(), arguments.end());
    return program;
}

Result run(const std::vector<std::string>& arguments) { return run(monitor(arguments)); }

// A terminal of 24 rows for a program, and what its user sees and does.
class Terminal {
public:
    Terminal() {
        const winsize size = {24, 80, 0, 0};
        EXPECT_EQ(0, openpty(&ours, &theirs, nullptr, nullptr, &size));
        for (const int end : {ours, theirs}) fcntl(end, F_SETFD, FD_CLOEXEC);
        before = attributes();
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() { close(theirs); }  // Session closes the other

    Program of(Program program) const {
        for (int& file : program.files) file = theirs;
        program.hasTerminal = true;
        return program;
    }
    void type(const std::string& keys) const {
        EXPECT_EQ(static_cast<ssize_t>(keys.size()), write(ours, keys.data(), keys.size()));
    }
    bool isAsBefore() const {
        const termios now = attributes();
        return now.c_iflag == before.c_iflag && now.c_oflag == before.c_oflag &&
               now.c_cflag == before.c_cflag && now.c_lflag == before.c_lflag &&
               std::memcmp(now.c_cc, before.c_cc, sizeof now.c_cc) == 0;
    }

    int ours = -1;
    int theirs = -1;

private:
    termios attributes() const {
        termios result = {};
        EXPECT_EQ(0, tcgetattr(theirs, &result));
        return result;
    }

    termios before = {};
};

long countLines(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::vector<std::string> onFake(const FakeProc& proc, std::vector<std::string> more = {}) {
    more.insert(more.end(), {"--proc", proc.directory, "--interval", "0.02"});
    return more;
}

const char terminalGivenBack[] = "\33[?25h\33[?1049l";

}  // namespace

TEST(Monitor, PrintsEveryQuantityThatThereIs) {
    FakeProc proc;
    const Result result = run(onFake(proc, {"--samples", "3"}));
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.errors);
    EXPECT_EQ(3, countLines(result.output));
    EXPECT_TRUE(has(result.output,
                    "  cpu -  memory 75.0%  swap 60.0%!  load 0.52  tasks 345  read 0 B/s"
                    "  write 0 B/s  net in 0 B/s  net out 0 B/s\n"))
        << result.output;
    proc.write("meminfo", "MemTotal:  8388608 kB\nMemAvailable:  2097152 kB\nSwapTotal: 0 kB\n");
    proc.write("diskstats", "7 0 loop0 9 0 2 0 9 0 4 0\n");
    proc.write("stat", "intr 0\n");
    std::filesystem::remove(proc.directory + "/net/dev");
    const Result less = run(onFake(proc, {"--samples", "2"}));
    EXPECT_TRUE(has(less.output, "cpu -  memory 75.0%  load 0.52  tasks 345  net in -  net out -"));
    EXPECT_EQ(2, countLines(less.errors)) << "told once, not every time: " << less.errors;
    EXPECT_TRUE(has(less.errors, "/net/dev: No such file or directory\n")) << less.errors;
    EXPECT_TRUE(has(less.errors, "cpu is off: ")) << less.errors;
}

TEST(Monitor, RatesAndAlarmsFollowTheMachine) {
    FakeProc proc;
    Session session(monitor(onFake(proc, {"--samples", "1000000"})));
    ASSERT_TRUE(session.sees("cpu -"));
    proc.writeStat(195, 205);  // 95 of 100 ticks since
    ASSERT_TRUE(session.sees("cpu 95.0%!"));
    proc.writeStat(280, 220);  // 85: still above where the alarm ends
    ASSERT_TRUE(session.sees("cpu 85.0%!"));
    proc.writeStat(290, 310);
    ASSERT_TRUE(session.sees("cpu 10.0% "));
    proc.writeStat(0, 100);  // the counters start again: no rate, no nonsense
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(session.sees("cpu 10.0% "));
    proc.writeStat(50, 150);
    ASSERT_TRUE(session.sees("cpu 50.0% "));
    EXPECT_FALSE(has(session.output(), "cpu -9"));
    EXPECT_EQ(session.end(SIGTERM), -SIGTERM);
}

TEST(Monitor, RecordingsShowWhatWasShownWhateverEndsThem) {
    const FakeProc proc;
    const std::string file = proc.directory + "/recording";
    const Result recorded = run(onFake(proc, {"--samples", "3", "--record", file}));
    EXPECT_EQ(0, recorded.status) << recorded.errors;
    EXPECT_EQ(recorded.output, run({"--replay", file}).output);  // times and alarms, too
    EXPECT_EQ(2, countLines(run({"--replay", file, "--samples", "2"}).output));
    const Terminal screen;
    Session replay(screen.of(monitor({"--replay", file, "--interval", "0.01"})), screen.ours);
    EXPECT_TRUE(replay.sees("end of the recording"));
    EXPECT_TRUE(replay.sees("PAUSED  smoothing off  sample 3"));
    screen.type("q");
    EXPECT_EQ(0, replay.end());

    const Terminal terminal;
    Session session(terminal.of(monitor(onFake(proc, {"--record", file}))), terminal.ours);
    ASSERT_TRUE(session.sees("sample 41"));  // at the tenth of them it was saved
    session.end(SIGKILL);
    EXPECT_LE(9, countLines(run({"--replay", file}).output));
    proc.write("damaged", contents(file).substr(0, 100));
}

TEST(Monitor, ComplainsInOneLine) {
    const FakeProc proc;
    const TestDirectory room;
    const std::string damaged = room.file("damaged", "fx");
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string complaint;  // a part of it
    } rows[] = {{{"--nonsense"}, 2, "--nonsense"},
                {{"word"}, 2, "word"},
                {{"--samples"}, 2, "--samples"},
                {{"--samples", "3x"}, 2, "--samples"},
                {{"--samples", "99999999999"}, 2, "--samples"},
                {{"--interval", "0"}, 2, "--interval"},
                {{"--interval", "nan"}, 2, "--interval"},
                {{"--record", ""}, 2, "--record"},
                {{"--record", "a", "--replay", "b"}, 2, "--record"},
                {{"--replay", damaged}, 1, "monitor: " + damaged + " is not complete: "},
                {{"--replay", room.path}, 1, room.path},
                {onFake(proc, {"--record", "/nowhere/file"}), 1,
                 "monitor: /nowhere/file: No such file or directory\n"},
                {{"--graph=" + room.path}, 1, room.path}};
    for (const auto& row : rows) {
        const Result result = run(row.arguments);
        EXPECT_EQ(row.status, result.status) << row.complaint;
        EXPECT_EQ("", result.output);
        EXPECT_EQ(1, countLines(result.errors)) << result.errors;
        EXPECT_TRUE(has(result.errors, row.complaint)) << result.errors;
    }
    EXPECT_TRUE(has(run({"--help"}).output, "--replay"));
}

TEST(Monitor, GraphShowsObjectsTypesAndConverters) {
    const TestDirectory room;
    EXPECT_EQ(0, run({"--graph=" + room.path + "/net.gv"}).status);
    const std::string graph = run({"--graph"}).output;
    EXPECT_EQ(graph, contents(room.path + "/net.gv"));
    EXPECT_EQ(0U, graph.find("digraph network {\n"));
    for (const char* part :
         {"Cpu\\n", "Gauge\\n", "high : fxStr = 90", "double to float", "char* to fxStr"}) {
        EXPECT_TRUE(has(graph, part)) << part;
    }
    const Result picture = run({"--graph=" + room.path + "/net.svg"});
    const bool hasGraphviz = std::system("command -v dot >/dev/null") == 0;
    EXPECT_TRUE(has(hasGraphviz ? contents(room.path + "/net.svg") : picture.errors,
                    hasGraphviz ? "</svg>" : "dot, of Graphviz, cannot be run"));
}

TEST(Monitor, KeysActAndEveryEndLeavesTheTerminalAsItWas) {
    for (const int signal : {0, SIGTERM, SIGINT, SIGHUP, SIGABRT}) {
        const FakeProc proc;
        const Terminal terminal;
        Session session(terminal.of(monitor(onFake(proc))), terminal.ours);
        ASSERT_TRUE(session.sees("every 0.02 s  smoothing on"));
        EXPECT_FALSE(terminal.isAsBefore());
        const std::pair<const char*, const char*> keys[] = {
            {"s", "every 0.02 s  smoothing off"},
            {"+", "every 0.1 s  smoothing off"},
            {"s-p", "every 0.1 s  PAUSED  smoothing on"},
            {"p", "every 0.1 s  smoothing on"},
            {"?", "pause, and go on"},
            {"?", "75.0%"}};
        for (const auto& [key, shown] : keys) {
            if (signal != 0) break;
            terminal.type(key);
            EXPECT_TRUE(session.sees(shown)) << key;
        }
        if (signal == 0) terminal.type("q");
        EXPECT_EQ(session.end(signal), -signal);
        EXPECT_TRUE(terminal.isAsBefore()) << signal;
        const std::string& all = session.output();
        EXPECT_EQ(all.rfind(terminalGivenBack), all.size() - std::strlen(terminalGivenBack));
    }
}

TEST(Monitor, PicturesFitWhateverTheWidth) {
    const FakeProc proc;
    std::filesystem::remove(proc.directory + "/loadavg");  // a long notice is cut too
    const Terminal terminal;
    Session session(terminal.of(monitor(onFake(proc))), terminal.ours);
    for (const int columns : {200, 40, 9, 1}) {
        const winsize size = {24, static_cast<unsigned short>(columns), 0, 0};
        ASSERT_EQ(0, ioctl(terminal.ours, TIOCSWINSZ, &size));
        // What is drawn and not yet read may be of the old width.
        std::string picture;
        const auto hasLineOf = [&](int width) {
            return std::regex_search(picture, std::regex("[^\n]{" + std::to_string(width) + "}"));
        };
        for (int i = 0; i < 100 && (i < 2 || hasLineOf(columns + 1)); ++i) {
            picture = session.until("\33[J");
            ASSERT_NE(picture, "");
            picture = std::regex_replace(picture, std::regex("\33\\[[0-9;]*[HJmK]|\r"), "");
        }
        EXPECT_FALSE(hasLineOf(columns + 1)) << picture;
        EXPECT_TRUE(hasLineOf(std::min(columns, 60))) << picture;  // and it makes use of it
    }
}

namespace {

// The same network from a text.
Program monitorFlow(const FakeProc& proc, const std::string& count) {
    Program program = monitor({});
    program.words = {FXFLOW_PATH, "--set", "tick.every=0.2", "--set", "tick.count=" + count};
    for (const char* sampler : {"cpu", "memory", "load", "disk", "net"}) {
        program.words.insert(program.words.end(), {"--set", sampler + (".proc=" + proc.directory)});
    }
    program.words.emplace_back(FXDS_SOURCE_DIR "/examples/monitor.flow");
    return program;
}

// The rows of the picture that shows this sample.
std::string rowsOf(Session& session, const std::string& sample) {
    EXPECT_TRUE(session.sees(sample)) << session.output();
    const std::string& all = session.output();
    const size_t begin = all.rfind("\33[H");
    return all.substr(begin, all.rfind("\33[K") - begin);
}

}  // namespace

TEST(Monitor, FlowShowsWhatTheProgramShows) {
    const FakeProc proc;
    const std::regex time("[0-9]+:[0-9]+:[0-9]+");
    const Result lines = run(monitorFlow(proc, "2"));
    EXPECT_EQ(lines.errors, "");
    EXPECT_EQ(std::regex_replace(lines.output, time, ""),
              std::regex_replace(run(onFake(proc, {"--samples", "2"})).output, time, ""));

    const Terminal one, other;
    Session text(one.of(monitorFlow(proc, "0")), one.ours);
    Session program(other.of(monitor({"--interval", "0.2", "--proc", proc.directory})), other.ours);
    const std::string rows = rowsOf(program, "sample 3");
    EXPECT_EQ(rowsOf(text, "sample 3"), rows);
    EXPECT_TRUE(has(rows, "memory")) << rows;
    text.end(SIGTERM);
    EXPECT_TRUE(has(text.output(), terminalGivenBack));
}
