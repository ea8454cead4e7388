// Tortures the dataflow core until the time or the steps are over.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "Torture.h"

namespace {

constexpr char helpText[] =
    "Usage: soak [--seed N] [--seconds N | --steps N]\n"
    "Lets a random network of objects work, and checks every call that the library\n"
    "makes against a model. Rounds of 200000 steps, each with the next seed, go on for\n"
    "60 seconds unless told otherwise; --steps is one round of that many steps.\n"
    "\n"
    "Exit status: 0 when all went well; 1 with the seed, the steps to repeat it with\n"
    "and what happened last; 2 for wrong options.\n";

constexpr unsigned long roundSteps = 200000;

enum { seed, seconds, steps };
constexpr const char* names[] = {"--seed", "--seconds", "--steps"};

bool parse(int argc, char** argv, unsigned long (&options)[3]) {
    for (int i = 1; i < argc; i += 2) {
        const auto isIt = [&](const char* name) { return std::strcmp(argv[i], name) == 0; };
        const auto* const name = std::find_if(std::begin(names), std::end(names), isIt);
        char* end = nullptr;
        if (i + 1 == argc || name == std::end(names)) return false;
        options[name - names] = std::strtoul(argv[i + 1], &end, 10);
        if (end == argv[i + 1] || *end != '\0') return false;
    }
    return true;
}

// Ends the program when the round fails.
void round(unsigned long first, unsigned long count) {
    const std::string report = soak::torture(static_cast<unsigned int>(first), count);
    if (report.empty()) return;
    std::printf("FAILED. Repeat with: soak --seed %lu --steps %lu\n%s", first, count,
                report.c_str());
    std::fflush(stdout);
    std::_Exit(1);  // what was left halfway is no leak
}

}  // namespace

int main(int argc, char** argv) {
    unsigned long options[] = {1, 60, 0};
    const bool asksForHelp = argc == 2 && std::strcmp(argv[1], "--help") == 0;
    if (asksForHelp || !parse(argc, argv, options)) {
        std::fputs(helpText, asksForHelp ? stdout : stderr);
        return asksForHelp ? 0 : 2;
    }
    if (options[steps] != 0) {
        round(options[seed], options[steps]);
        return 0;
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(options[seconds]);
    for (unsigned long done = 1; std::chrono::steady_clock::now() < end; ++done, ++options[seed]) {
        round(options[seed], roundSteps);
        std::printf("seed %lu: agreed; %lu steps so far\n", options[seed], done * roundSteps);
        std::fflush(stdout);
    }
    return 0;
}
