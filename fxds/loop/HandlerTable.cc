#include "fxds/loop/HandlerTable.h"

// A handler may be entered under a descriptor that is not its own any more, so
// one that is destroyed is searched for in all entries. That is small beside the
// select() that looks at all of them too.

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
