// Who deletes what, in a garden: references, borrowed objects, callables.
#include <cstdio>

#include "fxds/fxds.h"

// Prints its end.
class Plant : public fxObj {
public:
    explicit Plant(const char* name_) : name(name_) {
        addInput("water", [this] { std::printf("%s grows\n", name.c_str()); });
    }
    Plant(const Plant&) = delete;
    Plant& operator=(const Plant&) = delete;
    ~Plant() override { std::printf("%s ends\n", name.c_str()); }
    const char* className() const override { return "Plant"; }

    const fxStr name;
};

class Tap : public fxObj {
public:
    const char* className() const override { return "Tap"; }
    const fxOutput<void> flow = addOutput<void>("flow");
};

static void share(Tap& tap) {
    fxRef<Plant> rose = fxMake<Plant>("rose");  // one holder
    fxSetProperty(tap, "nearest", rose);        // two
    rose.reset();                               // one: the property
    std::printf("the property holds the %s\n", fxGetProperty<Plant*>(tap, "nearest")->name.c_str());
    tap.removeProperty("nearest");  // the last one
}

static void borrow(Tap& tap) {
    Plant fern("fern");  // a local variable: no holder, its scope ends it
    fxConnect(&tap, "flow", &fern, "water");
    tap.flow.send(fxObj::fxSendNow);
}  // the connection ends with the fern

static void capture(Tap& tap) {
    const fxRef<Plant> moss = fxMake<Plant>("moss");
    const fxScopedConnection held = fxConnect(tap.flow, [moss] {});  // the receiver holds it
    std::printf("%lu holders\n", moss->refCount);
}  // first the receiver lets it go, then the local reference

int main() {
    fxInitializeToolkit();
    Tap tap;
    share(tap);
    borrow(tap);
    tap.flow.send(fxObj::fxSendNow);  // no receiver any more
    capture(tap);
    fxCleanupGlobalOrderings();
}
