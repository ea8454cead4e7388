// The mechanism of dictionary and set: chains, index, iterators, transcription.
#ifndef FXDS_CONTAINERS_HASHCONTAINER_H
#define FXDS_CONTAINERS_HASHCONTAINER_H

#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include "fxds/Array.h"
#include "fxds/KeyHooks.h"
#include "fxds/Transcriber.h"
#include "fxds/detail/Allocate.h"
#include "fxds/detail/HashNode.h"

// Included by the sources of the containers only. fxHashCore works on the
// fields and hooks of a container, which has declared it a friend.
//
// Tags. The tag of a node is mixed from its key's fingerprint, so equal keys in
// a chain have equal tags, and a search compares keys only when the tags agree.
// Keys read from a stream get their text after the container has been read. So
// they have no tags at first, and searches compare the keys. The first long
// walk sets the tags if every key hangs where its hash puts it and no two hash
// to 0, as all do whose texts are missing.
//
// The index finds the nodes of a tag in the order of their chain, and a found
// node counts only if it hangs in the chain that its hash asks for. So a search
// answers the same node with the index as by walking the chain, even if a
// stream has put a key twice into one chain, or into a wrong one.
//
// Callbacks. Every hook that ends or starts a life may come back in. An entry
// is out of its chain, and all iterators are off it, before its life ends; a
// new one is complete before it is linked in. Walks are done by registered
// iterators, which removal moves on. A value being replaced pins its node.

template <class Container>
struct fxHashCore {
    typedef typename Container::Node Node;
    typedef typename Container::Iter Iter;

    typedef fxHashPlace Place;

    static constexpr unsigned int defaultChains = 31;
    static constexpr unsigned int longWalk = 12;  // nodes after which an index pays
    static constexpr unsigned int maxReadChains = 1U << 24;
    static constexpr size_t maxReadEntryBytes = 1U << 20;

    // Searching.

    static Node* findByHooks(const Container& table, const Container& hooks, const void* key,
                             Place& place);
    /// For a container whose hooks are those of fxKeyHooks<Key>: three virtual
    /// calls cost more than the search. `hooks` does not matter.
    template <class Key>
    static Node* findDirectly(const Container& table, const Container& hooks, const void* key,
                              Place& place);
    static Node* find(const Container& table, const Container& hooks, const void* key,
                      Place& place);
    static Node* find(const Container& table, const void* key);

    // Changing. `hooks` is the table itself or, in a constructor, its source.

    static void makeChains(Container& table, unsigned int chains);
    /// Enters the key with the value that `makeValue(void* at)` constructs.
    template <class MakeValue>
    static Node* insert(Container& table, const Container& hooks, const Place& place,
                        const void* key, MakeValue makeValue);
    /// Enters the key unless it is there; replaces the value of one that is.
    static void add(Container& table, const Container& hooks, const void* key, const void* value);
    static void remove(Container& table, Node* node);
    /// Removes the entry and gives a malloc() block with its value's bytes.
    static void* cut(Container& table, const void* key);
    /// Removes a node from its chain and from under the iterators.
    static void take(Container& table, Node* node);
    static void clear(Container& table);
    /// What is left to a destructor that reaches no hook any more.
    static void freeAll(Container& table);

    // Iterators.

    static void attach(Iter& iter, Container& table);
    static void detach(Iter& iter);
    static void copy(Iter& iter, const Iter& other);
    static void step(Iter& iter);
    static void unregister(Container& table, Iter* iter);
    static void invalidate(const Container& table, const Node* node);

    // Transcription.

    static bool transcribe(Container& table, fxTranscriber& transcriber);

    static char* valueOf(const Container& table, const Node* node) {
        return static_cast<char*>(node->element) + table.keySize;
    }

private:
    static Container*& home(Iter& iter) {
        if constexpr (Container::hasValues) {
            return iter.dict;
        } else {
            return iter.set;
        }
    }
    static size_t blockBytes(const Container& table) {
        size_t bytes = table.keySize;
        if constexpr (Container::hasValues) bytes += table.valueSize;
        return bytes != 0 ? bytes : 1;
    }

