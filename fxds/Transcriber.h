// The abstract interface through which objects save and restore themselves.
#ifndef FXDS_TRANSCRIBER_H
#define FXDS_TRANSCRIBER_H

#include <cstddef>

#include "fxds/RCObj.h"
#include "fxds/Stream.h"
#include "fxds/StreamFault.h"
#include "fxds/detail/Owned.h"
#include "fxds/detail/ReadyRecords.h"

class fxStr;
class fxTypeObj;
class fxVoidPtrDict;
class fxXDRObj;
class fxXdrWithin;

/// Moves values between memory and a stream. One routine per class serves both
/// directions: it hands each field to xdr() and asks isReading() where the
/// directions differ. Every operation returns false at the first failure. The
/// helpers of Xdr.h are the convenient way to call the operations.
///
///     fxTranscriber* writer = fxTranscriber::getWriter(stream);
///     writer->writeObject(address, object);   // the object and all it points to
///     delete writer;                          // and with it the stream
///
/// **Lifetime.** A writer writes the target of a pointer after the call that was given the
/// pointer: everything that it is given must stay in place, unchanged, until writeObject()
/// returns. It identifies written objects by their addresses: an object must exist until
/// the writer is reset, forgets it or is destroyed, because another one at the same address
/// would be taken for it. A reader fills a place when the object around it has been read
/// and the target has arrived, and a place outside of objects when the graph is complete:
/// every place must stay where it is until readObject() returns (but see placesMoved() and
/// attempt()). So while a class's xdr() runs in a reader, its pointers and texts are not
/// set yet.
class FX_API fxTranscriber : public fxRCObj {
public:
    /// Makes a reader for a stream whose header named it: the stream, the
    /// short mark, the long mark and the float-format name of the header.
    typedef fxTranscriber* ReaderFactory(fxStream*, short, long, const char*);
    /// Makes a writer on a stream, without writing anything.
    typedef fxTranscriber* WriterFactory(fxStream*);
    /// Takes a hold on the target of a pointer field.
    typedef void TakeHold(void* target);

    fxTranscriber(const fxTranscriber&) = delete;
    fxTranscriber& operator=(const fxTranscriber&) = delete;
    ~fxTranscriber() override;

    /// Forgets every object seen so far. A writer that is to write an object
    /// again because it has changed must forget it first; otherwise it writes
    /// the object anew but refers to the blocks and base parts that it wrote
    /// before. Record numbers go on, so the reader of the stream needs no reset.
    virtual void reset() = 0;

    ///@{
    /// Arrays of `count` values in place.
    virtual bool xdr(char*, unsigned int count) = 0;
    virtual bool xdr(unsigned char*, unsigned int count) = 0;
    virtual bool xdr(short*, unsigned int count) = 0;
    virtual bool xdr(unsigned short*, unsigned int count) = 0;
    virtual bool xdr(long*, unsigned int count) = 0;
    virtual bool xdr(unsigned long*, unsigned int count) = 0;
    virtual bool xdr(float*, unsigned int count) = 0;
    virtual bool xdr(double*, unsigned int count) = 0;
    virtual bool xdr(fxStr*, unsigned int count) = 0;
    ///@}

    ///@{
    /// Pointers to separately allocated arrays of `count` values. A reader allocates them
    /// with malloc() and gives them to the holder of the pointer. Pointers that were equal
    /// when they were written are equal when they are read: holders that share a block must
    /// agree on freeing it once. A null pointer can be written but not read back;
    /// fxXdrBlock() and fxXdrString() handle it.
    virtual bool xdr(char**, unsigned int count) = 0;
    virtual bool xdr(unsigned char**, unsigned int count) = 0;
    virtual bool xdr(short**, unsigned int count) = 0;
    virtual bool xdr(unsigned short**, unsigned int count) = 0;
    virtual bool xdr(long**, unsigned int count) = 0;
    virtual bool xdr(unsigned long**, unsigned int count) = 0;
    virtual bool xdr(float**, unsigned int count) = 0;
    virtual bool xdr(double**, unsigned int count) = 0;
    ///@}

