#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "fxds/Globals.h"
#include "fxds/StrArray.h"
#include "tests/support/ArrayModel.h"
#include "tests/support/MemoryTranscriber.h"
#include "tests/support/StreamKit.h"

namespace {

typedef std::vector<std::string> Texts;

fxStrArray strings(const Texts& texts) {
    fxStrArray array;
    for (const std::string& text : texts) array.append(fxStr(text));
    return array;
}

Texts texts(const fxStrArray& array) {
    Texts result;
    for (const fxStr& string : array) result.emplace_back(string.c_str());
    return result;
}

TEST(StrArray, SortOrdersTextsAndQsortPlacesThem) {
    fxStrArray array = strings({"pear", "apple", "zebra", "apple", "fig"});
    array.sort();
    EXPECT_EQ(texts(array), Texts({"apple", "apple", "fig", "pear", "zebra"}));
    EXPECT_EQ(array.find("apple", 1), 1U);
    fxStrArray placed = strings({"b", "c", "a"});
    placed.qsort();
    EXPECT_EQ(texts(placed), Texts({"c", "c", "c"}));
    EXPECT_NE(placed[0].c_str(), placed[1].c_str()) << "two strings share a block";
}

TEST(StrArray, AgreesWithModel) {
    checkAgainstModel<fxStrArray, fxStr>(
        5000, [](unsigned int n) { return fxStr(std::string(n * 3, static_cast<char>('a' + n))); });
}

TEST(StrArray, ReadsBackWhatItWrote) {
    fxStrArray array = strings({"one", "", "three"});
    array.append(fxStr(std::string("z\0z", 3)));
    array.setMaxLength(9);
    MemoryTranscriber writer;
    ASSERT_TRUE(array.xdr(writer));
    EXPECT_EQ(array.getMaxLength(), 4U);

    fxStrArray copy;
    copy.setMaxLength(20);  // a block without strings in it is not dropped
    MemoryTranscriber reader(writer.bytes);
    ASSERT_TRUE(copy.xdr(reader));
    EXPECT_EQ(reader.taken, writer.bytes.size());
    EXPECT_TRUE(std::equal(array.begin(), array.end(), copy.begin(), copy.end()));
    EXPECT_EQ(copy.getMaxLength(), 4U);

    for (std::size_t length = 0; length < writer.bytes.size(); ++length) {
        fxStrArray part;
        MemoryTranscriber prefix(writer.bytes.substr(0, length));
        ASSERT_FALSE(part.xdr(prefix)) << length;
        EXPECT_TRUE(part.isEmpty());
        part.append("usable");
        EXPECT_EQ(texts(part), Texts({"usable"}));
    }
}

// The reader fills the texts in after it has read the array, which has moved by
// then.
TEST(StrArray, GetsItsTextsWhereverTheyWereAwaited) {
    Texts many;
    for (int i = 0; i < 1000; ++i) many.push_back(i % 7 == 0 ? "" : std::to_string(i));
    fxStrArray array = strings(many);
    fxInitializeToolkit();
    const std::unique_ptr<fxStrArray> copy(fxXdrCopy(&array));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(texts(*copy), many);
}

TEST(StrArray, RefusesForeignSizesAndClaimsWithoutBytes) {
    const struct {
        unsigned int byteCount;
        unsigned short size;
    } headers[] = {{16, 8}, {16, 0}, {24, 16}, {0x7FFFFFF0, 16}};
    for (const auto& header : headers) {
        std::string bytes(64, '\0');
        std::memcpy(&bytes[0], &header.byteCount, 4);
        std::memcpy(&bytes[8], &header.size, 2);
        bytes[10] = 1;  // one empty string, then lengths of zero, which none has
        fxStrArray array;
        MemoryTranscriber reader(bytes);
        EXPECT_FALSE(array.xdr(reader));
        EXPECT_TRUE(array.isEmpty());
    }
}

}  // namespace
