// The abstract interface through which objects save and restore themselves.
#ifndef FXDS_TRANSCRIBER_H
#define FXDS_TRANSCRIBER_H

#include "fxds/RCObj.h"

class fxStr;
class fxStream;
class fxTypeObj;
class fxVoidPtrDict;
class fxXDRObj;

/// Moves values between memory and a stream. One routine per class serves both
/// directions: it hands each field to xdr() and asks isReading() where the
/// directions differ. Every operation answers false at the first failure.
class FX_API fxTranscriber : public fxRCObj {
public:
    /// Makes a reader for a stream whose header named it: the stream, the
    /// short mark, the long mark and the float-format name of the header.
    typedef fxTranscriber* ReaderFactory(fxStream*, short, long, const char*);
    typedef fxTranscriber* WriterFactory(fxStream*);

    fxTranscriber(const fxTranscriber&) = delete;
    fxTranscriber& operator=(const fxTranscriber&) = delete;
    ~fxTranscriber() override;

    /// Forgets every object seen so far.
    virtual void reset() = 0;

    // Arrays of `count` values in place.
    virtual bool xdr(char*, unsigned int count) = 0;
    virtual bool xdr(unsigned char*, unsigned int count) = 0;
    virtual bool xdr(short*, unsigned int count) = 0;
    virtual bool xdr(unsigned short*, unsigned int count) = 0;
    virtual bool xdr(long*, unsigned int count) = 0;
    virtual bool xdr(unsigned long*, unsigned int count) = 0;
    virtual bool xdr(float*, unsigned int count) = 0;
    virtual bool xdr(double*, unsigned int count) = 0;
    virtual bool xdr(fxStr*, unsigned int count) = 0;

    // Pointers to separately allocated arrays of `count` values. A reader
    // allocates them with malloc() and gives them to the holder of the pointer.
    virtual bool xdr(char**, unsigned int count) = 0;
    virtual bool xdr(unsigned char**, unsigned int count) = 0;
    virtual bool xdr(short**, unsigned int count) = 0;
    virtual bool xdr(unsigned short**, unsigned int count) = 0;
    virtual bool xdr(long**, unsigned int count) = 0;
    virtual bool xdr(unsigned long**, unsigned int count) = 0;
    virtual bool xdr(float**, unsigned int count) = 0;
    virtual bool xdr(double**, unsigned int count) = 0;

    // Zero-terminated strings held by pointer.
    virtual bool xdr(char**) = 0;
    virtual bool xdr(unsigned char**) = 0;

    /// A reference to an object. `slot` is the address of the pointer field,
    /// `owner` the object that holds it (may be null), `declared` the record
    /// of the class that the field is declared with. `object` and `address`
    /// are the object and the pointer that its record's functions take, both
    /// null for a null pointer; a reader ignores them.
    virtual bool xdr(void* slot, fxXDRObj* owner, fxTypeObj& declared, fxXDRObj* object,
                     void* address) = 0;

    /// The part at `baseAddress` that the object at `derived` inherits from
    /// the class of `base`. Nothing is moved when the addresses are equal.
    virtual bool xdr(fxTypeObj& base, void* derived, void* baseAddress) = 0;

    /// Reads a graph and returns its root, an object of the `expected` type
    /// (or one derived from it), or null.
    virtual void* readObject(fxTypeObj& expected) = 0;

    /// Writes the graph that hangs on the object. `address` is the pointer
    /// that the record's functions take, `object` supplies the record.
    virtual bool writeObject(void* address, fxXDRObj* object) = 0;

    virtual const char* className() const = 0;

    // An int travels as the long operation of the same address and count.
    virtual bool xdr(int*, unsigned int count);
    virtual bool xdr(unsigned int*, unsigned int count);
    virtual bool xdr(int**, unsigned int count);
    virtual bool xdr(unsigned int**, unsigned int count);

    bool isReading() const { return reading != 0; }
    fxStream* getStream() const { return stream; }

    static void addTranscriber(const char* name, ReaderFactory* factory);
    static fxTranscriber* makeDefaultWriter(fxStream*);
    static void changeDefaultWriter(WriterFactory* factory);
    static void resetToDefaultWriter();
    static fxTranscriber* getWriter(fxStream*);
    static fxTranscriber* getReader(fxStream*);

protected:
    fxTranscriber(fxStream* stream, bool reading);

    fxBool reading;
    fxStream* stream;  // shared

    // Not null while xdr(char**, count) is asked, by a string that is being
    // read, for the text of that string (borrowed). Each string must get a block
    // of its own. A reader that fills pointers in later takes the string by
    // setting this to null, and hands it the block with fxStr::adopt(); until
    // then the string is empty. A reader that fills in at once may ignore it.
    fxStr* claimant = nullptr;

private:
    friend class fxStr;

    static fxVoidPtrDict* readers;
    static WriterFactory* writerFactory;
};

#endif
