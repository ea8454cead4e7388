// What the reader knows of each record number.
#ifndef FXDS_STREAMS_READERNUMBERS_H
#define FXDS_STREAMS_READERNUMBERS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "fxds/BinaryOTDict.h"
#include "fxds/TypeObj.h"
#include "fxds/detail/ChunkList.h"

// Numbers run from 1 on in the streams of our writer, so that most entries
// stand in one array, indexed by number. That array grows only in proportion
// to the number of records with numbers that were read; a number far beyond it
// gets an entry of its own, which the object table finds. Once there is one of
// those, later numbers beyond the array follow it.
//
// An entry starts as a number that some place waits for, as an object or as a
// block, and becomes what the stream defines it to be, once.

struct fxReaderEntry {
    enum Kind : unsigned char {
        unknown,
        awaitedObject,  // `record` is what the places want, see eachWanted()
        awaitedBlock,   // `bytes` is the least that the places want
        type,           // `record`
        object,         // `address`, `record`, `body`
        part,           // likewise, of the body that it is a part of
        block           // `address` or `text`, `bytes`
    };

    /// Who has the malloc() memory of a block: we, or a pointer field since now
    /// or since before the caller last had control.
    enum Holder : unsigned char { table, fieldSinceNow, field };

    bool isDefined() const { return kind >= type; }

    void awaitObject() {
        kind = awaitedObject;
        others = 0;
        record = nullptr;
    }
    void awaitBlock(unsigned int least) {
        kind = awaitedBlock;
        bytes = least;
    }
    void define(Kind newKind, fxTypeObj& newRecord, void* newAddress, unsigned int newBody) {
        kind = newKind;
        record = &newRecord;
        address = newAddress;
        body = newBody;
    }
    /// Of a block: what a string can be made from, or null when it is not ours to
    /// look at any more.
    const char* textForCopy() const {
        return text != nullptr || holder == field ? text : static_cast<const char*>(address);
    }

    Kind kind = unknown;
    Holder holder = table;
    bool isWantedPlain = false;  // awaited block: by a pointer field
    bool isWantedText = false;   // awaited block: by a string, of `bytes` bytes
    union {
        unsigned int bytes = 0;
        unsigned int others;  // awaited object: further types wanted
        unsigned int body;    // object, part: serial number of the body
    };
    void* address = nullptr;  // object, part, block
    union {
        fxTypeObj* record = nullptr;
        const char* text;  // block: if only strings want it, kept by the table
    };
};

class fxReaderTable {
public:
    explicit fxReaderTable(fxBinaryOTDict& farEntries) : far(farEntries) {}
    fxReaderTable(const fxReaderTable&) = delete;
    fxReaderTable& operator=(const fxReaderTable&) = delete;
    ~fxReaderTable() { clear(); }

    /// Tells that another record with a number was read, or perhaps was.
    void countRecord(bool hasNumber) { records += hasNumber; }

    /// The entry of the number, made if need be. View: good until clear().
    fxReaderEntry& at(unsigned int id) { return id < near.size() ? near[id] : make(id); }
    /// Adds a type to those that the places which wait for an object want.
    void want(fxReaderEntry& entry, fxTypeObj& declared) {
        if (entry.record == nullptr) entry.record = &declared;
        if (entry.record == &declared) return;
        for (unsigned int i = entry.others; i != 0; i = wants[i - 1].next) {
            if (wants[i - 1].record == &declared) return;
        }
        wants.push_back({&declared, entry.others});
        entry.others = static_cast<unsigned int>(wants.size());
    }

    /// Calls `use(record)` for each wanted type until it returns false; whether
    /// it never did.
    template <class Use>
    bool eachWanted(const fxReaderEntry& entry, Use use) const {
        if (entry.record != nullptr && !use(*entry.record)) return false;
        for (unsigned int i = entry.others; i != 0; i = wants[i - 1].next) {
            if (!use(*wants[i - 1].record)) return false;
        }
        return true;
    }

    /// A number for a type that places are declared with, and back.
    unsigned int numberOf(fxTypeObj& declared) {
        if (lastType < types.size() && types[lastType] == &declared) return lastType;
        const size_t found =
            static_cast<size_t>(std::find(types.begin(), types.end(), &declared) - types.begin());
        if (found == types.size()) types.push_back(&declared);
        return lastType = static_cast<unsigned int>(found);
    }
    fxTypeObj& typeOf(unsigned int number) const { return *types[number]; }

    /// Room for a short text of `bytes` bytes, kept until clear().
    char* textRoom(size_t bytes) {
        if (bytes > textLeft) {
            texts.emplace_back(new char[textChunk]);
            textNext = texts.back().get();
            textLeft = textChunk;
        }
        char* const room = textNext;
        textNext += bytes;
        textLeft -= bytes;
        return room;
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
        near.clear();
        farOnes.clear();
        wants.clear();
        given.clear();
        texts.clear();
        textLeft = 0;
        records = 0;
        for (;;) {
            const fxBinaryOTDictIter first(far);
            if (!first.notDone()) break;
            const void* const key = first.key();
            far.remove(key);
        }
    }

    /// Adopts the malloc() block `newAddress`, if it is not null.
    void defineBlock(fxReaderEntry& entry, unsigned int length, void* newAddress,
                     const char* newText) {
        entry.kind = fxReaderEntry::block;
        entry.bytes = length;
        entry.text = newText;
        adopt(entry, newAddress);
    }
    void adopt(fxReaderEntry& block, void* newAddress) {
        block.address = newAddress;
        blocksHeld += newAddress != nullptr;
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
        for (fxReaderEntry* block : given) block->holder = fxReaderEntry::field;
        given.clear();
    }

    static constexpr size_t maxText = 4096;  ///< Longest text that textRoom() takes.

private:
    struct Want {
        fxTypeObj* record;
        unsigned int next;  // index + 1, 0 at the end
    };

    // Out of line, which keeps at() small.
    [[gnu::noinline]] fxReaderEntry& make(unsigned int id) {
        if (farOnes.empty() && id < 2 * records + slack) {
            near.resize(id / step * step + step);
            return near[id];
        }
        const void* const key = reinterpret_cast<const void*>(uintptr_t{id});
        unsigned long& index = far[key];
        if (index == 0) {
            farOnes.push_back(std::make_unique<fxReaderEntry>());
            index = farOnes.size();
        }
        return *farOnes[index - 1];
    }
    static void release(const fxReaderEntry& entry) {
        if (entry.kind == fxReaderEntry::block && entry.holder == fxReaderEntry::table)
            std::free(entry.address);
    }

    static constexpr size_t slack = 1024;
    static constexpr size_t step = 256;
    static constexpr size_t textChunk = size_t{1} << 16;

    fxBinaryOTDict& far;  // number to index + 1
    fxChunkList<fxReaderEntry> near;
    std::vector<std::unique_ptr<fxReaderEntry>> farOnes;
    std::vector<Want> wants;
    std::vector<fxTypeObj*> types;      // that places are declared with; not many
    unsigned int lastType = 0;          // the one that was asked for last
    std::vector<fxReaderEntry*> given;  // those with a fieldSinceNow
    std::vector<std::unique_ptr<char[]>> texts;
    char* textNext = nullptr;
    size_t textLeft = 0;
    size_t records = 0;     // that had a number
    size_t blocksHeld = 0;  // how many `address` are ours to free
};

#endif
