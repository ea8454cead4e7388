// The hash map, untyped at its core, and its iterator.
#ifndef FXDS_DICTIONARY_H
#define FXDS_DICTIONARY_H

#include <iterator>
#include <string_view>

#include "fxds/TypedArray.h"
#include "fxds/XDRObj.h"
#include "fxds/detail/HashExtra.h"

class fxDictionary;
class fxDictIter;

/// One entry of a chain: `element` is a block with the key, then the value.
class FX_API fxDictBucket : public fxHashNode<fxDictBucket> {
public:
    using fxHashNode::fxHashNode;
};

/// The chains.
class FX_API fxDictBuckets : public fxTypedArray<fxDictBuckets, fxDictBucket*, fxZeroFilledArray> {
public:
    using fxTypedArray::fxTypedArray;
};

/// The iterators that walk a dictionary.
class FX_API fxDictIters : public fxTypedArray<fxDictIters, fxDictIter*, fxZeroFilledArray> {
public:
    using fxTypedArray::fxTypedArray;
};

/// Walks a dictionary: its chains in ascending order, each from its newest
/// entry to its oldest.
///
///     for (fxDictIter i(dict); i.notDone(); ++i) use(i.getKey(), i.getValue());
///
/// The iterator is registered with the dictionary while it walks. Removing the
/// entry that it is at moves it to the next one and sets `moved`: there is
/// no current entry until the next ++, which then skips nothing. Entries added
/// during the walk may or may not be met. It ends by itself after the last
/// entry and when the dictionary is cleaned up or destroyed.
class FX_API fxDictIter {
public:
    /// Detached: done from the start.
    fxDictIter() : dict(nullptr), bucketIndex(0), moved(0), node(nullptr) {}
    /// Begins at the first entry. The dictionary is borrowed while it walks.
    explicit fxDictIter(fxDictionary& dictionary);
    /// A copy is at the same entry as the other one and walks on its own.
    fxDictIter(const fxDictIter& other);
    ~fxDictIter();

    /// Starts over with another dictionary.
    void operator=(fxDictionary& dictionary);
    fxDictIter& operator=(const fxDictIter& other);

    ///@{
    /// Null when there is no current entry, and the value also while it is replaced, which
    /// hooks may see. Views: good until the entry goes.
    void* getKey() const { return node == nullptr || moved ? nullptr : node->element; }
    void* getValue() const;
    const void* key() const { return getKey(); }
    void* value() const { return getValue(); }
    ///@}

    bool notDone() const { return node != nullptr; }
    explicit operator bool() const { return notDone(); }

    fxDictIter& operator++();
    fxHashPassed<fxDictIter> operator++(int) {
        const fxHashPassed<fxDictIter> passed(*this);
        ++*this;
        return passed;
    }

    /// What range-for gives: views, good until the entry goes.
    struct Entry {
        const void* key;  ///< Null when there is no current entry.
        void* value;      ///< Null when there is no current entry.
    };
    Entry operator*() const { return {getKey(), getValue()}; }
    static Entry entry(void* key, void* value) { return {key, value}; }  ///< For `*i++`.
    ///@{
    /// For the standard's algorithms.
    typedef std::input_iterator_tag iterator_category;
    typedef Entry value_type;
    typedef std::ptrdiff_t difference_type;
    typedef void pointer;
    typedef Entry reference;
    ///@}
    ///@{
    /// Whether both are at the same entry, or both at the end.
    bool operator==(const fxDictIter& other) const {
        return node == other.node && (node == nullptr || moved == other.moved);
    }
    bool operator!=(const fxDictIter& other) const { return !(*this == other); }
    ///@}

    fxDictionary* dict;        ///< Null when detached or at the end.
    unsigned int bucketIndex;  ///< The chain that is being walked.
    unsigned char moved : 1;   ///< The entry was removed; `node` is its successor.
    fxDictBucket* node;        ///< Null at the end.
};

