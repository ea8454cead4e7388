// The state of dictionaries and sets besides their fields. Part of the public
// headers, not of the interface.
#ifndef FXDS_DETAIL_HASHEXTRA_H
#define FXDS_DETAIL_HASHEXTRA_H

#include <cstddef>

#include "fxds/detail/HashIndex.h"
#include "fxds/detail/HashNode.h"
#include "fxds/detail/NodeStore.h"
#include "fxds/detail/Walk.h"

/// The place of a key.
struct fxHashPlace {
    unsigned int chains;  // their number when the place was computed
    unsigned int bucket;
    unsigned int tag;
    unsigned int freeSlot;  // of the index, where the search has ended, or noSlot
};

/// A search of `table` for a key, with the hooks of `hooks`.
template <class Container, class Node>
using fxHashFinder = Node*(const Container& table, const Container& hooks, const void* key,
                           fxHashPlace& place);

/// An operation that has arguments and may call hooks. Not a walk over nodes, but
/// registered as one: the table checks whether a value is its argument.
struct fxHashHold : fxWalk<fxHashHold> {
    fxHashHold(fxWalkList<fxHashHold>& list_, const void* value_) : fxWalk(list_), value(value_) {}
    const void* value;  // that is to be entered, or null
};

/// The state of a container besides its chains; none of it is observable.
template <class Container, class Node>
struct fxHashExtra {
    fxHashFinder<Container, Node>* finder = nullptr;  // chosen by the first search
    fxNodeStore<Node> nodes;
    fxHashIndex<Node> index;
    fxWalkList<fxHashHold> holds;           // under way
    Node* lastRemoved = nullptr;            // ring of the nodes removed meanwhile
    unsigned long additions = 0;            // ever made
    size_t taggedFor = 0;                   // hash of the class whose hooks have made the tags
    unsigned long reciprocal = ~0UL / ~0U;  // 2^64 / divisor, which saves the division
    unsigned int divisor = ~0U;             // a number of chains
    unsigned int plainChains = ~0U;         // the divisor if nothing is special: see isPlain()
    unsigned int linked = 0;                // entries in the chains
    unsigned int paddedKeyBytes = 0;        // a key size that includes keyPadding
    unsigned char keyPadding = 0;           // bytes that align the value
    bool hasLate = false;                   // a chain may have late nodes
    bool hasOwnHooks = false;               // the hooks are those of a ready-made class
    bool isUnindexable = false;             // an index has dropped itself
    unsigned char textRoom = 0;             // bytes for its key's text that each entry ends in

    /// Whether the hooks are those of a ready-made class, no index is built, and if keys are
    /// fxStr, none is late and there is room for their texts. Some operation has seen that.
    bool isPlain(unsigned int chains) const { return plainChains == chains; }
    void forgetPlain() { plainChains = ~0U; }
    void dropTexts() {
        textRoom = 0;
        forgetPlain();
    }
    void forgetFinder() {
        finder = nullptr;
        hasOwnHooks = false;
        dropTexts();
    }

    /// The chain of a hash. Requires: there are `chains` of them, at least one.
    unsigned int chainOf(unsigned long hash, unsigned int chains) {
        if (__builtin_expect(divisor != chains, 0)) {
            divisor = chains;
            reciprocal = ~0UL / chains;
            forgetPlain();
        }
        return restOf(hash, chains);
    }
    /// The same for `chains` equal to the divisor.
    unsigned int restOf(unsigned long hash, unsigned int chains) const {
        __extension__ typedef unsigned __int128 Wide;
        // The quotient is right or 1 too small.
        const auto quotient = static_cast<unsigned long>((Wide(hash) * reciprocal) >> 64);
        const unsigned long rest = hash - quotient * chains;
        return static_cast<unsigned int>(rest >= chains ? rest - chains : rest);
    }
    /// The same for hashes that mostly have 32 bits: the lower 64 bits of the product with
    /// the reciprocal are the fraction, which gives the rest exactly.
    unsigned int restOfShort(unsigned long hash, unsigned int chains) const {
        __extension__ typedef unsigned __int128 Wide;
        if (hash >> 32 != 0) return restOf(hash, chains);
        return static_cast<unsigned int>((Wide((reciprocal + 1) * hash) * chains) >> 64);
    }
};

/// The result of `i++` for the iterator of a dictionary or a set, for `*i++`: its former
/// position, as long as that entry exists.
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
