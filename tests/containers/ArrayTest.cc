#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "fxds/BinaryReader.h"
#include "fxds/BinaryWriter.h"
#include "fxds/BoolArray.h"
#include "fxds/CharArray.h"
#include "fxds/DoubleArray.h"
#include "fxds/FloatArray.h"
#include "fxds/Globals.h"
#include "fxds/IntArray.h"
#include "fxds/LongArray.h"
#include "fxds/MemoryStream.h"
#include "fxds/SeqRangeArray.h"
#include "fxds/ShortArray.h"
#include "fxds/StrArray.h"
#include "fxds/StubFuncArray.h"
#include "fxds/UnsignedCharArray.h"
#include "fxds/UnsignedLongArray.h"
#include "fxds/UnsignedShortArray.h"
#include "fxds/VoidPtrArray.h"
#include "fxds/Xdr.h"
#include "tests/support/ArrayModel.h"
#include "tests/support/MemoryTranscriber.h"

namespace {

template <class Array>
std::vector<typename std::decay<decltype(*std::declval<Array>().begin())>::type> items(
    const Array& array) {
    return {array.begin(), array.end()};
}

typedef std::vector<int> Ints;
typedef std::vector<std::string> Texts;

Texts texts(const fxStrArray& array) { return {array.begin(), array.end()}; }

// Elements that count themselves and own memory, so that a lost or doubled one
// shows. When the fuse burns down, making or comparing the next one throws.
struct Tracked {
    static int alive;
    static int copies;
    static int fuse;
    std::unique_ptr<int> value;

    explicit Tracked(int v = 0) : value(new int(v)) {
        burn();
        ++alive;
    }
    Tracked(const Tracked& other) : Tracked(*other.value) { ++copies; }
    Tracked& operator=(const Tracked&) = delete;
    ~Tracked() { --alive; }
    static void burn() {
        if (fuse > 0 && --fuse == 0) throw std::runtime_error("burnt down");
    }
};
int Tracked::alive = 0;
int Tracked::copies = 0;
int Tracked::fuse = 0;

}  // namespace

template <>
struct fxMovesAsBytes<Tracked> : std::true_type {};

