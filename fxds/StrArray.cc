#include "fxds/StrArray.h"

// Reading constructs the strings one by one in a block of the final size, and
// counts each as soon as it exists. The block must not move meanwhile, since
// the reader keeps the places of texts that follow later. What a stream claims
// costs address space only: pages are touched as strings arrive.

int fxStrArray::compareElements(const void* a, const void* b) const {
    return compare(*static_cast<const fxStr*>(a), *static_cast<const fxStr*>(b));
}

fxBool fxStrArray::xdr(fxTranscriber& transcriber) {
    unsigned int byteCount = 0;
    if (!xdrSizes(transcriber, byteCount)) return 0;
    return transcriber.isReading() ? readStrings(transcriber, byteCount)
                                   : writeStrings(transcriber);
}

bool fxStrArray::writeStrings(fxTranscriber& transcriber) {
    for (fxStr& string : *this) {
        if (!string.xdr(transcriber)) return false;
    }
    return true;
}

// After a failure the block stays, empty: a text whose place it holds may still
// arrive.
bool fxStrArray::readStrings(fxTranscriber& transcriber, unsigned int byteCount) {
    if (!reserve(byteCount)) return false;
    while (lengthBytes < byteCount) {
        fxStr* const string = new (data + lengthBytes) fxStr(fxStr_type);
        lengthBytes += itemBytes;
        if (!string->xdr(transcriber)) {
            destroy();
            lengthBytes = 0;
            return false;
        }
    }
    return true;
}
