// Classes that change while files of their older editions exist.
#ifndef FXDS_XDREVOLUTION_H
#define FXDS_XDREVOLUTION_H

#include "fxds/TypeObj.h"
#include "fxds/Xdr.h"

// Every class transcribes its edition first, from the beginning: there is no room
// for it later. docs/guide/saving.md has a table of the changes that a class can
// undergo, and of what old and new programs then do with each other's files.
//
//     fxBool Track::xdr(fxTranscriber& t) {
//         int edition = 3;  // 2: with plays; 3: without a price
//         if (!fxXdrEdition(t, this, edition) || !fxXdrBase<Item>(t, this)) return false;
//         if (!fxXdrAll(t, title, seconds)) return false;
//         if (edition < 3 && !fxXdrSkipped<double>(t)) return false;
//         return edition < 2 || fxXdr(t, plays);
//     }

/// The edition of the class of `self`. Called with the newest one in `edition`, which
/// is written; a reader stores the edition that it reads there. One before `oldest` or
/// after the newest is refused: the fault names the class and the number. In a stream it is an int.
template <class C>
bool fxXdrEdition(fxTranscriber& t, const C*, int& edition, int oldest = 1) {
    const int newest = edition;
    if (!t.xdr(&edition, 1)) return false;
    const bool isKnown = edition >= oldest && edition <= newest;
    return isKnown || t.refuseEdition(fxXdrTypeOf<C>::record(), edition, edition > newest);
}

/// Runs `transcribe()`, which transcribes local variables. Values that it reads are
/// discarded; their pointers and texts stay empty. Values that it writes must exist until
/// the graph is written.
template <class Transcribe>
bool fxXdrForgotten(fxTranscriber& t, Transcribe transcribe) {
    bool isDone = false;
    t.attempt([&] {
        isDone = transcribe();
        return isDone && !t.isReading();
    });
    return isDone;
}

///@{
/// A field that the class does not have any more, as by the helper of this name without
/// "Skipped". The value read is discarded; a default T, or null, is written.
template <class T>
bool fxXdrSkipped(fxTranscriber& t) {
    static T none{};  // a writer reads it later
    if (!t.isReading()) return fxXdr(t, none);
    T read{};
    return fxXdrForgotten(t, [&] { return fxXdr(t, read); });
}
template <class C>
bool fxXdrSkippedObject(fxTranscriber& t) {
    C* object = nullptr;
    return fxXdrForgotten(t, [&] { return fxXdrObject(t, object); });
}
template <class Char>
bool fxXdrSkippedString(fxTranscriber& t) {
    Char* text = nullptr;
    return fxXdrForgotten(t, [&] { return fxXdrString(t, text); });
}
template <class T>
bool fxXdrSkippedBlock(fxTranscriber& t) {
    T* block = nullptr;
    unsigned int count = 0;
    return fxXdrForgotten(t, [&] { return fxXdrBlock(t, block, count); });
}
///@}

/// The part that `*self` inherits from B, from an edition in which B was the first
/// base and had nothing in front of it: its fields are then among those of the
/// class, without a record of their own. The way to insert a base in front:
///
///     edition < 2 ? fxXdrFirstBase<Item>(t, this)
///                 : fxXdrBase<Tagged>(t, this) && fxXdrBase<Item>(t, this)
template <class B, class D>
bool fxXdrFirstBase(fxTranscriber& t, D* self) {
    B* const base = self;
    return base->B::xdr(t) != 0;
}

/// The reverse: the part that `*self` inherits from B, which is its first base, from an
/// edition in which B had another base in front, whose fields are skipped before. Only
/// for reading:
///
///     edition < 3 ? fxXdrSkipped<Tagged>(t) && fxXdrBaseBehind<Item>(t, this)
///                 : fxXdrBase<Item>(t, this)
template <class B, class D>
bool fxXdrBaseBehind(fxTranscriber& t, D* self) {
    B* const base = self;
    return t.isReading() && t.xdr(fxXdrTypeOf<B>::record(), nullptr, base);
}

/// Made by FX_TRANSCRIBABLE_ALIAS: a second record of a class.
template <class C>
class fxXdrAlias {
public:
    /// `name` is kept.
    fxXdrAlias(const char* name, unsigned int version)
        : record(name, version, std::is_abstract_v<C> ? nullptr : &C::newInstance,
                 &C::deleteInstance, &C::xdr, bases) {}

private:
    fxTypeObj* const bases[2] = {&fxXdrTypeOf<C>::record(), nullptr};
    fxTypeObj record;
};

/// FX_TRANSCRIBABLE_ALIAS(Class, "former name", version) is written in a source file,
/// once for each name that the class had before: what was saved under it, with
/// this version, is read as an object of Class.
#define FX_TRANSCRIBABLE_ALIAS(Class, name, version) \
    FX_TRANSCRIBABLE_ALIAS_AT(Class, name, version, __LINE__)
#define FX_TRANSCRIBABLE_ALIAS_AT(Class, name, version, line) \
    FX_TRANSCRIBABLE_ALIAS_NAMED(Class, name, version, line)
#define FX_TRANSCRIBABLE_ALIAS_NAMED(Class, name, version, line) \
    static const fxXdrAlias<Class> Class##_alias##line(name, version)

#endif
