#include "fxds/BinaryWriter.h"

#include <algorithm>
#include <cstring>

#include "fxds/Fatal.h"
#include "fxds/Str.h"
#include "fxds/Stream.h"
#include "fxds/XDRObj.h"
#include "fxds/base/FreeLists.h"
#include "fxds/base/Scoped.h"
#include "fxds/base/StreamTrace.h"
#include "fxds/streams/AddressIndex.h"
#include "fxds/streams/OutBuffer.h"
#include "fxds/streams/PartRoot.h"
#include "fxds/streams/RecordFormat.h"

// RecordFormat.h draws a record. Scalars are staged in the buffer as the payload
// of the record being built.
// A pointer ends that record and begins its own, which stays open: scalars that
// follow become its payload. A full buffer goes out under the record's tag, and
// what follows under tag 0. Payload that fills whole buffers skips the buffer.
//
// What a pointer leads to waits on the stack `pending` and is written when the
// object that holds the pointer is complete. So a chain of any length needs no
// recursion, and the stack holds no more than the pointers of one object and
// of those on the way to it.
//
// Invariants, between any two calls:
// (1) buffer[0, used) is the payload of the record being built, which has `tag`
//     and the fields; cursor == buffer + used and room == bufferBytes - used.
//     room > 0: a full buffer goes out at once.
// (2) Every number below nextId is that of one type (in `table`, with null as 0)
//     or of one object, block or base part (in `seen`), until reset(); or of the
//     block of a field that owns it, which no other field refers to.
// (3) The item of every object and block that was announced and not yet written
//     is in `pending`, with its number.
// (4) A writer that has failed has room == 0, used == 0 and no items, for good,
//     and refuses everything. It fails when the stream refuses bytes, and when
//     writeObject() is left before its graph is whole, be it by an exception:
//     records are missing then that others refer to.

using namespace fxRecordFormat;

namespace {

constexpr unsigned int maxId = 0x7FFFFFFF;

// Asks for memory that will be written soon: the beginning of an object or block.
void fetchSoon(const void* address) {
    __builtin_prefetch(address);
    __builtin_prefetch(static_cast<const char*>(address) + 64);
}

template <class T>
size_t bytesOf(unsigned int count) {
    return size_t{count} * sizeof(T);
}

// Enters the address in a set; whether it was not there.
bool isFirst(fxAddressIndex& set, unsigned int& count, const void* address) {
    unsigned int& number = set.at(address);
    if (number != 0) return false;
    number = ++count;
    return true;
}

}  // namespace

fxBinaryWriterItem::fxBinaryWriterItem(const void* address_, fxTypeObj& type_)
    : kind(object), tag(fxTagObject), isOfInts(false), id(0), address(address_), type(&type_) {}

fxBinaryWriterItem::fxBinaryWriterItem(const void* address_, unsigned int byteCount_,
                                       fxBinaryOTTag tag_, bool isOfInts_)
    : kind(block),
      tag(tag_),
      isOfInts(isOfInts_),
      id(0),
      address(address_),
      byteCount(byteCount_) {}

fxBinaryWriterItem::~fxBinaryWriterItem() = default;

void* fxBinaryWriterItem::operator new(size_t size) { return fxFreeLists::allocate(size); }
void fxBinaryWriterItem::operator delete(void* item, size_t size) {
    fxFreeLists::release(item, size);
}

fxBinaryWriter::fxBinaryWriter(fxStream* outStream)
    : fxTranscriber(outStream, false),
      nextId(1),
      tag(fxTagData),
      fieldA(0),
      fieldB(0),
      fieldC(0),
      fieldD(0),
      name(nullptr),
      seen(std::make_unique<fxAddressIndex>()),
      parts(std::make_unique<fxAddressIndex>()),
      partCount(0),
      embedded(std::make_unique<fxAddressIndex>()),
      embeddedCount(0),
      owned(std::make_unique<fxAddressIndex>()),
      ownedCount(0),
      owner(nullptr),
      lastType(nullptr),
      lastTypeId(0),
      itemType(nullptr),
      partUnderWay(nullptr),
      bodyUnderWay(nullptr),
      firstOfBody(0),
      isInGraph(false),
      outgoing(std::make_unique<fxOutBuffer>(outStream)) {
    table.add(nullptr, 0);
}

fxBinaryWriter::~fxBinaryWriter() { dropPending(); }

