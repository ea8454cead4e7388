// The handler of each descriptor, and the descriptors that are closed. Private to the
// library.
#ifndef FXDS_LOOP_HANDLERTABLE_H
#define FXDS_LOOP_HANDLERTABLE_H

#include <cstddef>
#include <vector>

class fxSelectHandler;

// One for each executive. All tables are linked, so that a handler's destructor can leave
// them without an executive. Handlers are compared by address and not followed.

class fxHandlerTable {
public:
    // The handlers of descriptors below `lowCount_` are in the array `low_`, those of
    // higher ones in `high`. `dirty_` is set whenever an entry changes. The array and the
    // flag are borrowed.
    fxHandlerTable(fxSelectHandler** low_, int lowCount_, unsigned char& dirty_);
    fxHandlerTable(const fxHandlerTable&) = delete;
    fxHandlerTable& operator=(const fxHandlerTable&) = delete;
    ~fxHandlerTable();

    // The first descriptor behind all that have a handler.
    int end() const { return lowCount + static_cast<int>(high.size()); }
    // The handler of the descriptor, or null. Requires: 0 <= descriptor.
    fxSelectHandler* at(int descriptor) const {
        if (descriptor < lowCount) return low[descriptor];
        return descriptor < end() ? high[static_cast<size_t>(descriptor - lowCount)] : nullptr;
    }
    // Requires: 0 <= descriptor.
    void set(int descriptor, fxSelectHandler* handler);

    // Removes the handler from every table, under any descriptor.
    static void forget(const fxSelectHandler* handler);

    // Registers the handler again in each table that has it under `descriptor`.
    // Requires: 0 <= descriptor.
    static void renew(fxSelectHandler* handler, int descriptor);

    // Descriptors that made a select() fail and were closed when the executive last
    // checked. Those that are open again are removed.
    std::vector<int> closed;

    // Whether the next select() with a timeout should be preceded by one without. A timeout
    // costs a quarter of a turn even if something is ready; a fruitless select() costs a
    // whole system call. So after a fruitless one the next 15 are omitted.
    bool expectsReady() { return waitsWithout == 0 || --waitsWithout == 0; }
    void wasReady(bool isReady) { waitsWithout = isReady ? 0 : 16; }

private:
    int waitsWithout = 0;
    fxSelectHandler** const low;
    const int lowCount;
    std::vector<fxSelectHandler*> high;  // from descriptor `lowCount` on
    unsigned char& dirty;
    fxHandlerTable* next;

    static fxHandlerTable* first;
};

#endif
