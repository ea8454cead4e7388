#include "fxds/Application.h"

#include "fxds/Exec.h"

// An application enters itself in the executive and leaves it when it is
// closed. If it is destroyed while it is listed, it is marked there; see
// Exec.cc.

fxApplication::fxApplication() : isOpen(0) { fxExec::theExecutive()->add(this); }

fxApplication::~fxApplication() {
    if (isOpen) fxApplication::close();
    fxExec::markDestroyed(this);
}

void fxApplication::open() { isOpen = 1; }

void fxApplication::close() {
    if (fx_theExecutive != nullptr) fx_theExecutive->remove(this);
    isOpen = 0;
}
