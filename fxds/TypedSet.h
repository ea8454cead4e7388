// What the sets of known key types share: typed members and hooks.
#ifndef FXDS_TYPEDSET_H
#define FXDS_TYPEDSET_H

#include <cstddef>
#include <type_traits>

#include "fxds/KeyHooks.h"
#include "fxds/Set.h"

template <class Key>
class fxTypedSetIter;

/// A set of Key, which needs nothing but a copy constructor and a destructor.
/// A subclass may override the hooks further; then it calls cleanup() in its
/// destructor. It cannot be transcribed unless a subclass overrides xdrKey().
/// See fxSet for everything else.
template <class Key>
class FX_API fxTypedSet : public fxTypedKeys<Key, fxSet> {
    typedef fxTypedKeys<Key, fxSet> Keys;
    static_assert(alignof(Key) <= alignof(std::max_align_t),
                  "keys lie in malloc() memory, which is not aligned for this type");

public:
    typedef fxTypedSetIter<Key> Iter;  ///< What begin() gives.

    /// `nBuckets` chains; 0 stands for 31.
    explicit fxTypedSet(unsigned int nBuckets = 0) : Keys(sizeof(Key), nBuckets) {}
    explicit fxTypedSet(fxTypeObj& type) : Keys(type) { this->keySize = sizeof(Key); }
    fxTypedSet(const fxTypedSet&) = default;
    /// Becomes like `other`, as fxSet does.
    fxTypedSet& operator=(const fxTypedSet& other) {
        Keys::operator=(other);
        return *this;
    }
    ~fxTypedSet() override { this->cleanup(); }

    /// Adds a copy of the key, unless an equal one is there, which stays.
    void add(const Key& key) { Keys::add(&key); }
    /// Whether an equal key is there.
    bool contains(const Key& key) const { return find(key) != nullptr; }
    /// The stored key that is equal to `key`, or null.
    const Key* find(const Key& key) const { return static_cast<const Key*>(Keys::find(&key)); }
    void remove(const Key& key) { Keys::remove(&key); }  ///< Destroys the element, if it is there.

    ///@{
    /// As in fxSet, with a set of the same key type.
    template <class Other>
    void operator|=(const Other& other) {
        Keys::operator|=(sameKeys(other));
    }
    template <class Other>
    void operator&=(const Other& other) {
        Keys::operator&=(sameKeys(other));
    }
    template <class Other>
    void operator-=(const Other& other) {
        Keys::operator-=(sameKeys(other));
    }
    ///@}

    Iter begin() const { return Iter(const_cast<fxTypedSet&>(*this)); }

protected:
    typename Keys::Finder* finder() const override { return this->finderFor(typeid(fxTypedSet)); }

private:
    template <class Other>
    static const fxSet& sameKeys(const Other& other) {
        static_assert(std::is_base_of_v<fxTypedSet, Other>,
                      "|=, &= and -= need two sets of the same key type");
        return other;
    }
};

/// fxSetIter with a type.
template <class Key>
class FX_API fxTypedSetIter : public fxSetIter {
public:
    fxTypedSetIter() = default;
    /// Stands on the first element.
    fxTypedSetIter(fxTypedSet<Key>& elements) : fxSetIter(elements) {}
    /// Requires: not null.
    fxTypedSetIter(fxTypedSet<Key>* elements) : fxSetIter(*elements) {}
    /// Starts over with another set, of this key type.
    template <class Other, class = std::enable_if_t<std::is_base_of_v<fxSet, Other>>>
    void operator=(Other& other) {
        static_assert(std::is_base_of_v<fxTypedSet<Key>, Other>,
                      "an iterator walks sets of its own key type only");
        fxSetIter::operator=(other);
    }

    ///@{
    /// Requires: a current element (see fxSetIter).
    const Key& key() const { return *static_cast<const Key*>(getKey()); }
    const Key& operator*() const { return key(); }
    ///@}
};

#endif
