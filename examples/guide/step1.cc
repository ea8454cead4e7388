// Step 1: objects and connections.
#include "House.h"

int main() {
    fxInitializeToolkit();
    House house;
    Alarm alarm;
    Log log;
    fxConnect(&house, "celsius", &log, "reading");  // float to text: a converter is put between
    fxConnect(&alarm, "excess", &log, "alarm");
    fxConnect(house.celsius, &alarm, &Alarm::check);  // the compiler checks the types

    const fxConnection wrong = fxConnect(&house, "celsius", &log, "readings");
    if (!wrong) std::printf("%s\n", wrong.whyNot().c_str());

    house.set(24.5f);
    house.set(31);
    fxCleanupGlobalOrderings();
}
