// A plug-in: an element of anybody's.
#include "flow/Element.h"

class Doubled : public fxElement {
public:
    void take(long number) { twice.send(2 * number, fxSendNow); }
    fxOutputView<long> twice;
};

FX_ELEMENT(Doubled, "doubles numbers") {
    element.input("number", &Doubled::take, "a number");
    element.output("twice", &Doubled::twice, "two of it");
}
