// The index of hash containers: an open-addressing table from tag to nodes.
// Part of the public headers, not of the interface.
#ifndef FXDS_DETAIL_HASHINDEX_H
#define FXDS_DETAIL_HASHINDEX_H

#include <cstdlib>
#include <cstring>
#include <utility>

#include "fxds/detail/Allocate.h"

// The containers are tables of chains of a fixed number. A search that has passed more than
// longWalk nodes makes its container build an index; from then on no chain is searched.
//
// A tag is a number of 32 bits whose upper bits are well mixed; its upper bits are the slot
// where its search begins (its home). Each node has a slot. Tags and nodes are in two
// arrays, so that a search passes 16 slots in a cache line, of which it looks at 8 at a
// time. For chains without back links the slot of a node can also name its predecessor: it
// does so from the first removal on, because many tables only grow. A Node has a field `tag`.
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
// (4) The tags end in a copy of the first ones, as a search looks at 8 from each slot on.

template <class Node>
class fxHashIndex {
public:
    /// The length of a chain from which on an index is cheaper than the search.
    static constexpr unsigned int longWalk = 12;
    static constexpr unsigned int noSlot = ~0U;

    fxHashIndex() = default;
    fxHashIndex(const fxHashIndex&) = delete;
    fxHashIndex& operator=(const fxHashIndex&) = delete;
    ~fxHashIndex() { drop(); }

    bool isBuilt() const { return table != nullptr; }
    /// The first node of `tag` for which `isWanted(node)` returns true, or null; `freeSlot`
    /// is then the one where the search has ended. Requires, as all below: isBuilt().
    template <class IsWanted>
    Node* find(unsigned int tag, IsWanted isWanted, unsigned int& freeSlot) const;
    template <class IsWanted>
    Node* find(unsigned int tag, IsWanted isWanted) const {
        unsigned int freeSlot;
        return find(tag, isWanted, freeSlot);
    }
    /// Makes an empty index for about `expected` nodes, built or not.
    void build(unsigned int expected);
    /// Enters a node as the first of its tag. Returns false when the index has dropped itself.
    bool insert(Node* node) { return enter<true>(node); }
    /// Enters a node as the last of its tag. Returns as insert().
    bool append(Node* node) { return enter<false>(node); }
    /// The same where a search for its tag has ended, and nothing has changed since.
    bool appendAt(unsigned int freeSlot, Node* node);
    void remove(const Node* node);
    ///@{
    /// The predecessor of a node that was entered: null until it is set. Requires:
    /// keepsPrevious()
    Node* previous(const Node* node) const { return table->place(slotOf(node))[1]; }
    void setPrevious(const Node* node, Node* previous) { table->place(slotOf(node))[1] = previous; }
    ///@}
    bool keepsPrevious() const { return table->isWide != 0; }
    /// Requires: the successors of all nodes are here.
    void keepPrevious();
    /// Forgets all nodes; it is not built then. Allowed at any time.
    void drop();
    void swap(fxHashIndex& other) { std::swap(table, other.table); }

private:
    static constexpr unsigned int mostPassed = 4096;
    static constexpr unsigned int width = 8;

    // The places of nodes and predecessors and the tags lie behind it: most containers have
    // none, and keep one pointer.
    struct Table {
        unsigned int home(unsigned int tag) const { return tag >> shift; }
        unsigned int after(unsigned int slot) const { return (slot + 1) & mask; }
        bool isFull() const { return used >= mask - mask / 16 * 3 && shift > 1; }
        // A node, and if it is wide, its predecessor.
        Node** place(size_t slot) { return reinterpret_cast<Node**>(this + 1) + (slot << isWide); }
        unsigned int* tags() { return reinterpret_cast<unsigned int*>(place(size_t{mask} + 1)); }
        [[gnu::always_inline]] void set(unsigned int slot, unsigned int tag, Node* node,
                                        Node* previous) {
            Node** const at = place(slot);
            at[0] = node;
            if (isWide != 0) at[1] = previous;
            tags()[slot] = tag;
            if (slot < width) tags()[mask + 1 + slot] = tag;
        }
        [[gnu::always_inline]] void move(unsigned int from, unsigned int to) {
            Node** const at = place(from);
            set(to, tags()[from], at[0], at[isWide]);
        }

        unsigned int mask;    // number of places less 1
        unsigned int shift;   // leaves the bits of a tag that are its home
        unsigned int used;    // places that are not free
        unsigned int isWide;  // 1 if places keep predecessors, too
    };
    static_assert(sizeof(Table) % alignof(Node*) == 0);

    // Eight tags, which are compared at once.
    class Group {
    public:
        explicit Group(const unsigned int* tags) {
            std::memcpy(&lower, tags, sizeof lower);
            std::memcpy(&upper, tags + width / 2, sizeof upper);
        }
        // A bit for each tag that is equal.
        unsigned int equal(unsigned int tag) const {
            const Tags wanted = {tag, tag, tag, tag};
            return bits(lower == wanted) | bits(upper == wanted) << width / 2;
        }

    private:
        typedef unsigned int Tags __attribute__((vector_size(16)));
        typedef float Signs __attribute__((vector_size(16)));
        template <class Comparison>
        static unsigned int bits(Comparison comparison) {
            return static_cast<unsigned int>(
                __builtin_ia32_movmskps(reinterpret_cast<Signs>(comparison)));
        }

