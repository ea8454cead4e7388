// Draws the objects of a stream and what they point to, for Graphviz.
#ifndef FXDUMP_GRAPH_H
#define FXDUMP_GRAPH_H

#include <cstdio>

#include "fxds/streams/StreamWalk.h"

/// A digraph in the language of Graphviz: objects as ellipses (roots doubled),
/// blocks and texts as boxes, base parts as dashed boxes at their object; ids
/// without a definition are red. Faults are comments.
class Graph : public fxStreamParts::StreamVisitor {
public:
    /// `out` is borrowed.
    explicit Graph(FILE* out);

    void begin();
    void record(const fxStreamParts::StreamWalk& walk,
                const fxStreamParts::Record& record) override;
    void fault(const fxStreamParts::StreamWalk& walk, const fxStreamFault& fault) override;
    void end(const fxStreamParts::StreamWalk& walk);

private:
    void node(unsigned int id, const std::string& label, const char* look);
    void edge(const fxStreamParts::StreamWalk& walk, unsigned int to, const char* look);

    FILE* out;
    bool hasStart;  // pointers outside of any object begin there
};

#endif
