// Step 5: what the station remembers from one day to the next.
#ifndef GUIDE_JOURNAL_H
#define GUIDE_JOURNAL_H

#include "Settings.h"
#include "fxds/fxds.h"

// A day's log. Edition 1 had no place.
class Journal : public fxXDRObj {
    FX_TRANSCRIBABLE(Journal)

    float limit = 0;
    fxStrArray lines;
    fxStr place = "unknown";

    int written = newest;  // the edition that xdr() writes
    static constexpr int newest = 2;
};

#endif
