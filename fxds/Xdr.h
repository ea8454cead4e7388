// Making a class transcribable, and its fields, in a few safe lines.
#ifndef FXDS_XDR_H
#define FXDS_XDR_H

#include <cstddef>
#include <memory>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "fxds/MemoryStream.h"
#include "fxds/Ref.h"
#include "fxds/Str.h"
#include "fxds/Transcriber.h"
#include "fxds/TypedDictionary.h"
#include "fxds/TypedSet.h"
#include "fxds/VoidPtrArray.h"
#include "fxds/XDRObj.h"
#include "fxds/XdrValues.h"
#include "fxds/detail/Owned.h"

// A class in full:
//
//     class Node : public fxXDRObj {             // Node.h
//         FX_TRANSCRIBABLE(Node)
//     public:
//         Node() = default;
//         ~Node() override { std::free(samples); }
//
//         long value = 0;
//         fxStr name;
//         double* samples = nullptr;
//         unsigned int sampleCount = 0;
//         Node* next = nullptr;
//     };
//
//     FX_TRANSCRIBABLE_TYPE(Node, "Node", 1);    // Node.cc
//
//     fxBool Node::xdr(fxTranscriber& t) {
//         int edition = 1;  // see XdrEvolution.h
//         return fxXdrEdition(t, this, edition) && fxXdrAll(t, value, name) &&
//                fxXdrBlock(t, samples, sampleCount) && fxXdrObject(t, next);
//     }
//
// Saving and loading:
//
//     fxWriteObject(*writer, root)               // false when it failed
//     Node* root = fxReadObject<Node>(*reader)   // null when it failed
//     Node* copy = fxXdrCopy(root)               // null when it failed
//
// A class must be constructible by default or from fxTypeObj&. It must be
// destructible with every pointer null: that is how a reader that fails half
// way finds it. One xdr() serves both directions: while it reads, plain fields
// are there at once, pointers and texts only when the graph is complete, at
// which time xdrSuccess() is called.

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

/// Writes the graph of `root`; see fxTranscriber::writeObject().
template <class C>
bool fxWriteObject(fxTranscriber& t, C* root) {
    if (root == nullptr) return false;
    fxXdrAddress found;
    fxXdrFindAddress(root, fxXdrTypeOf<C>::record(), found);
    if (found.address == nullptr || t.isEmbedded(found.address)) return t.refuse(fxXdrUnreadable);
    return t.writeObject(found.address, &found);
}
/// The same for the target of a reference.
template <class C>
bool fxWriteObject(fxTranscriber& t, const fxRef<C>& root) {
    return fxWriteObject(t, root.get());
}

/// Reads a graph whose root is a C or derives from it. Given; null when there
/// is none. See fxTranscriber::readObject().
template <class C>
C* fxReadObject(fxTranscriber& t) {
    return static_cast<C*>(t.readObject(fxXdrTypeOf<C>::record()));
}

/// A deep copy of the root and of everything that transcribing it reaches,
/// connected as the original is. What xdr() does not name is as the constructor
/// leaves it. Given, as by fxReadObject(); null when the root is null, when
/// something in the graph cannot be written or read back or memory is lacking, and
/// before fxInitializeToolkit() has registered the reader.
template <class C>
C* fxXdrCopy(C* root) {
    fxMemoryStream stream;
    stream.take();  // on the stack: no transcriber may delete it
    const fxDetail::Owned<fxTranscriber> writer(fxTranscriber::getWriter(&stream));
    if (writer == nullptr || !fxWriteObject(*writer, root)) return nullptr;
    fxStreamFault fault;
    const fxDetail::Owned<fxTranscriber> reader(fxTranscriber::getReader(&stream, fault));
    return reader != nullptr ? fxReadObject<C>(*reader) : nullptr;
}
/// The same, held.
template <class C>
fxRef<C> fxXdrCopy(const fxRef<C>& root) {
    return fxXdrCopy(root.get());
}

// Whether C has no xdr() but that of fxXDRObj, which does nothing.
template <class C>
C* fxXdrHasOwner(fxBool (C::*)(fxTranscriber&));
template <class C, class = void>
inline constexpr bool fxXdrHasNone = false;
template <class C>
inline constexpr bool
    fxXdrHasNone<C, std::enable_if_t<std::is_same_v<decltype(fxXdrHasOwner(&C::xdr)), fxXDRObj*>>> =
        true;

