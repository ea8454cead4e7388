// Plain blocking reads: these programs do nothing but wait for the flow.
#include "Look.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "FlowFolder.h"

namespace {

typedef std::vector<FlowFolder::Flow> Flows;

std::string listOf(const Flows& flows) {
    std::string list;
    for (const FlowFolder::Flow& each : flows) {
        list += "\n  " + printable(each.name) + " (process " + std::to_string(each.process) + ')';
    }
    return list;
}

// A conversation with a running flow.
class Session {
public:
    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() {
        if (file != nullptr) std::fclose(file);
        std::free(line);
    }

    /// Connects to the flow that `word` identifies, by its name, its file or its process;
    /// to the only running one for "". Returns false when there is none, with a reason
    /// unless `isGuess`.
    bool open(const std::string& word, bool isGuess = false);
    const std::string& getName() const { return flow.name; }
    long getProcess() const { return flow.process; }

    bool ask(const std::string& request) {
        const std::string sent = request + '\n';
        size_t at = 0;
        while (at < sent.size()) {
            const ssize_t count = send(sent.data() + at, sent.size() - at);
            if (count < 0) return false;
            at += static_cast<size_t>(count);
        }
        return true;
    }
    /// Reads the next line without its newline, of which `kind` is the first letter and
    /// `rest` the remainder. Returns false at the end of the flow, and when a signal
    /// interrupts.
    bool next(char& kind, std::string& rest) {
        errno = 0;
        ssize_t length = getline(&line, &room, file);
        if (length <= 0) return false;
        if (line[length - 1] == '\n') --length;
        kind = length > 0 ? line[0] : '\0';
        rest.assign(line + std::min<ssize_t>(length, 2), line + length);
        return true;
    }

private:
    ssize_t send(const char* bytes, size_t count) const;

    FlowFolder folder;
    FlowFolder::Flow flow = {"", 0};
    FILE* file = nullptr;
    char* line = nullptr;
    size_t room = 0;
};

ssize_t Session::send(const char* bytes, size_t count) const {
    ssize_t sent = 0;
    do {
        sent = ::send(fileno(file), bytes, count, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent;
}

bool Session::open(const std::string& word, bool isGuess) {
    if (!folder.whyNot().empty()) return complain(folder.whyNot()), false;
    const Flows all = folder.flows();
    Flows found;
    for (const FlowFolder::Flow& each : all) {
        const std::string name = word.substr(word.rfind('/') + 1);
        const bool isIt = word.empty() || each.name == name || each.name + ".flow" == name ||
                          std::to_string(each.process) == word;
        if (isIt) found.push_back(each);
    }
    if (found.size() == 1) {
        flow = found[0];
        int socket = folder.connect(flow);
        // The flow has not got round to letting in those that have come before.
        constexpr timespec pause = {0, 20'000'000};
        for (int tries = 0; socket < 0 && errno == EAGAIN && tries < 250; ++tries) {
            nanosleep(&pause, nullptr);
            socket = folder.connect(flow);
        }
        if (socket >= 0) fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) & ~O_NONBLOCK);
        if (socket >= 0) file = fdopen(socket, "r");
        if (file == nullptr) {
            const char* const why = errno == EAGAIN ? "is too busy" : std::strerror(errno);
            complain(flow.name + ": " + why);
        }
        return file != nullptr;
    }
    if (isGuess && found.empty()) return false;
    if (all.empty()) {
        complain("no flow is running");
    } else if (found.empty()) {
        std::fprintf(stderr, "fxflow: there is no flow %s; there is%s\n", printable(word).c_str(),
                     listOf(all).c_str());
    } else {
        std::fprintf(stderr, "fxflow: which one? There is%s\n", listOf(found).c_str());
    }
    return false;
}

// "14:30:05.123"
std::string clockTime(long milliseconds) {
    const std::time_t seconds = milliseconds / 1000;
    std::tm parts = {};
    localtime_r(&seconds, &parts);
    char text[32];
    const size_t length = std::strftime(text, sizeof text, "%H:%M:%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%03ld", milliseconds % 1000);
    return text;
}

volatile std::sig_atomic_t isInterrupted = 0;

// As much of a text as fits, where each character of UTF-8 takes one column.
std::string fitted(const std::string& text, size_t columns) {
    size_t end = 0;
    for (size_t shown = 0; end < text.size(); ++end) {
        const bool isStart = (static_cast<unsigned char>(text[end]) & 0xc0) != 0x80;
        if (isStart && ++shown > columns) break;
    }
    return text.substr(0, end);
}

// One picture of top: on a terminal in place of the last one, otherwise below it.
class Table {
public:
    Table() : isTerminal(isatty(STDOUT_FILENO) != 0) {
        if (!isTerminal) return;
        std::fputs("\033[?1049h\033[?25l", stdout);
        struct sigaction action = {};
        action.sa_handler = [](int) { isInterrupted = 1; };
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
    }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;
    ~Table() {
        if (isTerminal) std::fputs("\033[?25h\033[?1049l", stdout);
    }

