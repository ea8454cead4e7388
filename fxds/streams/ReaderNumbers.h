// The record numbers that the reader has met, and the blocks that they denote.
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

/// The entries. Numbers run from 1 on in the streams of our writer, so that most
/// are in one array, indexed by number. It grows only in proportion to the
/// number of records with numbers that were read; a number far beyond it gets an
/// entry of its own, which the dictionary finds. Once there is one of those,
/// later numbers beyond the array follow it. Types that outlive the objects have
/// such entries, too.
class fxReaderNumbers {
public:
    explicit fxReaderNumbers(fxBinaryOTDict& farIndices) : far(farIndices) {}
    fxReaderNumbers(const fxReaderNumbers&) = delete;
    fxReaderNumbers& operator=(const fxReaderNumbers&) = delete;
    ~fxReaderNumbers() { clear(); }

    /// The entry of the number, made if need be; `records` is how many records
    /// with numbers were read. View: good until clear().
    [[gnu::always_inline]] fxReaderEntry& at(unsigned int id, size_t records) {
        const size_t index = size_t{id} - first;  // huge for lower ones
        return index < near.size() ? near[index] : make(id, records);
    }

    /// Room for a short text, kept until clear().
    char* textRoom(size_t bytes) { return texts.add(bytes); }

    /// Defines a block of `length` bytes, which is in `text`, in room of ours, or
    /// in the malloc() memory `adopted`.
    void defineBlock(fxReaderEntry& entry, unsigned int length, const char* text, void* adopted) {
        entry.kind_ = fxReaderEntry::block;
        entry.bytes_ = length;
        entry.u.text = text;
        entry.address_ = adopted;
        blocksHeld += adopted != nullptr;
    }
    /// The malloc() memory of a block, with a zero behind its bytes: for the
    /// pointer fields, which share it.
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
    /// Memory for one pointer field alone: that of the block, if nothing else has
    /// it, or else a copy; null when the bytes are not ours to look at any more.
    void* takeMemoryOf(fxReaderEntry& block) {
        if (block.source() == nullptr) return nullptr;
        const bool isFree =
            block.address_ != nullptr && block.holder == fxReaderEntry::table && !block.isShared_;
        if (!isFree) return copyOf(block);
        block.isOwned_ = true;
        give(block);
        return block.address_;
    }
    /// Takes such memory back.
    void takeBack(fxReaderEntry& block, void* memory) {
        if (block.kind_ == fxReaderEntry::block && block.isOwned_ && block.address_ == memory) {
            block.isOwned_ = false;
            block.holder = fxReaderEntry::table;
            ++blocksHeld;
        } else {
            std::free(memory);
        }
    }
    /// Tells that a pointer field has got the block now.
    void give(fxReaderEntry& block) {
        if (block.holder != fxReaderEntry::table) return;
        --blocksHeld;
        block.holder = fxReaderEntry::fieldSinceNow;
        given.push_back(&block);
    }
    /// Tells that the caller gets control, and may free what was given.
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

    /// Forgets every entry and frees the blocks that were not given away.
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
    /// The same for all but the types. Later numbers are expected to be higher, so
    /// that what this and they cost does not depend on those before.
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
    // Some numbers before the first one that shows up may follow it; the types,
    // which are kept apart, come before.
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
    // With a zero behind the bytes.
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
    bool mayGrow = true;       // `near`: there are no far ones beyond it
    std::vector<unsigned int> typeIds;
    std::vector<std::unique_ptr<fxReaderEntry>> farOnes;
    std::vector<fxReaderEntry*> given;  // those with a fieldSinceNow
    fxTextChunks texts;
    size_t blocksHeld = 0;  // how many `address_` are ours to free
};

#endif