/// A transcribable object that is a field: does what its record's function does, which
/// also calls xdrSuccess() or xdrFail() later. Its class may be unregistered.
template <class T>
bool fxXdrEmbedded(fxTranscriber& t, T& v) {
    if constexpr (fxXdrIsRegistered<T>) {
        if (typeid(v) == typeid(T)) return T::xdr(static_cast<void*>(&v), t) != 0;
    }
    const bool isDone = v.xdr(t) != 0;
    if constexpr (fxXdrMayWait<T> && std::is_convertible_v<T*, fxXDRObj*>) {
        return t.conclude(isDone, v, dynamic_cast<void*>(&v)) != 0;
    }
    return isDone;
}

// Tables without functions to transcribe their elements.
template <class T>
inline constexpr bool fxXdrIsBareTable = false;
template <class Key, class Value>
inline constexpr bool fxXdrIsBareTable<fxTypedDictionary<Key, Value>> = true;
template <class Key>
inline constexpr bool fxXdrIsBareTable<fxTypedSet<Key>> = true;

// Whether v.xdr(transcriber) exists.
template <class T, class = void>
inline constexpr bool fxXdrHasFunction = false;
template <class T>
inline constexpr bool fxXdrHasFunction<
    T, std::void_t<decltype(std::declval<T&>().xdr(std::declval<fxTranscriber&>()))>> = true;

/// One field: a number, a bool (one byte; any but 0 reads as true), an
/// enumeration, a type of the standard library that XdrValues.h covers, and
/// every type with an xdr() of its own: a string, an array, a string collection, an
/// embedded transcribable object. A number that cannot be read leaves the field
/// as it is, and so does one that is too large for an enumeration. An enumeration
/// travels as an int, or as a long when it has 8 bytes; the class checks whether it is
/// one of the enumerators, and gives the enumeration an underlying type, so that it can
/// have other values.
///
/// For a type of another kind, overload it beside the type.
template <class T>
bool fxXdr(fxTranscriber& t, T& v) {
    static_assert(!std::is_const_v<T>, "a field is read too, so it is no constant");
    static_assert(!fxXdrIsBareTable<T>,
                  "how its elements travel is not known: take fxXdrDictionary or fxXdrSet");
    if constexpr (std::is_arithmetic_v<T>) {
        return fxXdrNumber(t, v);
    } else if constexpr (std::is_enum_v<T>) {
        std::conditional_t<(sizeof(T) > sizeof(int)), long, int> number =
            static_cast<decltype(number)>(v);
        if (!t.xdr(&number, 1)) return false;
        const T read = static_cast<T>(number);
        if (static_cast<decltype(number)>(read) != number) {
            return t.refuse("a number that its enumeration cannot hold");
        }
        v = read;
        return true;
    } else if constexpr (fxXdrStd<T>::isKnown) {
        return fxXdrStd<T>::xdr(t, v);
    } else if constexpr (std::is_base_of_v<fxXDRObj, T>) {
        static_assert(!fxXdrHasNone<T>, "the class has no xdr(): FX_TRANSCRIBABLE is missing");
        const fxXdrWithin within(t, &v);
        return (t.embeds(&v) || t.refuse(fxXdrUnreadable)) && fxXdrEmbedded(t, v);
    } else if constexpr (fxXdrHasFunction<T>) {
        return v.xdr(t) != 0;
    } else {
        return fxXdrRefuse<T>();
    }
}

/// A built-in array of any of these, of fixed length.
template <class T, size_t count>
bool fxXdr(fxTranscriber& t, T (&values)[count]) {
    if constexpr (std::is_arithmetic_v<T> && !std::is_same_v<T, bool>) {
        return t.xdr(values, static_cast<unsigned int>(count));
    } else {
        for (T& value : values) {
            if (!fxXdr(t, value)) return false;
        }
        return true;
    }
}

/// Several fields, in order, up to the first that fails.
template <class... Fields>
bool fxXdrAll(fxTranscriber& t, Fields&... fields) {
    return (fxXdr(t, fields) && ...);
}

///@{
/// A zero-terminated text held by pointer, or null. Given when read: free(). The
/// field always gets a block of its own; a text that fields share is
/// written for each of them. fxXdrSharedString() gives fields that share a text
/// one block again, which they must agree on freeing once.
template <class Char>
bool fxXdrSharedString(fxTranscriber& t, Char*& text) {
    bool isThere = text != nullptr;
    unsigned int count = 0;  // of a text, too
    if (!fxXdr(t, isThere)) return false;
    if (t.isReading()) text = nullptr;
    if (!isThere) return true;
    if (!t.isReading()) t.countsBlock(count);
    return t.xdr(&text);
}
template <class Char>
bool fxXdrString(fxTranscriber& t, Char*& text) {
    const fxXdrOwning owning(t, &text);
    return fxXdrSharedString(t, text);
}
///@}

