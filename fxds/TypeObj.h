// Run-time type records and the registry that finds them by name.
#ifndef FXDS_TYPEOBJ_H
#define FXDS_TYPEOBJ_H

#include <type_traits>

#include "fxds/Config.h"

class fxStr;
class fxTranscriber;
class fxVoidPtrDict;

/// Describes a transcribable type: how to make, destroy and transcribe an
/// object of it, and the name under which streams know it. Each transcribable
/// class `C` owns one global record `C_type` and answers it from getTypeObj().
///
/// The `void*` that the three functions exchange always points to the class
/// that owns the record, never to one of its bases.
///
/// A record registers itself and is never unregistered, so it must be a global.
class FX_API fxTypeObj {
public:
    typedef void* NewInstance(fxTypeObj&);
    typedef void DeleteInstance(void*);
    typedef fxBool Transcribe(void*, fxTranscriber&);

    /// `name` is kept, not copied. `newInstance` and `deleteInstance` are null
    /// for a type that cannot be made by name.
    /// `bases` is a null-terminated list (kept) of the records of the classes
    /// that an object of this type may also be pointed to as; null when the
    /// class has declared none.
    fxTypeObj(const char* name, unsigned int version, NewInstance* newInstance,
              DeleteInstance* deleteInstance, Transcribe* xdr, fxTypeObj* const* bases = nullptr);

    /// Enters the record under its name; the last record of a name wins.
    static void registerType(fxTypeObj* type);

    /// The record last registered under `name`, or null.
    static fxTypeObj* findType(const char* name);
    static fxTypeObj* findType(const fxStr& name);

    const char* name;
    unsigned int version;
    NewInstance* newInstance;
    DeleteInstance* deleteInstance;
    Transcribe* xdr;

    /// Name to record; null until the first registration, never destroyed.
    static fxVoidPtrDict* knownTypes;

    fxTypeObj* const* bases;  ///< Null-terminated, or null: none declared.
};

/// The functions of a registered class, written once for every class.
/// C must be constructible from fxTypeObj& or by default.
template <class C>
struct fxTypeFunctions {
    static void* newInstance(fxTypeObj& type) {
        if constexpr (std::is_constructible_v<C, fxTypeObj&>) {
            return new C(type);
        } else {
            static_cast<void>(type);
            return new C;
        }
    }
    static void deleteInstance(void* object) { delete static_cast<C*>(object); }
};

#endif
