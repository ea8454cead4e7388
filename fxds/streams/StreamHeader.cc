#include <cstring>
#include <memory>

#include "fxds/BinaryWriter.h"
#include "fxds/Fatal.h"
#include "fxds/StackBuffer.h"
#include "fxds/Str.h"
#include "fxds/Stream.h"
#include "fxds/Transcriber.h"
#include "fxds/VoidPtrDict.h"
#include "fxds/streams/StreamMarks.h"

using namespace fxStreamMarks;

namespace {

bool writeHeader(fxStream& stream, const char* name) {
    const size_t nameBytes = std::strlen(name) + 1;
    return stream.putBytes(name, static_cast<unsigned int>(nameBytes)) &&
           stream.putBytes(ownFloatFormat, sizeof ownFloatFormat) &&
           stream.putShorts(&ownShortMark, 1) && stream.putLongs(&ownLongMark, 1);
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
