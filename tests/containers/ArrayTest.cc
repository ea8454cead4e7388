// Every kind of array against a vector, with elements that own memory and throw, and
// what that does not reach.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "fxds/fxds.h"
#include "tests/support/StreamKit.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TestSeed.h"

namespace {

// Elements that count themselves and own memory, so that a lost or doubled one
// shows. When the fuse burns down, making or comparing the next one throws.
struct Tracked {
    static inline int alive = 0, copies = 0, fuse = 0;
    std::unique_ptr<int> value;

    explicit Tracked(int v = 0) : value(new int(v)) {
        burn();
        ++alive;
    }
    Tracked(const Tracked& other) : Tracked(*other.value) { ++copies; }
    Tracked& operator=(const Tracked&) = delete;
    ~Tracked() { --alive; }
    bool operator==(const Tracked& other) const { return *value == *other.value; }
    static void burn() {
        if (fuse > 0 && --fuse == 0) throw std::runtime_error("burnt down");
    }
};

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

typedef std::vector<int> Numbers;

// What qsort() makes of a run, by recursion: 2 3 1 comes out as 3 3 3, because the
// scratch place of a pass holds what it moved last.
void placeRecursively(Numbers& a, int lo, int hi, int& scratch) {
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

/// Drives an array and a vector of numbers side by side. The item of a number is what
/// make() says; the capacity follows the stated steps.
template <class Array>
class ArrayModel : public testing::Test {
protected:
    typedef typename Array::value_type Item;
    typedef Numbers::iterator Place;
    static constexpr bool isTracked = std::is_same_v<Array, TrackedArray>;
    static constexpr bool isBool = std::is_same_v<Array, fxBoolArray>;
    static constexpr bool isRecorded = !isTracked && !std::is_pointer_v<Item>;

    static Item make(int n) {
        if constexpr (std::is_same_v<Item, fxStr>) {
            return fxStr(std::string(static_cast<size_t>(n) * 3, static_cast<char>('a' + n)));
        } else if constexpr (isTracked) {
            return Tracked(n);
        } else if constexpr (std::is_pointer_v<Item>) {
            static int targets[9];
            return &targets[n];
        } else {
            return static_cast<Item>(isBool ? n : n * 11 - 40);
        }
    }
    size_t below(size_t limit) { return random() % std::max<size_t>(limit, 1); }
    unsigned int any(size_t below_) { return static_cast<unsigned int>(below(below_)); }
    int number() { return static_cast<int>(below(isBool ? 2 : 9)); }
    Place at(unsigned int index) { return model.begin() + static_cast<std::ptrdiff_t>(index); }
    // A run that lies in the array.
    void chooseRun() {
        start = any(model.size() + 1);
        count = any(model.size() - start + 1);
    }
    static bool holds(const Array& real, Place first, Place last) {
        Tracked::fuse = 0;
        return std::equal(real.begin(), real.end(), first, last,
                          [](const Item& item, int n) { return item == make(n); });
    }
    void grown(size_t length) { capacity = std::max(capacity, length); }

    // The operations. The vector changes after the array, which may throw.
    void append() {
        const int n = number();
        const bool isOwn = !model.empty() && random() % 3 == 0;
        const unsigned int from = any(model.size());
        isOwn ? array.append(array[from]) : array.append(make(n));
        if (model.size() == capacity) capacity += 4;
        model.push_back(isOwn ? model[from] : n);
    }
    void insert() {
        const int n = number();
        const bool isOwn = !model.empty() && random() % 3 == 0;
        const unsigned int from = any(model.size()), to = any(model.size() + 1);
        isOwn ? array.insert(array[from], to) : array.insert(make(n), to);
        model.insert(at(to), int{isOwn ? model[from] : n});
        grown(model.size());
    }
    void insertMany() {
        Array others;
        Numbers more;
        const bool isOwn = model.size() < 30 && random() % 2 == 0;
        if (isOwn) more = model;
        for (size_t i = isOwn ? 0 : below(4); i > 0; --i) {
            more.push_back(number());
            others.append(make(more.back()));
        }
        const Array& source = isOwn ? array : others;
        const unsigned int to = any(model.size() + 1);
        to == model.size() ? array.append(source) : array.insert(source, to);
        model.insert(at(to), more.begin(), more.end());
        if (!more.empty()) grown(model.size());
    }
    void remove() {
        array.remove(start, count);
        model.erase(at(start), at(start + count));
    }
    void cut() {
        const Array taken = array.cut(start, count);
        EXPECT_TRUE(holds(taken, at(start), at(start + count)));
        model.erase(at(start), at(start + count));
    }
    // New elements are of zero bytes, then created.
    void resize() {
        const unsigned int length = any(70), had = array.length();
        const Item zero{};
        array.resize(length);
        for (unsigned int i = had; i < length; ++i) EXPECT_TRUE(array[i] == zero);
        const unsigned int kept = std::min(had, length);
        model.resize(kept);
        array.resize(kept);
        capacity = kept;
    }
    void reserve() {
        const unsigned int wanted = any(100);
        array.setMaxLength(wanted);
        capacity = std::max<size_t>(wanted, model.size());
    }
    void exchange() {
        if (model.empty()) return;
        const unsigned int i = any(model.size()), j = any(model.size());
        array.swap(i, j);
        std::swap(model[i], model[j]);
    }
    void takeCopies() {
        const unsigned int skipped = array.length() - count;
        EXPECT_TRUE(holds(array.extract(start, count), at(start), at(start + count)));
        EXPECT_TRUE(holds(array.head(count), at(0), at(count)));
        EXPECT_TRUE(holds(array.tail(count), at(skipped), model.end()));
    }
    void find() {
        const int sought = number();
        const auto found = std::find(at(start), model.end(), sought);
        EXPECT_EQ(array.find(make(sought), start),
                  found == model.end() ? fxArray::notFound
                                       : static_cast<unsigned int>(found - model.begin()));
    }
    void replace() {
        Array copy(array);
        EXPECT_EQ(copy.getMaxLength(), capacity);
        Array moved(std::move(copy));
        EXPECT_TRUE(copy.isEmpty() && moved == array);
        const bool isCopied = random() % 2 == 0;
        isCopied ? array = moved : array = std::move(moved);
        EXPECT_TRUE(!isCopied || moved == array);
    }
    void sort() {
        array.sort(start, count);
        Tracked::fuse = 0;
        std::stable_sort(at(start), at(start + count), [this](int a, int b) {
            const Item first(make(a)), second(make(b));
            return array.compareElements(&first, &second) < 0;
        });
    }
    void place() {
        if constexpr (isTracked) {
            array.qsort(start, count);
            int scratch = 0;
            const int first = static_cast<int>(start), length = static_cast<int>(count);
            if (count > 0) placeRecursively(model, first, first + length - 1, scratch);
        }
    }
    // It reads without spare capacity, which writing gives up.
    void transcribe() {
        if constexpr (isRecorded) {
            const std::unique_ptr<Array> copy(fxXdrCopy(&array));
            ASSERT_NE(copy, nullptr);
            EXPECT_TRUE(*copy == array && copy->getTypeObj() == array.getTypeObj());
            EXPECT_EQ(copy->getMaxLength(), model.size());
            capacity = model.size();
        }
    }
    // With elements that burn, every third operation throws wherever it can.
    void step() {
        typedef void (ArrayModel::*Operation)();
        static constexpr Operation operations[] = {
            &ArrayModel::append,     &ArrayModel::append,     &ArrayModel::append,
            &ArrayModel::insert,     &ArrayModel::insertMany, &ArrayModel::remove,
            &ArrayModel::cut,        &ArrayModel::resize,     &ArrayModel::reserve,
            &ArrayModel::exchange,   &ArrayModel::takeCopies, &ArrayModel::find,
            &ArrayModel::replace,    &ArrayModel::sort,       &ArrayModel::place,
            &ArrayModel::transcribe, &ArrayModel::append,     &ArrayModel::insert};
        const Operation operation = operations[below(std::size(operations))];
        chooseRun();
        if (isTracked && random() % 3 == 0) Tracked::fuse = static_cast<int>(1 + below(80));
        const int copiesBefore = Tracked::copies;
        try {
            (this->*operation)();
        } catch (const std::runtime_error&) {
            capacity = array.getMaxLength();
            if (operation == &ArrayModel::replace && array.isEmpty()) model.clear();
        }
        Tracked::fuse = 0;
        if (operation == &ArrayModel::exchange || operation == &ArrayModel::remove ||
            operation == &ArrayModel::sort) {
            EXPECT_EQ(Tracked::copies, copiesBefore) << "elements move as bytes";
        }
    }

    std::mt19937 random{testSeed()};
    Array array;
    Numbers model;
    size_t capacity = 0;
    unsigned int start = 0, count = 0;
};

typedef testing::Types<fxCharArray, fxUnsignedCharArray, fxShortArray, fxUnsignedShortArray,
                       fxIntArray, fxFloatArray, fxLongArray, fxUnsignedLongArray, fxDoubleArray,
                       fxBoolArray, fxVoidPtrArray, fxStrArray, TrackedArray>
    Arrays;
TYPED_TEST_SUITE(ArrayModel, Arrays, );

TYPED_TEST(ArrayModel, Agrees) {
    fxInitializeToolkit();
    for (int step = 0; step < 10000 && !this->HasFailure(); ++step) {
        this->step();
        EXPECT_TRUE(this->holds(this->array, this->model.begin(), this->model.end()));
        EXPECT_EQ(this->array.getMaxLength(), this->capacity) << "at step " << step;
        EXPECT_EQ(this->array.isEmpty(), this->model.empty());
        if (this->isTracked) {
            EXPECT_EQ(Tracked::alive, static_cast<int>(this->model.size()));
        }
        if (this->model.size() > 60) this->start = 5, this->count = 50, this->remove();
    }
}

// What the model does not reach.

TEST(Array, NothingIsTakenFromEmptyRuns) {
    fxIntArray array;
    for (const void* none :
         {array.raw_copy(), array.raw_head(0), array.raw_tail(0), array.raw_cut(0, 0)}) {
        EXPECT_EQ(none, nullptr);
    }
    array.qsort();
    EXPECT_EQ(array.begin(), array.end());
    EXPECT_STREQ(array.className(), "ARRAY");
    EXPECT_EQ(fxVoidPtrArray().getTypeObj(), &fxArray_type);
}

TEST(Array, BracesHoldItemsOrOneCount) {
    const unsigned int five = 5;
    void* const here = &Tracked::alive;
    const auto isOf = [](const auto& array, auto... items) {
        typedef typename std::decay_t<decltype(array)>::value_type Item;
        const Item expected[] = {static_cast<Item>(items)...};
        return std::equal(array.begin(), array.end(), std::begin(expected), std::end(expected));
    };
    EXPECT_TRUE(isOf(fxIntArray{4, 8, 0}, 4, 8, 0) && isOf(fxDoubleArray{4.5}, 4.5));
    EXPECT_TRUE((fxIntArray{five, five}) == (fxIntArray{5, 5}) && isOf(fxCharArray{'a'}, 'a'));
    EXPECT_NE((fxIntArray{5, 5}), (fxIntArray{5, 6}));
    EXPECT_EQ(fxIntArray{five}.length() + fxDoubleArray{4}.length() + fxBoolArray{3}.length(), 12U);
    EXPECT_EQ(fxStrArray{2}.length() + fxCharArray{300}.length() + fxVoidPtrArray{0}.length(),
              302U);
    EXPECT_TRUE(isOf(fxBoolArray{true, false, true}, 1, 0, 1) && isOf(fxBoolArray{2, 0}, 1, 0));
    EXPECT_TRUE(isOf(fxVoidPtrArray{here, nullptr}, here, nullptr));
    EXPECT_TRUE(isOf(fxStrArray{"a", fxStr("b")}, "a", "b"));
    EXPECT_EQ((fxSeqRangeArray{{1, 2}, {3, 4}})[1].length, 4U);
    EXPECT_EQ(fxStubFuncArray{std::abort}.find(std::abort), 0U);
    EXPECT_TRUE(fxIntArray(4, 0, 0).isEmpty()) << "the null block of an adopted array";
    EXPECT_EQ(fxIntArray(4, 8, std::calloc(2, 4)), (fxIntArray{0, 0}));
}

TEST(Array, QsortOfLongDescendingRunsNeedsNoDeepStack) {
    TrackedArray array;
    for (int i = 4000; i > 0; --i) array.append(Tracked(i));
    onStackOf(64 * 1024, [&] { array.qsort(); });
    EXPECT_EQ(array.length(), 4000U);
}

TEST(OwningArray, CopiesOverlappingRunsInTheSafeDirection) {
    class Owned : public fxTypedArray<Owned, int, fxOwningArray<int>> {};
    const Owned hooks;
    Numbers slots = {1, 2, 3, 4, 0, 0};
    hooks.copyElements(slots.data(), slots.data() + 2, 4 * sizeof(int));
    EXPECT_EQ(slots, Numbers({1, 2, 1, 2, 3, 4}));
    hooks.copyElements(slots.data() + 2, slots.data() + 1, 4 * sizeof(int));
    EXPECT_EQ(slots, Numbers({1, 1, 2, 3, 4, 4}));
}

// Overrides a copying hook and declares it nowhere else.
class Copies : public fxTypedArray<Copies, int> {
public:
    using fxTypedArray::fxTypedArray;
    void copyElements(const void* from, void* to, unsigned int byteCount) const override {
        count += byteCount / itemBytes;
        fxArray::copyElements(from, to, byteCount);
    }
    static inline unsigned int count = 0;
};

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
    for (int i = 0; i < 29; ++i) array.append(i), more.emplace(i), grows.append(i);
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
    const HeldStream stream;
    fxBinaryWriter writer(stream);
    ASSERT_TRUE(fxStrArray().xdr(writer) && writer.flush());
    fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
    Ends filled(ends);
    filled.append("what its class begins with");
    EXPECT_TRUE(filled.xdr(reader) && filled.isEmpty());
    EXPECT_EQ(ends, 2U);
}

// The reader takes many in pieces, and fills texts in after it has read the array,
// which has moved by then.
TEST(ArrayXdr, LargeOnesReadBackTheSame) {
    fxIntArray ints(1000001);
    for (unsigned int i = 0; i < ints.length(); ++i) ints[i] = static_cast<int>(i * 2654435761U);
    fxStrArray texts;
    for (int i = 0; i < 1000; ++i) texts.append(i % 7 == 0 ? fxStr() : fxStr(i, nullptr));
    fxInitializeToolkit();
    EXPECT_EQ(*std::unique_ptr<fxIntArray>(fxXdrCopy(&ints)), ints);
    EXPECT_EQ(*std::unique_ptr<fxStrArray>(fxXdrCopy(&texts)), texts);
    fxBoolArray bools{false, true};
    bools[1] = 9;  // any byte but 0 is true
    EXPECT_EQ(*std::unique_ptr<fxBoolArray>(fxXdrCopy(&bools)), (fxBoolArray{false, true}));
    fxVoidPtrArray pointers(3);
    const HeldStream stream;
    fxBinaryWriter writer(stream);
    EXPECT_TRUE(pointers.xdr(writer) && writer.flush() && stream->length() == 0);
}

TEST(ArrayDeathTest, RefusesWhatItCannotHold) {
    EXPECT_DEATH(fxLongArray(0x20000000U), "4294967296 bytes");
    EXPECT_DEATH(fxIntArray(4, 0xFFFFFFFCU, std::malloc(0xFFFFFFFCU)).append(1),
                 "4294967308 bytes");
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
