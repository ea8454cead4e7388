// The objects that a reader has made, and the places that it fills.
#ifndef FXDS_STREAMS_READERGRAPH_H
#define FXDS_STREAMS_READERGRAPH_H

#include <cstddef>
#include <map>
#include <vector>

#include "fxds/TypeObj.h"
#include "fxds/base/ChunkList.h"
#include "fxds/base/StackBounds.h"
#include "fxds/streams/AddressSet.h"
#include "fxds/streams/Ownership.h"
#include "fxds/streams/ReaderNumbers.h"
#include "fxds/streams/RecordFormat.h"
#include "fxds/streams/RecordReader.h"
#include "fxds/streams/WatchedContainers.h"

class fxXDRObj;

/// A place to fill: a pointer field, or a string that waits for its text. Items are small
/// because there are as many as the graph has pointers. While a body is open, an item can
/// also be a *mark* of something else that may move or be dropped like a place.
struct fxBinaryReaderItem {
    static constexpr unsigned int objectMark = 0x80000000;    ///< See `wanted`.
    static constexpr unsigned int holderMark = 0xFFFFFFFB;    ///< See `wanted`.
    static constexpr unsigned int partMark = 0xFFFFFFFC;      ///< See `wanted`.
    static constexpr unsigned int countMark = 0xFFFFFFFD;     ///< See `wanted`.
    static constexpr unsigned int endMark = 0xFFFFFFFE;       ///< See `wanted`.
    static constexpr unsigned int ownBlockMark = 0xFFFFFFFF;  ///< See `wanted`.

    /// Whether it is for an object.
    bool isObject() const { return wanted >= objectMark && wanted < holderMark; }
    bool isText() const { return wanted < objectMark && wanted != 0; }  ///< For a text.
    bool isOwnBlock() const { return wanted == ownBlockMark; }          ///< For a block of its own.
    bool isMark() const { return wanted >= holderMark && !isOwnBlock(); }  ///< Not a place.

    void* slot;           ///< Address of the pointer, or the fxStr. Of a mark: the part, the
                          ///< count of a block, the fxXDRObj whose xdrSuccess() is called, or the
                          ///< pointer that holds what it gets.
    unsigned int id;      ///< The number that it waits for; while it is linked, the place that
                          ///< was linked before it, as its index + 1, or 0. The first place that
                          ///< waits for a number is not linked. Of a holder, by
                          ///< what it holds: an index + 1.
    unsigned int wanted;  ///< 0 for a block that may be shared, ownBlockMark for one of the
                          ///< field's own, for a string its length with the terminator, for
                          ///< an object the mark and the number of the declared type; of
                          ///< a mark, which.
};

/// An object whose record's function reads or has read its fields is a *body*. While the
/// function runs, the places in the body are only noted. When it has returned, each place
/// is filled, or linked with its number and filled as soon as that is defined. Places
/// outside of any body belong to the program; they are *loose* and wait for commit().
///
///     bodies   | root         | second   | third ...      object, type, first item
///     items    | . . . . . .  | . .      | . . . .        place, number, what it wants
///
/// Invariants, between any two bodies of a graph:
/// (1) A pointer in a body is null, or it leads to the object or block of the
///     number that it was noted with, or to a copy of that block, which it owns.
///     It is null exactly while that number is awaited: then the first place is
///     kept in the number's entry, and the items of the others are linked.
///     Strings own their texts; one whose place is the first may have no item.
/// (2) Loose places are empty.
/// (3) The items of bodies[i] begin at its firstItem and end where those of the
///     next body begin. Those before the first body are loose.
/// (4) So each body can be destroyed separately once the pointers in the items are set to
///     null again, which drop() does.
/// (5) Orphans are bodies of earlier graphs that nothing refers to. Their pointers are
///     null. They become part of the first graph that refers to them. `orphans` is sorted
///     by serial number.
/// (6) bodies[i] has the serial number firstBody + i. Serial numbers are not reused before
///     reset().
/// (7) `awaited` is the number of entries that are awaited as an object or block.
/// (8) Marks are among the items of the open body or among the loose ones, and hasMarks is
///     set if there are any: endBody() and beginGraph() remove them.
/// Between two graphs there are no bodies and no items but loose ones.
class fxReaderGraph {
public:
    fxReaderGraph(fxBinaryOTDict& farIndices, fxRecordReader& recordReader)
        : numbers(farIndices), ready(recordReader.ready) {}
    ~fxReaderGraph() { drop(); }
    fxReaderGraph(const fxReaderGraph&) = delete;
    fxReaderGraph& operator=(const fxReaderGraph&) = delete;

