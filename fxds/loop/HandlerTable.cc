#include "fxds/loop/HandlerTable.h"

// A handler may be registered under a descriptor that it does not own any more,
// so forget() searches all entries. That costs little beside a select() over as
// many.
//
// Invariants:
// (1) All tables are linked from `first`.
// (2) No table has a pointer to a destroyed handler: its destructor calls
//     forget().
// (3) `dirty` is set after every change of an entry, until the executive clears
//     it.

fxHandlerTable* fxHandlerTable::first = nullptr;

fxHandlerTable::fxHandlerTable(fxSelectHandler** low_, int lowCount_, unsigned char& dirty_)
    : low(low_), lowCount(lowCount_), dirty(dirty_), next(first) {
    first = this;
}

fxHandlerTable::~fxHandlerTable() {
    fxHandlerTable** link = &first;
    while (*link != this) link = &(*link)->next;
    *link = next;
}

void fxHandlerTable::set(int descriptor, fxSelectHandler* handler) {
    dirty = 1;
    if (descriptor < lowCount) {
        low[descriptor] = handler;
        return;
    }
    const auto place = static_cast<size_t>(descriptor - lowCount);
    if (place >= high.size()) {
        if (handler == nullptr) return;
        high.resize(place + 1, nullptr);
    }
    high[place] = handler;
}

void fxHandlerTable::forget(const fxSelectHandler* handler) {
    for (fxHandlerTable* table = first; table != nullptr; table = table->next) {
        for (int descriptor = 0; descriptor < table->end(); ++descriptor) {
            if (table->at(descriptor) == handler) table->set(descriptor, nullptr);
        }
    }
}

void fxHandlerTable::renew(fxSelectHandler* handler, int descriptor) {
    for (fxHandlerTable* table = first; table != nullptr; table = table->next) {
        if (table->at(descriptor) == handler) table->set(descriptor, handler);
    }
}
