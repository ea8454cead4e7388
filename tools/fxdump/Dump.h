// The operations of the tool on a stream.
#ifndef FXDUMP_DUMP_H
#define FXDUMP_DUMP_H

#include <cstdio>
#include <string>
#include <string_view>

enum class DumpMode { listing, graph, json, check };

struct DumpOptions {
    DumpMode mode = DumpMode::listing;
    bool isFull = false;          ///< Listings show long payloads in full.
    bool isOneOfSeveral = false;  ///< Listings and graphs show the stream's name.
};

/// `noStream`: the bytes do not begin as a stream does, and nothing was printed.
/// `faulty`: a check found a fault.
enum class DumpResult { done, faulty, noStream };

/// Whether a stream may begin with these bytes, which are some of it. False for none.
bool mayBeStream(std::string_view bytes);

/// Prints the stream to `out`, as a listing, as a graph or as JSON, or whether it is valid.
/// Does not change the stream and makes none of its objects; the bytes may be arbitrary.
/// `name` is the name of the stream.
DumpResult dumpStream(std::string_view stream, const std::string& name, const DumpOptions& options,
                      FILE* out);

#endif
