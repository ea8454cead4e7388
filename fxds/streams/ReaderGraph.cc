#include "fxds/streams/ReaderGraph.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "fxds/Str.h"
#include "fxds/XDRObj.h"
#include "fxds/base/CopyShort.h"
#include "fxds/detail/Allocate.h"

// The places of a body are filled when its record's function has returned, while the object
// is in the near cache, and not before: a class that abandons a half-read container need
// not clean its pointers.
//
// User code runs in records' functions, in deleteInstance() of drop(), in the functions of
// a container's kind, and in tell(). The reader refuses to start another reading during the
// first. Before drop() and tell() call any, the state is settled and the lists that they
// walk are local.

namespace {

// Limits the bytes that a graph may hold in texts and in blocks with one owner. Each place
// has its own copy, so a stream could name a long one very often. A stream of our writer
// names each text once in a graph, unless an object transcribes a string repeatedly.
constexpr size_t freeBytes = size_t{1} << 16;
constexpr size_t copiesOfEach = 16;

void setPointer(void* slot, void* value) { std::memcpy(slot, &value, sizeof value); }

}  // namespace

// Links a place with the number that it waits for.
inline void fxReaderGraph::link(fxBinaryReaderItem& item, size_t index, fxReaderEntry& entry) {
    if (entry.firstSlot() == nullptr || entry.firstWanted() != item.wanted) entry.setMixed();
    item.id = entry.waiting();
    entry.setWaiting(static_cast<unsigned int>(index + 1));
}

// The same for a place of a body. The entry itself keeps the first place that waits.
inline void fxReaderGraph::wait(fxBinaryReaderItem& item, size_t index, fxReaderEntry& entry) {
    if (entry.waiting() == 0 && entry.firstSlot() == nullptr) {
        entry.setFirst(item.slot, item.wanted);
    } else {
        link(item, index, entry);
    }
}

// Fills the places linked with a number, except the loose ones.
inline bool fxReaderGraph::fillLinked(unsigned int last, unsigned int id, fxReaderEntry& entry) {
    while (last != 0) {
        fxBinaryReaderItem& item = items[last - 1];
        const bool isLoose = last <= looseCount;
        last = std::exchange(item.id, id);
        if (!isLoose && !fillIfAdmitted(item, entry)) return false;
    }
    return true;
}

// Whether the place may have the object or block of its number; counts the copy. A text
// must end where its string does. Memory that a field has is out of reach.
inline bool fxReaderGraph::admits(const fxBinaryReaderItem& item, const fxReaderEntry& entry) {
    if (item.isObject()) {
        follow(entry);
        return true;
    }
    if (item.isText()) return admitsText(item.wanted, entry.source());
    return !item.isOwnBlock() || (entry.source() != nullptr && admitsCopy(entry.bytes()));
}

inline bool fxReaderGraph::admitsText(unsigned int textBytes, const char* bytes) {
    return bytes != nullptr && bytes[textBytes - 1] == '\0' && admitsCopy(textBytes);
}

inline bool fxReaderGraph::admitsCopy(unsigned int byteCount) {
    copiedBytes += byteCount;
    return copiedBytes <= freeBytes + copiesOfEach * blockBytes;
}

inline bool fxReaderGraph::fillIfAdmitted(const fxBinaryReaderItem& item, fxReaderEntry& entry) {
    if (item.isObject()) {
        follow(entry);
        fillPointer(item, entry);
        return true;
    }
    return item.isText() ? fillTextIfAdmitted(item, entry.source())
                         : fillBlockIfAdmitted(item, entry);
}

inline bool fxReaderGraph::fillTextIfAdmitted(const fxBinaryReaderItem& item, const char* bytes) {
    const bool isAdmitted = admitsText(item.wanted, bytes);
    if (isAdmitted) fillText(item, bytes);
    return isAdmitted;
}

// Out of line, which keeps the loops around it small.
bool fxReaderGraph::fillBlockIfAdmitted(const fxBinaryReaderItem& item, fxReaderEntry& entry) {
    if (!admits(item, entry)) return false;
    fillBlock(item, entry);
    return true;
}

inline void fxReaderGraph::fill(const fxBinaryReaderItem& item, fxReaderEntry& entry) {
    if (item.isObject()) {
        fillPointer(item, entry);
    } else {
        fillBlock(item, entry);
    }
}

inline void fxReaderGraph::fillPointer(const fxBinaryReaderItem& item, const fxReaderEntry& entry) {
    fxTypeObj& declared = typeOf(item.wanted);
    setPointer(item.slot, &entry.record() == &declared
                              ? entry.address()
                              : entry.record().upcast(entry.address(), declared));
}

