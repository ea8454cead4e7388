// A few seconds of the work that tools/soak does for minutes.
#include "Torture.h"

#include <gtest/gtest.h>

#include "tests/support/TestSeed.h"

TEST(Torture, EveryCallComesAsTheModelSays) {
    for (unsigned int seed = testSeed(); seed < testSeed() + 4; ++seed) {
        EXPECT_EQ(soak::torture(seed, 25000), "") << "soak --seed " << seed << " --steps 25000";
    }
}
