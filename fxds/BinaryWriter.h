// The transcriber that saves object graphs as binary records.
#ifndef FXDS_BINARYWRITER_H
#define FXDS_BINARYWRITER_H

#include <vector>

#include "fxds/BinaryTranscriber.h"
#include "fxds/detail/Owned.h"

class fxAddressIndex;
class fxOutBuffer;
class fxOwnership;
class fxWriterStack;

/// An object or a block that is still to be written. Small: as many may wait as the graph has
/// objects and blocks.
struct fxBinaryWriterTarget {
    /// What it is.
    enum Kind : unsigned char { object = 0, block = 1 };

    Kind kind;            ///< Whether `type` or the block's fields count.
    fxBinaryOTTag tag;    ///< Of the block's record.
    bool isOfInts;        ///< Whether the block has ints, which travel as longs.
    unsigned int id;      ///< The number that the address was entered under.
    const void* address;  ///< Of the object or the block. Borrowed.
    union {
        fxTypeObj* type;         ///< Of the object.
        unsigned int byteCount;  ///< Of the block's body.
    };
};

/// A target that waits in a writer whose class is derived from fxBinaryWriter.
class FX_API fxBinaryWriterItem : public fxBinaryWriterTarget {
public:
    /// The object at `address`, a pointer to the class of `type`. Borrowed.
    fxBinaryWriterItem(const void* address, fxTypeObj& type);
    /// The block at `address`, borrowed, whose body has `byteCount` bytes. Ints
    /// take twice as many as the block has.
    fxBinaryWriterItem(const void* address, unsigned int byteCount, fxBinaryOTTag tag,
                       bool isOfInts);
    /// A copy.
    explicit fxBinaryWriterItem(const fxBinaryWriterTarget& target);
    virtual ~fxBinaryWriterItem();

    /// From a pool.
    static void* operator new(size_t size);
    static void operator delete(void* item, size_t size);
};

/// Writes objects and blocks as the records of docs/stream-format.md, each
/// once; further pointers to them become references. Objects wait on a stack,
/// so that a graph of any depth is written without recursion.
///
/// Usually made by fxTranscriber::getWriter(), which writes the header of the
/// stream as well. Scalars may also be transcribed directly, before and between
/// objects; call flush() when no object follows. Bytes of scalars are those of
/// this machine: readers learn from the header which machine that was.
///
/// **Failure.** Once the stream has refused bytes, or a graph could not be
/// written to its end, every operation returns false, after reset() too: the
/// records that follow could not be read.
///
/// **Writes.** The head of a record, with its fields, is one write of the
/// stream, the name of a type record a second, the payload a third. Records of
/// one writeObject() may reach an fxStdioStream or fxMemoryStream in fewer.
class FX_API fxBinaryWriter : public virtual fxBinaryTranscriber {
public:
    /// `outStream` is shared. Writes nothing.
    explicit fxBinaryWriter(fxStream* outStream);
    /// Does not flush: values that were transcribed after the last
    /// writeObject() and not flushed are lost. Fatal in the middle of writeObject().
    ~fxBinaryWriter() override;

    const char* className() const override;

    /// In the middle of writeObject() it does nothing.
    void reset() override;
    void forgetObjects() override;  ///< Likewise.

    /// Completes the record that is being built and hands it to the stream.
    /// False when the stream did not take it.
    bool flush();

    bool xdr(char*, unsigned int count) override;
    bool xdr(unsigned char*, unsigned int count) override;
    bool xdr(short*, unsigned int count) override;
    bool xdr(unsigned short*, unsigned int count) override;
    bool xdr(long*, unsigned int count) override;
    bool xdr(unsigned long*, unsigned int count) override;
    bool xdr(float*, unsigned int count) override;
    bool xdr(double*, unsigned int count) override;
    bool xdr(fxStr*, unsigned int count) override;

