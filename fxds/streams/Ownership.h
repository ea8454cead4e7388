// Which object of a graph owns which, for a limit to the depth of it.
#ifndef FXDS_STREAMS_OWNERSHIP_H
#define FXDS_STREAMS_OWNERSHIP_H

#include <algorithm>
#include <vector>

/// The objects that have an owner, with it. Owned objects end inside their owners, so a
/// graph may not have more levels of them than a stack has room for, in whatever order its
/// objects were met. An object has one owner at most, so the levels are found by walking up.
class fxOwnership {
public:
    /// Levels that end inside one another. With a sanitizer and without optimisation a level
    /// takes up to 550 bytes, so these take 5.5 of the usual 8 MB.
    static constexpr unsigned int most = 10000;
    static constexpr char tooDeep[] = "objects that own one another more than 10000 deep";

    /// The object with the number `owned` has an owner, with the number `owner`, or 0 for the
    /// program. Between the two are `levels` levels, at least one.
    void add(unsigned int owned, unsigned int owner, unsigned int levels) {
        edges.push_back({owned, owner, levels, 0});
    }

    /// Whether no object is more than `most` levels deep, nor owned by itself, directly or
    /// not. Forgets them all. Takes no time where nothing is owned.
    bool isShallow() {
        std::vector<Edge> all;
        all.swap(edges);
        const auto isBefore = [](const Edge& a, const Edge& b) { return a.owned < b.owned; };
        if (!std::is_sorted(all.begin(), all.end(), isBefore)) {
            std::sort(all.begin(), all.end(), isBefore);
        }
        std::vector<Edge*> path;
        for (Edge& each : all) {
            for (Edge* at = &each; at != nullptr && at->depth == 0; at = edgeTo(all, at->owner)) {
                path.push_back(at);
                if (path.size() > most) return false;
            }
            for (; !path.empty(); path.pop_back()) {
                const Edge* const outer = edgeTo(all, path.back()->owner);
                path.back()->depth = path.back()->levels + (outer != nullptr ? outer->depth : 0);
                if (path.back()->depth > most) return false;
            }
        }
        return true;
    }

    void clear() { edges.clear(); }

private:
    struct Edge {
        unsigned int owned;
        unsigned int owner;
        unsigned int levels;
        unsigned int depth;  // 0: not known yet
    };

    static Edge* edgeTo(std::vector<Edge>& all, unsigned int owned) {
        const auto found = std::lower_bound(
            all.begin(), all.end(), owned,
            [](const Edge& edge, unsigned int wanted) { return edge.owned < wanted; });
        return found != all.end() && found->owned == owned ? &*found : nullptr;
    }

    std::vector<Edge> edges;
};

#endif
