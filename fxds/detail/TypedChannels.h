// Construction and checks of typed inputs, outputs, converters and calls. Part of the
// public headers, not of the interface.
#ifndef FXDS_DETAIL_TYPEDCHANNELS_H
#define FXDS_DETAIL_TYPEDCHANNELS_H

#include <limits>
#include <optional>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "fxds/DataTypes.h"

class fxInputChannel;
class fxObj;

namespace fxDetail {

// The names of the kinds that are sent, for messages of the compiler.
#define FX_SENT_NAME(number, name, Value, Passed, Box) " " name
#define FX_HELD_NAME(number, name)
#define FX_SENT_NAMES                         \
    FX_DATA_TYPES(FX_SENT_NAME, FX_HELD_NAME) \
    ", const char*, std::string, std::string_view, or a type of FX_CHANNEL_VALUE"

template <class T>
using Bare = std::remove_cv_t<std::remove_reference_t<T>>;

// Whether channels carry values of type T.
template <class T, class = void>
struct IsSent : std::false_type {};
template <class T>
struct IsSent<T, std::void_t<typename fxChannelType<T>::Value>> : std::true_type {};

// Whether every value of type V, a number, is a value of type T. A boolean byte
// is a bool and the other way round; apart from that, no number becomes a bool.
template <class T, class V>
constexpr bool holds() {
    typedef std::numeric_limits<T> To;
    typedef std::numeric_limits<V> From;
    if (std::is_same_v<T, bool>) return std::is_same_v<V, bool> || std::is_same_v<V, unsigned char>;
    return From::digits <= To::digits && (To::is_signed || !From::is_signed) &&
           (From::is_integer || !To::is_integer);
}

// Whether a V may be sent on an output of T: it converts, no value changes on
// the way, and no pointer becomes a bool.
template <class T, class V>
constexpr bool fits() {
    typedef std::decay_t<V> From;
    if constexpr (!std::is_convertible_v<From, T>) {
        return false;
    } else if constexpr (!std::is_arithmetic_v<T> || std::is_class_v<From>) {
        return true;
    } else if constexpr (std::is_enum_v<From>) {
        return holds<T, std::make_signed_t<std::underlying_type_t<From>>>();
    } else {
        return std::is_arithmetic_v<From> && holds<T, From>();
    }
}

// The parameter of a receiving function for a T: that of its kind, or T itself for kinds of
// the application's own.
template <class T, bool = IsSent<Bare<T>>::value>
struct PassedFor {
    typedef T Type;
};
template <class T>
struct PassedFor<T, true> {
    typedef typename fxChannelType<Bare<T>>::Passed Type;
};
template <class T>
using Passed = typename PassedFor<T>::Type;

// `value` as it is passed. Text and strings lose their const on the way to the
// receivers, which may not change them.
template <class T>
inline Passed<T> pass(std::remove_reference_t<T>& value) {
    if constexpr (!IsSent<Bare<T>>::value) {
        return static_cast<T>(value);
    } else if constexpr (std::is_arithmetic_v<Bare<T>>) {
        return value;
    } else {
        return const_cast<Passed<T>>(value);
    }
}

// Whether receiving functions of `type` take just these values. Those of kinds of
// the application's own may take anything, those of kinds that no channel of the
// library carries what is no kind itself.
template <class... Values>
inline bool areTakenBy(unsigned short type) {
    bool isSent = false;
    bool isHeld = false;
#define FX_SENT(number, ...) isSent = isSent || type == number;
#define FX_HELD(number, ...) isHeld = isHeld || type == number;
    FX_DATA_TYPES(FX_SENT, FX_HELD)
#undef FX_HELD
#undef FX_SENT
    if (!isSent && !isHeld) return true;
    const auto isTaken = [&](auto* none) {
        typedef std::remove_pointer_t<decltype(none)> T;
        if constexpr (IsSent<T>::value) {
            return type == fxChannelType<T>::type();
        } else {
            return isHeld;
        }
    };
    if constexpr (sizeof...(Values) == 0) return isTaken(static_cast<void*>(nullptr));
    return sizeof...(Values) == 1 && (isTaken(static_cast<Bare<Values>*>(nullptr)) && ...);
}

// Whether a receiver may declare its argument so: the value, a reference to
// const, or the reference that is passed.
template <class Argument, bool = IsSent<Bare<Argument>>::value && !std::is_void_v<Argument>>
struct IsReceived : std::false_type {};
template <class Argument>
struct IsReceived<Argument, true>
    : std::bool_constant<!std::is_reference_v<Argument> ||
                         std::is_same_v<Argument, const Bare<Argument>&> ||
                         std::is_same_v<Argument, Passed<Argument>>> {};

template <class T>
inline constexpr bool isStandardText =
    std::is_same_v<T, std::string> || std::is_same_v<T, std::string_view>;

// The type that a receiver's argument is taken as: a reference only where the passed
// value is of the same type.
template <class Argument>
using Received = std::conditional_t<std::is_same_v<Bare<Argument>, Bare<Passed<Argument>>>,
                                    Argument, Bare<Argument>>;
template <class Argument, class Value>
Received<Argument> received(Value& value) {
    if constexpr (isStandardText<Bare<Argument>>) {
        if constexpr (std::is_pointer_v<Value>) {
            return value != nullptr ? Bare<Argument>(value) : Bare<Argument>();
        } else {
            return Bare<Argument>(value.data, value.length());
        }
    } else {
        return static_cast<Received<Argument>>(value);
    }
}

// Whether a send of this mode (fxObj::fxSendFlags) delivers its value: one that does
// not exist only cancels, and nothing would delete a box.
constexpr bool delivers(int how) { return how >= 0 && how <= 2; }

// Whether T is a kind of value of the program's own (see ChannelValue.h).
template <class T, class = void>
inline constexpr bool isOwnKind = false;
template <class T>
inline constexpr bool isOwnKind<T, std::enable_if_t<fxChannelType<T>::isOwnKind>> = true;

// Whether a V that does not convert to T, a kind of text, may be sent on an output
// of T all the same: a view, or what converts to one.
template <class T, class V>
constexpr bool isText() {
    typedef std::decay_t<V> From;
    if constexpr (std::is_same_v<T, fxStr> || std::is_same_v<T, const char*> ||
                  std::is_same_v<T, std::string>) {
        return !std::is_convertible_v<From, T> && (std::is_convertible_v<From, std::string_view> ||
                                                   std::is_convertible_v<From, fxStr>);
    } else {
        return false;
    }
}

// The type that is sent for a value of type T.
template <class T>
decltype(auto) sentFor(const T& value) {
    typedef typename fxChannelType<T>::Value Value;
    if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, std::string_view>) {
        return Value(std::string_view(value));
    } else if constexpr (std::is_same_v<T, Value>) {
        return static_cast<const Value&>(value);
    } else {
        return static_cast<Value>(value);
    }
}