const char* fxBinaryWriter::className() const { return "fxBinaryWriter"; }

void fxBinaryWriter::reset() {
    if (isInGraph) return;
    forgetObjects();
    table.clear();
    lastType = nullptr;
}

void fxBinaryWriter::forgetObjects() {
    if (isInGraph) return;
    seen->clear();
    parts->clear();
    embedded->clear();
    owned->clear();
    dropPending();
}

bool fxBinaryWriter::flush() {
    fxBinaryTranscriber& staged = *this;  // a virtual base, found once
    if (tag == fxTagData && staged.used == 0) return !outgoing->hasFailed();
    if (!writeRecord(staged.buffer, staged.used)) return fail();
    staged.used = 0;
    staged.room = bufferBytes;
    staged.cursor = staged.buffer;
    return true;
}

bool fxBinaryWriter::xdr(char* v, unsigned int n) { return writeBytes(v, n); }
bool fxBinaryWriter::xdr(unsigned char* v, unsigned int n) { return writeBytes(v, n); }
bool fxBinaryWriter::xdr(short* v, unsigned int n) { return writeBytes(v, bytesOf<short>(n)); }
bool fxBinaryWriter::xdr(unsigned short* v, unsigned int n) {
    return writeBytes(v, bytesOf<short>(n));
}
bool fxBinaryWriter::xdr(long* v, unsigned int n) { return writeBytes(v, bytesOf<long>(n)); }
bool fxBinaryWriter::xdr(unsigned long* v, unsigned int n) {
    return writeBytes(v, bytesOf<long>(n));
}
bool fxBinaryWriter::xdr(float* v, unsigned int n) { return writeBytes(v, bytesOf<float>(n)); }
bool fxBinaryWriter::xdr(double* v, unsigned int n) { return writeBytes(v, bytesOf<double>(n)); }

bool fxBinaryWriter::xdr(fxStr* strings, unsigned int count) {
    return std::all_of(strings, strings + count, [this](fxStr& s) { return s.xdr(*this) != 0; });
}

bool fxBinaryWriter::xdr(char** p, unsigned int n) {
    return writePrimPointer(p, *p, n, fxTagBytes);
}
bool fxBinaryWriter::xdr(unsigned char** p, unsigned int n) {
    return writePrimPointer(p, *p, n, fxTagBytes);
}
bool fxBinaryWriter::xdr(short** p, unsigned int n) {
    return writePrimPointer(p, *p, bytesOf<short>(n), fxTagShorts);
}
bool fxBinaryWriter::xdr(unsigned short** p, unsigned int n) {
    return writePrimPointer(p, *p, bytesOf<short>(n), fxTagShorts);
}
bool fxBinaryWriter::xdr(long** p, unsigned int n) {
    return writePrimPointer(p, *p, bytesOf<long>(n), fxTagLongs);
}
bool fxBinaryWriter::xdr(unsigned long** p, unsigned int n) {
    return writePrimPointer(p, *p, bytesOf<long>(n), fxTagLongs);
}
bool fxBinaryWriter::xdr(float** p, unsigned int n) {
    return writePrimPointer(p, *p, bytesOf<float>(n), fxTagFloats);
}
bool fxBinaryWriter::xdr(double** p, unsigned int n) {
    return writePrimPointer(p, *p, bytesOf<double>(n), fxTagDoubles);
}
bool fxBinaryWriter::xdr(char** p) {
    return writePrimPointer(p, *p, *p != nullptr ? std::strlen(*p) + 1 : 0, fxTagBytes);
}
bool fxBinaryWriter::xdr(unsigned char** p) { return xdr(reinterpret_cast<char**>(p)); }
bool fxBinaryWriter::xdr(int** p, unsigned int n) {
    return writePrimPointer(p, *p, bytesOf<long>(n), fxTagLongs, true);
}
bool fxBinaryWriter::xdr(unsigned int** p, unsigned int n) {
    return writePrimPointer(p, *p, bytesOf<long>(n), fxTagLongs, true);
}

bool fxBinaryWriter::xdr(void* slot, fxXDRObj*, fxTypeObj& declared, fxXDRObj* object,
                         void* address) {
    if (address == nullptr) return writeNullPointer();
    if (slot == owner && slot != nullptr && !isFirst(*owned, ownedCount, address)) return false;
    fxTypeObj* const type = object != nullptr ? object->getTypeObj() : &declared;
    unsigned int typeId = 0;
    if (type == nullptr || !flush() || !writeType(*type, typeId)) return false;
    unsigned int id = 0;
    const bool isNew = idOf(address, id);
    if (isNew) push(new fxBinaryWriterItem(address, *type), id);
    fieldA = id;
    tag = isNew ? fxTagPointer : fxTagPointerAgain;
    return id <= maxId;
}

