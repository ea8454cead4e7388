// The writer's fast map from addresses to record numbers.
#ifndef FXDS_STREAMS_WRITERNUMBERS_H
#define FXDS_STREAMS_WRITERNUMBERS_H

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
        const unsigned int slot = slotCount == 0 ? 0 : slots[indexOf(address)];
        return slot == 0 ? 0 : numberIn(slot);
    }

    /// The number entered for the address; `number` is entered when there is
    /// none. Requires: neither is 0; `number` is higher than all before.
    unsigned int findOrSet(const void* address, unsigned int number) {
        unsigned int& slot = room(address, number);
        if (slot != 0) return numberIn(slot);
        enter(slot, address, number);
        return number;
    }

    /// Enters a number, in place of an earlier one. Requires: as above.
    void set(const void* address, unsigned int number) {
        unsigned int& slot = room(address, number);
        if (slot != 0) addresses[positionIn(slot)] = nullptr;
        enter(slot, address, number);
    }

    /// Brings the slot near while the caller does something else.
    void prefetch(const void* address) const {
        if (slotCount != 0) __builtin_prefetch(&slots[startOf(address, hashOf(address))]);
    }

    void clear() {
        slots.reset();
        slotCount = 0;
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

    size_t indexOf(const void* address) const {
        const uint64_t hash = hashOf(address);
        const unsigned int mark = markOf(address, hash);
        size_t i = startOf(address, hash);
        while (slots[i] != 0) {
            const bool isMarked = (slots[i] & ~positionMask) == mark;
            if (isMarked && addresses[positionIn(slots[i])] == address) break;
            i = (i + 1) & (slotCount - 1);
        }
        return i;
    }

    // The slot of the address, in a table that has room for the number.
    unsigned int& room(const void* address, unsigned int number) {
        if (addresses.empty()) lowest = number;
        while (number - lowest >= slotCount / 4 * 3) grow();
        return slots[indexOf(address)];
    }

    void enter(unsigned int& slot, const void* address, unsigned int number) {
        while (addresses.size() < number - lowest) addresses.push_back(nullptr);
        addresses.push_back(address);
        const unsigned int position = static_cast<unsigned int>(addresses.size());
        slot = markOf(address, hashOf(address)) | position;
    }

    // Every address is another, so that none needs to be compared.
    void grow() {
        slotCount = slotCount == 0 ? 4 * partSlots : 4 * slotCount;
        positionMask = static_cast<unsigned int>(slotCount - 1);
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
    unsigned int positionMask = 0;
    unsigned int shift = 0;              // leaves as many high bits of the hash as the table needs
    fxChunkList<const void*> addresses;  // null for numbers that were not entered here
    unsigned int lowest = 0;             // numbers go on after clear(), and may be high then
};

#endif