// The result of a conversion to T, as the type that is sent.
template <class T, class Make>
auto inTransit(Make make) {
    if constexpr (std::is_same_v<typename fxChannelType<T>::Value, T>) {
        return make();
    } else {
        return typename fxChannelType<T>::Value(sentFor<T>(make()));
    }
}

// Whether an fxObj* can be cast to C*.
template <class C, class = void>
struct IsObject : std::false_type {};
template <class C>
struct IsObject<C, std::void_t<decltype(static_cast<C*>(static_cast<fxObj*>(nullptr)))>>
    : std::true_type {};

// Returns null if the object is of the class that a receiver belongs to; otherwise that
// class.
typedef const std::type_info* ClassTest(fxObj& owner);

// The callable of an input; deleted with the channel.
class FX_API KeptCallable {
public:
    KeptCallable() = default;
    KeptCallable(const KeptCallable&) = delete;
    KeptCallable& operator=(const KeptCallable&) = delete;
    virtual ~KeptCallable();

    fxInputChannel* channel = nullptr;  // that keeps it
};

// The parts of an input, but for its name and closure.
struct InputFunction {
    unsigned short type;
    void (*function)();
    ClassTest* classTest;  // or null
};

// A new input without holders and name, for a callable that it adopts.
FX_API fxInputChannel* newInputFor(KeptCallable* callable, void* closure,
                                   const InputFunction& function, unsigned char replace);

