#include "Options.h"

#include <getopt.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <iterator>

const char usageText[] =
    "Usage: monitor [OPTION]...\n"
    "Watches the machine: processor, memory, swap, load, tasks, disks and network.\n"
    "\n"
    "  --interval SECONDS  time between samples, 0.01 to 3600 (default 1)\n"
    "  --samples N         print N lines and end; the default, with N = 5, when the\n"
    "                      output is no terminal\n"
    "  --record FILE       save the history, its alarms and the settings, every few\n"
    "                      samples and in the end; not with the next two\n"
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

// All options: the arguments of getopt_long(), and their effects. `take` returns false when
// the value does not suit the option.
const struct Choice {
    const char* name;
    int argument;
    bool (*take)(Options& options, const char* value);
} choices[] = {
    {"interval", required_argument,
     [](Options& options, const char* value) {
         return parseInterval(value, options.intervalSeconds);
     }},
    {"samples", required_argument,
     [](Options& options, const char* value) { return parseSamples(value, options.samples); }},
    {"graph", optional_argument,
     [](Options& options, const char* value) {
         options.action = Options::showGraph;
         if (value != nullptr) options.picture = value;
         return value == nullptr || *value != '\0';
     }},
    {"proc", required_argument,
     [](Options& options, const char* value) {
         options.procDirectory = value;
         return true;
     }},
    {"record", required_argument,
     [](Options& options, const char* value) {
         options.record = value;
         return *value != '\0';
     }},
    {"replay", required_argument,
     [](Options& options, const char* value) {
         options.replay = value;
         return *value != '\0';
     }},
    {"help", no_argument,
     [](Options& options, const char*) {
         options.action = Options::showHelp;
         return true;
     }},
    {"version", no_argument, [](Options& options, const char*) {
         options.action = Options::showVersion;
         return true;
     }}};

}  // namespace

bool parseOptions(int argc, char** argv, Options& options, fxStr& error) {
    option longOptions[std::size(choices) + 1] = {};
    for (size_t i = 0; i < std::size(choices); ++i) {
        longOptions[i] = {choices[i].name, choices[i].argument, nullptr, 0};
    }
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
        } else if (!choices[index].take(options, optarg)) {
            error.format("--%s does not take %s", choices[index].name, optarg);
        } else {
            continue;
        }
        return false;
    }
    if (optind < argc) {
        error.format("unexpected argument %s", argv[optind]);
        return false;
    }
    const bool isReplay = !options.replay.isEmpty();
    const bool isGraph = options.action == Options::showGraph;
    if (options.record.isEmpty() || (!isReplay && !isGraph)) return true;
    error.format("--record and %s exclude each other", isReplay ? "--replay" : "--graph");
    return false;
}
