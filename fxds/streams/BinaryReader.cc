#include "fxds/BinaryReader.h"

#include <algorithm>
#include <cstring>
#include <typeinfo>
#include <utility>

#include "fxds/Fatal.h"
#include "fxds/Str.h"
#include "fxds/TypeObj.h"
#include "fxds/XDRObj.h"
#include "fxds/base/Scoped.h"
#include "fxds/base/StreamTrace.h"
#include "fxds/streams/PartRoot.h"
#include "fxds/streams/ReaderFaults.h"
#include "fxds/streams/ReaderGraph.h"
#include "fxds/streams/RecordReader.h"
#include "fxds/streams/StreamMarks.h"

// fxRecordReader takes the stream apart into records. This class checks each one and calls
// fxReaderGraph, which holds the objects made so far. readObject() reads the body of the root,
// and then bodies and blocks in the order of the stream while a number is awaited: what these
// records define is in ReaderDefinitions.cc.
//
// Everything that a stream claims is checked where it is read:
// (1) A number is defined once, as the kind of thing that its places want.
// (2) An object derives from the type that each place which gets it declares.
// (3) A block is as long as each of its places needs, and a text ends where its string does.
// (4) A part of an object is read once. Pointers may lead only to parts that the object inherits.
// (5) A claimed size is only a limit: memory grows with the bytes that have arrived or that the
//     stream is known to have, also when many strings name one text.
// A function that meets a contradiction returns false through refuse(), which ends the program
// unless the caller asked for a fault. It leaves its objects so that they can be destroyed.
//
// Invariants:
// (6) isBusy is set exactly while a Reading exists, or objects of earlier graphs are destroyed.
//     reset(), forgetObjects() and readObject() do nothing then, so a record's function cannot
//     destroy a graph under construction.
// (7) `ready` is set only during a reading without conversion of numbers and without trace. Then
//     helpers enter places in it, which go to the graph before any other place is noted.

using namespace fxRecordFormat;
using namespace fxStreamMarks;
using namespace fxReaderFaults;

namespace {

typedef fxStreamFault Fault;

struct OrderConverter {
    Order order;
    fxBinaryReader::Converter* converter;
};
constexpr OrderConverter shortConverters[] = {{Order::same, fxBinaryReader_shorts},
                                              {Order::swapped, fxBinaryReader_BS}};
constexpr OrderConverter longConverters[] = {{Order::same, fxBinaryReader_longs},
                                             {Order::swapped, fxBinaryReader_BS},
                                             {Order::halves, fxBinaryReader_longsSS},
                                             {Order::reversed, fxBinaryReader_longsBSSS}};

template <size_t count>
fxBinaryReader::Converter* converterFor(const OrderConverter (&known)[count], Order order) {
    for (const OrderConverter& each : known) {
        if (each.order == order) return each.converter;
    }
    return nullptr;
}

}  // namespace

fxTranscriber* makeBinaryReader(fxStream* stream, short shortMark, long longMark,
                                const char* floatFormat) {
    return new fxBinaryReader(stream, shortMark, longMark, floatFormat);
}

fxBinaryReader::fxBinaryReader(fxStream* inStream, short shortMark, long longMark,
                               const char* floatFormat)
    : fxTranscriber(inStream, true),
      shorts(nullptr),
      longs(nullptr),
      floats(fxBinaryReader_floats),
      doubles(fxBinaryReader_doubles),
      isBusy(false),
      isTelling(false),
      partUnderWay(nullptr),
      hasFailed(false),
      mayLeaveData(false),
      ranOverAt(noRecordAt),
      ranOverTag(0),
      owner(nullptr),
      holder(nullptr),
      takeHold(nullptr),
      bodyType(nullptr),
      records(std::make_unique<fxRecordReader>(inStream, buffer, bufferBytes)),
      head(records->head()),
      graph(std::make_unique<fxReaderGraph>(table, *records)) {
    const std::string wrong = headerComplaint(shortMark, longMark, floatFormat);
    if (!wrong.empty()) Fault::inHeader().end(wrong.c_str());
    shorts = converterFor(shortConverters, shortOrder(static_cast<unsigned short>(shortMark)));
    longs = converterFor(longConverters, longOrder(static_cast<unsigned long>(longMark)));
}

// Destructors of the objects that it still has may use it, and are refused then.
fxBinaryReader::~fxBinaryReader() {
    if (isBusy || isTelling) fxFatal("an fxBinaryReader is destroyed while it reads");
    isBusy = true;
}

