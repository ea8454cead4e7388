// Properties: named, typed values that any fxObj can carry.
#ifndef FXDS_PROPERTY_H
#define FXDS_PROPERTY_H

#include <type_traits>

#include "fxds/RCObj.h"

class fxData;
class fxObj;
class fxStr;
class fxStrArray;

/// One value of one of eight kinds, under a tag. The getters reinterpret the
/// value as their kind and do not check it; the setters are meant for a
/// property of the matching kind and do not change it.
class FX_API fxProperty : public fxRCObj {
public:
    typedef void Destructor(void*);  ///< Destroys the target of an opaque pointer.

    /// The tag that means no name.
    static constexpr unsigned short noTag = 65535;

    ///@{
    /// A boolean, long or double property.
    fxProperty(unsigned short tag, unsigned char value);
    fxProperty(unsigned short tag, long value);
    fxProperty(unsigned short tag, double value);
    ///@}
    /// Keeps the pointer, not a copy. An owned text must come from
    /// `operator new` (see fxCopyCharPtr()).
    fxProperty(unsigned short tag, char const* text, unsigned char owned);
    /// Keeps a copy of the string.
    fxProperty(unsigned short tag, fxStr const& value);
    /// `destructor` is called on the pointer when the property releases it, even if the
    /// pointer is null; it may be null itself.
    fxProperty(unsigned short tag, void* pointer, Destructor* destructor);
    /// Shared. It may be null.
    fxProperty(unsigned short tag, fxObj* object);
    /// Shared. It may be null.
    fxProperty(unsigned short tag, fxData* data);
    /// A bool makes a boolean property, an int a long one. (A template, so that
    /// no pointer is ever taken for a bool.)
    template <class B, std::enable_if_t<std::is_same_v<B, bool>, int> = 0>
    fxProperty(unsigned short tag_, B value_)
        : fxProperty(tag_, static_cast<unsigned char>(value_)) {}
    /// A long property.
    fxProperty(unsigned short tag_, int value_) : fxProperty(tag_, static_cast<long>(value_)) {}
    fxProperty(const fxProperty&) = delete;
    fxProperty& operator=(const fxProperty&) = delete;
    ~fxProperty() override;

    /// Allocates a new tag for `name`, even if it has one already (findTag() still returns
    /// the first). Tags are never reused; the 65,536th is fatal.
    static unsigned short allocNewTag(char const* name);
    /// The first tag of `name`, or 65535. Searches all names: keep the tag.
    static unsigned short findTag(char const* name);
    /// Makes the table of names if there is none. Start-up does, and
    /// allocNewTag() when it comes before.
    static void constructPropertyNames();
    /// Forgets all names. Properties keep their tags, and the numbering of tags continues.
    static void destroyPropertyNames();

    /// The number that names the property; see findTag().
    unsigned short getTag() const { return tag; }
    /// The name of the tag; null for a tag that was not allotted by a name.
    /// View, good until a name is added or the names are forgotten.
    const char* getName() const;
    /// The data type number; for a boxed value that value's own.
    unsigned short getType() const;
    /// How the value is held: as getType(), but fxDT_DataPtr for a boxed value.
    unsigned short getKind() const { return type; }

    ///@{
    /// The value, read as one of this kind without a check: call getKind() first.
    /// Pointers and references are views, good until the value is set or the
    /// property goes.
    unsigned char getAsBool() const;
    long getAsLong() const;
    double getAsDouble() const;
    const char* getAsCharPtr() const;
    fxStr& getAsStr() const;
    void* getAsVoidPtr() const;
    fxObj* getAsObjPtr() const;
    fxData* getAsData() const;
    ///@}
    /// The destructor of an opaque pointer, or null.
    Destructor* getDestructor() const;

    ///@{
    /// Replaces the value, and treats the argument as the constructor of the
    /// kind does. Requires: getKind() is this kind.
    void setAsBool(unsigned char value);
    void setAsLong(long value);
    void setAsDouble(double value);
    void setAsCharPtr(char const* text, unsigned char owned);
    void setAsStr(fxStr const& value);
    void setAsVoidPtr(void* pointer, Destructor* destructor);
    ///@}
    /// The new target is held before the old one is released, so setting the
    /// present target again changes nothing. Requires: getKind() is fxDT_ObjPtr.
    void setAsObjPtr(fxObj* object);
    /// Shared, and held before the old value is released.
    /// Requires: getKind() is fxDT_DataPtr.
    void setAsData(fxData* data);

    /// Releases a value that the property owns or shares, and sets it to null; any other
    /// value (numbers, borrowed texts and pointers) stays. May be called again; it then
    /// does nothing. Requires before getAsStr(): setAsStr().
    void cleanup();

private:
    fxProperty(unsigned short tag, unsigned short type);

    unsigned short tag;
    unsigned short type;
    unsigned long value;  // eight bytes, by kind
    unsigned long extra;  // owned flag of a text, destructor of an opaque pointer
};

/// Name of each tag, by tag; null until start-up.
extern FX_API fxStrArray* fx_propertyNames;

#endif
