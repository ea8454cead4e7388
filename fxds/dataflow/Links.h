// The connections of a channel that has many. Private to the library.
#ifndef FXDS_DATAFLOW_LINKS_H
#define FXDS_DATAFLOW_LINKS_H

#include <algorithm>
#include <utility>

#include "fxds/Channel.h"
#include "fxds/dataflow/ChannelTable.h"

// An output lists its entries and an input the outputs that feed it, in the order of
// connection. To find one of many in such a list takes an index, from the channel at the
// other end to the first link that leads there; most inputs of an output note where they
// are instead. To take one out of the middle moves what is behind it, which would change
// what the index and the inputs say; so it leaves a hole, and whoever looks at the list has
// the holes closed first. Many that leave one after the other, as when a window with all its
// parts is closed, are found and taken out in constant time.
//
// The index is built when searches and removals have walked some times over the list, so
// that a list that is sent to after each change is not made slower by it. A link that is
// entered counts as much as the index of it costs.
//
// Invariants: (1) The list is an array of links, and of null where one has left: `holes`
// of them. The last item is a link. (2) When a link is entered at most half of the items are
// holes. (3) The index has a slot for each channel that links lead to: the position of the
// first one, and how many there are. (4) No position below `begun` has a link.

/// `Channel` is what is listed: entries of outputs, which lead to target(), or outputs.
template <class Channel>
class fxLinks : public fxVoidPtrArray {
public:
    /// How many links a plain array is good enough for.
    static constexpr unsigned int few = 32;

    /// Whether a plain array, or null, is full of links: the next one makes it one of
    /// this class.
    static bool isMany(const fxVoidPtrArray* links) {
        return links != nullptr && links->end() - links->begin() >= few;
    }
    /// Takes over what a plain array has.
    explicit fxLinks(fxVoidPtrArray&& links) : fxVoidPtrArray(std::move(links)) {}

    /// The number of links.
    unsigned int count() const { return length() - holes; }
    bool hasHoles() const { return holes != 0; }
    bool isIndexed() const { return slots.isMade(); }
    bool isAt(unsigned int position, const Channel* link) const {
        return position < length() && (*this)[position] == link;
    }
    /// The first link, or null.
    Channel* first() {
        while (begun < length() && (*this)[begun] == nullptr) ++begun;
        return begun < length() ? at(begun) : nullptr;
    }

    /// Enters a link behind all others.
    void enter(Channel* link) {
        if (holes > length() / 2) close();
        append(link);
        if (isIndexed()) {
            note(endOf(link), length() - 1);
        } else {
            walked += walksBeforeIndex;
        }
    }
    /// The position of the first link that leads to `end`, or notFound.
    unsigned int find(const void* end) {
        if (!isIndexed()) {
            if (walked < walksBeforeIndex * static_cast<unsigned long>(length())) return walk(end);
            build();
        }
        const Slot& slot = *slots.find(end);
        if (slot.count == 0) return notFound;
        // Converters are public: what they lead to may have been changed.
        return endOf(at(slot.first)) == end ? slot.first : walk(end);
    }
    /// Takes out the link at a position that find() gave, and keeps the positions of
    /// others where there is an index, or if `mayLeaveHole`.
    void leave(unsigned int position, bool mayLeaveHole) {
        if (!isIndexed() && holes == 0 && !mayLeaveHole) {
            walked += (length() - position) / linksMovedPerWalked;
            return remove(position, 1);
        }
        const void* const end = endOf(at(position));
        (*this)[position] = nullptr;
        ++holes;
        if (isIndexed()) forget(end, position);
        unsigned int kept = length();
        while (kept > 0 && (*this)[kept - 1] == nullptr) --kept;
        holes -= length() - kept;
        begun = std::min(begun, kept);
        remove(kept, length() - kept);
    }
    /// Closes the holes, after which positions are those of the list.
    void close() {
        slots.drop();
        walked = 0;
        begun = 0;
        void** const kept = std::remove(begin(), end(), nullptr);
        remove(static_cast<unsigned int>(kept - begin()), std::exchange(holes, 0));
    }

private:
    static constexpr unsigned long walksBeforeIndex = 8;
    static constexpr unsigned int linksMovedPerWalked = 8;

    struct Slot {
        const void* channel = nullptr;
        unsigned int first = 0;
        unsigned int count = 0;
    };

    static const void* endOf(fxInputChannel* entry) {
        const fxInputChannel* const target = entry->target();
        return target != nullptr ? target : entry;
    }
    static const void* endOf(fxOutputChannel* output) { return output; }
    Channel* at(unsigned int position) { return static_cast<Channel*>((*this)[position]); }

    unsigned int walk(const void* end, unsigned int from = 0) {
        unsigned int i = std::max(from, begun);
        while (i < length() && ((*this)[i] == nullptr || endOf(at(i)) != end)) ++i;
        walked += i - from;
        return i < length() ? i : notFound;
    }

    void build() {
        slots.make(count());
        for (unsigned int i = 0; i < length(); ++i) {
            if ((*this)[i] != nullptr) note(endOf(at(i)), i);
        }
    }
    void forget(const void* end, unsigned int position) {
        Slot* const slot = slots.find(end);
        const bool isNoted = slot->count != 0 && slot->first == position;
        if (!isNoted) return close();
        if (--slot->count == 0) return slots.remove(slot);
        slot->first = walk(end, position + 1);
        if (slot->first == notFound) close();
    }
    void note(const void* end, unsigned int position) {
        Slot& slot = *slots.enter(end);
        if (slot.count++ == 0) slot.first = position;
    }

    fxChannelTable<Slot> slots;
    unsigned int holes = 0;
    unsigned int begun = 0;
    unsigned long walked = 0;  // links passed without an index, or moved, at a lower rate
};

#endif
