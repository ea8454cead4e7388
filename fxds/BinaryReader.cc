#include "fxds/BinaryReader.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "fxds/Block.h"
#include "fxds/Fatal.h"
#include "fxds/ReaderTable.h"
#include "fxds/StackBuffer.h"
#include "fxds/Str.h"
#include "fxds/Stream.h"
#include "fxds/TypeObj.h"
#include "fxds/XDRObj.h"

// readObject() works in two phases. First it reads: the body of the root, and
// then bodies as they come for as long as some place waits for a record number
// that the stream has not defined. Each body is an object just made, whose
// record's function reads its fields; the places in it are only noted, in
// `items`, with what each wants. Then, when everything is there, commit() goes
// from the root to all that it leads to, and fills the places.
//
//     bodies   | root         | second   | third ...      what, and which items
//     items    | . . . . . .  | . .      | . . . .        place, number, wanted type
//
// Until commit() no place holds anything, so that after a failure each object
// can be destroyed on its own.
//
// Everything that a stream says is checked where it is taken in: that a number
// is defined once, as the kind of thing that its places want; that an object
// derives from what each place declares; that a block is as long as its places
// need. A claimed size only ever limits what is read: memory grows with the
// bytes that have arrived.

namespace {

constexpr size_t firstPiece = size_t{1} << 16;  // of a block that is read as it grows
constexpr unsigned int fillerBytes = 4;
constexpr unsigned int noVersion = 0;

// Bytes of the fields that follow the length, for each tag.
constexpr unsigned char fieldBytes[] = {0, 0, 4, 8, 4, 8, 8, 8, 8, 8, 12, 4, 4, 4, 4};
constexpr unsigned int tagCount = sizeof fieldBytes;

bool hasOneId(unsigned int tag) {
    return tag == fxTagBlockAgain || (tag >= fxTagPointer && tag <= fxTagPartAgain);
}

unsigned int getWord(const unsigned char* bytes) {
    return bytes[0] | static_cast<unsigned int>(bytes[1]) << 8U |
           static_cast<unsigned int>(bytes[2]) << 16U | static_cast<unsigned int>(bytes[3]) << 24U;
}

template <class T>
size_t bytesOf(unsigned int count) {
    return size_t{count} * sizeof(T);
}

char* copyOfBlock(const char* bytes, size_t byteCount) {
    char* const copy = static_cast<char*>(fxNewBlock(byteCount));
    std::memcpy(copy, bytes, byteCount);
    return copy;
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

// The message is that of the floats, which is what its readers search for.
bool fxBinaryReader_doublesVAX(fxBinaryReader&, void*, size_t) {
    fxFatal("fxBinaryReader_floatsVAX: not implemented");
}

fxTranscriber* makeBinaryReader(fxStream* stream, short shortMark, long longMark,
                                const char* floatFormat) {
    return new fxBinaryReader(stream, shortMark, longMark, floatFormat);
}

// A mark that is unknown is reported by the long mark in both cases, as the
// tools that look at these messages expect.
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
      isUsable(inStream != nullptr && inStream->isReading()),
      isInBody(false),
      hasReadBody(false),
      hasOddTexts(false),
      hasWideIds(false),
      fillerLeft(0),
      payloadLeft(0),
      lastVersion(noVersion),
      period(1),
      awaited(0),
      rootType(nullptr),
      entries(std::make_unique<fxReaderTable>(table)),
      firstBody(0) {
    switch (shortMark) {
        case 0x1122:
            shorts = fxBinaryReader_shorts;
            break;
        case 0x2211:
            shorts = fxBinaryReader_BS;
            break;
        default:
            fxFatal("fxBinaryReader: unknown short ordering %x",
                    static_cast<unsigned int>(longMark));
    }
    switch (longMark) {
        case 0x33445566:
            longs = fxBinaryReader_longs;
            break;
        case 0x44336655:
            longs = fxBinaryReader_BS;
            break;
        case 0x55663344:
            longs = fxBinaryReader_longsSS;
            break;
        case 0x66554433:
            longs = fxBinaryReader_longsBSSS;
            break;
        default:
            fxFatal("fxBinaryReader: unknown long ordering %x",
                    static_cast<unsigned int>(longMark));
    }
    if (floatFormat == nullptr || std::strcmp(floatFormat, "ieee") != 0) {
        fxFatal("fxBinaryReader: unsupported floating point format %s",
                floatFormat != nullptr ? floatFormat : "(null)");
    }
}

fxBinaryReader::~fxBinaryReader() { dropBodies(); }

const char* fxBinaryReader::className() const { return "fxBinaryReader"; }

void fxBinaryReader::reset() {
    if (isInBody) return;
    dropBodies();
    loose.clear();
    entries->clear();
    awaited = 0;
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
    if (tag != fxTagPointer && tag != fxTagPointerAgain) fxFatal("XXX bad news!");
    if (fieldA == 0) fxFatal("XXX bad news!");
    fxReaderEntry& entry = entries->at(fieldA);
    switch (entry.kind) {
        case fxReaderEntry::unknown:
            entry.kind = fxReaderEntry::awaitedObject;
            ++awaited;
            entries->want(entry, declared);
            break;
        case fxReaderEntry::awaitedObject:
            entries->want(entry, declared);
            break;
        case fxReaderEntry::object:
        case fxReaderEntry::part:
            if (!entry.record->isA(declared)) fxFatal("XXX bad news!");
            break;
        default:
            fxFatal("XXX bad news!");
    }
    addItem({slot, &declared, &entry, fieldA, 0});
    return true;
}

bool fxBinaryReader::xdr(fxTypeObj& base, void* derived, void* baseAddress) {
    if (derived == baseAddress) return true;
    if (!fillPastTypes()) return false;
    if (tag != fxTagPart && tag != fxTagPartAgain) fxFatal("XXX bad news!");
    fxReaderEntry& entry = entries->at(fieldA);
    if (tag == fxTagPartAgain) {
        if (entry.kind != fxReaderEntry::part) fxFatal("XXX old base previously unseen");
        return true;
    }
    if (fieldA == 0 || entry.kind != fxReaderEntry::unknown) fxFatal("XXX new base for old base");
    entry.kind = fxReaderEntry::part;
    entry.record = &base;
    entry.address = baseAddress;
    entry.body = firstBody + bodies.size() - 1;
    ++partDepth;
    const bool isDone = base.xdr(baseAddress, *this) != 0;
    --partDepth;
    return isDone;
}

void fxBinaryReader::placesMoved(const void* from, size_t byteCount, void* to) {
    const uintptr_t begin = reinterpret_cast<uintptr_t>(from);
    fxChunkList<fxBinaryReaderItem>& noted = isInBody ? items : loose;
    for (size_t i = noted.size(); i-- > 0;) {
        const uintptr_t offset = reinterpret_cast<uintptr_t>(noted[i].slot) - begin;
        if (offset >= byteCount) return;
        noted[i].slot = static_cast<char*>(to) + offset;
    }
}

size_t fxBinaryReader::placesNoted() const { return isInBody ? items.size() : loose.size(); }

void fxBinaryReader::forgetPlaces(size_t count) {
    fxChunkList<fxBinaryReaderItem>& noted = isInBody ? items : loose;
    if (count < noted.size()) noted.resize(count);
}

void* fxBinaryReader::readObject(fxTypeObj& expected) {
    if (isInBody || !nextInstance()) return nullptr;
    if (tag != fxTagObject) fxFatal("XXX baddest news");
    const unsigned int rootId = fieldA;
    fxReaderEntry& root = entries->at(rootId);
    if (root.kind == fxReaderEntry::unknown) {
        root.kind = fxReaderEntry::awaitedObject;
        ++awaited;
    }
    if (root.kind == fxReaderEntry::awaitedObject) entries->want(root, expected);

    rootType = &expected;
    bool isComplete = readInstance();
    while (isComplete && awaited > 0) isComplete = nextInstance() && readInstance();
    if (!isComplete) {
        isUsable = false;
        dropBodies();
        loose.clear();
        return nullptr;
    }
    fxReaderEntry& found = entries->at(rootId);
    void* const result = found.record->upcast(found.address, expected);
    commit(found);
    return result;
}

bool fxBinaryReader::writeObject(void*, fxXDRObj*) {
    fxFatal("tried to invoke fxBinaryReader::writeObject");
}

bool fxBinaryReader::readBytes(void* bytes, size_t byteCount) {
    char* place = static_cast<char*>(bytes);
    while (byteCount > 0) {
        if (used > 0) {
            const unsigned int piece = static_cast<unsigned int>(std::min<size_t>(byteCount, used));
            std::memcpy(place, cursor, piece);
            cursor += piece;
            used -= piece;
            place += piece;
            byteCount -= piece;
        } else if (payloadLeft == 0) {
            if (!readHeader()) return false;
        } else if (byteCount >= std::min(payloadLeft, bufferBytes)) {
            // A long value goes straight to its place.
            const unsigned int piece =
                static_cast<unsigned int>(std::min<size_t>(byteCount, payloadLeft));
            if (!get(place, piece)) return false;
            payloadLeft -= piece;
            place += piece;
            byteCount -= piece;
        } else if (!stage()) {
            return false;
        }
    }
    return true;
}

bool fxBinaryReader::fill() {
    used = 0;
    while (payloadLeft > 0) {
        if (!stage()) return false;
        used = 0;
    }
    return readHeader() && stage();
}

bool fxBinaryReader::readPrimPointer(void* slot, size_t byteCount) {
    fxStr* const string = std::exchange(claimant, nullptr);
    if (byteCount > maxBlockBytes || !fillPastTypes()) return false;
    if ((tag != fxTagBlock && tag != fxTagBlockAgain) || fieldA == 0) fxFatal("format error");
    if (tag == fxTagBlock && fieldD > maxBlockBytes) fxFatal("format error");
    const unsigned int least = static_cast<unsigned int>(byteCount);
    fxReaderEntry& entry = entries->at(fieldA);
    if (entry.kind == fxReaderEntry::unknown) {
        entry.kind = fxReaderEntry::awaitedBlock;
        entry.bytes = least;
        ++awaited;
    }
    const bool isText = string != nullptr;
    if (entry.kind == fxReaderEntry::awaitedBlock) {
        hasOddTexts |= (isText || entry.isWantedText) && entry.bytes != least;
        entry.bytes = std::max(entry.bytes, least);
        entry.isWantedPlain |= !isText;
        entry.isWantedText |= isText;
    } else if (entry.kind != fxReaderEntry::block || entry.bytes < least) {
        fxFatal("format error");
    }
    if (!isText) std::memset(slot, 0, sizeof(void*));
    const fxBinaryReaderItem item = {isText ? string : slot, nullptr, &entry, fieldA,
                                     isText ? least : 0};
    if (isText && entry.isDefined()) checkText(item);
    addItem(item);
    return true;
}

bool fxBinaryReader::readInstance() {
    if (tag < fxTagBytes || tag > fxTagObject || fieldA == 0) fxFatal("XXX baddest news");
    const fxReaderEntry& entry = entries->at(fieldA);
    if (entry.isDefined()) fxFatal("XXX baddest news");
    hasReadBody = true;
    return tag == fxTagObject ? readBody() : readBlock();
}

// Private functions.

// What a stream has failed to give once it is not asked for again.
bool fxBinaryReader::get(void* bytes, size_t byteCount) {
    if (isUsable) {
        isUsable =
            stream->getBytes(static_cast<char*>(bytes), static_cast<unsigned int>(byteCount));
    }
    return isUsable;
}

// Passes over zero bytes that fill the field of the record before up to 8
// bytes. A header is never zero in our streams: data records are never empty.
bool fxBinaryReader::readTag(unsigned char& header) {
    do {
        if (!get(&header, 1)) return false;
        if (header != 0 || fillerLeft == 0) break;
        --fillerLeft;
        hasWideIds = fillerLeft == 0;
        if (hasWideIds) return get(&header, 1);
    } while (true);
    return true;
}

bool fxBinaryReader::readHeader() {
    unsigned char header = 0;
    if (!readTag(header)) return false;
    static constexpr unsigned char lengthBytesOf[] = {0, 1, 2, 4};
    const unsigned int newTag = header & 0x3FU;
    const unsigned int lengthBytes = lengthBytesOf[header >> 6U];
    unsigned int rest = newTag < tagCount ? fieldBytes[newTag] : 0;
    if (hasWideIds && hasOneId(newTag)) rest += fillerBytes;

    unsigned char bytes[16] = {};
    if (lengthBytes + rest > 0 && !get(bytes, lengthBytes + rest)) return false;
    tag = newTag;
    if (tag >= tagCount) fxFatal("Whoops!");
    unsigned int length = 0;
    for (unsigned int i = lengthBytes; i-- > 0;) length = length << 8U | bytes[i];
    const unsigned char* const fields = bytes + lengthBytes;
    fieldA = getWord(fields);
    fieldB = tag == fxTagObject ? getWord(fields + 4) : 0;
    fieldC = tag == fxTagObject ? getWord(fields + 8) : 0;
    fieldD = getWord(fields + 4);

    cursor = buffer;
    payloadLeft = length;
    fillerLeft = hasOneId(tag) && length == 0 && !hasWideIds ? fillerBytes : 0;
    return tag != fxTagType || readType();
}

bool fxBinaryReader::readType() {
    fxStackBuffer typeName;
    char byte = 0;
    do {
        if (!get(&byte, 1)) return false;
        typeName.addc(byte);
    } while (byte != '\0');
    fxTypeObj* const type = fxTypeObj::findType(typeName.getBase());
    if (type == nullptr) fxFatal("unknown type %s", typeName.getBase());
    fxReaderEntry& entry = entries->at(fieldA);
    if (fieldA == 0 || entry.kind != fxReaderEntry::unknown) fxFatal("XXX baddest news");
    entry.kind = fxReaderEntry::type;
    entry.record = type;
    lastVersion = type->version;
    return true;
}

// Brings the next piece of the payload into the buffer.
bool fxBinaryReader::stage() {
    const unsigned int piece = std::min(payloadLeft, bufferBytes);
    if (piece > 0 && !get(buffer, piece)) return false;
    cursor = buffer;
    used = piece;
    payloadLeft -= piece;
    return true;
}

bool fxBinaryReader::fillPastTypes() {
    do {
        if (!fill()) return false;
    } while (tag == fxTagType);
    return true;
}

// Data that the body before has left unread is passed over.
bool fxBinaryReader::nextInstance() {
    do {
        if (!fill()) return false;
    } while (tag == fxTagType || (tag == fxTagData && hasReadBody));
    return true;
}

// Outside of a body, what is there already is handed out at once.
void fxBinaryReader::addItem(const fxBinaryReaderItem& item) {
    if (isInBody) {
        items.push_back(item);
    } else if (item.entry->isDefined() && bodyOf(*item.entry) == nullptr) {
        fillPlace(item);
        ++period;
    } else {
        loose.push_back(item);
    }
}

bool fxBinaryReader::readBlock() {
    fxReaderEntry& entry = entries->at(fieldA);
    if (fieldD > maxBlockBytes) return false;
    if (entry.kind == fxReaderEntry::awaitedObject) fxFatal("XXX bad news!");
    if (fieldD < entry.bytes) fxFatal("format error");
    Converter* const converter = converterOf(tag);
    const bool isText = entry.kind == fxReaderEntry::awaitedBlock && !entry.isWantedPlain &&
                        fieldD < fxReaderTable::maxText;
    const unsigned int byteCount = fieldD;
    char* text = nullptr;
    Block block;
    if (isText) {
        text = entries->textRoom(byteCount + size_t{1});
        if (!converter(*this, text, byteCount)) return false;
        text[byteCount] = '\0';
    } else {
        block.reset(readGrowing(converter, byteCount));
        if (block == nullptr) return false;
    }
    if (entry.isDefined()) fxFatal("XXX baddest news");  // by a record in between
    const char* const bytes = isText ? text : block.get();
    // Texts of other lengths than their block are left to commit().
    if (entry.isWantedText && !hasOddTexts && bytes[entry.bytes - 1] != '\0') {
        fxFatal("format error");
    }
    awaited -= entry.kind == fxReaderEntry::awaitedBlock;
    entry.kind = fxReaderEntry::block;
    entry.bytes = byteCount;
    entry.text = text;
    entry.address = block.release();
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
    fxReaderEntry& typeEntry = entries->at(fieldB);
    if (typeEntry.kind != fxReaderEntry::type) fxFatal("XXX baddest news");
    fxTypeObj* type = typeEntry.record;
    fxTypeObj* namesake = nullptr;
    entries->eachWanted(entry, [&](fxTypeObj& wanted) {
        if (&wanted == type || std::strcmp(wanted.name, type->name) == 0) namesake = &wanted;
        return &wanted != type;
    });
    if (namesake != nullptr) type = typeEntry.record = namesake;
    return *type;
}

bool fxBinaryReader::readBody() {
    fxReaderEntry* const entry = &entries->at(fieldA);
    if (entry->kind == fxReaderEntry::awaitedBlock) fxFatal("format error");
    fxTypeObj& type = typeOfBody(*entry);
    if (fieldC != type.version && fieldC != lastVersion) {
        fxFatal("XXX version error handling is missing");
    }
    fxTypeObj* const root = std::exchange(rootType, nullptr);
    if (root != nullptr && !type.isA(*root)) fxFatal("XXX baddest news");
    if (!entries->eachWanted(*entry, [&](fxTypeObj& wanted) { return type.isA(wanted); })) {
        fxFatal("XXX bad news!");
    }
    void* const object = type.newInstance != nullptr ? type.newInstance(type) : nullptr;
    if (object == nullptr) fxFatal("XXX error handling is missing");

    awaited -= entry->kind == fxReaderEntry::awaitedObject;
    entry->kind = fxReaderEntry::object;
    entry->record = &type;
    entry->address = object;
    entry->body = firstBody + bodies.size();
    bodies.push_back({object, &type, nullptr, items.size(), 0, false});
    concluded = nullptr;
    hasFailed = false;
    isInBody = true;
    if (type.xdr(object, *this) == 0) fxFatal("XXX error handling is missing");
    isInBody = false;
    Body& body = bodies.back();
    // An object that makes do with what it got before a failure is owed nothing.
    if (hasFailed) items.resize(body.firstItem);
    body.concluded = concluded;
    body.endItem = items.size();
    return true;
}

// The body that the entry belongs to, if it has not been handed out.
fxBinaryReader::Body* fxBinaryReader::bodyOf(const fxReaderEntry& entry) {
    if (entry.kind == fxReaderEntry::block || entry.body < firstBody) return nullptr;
    const size_t index = entry.body - firstBody;
    return index < bodies.size() && !bodies[index].isReached ? &bodies[index] : nullptr;
}

// Fills every place that the root leads to, and those outside of any body, and
// tells the objects. What nothing leads to stays, with its places empty: a later
// graph may refer to it.
void fxBinaryReader::commit(fxReaderEntry& root) {
    if (hasOddTexts) {
        checkTexts(items);
        checkTexts(loose);
        hasOddTexts = false;
    }
    std::vector<Body*> found;
    const auto reach = [&](fxReaderEntry& entry) {
        Body* const body = bodyOf(entry);
        if (body == nullptr) return;
        body->isReached = true;
        found.push_back(body);
    };
    const auto fillPlaces = [&](const fxChunkList<fxBinaryReaderItem>& places, size_t begin,
                                size_t end) {
        for (size_t i = begin; i < end; ++i) {
            fillPlace(places[i]);
            if (places[i].declared != nullptr) reach(*places[i].entry);
        }
    };
    reach(root);
    fillPlaces(loose, 0, loose.size());
    loose.clear();
    while (!found.empty()) {
        const Body& body = *found.back();
        found.pop_back();
        fillPlaces(items, body.firstItem, body.endItem);
    }

    std::vector<fxXDRObj*> told;
    bool isAllReached = true;
    for (size_t i = 0; i < bodies.size(); ++i) {
        Body& body = bodies[i];
        isAllReached &= body.isReached;
        fxXDRObj* const object = body.isReached ? std::exchange(body.concluded, nullptr) : nullptr;
        if (object != nullptr) told.push_back(object);
    }
    if (isAllReached) {
        firstBody += bodies.size();
        bodies.clear();
        items.clear();
    }
    ++period;
    for (fxXDRObj* object : told) object->xdrSuccess(*this);
}

void fxBinaryReader::fillPlace(const fxBinaryReaderItem& item) {
    fxReaderEntry& entry = *item.entry;
    void* value = nullptr;
    if (item.declared != nullptr) {
        value = entry.record->upcast(entry.address, *item.declared);
    } else if (item.textBytes != 0) {
        char* const copy = copyOfBlock(textOf(entry), item.textBytes);
        static_cast<fxStr*>(item.slot)->adopt(copy, item.textBytes);
        return;
    } else {
        if (entry.address == nullptr) {
            entry.address = copyOfBlock(entry.text, entry.bytes + size_t{1});
        }
        entry.givenIn = period;
        value = entry.address;
    }
    std::memcpy(item.slot, &value, sizeof value);
}

// What a string can be made from: a block that was given to a pointer field
// before the caller last had control is not ours to look at any more.
const char* fxBinaryReader::textOf(const fxReaderEntry& entry) const {
    const bool isOurs = entry.givenIn == 0 || entry.givenIn == period;
    return entry.text != nullptr || !isOurs ? entry.text : static_cast<const char*>(entry.address);
}

// Each text must end where its string does, which is decided before anything
// changes. Only texts that share a block with others are left to this.
void fxBinaryReader::checkTexts(const fxChunkList<fxBinaryReaderItem>& places) const {
    for (size_t i = 0; i < places.size(); ++i) {
        if (places[i].textBytes != 0) checkText(places[i]);
    }
}

void fxBinaryReader::checkText(const fxBinaryReaderItem& item) const {
    const char* const text = textOf(*item.entry);
    if (text == nullptr || text[item.textBytes - 1] != '\0') fxFatal("format error");
}

// Destroys the objects that were not handed out, whose places are all empty.
void fxBinaryReader::dropBodies() {
    fxChunkList<Body> dropped;
    dropped.swap(bodies);
    firstBody += dropped.size();
    items.clear();
    for (size_t i = 0; i < dropped.size(); ++i) {
        const Body& body = dropped[i];
        if (!body.isReached && body.type->deleteInstance != nullptr) {
            body.type->deleteInstance(body.address);
        }
    }
}
