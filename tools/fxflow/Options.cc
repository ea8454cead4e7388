#include "Options.h"

#include <getopt.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

typedef Options::Command Command;

const char usage[] =
    "usage: fxflow [OPTION...] FILE\n"
    "       fxflow --check [OPTION...] FILE...\n"
    "       fxflow --dot|--text [OPTION...] FILE\n"
    "       fxflow --list [--plugin FILE]...\n"
    "       fxflow --describe [--plugin FILE]... CLASS...\n"
    "       fxflow test [OPTION...] FILE...\n"
    "       fxflow tap [FLOW] [OBJECT.CHANNEL...]\n"
    "       fxflow top [OPTION...] [FLOW]\n"
    "       fxflow show [FLOW]\n"
    "       fxflow running\n";

const char help[] =
    "\n"
    "Runs the flow in FILE: objects and connections that a text describes. When the\n"
    "file is saved while it runs, the flow is changed to what it says then: objects\n"
    "whose lines are the same keep what they know, and a faulty text changes nothing.\n"
    "SIGHUP does the same. The flow ends when nothing can come any more, or in order\n"
    "by SIGINT or SIGTERM.\n"
    "\n"
    "  test                runs the tests that are in FILE, or in FILE.test beside it\n"
    "  tap                 prints each value of the ends, or of all outputs, of a flow\n"
    "                      that runs in another terminal\n"
    "  top                 shows how many values its outputs send, and the last ones\n"
    "  show                prints it as it is now\n"
    "  running             lists the flows that run\n"
    "\n"
    "  --check             only tells what is wrong with the FILEs; runs nothing\n"
    "  --dot               draws the flow instead, for Graphviz\n"
    "  --text              prints the flow as one text, without what it includes\n"
    "  --list              lists the classes of elements\n"
    "  --describe          tells what classes have to set and to connect\n"
    "  --set SETTING       gives a property another value: OBJECT.PROPERTY=VALUE\n"
    "  --plugin FILE       knows the elements of a shared object too\n"
    "  --load FILE         begins with what the objects knew when they were saved\n"
    "  --save FILE         saves what the objects know at the end\n"
    "  --name NAME         what tap and top call the flow; usually as its FILE\n"
    "  --fixed             changes the flow at SIGHUP only\n"
    "  --junit FILE        with test, writes a report for build servers\n"
    "  --every SECONDS     with top, how often to show it (1)\n"
    "  --count N           with top, how many times to show it\n"
    "  --help, --version   print this, print the version\n"
    "\n"
    "Exit status: 0; 1 when a flow is faulty or ends because of a fault, or a test\n"
    "fails; 2 when the command line is wrong, or a file has no tests.\n";

enum Code {
    checkCode = 256,
    dotCode,
    textCode,
    listCode,
    describeCode,
    setCode,
    pluginCode,
    loadCode,
    saveCode,
    nameCode,
    fixedCode,
    junitCode,
    everyCode,
    countCode,
    helpCode,
    versionCode
};

const option longOptions[] = {{"check", no_argument, nullptr, checkCode},
                              {"dot", no_argument, nullptr, dotCode},
                              {"text", no_argument, nullptr, textCode},
                              {"list", no_argument, nullptr, listCode},
                              {"describe", no_argument, nullptr, describeCode},
                              {"set", required_argument, nullptr, setCode},
                              {"plugin", required_argument, nullptr, pluginCode},
                              {"load", required_argument, nullptr, loadCode},
                              {"save", required_argument, nullptr, saveCode},
                              {"name", required_argument, nullptr, nameCode},
                              {"fixed", no_argument, nullptr, fixedCode},
                              {"junit", required_argument, nullptr, junitCode},
                              {"every", required_argument, nullptr, everyCode},
                              {"count", required_argument, nullptr, countCode},
                              {"help", no_argument, nullptr, helpCode},
                              {"version", no_argument, nullptr, versionCode},
                              {nullptr, 0, nullptr, 0}};

const struct {
    const char* word;
    Command command;
} commandWords[] = {{"test", Command::test},
                    {"tap", Command::tap},
                    {"top", Command::top},
                    {"show", Command::show},
                    {"running", Command::running}};

const struct {
    int code;
    Command command;
} commandOptions[] = {{checkCode, Command::check},
                      {dotCode, Command::dot},
                      {textCode, Command::text},
                      {listCode, Command::list},
                      {describeCode, Command::describe}};

constexpr unsigned int bit(Command command) { return 1U << static_cast<unsigned int>(command); }
constexpr unsigned int readingCommands = bit(Command::run) | bit(Command::check) |
                                         bit(Command::dot) | bit(Command::text) |
                                         bit(Command::test);
constexpr unsigned int classCommands = bit(Command::list) | bit(Command::describe);

