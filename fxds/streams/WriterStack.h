// The stack of what an fxBinaryWriter still has to write.
#ifndef FXDS_STREAMS_WRITERSTACK_H
#define FXDS_STREAMS_WRITERSTACK_H

#include "fxds/BinaryWriter.h"
#include "fxds/base/ChunkList.h"

/// An object or a block. Small: as many may wait as the graph has objects and blocks.
struct fxBinaryWriterTarget {
    bool isObject;        ///< Whether `type` or the block's fields count.
    fxBinaryOTTag tag;    ///< Of the block's record.
    bool isOfInts;        ///< Whether the block has ints, which travel as longs.
    unsigned int id;      ///< The number that the address was entered under.
    const void* address;  ///< Of the object or the block. Borrowed.
    union {
        fxTypeObj* type;         ///< Of the object.
        unsigned int byteCount;  ///< Of the block's body.
    };
};

class fxWriterStack : public fxChunkList<fxBinaryWriterTarget> {};

#endif
