// Properties by name, read and set with the types of C++.
#ifndef FXDS_PROPERTYACCESS_H
#define FXDS_PROPERTYACCESS_H

#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "fxds/Connection.h"
#include "fxds/Data.h"
#include "fxds/Obj.h"
#include "fxds/Property.h"
#include "fxds/Ref.h"
#include "fxds/Str.h"

namespace fxDetail {
// What an fxRef holds; void for another type.
template <class T>
struct HeldBy {
    typedef void Type;
};
template <class T>
struct HeldBy<fxRef<T>> {
    typedef T Type;
};
}  // namespace fxDetail

/// The tag of a property name, which gets one if it has none. Other ways to a
/// property by name search all names; with many properties keep the tag.
inline unsigned short fxPropertyTag(const char* name) {
    const unsigned short tag = fxProperty::findTag(name);
    return tag != fxProperty::noTag ? tag : fxProperty::allocNewTag(name);
}

/// The value of a property as a T; nothing when there is no property, which
/// fxObj::findProperty() shows, or when it is of another kind. `key` is a tag or a name.
/// Whole numbers are read from whole numbers that they can hold; fractions from all numbers
/// in their range; strings (fxStr, std::string) from texts, null ones being empty; a pointer
/// to a class that derives from fxObj from an object that is of it (a view), and so an fxRef;
/// a type of FX_CHANNEL_VALUE from a boxed value.
template <class T, class Key>
std::optional<T> fxFindProperty(const fxObj& object, Key key) {
    const fxProperty* const property = const_cast<fxObj&>(object).findProperty(key);
    if (property == nullptr) return std::nullopt;
    const unsigned short kind = property->getKind();
    if constexpr (std::is_same_v<T, bool>) {
        if (kind == fxDT_fxBool) return property->getAsBool() != 0;
    } else if constexpr (std::is_integral_v<T>) {
        if (kind != fxDT_long) return std::nullopt;
        const long value = property->getAsLong();
        const T result = static_cast<T>(value);
        if (static_cast<long>(result) == value && (result < 0) == (value < 0)) return result;
    } else if constexpr (std::is_floating_point_v<T>) {
        if (kind == fxDT_long) return static_cast<T>(property->getAsLong());
        if (kind != fxDT_double) return std::nullopt;
        const double value = property->getAsDouble();
        constexpr double most = static_cast<double>(std::numeric_limits<T>::max());
        if (!std::isfinite(value) || std::abs(value) <= most) return static_cast<T>(value);
    } else if constexpr (std::is_pointer_v<T> && std::is_convertible_v<T, const fxObj*>) {
        if (kind != fxDT_ObjPtr) return std::nullopt;
        if (T const found = dynamic_cast<T>(property->getAsObjPtr())) return found;
    } else if constexpr (!std::is_void_v<typename fxDetail::HeldBy<T>::Type>) {
        return fxFindProperty<typename fxDetail::HeldBy<T>::Type*>(object, key);
    } else if constexpr (fxDetail::isOwnKind<T>) {
        if (kind != fxDT_DataPtr || property->getType() != fxChannelType<T>::type()) {
            return std::nullopt;
        }
        typedef const typename fxChannelType<T>::Box Box;
        if (const auto* const box = dynamic_cast<Box*>(property->getAsData())) return box->value;
    } else {
        static_assert(std::is_same_v<T, fxStr> || std::is_same_v<T, std::string>,
                      "a property is read as a number, a boolean, an fxStr, a std::string, a "
                      "pointer to an object or a type of FX_CHANNEL_VALUE");
        if (kind == fxDT_fxStr) return T(property->getAsStr().view());
        if (kind != fxDT_CharPtr) return std::nullopt;
        const char* const text = property->getAsCharPtr();
        return T(text != nullptr ? text : "");
    }
    return std::nullopt;
}

/// The same, with `fallback` in place of nothing: a wrong kind is not reported.
template <class T, class Key>
T fxGetProperty(const fxObj& object, Key key, T fallback = T()) {
    return fxFindProperty<T>(object, key).value_or(std::move(fallback));
}

/// Puts a new property in place of the one with the key, which is a tag, or a name
/// that gets one if it has none. Booleans, whole numbers and fractions become booleans,
/// longs and doubles; texts a copy; objects are shared; a type of FX_CHANNEL_VALUE is
/// boxed.
template <class Key, class T>
void fxSetProperty(fxObj& object, Key key, const T& value) {
    typedef std::decay_t<T> Value;
    unsigned short tag;
    if constexpr (std::is_integral_v<Key>) {
        tag = key;
    } else {
        tag = fxPropertyTag(key);
    }
    fxRef<fxProperty> property;
    if constexpr (std::is_same_v<Value, bool>) {
        property = new fxProperty(tag, value);
    } else if constexpr (std::is_enum_v<Value> || std::is_integral_v<Value>) {
        static_assert(sizeof(Value) < sizeof(long) || !std::is_unsigned_v<Value>,
                      "a property holds no unsigned long: make it a long or a double");
        property = new fxProperty(tag, static_cast<long>(value));
    } else if constexpr (std::is_floating_point_v<Value>) {
        property = new fxProperty(tag, static_cast<double>(value));
    } else if constexpr (fxDetail::isOwnKind<Value>) {
        property = new fxProperty(
            tag, static_cast<fxData*>(new typename fxChannelType<Value>::Box(value)));
    } else if constexpr (std::is_pointer_v<Value> && std::is_convertible_v<Value, const char*>) {
        property = new fxProperty(tag, fxStr(static_cast<const char*>(value)));  // null is empty
    } else if constexpr (std::is_convertible_v<T, std::string_view>) {
        property = new fxProperty(tag, fxStr(std::string_view(value)));
    } else if constexpr (std::is_convertible_v<T, fxStr>) {
        property = new fxProperty(tag, fxStr(value));
    } else {
        static_assert(std::is_convertible_v<T, fxObj*>,
                      "a property is a number, a boolean, a text, an object or a type of "
                      "FX_CHANNEL_VALUE");
        property = new fxProperty(tag, static_cast<fxObj*>(value));
    }
    object.setProperty(property);
}

/// Sets the property to each value of the output, until the connection is cut or the
/// object begins to end. `key` as in fxSetProperty().
template <class Key, class T>
fxConnection fxBindProperty(fxObj& object, Key key, const fxOutputView<T>& output) {
    if constexpr (std::is_integral_v<Key>) {
        fxObj* const target = &object;
        return fxConnect(output, target,
                         [target, key](const T& value) { fxSetProperty(*target, key, value); });
    } else {
        return fxBindProperty(object, fxPropertyTag(key), output);
    }
}

#endif
