#include "Graph.h"

#include "Text.h"
#include "fxds/BinaryTranscriber.h"

using namespace fxStreamParts;

namespace {

constexpr size_t labelBytes = 24;

// Within a label, backslashes and quotes are escaped once more.
std::string labelText(const std::string& text) {
    std::string label;
    for (const char c : text) {
        if (c == '\\' || c == '"') label += '\\';
        label += c;
    }
    return label;
}

std::string contentsText(const Record& record) {
    if (record.tag != fxTagBytes) {
        return counted(record.byteCount, "byte") + " of " + fxRecordFormat::tagName(record.tag);
    }
    std::string_view text = record.payload;
    if (!text.empty() && text.back() == '\0') text.remove_suffix(1);
    return '"' + escaped(text, labelBytes) + '"';
}

}  // namespace

Graph::Graph(FILE* file) : out(file), hasStart(false) {}

void Graph::begin() { std::fputs("digraph stream {\n", out); }

void Graph::record(const StreamWalk& walk, const Record& record) {
    if (walk.filling() != 0 && record.tag == fxTagData) return;
    switch (record.tag) {
        case fxTagObject:
            node(record.id, escaped(walk.typeName(record.typeId), labelBytes),
                 walk.isAtRoot() ? "peripheries=2" : "shape=ellipse");
            break;
        case fxTagPart:
            node(record.id, "base part", "shape=box style=dashed");
            edge(walk, record.id, " [style=dashed]");
            break;
        case fxTagBlock:
        case fxTagBlockAgain:
        case fxTagPointer:
        case fxTagPointerAgain:
            edge(walk, record.id, "");
            break;
        default:
            if (fxRecordFormat::isContents(record.tag))
                node(record.id, contentsText(record), "shape=box");
    }
}

void Graph::fault(const StreamWalk&, const fxStreamFault& fault) {
    std::fprintf(out, "    // fault at offset %zu: %s\n", fault.offset, fault.reason.c_str());
}

void Graph::end(const StreamWalk& walk) {
    for (const auto& [id, entry] : walk.entries()) {
        if (entry.kind == Entry::unknown && entry.awaited != Entry::unknown) {
            node(id, "missing", "color=red fontcolor=red");
        }
    }
    if (hasStart) std::fputs("    start [shape=point];\n", out);
    std::fputs("}\n", out);
}

// Private functions.

void Graph::node(unsigned int id, const std::string& label, const char* look) {
    std::fprintf(out, "    n%u [label=\"%s %s\" %s];\n", id, idText(id).c_str(),
                 labelText(label).c_str(), look);
}

void Graph::edge(const StreamWalk& walk, unsigned int to, const char* look) {
    hasStart |= walk.owner() == 0;
    const std::string from = walk.owner() == 0 ? "start" : "n" + std::to_string(walk.owner());
    std::fprintf(out, "    %s -> n%u%s;\n", from.c_str(), to, look);
}
