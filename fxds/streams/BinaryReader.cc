#include "fxds/BinaryReader.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "fxds/Fatal.h"
#include "fxds/StackBuffer.h"
#include "fxds/Str.h"
#include "fxds/Stream.h"
#include "fxds/TypeObj.h"
#include "fxds/XDRObj.h"
#include "fxds/detail/Allocate.h"
#include "fxds/streams/ReaderNumbers.h"

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
const fxStreamWindow noWindow;

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
      isOrderly(true),
      hasWideIds(false),
      fillerLeft(0),
      payloadLeft(0),
      lastVersion(noVersion),
      awaited(0),
      rootType(nullptr),
      window(&noWindow),
      entries(std::make_unique<fxReaderTable>(table)),
      firstBody(0) {
    if (isUsable) window = &inStream->window();
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
    firstBody = 0;
    isOrderly = true;
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
            entry.awaitObject();
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
    addItem({slot, fieldA, fxBinaryReaderItem::objectMark | entries->numberOf(declared)});
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
    entry.define(fxReaderEntry::part, base, baseAddress, nextBody() - 1);
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
    forgetItems(noted, count);
}

void fxBinaryReader::forgetItems(fxChunkList<fxBinaryReaderItem>& noted, size_t count) {
    if (count >= noted.size()) return;
    noted.resize(count);
    isOrderly = false;
}

