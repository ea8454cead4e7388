// Step 1: a greenhouse, an alarm and a log, which know nothing of each other.
#ifndef GUIDE_HOUSE_H
#define GUIDE_HOUSE_H

#include <cstdio>

#include "fxds/fxds.h"

// How the objects of the greenhouse send. Step 2 is about the choice.
inline fxObj::fxSendFlags sending = fxObj::fxSendNow;

class House : public fxObj {
public:
    House() : celsius(addOutput<float>("celsius")) {
        addInput<&House::set>("celsius");
        addInput<&House::change>("change");
    }
    const char* className() const override { return "House"; }

    void set(float value) {
        now = value;
        celsius.send(now, sending);
    }
    void change(float difference) { set(now + difference); }

private:
    fxOutput<float> celsius;
    float now = 0;
};

class Alarm : public fxObj {
public:
    Alarm() : excess(addOutput<float>("excess")) { addInput<&Alarm::check>("celsius"); }
    const char* className() const override { return "Alarm"; }

    virtual float limit() { return 30; }
    void check(float value) {
        if (value > limit()) excess.send(value - limit(), sending);
    }

private:
    fxOutput<float> excess;
};

class Log : public fxObj {
public:
    Log() {
        addInput<&Log::reading>("reading");
        addInput<&Log::alarm>("alarm");
    }
    const char* className() const override { return "Log"; }

    void reading(const char* text) { add("celsius " | fxStr(text)); }
    void alarm(const char* text) { add("alarm: " | fxStr(text) | " too warm"); }
    void add(const fxStr& line) {
        lines.append(line);
        if (isPrinting) std::printf("%s\n", line.c_str());
    }

    fxStrArray lines;
    bool isPrinting = true;
};

#endif
