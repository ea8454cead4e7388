// The hash set of keys of one size, untyped at its core, and its iterator.
#ifndef FXDS_SET_H
#define FXDS_SET_H

#include <iterator>
#include <string_view>

#include "fxds/TypedArray.h"
#include "fxds/XDRObj.h"
#include "fxds/detail/HashExtra.h"

class fxSet;
class fxSetIter;
class fxTmpSet;

/// One element of a chain: `element` is a block with the key.
class FX_API fxSetBucket : public fxHashNode<fxSetBucket> {
public:
    using fxHashNode::fxHashNode;
};

/// The chains.
class FX_API fxSetBuckets : public fxTypedArray<fxSetBuckets, fxSetBucket*, fxZeroFilledArray> {
public:
    using fxTypedArray::fxTypedArray;
};

/// The iterators that walk a set.
class FX_API fxSetIters : public fxTypedArray<fxSetIters, fxSetIter*, fxZeroFilledArray> {
public:
    using fxTypedArray::fxTypedArray;
};

/// Walks a set as fxDictIter walks a dictionary; the same holds about order, removal and
/// the end.
class FX_API fxSetIter {
public:
    /// Detached: done from the start.
    fxSetIter() : set(nullptr), bucketIndex(0), moved(0), node(nullptr) {}
    /// Begins at the first element. The set is borrowed while it walks.
    explicit fxSetIter(fxSet& elements);
    fxSetIter(const fxSetIter& other);
    virtual ~fxSetIter();

    /// Starts over with another set.
    void operator=(fxSet& elements);
    fxSetIter& operator=(const fxSetIter& other);

    /// Null when there is no current element. A view: good until it goes.
    void* getKey() const { return node == nullptr || moved ? nullptr : node->element; }
    const void* key() const { return getKey(); }  ///< The same, unchangeable.

    bool notDone() const { return node != nullptr; }
    explicit operator bool() const { return notDone(); }

    fxSetIter& operator++();
    fxHashPassed<fxSetIter> operator++(int) {
        const fxHashPassed<fxSetIter> passed(*this);
        ++*this;
        return passed;
    }

    const void* operator*() const { return getKey(); }
    static const void* entry(void* key, void*) { return key; }  ///< For `*i++`.
    ///@{
    /// For the standard's algorithms.
    typedef std::input_iterator_tag iterator_category;
    typedef const void* value_type;
    typedef std::ptrdiff_t difference_type;
    typedef void pointer;
    typedef const void* reference;
    ///@}
    ///@{
    /// Whether both are at the same element, or both at the end.
    bool operator==(const fxSetIter& other) const {
        return node == other.node && (node == nullptr || moved == other.moved);
    }
    bool operator!=(const fxSetIter& other) const { return !(*this == other); }
    ///@}

    fxSet* set;                ///< Null when detached or at the end.
    unsigned int bucketIndex;  ///< The chain that is being walked.
    unsigned char moved : 1;   ///< The element was removed; `node` is its successor.
    fxSetBucket* node;         ///< Null at the end.
};

/// A hash set whose keys are blocks of a fixed size. See fxDictionary for chains, costs,
/// views and callbacks. The hooks treat a key as plain bytes, so a set of plain records
/// needs only xdrKey() and a destructor that calls cleanup(). For keys of a C++ type use
/// fxTypedSet; fxStrSet is the set of strings.
///
/// Cost: the hash of these hooks uses whole words of 8 bytes. Keys that are shorter, or
/// alike in their words, have one hash and are all in one chain: finding one among n takes
/// time in proportion to n. For many such keys use a fingerprint of all bytes, which does
/// not change the chains:
///
///     unsigned long fingerprintKey(const void* key, unsigned long) const override {
///         return fxFingerprint(key, keySize);
///     }
class FX_API fxSet : public fxXDRObj {
public:
    /// Size in bytes. `nBuckets` chains; 0 means 31.
    explicit fxSet(unsigned int keySize, unsigned int nBuckets = 0);
    /// Without chains and key size, for doxdr() to fill. A subclass should set
    /// keySize, so that streams with another size are refused. Used without
    /// that, it gets 31 chains when the first element is added.
    explicit fxSet(fxTypeObj& type);
    /// As many chains as the source, which come out reversed. The elements are
    /// copied with the hooks of `source`.
    fxSet(const fxSet& source);
    fxSet(const fxTmpSet& source);  ///< Copies the bytes of the elements; see fxTmpSet.
    /// Destroys all elements, then becomes like `other`: key size, number of
    /// chains and elements, each chain reversed. Assigning a set to itself does
    /// nothing. Iterators over this set end.
    void operator=(const fxSet& other);
    /// Takes over the entries, in their order, and leaves `source` without any; its
    /// iterators end. While a hook of `source` runs the entries are copied instead,
    /// which may throw. There is no move assignment: it would look like the one above.
    fxSet(fxSet&& source);  // NOLINT(performance-noexcept-move-constructor)
    /// Cannot reach the hooks: a subclass calls cleanup() in its destructor.
    ~fxSet() override;

