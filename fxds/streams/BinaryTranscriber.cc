#include "fxds/BinaryTranscriber.h"

#include "fxds/base/PackedInts.h"

namespace {

constexpr unsigned int stagedLongs = 4096;

// One int that a reader has at hand needs no staging.
template <class Long, class Int>
bool takeOne(fxTranscriber& transcriber, Int* ints, unsigned int count) {
    Long word;
    if (count != 1 || !transcriber.takeReady(word)) return false;
    std::memcpy(ints, &word, sizeof *ints);
    return true;
}

}  // namespace

fxBinaryTranscriber::fxBinaryTranscriber()
    : fxTranscriber(nullptr, false), cursor(buffer), room(bufferBytes), used(0) {}

fxBinaryTranscriber::~fxBinaryTranscriber() = default;

bool fxBinaryTranscriber::xdr(int* ints, unsigned int count) {
    return takeOne<long>(*this, ints, count) ||
           fxXdrPackedInts<long>(*this, ints, count, stagedLongs);
}

bool fxBinaryTranscriber::xdr(unsigned int* ints, unsigned int count) {
    return takeOne<unsigned long>(*this, ints, count) ||
           fxXdrPackedInts<unsigned long>(*this, ints, count, stagedLongs);
}