inline void fxReaderGraph::fillText(const fxBinaryReaderItem& item, const char* bytes) {
    char* const copy = static_cast<char*>(fxNewBlock(item.wanted));
    fxCopyShort(copy, bytes, item.wanted);
    static_cast<fxStr*>(item.slot)->adopt(copy, item.wanted);
}

inline void fxReaderGraph::fillBlock(const fxBinaryReaderItem& item, fxReaderEntry& entry) {
    if (item.isText()) {
        fillText(item, entry.source());
    } else if (item.isOwnBlock()) {
        setPointer(item.slot, numbers.takeMemoryOf(entry));
    } else {
        setPointer(item.slot, numbers.memoryOf(entry));
        blocks.push_back(&entry);
    }
}

bool fxReaderGraph::awaitObject(fxReaderEntry& entry, const fxTypeObj& declared) {
    await(entry, fxReaderEntry::awaitedObject);
    return entry.isObject() ? entry.record().isA(declared)
                            : entry.kind() == fxReaderEntry::awaitedObject;
}

bool fxReaderGraph::awaitBlock(fxReaderEntry& entry, unsigned int least, bool isText) {
    await(entry, fxReaderEntry::awaitedBlock);
    if (entry.kind() == fxReaderEntry::awaitedBlock) {
        entry.raiseLeast(least);
        if (!isText) entry.wantPlain();
        return true;
    }
    return entry.kind() == fxReaderEntry::block && entry.bytes() >= least;
}

bool fxReaderGraph::suits(const fxReadyRecords::Place& place, fxReaderEntry& entry) {
    const fxBinaryReaderItem item{place.slot, place.id, place.wanted};
    const bool isGood = place.id != 0 && (item.isObject() ? awaitObject(entry, typeOf(item.wanted))
                                                          : awaitBlock(entry, place.wanted, true));
    isBadPointer = !isGood && item.isObject();
    return isGood;
}

bool fxReaderGraph::takeReadyPlaces() {
    const unsigned int count = std::exchange(ready.placeCount, 0);
    for (unsigned int i = 0; i < count; ++i) {
        const fxReadyRecords::Place& place = ready.places[i];
        if (!suits(place, at(place.id))) return false;
        items.push_back({place.slot, place.id, place.wanted});
    }
    return true;
}

void fxReaderGraph::awaitInVain(fxReaderEntry& entry, fxReaderEntry::Kind kind) {
    await(entry, kind);
    isOrderly = false;
}

bool fxReaderGraph::claim(unsigned int id, fxReaderEntry& entry, unsigned int levels) {
    const bool isOfEarlier = entry.isObject() && entry.body() < firstBody;
    if (isOfEarlier || !entry.claim()) return false;
    ownership.add(id, isBodyOpen ? openId : 0, levels);
    return true;
}

void fxReaderGraph::forgetPlaces(size_t count) {
    count = std::max(count, isBodyOpen ? bodies.back().firstItem : looseCount);
    if (count >= items.size()) return;
    items.resize(count);
    parts.forget(count);
    roots.forget(count);
    watched.forget(count);
    isOrderly = false;
}

void fxReaderGraph::placesMoved(const void* from, size_t byteCount, void* to, size_t firstMoved) {
    const uintptr_t begin = reinterpret_cast<uintptr_t>(from);
    if (isBodyOpen) firstMoved = std::max<size_t>(firstMoved, bodies.back().firstItem);
    for (size_t i = items.size(); i-- > firstMoved;) {
        const uintptr_t offset = reinterpret_cast<uintptr_t>(items[i].slot) - begin;
        if (offset < byteCount) items[i].slot = static_cast<char*>(to) + offset;
    }
    parts.moved(from, byteCount, to);
    roots.moved(from, byteCount, to);
    watched.moved(from, byteCount, to, firstMoved);
}

bool fxReaderGraph::noteHolder(void* slot, unsigned int id, fxTypeObj& declared,
                               void (*take)(void*)) {
    const bool isAtOnce = !isBodyOpen && bodies.empty() && isHandedOut(at(id));
    if (isAtOnce && hasManyRoots && !mayHold(at(id), declared)) return false;
    if (!notePointer(slot, id, declared)) return false;
    void* filled = nullptr;
    std::memcpy(&filled, slot, sizeof filled);
    if (filled != nullptr) return true;  // filled at once; the caller holds it
    const auto found = std::find(takes.begin(), takes.end(), take);
    const auto index = static_cast<unsigned int>(found - takes.begin());
    if (found == takes.end()) takes.push_back(take);
    mark(slot, fxBinaryReaderItem::holderMark, index + 1);
    return true;
}

