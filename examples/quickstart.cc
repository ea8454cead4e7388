#include <cstdio>

#include "fxds/fxds.h"

class Counter : public fxTimer {  // ticks, counts, and sends the count on
public:
    Counter() : fxTimer(true), count(addOutput<int>("count")) {
        setInterval(0.1f);
        startTimer();
    }
    void tick() override { count.send(++ticks); }

private:
    int ticks = 0;
    fxOutput<int> count;
};

class Printer : public fxApplication {  // takes text, not numbers
public:
    Printer() { addInput<&Printer::print>("text"); }
    const char* className() const override { return "Printer"; }
    void initialize(int, char**) override {}
    void print(const char* text) {
        std::printf("tick %s\n", text);
        if (fxStr(text) == "3") close();  // the loop ends with its last application
    }
};

int main(int argc, char** argv) {
    const fxToolkit toolkit;  // starts the library, and cleans up at the end
    fxWakeup wakeup;          // a loop without descriptors needs something to wait on
    Counter counter;
    Printer printer;
    counter.connect("count", &printer, "text");  // int to text: a converter is put between
    fx_theExecutive->initialize(argc, argv);
    fx_theExecutive->open();
    fx_theExecutive->loop();
}
