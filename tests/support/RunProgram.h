// Running programs as a user does, for tests of what they print.
#ifndef FXDS_TESTS_RUNPROGRAM_H
#define FXDS_TESTS_RUNPROGRAM_H

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

/// The bytes of the file; none when it cannot be read.
inline std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

/// The output of the command, on both outputs; `status` becomes its exit status.
inline std::string outputOf(const std::string& command, int& status) {
    FILE* const output = popen((command + " 2>&1").c_str(), "r");
    std::string text;
    status = -1;
    if (output == nullptr) return text;
    char piece[4096];
    for (size_t n = 0; (n = std::fread(piece, 1, sizeof piece, output)) > 0;) text.append(piece, n);
    const int end = pclose(output);
    if (WIFEXITED(end)) status = WEXITSTATUS(end);
    return text;
}

#endif
