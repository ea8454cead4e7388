#include <algorithm>
#include <cstddef>
#include <cstring>
#include <numeric>
#include <vector>

#include "fxds/Array.h"
#include "fxds/Fatal.h"

// The ordering of elements: fxArray::sort() and qsort().
//
// sort() merges element numbers bottom-up and permutes the bytes at the end: no
// element moves while a comparison runs, and each number is placed once for any
// results of the comparisons.
//
// qsort() is a partition whose last step duplicates elements (see Array.h). It
// too moves numbers only; at the end each position is given an element of its
// own.

namespace {

// The numbers of the elements of a run, while the elements stay in place. The
// number after the last is that of the first scratch element: zero bytes, or a
// default element if elements own something.
class NumberedRun {
public:
    NumberedRun(fxArray& array_, bool ownsElements, char* first_, std::size_t size_,
                std::size_t count_)
        : array(array_),
          owns(ownsElements),
          first(first_),
          size(size_),
          count(count_),
          scratch(count_),
          numbers(count_),
          result((count_ + 1) * size_) {
        std::iota(numbers.begin(), numbers.end(), std::size_t{0});
        if (!owns) return;
        made.reserve(1);
        array.createElements(element(count), bytesOfOne());
        made.push_back(element(count));
    }
    NumberedRun(const NumberedRun&) = delete;
    NumberedRun& operator=(const NumberedRun&) = delete;
    ~NumberedRun() {
        for (void* element : made) array.destroyElements(element, bytesOfOne());
    }

    int compare(std::size_t i, std::size_t j) const {
        return array.compareElements(element(numbers[i]), element(numbers[j]));
    }
    void move(std::size_t to, std::size_t from) { numbers[to] = numbers[from]; }
    void save(std::size_t from) { scratch = numbers[from]; }
    void restore(std::size_t to) { numbers[to] = scratch; }

    // Builds the run in the order of the numbers. Of elements that own
    // something, the first position that names one takes its bytes, each
    // further one a copy; an element that no position names is destroyed here.
    // Copies may throw: until all are made the elements stay unchanged.
    void materialise() {
        std::vector<bool> placed(count + 1, !owns);
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t number = numbers[i];
            char* const place = result.data() + i * size;
            if (owns && placed[number]) {
                made.reserve(made.size() + 1);
                array.copyElements(element(number), place, bytesOfOne());
                made.push_back(place);
            } else {
                std::memcpy(place, element(number), size);
                placed[number] = true;
            }
        }
        made.clear();
        for (std::size_t number = 0; number <= count; ++number) {
            if (!placed[number]) array.destroyElements(element(number), bytesOfOne());
        }
        std::memcpy(first, result.data(), count * size);
    }

private:
    char* element(std::size_t number) const {
        return number < count ? first + number * size : result.data() + count * size;
    }
    unsigned int bytesOfOne() const { return static_cast<unsigned int>(size); }

    fxArray& array;
    const bool owns;
    char* const first;
    const std::size_t size;
    const std::size_t count;
    std::size_t scratch;
    std::vector<std::size_t> numbers;
    mutable std::vector<char> result;  // the new run, then the first scratch element
    std::vector<void*> made;           // elements in `result` that are not the array's yet
};

struct Range {
    std::size_t lo;
    std::size_t hi;
};

// Partitions [lo, hi] about its first element and returns the border of the two
// parts. The element compared with is read again each time, never copied.
std::size_t partition(NumberedRun& run, std::size_t lo, std::size_t hi) {
    std::size_t i = lo;
    std::size_t j = hi + 1;
    const auto advance = [&] {
        while (i < hi && run.compare(++i, lo) < 0) {
        }
    };
    const auto retreat = [&] {
        while (j > lo && run.compare(--j, lo) > 0) {
        }
    };
    advance();
    retreat();
    while (i < j) {
        run.save(i);
        run.move(i, j);
        run.restore(j);
        advance();
        retreat();
    }
    // Not a swap: both places end up equal to the scratch element.
    run.restore(lo);
    run.move(j, lo);
    run.restore(j);
    return j;
}

// The lower part is finished before the upper one begins: they share the
// scratch element, so the order is observable. A descending run of n elements
// leaves n / 2 ranges waiting, so that they cannot be kept on the program's
// stack.
void partitionAll(NumberedRun& run, std::size_t count) {
    std::vector<Range> waiting = {{0, count - 1}};
    while (!waiting.empty()) {
        Range range = waiting.back();
        waiting.pop_back();
        for (bool hasLower = true; hasLower;) {
            const std::size_t middle = partition(run, range.lo, range.hi);
            if (middle + 1 < range.hi) waiting.push_back({middle + 1, range.hi});
            hasLower = middle > 0 && range.lo < middle - 1;
            if (hasLower) range.hi = middle - 1;
        }
    }
}

// One pass of the merge sort: neighbouring runs of `width` numbers are merged
// from `from` to `to`.
template <class Less>
void mergePass(const std::vector<std::size_t>& from, std::vector<std::size_t>& to,
               std::size_t width, const Less& less) {
    const std::size_t count = from.size();
    for (std::size_t begin = 0; begin < count; begin += 2 * width) {
        const std::size_t middle = std::min(begin + width, count);
        const std::size_t end = std::min(begin + 2 * width, count);
        // Runs that already follow one another cost a single comparison.
        if (middle == end || !less(from[middle], from[middle - 1])) {
            std::copy(from.data() + begin, from.data() + end, to.data() + begin);
            continue;
        }
        std::size_t left = begin;
        std::size_t right = middle;
        for (std::size_t at = begin; at < end; ++at) {
            const bool takeRight = left == middle || (right < end && less(from[right], from[left]));
            to[at] = takeRight ? from[right++] : from[left++];
        }
    }
}

// Sorts the `count` elements of `size` bytes at `first`.
template <class Less>
void sortBytes(char* first, std::size_t size, std::size_t count, const Less& isLess) {
    if (count < 2) return;
    const auto less = [&](std::size_t a, std::size_t b) {
        return isLess(first + a * size, first + b * size);
    };
    std::vector<std::size_t> order(count);
    std::vector<std::size_t> merged(count);
    std::iota(order.begin(), order.end(), std::size_t{0});
    for (std::size_t width = 1; width < count; width *= 2) {
        mergePass(order, merged, width, less);
        order.swap(merged);
    }
    std::vector<char> sorted(count * size);
    for (std::size_t i = 0; i < count; ++i) {
        std::memcpy(sorted.data() + i * size, first + order[i] * size, size);
    }
    std::memcpy(first, sorted.data(), sorted.size());
}

}  // namespace

void fxArray::sort(unsigned int start, unsigned int count) {
    FX_ASSERT(start <= length() && count <= length() - start);
    sortBytes(at(start), elementSize, count,
              [this](const char* a, const char* b) { return compareElements(a, b) < 0; });
}

void fxArray::sortBy(unsigned int start, unsigned int count, Less* less, const void* context) {
    FX_ASSERT(start <= length() && count <= length() - start);
    const char* const block = data;
    const unsigned int bytes = lengthBytes;
    sortBytes(at(start), elementSize, count, [&](const char* a, const char* b) {
        const bool isLess = less(context, a, b);
        if (data != block || lengthBytes != bytes) fxFatal("a comparison changed its array");
        return isLess;
    });
}

void fxArray::qsort(unsigned int start, unsigned int count) {
    FX_ASSERT(start <= length() && count <= length() - start);
    if (count == 0) return;
    NumberedRun run(*this, ownsElements, at(start), elementSize, count);
    partitionAll(run, count);
    run.materialise();
}
