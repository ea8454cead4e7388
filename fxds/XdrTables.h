// Dictionaries and sets that are saved with their contents.
#ifndef FXDS_XDRTABLES_H
#define FXDS_XDRTABLES_H

#include <new>
#include <typeinfo>

#include "fxds/TypedDictionary.h"
#include "fxds/TypedSet.h"
#include "fxds/Xdr.h"

namespace fxDetail {

// Transcribes a T at a place, which is raw before it is read, and after a failure.
template <class T>
bool xdrInPlace(fxTranscriber& t, void* place) {
    constexpr size_t chainBytes = 4;  // of 8 in each entry, for its key and its value
    if (!fxXdrClaim<T, chainBytes>(t)) return false;
    T* const value = t.isReading() ? new (place) T() : static_cast<T*>(place);
    struct Undo {
        ~Undo() {
            if (isDue) value->~T();
        }
        T* const value;
        bool isDue;
    } undo{value, t.isReading()};
    if (!fxXdr(t, *value)) return false;
    undo.isDue = false;
    return true;
}

}  // namespace fxDetail

/// A dictionary whose keys and values travel by fxXdr(): a field of a transcribable
/// class, as in
///
///     fxXdrDictionary<fxStr, long> counts;
///     fxBool State::xdr(fxTranscriber& t) { return fxXdrAll(t, counts); }
///
/// Keys and values are default-constructed before they are read.
template <class Key, class Value>
class fxXdrDictionary : public fxTypedDictionary<Key, Value> {
public:
    using fxTypedDictionary<Key, Value>::fxTypedDictionary;
    ~fxXdrDictionary() override { this->cleanup(); }

protected:
    ///@{
    /// The hooks of the table.
    bool xdrKey(fxTranscriber& t, void* key) override { return fxDetail::xdrInPlace<Key>(t, key); }
    bool xdrValue(fxTranscriber& t, void* value) override {
        return fxDetail::xdrInPlace<Value>(t, value);
    }
    typename fxTypedDictionary<Key, Value>::Finder* finder() const override {
        return this->finderFor(typeid(fxXdrDictionary));
    }
    ///@}
};

/// The same of a set.
template <class Key>
class fxXdrSet : public fxTypedSet<Key> {
public:
    using fxTypedSet<Key>::fxTypedSet;
    ~fxXdrSet() override { this->cleanup(); }

protected:
    ///@{
    /// The hooks of the table.
    bool xdrKey(fxTranscriber& t, void* key) override { return fxDetail::xdrInPlace<Key>(t, key); }
    typename fxTypedSet<Key>::Finder* finder() const override {
        return this->finderFor(typeid(fxXdrSet));
    }
    ///@}
};

#endif