void fxReaderGraph::beginGraph(fxStackPart frames) {
    dying = frames;
    hasLocal = false;
    if (hasMarks) takeMarks(0, false);
    looseCount = items.size();
    looseWatched = watched.count();
    for (size_t i = 0; i < looseCount; ++i) {
        fxReaderEntry& entry = at(items[i].id);
        if (!entry.isDefined()) link(items[i], i, entry);
    }
}

void fxReaderGraph::beginBody(fxTypeObj& type) {
    bodies.push_back({nullptr, &type, static_cast<unsigned int>(items.size()), false});
    parts.clear();
    roots.clear();
    isBodyOpen = true;
}

void fxReaderGraph::defineObject(unsigned int id, fxReaderEntry& entry, void* object) {
    Body& body = bodies.back();
    body.address = object;
    openId = id;
    const bool isAwaited = entry.kind() == fxReaderEntry::awaitedObject;
    awaited -= isAwaited;
    isOrderly &= isAwaited;
    const fxReaderEntry before = entry;
    entry.defineObject(fxReaderEntry::object, *body.type, object, nextBody() - 1);
    const fxBinaryReaderItem first{before.firstSlot(), id, before.firstWanted()};
    if (first.slot != nullptr) fillPointer(first, entry);
    if (before.waiting() != 0) fillLinked(before.waiting(), id, entry);
}

bool fxReaderGraph::definePart(fxReaderEntry& entry, fxTypeObj& base, void* derived,
                               void* baseAddress) {
    if (derived == nullptr) derived = baseAddress;
    const fxAddressSet::Entry* const outer = parts.find(derived);
    const bool isInner = !isBodyOf(derived) && (outer == nullptr || outer->isInner);
    if (!parts.add({baseAddress, items.size(), isInner})) return false;
    mark(baseAddress, fxBinaryReaderItem::partMark);
    entry.defineObject(isInner ? fxReaderEntry::innerPart : fxReaderEntry::part, base, baseAddress,
                       nextBody() - 1);
    return true;
}

void fxReaderGraph::definePassedPart(fxReaderEntry& entry) {
    if (entry.kind() != fxReaderEntry::unknown) return;
    entry.defineObject(fxReaderEntry::innerPart, fxXDRObj_type, nullptr, firstBody);
}

bool fxReaderGraph::isPart(const fxReaderEntry& entry, const void* baseAddress) const {
    return (entry.kind() == fxReaderEntry::part || entry.kind() == fxReaderEntry::innerPart) &&
           entry.body() == nextBody() - 1 && entry.address() == baseAddress;
}

// Removes the marks from the items that follow `first`.
void fxReaderGraph::takeMarks(size_t first, bool isForgiven) {
    size_t kept = first;
    for (size_t i = first; i < items.size(); ++i) {
        const fxBinaryReaderItem item = items[i];
        if (!item.isMark()) {
            items[kept++] = item;
        } else if (item.wanted != fxBinaryReaderItem::partMark &&
                   item.wanted != fxBinaryReaderItem::countMark && !isForgiven) {
            hasLocal |= dying.holds(item.slot);
            concludedOnes.push_back({item.slot, nextBody() - 1, item.id, kept - 1});
        }
    }
    items.resize(kept);
    hasMarks = false;
}

// For an object that recovers from a failure: empties its containers, and sets the block
// counts to 0 that are not in one of them.
void fxReaderGraph::giveUpBlocks(size_t first) {
    auto emptied = watched.empty(looseWatched, dying);
    for (size_t i = first; i < items.size(); ++i) {
        if (items[i].wanted != fxBinaryReaderItem::countMark) continue;
        while (!emptied.empty() && emptied.back().end <= i) emptied.pop_back();
        const bool isGone = !emptied.empty() && emptied.back().first <= i;
        if (!isGone && !dying.holds(items[i].slot)) *static_cast<unsigned int*>(items[i].slot) = 0;
    }
}

