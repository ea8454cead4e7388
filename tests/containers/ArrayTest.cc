#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "fxds/BinaryReader.h"
#include "fxds/BinaryWriter.h"
#include "fxds/BoolArray.h"
#include "fxds/CharArray.h"
#include "fxds/DoubleArray.h"
#include "fxds/FloatArray.h"
#include "fxds/IntArray.h"
#include "fxds/LongArray.h"
#include "fxds/MemoryStream.h"
#include "fxds/SeqRangeArray.h"
#include "fxds/ShortArray.h"
#include "fxds/StubFuncArray.h"
#include "fxds/UnsignedCharArray.h"
#include "fxds/UnsignedLongArray.h"
#include "fxds/UnsignedShortArray.h"
#include "fxds/VoidPtrArray.h"
#include "tests/support/ArrayModel.h"
#include "tests/support/MemoryTranscriber.h"

namespace {

template <class Array>
std::vector<typename std::decay<decltype(*std::declval<Array>().begin())>::type> items(
    const Array& array) {
    return {array.begin(), array.end()};
}

fxIntArray ints(std::initializer_list<int> values) {
    fxIntArray array;
    for (int value : values) array.append(value);
    return array;
}

typedef std::vector<int> Ints;

// Its elements count themselves and own memory, so that a lost or doubled one
// shows.
struct Tracked {
    static int alive;
    static int copies;
    std::unique_ptr<int> value;

