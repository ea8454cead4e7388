// Root of the objects that can be transcribed and have a run-time type record.
#ifndef FXDS_XDROBJ_H
#define FXDS_XDROBJ_H

#include "fxds/RCObj.h"
#include "fxds/TypeObj.h"

/// A counted object with the hooks of transcription. A class that overrides nothing has the
/// name and the record of this one.
class FX_API fxXDRObj : public fxRCObj {
public:
    fxXDRObj() = default;
    /// The constructor that the type registry calls; the record itself is not
    /// used here.
    explicit fxXDRObj(fxTypeObj&) {}

    /// The name of the class, for people. View, good for ever.
    virtual const char* className() const;

    /// Writes or reads the object's contents, depending on `transcriber`. Returns 1, or 0
    /// when a step failed. This one does nothing.
    virtual fxBool xdr(fxTranscriber& transcriber);

    /// The record of the object's class.
    virtual fxTypeObj* getTypeObj() const;

    /// Called when transcription of the object at `object` failed. The result becomes that
    /// of the transcription, unless another object inherits this one or has it as a field,
    /// which then fails in turn. This one returns 0.
    virtual fxBool xdrFail(fxTranscriber& transcriber, void* object);

    /// Called when transcription succeeded: by a writer at once, by a reader when every
    /// pointer of the graph has been filled in.
    virtual void xdrSuccess(fxTranscriber& transcriber);

    /// The functions of fxXDRObj_type.
    static void* newInstance(fxTypeObj& type);
    static void deleteInstance(void* object);
    /// Runs this class's own xdr(), whatever the object's class overrides: 1.
    static fxBool xdr(void* object, fxTranscriber& transcriber);
};

extern FX_API fxTypeObj fxXDRObj_type;

#endif