    ///@{
    /// Zero-terminated strings held by pointer; otherwise as above.
    virtual bool xdr(char**) = 0;
    virtual bool xdr(unsigned char**) = 0;
    ///@}

    /// A reference to an object. `slot` is the address of the pointer field, `owner` the
    /// object that contains it (may be null), `declared` the record of the class that the
    /// field is declared with. `object` is the target of the field and `address` the
    /// pointer that its record's functions take, which is a pointer to its most derived
    /// class; both are null for a null pointer, and `object` alone for an object that is no
    /// fxXDRObj, whose record is then `declared`. A reader ignores them, and stores a
    /// pointer to the declared class.
    virtual bool xdr(void* slot, fxXDRObj* owner, fxTypeObj& declared, fxXDRObj* object,
                     void* address) = 0;

    /// The part at `baseAddress` that the object at `derived` inherits from the
    /// class of `base`, by that record's function. A part that was transcribed
    /// before is not again. Nothing is moved when the addresses are equal. A null
    /// `derived` lets a reader take a part that has no address of its own any more.
    virtual bool xdr(fxTypeObj& base, void* derived, void* baseAddress) = 0;

    /// Reads the next graph and returns its root, which is an object of the
    /// `expected` type or of one that is derived from it, as a pointer to the
    /// class of `expected`; given, like all the objects of the graph. Null when
    /// the stream ends or fails too early; everything that was read is then
    /// released again and no place has been filled.
    virtual void* readObject(fxTypeObj& expected) = 0;

    /// Writes the graph of the object. `address` is the pointer that the record's functions
    /// take; `object` supplies the record and may represent an object that is no fxXDRObj.
    /// False when either is null, when an object's transcription failed, or when the stream
    /// did.
    virtual bool writeObject(void* address, fxXDRObj* object) = 0;

    virtual const char* className() const = 0;  ///< The name of the class, for people.

    ///@{
    /// n ints travel as n longs: the n ints one after the other, then 4n bytes
    /// of zeros. They reach the operation for long in one call, through a staged
    /// block, so nothing beside the ints themselves is read or changed; a class
    /// that overrides these may use several calls. The pointer forms
    /// hand the same pointer to the operation for long; a transcriber that
    /// writes overrides them, because the blocks hold only 4n bytes.
    virtual bool xdr(int*, unsigned int count);
    virtual bool xdr(unsigned int*, unsigned int count);
    virtual bool xdr(int**, unsigned int count);
    virtual bool xdr(unsigned int**, unsigned int count);
    ///@}

    /// Like reset(), but keeps the types, which need not be written again. For graphs on
    /// one stream that have nothing in common: after each one the writer forgets the
    /// objects that it has written, which may then be destroyed, and the reader those that
    /// it has read. This one resets.
    virtual void forgetObjects();

    /// Whether a container that reads elements may request them in pieces, so that its
    /// memory grows with the bytes that have arrived, or that hasToCome(). From any other
    /// transcriber all elements are requested in one call of the operation for their type.
    virtual bool readsInPieces() const;
    /// Whether the stream has so many bytes to come, as far as it knows, and there is memory
    /// for them: a container may make room for them at once. False for less than 64 KB, for
    /// which that is no gain.
    bool hasToCome(size_t byteCount) const;

    /// Informs a reader that the places given since the current attempt() began, as far as
    /// they lie in the `byteCount` bytes at `from`, are now at `to`. So a container of
    /// pointers, or of elements with pointers, may grow while it is read. Transcribers that
    /// fill places at once, and writers, do nothing here.
    virtual void placesMoved(const void* from, size_t byteCount, void* to);

    /// Runs `read()`, a part of a reading that either succeeds or is abandoned, and returns
    /// its result. When that is false, or an exception leaves it, the places that were
    /// given meanwhile are forgotten: they stay empty and may cease to exist. All
    /// containers read like this.
    template <class Read>
    bool attempt(Read read) {
        Attempt under(*this);
        return under.succeeded = read();
    }