/// A hash map whose keys and values are blocks of a fixed size.
/// Virtual hooks define how they are hashed, compared, copied and destroyed. This class is
/// the base for new dictionary classes; fxTypedDictionary is the easy way to one. Ready for
/// use are fxVoidPtrDict, fxStrStrDictionary and fxBinaryOTDict.
///
/// The number of chains is fixed at construction; it decides the order of
/// iteration. A new entry goes to the front of its chain. Entries of up to 64
/// bytes are allocated many at a time, and their memory is used again for others
/// before it is given back, which happens when all entries are cleared away.
/// Finding, adding and removing take about constant time, however few the chains,
/// unless many keys have one fingerprint; see fingerprintKey().
///
/// Functions that find or add return pointers into the entry. They are views that last as
/// long as the entry does, whatever happens to others.
///
/// Keys and values in the dictionary may be arguments. The hooks that create, copy or
/// destroy may call back and do anything to it but destroy it; hashKey(), compareKeys() and
/// fingerprintKey() must not touch it. Keys that compare equal must hash equal.
///
/// While an addition is under way, entries that callbacks remove stay intact, and are
/// destroyed before the outermost addition returns. An entry whose value is being replaced
/// has none meanwhile: find(), findCreate(), cut() and copies of the dictionary pass over
/// it, and adding its key removes it and makes it anew. Once the additions have returned,
/// every key is there once.
///
/// Hooks that create or copy may throw, those that destroy may not. An addition that an
/// exception leaves has entered nothing; the entry whose value it was replacing is gone.
class FX_API fxDictionary : public fxXDRObj {
public:
    /// Sizes in bytes. `nBuckets` chains; 0 means 31.
    fxDictionary(unsigned int keySize, unsigned int valueSize, unsigned int nBuckets = 0);
    /// Without chains and sizes, for doxdr() to fill. A subclass should set
    /// keySize and valueSize, so that streams with other sizes are refused. Used
    /// without that, it gets 31 chains when the first entry is added.
    explicit fxDictionary(fxTypeObj& type);
    /// Copies the entries with the hooks of `source`, as the subclass part of
    /// the copy does not exist yet. Every chain comes out reversed.
    fxDictionary(const fxDictionary& source);
    /// Merges: adds the entries of `other`, which replace the values of equal
    /// keys. Entries that `other` lacks stay. Requires: equal sizes.
    void operator=(const fxDictionary& other);
    /// Takes over the entries, in their order, and leaves `source` without any; its
    /// iterators end. While a hook of `source` runs the entries are copied instead,
    /// which may throw. There is no move assignment: it would look like the one above.
    fxDictionary(fxDictionary&& source);  // NOLINT(performance-noexcept-move-constructor)
    /// Cannot reach the hooks: a subclass calls cleanup() in its destructor.
    ~fxDictionary() override;

    const char* className() const override = 0;  ///< The name of the class, for people.
    fxBool xdr(fxTranscriber& transcriber) override;
    fxTypeObj* getTypeObj() const override;

    /// Enters the value under the key. When the key is there already, the
    /// stored key stays and only its value is replaced.
    virtual void addInternal(const void* key, const void* value);

    ///@{
    /// The number of entries.
    unsigned int size() const { return count; }
    unsigned int length() const { return count; }
    ///@}
    bool isEmpty() const { return count == 0; }
    /// Whether an equal key is there.
    bool contains(const void* key) const { return find(key) != nullptr; }

    /// The value stored under the key, or null. `bucketOut`, unless null,
    /// receives the fxDictBucket that holds it, or null.
    void* find(const void* key, void** bucketOut = nullptr) const;
    /// The value stored under the key, which is added with a default value
    /// when it is missing.
    void* findCreate(const void* key);
    /// Destroys the entry, if there is one.
    void remove(const void* key);
    /// Takes the value out and destroys the rest of the entry. The block with
    /// the value's bytes is given: destroy the value, then free() the block.
    /// Null when the key is absent, when its value is just being replaced, and
    /// when an addition under way has the value for an argument.
    void* cut(const void* key);

    fxDictIter begin() const;
    fxDictIter end() const { return {}; }  ///< A detached iterator.

    /// Destroys every entry, also those that are added meanwhile, and detaches
    /// every iterator. size() is not reset: this belongs in the destructors of
    /// subclasses.
    void cleanup();

    // The registry of iterators; they enter and leave it themselves.

    void addIter(fxDictIter* iter);  ///< Enters the iterator (borrowed) with its dictionary.
    /// Removes the first registration of `iter`, if any.
    void removeIter(fxDictIter* iter);
    /// Moves the iterators at `node` to its successor.
    void invalidateIters(const fxDictBucket* node) const;

