#include "fxds/TempStr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <random>
#include <string>

#include "fxds/StackBuffer.h"
#include "fxds/Str.h"
#include "tests/support/TestSeed.h"

namespace {

template <class T>
bool isIn(const T& object, const char* place) {
    const char* const begin = reinterpret_cast<const char*>(&object);
    return place >= begin && place < begin + sizeof object;
}

TEST(TempStr, AChainMakesOneObject) {
    const fxStr a("a"), b("b"), zero("a\0b", 3), empty;
    const fxStr joined = "<" | a | ", " | b | ">";
    EXPECT_EQ(joined, "<a, b>");
    fxTempStr t = a | b;
    EXPECT_EQ(&(t | "c"), &t);
    EXPECT_EQ(&(t | a), &t);
    EXPECT_EQ(t.view(), "abca");
    EXPECT_EQ((a | static_cast<const char*>(nullptr)).view(), "a");
    EXPECT_EQ((a | b) | (b | a), "abba");  // the right side becomes a string first
    EXPECT_EQ(std::string("<") | a | std::string("\0>", 2), std::string("<a\0>", 4));
    EXPECT_EQ(fxStr(zero | zero).view(), std::string_view("a\0ba\0b", 6));
    fxStr s("old");
    s = s | "/" | s;
    EXPECT_EQ(s, "old/old");
    s = empty | empty;
    EXPECT_EQ(s.data, &fxStr::emptyString);
}

// A concatenation of 100 bytes is inline, a copy of them has a block.
TEST(TempStr, AgreesWithModel) {
    std::mt19937 rng(testSeed());
    const std::string text(120, 'x');
    for (int round = 0; round < 3000; ++round) {
        const auto first = static_cast<unsigned int>(rng() % 120);
        auto t = std::make_unique<fxTempStr>(text.data(), first, "yz", 2);
        std::string model = text.substr(0, first) + "yz";
        bool isInline = model.size() < 100;
        for (int step = 0; step < 6; ++step) {
            const size_t at = rng() % model.size(), n = rng() % std::min<size_t>(model.size(), 9);
            if (rng() % 4 == 0) {
                const fxTempStr& same = *t;
                *t = same;
                auto copy = std::make_unique<fxTempStr>(*t);
                if (rng() % 2 == 0) *(copy = std::make_unique<fxTempStr>("", 0, "", 0)) = *t;
                t = std::move(copy);
                isInline = model.size() < 99;
            } else {
                const std::string piece = model.substr(at, n);
                const bool isOwn = rng() % 2 == 0;
                t->concat(isOwn ? t->data + at : piece.data(),
                          static_cast<unsigned int>(piece.size()));
                model += piece;
                isInline = isInline && model.size() < 100;
            }
            ASSERT_EQ(t->view(), model);
            ASSERT_EQ(t->c_str()[t->length()], '\0');
            ASSERT_EQ(isIn(*t, t->data), isInline) << model.size();
        }
    }
}

TEST(TempStrDeathTest, LengthsThatDoNotFitAreFatal) {
    EXPECT_DEATH(fxTempStr("", UINT_MAX, "", 1), "does not fit 32 bits");
    EXPECT_DEATH(fxTempStr("", 0, "", 0).concat("", UINT_MAX), "does not fit 32 bits");
}

// It grows by the increment or by the shortfall; a copy has room for as much.
TEST(StackBuffer, AgreesWithModel) {
    std::mt19937 rng(testSeed());
    const std::string text(1200, 'x');
    for (int round = 0; round < 2000; ++round) {
        const unsigned int increments[] = {0, 1, 7, 700};
        const unsigned int increment = increments[rng() % 4];
        auto buffer = std::make_unique<fxStackBuffer>(increment);
        const size_t least = increment != 0 ? increment : 500;
        std::string model;
        size_t capacity = 1000;
        for (int step = 0; step < 8; ++step) {
            const size_t at = rng() % (model.size() + 1);
            const std::string piece =
                rng() % 2 == 0 ? model.substr(at, rng() % 900) : text.substr(rng() % 1200);
            const auto n = static_cast<unsigned int>(piece.size());
            const size_t needed = model.size() + n, room = capacity;
            switch (rng() % 5) {
                case 0:
                    buffer->addc('c');
                    model += 'c';
                    if (model.size() > room) capacity += least;
                    break;
                case 1:
                    buffer = std::make_unique<fxStackBuffer>(*buffer);
                    EXPECT_EQ(buffer->growthIncrement, least);
                    break;
                case 2:
                    if (rng() % 2 == 0) buffer->reset(), model.clear();
                    if (rng() % 4 == 0) buffer->grow(n), capacity += std::max<size_t>(n, least);
                    break;
                default:
                    buffer->put(
                        piece == model.substr(at, n) ? buffer->getBase() + at : piece.data(), n);
                    model += piece;
                    if (needed > room) capacity += std::max(needed - room, least);
            }
            ASSERT_EQ(buffer->view(), model);
            ASSERT_EQ(buffer->capacity(), capacity);
            ASSERT_EQ(isIn(*buffer, buffer->base), capacity == 1000);
        }
    }
    fxStackBuffer none;
    none.growthIncrement = 0;  // taken as 1
    none.put(text.data(), 1000), none.put(nullptr, 0), none.addc('!');
    EXPECT_EQ(none.capacity(), 1001U);
}

}  // namespace
