// Addresses in memory that may move while the set is filled.
#ifndef FXDS_STREAMS_ADDRESSSET_H
#define FXDS_STREAMS_ADDRESSSET_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

// Mostly they are added in ascending order, and a sorted vector then grows at its end.
//
// Invariant: `entries` is sorted by address. moved() rotates the entries that it changes to
// their new position.

class fxAddressSet {
public:
    struct Entry {
        const void* address;
        size_t since;  ///< Number of places when it was added.
        bool isInner;  ///< For the user of the set.
    };

    /// The entry of the address, or null.
    const Entry* find(const void* address) const {
        const auto place = std::lower_bound(entries.begin(), entries.end(), address, isBefore);
        return place != entries.end() && place->address == address ? &*place : nullptr;
    }
    /// Adds the entry. Returns false if its address is in the set already.
    bool add(const Entry& entry) {
        const auto place =
            std::lower_bound(entries.begin(), entries.end(), entry.address, isBefore);
        if (place != entries.end() && place->address == entry.address) return false;
        entries.insert(place, entry);
        return true;
    }
    /// Memory that was at `from` is at `to`.
    void moved(const void* from, size_t byteCount, const void* to) {
        const auto first = std::lower_bound(entries.begin(), entries.end(), from, isBefore);
        auto entry = first;
        for (; entry != entries.end(); ++entry) {
            const uintptr_t offset =
                reinterpret_cast<uintptr_t>(entry->address) - reinterpret_cast<uintptr_t>(from);
            if (offset >= byteCount) break;
            entry->address = static_cast<const char*>(to) + offset;
        }
        // The moved entries keep their order among themselves.
        const auto before = std::lower_bound(entries.begin(), first, to, isBefore);
        if (before != first) {
            std::rotate(before, first, entry);
        } else {
            std::rotate(first, entry, std::lower_bound(entry, entries.end(), to, isBefore));
        }
    }
    /// Drops the entries that were added when there were `places` places or more.
    void forget(size_t places) {
        const auto isLate = [&](const Entry& entry) { return entry.since >= places; };
        entries.erase(std::remove_if(entries.begin(), entries.end(), isLate), entries.end());
    }
    void clear() { entries.clear(); }

private:
    static bool isBefore(const Entry& entry, const void* address) {
        return std::less<>()(entry.address, address);
    }

    std::vector<Entry> entries;
};

#endif