    [[gnu::always_inline]] fxReaderEntry& at(unsigned int id) {
        return numbers.at(id, ready.idCount);
    }
    /// Defines a type.
    void defineType(unsigned int id, fxTypeObj& type) {
        numbers.defineType(id, at(id), type);
        noteRoots(type);
    }
    /// To be called for each type that an object may have.
    void noteRoots(const fxTypeObj& type) { hasManyRoots |= !hasOneRoot(type); }
    /// Makes an unknown number an awaited one.
    void await(fxReaderEntry& entry, fxReaderEntry::Kind kind) {
        if (entry.kind() != fxReaderEntry::unknown) return;
        entry.await(kind);
        ++awaited;
    }
    ///@{
    /// The same for a place. Returns whether the object or block of the number suits it:
    /// for a pointer to an object, the type; for a pointer or a string, at least so many
    /// bytes.
    bool awaitObject(fxReaderEntry& entry, const fxTypeObj& declared);
    bool awaitBlock(fxReaderEntry& entry, unsigned int least, bool isText);
    ///@}
    /// Hands the places that helpers have entered in the ready list to the graph, before
    /// any other operation on places. Returns false when one does not suit its number; it
    /// and those behind it are forgotten. takesPointer() returns whether it was a pointer.
    bool takeReadyPlaces();
    bool takesPointer() const { return isBadPointer; }
    /// The same for a number that no place gets.
    void awaitInVain(fxReaderEntry& entry, fxReaderEntry::Kind kind);
    /// The number of awaited entries.
    unsigned int awaitedCount() const { return awaited; }

    ///@{
    /// Notes an empty place: a pointer to an object; a pointer that holds its object by
    /// `take(object)` once the graph has succeeded; a pointer to a block, which may get a
    /// separate one; or a string that gets a text of `lengthBytes` with its terminator.
    /// Requires: its number is awaited, or defined as something that suits the place.
    /// Outside of readings, a place whose object was handed out already is filled at once.
    /// Returns false when the object or block does not serve the place. The same holds for
    /// endBody(), defineBlock() and completes(). drop() must follow.
    bool notePointer(void* slot, unsigned int id, fxTypeObj& declared) {
        if (&declared != ready.lastDeclared) chooseType(declared);
        return note({slot, id, ready.mark});
    }
    bool noteHolder(void* slot, unsigned int id, fxTypeObj& declared, void (*take)(void*));
    bool noteBlock(void* slot, unsigned int id, bool isOwn) {
        return note({slot, id, isOwn ? fxBinaryReaderItem::ownBlockMark : 0});
    }
    bool noteText(fxStr* string, unsigned int id, unsigned int lengthBytes) {
        return note({string, id, lengthBytes});
    }
    ///@}

    ///@{
    /// Concern the places of the body or, outside of bodies, the loose ones; see
    /// fxTranscriber.
    size_t placesNoted() const { return items.size() + ready.placeCount; }
    void forgetPlaces(size_t count);
    void placesMoved(const void* from, size_t byteCount, void* to, size_t firstMoved);
    void watch(void* container, const fxTranscriber::Container& kind, size_t before) {
        watched.add(container, kind, before, items.size());
    }
    /// Whether the containers of the body or, outside of bodies, the loose ones are
    /// unchanged since they were read.
    bool isAsNoted() {
        if (watched.isEmpty()) return true;
        const size_t first = isBodyOpen ? looseWatched : 0;
        if (watched.count() == first) return true;
        hasLocal = watched.anyIsIn(dying, first);
        return !hasLocal && watched.areUnchanged(first);
    }
    ///@}

