#include "fxds/Property.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "fxds/Data.h"
#include "fxds/DataTypes.h"
#include "fxds/Fatal.h"
#include "fxds/KeyHooks.h"
#include "fxds/Obj.h"
#include "fxds/Str.h"
#include "fxds/StrArray.h"
#include "fxds/dataflow/Belongings.h"
#include "fxds/dataflow/TraceLines.h"
#include "fxds/detail/NestedRelease.h"

// A property is a tag, a kind and two slots of eight bytes. Values are copied into zeroed
// slots and out of them as bytes, so that reading a property as another kind than its own
// gives defined, if useless, values.
//
// Invariants:
// (1) `type` never changes. It alone decides which slots own something: an fxStr, a hold on
//     an object or on boxed data, a text if `extra` is set, and the target of an opaque
//     pointer if `extra` has its destructor.
// (2) After cleanup() an owning property has two empty slots, so that a second one releases
//     nothing. A string property has no string then, until setAsStr() makes one.
// (3) Tags count up and are never given out twice, even after the names were destroyed.
//
// Releasing a value may run code of the program, which may read this property again, or set
// it. So the slots are rewritten before anything is released; and a counted value is taken
// before the old one is released, because both may be the same.

fxStrArray* fx_propertyNames = nullptr;

namespace {

unsigned short nextTag = 0;

// A hint to the index of a name in the table of names. The table is public and may be
// written, so a hit is compared with the table, and a miss walks the table.
//
// Invariants, while `table` is the table of names:
// (1) The number of slots is a power of two and some are free, so every search ends.
// (2) The names of all tags below `entered` were entered, each under the first tag that it
//     had then. A slot whose name has been overwritten since matches no search for the old
//     name.
class NameHint {
public:
    /// Tables with fewer names are searched directly.
    static constexpr unsigned int fewest = 16;

    /// A tag of the name, or noTag.
    unsigned short find(const fxStrArray& names, const char* name) {
        if (&names != table || names.length() < entered) {
            table = &names;
            entered = 0;
            clear(names.length());
        }
        while (entered < names.length()) enter(names, entered++);
        return search(names, name)->tag;
    }
    /// Notes the index of a name.
    void enter(const fxStrArray& names, unsigned int tag) {
        if (4 * used >= 3 * slots.size()) {
            clear(entered);
            for (unsigned int i = 0; i < entered; ++i) put(names, i);
        }
        put(names, tag);
    }
    void forget() { table = nullptr; }

private:
    struct Slot {
        unsigned short tag = fxProperty::noTag;  // of a free slot
        unsigned short print = 0;                // of the name
    };

    void clear(unsigned int expected) {
        size_t size = 64;
        while (size < 2 * size_t{expected}) size *= 2;
        slots.assign(size, Slot());
        used = 0;
    }
    // The slot with a tag of the name, or the free one where it belongs.
    Slot* search(const fxStrArray& names, const char* name) {
        const unsigned long hash = fxFingerprint(name, std::strlen(name));
        print = static_cast<unsigned short>(hash >> 48);
        size_t i = hash & (slots.size() - 1);
        while (slots[i].tag != fxProperty::noTag &&
               (slots[i].print != print || slots[i].tag >= names.length() ||
                names[slots[i].tag] != name)) {
            i = (i + 1) & (slots.size() - 1);
        }
        return &slots[i];
    }
    // The first tag of a name is kept.
    void put(const fxStrArray& names, unsigned int tag) {
        Slot* const slot = search(names, names[tag].c_str());
        if (slot->tag != fxProperty::noTag) return;
        *slot = {static_cast<unsigned short>(tag), print};
        ++used;
    }