    explicit Tracked(int v = 0) : value(new int(v)) { ++alive; }
    Tracked(const Tracked& other) : Tracked(*other.value) { ++copies; }
    Tracked& operator=(const Tracked& other) {
        *value = *other.value;
        return *this;
    }
    ~Tracked() { --alive; }
};
int Tracked::alive = 0;
int Tracked::copies = 0;

class TrackedArray : public fxTypedArray<TrackedArray, Tracked, fxOwningArray<Tracked>> {
public:
    using fxTypedArray::fxTypedArray;
    int compareElements(const void* a, const void* b) const override {
        return *static_cast<const Tracked*>(a)->value - *static_cast<const Tracked*>(b)->value;
    }
};

TrackedArray tracked(const Ints& values) {
    TrackedArray array;
    for (int value : values) array.append(Tracked(value));
    return array;
}

Ints values(const TrackedArray& array) {
    Ints result;
    for (const Tracked& element : array) result.push_back(*element.value);
    return result;
}

// Numbers with a serial that the order ignores; counts its comparisons.
struct Card {
    int rank;
    int serial;
};

class CardArray : public fxTypedArray<CardArray, Card> {
public:
    using fxTypedArray::fxTypedArray;
    int compareElements(const void* a, const void* b) const override {
        ++comparisons;
        return static_cast<const Card*>(a)->rank - static_cast<const Card*>(b)->rank;
    }
    mutable long comparisons = 0;
};

struct Layout : fxIntArray {
    std::ptrdiff_t offsetOf(const void* field) const {
        return static_cast<const char*>(field) - reinterpret_cast<const char*>(this);
    }
    void check() const {
        EXPECT_EQ(offsetOf(&refCount), 8);
        EXPECT_EQ(offsetOf(&data), 16);
        EXPECT_EQ(offsetOf(&maxBytes), 24);
        EXPECT_EQ(offsetOf(&lengthBytes), 28);
        EXPECT_EQ(offsetOf(&elementSize), 32);
        EXPECT_EQ(sizeof(maxBytes) + sizeof(lengthBytes) + sizeof(elementSize), 10U);
    }
};

TEST(Array, KeepsItsFieldsWhereTheyAre) { Layout().check(); }

TEST(Array, AppendGrowsByFourAndInsertByOne) {
    fxIntArray array;
    EXPECT_EQ(array.getMaxLength(), 0U);
    for (unsigned int i = 0; i < 40; ++i) {
        array.append(1);
        EXPECT_EQ(array.getMaxLength(), (i / 4 + 1) * 4);
    }
    for (unsigned int i = 41; i < 50; ++i) {
        array.insert(1, i / 2);
        EXPECT_EQ(array.getMaxLength(), i);
    }
    array.append(ints({1, 2, 3}));
    EXPECT_EQ(array.getMaxLength(), 52U);
    array.setMaxLength(100);
    array.insert(ints({1, 2, 3}), 5);
    EXPECT_EQ(array.getMaxLength(), 100U);
}

TEST(Array, CapacityFallsOnlyByResizeAndSetMaxLength) {
    fxIntArray array(50);
    array.remove(10, 35);
    array.cut(0, 5);
    EXPECT_EQ(array.length(), 10U);
    EXPECT_EQ(array.getMaxLength(), 50U);
    array.setMaxLength(3);
    EXPECT_EQ(array.getMaxLength(), 10U);
    array.setMaxLength(20);
    EXPECT_EQ(array.getMaxLength(), 20U);
    array.resize(10);
    EXPECT_EQ(array.getMaxLength(), 10U);
    array.resize(0);
    EXPECT_EQ(array.getMaxLength(), 0U);
    array.append(7);
    EXPECT_EQ(items(array), Ints({7}));
}

TEST(Array, ResizeZeroesWhatWasUsedBefore) {
    CardArray cards;
    for (int i = 0; i < 4; ++i) cards.append({7, 7});
    cards.resize(3);
    cards.resize(4);
    EXPECT_EQ(cards[3].rank + cards[3].serial, 0);
}

TEST(Array, CopyTakesTheCapacityAndHasRoomForIt) {
    fxVoidPtrArray source;
    source.setMaxLength(100);
    fxVoidPtrArray ofEmpty(source);
    source.append(&source);
    fxVoidPtrArray copy(source);
    for (fxVoidPtrArray* array : {&ofEmpty, &copy}) {
        EXPECT_EQ(array->getMaxLength(), 100U);
        while (array->length() < 100) array->append(array);
        EXPECT_EQ(array->getMaxLength(), 100U);
    }
    EXPECT_EQ(copy[0], &source);
}

TEST(Array, NothingIsTakenFromEmptyRuns) {
    fxIntArray array;
    EXPECT_EQ(array.raw_copy(), nullptr);
    EXPECT_EQ(array.raw_head(0), nullptr);
    EXPECT_EQ(array.raw_tail(0), nullptr);
    EXPECT_EQ(array.raw_cut(0, 0), nullptr);
    EXPECT_TRUE(array.cut(0, 0).isEmpty());
    array.qsort();
    EXPECT_EQ(array.begin(), array.end());
}

TEST(Array, AdoptsMallocMemory) {
    int* block = static_cast<int*>(std::malloc(2 * sizeof(int)));
    block[0] = 5;
    block[1] = 6;
    fxIntArray array(sizeof(int), 2 * sizeof(int), block);
    EXPECT_EQ(array.begin(), block);
    EXPECT_EQ(array.getMaxLength(), 2U);
    array.append(7);
    EXPECT_EQ(items(array), Ints({5, 6, 7}));
}

TEST(Array, FindStopsAtTheEndWithoutComparing) {
    CardArray array;
    array.append({1, 0});
    EXPECT_EQ(array.find({1, 5}), 0U);
    EXPECT_EQ(array.comparisons, 1);
    EXPECT_EQ(array.find({1, 5}, 1), fxArray::notFound);
    EXPECT_EQ(array.find({1, 5}, fxArray::notFound), 0xFFFFFFFFU);
    EXPECT_EQ(array.comparisons, 1);
}

TEST(Array, PointersAreItemsNotAddressesOfItems) {
    fxVoidPtrArray array(3);
    EXPECT_EQ(items(array), std::vector<void*>(3));
    array.append(&array);
    EXPECT_EQ(array.find(&array), 3U);
    fxStubFuncArray functions;
    EXPECT_EQ(array.find(&functions), fxArray::notFound);
    functions.append(std::abort);
    EXPECT_EQ(functions.find(std::abort), 0U);
    fxSeqRangeArray ranges;
    ranges.append({3, 4});
    EXPECT_EQ(ranges[0].length, 4U);
}

TEST(Array, BooleansAreBytesOfZeroOrOne) {
    fxBoolArray array(2);
    array.append(true);
    array.insert(false, 0);
    array.append(array);
    array[0] = 9;  // any byte but 0 is true
    EXPECT_EQ(items(array), std::vector<fxBool>({9, 0, 0, 1, 0, 0, 0, 1}));
    EXPECT_EQ(array.find(true), 3U);
    EXPECT_EQ(array.find(false, 3), 4U);
}

TEST(Array, AnswersAsAnArray) {
    EXPECT_STREQ(fxIntArray().className(), "ARRAY");
    EXPECT_STREQ(fxVoidPtrArray().className(), "ARRAY");
    EXPECT_EQ(fxVoidPtrArray().getTypeObj(), &fxArray_type);
}

// Order.

// The partition told as plainly as can be, by recursion: 2 3 1 comes out as
// 3 3 3, because the scratch place of a pass holds what it moved last.
void placeRecursively(Ints& a, int lo, int hi, int& scratch) {
    while (true) {
        const auto at = [&](int index) -> int& { return a[static_cast<std::size_t>(index)]; };
        int i = lo;
        int j = hi + 1;
        const auto advance = [&] {
            if (i < hi) do
                    ++i;
                while (at(i) < at(lo) && i < hi);
        };
        advance();
        while (true) {
            if (j > lo) do
                    --j;
                while (at(j) > at(lo) && j > lo);
            if (j <= i) break;
            scratch = at(i);
            at(i) = at(j);
            at(j) = scratch;
            advance();
        }
        at(lo) = scratch;
        at(j) = at(lo);
        at(j) = scratch;
        if (j > 0 && lo < j - 1) placeRecursively(a, lo, j - 1, scratch);
        lo = j + 1;
        if (lo >= hi) return;
    }
}

TEST(ArrayOrder, QsortAgreesWithRecursionAndLosesNoElement) {
    std::mt19937 random(testSeed());
    for (int round = 0; round < 3000; ++round) {
        Ints expected(1 + random() % 12);
        for (int& value : expected) value = static_cast<int>(random() % 8);
        CardArray plain;
        for (int value : expected) plain.append({value, value});
        TrackedArray owning = tracked(expected);
        const unsigned int start = static_cast<unsigned int>(random() % expected.size());
        int scratch = 0;
        placeRecursively(expected, static_cast<int>(start), static_cast<int>(expected.size()) - 1,
                         scratch);
        plain.qsort(start, plain.length() - start);
        owning.qsort(start, owning.length() - start);
        for (unsigned int i = 0; i < plain.length(); ++i) EXPECT_EQ(plain[i].serial, expected[i]);
        EXPECT_EQ(values(owning), expected);
        EXPECT_EQ(Tracked::alive, static_cast<int>(owning.length()));
    }
    EXPECT_EQ(Tracked::alive, 0);
}

TEST(ArrayOrder, QsortOfLongDescendingRunsNeedsNoDeepStack) {
    CardArray array;
    for (int i = 20000; i > 0; --i) array.append({i, 0});
    array.qsort();
    EXPECT_EQ(array.length(), 20000U);
}

TEST(ArrayOrder, SortIsStableAndNeedsFewComparisons) {
    std::mt19937 random(testSeed());
    CardArray array;
    for (int serial = 0; serial < 10000; ++serial) {
        array.append({static_cast<int>(random() % 100), serial});
    }
    const Card first = array[0];
    const Card last = array[9999];
    array.sort(1, 9998);
    EXPECT_LT(array.comparisons, 10000 * 15);
    EXPECT_EQ(array[0].serial, first.serial);
    EXPECT_EQ(array[9999].serial, last.serial);
    for (unsigned int i = 2; i < 9999; ++i) {
        ASSERT_TRUE(array[i - 1].rank < array[i].rank ||
                    (array[i - 1].rank == array[i].rank && array[i - 1].serial < array[i].serial));
    }
}

// Elements that own something.

TEST(OwningArray, MovesElementsAsBytesAndCopiesOnlyToDouble) {
    {
        TrackedArray array(3);
        EXPECT_EQ(Tracked::alive, 3);
        for (int i = 0; i < 50; ++i) array.insert(Tracked(i), 1);
        Tracked::copies = 0;
        array.insert(Tracked(7), 10);
        EXPECT_EQ(Tracked::copies, 1);
        array.swap(0, 20);
        array.sort();
        TrackedArray taken = array.cut(5, 10);
        TrackedArray moved(std::move(taken));
        EXPECT_EQ(Tracked::copies, 1);
        array.remove(0, 4);
        EXPECT_EQ(Tracked::alive, 50);
        EXPECT_EQ(values(moved.extract(2, 3)), values(moved.head(5).tail(3)));
        EXPECT_EQ(Tracked::alive, 50);
        array = moved;
        EXPECT_EQ(Tracked::alive, 20);
        moved = std::move(array);
        EXPECT_EQ(Tracked::alive, 10);
        moved.resize(2);
        EXPECT_EQ(Tracked::alive, 2);
    }
    EXPECT_EQ(Tracked::alive, 0);
}

TEST(OwningArray, CopiesOverlappingRunsInTheSafeDirection) {
    class Numbers : public fxTypedArray<Numbers, int, fxOwningArray<int>> {};
    const Numbers hooks;
    int slots[] = {1, 2, 3, 4, 0, 0};
    hooks.copyElements(slots, slots + 2, 4 * sizeof(int));
    EXPECT_EQ(Ints(slots, slots + 6), Ints({1, 2, 1, 2, 3, 4}));
    hooks.copyElements(slots + 2, slots + 1, 4 * sizeof(int));
    EXPECT_EQ(Ints(slots, slots + 6), Ints({1, 1, 2, 3, 4, 4}));
}

// Every type against the model.

template <class Array>
using ItemOf = typename std::decay<decltype(*std::declval<Array>().begin())>::type;

template <class Array>
class TypedArray : public testing::Test {};
typedef testing::Types<fxCharArray, fxUnsignedCharArray, fxShortArray, fxUnsignedShortArray,
                       fxIntArray, fxFloatArray, fxLongArray, fxUnsignedLongArray, fxDoubleArray>
    NumberArrays;
TYPED_TEST_SUITE(TypedArray, NumberArrays, );

TYPED_TEST(TypedArray, AgreesWithModel) {
    typedef ItemOf<TypeParam> Item;
    checkAgainstModel<TypeParam, Item>(5000, [](unsigned int n) {
        return static_cast<Item>(static_cast<Item>(n * 11) - static_cast<Item>(40));
    });
}

template <class Array>
std::string written(Array& array) {
    MemoryTranscriber writer;
    EXPECT_TRUE(array.xdr(writer));
    return writer.bytes;
}

TYPED_TEST(TypedArray, ReadsBackWhatItWrote) {
    typedef ItemOf<TypeParam> Item;
    TypeParam array;
    for (unsigned int i = 0; i < 5; ++i) array.append(static_cast<Item>(i * 25));
    const std::string bytes = written(array);
    EXPECT_EQ(array.getMaxLength(), 5U);  // no spare capacity travels

    TypeParam copy;
    copy.append(Item{1});
    MemoryTranscriber reader(bytes);
    ASSERT_TRUE(copy.xdr(reader));
    EXPECT_EQ(reader.taken, bytes.size());
    EXPECT_EQ(items(copy), items(array));
    EXPECT_EQ(copy.getMaxLength(), 5U);

    for (std::size_t length = 0; length < bytes.size(); ++length) {
        MemoryTranscriber prefix(bytes.substr(0, length));
        ASSERT_FALSE(copy.xdr(prefix)) << length;
        ASSERT_TRUE(copy.isEmpty());
        copy.append(Item{1});
    }
}

/// Counts the calls for elements.
class IntCalls : public MemoryTranscriber {
public:
    using MemoryTranscriber::MemoryTranscriber;
    using MemoryTranscriber::xdr;
    bool xdr(int* ints, unsigned int count) override {
        ++calls;
        return MemoryTranscriber::xdr(ints, count);
    }
    int calls = 0;
};

// The reader of streams takes them in pieces; any other transcriber gets them all.
TEST(ArrayXdr, LargeIntArraysAreLaidOutAsSmallOnes) {
    for (unsigned int count : {131072U, 131073U, 1000001U}) {
        fxIntArray array(count);
        for (unsigned int i = 0; i < count; ++i) array[i] = static_cast<int>(i * 2654435761U);
        IntCalls writer;
        ASSERT_TRUE(array.xdr(writer));
        std::string expected(10 + 8 * std::size_t{count}, '\0');
        const unsigned int byteCount = 4 * count;
        std::memcpy(&expected[0], &byteCount, 4);
        expected[4] = expected[8] = 4;
        std::memcpy(&expected[10], array.begin(), byteCount);
        ASSERT_TRUE(writer.bytes == expected);

        fxIntArray copy;
        IntCalls reader(writer.bytes);
        ASSERT_TRUE(copy.xdr(reader));
        EXPECT_EQ(items(copy), items(array));
        EXPECT_TRUE(writer.calls == 1 && reader.calls == 1);

        fxMemoryStream stream;
        stream.take();
        fxBinaryWriter toStream(&stream);
        ASSERT_TRUE(array.xdr(toStream) && toStream.flush());
        for (const bool isWhole : {true, false}) {
            fxMemoryStream bytes(stream.bytes(), stream.length() - !isWhole);
            bytes.take();
            fxBinaryReader fromStream(&bytes, 0x1122, 0x33445566, "ieee");
            EXPECT_EQ(copy.xdr(fromStream), isWhole);
            EXPECT_EQ(items(copy), isWhole ? items(array) : std::vector<int>());
        }
    }
}

TEST(ArrayXdr, RefusesForeignSizesAndClaimsWithoutBytes) {
    const struct {
        unsigned int byteCount;
        unsigned short size;
    } headers[] = {{8, 0}, {8, 4}, {8, 16}, {12, 8}, {0xFFFFFFF8, 8}, {0x80000000, 8}};
    for (const auto& header : headers) {
        std::string bytes(4096, '\1');
        std::memset(&bytes[0], 0, 8);
        std::memcpy(&bytes[0], &header.byteCount, 4);
        std::memcpy(&bytes[8], &header.size, 2);
        fxLongArray array(3);
        MemoryTranscriber reader(bytes);
        EXPECT_FALSE(array.xdr(reader));
        EXPECT_TRUE(array.isEmpty());
        EXPECT_EQ(array.getMaxLength(), 0U);
    }
}

TEST(ArrayXdr, BooleansComeInAsZeroOrOne) {
    std::string bytes("\3\0\0\0\1\0\0\0\1\0\5\0\xFF", 13);
    fxBoolArray array;
    MemoryTranscriber reader(bytes);
    ASSERT_TRUE(array.xdr(reader));
    EXPECT_EQ(items(array), std::vector<fxBool>({1, 0, 1}));
}

TEST(ArrayXdr, PointersMoveNothing) {
    fxVoidPtrArray array(3);
    MemoryTranscriber writer;
    EXPECT_TRUE(array.xdr(writer));
    EXPECT_EQ(writer.baseParts, 1);
    EXPECT_EQ(writer.bytes, "");
}

TEST(ArrayDeathTest, RefusesWhatItCannotHold) {
    EXPECT_DEATH(fxLongArray(0x20000000U), "4294967296 bytes");
}

#ifdef FXDS_CHECKED
TEST(ArrayDeathTest, CheckedBuildsTestIndices) {
    fxIntArray array(2);
    EXPECT_DEATH(array[2] = 1, "index < length");
    EXPECT_DEATH(array.remove(fxArray::notFound), "start <= length");
    EXPECT_DEATH(array.insert(1, 3), "index <= length");
}
#endif

}  // namespace
