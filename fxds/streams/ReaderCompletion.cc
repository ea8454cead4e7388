#include <algorithm>
#include <cstring>
#include <utility>

#include "fxds/XDRObj.h"
#include "fxds/streams/ReaderGraph.h"
#include "fxds/streams/ReaderPlaces.h"

// The end of a graph. One that completes is handed out: its loose places are filled, holders
// hold their objects, and what nothing refers to yet becomes an orphan. Any other is dropped:
// its pointers are emptied first, so that each object can be destroyed separately.
//
// User code runs in deleteInstance() of drop() and in tell(). Before these call any, the state
// is settled and the lists that they walk are local.

using namespace fxReaderPlaces;

bool fxReaderGraph::completes(const fxReaderEntry& root, const fxTypeObj& expected) {
    isBadPointer = hasManyRoots && !holdersAgree(root, expected);
    if (isBadPointer) return false;
    for (size_t i = 0; i < looseCount; ++i) {
        if (!admits(items[i], at(items[i].id))) return false;
    }
    // In an orderly graph all bodies are reached. Walking it nevertheless would be 12 % of
    // loading one of 100,000 nodes (210 instead of 187 million instructions).
    return isOrderly || reach(root);
}

void fxReaderGraph::commit() {
    for (size_t i = 0; i < looseCount; ++i) fill(items[i], at(items[i].id));
    if (!isOrderly) {
        blocks.swap(reachedBlocks);
        leaveOrphans();
        adopt();
    }
    for (fxReaderEntry* block : blocks) numbers.give(*block);
    reachedBlocks.clear();
    reachedOrphans.clear();
    isOrderly = true;
    copiedBytes = 0;
    firstBody = nextBody();
    bodies.clear();
    items.clear();
    blocks.clear();
    looseCount = 0;
    looseWatched = 0;
    watched.shrink(0);
    numbers.endPeriod();
}

void fxReaderGraph::tell(fxTranscriber& transcriber) {
    std::vector<Concluded> told;
    told.swap(concludedOnes);
    for (const Concluded& holder : told) {
        void* object = nullptr;
        if (holder.take != 0) std::memcpy(&object, holder.what, sizeof object);
        if (object != nullptr) takes[holder.take - 1](object);
    }
    for (const Concluded& concluded : told) {
        if (concluded.take == 0) static_cast<fxXDRObj*>(concluded.what)->xdrSuccess(transcriber);
    }
}

// Destructors may do anything, so all state is detached first.
void fxReaderGraph::drop() {
    ready.placeCount = 0;
    ownership.clear();
    const size_t filled = isBodyOpen ? bodies.back().firstItem : items.size();
    for (size_t i = looseCount; i < filled; ++i) {
        empty(items[i]);
    }
    for (const Orphan& orphan : orphans) {
        for (const fxBinaryReaderItem& item : orphan.items) empty(item);
    }
    fxChunkList<Body> dropped;
    dropped.swap(bodies);
    std::vector<Orphan> droppedOrphans;
    droppedOrphans.swap(orphans);
    adoptedCount = 0;
    firstBody += static_cast<unsigned int>(dropped.size());
    isBodyOpen = false;
    isOrderly = true;
    hasMarks = false;
    looseCount = 0;
    looseWatched = 0;
    watched.shrink(0);
    items.clear();
    blocks.clear();
    reachedBlocks.clear();
    reachedOrphans.clear();
    concludedOnes.clear();
    const auto destroy = [](const Body& body) {
        if (body.address != nullptr && body.type->deleteInstance != nullptr) {
            body.type->deleteInstance(body.address);
        }
    };
    for (const Orphan& orphan : droppedOrphans) destroy(orphan.body);
    dropped.each(destroy);
}

void fxReaderGraph::reset() {
    drop();
    numbers.clear();
    heldRoots.clear();
    hasManyRoots = false;
    awaited = 0;
    firstBody = 0;
}

void fxReaderGraph::forgetObjects() {
    drop();
    numbers.clearObjects(ready.idCount);
    heldRoots.clear();
    awaited = 0;
    firstBody = 0;
}

// Private functions.

inline void fxReaderGraph::fill(const fxBinaryReaderItem& item, fxReaderEntry& entry) {
    if (item.isObject()) {
        fillPointer(item, entry);
    } else {
        fillBlock(item, entry);
    }
}

// Whether the entry is defined, and not part of a body that may still be dropped.
bool fxReaderGraph::isHandedOut(const fxReaderEntry& entry) {
    if (entry.kind() == fxReaderEntry::block) return true;
    return entry.isObject() && entry.body() < firstBody && orphanOf(entry.body()) == nullptr;
}

// Whether each object of the type has one fxXDRObj, as far as is known.
bool fxReaderGraph::hasOneRoot(const fxTypeObj& type) {
    if (type.bases == nullptr || &type == &fxXDRObj_type) return true;
    for (fxTypeObj* const* base = type.bases; *base != nullptr; ++base) {
        if (*base == &fxXDRObj_type) return true;
    }
    return type.bases[0] != nullptr && type.bases[1] == nullptr && hasOneRoot(*type.bases[0]);
}

// Each root of an object counts its holders. The last holder by one of them would destroy an
// object that is held by another.
bool fxReaderGraph::mayHold(const fxReaderEntry& entry, const fxTypeObj& declared) {
    void* const pointer = entry.record().upcast(entry.address(), declared);
    const void* const root = declared.upcast(pointer, fxXDRObj_type);
    return heldRoots.emplace(entry.body(), root).first->second == root;
}

