#include "Dump.h"

#include <map>

#include "Graph.h"
#include "Json.h"
#include "Listing.h"
#include "Text.h"
#include "fxds/streams/StreamWalk.h"

using namespace fxStreamParts;

namespace {

// Keeps the first fault.
class Check : public StreamVisitor {
public:
    void fault(const StreamWalk& walk, const fxStreamFault& fault) override {
        if (!complaint.empty()) return;
        complaint = "offset " + std::to_string(fault.offset) + ": " + fault.reason;
        if (walk.isComplete()) complaint += " (nothing is missing before that)";
    }

    std::string complaint;  // empty when there is none
};

std::string summary(const StreamWalk& walk) {
    std::map<Entry::Kind, size_t> count;
    for (const auto& [id, entry] : walk.entries()) ++count[entry.kind];
    return counted(walk.records(), "record") + ", " + counted(walk.roots(), "graph") + ", " +
           counted(count[Entry::object], "object") + ", " + counted(count[Entry::block], "block");
}

}  // namespace

bool dumpStream(std::string_view stream, const std::string& name, DumpMode mode, bool isFull,
                FILE* out) {
    if (mode == DumpMode::listing) {
        Listing listing(out, isFull);
        StreamWalk(listing).run(stream);
        return true;
    }
    if (mode == DumpMode::graph) {
        Graph graph(out);
        StreamWalk walk(graph);
        graph.begin();
        walk.run(stream);
        graph.end(walk);
        return true;
    }
    if (mode == DumpMode::json) {
        Json json(out);
        json.begin();
        StreamWalk(json).run(stream);
        json.end();
        return true;
    }
    Check check;
    StreamWalk walk(check);
    walk.run(stream);
    const bool isValid = check.complaint.empty();
    std::fprintf(out, "%s: %s\n", escaped(name, std::string::npos).c_str(),
                 isValid ? ("valid: " + summary(walk)).c_str() : check.complaint.c_str());
    return isValid;
}
