#include "Elements.h"

#include <string>

#include "flow/Element.h"
#include "fxds/Fatal.h"
#include "fxds/PropertyAccess.h"

fxRef<fxObj> makeElement(const char* kindName,
                         std::initializer_list<std::pair<const char*, fxStr>> properties) {
    const fxElementKind* const kind = fxElementKind::find(kindName);
    if (kind == nullptr) fxFatal("there is no element %s", kindName);
    fxRef<fxObj> object = kind->make();
    for (const auto& [name, value] : properties) {
        const fxElementProperty* const property = kind->findProperty(name);
        const std::string text = value.toStdString();
        if (property == nullptr || !property->whyNot(text).empty())
            fxFatal("%s has no %s for %s", kindName, name, text.c_str());
        property->set(*object, text);
        fxSetProperty(*object, name, value.c_str());  // the graph shows it
    }
    return object;
}
