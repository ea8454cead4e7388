#include "fxds/Obj.h"

#include <utility>

#include "fxds/Fatal.h"
#include "fxds/dataflow/Belongings.h"
#include "fxds/dataflow/TraceLines.h"

// Properties are in one array, ascending by tag. Releasing a property may run
// code of the program (destructors of opaque pointers, of shared objects, of
// boxed values), which may re-enter this object. So a property always leaves
// the list, or its successor is in place, before it is released.
//
// Invariants:
// (1) `properties` is null until the first property or channel, and then set until the last
//     step of the object's end, so it is not made anew while code of the program runs.
// (2) Properties and channels may come back while the object ends. The end repeats until a
//     pass leaves none.
// (3) A change is reported after the release of the old value, as the last use of the
//     object: receivers may end it. The list of watches is held from before that release.

namespace {

// Reports that a property has changed. The caller does not touch the object
// afterwards.
void tell(const fxRef<fxBelongings::Watches>& watches, unsigned short tag) {
    if (__builtin_expect(watches == nullptr, 1)) return;
    const auto watch = watches->find(tag);
    if (watch != watches->end()) watch->second->deliver();
}

}  // namespace

namespace {

// What belongs to an object was mostly allocated right behind it. Of many objects that end
// in another order than that in memory, each waits once less for it if all of that is
// fetched along with the object. Fetching does nothing where there is no memory.
inline void fetchBehind(const fxObj* object) {
    constexpr int cacheLine = 64;
    constexpr int mostBytes = 320;  // of an object with one input, and a number of malloc()
    for (int i = cacheLine; i <= mostBytes; i += cacheLine) {
        __builtin_prefetch(reinterpret_cast<const char*>(object) + i, 1);
    }
}

}  // namespace

fxObj::~fxObj() {
    if (__builtin_expect(properties != nullptr || fx_traceKinds != 0, 0)) endBelongings();
}

// Out of line: most objects that end are events, which have no belongings.
void fxObj::endBelongings() {
    fetchBehind(this);
    if (fx_traceKinds != 0) fxTraceLines::dying(*this, refCount & ~fxEndingCount);
    if (properties == nullptr) return;
    // Properties that lead back here may release this object.
    refCount |= fxEndingCount;
    // Releases may send: the receiving functions belong to a class whose
    // destructor has run.
    disownChannels();
    if (const auto watches = std::move(properties->watches)) watches->clear();
    // Releases may set properties anew.
    do {
        removeAllProperties();
        discardNameless();
    } while (properties->properties.length() > 0 || properties->hasDueTables());
    fxBelongings::end(std::exchange(properties, nullptr));
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
    fxProperty* found = nullptr;
    if (properties != nullptr) {
        if (index != nullptr || properties->isDue(tag)) properties->makeTables();
        found = properties->properties.find(tag, position);
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
    fxBelongings& mine = makeBelongings();
    const auto watches = mine.watches;
    const unsigned short tag = property->getTag();
    if (mine.isDue(tag)) mine.makeTables();
    property->take();
    fxProperty* const old = mine.properties.put(property);
    if (old != nullptr) old->release();
    tell(watches, tag);
    return this;
}

fxObj* fxObj::removeProperty(unsigned short tag) {
    if (properties == nullptr) return this;
    if (properties->isDue(tag)) properties->makeTables();
    unsigned int index = 0;
    fxProperty* const property = properties->properties.find(tag, index);
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
    if (properties->hasDueTables()) {
        if (watches == nullptr && properties->properties.length() == 0) {
            properties->endDueTables();
            return this;
        }
        properties->makeTables();
    }
    struct Released : fxPropertyList {
        // The outputs that are left when a receiver has thrown.
        ~Released() {
            while (next < length()) (*this)[next++]->release();
        }
        unsigned int next = 0;
    } released;
    released.takeAll(properties->properties);
    while (released.next < released.length()) {
        fxProperty* const property = released[released.next++];
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
    if (properties == nullptr) return 0;
    properties->makeTables();
    return properties->properties.length();
}

fxProperty* fxObj::getProperty(unsigned int index) const {
    if (properties == nullptr) return nullptr;
    properties->makeTables();
    return properties->properties[index];
}
