// Hash and order of the common key types.
#ifndef FXDS_KEYHOOKS_H
#define FXDS_KEYHOOKS_H

#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>

#include "fxds/Str.h"
#include "fxds/detail/Mix.h"

/// For fingerprintKey(): a number that depends on all of the bytes.
FX_API unsigned long fxFingerprint(const void* bytes, std::size_t count);

/// Hashing and comparing of keys of type Key, for fxTypedDictionary and
/// fxTypedSet. There are hooks for fxStr, addresses, all integers, enumerations,
/// std::string and std::string_view. Specialise it for a key type of your own:
///
///     static unsigned long hash(const Key&);         // decides the chain
///     static int compare(const Key&, const Key&);    // 0 when equal
template <class Key>
struct fxKeyHooks;

namespace fxDetail {
template <class Key, class = void>
struct KeyHooks {
    static_assert(sizeof(Key) == 0, "keys of this type need hooks: specialise fxKeyHooks");
};

/// Integers and enumerations are their own hash.
template <class Key>
struct KeyHooks<Key, std::enable_if_t<std::is_integral_v<Key> || std::is_enum_v<Key>>> {
    static unsigned long hash(Key key) { return static_cast<unsigned long>(key); }
    static int compare(Key a, Key b) { return a == b ? 0 : 1; }
};

/// The standard's texts are equal in all of their bytes. Views are borrowed: the
/// texts must outlive the entries.
template <class Key>
struct KeyHooks<Key, std::enable_if_t<std::is_same_v<Key, std::string> ||
                                      std::is_same_v<Key, std::string_view>>> {
    static unsigned long hash(std::string_view key) {
        return fxFingerprint(key.data(), key.size());
    }
    static int compare(std::string_view a, std::string_view b) { return a == b ? 0 : 1; }
};
}  // namespace fxDetail

template <class Key>
struct fxKeyHooks : fxDetail::KeyHooks<Key> {};

/// Texts are equal up to their first zero byte, but their hashes are of all bytes: texts that
/// differ only behind one are the same key in a table where they share a chain, and two keys in
/// another. So keys should have no zero byte.
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
    /// For fingerprintKey(): what hash() leaves out hardly differs between addresses.
    static unsigned long fingerprint(const void*, unsigned long hash) { return hash; }
};

namespace fxDetail {
/// Types looked up as a view where keys are strings: every other kind of text.
template <class Key, class Text>
using IfLookedUp = std::enable_if_t<std::is_same_v<Key, fxStr> && !std::is_base_of_v<fxStr, Text> &&
                                        std::is_convertible_v<const Text&, std::string_view>,
                                    int>;

/// Whether copying and destroying a T neither throws nor runs code of the program.
template <class T>
inline constexpr bool isCalm = std::is_trivially_copyable_v<T> || std::is_same_v<T, fxStr>;

/// Types looked up as a copy where keys are std::string: texts that do not become one.
template <class Key, class Text>
using IfCopied = std::enable_if_t<std::is_same_v<Key, std::string> &&
                                      !std::is_convertible_v<Text, std::string> &&
                                      std::is_convertible_v<const Text&, std::string_view>,
                                  int>;
}  // namespace fxDetail

/// Adds to Base, which is fxDictionary or fxSet, the hooks for keys of type Key, and the
/// operations that return no entry.
template <class Key, class Base>
class FX_API fxTypedKeys : public Base {
    typedef typename Base::Node Node;

public:
    using Base::Base;

    /// Whether an equal key is there.
    bool contains(const Key& key) const { return findKey(key) != nullptr; }
    /// Destroys the entry of an equal key, if there is one.
    void remove(const Key& key) { Base::remove(&key); }

    // clang-format off
    template <class... Given>
    void insert(const Given&...) = delete;  // add() enters a key, and in a dictionary its value
    template <class... Given>
    void erase(const Given&...) = delete;  // entries are removed by key: remove(key)
    template <class Given>
    void at(const Given&) const = delete;  // find(key) returns a pointer, null where there is none
    // clang-format on

    /// The same for keys that are strings, with a text of another kind, zero-terminated
    /// or a view: it is copied only where hooks are overridden, which expect a string.
    template <class Text, fxDetail::IfLookedUp<Key, Text> = 0>
    bool contains(const Text& text) const {
        return this->findText(fxTextView(text)) != nullptr;
    }
    /// As remove() with a key.
    template <class Text, fxDetail::IfLookedUp<Key, Text> = 0>
    void remove(const Text& text) {
        this->removeText(fxTextView(text));
    }
    ///@{
    /// The same for keys that are std::string, with a view or an fxStr, which is copied
    /// only where hooks are overridden, and by the first searches of a table.
    template <class Text, fxDetail::IfCopied<Key, Text> = 0>
    bool contains(const Text& text) const {
        return findView(fxTextView(text)) != nullptr;
    }
    template <class Text, fxDetail::IfCopied<Key, Text> = 0>
    void remove(const Text& text) {
        const std::string_view view = fxTextView(text);
        const Result found = findHere(view);
        if (!found.isKnown) return remove(Key(view));
        if (found.node != nullptr) Base::remove(found.node->element);
    }
    ///@}

