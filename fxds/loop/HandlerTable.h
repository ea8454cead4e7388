// Which handler serves which descriptor.
#ifndef FXDS_LOOP_HANDLERTABLE_H
#define FXDS_LOOP_HANDLERTABLE_H

class fxSelectHandler;

// One for each executive. All tables are linked, so that a handler that is
// destroyed leaves them without the help of an executive.

class fxHandlerTable {
public:
    // `handlers_` has `count_` places, by descriptor; `dirty_` is set whenever
    // one of them changes. Both are borrowed.
    fxHandlerTable(fxSelectHandler** handlers_, int count_, unsigned char& dirty_);
    fxHandlerTable(const fxHandlerTable&) = delete;
    fxHandlerTable& operator=(const fxHandlerTable&) = delete;
    ~fxHandlerTable();

    bool has(int descriptor) const { return descriptor >= 0 && descriptor < count; }
    // Requires: has(descriptor).
    void set(int descriptor, fxSelectHandler* handler);

    // Takes the handler out of every table, under whichever descriptor.
    static void forget(const fxSelectHandler* handler);

private:
    fxSelectHandler** const handlers;
    const int count;
    unsigned char& dirty;
    fxHandlerTable* next;

    static fxHandlerTable* first;
};

#endif
