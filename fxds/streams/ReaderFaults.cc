#include "fxds/BinaryReader.h"

#include <cstdio>

#include "fxds/TypeObj.h"
#include "fxds/base/StreamTrace.h"
#include "fxds/streams/ReaderGraph.h"
#include "fxds/streams/RecordReader.h"
#include "fxds/streams/StreamMarks.h"

// Handling of faults in a stream. A fault is noted or fatal. Once one is noted, the records
// read as at the end of the stream, so that no operation needs to check for it. An object
// that recovers from a failure leaves records unread, which are passed over.

using namespace fxRecordFormat;
using namespace fxStreamMarks;

// Private functions.

std::string fxBinaryReader::headerComplaint(short shortMark, long longMark,
                                            const char* floatFormat) {
    // An unknown mark of either kind is reported with the long mark.
    char hex[20];
    std::snprintf(hex, sizeof hex, "%x", static_cast<unsigned int>(longMark));
    if (shortOrder(static_cast<unsigned short>(shortMark)) == Order::unknown) {
        return std::string("fxBinaryReader: unknown short ordering ") + hex;
    }
    if (longOrder(static_cast<unsigned long>(longMark)) == Order::unknown) {
        return std::string("fxBinaryReader: unknown long ordering ") + hex;
    }
    if (floatFormat == nullptr || !isFloatFormat(floatFormat)) {
        return std::string("fxBinaryReader: unsupported floating point format ") +
               (floatFormat != nullptr ? floatFormat : "(null)");
    }
    return "";
}

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

// The graph is left incomplete although nothing was refused.
void fxBinaryReader::noteEnd() {
    if (answer == nullptr || *answer) return;
    *answer = faultHere(records->hasFailed() ? fxStreamFault::ended : fxStreamFault::refused, "");
}

// A read that runs past the data of its object before the stream ends is caused by a wrong
// number in the stream, not by a truncated file.
fxStreamFault fxBinaryReader::faultHere(fxStreamFault::Kind kind, const char* message) const {
    fxStreamFault fault;
    records->sync();
    // If the stream has ended, that is why the class gave up.
    if (complaint != nullptr && kind != fxStreamFault::ended) fault = *complaint;
    if (fault.kind == fxStreamFault::none) fault.kind = kind;
    const bool hasRunOver =
        kind == fxStreamFault::ended && *message != '\0' && ranOverAt != noRecordAt;
    if (hasRunOver) fault.kind = fxStreamFault::damaged;
    fault.offset = headerBytes + (hasRunOver ? ranOverAt : records->recordAt());
    fault.record = fxRecordFormat::tagName(hasRunOver ? ranOverTag : records->head().tag);
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

// Passes over data that the previous body left unread.
bool fxBinaryReader::passToInstance() {
    do {
        if (!fill()) return false;
        if (hasFailed) noteMention();
    } while (head.tag == fxTagType || (head.tag == fxTagData && mayLeaveData) ||
             (hasFailed && !isContents(head.tag) && head.tag != fxTagObject));
    hasFailed = false;
    return true;
}

// A number that a skipped place names is awaited nevertheless, because its definition
// follows in the stream.
void fxBinaryReader::noteMention() {
    if (head.id() == 0) return;
    if (head.tag == fxTagBlock || head.tag == fxTagBlockAgain) {
        graph->awaitInVain(graph->at(head.id()), fxReaderEntry::awaitedBlock);
    } else if (head.tag == fxTagPointer || head.tag == fxTagPointerAgain) {
        graph->awaitInVain(graph->at(head.id()), fxReaderEntry::awaitedObject);
    } else if (head.tag == fxTagPart) {
        graph->definePassedPart(graph->at(head.id()));
    }
}
