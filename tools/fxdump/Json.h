// Prints a stream as JSON.
#ifndef FXDUMP_JSON_H
#define FXDUMP_JSON_H

#include <cstdio>
#include <string>

#include "fxds/streams/StreamWalk.h"

/// One object: the header, an array of all records, and one of all faults. Bytes
/// of payloads are hexadecimal; bytes of texts are characters of that code.
class Json : public fxStreamParts::StreamVisitor {
public:
    /// `out` is borrowed.
    explicit Json(FILE* out_) : out(out_) {}

    void begin(const std::string& name);
    void header(const fxStreamParts::Header& header) override;
    void record(const fxStreamParts::StreamWalk& walk,
                const fxStreamParts::Record& record) override;
    void fault(const fxStreamParts::StreamWalk& walk, const fxStreamFault& fault) override;
    void end();

private:
    FILE* out;
    size_t records = 0;
    std::string faults;  // the elements of their array
};

#endif
