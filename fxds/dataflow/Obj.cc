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

unsigned short tagAt(fxPropertyList& properties, unsigned int index) {
    return properties[index]->getTag();
}

// The property with the tag, or null; `position` is where it was looked for last.
inline fxProperty* search(fxPropertyList& properties, unsigned short tag, unsigned int& position) {
    int low = 0;
    int high = static_cast<int>(properties.length()) - 1;
    while (low <= high) {
        position = static_cast<unsigned int>((low + high) / 2);
        const unsigned short here = tagAt(properties, position);
        if (tag == here) return properties[position];
        if (tag < here) {
            high = static_cast<int>(position) - 1;
        } else {
            low = static_cast<int>(position) + 1;
        }
    }
    return nullptr;
}

// Tells that a property has changed. Whoever calls it touches the object no more.
void tell(const fxRef<fxBelongings::Watches>& watches, unsigned short tag) {
    if (__builtin_expect(watches == nullptr, 1)) return;
    const auto watch = watches->find(tag);
    if (watch != watches->end()) watch->second->deliver();
}

}  // namespace

fxObj::~fxObj() {
    if (__builtin_expect(properties != nullptr || fx_traceKinds != 0, 0)) endBelongings();
}

// Out of line, as most objects that end are events, which have none.
void fxObj::endBelongings() {
    if (fx_traceKinds != 0) fxTraceLines::dying(*this, refCount & ~fxEndingCount);
    if (properties == nullptr) return;
    // Properties that lead back here may let go of this object.
    refCount |= fxEndingCount;
    // What is released may send: the receiving functions belong to a class whose
    // destructor has run.
    disownChannels();
    if (const auto watches = std::move(properties->watches)) watches->clear();
    // What is released may set properties anew.
    do {
        removeAllProperties();
        discardNameless();
    } while (properties->properties.length() > 0);
    delete std::exchange(properties, nullptr);
}

fxBelongings& fxObj::makeBelongings() {
    if (properties != nullptr) return *properties;
    properties = new fxBelongings;
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
    fxProperty* const found =
        properties != nullptr ? search(properties->properties, tag, position) : nullptr;
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
    fxBelongings& mine = makeBelongings();
    const auto watches = mine.watches;
    const unsigned short tag = property->getTag();
    property->take();
    unsigned int index = 0;
    fxProperty* const old = search(mine.properties, tag, index);
    if (old != nullptr) {
        mine.properties[index] = property;
        old->release();
    } else {
        if (index < mine.properties.length() && tagAt(mine.properties, index) < tag) ++index;
        mine.properties.insert(property, index);
    }
    tell(watches, tag);
    return this;
}

fxObj* fxObj::removeProperty(unsigned short tag) {
    unsigned int index;
    fxProperty* property = findProperty(tag, &index);
    if (property == nullptr) return this;
    const auto watches = properties->watches;
    properties->properties.remove(index);
    property->release();
    tell(watches, tag);
    return this;
}

fxObj* fxObj::removeProperty(char const* name) { return removeProperty(fxProperty::findTag(name)); }

fxObj* fxObj::removeAllProperties() {
    if (properties == nullptr) return this;
    const auto watches = properties->watches;
    fxPropertyList released;
    released.takeAll(properties->properties);
    for (unsigned int i = 0; i < released.length(); ++i) {
        fxProperty* const property = released[i];
        const unsigned short tag = property->getTag();
        property->release();
        tell(watches, tag);
    }
    return this;
}

fxOutputView<void> fxObj::propertyChanged(unsigned short tag) {
    fxBelongings& mine = makeBelongings();
    if (mine.isEnding) return fxOutputView<void>();
    if (mine.watches == nullptr) mine.watches = fxMake<fxBelongings::Watches>();
    std::unique_ptr<fxOutputChannel>& watch = (*mine.watches)[tag];
    if (watch == nullptr) watch = std::make_unique<fxOutputChannel>(fxDT_void);
    return fxOutputView<void>(watch.get());
}

fxOutputView<void> fxObj::propertyChanged(char const* name) {
    const unsigned short tag = fxProperty::findTag(name);
    return propertyChanged(tag != fxProperty::noTag ? tag : fxProperty::allocNewTag(name));
}

unsigned int fxObj::getNumberOfProperties() const {
    return properties != nullptr ? properties->properties.length() : 0;
}

fxProperty* fxObj::getProperty(unsigned int index) const {
    return properties != nullptr ? properties->properties[index] : nullptr;
}
