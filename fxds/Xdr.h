// Transcribing the fields of a class, and whole graphs, in a few safe lines.
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
#include "fxds/XdrRecord.h"
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
