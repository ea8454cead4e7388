// Step 3: readings arrive through a pipe, at the pace of a timer.
#ifndef GUIDE_STATION_H
#define GUIDE_STATION_H

#include <unistd.h>

#include <chrono>

#include "Vent.h"

// In place of a real thermometer: writes one reading into a pipe, the next one when
// the last has had its effects, and closes the pipe after the last.
class Thermometer : public fxClockTimer {
public:
    // `descriptor` is adopted; `readings_` is borrowed and ended by a null.
    Thermometer(int descriptor, const char* const* readings_)
        : pipe(descriptor), readings(readings_) {
        addInput<&Thermometer::begin>("next");
        begin();
    }
    const char* className() const override { return "Thermometer"; }

    void begin() { startEvery(std::chrono::milliseconds(10)); }

protected:
    void tick() override {
        if (!fx_theEventHandler->isEmpty()) return;  // the last reading still has effects
        stop();
        if (*readings != nullptr) {
            pipe.writeLine(*readings++);
        } else {
            pipe.finish();
        }
    }

private:
    fxLineWriter pipe;
    const char* const* readings;
};

// The program: runs until the readings end.
class Station : public fxApplication {
public:
    Station(Alarm& alarm, Log& log) {
        fxConnect(&house, "celsius", &log, "reading");
        fxConnect(&house, "celsius", &alarm, "celsius");
        fxConnect(&alarm, "excess", &log, "alarm");
        fxConnect(&alarm, "excess", &vent, "excess");
        fxConnect(&vent, "change", &house, "change");
    }
    const char* className() const override { return "Station"; }
    void initialize(int, char**) override {}

    bool run(const char* const* readings) {
        int ends[2];
        if (pipe(ends) != 0) return false;
        fxLineReader reader(ends[0]);
        Thermometer thermometer(ends[1], readings);
        fxConnect(reader.line(), &house, [this](const fxStr& line) {
            if (const auto celsius = line.toNumber<float>()) house.set(*celsius);
        });
        fxConnect(&reader, "line", &thermometer, "next");  // an input without a parameter
        fxConnect(reader.end(), this, [this] { close(); });
        fx_theExecutive->open();
        fx_theExecutive->loop();
        fx_theEventHandler->drain();  // the loop ends at once, with events in the queue
        return true;
    }

private:
    House house;
    Vent vent;
};

// The readings of the thermometer from here on.
inline const char* const someDay[] = {"21.5", "24", "31", "26.5", "33.5", nullptr};

#endif
