#include "fxds/BinaryReader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <typeinfo>
#include <utility>

#include "fxds/Fatal.h"
#include "fxds/Str.h"
#include "fxds/TypeObj.h"
#include "fxds/XDRObj.h"
#include "fxds/base/Scoped.h"
#include "fxds/streams/ReaderGraph.h"
#include "fxds/streams/RecordReader.h"
#include "fxds/streams/StreamMarks.h"

// fxRecordReader takes the stream apart into records. This class says what each
// means: it checks it and tells fxReaderGraph, which holds what has been made.
// readObject() reads the body of the root, and then bodies and blocks as they
// come for as long as some number is awaited that the stream has not defined.
//
// Everything that a stream says is checked where it is taken in:
// (1) A number is defined once, as the kind of thing that its places want.
// (2) An object derives from what each place that gets it declares.
// (3) A block is as long as each of its places needs, and a text ends where its
//     string does.
// (4) A part of an object is read once, and only parts that the object itself
//     inherits can be pointed to.
// (5) A claimed size only ever limits what is read: memory grows with the bytes
//     that have arrived, also when many strings name one text.

using namespace fxRecordFormat;
using namespace fxStreamMarks;

namespace {

constexpr size_t firstPiece = size_t{1} << 16;  // of a block that is read as it grows

template <class T>
size_t bytesOf(unsigned int count) {
    return size_t{count} * sizeof(T);
}

bool readPlain(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    return reader.readBytes(bytes, byteCount);
}

struct Free {
    void operator()(char* block) const { std::free(block); }
};
typedef std::unique_ptr<char[], Free> Block;

// Rearranges each whole group of `size` bytes.
template <size_t size, class Arrange>
void eachGroup(void* bytes, size_t byteCount, Arrange arrange) {
    unsigned char* group = static_cast<unsigned char*>(bytes);
    for (size_t left = byteCount / size; left > 0; --left, group += size) arrange(group);
}

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

// The converters.

bool fxBinaryReader_shorts(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    return reader.readBytes(bytes, byteCount);
}

bool fxBinaryReader_longs(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    return reader.readBytes(bytes, byteCount);
}

bool fxBinaryReader_floats(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    return reader.readBytes(bytes, byteCount);
}

bool fxBinaryReader_doubles(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    return reader.readBytes(bytes, byteCount);
}

bool fxBinaryReader_BS(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    if (!reader.readBytes(bytes, byteCount)) return false;
    eachGroup<2>(bytes, byteCount, [](unsigned char* pair) { std::swap(pair[0], pair[1]); });
    return true;
}

bool fxBinaryReader_longsSS(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    if (!reader.readBytes(bytes, byteCount)) return false;
    eachGroup<4>(bytes, byteCount, [](unsigned char* word) {
        std::swap(word[0], word[2]);
        std::swap(word[1], word[3]);
    });
    return true;
}

bool fxBinaryReader_longsBSSS(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    if (!reader.readBytes(bytes, byteCount)) return false;
    eachGroup<4>(bytes, byteCount, [](unsigned char* word) {
        std::swap(word[0], word[3]);
        std::swap(word[1], word[2]);
    });
    return true;
}

bool fxBinaryReader_floatsVAX(fxBinaryReader&, void*, size_t) {
    fxFatal("fxBinaryReader_floatsVAX: not implemented");
}

// The message is that of the floats.
bool fxBinaryReader_doublesVAX(fxBinaryReader&, void*, size_t) {
    fxFatal("fxBinaryReader_floatsVAX: not implemented");
}

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
      tag(fxTagData),
      fieldA(0),
      fieldB(0),
      fieldC(0),
      fieldD(0),
      isBusy(false),
      isInPart(false),
      hasFailed(false),
      concluded(nullptr),
      hasReadBody(false),
      owner(nullptr),
      rootType(nullptr),
      records(std::make_unique<fxRecordReader>(inStream, buffer, bufferBytes)),
      graph(std::make_unique<fxReaderGraph>(table, *records)) {
    // A mark that is unknown is reported by the long mark in both cases.
    shorts = converterFor(shortConverters, shortOrder(static_cast<unsigned short>(shortMark)));
    if (shorts == nullptr) {
        fxFatal("fxBinaryReader: unknown short ordering %x", static_cast<unsigned int>(longMark));
    }
    longs = converterFor(longConverters, longOrder(static_cast<unsigned long>(longMark)));
    if (longs == nullptr) {
        fxFatal("fxBinaryReader: unknown long ordering %x", static_cast<unsigned int>(longMark));
    }
    if (floatFormat == nullptr || !isFloatFormat(floatFormat)) {
        fxFatal("fxBinaryReader: unsupported floating point format %s",
                floatFormat != nullptr ? floatFormat : "(null)");
    }
}

fxBinaryReader::~fxBinaryReader() = default;

const char* fxBinaryReader::className() const { return "fxBinaryReader"; }

void fxBinaryReader::reset() {
    if (!isBusy) graph->reset();
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
    if (!fillPastTypes()) return false;
    std::memset(slot, 0, sizeof(void*));
    if (tag == fxTagNull) return true;
    if ((tag != fxTagPointer && tag != fxTagPointerAgain) || fieldA == 0) fxFatal("XXX bad news!");
    fxReaderEntry& entry = graph->at(fieldA);
    graph->await(entry, fxReaderEntry::awaitedObject);
    const bool suits = entry.isObject() ? entry.record().isA(declared)
                                        : entry.kind() == fxReaderEntry::awaitedObject;
    if (!suits) fxFatal("XXX bad news!");
    if (slot == owner && !graph->claim(entry)) fxFatal("XXX bad news!");
    graph->notePointer(slot, fieldA, declared);
    return true;
}

bool fxBinaryReader::xdr(fxTypeObj& base, void* derived, void* baseAddress) {
    if (derived == baseAddress) return true;
    if (!fillPastTypes()) return false;
    if (tag != fxTagPart && tag != fxTagPartAgain) fxFatal("XXX bad news!");
    fxReaderEntry* const entry = fieldA != 0 ? &graph->at(fieldA) : nullptr;
    if (tag == fxTagPartAgain) {
        if (entry == nullptr || !graph->isPart(*entry, baseAddress)) {
            fxFatal("XXX old base previously unseen");
        }
        return true;
    }
    if (entry == nullptr || entry->kind() != fxReaderEntry::unknown ||
        !graph->definePart(*entry, base, derived, baseAddress)) {
        fxFatal("XXX new base for old base");
    }
    const fxScoped<bool> part(isInPart, true);
    return base.xdr(baseAddress, *this) != 0;
}

bool fxBinaryReader::readsInPieces() const { return true; }

void fxBinaryReader::placesMoved(const void* from, size_t byteCount, void* to) {
    graph->placesMoved(from, byteCount, to, attemptBegan);
}

size_t fxBinaryReader::placesNoted() const { return graph->placesNoted(); }

void fxBinaryReader::forgetPlaces(size_t count) { graph->forgetPlaces(count); }

void fxBinaryReader::setOwner(const void* slot) { owner = slot; }

bool fxBinaryReader::xdrText(fxStr& string, char**, unsigned int byteCount) {
    if (!awaitBlock(byteCount, true)) return false;
    graph->noteText(&string, fieldA, byteCount);
    return true;
}

fxBool fxBinaryReader::conclude(bool succeeded, fxXDRObj& object, void* address) {
    if (succeeded && !isInPart) concluded = &object;
    hasFailed |= !succeeded;
    if (succeeded) return 1;
    // The end of a part is not that of the object, which is asked then.
    return isInPart ? 0 : object.xdrFail(*this, address);
}

/// Whatever ends the reading of a graph before it is complete, an exception of a
/// record's function too: all that it made is destroyed, and no more is read.
struct fxBinaryReader::Reading {
    explicit Reading(fxBinaryReader& reader_) : reader(reader_) {
        reader.isBusy = true;
        if (reader.hasOwnNumbers()) reader.ready = &reader.records->ready;
    }
    ~Reading() {
        if (!isComplete) reader.records->fail();
        if (!isComplete) reader.graph->drop();
        reader.ready = nullptr;
        reader.isBusy = false;
    }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

