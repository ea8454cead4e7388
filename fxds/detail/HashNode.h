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
          isLate(0),
          isEnding(0),
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
    template <class Container>
    friend struct fxHashXdr;
    template <class Node>
    friend class fxHashIndex;

    static constexpr unsigned int bucketMask = 0x1FFFFFFF;

    Self* previous;              // in the chain
    Self* alike;                 // next node of the same tag, in the order of its chain
    unsigned int tag;            // of the key; see HashContainer.h
    unsigned int bucket : 29;    // the chain; an array has no more of them
    unsigned int isLate : 1;     // the key came from a stream and may lack its text
    unsigned int isEnding : 1;   // there is no value, or it is ending
    unsigned int isRemoved : 1;  // it is out of its chain
};

#endif
