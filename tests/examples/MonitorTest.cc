// The monitor, run as a user would: with pipes, and on a terminal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"

namespace {

using Clock = std::chrono::steady_clock;

// Nothing here takes long; this only ends a test that would wait for ever.
constexpr auto patience = std::chrono::seconds(30);

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

// A running monitor with its output on a pipe or on a terminal of its own.
class Session {
public:
    enum Kind { pipes, terminal };

    Session(Kind kind, const std::vector<std::string>& arguments)
        : Session(kind, monitor(arguments)) {}
    Session(Kind kind, Program program) {
        program.hasTerminal = kind == terminal;
        if (kind == terminal) {
            const winsize size = {24, 80, 0, 0};
            EXPECT_EQ(0, openpty(&ours, &theirs, nullptr, nullptr, &size));
            for (const int end : {ours, theirs}) fcntl(end, F_SETFD, FD_CLOEXEC);
            for (int& file : program.files) file = theirs;
            before = attributes();
        } else {
            int ends[2];
            EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
            ours = ends[0];
            program.files[1] = ends[1];
        }
        process = start(program);
        // The terminal stays open here, so that it can be looked at afterwards.
        if (kind == pipes) close(program.files[1]);
    }
    ~Session() {
        if (process > 0) {
            kill(process, SIGKILL);
            waitpid(process, nullptr, 0);
        }
        close(ours);
        if (theirs >= 0) close(theirs);
    }

    // Reads until the text has come since the last call; false when it never does.
    bool sees(const std::string& text) {
        const auto deadline = Clock::now() + patience;
        while (output.find(text, seen) == std::string::npos) {
            if (Clock::now() > deadline || !readSome(ours, output)) return false;
        }
        seen = output.find(text, seen) + text.size();
        return true;
    }

    // Waits for the end and returns the status as waitpid() has it.
    int end() {
        const auto deadline = Clock::now() + patience;
        int status = -1;
        pid_t ended = 0;
        while (ended == 0 && Clock::now() < deadline) {
            ended = waitpid(process, &status, WNOHANG);
            if (ended == 0) readSome(ours, output, 20);
        }
        if (ended != 0) process = 0;
        while (readSome(ours, output, 0)) {
        }
        return status;
    }

    void type(const char* keys) const {
        EXPECT_EQ(static_cast<ssize_t>(std::strlen(keys)), write(ours, keys, std::strlen(keys)));
    }

    termios attributes() const {
        termios result = {};
        EXPECT_EQ(0, tcgetattr(theirs, &result));
        return result;
    }

    termios before = {};  // what attributes() are when the program starts
    int ours = -1;        // the reading end, or the terminal's master
    int theirs = -1;      // the terminal itself
    pid_t process = 0;
    std::string output;

private:
    static bool readSome(int from, std::string& into, int waitMs = 100) {
        pollfd ready = {from, POLLIN, 0};
        if (poll(&ready, 1, waitMs) <= 0) return waitMs > 0;
        char part[4096];
        const ssize_t count = read(from, part, sizeof part);
        if (count <= 0) return false;
        into.append(part, static_cast<size_t>(count));
        return true;
    }