    /// The functions of a kind of containers that a reader calls.
    struct Container {
        /// A number that changes when the container gives up or moves its elements,
        /// or has more or fewer of them.
        size_t (*print)(const void* container);
        /// Makes it as it is without elements; null for one whose elements are not
        /// just texts or pointers.
        void (*empty)(void* container);
    };
    /// Does the same for a container. When the xdr() of the object around it has returned,
    /// and before the places given meanwhile are filled, a reader checks whether the
    /// container has changed, and refuses that: the places may be gone. When the object
    /// recovers without them, it empties the container, if it can.
    template <class Read>
    bool attempt(void* container, const Container& kind, Read read) {
        const size_t before = placesNoted();
        const bool isRead = attempt(read);
        if (isRead && placesNoted() > before) placesLieIn(container, kind, before);
        return isRead;
    }
    /// Informs a reader that all places but the oldest `before` lie in the container; see
    /// attempt(). `kind` is borrowed for good. The same exemption as for placesMoved().
    virtual void placesLieIn(void* container, const Container& kind, size_t before);
    /// A possible print: from the address of the elements and their number.
    static size_t printOf(const void* elements, size_t count) {
        return (reinterpret_cast<size_t>(elements) * 31 + count) * 0x9E3779B97F4A7C15U;
    }

    ///@{
    /// The number of places that a reader fills later; forgets all but the oldest `count`
    /// of them, and at most those of the object that is being read. The same exemption as
    /// for placesMoved().
    virtual size_t placesNoted() const;
    virtual void forgetPlaces(size_t count);
    ///@}

    /// Makes the pointer field at `slot`, with which an operation is called next, the only
    /// owner of its target: of a separate block, which is written anew for each such field,
    /// or of an object that no other such field gets. Null ends this. See fxXdrOwning.
    virtual void setOwner(const void* slot);

    /// Makes the pointer field at `slot`, with which the operation for objects is called
    /// next, a holder of its target. A reader that fills it later calls hold() with the
    /// target when the graph has succeeded, before any xdrSuccess(). A target that is set
    /// when the operation returns is for the caller to take. Without a function the field
    /// is a plain pointer. A writer refuses a target that has an owner, as a reader would.
    /// See fxRef.
    virtual void setHolder(const void* slot, TakeHold* hold);

    /// Requests that many chains for a hash container, whose number is only a claim of the
    /// stream; a negative number increases the allowance by that of entries that have
    /// passed. The binary transcribers refuse more than 2^24 in a stream beyond 256 in each
    /// container and 16 for each entry: a reader, for their memory and the time of walking
    /// them; and a writer, so that its streams can be read back.
    virtual bool claimChains(long chains);

    /// Informs a reader that the number was read as the count of a block: it is set to 0
    /// when the object that contains it recovers without the block. A writer refuses the
    /// block that follows if other fields share it and it is written with a lower count.
    virtual void countsBlock(unsigned int& count);

    ///@{
    /// embeds() informs a writer that the object at the address is transcribed as a field
    /// of another one; isEmbedded() returns whether one was. When it is read, a pointer to
    /// such an object would lead to another one: embeds() returns false when there is such
    /// a pointer already.
    virtual bool embeds(const void* object);
    virtual bool isEmbedded(const void* object) const;
    ///@}

    /// Reads a number, if the stream has it buffered just as this machine stores it.
    /// Otherwise nothing happens, and xdr() must be called.
    template <class T>
    bool takeReady(T& number) {
        return ready != nullptr && ready->take(&number, sizeof number);
    }
    ///@{
    /// An int is the first half of a long.
    bool takeReady(int& number) { return takeReadyHalf(number); }
    bool takeReady(unsigned int& number) { return takeReadyHalf(number); }
    ///@}

    ///@{
    /// Reads a pointer to an object, which is null, or a string, which is empty, with its
    /// length, if the stream has the records buffered. Otherwise nothing happens, and xdr()
    /// must be called.
    bool takeReadyPointer(void* slot, const fxTypeObj& declared) {
        return ready != nullptr && ready->takePointer(slot, declared);
    }
    bool takeReadyText(fxStr& string) { return ready != nullptr && ready->takeText(&string); }
    ///@}

    /// Transcribes the text of an fxStr, which has `byteCount` bytes with the terminator,
    /// more than 1; `*text` is the field that points to it. This one returns xdr(text,
    /// byteCount). A reader that fills places later does not touch `*text`, makes a
    /// separate block for each string and passes it to fxStr::adopt(); until then the
    /// string is empty.
    virtual bool xdrText(fxStr& string, char** text, unsigned int byteCount);