template <class C>
const std::type_info* testClass(fxObj& owner) {
#ifdef __GXX_RTTI
    return dynamic_cast<C*>(&owner) != nullptr ? nullptr : &typeid(C);
#else
    static_cast<void>(owner);
    return nullptr;
#endif
}

// A member function as a receiver. `isFit` is false for those that are none.
template <class Method>
struct Receiver {
    static constexpr bool isFit = false;
};
template <class C>
struct Receiver<void (C::*)()> {
    typedef C Class;
    static constexpr bool isFit = true;
    static unsigned short type() { return fxDT_void; }
    template <auto method>
    static void call(void* self) {
        (static_cast<C*>(self)->*method)();
    }
};
template <class C, class Argument>
struct Receiver<void (C::*)(Argument)> {
    typedef C Class;
    static constexpr bool isFit = IsReceived<Argument>::value;
    static unsigned short type() { return fxChannelType<Bare<Argument>>::type(); }
    template <auto method>
    static void call(void* self, Passed<Argument> value) {
        (static_cast<C*>(self)->*method)(received<Argument>(value));
    }
};
template <class C, class... Arguments>
struct Receiver<void (C::*)(Arguments...) const> : Receiver<void (C::*)(Arguments...)> {};
template <class C, class... Arguments>
struct Receiver<void (C::*)(Arguments...) noexcept> : Receiver<void (C::*)(Arguments...)> {};
template <class C, class... Arguments>
struct Receiver<void (C::*)(Arguments...) const noexcept> : Receiver<void (C::*)(Arguments...)> {};

// A function as a conversion. `isFit` is false for those that are none.
template <class Function>
struct Conversion {
    static constexpr bool isFit = false;
};
template <class To, class From>
struct Conversion<To (*)(From)> {
    static constexpr bool isFit =
        IsReceived<From>::value && IsSent<To>::value && !std::is_void_v<To>;
    static unsigned short from() { return fxChannelType<Bare<From>>::type(); }
    static unsigned short to() { return fxChannelType<To>::type(); }
    template <class Call, class Input>
    static void run(void* input, Passed<From> value) {
        static_cast<Input*>(input)->call(
            inTransit<To>([&]() -> To { return Call::call(received<From>(value)); }));
    }
};
template <class To, class From>
struct Conversion<To (*)(From) noexcept> : Conversion<To (*)(From)> {};
template <class C, class To, class From>
struct Conversion<To (C::*)(From) const> : Conversion<To (*)(From)> {};
template <class C, class To, class From>
struct Conversion<To (C::*)(From) const noexcept> : Conversion<To (*)(From)> {};

// The callable of a conversion: a function, or an object without state.
template <auto function>
struct FixedCall {
    template <class Value>
    static decltype(auto) call(Value&& value) {
        return function(std::forward<Value>(value));
    }
};
template <class Function>
struct StatelessCall {
    template <class Value>
    static decltype(auto) call(Value&& value) {
        return (*function)(std::forward<Value>(value));
    }
    inline static std::optional<Function> function;
};

// Callables that are objects: what they take, as declared; void for nothing. No
// Type for those with several signatures.
template <class Member>
struct CallableOf {};
template <class C, class Result>
struct CallableOf<Result (C::*)()> {
    typedef void Type;
};
template <class C, class Result, class Argument>
struct CallableOf<Result (C::*)(Argument)> {
    typedef Argument Type;
};
template <class C, class Result, class... Arguments>
struct CallableOf<Result (C::*)(Arguments...) const> : CallableOf<Result (C::*)(Arguments...)> {};
template <class C, class Result, class... Arguments>
struct CallableOf<Result (C::*)(Arguments...) noexcept> : CallableOf<Result (C::*)(Arguments...)> {
};
template <class C, class Result, class... Arguments>
struct CallableOf<Result (C::*)(Arguments...) const noexcept>
    : CallableOf<Result (C::*)(Arguments...)> {};

