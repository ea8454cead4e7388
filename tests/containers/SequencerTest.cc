#include "fxds/Sequencer.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "tests/support/TestSeed.h"

namespace {

typedef std::vector<std::pair<unsigned int, unsigned int>> Ranges;

Ranges rangesOf(const fxSequencer& sequencer) {
    Ranges ranges;
    for (const fxSeqRange& range : sequencer.ranges) ranges.emplace_back(range.start, range.length);
    return ranges;
}

void reserve(fxSequencer& sequencer, std::initializer_list<unsigned int> numbers) {
    for (unsigned int number : numbers) EXPECT_EQ(sequencer(number), number);
}

std::vector<unsigned int> draw(fxSequencer& sequencer, int count) {
    std::vector<unsigned int> numbers;
    while (count-- > 0) numbers.push_back(sequencer());
    return numbers;
}

// The numbers that are taken, one by one.
struct Model {
    std::set<unsigned int> taken;

    unsigned int next() {
        unsigned int number = taken.empty() ? 0 : *taken.begin();
        if (number > 0) {
            --number;
        } else {
            while (taken.count(number) != 0) ++number;
        }
        taken.insert(number);
        return number;
    }

    Ranges ranges() const {
        Ranges ranges;
        for (unsigned int number : taken) {
            if (ranges.empty() || ranges.back().first + ranges.back().second != number) {
                ranges.emplace_back(number, 0);
            }
            ++ranges.back().second;
        }
        return ranges;
    }
};

}  // namespace

TEST(Sequencer, TakesTheHighestNumbersToo) {
    fxSequencer sequencer;
    reserve(sequencer, {5, 0xFFFFFFFF, 0xFFFFFFFE});
    EXPECT_EQ(rangesOf(sequencer), (Ranges{{5, 1}, {0xFFFFFFFE, 2}}));
    EXPECT_EQ(draw(sequencer, 6), (std::vector<unsigned int>{4, 3, 2, 1, 0, 6}));
}

TEST(Sequencer, ReservingTwiceGoesUnnoticed) {
    fxSequencer sequencer;
    draw(sequencer, 3);
    reserve(sequencer, {1});
    EXPECT_EQ(rangesOf(sequencer), (Ranges{{0, 3}, {1, 1}}));
    reserve(sequencer, {0});
    EXPECT_EQ(rangesOf(sequencer), (Ranges{{0, 3}, {0, 2}}));
    EXPECT_EQ(sequencer(), 3U);
}

TEST(Sequencer, AgreesWithModel) {
    std::mt19937 rng(testSeed());
    for (int round = 0; round < 50; ++round) {
        fxSequencer sequencer;
        Model model;
        for (int step = 0; step < 200; ++step) {
            const unsigned int number = static_cast<unsigned int>(rng() % 300);
            if (rng() % 3 == 0) {
                ASSERT_EQ(sequencer(), model.next());
            } else if (model.taken.insert(number).second) {
                ASSERT_EQ(sequencer(number), number);
            }
            ASSERT_EQ(rangesOf(sequencer), model.ranges());
            for (const unsigned int index : {0U, number, 0xFFFFFFFFU}) sequencer.trymerge(index);
            ASSERT_EQ(rangesOf(sequencer), model.ranges());
        }
    }
}
