// fxdump: shows, draws and checks streams of fxBinaryWriter.
#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "Dump.h"
#include "Text.h"

namespace {

constexpr int faultStatus = 1;
constexpr int failureStatus = 2;

constexpr char helpText[] =
    "Usage: fxdump [OPTION]... [FILE]...\n"
    "Prints streams of fxBinaryWriter record by record, of several FILEs one after the\n"
    "other. Without FILE, or with -, reads standard input.\n"
    "\n"
    "  --full   prints long payloads in full\n"
    "  --dot    draws the objects and their pointers instead, for Graphviz\n"
    "  --json   prints everything that is in the stream, as JSON\n"
    "  --check  only tells whether each stream is valid, and the offset, the record and\n"
    "           the class of its first fault; makes none of its objects\n"
    "  --help, --version   prints this, prints the version\n"
    "\n"
    "Exit status: 0, also for a listing of a damaged stream; 1 when a check found a\n"
    "fault; 2 when the options are wrong, or a FILE cannot be read or is no stream.\n";

constexpr char versionText[] = "fxdump of libostrelfxds " FXDUMP_VERSION "\n";

struct Options {
    DumpOptions dump;
    const char* answer = nullptr;  // printed instead
    std::vector<std::string> paths;
};

int fail(const std::string& what) {
    std::fprintf(stderr, "fxdump: %s\n", what.c_str());
    return failureStatus;
}

std::string nameText(const std::string& name) { return escaped(name, std::string::npos); }

bool setMode(Options& options, DumpMode mode, std::string& error) {
    if (options.dump.mode != DumpMode::listing && options.dump.mode != mode) {
        error = "--dot, --json and --check exclude each other";
        return false;
    }
    options.dump.mode = mode;
    return true;
}

enum Code { fullCode = 1, dotCode, jsonCode, checkCode, helpCode, versionCode };

const option longOptions[] = {{"full", no_argument, nullptr, fullCode},
                              {"dot", no_argument, nullptr, dotCode},
                              {"json", no_argument, nullptr, jsonCode},
                              {"check", no_argument, nullptr, checkCode},
                              {"help", no_argument, nullptr, helpCode},
                              {"version", no_argument, nullptr, versionCode},
                              {nullptr, 0, nullptr, 0}};

// The option that getopt_long() has just refused: optopt is a letter, or a replacement for
// one.
std::string refusedOption(char** argv) {
    const bool isLetter = optopt > ' ';
    return isLetter ? std::string("-") + static_cast<char>(optopt) : argv[optind - 1];
}

// Returns false with the fault in `error`.
bool parseOptions(int argc, char** argv, Options& options, std::string& error) {
    opterr = 0;
    for (int code = 0; (code = getopt_long(argc, argv, "", longOptions, nullptr)) != -1;) {
        switch (code) {
            case fullCode:
                options.dump.isFull = true;
                break;
            case dotCode:
                if (!setMode(options, DumpMode::graph, error)) return false;
                break;
            case jsonCode:
                if (!setMode(options, DumpMode::json, error)) return false;
                break;
            case checkCode:
                if (!setMode(options, DumpMode::check, error)) return false;
                break;
            case helpCode:
                options.answer = helpText;
                break;
            case versionCode:
                options.answer = versionText;
                break;
            default:
                error = "unknown option " + nameText(refusedOption(argv)) + " (see --help)";
                return false;
        }
    }
    options.paths.assign(argv + optind, argv + argc);
    if (options.paths.empty()) options.paths.emplace_back("-");
    options.dump.isOneOfSeveral = options.paths.size() > 1;
    return true;
}

struct Closer {
    void operator()(FILE* file) const {
        if (file != stdin) std::fclose(file);
    }
};

// Of what is no stream, which may be endless, reads only the beginning. Returns false with the
// reason in errno.
bool readAll(const std::string& path, std::string& bytes) {
    const std::unique_ptr<FILE, Closer> file(path == "-" ? stdin : std::fopen(path.c_str(), "rb"));
    if (file == nullptr) return false;
    char piece[1 << 16];
    for (size_t n = 0; (n = std::fread(piece, 1, sizeof piece, file.get())) > 0;) {
        bytes.append(piece, n);
        if (!mayBeStream(bytes)) return true;
    }
    return std::ferror(file.get()) == 0;  // closing a file that was only read does not change errno
}

int finish(int status) {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
    return fail(std::string("cannot write: ") + std::strerror(errno));
}

int run(const Options& options) {
    if (options.answer != nullptr) {
        std::fputs(options.answer, stdout);
        return finish(0);
    }
    int status = 0;
    for (const std::string& path : options.paths) {
        std::string bytes;
        const std::string name = path == "-" ? "standard input" : path;
        if (!readAll(path, bytes)) {
            status = fail(nameText(name) + ": " + std::strerror(errno));
            continue;
        }
        const DumpResult result = dumpStream(bytes, name, options.dump, stdout);
        if (result == DumpResult::noStream) {
            std::fflush(stdout);  // keeps the order where both go to the same place
            status = fail(nameText(name) + ": not a stream of fxBinaryWriter");
        } else if (result == DumpResult::faulty) {
            status = std::max(status, faultStatus);
        }
    }
    return finish(status);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    std::string error;
    if (!parseOptions(argc, argv, options, error)) return fail(error);
    try {
        return run(options);
    } catch (const std::bad_alloc&) {
        return fail("not enough memory");
    }
}