    static unsigned int bucketOf(const Container& table, unsigned long hash);
    /// The hooks that a search needs, of a container or of a key type.
    struct VirtualHooks {
        const Container& container;
        unsigned long hash(const void* key) const { return container.hashKey(key); }
        int compare(const void* a, const void* b) const { return container.compareKeys(a, b); }
        unsigned long fingerprint(const void* key, unsigned long hash) const {
            return container.fingerprintKey(key, hash);
        }
    };
    template <class Key>
    struct DirectHooks {
        static const Key& at(const void* key) { return *static_cast<const Key*>(key); }
        static unsigned long hash(const void* key) { return fxKeyHooks<Key>::hash(at(key)); }
        static int compare(const void* a, const void* b) {
            return fxKeyHooks<Key>::compare(at(a), at(b));
        }
        static unsigned long fingerprint(const void* key, unsigned long hash) {
            return fxKeyHooks<Key>::fingerprint(at(key), hash);
        }
    };

    template <class Hooks>
    static Node* search(const Container& table, Hooks hooks, const void* key, Place& place);
    static unsigned int tagOf(unsigned long fingerprint);
    // What a search needs now and then is kept out of its way.
    [[gnu::noinline]] static bool setTags(const Container& table);
    [[gnu::noinline]] static void buildIndex(const Container& table);
    static void link(Container& table, Node* node, unsigned int bucket);
    static void unlink(Container& table, Node* node);
    static void destroy(Container& table, Node* node);
    static void replace(Container& table, const Container& hooks, Node* node, const void* key,
                        const void* value);
    static void detachAll(Container& table);
    static void advance(Iter& iter);
    static void advanceToValid(Iter& iter);

    static bool xdrNumber(fxTranscriber& transcriber, unsigned int& number, unsigned int follower);
    static bool xdrSizes(Container& table, fxTranscriber& transcriber, unsigned int& entries);
    static bool readAll(Container& table, fxTranscriber& transcriber);
    static bool readChains(Container& table, fxTranscriber& transcriber, unsigned int entries);
    static bool readEntry(Container& table, fxTranscriber& transcriber);
    static bool writeEntries(Container& table, fxTranscriber& transcriber);
};

/// XOR of the whole 8-byte words of a key: the default hash of both containers.
inline unsigned long fxHashWords(const void* key, unsigned int keySize) {
    unsigned long hash = 0;
    const char* at = static_cast<const char*>(key);
    for (unsigned int left = keySize; left >= sizeof hash; left -= 8, at += 8) {
        unsigned long word;
        std::memcpy(&word, at, sizeof word);
        hash ^= word;
    }
    return hash;
}

// The index.

template <class Node>
unsigned int fxHashIndex<Node>::slotOf(unsigned int tag) const {
    unsigned int slot = home(tag);
    while (slots[slot].node != nullptr && slots[slot].tag != tag) slot = (slot + 1) & mask;
    return slot;
}

template <class Node>
void fxHashIndex<Node>::allocate(unsigned int bits) {
    slots = static_cast<Slot*>(fxNewZeroBlock(sizeof(Slot) << bits));
    mask = (1U << bits) - 1;
    shift = 32 - bits;
    used = 0;
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
    std::free(slots);
    slots = nullptr;
}

template <class Node>
void fxHashIndex<Node>::grow() {
    Slot* const old = slots;
    const unsigned int oldMask = mask;
    const unsigned int oldUsed = used;
    allocate(33 - shift);
    used = oldUsed;
    for (unsigned int i = 0; i <= oldMask; ++i) {
        if (old[i].node != nullptr) slots[slotOf(old[i].tag)] = old[i];
    }
    std::free(old);
}

template <class Node>
void fxHashIndex<Node>::insert(Node* node) {
    unsigned int slot = slotOf(node->tag);
    if (slots[slot].node == nullptr) {
        if (used >= mask - mask / 4 && shift > 1) {
            grow();
            slot = slotOf(node->tag);
        }
        slots[slot].tag = node->tag;
        ++used;
    }
    node->alike = slots[slot].node;
    slots[slot].node = node;
}

