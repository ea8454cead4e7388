// Running programs as a user does, for tests of what they print.
#ifndef FXDS_TESTS_RUNPROGRAM_H
#define FXDS_TESTS_RUNPROGRAM_H

#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

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

/// Runs `body()` in a process of its own, with these standard files, and returns at
/// once. The process ends with the status that `body` returns.
template <class Body>
pid_t startCopy(const int (&files)[3], Body body) {
    const pid_t child = fork();
    if (child != 0) return child;
    for (int i = 0; i < 3; ++i) {
        if (files[i] >= 0) dup2(files[i], i);
    }
    _exit(body());
}

/// Waits for the end of a process: its status, -1 when a signal ended it.
inline int statusOf(pid_t child) {
    int end = 0;
    const bool hasEnded = waitpid(child, &end, 0) == child;
    return hasEnded && WIFEXITED(end) ? WEXITSTATUS(end) : -1;
}

// Becomes the program; returns only when that fails.
inline int become(const Program& program) {
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
    return 127;
}

/// Starts the program and returns at once.
inline pid_t start(const Program& program) {
    return startCopy(program.files, [&] { return become(program); });
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

/// The output of the shell's command, on both outputs; `status` becomes its
/// exit status.
inline std::string outputOf(const std::string& command, int& status) {
    const Result result = run({{"/bin/sh", "-c", "exec 2>&1; " + command}});
    status = result.status;
    return result.output;
}

#endif
