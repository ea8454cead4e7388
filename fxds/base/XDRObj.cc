#include "fxds/XDRObj.h"

// An object without fields: it transcribes nothing, and succeeds.

const char* fxXDRObj::className() const { return "fxXDRObj"; }

fxBool fxXDRObj::xdr(fxTranscriber&) { return 1; }

fxTypeObj* fxXDRObj::getTypeObj() const { return &fxXDRObj_type; }

fxBool fxXDRObj::xdrFail(fxTranscriber&, void*) { return 0; }

void fxXDRObj::xdrSuccess(fxTranscriber&) {}

void* fxXDRObj::newInstance(fxTypeObj& type) {
    return fxTypeFunctions<fxXDRObj>::newInstance(type);
}

void fxXDRObj::deleteInstance(void* object) { fxTypeFunctions<fxXDRObj>::deleteInstance(object); }

fxBool fxXDRObj::xdr(void* object, fxTranscriber& transcriber) {
    return static_cast<fxXDRObj*>(object)->fxXDRObj::xdr(transcriber);
}
