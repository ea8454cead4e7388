// Step 1: a greenhouse, an alarm and a log, none of which uses another's class.
#ifndef GUIDE_HOUSE_H
#define GUIDE_HOUSE_H

#include <cstdio>

#include "fxds/fxds.h"

// How the objects of the greenhouse send. Step 2 is about the choice.
inline fxObj::fxSendFlags sending = fxObj::fxSendNow;

class House : public fxObj {
public:
    House() {
        addInput<&House::set>("celsius");
        addInput("change", [this](float difference) { set(now + difference); });
    }
    const char* className() const override { return "House"; }

    void set(float value) {
        now = value;
        celsius.send(now, sending);
    }

    const fxOutput<float> celsius = addOutput<float>("celsius");

private:
    float now = 0;
};

class Alarm : public fxObj {
public:
    Alarm() { addInput<&Alarm::check>("celsius"); }
    const char* className() const override { return "Alarm"; }

    virtual float limit() { return 30; }
    void check(float value) {
        if (value > limit()) excess.send(value - limit(), sending);
    }

    const fxOutput<float> excess = addOutput<float>("excess");
};

class Log : public fxObj {
public:
    Log() {
        addInput("reading", [this](const char* text) { add("celsius " | fxStr(text)); });
        addInput("alarm", [this](const char* text) { add("alarm: " | fxStr(text) | " too warm"); });
    }
    const char* className() const override { return "Log"; }

    void add(const fxStr& line) {
        lines.append(line);
        if (isPrinting) std::printf("%s\n", line.c_str());
    }

    fxStrArray lines;
    bool isPrinting = true;
};

#endif
