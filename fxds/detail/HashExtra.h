// What dictionaries and sets keep besides their fields. Part of the public
// headers, not of the interface.
#ifndef FXDS_DETAIL_HASHEXTRA_H
#define FXDS_DETAIL_HASHEXTRA_H

#include "fxds/detail/HashIndex.h"
#include "fxds/detail/HashNode.h"
#include "fxds/detail/NodeStore.h"
#include "fxds/detail/Walk.h"

/// Where a key belongs.
struct fxHashPlace {
    unsigned long hash;
    unsigned int chains;  // their number when the place was computed
    unsigned int bucket;
    unsigned int tag;
};

/// A search of `table` for a key, with the hooks of `hooks`.
template <class Container, class Node>
using fxHashFinder = Node*(const Container& table, const Container& hooks, const void* key,
                           fxHashPlace& place);

/// An operation that has arguments and may call hooks. Not a walk over nodes, but
/// registered as one: the table asks it whether a value is its argument.
struct fxHashHold : fxWalk<fxHashHold> {
    fxHashHold(fxWalkList<fxHashHold>& list_, const void* value_) : fxWalk(list_), value(value_) {}
    const void* value;  // that is to be entered, or null
};

/// What a container keeps besides its chains; nothing of it shows.
template <class Container, class Node>
struct fxHashExtra {
    fxHashFinder<Container, Node>* finder = nullptr;  // chosen by the first search
    fxNodeStore<Node> nodes;
    fxHashIndex<Node> index;
    unsigned int keyBytes = 0;  // of a key that is stored in storedKeyBytes
    unsigned int storedKeyBytes = 0;
    unsigned int linked = 0;       // entries in the chains
    unsigned int divisor = 0;      // a bucket count and its reciprocal 2^64 / n,
    unsigned long reciprocal = 0;  // which save the division
    unsigned long additions = 0;   // ever made
    fxWalkList<fxHashHold> holds;  // under way
    Node* lastRemoved = nullptr;   // ring of what was removed meanwhile
};

/// What `i++` leaves of a dictionary's or a set's iterator, for `*i++`: where it
/// stood, as long as that entry is there.
template <class Iter>
class fxHashPassed {
public:
    explicit fxHashPassed(const Iter& iter) : key(iter.getKey()), value(valueOf(iter, 0)) {}
    decltype(auto) operator*() const { return Iter::entry(key, value); }

private:
    template <class Walk>
    static auto valueOf(const Walk& iter, int) -> decltype(iter.getValue()) {
        return iter.getValue();
    }
    template <class Walk>
    static void* valueOf(const Walk&, long) {
        return nullptr;
    }

    void* const key;
    void* const value;
};

#endif
