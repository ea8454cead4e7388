#include "fxds/TempStr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>

#include "fxds/StackBuffer.h"
#include "fxds/Str.h"

namespace {

bool isInline(const fxTempStr& t) {
    const char* object = reinterpret_cast<const char*>(&t);
    return t.data >= object && t.data < object + sizeof t;
}

bool isInline(const fxStackBuffer& b) {
    const char* object = reinterpret_cast<const char*>(&b);
    return b.base >= object && b.base < object + sizeof b;
}

fxTempStr made(size_t lengthBytes) {
    const std::string text(lengthBytes - 1, 'x');
    return fxTempStr(text.data(), static_cast<unsigned int>(text.size()), nullptr, 0);
}

}  // namespace

TEST(TempStr, AChainMakesOneObject) {
    const fxStr a("a"), b("b");
    const fxStr joined = "<" | a | ", " | b | ">";
    EXPECT_EQ(joined, "<a, b>");
    fxTempStr t = a | b;
    EXPECT_EQ(&(t | "c"), &t);
    EXPECT_EQ(&(t | a), &t);
    EXPECT_EQ(t.view(), "abca");
    EXPECT_EQ(t.c_str()[t.length()], '\0');
    EXPECT_EQ((a | static_cast<const char*>(nullptr)).view(), "a");
    EXPECT_EQ((a | b) | (b | a), "abba");  // the right side becomes a string first
    EXPECT_EQ(std::string("<") | a | std::string("\0>", 2), std::string("<a\0>", 4));
}

TEST(TempStr, BecomesAString) {
    const fxStr zero("a\0b", 3), empty;
    EXPECT_EQ(fxStr(zero | zero).view(), std::string_view("a\0ba\0b", 6));
    EXPECT_EQ(fxStr(empty | "").data, &fxStr::emptyString);
    fxStr s("old");
    s = s | "/" | s;
    EXPECT_EQ(s, "old/old");
    s = empty | empty;
    EXPECT_EQ(s.data, &fxStr::emptyString);
}

TEST(TempStr, IsInlineUpTo100BytesAndACopyUpTo99) {
    for (const size_t bytes : {1U, 2U, 98U, 99U, 100U, 101U, 300U}) {
        fxTempStr t = made(bytes);
        EXPECT_EQ(isInline(t), bytes <= 100);
        t.concat("", 0);
        EXPECT_EQ(isInline(t), bytes <= 100);
        EXPECT_EQ(isInline(made(bytes).concat("y", 1)), bytes <= 99);
        fxTempStr copied(t);
        EXPECT_EQ(isInline(copied), bytes <= 99);
        EXPECT_EQ(copied.view(), t.view());
        copied.concat("", 0);
        copied.concat("yz", 2);  // also from a block of exactly 100 bytes
        EXPECT_EQ(copied.view(), std::string(t.view()) + "yz");
        fxTempStr assigned = made(200);
        assigned = copied;
        const fxTempStr& same = assigned;
        assigned = same;
        EXPECT_EQ(assigned.view(), copied.view());
    }
}

TEST(TempStr, ConcatMayUseItsOwnText) {
    fxTempStr t("ab", 2, "cd", 2);
    std::string model = "abcd";
    for (int i = 0; i < 8; ++i) {
        t.concat(t.data + 1, t.length() - 1);
        model += model.substr(1);
        ASSERT_EQ(t.view(), model);
    }
}

TEST(TempStrDeathTest, LengthsThatDoNotFitAreFatal) {
    EXPECT_DEATH(fxTempStr("", UINT_MAX, "", 1), "does not fit 32 bits");
    EXPECT_DEATH(made(2).concat("", UINT_MAX), "does not fit 32 bits");
}

TEST(StackBuffer, GrowsByTheIncrementOrTheShortfall) {
    fxStackBuffer bytes;
    EXPECT_EQ(bytes.capacity(), 1000U);
    for (int i = 0; i < 1000; ++i) bytes.addc('x');
    EXPECT_TRUE(isInline(bytes));
    bytes.addc('y');
    EXPECT_FALSE(isInline(bytes));
    EXPECT_EQ(bytes.capacity(), 1500U);
    EXPECT_EQ(bytes.view(), std::string(1000, 'x') + "y");

    const std::string big(2000, 'z');
    fxStackBuffer put;
    put.put(big.data(), 2000);
    EXPECT_EQ(put.capacity(), 2000U);
    put.put("!", 1);
    put.put(nullptr, 0);
    EXPECT_EQ(put.capacity(), 2500U);
    EXPECT_EQ(put.view(), big + "!");

    for (const unsigned int increment : {10U, 1U, 0U}) {
        fxStackBuffer small;
        small.growthIncrement = increment;
        small.put(big.data(), 1000);
        small.addc('!');
        EXPECT_EQ(small.capacity(), 1000 + std::max(increment, 1U));
    }
}

TEST(StackBuffer, CopiesAreTheirOwn) {
    fxStackBuffer few(7);
    few.put("abc", 3);
    fxStackBuffer copied(few);
    EXPECT_TRUE(isInline(copied));
    copied.addc('d');
    EXPECT_EQ(copied.view(), "abcd");
    EXPECT_EQ(few.view(), "abc");
    EXPECT_EQ(copied.growthIncrement, 7U);

    few.grow(1);
    fxStackBuffer large(few);
    EXPECT_FALSE(isInline(large));
    EXPECT_EQ(large.capacity(), 1007U);
    EXPECT_EQ(large.view(), "abc");
    large.reset();
    EXPECT_TRUE(large.isEmpty());
    EXPECT_EQ(large.capacity(), 1007U);
}

TEST(StackBuffer, PutMayUseItsOwnContent) {
    fxStackBuffer bytes;
    std::string model = "0123456789";
    bytes.put(model.data(), 10);
    for (int i = 0; i < 9; ++i) {
        bytes.put(bytes.getBase(), bytes.length());
        model += model;
        ASSERT_EQ(bytes.view(), model);
    }
}
