#include "fxds/Obj.h"

#include <utility>

#include "fxds/Fatal.h"
#include "fxds/dataflow/Belongings.h"
#include "fxds/dataflow/TraceLines.h"

// Properties are in one array, ascending by tag. Letting go of a property
// may run code of the program (destructors of opaque pointers, of shared
// objects, of boxed values), which may come back to this object. So a property
// always leaves the list, or its successor is already in place, before it is
// released.

namespace {

unsigned short tagAt(const fxVoidPtrArray& properties, unsigned int index) {
    return static_cast<const fxProperty*>(properties[index])->getTag();
}

}  // namespace

fxObj::~fxObj() {
    if (__builtin_expect(properties != nullptr || fx_traceKinds != 0, 0)) endBelongings();
}

// Out of line, as most objects that end are events, which have none.
void fxObj::endBelongings() {
    if (fx_traceKinds != 0) fxTraceLines::dying(*this, refCount & ~ending);
    if (properties == nullptr) return;
    // Properties that lead back here may let go of this object.
    refCount |= ending;
    // What is released may send: the receiving functions belong to a class whose
    // destructor has run.
    disownChannels();
    // What is released may set properties anew.
    do {
        removeAllProperties();
        discardRetired();
    } while (properties->length() > 0);
    delete std::exchange(properties, nullptr);
}

fxBelongings& fxObj::makeBelongings() {
    if (properties == nullptr) properties = new fxBelongings;
    return *properties;
}

void fxObj::subClassMustDefine(char const* method) const {
    fxFatal("%s: Sub class must define method \"%s\"", className(), method);
}

int fxObj::compare(fxObj const*) const {
    subClassMustDefine("compare");
    return 0;
}

fxProperty* fxObj::findProperty(unsigned short tag, unsigned int* index) {
    unsigned int position = 0;
    fxProperty* found = nullptr;
    int low = 0;
    int high = properties != nullptr ? static_cast<int>(properties->length()) - 1 : -1;
    while (low <= high && found == nullptr) {
        position = static_cast<unsigned int>((low + high) / 2);
        const unsigned short here = tagAt(*properties, position);
        if (tag == here) {
            found = static_cast<fxProperty*>((*properties)[position]);
        } else if (tag < here) {
            high = static_cast<int>(position) - 1;
        } else {
            low = static_cast<int>(position) + 1;
        }
    }
    if (index != nullptr) *index = position;
    return found;
}

fxProperty* fxObj::findProperty(char const* name, unsigned int* index) {
    const unsigned short tag = fxProperty::findTag(name);
    if (tag != fxProperty::noTag) return findProperty(tag, index);
    if (index != nullptr) *index = 0;
    return nullptr;
}

fxObj* fxObj::setProperty(fxProperty* property) {
    FX_ASSERT(property != nullptr);
    if (properties == nullptr) makeBelongings();
    property->take();
    unsigned int index;
    fxProperty* old = findProperty(property->getTag(), &index);
    if (old != nullptr) {
        (*properties)[index] = property;
        old->release();
        return this;
    }
    if (index < properties->length() && tagAt(*properties, index) < property->getTag()) ++index;
    if (index == properties->length()) {
        properties->append(property);
    } else {
        properties->insert(property, index);
    }
    return this;
}

fxObj* fxObj::removeProperty(unsigned short tag) {
    unsigned int index;
    fxProperty* property = findProperty(tag, &index);
    if (property == nullptr) return this;
    properties->remove(index, 1);
    property->release();
    return this;
}

fxObj* fxObj::removeProperty(char const* name) { return removeProperty(fxProperty::findTag(name)); }

fxObj* fxObj::removeAllProperties() {
    if (properties == nullptr) return this;
    const fxVoidPtrArray released(std::move(*properties));
    for (unsigned int i = 0; i < released.length(); ++i) {
        static_cast<fxProperty*>(released[i])->release();
    }
    return this;
}

unsigned int fxObj::getNumberOfProperties() const {
    return properties != nullptr ? properties->length() : 0;
}

fxProperty* fxObj::getProperty(unsigned int index) const {
    return properties != nullptr ? static_cast<fxProperty*>((*properties)[index]) : nullptr;
}