    ///@{
    /// A block longer than 2^31 - 1 bytes is refused.
    bool xdr(char**, unsigned int count) override;
    bool xdr(unsigned char**, unsigned int count) override;
    bool xdr(short**, unsigned int count) override;
    bool xdr(unsigned short**, unsigned int count) override;
    bool xdr(long**, unsigned int count) override;
    bool xdr(unsigned long**, unsigned int count) override;
    bool xdr(float**, unsigned int count) override;
    bool xdr(double**, unsigned int count) override;
    bool xdr(char**) override;
    bool xdr(unsigned char**) override;
    ///@}
    bool xdr(void* slot, fxXDRObj* owner, fxTypeObj& declared, fxXDRObj* object,
             void* address) override;
    bool xdr(fxTypeObj& base, void* derived, void* baseAddress) override;
    using fxTranscriber::xdr;
    ///@{
    /// Writes 4 bytes of each element, and zeros for the rest.
    bool xdr(int**, unsigned int count) override;
    bool xdr(unsigned int**, unsigned int count) override;
    ///@}

    void setOwner(const void* slot) override;
    void setHolder(const void* slot, TakeHold* hold) override;
    bool embeds(const void* object) override;
    bool isEmbedded(const void* object) const override;
    void countsBlock(unsigned int& count) override;
    size_t bytesPassed() const override;
    fxBool conclude(bool succeeded, fxXDRObj& object, void* address) override;
    /// The text of a local variable of an xdr() is copied, because it is written later.
    bool xdrText(fxStr& string, char** text, unsigned int byteCount) override;
    bool writePointer(void* slot, fxTypeObj& declared, fxXDRObj* object, void* address) override;
    bool writeKnownPointer(const void* pointer, const fxTypeObj& declared) override;

    /// Fatal: a writer does not read.
    void* readObject(fxTypeObj& expected) override;

    /// Also writes, before the object, values that were transcribed directly.
    /// Returns false in the middle of another writeObject(), which continues.
    /// After any other failure, and when an xdr() throws, the stream is
    /// incomplete and the writer has failed for good.
    bool writeObject(void* address, fxXDRObj* object) override;

protected:
    /// Puts the header of a record, up to its fields, at `place`, which has
    /// room for 5 bytes; returns its length. The rest of the 5 may change.
    static unsigned int putHeader(char* place, unsigned int tag, unsigned long payloadBytes);

    /// Adds to the payload of the record being built.
    bool writeBytes(const void* bytes, size_t byteCount);
    /// The id under which the address, perhaps that of a type, has been entered, or 0.
    unsigned int alreadyWritten(const void* address) const;
    /// Enters the address under the next id, and returns that.
    unsigned int recordIdForAddress(const void* address);
    /// Adopts the item and enters its address under the next id.
    unsigned int queue(fxBinaryWriterItem* item);
    /// Writes the record of the type unless it is written. `id` is its number.
    bool writeType(fxTypeObj& type, unsigned int& id);
    bool writeNullPointer();  ///< Writes the record of a null pointer.
    /// Writes a reference to the block and queues its body, unless it was
    /// written.
    bool writePrimPointer(const void* block, size_t byteCount, fxBinaryOTTag bodyTag);

    unsigned int nextId = 1;  ///< The id that the next new address gets.
    // The record being built.
    unsigned int tag = fxTagData;  ///< Of the record being built.
    unsigned long fieldA = 0;      ///< Its id; only the low 32 bits are written, as of all.
    unsigned long fieldB = 0;      ///< Id of a type.
    unsigned long fieldC = 0;      ///< Version of a type.
    unsigned int fieldD = 0;       ///< Byte count of a block.
    const char* name = nullptr;    ///< Borrowed, of a type.

private:
    class Graph;

