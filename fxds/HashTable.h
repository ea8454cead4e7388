// A small hash table from integers to pointers.
#ifndef FXDS_HASHTABLE_H
#define FXDS_HASHTABLE_H

#include "fxds/Config.h"
#include "fxds/detail/Walk.h"

template <class Node>
class fxHashIndex;

/// One entry of a HashTable, made and destroyed by it. View: good until the
/// key is removed.
class FX_API HashEntry {
public:
    HashEntry(const HashEntry&) = delete;
    HashEntry& operator=(const HashEntry&) = delete;

    unsigned long getKey() const { return key; }     ///< The number that it was added under.
    void* getValue() const { return value; }         ///< The pointer that it holds.
    void setValue(void* value_) { value = value_; }  ///< Replaces the pointer (borrowed).

    unsigned long key;  ///< The number that it was added under.
    void* value;        ///< borrowed
    ///@{
    /// The neighbours in its chain, or null.
    HashEntry* next;
    HashEntry* prev;
    ///@}

private:
    friend class HashTable;
    friend class fxHashIndex<HashEntry>;

    HashEntry(unsigned long key_, unsigned int tag_)
        : key(key_), value(nullptr), next(nullptr), prev(nullptr), tag(tag_) {}

    unsigned int tag;  // mixed from the whole key
};

/// Maps keys to pointers, which it neither follows nor releases. It starts with
/// 64 buckets and doubles them, up to 2048, after every 4 additions per bucket.
/// Additions count even when the entries are removed again. Only the low 20
/// bits of a key choose its bucket.
///
/// Cost: once a search has been long, the table keeps an index besides its
/// chains, so looking up, adding and removing are O(1) however many entries
/// share a bucket.
class FX_API HashTable {
public:
    HashTable();
    HashTable(const HashTable&) = delete;
    HashTable& operator=(const HashTable&) = delete;
    ~HashTable();

    /// Adds a key; aborts when it is present.
    HashEntry* add(unsigned long key, void* value);
    /// The value of a key; null when it is absent.
    void* lookup(unsigned long key) const;
    /// Removes a key; nothing when it is absent.
    void remove(unsigned long key);

    /// Calls `f` on every entry, bucket by bucket. `f` may add and remove
    /// entries and even destroy the table, which ends the walk. An entry that
    /// is there all the time is visited once, one removed before its turn is
    /// not, one that is added may be. The table grows after the walk.
    void mapcar(void (*f)(HashEntry*));

    int getCount() const { return count; }           ///< Additions ever made.
    int getSize() const { return size; }             ///< Number of buckets.
    unsigned int getLevel() const { return level; }  ///< The base-2 logarithm of getSize().

    // The parts of the functions above.

    unsigned int hash(unsigned long key) const;  ///< The bucket of a key.
    /// The entry of the key in this bucket's chain, or null.
    HashEntry* searchBucketFor(HashEntry* head, unsigned long key) const;
    /// Adds an entry with a null value, before any of the same key.
    HashEntry* addElement(unsigned long key);
    /// Doubles the buckets, as far as an int can count them and there is memory.
    /// Beyond 2048 of them, all keys fall into the first one.
    void rebuildTable();

private:
    struct Walk;

    HashEntry* find(unsigned long key) const;
    void buildIndex() const;
    void linkAtHead(HashEntry* entry);

    HashEntry** buckets;
    int count;
    int size;
    unsigned int level;  // base-2 logarithm of size
    fxWalks<Walk> walks;
    mutable fxHashIndex<HashEntry>* index;  // null until a search walks far
};

#endif