namespace {

class TrackedArray : public fxTypedArray<TrackedArray, Tracked, fxOwningArray<Tracked>> {
public:
    using fxTypedArray::fxTypedArray;
    int compareElements(const void* a, const void* b) const override {
        Tracked::burn();
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

TEST(Array, ResizeZeroesWhatWasUsedBefore) {
    CardArray cards;
    for (int i = 0; i < 4; ++i) cards.append({7, 7});
    cards.resize(3);
    cards.resize(4);
    EXPECT_EQ(cards[3].rank + cards[3].serial, 0);
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

TEST(Array, BracesHoldItemsOrOneCount) {
    const unsigned int five = 5;
    void* const here = &Tracked::alive;
    EXPECT_EQ(items(fxIntArray{4, 8, 0}), Ints({4, 8, 0}));
    EXPECT_EQ((fxIntArray{five, five}), (fxIntArray{5, 5}));
    EXPECT_NE((fxIntArray{5, 5}), (fxIntArray{5, 6}));
    EXPECT_EQ(fxIntArray{five}.length() + fxDoubleArray{4}.length() + fxBoolArray{3}.length(), 12U);
    EXPECT_EQ(fxStrArray{2}.length() + fxCharArray{300}.length() + fxVoidPtrArray{0}.length(),
              302U);
    EXPECT_EQ(items(fxDoubleArray{4.5}), std::vector<double>({4.5}));
    EXPECT_EQ(items(fxCharArray{'a'}), std::vector<char>({'a'}));
    EXPECT_EQ(items(fxBoolArray{true, false, true}), std::vector<fxBool>({1, 0, 1}));
    EXPECT_EQ(items(fxBoolArray{2, 0}), std::vector<fxBool>({1, 0}));
    EXPECT_EQ(items(fxVoidPtrArray{here, nullptr}), std::vector<void*>({here, nullptr}));
    EXPECT_EQ(texts(fxStrArray{"a", fxStr("b")}), Texts({"a", "b"}));
    EXPECT_EQ((fxSeqRangeArray{{1, 2}, {3, 4}})[1].length, 4U);
    EXPECT_TRUE(fxIntArray(4, 0, 0).isEmpty()) << "the null block of an adopted array";
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
    fxStubFuncArray functions{std::abort};
    EXPECT_EQ(array.find(&functions), fxArray::notFound);
    EXPECT_EQ(functions.find(std::abort), 0U);
}

TEST(Array, BooleansAreBytesOfZeroOrOne) {
    fxBoolArray array{false, false, true};
    array.insert(false, 0);
    array.append(true);
    array[0] = 9;  // any byte but 0 is true
    EXPECT_EQ(items(array), std::vector<fxBool>({9, 0, 0, 1, 1}));
    EXPECT_EQ(array.find(true), 3U);
    EXPECT_EQ(array.find(false, 2), 2U);
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

TEST(ArrayOrder, StringsGoByTheirTexts) {
    fxStrArray array{"pear", "apple", "zebra", "apple", "fig"};
    array.sort();
    EXPECT_EQ(texts(array), Texts({"apple", "apple", "fig", "pear", "zebra"}));
    EXPECT_EQ(array.find("apple", 1), 1U);
    fxStrArray placed{"b", "c", "a"};
    placed.qsort();
    EXPECT_EQ(texts(placed), Texts({"c", "c", "c"}));
    EXPECT_NE(placed[0].c_str(), placed[1].c_str()) << "two strings share a block";
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
        TrackedArray moved(array.cut(5, 10));
        EXPECT_EQ(Tracked::copies, 1);
        array.remove(0, 4);
        EXPECT_EQ(Tracked::alive, 50);
        array = moved;
        moved = std::move(array);
        EXPECT_EQ(Tracked::alive, 10);
    }
    EXPECT_EQ(Tracked::alive, 0);
}

// Whichever copy, default or comparison throws.
TEST(OwningArray, KeepsItsElementsWhenOneThrows) {
    const Ints before = {3, 1, 2, 2};
    void (*const operations[])(TrackedArray&) = {[](TrackedArray& a) { a.append(a[1]); },
                                                 [](TrackedArray& a) { a.insert(a[3], 1); },
                                                 [](TrackedArray& a) { a.append(a); },
                                                 [](TrackedArray& a) { a.insert(a, 2); },
                                                 [](TrackedArray& a) { TrackedArray copy(a); },
                                                 [](TrackedArray& a) { a.extract(1, 3); },
                                                 [](TrackedArray& a) { a.resize(7); },
                                                 [](TrackedArray& a) { a.sort(); },
                                                 [](TrackedArray& a) { a.qsort(); },
                                                 [](TrackedArray& a) { a.find(a[2]); },
                                                 [](TrackedArray& a) {
                                                     TrackedArray{a[0], a[1]};
                                                 }};
    for (const auto operation : operations) {
        for (int step = 1; Tracked::fuse == 0; ++step) {
            TrackedArray array = tracked(before);
            Tracked::fuse = step;
            try {
                operation(array);
            } catch (const std::runtime_error&) {
                EXPECT_EQ(values(array), before);
            }
            EXPECT_EQ(Tracked::alive, static_cast<int>(array.length()));
        }
        Tracked::fuse = 0;  // burns on after the operation: all of its steps were tried
    }
}

// Overrides a copying hook and declares it nowhere else.
class Copies : public fxTypedArray<Copies, int> {
public:
    using fxTypedArray::fxTypedArray;
    void copyElements(const void* from, void* to, unsigned int byteCount) const override {
        count += byteCount / itemBytes;
        fxArray::copyElements(from, to, byteCount);
    }
    static unsigned int count;
};
unsigned int Copies::count = 0;

TEST(ArrayHooks, CopyWhateverIsDoubled) {
    class MoreCopies : public fxIntArray {
        void copyElements(const void* from, void* to, unsigned int byteCount) const override {
            Copies().copyElements(from, to, byteCount);
        }
    } more;
    struct Grows : fxTypedArray<Grows, int> {
        void expand() override { fxArray::setMaxLength(length() + 7); }
    } grows;
    Copies array;
    for (int i = 0; i < 29; ++i) array.append(i), more.append(i), grows.append(i);
    EXPECT_EQ(grows.getMaxLength(), 35U);
    EXPECT_EQ(Copies::count, 58U);
    const Copies copy(array);
    const fxIntArray part(more);
    EXPECT_EQ(Copies::count, 116U);
    EXPECT_EQ(copy, array);
}

// A class over an owning array ends its elements once.
TEST(ArrayHooks, EndElementsOnce) {
    struct Ends : fxStrArray {
        unsigned int& count;
        explicit Ends(unsigned int& count_) : count(count_) {}
        ~Ends() override { resize(0); }
        void destroyElements(void* at, unsigned int byteCount) override {
            count += byteCount / itemBytes;
            fxStrArray::destroyElements(at, byteCount);
        }
    };
    unsigned int ends = 0;
    Ends(ends).append("a text");
    EXPECT_EQ(ends, 1U);
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

template <class Item>
Item itemOf(unsigned int n) {
    if constexpr (std::is_same_v<Item, fxStr>) {
        return fxStr(std::string(n * 3, static_cast<char>('a' + n)));
    } else {
        return static_cast<Item>(static_cast<Item>(n * 11) - static_cast<Item>(40));
    }
}

template <class Array>
class TypedArray : public testing::Test {};
typedef testing::Types<fxCharArray, fxUnsignedCharArray, fxShortArray, fxUnsignedShortArray,
                       fxIntArray, fxFloatArray, fxLongArray, fxUnsignedLongArray, fxDoubleArray,
                       fxStrArray>
    ScalarArrays;
TYPED_TEST_SUITE(TypedArray, ScalarArrays, );

TYPED_TEST(TypedArray, AgreesWithModel) {
    typedef ItemOf<TypeParam> Item;
    checkAgainstModel<TypeParam, Item>(5000, itemOf<Item>);
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
    for (unsigned int i = 0; i < 5; ++i) array.append(itemOf<Item>(i));
    const std::string bytes = written(array);
    EXPECT_EQ(array.getMaxLength(), 5U);  // no spare capacity travels

    TypeParam copy;
    copy.setMaxLength(20);
    MemoryTranscriber reader(bytes);
    ASSERT_TRUE(copy.xdr(reader));
    EXPECT_EQ(reader.taken, bytes.size());
    EXPECT_EQ(copy, array);
    EXPECT_EQ(copy.getMaxLength(), 5U);

    for (std::size_t length = 0; length < bytes.size(); ++length) {
        TypeParam part;
        MemoryTranscriber prefix(bytes.substr(0, length));
        ASSERT_FALSE(part.xdr(prefix)) << length;
        ASSERT_TRUE(part.isEmpty());
        part.append(itemOf<Item>(1));
    }
}

TYPED_TEST(TypedArray, RefusesForeignSizesAndClaimsWithoutBytes) {
    constexpr unsigned int size = sizeof(ItemOf<TypeParam>);
    const struct {
        unsigned int byteCount, size;
    } headers[] = {{2 * size, 0},      {4 * size, 2 * size}, {2 * size, size + 1},
                   {0xFFFFFFF0, size}, {0x80000000, size},   {3 * size / 2, size}};
    for (const auto& header : headers) {
        if (header.byteCount == size) continue;  // half a byte too many is none
        std::string bytes(4096, '\0');
        std::memcpy(&bytes[0], &header.byteCount, 4);
        std::memcpy(&bytes[8], &header.size, 2);
        TypeParam array;
        array.setMaxLength(3);
        MemoryTranscriber reader(bytes);
        EXPECT_FALSE(array.xdr(reader));
        EXPECT_TRUE(array.isEmpty());
        EXPECT_EQ(array.getMaxLength(), 0U);
    }
}

// The reader fills the texts in after it has read the array, which has moved by
// then.
TEST(ArrayXdr, StringsComeWhereverTheyAreAwaited) {
    fxStrArray array;
    for (int i = 0; i < 1000; ++i) array.append(i % 7 == 0 ? fxStr() : fxStr(i, nullptr));
    fxInitializeToolkit();
    const std::unique_ptr<fxStrArray> copy(fxXdrCopy(&array));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(*copy, array);
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
