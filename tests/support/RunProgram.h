// Running programs as a user does, for tests of what they print.
#ifndef FXDS_TESTS_RUNPROGRAM_H
#define FXDS_TESTS_RUNPROGRAM_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

/// The bytes of the file; none when it cannot be read.
inline std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

/// What is left to read of the file.
inline std::string readAll(int file) {
    std::string text;
    char part[4096];
    for (ssize_t n; (n = read(file, part, sizeof part)) > 0;) {
        text.append(part, static_cast<size_t>(n));
    }
    return text;
}

/// How a program is started.
struct Program {
    std::vector<std::string> words;  ///< Its path and its arguments.
    std::string directory = ".";
    std::vector<std::pair<const char*, const char*>> environment = {};  ///< Null: not set.
    int files[3] = {-1, -1, -1};  ///< Its standard files; -1: ours.
    bool hasTerminal = false;     ///< files[0] is a terminal that becomes its own.
};

/// Waits for the end of a process: its status, -1 when a signal ended it.
inline int statusOf(pid_t child) {
    int end = 0;
    const bool hasEnded = waitpid(child, &end, 0) == child;
    return hasEnded && WIFEXITED(end) ? WEXITSTATUS(end) : -1;
}

/// Starts the program and returns at once.
inline pid_t start(const Program& program) {
    const pid_t child = fork();
    if (child != 0) return child;
    for (int i = 0; i < 3; ++i) {
        if (program.files[i] >= 0) dup2(program.files[i], i);
    }
    if (program.hasTerminal) {
        setsid();
        ioctl(STDIN_FILENO, TIOCSCTTY, 0);
    }
    for (const auto& [name, value] : program.environment) {
        value != nullptr ? setenv(name, value, 1) : unsetenv(name);
    }
    std::vector<char*> words;
    for (const std::string& word : program.words) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    if (chdir(program.directory.c_str()) == 0) execv(words[0], words.data());
    _exit(127);
}

/// What came of a run.
struct Result {
    std::string output;
    std::string errors;
    int status;  ///< The exit status; -1 when a signal ended it.
};

/// Runs the program to its end, with this input, and takes what it writes to
/// those of its outputs that are not given in `files`.
inline Result run(Program program, const std::string& input = "") {
    std::FILE* const inputs = std::tmpfile();
    std::FILE* const errors = std::tmpfile();
    std::fwrite(input.data(), 1, input.size(), inputs);
    std::rewind(inputs);
    int output[2];
    if (pipe2(output, O_CLOEXEC) != 0) return {};
    const int files[] = {fileno(inputs), output[1], fileno(errors)};
    for (int i = 0; i < 3; ++i) {
        if (program.files[i] < 0) program.files[i] = files[i];
    }
    const pid_t child = start(program);
    close(output[1]);
    Result result = {readAll(output[0]), "", statusOf(child)};
    lseek(fileno(errors), 0, SEEK_SET);
    result.errors = readAll(fileno(errors));
    close(output[0]);
    std::fclose(inputs);
    std::fclose(errors);
    return result;
}

/// A program while it runs. Those of its outputs that are not given in `files` are read;
/// its terminal, if it has one, as the first of them.
class Session {
public:
    explicit Session(Program program, int terminal = -1) {
        int theirs[3] = {-1, -1, -1};
        outputs[1].file = terminal;
        for (int i = 1; i < 3; ++i) {
            int ends[2];
            if (program.files[i] >= 0 || pipe2(ends, O_CLOEXEC) != 0) continue;
            outputs[i].file = ends[0];
            program.files[i] = theirs[i] = ends[1];
        }
        process = start(program);
        for (const int file : theirs) close(file);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() {
        end(SIGKILL);
        for (const Output& each : outputs) close(each.file);
    }

    /// What has come since the last call, up to the end of this text, or all when it
    /// never comes.
    std::string until(const std::string& text, int output = 1) {
        Output& from = outputs[output];
        size_t found;
        while ((found = from.text.find(text, from.seen)) == std::string::npos) {
            if (!from.read(patienceMs)) break;
        }
        const size_t end = found != std::string::npos ? found + text.size() : from.text.size();
        const size_t start = std::exchange(from.seen, end);
        return from.text.substr(start, end - start);
    }
    bool sees(const std::string& text, int output = 1) {
        const std::string all = until(text, output);
        return all.size() >= text.size() &&
               all.compare(all.size() - text.size(), text.size(), text) == 0;
    }
    /// The next line with this in it.
    std::string lineWith(const std::string& part, int output = 1) {
        std::string line = until(part, output);
        line.erase(0, line.rfind('\n', line.size() - part.size() - 1) + 1);
        return line + until("\n", output);
    }
    void tell(int signal) const { kill(process, signal); }
    /// Its exit status, or minus the signal that has ended it.
    int end(int signal = 0) {
        if (process <= 0) return -1;
        if (signal != 0) tell(signal);
        int status = 0;
        for (int left = patienceMs; waitpid(process, &status, WNOHANG) == 0; left -= 10) {
            if (left == 0) tell(SIGKILL);
            for (Output& each : outputs) each.read(5);
        }
        process = 0;
        for (Output& each : outputs) {
            while (each.read(0)) continue;
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    /// All that has been read.
    const std::string& output() const { return outputs[1].text; }

private:
    // Only ends a test that would wait for ever.
    static constexpr int patienceMs = 30000;

    struct Output {
        bool read(int waitMs) {
            pollfd ready = {file, POLLIN, 0};
            char part[4096];
            if (::poll(&ready, 1, waitMs) <= 0) return false;
            const ssize_t count = ::read(file, part, sizeof part);
            if (count > 0) text.append(part, static_cast<size_t>(count));
            return count > 0;
        }
        int file = -1;
        std::string text;
        size_t seen = 0;
    };

    Output outputs[3];
    pid_t process = 0;
};

/// The output of the shell's command, on both outputs; `status` becomes its
/// exit status.
inline std::string outputOf(const std::string& command, int& status) {
    const Result result = run({{"/bin/sh", "-c", "exec 2>&1; " + command}});
    status = result.status;
    return result.output;
}

#endif
