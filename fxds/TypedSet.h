// What the sets of known key types share: typed members and hooks.
#ifndef FXDS_TYPEDSET_H
#define FXDS_TYPEDSET_H

#include <new>

#include "fxds/KeyHooks.h"
#include "fxds/Set.h"

template <class Key>
class fxTypedSetIter;

/// A set of Key, which needs nothing but a copy constructor and a destructor.
/// A subclass may override the hooks further; then it calls cleanup() in its
/// destructor. It cannot be transcribed unless a subclass overrides xdrKey().
/// See fxSet for everything else.
template <class Key>
class FX_API fxTypedSet : public fxSet {
public:
    typedef fxTypedSetIter<Key> Iter;

    explicit fxTypedSet(unsigned int nBuckets = 0) : fxSet(sizeof(Key), nBuckets) {}
    explicit fxTypedSet(fxTypeObj& type) : fxSet(type) { keySize = sizeof(Key); }
    fxTypedSet(const fxTypedSet&) = default;
    fxTypedSet& operator=(const fxTypedSet& other) {
        fxSet::operator=(other);
        return *this;
    }
    ~fxTypedSet() override { cleanup(); }

    /// Adds a copy of the key, unless an equal one is there, which stays.
    void add(const Key& key) { fxSet::add(&key); }
    bool contains(const Key& key) const { return find(key) != nullptr; }
    /// The stored key that is equal to `key`, or null.
    const Key* find(const Key& key) const { return static_cast<const Key*>(fxSet::find(&key)); }
    void remove(const Key& key) { fxSet::remove(&key); }

    Iter begin() const { return Iter(const_cast<fxTypedSet&>(*this)); }

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
    unsigned long fingerprintKey(const void* key, unsigned long hash) const override {
        return fxKeyHooks<Key>::fingerprint(*static_cast<const Key*>(key), hash);
    }
};

/// fxSetIter with a type.
template <class Key>
class FX_API fxTypedSetIter : public fxSetIter {
public:
    fxTypedSetIter() = default;
    fxTypedSetIter(fxTypedSet<Key>& elements) : fxSetIter(elements) {}
    /// Requires: not null.
    fxTypedSetIter(fxTypedSet<Key>* elements) : fxSetIter(*elements) {}
    using fxSetIter::operator=;

    /// Requires: a current element (see fxSetIter).
    const Key& key() const { return *static_cast<const Key*>(getKey()); }
    const Key& operator*() const { return key(); }
};

#endif
