// The state of one record number in the reader.
#ifndef FXDS_STREAMS_READERENTRY_H
#define FXDS_STREAMS_READERENTRY_H

#include <algorithm>

#include "fxds/Config.h"
#include "fxds/TypeObj.h"

/// Entries are small because there is one for each number.
///
/// Invariants:
/// (1) kind() only moves forward: unknown, perhaps awaited as an object or a block,
///     defined. A defined number keeps its kind until the numbers are cleared.
/// (2) kind() decides which members of the unions are valid, as noted at each.
/// (3) A block whose holder is `table` has an address_ that is null or ours to free.
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
    /// Awaited: the first place that waits, and what it wants; null for none. Further
    /// places are linked.
    void* firstSlot() const { return isDefined() ? nullptr : address_; }
    unsigned int firstWanted() const { return u.awaited.wanted; }
    /// Whether a linked place may want something else.
    bool isMixed() const { return isMixed_; }
    void setMixed() { isMixed_ = true; }
    void setFirst(void* slot, unsigned int wanted) {
        address_ = slot;
        u.awaited.wanted = wanted;
    }
    ///@}
    ///@{
    /// Awaited: the place that was linked last, as index + 1; 0 for none.
    unsigned int waiting() const { return isDefined() ? 0 : waiting_; }
    void setWaiting(unsigned int place) { waiting_ = place; }
    ///@}
    ///@{
    /// Awaited block: the minimum length.
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
    /// Object, awaited or not. claim() returns whether a place may own it, exclusively;
    /// share() whether one more place may hold it. Neither accepts a part.
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
    /// Block: the bytes to copy; null once a pointer field has the memory and may have
    /// freed it.
    const char* source() const {
        return u.text != nullptr || holder == field ? u.text : static_cast<const char*>(address_);
    }

private:
    friend class fxReaderNumbers;

    /// The owner of the malloc() memory of a block: this table, or a pointer field, since
    /// the caller last had control or since before that.
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