    /// Links the loose places, before the first body is read. Places of bodies that are in
    /// `frames` cease to exist when a body ends.
    void beginGraph(fxStackPart frames);
    /// Whether endBody() or isAsNoted() returned false because of such a place or
    /// container.
    bool metLocal() const { return hasLocal; }
    /// Calls `use(type)` with the declared type of each waiting place until it returns
    /// false. Returns whether it never did.
    template <class Use>
    bool eachWanted(const fxReaderEntry& awaitedObject, Use use) const {
        for (unsigned int i = awaitedObject.waiting(); i != 0; i = items[i - 1].id) {
            if (!use(typeOf(items[i - 1].wanted))) return false;
        }
        return awaitedObject.firstSlot() == nullptr || use(typeOf(awaitedObject.firstWanted()));
    }

    /// Whether places wait, and all of them are known to be declared with this type.
    bool isWantedAs(const fxReaderEntry& awaitedObject, const fxTypeObj& type) const {
        return awaitedObject.firstSlot() != nullptr && !awaitedObject.isMixed() &&
               &typeOf(awaitedObject.firstWanted()) == &type;
    }

    /// Claims the object for the one place that may own it, which is `levels` values deep in
    /// its object. Returns false when the object has another owner, or is of an earlier graph.
    bool claim(unsigned int id, fxReaderEntry& entry, unsigned int levels);
    /// Whether the objects of the graph own one another less deep than a stack has room
    /// for. To be called once, when all numbers are defined.
    bool isShallow() { return ownership.isShallow(); }

    bool isInBody() const { return isBodyOpen; }
    /// Finds the entries of the places that helpers have entered, for endBody(), and
    /// prefetches their memory. Forced inline: the compiler drops calls of functions that
    /// only prefetch.
    [[gnu::always_inline]] void findReadyPlaces() {
        for (unsigned int i = 0; i < ready.placeCount; ++i) {
            readyEntries[i] = &at(ready.places[i].id);
            __builtin_prefetch(readyEntries[i], 1);
        }
    }
    /// Prefetches the entries of the known pointers that follow the ready payload, where the
    /// fields of most objects begin. Memory has the time of making the object, then, to find
    /// them. Those of new ones are at the end of the table, and near.
    [[gnu::always_inline]] void fetchPointers() {
        using namespace fxRecordFormat;
        constexpr size_t most = 3;
        if (ready.window->size() < ready.count + most * maxHeadBytes) return;
        const auto* record = reinterpret_cast<const unsigned char*>(*ready.window->next);
        record += ready.count;
        for (size_t i = 0; i < most; ++i) {
            const unsigned int tag = *record;
            if (tag == fxTagPointerAgain) {
                numbers.fetch(word(record + 1));
            } else if (tag != fxTagPointer && tag != fxTagBlock) {
                return;
            }
            record += 1U + fieldBytes[tag];
        }
    }
    /// Prefetches the places that wait for the entry.
    [[gnu::always_inline]] void fetchPlaces(const fxReaderEntry& entry) const {
        __builtin_prefetch(entry.firstSlot(), 1);
        if (entry.waiting() != 0) __builtin_prefetch(&items[entry.waiting() - 1], 1);
    }
    /// Begins the body of an object of the type. Items that follow belong to it.
    void beginBody(fxTypeObj& type);
    /// The object has been made: fills the places that wait for it.
    void defineObject(unsigned int id, fxReaderEntry& entry, void* object);
    /// Defines a part of the object, or of one that is embedded in it when `derived` is the
    /// latter; null for a part at the address of either. Returns false when the address is
    /// that of another part already.
    bool definePart(fxReaderEntry& entry, fxTypeObj& base, void* derived, void* baseAddress);
    /// Defines a part whose fields are passed over.
    void definePassedPart(fxReaderEntry& entry);
    /// Whether the part with this number is at the address.
    bool isPart(const fxReaderEntry& entry, const void* baseAddress) const;
    ///@{
    /// Adds a mark to the body or, outside of bodies, to the loose items: noteEnd() for an
    /// object whose xdrSuccess() is called unless its data is dropped; noteCount() for the
    /// count of a block, which is set to 0 when the object recovers without the block.
    void noteEnd(fxXDRObj& object) { mark(&object, fxBinaryReaderItem::endMark); }
    void noteCount(unsigned int* count) { mark(count, fxBinaryReaderItem::countMark); }
    ///@}
    /// The same for the root of a part. Several parts may share a root; it is noted once.
    void noteEndOfPart(fxXDRObj& root) {
        if (roots.add({&root, items.size(), false})) noteEnd(root);
    }
    /// Whether the address is that of the object whose body is open.
    bool isBodyOf(const void* address) const {
        return isBodyOpen && bodies.back().address == address;
    }
    /// Ends the body and fills or links its places, or drops those of an object that
    /// recovers from a failure. Requires: findReadyPlaces() was called.
    bool endBody(bool isForgiven);

