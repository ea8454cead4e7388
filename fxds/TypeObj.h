// Run-time type records and the registry that finds them by name.
#ifndef FXDS_TYPEOBJ_H
#define FXDS_TYPEOBJ_H

#include <type_traits>
#include <typeinfo>

#include "fxds/Config.h"

class fxStr;
class fxTranscriber;
class fxTypeObj;
class fxVoidPtrDict;

/// Declares that objects of an unregistered class, which adds nothing to a registered one
/// that is transcribed, are written as objects of that one. FX_TRANSCRIBED_AS makes it.
/// Must be a global.
class FX_API fxTypeStandIn {
public:
    typedef void* Upcast(void*);  ///< From the class to that of the record.

    /// `record` is borrowed and is used for objects of the class `typeInfo`.
    fxTypeStandIn(fxTypeObj& record, const std::type_info& typeInfo, Upcast* upcast);
    fxTypeStandIn(const fxTypeStandIn&) = delete;
    fxTypeStandIn& operator=(const fxTypeStandIn&) = delete;

private:
    friend class fxTypeObj;

    fxTypeObj& record;
    const std::type_info& typeInfo;
    Upcast* const upcast;
    const fxTypeStandIn* const next;

    static const fxTypeStandIn* first;
};

/// Describes a transcribable type: how to make, destroy and transcribe an
/// object of it, and its name in streams. Each transcribable
/// class `C` owns one global record `C_type` and returns it from getTypeObj().
///
/// The `void*` that the three functions exchange always points to the class
/// that owns the record, never to one of its bases.
///
/// A record registers itself and is never unregistered, so it must be a global.
class FX_API fxTypeObj {
public:
    typedef void* NewInstance(fxTypeObj&);  ///< Makes an object of the record's type.
    typedef void DeleteInstance(void*);     ///< Destroys an object of the record's type.
    /// Writes or reads an object of the record's type.
    typedef fxBool Transcribe(void*, fxTranscriber&);
    typedef void* Upcast(void*);  ///< Makes a pointer to a base from a pointer to the class.

    /// `name` is kept, not copied. `newInstance` and `deleteInstance` are null
    /// for a type that cannot be made by name.
    /// `bases` is a null-terminated list (kept) of the records of the classes
    /// that an object of this type may also be pointed to as; null when the
    /// class has declared none, and nothing is known of them.
    /// `typeInfo`, if not null, is that of the class itself.
    /// `upcasts` holds for each base the function that makes a pointer to it
    /// from a pointer to the class; null when all pointers are the same.
    fxTypeObj(const char* name, unsigned int version, NewInstance* newInstance,
              DeleteInstance* deleteInstance, Transcribe* xdr, fxTypeObj* const* bases = nullptr,
              Upcast* const* upcasts = nullptr, const std::type_info* typeInfo = nullptr);
    fxTypeObj(const fxTypeObj&) = delete;  // the registry has the address of the original only
    fxTypeObj& operator=(const fxTypeObj&) = delete;

    /// Enters the record under its name; the last record of a name wins.
    static void registerType(fxTypeObj* type);

    ///@{
    /// The record last registered under `name`, or null.
    static fxTypeObj* findType(const char* name);
    static fxTypeObj* findType(const fxStr& name);
    ///@}

    /// Whether a pointer that is declared with the class of `other` may lead to an
    /// object of this type: it is the same record, or that of a base at any
    /// distance. A type that has declared no bases is not checked.
    bool isA(const fxTypeObj& other) const;

    /// `object`, a pointer to this record's class, as a pointer to the class of
    /// `other`. Requires: isA(other).
    void* upcast(void* object, const fxTypeObj& other) const;

    /// A pointer to this record's class, from one to the object's own class, whose type
    /// `typeInfo` is; null for an object of another class without an fxTypeStandIn. Of a
    /// record without a typeInfo, `object` itself.
    void* addressOf(void* object, const std::type_info& typeInfo) const;

    const char* name;                ///< Of the type, in streams. Borrowed.
    unsigned int version;            ///< Readers refuse objects of another one.
    NewInstance* newInstance;        ///< Null for a type that cannot be made by name.
    DeleteInstance* deleteInstance;  ///< Null likewise.
    Transcribe* xdr;                 ///< Transcribes the class's own part of an object.

    /// Name to record; null until the first registration, never destroyed.
    static fxVoidPtrDict* knownTypes;

    fxTypeObj* const* bases;         ///< Null-terminated, or null: none declared.
    Upcast* const* upcasts;          ///< One for each base, or null: no pointer changes.
    const std::type_info* typeInfo;  ///< Of the class, or null: not known.
    bool answersToName = false;      ///< Whether findType(name) returns this record.
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
