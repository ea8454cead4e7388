#include "Json.h"

#include <string_view>

#include "fxds/BinaryTranscriber.h"

using namespace fxStreamParts;

namespace {

std::string quotedJson(std::string_view bytes) {
    std::string text = "\"";
    for (const char c : bytes) {
        const unsigned int byte = static_cast<unsigned char>(c);
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\u%04x", byte);
        const bool isPlain = byte >= 0x20 && byte < 0x7F && c != '"' && c != '\\';
        text += isPlain ? std::string(1, c) : escape;
    }
    return text + '"';
}

std::string hexJson(std::string_view bytes) {
    std::string text = "\"";
    for (const char c : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(c));
        text += digits;
    }
    return text + '"';
}

std::string member(const char* name, size_t number) {
    return std::string(", \"") + name + "\": " + std::to_string(number);
}

std::string member(const char* name, const std::string& value) {
    return std::string(", \"") + name + "\": " + value;
}

}  // namespace

void Json::begin(const std::string& name) {
    std::fprintf(out, R"({"file": %s, "header": )", quotedJson(name).c_str());
}

void Json::header(const Header& header) {
    const std::string marks =
        member("shortMark", header.shortMark) + member("longMark", header.longMark);
    std::fprintf(out, "{\"writer\": %s, \"floats\": %s%s},\n \"records\": [",
                 quotedJson(header.writer).c_str(), quotedJson(header.floats).c_str(),
                 marks.c_str());
    records = 1;
}

void Json::record(const StreamWalk& walk, const Record& record) {
    std::string text = "{\"offset\": " + std::to_string(record.at) + member("tag", record.tag) +
                       member("name", quotedJson(fxRecordFormat::tagName(record.tag)));
    if (fxRecordFormat::fieldBytes[record.tag] > 0) text += member("id", record.id);
    if (record.tag == fxTagType) text += member("type", quotedJson(record.name));
    if (record.tag == fxTagObject) {
        text += member("typeId", record.typeId) +
                member("type", quotedJson(walk.typeName(record.typeId))) +
                member("version", record.version) +
                member("isRoot", walk.isAtRoot() ? "true" : "false");
    }
    if (record.tag == fxTagBlock || fxRecordFormat::isContents(record.tag)) {
        text += member("bytes", record.byteCount);
    }
    if (walk.owner() != 0 && !fxRecordFormat::isContents(record.tag) && record.tag != fxTagObject) {
        text += member("object", walk.owner());
    }
    if (record.tag == fxTagBytes) text += member("text", quotedJson(record.payload));
    if (!record.payload.empty()) text += member("payload", hexJson(record.payload));
    std::fprintf(out, "%s\n  %s}", records++ == 1 ? "" : ",", text.c_str());
}

void Json::fault(const StreamWalk&, const fxStreamFault& fault) {
    faults += (faults.empty() ? "\n  {\"offset\": " : ",\n  {\"offset\": ") +
              std::to_string(fault.offset) + member("record", quotedJson(fault.record)) +
              member("class", quotedJson(fault.className)) +
              member("reason", quotedJson(fault.reason)) + '}';
}

void Json::end() {
    if (records == 0) std::fputs("null,\n \"records\": [", out);
    std::fprintf(out, "],\n \"faults\": [%s]}\n", faults.c_str());
}
