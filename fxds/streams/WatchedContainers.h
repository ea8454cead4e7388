// The containers that a reader has places in.
#ifndef FXDS_STREAMS_WATCHEDCONTAINERS_H
#define FXDS_STREAMS_WATCHEDCONTAINERS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "fxds/Transcriber.h"
#include "fxds/base/StackBounds.h"

/// Containers whose elements a reader is to fill in later, each with what its
/// print was when it had been read. One that is held by another is entered before
/// that one, because it is whole first. So those that hold are asked first, and in
/// a container that has changed, which may have ended what it held, nothing more is.
class fxWatchedContainers {
public:
    /// It holds the places from `firstPlace` to `endPlace`, of which there are no more.
    void add(void* container, const fxTranscriber::Container& kind, size_t firstPlace,
             size_t endPlace) {
        entries.push_back({container, &kind, kind.print(container), firstPlace, endPlace});
    }
    size_t count() const { return entries.size(); }
    bool isEmpty() const { return entries.empty(); }  // without a division
    /// Of those with places beyond `firstPlace`, what was at `from` is at `to`.
    void moved(const void* from, size_t byteCount, void* to, size_t firstPlace) {
        for (size_t i = count(); i-- > 0 && entries[i].endPlace > firstPlace;) {
            const uintptr_t offset = reinterpret_cast<uintptr_t>(entries[i].container) -
                                     reinterpret_cast<uintptr_t>(from);
            if (offset < byteCount) entries[i].container = static_cast<char*>(to) + offset;
        }
    }
    /// Drops those with places beyond the oldest `places`.
    void forget(size_t places) {
        while (!entries.empty() && entries.back().endPlace > places) entries.pop_back();
    }
    /// Whether those from the `first` on are as they were read.
    bool areUnchanged(size_t first) const {
        for (size_t i = count(); i-- > first;) {
            if (hasChanged(entries[i])) return false;
        }
        return true;
    }
    struct Range {
        size_t first, end;  // of places
    };
    /// Whether one of those from the `first` on is a local variable.
    bool anyIsIn(const fxStackPart& frames, size_t first) const {
        for (size_t i = first; i < count(); ++i) {
            if (frames.holds(entries[i].container)) return true;
        }
        return false;
    }
    /// Empties those from the `first` on that have not changed, nor been in the frames,
    /// which are gone. Returns which places
    /// are gone with them and with those that have, the last ones first.
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
    /// Drops all but the oldest `kept`.
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