    size_t seen = 0;
};

long countLines(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::vector<std::string> onFake(const FakeProc& proc, std::vector<std::string> more = {}) {
    more.insert(more.end(), {"--proc", proc.directory, "--interval", "0.02"});
    return more;
}

bool sameAttributes(const termios& a, const termios& b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag &&
           a.c_lflag == b.c_lflag && std::memcmp(a.c_cc, b.c_cc, sizeof a.c_cc) == 0;
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

const char terminalGivenBack[] = "\33[?25h\33[?1049l";

}  // namespace

TEST(MonitorLines, AsManyAsAskedEachWithEveryQuantity) {
    FakeProc proc;
    const Result result = run(onFake(proc, {"--samples", "3"}));
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.errors);
    EXPECT_EQ(3, countLines(result.output));
    EXPECT_TRUE(has(result.output,
                    "  cpu -  memory 75.0%  swap 60.0%!  load 0.52  tasks 345  read 0 B/s"
                    "  write 0 B/s  net in 0 B/s  net out 0 B/s\n"))
        << result.output;
    // What there is none of is left out.
    proc.write("meminfo", "MemTotal:  8388608 kB\nMemAvailable:  2097152 kB\nSwapTotal: 0 kB\n");
    proc.write("diskstats", "7 0 loop0 9 0 2 0 9 0 4 0\n");
    EXPECT_TRUE(has(run(onFake(proc, {"--samples", "1"})).output,
                    "memory 75.0%  load 0.52  tasks 345  net in"));
    EXPECT_EQ(5, countLines(run({"--interval", "0.02"}).output)) << "when it is no terminal";
}

TEST(MonitorLines, RatesAndAlarmsFollowTheMachine) {
    FakeProc proc;
    Session session(Session::pipes, onFake(proc, {"--samples", "1000000"}));
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
    EXPECT_FALSE(has(session.output, "cpu -9"));

    kill(session.process, SIGTERM);
    const int status = session.end();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
}

TEST(MonitorLines, MissingAndStrangeFilesSwitchOffTheirSamplerOnly) {
    FakeProc proc;
    std::filesystem::remove(proc.directory + "/net/dev");
    proc.write("stat", "intr 0\n");
    const Result result = run(onFake(proc, {"--samples", "2"}));
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(2, countLines(result.output));
    EXPECT_TRUE(has(result.output, "cpu -  memory 75.0%")) << result.output;
    EXPECT_TRUE(has(result.output, "net in -  net out -\n")) << result.output;
    EXPECT_EQ(2, countLines(result.errors)) << result.errors;  // told once, not every time
    EXPECT_TRUE(has(result.errors, "network is off: ")) << result.errors;
    EXPECT_TRUE(has(result.errors, "/net/dev: No such file or directory\n")) << result.errors;
    EXPECT_TRUE(has(result.errors, "cpu is off: ")) << result.errors;

    EXPECT_EQ(0, run({"--proc", "/nowhere", "--samples", "1", "--interval", "0.02"}).status);
}

TEST(MonitorRecording, ReplaysWhatWasShown) {
    FakeProc proc;
    const std::string file = proc.directory + "/recording";
    const Result recorded = run(onFake(proc, {"--samples", "3", "--record", file}));
    EXPECT_EQ(0, recorded.status) << recorded.errors;
    const Result replayed = run({"--replay", file});
    EXPECT_EQ(0, replayed.status) << replayed.errors;
    EXPECT_EQ(recorded.output, replayed.output);  // times and alarms, too
    EXPECT_TRUE(has(replayed.output, "swap 60.0%!")) << replayed.output;
    EXPECT_EQ(2, countLines(run({"--replay", file, "--samples", "2"}).output));

    Session session(Session::terminal, {"--replay", file, "--interval", "0.01"});
    EXPECT_TRUE(session.sees("end of the recording"));
    EXPECT_TRUE(session.sees("PAUSED  smoothing off  sample 3"));
    session.type("q");
    EXPECT_EQ(0, session.end());
}

TEST(MonitorRecording, SurvivesWhateverEndsIt) {
    for (const int signalNumber : {SIGTERM, SIGKILL}) {
        FakeProc proc;
        const std::string file = proc.directory + "/recording";
        Session session(Session::terminal, onFake(proc, {"--record", file}));
        ASSERT_TRUE(session.sees("sample 2"));
        session.type("w");
        ASSERT_TRUE(session.sees("saved "));
        ASSERT_TRUE(session.sees("sample 41"));  // at the tenth of them it was saved
        kill(session.process, signalNumber);
        session.end();
        EXPECT_LE(9, countLines(run({"--replay", file}).output));
    }
}

TEST(MonitorRecording, DamagedFilesGetOneLineAndStatus1) {
    FakeProc proc;
    const std::string file = proc.directory + "/recording";
    const std::string damaged = proc.directory + "/damaged";
    ASSERT_EQ(0, run(onFake(proc, {"--samples", "2", "--record", file})).status);
    proc.write("damaged", contents(file).substr(0, 100));
    const Result result = run({"--replay", damaged});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(0U, result.errors.find("monitor: " + damaged + " is not complete: "));
    EXPECT_EQ("", result.output);
    EXPECT_EQ(1, run({"--replay", proc.directory}).status);
    const Result unwritable = run(onFake(proc, {"--samples", "1", "--record", "/nowhere/file"}));
    EXPECT_EQ(1, unwritable.status);
    EXPECT_EQ("monitor: /nowhere/file: No such file or directory\n", unwritable.errors);
    EXPECT_EQ("", unwritable.output);  // before it begins
}

TEST(MonitorOptions, BadOnesGetOneLineAndStatus2) {
    const std::vector<std::string> bad[] = {{"--nonsense"},
                                            {"-x"},
                                            {"word"},
                                            {"--samples"},
                                            {"--samples", "0"},
                                            {"--samples", "3x"},
                                            {"--samples", "99999999999"},
                                            {"--interval", "0"},
                                            {"--interval", "nan"},
                                            {"--interval", "-1"},
                                            {"--interval", ""},
                                            {"--record", ""},
                                            {"--record", "a", "--replay", "b"}};
    const std::string help = run({"--help"}).output;
    EXPECT_EQ(0U, run({"--version"}).output.find("monitor of libostrelfxds "));
    for (const std::vector<std::string>& arguments : bad) {
        if (arguments.size() == 2) {
            EXPECT_TRUE(has(help, arguments[0])) << arguments[0];
        }
        const Result result = run(arguments);
        EXPECT_EQ(2, result.status) << arguments[0];
        EXPECT_EQ("", result.output);
        EXPECT_EQ(1, countLines(result.errors)) << result.errors;
        EXPECT_TRUE(has(result.errors, arguments[0])) << result.errors;
    }
}

TEST(MonitorOptions, GraphShowsObjectsTypesAndConverters) {
    const Result result = run({"--graph"});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(0U, result.output.find("digraph network {\n"));
    EXPECT_TRUE(endsWith(result.output, "\n}\n"));
    for (const char* part : {"Cpu\\n", "Smooth\\n", "Level\\n", "Gauge\\n", "Keyboard", "fxSignal",
                             "high : fxStr = 90", "double to float", "bool to int",
                             "char* to fxStr", "double to char*", "int to char*"}) {
        EXPECT_TRUE(has(result.output, part)) << part;
    }
    const TestDirectory room;
    EXPECT_EQ(0, run({"--graph=" + room.path + "/net.gv"}).status);
    EXPECT_EQ(0U, contents(room.path + "/net.gv").find("digraph network {\n"));
    const Result picture = run({"--graph=" + room.path + "/net.svg"});
    const bool hasGraphviz = std::system("command -v dot >/dev/null") == 0;
    EXPECT_EQ(hasGraphviz ? 0 : 1, picture.status);
    EXPECT_TRUE(has(hasGraphviz ? contents(room.path + "/net.svg") : picture.errors,
                    hasGraphviz ? "</svg>" : "dot, of Graphviz, cannot be run"));
    EXPECT_EQ(1, run({"--graph=" + room.path}).status);
}

TEST(MonitorTerminal, KeysActAndQuittingLeavesItAsItWas) {
    FakeProc proc;
    Session session(Session::terminal, onFake(proc));
    ASSERT_TRUE(session.sees("\33[?1049h"));
    ASSERT_TRUE(session.sees("75.0%"));
    ASSERT_TRUE(session.sees("every 0.02 s  smoothing on"));
    EXPECT_FALSE(sameAttributes(session.before, session.attributes()));
    session.type("s");
    EXPECT_TRUE(session.sees("every 0.02 s  smoothing off"));
    session.type("+");
    EXPECT_TRUE(session.sees("every 0.1 s  smoothing off"));
    session.type("s-p");
    EXPECT_TRUE(session.sees("every 0.1 s  PAUSED  smoothing on"));
    session.type("p");
    EXPECT_TRUE(session.sees("every 0.1 s  smoothing on"));
    session.type("?");
    EXPECT_TRUE(session.sees("pause, and go on"));
    session.type("?");
    EXPECT_TRUE(session.sees("75.0%"));
    session.type("q");
    EXPECT_EQ(0, session.end());
    EXPECT_TRUE(sameAttributes(session.before, session.attributes()));
    EXPECT_TRUE(endsWith(session.output, terminalGivenBack));
}

TEST(MonitorTerminal, EveryDeathLeavesItAsItWas) {
    for (const int signalNumber : {SIGTERM, SIGINT, SIGHUP, SIGABRT}) {
        FakeProc proc;
        Session session(Session::terminal, onFake(proc));
        ASSERT_TRUE(session.sees("sample"));
        kill(session.process, signalNumber);
        const int status = session.end();
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signalNumber) << status;
        EXPECT_TRUE(sameAttributes(session.before, session.attributes())) << signalNumber;
        EXPECT_TRUE(endsWith(session.output, terminalGivenBack)) << signalNumber;
    }
}

