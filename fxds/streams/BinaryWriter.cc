#include "fxds/BinaryWriter.h"

#include <algorithm>
#include <cstring>
#include <typeinfo>
#include <utility>

#include "fxds/Fatal.h"
#include "fxds/Str.h"
#include "fxds/Stream.h"
#include "fxds/XDRObj.h"
#include "fxds/base/FreeLists.h"
#include "fxds/base/Scoped.h"
#include "fxds/base/StreamTrace.h"
#include "fxds/streams/AddressIndex.h"
#include "fxds/streams/OutBuffer.h"
#include "fxds/streams/Ownership.h"
#include "fxds/streams/PartRoot.h"
#include "fxds/streams/RecordFormat.h"
#include "fxds/streams/WriterStack.h"

// RecordFormat.h draws a record. Scalars are staged in the buffer as the payload of the
// record being built. A pointer ends that record and begins its own, which stays open:
// scalars that follow become its payload. A full buffer is written under the record's tag,
// and the rest under tag 0. Payload that fills whole buffers skips the buffer.
//
// The target of a pointer waits on a stack and is written when the object with the pointer
// is complete. So a chain of any length needs no recursion, and the stack holds no more than
// the pointers of one object and of the objects on the way to it.
//
// Invariants, between any two calls:
// (1) buffer[0, used) is the payload of the record being built, which has `tag`
//     and the fields; cursor == buffer + used and room == bufferBytes - used.
//     room > 0: a full buffer goes out at once.
// (2) Every number below nextId is that of one type (in `table`, with null as 0)
//     or of one object, block or base part (in `seen`), until reset(); or of the
//     block of a field that owns it, which no other field refers to.
//     A number of an object may be in `seen` with a mark: a helper has written a
//     pointer to this address that was declared with declaredOnes[the mark's index].
// (3) Every object and block that was announced and not yet written is on the stack, with
//     its number. The stack is `pending` and, on top of it, `waiting`, which has all that
//     were announced in writeObject() unless this is a subclass, which can see `pending`.
// (4) A writer that has failed has room == 0, used == 0 and an empty stack, for good,
//     and refuses everything. It fails when the stream refuses bytes, when numbers run
//     out, and when writeObject() is left before its graph is whole, be it by an
//     exception: records are missing then that others refer to.
// (5) If isPut is set, the record being built is one without payload so far, and it is at
//     the end of what is collected in `outgoing`.
// (6) `parts` has the address of each base part that got a number. `holdings` notes by
//     number which objects have an owner or holders, just as the reader does, and refuses
//     what that would. All of them grow until forgetObjects().
// (7) isInGraph is set exactly while a Graph exists. writeObject(), reset() and
//     forgetObjects() do nothing then, so an xdr() cannot discard the numbers of the graph
//     that it writes.
// (8) The items in `pending` belong to the writer; those in `waiting` are values. Either
//     leaves the stack before it is written, because the xdr() of its object pushes others.
//
// Code of the program runs in xdr() and getTypeObj(), and in xdrSuccess() and xdrFail()
// through conclude(). An exception from there passes the Graph, which makes the writer
// fail.

using namespace fxRecordFormat;

namespace {

constexpr unsigned int maxId = 0x7FFFFFFF;

// Bits of `holdings`.
constexpr unsigned char ownedBit = 1;
constexpr unsigned char heldBit = 2;

// An entry of `seen`, without a mark and with one:
//
//     | 0 | number                    |
//     | 1 | index   | number, if < 2^26 |
constexpr unsigned int marked = 1U << 31U;
constexpr unsigned int markedIdBits = 26;
constexpr unsigned int mostMarks = marked >> markedIdBits;

constexpr unsigned int idIn(unsigned int entry) {
    return entry < marked ? entry : entry & ((1U << markedIdBits) - 1);
}
constexpr unsigned int indexIn(unsigned int entry) { return (entry & ~marked) >> markedIdBits; }
constexpr unsigned int withMark(unsigned int id, unsigned int mark) {
    return id >> markedIdBits == 0 ? id | mark : id;
}

fxBinaryWriterTarget objectTarget(const void* address, fxTypeObj& type, unsigned int id) {
    return {fxBinaryWriterTarget::object, fxTagObject, false, id, address, {&type}};
}

fxBinaryWriterTarget blockTarget(const void* address, unsigned int byteCount, fxBinaryOTTag tag,
                                 bool isOfInts, unsigned int id) {
    fxBinaryWriterTarget target = {
        fxBinaryWriterTarget::block, tag, isOfInts, id, address, {nullptr}};
    target.byteCount = byteCount;
    return target;
}

inline bool isObject(const fxBinaryWriterTarget& target) {
    return target.kind == fxBinaryWriterTarget::object;
}

// Prefetches memory that will be written soon: the beginning of an object or block.
void fetchSoon(const fxBinaryWriterTarget& target) {
    __builtin_prefetch(target.address);
    if (isObject(target)) __builtin_prefetch(static_cast<const char*>(target.address) + 64);
}

// Enters the address in a set; whether it was not there.
bool isFirst(fxAddressIndex& set, const void* address) {
    bool isNew = false;
    unsigned int& number = set.at(address, isNew);
    if (isNew) number = 1;
    return isNew;
}

}  // namespace

