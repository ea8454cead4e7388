#include "fxds/HashTable.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "fxds/detail/Allocate.h"
#include "fxds/detail/HashIndex.h"
#include "fxds/detail/Mix.h"

// The table grows by the number of additions ever made, not by the number of
// entries: count never falls.
//
// Invariants:
// (1) A walk is on the stack of mapcar() and registered with the table, which
//     moves it on when the entry that it would meet next is removed.
// (2) The table does not grow during a walk, because entries would change their
//     places.
// (3) Entries belong to the table, values do not. The entries of a key are in chain
//     hash(key).
// (4) An index, once it is built, has every entry. One that has dropped itself stays, not
//     built, until the table grows.
//
// f() of mapcar() is the only code of the program that runs in here. It may add and remove
// any entry, and may delete the table: then the walk is an orphan, and mapcar() uses
// nothing of the table any more.
//
// The buckets stop at 2048, and high bits of a key do not count, so chains get
// long. The index of the dictionaries then finds the entries; the chains still
// give their order.

namespace {

constexpr unsigned int firstLevel = 6;
constexpr unsigned int lastLevel = 11;

// The shifts that fold the key's bits, by level: a shift more than a level
// above the last one is not needed.
struct Fold {
    unsigned int first;
    unsigned int second;  // 0: none
};
constexpr Fold folds[] = {{12, 6}, {13, 7}, {16, 8}, {9, 0}, {10, 0}, {11, 0}};

typedef fxHashIndex<HashEntry> Index;

bool isBuilt(const Index* index) { return index != nullptr && index->isBuilt(); }

}  // namespace

struct HashTable::Walk : fxWalk<Walk> {
    explicit Walk(HashTable& table) : fxWalk(table.walks), next(nullptr) {}

    using fxWalk::isOrphan;

    HashEntry* next;  // null at the end of a chain
};

HashTable::HashTable()
    : buckets(static_cast<HashEntry**>(fxNewZeroBlock(sizeof(HashEntry*) << firstLevel))),
      count(0),
      size(1 << firstLevel),
      level(firstLevel),
      index(nullptr) {}

HashTable::~HashTable() {
    for (int i = 0; i < size; ++i) {
        while (HashEntry* entry = buckets[i]) {
            buckets[i] = entry->next;
            delete entry;
        }
    }
    std::free(buckets);
    delete index;
}

HashEntry* HashTable::add(unsigned long key, void* value) {
    if (find(key) != nullptr) std::abort();
    HashEntry* entry = addElement(key);
    entry->value = value;
    return entry;
}

void* HashTable::lookup(unsigned long key) const {
    const HashEntry* entry = find(key);
    return entry != nullptr ? entry->value : nullptr;
}

void HashTable::remove(unsigned long key) {
    HashEntry* entry = find(key);
    if (entry == nullptr) return;
    walks.each([entry](Walk& walk) {
        if (walk.next == entry) walk.next = entry->next;
    });
    HashEntry*& head = buckets[hash(key)];
    if (entry == head) head = entry->next;
    if (entry->prev != nullptr) entry->prev->next = entry->next;
    if (entry->next != nullptr) entry->next->prev = entry->prev;
    if (isBuilt(index)) index->remove(entry);
    delete entry;
}

void HashTable::mapcar(void (*f)(HashEntry*)) {
    Walk walk(*this);
    for (int i = 0; i < size; ++i) {
        walk.next = buckets[i];
        while (HashEntry* entry = walk.next) {
            walk.next = entry->next;
            f(entry);
            if (walk.isOrphan()) return;
        }
    }
}

unsigned int HashTable::hash(unsigned long key) const {
    if (level < firstLevel || level > lastLevel) return 0;
    const unsigned int low = static_cast<unsigned int>(key & 0xFFFFF);
    const Fold fold = folds[level - firstLevel];
    unsigned int folded = low >> fold.first ^ low;
    if (fold.second != 0) folded ^= low >> fold.second;
    return folded & ((1u << level) - 1);
}

HashEntry* HashTable::searchBucketFor(HashEntry* head, unsigned long key) const {
    unsigned int walked = 0;
    for (; head != nullptr && head->key != key; head = head->next) ++walked;
    if (walked > Index::longWalk && index == nullptr) buildIndex();
    return head;
}

HashEntry* HashTable::find(unsigned long key) const {
    if (!isBuilt(index)) return searchBucketFor(buckets[hash(key)], key);
    return index->find(fxMix32(key), [key](const HashEntry* entry) { return entry->key == key; });
}

// In the order of the chains, so that the first of equal keys, which
// addElement() admits, is found first. An index that has dropped itself is not
// built again.
void HashTable::buildIndex() const {
    index = new Index;
    index->build(4U << std::min(level, lastLevel));
    for (int i = 0; i < size; ++i) {
        for (HashEntry* entry = buckets[i]; entry != nullptr; entry = entry->next) {
            if (!index->append(entry)) return;
        }
    }
}

void HashTable::linkAtHead(HashEntry* entry) {
    HashEntry*& head = buckets[hash(entry->key)];
    entry->prev = nullptr;
    entry->next = head;
    if (head != nullptr) head->prev = entry;
    head = entry;
}

HashEntry* HashTable::addElement(unsigned long key) {
    if (level < lastLevel && count >= 4 * size && walks.isEmpty()) rebuildTable();
    HashEntry* entry = new HashEntry(key, fxMix32(key));
    linkAtHead(entry);
    if (isBuilt(index)) index->insert(entry);
    if (count < INT_MAX) ++count;
    return entry;
}

// The system commits the pages of calloc() at their first use, so a table that
// was enlarged far by hand costs its size in address space only.
void HashTable::rebuildTable() {
    if (size > INT_MAX / 2) return;
    void* const doubled = std::calloc(2 * static_cast<size_t>(size), sizeof(HashEntry*));
    if (doubled == nullptr) return;
    HashEntry** const old = buckets;
    const int oldSize = size;
    buckets = static_cast<HashEntry**>(doubled);
    size *= 2;
    ++level;
    for (int i = 0; i < oldSize; ++i) {
        for (HashEntry *entry = old[i], *next; entry != nullptr; entry = next) {
            next = entry->next;
            linkAtHead(entry);
        }
    }
    std::free(old);
    // The order of equal keys is reversed; a search makes a new index.
    delete index;
    index = nullptr;
}
