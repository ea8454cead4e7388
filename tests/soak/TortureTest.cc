// Random work for the whole dataflow core, checked call by call.
#include "Torturer.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/TestSeed.h"

// FX_TEST_ROUNDS=n for more of them, each with the next seed.
TEST(Torture, EveryCallComesAsTheModelSays) {
    const char* const rounds = std::getenv("FX_TEST_ROUNDS");
    const unsigned long count =
        rounds != nullptr ? std::strtoul(rounds, nullptr, 10) : 10 / testShare;
    for (unsigned int seed = testSeed(); seed < testSeed() + count; ++seed) {
        ASSERT_EQ(soak::torture(seed, 25000), "") << "FX_TEST_SEED=" << seed;
    }
}
