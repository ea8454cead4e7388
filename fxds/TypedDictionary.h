// The typed members and hooks that the typed dictionaries share.
#ifndef FXDS_TYPEDDICTIONARY_H
#define FXDS_TYPEDDICTIONARY_H

#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "fxds/Dictionary.h"
#include "fxds/Fatal.h"
#include "fxds/KeyHooks.h"
#include "fxds/detail/MovesAsBytes.h"

template <class Key, class Value>
class fxTypedDictIter;
template <class Key, class Value>
class fxConstDictIter;

/// A dictionary from Key to Value, which need nothing but a copy constructor,
/// a destructor and (Value) a default constructor. A subclass may override the
/// hooks further; then it calls cleanup() in its destructor, as all do.
///
///     fxVoidPtrDict dict;
///     dict[name] = pointer;
///     for (auto [key, value] : dict) use(key, value);
///
/// It cannot be transcribed unless a subclass overrides xdrKey() and
/// xdrValue(), as fxXdrDictionary does (XdrTables.h). Assigning merges. See fxDictionary for
/// everything else.
template <class Key, class Value>
class FX_API fxTypedDictionary : public fxTypedKeys<Key, fxDictionary> {
    typedef fxTypedKeys<Key, fxDictionary> Keys;
    static_assert(alignof(Key) <= alignof(std::max_align_t) &&
                      alignof(Value) <= alignof(std::max_align_t),
                  "keys and values lie in malloc() memory, which is not aligned for this type");

public:
    typedef fxTypedDictIter<Key, Value> Iter;       ///< What begin() gives.
    typedef fxConstDictIter<Key, Value> ConstIter;  ///< What begin() of a constant gives.
    typedef std::initializer_list<std::pair<Key, Value>> Entries;  ///< In braces.

    /// `nBuckets` chains; 0 means 31.
    explicit fxTypedDictionary(unsigned int nBuckets = 0)
        : Keys(sizeof(Key), sizeof(Value), nBuckets) {
        this->alignValues(alignof(Value));
    }
    /// Holds the entries, as in {{"left", 1}, {"right", 2}}; of equal keys the last
    /// one counts. It enters them by the hooks of this class: a subclass that
    /// overrides hooks has a constructor of its own, which calls addAll().
    fxTypedDictionary(Entries entries) : fxTypedDictionary() {
        addAll(entries);
        this->forgetFinder();
    }
    explicit fxTypedDictionary(fxTypeObj& type) : Keys(type) {
        this->keySize = sizeof(Key);
        this->valueSize = sizeof(Value);
        this->alignValues(alignof(Value));
    }
    fxTypedDictionary(const fxTypedDictionary&) = default;
    /// Leaves the source empty, as fxDictionary does.
    // NOLINTNEXTLINE(performance-noexcept-move-constructor): copies may throw
    fxTypedDictionary(fxTypedDictionary&&) = default;
    /// Merges, as fxDictionary does.
    fxTypedDictionary& operator=(const fxTypedDictionary& other) {
        Keys::operator=(other);
        return *this;
    }
    ~fxTypedDictionary() override { this->cleanup(); }

    const char* className() const override { return "DICT"; }

    bool empty() const { return this->isEmpty(); }  ///< The same, for std::empty().