    /// Room for a text that only strings await.
    char* textRoom(size_t bytes) { return numbers.textRoom(bytes); }
    /// Defines a block and fills the places that wait for it; see fxReaderNumbers.
    bool defineBlock(unsigned int id, fxReaderEntry& entry, unsigned int length, const char* text,
                     void* adopted);
    /// The same for a text that only strings await, of which `bytes` is a copy.
    bool defineText(unsigned int id, fxReaderEntry& entry, unsigned int length, const char* text,
                    const char* bytes);

    ///@{
    /// Ends a graph whose numbers are all defined. completes() returns whether every place
    /// can be filled, and those that hold one object hold it by the same root of it, as does
    /// the caller, whose pointer is `expected`; takesPointer() returns whether it was
    /// this. If so, commit() fills the loose ones and hands out everything that
    /// these and the root refer to. Then tell() lets the holders hold their objects and
    /// calls xdrSuccess(), in the order in which the objects were made.
    bool completes(const fxReaderEntry& root, const fxTypeObj& expected);
    void commit();
    void tell(fxTranscriber& transcriber);
    ///@}

    void drop();   ///< Destroys all objects that were not handed out, and forgets the loose places.
    void reset();  ///< Forgets the numbers, too.
    /// The same, but keeps the numbers of types.
    void forgetObjects();

private:
    struct Body {
        void* address;  // null until the object is made
        fxTypeObj* type;
        unsigned int firstItem;
        bool isReached;
    };
    struct Concluded {
        void* what;         // an fxXDRObj to call, or a pointer that is to hold its object
        unsigned int body;  // serial number
        unsigned int take;  // index in `takes` + 1; 0 for an fxXDRObj
        size_t place;       // of such a pointer: index in `items` while the graph is read
    };
    struct Orphan {
        Body body;
        unsigned int serial;
        std::vector<fxBinaryReaderItem> items;
        std::vector<Concluded> concluded;
    };

