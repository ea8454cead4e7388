#include "fxds/Stream.h"

fxStream::~fxStream() = default;

const fxStreamWindow& fxStream::window() {
    static const fxStreamWindow empty;
    return empty;
}