    /// Ends the transcription of the object at `address`, which `succeeded` or not: the
    /// last call of a record's function. After a failure it returns the result of the
    /// object's xdrFail(), except for an object that another one inherits or has as a
    /// field: its xdrFail() is called, too, with its own address, but the result is 0,
    /// because the other one lacks some of its fields then. For a part that has no fxXDRObj
    /// of its own, that of the object is called. After a success it returns 1, and the
    /// object's xdrSuccess() is called: at once by this one and by a writer, by a reader
    /// when readObject() has filled every place, in the order in which the objects were
    /// made. xdrSuccess() is where a class takes its counted references; it must not
    /// destroy an object of the graph, nor throw: its objects could not be released then. A
    /// reader does not call it for parts and fields of an object that recovers from a
    /// failure, nor for objects that are dropped.
    virtual fxBool conclude(bool succeeded, fxXDRObj& object, void* address);

    ///@{
    /// Writes the pointer at `slot` to an object that can be read back, for the helpers;
    /// the other arguments are those of the operation for objects, which this one calls. A
    /// writer may record the pointer and its declared type, and write an equal one by
    /// writeKnownPointer(), which does not read the object. That one returns false, and
    /// does nothing, when the pointer is not known, or may not be written like this; here
    /// it always does.
    virtual bool writePointer(void* slot, fxTypeObj& declared, fxXDRObj* object, void* address);
    virtual bool writeKnownPointer(const void* pointer, const fxTypeObj& declared);
    ///@}

    ///@{
    /// Requests memory for a value that may have few bytes of the stream, or none; see
    /// fxXdrClaim(). False, which is refused, when all requests of a graph exceed 64 MB and
    /// `memoryOfByte` for each byte of it that has passed. A writer refuses what a reader
    /// would. bytesPassed() returns the number of bytes so far; a transcriber that does not
    /// count returns `uncounted`, as this one does, and admits all.
    bool claimMemory(size_t byteCount);
    static constexpr size_t memoryOfByte = 256;  ///< Bytes.
    virtual size_t bytesPassed() const;
    static constexpr size_t uncounted = ~size_t{0};
    ///@}

    /// Whether it moves values from the stream to memory.
    bool isReading() const { return reading != 0; }
    fxStream* getStream() const { return stream; }    ///< Null when there is none. View.
    unsigned int& nestingLevel() { return nesting; }  ///< See fxXdrNesting.

    /// Registers the reader for streams that name `name` in their header; replaces an
    /// earlier one of the name.
    static void addTranscriber(const char* name, ReaderFactory* factory);
    /// Makes an fxBinaryWriter without writing anything.
    static fxTranscriber* makeDefaultWriter(fxStream*);
    /// Makes getWriter() use `factory`. Null is ignored.
    static void changeDefaultWriter(WriterFactory* factory);
    static void resetToDefaultWriter();  ///< Makes getWriter() use makeDefaultWriter() again.
    /// Makes a writer and writes the header of the stream. Given: delete it.
    /// Null when the factory makes none or when the stream fails; in the latter
    /// case the writer is deleted, and with it a stream without another holder. So one
    /// that is a local variable is taken before; otherwise that is fatal.
    static fxTranscriber* getWriter(fxStream*);
    /// Reads the header and makes the reader that it names. Given: delete it.
    /// Null when the stream fails, which then stays the caller's, or when no
    /// reader is registered yet: call fxInitializeToolkit() first. A header that
    /// names an unknown reader is fatal.
    static fxTranscriber* getReader(fxStream*);
    /// The same; but no content of the stream ends the program. A fault is stored in
    /// `fault`, which is borrowed as long as the reader exists. The operation that finds it
    /// returns null or false, and so do those that follow; everything that was made for the
    /// current graph is destroyed. A reader of the program's own, registered with
    /// addTranscriber(), may do otherwise.
    static fxTranscriber* getReader(fxStream*, fxStreamFault& fault);