const char* fxBinaryReader::className() const { return "fxBinaryReader"; }

// Both destroy objects, whose destructors may use the reader.
void fxBinaryReader::reset() {
    if (isBusy) return;
    const fxScoped<bool> busy(isBusy, true);
    graph->reset();
}

void fxBinaryReader::forgetObjects() {
    if (isBusy) return;
    const fxScoped<bool> busy(isBusy, true);
    graph->forgetObjects();
}

bool fxBinaryReader::xdr(char* v, unsigned int n) { return readBytes(v, n); }
bool fxBinaryReader::xdr(unsigned char* v, unsigned int n) { return readBytes(v, n); }
bool fxBinaryReader::xdr(short* v, unsigned int n) { return shorts(*this, v, bytesOf<short>(n)); }
bool fxBinaryReader::xdr(unsigned short* v, unsigned int n) {
    return shorts(*this, v, bytesOf<short>(n));
}
bool fxBinaryReader::xdr(long* v, unsigned int n) { return longs(*this, v, bytesOf<long>(n)); }
bool fxBinaryReader::xdr(unsigned long* v, unsigned int n) {
    return longs(*this, v, bytesOf<long>(n));
}
bool fxBinaryReader::xdr(float* v, unsigned int n) { return floats(*this, v, bytesOf<float>(n)); }
bool fxBinaryReader::xdr(double* v, unsigned int n) {
    return doubles(*this, v, bytesOf<double>(n));
}

bool fxBinaryReader::xdr(fxStr* strings, unsigned int count) {
    return attempt([&] {
        return std::all_of(strings, strings + count,
                           [this](fxStr& s) { return s.xdr(*this) != 0; });
    });
}

bool fxBinaryReader::xdr(char** p, unsigned int n) { return readPrimPointer(p, n); }
bool fxBinaryReader::xdr(unsigned char** p, unsigned int n) { return readPrimPointer(p, n); }
bool fxBinaryReader::xdr(short** p, unsigned int n) {
    return readPrimPointer(p, bytesOf<short>(n));
}
bool fxBinaryReader::xdr(unsigned short** p, unsigned int n) {
    return readPrimPointer(p, bytesOf<short>(n));
}
bool fxBinaryReader::xdr(long** p, unsigned int n) { return readPrimPointer(p, bytesOf<long>(n)); }
bool fxBinaryReader::xdr(unsigned long** p, unsigned int n) {
    return readPrimPointer(p, bytesOf<long>(n));
}
bool fxBinaryReader::xdr(float** p, unsigned int n) {
    return readPrimPointer(p, bytesOf<float>(n));
}
bool fxBinaryReader::xdr(double** p, unsigned int n) {
    return readPrimPointer(p, bytesOf<double>(n));
}
bool fxBinaryReader::xdr(char** p) { return readPrimPointer(p, 0); }
bool fxBinaryReader::xdr(unsigned char** p) { return readPrimPointer(p, 0); }

bool fxBinaryReader::xdr(void* slot, fxXDRObj*, fxTypeObj& declared, fxXDRObj*, void*) {
    const bool isHolder = std::exchange(holder, nullptr) == slot;
    if (!fillPastTypes()) return false;
    std::memset(slot, 0, sizeof(void*));
    if (head.tag == fxTagNull) return true;
    if ((head.tag != fxTagPointer && head.tag != fxTagPointerAgain) || head.id() == 0) {
        return refuse(Fault::damaged, badNews);
    }
    fxReaderEntry& entry = graph->at(head.id());
    const bool suits = graph->awaitObject(entry, declared);
    const bool mayHave = (slot != owner || graph->claim(head.id(), entry, 1 + nestingLevel())) &&
                         (!isHolder || entry.share());
    if (!suits || !mayHave) return refuse(Fault::damaged, badNews);
    const bool isNoted = isHolder ? graph->noteHolder(slot, head.id(), declared, takeHold)
                                  : graph->notePointer(slot, head.id(), declared);
    if (owner != nullptr) records->ready.lastDeclared = nullptr;
    return isNoted || refuse(Fault::damaged, badNews);
}

