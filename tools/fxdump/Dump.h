// What the tool does with a stream once it has it.
#ifndef FXDUMP_DUMP_H
#define FXDUMP_DUMP_H

#include <cstdio>
#include <string>
#include <string_view>

enum class DumpMode { listing, graph, json, check };

/// Prints the stream to `out`, as a listing, as a graph or as JSON, or whether it is
/// valid. Returns false when it was checked and has a fault. Does nothing to the
/// stream and makes none of its objects; any bytes at all will do. `name` is
/// what a check calls the stream.
bool dumpStream(std::string_view stream, const std::string& name, DumpMode mode, bool isFull,
                FILE* out);

#endif