    fxBool xdr(fxTranscriber& transcriber) override;
    fxTypeObj* getTypeObj() const override;

    ///@{
    /// The number of elements.
    unsigned int size() const { return count; }
    unsigned int length() const { return count; }
    ///@}
    bool isEmpty() const { return count == 0; }

    /// Adds a copy of the key, unless an equal one is there, which stays.
    void add(const void* key);
    /// Whether an equal key is there.
    bool contains(const void* key) const { return find(key) != nullptr; }
    /// The stored key that is equal to `key`, or null. A view: good until the
    /// element goes. Do not change what makes it equal.
    void* find(const void* key) const;
    /// Destroys the element, if it is there.
    void remove(const void* key);

    ///@{
    /// Union, intersection and difference in place. Iterators at an element that is removed
    /// move on. `other` may be this set.
    /// Requires: equal key sizes and hooks.
    void operator|=(const fxSet& other);
    void operator&=(const fxSet& other);
    void operator-=(const fxSet& other);
    ///@}

    ///@{
    /// Not supported: each prints a line to standard output and aborts. Copy a
    /// set and use the operators above.
    [[noreturn]] fxTmpSet operator|(const fxSet& other) const;
    [[noreturn]] fxTmpSet operator&(const fxSet& other) const;
    [[noreturn]] fxTmpSet operator-(const fxSet& other) const;
    ///@}

    fxSetIter begin() const;
    fxSetIter end() const { return {}; }  ///< A detached iterator.

    /// Destroys every element, also those that are added meanwhile, and detaches
    /// every iterator. This belongs in the destructors of subclasses.
    void cleanup();

    // The registry of iterators; they enter and leave it themselves.

    void addIter(fxSetIter* iter);  ///< Enters the iterator (borrowed) with its set.
    /// Removes the first registration of `iter`, if any.
    void removeIter(fxSetIter* iter);
    /// Moves the iterators at `node` to its successor.
    void invalidateIters(const fxSetBucket* node) const;

    /// Transcribes as fxDictionary::doxdr() does, without values.
    bool doxdr(fxTranscriber& transcriber);
    /// The function of fxSet_type; forwards to the member.
    static fxBool xdr(void* object, fxTranscriber& transcriber);

protected:
    virtual unsigned long hashKey(const void* key) const;  ///< This one: the XOR of its words.
    virtual int compareKeys(const void* a, const void* b) const;  ///< 0 when equal.
    virtual void copyKey(const void* from, void* to) const;       ///< Into raw storage.
    virtual void destroyKey(void* key) const;                     ///< In place.
    /// See fxDictionary::xdrKey().
    virtual bool xdrKey(fxTranscriber& transcriber, void* key) = 0;
    /// See fxDictionary::fingerprintKey().
    virtual unsigned long fingerprintKey(const void* key, unsigned long hash) const;

    /// How to search: see fxDictionary::Finder.
    typedef fxHashFinder<fxSet, fxSetBucket> Finder;
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
    /// For a constructor that has added elements, or has another base that does so: the
    /// search function is not final yet, because a class that derives from this one may
    /// override hooks.
    void forgetFinder() { extra.forgetFinder(); }

    fxSetBuckets buckets;  ///< The first node of each chain, or null.
    unsigned int count;    ///< Number of elements.
    unsigned int keySize;  ///< Bytes of a stored key.
    fxSetIters iters;      ///< The iterators that walk here, borrowed.

private:
    friend struct fxHashCore<fxSet>;
    friend struct fxHashXdr<fxSet>;
    template <class Key, class Base>
    friend class fxTypedKeys;
    typedef fxSetBucket Node;
    typedef fxSetIter Iter;
    static constexpr bool hasValues = false;

    static void* found(const Node* node) { return node->element; }

    mutable fxHashExtra<fxSet, fxSetBucket> extra;
};

/// The result type of the set operators that make a new set: a set of plain bytes. It
/// copies the bytes of the elements and compares them; it neither copies nor destroys what
/// they refer to, so it is only for sets of plain records. It cannot be transcribed, unless
/// it is empty.
class FX_API fxTmpSet : public fxSet {
public:
    fxTmpSet(const fxSet& source);  ///< A copy of the elements' bytes.
    fxTmpSet(const fxTmpSet&) = default;
    fxTmpSet& operator=(const fxTmpSet&) = default;
    ~fxTmpSet() override;

protected:
    bool xdrKey(fxTranscriber& transcriber, void* key) override;
};

extern FX_API fxTypeObj fxSet_type;

#endif
