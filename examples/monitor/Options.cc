#include "Options.h"

#include <getopt.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

const char usageText[] =
    "Usage: monitor [OPTION]...\n"
    "Watches the machine: processor, memory, swap, load, tasks, disks and network.\n"
    "\n"
    "  --interval SECONDS  time between samples, 0.01 to 3600 (default 1)\n"
    "  --samples N         print N lines and end; the default, with N = 5, when the\n"
    "                      output is no terminal\n"
    "  --record FILE       save the history, its alarms and the settings, every few\n"
    "                      samples and in the end\n"
    "  --replay FILE       show what was saved instead of the machine\n"
    "  --graph[=FILE]      print the network of objects as Graphviz dot text, or draw it\n"
    "                      to a FILE such as net.svg, and end\n"
    "  --proc DIRECTORY    read stat, meminfo, loadavg, diskstats and net/dev there\n"
    "                      (default /proc)\n"
    "  --help, --version   print this text, or the version, and end\n"
    "\n"
    "Keys: q quit, p pause, + and - longer and shorter interval, s smoothing on or off,\n"
    "w or S save now (to the file of --record, or one named after the time), ? help.\n"
    "A red value is past its limit. Colours are those that the terminal has for red and\n"
    "green; they are left out when NO_COLOR is set and where TERM names none.\n";

namespace {

bool parseSamples(const char* text, int& samples) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || errno != 0 || value < 1 || value > INT_MAX) return false;
    samples = static_cast<int>(value);
    return true;
}

bool parseInterval(const char* text, float& seconds) {
    char* end = nullptr;
    seconds = std::strtof(text, &end);
    // Written so that NaN fails too.
    return end != text && *end == '\0' && seconds >= shortestInterval && seconds <= longestInterval;
}

enum Code {
    intervalCode = 1,
    samplesCode,
    graphCode,
    procCode,
    recordCode,
    replayCode,
    helpCode,
    versionCode
};

const option longOptions[] = {{"interval", required_argument, nullptr, intervalCode},
                              {"samples", required_argument, nullptr, samplesCode},
                              {"graph", optional_argument, nullptr, graphCode},
                              {"proc", required_argument, nullptr, procCode},
                              {"record", required_argument, nullptr, recordCode},
                              {"replay", required_argument, nullptr, replayCode},
                              {"help", no_argument, nullptr, helpCode},
                              {"version", no_argument, nullptr, versionCode},
                              {nullptr, 0, nullptr, 0}};

// False when the value does not suit the option.
bool apply(int code, const char* value, Options& options) {
    switch (code) {
        case intervalCode:
            return parseInterval(value, options.intervalSeconds);
        case samplesCode:
            return parseSamples(value, options.samples);
        case graphCode:
            options.action = Options::showGraph;
            if (value != nullptr) options.picture = value;
            return value == nullptr || *value != '\0';
        case procCode:
            options.procDirectory = value;
            return true;
        case helpCode:
            options.action = Options::showHelp;
            return true;
        case versionCode:
            options.action = Options::showVersion;
            return true;
        case recordCode:
            options.record = value;
            return *value != '\0';
        case replayCode:
            options.replay = value;
            return *value != '\0';
        default:
            return false;
    }
}

}  // namespace

bool parseOptions(int argc, char** argv, Options& options, fxStr& error) {
    opterr = 0;  // the messages are ours
    optind = 1;
    for (;;) {
        const char* const word = optind < argc ? argv[optind] : "";
        int index = 0;
        const int code = getopt_long(argc, argv, ":", longOptions, &index);
        if (code == -1) break;
        if (code == '?') {
            error.format("unknown option %s", word);
        } else if (code == ':') {
            error.format("%s wants a value", word);
        } else if (!apply(code, optarg, options)) {
            error.format("--%s does not take %s", longOptions[index].name, optarg);
        } else {
            continue;
        }
        return false;
    }
    if (optind < argc) {
        error.format("unexpected argument %s", argv[optind]);
        return false;
    }
    if (!options.record.isEmpty() && !options.replay.isEmpty()) {
        error = "--record and --replay exclude each other";
        return false;
    }
    return true;
}