// A slot that gets free is filled with the next one that may stand there, and
// so on, so that no search stops too early.
template <class Node>
void fxHashIndex<Node>::remove(Node* node) {
    unsigned int hole = slotOf(node->tag);
    Node** link = &slots[hole].node;
    while (*link != node) link = &(*link)->alike;
    *link = node->alike;
    if (slots[hole].node != nullptr) return;
    --used;
    for (unsigned int i = (hole + 1) & mask; slots[i].node != nullptr; i = (i + 1) & mask) {
        if (((i - home(slots[i].tag)) & mask) < ((i - hole) & mask)) continue;
        slots[hole] = slots[i];
        slots[i].node = nullptr;
        hole = i;
    }
}

// The store of nodes.

template <class Node>
Node* fxNodeStore<Node>::make(size_t blockBytes) {
#ifdef FXDS_CHECKED
    return new Node(fxNewBlock(blockBytes));
#else
    if (blockBytes > bytesBehind && inUse == 0) setBytesBehind(blockBytes);
    if (blockBytes > bytesBehind) return adopt(fxNewBlock(blockBytes));
    ++inUse;
    Node* const node = static_cast<Node*>(place());
    return new (node) Node(behind(node));
#endif
}

template <class Node>
Node* fxNodeStore<Node>::adopt(void* block) {
#ifdef FXDS_CHECKED
    return new Node(block);
#else
    ++inUse;
    return new (place()) Node(block);
#endif
}

template <class Node>
void fxNodeStore<Node>::drop(Node* node) {
#ifdef FXDS_CHECKED
    delete node;
#else
    --inUse;
    if (node->element == behind(node)) node->element = nullptr;
    node->~Node();
    freed = new (node) Free{freed};
#endif
}

template <class Node>
void fxNodeStore<Node>::setBytesBehind(size_t blockBytes) {
    if (blockBytes > mostBytesBehind) return;
    shrink();
    bytesBehind = static_cast<unsigned int>(blockBytes);
    const size_t bytes = sizeof(Node) + blockBytes + blockAlignment - 1;
    step = static_cast<unsigned int>(bytes - bytes % blockAlignment);
}

// A chunk starts with its link and goes on so that the block of the first node
// is aligned. The entry of a text and a pointer has the size of a cache
// line, and is laid such that all that a search looks at is in one.
template <class Node>
void* fxNodeStore<Node>::place() {
    if (freed != nullptr) return std::exchange(freed, freed->next);
    if (freshNodes == 0) {
        static_assert((sizeof(Chunk) + sizeof(Node)) % blockAlignment == 0);
        const size_t bytes = sizeof(Chunk) + size_t{perChunk} * step + cacheLine - blockAlignment;
        char* const chunk = static_cast<char*>(fxNewBlock(bytes));
        chunks = new (chunk) Chunk{chunks};
        const size_t beyondLine = reinterpret_cast<uintptr_t>(chunk) % cacheLine;
        fresh = chunk + sizeof(Chunk) + (cacheLine - beyondLine) % cacheLine;
        freshNodes = perChunk;
        if (perChunk < mostPerChunk) perChunk *= 2;
    }
    --freshNodes;
    return std::exchange(fresh, fresh + step);
}

template <class Node>
void fxNodeStore<Node>::shrink() {
    if (inUse != 0) return;
    while (chunks != nullptr) std::free(std::exchange(chunks, chunks->next));
    freed = nullptr;
    freshNodes = 0;
    perChunk = leastPerChunk;
}

// Searching.

template <class Container>
unsigned int fxHashCore<Container>::bucketOf(const Container& table, unsigned long hash) {
    __extension__ typedef unsigned __int128 Wide;
    const unsigned int chains = table.buckets.length();
    auto& extra = table.extra;
    if (extra.divisor != chains) {
        extra.divisor = chains;
        extra.reciprocal = ~0UL / chains;
    }
    // The quotient comes out right or 1 too small.
    const unsigned long quotient =
        static_cast<unsigned long>((Wide(hash) * extra.reciprocal) >> 64);
    const unsigned long rest = hash - quotient * chains;
    return static_cast<unsigned int>(rest >= chains ? rest - chains : rest);
}

