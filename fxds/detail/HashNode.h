// The entry of a dictionary or a set: a node of a chain. Part of the public
// headers, not of the interface.
#ifndef FXDS_DETAIL_HASHNODE_H
#define FXDS_DETAIL_HASHNODE_H

#include <cstdlib>

#include "fxds/Config.h"

template <class Container>
struct fxHashCore;  // containers/HashContainer.h, which only the containers include
template <class Container>
struct fxHashXdr;  // containers/HashXdr.h, likewise
template <class Node>
class fxHashIndex;
class fxDictionary;

/// The entry of a chain; `Self` is the class that derives from this one.
template <class Self>
class fxHashNode {
public:
    /// Adopts `block`, which is malloc() memory; a store that has made it otherwise takes
    /// it back before the node is destroyed.
    explicit fxHashNode(void* block) : element(block), next(nullptr), tag(0), word(0) {}
    fxHashNode(const fxHashNode&) = delete;
    fxHashNode& operator=(const fxHashNode&) = delete;
    /// Frees the block only: the container has destroyed the key before.
    ~fxHashNode() { std::free(element); }

    void* element;  ///< A block that starts with the key.
    Self* next;     ///< The next entry of the chain, or null.

private:
    template <class Container>
    friend struct fxHashCore;
    template <class Container>
    friend struct fxHashXdr;
    template <class Node>
    friend class fxHashIndex;
    friend class fxDictionary;
    template <class Key, class Base>
    friend class fxTypedKeys;

    // The parts of `word`. They are no bit-fields: the compiler writes those in bytes, and
    // reading the word then waits until the byte has reached the cache.
    static constexpr unsigned int bucketMask = 0x1FFFFFFF;  // the chain; an array has no more
    static constexpr unsigned int late = 1U << 29;          // the key is from a stream and may lack
                                                            // its text
    static constexpr unsigned int ending = 1U << 30;   // there is no value, or its end is under way
    static constexpr unsigned int removed = 1U << 31;  // it is out of its chain

    unsigned int bucket() const { return word & bucketMask; }
    bool is(unsigned int flag) const { return (word & flag) != 0; }

    unsigned int tag;  // of the key; see HashContainer.h
    unsigned int word;
};

#endif
