// A first program: takes functions, type information and tables from the library.
#include <cstdio>

#include "fxds/fxds.h"

struct Greeter : fxObj {
    Greeter() { addInput<&Greeter::greet>("name"); }
    const char* className() const override { return "Greeter"; }
    void greet(const char* name) { std::printf("hello, %s\n", name); }
};

struct Counter : fxObj {
    fxOutput<int> count = addOutput<int>("count");
};

int main() {
    fxInitializeToolkit();
    Greeter greeter;
    Counter counter;
    counter.connect("count", &greeter, "name");
    counter.count.send(42, fxObj::fxSendNow);
}
