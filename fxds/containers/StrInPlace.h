// The transcription of strings in the entries of dictionaries and sets. Private
// to the library.
#ifndef FXDS_CONTAINERS_STRINPLACE_H
#define FXDS_CONTAINERS_STRINPLACE_H

#include <new>

#include "fxds/Str.h"
#include "fxds/Transcriber.h"

/// Transcribes the string at `at`; a reader first makes an empty one there,
/// and leaves the storage raw when it fails.
inline bool fxXdrStrInPlace(fxTranscriber& transcriber, void* at) {
    if (!transcriber.isReading()) return static_cast<fxStr*>(at)->xdr(transcriber);
    fxStr* const string = new (at) fxStr(fxStr_type);
    if (string->xdr(transcriber)) return true;
    string->~fxStr();
    return false;
}

#endif
