// The record numbers that the reader has met, and their blocks.
#ifndef FXDS_STREAMS_READERNUMBERS_H
#define FXDS_STREAMS_READERNUMBERS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "fxds/BinaryOTDict.h"
#include "fxds/Config.h"
#include "fxds/Fatal.h"
#include "fxds/TypeObj.h"
#include "fxds/base/ChunkList.h"
#include "fxds/streams/ReaderEntry.h"
#include "fxds/streams/TextChunks.h"

/// The table of entries. Streams of our writer number from 1 on, so most entries are in an
/// array indexed by number. The array grows only in proportion to the records with numbers
/// read so far; a number far beyond it gets a separate entry, which the dictionary finds.
///
/// Invariants, between any two calls:
/// (1) A number has at most one entry: near[number - first], or *farOnes[i - 1] where `far`
///     maps the number to i. Once a number beyond `near` has a far entry, mayGrow is false
///     and `near` does not grow; types that outlive their objects have far entries and
///     numbers below `first`.
/// (2) Entries do not move: a reference is good until clear().
/// (3) blocksHeld is the number of blocks whose malloc() memory the table frees.
/// (4) `given` contains each block whose holder is fieldSinceNow.
class fxReaderNumbers {
public:
    explicit fxReaderNumbers(fxBinaryOTDict& farIndices) : far(farIndices) {}
    fxReaderNumbers(const fxReaderNumbers&) = delete;
    fxReaderNumbers& operator=(const fxReaderNumbers&) = delete;
    ~fxReaderNumbers() { clear(); }

    /// The entry of the number, made on demand; `records` is the number of records with
    /// numbers read so far. View: good until clear().
    [[gnu::always_inline]] fxReaderEntry& at(unsigned int id, size_t records) {
        const size_t index = size_t{id} - first;  // huge for lower ones
        return index < near.size() ? near[index] : make(id, records);
    }

    /// Prefetches the entry of the number, if it is an ordinary one.
    [[gnu::always_inline]] void fetch(unsigned int id) {
        const size_t index = size_t{id} - first;
        if (index < near.size()) __builtin_prefetch(&near[index], 1);
    }

    /// Room for a short text, kept until clear().
    char* textRoom(size_t bytes) { return texts.add(bytes); }

    /// Defines a block of `length` bytes, either in `text`, which is room of this table, or
    /// in the malloc() memory `adopted`.
    void defineBlock(fxReaderEntry& entry, unsigned int length, const char* text, void* adopted) {
        entry.kind_ = fxReaderEntry::block;
        entry.bytes_ = length;
        entry.u.text = text;
        entry.address_ = adopted;
        blocksHeld += adopted != nullptr;
    }
    /// The malloc() memory of a block with a zero behind its bytes, for the pointer fields
    /// that share it.
    void* memoryOf(fxReaderEntry& block) {
        if (block.address_ == nullptr || block.isOwned_) {
            block.address_ = copyOf(block);
            block.isOwned_ = false;
            block.holder = fxReaderEntry::table;
            ++blocksHeld;
        }
        block.isShared_ = true;
        return block.address_;
    }
    /// Memory for one pointer field alone: that of the block if it has no other user, or
    /// else a copy; null when the bytes may have been freed.
    void* takeMemoryOf(fxReaderEntry& block) {
        if (block.source() == nullptr) return nullptr;
        const bool isFree =
            block.address_ != nullptr && block.holder == fxReaderEntry::table && !block.isShared_;
        if (!isFree) return copyOf(block);
        block.isOwned_ = true;
        give(block);
        return block.address_;
    }
    /// Takes back memory that takeMemoryOf() returned.
    void takeBack(fxReaderEntry& block, void* memory) {
        if (block.kind_ == fxReaderEntry::block && block.isOwned_ && block.address_ == memory) {
            block.isOwned_ = false;
            block.holder = fxReaderEntry::table;
            ++blocksHeld;
        } else {
            std::free(memory);
        }
    }
    /// Records that a pointer field has the block now.
    void give(fxReaderEntry& block) {
        if (block.holder != fxReaderEntry::table) return;
        --blocksHeld;
        block.holder = fxReaderEntry::fieldSinceNow;
        given.push_back(&block);
    }
    /// Records that the caller gets control, and may free what was given.
    void endPeriod() {
        for (fxReaderEntry* block : given) {
            if (block->holder == fxReaderEntry::fieldSinceNow) block->holder = fxReaderEntry::field;
        }
        given.clear();
    }

