// The index of hash containers: an open-addressing table from tag to nodes.
// Part of the public headers, not of the interface.
#ifndef FXDS_DETAIL_HASHINDEX_H
#define FXDS_DETAIL_HASHINDEX_H

#include <cstdlib>
#include <utility>

#include "fxds/detail/Allocate.h"

// The containers are tables of chains of a fixed number. A search that has
// walked further than longWalk nodes makes its container build an index, after
// which no chain is walked any more.
//
// A tag is a number of 32 bits whose upper bits are well mixed; its upper bits
// are the slot where its search begins (its home). A slot holds the first node
// of its tag, and the others hang on that one through `alike`. A Node has the
// fields `tag` and `alike`, which the index may use.
//
// Invariants, while the index is built:
// (1) The number of places is a power of 2, and at least one slot is free.
// (2) Each tag has at most one slot, and no slot between its home and that one
//     is free.
// (3) The nodes of a slot have its tag. The one that was entered last is first.

template <class Node>
class fxHashIndex {
public:
    /// Nodes of a chain after which a search is long enough to pay for an index.
    static constexpr unsigned int longWalk = 12;

    fxHashIndex() = default;
    fxHashIndex(const fxHashIndex&) = delete;
    fxHashIndex& operator=(const fxHashIndex&) = delete;
    ~fxHashIndex() { drop(); }

    bool isBuilt() const { return table != nullptr; }
    /// The first node of `tag`, or null. Requires, as all below: isBuilt().
    Node* first(unsigned int tag) const { return table->places()[slotOf(tag)].node; }
    /// Makes an empty index for about `expected` nodes, built or not.
    void build(unsigned int expected);
    /// Enters a node as the first of its tag.
    void insert(Node* node);
    void remove(Node* node);
    /// Forgets all nodes; it is not built then. Allowed at any time.
    void drop();
    void swap(fxHashIndex& other) { std::swap(table, other.table); }

private:
    struct Slot {
        Node* node;  // null in a free slot
        unsigned int tag;
    };

    // The places lie behind it: most containers have none, and keep one pointer.
    struct Table {
        unsigned int home(unsigned int tag) const { return tag >> shift; }
        Slot* places() { return reinterpret_cast<Slot*>(this + 1); }

        unsigned int mask;   // number of places less 1
        unsigned int shift;  // what leaves the home of a tag
        unsigned int used;   // places that are not free
        unsigned int unnamed;
    };
    static_assert(sizeof(Table) % alignof(Slot) == 0);

    unsigned int slotOf(unsigned int tag) const;
    void allocate(unsigned int bits);
    void grow();

    Table* table = nullptr;
};

// The slot of the tag, or the free one where it belongs.
template <class Node>
unsigned int fxHashIndex<Node>::slotOf(unsigned int tag) const {
    const Slot* const places = table->places();
    unsigned int slot = table->home(tag);
    while (places[slot].node != nullptr && places[slot].tag != tag) slot = (slot + 1) & table->mask;
    return slot;
}

template <class Node>
void fxHashIndex<Node>::allocate(unsigned int bits) {
    table = static_cast<Table*>(fxNewZeroBlock(sizeof(Table) + (sizeof(Slot) << bits)));
    table->mask = (1U << bits) - 1;
    table->shift = 32 - bits;
}

template <class Node>
void fxHashIndex<Node>::build(unsigned int expected) {
    drop();
    unsigned int bits = 6;
    while (bits < 31 && (1U << bits) / 2 < expected) ++bits;
    allocate(bits);
}

template <class Node>
void fxHashIndex<Node>::drop() {
    std::free(table);
    table = nullptr;
}

template <class Node>
void fxHashIndex<Node>::grow() {
    Table* const old = table;
    const Slot* const places = old->places();
    allocate(33 - old->shift);
    table->used = old->used;
    for (unsigned int i = 0; i <= old->mask; ++i) {
        if (places[i].node != nullptr) table->places()[slotOf(places[i].tag)] = places[i];
    }
    std::free(old);
}

template <class Node>
void fxHashIndex<Node>::insert(Node* node) {
    Slot* slot = table->places() + slotOf(node->tag);
    if (slot->node == nullptr) {
        if (table->used >= table->mask - table->mask / 4 && table->shift > 1) {
            grow();
            slot = table->places() + slotOf(node->tag);
        }
        slot->tag = node->tag;
        ++table->used;
    }
    node->alike = slot->node;
    slot->node = node;
}

// Keeps (2): a slot that gets free is filled with the next one whose home is
// not behind it, and so on.
template <class Node>
void fxHashIndex<Node>::remove(Node* node) {
    Slot* const places = table->places();
    unsigned int hole = slotOf(node->tag);
    Node** link = &places[hole].node;
    while (*link != node) link = &(*link)->alike;
    *link = node->alike;
    if (places[hole].node != nullptr) return;
    --table->used;
    const unsigned int last = table->mask;
    for (unsigned int i = (hole + 1) & last; places[i].node != nullptr; i = (i + 1) & last) {
        if (((i - table->home(places[i].tag)) & last) < ((i - hole) & last)) continue;
        places[hole] = places[i];
        places[i].node = nullptr;
        hole = i;
    }
}

#endif