// Fibonacci hashing: the upper half of the product depends on all bits below.
template <class Container>
unsigned int fxHashCore<Container>::tagOf(unsigned long fingerprint) {
    return static_cast<unsigned int>((fingerprint * 0x9E3779B97F4A7C15UL) >> 32);
}

template <class Container>
bool fxHashCore<Container>::setTags(const Container& table) {
    bool hasZero = false;
    for (Node* node : table.buckets) {
        for (; node != nullptr; node = node->next) {
            const void* const key = node->element;
            const unsigned long hash = table.hashKey(key);
            if (bucketOf(table, hash) != node->bucket) return false;
            if (hash == 0 && std::exchange(hasZero, true)) return false;
            node->tag = tagOf(table.fingerprintKey(key, hash));
        }
    }
    table.extra.hasTags = true;
    return true;
}

// Entering a node makes it the first of its tag, so each chain is entered from
// its end.
template <class Container>
void fxHashCore<Container>::buildIndex(const Container& table) {
    auto& index = table.extra.index;
    index.build(table.extra.linked);
    for (Node* node : table.buckets) {
        if (node == nullptr) continue;
        while (node->next != nullptr) node = node->next;
        for (; node != nullptr; node = node->previous) index.insert(node);
    }
}

template <class Container>
template <class Hooks>
typename fxHashCore<Container>::Node* fxHashCore<Container>::search(const Container& table,
                                                                    Hooks hooks, const void* key,
                                                                    Place& place) {
    place.hash = hooks.hash(key);
    place.chains = table.buckets.length();
    place.bucket = bucketOf(table, place.hash);
    place.tag = tagOf(hooks.fingerprint(key, place.hash));
    if (table.extra.index.isBuilt()) {
        Node* node = table.extra.index.first(place.tag);
        while (node != nullptr &&
               (node->bucket != place.bucket || hooks.compare(key, node->element) != 0)) {
            node = node->alike;
        }
        return node;
    }
    const bool hasTags = table.extra.hasTags;
    Node* node = table.buckets[place.bucket];
    unsigned int walked = 0;
    while (node != nullptr &&
           ((hasTags && node->tag != place.tag) || hooks.compare(key, node->element) != 0)) {
        node = node->next;
        ++walked;
    }
    if (walked > longWalk && (hasTags || setTags(table))) buildIndex(table);
    return node;
}

template <class Container>
typename fxHashCore<Container>::Node* fxHashCore<Container>::findByHooks(const Container& table,
                                                                         const Container& hooks,
                                                                         const void* key,
                                                                         Place& place) {
    return search(table, VirtualHooks{hooks}, key, place);
}

template <class Container>
template <class Key>
typename fxHashCore<Container>::Node* fxHashCore<Container>::findDirectly(const Container& table,
                                                                          const Container&,
                                                                          const void* key,
                                                                          Place& place) {
    return search(table, DirectHooks<Key>(), key, place);
}

template <class Container>
typename fxHashCore<Container>::Node* fxHashCore<Container>::find(const Container& table,
                                                                  const Container& hooks,
                                                                  const void* key, Place& place) {
    auto*& finder = hooks.extra.finder;
    if (finder == nullptr) finder = hooks.finder();
    return finder(table, hooks, key, place);
}

template <class Container>
typename fxHashCore<Container>::Node* fxHashCore<Container>::find(const Container& table,
                                                                  const void* key) {
    Place place;
    return table.buckets.isEmpty() ? nullptr : find(table, table, key, place);
}

// Changing.

template <class Container>
void fxHashCore<Container>::makeChains(Container& table, unsigned int chains) {
    table.buckets.resize(chains);
}

template <class Container>
void fxHashCore<Container>::link(Container& table, Node* node, unsigned int bucket) {
    Node*& head = table.buckets[bucket];
    node->bucket = bucket & 0x3FFFFFFFU;
    node->next = head;
    if (head != nullptr) head->previous = node;
    head = node;
    ++table.count;
    ++table.extra.linked;
    if (table.extra.index.isBuilt()) table.extra.index.insert(node);
}

