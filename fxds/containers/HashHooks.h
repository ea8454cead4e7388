// Hooks of the direct search, which calls them without virtual calls.
#ifndef FXDS_CONTAINERS_HASHHOOKS_H
#define FXDS_CONTAINERS_HASHHOOKS_H

#include <cstring>
#include <string_view>

#include "fxds/KeyHooks.h"
#include "fxds/containers/TextKeys.h"

/// The hooks of fxKeyHooks<Key>, for keys that are looked for and keys that are
/// stored alike.
template <class Key>
struct fxDirectHooks {
    static const Key& at(const void* key) { return *static_cast<const Key*>(key); }
    static unsigned long hash(const void* key) { return fxKeyHooks<Key>::hash(at(key)); }
    static int compare(const void* a, const void* b) {
        return fxKeyHooks<Key>::compare(at(a), at(b));
    }
    static bool isEqual(const void* a, const void* b) { return compare(a, b) == 0; }
    static unsigned long fingerprint(const void* key, unsigned long hash) {
        return fxKeyHooks<Key>::fingerprint(at(key), hash);
    }
    static fxDirectHooks ofStored() { return {}; }
};

/// Texts of the same bytes are equal; only others need to be looked at up to their zeros.
/// Requires of isEqual(): neither key is one that may still lack its text.
template <>
struct fxDirectHooks<fxStr> {
    static const fxStr& at(const void* key) { return *static_cast<const fxStr*>(key); }
    static unsigned long hash(const void* key) { return at(key).hash(); }
    static int compare(const void* a, const void* b) { return ::compare(at(a), at(b)); }
    [[gnu::always_inline]] static bool isEqual(const void* a, const void* b) {
        return fxTextKeys::areSame(at(a).view(), at(b).view()) || compare(a, b) == 0;
    }
    static unsigned long fingerprint(const void* key, unsigned long) {
        return fxTextKeys::fingerprint(at(key).view());
    }
    static fxDirectHooks ofStored() { return {}; }
};

/// The key of a search is a view, a stored key an fxStr. As there, the hash sees all
/// bytes, comparison and fingerprint those before the first zero.
template <>
struct fxDirectHooks<std::string_view> {
    static std::string_view at(const void* key) {
        return *static_cast<const std::string_view*>(key);
    }
    static unsigned long hash(const void* key) { return fxStr::hash(at(key)); }
    static int compare(const void* text, const void* stored) {
        return fxCompareTexts(at(text), static_cast<const fxStr*>(stored)->view());
    }
    static bool isEqual(const void* text, const void* stored) {
        return fxTextKeys::areSame(at(text), static_cast<const fxStr*>(stored)->view()) ||
               compare(text, stored) == 0;
    }
    static unsigned long fingerprint(const void* key, unsigned long) {
        return fxTextKeys::fingerprint(at(key));
    }
    static fxDirectHooks<fxStr> ofStored() { return {}; }
};

/// XOR of the whole 8-byte words of a key: the default hash of both containers.
inline unsigned long fxHashWords(const void* key, unsigned int keySize) {
    unsigned long hash = 0;
    const char* at = static_cast<const char*>(key);
    for (unsigned int left = keySize; left >= sizeof hash; left -= 8, at += 8) {
        unsigned long word;
        std::memcpy(&word, at, sizeof word);
        hash ^= word;
    }
    return hash;
}

#endif