    std::vector<Slot> slots;  // a power of two; at most three quarters are used
    size_t used = 0;
    unsigned int entered = 0;  // tags below have been entered
    unsigned short print = 0;  // of the name that was searched for last
    const fxStrArray* table = nullptr;
};

// Exists until the process ends.
NameHint& nameHint() {
    static auto* const hint = new NameHint;
    return *hint;
}

template <class T>
unsigned long asSlot(T value) {
    static_assert(sizeof(T) <= sizeof(unsigned long));
    unsigned long slot = 0;
    std::memcpy(&slot, &value, sizeof value);
    return slot;
}

template <class T>
T fromSlot(const unsigned long& slot) {
    T value;
    std::memcpy(&value, &slot, sizeof value);
    return value;
}

template <class Counted>
void takeIfAny(Counted* target) {
    if (target != nullptr) target->take();
}

void hold(fxObj* object) {
    takeIfAny(object);
    if (fxTrace::isOn(fxTrace::held) && object != nullptr) fxTraceLines::holding(*object);
}

void releaseIfAny(fxData* target) {
    if (target != nullptr) target->release();
}

void releaseIfAny(fxObj* target) {
    if (target != nullptr) fxDetail::releaseNested(target);
}

}  // namespace

fxProperty::fxProperty(unsigned short tag_, unsigned short type_)
    : tag(tag_), type(type_), value(0), extra(0) {}

fxProperty::fxProperty(unsigned short tag_, unsigned char value_) : fxProperty(tag_, fxDT_fxBool) {
    value = asSlot(value_);
}

fxProperty::fxProperty(unsigned short tag_, long value_) : fxProperty(tag_, fxDT_long) {
    value = asSlot(value_);
}

fxProperty::fxProperty(unsigned short tag_, double value_) : fxProperty(tag_, fxDT_double) {
    value = asSlot(value_);
}

fxProperty::fxProperty(unsigned short tag_, char const* text, unsigned char owned)
    : fxProperty(tag_, fxDT_CharPtr) {
    value = asSlot(text);
    extra = asSlot(owned);
}

fxProperty::fxProperty(unsigned short tag_, fxStr const& value_) : fxProperty(tag_, fxDT_fxStr) {
    value = asSlot(new fxStr(value_));
}

fxProperty::fxProperty(unsigned short tag_, void* pointer, Destructor* destructor)
    : fxProperty(tag_, fxDT_VoidPtr) {
    value = asSlot(pointer);
    extra = asSlot(destructor);
}

fxProperty::fxProperty(unsigned short tag_, fxObj* object) : fxProperty(tag_, fxDT_ObjPtr) {
    hold(object);
    value = asSlot(object);
}

fxProperty::fxProperty(unsigned short tag_, fxData* data) : fxProperty(tag_, fxDT_DataPtr) {
    takeIfAny(data);
    value = asSlot(data);
}

fxProperty::~fxProperty() { cleanup(); }

unsigned short fxProperty::allocNewTag(char const* name) {
    if (nextTag == noTag) fxFatal("fxProperty::allocNewTag: all %d tags are taken", noTag);
    const unsigned short tag = nextTag++;
    fxEnterPropertyName(tag, name);
    return tag;
}

// The table may have been destroyed and made again; tags continue their count, so it may
// lack more than one name.
void fxEnterPropertyName(unsigned short tag, char const* name) {
    fxProperty::constructPropertyNames();
    if (fx_propertyNames->length() <= tag) {
        fx_propertyNames->setMaxLength(fx_propertyNames->length() + 50u);
        while (fx_propertyNames->length() <= tag) fx_propertyNames->append(fxStr());
    } else {
        nameHint().forget();  // a later tag may have the name, too
    }
    (*fx_propertyNames)[tag] = name;
}

unsigned short fxProperty::findTag(char const* name) {
    if (fx_propertyNames == nullptr) return noTag;
    const fxStrArray& names = *fx_propertyNames;
    const bool isHinted = name != nullptr && names.length() >= NameHint::fewest;
    const unsigned short hint = isHinted ? nameHint().find(names, name) : noTag;
    if (hint != noTag) return hint;
    const auto* const found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) return noTag;
    const auto tag = static_cast<unsigned short>(found - names.begin());
    if (isHinted) nameHint().enter(names, tag);
    return tag;
}

void fxProperty::constructPropertyNames() {
    if (fx_propertyNames == nullptr) fx_propertyNames = new fxStrArray;
}

void fxProperty::destroyPropertyNames() {
    nameHint().forget();
    delete std::exchange(fx_propertyNames, nullptr);
}

