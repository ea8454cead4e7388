// The typed members and hooks that the typed sets share.
#ifndef FXDS_TYPEDSET_H
#define FXDS_TYPEDSET_H

#include <cstddef>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>

#include "fxds/KeyHooks.h"
#include "fxds/Set.h"

template <class Key>
class fxTypedSetIter;

/// A set of Key, which needs nothing but a copy constructor and a destructor.
/// A subclass may override the hooks further; then it calls cleanup() in its
/// destructor. It cannot be transcribed unless a subclass overrides xdrKey(),
/// as fxXdrSet does (XdrTables.h).
/// See fxSet for everything else.
template <class Key>
class FX_API fxTypedSet : public fxTypedKeys<Key, fxSet> {
    typedef fxTypedKeys<Key, fxSet> Keys;
    static_assert(alignof(Key) <= alignof(std::max_align_t),
                  "keys lie in malloc() memory, which is not aligned for this type");

public:
    typedef fxTypedSetIter<Key> Iter;  ///< What begin() gives.

    /// `nBuckets` chains; 0 means 31.
    explicit fxTypedSet(unsigned int nBuckets = 0) : Keys(sizeof(Key), nBuckets) {}
    /// Holds the keys, as in {"left", "right"}. A single whole number is none: it is
    /// `nBuckets`, as in parentheses. It enters them by the hooks of this class: a
    /// subclass that overrides hooks has a constructor of its own, which calls addAll().
    fxTypedSet(fxDetail::ArrayItems<Key> items) : fxTypedSet(chainsOf(items)) {
        if (!isCount(items)) addAll(items);
        this->forgetFinder();
    }
    explicit fxTypedSet(fxTypeObj& type) : Keys(type) { this->keySize = sizeof(Key); }
    fxTypedSet(const fxTypedSet&) = default;
    /// Leaves the source empty, as fxSet does.
    fxTypedSet(fxTypedSet&&) = default;  // NOLINT(performance-noexcept-move-constructor)
    /// Becomes like `other`, as fxSet does.
    fxTypedSet& operator=(const fxTypedSet& other) {
        Keys::operator=(other);
        return *this;
    }
    ~fxTypedSet() override { this->cleanup(); }

    bool empty() const { return this->isEmpty(); }  ///< The same, for std::empty().

    /// Adds a copy of the key, unless an equal one is there, which stays.
    void add(const Key& key) {
        if constexpr (fxDetail::isCalm<Key>) {
            if (this->mayEnter()) {
                bool isNew = false;
                this->enter(key, isNew);
                return;
            }
        }
        Keys::add(&key);
    }
    ///@{
    /// Adds a copy of a text of another kind, for keys that are strings.
    template <class Text, fxDetail::IfLookedUp<Key, Text> = 0>
    void add(const Text& text) {
        add(Key(std::string_view(fxTextView(text))));
    }
    template <class Text, fxDetail::IfCopied<Key, Text> = 0>
    void add(const Text& text) {
        add(Key(std::string_view(fxTextView(text))));
    }
    ///@}
    /// Adds every key.
    void addAll(fxDetail::ArrayItems<Key> items) {
        for (const auto& item : items) {
            if constexpr (std::is_aggregate_v<Key>) {
                add(item);
            } else {
                add(item.value);
            }
        }
    }
    /// Adds a key that is made of `arguments`, as add() does. Returns whether it was
    /// missing.
    template <class... Arguments>
    bool emplace(Arguments&&... arguments) {
        const Key key(std::forward<Arguments>(arguments)...);
        if (this->contains(key)) return false;
        add(key);
        return true;
    }
    /// Moves the key out and removes the element. Nothing when it is absent.
    std::optional<Key> take(const Key& key) {
        const Key* const stored = find(key);
        if (stored == nullptr) return std::nullopt;
        std::optional<Key> taken(*stored);
        this->remove(key);
        return taken;
    }
    /// The stored key that is equal to `key`, or null.
    const Key* find(const Key& key) const { return static_cast<const Key*>(this->findKey(key)); }

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

    /// The same for keys that are strings, with a text of another kind, zero-terminated
    /// or a view: it is copied only where hooks are overridden, which expect a string.
    template <class Text, fxDetail::IfLookedUp<Key, Text> = 0>
    const Key* find(const Text& text) const {
        return static_cast<const Key*>(this->findText(fxTextView(text)));
    }

    /// The same for keys that are std::string, with a view or an fxStr, which is copied
    /// only where hooks are overridden, and by the first searches of a table.
    template <class Text, fxDetail::IfCopied<Key, Text> = 0>
    const Key* find(const Text& text) const {
        return static_cast<const Key*>(this->findView(fxTextView(text)));
    }

    ///@{
    /// Whether both have the same keys.
    friend bool operator==(const fxTypedSet& a, const fxTypedSet& b) {
        if (a.size() != b.size()) return false;
        for (Iter i = a.begin(); i.notDone(); ++i) {
            if (!b.contains(i.key())) return false;
        }
        return true;
    }
    friend bool operator!=(const fxTypedSet& a, const fxTypedSet& b) { return !(a == b); }
    ///@}

    Iter begin() const { return Iter(const_cast<fxTypedSet&>(*this)); }
    Iter end() const { return Iter(); }

protected:
    typename Keys::Finder* finder() const override { return this->ownFinder(typeid(fxTypedSet)); }

private:
    // Whether the braces hold one whole number.
    static bool isCount(fxDetail::ArrayItems<Key> items) {
        if constexpr (std::is_aggregate_v<Key>) {
            return false;
        } else {
            return items.size() == 1 && items.begin()->isCount;
        }
    }
    static unsigned int chainsOf(fxDetail::ArrayItems<Key> items) {
        if constexpr (!std::is_aggregate_v<Key>) {
            if (isCount(items)) return fxLengthField(items.begin()->count);
        }
        return 0;
    }
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
    /// Begins at the first element.
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
    const Key* operator->() const { return &key(); }  ///< Requires: a current element.
    /// For `*i++`.
    static const Key& entry(void* key, void*) { return *static_cast<const Key*>(key); }
    typedef std::forward_iterator_tag iterator_category;  ///< For the standard's algorithms.
    typedef Key value_type;                               ///< Likewise.
    typedef const Key* pointer;                           ///< Likewise.
    typedef const Key& reference;                         ///< Likewise.

    fxTypedSetIter& operator++() {
        fxSetIter::operator++();
        return *this;
    }
    fxHashPassed<fxTypedSetIter> operator++(int) {
        const fxHashPassed<fxTypedSetIter> passed(*this);
        ++*this;
        return passed;
    }
};

#endif
