#include "fxds/BinaryTranscriber.h"

#include "fxds/base/PackedInts.h"

namespace {

constexpr unsigned int stagedLongs = 4096;
constexpr long freeChains = 1L << 24;

}  // namespace

fxBinaryTranscriber::fxBinaryTranscriber()
    : fxTranscriber(nullptr, false),
      cursor(buffer),
      room(bufferBytes),
      used(0),
      chainsLeft(freeChains) {}

fxBinaryTranscriber::~fxBinaryTranscriber() = default;

bool fxBinaryTranscriber::xdr(int* ints, unsigned int count) {
    return fxXdrPackedInts<long>(*this, ints, count, stagedLongs);
}

bool fxBinaryTranscriber::xdr(unsigned int* ints, unsigned int count) {
    return fxXdrPackedInts<unsigned long>(*this, ints, count, stagedLongs);
}

// Limits what all tables of a stream may claim together: a count of chains takes no bytes
// in the stream and much memory here. Few chains of each table are free. A negative count,
// for entries that have arrived, raises the limit.
bool fxBinaryTranscriber::claimChains(long chains) {
    constexpr long fewChains = 256;
    if (chains > fewChains) chainsLeft -= chains - fewChains;
    if (chains < 0) chainsLeft -= chains;
    return chainsLeft >= 0 || (!isReading() && refuse("tables with too many chains"));
}
