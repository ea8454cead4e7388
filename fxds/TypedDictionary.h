// What the dictionaries of known types share: typed members and hooks.
#ifndef FXDS_TYPEDDICTIONARY_H
#define FXDS_TYPEDDICTIONARY_H

#include <new>

#include "fxds/Dictionary.h"
#include "fxds/KeyHooks.h"

template <class Key, class Value>
class fxTypedDictIter;

/// A dictionary from Key to Value, which need nothing but a copy constructor,
/// a destructor and (Value) a default constructor. A subclass may override the
/// hooks further; then it calls cleanup() in its destructor, as all do.
///
///     fxVoidPtrDict dict;
///     dict[name] = pointer;
///     for (auto [key, value] : dict) use(key, value);
///
/// It cannot be transcribed unless a subclass overrides xdrKey() and
/// xdrValue(). Assigning merges. See fxDictionary for everything else.
template <class Key, class Value>
class FX_API fxTypedDictionary : public fxTypedKeys<Key, fxDictionary> {
    typedef fxTypedKeys<Key, fxDictionary> Keys;

public:
    typedef fxTypedDictIter<Key, Value> Iter;  ///< What begin() gives.

    /// `nBuckets` chains; 0 stands for 31.
    explicit fxTypedDictionary(unsigned int nBuckets = 0)
        : Keys(sizeof(Key), sizeof(Value), nBuckets) {}
    explicit fxTypedDictionary(fxTypeObj& type) : Keys(type) {
        this->keySize = sizeof(Key);
        this->valueSize = sizeof(Value);
    }
    fxTypedDictionary(const fxTypedDictionary&) = default;
    /// Merges, as fxDictionary does.
    fxTypedDictionary& operator=(const fxTypedDictionary& other) {
        Keys::operator=(other);
        return *this;
    }
    ~fxTypedDictionary() override { this->cleanup(); }

    const char* className() const override { return "DICT"; }

    /// Enters the value under the key; see addInternal().
    void add(const Key& key, const Value& value) { this->addInternal(&key, &value); }
    /// The value stored under the key, or null.
    Value* find(const Key& key) const { return static_cast<Value*>(Keys::find(&key)); }
    /// The value stored under the key, which is added with a default value
    /// when it is missing.
    Value* findCreate(const Key& key) { return static_cast<Value*>(Keys::findCreate(&key)); }
    Value& operator[](const Key& key) { return *findCreate(key); }  ///< As findCreate().
    /// Whether an equal key is there.
    bool contains(const Key& key) const { return find(key) != nullptr; }
    void remove(const Key& key) { Keys::remove(&key); }  ///< Destroys the entry, if there is one.
    /// Takes the value out; see fxDictionary::cut() for what is to be done
    /// with the block. The value moves by its bytes, so this is not for a Value
    /// that keeps a pointer into itself.
    Value* cut(const Key& key) { return static_cast<Value*>(Keys::cut(&key)); }

    Iter begin() const { return Iter(const_cast<fxTypedDictionary&>(*this)); }

protected:
    void copyValue(const void* from, void* to) const override {
        if (to != nullptr) new (to) Value(*static_cast<const Value*>(from));
    }
    void destroyValue(void* value) const override { static_cast<Value*>(value)->~Value(); }
    void createValue(void* to) const override {
        if (to != nullptr) new (to) Value();
    }
    /// Fails: a subclass says how its values travel.
    bool xdrValue(fxTranscriber&, void*) override { return false; }

    typename Keys::Finder* finder() const override {
        return this->finderFor(typeid(fxTypedDictionary));
    }
};

/// fxDictIter with types.
template <class Key, class Value>
class FX_API fxTypedDictIter : public fxDictIter {
public:
    typedef fxTypedDictionary<Key, Value> Dictionary;  ///< What it walks.

    fxTypedDictIter() = default;
    /// Stands on the first entry.
    fxTypedDictIter(Dictionary& dictionary) : fxDictIter(dictionary) {}
    /// Requires: not null.
    fxTypedDictIter(Dictionary* dictionary) : fxDictIter(*dictionary) {}
    using fxDictIter::operator=;

    /// Requires: a current entry (see fxDictIter).
    const Key& key() const { return *static_cast<const Key*>(getKey()); }
    /// Requires: a current entry.
    Value& value() const { return *static_cast<Value*>(getValue()); }

    /// What range-for gives: views, good until the entry goes.
    struct Entry {
        const Key& key;  ///< Not to be changed in what makes it equal.
        Value& value;    ///< May be changed.
    };
    Entry operator*() const { return {key(), value()}; }
};

#endif
