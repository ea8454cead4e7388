// The seed of the random tests, and their length.
#ifndef FXDS_TESTS_TESTSEED_H
#define FXDS_TESTS_TESTSEED_H

#include <cstdlib>

/// The same in every run, so that a failure can be repeated; set FX_TEST_SEED
/// to another number to try other steps.
inline unsigned int testSeed() {
    const char* text = std::getenv("FX_TEST_SEED");
    return text != nullptr ? static_cast<unsigned int>(std::strtoul(text, nullptr, 10)) : 20261121U;
}

/// Long series of tests are that many times shorter under AddressSanitizer: it takes ten times
/// as long, and sees in one step what a plain build sees in many.
#ifdef __SANITIZE_ADDRESS__
constexpr int testShare = 3;
#else
constexpr int testShare = 1;
#endif

#endif
