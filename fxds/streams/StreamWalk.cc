#include "fxds/streams/StreamWalk.h"

#include <algorithm>
#include <utility>

#include "fxds/BinaryTranscriber.h"
#include "fxds/streams/StreamMarks.h"

// The rules are those of fxBinaryReader, as far as they can be checked without
// the classes: which ids are defined and as which kind, and in which order the
// kinds of records may come. An object's fields end where the next object or
// contents begin. A graph is complete when all ids that were mentioned are
// defined; then an object must begin the next.
//
// The fields of a class are not known here. A record is therefore taken
// literally, although a reader that wants a number takes the payload of
// whatever record comes. The contents of blocks do have a known length, and are
// counted as the reader counts them.
//
// After a fault the walk goes on as if the offending record were absent.
//
// Invariants, between any two records:
// (1) awaited_ is the number of entries that were mentioned and are not
//     defined.
// (2) `missing` bytes of the contents of block filling_ are still to come. If
//     it is not 0, the payload of every record counts towards them.
// (3) An entry, once defined, keeps its kind. Entries are never removed.
// (4) An entry has a place in the stream that a fault can name: definedAt once it is
//     defined, mentionedAt if a pointer came before.
// (5) owner_ is the object whose fields are read, or 0 behind the contents of a block.
//     filling_ is the block whose contents are read; it stays until a record that is not
//     part of them.
// (6) roots_ is the number of objects that began a graph: the first one, and each that came
//     while nothing was awaited.
//
// The visitor gets the walk as const: record() before the record has changed anything,
// fault() while it does.

using namespace fxRecordFormat;
using namespace fxStreamMarks;

