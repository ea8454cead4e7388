// Step 4: values that objects carry under a name, and an alarm that obeys one.
#ifndef GUIDE_SETTINGS_H
#define GUIDE_SETTINGS_H

#include "Station.h"

// An alarm whose limit is a property; without one it is that of any alarm.
class TunedAlarm : public Alarm {
public:
    const char* className() const override { return "TunedAlarm"; }

    float limit() override { return fxGetProperty<float>(*this, tag, Alarm::limit()); }

private:
    unsigned short tag = fxPropertyTag("limit");  // looked up once: by name it takes a search
};

// Needs no class but fxObj.
inline void describe(fxObj& object) {
    std::printf("%s:\n", object.className());
    for (unsigned int i = 0; i < object.getNumberOfProperties(); ++i) {
        const fxProperty& property = *object.getProperty(i);
        std::printf("  %s", property.getName());
        if (property.getType() == fxDT_double) {
            std::printf(" = %g\n", property.getAsDouble());
        } else if (property.getType() == fxDT_fxStr) {
            std::printf(" = %s\n", property.getAsStr().c_str());
        } else {
            std::printf(" (%s)\n", fxDataTypeName(property.getType()));
        }
    }
}

// The day of step 4 once more, without output.
inline bool runQuietly(TunedAlarm& alarm, Log& log) {
    sending = fxObj::fxSendQueued;
    fxSetProperty(alarm, "limit", 25.0);
    log.isPrinting = false;
    Station station(alarm, log);
    return station.run(someDay);
}

#endif