// A caller with a pointer to a class with several roots destroys the object, unheld.
bool fxReaderGraph::holdersAgree(const fxReaderEntry& root, const fxTypeObj& expected) {
    if (!hasOneRoot(expected)) heldRoots[root.body()] = nullptr;
    if (hasOneRoot(expected) && !mayHold(root, expected)) return false;
    return std::all_of(concludedOnes.begin(), concludedOnes.end(), [&](const Concluded& each) {
        if (each.take == 0) return true;
        const fxBinaryReaderItem& item = items[each.place];
        return mayHold(at(item.id), typeOf(item.wanted));
    });
}

// Sets a pointer to null again. A linked one is null already.
void fxReaderGraph::empty(const fxBinaryReaderItem& item) {
    if (item.isText() || item.isMark()) return;
    void* value = nullptr;
    std::memcpy(&value, item.slot, sizeof value);
    if (item.isOwnBlock() && value != nullptr) numbers.takeBack(at(item.id), value);
    setPointer(item.slot, nullptr);
}

// Walks from the root and the loose places to everything reachable. Collects the reached
// orphans, and the blocks that reached pointers have got. Returns false when a place of an
// orphan cannot be filled.
bool fxReaderGraph::reach(const fxReaderEntry& root) {
    std::vector<unsigned int> found;  // and not walked yet
    const auto follow = [&](const fxReaderEntry& entry) {
        const bool isNew = entry.body() >= firstBody;
        Orphan* const orphan = isNew ? nullptr : orphanOf(entry.body());
        if (!isNew && orphan == nullptr) return;
        Body& body = isNew ? bodies[entry.body() - firstBody] : orphan->body;
        if (!std::exchange(body.isReached, true)) found.push_back(entry.body());
    };
    const auto visit = [&](const fxBinaryReaderItem& item) {
        fxReaderEntry& entry = at(item.id);
        if (item.isObject()) follow(entry);
        const bool isShared = !item.isText() && !item.isOwnBlock();
        if (entry.kind() == fxReaderEntry::block && isShared) reachedBlocks.push_back(&entry);
    };
    follow(root);
    for (size_t i = 0; i < looseCount; ++i) visit(items[i]);
    while (!found.empty()) {
        const unsigned int serial = found.back();
        found.pop_back();
        if (serial < firstBody) {
            reachedOrphans.push_back(serial);
            for (const fxBinaryReaderItem& item : orphanOf(serial)->items) {
                if (!fillIfAdmitted(item, at(item.id))) return false;
                visit(item);
            }
            continue;
        }
        const size_t index = serial - firstBody;
        for (size_t i = bodies[index].firstItem; i < endOfItems(index); ++i) visit(items[i]);
    }
    return true;
}

// Turns the unreached bodies into orphans. Their objects are not called now.
void fxReaderGraph::leaveOrphans() {
    std::vector<Concluded> told;
    auto next = concludedOnes.begin();
    // Those read outside of bodies come first.
    while (next != concludedOnes.end() && next->body - firstBody >= bodies.size()) {
        told.push_back(*next++);
    }
    for (size_t body = 0; body < bodies.size(); ++body) {
        const unsigned int serial = firstBody + static_cast<unsigned int>(body);
        Orphan orphan{bodies[body], serial, {}, {}};
        for (; next != concludedOnes.end() && next->body == serial; ++next) {
            if (orphan.body.isReached) told.push_back(*next);
            if (!orphan.body.isReached) orphan.concluded.push_back(*next);
        }
        if (orphan.body.isReached) continue;
        for (size_t i = orphan.body.firstItem; i < endOfItems(body); ++i) {
            if (items[i].isText()) continue;  // a string keeps its own text
            empty(items[i]);
            orphan.items.push_back(items[i]);
        }
        orphans.push_back(std::move(orphan));
    }
    concludedOnes.swap(told);
}

// Removes the orphans that have become part of the graph. Their objects are called first.
void fxReaderGraph::adopt() {
    std::sort(reachedOrphans.begin(), reachedOrphans.end());
    std::vector<Concluded> told;
    for (const unsigned int serial : reachedOrphans) {
        Orphan& orphan = *orphanOf(serial);
        told.insert(told.end(), orphan.concluded.begin(), orphan.concluded.end());
        orphan = Orphan{{}, serial, {}, {}};
    }
    concludedOnes.insert(concludedOnes.begin(), told.begin(), told.end());
    adoptedCount += reachedOrphans.size();
    if (2 * adoptedCount <= orphans.size()) return;
    const auto isAdopted = [](const Orphan& orphan) { return orphan.body.address == nullptr; };
    orphans.erase(std::remove_if(orphans.begin(), orphans.end(), isAdopted), orphans.end());
    adoptedCount = 0;
}

fxReaderGraph::Orphan* fxReaderGraph::orphanOf(unsigned int serial) {
    const auto isBefore = [](const Orphan& orphan, unsigned int wanted) {
        return orphan.serial < wanted;
    };
    const auto found = std::lower_bound(orphans.begin(), orphans.end(), serial, isBefore);
    const bool isThere = found != orphans.end() && found->serial == serial;
    return isThere && found->body.address != nullptr ? &*found : nullptr;
}