template <class Container>
void fxHashCore<Container>::unlink(Container& table, Node* node) {
    if (node->previous != nullptr) {
        node->previous->next = node->next;
    } else {
        table.buckets[node->bucket] = node->next;
    }
    if (node->next != nullptr) node->next->previous = node->previous;
    --table.count;
    --table.extra.linked;
    if (table.extra.index.isBuilt()) table.extra.index.remove(node);
}

template <class Container>
void fxHashCore<Container>::take(Container& table, Node* node) {
    unlink(table, node);
    invalidate(table, node);
}

// The value of a pinned node is ended, and the node deleted, by who pinned it.
template <class Container>
void fxHashCore<Container>::destroy(Container& table, Node* node) {
    const bool isPinned = node->isPinned;
    node->isRemoved = 1;
    table.destroyKey(node->element);
    if (isPinned) return;
    if constexpr (Container::hasValues) table.destroyValue(valueOf(table, node));
    table.extra.nodes.drop(node);
}

template <class Container>
void fxHashCore<Container>::remove(Container& table, Node* node) {
    take(table, node);
    destroy(table, node);
}

template <class Container>
void* fxHashCore<Container>::cut(Container& table, const void* key) {
    Node* const node = find(table, key);
    if (node == nullptr || node->isPinned) return nullptr;
    take(table, node);
    void* const value = fxNewBlock(table.valueSize != 0 ? table.valueSize : 1);
    std::memcpy(value, valueOf(table, node), table.valueSize);
    table.destroyKey(node->element);
    table.extra.nodes.drop(node);
    return value;
}

template <class Container>
template <class MakeValue>
typename fxHashCore<Container>::Node* fxHashCore<Container>::insert(Container& table,
                                                                    const Container& hooks,
                                                                    const Place& place,
                                                                    const void* key,
                                                                    MakeValue makeValue) {
    Node* const node = table.extra.nodes.make(blockBytes(table));
    hooks.copyKey(key, node->element);
    makeValue(valueOf(table, node));
    node->tag = place.tag;
    // A hook that came back in may have changed the number of chains.
    const bool isSame = table.buckets.length() == place.chains;
    if (table.buckets.isEmpty()) makeChains(table, defaultChains);
    link(table, node, isSame ? place.bucket : bucketOf(table, place.hash));
    return node;
}

template <class Container>
void fxHashCore<Container>::add(Container& table, const Container& hooks, const void* key,
                                const void* value) {
    if (table.buckets.isEmpty()) makeChains(table, defaultChains);
    Place place;
    Node* const node = find(table, hooks, key, place);
    if (node == nullptr) {
        insert(table, hooks, place, key, [&](void* at) {
            if constexpr (Container::hasValues) hooks.copyValue(value, at);
            static_cast<void>(at);
        });
    } else if constexpr (Container::hasValues) {
        replace(table, hooks, node, key, value);
    }
}

// The old value's end may remove the entry, and then there is nothing left to
// copy into; or set it again, and then this value is set after that one.
template <class Container>
void fxHashCore<Container>::replace(Container& table, const Container& hooks, Node* node,
                                    const void* key, const void* value) {
    char* const stored = valueOf(table, node);
    if (value == stored) return;
    bool isGone = node->isPinned;
    if (isGone) {
        remove(table, node);
    } else {
        node->isPinned = 1;
        hooks.destroyValue(stored);
        isGone = node->isRemoved;
        if (isGone) table.extra.nodes.drop(node);
    }
    if (isGone) {
        add(table, hooks, key, value);
        return;
    }
    hooks.copyValue(value, stored);
    node->isPinned = 0;
    if (node->isRemoved) {
        hooks.destroyValue(stored);
        table.extra.nodes.drop(node);
    }
}

template <class Container>
void fxHashCore<Container>::clear(Container& table) {
    detachAll(table);
    table.extra.index.drop();
    Iter walk;
    attach(walk, table);
    while (walk.node != nullptr) {  // removal moves it on
        remove(table, walk.node);
    }
    table.extra.nodes.shrink();
}

template <class Container>
void fxHashCore<Container>::freeAll(Container& table) {
    detachAll(table);
    if (table.extra.linked != 0) {
        for (Node* node : table.buckets) {
            while (node != nullptr) table.extra.nodes.drop(std::exchange(node, node->next));
        }
    }
}

