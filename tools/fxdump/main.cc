// fxdump: shows, draws and checks streams of fxBinaryWriter.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "Dump.h"
#include "Text.h"

namespace {

constexpr int faultStatus = 1;
constexpr int failureStatus = 2;

constexpr char helpText[] =
    "Usage: fxdump [OPTION]... [FILE]\n"
    "Prints a stream of fxBinaryWriter record by record. Without FILE, or with -,\n"
    "reads standard input.\n"
    "\n"
    "  --full   prints long payloads in full\n"
    "  --dot    draws the objects and their pointers instead, for Graphviz\n"
    "  --check  only tells whether the stream is valid, and the offset of its first\n"
    "           fault; makes none of its objects\n"
    "  --help   prints this\n"
    "\n"
    "Exit status: 0, also for a listing of a damaged stream; 1 when a check found a\n"
    "fault; 2 when the options are wrong, or FILE cannot be read.\n";

struct Options {
    DumpMode mode = DumpMode::listing;
    bool isFull = false;
    bool isHelp = false;
    std::string path = "-";
};

int fail(const std::string& what) {
    std::fprintf(stderr, "fxdump: %s\n", what.c_str());
    return failureStatus;
}

std::string nameText(const std::string& name) { return escaped(name, std::string::npos); }

bool setMode(Options& options, DumpMode mode, std::string& error) {
    if (options.mode != DumpMode::listing && options.mode != mode) {
        error = "--dot and --check exclude each other";
        return false;
    }
    options.mode = mode;
    return true;
}

// False with what is wrong in `error`.
bool parseOptions(int argc, char** argv, Options& options, std::string& error) {
    bool hasPath = false;
    bool isOnlyPaths = false;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (isOnlyPaths || word == "-" || word.empty() || word[0] != '-') {
            if (hasPath) {
                error = "one FILE at a time, please (see --help)";
                return false;
            }
            hasPath = true;
            options.path = word;
        } else if (word == "--") {
            isOnlyPaths = true;
        } else if (word == "--full") {
            options.isFull = true;
        } else if (word == "--help") {
            options.isHelp = true;
        } else if (word == "--dot" || word == "--check") {
            const DumpMode mode = word == "--dot" ? DumpMode::graph : DumpMode::check;
            if (!setMode(options, mode, error)) return false;
        } else {
            error = "unknown option " + nameText(word) + " (see --help)";
            return false;
        }
    }
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
    std::string bytes;
    const std::string name = options.path == "-" ? "standard input" : options.path;
    if (!readAll(options.path, bytes)) {
        return fail(nameText(name) + ": " + std::strerror(errno));
    }
    const bool isValid = dumpStream(bytes, name, options.mode, options.isFull, stdout);
    return finish(isValid ? 0 : faultStatus);
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