bool fxBinaryWriter::xdr(fxTypeObj& base, void* derived, void* baseAddress) {
    if (derived == baseAddress) return true;
    if (!flush()) return false;
    bool isNew = false;
    fieldA = idOfPart(baseAddress, isNew);
    if (fieldA > maxId) return false;
    tag = isNew ? fxTagPart : fxTagPartAgain;
    if (!isNew) return true;
    const fxScoped<const void*> part(partUnderWay, baseAddress);
    return base.xdr(baseAddress, *this) != 0;
}

void fxBinaryWriter::setOwner(const void* slot) { owner = slot; }

bool fxBinaryWriter::embeds(const void* object) {
    if (seen->find(object) != 0) return false;
    isFirst(*embedded, embeddedCount, object);
    return true;
}

bool fxBinaryWriter::isEmbedded(const void* object) const { return embedded->find(object) != 0; }

// Only the object that is being written answers for itself: what it inherits and
// what it holds is asked, but is not written to its end.
fxBool fxBinaryWriter::conclude(bool succeeded, fxXDRObj& object, void* address) {
    if (address == partUnderWay) {
        if (!fxIsRootOfPart(object)) return succeeded;  // the object is told, or asked
        const auto told = std::find(toldRoots.begin(), toldRoots.end(), &object);
        if (told != toldRoots.end()) return succeeded;
        toldRoots.push_back(&object);
    }
    if (succeeded) {
        object.xdrSuccess(*this);
        return 1;
    }
    const fxBool isForgiven = object.xdrFail(*this, address);
    return bodyUnderWay != nullptr && bodyUnderWay != address ? 0 : isForgiven;
}

void* fxBinaryWriter::readObject(fxTypeObj&) {
    fxFatal("tried to invoke fxBinaryWriter::readObject");
}

// A call of writeObject(), however it ends.
class fxBinaryWriter::Graph {
public:
    explicit Graph(fxBinaryWriter& writer_)
        : writer(writer_), inGraph(writer.isInGraph, true), collecting(*writer.outgoing) {}
    Graph(const Graph&) = delete;
    Graph& operator=(const Graph&) = delete;
    ~Graph() {
        if (!isWhole) writer.fail();
    }

    bool isWhole = false;

private:
    fxBinaryWriter& writer;
    const fxScoped<bool> inGraph;
    const fxOutBuffer::Collecting collecting;
};

bool fxBinaryWriter::writeObject(void* address, fxXDRObj* object) {
    if (address == nullptr || object == nullptr || isInGraph) return false;
    fxTypeObj* const type = object->getTypeObj();
    if (type == nullptr || !flush()) return false;
    Graph graph(*this);
    graph.isWhole = queue(new fxBinaryWriterItem(address, *type)) <= maxId && writePending() &&
                    outgoing->send();
    return graph.isWhole;
}

unsigned int fxBinaryWriter::putHeader(char* place, unsigned int tag, unsigned long payloadBytes) {
    if (tag > fxTagPartAgain) fxFatal("Whoops!");
    return putLength(place, tag, static_cast<unsigned int>(payloadBytes));
}

bool fxBinaryWriter::writeBytes(const void* bytes, size_t byteCount) {
    fxBinaryTranscriber& staged = *this;  // a virtual base, found once
    if (byteCount == sizeof(long) && staged.room > sizeof(long)) {
        char* const place = staged.cursor;  // all numbers but shorts and floats
        staged.cursor = place + sizeof(long);
        staged.used += static_cast<unsigned int>(sizeof(long));
        staged.room -= static_cast<unsigned int>(sizeof(long));
        std::memcpy(place, bytes, sizeof(long));
        return true;
    }
    if (outgoing->hasFailed()) return false;
    const char* from = static_cast<const char*>(bytes);
    while (byteCount > 0) {
        if (used == 0 && byteCount >= bufferBytes) {
            if (!writeRecord(from, bufferBytes)) return fail();
            from += bufferBytes;
            byteCount -= bufferBytes;
            continue;
        }
        const unsigned int piece = static_cast<unsigned int>(std::min<size_t>(byteCount, room));
        std::memcpy(cursor, from, piece);
        cursor += piece;
        used += piece;
        room -= piece;
        from += piece;
        byteCount -= piece;
        if (room == 0 && !flush()) return false;
    }
    return true;
}