fxBinaryWriterItem::fxBinaryWriterItem(const void* address_, fxTypeObj& type_)
    : fxBinaryWriterItem(objectTarget(address_, type_, 0)) {}

fxBinaryWriterItem::fxBinaryWriterItem(const void* address_, unsigned int byteCount_,
                                       fxBinaryOTTag tag_, bool isOfInts_)
    : fxBinaryWriterItem(blockTarget(address_, byteCount_, tag_, isOfInts_, 0)) {}

fxBinaryWriterItem::fxBinaryWriterItem(const fxBinaryWriterTarget& target)
    : fxBinaryWriterTarget(target) {}

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
      embedded(std::make_unique<fxAddressIndex>()),
      owner(nullptr),
      holder(nullptr),
      firstHolding(1),
      firstOfGraph(1),
      rootId(0),
      idUnderWay(0),
      blockOf(anyField),
      lengths(std::make_unique<fxAddressIndex>()),
      ownership(std::make_unique<fxOwnership>()),
      lastType(nullptr),
      lastTypeId(0),
      itemType(nullptr),
      partUnderWay(nullptr),
      bodyUnderWay(nullptr),
      firstOfBody(0),
      waiting(std::make_unique<fxWriterStack>()),
      isPut(false),
      isInGraph(false),
      isOfThisClass(false),
      lastDeclared(nullptr),
      lastMark(0),
      outgoing(std::make_unique<fxOutBuffer>(outStream)) {
    table.add(nullptr, 0);
}

fxBinaryWriter::~fxBinaryWriter() {
    if (isInGraph) fxFatal("an fxBinaryWriter is destroyed while it writes");
    dropPending();
}

const char* fxBinaryWriter::className() const { return "fxBinaryWriter"; }

void fxBinaryWriter::reset() {
    if (isInGraph) return;
    forgetObjects();
    table.clear();
    lastType = nullptr;
    declaredOnes.clear();
    lastDeclared = nullptr;
}

void fxBinaryWriter::forgetObjects() {
    if (isInGraph) return;
    seen->clear();
    parts->clear();
    embedded->clear();
    lengths->clear();
    holdings.clear();
    firstHolding = nextId;
    dropPending();
    waiting->copies.clear();
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
    if (address != nullptr) return refer(slot, declared, object, address, 0);
    holder = nullptr;
    return writeNullPointer();
}

bool fxBinaryWriter::xdrText(fxStr& string, char** text, unsigned int byteCount) {
    bool isDying = waiting->dying.holds(&string);
    for (const fxXdrWithin* each = within; each != nullptr && !isDying; each = each->outer) {
        isDying = waiting->dying.holds(each->value);
    }
    blockOf = stringField;
    if (!isDying) return xdr(text, byteCount);
    waiting->copies.push_back(std::make_unique<char[]>(byteCount));
    char* copy = waiting->copies.back().get();
    std::memcpy(copy, *text, byteCount);
    return xdr(&copy, byteCount);
}

// A pointer into the middle of the object is not known: `seen` has the object's address,
// and another object at that address might be the target.
bool fxBinaryWriter::writePointer(void* slot, fxTypeObj& declared, fxXDRObj* object,
                                  void* address) {
    if (!isOfThisClass) return xdr(slot, nullptr, declared, object, address);
    void* pointer = nullptr;
    std::memcpy(&pointer, slot, sizeof pointer);
    if (&declared != lastDeclared) chooseMark(declared);
    return refer(slot, declared, object, address, pointer == address ? lastMark : 0);
}

