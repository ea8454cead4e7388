#include "fxds/Transcriber.h"

#include <cstdlib>

#include "fxds/Fatal.h"
#include "fxds/Stream.h"
#include "fxds/TypeObj.h"
#include "fxds/XDRObj.h"
#include "fxds/base/PackedInts.h"
#include "fxds/base/StackBounds.h"

// The part that does not depend on a stream format. The functions that write
// and read the header of a stream and choose the transcriber are in
// streams/StreamHeader.cc, beside the binary format.

namespace {

// One call of the operation for long, whatever the count.
template <class Long, class Int>
bool xdrAsLongs(fxTranscriber& transcriber, Int* ints, unsigned int count) {
    if (count == 0) {
        Long none = 0;
        return transcriber.xdr(&none, 0);
    }
    return fxXdrPackedInts<Long>(transcriber, ints, count, count);
}

}  // namespace

fxTranscriber::fxTranscriber(fxStream* heldStream, bool isReader)
    : reading(isReader), stream(heldStream) {
    if (stream != nullptr) stream->take();
}

fxTranscriber::~fxTranscriber() {
    if (stream == nullptr) return;
    if (stream->refCount == 1 && fxStackPart::whole().holds(stream)) {
        fxFatal("the stream of a transcriber is a local variable: take() it first");
    }
    stream->release();
}

bool fxTranscriber::xdr(int* ints, unsigned int count) {
    return xdrAsLongs<long>(*this, ints, count);
}

bool fxTranscriber::xdr(unsigned int* ints, unsigned int count) {
    return xdrAsLongs<unsigned long>(*this, ints, count);
}

bool fxTranscriber::xdr(int** block, unsigned int count) {
    return xdr(reinterpret_cast<long**>(block), count);
}

bool fxTranscriber::xdr(unsigned int** block, unsigned int count) {
    return xdr(reinterpret_cast<unsigned long**>(block), count);
}

void fxTranscriber::forgetObjects() { reset(); }

bool fxTranscriber::readsInPieces() const { return false; }

bool fxTranscriber::hasToCome(size_t byteCount) const {
    constexpr size_t least = size_t{1} << 16;
    if (byteCount < least || stream == nullptr) return false;
    if (stream->bytesToCome() < byteCount) return false;
    // Room for more than there is memory for is made piece by piece: it may end before.
    void* volatile const room = std::malloc(byteCount);  // or the compiler would drop it
    const bool isThere = room != nullptr;
    std::free(room);
    return isThere;
}

void fxTranscriber::placesMoved(const void*, size_t, void*) {}

void fxTranscriber::placesLieIn(void*, const Container&, size_t) {}

size_t fxTranscriber::placesNoted() const { return 0; }

void fxTranscriber::forgetPlaces(size_t) {}

void fxTranscriber::setOwner(const void*) {}
void fxTranscriber::setHolder(const void*, TakeHold*) {}

bool fxTranscriber::claimChains(long) { return true; }

void fxTranscriber::countsBlock(unsigned int&) {}

size_t fxTranscriber::bytesPassed() const { return uncounted; }

bool fxTranscriber::claimMemory(size_t byteCount) {
    constexpr size_t free = size_t{1} << 26U;
    claimed += byteCount;
    if (claimed <= free) return true;
    const size_t passed = bytesPassed();
    if (passed == uncounted) return true;
    const bool isGranted = claimed - free <= memoryOfByte * (passed - claimedSince);
    return isGranted || refuse("too much memory for so few bytes");
}

bool fxTranscriber::embeds(const void*) { return true; }

bool fxTranscriber::isEmbedded(const void*) const { return false; }

bool fxTranscriber::writePointer(void* slot, fxTypeObj& declared, fxXDRObj* object, void* address) {
    return xdr(slot, nullptr, declared, object, address);
}

bool fxTranscriber::writeKnownPointer(const void*, const fxTypeObj&) { return false; }

bool fxTranscriber::xdrText(fxStr&, char** text, unsigned int byteCount) {
    return xdr(text, byteCount);
}

bool fxTranscriber::refuse(const char* reason) {
    if (complaint != nullptr) return false;
    complaint = std::make_unique<fxStreamFault>();
    complaint->kind = fxStreamFault::refused;
    complaint->reason = reason;
    return false;
}

bool fxTranscriber::refuseEdition(const fxTypeObj& type, long edition, bool isNewer) {
    if (complaint != nullptr) return false;
    refuse("");
    complaint->kind = isNewer ? fxStreamFault::newer : fxStreamFault::older;
    complaint->className = type.name;
    complaint->edition = edition;
    return false;
}

fxBool fxTranscriber::conclude(bool succeeded, fxXDRObj& object, void* address) {
    if (!succeeded) return object.xdrFail(*this, address);
    object.xdrSuccess(*this);
    return 1;
}