    /// Destroys every entry, also those that are added meanwhile, and ends every iterator.
    /// The number of chains stays.
    void clear() {
        Base::cleanup();
        this->count = 0;
    }

protected:
    /// Does what Base::find() does. Numbers, addresses and std::string are searched here if
    /// the hooks are those of this class: their hash is their fingerprint.
    void* findKey(const Key& key) const {
        if constexpr (std::is_scalar_v<Key> || std::is_same_v<Key, std::string>) {
            const Result result = findHere(key);
            if (result.isKnown) return valueOf(result);
        }
        return Base::find(&key);
    }
    /// The same for keys that are std::string.
    void* findView(std::string_view text) const {
        const Result result = findHere(text);
        if (result.isKnown) return valueOf(result);
        const Key key(text);
        return Base::find(&key);
    }

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

    /// For finder(): the direct search if this object's class is `exact`, which overrides
    /// none of the hooks that a search calls, and there is one for Key; otherwise the
    /// search by the hooks.
    typename Base::Finder* finderFor(const std::type_info& exact) const {
        if constexpr (std::is_same_v<Key, fxStr> || std::is_same_v<Key, const void*>) {
            if (typeid(*this) == exact) return Base::template directFinder<Key>();
        }
        return Base::finder();
    }

    /// The same for a class that overrides no hook of this one.
    typename Base::Finder* ownFinder(const std::type_info& exact) const {
        this->extra.hasOwnHooks = typeid(*this) == exact;
        return finderFor(exact);
    }
    /// Whether enter() is allowed: the hooks are those of a ready-made class, and nothing
    /// is under way that may refer to entries.
    bool mayEnter() const {
        FX_ASSERT(!this->extra.hasOwnHooks || hasOwnHooksNow());
        return this->extra.hasOwnHooks && this->extra.holds.isEmpty() && !this->buckets.isEmpty();
    }

    /// The block of the key's entry. That of a new one has no value yet, which the caller
    /// makes before anything else happens. Requires: mayEnter()
    void* enter(const Key& key, bool& isNew) {
        const unsigned int before = this->count;
        if constexpr (std::is_same_v<Key, fxStr>) {
            void* const element = this->enterText(key);
            isNew = this->count != before;
            return element;
        } else {
            void* const element = enterOther(key);
            isNew = this->count != before;
            if (isNew) new (element) Key(key);
            return element;
        }
    }

private:
    // The result of a search in the program's code.
    struct Result {
        bool isKnown;  // false: the library has to search
        const Node* node;
    };

    void* valueOf(const Result& result) const {
        return result.node != nullptr ? this->found(result.node) : nullptr;
    }

    // Searches for an equal key, without an object of that type.
    template <class Asked>
    [[gnu::always_inline]] Result findHere(const Asked& asked) const {
        const auto& own = this->extra;
        const unsigned int chains = this->buckets.length();
        if (__builtin_expect(!own.isPlain(chains), 0)) return findIndexed(asked);
        return findInChain(asked, own.restOfShort(fxKeyHooks<Key>::hash(asked), chains));
    }
    template <class Asked>
    [[gnu::always_inline]] Result findInChain(const Asked& asked, unsigned int chain) const {
        const Node* node = this->buckets.begin()[chain];
        for (unsigned int left = this->extra.index.longWalk; left != 0; --left) {
            if (node == nullptr || isEqual(asked, node)) return {true, node};
            node = node->next;
        }
        return {false, nullptr};
    }

    // For enter() of keys that are no fxStr.
    void* enterOther(const Key& key) {
        const unsigned int chains = this->buckets.length();
        if constexpr (std::is_scalar_v<Key>) {
            if (__builtin_expect(this->extra.isPlain(chains), 1)) {
                const unsigned long hash = fxKeyHooks<Key>::hash(key);
                const unsigned int chain = this->extra.restOfShort(hash, chains);
                const Result found = findInChain(key, chain);
                if (found.node != nullptr) return found.node->element;
                if (found.isKnown) return this->enterNew(fxMix32(hash), chain);
            }
        }
        return this->enterAny(&key);
    }
    template <class Asked>
    static bool isEqual(const Asked& asked, const Node* node) {
        return fxKeyHooks<Key>::compare(asked, *static_cast<Key*>(node->element)) == 0;
    }

    // The same where there may be an index. If there is none the next search is plain.
    template <class Asked>
    [[gnu::noinline]] Result findIndexed(const Asked& asked) const {
        auto& own = this->extra;
        const unsigned int chains = this->buckets.length();
        if (!own.hasOwnHooks || own.divisor != chains) return {false, nullptr};
        if (!own.index.isBuilt()) {
            own.plainChains = chains;
            return {false, nullptr};
        }
        const unsigned long hash = fxKeyHooks<Key>::hash(asked);
        const unsigned int chain = own.restOfShort(hash, chains);
        const auto isWanted = [chain, &asked](const Node* other) {
            return other->bucket() == chain && isEqual(asked, other);
        };
        return {true, own.index.find(fxMix32(hash), isWanted)};
    }

    // Checks again: when another base of the object's class has used the table, a
    // constructor has to call forgetFinder().
    bool hasOwnHooksNow() const {
        this->extra.hasOwnHooks = false;
        static_cast<void>(this->finder());
        if (!this->extra.hasOwnHooks) this->extra.forgetPlain();
        return this->extra.hasOwnHooks;
    }
};

#endif
