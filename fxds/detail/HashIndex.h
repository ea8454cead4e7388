// The index of hash containers: an open-addressing table from tag to nodes.
// Part of the public headers, not of the interface.
#ifndef FXDS_DETAIL_HASHINDEX_H
#define FXDS_DETAIL_HASHINDEX_H

#include <cstdlib>
#include <type_traits>
#include <utility>

#include "fxds/detail/Allocate.h"

// The containers are tables of chains of a fixed number. A search that has passed more than
// longWalk nodes makes its container build an index; from then on no chain is searched.
//
// A tag is a number of 32 bits whose upper bits are well mixed; its upper bits are the slot
// where its search begins (its home). Each node has a slot. Tags and nodes are in two
// arrays, so that a search passes 16 slots in a cache line. With keepsPrevious the slot of
// a node also names its predecessor, for chains without back links. A Node has a field
// `tag`.
//
// Many nodes of one tag, or of tags near each other, lie in slots that each search for one
// of them passes. When an addition would pass more than mostPassed slots, the index drops
// itself: chains are as good then.
//
// Invariants, while the index is built:
// (1) The number of places is a power of 2, and at least one slot is free.
// (2) Each node that was entered has one slot, and no slot between the home of
//     its tag and that one is free.
// (3) Of the nodes of one tag, those entered as first ones come first.

template <class Node, bool keepsPrevious>
class fxHashIndex {
public:
    /// The length of a chain from which on an index is cheaper than the search.
    static constexpr unsigned int longWalk = 12;

    fxHashIndex() = default;
    fxHashIndex(const fxHashIndex&) = delete;
    fxHashIndex& operator=(const fxHashIndex&) = delete;
    ~fxHashIndex() { drop(); }

    bool isBuilt() const { return table != nullptr; }
    /// The first node of `tag` for which `isWanted(node)` returns true, or null. Requires,
    /// as all below: isBuilt().
    template <class IsWanted>
    Node* find(unsigned int tag, IsWanted isWanted) const;
    /// Makes an empty index for about `expected` nodes, built or not.
    void build(unsigned int expected);
    /// Enters a node as the first of its tag. Returns false when the index has dropped itself.
    bool insert(Node* node) { return enter<true>(Place(node)); }
    /// Enters a node as the last of its tag, and the one before it. Returns as insert().
    bool append(Node* node, Node* previous) { return enter<false>(Place(node, previous)); }
    void remove(const Node* node);
    ///@{
    /// The predecessor of a node that was entered.
    Node* previous(const Node* node) const { return table->places()[slotOf(node)].previous; }
    void setPrevious(const Node* node, Node* previous) {
        table->places()[slotOf(node)].previous = previous;
    }
    ///@}
    /// Forgets all nodes; it is not built then. Allowed at any time.
    void drop();
    void swap(fxHashIndex& other) { std::swap(table, other.table); }

private:
    static constexpr unsigned int mostPassed = 4096;

    struct Alone {
        explicit Alone(Node* node_, Node* = nullptr) : node(node_) {}
        Node* node;
    };
    struct WithPrevious {
        explicit WithPrevious(Node* node_, Node* previous_ = nullptr)
            : node(node_), previous(previous_) {}
        Node* node;
        Node* previous;
    };
    typedef std::conditional_t<keepsPrevious, WithPrevious, Alone> Place;

    // The places and the tags lie behind it: most containers have none, and keep one
    // pointer.
    struct Table {
        unsigned int home(unsigned int tag) const { return tag >> shift; }
        unsigned int after(unsigned int slot) const { return (slot + 1) & mask; }
        Place* places() { return reinterpret_cast<Place*>(this + 1); }
        unsigned int* tags() {
            return reinterpret_cast<unsigned int*>(places() + (size_t{mask} + 1));
        }

        unsigned int mask;   // number of places less 1
        unsigned int shift;  // leaves the bits of a tag that are its home
        unsigned int used;   // places that are not free
        unsigned int unnamed;
    };
    static_assert(sizeof(Table) % alignof(Place) == 0);

    // 0 in a free slot.
    static unsigned int stored(unsigned int tag) { return tag != 0 ? tag : 1; }
    unsigned int slotOf(const Node* node) const;
    template <bool isFirst>
    bool enter(Place place);
    void allocate(unsigned int bits);
    void grow();

