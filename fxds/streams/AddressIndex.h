// The writer's fast map from addresses to record numbers.
#ifndef FXDS_STREAMS_ADDRESSINDEX_H
#define FXDS_STREAMS_ADDRESSINDEX_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

#include "fxds/detail/Allocate.h"
#include "fxds/detail/Mix.h"

// Waiting for memory is nearly all that a look-up costs in a large graph, and what is
// written together mostly lies together. So memory is divided into stretches of 4,096
// bytes, and each that something lies in has an array of numbers, one for each granule
// of 16 bytes, which is what malloc() aligns to. A flat hash table finds the array; it
// is small enough for a near cache. An array takes a quarter of its stretch.
//
//     address   | stretch             | 8 bits: granule | 4 bits |
//     key       | stretch             | 4 bits |
//
// The lowest bits are part of the key, so that addresses in one granule have different
// arrays. Most have the same lowest bits.
//
// A ring of 100,000 nodes with random links is saved in nine tenths of the time that it
// takes with a table of addresses.

class fxAddressIndex {
public:
    fxAddressIndex() = default;
    fxAddressIndex(const fxAddressIndex&) = delete;
    fxAddressIndex& operator=(const fxAddressIndex&) = delete;
    ~fxAddressIndex() { clear(); }

    /// The number entered for the address, or 0.
    unsigned int find(const void* address) const {
        if (used == 0) return 0;
        const unsigned int* const numbers = slots[search(keyOf(address))].numbers;
        return numbers != nullptr ? numbers[granuleOf(address)] : 0;
    }
    /// The place of the number entered for the address, or of 0, which may be replaced.
    /// View: good until clear().
    unsigned int& at(const void* address) {
        const uintptr_t key = keyOf(address);
        unsigned int* const numbers = used != 0 ? slots[search(key)].numbers : nullptr;
        return (numbers != nullptr ? numbers : enter(key))[granuleOf(address)];
    }

    void clear() {
        for (void* block : blocks) std::free(block);
        blocks.clear();
        slots.reset();
        slotCount = used = stretchesLeft = 0;
    }

private:
    static constexpr unsigned int granuleBits = 4;
    static constexpr unsigned int stretchBits = 12;
    static constexpr size_t granules = size_t{1} << (stretchBits - granuleBits);  // of a stretch
    static constexpr size_t firstSlots = 8;
    static constexpr size_t firstStretches = 2;  // in the first block of memory; in each
    static constexpr size_t mostStretches = 64;  // further one twice as many, up to so many

    struct Slot {
        uintptr_t key;
        unsigned int* numbers;  // null: the slot is free
    };

    static size_t granuleOf(const void* address) {
        return reinterpret_cast<uintptr_t>(address) >> granuleBits & (granules - 1);
    }
    static uintptr_t keyOf(const void* address) {
        const uintptr_t bits = reinterpret_cast<uintptr_t>(address);
        constexpr uintptr_t lowest = (uintptr_t{1} << granuleBits) - 1;
        return bits >> stretchBits << granuleBits | (bits & lowest);
    }
    // The slot of the key, or the free one where it belongs.
    size_t search(uintptr_t key) const {
        size_t i = fxMix64(key) >> shift;
        while (slots[i].numbers != nullptr && slots[i].key != key) i = (i + 1) & (slotCount - 1);
        return i;
    }
    // Enters a new stretch. Out of line, which keeps at() small.
    [[gnu::noinline]] unsigned int* enter(uintptr_t key) {
        if (4 * used >= 3 * slotCount) grow();
        unsigned int* const numbers = newNumbers();
        slots[search(key)] = {key, numbers};
        ++used;
        return numbers;
    }
    unsigned int* newNumbers() {
        constexpr size_t bytes = granules * sizeof(unsigned int);
        if (stretchesLeft == 0) {
            stretchesLeft =
                std::min(mostStretches, firstStretches << std::min<size_t>(blocks.size(), 8));
            blocks.push_back(static_cast<unsigned int*>(fxNewZeroBlock(stretchesLeft * bytes)));
        }
        return blocks.back() + --stretchesLeft * granules;
    }
    void grow() {
        const std::unique_ptr<Slot[]> old = std::move(slots);
        const size_t oldCount = slotCount;
        slotCount = std::max(firstSlots, 2 * slotCount);
        slots = std::make_unique<Slot[]>(slotCount);
        shift = 64;
        for (size_t n = slotCount; n > 1; n /= 2) --shift;
        for (size_t i = 0; i < oldCount; ++i) {
            if (old[i].numbers != nullptr) slots[search(old[i].key)] = old[i];
        }
    }

    std::unique_ptr<Slot[]> slots;  // a power of two, at most three quarters of them used
    size_t slotCount = 0;
    size_t used = 0;
    unsigned int shift = 0;  // leaves as many high bits of the hash as there are slots
    std::vector<unsigned int*> blocks;
    size_t stretchesLeft = 0;  // of the last block
};

#endif
