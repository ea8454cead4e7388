#include "fxds/StrArray.h"

#include <algorithm>

#include "fxds/Transcriber.h"

// Reading constructs the strings one by one, counts each as soon as it exists,
// and makes room as they arrive: the length in the stream is only a claim. The
// reader keeps the places of texts that follow later, so it gets a report
// whenever the block moves.

int fxStrArray::compareElements(const void* a, const void* b) const {
    return compare(*static_cast<const fxStr*>(a), *static_cast<const fxStr*>(b));
}

fxStrArray fxStr::split(fxTextView separator) const {
    fxStrArray parts;
    std::string_view rest = view();
    std::size_t end = npos;
    while (!separator.empty() && (end = rest.find(separator)) != npos) {
        parts.append(fxStr(rest.substr(0, end)));
        rest.remove_prefix(end + separator.size());
    }
    parts.append(fxStr(rest));
    return parts;
}

fxBool fxStrArray::xdr(fxTranscriber& transcriber) {
    unsigned int byteCount = 0;
    if (!xdrSizes(transcriber, byteCount)) return 0;
    if (!transcriber.isReading()) return writeStrings(transcriber);
    static constexpr fxTranscriber::Container kind = {
        [](const void* array) {
            const fxStrArray& self = *static_cast<const fxStrArray*>(array);
            return fxTranscriber::printOf(self.data, self.lengthBytes);
        },
        [](void* array) { static_cast<fxStrArray*>(array)->resize(0); }};
    if (transcriber.attempt(this, kind, [&] { return readStrings(transcriber, byteCount); })) {
        return 1;
    }
    destroy();
    discard();
    return 0;
}

bool fxStrArray::writeStrings(fxTranscriber& transcriber) {
    for (fxStr& string : *this) {
        if (!string.xdr(transcriber)) return false;
    }
    return true;
}

bool fxStrArray::readStrings(fxTranscriber& transcriber, unsigned int byteCount) {
    constexpr std::size_t firstBytes = 64 * sizeof(fxStr);
    while (lengthBytes < byteCount) {
        if (lengthBytes == maxBytes) {
            const void* const before = data;
            const std::size_t roomier = std::max(firstBytes, 2 * std::size_t{maxBytes});
            if (!fxArray::reserve(std::min<std::size_t>(roomier, byteCount))) return false;
            if (before != nullptr) transcriber.placesMoved(before, lengthBytes, data);
        }
        fxStr* const string = new (data + lengthBytes) fxStr(fxStr_type);
        lengthBytes += itemBytes;
        if (!string->xdr(transcriber)) return false;
    }
    return true;
}