bool fxReaderGraph::endBody(bool isForgiven) {
    const size_t first = bodies.back().firstItem;
    if (isForgiven && !takeReadyPlaces()) return false;
    if (isForgiven) giveUpBlocks(first);
    if (hasMarks) takeMarks(first, isForgiven);
    if (isForgiven) forgetPlaces(first);
    isBodyOpen = false;
    watched.shrink(looseWatched);
    for (size_t i = first; i < items.size(); ++i) {
        if (dying.holds(items[i].slot)) hasLocal = true;
        if (hasLocal) {
            items.resize(i);  // the rest is not filled
            return false;
        }
        fxReaderEntry& entry = at(items[i].id);
        if (!entry.isDefined()) {
            wait(items[i], i, entry);
        } else if (!fillIfAdmitted(items[i], entry)) {
            return false;
        }
    }
    if (hasLocal) return false;
    const unsigned int count = std::exchange(ready.placeCount, 0);
    for (unsigned int i = 0; i < count; ++i) {
        if (!settle(ready.places[i], *readyEntries[i])) return false;
    }
    return true;
}

// Takes in a place and fills or links it.
inline bool fxReaderGraph::settle(const fxReadyRecords::Place& place, fxReaderEntry& entry) {
    const fxBinaryReaderItem item{place.slot, place.id, place.wanted};
    const bool isPointer = item.isObject();
    if (dying.holds(item.slot) || item.id == 0) return settleUnusual(place, entry);
    const bool isUsual = isPointer && entry.kind() == fxReaderEntry::object &&
                         &entry.record() == &typeOf(item.wanted);
    if (isUsual) {
        items.push_back(item);
        follow(entry);
        setPointer(item.slot, entry.address());
        return true;
    }
    const auto awaitedKind = isPointer ? fxReaderEntry::awaitedObject : fxReaderEntry::awaitedBlock;
    await(entry, awaitedKind);
    if (entry.kind() != awaitedKind) return settleUnusual(place, entry);
    if (!isPointer) entry.raiseLeast(item.wanted);
    const bool isFirst = entry.waiting() == 0 && entry.firstSlot() == nullptr;
    if (isFirst) entry.setFirst(item.slot, item.wanted);
    if (isFirst && !isPointer) return true;  // a string needs no item for emptying
    items.push_back(item);
    if (!isFirst) link(items.back(), items.size() - 1, entry);
    return true;
}

bool fxReaderGraph::settleUnusual(const fxReadyRecords::Place& place, fxReaderEntry& entry) {
    hasLocal = dying.holds(place.slot);
    if (hasLocal || !suits(place, entry)) return false;
    items.push_back({place.slot, place.id, place.wanted});
    return fillIfAdmitted(items.back(), entry);
}

bool fxReaderGraph::defineBlock(unsigned int id, fxReaderEntry& entry, unsigned int length,
                                const char* text, void* adopted) {
    const fxReaderEntry before = entry;
    awaited -= entry.kind() == fxReaderEntry::awaitedBlock;
    blockBytes += length;
    numbers.defineBlock(entry, length, text, adopted);
    const fxBinaryReaderItem first{before.firstSlot(), id, before.firstWanted()};
    // Most blocks are the text of one string.
    const bool isFilled = first.slot == nullptr ||
                          (first.isText() && text != nullptr ? fillTextIfAdmitted(first, text)
                                                             : fillIfAdmitted(first, entry));
    return isFilled && (before.waiting() == 0 || fillLinked(before.waiting(), id, entry));
}

// The first string is filled from `bytes`, which are in the near cache.
bool fxReaderGraph::defineText(unsigned int id, fxReaderEntry& entry, unsigned int length,
                               const char* text, const char* bytes) {
    const fxReaderEntry before = entry;
    --awaited;
    blockBytes += length;
    numbers.defineBlock(entry, length, text, nullptr);
    const fxBinaryReaderItem first{before.firstSlot(), id, before.firstWanted()};
    const bool isFilled = first.slot == nullptr || fillTextIfAdmitted(first, bytes);
    return isFilled && (before.waiting() == 0 || fillLinked(before.waiting(), id, entry));
}

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

// Finds the number of a declared type.
void fxReaderGraph::chooseType(fxTypeObj& declared) {
    const auto found = std::find(types.begin(), types.end(), &declared);
    ready.mark = fxBinaryReaderItem::objectMark | static_cast<unsigned int>(found - types.begin());
    ready.lastDeclared = &declared;
    if (found == types.end()) types.push_back(&declared);
}

// A place outside of readings.
bool fxReaderGraph::fillAtOnce(const fxBinaryReaderItem& item) {
    if (!fillIfAdmitted(item, at(item.id))) return false;
    for (fxReaderEntry* block : blocks) numbers.give(*block);
    blocks.clear();
    copiedBytes = 0;
    numbers.endPeriod();
    return true;
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
