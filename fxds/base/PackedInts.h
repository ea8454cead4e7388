// Transcription of n ints as n longs. Private to the library.
#ifndef FXDS_BASE_PACKEDINTS_H
#define FXDS_BASE_PACKEDINTS_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>

#include "fxds/Transcriber.h"

//     4n bytes  the ints, one after the other
//     4n bytes  zero
//
// The longs are staged, so that only the ints are read or changed.

/// Transcribes `count` ints through the transcriber's operation for Long, at
/// most `mostLongs` in one call. `place(first, n)` returns the address of the n
/// ints from index `first` on, or null to give up.
template <class Long, class Place>
bool fxXdrPackedInts(fxTranscriber& transcriber, size_t count, size_t mostLongs, Place place) {
    typedef std::remove_pointer_t<decltype(place(0, 0))> Int;
    constexpr size_t fewLongs = 16;
    Long few[fewLongs];
    const size_t step = std::min(count, mostLongs);
    const std::unique_ptr<Long[]> many(step > fewLongs ? new Long[step] : nullptr);
    Long* const staged = many != nullptr ? many.get() : few;

    for (size_t done = 0; done < count;) {
        const size_t longs = std::min(step, count - done);
        const size_t first = std::min(2 * done, count);
        const size_t ints = std::min(2 * longs, count - first);
        Int* const at = ints != 0 ? place(first, ints) : nullptr;
        if (at == nullptr && ints != 0) return false;
        if (!transcriber.isReading()) {
            std::memset(staged, 0, longs * sizeof(Long));
            if (ints != 0) std::memcpy(staged, at, ints * sizeof(Int));
        }
        if (!transcriber.xdr(staged, static_cast<unsigned int>(longs))) return false;
        if (transcriber.isReading() && ints != 0) std::memcpy(at, staged, ints * sizeof(Int));
        done += longs;
    }
    return true;
}

/// The same for ints at one address.
template <class Long, class Int>
bool fxXdrPackedInts(fxTranscriber& transcriber, Int* ints, size_t count, size_t mostLongs) {
    if (count == 1) {  // the usual case: a third of the work of the general one
        Long word = 0;
        std::memcpy(&word, ints, sizeof(Int));
        if (!transcriber.xdr(&word, 1)) return false;
        if (transcriber.isReading()) std::memcpy(ints, &word, sizeof(Int));
        return true;
    }
    return fxXdrPackedInts<Long>(transcriber, count, mostLongs,
                                 [ints](size_t first, size_t) { return ints + first; });
}

#endif