// Whether a member function takes nothing or one value.
template <class Method, class = void>
inline constexpr bool takesOneAtMost = false;
template <class Method>
inline constexpr bool takesOneAtMost<Method, std::void_t<typename CallableOf<Method>::Type>> = true;

// Whether the member of a class is one of C.
template <class C, class Member>
inline constexpr bool isMemberOf = false;
template <class C, class Type, class Owner>
inline constexpr bool isMemberOf<C, Type Owner::*> = std::is_base_of_v<Owner, C>;

template <class F, class = void>
struct ArgumentOf {};
template <class F>
struct ArgumentOf<F, std::void_t<decltype(&F::operator())>> : CallableOf<decltype(&F::operator())> {
};
template <class Result>
struct ArgumentOf<Result (*)()> {
    typedef void Type;
};
template <class Result, class Argument>
struct ArgumentOf<Result (*)(Argument)> {
    typedef Argument Type;
};

// Whether a receiver's argument, if it is a number, holds every value of a T.
template <class T, class Argument, class = void>
inline constexpr bool keepsValue = true;
template <class T, class Argument>
inline constexpr bool
    keepsValue<T, Argument,
               std::enable_if_t<std::is_arithmetic_v<T> &&
                                std::is_arithmetic_v<Bare<typename Argument::Type>>>> =
        fits<Bare<typename Argument::Type>, T>();

// Function objects and pointers to functions.
template <class F>
inline constexpr bool isCallable =
    std::is_class_v<F> || std::is_function_v<std::remove_pointer_t<F>>;

// Whether F declares that it takes a text of C++, which null is none.
template <class F, class = void>
inline constexpr bool takesStandardText = false;
template <class F>
inline constexpr bool
    takesStandardText<F, std::enable_if_t<isStandardText<Bare<typename ArgumentOf<F>::Type>>>> =
        true;

template <class T>
struct Tag {
    typedef T Type;
};

// Placeholder for the type that is deduced from the callable's parameter.
struct Deduced {};

// The type that F takes; Deduced, which is no type of a value, where it takes several or
// has several signatures.
template <class F, class = void>
struct DeducedFrom {
    typedef Deduced Type;
};
template <class F>
struct DeducedFrom<F, std::void_t<typename ArgumentOf<F>::Type>> {
    typedef Bare<typename ArgumentOf<F>::Type> Type;
};

template <class T, class F>
struct ReceivedBy {
    typedef T Type;
};
template <class F>
struct ReceivedBy<Deduced, F> : DeducedFrom<F> {};

// The argument with which F is called for a value of T: the passed one, or for strings a
// view or a string of C++ if F takes only those; void when F takes nothing.
template <class T, class F>
constexpr auto argumentFor() {
    if constexpr (std::is_invocable_v<F&>) {
        return Tag<void>();
    } else if constexpr (std::is_void_v<T>) {
        return Tag<Deduced>();
    } else if constexpr (std::is_pointer_v<Passed<T>> && takesStandardText<F>) {
        return Tag<Bare<typename ArgumentOf<F>::Type>>();
    } else if constexpr (!isStandardText<T> && std::is_invocable_v<F&, Passed<T>>) {
        return Tag<Passed<T>>();
    } else if constexpr (!std::is_same_v<typename fxChannelType<T>::Value, fxStr>) {
        return Tag<Deduced>();
    } else if constexpr (std::is_invocable_v<F&, std::string_view>) {
        return Tag<std::string_view>();
    } else if constexpr (std::is_invocable_v<F&, std::string>) {
        return Tag<std::string>();
    } else {
        return Tag<Deduced>();
    }
}
template <class T, class F>
using ArgumentFor = typename decltype(argumentFor<T, F>())::Type;

// Whether F may be called with the value of a T, or with nothing.
template <class T, class F>
inline constexpr bool receives = !std::is_same_v<ArgumentFor<T, F>, Deduced>;

}  // namespace fxDetail

#endif
