#include "fxds/streams/ReaderGraph.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "fxds/XDRObj.h"
#include "fxds/streams/ReaderPlaces.h"

// The places of a body are filled when its record's function has returned, while the object
// is in the near cache, and not before: a class that abandons a half-read container need
// not clean its pointers.
//
// User code runs in records' functions, during which the reader refuses to start another
// reading, and in the functions of a container's kind. ReaderPlaces.h fills a place, and
// ReaderCompletion.cc ends a graph.

using namespace fxReaderPlaces;

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

// Out of line, which keeps the loops around it small.
bool fxReaderGraph::fillBlockIfAdmitted(const fxBinaryReaderItem& item, fxReaderEntry& entry) {
    if (!admits(item, entry)) return false;
    fillBlock(item, entry);
    return true;
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

// Private functions.

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
