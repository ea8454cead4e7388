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
// of 16 bytes, which is what malloc() aligns to. A flat hash table finds the array and
// has a bit for each granule, which is set if the granule has a number. Whether an address
// is new decides what the writer does next, and the table is small enough for a near
// cache. The array takes a quarter of its stretch and is often in no cache, but its
// numbers are only copied to the stream, which the processor does not wait for.
//
//     address   | stretch             | 8 bits: granule | 4 bits |
//     key       | stretch             | 4 bits |
//
// The lowest bits are part of the key, so that addresses in one granule have different
// arrays. Most have the same lowest bits.

class fxAddressIndex {
public:
    fxAddressIndex() = default;
    fxAddressIndex(const fxAddressIndex&) = delete;
    fxAddressIndex& operator=(const fxAddressIndex&) = delete;
    ~fxAddressIndex() { clear(); }

    /// The number entered for the address, or 0.
    unsigned int find(const void* address) const {
        if (used == 0) return 0;
        const Slot* const slot = search(keyOf(address));
        const size_t granule = granuleOf(address);
        return slot->has(granule) ? slot->numbers[granule] : 0;
    }
    /// Whether a number was entered for the address.
    bool has(const void* address) const {
        return used != 0 && search(keyOf(address))->has(granuleOf(address));
    }
    /// The place of the address's number, which the caller writes if it `isNew`.
    /// View: good until clear(). Out of line, which takes fewer instructions.
    [[gnu::noinline]] unsigned int& at(const void* address, bool& isNew) {
        const uintptr_t key = keyOf(address);
        Slot* slot = used != 0 ? search(key) : nullptr;
        if (slot == nullptr || slot->numbers == nullptr) slot = enter(key);
        const size_t granule = granuleOf(address);
        isNew = slot->add(granule);
        return slot->numbers[granule];
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
        uint64_t entered[granules / 64];

        bool has(size_t granule) const { return (entered[granule / 64] >> granule % 64 & 1U) != 0; }
        bool add(size_t granule) {
            uint64_t& bits = entered[granule / 64];
            const uint64_t before = bits;
            bits = before | uint64_t{1} << granule % 64;
            return bits != before;
        }
    };

    static size_t granuleOf(const void* address) {
        return reinterpret_cast<uintptr_t>(address) >> granuleBits & (granules - 1);
    }
    static uintptr_t keyOf(const void* address) {
        const uintptr_t bits = reinterpret_cast<uintptr_t>(address);
        constexpr uintptr_t lowest = (uintptr_t{1} << granuleBits) - 1;
        return bits >> stretchBits << granuleBits | (bits & lowest);
    }
    // The slot of the key, or the free one where it belongs. A free one ends the search even
    // if its key, 0, is the one that is looked for.
    Slot* search(uintptr_t key) const {
        Slot* slot = slots.get() + (fxMix64(key) >> shift);
        while (slot->key != key && slot->numbers != nullptr) {
            if (++slot == slots.get() + slotCount) slot = slots.get();
        }
        return slot;
    }
    // Enters a new stretch and returns its slot. Out of line, which keeps at() small.
    [[gnu::noinline]] Slot* enter(uintptr_t key) {
        if (4 * used >= 3 * slotCount) grow();
        unsigned int* const numbers = newNumbers();
        Slot* const slot = search(key);
        slot->key = key;
        slot->numbers = numbers;
        ++used;
        return slot;
    }
    unsigned int* newNumbers() {
        constexpr size_t bytes = granules * sizeof(unsigned int);
        if (stretchesLeft == 0) {
            stretchesLeft =
                std::min(mostStretches, firstStretches << std::min<size_t>(blocks.size(), 8));
            blocks.push_back(static_cast<unsigned int*>(fxNewBlock(stretchesLeft * bytes)));
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
            if (old[i].numbers != nullptr) *search(old[i].key) = old[i];
        }
    }

    std::unique_ptr<Slot[]> slots;  // a power of two, at most three quarters of them used
    size_t slotCount = 0;
    size_t used = 0;
    unsigned int shift = 0;  // leaves the high bits of the hash that select a slot
    std::vector<unsigned int*> blocks;
    size_t stretchesLeft = 0;  // of the last block
};

#endif
