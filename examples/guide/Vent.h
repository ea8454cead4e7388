// Step 2: a vent, which closes the circle; and a display, which may miss a value.
#ifndef GUIDE_VENT_H
#define GUIDE_VENT_H

#include "House.h"

class Vent : public fxObj {
public:
    Vent() {
        addInput("excess", [this](float excess) { change.send(-excess - 4, sending); });
    }
    const char* className() const override { return "Vent"; }

    const fxOutput<float> change = addOutput<float>("change");
};

class Display : public fxObj {
public:
    Display() { addInput<&Display::show>("text", true); }  // true: only the newest counts
    const char* className() const override { return "Display"; }

    void show(const char* text) { std::printf("[display: %s]\n", text); }
};

#endif
