// Step 7: the greenhouse as a text.
#include <cstdio>

#include "Vent.h"
#include "flow/Flow.h"
#include "flow/Tester.h"

FX_ELEMENT(House, "has a temperature") {
    element.input<float>("celsius", "sets it");
    element.input<float>("change", "makes it warmer by so much");
    element.output<float>("celsius", "the temperature, when it is set or changed");
}

FX_ELEMENT(Vent, "lets warm air out") {
    element.input<float>("excess", "by how much it is too warm");
    element.output<float>("change", "by how much the house becomes warmer: below 0");
}

// As the alarm of step 1, with a limit that the text sets.
class Guard : public fxElement {
public:
    const char* className() const override { return "Guard"; }
    std::string settle() override { return limit > 60 ? "the house would burn" : ""; }

    void check(float value) {
        if (value > limit) excess.send(value - limit, fxSendNow);
    }

    float limit;
    fxOutputView<float> excess;
};

FX_ELEMENT(Guard, "sends by how much it is too warm") {
    element.property("limit", &Guard::limit, 30, "what is not yet too warm").unit("degrees");
    element.input("celsius", &Guard::check, "the temperature");
    element.output("excess", &Guard::excess, "by how much it is above the limit");
}

const char greenhouse[] = R"(
    house = House
    guard = Guard limit=30
    vent  = Vent
    log   = Print format="celsius %s"

    house.celsius -> guard.celsius, log.value
    guard.excess -> vent.excess
    vent.change -> house.change

    test "the vent opens when it is too warm" {
        send house.celsius 33
        expect house.celsius 33
        expect vent.change -7
        expect house.celsius 26
    }
    test "and stays closed otherwise" {
        send house.celsius 30
        expect no vent.change
    }
)";

bool change(fxFlow& flow, const fxFlowText& text) {
    bool isDone = true;
    for (const fxFlowProblem& problem : flow.apply(text)) {
        std::printf("%s\n", problem.line().c_str());
        isDone = isDone && problem.isWarning;
    }
    return isDone;
}

int main() {
    fxInitializeToolkit();
    fxConverter::createMoreConverters();  // float to fxStr is one of them
    sending = fxObj::fxSendNow;           // how values travel is a matter of the text
    fxFlowText text = fxFlowText::parse(greenhouse, "greenhouse");
    for (const fxFlowTestResult& test : fxRunFlowTests(text)) {
        std::printf("%s: %s\n", test.name.c_str(), test.failure.empty() ? "ok" : "failed");
    }

    fxFlow flow;
    if (!change(flow, text)) return 1;
    flow.send("house", "celsius", "33");
    fx_theEventHandler->drain();

    text.set("guard", "limit", "20");
    change(flow, text);
    flow.send("house", "change", "-1");
    fx_theEventHandler->drain();

    text.set("guard", "limit", "61");
    change(flow, text);
    change(flow, fxFlowText::parse("house = House\nhouse.celcius -> log.value\n", "faulty"));
    flow.send("house", "change", "6");
    fx_theEventHandler->drain();
    fxCleanupGlobalOrderings();
}