    /// Transcribes sizes, bucket count and entries. A dictionary that is read
    /// into is emptied first; its chains come out reversed. Texts arrive
    /// late: until the whole graph has been read no key of it is found, and
    /// adding one enters it a second time.
    /// Returns false at the first failure; a dictionary being read is then empty.
    /// Numbers that cannot be right are failures: sizes other than this
    /// dictionary's, a chain that does not exist, more chains than
    /// fxTranscriber::claimChains() grants.
    bool doxdr(fxTranscriber& transcriber);
    /// The function of fxDictionary_type; forwards to the member.
    static fxBool xdr(void* object, fxTranscriber& transcriber);

protected:
    /// Decides the chain. Pure, because every class has to choose; its body, which an
    /// override may call, returns the XOR of the key's words of 8 bytes.
    virtual unsigned long hashKey(const void* key) const = 0;
    virtual int compareKeys(const void* a, const void* b) const = 0;  ///< 0 when equal.
    virtual void copyKey(const void* from, void* to) const = 0;       ///< Into raw storage.
    virtual void destroyKey(void* key) const;                         ///< In place.
    virtual void copyValue(const void* from, void* to) const = 0;     ///< Into raw storage.
    virtual void destroyValue(void* value) const;                     ///< In place.
    virtual void createValue(void* to) const = 0;  ///< A default value, in raw storage.
    ///@{
    /// Transcribe a key or a value. What is read into is storage of zero bytes,
    /// in which the hook constructs first; it is raw again after a failure.
    virtual bool xdrKey(fxTranscriber& transcriber, void* key) = 0;
    virtual bool xdrValue(fxTranscriber& transcriber, void* value) = 0;
    ///@}

    /// A number by which keys are compared first; equal keys have equal ones. This one
    /// returns `hash`, the key's hashKey(). Override it where hashKey() uses little of the
    /// key, so that keys with equal hashes are still found fast; fxFingerprint() may help.
    virtual unsigned long fingerprintKey(const void* key, unsigned long hash) const;

    /// The search function. This one returns a search by the hooks. The ready-made classes
    /// return a direct search, which has their hooks built in; their subclasses, which may
    /// have overridden the hooks, are searched by them. A class of texts that overrides neither
    /// hashKey() nor compareKeys() can have the direct search again:
    ///
    ///     Finder* finder() const override { return finderFor(typeid(Names)); }
    typedef fxHashFinder<fxDictionary, fxDictBucket> Finder;
    virtual Finder* finder() const;  ///< See Finder. Borrowed for good.
    /// The direct search for keys of type Key, which is fxStr or const void*.
    template <class Key>
    static Finder* directFinder();
    ///@{
    /// As find() and remove(), where keys are fxStr: in the direct search without
    /// copying the text.
    void* findText(std::string_view text) const;
    void removeText(std::string_view text);
    ///@}
    ///@{
    /// For fxTypedKeys::enter(), of a key that is an fxStr or of another.
    void* enterText(const fxStr& key);
    void* enterAny(const void* key);
    void* enterNew(unsigned int tag, unsigned int chain);
    ///@}
    /// For a constructor that has added entries, or has another base that does so: the
    /// search function is not final yet, because a class that derives from this one may
    /// override hooks.
    void forgetFinder() { extra.forgetFinder(); }

    /// Moves the place of the values up to a multiple of `alignment`, and
    /// keySize with it. hashKey() goes on to read as many bytes as before, and
    /// streams with that size are read. For a constructor.
    void alignValues(unsigned int alignment);

    unsigned int count;      ///< Number of entries.
    unsigned int keySize;    ///< Bytes of a stored key: where its value lies.
    unsigned int valueSize;  ///< Bytes of a stored value.
    fxDictBuckets buckets;   ///< The first node of each chain, or null.
    fxDictIters iters;       ///< The iterators that walk here, borrowed.

private:
    friend struct fxHashCore<fxDictionary>;
    friend struct fxHashXdr<fxDictionary>;
    template <class Key, class Base>
    friend class fxTypedKeys;
    typedef fxDictBucket Node;
    typedef fxDictIter Iter;
    static constexpr bool hasValues = true;

    // Without entries, and like `other` otherwise.
    explicit fxDictionary(const fxDictionary* other);

    // The result of a search that has found the node.
    void* found(const Node* node) const {
        return node->is(Node::ending) ? nullptr : static_cast<char*>(node->element) + keySize;
    }

    mutable fxHashExtra<fxDictionary, fxDictBucket> extra;
};

extern FX_API fxTypeObj fxDictionary_type;

#endif
