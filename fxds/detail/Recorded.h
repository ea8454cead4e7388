// The members of a container class for its type record. Part of the public
// headers, not of the interface.
#ifndef FXDS_DETAIL_RECORDED_H
#define FXDS_DETAIL_RECORDED_H

#include "fxds/Transcriber.h"
#include "fxds/TypeObj.h"

/// The members that `record`, the type record of the class `Self`, needs. Self
/// derives from this class, and this class from `Base`.
template <class Self, class Base, fxTypeObj& record>
class FX_API fxRecorded : public Base {
public:
    using Base::Base;

    fxTypeObj* getTypeObj() const override { return &record; }

    // The functions of the record.
    static void* newInstance(fxTypeObj& type) { return fxTypeFunctions<Self>::newInstance(type); }
    static void deleteInstance(void* object) { fxTypeFunctions<Self>::deleteInstance(object); }
    using Base::xdr;
    /// Runs Self's own xdr(), whatever the object's class overrides, so that
    /// a container that is a base part is transcribed as one.
    static fxBool xdr(void* object, fxTranscriber& transcriber) {
        Self& self = *static_cast<Self*>(object);
        return transcriber.conclude(self.Self::xdr(transcriber) != 0, self, object);
    }
};

#endif
