// Prints a stream record by record.
#ifndef FXDUMP_LISTING_H
#define FXDUMP_LISTING_H

#include <cstdio>

#include "fxds/streams/StreamWalk.h"

/// One line for each record: its offset, its tag and the meaning, and what its
/// ids denote; then its payload, 16 bytes a line; then its faults.
class Listing : public fxStreamParts::StreamVisitor {
public:
    /// `out` is borrowed. Unless `isFull`, long payloads and names are shortened.
    Listing(FILE* out, bool isFull);

    void header(const fxStreamParts::Header& header) override;
    void record(const fxStreamParts::StreamWalk& walk,
                const fxStreamParts::Record& record) override;
    void fault(const fxStreamParts::StreamWalk& walk, const fxStreamFault& fault) override;
    void rest(size_t offset, std::string_view bytes) override;

private:
    void line(size_t offset, const char* tag, const std::string& what);
    void payload(size_t offset, std::string_view bytes);

    FILE* out;
    bool isFull;
};

#endif
