#include "fxds/Stream.h"

// A stream without its own buffer shows an empty window; its users then call
// read() and write().

fxStream::~fxStream() = default;

const fxStreamWindow& fxStream::window() {
    static const fxStreamWindow empty;
    return empty;
}

size_t fxStream::bytesToCome() { return window().size(); }