    /// For a class's xdr() that fails for a reason of its own, as in
    /// `return t.refuse("a limit below zero")`: returns false. The reason becomes that of
    /// the fault, unless the object's xdrFail() forgives it while it is read: what was not
    /// written is missing for good.
    bool refuse(const char* reason);
    /// The same for an edition that the class cannot read; see fxXdrEdition().
    bool refuseEdition(const fxTypeObj& type, long edition, bool isNewer);
    /// The first reason given to refuse() that no object has forgiven, or null. A writer
    /// also notes here the class of the object that it could not write. View.
    const fxStreamFault* objection() const { return complaint.get(); }

protected:
    /// `heldStream` is shared and may be null, which fails every operation.
    fxTranscriber(fxStream* heldStream, bool isReader);

    fxBool reading;    ///< The result of isReading().
    fxStream* stream;  ///< Shared; null fails every operation.

    /// The source of takeReady() and its like. Null unless the numbers of the stream are
    /// stored as in this machine, and no subclass takes part in reading them.
    fxReadyRecords* ready = nullptr;

    /// A graph begins: requests of memory, up to the next one, are counted anew.
    void beginClaims() {
        claimed = 0;
        claimedSince = bytesPassed();
    }

    size_t attemptBegan = 0;              ///< placesNoted() when the innermost attempt() began.
    const fxXdrWithin* within = nullptr;  ///< The innermost one, or null.

    /// Receives a fault; borrowed. Null: faults are fatal.
    fxStreamFault* answer = nullptr;
    size_t headerBytes = 0;  ///< Of the stream, before its first record.
    /// The first reason given to refuse(), or null. Subclasses report it.
    fxDetail::Owned<fxStreamFault> complaint;

private:
    friend fxXdrWithin;

    template <class Int>
    bool takeReadyHalf(Int& number) {
        Int halves[2];
        static_assert(sizeof halves == sizeof(long));
        if (!takeReady(halves)) return false;
        number = halves[0];
        return true;
    }

    unsigned int nesting = 0;
    size_t claimed = 0;       // bytes of memory
    size_t claimedSince = 0;  // bytesPassed() when that was 0

    /// Records where an attempt began, until it ends. Only the innermost one is used, and
    /// none is corrected, so a number is enough and no registered walk is needed.
    struct Attempt {
        explicit Attempt(fxTranscriber& t) : transcriber(t), outer(t.attemptBegan) {
            transcriber.attemptBegan = places;
        }
        ~Attempt() {
            if (!succeeded) transcriber.forgetPlaces(places);
            transcriber.attemptBegan = outer;
        }
        Attempt(const Attempt&) = delete;
        Attempt& operator=(const Attempt&) = delete;

        fxTranscriber& transcriber;
        const size_t outer;
        const size_t places = transcriber.placesNoted();
        bool succeeded = false;
    };

    static fxVoidPtrDict* readers;
    static WriterFactory* writerFactory;
};

/// For a scope, what is transcribed is part of the value at the address and ends with it. A
/// writer copies the texts of a value that is a local variable.
class fxXdrWithin {
public:
    /// `transcriber_` and `value_` are borrowed.
    fxXdrWithin(fxTranscriber& transcriber_, const void* value_)
        : value(value_), outer(transcriber_.within), transcriber(transcriber_) {
        transcriber.within = this;
    }
    fxXdrWithin(const fxXdrWithin&) = delete;
    fxXdrWithin& operator=(const fxXdrWithin&) = delete;
    ~fxXdrWithin() { transcriber.within = outer; }

    const void* const value;         ///< Borrowed.
    const fxXdrWithin* const outer;  ///< The one around it, or null.

private:
    fxTranscriber& transcriber;
};

/// For a scope, makes a pointer field the owner of its target: see setOwner().
class fxXdrOwning {
public:
    fxXdrOwning(fxTranscriber& transcriber_, const void* slot) : transcriber(transcriber_) {
        transcriber.setOwner(slot);
    }
    fxXdrOwning(const fxXdrOwning&) = delete;
    fxXdrOwning& operator=(const fxXdrOwning&) = delete;
    ~fxXdrOwning() { transcriber.setOwner(nullptr); }

private:
    fxTranscriber& transcriber;
};

#endif
