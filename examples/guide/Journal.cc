// Step 5: one function saves and loads, in whatever edition.
#include "Journal.h"

FX_TRANSCRIBABLE_TYPE(Journal, "Journal", 1);

fxBool Journal::xdr(fxTranscriber& t) {
    int edition = written;
    if (!fxXdrEdition(t, this, edition) || !fxXdrAll(t, limit, lines)) return false;
    return edition < 2 || fxXdr(t, place);  // what is older has none: the default stays
}