// A look-up only: to touch the object would take longer than all of this.
bool fxBinaryWriter::writeKnownPointer(const void* pointer, const fxTypeObj& declared) {
    const unsigned int entry = seen->find(pointer);
    const bool isKnown = entry >= marked && declaredOnes[indexIn(entry)] == &declared;
    if (!isKnown || owner != nullptr || !isOfThisClass) return false;
    if (holder != nullptr && !isHeldAlone(idIn(entry))) return false;
    holder = nullptr;
    if (!complete()) return false;
    fieldA = idIn(entry);
    tag = fxTagPointerAgain;
    putEarly();
    return true;
}

bool fxBinaryWriter::xdr(fxTypeObj& base, void* derived, void* baseAddress) {
    if (derived == baseAddress) return true;
    if (!flush()) return false;
    bool isNew = false;
    fieldA = idOfPart(baseAddress, isNew);
    if (fieldA > maxId) return failAtNumber();
    tag = isNew ? fxTagPart : fxTagPartAgain;
    if (!isNew) return true;
    const fxScoped<const void*> part(partUnderWay, baseAddress);
    return base.xdr(baseAddress, *this) != 0;
}

void fxBinaryWriter::setOwner(const void* slot) { owner = slot; }
void fxBinaryWriter::setHolder(const void* slot, TakeHold*) { holder = slot; }

bool fxBinaryWriter::embeds(const void* object) {
    if (seen->has(object)) return false;
    isFirst(*embedded, object);
    return true;
}

// Of what a helper writes. A string's own block is not shared.
void fxBinaryWriter::countsBlock(unsigned int&) { blockOf = sharingField; }

// No more than a reader counts at the same place, which has the head of the record being built.
size_t fxBinaryWriter::bytesPassed() const { return outgoing->total() + used; }

bool fxBinaryWriter::isEmbedded(const void* object) const { return embedded->has(object); }

