// fxgrep: prints the lines of files that a pattern occurs in.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "Crew.h"
#include "Files.h"
#include "Options.h"
#include "Pattern.h"

int main(int argc, char** argv) {
    constexpr int trouble = 2;
    constexpr unsigned int mostThreads = 8;
    Options options;
    const int status = readOptions(argc, argv, options);
    if (status != -1) return status;
    if (!isGoodExpression(options.name)) return trouble;
    std::vector<std::unique_ptr<Search>> searches;
    const unsigned int threads = areSeveral(options) ? std::thread::hardware_concurrency() : 1;
    for (unsigned int i = 0; i < std::clamp(threads, 1U, mostThreads); ++i) {
        searches.push_back(makeSearch(options));
        if (searches.back() == nullptr) return trouble;
    }

    static char outputBuffer[1 << 16];
    if (!isatty(STDOUT_FILENO)) std::setvbuf(stdout, outputBuffer, _IOFBF, sizeof outputBuffer);
    Crew crew(options, std::move(searches));
    searchFiles(crew, options);
    crew.finish();
    int error = crew.getPrinter().outputError();
    if (error == 0 && (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)) error = errno;
    if (error != 0) {
        complain("standard output", std::strerror(error));
        return trouble;
    }
    if (crew.isDone()) return 0;
    return crew.getPrinter().hadTrouble() ? trouble : crew.getPrinter().hasFound() ? 0 : 1;
}
