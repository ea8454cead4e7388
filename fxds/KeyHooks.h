// What the common key types are: hash and order.
#ifndef FXDS_KEYHOOKS_H
#define FXDS_KEYHOOKS_H

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <typeinfo>

#include "fxds/Str.h"

/// For fingerprintKey(): a number that depends on all of the bytes.
FX_API unsigned long fxFingerprint(const void* bytes, std::size_t count);

/// Hashing and comparing of keys of type Key, for fxTypedDictionary and
/// fxTypedSet. Specialise it for a key type of your own:
///
///     static unsigned long hash(const Key&);         // decides the chain
///     static int compare(const Key&, const Key&);    // 0 when equal
template <class Key>
struct fxKeyHooks;

/// Texts are equal up to their first zero byte.
template <>
struct FX_API fxKeyHooks<fxStr> {
    static unsigned long hash(const fxStr& key) { return key.hash(); }
    static int compare(const fxStr& a, const fxStr& b) { return ::compare(a, b); }
    /// For fingerprintKey(): sees the whole text, where hash() sees 16 bytes at most.
    static unsigned long fingerprint(const fxStr& key, unsigned long hash);
};

/// Addresses of objects: the low 32 bits, without the two that hardly vary.
template <>
struct fxKeyHooks<const void*> {
    static unsigned long hash(const void* key) {
        return (reinterpret_cast<std::uintptr_t>(key) & 0xFFFFFFFFU) >> 2;
    }
    static int compare(const void* a, const void* b) { return a == b ? 0 : 1; }
    /// For fingerprintKey(): what hash() leaves out hardly tells addresses apart.
    static unsigned long fingerprint(const void*, unsigned long hash) { return hash; }
};

/// The hooks for keys of type Key over Base, which is fxDictionary or fxSet.
template <class Key, class Base>
class FX_API fxTypedKeys : public Base {
public:
    using Base::Base;

protected:
    unsigned long hashKey(const void* key) const override {
        return fxKeyHooks<Key>::hash(*static_cast<const Key*>(key));
    }
    int compareKeys(const void* a, const void* b) const override {
        return fxKeyHooks<Key>::compare(*static_cast<const Key*>(a), *static_cast<const Key*>(b));
    }
    void copyKey(const void* from, void* to) const override {
        if (to != nullptr) new (to) Key(*static_cast<const Key*>(from));
    }
    void destroyKey(void* key) const override { static_cast<Key*>(key)->~Key(); }
    bool xdrKey(fxTranscriber&, void*) override { return false; }

    /// For finder(): the direct search if this object's class is `exact`, which
    /// overrides none of the hooks that a search asks, and there is one for
    /// Key; otherwise the search by the hooks.
    typename Base::Finder* finderFor(const std::type_info& exact) const {
        if constexpr (std::is_same_v<Key, fxStr> || std::is_same_v<Key, const void*>) {
            if (typeid(*this) == exact) return Base::template directFinder<Key>();
        }
        return Base::finder();
    }
};

#endif
