#include "flow/text/Circles.h"

#include <cstdint>

// A depth-first walk over the immediate connections, in the order of the text. A connection
// to an object on the current path closes a circle; without these connections no circle is
// left.

namespace {

class Walk {
public:
    Walk(const fxFlowText& flow_, const fxFlowIndex& index) : flow(flow_) {
        edges.resize(flow.objects.size());
        for (size_t i = 0; i < flow.connections.size(); ++i) {
            const fxFlowText::Connection& each = flow.connections[i];
            if (each.delivery != fxFlowDelivery::now) continue;
            const auto from = index.find(each.from.object.text);
            const auto to = index.find(each.to.object.text);
            if (from == index.end() || to == index.end()) continue;
            edges[from->second].push_back({i, to->second});
        }
    }

    std::vector<fxFlowCircle> circles() {
        depths.assign(edges.size(), unseen);
        for (size_t object = 0; object < edges.size(); ++object) {
            if (depths[object] == unseen && !edges[object].empty()) visit(object);
        }
        return std::move(found);
    }

private:
    struct Edge {
        size_t connection;
        size_t to;
    };
    struct Stage {
        size_t object;
        size_t nextEdge;
    };
    static constexpr size_t unseen = SIZE_MAX;
    static constexpr size_t done = SIZE_MAX - 1;

    void enter(size_t object) {
        depths[object] = way.size();
        way.push_back({object, 0});
    }

    void visit(size_t begin) {
        enter(begin);
        while (!way.empty()) {
            Stage& last = way.back();
            const std::vector<Edge>& leaving = edges[last.object];
            if (last.nextEdge == leaving.size()) {
                depths[last.object] = done;
                way.pop_back();
                continue;
            }
            const Edge edge = leaving[last.nextEdge++];
            if (depths[edge.to] == unseen) {
                enter(edge.to);
            } else if (depths[edge.to] != done) {
                found.push_back({edge.connection, wayFrom(edge.to)});
            }
        }
    }

    std::string wayFrom(size_t object) const {
        constexpr size_t most = 8;
        std::string text;
        for (size_t i = depths[object]; i < way.size(); ++i) {
            if (i == depths[object] + most) {
                text += "... -> ";
                break;
            }
            text += flow.objects[way[i].object].name.text + " -> ";
        }
        return text + flow.objects[object].name.text;
    }

    const fxFlowText& flow;
    std::vector<std::vector<Edge>> edges;  // of each object
    std::vector<size_t> depths;            // of each object: its place in `way`, unseen or done
    std::vector<Stage> way;
    std::vector<fxFlowCircle> found;
};

}  // namespace

fxFlowIndex fxFlowIndexOf(const fxFlowText& flow) {
    fxFlowIndex index(flow.objects.size());
    for (size_t i = 0; i < flow.objects.size(); ++i) index.emplace(flow.objects[i].name.text, i);
    return index;
}

std::vector<fxFlowCircle> fxFlowCircles(const fxFlowText& flow, const fxFlowIndex& index) {
    return Walk(flow, index).circles();
}

std::vector<size_t> fxFlowText::closingConnections() const {
    std::vector<size_t> closing;
    for (const fxFlowCircle& each : fxFlowCircles(*this, fxFlowIndexOf(*this))) {
        closing.push_back(each.connection);
    }
    return closing;
}
