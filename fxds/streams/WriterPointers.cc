#include <algorithm>
#include <cstring>
#include <utility>

#include "fxds/BinaryWriter.h"
#include "fxds/XDRObj.h"
#include "fxds/base/Scoped.h"
#include "fxds/base/StreamTrace.h"
#include "fxds/streams/AddressIndex.h"
#include "fxds/streams/OutBuffer.h"
#include "fxds/streams/Ownership.h"
#include "fxds/streams/RecordFormat.h"
#include "fxds/streams/WriterStack.h"

// The writer's numbers for addresses, and the records of pointers, which name them. The first
// pointer to an address gives it a number and pushes the target; all further ones are
// references. A pointer that a helper has written before is recognised by its address alone,
// so that the target is not touched. Invariants (2) and (6) of BinaryWriter.cc are kept here.

using namespace fxRecordFormat;
using namespace fxWriterTargets;

namespace {

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

// Enters the address in a set; whether it was not there.
bool isFirst(fxAddressIndex& set, const void* address) {
    bool isNew = false;
    unsigned int& number = set.at(address, isNew);
    if (isNew) number = 1;
    return isNew;
}

}  // namespace

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

bool fxBinaryWriter::isEmbedded(const void* object) const { return embedded->has(object); }

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

// The id of the address. If it is new, enters it under the next id and returns true.
[[gnu::always_inline]] inline bool fxBinaryWriter::idOf(const void* address, unsigned int& id,
                                                        unsigned int mark) {
    bool isNew = false;
    unsigned int& entry = seen->at(address, isNew);
    id = isNew ? nextId++ : idIn(entry);
    if (isNew || entry < marked) entry = withMark(id, mark);
    return isNew;
}

// Writes a pointer to an address, which is not null.
[[gnu::always_inline]] inline bool fxBinaryWriter::refer(const void* slot, fxTypeObj& declared,
                                                         fxXDRObj* object, const void* address,
                                                         unsigned int mark) {
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