///@{
/// A block of `count` numbers held by pointer, or null, whose count is then read
/// as 0. Given when read: free(). The count is there at once, the block only
/// when the graph is complete. Blocks are shared as texts are; a field with more than the
/// first one that shares its block has is not written.
template <class T>
bool fxXdrSharedBlock(fxTranscriber& t, T*& block, unsigned int& count) {
    bool isThere = block != nullptr;
    if (t.isReading()) block = nullptr;
    if (!fxXdr(t, count) || !fxXdr(t, isThere)) return false;
    if (!isThere && t.isReading()) count = 0;
    if (!isThere) return true;
    t.countsBlock(count);
    return t.xdr(&block, count);
}
template <class T>
bool fxXdrBlock(fxTranscriber& t, T*& block, unsigned int& count) {
    const fxXdrOwning owning(t, &block);
    return fxXdrSharedBlock(t, block, count);
}
///@}

/// How fxXdrObject() writes a pointer.
template <class C>
bool fxXdrWriteObject(fxTranscriber& t, C*& object, fxTypeObj& declared) {
    if (object == nullptr) return t.xdr(&object, nullptr, declared, nullptr, nullptr);
    if constexpr (std::is_convertible_v<C*, fxXDRObj*>) {
        __builtin_prefetch(object);  // its class is asked for unless it is known
        if (t.writeKnownPointer(object, declared)) return true;
        // Most are just what they are declared as, and begin where the pointer leads to.
        const bool isAsDeclared = &typeid(*object) == &typeid(C) &&
                                  declared.typeInfo == &typeid(C) &&
                                  object->getTypeObj() == &declared;
        if (isAsDeclared && !t.isEmbedded(object)) {
            return t.writePointer(&object, declared, object, object);
        }
    }
    fxXdrAddress found;
    fxXdrFindAddress(object, declared, found);
    if (found.address == nullptr || t.isEmbedded(found.address)) return t.refuse(fxXdrUnreadable);
    return t.writePointer(&object, declared, &found, found.address);
}

///@{
/// A pointer to a transcribable object, to an fxStr, or null. The owner of an
/// object that has been read is for the classes to agree on: an fxRef holds it, and
/// xdrSuccess() is the moment to take other counted references. The record may be given for a class
/// that is registered without FX_TRANSCRIBABLE. An fxStr that is a field is not known as one:
/// a pointer to it is written as one to a string of its own.
template <class C>
bool fxXdrObject(fxTranscriber& t, C*& object, fxTypeObj& declared) {
    if (!t.isReading()) return fxXdrWriteObject(t, object, declared);
    object = nullptr;
    return t.takeReadyPointer(&object, declared) ||
           t.xdr(&object, nullptr, declared, nullptr, nullptr);
}
template <class C>
bool fxXdrObject(fxTranscriber& t, C*& object) {
    return fxXdrObject(t, object, fxXdrTypeOf<C>::record());
}
///@}

/// A reference is null until then.
template <class T>
inline constexpr bool fxXdrIsLate<fxRef<T>> = true;

/// A reference travels as the pointer does, by fxXdrObject(): each can be read as
/// the other. One that was read holds its object from the time on when the graph is
/// complete, before the first xdrSuccess().
template <class T>
struct fxXdrStd<fxRef<T>> {
    static constexpr bool isKnown = true;
    static bool xdr(fxTranscriber& t, fxRef<T>& v) {
        if (!t.isReading()) return write(t, v.get());
        v.reset();
        t.setHolder(&v.pointer, take);
        if (!fxXdrObject(t, v.pointer)) return false;
        if (v.pointer != nullptr) take(const_cast<Plain*>(v.pointer));
        return true;
    }

private:
    typedef std::remove_const_t<T> Plain;
    static bool write(fxTranscriber& t, T* target) {
        t.setHolder(&target, take);
        if (fxXdrObject(t, target)) return true;
        t.setHolder(nullptr, nullptr);
        return false;
    }
    static void take(void* target) { fxDetail::countedOf(static_cast<Plain*>(target))->take(); }
};