// Iterators. One that is attached stands on a node: it detaches at the end. The
// chains of an empty table are not looked at, as a stream may claim many.

template <class Container>
void fxHashCore<Container>::attach(Iter& iter, Container& table) {
    home(iter) = &table;
    iter.bucketIndex = 0;
    iter.moved = 0;
    iter.node = table.buckets.isEmpty() ? nullptr : table.buckets[0];
    table.addIter(&iter);
    if (iter.node == nullptr) advanceToValid(iter);
}

template <class Container>
void fxHashCore<Container>::detach(Iter& iter) {
    if (home(iter) != nullptr) home(iter)->removeIter(&iter);
    home(iter) = nullptr;
}

template <class Container>
void fxHashCore<Container>::copy(Iter& iter, const Iter& other) {
    Container* const table = home(const_cast<Iter&>(other));
    home(iter) = table;
    iter.bucketIndex = other.bucketIndex;
    iter.moved = other.moved & 1U;
    iter.node = other.node;
    if (table != nullptr) table->addIter(&iter);
}

template <class Container>
void fxHashCore<Container>::step(Iter& iter) {
    if (home(iter) == nullptr) return;
    if (iter.moved) {
        iter.moved = 0;
    } else {
        advance(iter);
    }
}

template <class Container>
void fxHashCore<Container>::advance(Iter& iter) {
    iter.node = iter.node->next;
    if (iter.node == nullptr) advanceToValid(iter);
}

template <class Container>
void fxHashCore<Container>::advanceToValid(Iter& iter) {
    Container& table = *home(iter);
    const unsigned int chains = table.buckets.length();
    const unsigned int end = table.extra.linked != 0 ? chains : 0;
    for (unsigned int i = iter.bucketIndex + 1; i < end; ++i) {
        if (table.buckets[i] == nullptr) continue;
        iter.bucketIndex = i;
        iter.node = table.buckets[i];
        iter.moved = 0;
        return;
    }
    iter.bucketIndex = chains;
    table.removeIter(&iter);
    home(iter) = nullptr;
    iter.moved = 1;
}

template <class Container>
void fxHashCore<Container>::unregister(Container& table, Iter* iter) {
    const unsigned int position = table.iters.find(iter);
    if (position != fxArray::notFound) table.iters.remove(position);
}

// An iterator that ends takes itself off the registry, and the next one is
// then at its position.
template <class Container>
void fxHashCore<Container>::invalidate(const Container& table, const Node* node) {
    unsigned int i = 0;
    while (i < table.iters.length()) {
        Iter* const iter = table.iters[i];
        if (iter->node == node) {
            advance(*iter);
            if (home(*iter) == nullptr) continue;
            iter->moved = 1;
        }
        ++i;
    }
}

template <class Container>
void fxHashCore<Container>::detachAll(Container& table) {
    for (Iter* iter : table.iters) {
        home(*iter) = nullptr;
        iter->node = nullptr;
        iter->moved = 1;
    }
    table.iters.resize(0);
}

// Transcription. Each number is a word of 8 bytes, in memory order:
//
//     number  4 | the field that follows it in the container, or 0  4
//
//     count, key size, (value size,) number of chains,
//     then for each entry: key, (value,) number of its chain

template <class Container>
bool fxHashCore<Container>::transcribe(Container& table, fxTranscriber& transcriber) {
    if (!transcriber.isReading()) return writeEntries(table, transcriber);
    clear(table);
    if (transcriber.attempt([&] { return readAll(table, transcriber); })) return true;
    clear(table);
    table.count = table.extra.linked;
    return false;
}

template <class Container>
bool fxHashCore<Container>::readAll(Container& table, fxTranscriber& transcriber) {
    unsigned int entries = 0;
    if (table.extra.linked != 0 || !xdrSizes(table, transcriber, entries) ||
        !readChains(table, transcriber, entries)) {
        return false;
    }
    for (unsigned int i = 0; i < entries; ++i) {
        if (!readEntry(table, transcriber)) return false;
    }
    return true;
}

