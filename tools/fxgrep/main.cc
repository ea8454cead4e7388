// fxgrep: prints the lines of files that a pattern occurs in.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "Files.h"
#include "Grep.h"
#include "Options.h"
#include "Pattern.h"

int main(int argc, char** argv) {
    constexpr int trouble = 2;
    Options options;
    const int status = readOptions(argc, argv, options);
    if (status != -1) return status;
    if (!isGoodExpression(options.name)) return trouble;
    const std::unique_ptr<Search> search = makeSearch(options);
    if (search == nullptr) return trouble;

    static char outputBuffer[1 << 16];
    if (!isatty(STDOUT_FILENO)) std::setvbuf(stdout, outputBuffer, _IOFBF, sizeof outputBuffer);
    Grep grep(options, *search);
    searchFiles(grep, options);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain("standard output", std::strerror(errno));
        return trouble;
    }
    if (grep.isDone()) return 0;
    return grep.hadTrouble ? trouble : grep.hasFound ? 0 : 1;
}
