#include "fxds/TypedArray.h"

#include <algorithm>

#include "fxds/BoolArray.h"
#include "fxds/IntArray.h"
#include "fxds/base/PackedInts.h"

namespace {

constexpr std::size_t stagedLongs = 4096;

}  // namespace

// Ints are packed over the whole array, so that a part of it is no run of ints
// in the stream: an array that is read in pieces is unpacked here.
fxBool fxIntArray::xdr(fxTranscriber& transcriber) {
    unsigned int byteCount = 0;
    if (!xdrSizes(transcriber, byteCount)) return 0;
    const bool isWhole = !transcriber.isReading() || !transcriber.readsInPieces();
    if (isWhole || byteCount <= pieceBytes / 2) {
        return xdrElements(transcriber, byteCount, xdrInPlace);
    }
    const bool isRead = fxXdrPackedInts<long>(
        transcriber, byteCount / sizeof(int), stagedLongs, [&](std::size_t first, std::size_t n) {
            return growTo(transcriber, (first + n) * sizeof(int), byteCount) ? begin() + first
                                                                             : nullptr;
        });
    return endReading(isRead, byteCount);
}

fxBool fxBoolArray::xdr(fxTranscriber& transcriber) {
    if (!fxRecordedArray::xdr(transcriber)) return 0;
    if (transcriber.isReading()) normalise();
    return 1;
}

// A whole number may be one whose low byte is 0.
void fxBoolArray::setItems(fxDetail::ArrayItems<fxBool> items) {
    if (items.size() == 1 && items.begin()->isCount) return normalise();
    std::transform(items.begin(), items.end(), begin(), [](const fxDetail::ArrayItem<fxBool>& i) {
        return fxBool{i.isCount ? i.count != 0 : i.value != 0};
    });
}

void fxBoolArray::normalise() {
    std::transform(begin(), end(), begin(), [](fxBool byte) { return fxBool{byte != 0}; });
}