bool fxBinaryReader::xdr(fxTypeObj& base, void* derived, void* baseAddress) {
    if (derived == baseAddress) return true;
    if (!fillPastTypes()) return false;
    if (head.tag != fxTagPart && head.tag != fxTagPartAgain) return refuse(Fault::damaged, badNews);
    fxReaderEntry* const entry = head.id() != 0 ? &graph->at(head.id()) : nullptr;
    if (head.tag == fxTagPartAgain) {
        return (entry != nullptr && graph->isPart(*entry, baseAddress)) ||
               refuse(Fault::damaged, "XXX old base previously unseen");
    }
    if (entry == nullptr || entry->kind() != fxReaderEntry::unknown ||
        !graph->definePart(*entry, base, derived, baseAddress)) {
        return refuse(Fault::damaged, "XXX new base for old base");
    }
    const fxScoped<const void*> part(partUnderWay, baseAddress);
    const fxScoped<fxTypeObj*> type(bodyType, &base);
    return base.xdr(baseAddress, *this) != 0;
}

bool fxBinaryReader::readsInPieces() const { return true; }

void fxBinaryReader::placesMoved(const void* from, size_t byteCount, void* to) {
    settle();
    graph->placesMoved(from, byteCount, to, attemptBegan);
}

void fxBinaryReader::placesLieIn(void* container, const Container& kind, size_t before) {
    // Of places that are refused the graph knows nothing: nor would it forget the container.
    if (settle()) graph->watch(container, kind, before);
}

size_t fxBinaryReader::placesNoted() const { return graph->placesNoted(); }

void fxBinaryReader::forgetPlaces(size_t count) {
    settle();
    graph->forgetPlaces(count);
}

// Only the operation reads a pointer that is not plain.
void fxBinaryReader::setOwner(const void* slot) {
    owner = slot;
    records->ready.lastDeclared = nullptr;
}

void fxBinaryReader::setHolder(const void* slot, TakeHold* hold) {
    holder = hold != nullptr ? slot : nullptr;
    records->ready.lastDeclared = nullptr;
    takeHold = hold;
}

bool fxBinaryReader::xdrText(fxStr& string, char**, unsigned int byteCount) {
    if (!awaitBlock(byteCount, true)) return false;
    return graph->noteText(&string, head.id(), byteCount) || refuse(Fault::damaged, formatError);
}

// Only the object of a body decides whether its reading succeeded. Its bases and embedded objects
// are asked too, but cannot forgive a failure that leaves the object without some of its fields.
fxBool fxBinaryReader::conclude(bool succeeded, fxXDRObj& object, void* address) {
    settle();
    hasFailed |= !succeeded;
    if (address == partUnderWay) {
        if (!fxIsRootOfPart(object)) return succeeded;  // the object itself gets this call
        if (succeeded) graph->noteEndOfPart(object);
    } else if (succeeded) {
        graph->noteEnd(object);
    }
    if (succeeded) return 1;
    const fxBool isForgiven = object.xdrFail(*this, address);
    const bool isHeld = graph->isInBody() && !graph->isBodyOf(address);
    return isHeld ? 0 : isForgiven;
}

void fxBinaryReader::countsBlock(unsigned int& count) {
    settle();
    graph->noteCount(&count);
}

size_t fxBinaryReader::bytesPassed() const { return records->taken(); }

/// The scope of one reading. If the graph is not complete at its end, also by an exception of a
/// record's function, all objects made are destroyed and nothing more is read.
struct fxBinaryReader::Reading {
    explicit Reading(fxBinaryReader& reader_) : reader(reader_) {
        reader.isBusy = true;
        reader.bodyType = nullptr;
        reader.records->count();
        reader.beginClaims();
        if (reader.hasOwnNumbers() && !fxStreamTrace::isOn()) {
            reader.ready = &reader.records->ready;
        }
    }
    ~Reading() {
        // The fault is noted while the records still show whether the stream has ended.
        // Nothing is read any more when objects are destroyed, whose destructors may call
        // the reader.
        if (!isComplete) reader.noteEnd();
        if (!isComplete) reader.records->fail();
        if (!isComplete) reader.graph->drop();
        reader.records->count();
        reader.ready = nullptr;
        reader.isBusy = false;
    }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

    fxBinaryReader& reader;
    bool isComplete = false;
};

