// The containers that contain places of a reader.
#ifndef FXDS_STREAMS_WATCHEDCONTAINERS_H
#define FXDS_STREAMS_WATCHEDCONTAINERS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "fxds/Transcriber.h"
#include "fxds/base/StackBounds.h"

/// Containers whose elements a reader fills in later, each with the result of its kind's
/// print() when it had been read.
///
/// Invariants:
/// (1) `endPlace` ascends.
/// (2) A container inside another one precedes it, because it is complete first. So the
///     outer one is checked first, going backwards, and nothing inside one that has changed
///     is touched: its elements may have been destroyed.
class fxWatchedContainers {
public:
    /// Adds a container that has the places in [firstPlace, endPlace), the last ones so
    /// far.
    void add(void* container, const fxTranscriber::Container& kind, size_t firstPlace,
             size_t endPlace) {
        entries.push_back({container, &kind, kind.print(container), firstPlace, endPlace});
    }
    size_t count() const { return entries.size(); }
    bool isEmpty() const { return entries.empty(); }  // needs no division
    /// For containers with places beyond `firstPlace`: memory that was at `from` is at
    /// `to`.
    void moved(const void* from, size_t byteCount, void* to, size_t firstPlace) {
        for (size_t i = count(); i-- > 0 && entries[i].endPlace > firstPlace;) {
            const uintptr_t offset = reinterpret_cast<uintptr_t>(entries[i].container) -
                                     reinterpret_cast<uintptr_t>(from);
            if (offset < byteCount) entries[i].container = static_cast<char*>(to) + offset;
        }
    }
    /// Drops the containers with places beyond the first `places`.
    void forget(size_t places) {
        while (!entries.empty() && entries.back().endPlace > places) entries.pop_back();
    }
    /// Whether the containers from index `first` on are as they were read.
    bool areUnchanged(size_t first) const {
        for (size_t i = count(); i-- > first;) {
            if (hasChanged(entries[i])) return false;
        }
        return true;
    }
    struct Range {
        size_t first, end;  // of places
    };
    /// Whether one of the containers from index `first` on is in the frames.
    bool anyIsIn(const fxStackPart& frames, size_t first) const {
        for (size_t i = first; i < count(); ++i) {
            if (frames.holds(entries[i].container)) return true;
        }
        return false;
    }
    /// Empties the containers from index `first` on that have not changed and are not in
    /// the frames, which are gone. Returns the ranges of places that no longer exist, those
    /// of changed containers included, the last ones first.
    std::vector<Range> empty(size_t first, const fxStackPart& frames) {
        std::vector<Range> gone;
        for (size_t i = count(); i-- > first;) {
            const Entry& entry = entries[i];
            if (!gone.empty() && entry.endPlace > gone.back().first) continue;
            const bool isLost = frames.holds(entry.container) || hasChanged(entry);
            if (!isLost && entry.kind->empty != nullptr) entry.kind->empty(entry.container);
            if (isLost || entry.kind->empty != nullptr) {
                gone.push_back({entry.firstPlace, entry.endPlace});
            }
        }
        return gone;
    }
    /// Drops all but the first `kept`.
    void shrink(size_t kept) {
        if (!isEmpty()) entries.resize(kept);
    }

private:
    struct Entry {
        void* container;
        const fxTranscriber::Container* kind;
        size_t print;
        size_t firstPlace;
        size_t endPlace;  // ascending
    };

    static bool hasChanged(const Entry& entry) {
        return entry.kind->print(entry.container) != entry.print;
    }

    std::vector<Entry> entries;
};

#endif
