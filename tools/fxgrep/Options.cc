#include "Options.h"

#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

const char usage[] =
    "usage: fxgrep [OPTION...] PATTERN [FILE...]\n"
    "       fxgrep [OPTION...] -e PATTERN|-f FILE... [FILE...]\n"
    "       fxgrep [OPTION...] --path DIR:DIR... [--name REGEX] PATTERN\n";

const char help[] =
    "\n"
    "Prints the lines that contain PATTERN, of the FILEs, or of standard input\n"
    "without FILE or for -. A pattern of several lines is alternatives.\n"
    "\n"
    "  -E                  PATTERN is a regular expression\n"
    "  -F                  PATTERN is a literal text; without either option it is an\n"
    "                      expression if it contains one of .+*?^$()[]| or a backslash\n"
    "  -e PATTERN          look for this; may be given several times\n"
    "  -f FILE             look for each line of FILE\n"
    "  -i                  letters match in either case (A to Z)\n"
    "  -w                  only whole words\n"
    "  -x                  only whole lines\n"
    "  -v                  the lines that do not match\n"
    "  -m N                stop after N lines of each file\n"
    "\n"
    "  -r                  search the files in folders, and below them; .git, binary\n"
    "                      files, devices and symbolic links in them are left out\n"
    "  -a                  with -r, .git and binary files too\n"
    "  --include GLOB      of folders, only files with such names\n"
    "  --exclude GLOB      in folders, no files and folders with such names\n"
    "  --path DIR:DIR...   search files in these directories, in which a leading ~ or\n"
    "                      ~USER and any $NAME are expanded\n"
    "  --name REGEX        of those, only files whose whole name matches (default .*)\n"
    "\n"
    "  -n                  number the lines\n"
    "  -A N, -B N, -C N    N lines after each match too, before it, on both sides\n"
    "  -c                  instead of lines how many\n"
    "  -l, -L              instead of lines the names of files with some, or without\n"
    "  -q                  nothing: the exit status tells\n"
    "  -o                  each match on a line of its own; empty ones are left out\n"
    "  --replace TEMPLATE  as -o, but print TEMPLATE, in which & and \\0 stand for the\n"
    "                      match and \\1 to \\9 for its groups\n"
    "  -H, -h              always, never print the names of files\n"
    "  --null              a zero byte instead of what follows a name\n"
    "  --color[=WHEN]      colour matches: always, never, or auto, on terminals and\n"
    "                      unless NO_COLOR is set (the default)\n"
    "  --json              each line as a JSON object\n"
    "  -s                  be silent about files that cannot be read\n"
    "  --help, --version   print this, print the version\n"
    "\n"
    "An expression: a|b alternatives; x* x+ x? repetition; (x) group; . any byte;\n"
    "^ $ start and end of the line; [a-z] [^a-z] sets; \\< start of a word; \\> no word\n"
    "character follows; \\x the character x itself. A zero byte ends a line for it.\n"
    "\n"
    "Exit status: 0 a line matched, 1 none did, 2 there was trouble.\n";

enum LongOnly {
    replaceOption = 256,
    pathOption,
    nameOption,
    includeOption,
    excludeOption,
    nullOption,
    colourOption,
    jsonOption,
    helpOption,
    versionOption
};

const char shortOptions[] = "EFe:f:iwxvm:ranA:B:C:clLqoHhs";

