// Prints a stream record by record.
#ifndef FXDUMP_LISTING_H
#define FXDUMP_LISTING_H

#include <cstdio>

#include "Walk.h"

/// One line for each record: its offset, its tag and what that means, and what
/// its ids stand for; then its payload, 16 bytes a line; then its faults.
class Listing : public StreamVisitor {
public:
    /// `out` is borrowed. Unless `isFull`, long payloads and names are shortened.
    Listing(FILE* out, bool isFull);

    void header(const Header& header) override;
    void record(const StreamWalk& walk, const Record& record) override;
    void fault(const StreamWalk& walk, size_t offset, const std::string& what) override;
    void rest(size_t offset, std::string_view bytes) override;

private:
    void line(size_t offset, const char* tag, const std::string& what);
    void payload(size_t offset, std::string_view bytes);

    FILE* out;
    bool isFull;
};

#endif