const char* fxProperty::getName() const {
    if (fx_propertyNames == nullptr || tag >= fx_propertyNames->length()) return nullptr;
    return (*fx_propertyNames)[tag].c_str();
}

unsigned short fxProperty::getType() const {
    if (type != fxDT_DataPtr) return type;
    const fxData* data = getAsData();
    return data != nullptr ? data->getType() : type;
}

unsigned char fxProperty::getAsBool() const { return fromSlot<unsigned char>(value); }

long fxProperty::getAsLong() const { return fromSlot<long>(value); }

double fxProperty::getAsDouble() const { return fromSlot<double>(value); }

const char* fxProperty::getAsCharPtr() const { return fromSlot<const char*>(value); }

fxStr& fxProperty::getAsStr() const { return *fromSlot<fxStr*>(value); }

void* fxProperty::getAsVoidPtr() const { return fromSlot<void*>(value); }

fxObj* fxProperty::getAsObjPtr() const { return fromSlot<fxObj*>(value); }

fxData* fxProperty::getAsData() const { return fromSlot<fxData*>(value); }

fxProperty::Destructor* fxProperty::getDestructor() const {
    return type == fxDT_VoidPtr ? fromSlot<Destructor*>(extra) : nullptr;
}

void fxProperty::setAsBool(unsigned char value_) {
    FX_ASSERT(type == fxDT_fxBool);
    value = asSlot(value_);
}

void fxProperty::setAsLong(long value_) {
    FX_ASSERT(type == fxDT_long);
    value = asSlot(value_);
}

void fxProperty::setAsDouble(double value_) {
    FX_ASSERT(type == fxDT_double);
    value = asSlot(value_);
}

void fxProperty::setAsCharPtr(char const* text, unsigned char owned) {
    FX_ASSERT(type == fxDT_CharPtr);
    char* old = fromSlot<char*>(value);
    const bool freeOld = fromSlot<unsigned char>(extra) != 0 && old != text;
    value = asSlot(text);
    extra = asSlot(owned);
    if (freeOld) ::operator delete(old);
}

void fxProperty::setAsStr(fxStr const& value_) {
    FX_ASSERT(type == fxDT_fxStr);
    if (value == 0) {
        value = asSlot(new fxStr(value_));  // cleaned up before
    } else {
        getAsStr() = value_;
    }
}

void fxProperty::setAsVoidPtr(void* pointer, Destructor* destructor) {
    FX_ASSERT(type == fxDT_VoidPtr);
    void* old = fromSlot<void*>(value);
    Destructor* oldDestructor = fromSlot<Destructor*>(extra);
    value = asSlot(pointer);
    extra = asSlot(destructor);
    if (oldDestructor != nullptr) oldDestructor(old);
}

void fxProperty::setAsObjPtr(fxObj* object) {
    FX_ASSERT(type == fxDT_ObjPtr);
    hold(object);
    fxObj* old = getAsObjPtr();
    value = asSlot(object);
    releaseIfAny(old);
}

void fxProperty::setAsData(fxData* data) {
    FX_ASSERT(type == fxDT_DataPtr);
    takeIfAny(data);
    fxData* old = getAsData();
    value = asSlot(data);
    releaseIfAny(old);
}

void fxProperty::cleanup() {
    const bool isOwner = type == fxDT_fxStr || type == fxDT_ObjPtr || type == fxDT_DataPtr ||
                         ((type == fxDT_CharPtr || type == fxDT_VoidPtr) && extra != 0);
    if (!isOwner) return;
    const unsigned long oldValue = std::exchange(value, 0);
    const unsigned long oldExtra = std::exchange(extra, 0);
    if (type == fxDT_CharPtr) {
        ::operator delete(fromSlot<char*>(oldValue));
    } else if (type == fxDT_fxStr) {
        delete fromSlot<fxStr*>(oldValue);
    } else if (type == fxDT_VoidPtr) {
        fromSlot<Destructor*>(oldExtra)(fromSlot<void*>(oldValue));
    } else if (type == fxDT_ObjPtr) {
        releaseIfAny(fromSlot<fxObj*>(oldValue));
    } else if (type == fxDT_DataPtr) {
        releaseIfAny(fromSlot<fxData*>(oldValue));
    }
}