const option longOptions[] = {{"extended-regexp", no_argument, nullptr, 'E'},
                              {"fixed-strings", no_argument, nullptr, 'F'},
                              {"regexp", required_argument, nullptr, 'e'},
                              {"file", required_argument, nullptr, 'f'},
                              {"ignore-case", no_argument, nullptr, 'i'},
                              {"word-regexp", no_argument, nullptr, 'w'},
                              {"line-regexp", no_argument, nullptr, 'x'},
                              {"invert-match", no_argument, nullptr, 'v'},
                              {"max-count", required_argument, nullptr, 'm'},
                              {"recursive", no_argument, nullptr, 'r'},
                              {"text", no_argument, nullptr, 'a'},
                              {"line-number", no_argument, nullptr, 'n'},
                              {"after-context", required_argument, nullptr, 'A'},
                              {"before-context", required_argument, nullptr, 'B'},
                              {"context", required_argument, nullptr, 'C'},
                              {"count", no_argument, nullptr, 'c'},
                              {"files-with-matches", no_argument, nullptr, 'l'},
                              {"files-without-match", no_argument, nullptr, 'L'},
                              {"quiet", no_argument, nullptr, 'q'},
                              {"only-matching", no_argument, nullptr, 'o'},
                              {"with-filename", no_argument, nullptr, 'H'},
                              {"no-filename", no_argument, nullptr, 'h'},
                              {"no-messages", no_argument, nullptr, 's'},
                              {"replace", required_argument, nullptr, replaceOption},
                              {"path", required_argument, nullptr, pathOption},
                              {"name", required_argument, nullptr, nameOption},
                              {"include", required_argument, nullptr, includeOption},
                              {"exclude", required_argument, nullptr, excludeOption},
                              {"null", no_argument, nullptr, nullOption},
                              {"color", optional_argument, nullptr, colourOption},
                              {"colour", optional_argument, nullptr, colourOption},
                              {"json", no_argument, nullptr, jsonOption},
                              {"help", no_argument, nullptr, helpOption},
                              {"version", no_argument, nullptr, versionOption},
                              {nullptr, 0, nullptr, 0}};

constexpr int trouble = 2;

int refuse() {
    std::fputs(usage, stderr);
    std::fputs("fxgrep --help tells more.\n", stderr);
    return trouble;
}

bool readNumber(const char* text, unsigned long& number) {
    char* end;
    errno = 0;
    number = std::strtoul(text, &end, 10);
    if (errno == 0 && end != text && *end == '\0' && *text != '-') return true;
    complain(text, "not a number");
    return false;
}

// Each line is a pattern.
void addPatterns(const std::string& text, std::vector<std::string>& patterns) {
    size_t at = 0;
    for (size_t end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
        patterns.push_back(text.substr(at, end - at));
    }
    patterns.push_back(text.substr(at));
}

bool addPatternFile(const char* path, std::vector<std::string>& patterns) {
    const bool isStandard = std::strcmp(path, "-") == 0;
    FILE* const file = isStandard ? stdin : std::fopen(path, "re");
    std::string text;
    char part[4096];
    for (size_t count = 1; file != nullptr && count != 0; text.append(part, count)) {
        count = std::fread(part, 1, sizeof part, file);
    }
    const bool isRead = file != nullptr && std::ferror(file) == 0;
    if (!isRead) complain(path, std::strerror(errno));
    if (file != nullptr && !isStandard) std::fclose(file);
    if (!isRead || text.empty()) return isRead;
    addPatterns(text.back() == '\n' ? text.substr(0, text.size() - 1) : text, patterns);
    return true;
}

bool wantsColour(const std::string& when) {
    if (when == "always" || when == "never") return when == "always";
    const char* const term = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr && term != nullptr &&
           std::strcmp(term, "dumb") != 0;
}

bool readColour(const char* word, const char*& when) {
    for (const char* const known : {"always", "never", "auto"}) {
        if (std::strcmp(word, known) == 0) return when = known, true;
    }
    complain(word, "not always, never or auto");
    return false;
}

// Options that only set a flag.
const struct {
    int option;
    bool Options::*flag;
} flags[] = {{'i', &Options::ignoresCase},   {'w', &Options::isWholeWord},
             {'x', &Options::isWholeLine},   {'v', &Options::isInverted},
             {'r', &Options::isRecursive},   {'a', &Options::takesAll},
             {'n', &Options::isNumbered},    {'s', &Options::isSilent},
             {jsonOption, &Options::isJson}, {nullOption, &Options::endsNamesWithZero}};
