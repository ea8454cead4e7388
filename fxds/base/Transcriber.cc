#include "fxds/Transcriber.h"

#include <cstring>
#include <vector>

#include "fxds/Stream.h"
#include "fxds/XDRObj.h"

// What needs no stream format. The functions that write and read the header of
// a stream and choose the transcriber are in streams/StreamHeader.cc, beside the
// binary format.

namespace {

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
