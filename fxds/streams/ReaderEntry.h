// What the reader knows of one record number.
#ifndef FXDS_STREAMS_READERENTRY_H
#define FXDS_STREAMS_READERENTRY_H

#include <algorithm>

#include "fxds/Config.h"
#include "fxds/TypeObj.h"

/// A number is unknown, then perhaps awaited as an object or as a block, and
/// then defined, once. There is one entry for each number, so they are small.
class fxReaderEntry {
public:
    enum Kind : unsigned char {
        unknown,
        awaitedObject,
        awaitedBlock,
        type,
        object,
        part,       // of an object, and a place may point to it
        innerPart,  // of an object that is embedded in another; no place may
        block
    };

    fxReaderEntry() : isOwned_(false), isShared_(false), isWantedPlain_(false), isMixed_(false) {}

    Kind kind() const { return kind_; }
    bool isDefined() const { return kind_ >= type; }
    bool isObject() const { return kind_ == object || kind_ == part; }  ///< For a place.

    void await(Kind kind) {
        kind_ = kind;
        waiting_ = 0;
        address_ = nullptr;
        u.awaited = {0, 0};
    }
    ///@{
    /// Awaited: the place that waits and came first, and what it wants; null for none. Others
    /// are linked.
    void* firstSlot() const { return isDefined() ? nullptr : address_; }
    unsigned int firstWanted() const { return u.awaited.wanted; }
    /// Whether one that is linked may want something else.
    bool isMixed() const { return isMixed_; }
    void setMixed() { isMixed_ = true; }
    void setFirst(void* slot, unsigned int wanted) {
        address_ = slot;
        u.awaited.wanted = wanted;
    }
    ///@}
    ///@{
    /// Awaited: the place that was linked last, as its index + 1; 0 for none.
    unsigned int waiting() const { return isDefined() ? 0 : waiting_; }
    void setWaiting(unsigned int place) { waiting_ = place; }
    ///@}
    ///@{
    /// Awaited block: the length that it must have.
    unsigned int least() const { return u.awaited.least; }
    void raiseLeast(unsigned int bytes) { u.awaited.least = std::max(u.awaited.least, bytes); }
    ///@}
    ///@{
    /// Awaited block: whether a pointer field wants it, and not only strings.
    bool isWantedPlain() const { return isWantedPlain_; }
    void wantPlain() { isWantedPlain_ = true; }
    bool isAwaitedText() const { return kind_ == awaitedBlock && !isWantedPlain_; }
    ///@}

    void defineType(fxTypeObj& newType) {
        kind_ = type;
        u.type = &newType;
    }
    void defineObject(Kind kind, fxTypeObj& newType, void* newAddress, unsigned int newBody) {
        kind_ = kind;
        body_ = newBody;
        address_ = newAddress;
        u.type = &newType;
    }
    /// Type, object, part.
    fxTypeObj& record() const { return *u.type; }
    void* address() const { return address_; }   ///< Object, part.
    unsigned int body() const { return body_; }  ///< Object, part: serial number of the body.

    ///@{
    /// Object, awaited or not: whether one place may own it, which nothing else may
    /// hold then; whether one more may hold it. Parts of objects are not for these.
    bool claim() {
        const bool isFree = kind_ != part && !isShared_ && !isOwned_;
        isOwned_ |= kind_ != part && !isShared_;
        return isFree;
    }
    bool share() {
        isShared_ = true;
        return kind_ != part && !isOwned_;
    }
    ///@}

    unsigned int bytes() const { return bytes_; }  ///< Block: its length.
    /// Block: what copies are made from; null once a pointer field has got it and
    /// may have freed it.
    const char* source() const {
        return u.text != nullptr || holder == field ? u.text : static_cast<const char*>(address_);
    }

private:
    friend class fxReaderNumbers;

    /// Who has the malloc() memory of a block: we, or a pointer field since now
    /// or since before the caller last had control.
    enum Holder : unsigned char { table, fieldSinceNow, field };

    Kind kind_ = unknown;
    bool isOwned_ : 1;   // an object or a block's memory, by a place
    bool isShared_ : 1;  // an object, by the caller or holders; a block's memory, by places
    bool isWantedPlain_ : 1;
    bool isMixed_ : 1;
    Holder holder = table;
    union {
        unsigned int waiting_ = 0;  // awaited
        unsigned int body_;         // object, part
        unsigned int bytes_;        // block
    };
    void* address_ = nullptr;  // object, part; block: its malloc() memory or null; awaited: a slot
    union {
        struct {
            unsigned int least;
            unsigned int wanted;
        } awaited;
        fxTypeObj* type;
        const char* text;  // block: if only strings want it, in the text chunks
    } u = {{0, 0}};
};
static_assert(sizeof(fxReaderEntry) == 24);

#endif
