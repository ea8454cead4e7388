// Tortures the dataflow core until the time or the steps are over.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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

struct Options {
    unsigned long seed = 1;
    unsigned long seconds = 60;
    unsigned long steps = 0;
};

bool parse(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; i += 2) {
        if (i + 1 == argc) return false;
        char* end = nullptr;
        const unsigned long value = std::strtoul(argv[i + 1], &end, 10);
        if (end == argv[i + 1] || *end != '\0') return false;
        if (std::strcmp(argv[i], "--seed") == 0) {
            options.seed = value;
        } else if (std::strcmp(argv[i], "--seconds") == 0) {
            options.seconds = value;
        } else if (std::strcmp(argv[i], "--steps") == 0) {
            options.steps = value;
        } else {
            return false;
        }
    }
    return true;
}

// Ends the program when the round fails.
void round(unsigned long seed, unsigned long steps) {
    const std::string report = soak::torture(static_cast<unsigned int>(seed), steps);
    if (report.empty()) return;
    std::printf("FAILED. Repeat with: soak --seed %lu --steps %lu\n%s", seed, steps,
                report.c_str());
    std::fflush(stdout);
    std::_Exit(1);  // what was left halfway is no leak
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(helpText, stdout);
        return 0;
    }
    if (!parse(argc, argv, options)) {
        std::fputs(helpText, stderr);
        return 2;
    }
    if (options.steps != 0) {
        round(options.seed, options.steps);
        return 0;
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(options.seconds);
    unsigned long total = 0;
    for (unsigned long seed = options.seed; std::chrono::steady_clock::now() < end; ++seed) {
        round(seed, roundSteps);
        total += roundSteps;
        std::printf("seed %lu: agreed; %lu steps so far\n", seed, total);
        std::fflush(stdout);
    }
    return 0;
}
