#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "fxds/BinaryReader.h"
#include "fxds/TypeObj.h"
#include "fxds/base/CopyShort.h"
#include "fxds/base/StreamTrace.h"
#include "fxds/streams/ReaderFaults.h"
#include "fxds/streams/ReaderGraph.h"
#include "fxds/streams/RecordReader.h"

// What the records of a graph define: types, objects, texts and other blocks. Those that are
// awaited are read in the order of the stream, so a graph of any depth needs no recursion. The
// claims of a stream that BinaryReader.cc lists are checked before anything is made of them.

using namespace fxRecordFormat;
using namespace fxReaderFaults;

namespace {

typedef fxStreamFault Fault;

constexpr char local[] = "a local variable of xdr() waits for what it leads to";
constexpr char missing[] = "XXX error handling is missing";

constexpr size_t firstPiece = size_t{1} << 16;  // of a block that is read as it grows

struct Free {
    void operator()(char* block) const { std::free(block); }
};
typedef std::unique_ptr<char[], Free> Block;

}  // namespace

bool fxBinaryReader::readInstance() { return readDefinition(nullptr); }

// Private functions.

[[gnu::always_inline]] inline bool fxBinaryReader::readDefinition(fxTypeObj* root) {
    const bool isGood = (isContents(head.tag) || head.tag == fxTagObject) && head.id() != 0;
    if (!isGood) return refuse(Fault::damaged, baddestNews);
    fxReaderEntry& entry = graph->at(head.id());
    if (entry.isDefined()) return refuse(Fault::damaged, baddestNews);
    mayLeaveData = true;
    return head.tag == fxTagObject ? readBody(entry, root) : readBlock(entry);
}

// Passes over data that the previous body left unread, and over its places too if the object
// recovered from a failure.
inline bool fxBinaryReader::nextInstance() {
    const bool isUsual = !hasFailed && !fxStreamTrace::isOn();
    return (isUsual && records->nextDefinition(records->peek())) || passToInstance();
}

bool fxBinaryReader::defineType() {
    fxTypeObj* const type = fxTypeObj::findType(records->name());
    if (type == nullptr) {
        return refuse(Fault::unknownType, (std::string("unknown type ") + records->name()).c_str());
    }
    if (head.id() == 0 || graph->at(head.id()).kind() != fxReaderEntry::unknown) {
        return refuse(Fault::damaged, baddestNews);
    }
    graph->defineType(head.id(), *type);
    return true;
}

// Reads a whole graph. False when the stream ends before.
bool fxBinaryReader::readGraph(fxTypeObj& expected, unsigned int& rootId) {
    const unsigned int awaitedBefore = graph->awaitedCount();
    if (!nextInstance()) return false;
    // First the numbers that the last object of the previous graph named and did not read.
    while (graph->awaitedCount() > awaitedBefore) {
        if (!readInstance() || !nextInstance()) return false;
    }
    if (head.tag != fxTagObject || head.id() == 0) return refuse(Fault::damaged, baddestNews);
    rootId = head.id();
    graph->await(graph->at(rootId), fxReaderEntry::awaitedObject);
    graph->at(rootId).share();  // with the caller
    if (!readDefinition(&expected)) return false;
    while (graph->awaitedCount() > 0) {
        const bool isUsual = !hasFailed && !fxStreamTrace::isOn();
        const unsigned char* const record = isUsual ? records->peek() : nullptr;
        const ShortBlock text = records->shortBlock(record);
        fxReaderEntry* const entry = text.record != nullptr ? awaitedText(text) : nullptr;
        if (entry != nullptr) {
            if (!readText(*entry, text)) return false;
            continue;
        }
        const bool isNext = records->nextDefinition(record) || passToInstance();
        if (!isNext || !readDefinition(nullptr)) return false;
    }
    return true;
}

// The entry of a text that only strings await; null for any other number.
inline fxReaderEntry* fxBinaryReader::awaitedText(const ShortBlock& text) {
    if (text.id() == 0) return nullptr;
    fxReaderEntry& entry = graph->at(text.id());
    return entry.isAwaitedText() && text.byteCount() >= entry.least() ? &entry : nullptr;
}

// Does what readBlock() does, for a short text.
inline bool fxBinaryReader::readText(fxReaderEntry& entry, const ShortBlock& text) {
    const unsigned int id = text.id();
    const unsigned int byteCount = text.byteCount();
    char* const copy = graph->textRoom(byteCount + size_t{1});
    const char* const bytes = reinterpret_cast<const char*>(text.bytes());
    fxCopyShort(copy, bytes, byteCount);
    copy[byteCount] = '\0';
    records->pass(text);
    return graph->defineText(id, entry, byteCount, copy, bytes) ||
           refuse(Fault::damaged, formatError);
}

