#include "fxds/streams/RecordParser.h"

#include <cstring>
#include <utility>

#include "fxds/BinaryTranscriber.h"

// Heads are decoded as the library decodes them. What differs from its reader is
// what follows from a fault: this parser tells and lives on.

using namespace fxRecordFormat;

namespace fxStreamParts {

namespace {

// The text that begins at `at` and ends before a zero; `at` moves past that.
bool takeText(std::string_view stream, size_t& at, std::string_view& text) {
    const size_t end = stream.find('\0', at);
    if (end == std::string_view::npos) return false;
    text = stream.substr(at, end - at);
    at = end + 1;
    return true;
}

}  // namespace

std::string counted(size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// The marks tell the byte order of the writer when they are read in our own.
bool parseHeader(std::string_view stream, Header& header) {
    size_t at = 0;
    if (!takeText(stream, at, header.writer)) return false;
    header.floatsAt = at;
    if (!takeText(stream, at, header.floats)) return false;
    header.shortMarkAt = at;
    header.longMarkAt = at + sizeof header.shortMark;
    header.end = header.longMarkAt + sizeof header.longMark;
    if (header.end > stream.size()) return false;
    std::memcpy(&header.shortMark, stream.data() + header.shortMarkAt, sizeof header.shortMark);
    std::memcpy(&header.longMark, stream.data() + header.longMarkAt, sizeof header.longMark);
    return true;
}

RecordParser::RecordParser(std::string_view bytes, size_t at) : stream(bytes), cursor(at) {}

RecordParser::Outcome RecordParser::next(Record& record) {
    record = Record();
    while (left() > 0 && filler.takes(byteAt(cursor))) {
        ++cursor;
        ++record.fillers;
    }
    if (left() == 0) return ended;
    record.at = cursor;
    unsigned char bytes[maxHeadBytes] = {};
    stream.copy(reinterpret_cast<char*>(bytes), sizeof bytes, cursor);
    const Head head = decode(bytes);
    record.tag = head.tag;
    if (head.tag >= tagCount) {
        return lose(record, fxStreamFault::damaged,
                    "tag " + std::to_string(head.tag) + " does not exist");
    }
    const size_t size = size_t{headBytes.of[bytes[0]]} + filler.bytesIn(head.tag);
    if (left() < size)
        return lose(record, fxStreamFault::ended, "the stream ends within the head of a record");
    cursor += size;
    if (fieldBytes[head.tag] > 0) record.id = head.id();
    if (head.tag == fxTagObject) {
        record.typeId = head.typeId();
        record.version = head.version();
    } else if (head.tag == fxTagBlock || isContents(head.tag)) {
        record.byteCount = head.byteCount();
    } else if (head.tag == fxTagType && !takeText(stream, cursor, record.name)) {
        return lose(record, fxStreamFault::ended, "the name of the type has no end");
    }
    if (left() < head.payloadBytes) {
        return lose(record, fxStreamFault::ended,
                    "the record claims " + counted(head.payloadBytes, "byte") + " of payload and " +
                        counted(left(), "byte") + " follow");
    }
    record.payloadAt = cursor;
    record.payload = stream.substr(cursor, head.payloadBytes);
    cursor += head.payloadBytes;
    filler.follow(head);
    return found;
}

RecordParser::Outcome RecordParser::lose(const Record& record, fxStreamFault::Kind newKind,
                                         std::string why) {
    kind = newKind;
    complaint_ = std::move(why);
    cursor = record.at;
    return lost;
}

unsigned char RecordParser::byteAt(size_t at) const {
    return static_cast<unsigned char>(stream[at]);
}

}  // namespace fxStreamParts
