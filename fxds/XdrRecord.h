// Making a class transcribable: its record, by which streams name it and readers make it.
#ifndef FXDS_XDRRECORD_H
#define FXDS_XDRRECORD_H

#include <cstddef>
#include <type_traits>
#include <typeinfo>

#include "fxds/Transcriber.h"
#include "fxds/TypeObj.h"
#include "fxds/XDRObj.h"
#include "fxds/XdrValues.h"

// Xdr.h shows a class in full, and includes this header.

/// Written in a class that derives from fxXDRObj, at any place; it leaves the access at
/// `public`. Declares xdr(), which the class defines, and functions for the registry and
/// the reader, which FX_TRANSCRIBABLE_TYPE defines.
#define FX_TRANSCRIBABLE(Class)                                  \
public:                                                          \
    typedef Class fxSelf;                                        \
    static fxTypeObj& typeRecord();                              \
    static void* newInstance(fxTypeObj& type);                   \
    static void deleteInstance(void* object);                    \
    static fxBool xdr(void* object, fxTranscriber& transcriber); \
    fxBool xdr(fxTranscriber& transcriber) override;             \
    fxTypeObj* getTypeObj() const override;                      \
    const char* className() const override;

/// FX_TRANSCRIBABLE_TYPE(Class, name, version, bases...) is written once in a source
/// file, in the namespace of the class. Registers the class under `name`, which
/// is kept, and defines its record `Class_type`. The reader refuses streams of
/// another version: a class that is to read its own older streams keeps the
/// version and transcribes an edition first (XdrEvolution.h). The bases that pointers
/// may be declared with follow, all of them transcribable; fxXDRObj need not be
/// named. An abstract class is registered without a way to make it.
///
///     FX_TRANSCRIBABLE_TYPE(Truck, "Truck", 1, Vehicle, Load);
///
/// If Vehicle and Load have an fxXDRObj each, a Truck has two counts of holders: all of them
/// must be by the same base. A class derived from Truck names Vehicle and Load in its place. So a
/// reader refuses references of both kinds to one Truck, and any to a Truck that is the root and
/// read as such.
#define FX_TRANSCRIBABLE_TYPE(Class, name, ...)                                                \
    fxTypeObj Class##_type(name, fxXdrRecord<Class, __VA_ARGS__>::version,                     \
                           fxXdrRecord<Class, __VA_ARGS__>::factory(), &Class::deleteInstance, \
                           &Class::xdr, fxXdrRecord<Class, __VA_ARGS__>::bases,                \
                           fxXdrRecord<Class, __VA_ARGS__>::upcasts, &typeid(Class));          \
    fxTypeObj& Class::typeRecord() { return Class##_type; }                                    \
    void* Class::newInstance(fxTypeObj& type) {                                                \
        return fxXdrRecord<Class, __VA_ARGS__>::make(type);                                    \
    }                                                                                          \
    void Class::deleteInstance(void* object) { delete static_cast<Class*>(object); }           \
    fxBool Class::xdr(void* object, fxTranscriber& transcriber) {                              \
        return fxXdrRecord<Class, __VA_ARGS__>::transcribe(object, transcriber);               \
    }                                                                                          \
    fxTypeObj* Class::getTypeObj() const { return &Class##_type; }                             \
    const char* Class::className() const { return name; }                                      \
    static_assert(true, "")

/// Whether C itself is named in FX_TRANSCRIBABLE, and not only a base of it.
template <class C, class = void>
inline constexpr bool fxXdrIsRegistered = false;
template <class C>
inline constexpr bool
    fxXdrIsRegistered<C, std::enable_if_t<std::is_same_v<typename C::fxSelf, C>>> = true;

/// The record of a class: fxXdrTypeOf<C>::record().
template <class C>
struct fxXdrTypeOf {
    /// The record of the class.
    static fxTypeObj& record() {
        static_assert(fxXdrIsRegistered<C>, "FX_TRANSCRIBABLE is missing");
        if constexpr (fxXdrIsRegistered<C>) return C::typeRecord();
    }
};
template <class C>
struct fxXdrTypeOf<const C> : fxXdrTypeOf<C> {};

// NOLINTBEGIN(bugprone-macro-parentheses): the parameter is a class
#define FX_XDR_LIBRARY_TYPE(Class)                          \
    class Class;                                            \
    extern FX_API fxTypeObj Class##_type;                   \
    template <>                                             \
    struct fxXdrTypeOf<Class> {                             \
        static fxTypeObj& record() { return Class##_type; } \
        static constexpr bool isOfLibrary = true;           \
    }
// NOLINTEND(bugprone-macro-parentheses)

FX_XDR_LIBRARY_TYPE(fxXDRObj);
FX_XDR_LIBRARY_TYPE(fxStr);
FX_XDR_LIBRARY_TYPE(fxArray);
FX_XDR_LIBRARY_TYPE(fxBoolArray);
FX_XDR_LIBRARY_TYPE(fxCharArray);
FX_XDR_LIBRARY_TYPE(fxUnsignedCharArray);
FX_XDR_LIBRARY_TYPE(fxShortArray);
FX_XDR_LIBRARY_TYPE(fxUnsignedShortArray);
FX_XDR_LIBRARY_TYPE(fxIntArray);
FX_XDR_LIBRARY_TYPE(fxLongArray);
FX_XDR_LIBRARY_TYPE(fxUnsignedLongArray);
FX_XDR_LIBRARY_TYPE(fxFloatArray);
FX_XDR_LIBRARY_TYPE(fxDoubleArray);
FX_XDR_LIBRARY_TYPE(fxStrArray);
FX_XDR_LIBRARY_TYPE(fxSet);
FX_XDR_LIBRARY_TYPE(fxStrSet);
FX_XDR_LIBRARY_TYPE(fxDictionary);
FX_XDR_LIBRARY_TYPE(fxStrStrDictionary);
#undef FX_XDR_LIBRARY_TYPE

// Whether C has a record, or should have one.
template <class C, class = void>
inline constexpr bool fxXdrHasRecord = false;
template <class C>
inline constexpr bool fxXdrHasRecord<C, std::void_t<typename C::fxSelf>> = true;
template <class C>
inline constexpr bool
    fxXdrHasRecord<C, std::enable_if_t<fxXdrTypeOf<C>::isOfLibrary && !std::is_const_v<C>>> = true;

// Whether C may have an xdrSuccess() of its own: it is not known to be fxXDRObj's.
template <class C, class = void>
inline constexpr bool fxXdrMayWait = true;
template <class C>
inline constexpr bool
    fxXdrMayWait<C, std::enable_if_t<std::is_same_v<decltype(&C::xdrSuccess),
                                                    void (fxXDRObj::*)(fxTranscriber&)>>> = false;

// The functions and the record that FX_TRANSCRIBABLE_TYPE defines.
template <class C, unsigned int versionNumber, class... Bases>
struct fxXdrRecord {
    static_assert(std::is_base_of_v<fxXDRObj, C>, "a transcribable class derives from fxXDRObj");
    static_assert((std::is_base_of_v<Bases, C> && ...), "these must be bases of the class");

    static constexpr unsigned int version = versionNumber;
    static constexpr bool hasOneRoot = std::is_convertible_v<C*, fxXDRObj*>;
    template <class First = void, class...>
    static constexpr bool firstHasOneRoot = std::is_convertible_v<First*, fxXDRObj*>;
    static_assert(
        hasOneRoot || firstHasOneRoot<Bases...>,
        "a class with several fxXDRObj names a base with a single one first: in place of a "
        "base that has several, name the bases of that");

    static void* make(fxTypeObj& type) {
        if constexpr (std::is_abstract_v<C>) {
            static_cast<void>(type);
            return nullptr;
        } else {
            return fxTypeFunctions<C>::newInstance(type);
        }
    }
    static fxTypeObj::NewInstance* factory() {
        return std::is_abstract_v<C> ? nullptr : &C::newInstance;
    }

    // The class's own part only: a base part travels through its own record.
    static fxBool transcribe(void* object, fxTranscriber& transcriber) {
        constexpr size_t recordBytes = 16;  // of the object and a pointer to it, at least
        if (!fxXdrClaim<C, recordBytes>(transcriber)) return 0;
        C* const self = static_cast<C*>(object);
        const bool isDone = self->C::xdr(transcriber) != 0;
        // An object that is exactly a C has no xdrSuccess() or xdrFail() to be called later.
        if (!fxXdrMayWait<C> && isDone && typeid(*self) == typeid(C)) return 1;
        if constexpr (hasOneRoot) {
            return transcriber.conclude(isDone, *self, object);
        } else if constexpr (firstHasOneRoot<Bases...>) {
            return transcriber.conclude(isDone, firstRoot<Bases...>(self), object);
        }
    }

    template <class B>
    static void* upcastTo(void* object) {
        return static_cast<B*>(static_cast<C*>(object));
    }
    // A class with two roots is reached through its bases only.
    static void* upcastToRoot(void* object) {
        if constexpr (hasOneRoot) return upcastTo<fxXDRObj>(object);
        return object;
    }
    template <class First, class...>
    static fxXDRObj& firstRoot(C* self) {
        return static_cast<First&>(*self);
    }

    inline static fxTypeObj* const bases[sizeof...(Bases) + 2] = {
        &fxXdrTypeOf<Bases>::record()..., hasOneRoot ? &fxXDRObj_type : nullptr, nullptr};
    inline static fxTypeObj::Upcast* const upcasts[sizeof...(Bases) + 2] = {upcastTo<Bases>...,
                                                                            upcastToRoot, nullptr};
};

/// FX_TRANSCRIBED_AS(Class, Base) is written in a source file: objects of Class,
/// which derives from Base and adds nothing that is transcribed, are written as
/// objects of Base, and are that when they are read. Objects of other classes
/// without a record of their own are not written.
#define FX_TRANSCRIBED_AS(Class, Base)                                                  \
    static_assert(std::is_base_of_v<Base, Class>);                                      \
    static const fxTypeStandIn Class##_isTranscribedAs(                                 \
        fxXdrTypeOf<Base>::record(), typeid(Class), [](void* object) {                  \
            return static_cast<void*>(static_cast<Base*>(static_cast<Class*>(object))); \
        })

/// An object in the form that a transcriber's operations take: the record and a pointer
/// to the record's class. It takes the place of the object's own fxXDRObj, of which an
/// object with several bases may have more than one.
struct FX_API fxXdrAddress : public fxXDRObj {
    fxXdrAddress() = default;
    ~fxXdrAddress() override;
    fxTypeObj* getTypeObj() const override { return record; }

    fxTypeObj* record = nullptr;  ///< Borrowed: which class `address` points to.
    void* address = nullptr;      ///< Null when a reader could not make the object.
};

/// The address of `object`, which is borrowed and not null, for a pointer that
/// is declared with the record `declared`, of C. It is null when what is written
/// could not be read back: when the object's class has no record of its own, when
/// streams know another class by the name of the record, or when the record
/// names no base that `declared` is the record of.
template <class C>
void fxXdrFindAddress(C* object, fxTypeObj& declared, fxXdrAddress& found) {
    typedef std::remove_const_t<C> Plain;
    Plain* const self = const_cast<Plain*>(object);
    if constexpr (std::is_base_of_v<fxXDRObj, Plain>) {
        found.record = self->getTypeObj();
        if (found.record == nullptr) return;
        const bool isReadable = found.record == &declared ||
                                (found.record->answersToName && found.record->isA(declared));
        if (!isReadable) return;
        found.address = dynamic_cast<void*>(self);
        if (found.record->typeInfo == &typeid(*self)) return;  // most are: no need to ask
        found.address = found.record->addressOf(found.address, typeid(*self));
    } else {
        found.record = &declared;
        found.address = self;
    }
}

/// Why a pointer is not written; see fxXdrFindAddress().
inline constexpr char fxXdrUnreadable[] = "an object that could not be read back";

#endif