bool fxBinaryReader::readBlock(fxReaderEntry& entry) {
    // Not fatal, unlike other faults, when the caller did not ask for a fault.
    if (head.byteCount() > maxBlockBytes)
        return answer != nullptr && refuse(Fault::damaged, formatError);
    if (entry.kind() == fxReaderEntry::awaitedObject) return refuse(Fault::damaged, badNews);
    const bool isAwaited = entry.kind() == fxReaderEntry::awaitedBlock;
    if (isAwaited && head.byteCount() < entry.least()) return refuse(Fault::damaged, formatError);
    Converter* const converter = converterOf(head.tag);
    const unsigned int id = head.id();
    const unsigned int byteCount = head.byteCount();
    char* text = nullptr;
    Block block;
    if (isAwaited && !entry.isWantedPlain() && byteCount < fxTextChunks::maxText) {
        text = graph->textRoom(byteCount + size_t{1});
        // Shortcut for the converter of bytes.
        const bool isTaken = head.tag == fxTagBytes && records->ready.take(text, byteCount);
        if (!isTaken && !converter(*this, text, byteCount)) return false;
        text[byteCount] = '\0';
    } else {
        block.reset(readGrowing(converter, byteCount));
        if (block == nullptr) return false;
    }
    // A record in between may have defined it.
    if (entry.isDefined()) return refuse(Fault::damaged, baddestNews);
    return graph->defineBlock(id, entry, byteCount, text, block.release()) ||
           refuse(Fault::damaged, formatError);
}

// Given: a malloc() block with a zero behind its bytes, or null.
char* fxBinaryReader::readGrowing(Converter* converter, unsigned int byteCount) {
    size_t have = 0;
    size_t blockBytes = hasToCome(byteCount) ? byteCount : std::min<size_t>(byteCount, firstPiece);
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

// The entry of the type that the record of an object names, or null.
fxReaderEntry* fxBinaryReader::typeOfBody() {
    if (head.typeId() == 0) return nullptr;
    fxReaderEntry& entry = graph->at(head.typeId());
    return entry.kind() == fxReaderEntry::type ? &entry : nullptr;
}

// Several types may share a name. If a place that waits for this body wants another type of the
// name in the stream, that type is used from now on.
void fxBinaryReader::chooseNamesake(fxReaderEntry& typeEntry, const fxReaderEntry& entry,
                                    fxTypeObj* root) {
    fxTypeObj& type = typeEntry.record();
    fxTypeObj* namesake = nullptr;
    const auto isOther = [&](fxTypeObj& wanted) {
        if (&wanted == &type || std::strcmp(wanted.name, type.name) == 0) namesake = &wanted;
        return &wanted != &type;
    };
    if (root == nullptr || isOther(*root)) graph->eachWanted(entry, isOther);
    if (namesake == nullptr) return;
    typeEntry.defineType(*namesake);
    graph->noteRoots(*namesake);
}

bool fxBinaryReader::readBody(fxReaderEntry& entry, fxTypeObj* root) {
    if (entry.kind() == fxReaderEntry::awaitedBlock) return refuse(Fault::damaged, formatError);
    fxReaderEntry* const typeEntry = typeOfBody();
    if (typeEntry == nullptr) return refuse(Fault::damaged, baddestNews);
    graph->fetchPlaces(entry);
    graph->fetchPointers();
    const bool isAsWanted = root == nullptr && graph->isWantedAs(entry, typeEntry->record());
    if (!isAsWanted) chooseNamesake(*typeEntry, entry, root);
    fxTypeObj* const type = &typeEntry->record();
    bodyType = type;
    if (head.version() != type->version) {
        refuseEdition(*type, head.version(), head.version() > type->version);
        return refuse(complaint->kind, "XXX version error handling is missing");
    }
    if (root != nullptr && !type->isA(*root)) return refuse(Fault::foreign, baddestNews);
    const auto suits = [&](fxTypeObj& wanted) { return type->isA(wanted); };
    if (!isAsWanted && !graph->eachWanted(entry, suits)) return refuse(Fault::damaged, badNews);
    const unsigned int id = head.id();
    graph->beginBody(*type);
    void* const object = type->newInstance != nullptr ? type->newInstance(*type) : nullptr;
    if (object == nullptr) return refuse(Fault::damaged, missing);
    // Before the fields are read, which may lead back to the object.
    graph->defineObject(id, entry, object);
    hasFailed = false;
    ranOverAt = noRecordAt;
    if (type->xdr(object, *this) == 0) {
        return refuse(records->hasFailed() ? Fault::ended : Fault::refused, missing);
    }
    complaint.reset();
    // In a large graph, waiting for memory takes most of the time.
    graph->findReadyPlaces();
    if (!hasFailed && !graph->isAsNoted()) {
        return refuse(Fault::refused, graph->metLocal() ? local : changed);
    }
    if (!graph->endBody(hasFailed)) {
        if (graph->metLocal()) return refuse(Fault::refused, local);
        return refuse(Fault::damaged, graph->takesPointer() ? badNews : formatError);
    }
    bodyType = nullptr;
    return true;
}
