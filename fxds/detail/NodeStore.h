// The memory of the nodes of hash containers. Part of the public headers, not
// of the interface.
#ifndef FXDS_DETAIL_NODESTORE_H
#define FXDS_DETAIL_NODESTORE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

#include "fxds/detail/Allocate.h"

// Nodes are carved from chunks of growing size, and reused. A block of common
// size lies right behind its node, so that an entry is one piece of memory to
// allocate, and a search that has reached the node has its key in the cache.
// Checked builds use the heap for each node and each block, so that sanitizers
// see every use of a freed one and every access beyond.
//
// Invariants:
// (1) All nodes lie `step` bytes apart in the chunks. Each is in use or in the
//     list `freed`.
// (2) A node's element is either behind(node), and then has room for
//     `bytesBehind` bytes, or malloc() memory. `bytesBehind` and `step` change
//     only while no node is in use.
// (3) Every chunk is freed with the store, or when no node is in use.

template <class Node>
class fxNodeStore {
public:
    fxNodeStore() = default;
    fxNodeStore(const fxNodeStore&) = delete;
    fxNodeStore& operator=(const fxNodeStore&) = delete;
    /// Requires: no node is in use.
    ~fxNodeStore() { shrink(); }

    /// A new node with a raw block of `blockBytes` bytes, aligned as by
    /// malloc(). Return it with drop().
    Node* make(size_t blockBytes);
    /// The same if it takes no new memory, or null.
    Node* makeFromFreed(size_t blockBytes);
    /// A new node, which adopts `block`. Return it with drop().
    Node* adopt(void* block);
    /// Destroys the node and frees its block.
    void drop(Node* node);
    /// Frees the chunks if no node is in use.
    void shrink();
    unsigned int nodesInUse() const { return inUse; }
    /// Whether blocks of that size lie behind their nodes, if those come first.
    static bool isCommon(size_t blockBytes) { return blockBytes <= mostBytesBehind; }
    void swap(fxNodeStore& other) {
        std::swap(chunks, other.chunks);
        std::swap(freed, other.freed);
        std::swap(inUse, other.inUse);
        std::swap(perChunk, other.perChunk);
        std::swap(bytesBehind, other.bytesBehind);
        std::swap(step, other.step);
    }

private:
    struct Chunk {
        Chunk* next;
    };
    struct Free {
        Free* next;
    };
    static constexpr unsigned int secondChunk = 4;  // nodes; the first has one
    static constexpr unsigned int mostPerChunk = 128;
    static constexpr size_t mostBytesBehind = 64;
    static constexpr size_t cacheLine = 64;
    static constexpr size_t blockAlignment = alignof(std::max_align_t);

    static void* behind(Node* node) { return node + 1; }
    void setBytesBehind(size_t blockBytes);
    void* place();
    void makeChunk();

    Chunk* chunks = nullptr;
    Free* freed = nullptr;  // nodes that are not in use
    unsigned int inUse = 0;
    unsigned char perChunk = 1;         // nodes of the next chunk
    unsigned char bytesBehind = 0;      // room for a block behind each node
    unsigned char step = sizeof(Node);  // from a node to the next
};

template <class Node>
Node* fxNodeStore<Node>::make(size_t blockBytes) {
#ifdef FXDS_CHECKED
    ++inUse;
    return new Node(fxNewBlock(blockBytes));
#else
    if (__builtin_expect(blockBytes > bytesBehind, 0)) {
        if (inUse == 0) setBytesBehind(blockBytes);
        if (blockBytes > bytesBehind) return adopt(fxNewBlock(blockBytes));
    }
    ++inUse;
    Node* const node = static_cast<Node*>(place());
    return new (node) Node(behind(node));
#endif
}

template <class Node>
[[gnu::always_inline]] inline Node* fxNodeStore<Node>::makeFromFreed(size_t blockBytes) {
#ifdef FXDS_CHECKED
    return make(blockBytes);
#else
    if (__builtin_expect(freed == nullptr || blockBytes > bytesBehind, 0)) return nullptr;
    ++inUse;
    Node* const node = static_cast<Node*>(place());
    return new (node) Node(behind(node));
#endif
}

template <class Node>
Node* fxNodeStore<Node>::adopt(void* block) {
#ifdef FXDS_CHECKED
    ++inUse;
    return new Node(block);
#else
    ++inUse;
    return new (place()) Node(block);
#endif
}

template <class Node>
void fxNodeStore<Node>::drop(Node* node) {
    --inUse;
#ifdef FXDS_CHECKED
    delete node;
#else
    if (node->element == behind(node)) node->element = nullptr;
    node->~Node();
    freed = new (node) Free{freed};
#endif
}

template <class Node>
void fxNodeStore<Node>::setBytesBehind(size_t blockBytes) {
    static_assert(sizeof(Node) + mostBytesBehind + blockAlignment <= 255);
    if (blockBytes > mostBytesBehind) return;
    shrink();
    bytesBehind = static_cast<unsigned char>(blockBytes);
    const size_t bytes = sizeof(Node) + blockBytes + blockAlignment - 1;
    step = static_cast<unsigned char>(bytes - bytes % blockAlignment);
}

template <class Node>
inline void* fxNodeStore<Node>::place() {
    if (__builtin_expect(freed == nullptr, 0)) makeChunk();
    return std::exchange(freed, freed->next);
}

// A chunk starts with its link and continues so that the block of the first
// node is aligned. The entry of a text and a pointer has the size of a cache
// line, and is placed such that all parts that a search reads are in one.
// Tables of one entry are many, as each object with an input has one: their
// chunk has no more.
template <class Node>
[[gnu::noinline]] void fxNodeStore<Node>::makeChunk() {
    static_assert((sizeof(Chunk) + sizeof(Node)) % blockAlignment == 0);
    const size_t slack = perChunk > 1 ? cacheLine - blockAlignment : 0;
    const size_t bytes = sizeof(Chunk) + size_t{perChunk} * step + slack;
    char* const chunk = static_cast<char*>(fxNewBlock(bytes));
    chunks = new (chunk) Chunk{chunks};
    char* first = chunk + sizeof(Chunk);
    if (slack != 0) first += -reinterpret_cast<uintptr_t>(chunk) % cacheLine;
    for (size_t i = perChunk; i > 0; --i) freed = new (first + (i - 1) * step) Free{freed};
    perChunk = static_cast<unsigned char>(perChunk == 1 ? secondChunk
                                                        : std::min(2U * perChunk, mostPerChunk));
}

template <class Node>
void fxNodeStore<Node>::shrink() {
    if (inUse != 0) return;
    while (chunks != nullptr) std::free(std::exchange(chunks, chunks->next));
    freed = nullptr;
    perChunk = 1;
}

#endif