    fxBinaryReader& reader;
    bool isComplete = false;
};

void* fxBinaryReader::readObject(fxTypeObj& expected) {
    if (isBusy) return nullptr;
    unsigned int rootId = 0;
    {
        Reading graphReading(*this);
        graph->beginGraph();
        graphReading.isComplete = readGraph(expected, rootId);
        if (!graphReading.isComplete) return nullptr;
    }
    const fxReaderEntry& root = graph->at(rootId);
    void* const result = root.record().upcast(root.address(), expected);
    graph->commit(root, *this);
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
    graph->noteBlock(slot, fieldA, slot == owner);
    return true;
}

// Reads the record of a block that a place is to get, and checks the two against
// each other.
bool fxBinaryReader::awaitBlock(size_t byteCount, bool isText) {
    if (byteCount > maxBlockBytes || !fillPastTypes()) return false;
    if ((tag != fxTagBlock && tag != fxTagBlockAgain) || fieldA == 0) fxFatal("format error");
    if (tag == fxTagBlock && fieldD > maxBlockBytes) fxFatal("format error");
    const unsigned int least = static_cast<unsigned int>(byteCount);
    fxReaderEntry& entry = graph->at(fieldA);
    graph->await(entry, fxReaderEntry::awaitedBlock);
    if (entry.kind() == fxReaderEntry::awaitedBlock) {
        entry.raiseLeast(least);
        if (!isText) entry.wantPlain();
    } else if (entry.kind() != fxReaderEntry::block || entry.bytes() < least) {
        fxFatal("format error");
    }
    return true;
}

bool fxBinaryReader::readInstance() {
    if ((!isContents(tag) && tag != fxTagObject) || fieldA == 0) fxFatal("XXX baddest news");
    fxReaderEntry& entry = graph->at(fieldA);
    if (entry.isDefined()) fxFatal("XXX baddest news");
    hasReadBody = true;
    return tag == fxTagObject ? readBody(entry) : readBlock(entry);
}

// Private functions.

// Reads what is not ready, perhaps from several records.
bool fxBinaryReader::readPieces(char* bytes, size_t byteCount) {
    while (true) {
        const size_t piece = std::min(byteCount, records->left());
        if (!records->take(bytes, piece)) return false;
        bytes += piece;
        byteCount -= piece;
        if (byteCount == 0) return true;
        if (!next()) return false;
    }
}

// Whether numbers are read as they stand, by functions of this class.
bool fxBinaryReader::hasOwnNumbers() const {
    return shorts == fxBinaryReader_shorts && longs == fxBinaryReader_longs &&
           floats == fxBinaryReader_floats && doubles == fxBinaryReader_doubles &&
           typeid(*this) == typeid(fxBinaryReader);
}

bool fxBinaryReader::next() {
    if (!records->next()) return false;
    const Head& head = records->head();
    tag = head.tag;
    fieldA = head.id();
    fieldB = head.typeId();
    fieldC = head.version();
    fieldD = head.byteCount();
    if (tag == fxTagType) defineType();
    return true;
}

bool fxBinaryReader::fillPastTypes() {
    do {
        if (!fill()) return false;
    } while (tag == fxTagType);
    return true;
}

// Data that the body before has left unread is passed over, and of one that made
// do with what it got before a failure the places, too.
bool fxBinaryReader::nextInstance() {
    do {
        if (!fill()) return false;
        if (hasFailed) noteMention();
    } while (tag == fxTagType || (tag == fxTagData && hasReadBody) ||
             (hasFailed && !isContents(tag) && tag != fxTagObject));
    hasFailed = false;
    return true;
}

// What a place names that no object has asked for is awaited all the same, for
// its definition is to come.
void fxBinaryReader::noteMention() {
    if (fieldA == 0) return;
    if (tag == fxTagBlock || tag == fxTagBlockAgain) {
        graph->awaitInVain(graph->at(fieldA), fxReaderEntry::awaitedBlock);
    } else if (tag == fxTagPointer || tag == fxTagPointerAgain) {
        graph->awaitInVain(graph->at(fieldA), fxReaderEntry::awaitedObject);
    } else if (tag == fxTagPart) {
        graph->definePassedPart(graph->at(fieldA));
    }
}

void fxBinaryReader::defineType() {
    fxTypeObj* const type = fxTypeObj::findType(records->name());
    if (type == nullptr) fxFatal("unknown type %s", records->name());
    if (fieldA == 0) fxFatal("XXX baddest news");
    fxReaderEntry& entry = graph->at(fieldA);
    if (entry.kind() != fxReaderEntry::unknown) fxFatal("XXX baddest news");
    entry.defineType(*type);
}

// Reads a whole graph. False when the stream ends before.
bool fxBinaryReader::readGraph(fxTypeObj& expected, unsigned int& rootId) {
    const unsigned int awaitedBefore = graph->awaitedCount();
    if (!nextInstance()) return false;
    // What the last object of the graph before named and did not ask for.
    while (graph->awaitedCount() > awaitedBefore) {
        if (!readInstance() || !nextInstance()) return false;
    }
    if (tag != fxTagObject || fieldA == 0) fxFatal("XXX baddest news");
    rootId = fieldA;
    graph->await(graph->at(rootId), fxReaderEntry::awaitedObject);
    graph->at(rootId).claim();
    rootType = &expected;
    if (!readInstance()) return false;
    while (graph->awaitedCount() > 0) {
        if (!nextInstance() || !readInstance()) return false;
    }
    return true;
}

bool fxBinaryReader::readBlock(fxReaderEntry& entry) {
    if (fieldD > maxBlockBytes) return false;
    if (entry.kind() == fxReaderEntry::awaitedObject) fxFatal("XXX bad news!");
    const bool isAwaited = entry.kind() == fxReaderEntry::awaitedBlock;
    if (isAwaited && fieldD < entry.least()) fxFatal("format error");
    Converter* const converter = converterOf(tag);
    const unsigned int id = fieldA;
    const unsigned int byteCount = fieldD;
    char* text = nullptr;
    Block block;
    if (isAwaited && !entry.isWantedPlain() && byteCount < fxTextChunks::maxText) {
        text = graph->textRoom(byteCount + size_t{1});
        if (!converter(*this, text, byteCount)) return false;
        text[byteCount] = '\0';
    } else {
        block.reset(readGrowing(converter, byteCount));
        if (block == nullptr) return false;
    }
    if (entry.isDefined()) fxFatal("XXX baddest news");  // by a record in between
    graph->defineBlock(id, entry, byteCount, text, block.release());
    return true;
}

// Given: a malloc() block with a zero behind its bytes, or null.
char* fxBinaryReader::readGrowing(Converter* converter, unsigned int byteCount) {
    size_t have = 0;
    size_t blockBytes = std::min<size_t>(byteCount, firstPiece);
    Block block(static_cast<char*>(std::malloc(blockBytes + 1)));
    while (block != nullptr && converter(*this, block.get() + have, blockBytes - have)) {
        block[blockBytes] = '\0';
        have = blockBytes;
        if (have == byteCount) return block.release();
        blockBytes = std::min<size_t>(byteCount, 2 * blockBytes);
        char* const larger = static_cast<char*>(std::realloc(block.get(), blockBytes + 1));
        if (larger == nullptr) break;
        static_cast<void>(block.release());
        block.reset(larger);
    }
    return nullptr;
}

fxBinaryReader::Converter* fxBinaryReader::converterOf(unsigned int bodyTag) const {
    switch (bodyTag) {
        case fxTagShorts:
            return shorts;
        case fxTagLongs:
            return longs;
        case fxTagFloats:
            return floats;
        case fxTagDoubles:
            return doubles;
        default:
            return readPlain;
    }
}

// Several types may share a name. When a place that waits for this body wants
// one of the name that the stream gives, that is the one, from now on.
fxTypeObj& fxBinaryReader::typeOfBody(const fxReaderEntry& entry) {
    if (fieldB == 0) fxFatal("XXX baddest news");
    fxReaderEntry& typeEntry = graph->at(fieldB);
    if (typeEntry.kind() != fxReaderEntry::type) fxFatal("XXX baddest news");
    fxTypeObj* type = &typeEntry.record();
    fxTypeObj* namesake = nullptr;
    const auto isOther = [&](fxTypeObj& wanted) {
        if (&wanted == type || std::strcmp(wanted.name, type->name) == 0) namesake = &wanted;
        return &wanted != type;
    };
    if ((rootType == nullptr || isOther(*rootType))) graph->eachWanted(entry, isOther);
    if (namesake != nullptr && namesake != type) typeEntry.defineType(*namesake);
    return typeEntry.record();
}

bool fxBinaryReader::readBody(fxReaderEntry& entry) {
    if (entry.kind() == fxReaderEntry::awaitedBlock) fxFatal("format error");
    fxTypeObj& type = typeOfBody(entry);
    if (fieldC != type.version) fxFatal("XXX version error handling is missing");
    fxTypeObj* const root = std::exchange(rootType, nullptr);
    if (root != nullptr && !type.isA(*root)) fxFatal("XXX baddest news");
    if (!graph->eachWanted(entry, [&](fxTypeObj& wanted) { return type.isA(wanted); })) {
        fxFatal("XXX bad news!");
    }
    const unsigned int id = fieldA;
    graph->beginBody(type);
    void* const object = type.newInstance != nullptr ? type.newInstance(type) : nullptr;
    if (object == nullptr) fxFatal("XXX error handling is missing");
    graph->defineObject(id, entry, object);
    concluded = nullptr;
    hasFailed = false;
    if (type.xdr(object, *this) == 0) fxFatal("XXX error handling is missing");
    graph->endBody(hasFailed, concluded);
    return true;
}
