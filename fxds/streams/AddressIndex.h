// The writer's fast map from addresses to record numbers.
#ifndef FXDS_STREAMS_ADDRESSINDEX_H
#define FXDS_STREAMS_ADDRESSINDEX_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "fxds/base/ChunkList.h"
#include "fxds/detail/Allocate.h"
#include "fxds/detail/Mix.h"

// The addresses stand in a list by number. A flat table, a power of two in size
// and at most three quarters full, finds them: a slot has the position in the
// list in as many low bits as the size needs, and bits of the hash in the rest,
// so that hardly ever an address is compared in vain.
//
// Waiting for memory is nearly all that a look-up in a large table costs, which
// is why slots are small. And what is written together mostly lies together: so
// addresses that are near each other share a part of the table. The hash is that
// of a stretch of memory and says where its part begins, and the place in the
// stretch says where the search starts in that part. Parts overlap where they
// must.

class fxAddressIndex {
public:
    /// The number entered for the address, or 0. Null has none.
    unsigned int find(const void* address) const {
        if (slotCount == 0) return 0;
        const unsigned int slot = slots[search(address).index];
        return slot == 0 ? 0 : numberIn(slot);
    }

    /// The number entered for the address; `number` is entered when there is
    /// none. Requires: neither is 0; `number` is higher than all before.
    unsigned int findOrSet(const void* address, unsigned int number) {
        makeRoom(number);
        const Found found = search(address);
        const unsigned int slot = slots[found.index];
        if (slot != 0) return numberIn(slot);
        enter(found, address, number);
        return number;
    }

    /// Enters a number, in place of an earlier one. Requires: as above.
    void set(const void* address, unsigned int number) {
        makeRoom(number);
        const Found found = search(address);
        const unsigned int slot = slots[found.index];
        if (slot != 0) addresses[positionIn(slot)] = nullptr;
        enter(found, address, number);
    }

    /// Brings the slot near while the caller does something else.
    void prefetch(const void* address) const {
        if (slotCount != 0) __builtin_prefetch(&slots[startOf(address, hashOf(address))]);
    }

    void clear() {
        slots.reset();
        slotCount = most = 0;
        addresses.clear();
    }

private:
    static constexpr unsigned int granuleBits = 4;  // what malloc() aligns to
    static constexpr unsigned int partBits = 5;
    static constexpr size_t partSlots = size_t{1} << partBits;

    static uint64_t granuleOf(const void* address) {
        return reinterpret_cast<uintptr_t>(address) >> granuleBits;
    }
    static uint64_t hashOf(const void* address) { return fxMix64(granuleOf(address) >> partBits); }
    size_t startOf(const void* address, uint64_t hash) const {
        return ((hash >> shift) + granuleOf(address) % partSlots) & (slotCount - 1);
    }
    // The bits of a slot that are the same for the same address, its low ones
    // among them, which tell those apart that share a part.
    unsigned int markOf(const void* address, uint64_t hash) const {
        const uint64_t bits = hash >> 32U ^ reinterpret_cast<uintptr_t>(address) << 20U;
        return static_cast<unsigned int>(bits) & ~positionMask;
    }
    size_t positionIn(unsigned int slot) const { return (slot & positionMask) - 1; }
    unsigned int numberIn(unsigned int slot) const {
        return lowest + static_cast<unsigned int>(positionIn(slot));
    }

    struct Found {
        size_t index;  // of the slot of the address, or of the free one where it belongs
        unsigned int mark;
    };
    Found search(const void* address) const {
        const uint64_t hash = hashOf(address);
        const unsigned int mark = markOf(address, hash);
        const unsigned int* const table = slots.get();
        size_t i = startOf(address, hash);
        for (unsigned int slot = table[i]; slot != 0; slot = table[i]) {
            const bool isMarked = ((slot ^ mark) & ~positionMask) == 0;
            if (isMarked && addresses[positionIn(slot)] == address) break;
            i = (i + 1) & (slotCount - 1);
        }
        return {i, mark};
    }

    // Three quarters of the slots are used at most.
    void makeRoom(unsigned int number) {
        if (addresses.empty()) lowest = number;
        while (number - lowest >= most) grow();
    }

    void enter(const Found& found, const void* address, unsigned int number) {
        while (addresses.size() != number - lowest) addresses.push_back(nullptr);
        addresses.push_back(address);
        slots[found.index] = found.mark | static_cast<unsigned int>(addresses.size());
    }

    // Every address is another, so that none needs to be compared.
    [[gnu::noinline]] void grow() {
        slotCount = slotCount == 0 ? 4 * partSlots : 4 * slotCount;
        positionMask = static_cast<unsigned int>(slotCount - 1);
        most = static_cast<unsigned int>(slotCount / 4 * 3);
        shift = 64;
        for (size_t n = slotCount; n > 1; n /= 2) --shift;
        slots.reset();
        slots.reset(static_cast<unsigned int*>(fxNewZeroBlock(slotCount * sizeof(unsigned int))));
        unsigned int position = 0;
        addresses.each([&](const void* address) {
            ++position;
            if (address == nullptr) return;
            const uint64_t hash = hashOf(address);
            size_t i = startOf(address, hash);
            while (slots[i] != 0) i = (i + 1) & (slotCount - 1);
            slots[i] = markOf(address, hash) | position;
        });
    }

    struct Free {
        void operator()(unsigned int* block) const { std::free(block); }
    };
    std::unique_ptr<unsigned int[], Free> slots;  // mark and position + 1; 0 when free
    size_t slotCount = 0;
    unsigned int most = 0;  // how many numbers the slots serve
    unsigned int positionMask = 0;
    unsigned int shift = 0;              // leaves as many high bits of the hash as the table needs
    fxChunkList<const void*> addresses;  // null for numbers that were not entered here
    unsigned int lowest = 0;             // numbers go on after clear(), and may be high then
};

#endif
