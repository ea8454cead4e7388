// A first flow: an element of the program's own beside one of the library's.
#include <cstdio>

#include "flow/Flow.h"
#include "fxds/fxds.h"

class Greeter : public fxObj {
public:
    void greet(const fxStr& name) { std::printf("hello, %s\n", name.c_str()); }
};

FX_ELEMENT(Greeter, "greets") { element.input("name", &Greeter::greet, "whom"); }

int main() {
    fxInitializeToolkit();
    fxFlow flow;
    const char* const text = "joined = Merge\nsay = Greeter\njoined.text -> say.name (now)\n";
    for (const auto& problem : flow.apply(fxFlowText::parse(text, "text"))) {
        std::printf("%s\n", problem.line().c_str());
    }
    flow.send("say", "name", "42");
}
