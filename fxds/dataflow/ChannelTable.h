// A hash table of facts about channels, by their addresses. Private to the library.
#ifndef FXDS_DATAFLOW_CHANNELTABLE_H
#define FXDS_DATAFLOW_CHANNELTABLE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "fxds/detail/Mix.h"

/// `Slot` has the field `const void* channel`, which is null in a free slot.
///
/// Invariants: (1) The number of slots is a power of 2, and some are free. (2) Each
/// channel has at most one slot, and no slot between its home and that one is free.
template <class Slot>
class fxChannelTable {
public:
    bool isMade() const { return slots != nullptr; }
    /// Makes an empty table for about `expected` channels.
    void make(size_t expected) { makeSlots(2 * expected); }
    void drop() { slots.reset(); }

    /// The slot of the channel, or the free one where it belongs. Requires: isMade()
    Slot* find(const void* channel) {
        size_t i = home(channel);
        while (slots[i].channel != nullptr && slots[i].channel != channel) i = (i + 1) & mask;
        return &slots[i];
    }
    /// The slot of the channel, which is made if there is none. Requires: isMade()
    Slot* enter(const void* channel) {
        Slot* slot = find(channel);
        if (slot->channel != nullptr) return slot;
        if (used >= mask - mask / 4) {
            grow();
            slot = find(channel);
        }
        ++used;
        slot->channel = channel;
        return slot;
    }
    /// Frees the slot. Then the next slot whose home is not behind it moves into the hole,
    /// and so on.
    void remove(Slot* slot) {
        size_t hole = static_cast<size_t>(slot - slots.get());
        *slot = Slot();
        --used;
        for (size_t i = (hole + 1) & mask; slots[i].channel != nullptr; i = (i + 1) & mask) {
            if (((i - home(slots[i].channel)) & mask) < ((i - hole) & mask)) continue;
            slots[hole] = std::exchange(slots[i], Slot());
            hole = i;
        }
    }

private:
    size_t home(const void* channel) const {
        return fxMix64(reinterpret_cast<uintptr_t>(channel)) >> shift;
    }
    void makeSlots(size_t atLeast) {
        size_t size = 4;
        shift = 62;
        while (size < atLeast) {
            size *= 2;
            --shift;
        }
        slots = std::make_unique<Slot[]>(size);
        mask = size - 1;
        used = 0;
    }
    void grow() {
        const std::unique_ptr<Slot[]> old = std::move(slots);
        const size_t oldUsed = used;
        const size_t oldSize = mask + 1;
        makeSlots(2 * oldSize);
        used = oldUsed;
        for (size_t i = 0; i < oldSize; ++i) {
            if (old[i].channel != nullptr) *find(old[i].channel) = old[i];
        }
    }

    std::unique_ptr<Slot[]> slots;
    size_t mask = 0;  // the number of slots less 1
    size_t used = 0;
    unsigned int shift = 0;  // leaves the bits of a hash that are the home
};

#endif
