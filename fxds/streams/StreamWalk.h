// Walks through a binary stream and records what each id is defined as.
#ifndef FXDS_STREAMS_STREAMWALK_H
#define FXDS_STREAMS_STREAMWALK_H

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

#include "fxds/streams/RecordParser.h"

namespace fxStreamParts {

/// The state of one id.
struct Entry {
    enum Kind { unknown, type, block, object, part };

    Kind kind = unknown;     ///< As which it was defined.
    Kind awaited = unknown;  ///< The kind that the first pointer to it wants: block or object.
    size_t definedAt = 0;
    size_t mentionedAt = 0;  ///< By the first pointer.
    unsigned int typeId = 0;
    std::string name;  ///< Of a type.
};

/// "a block", "an object", ...
const char* kindName(Entry::Kind kind);

class StreamWalk;

/// Receives everything in stream order. Faults of a record follow the record.
class StreamVisitor {
public:
    virtual ~StreamVisitor();

    virtual void header(const Header& header);
    /// Called before the record has taken effect on the tables of the walk.
    virtual void record(const StreamWalk& walk, const Record& record);
    /// `fault` has all but the path.
    virtual void fault(const StreamWalk& walk, const fxStreamFault& fault);
    /// From `offset` on, the stream cannot be taken apart. Called after a
    /// fault.
    virtual void rest(size_t offset, std::string_view bytes);
};

/// One pass over a stream. Memory grows only by one entry for each id that the
/// stream mentions.
class StreamWalk {
public:
    /// Borrowed.
    explicit StreamWalk(StreamVisitor& visitor_) : visitor(visitor_) {}

    void run(StreamBytes& stream);
    void run(std::string_view stream);  ///< The same of bytes in memory.

    const std::map<unsigned int, Entry>& entries() const { return entries_; }
    /// Null when the id has not been mentioned.
    const Entry* find(unsigned int id) const;
    /// The name of an object's type; empty when it is not known.
    std::string_view typeName(unsigned int typeId) const;

    unsigned int owner() const { return owner_; }      ///< The object whose fields come; or 0.
    unsigned int filling() const { return filling_; }  ///< The block whose contents go on; or 0.
    /// Whether the record, if it is an object, would begin a graph.
    bool isAtRoot() const { return roots_ == 0 || awaited_ == 0; }
    size_t roots() const { return roots_; }
    size_t records() const { return records_; }
    /// Whether a graph has begun and the graphs so far lack nothing.
    bool isComplete() const { return roots_ > 0 && awaited_ == 0 && missing == 0; }

private:
    void checkHeader(const Header& header);
    void take(const Record& record);
    void takeContinuation(const Record& record);
    void takeContents(const Record& record);
    void takeObject(const Record& record);
    void takePart(const Record& record);
    void mention(const Record& record, Entry::Kind wanted);
    void define(const Record& record, Entry::Kind kind);
    void finish(size_t end);
    void fault(fxStreamFault::Kind kind, size_t offset, const std::string& what);
    void fault(size_t offset, const std::string& what) {
        fault(fxStreamFault::damaged, offset, what);
    }

    StreamVisitor& visitor;
    std::map<unsigned int, Entry> entries_;
    size_t awaited_ = 0;  // ids mentioned and not defined
    size_t missing = 0;   // bytes of the contents that are to come
    size_t roots_ = 0;
    size_t records_ = 0;
    bool hasContent = false;  // any records but those of types
    unsigned int owner_ = 0;
    unsigned int filling_ = 0;
    const char* recordName = "header";
};

}  // namespace fxStreamParts

#endif