/// The only owner of an object. One of a class with a record travels as by
/// fxXdrObject(), so that plain pointers may lead to it; no stream gives it a
/// second owner, and it is written once until the writer is reset. A chain of them
/// ends by recursion, unlike one of fxRef. So neither a stream nor an object that is
/// written may have more than 10000 levels of them, where a container counts as one, too: a
/// longer list takes a container of its elements. Another one
/// travels in place, as an optional does: it is made by its default constructor,
/// and an object of a derived class is not written.
template <class T>
struct fxXdrStd<std::unique_ptr<T>> {
    static constexpr bool isKnown = true;
    static bool xdr(fxTranscriber& t, std::unique_ptr<T>& v) {
        if constexpr (fxXdrHasRecord<T>) {
            static_assert(sizeof v == sizeof(T*));
            if (t.isReading()) v.reset();
            T*& slot = reinterpret_cast<T*&>(v);  // which a reader fills in later
            const fxXdrOwning owning(t, &slot);
            return fxXdrObject(t, slot);
        } else {
            const fxXdrNesting nesting(t, &v);
            bool isThere = v != nullptr;
            if constexpr (std::is_polymorphic_v<T>) {
                const bool isOther = !t.isReading() && isThere && typeid(*v) != typeid(T);
                if (isOther) return t.refuse(fxXdrUnreadable);
            }
            if (!nesting || !fxXdr(t, isThere) || (isThere && !fxXdrClaim<T, 1>(t))) return false;
            if (t.isReading()) v = isThere ? std::make_unique<T>() : nullptr;
            static constexpr fxTranscriber::Container kind = {
                [](const void* field) {
                    const auto& made = *static_cast<const std::unique_ptr<T>*>(field);
                    return fxTranscriber::printOf(made.get(), 1);
                },
                nullptr};
            return !isThere || t.attempt(&v, kind, [&] { return fxXdr(t, *v); });
        }
    }
};

// Its length is not known.
template <class T>
struct fxXdrStd<std::unique_ptr<T[]>> {
    static constexpr bool isKnown = false;
};

///@{
/// As many pointers to objects as there are, each as by fxXdrObject(). Those of
/// an array are to objects of class C: `fxXdrObjects<Node>(t, nodes)`.
template <class C>
bool fxXdrObjects(fxTranscriber& t, std::vector<C*>& objects) {
    return fxXdrParts(
        t, objects, [&t](C*& object) { return fxXdrObject(t, object); },
        [&] {
            fxXdrAppend(t, objects);
            return fxXdrObject(t, objects.back());
        });
}
template <class C>
bool fxXdrObjects(fxTranscriber& t, fxVoidPtrArray& objects) {
    struct Parts {
        fxVoidPtrArray& array;
        size_t size() const { return array.length(); }
        void** begin() const { return array.begin(); }
        void** end() const { return array.end(); }
        void clear() const { array.resize(0); }
    } parts = {objects};
    static constexpr fxTranscriber::Container kind = {
        [](const void* container) {
            const fxVoidPtrArray& array = *static_cast<const fxVoidPtrArray*>(container);
            return fxTranscriber::printOf(array.begin(), array.length());
        },
        [](void* container) { static_cast<fxVoidPtrArray*>(container)->resize(0); }};
    return fxXdrParts(
        t, parts,
        [&t](void* element) {
            C* object = static_cast<C*>(element);
            return fxXdrObject(t, object);
        },
        [&] {
            const unsigned int length = objects.length();
            const void* const before = objects.begin();
            if (length == objects.getMaxLength()) objects.setMaxLength(2 * length + 16);
            t.placesMoved(before, length * sizeof(void*), objects.begin());
            objects.append(nullptr);
            return t.xdr(&objects[length], nullptr, fxXdrTypeOf<C>::record(), nullptr, nullptr);
        },
        &objects, kind);
}
///@}

/// The part of `*self` that it inherits from B. A class transcribes its bases
/// behind its edition, each by one call:
///
///     fxBool Truck::xdr(fxTranscriber& t) {
///         int edition = 1;
///         return fxXdrEdition(t, this, edition) && fxXdrBase<Vehicle>(t, this) &&
///                fxXdrBase<Load>(t, this) && ...
///     }
///
/// Virtual bases travel once, however many classes name them.
template <class B, class D>
bool fxXdrBase(fxTranscriber& t, D* self) {
    B* const base = self;
    if (static_cast<void*>(base) == static_cast<void*>(self)) return base->B::xdr(t) != 0;
    return t.xdr(fxXdrTypeOf<B>::record(), self, base);
}

#endif
