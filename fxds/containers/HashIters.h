// The iterators of dictionary and set. Private to the library.
#ifndef FXDS_CONTAINERS_HASHITERS_H
#define FXDS_CONTAINERS_HASHITERS_H

#include "fxds/Array.h"

// `Core` is the container's fxHashCore, which gives its chains, its registry, and the
// container of an iterator.
//
// Invariants, between any two calls:
// (1) An iterator is in the registry of its container exactly while it has one, and then
//     `node` is a linked entry, in the chain `bucketIndex`.
// (2) `moved` is set where `node` is the successor of a removed entry, which was current;
//     the next step clears it and stays there.
// (3) A removal first moves the iterators at its entry to the successor.

template <class Core, class Container, class Node, class Iter>
struct fxHashIters {
    // The chains of an empty table are not looked at, as a stream may claim many.

    static void attach(Iter& iter, Container& table) {
        Core::home(iter) = &table;
        iter.bucketIndex = 0;
        iter.moved = 0;
        iter.node = Core::chains(table).isEmpty() ? nullptr : Core::chains(table)[0];
        table.addIter(&iter);
        if (iter.node == nullptr) advanceToValid(iter);
    }

    static void detach(Iter& iter) {
        if (Core::home(iter) != nullptr) Core::home(iter)->removeIter(&iter);
        Core::home(iter) = nullptr;
    }

    static void copy(Iter& iter, const Iter& other) {
        Container* const table = Core::home(const_cast<Iter&>(other));
        Core::home(iter) = table;
        iter.bucketIndex = other.bucketIndex;
        iter.moved = other.moved & 1U;
        iter.node = other.node;
        if (table != nullptr) table->addIter(&iter);
    }

    static void step(Iter& iter) {
        if (Core::home(iter) == nullptr) return;
        if (!iter.moved) return advance(iter);
        iter.moved = 0;
    }

    static void unregister(Container& table, Iter* iter) {
        const unsigned int position = Core::registry(table).find(iter);
        if (position != fxArray::notFound) Core::registry(table).remove(position);
    }

    // An iterator that ends takes itself off the registry, and the next one is
    // then at its position.
    static void invalidate(const Container& table, const Node* node) {
        unsigned int i = 0;
        while (i < Core::registry(table).length()) {
            Iter* const iter = Core::registry(table)[i];
            if (iter->node == node) {
                advance(*iter);
                if (Core::home(*iter) == nullptr) continue;
                iter->moved = 1;
            }
            ++i;
        }
    }

    static void detachAll(Container& table) {
        for (Iter* iter : Core::registry(table)) {
            Core::home(*iter) = nullptr;
            iter->node = nullptr;
            iter->moved = 1;
        }
        Core::registry(table).resize(0);
    }

private:
    static void advance(Iter& iter) {
        iter.node = iter.node->next;
        if (iter.node == nullptr) advanceToValid(iter);
    }

    static void advanceToValid(Iter& iter) {
        Container& table = *Core::home(iter);
        const unsigned int chains = Core::chains(table).length();
        const unsigned int end = !Core::isEmpty(table) ? chains : 0;
        for (unsigned int i = iter.bucketIndex + 1; i < end; ++i) {
            if (Core::chains(table)[i] == nullptr) continue;
            iter.bucketIndex = i;
            iter.node = Core::chains(table)[i];
            iter.moved = 0;
            return;
        }
        iter.bucketIndex = chains;
        table.removeIter(&iter);
        Core::home(iter) = nullptr;
        iter.moved = 1;
    }
};

#endif
