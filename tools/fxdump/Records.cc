#include "Records.h"

#include <cstring>
#include <utility>

#include "Text.h"
#include "fxds/BinaryTranscriber.h"

// A parser of its own, beside that of fxBinaryReader: this one must live on
// where the reader ends the program.
//
//     head [length] fields [name] payload
//
// The head has the tag in its low six bits; the two others tell how many bytes
// the length has.

namespace {

struct Tag {
    const char* name;
    unsigned char fieldBytes;
};

constexpr Tag tags[] = {{"data", 0},          {"null", 0},    {"type", 4},      {"block", 8},
                        {"block again", 4},   {"bytes", 8},   {"shorts", 8},    {"longs", 8},
                        {"floats", 8},        {"doubles", 8}, {"object", 12},   {"pointer", 4},
                        {"pointer again", 4}, {"part", 4},    {"part again", 4}};
constexpr unsigned int tagCount = sizeof tags / sizeof *tags;
constexpr size_t fillerBytes = 4;
constexpr unsigned char lengthBytesOf[] = {0, 1, 2, 4};

bool hasOneId(unsigned int tag) {
    return tag == fxTagBlockAgain || (tag >= fxTagPointer && tag <= fxTagPartAgain);
}

// The text that begins at `at` and ends before a zero; `at` moves past that.
bool takeText(std::string_view stream, size_t& at, std::string_view& text) {
    const size_t end = stream.find('\0', at);
    if (end == std::string_view::npos) return false;
    text = stream.substr(at, end - at);
    at = end + 1;
    return true;
}

}  // namespace

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

bool isContents(unsigned int tag) { return tag >= fxTagBytes && tag <= fxTagDoubles; }

const char* tagName(unsigned int tag) { return tags[tag].name; }

RecordParser::RecordParser(std::string_view bytes, size_t at) : stream(bytes), cursor(at) {}

RecordParser::Outcome RecordParser::next(Record& record) {
    record = Record();
    unsigned int head = 0;
    if (!takeTag(record, head)) return ended;
    record.at = cursor - 1;
    record.tag = head & 0x3FU;
    if (record.tag >= tagCount) {
        return lose(record, "tag " + std::to_string(record.tag) + " does not exist");
    }
    const unsigned int lengthBytes = lengthBytesOf[head >> 6U];
    size_t fieldBytes = tags[record.tag].fieldBytes;
    if (hasWideIds && hasOneId(record.tag)) fieldBytes += fillerBytes;
    if (left() < lengthBytes + fieldBytes) {
        return lose(record, "the stream ends within the head of a record");
    }
    const unsigned int length = number(cursor, lengthBytes);
    const size_t fields = cursor + lengthBytes;
    cursor = fields + fieldBytes;
    if (fieldBytes >= 4) record.id = number(fields, 4);
    if (record.tag == fxTagObject) {
        record.typeId = number(fields + 4, 4);
        record.version = number(fields + 8, 4);
    } else if (record.tag == fxTagBlock || isContents(record.tag)) {
        record.byteCount = number(fields + 4, 4);
    } else if (record.tag == fxTagType && !takeText(stream, cursor, record.name)) {
        return lose(record, "the name of the type has no end");
    }
    if (left() < length) {
        return lose(record, "the record claims " + counted(length, "byte") + " of payload and " +
                                counted(left(), "byte") + " follow");
    }
    record.payloadAt = cursor;
    record.payload = stream.substr(cursor, length);
    cursor += length;
    fillersLeft = hasOneId(record.tag) && length == 0 && !hasWideIds ? fillerBytes : 0;
    return found;
}

// Zero bytes may stand here after an id, up to four. A record that begins with
// a zero would be one of data without data, which no writer makes.
bool RecordParser::takeTag(Record& record, unsigned int& head) {
    while (left() > 0) {
        head = static_cast<unsigned char>(stream[cursor++]);
        if (head != 0 || fillersLeft == 0) return true;
        ++record.fillers;
        if (--fillersLeft == 0) hasWideIds = true;
    }
    return false;
}

RecordParser::Outcome RecordParser::lose(const Record& record, std::string why) {
    complaint_ = std::move(why);
    cursor = record.at;
    return lost;
}

unsigned int RecordParser::number(size_t at, unsigned int byteCount) const {
    unsigned int value = 0;
    for (unsigned int i = byteCount; i-- > 0;) {
        value = value << 8U | static_cast<unsigned char>(stream[at + i]);
    }
    return value;
}
