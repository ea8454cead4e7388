#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "fxds/BinaryReader.h"
#include "fxds/BinaryWriter.h"
#include "fxds/StackBuffer.h"
#include "fxds/Str.h"
#include "fxds/Stream.h"
#include "fxds/Transcriber.h"
#include "fxds/VoidPtrDict.h"
#include "fxds/base/StartUp.h"
#include "fxds/streams/StreamMarks.h"

// The header of a stream, and the choice of the reader and the writer. StreamMarks.h draws
// the header.
//
// Invariants:
// (1) `readers` is null until the first registration, and never freed, so readers can be
//     made while the program ends.
// (2) writerFactory is never null.
//
// A transcriber holds its stream and releases it in its destructor. So a writer that is
// refused takes a stream without other holders with it, while a reader that is refused,
// which is not made at all, leaves the stream alone.

using namespace fxStreamMarks;

namespace {

bool writeHeader(fxStream& stream, const char* name) {
    const size_t nameBytes = std::strlen(name) + 1;
    return stream.putBytes(name, static_cast<unsigned int>(nameBytes)) &&
           stream.putBytes(ownFloatFormat, sizeof ownFloatFormat) &&
           stream.putShorts(&ownShortMark, 1) && stream.putLongs(&ownLongMark, 1);
}

// Whether the bytes may be the beginning of the header of a known reader.
// This separates a stream that ends early from one of another kind.
bool mayBegin(const fxStackBuffer& name, const fxVoidPtrDict& readers) {
    const std::string_view begun = name.view();
    for (const auto [known, factory] : readers) {
        if (std::string_view(known.c_str(), known.length() + size_t{1}).substr(0, begun.size()) ==
            begun) {
            return true;
        }
    }
    return false;
}

// The fields of a header.
struct Header {
    bool read(fxStream& stream) {
        const auto any = [](const fxStackBuffer&) { return true; };
        return readName(stream, name, any) && readRest(stream, any);
    }
    // Up to the first byte of the name that no known reader has there: what is no stream
    // may have no more bytes for long.
    bool read(fxStream& stream, const fxVoidPtrDict& readers) {
        constexpr unsigned int longestFormat = 1000;
        const auto isKnown = [&](const fxStackBuffer& begun) { return mayBegin(begun, readers); };
        const auto isShort = [](const fxStackBuffer& begun) {
            return begun.length() <= longestFormat;
        };
        return readName(stream, name, isKnown) && readRest(stream, isShort);
    }
    size_t bytes() const {
        return size_t{name.length()} + format.length() + sizeof shorts + sizeof longs;
    }
    template <class IsGood>
    static bool readName(fxStream& stream, fxStackBuffer& text, IsGood isGood) {
        char byte = 0;
        do {
            if (!stream.getBytes(&byte, 1)) return false;
            text.addc(byte);
        } while (isGood(text) && byte != '\0');
        return byte == '\0';
    }
    template <class IsGood>
    bool readRest(fxStream& stream, IsGood isGood) {
        return readName(stream, format, isGood) && stream.getShorts(&shorts, 1) &&
               stream.getLongs(&longs, 1);
    }

    fxStackBuffer name;
    fxStackBuffer format;
    short shorts = 0;
    long longs = 0;
};

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
    if (!writeHeader(*stream, writer->className())) return nullptr;
    writer->headerBytes = std::strlen(writer->className()) + 1 + sizeof ownFloatFormat +
                          sizeof ownShortMark + sizeof ownLongMark;
    return writer.release();
}

fxTranscriber* fxTranscriber::getReader(fxStream* stream) {
    if (readers == nullptr) fxStartUp::hint("readers");
    if (readers == nullptr || stream == nullptr || !stream->isReading()) return nullptr;
    Header header;
    if (!header.read(*stream)) return nullptr;
    void** found = readers->find(fxStr(header.name.getBase()));
    if (found == nullptr || *found == nullptr) {
        const std::string name(header.name.getBase());
        fxStreamFault::inHeader().end(("Unknown transcriber type \"" + name + '"').c_str());
    }
    fxTranscriber* const reader = reinterpret_cast<ReaderFactory*>(*found)(
        stream, header.shorts, header.longs, header.format.getBase());
    if (reader != nullptr) reader->headerBytes = header.bytes();
    return reader;
}

fxTranscriber* fxTranscriber::getReader(fxStream* stream, fxStreamFault& fault) {
    if (readers == nullptr) fxStartUp::hint("readers");
    fault = fxStreamFault::inHeader();
    if (readers == nullptr || stream == nullptr || !stream->isReading()) {
        fault.reason =
            readers == nullptr ? "fxInitializeToolkit() comes first" : "the stream cannot be read";
        return nullptr;
    }
    Header header;
    if (!header.read(*stream, *readers)) {
        if (mayBegin(header.name, *readers)) fault.kind = fxStreamFault::ended;
        return nullptr;
    }
    void** const found = readers->find(fxStr(header.name.getBase()));
    ReaderFactory* const factory =
        found != nullptr ? reinterpret_cast<ReaderFactory*>(*found) : nullptr;
    if (factory == nullptr) {
        fault.reason = "no reader is registered for the name in the header";
    } else if (factory == makeBinaryReader) {
        fault.reason =
            fxBinaryReader::headerComplaint(header.shorts, header.longs, header.format.getBase());
    }
    if (!fault.reason.empty()) return nullptr;
    fxTranscriber* const reader =
        factory(stream, header.shorts, header.longs, header.format.getBase());
    if (reader == nullptr) return nullptr;
    fault = fxStreamFault();
    reader->answer = &fault;
    reader->headerBytes = header.bytes();
    return reader;
}