namespace fxStreamParts {

namespace {

std::string idText(unsigned int id) { return "id " + std::to_string(id); }

std::string atText(size_t offset) { return " at offset " + std::to_string(offset); }

}  // namespace

const char* kindName(Entry::Kind kind) {
    static constexpr const char* names[] = {"unknown", "a type", "a block", "an object",
                                            "a base part"};
    return names[kind];
}

StreamVisitor::~StreamVisitor() = default;
void StreamVisitor::header(const Header&) {}
void StreamVisitor::record(const StreamWalk&, const Record&) {}
void StreamVisitor::fault(const StreamWalk&, const fxStreamFault&) {}
void StreamVisitor::rest(size_t, std::string_view) {}

void StreamWalk::run(std::string_view bytes) {
    class InMemory : public StreamBytes {
    public:
        explicit InMemory(std::string_view bytes_) : bytes(bytes_) {}
        size_t size() const override { return bytes.size(); }
        std::string_view at(size_t offset, size_t count) override {
            return offset < bytes.size() ? bytes.substr(offset, count) : std::string_view();
        }
        std::string_view held(size_t offset, size_t count) override { return at(offset, count); }

    private:
        const std::string_view bytes;
    } stream(bytes);
    run(stream);
}

void StreamWalk::run(StreamBytes& stream) {
    Header header;
    if (!parseHeader(stream, header)) {
        static constexpr char begin[] = "fxBinaryWriter\0ieee";
        const std::string_view own(begin, sizeof begin);
        const std::string_view begun = stream.at(0, own.size());
        if (begun == own.substr(0, begun.size())) {
            fault(fxStreamFault::ended, stream.size(), "the stream ends within its header");
        } else {
            fault(fxStreamFault::foreign, 0, "not a stream of fxBinaryWriter");
        }
        visitor.rest(0, stream.held(0, stream.size()));
        return;
    }
    visitor.header(header);
    checkHeader(header);
    RecordParser parser(stream, header.end);
    Record record;
    RecordParser::Outcome outcome = RecordParser::ended;
    bool isEmpty = false;
    while ((outcome = parser.next(record)) == RecordParser::found) {
        // A zero byte is the head of an empty data record, which readers pass over and the
        // library's writer never makes. Two in a row, or one behind a complete graph, are
        // taken for the zeros of a file whose end was never written.
        const bool isBehindEmpty =
            std::exchange(isEmpty, record.tag == fxTagData && record.payloadBytes == 0);
        if (isEmpty && (isBehindEmpty || isComplete())) {
            recordName = "";
            fault(record.at, "zeros where a record must begin");
            return visitor.rest(record.at, stream.held(record.at, stream.size() - record.at));
        }
        ++records_;
        recordName = tagName(record.tag);
        visitor.record(*this, record);
        take(record);
    }
    if (outcome == RecordParser::lost) {
        recordName = "";
        fault(parser.complaintKind(), record.at, parser.complaint());
        visitor.rest(record.at, stream.held(record.at, stream.size() - record.at));
    } else {
        finish(stream.size());
    }
}

const Entry* StreamWalk::find(unsigned int id) const {
    const auto found = entries_.find(id);
    return found != entries_.end() ? &found->second : nullptr;
}

std::string_view StreamWalk::typeName(unsigned int typeId) const {
    const Entry* const type = find(typeId);
    return type != nullptr ? type->name : std::string_view();
}

// Private functions.

void StreamWalk::checkHeader(const Header& header) {
    if (header.writer != "fxBinaryWriter")
        fault(fxStreamFault::foreign, 0, "not a stream of fxBinaryWriter");
    if (!isFloatFormat(header.floats)) {
        fault(fxStreamFault::foreign, header.floatsAt,
              "unsupported format of floating-point numbers");
    }
    if (shortOrder(header.shortMark) == Order::unknown) {
        fault(fxStreamFault::foreign, header.shortMarkAt,
              "a short mark that no supported machine writes");
    }
    if (longOrder(header.longMark) == Order::unknown) {
        fault(fxStreamFault::foreign, header.longMarkAt,
              "a long mark that no supported machine writes");
    }
}

void StreamWalk::take(const Record& record) {
    hasContent |= record.tag != fxTagType;
    if (missing > 0) return takeContinuation(record);
    filling_ = 0;
    switch (record.tag) {
        case fxTagData:
        case fxTagNull:
            break;
        case fxTagType:
            define(record, Entry::type);
            break;
        case fxTagBlock:
            if (record.byteCount > maxBlockBytes) {
                fault(record.at, "an impossible number of bytes for a block");
            }
            mention(record, Entry::block);
            break;
        case fxTagBlockAgain:
            mention(record, Entry::block);
            break;
        case fxTagObject:
            takeObject(record);
            break;
        case fxTagPointer:
        case fxTagPointerAgain:
            mention(record, Entry::object);
            break;
        case fxTagPart:
        case fxTagPartAgain:
            takePart(record);
            break;
        default:
            takeContents(record);
    }
}

// A reader takes the payload of any record as more contents. Only a type also
// has its normal effect.
void StreamWalk::takeContinuation(const Record& record) {
    missing -= std::min(missing, record.payloadBytes);
    if (record.tag == fxTagType) define(record, Entry::type);
}

void StreamWalk::takeContents(const Record& record) {
    if (isAtRoot()) fault(record.at, "the contents of a block where an object must begin a graph");
    owner_ = 0;
    if (record.byteCount > maxBlockBytes) {
        fault(record.at, "an impossible number of bytes for a block");
    } else {
        missing = record.byteCount - std::min<size_t>(record.byteCount, record.payloadBytes);
        filling_ = record.id;
    }
    define(record, Entry::block);
}

void StreamWalk::takeObject(const Record& record) {
    const Entry* const type = find(record.typeId);
    if (type == nullptr || type->kind != Entry::type) {
        fault(record.at, "the type of the object, " + idText(record.typeId) + ", is not a type");
    }
    // Before define(), which may end the wait for this very id.
    if (isAtRoot()) ++roots_;
    define(record, Entry::object);
    owner_ = record.id;
}

void StreamWalk::takePart(const Record& record) {
    if (record.tag == fxTagPart) return define(record, Entry::part);
    const Entry* const entry = find(record.id);
    if (entry == nullptr || entry->kind != Entry::part) {
        fault(record.at, idText(record.id) + " is not a base part seen before");
    }
}

// The first mention of an undefined id awaits it; later ones are compared with the kind
// that it wants. A pointer to an object may lead to a base part.
void StreamWalk::mention(const Record& record, Entry::Kind wanted) {
    if (record.id == 0) return fault(record.at, "a pointer to id 0, which no record can define");
    Entry& entry = entries_[record.id];
    if (entry.kind == Entry::unknown && entry.awaited == Entry::unknown) {
        entry.awaited = wanted;
        entry.mentionedAt = record.at;
        ++awaited_;
        return;
    }
    const bool isDefined = entry.kind != Entry::unknown;
    const Entry::Kind kind = isDefined ? entry.kind : entry.awaited;
    const bool fits = kind == wanted || (kind == Entry::part && wanted == Entry::object);
    if (fits) return;
    fault(record.at, "a pointer to " + std::string(kindName(wanted)) + ", " + idText(record.id) +
                         ", which is " + kindName(kind) + " since offset " +
                         std::to_string(isDefined ? entry.definedAt : entry.mentionedAt));
}

void StreamWalk::define(const Record& record, Entry::Kind kind) {
    if (record.id == 0) return fault(record.at, "a definition of id 0");
    Entry& entry = entries_[record.id];
    if (entry.kind != Entry::unknown) {
        return fault(record.at, idText(record.id) + " is defined already, as " +
                                    kindName(entry.kind) + atText(entry.definedAt));
    }
    if (entry.awaited != Entry::unknown) {
        --awaited_;
        if (entry.awaited != kind) {
            fault(record.at, idText(record.id) + " is defined as " + kindName(kind) +
                                 "; the pointer" + atText(entry.mentionedAt) + " wants " +
                                 kindName(entry.awaited));
        }
    }
    entry.kind = kind;
    entry.definedAt = record.at;
    entry.typeId = record.typeId;
    entry.name = record.name;
}

void StreamWalk::finish(size_t end) {
    if (!hasContent) fault(fxStreamFault::ended, end, "the stream ends before its first object");
    if (missing > 0) {
        fault(fxStreamFault::ended, end,
              "the stream ends within the contents of " + idText(filling_) + ", which lack " +
                  counted(missing, "byte"));
    }
    if (awaited_ == 0) return;
    const Entry* first = nullptr;
    unsigned int firstId = 0;
    for (const auto& [id, entry] : entries_) {
        if (entry.kind != Entry::unknown) continue;
        if (first == nullptr || entry.mentionedAt < first->mentionedAt) {
            first = &entry;
            firstId = id;
        }
    }
    fault(fxStreamFault::ended, end,
          "the stream ends before " + idText(firstId) + ", " + kindName(first->awaited) +
              " that the pointer" + atText(first->mentionedAt) + " leads to");
}

void StreamWalk::fault(fxStreamFault::Kind kind, size_t offset, const std::string& what) {
    fxStreamFault fault;
    fault.kind = kind;
    fault.offset = offset;
    fault.record = recordName;
    const Entry* const object = find(owner_);
    if (object != nullptr) fault.className = fxStreamFault::printable(typeName(object->typeId));
    fault.reason = what;
    visitor.fault(*this, fault);
}

}  // namespace fxStreamParts
