// fxdump: shows, draws and checks streams of fxBinaryWriter.
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
    "Prints streams of fxBinaryWriter record by record. Without FILE, or with -,\n"
    "reads standard input.\n"
    "\n"
    "  --full   prints long payloads in full\n"
    "  --dot    draws the objects and their pointers instead, for Graphviz\n"
    "  --json   prints everything that is in the stream, as JSON\n"
    "  --check  only tells whether each stream is valid, and the offset of its first\n"
    "           fault; makes none of its objects\n"
    "  --help   prints this\n"
    "\n"
    "Exit status: 0, also for a listing of a damaged stream; 1 when a check found a\n"
    "fault; 2 when the options are wrong, or a FILE cannot be read.\n";

struct Options {
    DumpMode mode = DumpMode::listing;
    bool isFull = false;
    bool isHelp = false;
    std::vector<std::string> paths;
};

int fail(const std::string& what) {
    std::fprintf(stderr, "fxdump: %s\n", what.c_str());
    return failureStatus;
}

std::string nameText(const std::string& name) { return escaped(name, std::string::npos); }

bool setMode(Options& options, DumpMode mode, std::string& error) {
    if (options.mode != DumpMode::listing && options.mode != mode) {
        error = "--dot, --json and --check exclude each other";
        return false;
    }
    options.mode = mode;
    return true;
}

// False with what is wrong in `error`.
bool parseOptions(int argc, char** argv, Options& options, std::string& error) {
    bool isOnlyPaths = false;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (isOnlyPaths || word == "-" || word.empty() || word[0] != '-') {
            options.paths.push_back(word);
        } else if (word == "--") {
            isOnlyPaths = true;
        } else if (word == "--full") {
            options.isFull = true;
        } else if (word == "--help") {
            options.isHelp = true;
        } else if (word == "--dot") {
            if (!setMode(options, DumpMode::graph, error)) return false;
        } else if (word == "--json") {
            if (!setMode(options, DumpMode::json, error)) return false;
        } else if (word == "--check") {
            if (!setMode(options, DumpMode::check, error)) return false;
        } else {
            error = "unknown option " + nameText(word) + " (see --help)";
            return false;
        }
    }
    if (options.paths.empty()) options.paths.emplace_back("-");
    return true;
}

struct Closer {
    void operator()(FILE* file) const {
        if (file != stdin) std::fclose(file);
    }
};

// False with the reason in errno.
bool readAll(const std::string& path, std::string& bytes) {
    const std::unique_ptr<FILE, Closer> file(path == "-" ? stdin : std::fopen(path.c_str(), "rb"));
    if (file == nullptr) return false;
    char piece[1 << 16];
    for (size_t n = 0; (n = std::fread(piece, 1, sizeof piece, file.get())) > 0;) {
        bytes.append(piece, n);
    }
    return std::ferror(file.get()) == 0;  // closing what was only read leaves errno alone
}

int finish(int status) {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
    return fail(std::string("cannot write: ") + std::strerror(errno));
}

int run(const Options& options) {
    if (options.isHelp) {
        std::fputs(helpText, stdout);
        return finish(0);
    }
    int status = 0;
    for (const std::string& path : options.paths) {
        std::string bytes;
        const std::string name = path == "-" ? "standard input" : path;
        if (!readAll(path, bytes)) {
            status = fail(nameText(name) + ": " + std::strerror(errno));
        } else if (!dumpStream(bytes, name, options.mode, options.isFull, stdout)) {
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