    Table* table = nullptr;
};

template <class Node, bool keepsPrevious>
template <class IsWanted>
[[gnu::always_inline]] inline Node* fxHashIndex<Node, keepsPrevious>::find(
    unsigned int tag, IsWanted isWanted) const {
    const unsigned int* const tags = table->tags();
    const unsigned int wanted = stored(tag);
    for (unsigned int slot = table->home(wanted);; slot = table->after(slot)) {
        if (tags[slot] == wanted) {
            Node* const node = table->places()[slot].node;
            if (isWanted(node)) return node;
        }
        if (tags[slot] == 0) return nullptr;
    }
}

template <class Node, bool keepsPrevious>
unsigned int fxHashIndex<Node, keepsPrevious>::slotOf(const Node* node) const {
    unsigned int slot = table->home(stored(node->tag));
    while (table->places()[slot].node != node) slot = table->after(slot);
    return slot;
}

template <class Node, bool keepsPrevious>
void fxHashIndex<Node, keepsPrevious>::allocate(unsigned int bits) {
    constexpr size_t bytesOfSlot = sizeof(Place) + sizeof(unsigned int);
    table = static_cast<Table*>(fxNewZeroBlock(sizeof(Table) + (bytesOfSlot << bits)));
    table->mask = (1U << bits) - 1;
    table->shift = 32 - bits;
}

template <class Node, bool keepsPrevious>
void fxHashIndex<Node, keepsPrevious>::build(unsigned int expected) {
    drop();
    unsigned int bits = 6;
    while (bits < 31 && (1U << bits) / 2 < expected) ++bits;
    allocate(bits);
}

template <class Node, bool keepsPrevious>
void fxHashIndex<Node, keepsPrevious>::drop() {
    std::free(table);
    table = nullptr;
}

// From behind a free slot on, so that nodes of one tag keep their order.
template <class Node, bool keepsPrevious>
void fxHashIndex<Node, keepsPrevious>::grow() {
    Table* const old = table;
    allocate(33 - old->shift);
    Table* const grown = std::exchange(table, old);
    grown->used = old->used;
    unsigned int from = 0;
    while (old->tags()[from] != 0) ++from;
    for (unsigned int left = old->mask; left > 0; --left) {
        from = old->after(from);
        const unsigned int tag = old->tags()[from];
        if (tag == 0) continue;
        unsigned int slot = grown->home(tag);
        while (grown->tags()[slot] != 0) slot = grown->after(slot);
        grown->tags()[slot] = tag;
        grown->places()[slot] = old->places()[from];
    }
    std::free(std::exchange(table, grown));
}

// The first node of its tag takes the slot of the former first one, that one the slot of
// the second, and so on.
template <class Node, bool keepsPrevious>
template <bool isFirst>
bool fxHashIndex<Node, keepsPrevious>::enter(Place place) {
    if (table->used >= table->mask - table->mask / 16 * 3 && table->shift > 1) grow();
    const unsigned int tag = stored(place.node->tag);
    unsigned int slot = table->home(tag);
    for (unsigned int passed = 0; table->tags()[slot] != 0; slot = table->after(slot)) {
        if (++passed > mostPassed) {
            drop();
            return false;
        }
        if (isFirst && table->tags()[slot] == tag) std::swap(place, table->places()[slot]);
    }
    table->places()[slot] = place;
    table->tags()[slot] = tag;
    ++table->used;
    return true;
}

// Keeps (2) and (3): the next slot whose home is not behind the freed one moves into it,
// and so on.
template <class Node, bool keepsPrevious>
void fxHashIndex<Node, keepsPrevious>::remove(const Node* node) {
    unsigned int* const tags = table->tags();
    unsigned int hole = slotOf(node);
    const unsigned int last = table->mask;
    for (unsigned int i = table->after(hole); tags[i] != 0; i = table->after(i)) {
        if (((i - table->home(tags[i])) & last) < ((i - hole) & last)) continue;
        tags[hole] = tags[i];
        table->places()[hole] = table->places()[i];
        hole = i;
    }
    tags[hole] = 0;
    table->places()[hole].node = nullptr;
    --table->used;
}

#endif