TEST(MonitorTerminal, PicturesFitWhateverTheWidth) {
    FakeProc proc;
    std::filesystem::remove(proc.directory + "/loadavg");  // a long notice is cut too
    Session session(Session::terminal, onFake(proc));
    ASSERT_TRUE(session.sees("load is off"));
    for (const unsigned short columns :
         std::initializer_list<unsigned short>{200, 80, 40, 20, 9, 1}) {
        const winsize size = {24, columns, 0, 0};
        ASSERT_EQ(0, ioctl(session.ours, TIOCSWINSZ, &size));
        // The picture being drawn may be of the old width, the third is not.
        for (int i = 0; i < 3; ++i) ASSERT_TRUE(session.sees("\33[J"));
        const size_t end = session.output.rfind("\33[J");
        const size_t start = session.output.rfind("\33[H", end) + 3;
        std::istringstream picture(std::regex_replace(session.output.substr(start, end - start),
                                                      std::regex("\33\\[[0-9;]*[mK]|\r"), ""));
        size_t widest = 0;
        for (std::string line; std::getline(picture, line);) widest = std::max(widest, line.size());
        EXPECT_LE(widest, columns);
        EXPECT_GE(widest, std::min<size_t>(columns, 60));  // and it makes use of it
    }
}

TEST(MonitorTerminal, LosingItEndsTheMonitor) {
    FakeProc proc;
    Session session(Session::terminal, onFake(proc));
    ASSERT_TRUE(session.sees("sample"));
    close(session.theirs);
    close(session.ours);
    session.ours = session.theirs = open("/dev/null", O_RDWR);
    EXPECT_NE(-1, session.end());
}

#ifdef FXFLOW_PATH

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
    EXPECT_TRUE(session.sees(sample)) << session.output;
    const size_t begin = session.output.rfind("\33[H");
    return session.output.substr(begin, session.output.rfind("\33[K") - begin);
}

}  // namespace

TEST(MonitorFlow, ShowsWhatTheProgramShows) {
    const FakeProc proc;
    const std::regex time("[0-9]+:[0-9]+:[0-9]+");
    const Result lines = run(monitorFlow(proc, "2"));
    EXPECT_EQ(lines.errors, "");
    EXPECT_EQ(std::regex_replace(lines.output, time, ""),
              std::regex_replace(run(onFake(proc, {"--samples", "2"})).output, time, ""));

    Session text(Session::terminal, monitorFlow(proc, "0"));
    Session program(Session::terminal, {"--interval", "0.2", "--proc", proc.directory});
    const std::string rows = rowsOf(program, "sample 3");
    EXPECT_EQ(rowsOf(text, "sample 3"), rows);
    EXPECT_TRUE(has(rows, "memory")) << rows;
    kill(text.process, SIGTERM);
    text.end();
    EXPECT_TRUE(has(text.output, terminalGivenBack));
}

#endif
