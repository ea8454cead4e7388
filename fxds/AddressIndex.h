// The writer's fast map from addresses to record numbers.
#ifndef FXDS_ADDRESSINDEX_H
#define FXDS_ADDRESSINDEX_H

#include <cstddef>
#include <cstdint>
#include <vector>

// One flat table, a power of two in size and at most three quarters full,
// searched from the place that the address hashes to. Waiting for memory is
// nearly all that a look-up costs, so a slot is small: 32 bits of the hash and
// the number. The address itself stands in a list by number, and is looked at
// only when those bits are the same.

class fxAddressIndex {
public:
    /// The number entered for the address, or 0. Null has none.
    unsigned int find(const void* address) const {
        return slots.empty() ? 0 : numberIn(slots[indexOf(address)]);
    }

    /// The number entered for the address; `number` is entered when there is
    /// none. Requires: neither is 0; `number` is higher than all before.
    unsigned int findOrSet(const void* address, unsigned int number) {
        uint64_t& slot = room(address);
        if (slot != 0) return numberIn(slot);
        enter(slot, address, number);
        return number;
    }

    /// Enters a number, in place of an earlier one. Requires: as above.
    void set(const void* address, unsigned int number) {
        uint64_t& slot = room(address);
        if (slot != 0) {
            addresses[numberIn(slot) - lowest] = nullptr;
            slot = 0;
            --count;
        }
        enter(slot, address, number);
    }

    /// Brings the slot near while the caller does something else.
    void prefetch(const void* address) const {
        if (!slots.empty()) __builtin_prefetch(&slots[hashOf(address) >> shift]);
    }

    void clear() {
        slots.clear();
        addresses.clear();
        count = 0;
    }

private:
    static uint64_t hashOf(const void* address) {
        return reinterpret_cast<uintptr_t>(address) * 0x9E3779B97F4A7C15U;
    }
    // The high half is never 0, so that a slot in use is not.
    static uint64_t bitsOf(uint64_t hash) { return (hash >> 8U | 1U) << 32U; }
    static unsigned int numberIn(uint64_t slot) { return static_cast<unsigned int>(slot); }

    size_t indexOf(const void* address) const {
        const size_t mask = slots.size() - 1;
        const uint64_t hash = hashOf(address);
        const uint64_t bits = bitsOf(hash) >> 32U;
        size_t i = hash >> shift;
        while (slots[i] != 0) {
            if (slots[i] >> 32U == bits && addresses[numberIn(slots[i]) - lowest] == address) break;
            i = (i + 1) & mask;
        }
        return i;
    }

    uint64_t& room(const void* address) {
        if (count + 1 > slots.size() / 4 * 3) grow();
        return slots[indexOf(address)];
    }

    void enter(uint64_t& slot, const void* address, unsigned int number) {
        if (count == 0) {
            addresses.clear();
            lowest = number;
        }
        addresses.resize(number - lowest + size_t{1});
        addresses.back() = address;
        slot = bitsOf(hashOf(address)) | number;
        ++count;
    }

    // Every address is another, so that none needs to be compared.
    void grow() {
        shift = slots.empty() ? 58 : shift - 1;
        slots.assign(size_t{1} << (64 - shift), 0);
        const size_t mask = slots.size() - 1;
        for (size_t place = 0; place < addresses.size(); ++place) {
            if (addresses[place] == nullptr) continue;
            const uint64_t hash = hashOf(addresses[place]);
            size_t i = hash >> shift;
            while (slots[i] != 0) i = (i + 1) & mask;
            slots[i] = bitsOf(hash) | (lowest + place);
        }
    }

    std::vector<uint64_t> slots;         // bits of the hash, number; 0 when free
    std::vector<const void*> addresses;  // by number - lowest; null for numbers not entered here
    unsigned int lowest = 0;             // numbers go on after clear(), and may be high then
    unsigned int shift = 0;              // leaves as many high bits of the hash as the table needs
    size_t count = 0;
};

#endif
