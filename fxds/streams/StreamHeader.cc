#include <cstring>
#include <memory>

#include "fxds/BinaryWriter.h"
#include "fxds/Fatal.h"
#include "fxds/StackBuffer.h"
#include "fxds/Str.h"
#include "fxds/Stream.h"
#include "fxds/Transcriber.h"
#include "fxds/VoidPtrDict.h"

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

}  // namespace

// Plain pointers, so that registering works in any static initialiser.
fxVoidPtrDict* fxTranscriber::readers = nullptr;
fxTranscriber::WriterFactory* fxTranscriber::writerFactory = fxTranscriber::makeDefaultWriter;

fxTranscriber* fxTranscriber::makeDefaultWriter(fxStream* stream) {
    return new fxBinaryWriter(stream);
}

void fxTranscriber::addTranscriber(const char* name, ReaderFactory* factory) {
    if (readers == nullptr) readers = new fxVoidPtrDict;
    (*readers)[fxStr(name)] = reinterpret_cast<void*>(factory);
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