    bool writePrimPointer(const void* slot, const void* block, size_t byteCount,
                          fxBinaryOTTag bodyTag, bool isOfInts = false);
    bool mayShare(const void* block, size_t byteCount, bool isAsked);
    unsigned int idOfPart(const void* address, bool& isNew);
    void push(const fxBinaryWriterTarget& target);
    [[gnu::noinline]] void pushItem(fxBinaryWriterItem* item);
    [[gnu::noinline]] bool takeItem(fxBinaryWriterTarget& target);
    bool takeLast(fxBinaryWriterTarget& target);
    bool complete();
    void putEarly();
    [[gnu::noinline]] void takeBack();
    [[gnu::noinline]] bool writePieces(const char* from, size_t byteCount);
    [[gnu::noinline]] size_t writeMany(const char* from, size_t byteCount);
    bool putShort(const fxBinaryWriterTarget& block);
    bool writeRecord(const char* payload, unsigned int payloadBytes);
    bool idOf(const void* address, unsigned int& id, unsigned int mark = 0);
    unsigned char& holdingOf(unsigned int id);
    bool isHeldAlone(unsigned int id);
    [[gnu::noinline]] bool mayHave(const void* slot, const void* address);
    bool refer(const void* slot, fxTypeObj& declared, fxXDRObj* object, const void* address,
               unsigned int mark);
    [[gnu::noinline]] void chooseMark(const fxTypeObj& declared);
    [[gnu::noinline]] bool writeParts(const char* payload, unsigned int payloadBytes);
    unsigned int putHead(char* place, unsigned int payloadBytes) const;
    [[gnu::noinline]] bool writeNewType(fxTypeObj& type, unsigned int& id);
    [[gnu::cold, gnu::noinline]] bool fail();
    [[gnu::cold, gnu::noinline]] bool failAtNumber();
    [[gnu::cold]] void trace() const;
    bool writePending();
    bool writeTarget(const fxBinaryWriterTarget& target);
    bool writeBlock(const fxBinaryWriterTarget& block);
    void dropPending();

    fxDetail::Owned<fxAddressIndex> seen;      // objects, blocks and base parts
    fxDetail::Owned<fxAddressIndex> parts;     // base parts
    fxDetail::Owned<fxAddressIndex> embedded;  // objects that are fields of others
    const void* owner = nullptr;          // the slot of a pointer that owns its target, or null
    const void* holder = nullptr;         // the slot of one that holds its object, or null
    std::vector<unsigned char> holdings;  // of objects, by number from firstHolding on
    unsigned int firstHolding = 1;        // the numbers below are forgotten
    unsigned int firstOfGraph = 1;        // the numbers below are of earlier graphs
    unsigned int rootId = 0;              // of the root that was written last, or 0
    unsigned int idUnderWay = 0;          // of the object that is being written, or 0
    enum BlockOf : unsigned char { anyField, sharingField, stringField };
    BlockOf blockOf = anyField;                  // what the next block operation is for
    fxDetail::Owned<fxAddressIndex> lengths;     // bytes + 1 of blocks that fields may share
    fxDetail::Owned<fxOwnership> ownership;      // by number, of the graph that is being written
    fxTypeObj* lastType = nullptr;               // the type that was asked for last,
    unsigned int lastTypeId = 0;                 // and its id
    fxTypeObj* itemType = nullptr;               // of the object that is being written, or was last
    const void* partUnderWay = nullptr;          // of an object, or null
    const void* bodyUnderWay = nullptr;          // the object that is being written, or null
    unsigned int firstOfBody = 0;                // the numbers of its parts are not below this one
    std::vector<const void*> toldRoots;          // of its parts
    fxDetail::Owned<fxWriterStack> waiting;      // on top of `pending`
    bool isPut = false;                          // the record being built, see putEarly()
    bool isInGraph = false;                      // in writeObject()
    bool isOfThisClass = false;                  // likewise, and no subclass overrides that
    std::vector<const fxTypeObj*> declaredOnes;  // what known pointers were declared with
    const fxTypeObj* lastDeclared = nullptr;     // the last of a known pointer
    unsigned int lastMark = 0;                   // and what its number is entered with
    fxDetail::Owned<fxOutBuffer> outgoing;
};

#endif