// Foreign byte orders are undone in groups of 4 bytes, so the pair keeps its
// order in memory whatever the machine.
template <class Container>
bool fxHashCore<Container>::xdrNumber(fxTranscriber& transcriber, unsigned int& number,
                                      unsigned int follower) {
    unsigned int pair[2] = {number, follower};
    unsigned long word;
    static_assert(sizeof pair == sizeof word);
    std::memcpy(&word, pair, sizeof word);
    if (!transcriber.xdr(&word, 1)) return false;
    std::memcpy(pair, &word, sizeof word);
    if (transcriber.isReading()) number = pair[0];
    return true;
}

// A container that knows its sizes takes no others; one that does not takes
// those of the stream, within reason.
template <class Container>
bool fxHashCore<Container>::xdrSizes(Container& table, fxTranscriber& transcriber,
                                     unsigned int& entries) {
    unsigned int keySize = table.keySize;
    unsigned int valueSize = 0;
    if constexpr (Container::hasValues) valueSize = table.valueSize;
    const bool isKnown = keySize != 0;
    const unsigned int knownValueSize = valueSize;

    if (!xdrNumber(transcriber, entries, keySize) || !xdrNumber(transcriber, keySize, valueSize) ||
        (Container::hasValues && !xdrNumber(transcriber, valueSize, 0))) {
        return false;
    }
    if (!transcriber.isReading()) return true;
    if (isKnown) return keySize == table.keySize && valueSize == knownValueSize;
    if (size_t{keySize} + valueSize > maxReadEntryBytes) return false;
    if (keySize == 0 && entries != 0) return false;
    table.keySize = keySize;
    if constexpr (Container::hasValues) table.valueSize = valueSize;
    return true;
}

// The new table is zeroed by the system as it is used, so that a number alone
// takes no memory.
template <class Container>
bool fxHashCore<Container>::readChains(Container& table, fxTranscriber& transcriber,
                                       unsigned int entries) {
    table.count = 0;
    unsigned int chains = 0;
    if (!xdrNumber(transcriber, chains, 0) || chains > maxReadChains ||
        (chains == 0 && entries != 0)) {
        return false;
    }
    if (chains == table.buckets.length()) return true;
    void* const heads = chains != 0 ? std::calloc(chains, sizeof(Node*)) : nullptr;
    if (chains != 0 && heads == nullptr) return false;
    constexpr unsigned int headBytes = sizeof(Node*);
    table.buckets = decltype(table.buckets)(headBytes, chains * headBytes, heads);
    return true;
}

template <class Container>
bool fxHashCore<Container>::readEntry(Container& table, fxTranscriber& transcriber) {
    char* const block = static_cast<char*>(std::calloc(1, blockBytes(table)));
    if (block == nullptr) return false;
    if (!table.xdrKey(transcriber, block)) {
        std::free(block);
        return false;
    }
    if constexpr (Container::hasValues) {
        void* const value = block + table.keySize;
        if (!table.xdrValue(transcriber, value)) {
            table.destroyKey(block);
            std::free(block);
            return false;
        }
    }
    Node* const node = table.extra.nodes.adopt(block);
    unsigned int bucket = 0;
    if (!xdrNumber(transcriber, bucket, 0) || bucket >= table.buckets.length()) {
        destroy(table, node);
        return false;
    }
    table.extra.index.drop();
    table.extra.hasTags = false;
    link(table, node, bucket);
    return true;
}

template <class Container>
bool fxHashCore<Container>::writeEntries(Container& table, fxTranscriber& transcriber) {
    unsigned int entries = table.count;
    unsigned int chains = table.buckets.length();
    if (!xdrSizes(table, transcriber, entries) || !xdrNumber(transcriber, chains, 0)) return false;
    Iter walk;
    for (attach(walk, table); walk.node != nullptr; step(walk)) {
        Node* const node = walk.node;
        unsigned int bucket = walk.bucketIndex;
        if (!table.xdrKey(transcriber, node->element)) return false;
        if constexpr (Container::hasValues) {
            if (walk.node != node) return false;  // the hook removed it
            if (!table.xdrValue(transcriber, valueOf(table, node))) return false;
        }
        if (!xdrNumber(transcriber, bucket, 0)) return false;
    }
    return true;
}

#endif
