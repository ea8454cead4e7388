#include "fxds/TypeObj.h"

#include "fxds/Str.h"
#include "fxds/VoidPtrDict.h"

// Static initialisers of many source files, inside and outside of this library,
// build records. The registry is therefore a plain pointer without an
// initialiser: it is null before the first of them runs.
//
// Invariants:
// (1) knownTypes has one entry per name: the record that was registered last.
//     Only this one has answersToName set.
// (2) `first` heads the list of all stand-ins. A stand-in is never removed.

fxVoidPtrDict* fxTypeObj::knownTypes = nullptr;
const fxTypeStandIn* fxTypeStandIn::first = nullptr;

fxTypeStandIn::fxTypeStandIn(fxTypeObj& record_, const std::type_info& typeInfo_, Upcast* upcast_)
    : record(record_), typeInfo(typeInfo_), upcast(upcast_), next(first) {
    first = this;
}

fxTypeObj::fxTypeObj(const char* name_, unsigned int version_, NewInstance* newInstance_,
                     DeleteInstance* deleteInstance_, Transcribe* xdr_, fxTypeObj* const* bases_,
                     Upcast* const* upcasts_, const std::type_info* typeInfo_)
    : name(name_),
      version(version_),
      newInstance(newInstance_),
      deleteInstance(deleteInstance_),
      xdr(xdr_),
      bases(bases_),
      upcasts(upcasts_),
      typeInfo(typeInfo_) {
    registerType(this);
}

void fxTypeObj::registerType(fxTypeObj* type) {
    if (knownTypes == nullptr) knownTypes = new fxVoidPtrDict;
    void*& known = (*knownTypes)[fxStr(type->name)];
    if (known != nullptr) static_cast<fxTypeObj*>(known)->answersToName = false;
    known = type;
    type->answersToName = true;
}

fxTypeObj* fxTypeObj::findType(const char* name) {
    return knownTypes != nullptr ? findType(fxStr(name)) : nullptr;
}

fxTypeObj* fxTypeObj::findType(const fxStr& name) {
    if (knownTypes == nullptr) return nullptr;
    void** found = knownTypes->find(name);
    return found != nullptr ? static_cast<fxTypeObj*>(*found) : nullptr;
}

void* fxTypeObj::addressOf(void* object, const std::type_info& ofObject) const {
    if (typeInfo == nullptr || *typeInfo == ofObject) return object;
    const fxTypeStandIn* found = fxTypeStandIn::first;
    while (found != nullptr && (&found->record != this || found->typeInfo != ofObject)) {
        found = found->next;
    }
    return found != nullptr ? found->upcast(object) : nullptr;
}

bool fxTypeObj::isA(const fxTypeObj& other) const {
    if (this == &other || bases == nullptr) return true;
    for (fxTypeObj* const* base = bases; *base != nullptr; ++base) {
        if ((*base)->bases != nullptr ? (*base)->isA(other) : *base == &other) return true;
    }
    return false;
}

void* fxTypeObj::upcast(void* object, const fxTypeObj& other) const {
    FX_ASSERT(isA(other));
    if (this == &other || bases == nullptr) return object;
    for (unsigned int i = 0; bases[i] != nullptr; ++i) {
        const bool isOnTheWay =
            bases[i]->bases != nullptr ? bases[i]->isA(other) : bases[i] == &other;
        if (!isOnTheWay) continue;
        return bases[i]->upcast(upcasts != nullptr ? upcasts[i](object) : object, other);
    }
    return object;
}
