// What the nodes of dictionaries and sets share, and the index that finds them.
#ifndef FXDS_DETAIL_HASHNODE_H
#define FXDS_DETAIL_HASHNODE_H

#include <cstddef>
#include <cstdlib>

#include "fxds/Config.h"

// The containers are tables of singly linked chains of a fixed number, and that
// is all that shows. Two things are added so that crowded chains stay fast.
// Each node keeps a tag of its key, so that a search rejects a node without
// touching the key, and a link back, so that a node is unlinked without a walk.
// And once a search has had to walk far, an index from tag to nodes is built
// and kept, so that no chain is walked any more.

/// The mechanism itself; see containers/HashContainer.h, which only the containers include.
template <class Container>
struct fxHashCore;

/// The entry of a chain; `Self` is the class that derives from this one.
template <class Self>
class fxHashNode {
public:
    /// Adopts `block`, which is malloc() memory; a store that has made it of
    /// something else takes it back before the node ends.
    explicit fxHashNode(void* block)
        : element(block),
          next(nullptr),
          previous(nullptr),
          alike(nullptr),
          tag(0),
          bucket(0),
          isPinned(0),
          isRemoved(0) {}
    fxHashNode(const fxHashNode&) = delete;
    fxHashNode& operator=(const fxHashNode&) = delete;
    /// Frees the block only: the container has ended the key's life before.
    ~fxHashNode() { std::free(element); }

    void* element;  ///< A block that starts with the key.
    Self* next;     ///< The next entry of the chain, or null.

private:
    template <class Container>
    friend struct fxHashCore;
    template <class Node>
    friend class fxHashIndex;

    Self* previous;    // in the chain
    Self* alike;       // next node of the same tag, in the order of its chain
    unsigned int tag;  // mixed fingerprint of the key
    unsigned int bucket : 30;
    unsigned int isPinned : 1;   // the value is being replaced: the node must stay
    unsigned int isRemoved : 1;  // taken out meanwhile: who pinned it deletes it
};

/// An open-addressing table from tag to the nodes of that tag. Each slot holds
/// the first of them, the rest hangs on it.
template <class Node>
class fxHashIndex {
public:
    fxHashIndex() = default;
    fxHashIndex(const fxHashIndex&) = delete;
    fxHashIndex& operator=(const fxHashIndex&) = delete;
    ~fxHashIndex() { drop(); }

    bool isBuilt() const { return slots != nullptr; }
    /// The first node of `tag`, or null.
    Node* first(unsigned int tag) const { return slots[slotOf(tag)].node; }
    /// Makes an empty index for about `expected` nodes.
    void build(unsigned int expected);
    /// Enters a node as the first of its tag.
    void insert(Node* node);
    void remove(Node* node);
    void drop();

private:
    struct Slot {
        Node* node;  // null in a free slot
        unsigned int tag;
    };

    unsigned int home(unsigned int tag) const { return tag >> shift; }
    unsigned int slotOf(unsigned int tag) const;
    void allocate(unsigned int bits);
    void grow();

    Slot* slots = nullptr;
    unsigned int mask = 0;   // number of slots, a power of 2, less 1
    unsigned int shift = 0;  // what leaves the slot number of a tag
    unsigned int used = 0;   // slots that are not free
};

/// Where a container's nodes live: carved from chunks of growing size, and
/// handed out again after use. A block of common size lies right behind its
/// node, so that an entry is one piece of memory to allocate, and a search that
/// has reached the node has its key at hand. Checked builds use the heap for
/// each node and each block, so that sanitizers see every use of one that is
/// gone and every step beyond.
template <class Node>
class fxNodeStore {
public:
    fxNodeStore() = default;
    fxNodeStore(const fxNodeStore&) = delete;
    fxNodeStore& operator=(const fxNodeStore&) = delete;
    ~fxNodeStore() { shrink(); }

    /// A new node with a raw block of `blockBytes` bytes, aligned as malloc()
    /// would do it. Give it back with drop().
    Node* make(size_t blockBytes);
    /// A new node, which adopts `block`. Give it back with drop().
    Node* adopt(void* block);
    /// Destroys the node and frees its block.
    void drop(Node* node);
    /// Gives the chunks back if no node is in use.
    void shrink();

private:
    struct Chunk {
        Chunk* next;
    };
    struct Free {
        Free* next;
    };
    static constexpr unsigned int leastPerChunk = 4;
    static constexpr unsigned int mostPerChunk = 256;
    static constexpr size_t mostBytesBehind = 64;
    static constexpr size_t cacheLine = 64;
    static constexpr size_t blockAlignment = alignof(std::max_align_t);

    static void* behind(Node* node) { return node + 1; }
    void setBytesBehind(size_t blockBytes);
    void* place();

    Chunk* chunks = nullptr;
    Free* freed = nullptr;                  // nodes that were dropped
    char* fresh = nullptr;                  // the rest of the newest chunk
    unsigned int freshNodes = 0;            // nodes that fit there
    unsigned int perChunk = leastPerChunk;  // nodes of the next chunk
    unsigned int inUse = 0;
    unsigned int bytesBehind = 0;      // room for a block behind each node
    unsigned int step = sizeof(Node);  // from a node to the next
};

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

/// What a container keeps besides its chains; nothing of it shows.
template <class Container, class Node>
struct fxHashExtra {
    fxHashFinder<Container, Node>* finder = nullptr;  // chosen by the first search
    fxNodeStore<Node> nodes;
    fxHashIndex<Node> index;
    bool hasTags = true;           // not while keys that came from a stream are new
    unsigned int linked = 0;       // entries in the chains
    unsigned int divisor = 0;      // a bucket count and its reciprocal 2^64 / n,
    unsigned long reciprocal = 0;  // which save the division
};

/// The end of a range-based for over a dictionary or a set.
struct fxHashEnd {};

#endif