unsigned int fxBinaryWriter::alreadyWritten(const void* address) const {
    return seen->find(address);
}

unsigned int fxBinaryWriter::recordIdForAddress(const void* address) {
    seen->at(address) = nextId;
    return nextId++;
}

unsigned int fxBinaryWriter::queue(fxBinaryWriterItem* item) {
    return push(item, recordIdForAddress(item->address));
}

bool fxBinaryWriter::writeType(fxTypeObj& type, unsigned int& id) {
    if (&type != lastType) {
        const unsigned long* known = table.find(&type);
        lastTypeId = known != nullptr ? static_cast<unsigned int>(*known) : 0;
        lastType = &type;
    }
    id = lastTypeId;
    return id != 0 || writeNewType(type, id);
}

bool fxBinaryWriter::writeNewType(fxTypeObj& type, unsigned int& id) {
    id = lastTypeId = nextId++;
    if (id > maxId) return false;
    table.add(&type, id);
    tag = fxTagType;
    fieldB = id;
    name = type.name;
    return flush();
}

bool fxBinaryWriter::writeNullPointer() {
    if (!flush()) return false;
    tag = fxTagNull;
    return true;
}

bool fxBinaryWriter::writePrimPointer(const void* block, size_t byteCount, fxBinaryOTTag bodyTag) {
    return writePrimPointer(nullptr, block, byteCount, bodyTag);
}

// Private functions.

// The id of the address, which is entered under the next one if it is new: true then.
bool fxBinaryWriter::idOf(const void* address, unsigned int& id) {
    unsigned int& entered = seen->at(address);
    const bool isNew = entered == 0;
    if (isNew) entered = nextId++;
    id = entered;
    return isNew;
}

// The id of a part of the object under way. A part is given once with each
// writing of its object, so that one that was written with an earlier graph gets a
// new number: references lead to parts of the same object only.
unsigned int fxBinaryWriter::idOfPart(const void* address, bool& isNew) {
    const unsigned int known = alreadyWritten(address);
    const unsigned int count = parts->find(address);
    isNew = known == 0 || (count != 0 && known < firstOfBody);
    if (!isNew) return known;
    parts->at(address) = ++partCount;
    return recordIdForAddress(address);
}

unsigned int fxBinaryWriter::push(fxBinaryWriterItem* item, unsigned int id) {
    item->id = id;
    fetchSoon(item->address);
    const unsigned int length = pending.length();
    if (length == pending.getMaxLength()) pending.setMaxLength(2 * length + 16);
    pending.append(item);
    return id;
}

// A field that owns its block gets a number for it that no other field sees.
bool fxBinaryWriter::writePrimPointer(const void* slot, const void* block, size_t byteCount,
                                      fxBinaryOTTag bodyTag, bool isOfInts) {
    if (block == nullptr) return writeNullPointer();
    const bool isOwn = slot != nullptr && slot == owner;
    if (byteCount > maxBlockBytes || !flush()) return false;
    unsigned int id = isOwn ? nextId++ : 0;
    const bool isNew = isOwn || idOf(block, id);
    fieldA = id;
    if (!isNew) {
        tag = fxTagBlockAgain;
        return flush();
    }
    fieldD = static_cast<unsigned int>(byteCount);
    push(new fxBinaryWriterItem(block, fieldD, bodyTag, isOfInts), id);
    tag = fxTagBlock;
    return id <= maxId;
}

// Writes the record being built with this payload, of up to a buffer's length.
// What comes next is data. Most payloads are short, and then they are copied
// without regard to their length. Requires: a short one is at the front of `buffer`.
bool fxBinaryWriter::writeRecord(const char* payload, unsigned int payloadBytes) {
    constexpr unsigned int shortBytes = 64;
    if (fxStreamTrace::isOn()) trace();
    char* const place = outgoing->room(maxHeadBytes + shortBytes);
    if (place == nullptr || tag == fxTagType || payloadBytes > shortBytes) {
        return writeParts(payload, payloadBytes);
    }
    const unsigned int length = putHead(place, payloadBytes);
    std::memcpy(place + length, payload, shortBytes);
    outgoing->added(length + payloadBytes);
    tag = fxTagData;
    return true;
}

