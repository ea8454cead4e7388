// The options of fxflow.
#ifndef FXFLOW_OPTIONS_H
#define FXFLOW_OPTIONS_H

#include <climits>
#include <string>
#include <string_view>
#include <vector>

#include "flow/Text.h"

struct Options {
    enum class Command { run, check, dot, text, list, describe, test, tap, top, show, running };
    Command command = Command::run;
    std::vector<std::string> words;  // arguments that are no options: files, classes, ends

    struct Setting {
        std::string object;
        std::string property;
        std::string value;
    };
    std::vector<Setting> settings;
    std::vector<std::string> plugins;

    // For run.
    const char* loadPath = nullptr;
    const char* savePath = nullptr;
    std::string name;      // of the flow in other terminals; empty: that of its file
    bool isFixed = false;  // whether changes of the file wait for SIGHUP

    const char* junitPath = nullptr;  // for test
    // For top.
    double interval = 1;              // in seconds
    unsigned long count = ULONG_MAX;  // of the tables
};

/// The statuses that the program ends with.
constexpr int failed = 1;
constexpr int trouble = 2;

/// Reads the command line. Returns -1 to go on, or the status to exit with.
int readOptions(int argc, char** argv, Options& options);

/// Writes "fxflow: ..." and a newline to standard error, printable.
void complain(std::string_view what);

using fxFlowDetail::printable;

/// "1 test", "2 tests".
std::string counted(unsigned long count, const char* what);

#endif
