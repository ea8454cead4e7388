// The writer's fast map from addresses to record numbers.
#ifndef FXDS_ADDRESSINDEX_H
#define FXDS_ADDRESSINDEX_H

#include <cstddef>
#include <cstdint>
#include <vector>

// One flat table, a power of two in size and at most half full, searched from
// the place that the address hashes to. An entry costs no allocation, which is
// what makes saving a graph fast: every pointer that is written is looked up
// here once.

class fxAddressIndex {
public:
    /// The number entered for the address, or 0. Null has none.
    unsigned int find(const void* address) const {
        if (slots.empty()) return 0;
        return slots[indexOf(address)].number;
    }

    /// Enters a number, in place of an earlier one. Requires: neither is 0.
    void set(const void* address, unsigned int number) {
        if (2 * (count + 1) > slots.size()) grow();
        Slot& slot = slots[indexOf(address)];
        count += slot.number == 0;
        slot = {address, number};
    }

    void clear() {
        slots.clear();
        count = 0;
    }

private:
    struct Slot {
        const void* address;
        unsigned int number;  // 0: free
    };

    size_t indexOf(const void* address) const {
        const size_t mask = slots.size() - 1;
        size_t i = (reinterpret_cast<uintptr_t>(address) * 0x9E3779B97F4A7C15U >> 20U) & mask;
        while (slots[i].number != 0 && slots[i].address != address) i = (i + 1) & mask;
        return i;
    }

    void grow() {
        std::vector<Slot> old(slots.empty() ? 64 : 2 * slots.size(), Slot{nullptr, 0});
        old.swap(slots);
        for (const Slot& slot : old) {
            if (slot.number != 0) slots[indexOf(slot.address)] = slot;
        }
    }

    std::vector<Slot> slots;
    size_t count = 0;
};

#endif