void* fxBinaryReader::readObject(fxTypeObj& expected) {
    if (isBusy || isTelling) return nullptr;
    unsigned int rootId = 0;
    {
        Reading graphReading(*this);
        graph->beginGraph(fxStackPart::beneath(__builtin_frame_address(0)));
        const bool isWhole = readGraph(expected, rootId) && !hasRefused();
        if (isWhole && !graph->isAsNoted()) refuse(Fault::refused, changed);
        if (isWhole && !graph->isShallow()) refuse(Fault::refused, fxOwnership::tooDeep);
        if (isWhole && !graph->completes(graph->at(rootId), expected)) {
            refuse(Fault::damaged, graph->takesPointer() ? badNews : formatError);
        }
        graphReading.isComplete = isWhole && !hasRefused();
        if (!graphReading.isComplete) return nullptr;
    }
    const fxReaderEntry& root = graph->at(rootId);
    void* const result = root.record().upcast(root.address(), expected);
    graph->commit();
    const fxScoped<bool> telling(isTelling, true);
    graph->tell(*this);
    return result;
}

bool fxBinaryReader::writeObject(void*, fxXDRObj*) {
    fxFatal("tried to invoke fxBinaryReader::writeObject");
}

bool fxBinaryReader::readBytes(void* bytes, size_t byteCount) {
    return records->ready.take(bytes, byteCount) ||
           readPieces(static_cast<char*>(bytes), byteCount);
}

bool fxBinaryReader::fill() { return next() && (records->left() == 0 || records->stage()); }

bool fxBinaryReader::readPrimPointer(void* slot, size_t byteCount) {
    if (!awaitBlock(byteCount, false)) return false;
    std::memset(slot, 0, sizeof(void*));
    return graph->noteBlock(slot, head.id(), slot == owner) || refuse(Fault::damaged, formatError);
}

// Reads the record of a block for a place and checks that the two agree.
bool fxBinaryReader::awaitBlock(size_t byteCount, bool isText) {
    if (byteCount > maxBlockBytes || !fillPastTypes()) return false;
    if ((head.tag != fxTagBlock && head.tag != fxTagBlockAgain) || head.id() == 0 ||
        (head.tag == fxTagBlock && head.byteCount() > maxBlockBytes)) {
        return refuse(Fault::damaged, formatError);
    }
    const unsigned int least = static_cast<unsigned int>(byteCount);
    return graph->awaitBlock(graph->at(head.id()), least, isText) ||
           refuse(Fault::damaged, formatError);
}

// Private functions.

// `root` is the type that the caller of readObject() asked for, if the object is a root.
// Reads bytes that are not ready, perhaps from several records.
bool fxBinaryReader::readPieces(char* bytes, size_t byteCount) {
    while (true) {
        const size_t piece = std::min(byteCount, records->left());
        if (!records->take(bytes, piece)) return false;
        bytes += piece;
        byteCount -= piece;
        if (byteCount == 0) return true;
        records->sync();
        if (!fxStreamTrace::isOn()) records->takeRun(bytes, byteCount);
        if (byteCount == 0) return true;
        const size_t recordAt = records->recordAt();
        const unsigned int tag = head.tag;
        if (!next()) return false;
        const bool isOfAnother = isContents(head.tag) || head.tag == fxTagObject;
        if (isOfAnother && ranOverAt == noRecordAt) {
            ranOverAt = recordAt;
            ranOverTag = tag;
        }
    }
}

// Whether numbers are read without conversion, by functions of this class.
bool fxBinaryReader::hasOwnNumbers() const {
    return shorts == fxBinaryReader_shorts && longs == fxBinaryReader_longs &&
           floats == fxBinaryReader_floats && doubles == fxBinaryReader_doubles &&
           typeid(*this) == typeid(fxBinaryReader);
}

bool fxBinaryReader::next() {
    if (!records->next()) return noRecord();
    if (fxStreamTrace::isOn()) trace();
    return head.tag != fxTagType || defineType();
}

// Reports why there is no record. Returns false.
bool fxBinaryReader::noRecord() {
    return records->isOfNoTag() && refuse(Fault::damaged, "Whoops!");
}

// Hands the places that helpers have entered to the graph, before any other place.
inline bool fxBinaryReader::settle() { return records->ready.placeCount == 0 || takePlaces(); }

bool fxBinaryReader::takePlaces() {
    if (graph->takeReadyPlaces()) return true;
    return refuse(Fault::damaged, graph->takesPointer() ? badNews : formatError);
}

bool fxBinaryReader::fillPastTypes() {
    if (!settle()) return false;
    do {
        if (!fill()) return false;
    } while (head.tag == fxTagType);
    return true;
}