// Only the object that is being written answers for itself: its bases and members get the
// call, but are not written to the end.
fxBool fxBinaryWriter::conclude(bool succeeded, fxXDRObj& object, void* address) {
    if (address == partUnderWay) {
        if (!fxIsRootOfPart(object)) return succeeded;  // the object gets this call
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
        : writer(writer_), inGraph(writer.isInGraph, true), collecting(*writer.outgoing) {
        writer.waiting->dying = fxStackPart::beneath(this);
        writer.beginClaims();
    }
    Graph(const Graph&) = delete;
    Graph& operator=(const Graph&) = delete;
    ~Graph() {
        writer.waiting->dying = {};
        writer.firstOfGraph = writer.nextId;
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
    isOfThisClass = typeid(*this) == typeid(fxBinaryWriter);
    complaint.reset();
    const unsigned int id = recordIdForAddress(address);
    rootId = id;
    push(objectTarget(address, *type, id));
    if (id > maxId) return failAtNumber();
    if (writePending()) {
        graph.isWhole = ownership->isShallow() ? outgoing->send() : refuse(fxOwnership::tooDeep);
    }
    return graph.isWhole;
}

unsigned int fxBinaryWriter::alreadyWritten(const void* address) const {
    const unsigned int id = idIn(seen->find(address));
    const unsigned long* const type = id == 0 ? table.find(address) : nullptr;
    return type != nullptr ? static_cast<unsigned int>(*type) : id;
}

// Enters the address under a new number, in place of the one that it may have: so a part
// gets another number with a later writing of its object.
unsigned int fxBinaryWriter::recordIdForAddress(const void* address) {
    bool isNew = false;
    seen->at(address, isNew) = nextId;
    return nextId++;
}

unsigned int fxBinaryWriter::queue(fxBinaryWriterItem* item) {
    item->id = recordIdForAddress(item->address);
    pushItem(item);
    return item->id;
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

// The record is complete at once: the pointer or object that needs the type comes behind
// it.
bool fxBinaryWriter::writeNewType(fxTypeObj& type, unsigned int& id) {
    id = lastTypeId = nextId++;
    if (id > maxId) return failAtNumber();
    table.add(&type, id);
    tag = fxTagType;
    fieldB = id;
    name = type.name;
    return flush();
}

bool fxBinaryWriter::writeNullPointer() {
    if (!complete()) return false;
    tag = fxTagNull;
    putEarly();
    return true;
}

bool fxBinaryWriter::writePrimPointer(const void* block, size_t byteCount, fxBinaryOTTag bodyTag) {
    return writePrimPointer(nullptr, block, byteCount, bodyTag);
}

// Private functions.

// Does what flush() does, without a call for a record that putEarly() has put.
inline bool fxBinaryWriter::complete() {
    if (!isPut) return flush();
    isPut = false;
    tag = fxTagData;
    return true;
}

// Puts the record being built, which is that of a pointer, if there is room. Most get no
// payload, and are complete then.
inline void fxBinaryWriter::putEarly() {
    if (!isOfThisClass || fxStreamTrace::isOn()) return;
    char* const place = outgoing->room(maxHeadBytes);
    if (place == nullptr) return;
    const unsigned int tag_ = tag;
    const unsigned int first = static_cast<unsigned int>(fieldA);
    const unsigned int second = fieldD;
    *place = static_cast<char>(tag_);
    putWord(place + 1, first);
    putWord(place + 5, second);
    outgoing->added(1U + fieldBytes[tag_]);
    isPut = true;
}

bool fxBinaryWriter::failAtNumber() {
    fail();
    return refuse("more objects than a stream has numbers for");
}

// The id of the address. If it is new, enters it under the next id and returns true.
bool fxBinaryWriter::idOf(const void* address, unsigned int& id, unsigned int mark) {
    bool isNew = false;
    unsigned int& entry = seen->at(address, isNew);
    id = isNew ? nextId++ : idIn(entry);
    if (isNew || entry < marked) entry = withMark(id, mark);
    return isNew;
}

// Writes a pointer to an address, which is not null.
inline bool fxBinaryWriter::refer(const void* slot, fxTypeObj& declared, fxXDRObj* object,
                                  const void* address, unsigned int mark) {
    fxTypeObj* const type = object != nullptr ? object->getTypeObj() : &declared;
    unsigned int typeId = 0;
    if (type == nullptr || !complete()) return false;
    const bool isTypeWritten = type == lastType && lastTypeId != 0;
    if (!isTypeWritten && !writeType(*type, typeId)) return false;
    if (owner != nullptr && !mayHave(slot, address)) return false;
    const bool isHolder = holder != nullptr && std::exchange(holder, nullptr) == slot;
    unsigned int id = 0;
    const bool isNew = idOf(address, id, mark);
    if (isHolder && !isHeldAlone(id)) return false;
    if (isNew) push(objectTarget(address, *type, id));
    fieldA = id;
    tag = isNew ? fxTagPointer : fxTagPointerAgain;
    if (id > maxId) return failAtNumber();
    putEarly();
    return true;
}

unsigned char& fxBinaryWriter::holdingOf(unsigned int id) {
    const size_t index = id - firstHolding;
    if (index >= holdings.size()) holdings.resize(index + index / 2 + 1);
    return holdings[index];
}

// Whether the object with this number, which one more field holds, has no owner.
bool fxBinaryWriter::isHeldAlone(unsigned int id) {
    unsigned char& holding = holdingOf(id);
    if (holding != ownedBit) holding = heldBit;
    return holding == heldBit || refuse("an object that has an owner and other holders");
}

// Whether the field may have its target, which it then owns. The root is the caller's, and
// those of earlier graphs were.
bool fxBinaryWriter::mayHave(const void* slot, const void* address) {
    if (slot != owner) return true;
    const unsigned int known = idIn(seen->find(address));
    const unsigned int id = known != 0 ? known : nextId;
    unsigned char& holding = holdingOf(id);
    if (holding == ownedBit) return refuse("an object with two owners");
    const bool isOfCaller = known != 0 && (known < firstOfGraph || known == rootId);
    if (isOfCaller || holding == heldBit) {
        return refuse("an object that has an owner and other holders");
    }
    holding = ownedBit;
    ownership->add(id, idUnderWay, 1 + nestingLevel());
    return true;
}

// Finds the mark of a declared type, or 0 when there are too many.
void fxBinaryWriter::chooseMark(const fxTypeObj& declared) {
    const auto found = std::find(declaredOnes.begin(), declaredOnes.end(), &declared);
    const auto index = static_cast<unsigned int>(found - declaredOnes.begin());
    if (found == declaredOnes.end() && index < mostMarks) declaredOnes.push_back(&declared);
    lastMark = index < mostMarks ? marked | index << markedIdBits : 0;
    lastDeclared = &declared;
}

// The id of a part of the object under way. A part gets one id with each writing of its
// object, so that a part that was written with an earlier graph gets a new number:
// references lead to parts of the same object only.
unsigned int fxBinaryWriter::idOfPart(const void* address, bool& isNew) {
    const unsigned int known = alreadyWritten(address);
    isNew = known == 0 || (parts->has(address) && known < firstOfBody);
    if (!isNew) return known;
    isFirst(*parts, address);
    return recordIdForAddress(address);
}

inline void fxBinaryWriter::push(const fxBinaryWriterTarget& target) {
    fetchSoon(target);
    if (isOfThisClass) return waiting->push_back(target);
    pushItem(new fxBinaryWriterItem(target));
}

void fxBinaryWriter::pushItem(fxBinaryWriterItem* item) {
    const unsigned int length = pending.length();
    if (length == pending.getMaxLength()) pending.setMaxLength(std::max(16U, 2 * length));
    pending.append(item);
}

// Whether a reader can give the block to this field as well as to the one that it was
// written for. Only helpers ask.
bool fxBinaryWriter::mayShare(const void* block, size_t byteCount, bool isAsked) {
    bool isNew = false;
    unsigned int& known = lengths->at(block, isNew);
    if (isNew) known = seen->has(block) ? 0 : static_cast<unsigned int>(byteCount) + 1;
    return !isAsked || byteCount < known || refuse("a block with two counts");
}

// A field that owns its block gets a number for it that no other field uses.
bool fxBinaryWriter::writePrimPointer(const void* slot, const void* block, size_t byteCount,
                                      fxBinaryOTTag bodyTag, bool isOfInts) {
    const BlockOf field = std::exchange(blockOf, anyField);
    if (block == nullptr) return writeNullPointer();
    const bool isOwn = slot != nullptr && slot == owner;
    if (byteCount > maxBlockBytes) return refuse("a block of 2 GB or more");
    if (!isOwn && field != stringField && !mayShare(block, byteCount, field == sharingField)) {
        return false;
    }
    if (!complete()) return false;
    unsigned int id = isOwn ? nextId++ : 0;
    const bool isNew = isOwn || idOf(block, id);
    fieldA = id;
    if (!isNew) {
        tag = fxTagBlockAgain;
        return flush();
    }
    fieldD = static_cast<unsigned int>(byteCount);
    push(blockTarget(block, fieldD, bodyTag, isOfInts, id));
    tag = fxTagBlock;
    if (id > maxId) return failAtNumber();
    putEarly();
    return true;
}

// Takes what is on top of the stack. Memory is what costs here: what the next ones denote
// can be on its way meanwhile.
inline bool fxBinaryWriter::takeLast(fxBinaryWriterTarget& target) {
    const size_t count = waiting->size();
    if (count == 0) return pending.length() > 0 && takeItem(target);
    target = waiting->back();
    waiting->pop_back();
    if (count > 1) fetchSoon((*waiting)[count - 2]);
    if (count > 3) fetchSoon((*waiting)[count - 4]);
    return true;
}

bool fxBinaryWriter::takeItem(fxBinaryWriterTarget& target) {
    const unsigned int last = pending.length() - 1;
    const std::unique_ptr<fxBinaryWriterItem> item(static_cast<fxBinaryWriterItem*>(pending[last]));
    pending.remove(last, 1);
    target = *item;
    return true;
}

bool fxBinaryWriter::writePending() {
    fxBinaryWriterTarget target;
    while (takeLast(target)) {
        if (!writeTarget(target) || !complete()) return false;
    }
    return true;
}

bool fxBinaryWriter::writeTarget(const fxBinaryWriterTarget& item) {
    const unsigned int id = item.id;
    if (!isObject(item)) {
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
    const fxScoped<unsigned int> number(idUnderWay, id);
    firstOfBody = nextId;
    toldRoots.clear();
    const bool isDone = item.type->xdr(const_cast<void*>(item.address), *this) != 0;
    if (!isDone || complaint != nullptr) {  // a reader would miss what was refused
        if (!outgoing->hasFailed()) refuse("");
        if (complaint != nullptr && complaint->className.empty()) {
            complaint->className = item.type->name;
        }
        return false;
    }
    return true;
}

void fxBinaryWriter::dropPending() {
    for (void* item : pending) delete static_cast<fxBinaryWriterItem*>(item);
    pending.resize(0);
    waiting->clear();
}
