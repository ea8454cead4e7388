#include "fxds/Transcriber.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "fxds/BinaryWriter.h"
#include "fxds/Fatal.h"
#include "fxds/StackBuffer.h"
#include "fxds/Str.h"
#include "fxds/Stream.h"
#include "fxds/VoidPtrDict.h"
#include "fxds/XDRObj.h"

// The header of a stream, in the byte order of the machine that writes it:
//
//     name of the writer, zero byte
//     float format "ieee", zero byte
//     short mark                       2 bytes, 0x1122
//     long mark                        8 bytes, 0x33445566
//
// The name chooses the reader; the marks tell it the byte order.

namespace {

constexpr char floatFormat[] = "ieee";
constexpr short shortMark = 0x1122;
constexpr long longMark = 0x33445566;

bool writeHeader(fxStream& stream, const char* name) {
    const size_t nameBytes = std::strlen(name) + 1;
    return stream.putBytes(name, static_cast<unsigned int>(nameBytes)) &&
           stream.putBytes(floatFormat, sizeof floatFormat) && stream.putShorts(&shortMark, 1) &&
           stream.putLongs(&longMark, 1);
}

bool readName(fxStream& stream, fxStackBuffer& name) {
    char byte = 0;
    do {
        if (!stream.getBytes(&byte, 1)) return false;
        name.addc(byte);
    } while (byte != '\0');
    return true;
}

// Runs the operation for long on n ints: see the header.
template <class Long, class Int>
bool xdrInts(fxTranscriber& transcriber, Int* ints, unsigned int count) {
    if (count == 1) {
        Long word = 0;
        std::memcpy(&word, ints, sizeof(Int));
        if (!transcriber.xdr(&word, 1)) return false;
        if (transcriber.isReading()) std::memcpy(ints, &word, sizeof(Int));
        return true;
    }
    const size_t bytes = size_t{count} * sizeof(Int);
    constexpr unsigned int fewInts = 16;
    Long few[fewInts] = {};
    std::vector<Long> many(count > fewInts ? count : 0);
    Long* const staged = count > fewInts ? many.data() : few;
    if (!transcriber.isReading() && bytes != 0) std::memcpy(staged, ints, bytes);
    if (!transcriber.xdr(staged, count)) return false;
    if (transcriber.isReading() && bytes != 0) std::memcpy(ints, staged, bytes);
    return true;
}

}  // namespace

fxVoidPtrDict* fxTranscriber::readers = nullptr;
fxTranscriber::WriterFactory* fxTranscriber::writerFactory = fxTranscriber::makeDefaultWriter;

fxTranscriber::fxTranscriber(fxStream* heldStream, bool isReader)
    : reading(isReader), stream(heldStream) {
    if (stream != nullptr) stream->take();
}

fxTranscriber::~fxTranscriber() {
    if (stream != nullptr) stream->release();
}

bool fxTranscriber::xdr(int* ints, unsigned int count) { return xdrInts<long>(*this, ints, count); }

bool fxTranscriber::xdr(unsigned int* ints, unsigned int count) {
    return xdrInts<unsigned long>(*this, ints, count);
}

bool fxTranscriber::xdr(int** block, unsigned int count) {
    return xdr(reinterpret_cast<long**>(block), count);
}

bool fxTranscriber::xdr(unsigned int** block, unsigned int count) {
    return xdr(reinterpret_cast<unsigned long**>(block), count);
}

void fxTranscriber::placesMoved(const void*, size_t, void*) {}

size_t fxTranscriber::placesNoted() const { return 0; }

void fxTranscriber::forgetPlaces(size_t) {}

bool fxTranscriber::xdrText(fxStr&, char** text, unsigned int byteCount) {
    return xdr(text, byteCount);
}

fxBool fxTranscriber::conclude(bool succeeded, fxXDRObj& object, void* address) {
    if (!succeeded) return object.xdrFail(*this, address);
    object.xdrSuccess(*this);
    return 1;
}

void fxTranscriber::addTranscriber(const char* name, ReaderFactory* factory) {
    if (readers == nullptr) readers = new fxVoidPtrDict;
    (*readers)[fxStr(name)] = reinterpret_cast<void*>(factory);
}

fxTranscriber* fxTranscriber::makeDefaultWriter(fxStream* stream) {
    return new fxBinaryWriter(stream);
}

void fxTranscriber::changeDefaultWriter(WriterFactory* factory) {
    if (factory != nullptr) writerFactory = factory;
}

void fxTranscriber::resetToDefaultWriter() { writerFactory = makeDefaultWriter; }

fxTranscriber* fxTranscriber::getWriter(fxStream* stream) {
    std::unique_ptr<fxTranscriber> writer(writerFactory(stream));
    if (writer == nullptr) return nullptr;
    if (stream == nullptr || !stream->isWriting()) return nullptr;
    return writeHeader(*stream, writer->className()) ? writer.release() : nullptr;
}

fxTranscriber* fxTranscriber::getReader(fxStream* stream) {
    if (readers == nullptr || stream == nullptr || !stream->isReading()) return nullptr;
    fxStackBuffer name;
    fxStackBuffer format;
    if (!readName(*stream, name) || !readName(*stream, format)) return nullptr;
    short shorts = 0;
    long longs = 0;
    if (!stream->getShorts(&shorts, 1) || !stream->getLongs(&longs, 1)) return nullptr;

    void** found = readers->find(fxStr(name.getBase()));
    if (found == nullptr) fxFatal("Unknown transcriber type \"%s\"", name.getBase());
    return reinterpret_cast<ReaderFactory*>(*found)(stream, shorts, longs, format.getBase());
}
