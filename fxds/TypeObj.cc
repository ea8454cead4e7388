#include "fxds/TypeObj.h"

#include "fxds/Str.h"
#include "fxds/VoidPtrDict.h"

// Records are built by static initialisers of many source files, in this
// library and outside. The registry is therefore a plain pointer that needs no
// initialiser of its own: it is null before the first of them runs.

fxVoidPtrDict* fxTypeObj::knownTypes = nullptr;

fxTypeObj::fxTypeObj(const char* name_, unsigned int version_, NewInstance* newInstance_,
                     DeleteInstance* deleteInstance_, Transcribe* xdr_, fxTypeObj* const* bases_)
    : name(name_),
      version(version_),
      newInstance(newInstance_),
      deleteInstance(deleteInstance_),
      xdr(xdr_),
      bases(bases_) {
    registerType(this);
}

void fxTypeObj::registerType(fxTypeObj* type) {
    if (knownTypes == nullptr) knownTypes = new fxVoidPtrDict;
    (*knownTypes)[fxStr(type->name)] = type;
}

fxTypeObj* fxTypeObj::findType(const char* name) {
    return knownTypes != nullptr ? findType(fxStr(name)) : nullptr;
}

fxTypeObj* fxTypeObj::findType(const fxStr& name) {
    if (knownTypes == nullptr) return nullptr;
    void** found = knownTypes->find(name);
    return found != nullptr ? static_cast<fxTypeObj*>(*found) : nullptr;
}