    /// Enters the value under the key; see addInternal().
    void add(const Key& key, const Value& value) {
        if constexpr (fxDetail::isCalm<Key> && fxDetail::isCalm<Value>) {
            if (this->mayEnter()) {
                bool isNew = false;
                char* const entry = static_cast<char*>(this->enter(key, isNew));
                auto* const at = reinterpret_cast<Value*>(entry + this->keySize);
                if (at == &value) return;
                if (!isNew) at->~Value();
                new (at) Value(value);
                return;
            }
        }
        this->addInternal(&key, &value);
    }
    /// Enters every entry.
    void addAll(Entries entries) {
        for (const auto& entry : entries) add(entry.first, entry.second);
    }
    /// Enters a value that is made of `arguments`, unless the key is there. Returns
    /// the value that is stored then, and whether it is the new one. The value is
    /// made first and copied in, so that overridden hooks see it; null when they
    /// have removed the entry.
    template <class... Arguments>
    std::pair<Value*, bool> emplace(const Key& key, Arguments&&... arguments) {
        if (Value* const there = find(key)) return {there, false};
        const Value made(std::forward<Arguments>(arguments)...);
        this->addInternal(&key, &made);
        return {find(key), true};
    }
    /// The value stored under the key, or null.
    Value* find(const Key& key) { return static_cast<Value*>(this->findKey(key)); }
    /// The same in a constant dictionary, whose values are constant.
    const Value* find(const Key& key) const {
        return static_cast<const Value*>(this->findKey(key));
    }
    /// The value stored under the key, which is added with a default value
    /// when it is missing.
    Value* findCreate(const Key& key) { return static_cast<Value*>(Keys::findCreate(&key)); }
    Value& operator[](const Key& key) { return *findCreate(key); }  ///< As findCreate().
    /// A copy of the value stored under the key, or `fallback`.
    Value value(const Key& key, const Value& fallback = Value()) const {
        const Value* const stored = find(key);
        return stored != nullptr ? *stored : fallback;
    }
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
        this->remove(key);
        return taken;
    }

    /// The same for keys that are strings, with a text of another kind, zero-terminated
    /// or a view: it is copied only to be entered, and where hooks are overridden,
    /// which expect a string.
    template <class Text, fxDetail::IfLookedUp<Key, Text> = 0>
    Value* find(const Text& text) {
        return static_cast<Value*>(this->findText(fxTextView(text)));
    }
    /// As find() with a key.
    template <class Text, fxDetail::IfLookedUp<Key, Text> = 0>
    const Value* find(const Text& text) const {
        return static_cast<const Value*>(this->findText(fxTextView(text)));
    }
    /// As operator[] with a key.
    template <class Text, fxDetail::IfLookedUp<Key, Text> = 0>
    Value& operator[](const Text& text) {
        Value* const stored = find(text);
        return stored != nullptr ? *stored : *findCreate(fxStr(fxTextView(text)));
    }

    /// The same for keys that are std::string, with a view or an fxStr, which is copied
    /// only to be entered, where hooks are overridden, and by the first searches of a table.
    template <class Text, fxDetail::IfCopied<Key, Text> = 0>
    Value* find(const Text& text) {
        return static_cast<Value*>(this->findView(fxTextView(text)));
    }
    /// As find() with a key.
    template <class Text, fxDetail::IfCopied<Key, Text> = 0>
    const Value* find(const Text& text) const {
        return static_cast<const Value*>(this->findView(fxTextView(text)));
    }
    /// As operator[] with a key.
    template <class Text, fxDetail::IfCopied<Key, Text> = 0>
    Value& operator[](const Text& text) {
        Value* const stored = find(text);
        return stored != nullptr ? *stored : *findCreate(Key(fxTextView(text)));
    }

    /// Copies of all keys, in the order in which iterators meet them.
    std::vector<Key> keys() const {
        std::vector<Key> all;
        all.reserve(this->size());
        for (ConstIter i = begin(); i.notDone(); ++i) all.push_back(i.key());
        return all;
    }

    ///@{
    /// Whether both have the same keys with equal values.
    friend bool operator==(const fxTypedDictionary& a, const fxTypedDictionary& b) {
        if (a.size() != b.size()) return false;
        for (ConstIter i = a.begin(); i.notDone(); ++i) {
            const Value* const mine = a.find(i.key());
            const Value* const other = b.find(i.key());
            if (mine == nullptr || other == nullptr || !(*mine == *other)) return false;
        }
        return true;
    }
    friend bool operator!=(const fxTypedDictionary& a, const fxTypedDictionary& b) {
        return !(a == b);
    }
    ///@}

    Iter begin() { return Iter(*this); }
    Iter end() { return Iter(); }
    ConstIter begin() const { return ConstIter(*this); }
    ConstIter end() const { return ConstIter(); }

