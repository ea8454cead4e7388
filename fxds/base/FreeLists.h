// Free lists for small, short-lived blocks: boxed values and events. Private to
// the library.
#ifndef FXDS_BASE_FREELISTS_H
#define FXDS_BASE_FREELISTS_H

#include <cstddef>
#include <new>

#include "fxds/Config.h"

// Freed blocks wait in one list per size class and are handed out again, last
// in, first out. A queued send makes and frees two small objects; taking them
// from here instead of the heap halves its cost.
//
// Invariants:
// (1) freeBlocks[i] links blocks of i * granule bytes, each from operator new.
// (2) Only the loop's thread uses the lists, as it does all objects of the
//     library.
// (3) Checked builds use the plain heap, so that sanitizers see every use of
//     freed memory.

class fxFreeLists {
public:
    static void* allocate(size_t size) {
#ifndef FXDS_CHECKED
        const size_t index = (size + granule - 1) / granule;
        if (index < classes && freeBlocks[index] != nullptr) {
            Block* block = freeBlocks[index];
            freeBlocks[index] = block->next;
            return block;
        }
        if (index < classes) return ::operator new(index* granule);
#endif
        return ::operator new(size);
    }

    // Whether allocate() needs no memory from the heap, and so cannot fail.
    static bool has([[maybe_unused]] size_t size) {
#ifndef FXDS_CHECKED
        const size_t index = (size + granule - 1) / granule;
        return index < classes && freeBlocks[index] != nullptr;
#else
        return false;
#endif
    }

    static void release(void* memory, size_t size) {
#ifndef FXDS_CHECKED
        const size_t index = (size + granule - 1) / granule;
        if (index < classes) {
            Block* block = static_cast<Block*>(memory);
            block->next = freeBlocks[index];
            freeBlocks[index] = block;
            return;
        }
#endif
        static_cast<void>(size);
        ::operator delete(memory);
    }

private:
    struct Block {
        Block* next;
    };
    static constexpr size_t granule = 16;
    static constexpr size_t classes = 9;  // blocks of up to 128 bytes
    static Block* freeBlocks[classes];
};

#endif
