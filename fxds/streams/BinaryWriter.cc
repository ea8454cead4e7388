#include "fxds/BinaryWriter.h"

#include <algorithm>
#include <cstring>
#include <typeinfo>

#include "fxds/Fatal.h"
#include "fxds/Str.h"
#include "fxds/Stream.h"
#include "fxds/XDRObj.h"
#include "fxds/base/FreeLists.h"
#include "fxds/base/Scoped.h"
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
//
// WriterPointers.cc writes pointers, WriterRecords.cc the records themselves.

using namespace fxRecordFormat;
using namespace fxWriterTargets;

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
      seen(std::make_unique<fxAddressIndex>()),
      parts(std::make_unique<fxAddressIndex>()),
      embedded(std::make_unique<fxAddressIndex>()),
      lengths(std::make_unique<fxAddressIndex>()),
      ownership(std::make_unique<fxOwnership>()),
      waiting(std::make_unique<fxWriterStack>()),
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

// No more than a reader counts at the same place, which has the head of the record being built.
size_t fxBinaryWriter::bytesPassed() const { return outgoing->total() + used; }

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

// Private functions.

bool fxBinaryWriter::failAtNumber() {
    fail();
    return refuse("more objects than a stream has numbers for");
}

void fxBinaryWriter::pushItem(fxBinaryWriterItem* item) {
    const unsigned int length = pending.length();
    if (length == pending.getMaxLength()) pending.setMaxLength(std::max(16U, 2 * length));
    pending.append(item);
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