// The other options, and what they are for.
const struct {
    int code;
    unsigned int commands;
    const char* purpose;
} optionUses[] = {{setCode, readingCommands, "flows in files"},
                  {pluginCode, readingCommands | classCommands, "flows in files and for classes"},
                  {loadCode, bit(Command::run), "a flow that is to run"},
                  {saveCode, bit(Command::run), "a flow that is to run"},
                  {nameCode, bit(Command::run), "a flow that is to run"},
                  {fixedCode, bit(Command::run), "a flow that is to run"},
                  {junitCode, bit(Command::test), "test"},
                  {everyCode, bit(Command::top), "top"},
                  {countCode, bit(Command::top), "top"}};

// The number of words that a command takes.
const struct {
    Command command;
    size_t fewest;
    size_t most;
} wordCounts[] = {
    {Command::run, 1, 1},         {Command::check, 1, SIZE_MAX}, {Command::dot, 1, 1},
    {Command::text, 1, 1},        {Command::list, 0, 0},         {Command::describe, 1, SIZE_MAX},
    {Command::test, 1, SIZE_MAX}, {Command::tap, 0, SIZE_MAX},   {Command::top, 0, 1},
    {Command::show, 0, 1},        {Command::running, 0, 0}};

int refuse() {
    std::fputs(usage, stderr);
    std::fputs("fxflow --help tells more.\n", stderr);
    return trouble;
}

int answer(const char* first, const char* second) {
    std::fputs(first, stdout);
    std::fputs(second, stdout);
    return std::fflush(stdout) == 0 ? 0 : trouble;
}

bool addSetting(const std::string& text, Options& options) {
    const size_t dot = text.find('.');
    const size_t equals = text.find('=', dot == std::string::npos ? 0 : dot);
    if (dot == std::string::npos || equals == std::string::npos) {
        complain("--set takes OBJECT.PROPERTY=VALUE, not " + text);
        return false;
    }
    options.settings.push_back(
        {text.substr(0, dot), text.substr(dot + 1, equals - dot - 1), text.substr(equals + 1)});
    return true;
}

bool readNumber(const char* name, const char* text, double lowest, double& number) {
    char* end = nullptr;
    number = std::strtod(text, &end);
    if (end != text && *end == '\0' && number >= lowest && number < 1e9) return true;
    complain(std::string(name) + " takes a number, not " + text);
    return false;
}

// Applies one option. Returns -1 to go on.
int take(int code, Options& options) {
    for (const auto& each : commandOptions) {
        if (code != each.code) continue;
        if (options.command != Command::run && options.command != each.command) return refuse();
        options.command = each.command;
        return -1;
    }
    double number = 0;
    switch (code) {
        case setCode:
            return addSetting(optarg, options) ? -1 : trouble;
        case pluginCode:
            options.plugins.emplace_back(optarg);
            return -1;
        case loadCode:
        case saveCode:
            (code == loadCode ? options.loadPath : options.savePath) = optarg;
            return -1;
        case nameCode:
            options.name = optarg;
            return -1;
        case fixedCode:
            options.isFixed = true;
            return -1;
        case junitCode:
            options.junitPath = optarg;
            return -1;
        case everyCode:
            return readNumber("--every", optarg, 0.01, options.interval) ? -1 : trouble;
        case countCode:
            if (!readNumber("--count", optarg, 1, number)) return trouble;
            options.count = static_cast<unsigned long>(number);
            return -1;
        default:
            return refuse();
    }
}

// Reports the first of the options given, by their codes, that the command does not take.
bool areForCommand(const std::vector<int>& codes, Command command) {
    for (const int code : codes) {
        for (const auto& each : optionUses) {
            if (each.code != code || (each.commands & bit(command)) != 0) continue;
            const option* given = longOptions;
            while (given->val != code) ++given;
            complain(std::string("--") + given->name + " is only for " + each.purpose);
            return false;
        }
    }
    return true;
}

}  // namespace

std::string counted(unsigned long count, const char* what) {
    return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

void complain(std::string_view what) {
    std::fprintf(stderr, "fxflow: %s\n", printable(what).c_str());
}

int readOptions(int argc, char** argv, Options& options) {
    static char programName[] = "fxflow";
    argv[0] = programName;  // the name in messages of getopt_long()
    std::vector<int> codes;
    for (int code; (code = getopt_long(argc, argv, "", longOptions, nullptr)) != -1;) {
        if (code == helpCode) return answer(usage, help);
        if (code == versionCode) return answer("fxflow of libostrelfxds ", FXFLOW_VERSION "\n");
        codes.push_back(code);
        const int status = take(code, options);
        if (status != -1) return status;
    }
    options.words.assign(argv + optind, argv + argc);
    for (const auto& each : commandWords) {
        if (options.words.empty() || options.words[0] != each.word) continue;
        if (options.command != Command::run) return refuse();
        options.command = each.command;
        options.words.erase(options.words.begin());
        break;
    }
    for (const auto& each : wordCounts) {
        const size_t count = options.words.size();
        if (options.command == each.command && (count < each.fewest || count > each.most)) {
            return refuse();
        }
    }
    return areForCommand(codes, options.command) ? -1 : trouble;
}
