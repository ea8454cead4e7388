// The common base of the binary writer and the binary reader.
#ifndef FXDS_BINARYTRANSCRIBER_H
#define FXDS_BINARYTRANSCRIBER_H

#include "fxds/BinaryOTDict.h"
#include "fxds/Transcriber.h"
#include "fxds/VoidPtrArray.h"

/// The kinds of records in a binary stream. docs/stream-format.md describes them.
enum fxBinaryOTTag : unsigned int {
    fxTagData = 0,           ///< More payload of the record before.
    fxTagNull = 1,           ///< A null pointer.
    fxTagType = 2,           ///< A type: id, name.
    fxTagBlock = 3,          ///< First sight of a block: id, byte count.
    fxTagBlockAgain = 4,     ///< A block seen before: id.
    fxTagBytes = 5,          ///< The contents of a block: id, byte count.
    fxTagShorts = 6,         ///< Likewise.
    fxTagLongs = 7,          ///< Likewise.
    fxTagFloats = 8,         ///< Likewise.
    fxTagDoubles = 9,        ///< Likewise.
    fxTagObject = 10,        ///< An object: id, id of its type, version.
    fxTagPointer = 11,       ///< First sight of an object: id.
    fxTagPointerAgain = 12,  ///< An object seen before: id.
    fxTagPart = 13,          ///< First sight of a base part: id.
    fxTagPartAgain = 14      ///< A base part seen before: id.
};

/// The staging buffer, the table of addresses and ids, and the pending items. A
/// base of the writer and the reader only.
class FX_API fxBinaryTranscriber : public virtual fxTranscriber {
public:
    using fxTranscriber::xdr;
    ///@{
    /// As those of the base, and in bounded memory: many ints take several calls
    /// of the operation for long.
    bool xdr(int*, unsigned int count) override;
    bool xdr(unsigned int*, unsigned int count) override;
    ///@}

    bool claimChains(long chains) override;

protected:
    /// Bytes of payload that the writer puts into one record.
    static constexpr unsigned int bufferBytes = 512;

    fxBinaryTranscriber();
    ~fxBinaryTranscriber() override;

    char buffer[bufferBytes];  ///< Payload on its way.
    char* cursor;              ///< Writer: the next free byte.
    unsigned int room;         ///< Writer: free bytes.
    unsigned int used;         ///< Writer: staged bytes.
    fxBinaryOTDict table;      ///< Addresses and ids; see the writer and the reader.
    fxVoidPtrArray pending;    ///< The writer's items, owned; a stack.

private:
    friend class fxBinaryWriter;  // whose hot code finds this virtual base once

    long chainsLeft;  // see claimChains()
};

#endif
