// Step 1: objects and connections.
#include "House.h"

int main() {
    fxInitializeToolkit();
    House house;
    Alarm alarm;
    Log log;
    house.connect("celsius", &log, "reading");  // float to text: a converter is put between
    house.connect("celsius", &alarm, "celsius");
    alarm.connect("excess", &log, "alarm");

    house.set(24.5f);
    house.set(31);
    fxCleanupGlobalOrderings();
}
