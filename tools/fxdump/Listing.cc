#include "Listing.h"

#include <algorithm>

#include "Text.h"
#include "fxds/BinaryTranscriber.h"

using namespace fxStreamParts;

namespace {

constexpr size_t shortPayload = 4 * bytesPerLine;

std::string hexText(unsigned long number) {
    char text[2 * sizeof number + 1];
    std::snprintf(text, sizeof text, "%lx", number);
    return text;
}

// The target of a pointer: "#4: Node at offset 120".
std::string target(const StreamWalk& walk, const Record& record) {
    const Entry* const entry = walk.find(record.id);
    std::string text = idText(record.id) + ": ";
    if (entry == nullptr || entry->kind == Entry::unknown) return text + "still to come";
    const std::string_view type = walk.typeName(entry->typeId);
    text += entry->kind == Entry::object && !type.empty() ? quoted(type) : kindName(entry->kind);
    return text + " at offset " + std::to_string(entry->definedAt);
}

std::string objectText(const StreamWalk& walk, const Record& record) {
    return idText(record.id) + ": " + quoted(walk.typeName(record.typeId)) + " (type " +
           idText(record.typeId) + "), version " + std::to_string(record.version) +
           (walk.isAtRoot() ? ", begins a graph" : "");
}

std::string fieldsText(const StreamWalk& walk, const Record& record, size_t nameLimit) {
    switch (record.tag) {
        case fxTagData:
        case fxTagNull:
            return "";
        case fxTagType:
            return idText(record.id) + ": " + quoted(record.name, nameLimit);
        case fxTagBlock:
            return target(walk, record) + ", " + counted(record.byteCount, "byte");
        case fxTagObject:
            return objectText(walk, record);
        case fxTagPart:
            return idText(record.id) + " of " + idText(walk.owner());
        case fxTagBlockAgain:
        case fxTagPointer:
        case fxTagPointerAgain:
        case fxTagPartAgain:
            return target(walk, record);
        default:
            return idText(record.id) + ", " + counted(record.byteCount, "byte");
    }
}

}  // namespace

Listing::Listing(FILE* file, bool isFull_) : out(file), isFull(isFull_) {}

void Listing::header(const Header& header) {
    line(0, "   header", "writer " + quoted(header.writer));
    line(header.floatsAt, "", "floats " + quoted(header.floats));
    line(header.shortMarkAt, "", "short mark " + hexText(header.shortMark));
    line(header.longMarkAt, "", "long mark " + hexText(header.longMark));
}

void Listing::record(const StreamWalk& walk, const Record& record) {
    if (record.fillers > 0) {
        line(record.at - record.fillers, "   filler", counted(record.fillers, "zero byte"));
    }
    char tag[32];
    std::snprintf(tag, sizeof tag, "%2u %s", record.tag, fxRecordFormat::tagName(record.tag));
    std::string what = fieldsText(walk, record, isFull ? std::string::npos : shortPayload);
    if (walk.filling() != 0 && record.tag == fxTagData) what = "of " + idText(walk.filling());
    if (!record.payload.empty()) {
        what += (what.empty() ? "" : "; ") + counted(record.payload.size(), "byte") + " of payload";
    }
    line(record.at, tag, what);
    payload(record.payloadAt, record.payload);
}

void Listing::fault(const StreamWalk&, const fxStreamFault& fault) {
    line(fault.offset, "!! fault", fault.reason);
}

void Listing::rest(size_t offset, std::string_view bytes) {
    line(offset, "   lost", counted(bytes.size(), "byte") + " that cannot be taken apart");
    payload(offset, bytes);
}

// Private functions.

void Listing::line(size_t offset, const char* tag, const std::string& what) {
    std::fprintf(out, "%8zu  %-*s%s%s\n", offset, what.empty() ? 0 : 17, tag,
                 what.empty() ? "" : " ", what.c_str());
}

void Listing::payload(size_t offset, std::string_view bytes) {
    const size_t shown = isFull ? bytes.size() : std::min(bytes.size(), shortPayload);
    for (size_t at = 0; at < shown; at += bytesPerLine) {
        const std::string_view part = bytes.substr(at, std::min(bytesPerLine, shown - at));
        std::fprintf(out, "%8zu      %s\n", offset + at, dumped(part).c_str());
    }
    if (shown == bytes.size()) return;
    std::fprintf(out, "%8zu      ... %s more\n", offset + shown,
                 counted(bytes.size() - shown, "byte").c_str());
}
