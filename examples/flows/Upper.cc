// A plug-in: elements in a shared object, which `use "upper.so"` in a flow names.
#include <algorithm>

#include "flow/Element.h"

class Upper : public fxElement {
public:
    const char* className() const override { return "Upper"; }

    void take(const fxStr& value) {
        std::string upper(value.view());
        std::transform(upper.begin(), upper.end(), upper.begin(),
                       [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
        text.send(upper, fxSendNow);
    }

    fxOutputView<fxStr> text;
};

FX_ELEMENT(Upper, "writes the letters a to z large") {
    element.input("text", &Upper::take, "any text");
    element.output("text", &Upper::text, "the text in capitals");
}
