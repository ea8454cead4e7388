// What the reader knows of each record number.
#ifndef FXDS_READERTABLE_H
#define FXDS_READERTABLE_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "fxds/BinaryOTDict.h"
#include "fxds/ChunkList.h"
#include "fxds/TypeObj.h"

// Numbers run from 1 on in the streams of our writer, so that most entries
// stand in one array, indexed by number. That array grows only in proportion
// to the number of entries made; a number far beyond it gets an entry of its
// own, which the object table finds. Once there is one of those, later numbers
// beyond the array follow it.
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

    bool isDefined() const { return kind >= type; }

    Kind kind = unknown;
    bool isWantedPlain = false;  // awaited block: by a pointer field
    bool isWantedText = false;   // awaited block: by a string, of `bytes` bytes
    unsigned int bytes = 0;
    unsigned int others = 0;   // awaited object: further types wanted
    unsigned int givenIn = 0;  // block: the period in which `address` was given away, or 0
    fxTypeObj* record = nullptr;
    void* address = nullptr;     // a block's malloc() memory; ours until given away
    const char* text = nullptr;  // a block that only strings want, kept by the table
    size_t body = 0;             // serial number of the body
};

class fxReaderTable {
public:
    explicit fxReaderTable(fxBinaryOTDict& farEntries) : far(farEntries) {}
    fxReaderTable(const fxReaderTable&) = delete;
    fxReaderTable& operator=(const fxReaderTable&) = delete;
    ~fxReaderTable() { clear(); }

    /// The entry of the number, made if need be. View: good until clear().
    fxReaderEntry& at(unsigned int id) {
        if (id < near.size()) return counted(near[id]);
        if (farOnes.empty() && id < 2 * made + slack) {
            near.resize(id + size_t{1});
            return counted(near[id]);
        }
        const void* const key = reinterpret_cast<const void*>(uintptr_t{id});
        unsigned long& index = far[key];
        if (index == 0) {
            farOnes.push_back(std::make_unique<fxReaderEntry>());
            index = farOnes.size();
        }
        return *farOnes[index - 1];
    }

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
        for (size_t i = 0; i < near.size(); ++i) release(near[i]);
        for (const auto& entry : farOnes) {
            release(*entry);
        }
        near.clear();
        farOnes.clear();
        wants.clear();
        texts.clear();
        textLeft = 0;
        made = 0;
        for (;;) {
            const fxBinaryOTDictIter first(far);
            if (!first.notDone()) break;
            const void* const key = first.key();
            far.remove(key);
        }
    }

    static constexpr size_t maxText = 4096;  ///< Longest text that textRoom() takes.

private:
    struct Want {
        fxTypeObj* record;
        unsigned int next;  // index + 1, 0 at the end
    };

    fxReaderEntry& counted(fxReaderEntry& entry) {
        made += entry.kind == fxReaderEntry::unknown;
        return entry;
    }
    static void release(const fxReaderEntry& entry) {
        if (entry.kind == fxReaderEntry::block && entry.givenIn == 0) std::free(entry.address);
    }

    static constexpr size_t slack = 1024;
    static constexpr size_t textChunk = size_t{1} << 16;

    fxBinaryOTDict& far;  // number to index + 1
    fxChunkList<fxReaderEntry> near;
    std::vector<std::unique_ptr<fxReaderEntry>> farOnes;
    std::vector<Want> wants;
    std::vector<std::unique_ptr<char[]>> texts;
    char* textNext = nullptr;
    size_t textLeft = 0;
    size_t made = 0;
};

#endif