const struct {
    int option;
    unsigned long Options::*number;
} numbers[] = {{'m', &Options::most}, {'A', &Options::after}, {'B', &Options::before}};
const struct {
    int option;
    Options::Output output;
} outputs[] = {{'c', Options::counts},
               {'l', Options::namesWith},
               {'L', Options::namesWithout},
               {'q', Options::nothing}};

// Applies one option. Returns -1 to go on.
int take(int c, Options& options, const char*& colour) {
    for (const auto& [option, flag] : flags) {
        if (c == option) return options.*flag = true, -1;
    }
    for (const auto& [option, number] : numbers) {
        if (c == option) return readNumber(optarg, options.*number) ? -1 : trouble;
    }
    for (const auto& [option, output] : outputs) {
        const bool isNames =
            output == Options::namesWith && options.output == Options::namesWithout;
        if (c == option && (output > options.output || isNames)) options.output = output;
        if (c == option) return -1;
    }
    switch (c) {
        case 'E':
        case 'F':
            options.kind = c == 'E' ? Options::expression : Options::literal;
            return -1;
        case 'e':
            options.hasPatterns = true;
            addPatterns(optarg, options.patterns);
            return -1;
        case 'f':
            options.hasPatterns = true;
            return addPatternFile(optarg, options.patterns) ? -1 : trouble;
        case 'C':
            return readNumber(optarg, options.around) ? -1 : trouble;
        case replaceOption:
            options.replacement = optarg;
            [[fallthrough]];
        case 'o':
            if (options.output == Options::lines) options.output = Options::matches;
            return -1;
        case 'H':
        case 'h':
            options.names = c == 'H' ? Options::always : Options::never;
            return -1;
        case pathOption:
            options.path = optarg;
            return -1;
        case includeOption:
        case excludeOption:
            (c == includeOption ? options.includes : options.excludes).emplace_back(optarg);
            return -1;
        case colourOption:
            return readColour(optarg != nullptr ? optarg : "auto", colour) ? -1 : trouble;
        default:
            return refuse();
    }
}

int answer(const char* first, const char* second) {
    std::fputs(first, stdout);
    std::fputs(second, stdout);
    return std::fflush(stdout) == 0 ? 0 : trouble;
}

}  // namespace

std::string complaintText(const char* subject, const char* why) {
    return std::string("fxgrep: ") + subject + ": " + why + '\n';
}

void complain(const char* subject, const char* why) {
    std::fputs(complaintText(subject, why).c_str(), stderr);
}

int readOptions(int argc, char** argv, Options& options) {
    static char programName[] = "fxgrep";
    argv[0] = programName;  // the name in messages of getopt_long()
    const char* name = nullptr;
    const char* colour = "auto";
    for (int c; (c = getopt_long(argc, argv, shortOptions, longOptions, nullptr)) != -1;) {
        if (c == helpOption) return answer(usage, help);
        if (c == versionOption) return answer("fxgrep of libostrelfxds ", FXGREP_VERSION "\n");
        if (c == nameOption) {
            name = optarg;
            continue;
        }
        const int status = take(c, options, colour);
        if (status != -1) return status;
    }
    if (!options.hasPatterns) {
        if (optind == argc) return refuse();
        addPatterns(argv[optind++], options.patterns);
    }
    for (const unsigned long number : {options.around, options.before, options.after}) {
        options.hasContext = options.hasContext || number != Options::unset;
    }
    if (options.around == Options::unset) options.around = 0;
    if (options.before == Options::unset) options.before = options.around;
    if (options.after == Options::unset) options.after = options.around;
    options.files.assign(argv + optind, argv + argc);
    if (name != nullptr) {
        if (options.path == nullptr) return refuse();
        options.name = name;
    }
    if (options.names == Options::whereSeveral &&
        (options.path != nullptr || options.files.size() > 1 || options.isRecursive)) {
        options.names = Options::always;
    }
    options.isNumbered = options.isNumbered || options.isJson;
    options.isColoured = wantsColour(colour) && !options.isJson;
    return -1;
}