protected:
    void copyValue(const void* from, void* to) const override {
        if (to != nullptr) new (to) Value(*static_cast<const Value*>(from));
    }
    void destroyValue(void* value) const override { static_cast<Value*>(value)->~Value(); }
    void createValue(void* to) const override {
        if (to != nullptr) new (to) Value();
    }
    /// Fails: a subclass defines how its values are transcribed.
    bool xdrValue(fxTranscriber&, void*) override { return false; }

    typename Keys::Finder* finder() const override {
        return this->ownFinder(typeid(fxTypedDictionary));
    }
};

namespace fxDetail {
/// Base of the iterators over entries; Self is the class that derives from it.
template <class Self, class Key, class Value>
class FX_API EntryIter : public fxDictIter {
public:
    /// Requires: a current entry (see fxDictIter).
    const Key& key() const { return *static_cast<const Key*>(getKey()); }
    /// Fatal while the value is being replaced, as within its copy constructor.
    /// Requires: a current entry.
    Value& value() const { return wholeValue(getValue()); }

    /// What range-for gives: views, good until the entry goes.
    struct Entry {
        const Key& key;  ///< Not to be changed in what makes it equal.
        Value& value;    ///< May be changed, unless the dictionary is constant.
    };
    Entry operator*() const { return {key(), value()}; }
    /// For `*i++`.
    static Entry entry(void* key, void* value) {
        return {*static_cast<const Key*>(key), wholeValue(value)};
    }
    ///@{
    /// For the standard's algorithms.
    typedef Entry value_type;
    typedef Entry reference;
    ///@}

    Self& operator++() {
        fxDictIter::operator++();
        return static_cast<Self&>(*this);
    }
    fxHashPassed<Self> operator++(int) {
        const fxHashPassed<Self> passed(static_cast<const Self&>(*this));
        ++*this;
        return passed;
    }

protected:
    EntryIter() = default;
    EntryIter(const fxDictIter& other) : fxDictIter(other) {}
    EntryIter(fxDictionary& dictionary) : fxDictIter(dictionary) {}

private:
    static Value& wholeValue(void* value) {
        if (value == nullptr) fxFatal("an entry is asked for a value that is being replaced");
        return *static_cast<Value*>(value);
    }
};
}  // namespace fxDetail

/// fxDictIter with types.
template <class Key, class Value>
class FX_API fxTypedDictIter : public fxDetail::EntryIter<fxTypedDictIter<Key, Value>, Key, Value> {
    typedef fxDetail::EntryIter<fxTypedDictIter<Key, Value>, Key, Value> Walk;

public:
    typedef fxTypedDictionary<Key, Value> Dictionary;  ///< What it walks.

    fxTypedDictIter() = default;
    /// Begins at the first entry.
    fxTypedDictIter(Dictionary& dictionary) : Walk(dictionary) {}
    /// Requires: not null.
    fxTypedDictIter(Dictionary* dictionary) : Walk(*dictionary) {}
    /// Starts over with another dictionary, of these types.
    template <class Other, class = std::enable_if_t<std::is_base_of_v<fxDictionary, Other>>>
    void operator=(Other& other) {
        static_assert(std::is_base_of_v<Dictionary, Other>,
                      "an iterator walks dictionaries of its own key and value types only");
        fxDictIter::operator=(other);
    }
};

/// The same for a constant dictionary, whose values it does not change.
template <class Key, class Value>
class FX_API fxConstDictIter
    : public fxDetail::EntryIter<fxConstDictIter<Key, Value>, Key, const Value> {
    typedef fxDetail::EntryIter<fxConstDictIter<Key, Value>, Key, const Value> Walk;

public:
    typedef fxTypedDictionary<Key, Value> Dictionary;  ///< What it walks.

    fxConstDictIter() = default;
    /// Begins at the first entry.
    fxConstDictIter(const Dictionary& dictionary) : Walk(dictionary.fxDictionary::begin()) {}
    /// Begins at the entry of the other one.
    fxConstDictIter(const fxTypedDictIter<Key, Value>& other) : Walk(other) {}
};

#endif