        Tags lower;
        Tags upper;
    };
    static unsigned int first(unsigned int bits) {
        return static_cast<unsigned int>(__builtin_ctz(bits));
    }

    // 0 in a free slot.
    static unsigned int stored(unsigned int tag) { return tag != 0 ? tag : 1; }
    unsigned int slotOf(const Node* node) const;
    template <bool isFirst>
    bool enter(Node* node);
    void allocate(unsigned int bits, unsigned int isWide);
    void replaceBy(unsigned int bits, unsigned int isWide);
    // Up to 65,536 places to four times as many, which copies less often; then to twice as
    // many, because memory counts more.
    void grow() { replaceBy((table->shift > 16 ? 34 : 33) - table->shift, table->isWide); }

    Table* table = nullptr;
};

template <class Node>
template <class IsWanted>
[[gnu::always_inline]] inline Node* fxHashIndex<Node>::find(unsigned int tag, IsWanted isWanted,
                                                            unsigned int& freeSlot) const {
    const unsigned int* const tags = table->tags();
    const unsigned int wanted = stored(tag);
    unsigned int slot = table->home(wanted);
    if (tags[slot] == wanted) {  // mostly: no comparison of eight to wait for
        Node* const node = *table->place(slot);
        if (isWanted(node)) return node;
    }
    for (;; slot = (slot + width) & table->mask) {
        const Group group(tags + slot);
        for (unsigned int left = group.equal(wanted); left != 0; left &= left - 1) {
            Node* const node = *table->place((slot + first(left)) & table->mask);
            if (isWanted(node)) return node;
        }
        if (const unsigned int isFree = group.equal(0)) {
            freeSlot = (slot + first(isFree)) & table->mask;
            return nullptr;
        }
    }
}

template <class Node>
unsigned int fxHashIndex<Node>::slotOf(const Node* node) const {
    unsigned int slot = table->home(stored(node->tag));
    while (*table->place(slot) != node) slot = table->after(slot);
    return slot;
}

template <class Node>
void fxHashIndex<Node>::allocate(unsigned int bits, unsigned int isWide) {
    const size_t bytesOfSlot = (sizeof(Node*) << isWide) + sizeof(unsigned int);
    table = static_cast<Table*>(
        fxNewZeroBlock(sizeof(Table) + (bytesOfSlot << bits) + width * sizeof(unsigned int)));
    table->mask = (1U << bits) - 1;
    table->shift = 32 - bits;
    table->isWide = isWide;
}

template <class Node>
void fxHashIndex<Node>::build(unsigned int expected) {
    drop();
    unsigned int bits = 6;
    while (bits < 31 && (1U << bits) / 2 < expected) ++bits;
    allocate(bits, 0);
}

template <class Node>
void fxHashIndex<Node>::drop() {
    std::free(std::exchange(table, nullptr));
}

// From behind a free slot on, so that nodes of one tag keep their order.
template <class Node>
void fxHashIndex<Node>::replaceBy(unsigned int bits, unsigned int isWide) {
    Table* const old = table;
    allocate(bits, isWide);
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
        Node** const at = old->place(from);
        grown->set(slot, tag, at[0], old->isWide != 0 ? at[1] : nullptr);
    }
    std::free(std::exchange(table, grown));
}

// By slots, because the nodes of a chain would be waited for one after the other.
template <class Node>
void fxHashIndex<Node>::keepPrevious() {
    replaceBy(32 - table->shift, 1);
    for (size_t slot = 0; slot <= table->mask; ++slot) {
        const Node* const node = *table->place(slot);
        if (node != nullptr && node->next != nullptr) setPrevious(node->next, *table->place(slot));
    }
}

// The first node of its tag takes the slot of the former first one, that one the slot of
// the second, and so on.
template <class Node>
template <bool isFirst>
bool fxHashIndex<Node>::enter(Node* node) {
    if (table->isFull()) grow();
    const unsigned int tag = stored(node->tag);
    unsigned int slot = table->home(tag);
    Node* previous = nullptr;
    for (unsigned int passed = 0; table->tags()[slot] != 0; slot = table->after(slot)) {
        if (++passed > mostPassed) {
            drop();
            return false;
        }
        if (!isFirst || table->tags()[slot] != tag) continue;
        Node** const at = table->place(slot);
        std::swap(node, at[0]);
        if (keepsPrevious()) std::swap(previous, at[1]);
    }
    table->set(slot, tag, node, previous);
    ++table->used;
    return true;
}

template <class Node>
bool fxHashIndex<Node>::appendAt(unsigned int freeSlot, Node* node) {
    const unsigned int tag = stored(node->tag);
    if (freeSlot > table->mask || table->tags()[freeSlot] != 0 || table->isFull() ||
        ((freeSlot - table->home(tag)) & table->mask) > mostPassed) {
        return append(node);
    }
    table->set(freeSlot, tag, node, nullptr);
    ++table->used;
    return true;
}

// Keeps (2) and (3): the next slot whose home is not behind the freed one moves into it,
// and so on.
template <class Node>
void fxHashIndex<Node>::remove(const Node* node) {
    const unsigned int* const tags = table->tags();
    unsigned int hole = slotOf(node);
    const unsigned int last = table->mask;
    for (unsigned int i = table->after(hole); tags[i] != 0; i = table->after(i)) {
        if (((i - table->home(tags[i])) & last) < ((i - hole) & last)) continue;
        table->move(i, hole);
        hole = i;
    }
    table->set(hole, 0, nullptr, nullptr);
    --table->used;
}

#endif
