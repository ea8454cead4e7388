// The examples as their users meet them: the monitor on a terminal, the chat and job server
// with its clients. ConsoleTest has their command lines.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
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

namespace {

class Client {
public:
    explicit Client(const std::string& path) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() { close(fd); }
    void say(const std::string& line) { send(fd, (line + "\n").data(), line.size() + 1, 0); }
    // The next line; "" at the end.
    std::string hear() {
        std::string line;
        for (char c; read(fd, &c, 1) == 1 && c != '\n';) line += c;
        return line;
    }

private:
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

}  // namespace

TEST(Jobs, ClientsChatAndRunJobs) {
    const TestDirectory directory;
    const std::string path = directory.path + "/socket";
    Session server({{JOBS_PATH, path}});
    ASSERT_TRUE(server.sees("\n"));
    {
        Client ada(path);
        EXPECT_EQ(ada.hear(), "welcome guest1");
        Client bob(path);
        EXPECT_EQ(bob.hear(), "welcome guest2");
        EXPECT_EQ(ada.hear(), "guest2 comes");
        ada.say("name Ada");
        EXPECT_EQ(bob.hear(), "guest1 is Ada");
        bob.say("hello");
        for (const char* line : {"guest1 is Ada", "guest2: hello"}) EXPECT_EQ(ada.hear(), line);
        ada.say("run echo out; echo err >&2; exit 3");
        for (const char* line : {"[1] started", "[1] out", "[1] err", "[1] exit 3"}) {
            EXPECT_EQ(ada.hear(), line);
        }
        ada.say("run sleep 1000 & sleep 1000\nwho\nkill 2");
        for (const char* line : {"[2] started", "Ada, jobs: 1", "guest2, jobs: 0", "killed 2",
                                 "[2] ended by signal 15"}) {
            EXPECT_EQ(ada.hear(), line);
        }
        // More than a client is allowed to leave unread waits in the job.
        ada.say("run yes | head -100000");
        EXPECT_EQ(ada.hear(), "[3] started");
        int lines = 0;
        std::string line;
        while ((line = ada.hear()) == "[3] y") ++lines;
        EXPECT_EQ(lines, 100000);
        EXPECT_EQ(line, "[3] exit 0");
        ada.say("run sleep 1000");
        bob.say("quit");
        EXPECT_EQ(bob.hear(), "goodbye");
        EXPECT_EQ(bob.hear(), "");
    }
    EXPECT_EQ(server.end(SIGTERM), 0);
    EXPECT_EQ(server.until("closed\n"), "closed\n");
    EXPECT_FALSE(std::filesystem::exists(path));
}
