#include "fxds/BinaryReader.h"
#include "fxds/TypeObj.h"
#include "fxds/base/StreamTrace.h"
#include "fxds/streams/ReaderGraph.h"
#include "fxds/streams/RecordReader.h"

// What the reader does about a stream that is wrong. A fault is noted or fatal;
// once it is noted, the records answer as at the end of the stream, so that no
// operation needs to ask whether there is one.

// Private functions.

bool fxBinaryReader::refuse(fxStreamFault::Kind kind, const char* message) {
    if (hasRefused()) return false;
    const fxStreamFault fault = faultHere(kind, message);
    records->fail();
    if (answer != nullptr) {
        *answer = fault;
        return false;
    }
    fault.end(message);
}

// Nothing was refused; the graph is left before it is complete.
void fxBinaryReader::noteEnd() {
    if (answer == nullptr || *answer) return;
    *answer = faultHere(records->hasFailed() ? fxStreamFault::ended : fxStreamFault::refused, "");
}

fxStreamFault fxBinaryReader::faultHere(fxStreamFault::Kind kind, const char* message) const {
    fxStreamFault fault;
    // A class that gives up does so because of the end, when there is one.
    if (complaint != nullptr && kind != fxStreamFault::ended) fault = *complaint;
    if (fault.kind == fxStreamFault::none) fault.kind = kind;
    fault.offset = headerBytes + records->recordAt();
    fault.record = fxRecordFormat::tagName(records->head().tag);
    if (fault.className.empty() && bodyType != nullptr) fault.className = bodyType->name;
    if (kind == fxStreamFault::unknownType)
        fault.className = fxStreamFault::printable(records->name());
    if (fault.reason.empty()) fault.reason = fxStreamFault::printable(message);
    return fault;
}

void fxBinaryReader::trace() const {
    const fxRecordFormat::Head& head_ = records->head();
    const char* className = bodyType != nullptr ? bodyType->name : nullptr;
    if (head_.tag == fxTagType) className = records->name();
    if (fxRecordFormat::isContents(head_.tag)) className = nullptr;
    if (head_.tag == fxTagObject) {
        const fxReaderEntry& type = graph->at(head_.typeId());
        className = type.kind() == fxReaderEntry::type ? type.record().name : nullptr;
    }
    fxStreamTrace::record("read", headerBytes + records->recordAt(),
                          fxRecordFormat::tagName(head_.tag),
                          fxRecordFormat::fieldBytes[head_.tag] > 0 ? head_.id() : 0, className);
}
