// Hooks of the direct search, which calls them without virtual calls.
#ifndef FXDS_CONTAINERS_HASHHOOKS_H
#define FXDS_CONTAINERS_HASHHOOKS_H

#include <cstring>
#include <new>
#include <string_view>
#include <type_traits>

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
    static unsigned long fingerprint(const void* key, unsigned long hash) {
        return fxKeyHooks<Key>::fingerprint(at(key), hash);
    }
    static fxDirectHooks ofStored() { return {}; }
};

/// The hooks where keys are texts. Those of the same bytes are equal; only others need to
/// be compared, which looks at them up to their zeros.
template <>
struct fxDirectHooks<fxStr> {
    static const fxStr& at(const void* key) { return *static_cast<const fxStr*>(key); }
    static std::string_view text(const void* key) { return at(key).view(); }
    [[gnu::always_inline]] static unsigned long hash(const void* key) {
        return fxTextKeys::hash(text(key));
    }
    static int compare(const void* a, const void* b) { return ::compare(at(a), at(b)); }
    [[gnu::always_inline]] static unsigned long fingerprint(const void* key, unsigned long) {
        return fxTextKeys::fingerprint(text(key));
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
    static std::string_view text(const void* key) { return at(key); }
    [[gnu::always_inline]] static unsigned long hash(const void* key) {
        return fxTextKeys::hash(at(key));
    }
    static int compare(const void* asked, const void* stored) {
        return fxCompareTexts(at(asked), static_cast<const fxStr*>(stored)->view());
    }
    [[gnu::always_inline]] static unsigned long fingerprint(const void* key, unsigned long) {
        return fxTextKeys::fingerprint(at(key));
    }
    static fxDirectHooks<fxStr> ofStored() { return {}; }
};

/// Keys that are fxStr, and lie in entries with room for a text.
struct fxTextInEntry {
    /// Makes a key. `copy` has `room` bytes, which get the text if it is not longer; it is the
    /// key's own if the terminator fits, too.
    [[gnu::always_inline]] static void make(void* key, std::string_view text, char* copy,
                                            std::size_t room) {
        const std::size_t count = text.size();
        if (count <= room) fxTextKeys::copy(text, copy);
        if (count == 0 || count >= room) {
            new (key) fxStr(text);
            return;
        }
        copy[count] = '\0';
        new (key) fxStr(fxStr::InEntry{copy}, static_cast<unsigned int>(count) + 1);
    }
};

/// Whether the hooks are those of texts.
template <class Hooks>
inline constexpr bool fxAreForTexts = std::is_same_v<Hooks, fxDirectHooks<fxStr>> ||
                                      std::is_same_v<Hooks, fxDirectHooks<std::string_view>>;

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
