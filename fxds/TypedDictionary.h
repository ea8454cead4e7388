// What the dictionaries of known types share: typed members and hooks.
#ifndef FXDS_TYPEDDICTIONARY_H
#define FXDS_TYPEDDICTIONARY_H

#include <cstddef>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "fxds/Dictionary.h"
#include "fxds/KeyHooks.h"
#include "fxds/detail/MovesAsBytes.h"

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
    static_assert(alignof(Key) <= alignof(std::max_align_t) &&
                      alignof(Value) <= alignof(std::max_align_t),
                  "keys and values lie in malloc() memory, which is not aligned for this type");

public:
    typedef fxTypedDictIter<Key, Value> Iter;  ///< What begin() gives.

    /// `nBuckets` chains; 0 stands for 31.
    explicit fxTypedDictionary(unsigned int nBuckets = 0)
        : Keys(sizeof(Key), sizeof(Value), nBuckets) {
        this->alignValues(alignof(Value));
    }
    explicit fxTypedDictionary(fxTypeObj& type) : Keys(type) {
        this->keySize = sizeof(Key);
        this->valueSize = sizeof(Value);
        this->alignValues(alignof(Value));
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
    /// Takes the value out; see fxDictionary::cut() for what is to be done with
    /// the block. The value moves by its bytes, which fxMovesAsBytes<Value> must
    /// allow. For other values, and with less to do for the caller: take().
    Value* cut(const Key& key) {
        static_assert(
            fxMovesAsBytes<Value>::value,
            "cut() moves the value by its bytes, which its type does not bear: take() it");
        return static_cast<Value*>(Keys::cut(&key));
    }
    /// Moves the value out and removes the entry. Nothing when the key is absent.
    std::optional<Value> take(const Key& key) {
        Value* const value = find(key);
        if (value == nullptr) return std::nullopt;
        std::optional<Value> taken(std::move(*value));
        remove(key);
        return taken;
    }

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
    /// Starts over with another dictionary, of these types.
    template <class Other, class = std::enable_if_t<std::is_base_of_v<fxDictionary, Other>>>
    void operator=(Other& other) {
        static_assert(std::is_base_of_v<Dictionary, Other>,
                      "an iterator walks dictionaries of its own key and value types only");
        fxDictIter::operator=(other);
    }

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
