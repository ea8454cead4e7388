#include "fxds/KeyHooks.h"

#include "fxds/containers/TextKeys.h"

unsigned long fxFingerprint(const void* bytes, std::size_t count) {
    return fxTextKeys::fingerprint(static_cast<const char*>(bytes), count);
}

unsigned long fxKeyHooks<fxStr>::fingerprint(const fxStr& key, unsigned long) {
    return fxTextKeys::fingerprint(key.view());
}