void fxBinaryWriter::trace() const {
    const unsigned long id = tag == fxTagType ? fieldB : fieldA;
    const char* className = itemType != nullptr ? itemType->name : nullptr;
    if (tag == fxTagType) className = name;
    if (isContents(tag)) className = nullptr;
    fxStreamTrace::record("write", headerBytes + outgoing->total(), tagName(tag),
                          fieldBytes[tag] > 0 ? static_cast<unsigned int>(id) : 0, className);
}

// The same part by part.
bool fxBinaryWriter::writeParts(const char* payload, unsigned int payloadBytes) {
    char head[maxHeadBytes];
    if (!outgoing->put(head, putHead(head, payloadBytes))) return false;
    if (tag == fxTagType && !outgoing->put(name, std::strlen(name) + 1)) return false;
    if (payloadBytes != 0 && !outgoing->put(payload, payloadBytes)) return false;
    tag = fxTagData;
    return true;
}

// Keeps invariant (4). What is pending may be gone by the next call.
bool fxBinaryWriter::fail() {
    outgoing->fail();
    dropPending();
    tag = fxTagData;
    used = room = 0;
    cursor = buffer;
    return false;
}

// Puts the head of the record being built and returns its length. There is room
// for maxHeadBytes, which may all change.
inline unsigned int fxBinaryWriter::putHead(char* place, unsigned int payloadBytes) const {
    // All is read before bytes are put, which might be those of the fields for all that
    // the compiler knows.
    const unsigned int tag_ = tag;
    const unsigned int first = static_cast<unsigned int>(tag_ == fxTagType ? fieldB : fieldA);
    const unsigned int second = tag_ == fxTagObject ? static_cast<unsigned int>(fieldB) : fieldD;
    const unsigned int third = static_cast<unsigned int>(fieldC);
    const unsigned int length = putHeader(place, tag_, payloadBytes);
    char* const fields = place + length;
    putWord(fields, first);
    putWord(fields + 4, second);
    putWord(fields + 8, third);
    return length + fieldBytes[tag_];
}

fxBinaryWriterItem* fxBinaryWriter::itemAt(unsigned int index) {
    return static_cast<fxBinaryWriterItem*>(pending[index]);
}

bool fxBinaryWriter::writePending() {
    while (pending.length() > 0) {
        const unsigned int last = pending.length() - 1;
        const std::unique_ptr<fxBinaryWriterItem> item(itemAt(last));
        pending.remove(last, 1);
        // Memory is what costs here: what the next item stands for can be on its way
        // meanwhile, and some items after that.
        if (last > 0) fetchSoon(itemAt(last - 1)->address);
        if (last > 3) __builtin_prefetch(itemAt(last - 4));
        if (!writeItem(*item) || !flush()) return false;
    }
    return true;
}

bool fxBinaryWriter::writeItem(const fxBinaryWriterItem& item) {
    const unsigned int id = item.id;
    if (item.kind == fxBinaryWriterItem::block) {
        fieldA = id;
        return writeBlock(item);
    }
    unsigned int typeId = 0;
    itemType = nullptr;
    if (!writeType(*item.type, typeId)) return false;
    itemType = item.type;
    tag = fxTagObject;
    fieldA = id;
    fieldB = typeId;
    fieldC = item.type->version;
    const fxScoped<const void*> body(bodyUnderWay, item.address);
    firstOfBody = nextId;
    toldRoots.clear();
    if (item.type->xdr(const_cast<void*>(item.address), *this) == 0) {
        if (!outgoing->hasFailed()) refuse("");
        if (complaint != nullptr && complaint->className.empty()) {
            complaint->className = item.type->name;
        }
        return false;
    }
    complaint.reset();
    return true;
}

bool fxBinaryWriter::writeBlock(const fxBinaryWriterItem& item) {
    tag = item.tag;
    fieldD = item.byteCount;
    if (!item.isOfInts) return writeBytes(item.address, item.byteCount);
    const unsigned int count = static_cast<unsigned int>(item.byteCount / sizeof(long));
    return fxBinaryTranscriber::xdr(static_cast<int*>(const_cast<void*>(item.address)), count);
}

void fxBinaryWriter::dropPending() {
    for (void* item : pending) delete static_cast<fxBinaryWriterItem*>(item);
    pending.resize(0);
}