    fxTypeObj& typeOf(unsigned int wanted) const {
        return *types[wanted & ~fxBinaryReaderItem::objectMark];
    }
    unsigned int nextBody() const { return firstBody + static_cast<unsigned int>(bodies.size()); }
    bool isHandedOut(const fxReaderEntry& entry);
    static bool hasOneRoot(const fxTypeObj& type);
    bool mayHold(const fxReaderEntry& entry, const fxTypeObj& declared);
    [[gnu::noinline]] bool holdersAgree(const fxReaderEntry& root, const fxTypeObj& expected);
    bool note(const fxBinaryReaderItem& item) {
        if (!isBodyOpen && bodies.empty() && isHandedOut(at(item.id))) return fillAtOnce(item);
        items.push_back(item);
        return true;
    }
    void mark(void* slot, unsigned int wanted, unsigned int id = 0) {
        items.push_back({slot, id, wanted});
        hasMarks = true;
    }
    void takeMarks(size_t first, bool isForgiven);
    void giveUpBlocks(size_t first);
    void chooseType(fxTypeObj& declared);
    [[gnu::noinline]] bool fillAtOnce(const fxBinaryReaderItem& item);
    static void link(fxBinaryReaderItem& item, size_t index, fxReaderEntry& entry);
    static void wait(fxBinaryReaderItem& item, size_t index, fxReaderEntry& entry);
    bool suits(const fxReadyRecords::Place& place, fxReaderEntry& entry);
    bool settle(const fxReadyRecords::Place& place, fxReaderEntry& entry);
    [[gnu::noinline]] bool settleUnusual(const fxReadyRecords::Place& place, fxReaderEntry& entry);
    bool fillLinked(unsigned int last, unsigned int id, fxReaderEntry& entry);
    void follow(const fxReaderEntry& entry) {
        // A body that an earlier graph left over may be handed out now.
        isOrderly &= entry.body() >= firstBody || orphans.empty();
    }
    bool admits(const fxBinaryReaderItem& item, const fxReaderEntry& entry);
    bool admitsText(unsigned int textBytes, const char* bytes);
    bool admitsCopy(unsigned int byteCount);
    static void fillText(const fxBinaryReaderItem& item, const char* bytes);
    bool fillTextIfAdmitted(const fxBinaryReaderItem& item, const char* bytes);
    bool fillIfAdmitted(const fxBinaryReaderItem& item, fxReaderEntry& entry);
    [[gnu::noinline]] bool fillBlockIfAdmitted(const fxBinaryReaderItem& item,
                                               fxReaderEntry& entry);
    void fill(const fxBinaryReaderItem& item, fxReaderEntry& entry);
    void fillPointer(const fxBinaryReaderItem& item, const fxReaderEntry& entry);
    void fillBlock(const fxBinaryReaderItem& item, fxReaderEntry& entry);
    void empty(const fxBinaryReaderItem& item);
    bool reach(const fxReaderEntry& root);
    void adopt();
    void leaveOrphans();
    Orphan* orphanOf(unsigned int serial);
    size_t endOfItems(size_t body) {
        return body + 1 < bodies.size() ? bodies[body + 1].firstItem : items.size();
    }

    fxReaderNumbers numbers;
    fxReadyRecords& ready;
    fxOwnership ownership;     // by number, of the graph that is being read
    unsigned int awaited = 0;  // numbers
    bool isBodyOpen = false;
    unsigned int openId = 0;     // the number of the body that was begun last
    bool isOrderly = true;       // an earlier place refers to each of the bodies
    unsigned int firstBody = 0;  // serial number of bodies[0]
    size_t blockBytes = 0;       // of all blocks of the stream
    size_t copiedBytes = 0;      // of the copies in this graph
    size_t looseCount = 0;
    fxChunkList<Body> bodies;
    fxChunkList<fxBinaryReaderItem> items;
    std::vector<fxReaderEntry*> blocks;         // in places that were filled
    std::vector<fxReaderEntry*> reachedBlocks;  // of a graph that completes: those to give
    std::vector<unsigned int> reachedOrphans;   // likewise: serial numbers, to be adopted
    std::vector<Concluded> concludedOnes;
    fxWatchedContainers watched;         // the loose ones, then those of the open body
    size_t looseWatched = 0;             // how many of these are loose
    fxStackPart dying;                   // where no place may be when a body has ended
    bool hasLocal = false;               // there was one
    fxAddressSet parts;                  // of the open body
    fxAddressSet roots;                  // roots of these that have a mark
    bool hasMarks = false;               // among the items of the open body or the loose ones
    std::vector<Orphan> orphans;         // by serial number; adopted ones have no address
    size_t adoptedCount = 0;             // how many of these
    std::vector<void (*)(void*)> takes;  // functions by which objects are held; few
    std::vector<fxTypeObj*> types;       // declared types of places; few
    bool isBadPointer = false;           // see takesPointer()
    bool hasManyRoots = false;           // there may be an object with several fxXDRObj;
    std::map<unsigned int, const void*> heldRoots;  // by which such bodies are held; null: none
    fxReaderEntry* readyEntries[fxReadyRecords::mostPlaces];  // set by findReadyPlaces()
};

#endif
