// Step 4: values that objects carry under a name, and an alarm that obeys one.
#ifndef GUIDE_SETTINGS_H
#define GUIDE_SETTINGS_H

#include "Station.h"

// The tag of a name: the number that a property is kept under.
inline unsigned short tagOf(const char* name) {
    const unsigned short tag = fxProperty::findTag(name);
    return tag != fxProperty::noTag ? tag : fxProperty::allocNewTag(name);
}

inline void setNumber(fxObj& object, const char* name, double value) {
    object.setProperty(new fxProperty(tagOf(name), value));  // in place of an older one
}

inline void setText(fxObj& object, const char* name, const char* text) {
    object.setProperty(new fxProperty(tagOf(name), fxStr(text)));
}

// An alarm whose limit is a property; without one it is that of any alarm.
class TunedAlarm : public Alarm {
public:
    const char* className() const override { return "TunedAlarm"; }

    float limit() override {
        const fxProperty* const limit = findProperty(tag);
        if (limit == nullptr || limit->getType() != fxDT_double) return Alarm::limit();
        return static_cast<float>(limit->getAsDouble());
    }

private:
    unsigned short tag = tagOf("limit");  // looked up once: by name it takes a search
};

// Knows nothing of the class of the object.
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

// The day of step 4 once more, without a word.
inline bool runQuietly(TunedAlarm& alarm, Log& log) {
    sending = fxObj::fxSendQueued;
    setNumber(alarm, "limit", 25);
    log.isPrinting = false;
    Station station(alarm, log);
    return station.run(someDay);
}

#endif
