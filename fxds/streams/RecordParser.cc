#include "fxds/streams/RecordParser.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "fxds/BinaryTranscriber.h"

// Heads are decoded as in the library's reader. Unlike that, this parser reports a fault
// and ends nothing.
//
// Invariants, between two calls of next():
// (1) The cursor is not behind the end of the stream: each advance is compared with what is
//     left.
// (2) After `lost` the cursor is at the record that cannot be taken apart. The rest is not
//     searched for another one: any byte could be a head.
// (3) No view of at() is kept: the next call may replace the bytes. Only held() gives
//     lasting ones.

using namespace fxRecordFormat;

namespace fxStreamParts {

namespace {

// Appends the text that begins at `at` and ends before a zero; `at` moves past that.
// Returns false when the stream has no such zero. The part beyond `longest` is passed over.
bool takeText(StreamBytes& stream, size_t& at, std::string& text, size_t longest) {
    constexpr size_t piece = 256;
    while (true) {
        const std::string_view bytes = stream.at(at, piece);
        const size_t end = bytes.find('\0');
        const size_t length = std::min(end, bytes.size());
        text.append(bytes.substr(0, std::min(length, longest - text.size())));
        at += length;
        if (bytes.empty()) return false;
        if (end == std::string_view::npos) continue;
        ++at;
        return true;
    }
}

}  // namespace

std::string counted(size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

StreamBytes::~StreamBytes() = default;

// The marks, read in our byte order, show that of the writer.
bool parseHeader(StreamBytes& stream, Header& header) {
    constexpr size_t longest = 1000;
    size_t at = 0;
    if (!takeText(stream, at, header.writer, longest)) return false;
    header.floatsAt = at;
    if (!takeText(stream, at, header.floats, longest)) return false;
    header.shortMarkAt = at;
    header.longMarkAt = at + sizeof header.shortMark;
    header.end = header.longMarkAt + sizeof header.longMark;
    if (header.end > stream.size()) return false;
    const std::string_view marks = stream.at(at, header.end - at);
    if (marks.size() < header.end - at) return false;
    std::memcpy(&header.shortMark, marks.data(), sizeof header.shortMark);
    std::memcpy(&header.longMark, marks.data() + sizeof header.shortMark, sizeof header.longMark);
    return true;
}

RecordParser::RecordParser(StreamBytes& bytes, size_t at) : stream(bytes), cursor(at) {}

RecordParser::Outcome RecordParser::next(Record& record) {
    record = Record();
    while (left() > 0 && filler.takes(byteAt(cursor))) {
        ++cursor;
        ++record.fillers;
    }
    if (left() == 0) return ended;
    record.at = cursor;
    unsigned char bytes[maxHeadBytes] = {};
    stream.at(cursor, sizeof bytes).copy(reinterpret_cast<char*>(bytes), sizeof bytes);
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
    } else if (head.tag == fxTagType && !takeName(record.name)) {
        return lose(record, fxStreamFault::ended, "the name of the type has no end");
    }
    if (left() < head.payloadBytes) {
        return lose(record, fxStreamFault::ended,
                    "the record claims " + counted(head.payloadBytes, "byte") + " of payload and " +
                        counted(left(), "byte") + " follow");
    }
    record.payloadAt = cursor;
    record.payloadBytes = head.payloadBytes;
    record.payload = stream.held(cursor, head.payloadBytes);
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

bool RecordParser::takeName(std::string& name) {
    constexpr size_t longest = size_t{1} << 24;  // as the reader keeps
    return takeText(stream, cursor, name, longest);
}

unsigned char RecordParser::byteAt(size_t at) const {
    const std::string_view byte = stream.at(at, 1);
    return byte.empty() ? 0 : static_cast<unsigned char>(byte[0]);
}

}  // namespace fxStreamParts