    unsigned int rows() {
        winsize size = {};
        const bool isKnown = isTerminal && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
        columns = isKnown && size.ws_col > 0 ? size.ws_col : 1000;
        return isKnown && size.ws_row > 0 ? std::max<unsigned int>(size.ws_row, 4) - 3 : 1000;
    }
    void begin() {
        if (isTerminal) std::fputs("\033[H", stdout);
        if (!isTerminal && hasShown) std::fputs("\n", stdout);
    }
    void print(const std::string& line) const {
        std::printf("%s%s\n", fitted(printable(line), columns - 1).c_str(),
                    isTerminal ? "\033[K" : "");
    }
    void finish() {
        if (isTerminal) std::fputs("\033[J", stdout);
        std::fflush(stdout);
        hasShown = true;
    }

private:
    const bool isTerminal;
    unsigned int columns = 80;
    bool hasShown = false;
};

// The reply of a flow to "top".
struct Answer {
    struct Row {
        unsigned long count;
        unsigned long total;
        std::string end;
        std::string value;
    };
    std::vector<Row> rows;
    unsigned long milliseconds = 0;
    unsigned long outputs = 0;
    unsigned long objects = 0;
};

// Returns false at the end of the flow.
bool readAnswer(Session& session, Answer& answer) {
    char kind = '\0';
    for (std::string rest; session.next(kind, rest);) {
        char* at = nullptr;
        if (kind == 'r') {
            Answer::Row row = {std::strtoul(rest.c_str(), &at, 10), std::strtoul(at, &at, 10), "",
                               ""};
            const std::string words = *at == ' ' ? at + 1 : at;
            const size_t space = std::min(words.find(' '), words.size());
            row.end = words.substr(0, space);
            row.value = words.substr(std::min(space + 1, words.size()));
            answer.rows.push_back(std::move(row));
        } else if (kind == 't') {
            answer.milliseconds = std::strtoul(rest.c_str(), &at, 10);
            answer.outputs = std::strtoul(at, &at, 10);
            answer.objects = std::strtoul(at, &at, 10);
            return true;
        } else if (kind == 'e') {
            complain(rest);
            return false;
        }
    }
    return false;
}

void draw(Table& table, const Session& session, const Answer& answer) {
    table.begin();
    table.print(session.getName() + " (process " + std::to_string(session.getProcess()) + "): " +
                counted(answer.objects, "object") + ", " + counted(answer.outputs, "output"));
    size_t width = 6;
    for (const Answer::Row& row : answer.rows) width = std::max(width, row.end.size());
    width = std::min<size_t>(width, 40);
    char text[128];
    std::snprintf(text, sizeof text, "%10s %10s  %-*s  %s", "A SECOND", "TOTAL",
                  static_cast<int>(width), "OUTPUT", "LAST VALUE");
    table.print(text);
    for (const Answer::Row& row : answer.rows) {
        const double seconds = std::max(static_cast<double>(answer.milliseconds) / 1000, 0.001);
        std::snprintf(text, sizeof text, "%10.1f %10lu  %-*.100s  ",
                      static_cast<double>(row.count) / seconds, row.total, static_cast<int>(width),
                      row.end.c_str());
        table.print(text + row.value);
    }
    table.finish();
}

}  // namespace

int listRunning() {
    const FlowFolder folder;
    if (!folder.whyNot().empty()) return complain(folder.whyNot()), failed;
    for (const FlowFolder::Flow& each : folder.flows()) {
        std::printf("%s %ld\n", printable(each.name).c_str(), each.process);
    }
    return 0;
}

int tap(const Options& options) {
    std::vector<std::string> ends = options.words;
    Session session;
    // The first word is an end if no flow has that name.
    const bool mayBeEnd = !ends.empty() && ends[0].find('.') != std::string::npos;
    if (!ends.empty() && session.open(ends[0], mayBeEnd)) {
        ends.erase(ends.begin());
    } else if ((!ends.empty() && !mayBeEnd) || !session.open("")) {
        return failed;
    }
    bool isAsked = !ends.empty() || session.ask("tap");
    for (const std::string& end : ends) isAsked = session.ask("tap " + end);
    if (!isAsked) return failed;
    int status = 0;
    char kind = '\0';
    for (std::string rest; session.next(kind, rest);) {
        if (kind == 'v') {
            char* words = nullptr;
            const long milliseconds = std::strtol(rest.c_str(), &words, 10);
            std::printf("%s%s\n", clockTime(milliseconds).c_str(), printable(words).c_str());
            std::fflush(stdout);
        } else if (kind == 'd') {
            complain("left out, as this terminal is too slow: " +
                     counted(std::strtoul(rest.c_str(), nullptr, 10), "value"));
        } else {
            complain(rest);
        }
        if (kind == 'e') {
            status = failed;
            break;
        }
    }
    return status;
}

int top(const Options& options) {
    Session session;
    if (!session.open(options.words.empty() ? "" : options.words[0])) return failed;
    if (!session.ask("top 0")) return failed;
    Answer first;
    if (!readAnswer(session, first)) return failed;
    Table table;
    for (unsigned long i = 0; i < options.count; ++i) {
        const timespec pause = {static_cast<time_t>(options.interval),
                                static_cast<long>(std::fmod(options.interval, 1) * 1e9)};
        nanosleep(&pause, nullptr);
        Answer answer;
        if (isInterrupted != 0 || !session.ask("top " + std::to_string(table.rows())) ||
            !readAnswer(session, answer)) {
            break;
        }
        draw(table, session, answer);
    }
    return 0;
}

int show(const Options& options) {
    Session session;
    if (!session.open(options.words.empty() ? "" : options.words[0])) return failed;
    if (!session.ask("show")) return failed;
    char kind = '\0';
    for (std::string rest; session.next(kind, rest) && kind == 's';) {
        std::printf("%s\n", printable(rest).c_str());
    }
    return kind == '.' ? 0 : failed;
}
