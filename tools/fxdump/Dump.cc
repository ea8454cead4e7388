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
        complaint = fault.place() + ": " + fault.reason;
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

// Whether the bytes begin as every stream does; one that is cut off has fewer of them.
DumpResult checkStream(std::string_view stream, const std::string& name, FILE* out) {
    Check check;
    StreamWalk walk(check);
    walk.run(stream);
    const bool isValid = check.complaint.empty();
    std::fprintf(out, "%s: %s\n", name.c_str(),
                 isValid ? ("valid: " + summary(walk)).c_str() : check.complaint.c_str());
    return isValid ? DumpResult::done : DumpResult::faulty;
}

}  // namespace

bool mayBeStream(std::string_view bytes) {
    static constexpr char writer[] = "fxBinaryWriter";
    const std::string_view begin(writer, sizeof writer);
    return !bytes.empty() && bytes.substr(0, begin.size()) == begin.substr(0, bytes.size());
}

DumpResult dumpStream(std::string_view stream, const std::string& name, const DumpOptions& options,
                      FILE* out) {
    if (!mayBeStream(stream)) return DumpResult::noStream;
    const std::string shownName = escaped(name, std::string::npos);
    if (options.mode == DumpMode::listing) {
        if (options.isOneOfSeveral) std::fprintf(out, "%s:\n", shownName.c_str());
        Listing listing(out, options.isFull);
        StreamWalk(listing).run(stream);
    } else if (options.mode == DumpMode::graph) {
        if (options.isOneOfSeveral) std::fprintf(out, "// %s\n", shownName.c_str());
        Graph graph(out);
        StreamWalk walk(graph);
        graph.begin();
        walk.run(stream);
        graph.end(walk);
    } else if (options.mode == DumpMode::json) {
        Json json(out);
        json.begin(name);
        StreamWalk(json).run(stream);
        json.end();
    } else {
        return checkStream(stream, shownName, out);
    }
    return DumpResult::done;
}
