// The records of a binary stream, in file order.
#ifndef FXDS_STREAMS_RECORDPARSER_H
#define FXDS_STREAMS_RECORDPARSER_H

#include <cstddef>
#include <string>
#include <string_view>

#include "fxds/StreamFault.h"
#include "fxds/streams/RecordFormat.h"

namespace fxStreamParts {

/// "1 byte", "2 bytes", ...
std::string counted(size_t count, const char* what);

/// Access to the bytes of a stream. They need not all be in memory.
class StreamBytes {
public:
    virtual ~StreamBytes();

    virtual size_t size() const = 0;
    /// Up to `count` bytes from `offset` on, fewer at the end of the stream. View:
    /// good until the next call.
    virtual std::string_view at(size_t offset, size_t count) = 0;
    /// The same, good for as long as this; empty when they are not in memory.
    virtual std::string_view held(size_t offset, size_t count) = 0;
};

/// The header of a stream.
struct Header {
    std::string writer;
    std::string floats;
    unsigned short shortMark = 0;
    unsigned long longMark = 0;
    size_t floatsAt = 0;  ///< Offsets of the fields; the writer's name is at 0.
    size_t shortMarkAt = 0;
    size_t longMarkAt = 0;
    size_t end = 0;
};

/// Reads the header. False when the stream ends in it, or a name in it is too long.
bool parseHeader(StreamBytes& stream, Header& header);

/// One record. Fields that its tag does not have are 0.
struct Record {
    size_t at = 0;       ///< Offset of its first byte.
    size_t fillers = 0;  ///< Zero bytes that fill the id of the record before.
    unsigned int tag = 0;
    unsigned int id = 0;
    unsigned int typeId = 0;
    unsigned int version = 0;
    unsigned int byteCount = 0;
    std::string name;
    size_t payloadAt = 0;
    size_t payloadBytes = 0;
    std::string_view payload;  ///< Empty when it is not held in memory.
};

/// Takes a stream apart, one record after the other, and never looks outside of it.
/// Relations between records are not its concern.
class RecordParser {
public:
    enum Outcome { found, ended, lost };

    /// `stream` is borrowed; `at` is where its first record begins.
    RecordParser(StreamBytes& stream, size_t at);

    /// Takes the next record. Returns `ended` when the stream ends where a record might
    /// begin. Returns `lost` when the rest, from `record.at` on, cannot be taken apart;
    /// complaint() then returns the reason, and complaintKind() its kind.
    Outcome next(Record& record);

    const std::string& complaint() const { return complaint_; }
    fxStreamFault::Kind complaintKind() const { return kind; }

private:
    Outcome lose(const Record& record, fxStreamFault::Kind newKind, std::string why);
    bool takeName(std::string& name);
    unsigned char byteAt(size_t at) const;
    size_t left() const { return stream.size() - cursor; }

    StreamBytes& stream;
    size_t cursor;
    fxRecordFormat::Filler filler;
    std::string complaint_;
    fxStreamFault::Kind kind = fxStreamFault::none;
};

}  // namespace fxStreamParts

#endif
