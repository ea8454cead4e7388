#include "fxds/loop/HandlerTable.h"

// The tables compare handlers by address and follow none.

fxHandlerTable* fxHandlerTable::first = nullptr;

fxHandlerTable::fxHandlerTable(fxSelectHandler** handlers_, int count_, unsigned char& dirty_)
    : handlers(handlers_), count(count_), dirty(dirty_), next(first) {
    first = this;
}

fxHandlerTable::~fxHandlerTable() {
    fxHandlerTable** link = &first;
    while (*link != this) link = &(*link)->next;
    *link = next;
}

void fxHandlerTable::set(int descriptor, fxSelectHandler* handler) {
    handlers[descriptor] = handler;
    dirty = 1;
}

void fxHandlerTable::forget(const fxSelectHandler* handler) {
    for (fxHandlerTable* table = first; table != nullptr; table = table->next) {
        for (int descriptor = 0; descriptor < table->count; ++descriptor) {
            if (table->handlers[descriptor] == handler) table->set(descriptor, nullptr);
        }
    }
}