void* fxBinaryReader::readObject(fxTypeObj& expected) {
    if (isInBody || !nextInstance()) return nullptr;
    if (tag != fxTagObject) fxFatal("XXX baddest news");
    const unsigned int rootId = fieldA;
    fxReaderEntry& root = entries->at(rootId);
    if (root.kind == fxReaderEntry::unknown) {
        root.awaitObject();
        ++awaited;
    }
    if (root.kind == fxReaderEntry::awaitedObject) entries->want(root, expected);

    rootType = &expected;
    bool isComplete = readInstance();
    while (isComplete && awaited > 0) isComplete = nextInstance() && readInstance();
    if (!isComplete) {
        isUsable = false;
        window = &noWindow;
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
    if (byteCount == sizeof(long) && used >= sizeof(long)) {
        std::memcpy(place, cursor, sizeof(long));  // all numbers but shorts and floats
        cursor += sizeof(long);
        used -= static_cast<unsigned int>(sizeof(long));
        return true;
    }
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
    return takeAtHand() || (readHeader() && stage());
}

bool fxBinaryReader::readPrimPointer(void* slot, size_t byteCount) {
    fxStr* const string = std::exchange(claimant, nullptr);
    if (byteCount > maxBlockBytes || !fillPastTypes()) return false;
    if ((tag != fxTagBlock && tag != fxTagBlockAgain) || fieldA == 0) fxFatal("format error");
    if (tag == fxTagBlock && fieldD > maxBlockBytes) fxFatal("format error");
    const unsigned int least = static_cast<unsigned int>(byteCount);
    fxReaderEntry& entry = entries->at(fieldA);
    if (entry.kind == fxReaderEntry::unknown) {
        entry.awaitBlock(least);
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
    const fxBinaryReaderItem item = {isText ? string : slot, fieldA, isText ? least : 0};
    if (isText && entry.isDefined()) checkText(item);
    addItem(item);
    return true;
}

bool fxBinaryReader::readInstance() {
    if (tag < fxTagBytes || tag > fxTagObject || fieldA == 0) fxFatal("XXX baddest news");
    fxReaderEntry& entry = entries->at(fieldA);
    if (entry.isDefined()) fxFatal("XXX baddest news");
    hasReadBody = true;
    return tag == fxTagObject ? readBody(entry) : readBlock(entry);
}

// Private functions.

// What a stream has failed to give once it is not asked for again.
bool fxBinaryReader::get(void* bytes, size_t byteCount) {
    if (isUsable) {
        isUsable =
            stream->getBytes(static_cast<char*>(bytes), static_cast<unsigned int>(byteCount));
        if (!isUsable) window = &noWindow;
    }
    return isUsable;
}

// The same for no more than `room` bytes. When as many are at hand, copying them
// all costs less than copying just the right number.
template <size_t room>
bool fxBinaryReader::getFew(void* bytes, size_t byteCount) {
    if (window->size() < room) return byteCount == 0 || get(bytes, byteCount);
    std::memcpy(bytes, *window->next, room);
    *window->next += byteCount;
    return true;
}

// Passes over zero bytes that fill the field of the record before up to 8
// bytes. A header is never zero in our streams: data records are never empty.
bool fxBinaryReader::readTag(unsigned char& header) {
    do {
        if (!getFew<1>(&header, 1)) return false;
        if (header != 0 || fillerLeft == 0) break;
        --fillerLeft;
        hasWideIds = fillerLeft == 0;
        if (hasWideIds) window = &noWindow;  // these are too rare to be fast
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
    if (!getFew<sizeof bytes>(bytes, lengthBytes + rest)) return false;
    tag = newTag;
    if (tag >= tagCount) fxFatal("Whoops!");
    unsigned int length = 0;
    for (unsigned int i = lengthBytes; i-- > 0;) length = length << 8U | bytes[i];
    const unsigned char* const fields = bytes + lengthBytes;
    fieldA = getWord(fields);
    fieldB = tag == fxTagObject ? getWord(fields + 4) : 0;
    fieldC = tag == fxTagObject ? getWord(fields + 8) : 0;
    fieldD = getWord(fields + 4);

    entries->countRecord(fieldBytes[tag] != 0);
    cursor = buffer;
    payloadLeft = length;
    fillerLeft = hasOneId(tag) && length == 0 && !hasWideIds ? fillerBytes : 0;
    return tag != fxTagType || readType();
}

// Does what readHeader() and stage() do, when the record is at hand as a whole
// and one of the usual ones. Otherwise nothing happens.
//
//     header | length, 0 to 4 | fields, up to 12 | payload, copied as 32 bytes
bool fxBinaryReader::takeAtHand() {
    static constexpr unsigned int lengthMask[] = {0, 0xFF, 0xFFFF};
    constexpr unsigned int fewBytes = 32;
    if (window->size() < 1 + 4 + 12 + fewBytes) return false;
    const unsigned char* const record = reinterpret_cast<const unsigned char*>(*window->next);
    const unsigned int newTag = *record & 0x3FU;
    const unsigned int lengthBytes = *record >> 6U;
    if (newTag == fxTagData || newTag == fxTagType || newTag >= tagCount || lengthBytes > 2) {
        return false;
    }
    const unsigned int length = getWord(record + 1) & lengthMask[lengthBytes];
    if (length > fewBytes) return false;

    const unsigned char* const fields = record + 1 + lengthBytes;
    tag = newTag;
    fieldA = getWord(fields);
    fieldB = getWord(fields + 4);
    fieldC = getWord(fields + 8);
    fieldD = fieldB;
    const unsigned int headBytes = 1 + lengthBytes + fieldBytes[newTag];
    std::memcpy(buffer, record + headBytes, fewBytes);
    cursor = buffer;
    used = length;
    *window->next += headBytes + length;
    fillerLeft = length == 0 && hasOneId(newTag) ? fillerBytes : 0;
    entries->countRecord(newTag != fxTagNull);
    return true;
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
    entry.define(fxReaderEntry::type, *type, nullptr, 0);
    lastVersion = type->version;
    return true;
}

// Brings the next piece of the payload into the buffer.
bool fxBinaryReader::stage() {
    const unsigned int piece = std::min(payloadLeft, bufferBytes);
    constexpr unsigned int fewBytes = 32;
    const bool isThere = piece <= fewBytes ? getFew<fewBytes>(buffer, piece) : get(buffer, piece);
    if (!isThere) return false;
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
    } else if (isHandedOut(entries->at(item.id))) {
        fillPlace(item);
        entries->endPeriod();
    } else {
        loose.push_back(item);
    }
}

// Whether the entry is defined, and no part of a body that still waits.
bool fxBinaryReader::isHandedOut(const fxReaderEntry& entry) const {
    if (!entry.isDefined()) return false;
    if (entry.kind == fxReaderEntry::block || entry.body < firstBody) return true;
    const size_t index = entry.body - firstBody;
    return index >= bodies.size() || bodies[index].isReached;
}

// The serial number of the body that is made next.
unsigned int fxBinaryReader::nextBody() const {
    return firstBody + static_cast<unsigned int>(bodies.size());
}

bool fxBinaryReader::readBlock(fxReaderEntry& entry) {
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
    entries->defineBlock(entry, byteCount, block.release(), text);
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

bool fxBinaryReader::readBody(fxReaderEntry& entry) {
    if (entry.kind == fxReaderEntry::awaitedBlock) fxFatal("format error");
    fxTypeObj& type = typeOfBody(entry);
    if (fieldC != type.version && fieldC != lastVersion) {
        fxFatal("XXX version error handling is missing");
    }
    fxTypeObj* const root = std::exchange(rootType, nullptr);
    if (root != nullptr && !type.isA(*root)) fxFatal("XXX baddest news");
    if (!entries->eachWanted(entry, [&](fxTypeObj& wanted) { return type.isA(wanted); })) {
        fxFatal("XXX bad news!");
    }
    void* const object = type.newInstance != nullptr ? type.newInstance(type) : nullptr;
    if (object == nullptr) fxFatal("XXX error handling is missing");

    const bool isAwaited = entry.kind == fxReaderEntry::awaitedObject;
    awaited -= isAwaited;
    isOrderly &= isAwaited;
    entry.define(fxReaderEntry::object, type, object, nextBody());
    bodies.push_back({object, &type, nullptr, items.size(), false});
    concluded = nullptr;
    hasFailed = false;
    isInBody = true;
    if (type.xdr(object, *this) == 0) fxFatal("XXX error handling is missing");
    isInBody = false;
    Body& body = bodies.back();
    // An object that makes do with what it got before a failure is owed nothing.
    if (hasFailed) forgetItems(items, body.firstItem);
    body.concluded = concluded;
    return true;
}

// Fills every place that the root leads to, and those outside of any body, and
// tells the objects. What nothing leads to stays, with its places empty: a later
// graph may refer to it.
void fxBinaryReader::commit(const fxReaderEntry& root) {
    if (hasOddTexts) {
        checkTexts(items);
        checkTexts(loose);
        hasOddTexts = false;
    }
    for (size_t i = 0; i < loose.size(); ++i) fillPlace(loose[i]);
    const bool isAllReached = isOrderly ? fillAll() : fillReached(root);
    loose.clear();
    entries->endPeriod();

    fxChunkList<Body> told;
    if (isAllReached) {
        told.swap(bodies);
        firstBody += static_cast<unsigned int>(told.size());
        items.clear();
        isOrderly = true;
    } else {
        for (size_t i = 0; i < bodies.size(); ++i) {
            if (bodies[i].isReached) told.push_back(bodies[i]);
            if (bodies[i].isReached) bodies[i].concluded = nullptr;
        }
    }
    told.each([this](const Body& body) {
        if (body.concluded != nullptr) body.concluded->xdrSuccess(*this);
    });
}

// In the streams of our writer every body answers to a place that was noted
// before it, in a body before it or for the root. So the root leads to all.
bool fxBinaryReader::fillAll() {
    items.each([this](const fxBinaryReaderItem& item) { fillPlace(item); });
    return true;
}

// Goes from the root and the places outside of bodies to all that they lead to.
// Whether there is no body besides.
bool fxBinaryReader::fillReached(const fxReaderEntry& root) {
    std::vector<size_t> found;
    const auto reach = [&](const fxReaderEntry& entry) {
        if (entry.kind == fxReaderEntry::block || entry.body < firstBody) return;
        const size_t index = entry.body - firstBody;
        if (index >= bodies.size() || bodies[index].isReached) return;
        bodies[index].isReached = true;
        found.push_back(index);
    };
    const auto follow = [&](const fxBinaryReaderItem& item) {
        if (item.isObject()) reach(entries->at(item.id));
    };
    reach(root);
    for (size_t i = 0; i < loose.size(); ++i) follow(loose[i]);
    while (!found.empty()) {
        const size_t index = found.back();
        found.pop_back();
        const size_t next = index + 1;
        const size_t end = next < bodies.size() ? bodies[next].firstItem : items.size();
        for (size_t i = bodies[index].firstItem; i < end; ++i) {
            fillPlace(items[i]);
            follow(items[i]);
        }
    }
    bool isAllReached = true;
    for (size_t i = 0; i < bodies.size(); ++i) isAllReached &= bodies[i].isReached;
    return isAllReached;
}

void fxBinaryReader::fillPlace(const fxBinaryReaderItem& item) {
    fxReaderEntry& entry = entries->at(item.id);
    void* value = nullptr;
    if (item.isObject()) {
        fxTypeObj& declared = entries->typeOf(item.wanted & ~fxBinaryReaderItem::objectMark);
        value = entry.record == &declared ? entry.address
                                          : entry.record->upcast(entry.address, declared);
    } else if (item.isText()) {
        const char* const text = entry.textForCopy();
        if (text == nullptr) fxFatal("format error");  // its body waited while a field got it
        char* const copy = copyOfBlock(text, item.wanted);
        static_cast<fxStr*>(item.slot)->adopt(copy, item.wanted);
        return;
    } else {
        if (entry.address == nullptr) {
            entries->adopt(entry, copyOfBlock(entry.text, entry.bytes + size_t{1}));
        }
        entries->give(entry);
        value = entry.address;
    }
    std::memcpy(item.slot, &value, sizeof value);
}

// Each text must end where its string does, which is decided before anything
// changes. Only texts that share a block with others are left to this.
void fxBinaryReader::checkTexts(const fxChunkList<fxBinaryReaderItem>& places) const {
    for (size_t i = 0; i < places.size(); ++i) {
        if (places[i].isText()) checkText(places[i]);
    }
}

void fxBinaryReader::checkText(const fxBinaryReaderItem& item) const {
    const char* const text = entries->at(item.id).textForCopy();
    if (text == nullptr || text[item.wanted - 1] != '\0') fxFatal("format error");
}

// Destroys the objects that were not handed out, whose places are all empty.
void fxBinaryReader::dropBodies() {
    fxChunkList<Body> dropped;
    dropped.swap(bodies);
    firstBody += static_cast<unsigned int>(dropped.size());
    items.clear();
    for (size_t i = 0; i < dropped.size(); ++i) {
        const Body& body = dropped[i];
        if (!body.isReached && body.type->deleteInstance != nullptr) {
            body.type->deleteInstance(body.address);
        }
    }
}