    void defineType(unsigned int id, fxReaderEntry& entry, fxTypeObj& type) {
        entry.defineType(type);
        typeIds.push_back(id);
    }

    /// Forgets all entries and frees the blocks that were not given away.
    void clear() {
        if (blocksHeld > 0) {
            for (size_t i = 0; i < near.size(); ++i) release(near[i]);
            for (const auto& entry : farOnes) {
                release(*entry);
            }
        }
        blocksHeld = 0;
        first = 0;
        recordsBefore = 0;
        mayGrow = true;
        near.clear();
        farOnes.clear();
        given.clear();
        texts.clear();
        typeIds.clear();
        while (const void* key = firstFar()) far.remove(key);
    }
    /// The same for all entries except types. Later numbers are expected to be higher, so
    /// that the cost of this call and of later ones does not depend on earlier graphs.
    void clearObjects(size_t records) {
        std::vector<unsigned int> ids;
        ids.swap(typeIds);
        std::vector<fxTypeObj*> types;
        for (const unsigned int id : ids) types.push_back(&at(id, records).record());
        clear();
        for (size_t i = 0; i < ids.size(); ++i) defineType(ids[i], makeFar(ids[i]), *types[i]);
        first = unplaced;
        recordsBefore = records;
    }

private:
    // Out of line, which keeps at() small.
    [[gnu::noinline]] fxReaderEntry& make(unsigned int id, size_t records) {
        if (const unsigned long* const index = far.find(keyOf(id))) return *farOnes[*index - 1];
        if (first == unplaced) place(id);
        const size_t index = size_t{id} - first;
        if (mayGrow && index < 2 * (records - recordsBefore) + slack) {
            while (near.size() <= index) near.grow();
            return near[index];
        }
        mayGrow = false;
        return makeFar(id);
    }
    // The array begins up to `step` numbers before the first one that is met, but behind
    // the types, which have far entries.
    void place(unsigned int id) {
        first = id - std::min<size_t>(id, step);
        for (const unsigned int type : typeIds) first = std::max(first, type + size_t{1});
    }
    static const void* keyOf(unsigned int id) {
        return reinterpret_cast<const void*>(uintptr_t{id});
    }
    fxReaderEntry& makeFar(unsigned int id) {
        farOnes.push_back(std::make_unique<fxReaderEntry>());
        far[keyOf(id)] = farOnes.size();
        return *farOnes.back();
    }
    // Copies with a zero behind the bytes.
    static void* copyOf(const fxReaderEntry& block) {
        void* const copy = fxNewBlock(block.bytes_ + size_t{1});
        std::memcpy(copy, block.source(), block.bytes_ + size_t{1});
        return copy;
    }
    const void* firstFar() const {
        const fxBinaryOTDictIter walk(far);
        return walk.notDone() ? walk.key() : nullptr;
    }
    static void release(const fxReaderEntry& entry) {
        if (entry.kind_ == fxReaderEntry::block && entry.holder == fxReaderEntry::table)
            std::free(entry.address_);
    }

    static constexpr size_t slack = 1024;
    static constexpr size_t step = 256;
    static constexpr size_t unplaced = SIZE_MAX;

    fxBinaryOTDict& far;  // number to index + 1
    fxChunkList<fxReaderEntry, step> near;
    size_t first = 0;          // the number of near[0]; unplaced until there is one
    size_t recordsBefore = 0;  // how many records with numbers came before that
    bool mayGrow = true;       // `near`: no far entry is beyond it
    std::vector<unsigned int> typeIds;
    std::vector<std::unique_ptr<fxReaderEntry>> farOnes;
    std::vector<fxReaderEntry*> given;  // see (4)
    fxTextChunks texts;
    size_t blocksHeld = 0;  // how many `address_` are ours to free
};

#endif
