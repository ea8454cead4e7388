// Elements: classes whose objects a flow can name, set and connect.
#ifndef FLOW_ELEMENT_H
#define FLOW_ELEMENT_H

#include <exception>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "flow/Time.h"
#include "flow/ValueType.h"
#include "fxds/Obj.h"

class fxFlow;
class fxTranscriber;

namespace fxFlowDetail {

// While one exists, objects that flows drop are kept; they are destroyed with the last one.
class FX_API Acting {
public:
    Acting();
    Acting(const Acting&) = delete;
    Acting& operator=(const Acting&) = delete;
    ~Acting();
};

// Reports an exception of `object` to its flow; false when it belongs to none. The object
// may have been destroyed.
FX_API bool complainOf(const fxObj& object, const char* what);

// Calls a function of an element. Its exceptions become complaints if a flow takes them.
template <class Call>
void act(const fxObj& object, Call&& call) {
    const Acting under;
    try {
        call();
    } catch (const std::exception& thrown) {
        if (!complainOf(object, thrown.what())) throw;
    } catch (...) {
        if (!complainOf(object, "an exception of an unknown kind")) throw;
    }
}

}  // namespace fxFlowDetail

/// Base of elements that take part in the life of their flow. Any other class that derives
/// from fxObj and is made without arguments is enough for an element that only receives and
/// sends.
///
/// Elements send at once (fxSendNow): the connection decides how a value is delivered.
class FX_API fxElement : public fxObj {
public:
    fxElement() = default;
    fxElement(const fxElement&) = delete;
    fxElement& operator=(const fxElement&) = delete;
    ~fxElement() override;

    /// Begins the work: opens files, starts alarms. Called once, when the properties are
    /// set and before anything is connected; in a test not for elements that reach outside,
    /// in whose place the test sends. Returns the reason why it cannot, or "".
    virtual std::string start() { return ""; }
    /// Checks all properties together, when they are set. Returns the fault, or "".
    virtual std::string settle() { return ""; }
    /// Transcribes the state of the element, for flows that are saved. It is read
    /// between settle() and start().
    virtual bool xdrState(fxTranscriber&) { return true; }

    /// Whether it may send without receiving anything: it waits for a time, a line, a
    /// process. A flow in which no element is busy, and nothing is queued, ends.
    bool isBusy() const { return busy; }

protected:
    /// Whether start() was called: not in a test for elements that reach outside.
    bool hasStarted() const { return started; }
    void setBusy(bool isNowBusy) { busy = isNowBusy; }  ///< See isBusy().
    fxFlowTime& time() const;  ///< Of its flow; fxFlowTime::steady() while it has none.
    /// Shows the text to the user of the flow, with the name of the object.
    void complain(const std::string& text) const;
    /// Calls `call()` as described inputs and the alarms of time() are called: an exception
    /// is a complaint, and an element that the flow drops meanwhile is destroyed after the
    /// call. For any other code that calls an element, such as receivers of connections
    /// that it makes.
    template <class Call>
    void act(Call call) const {
        fxFlowDetail::act(*this, call);
    }

private:
    friend class fxFlow;
    fxFlow* flow = nullptr;  // borrowed; null before it is part of one
    bool busy = false;
    bool started = false;
};

/// A property of an element, which flows may set.
struct FX_API fxElementProperty {
    std::string name;         ///< As flows write it.
    std::string type;         ///< "text", "number", "whole number", "yes or no".
    std::string sentence;     ///< Its meaning.
    std::string standard;     ///< The value where none is given, as text.
    bool isRequired = false;  ///< Whether one must be given.
    std::string unitName;     ///< "" for none.
    double lowest = -std::numeric_limits<double>::infinity();  ///< Of a number.
    double highest = std::numeric_limits<double>::infinity();  ///< Of a number.
    std::vector<std::string> choices;  ///< The texts that it may be; empty for any.
    /// A further test of a value: returns its fault, or "".
    std::function<std::string(const std::string&)> test;

    std::function<bool(const std::string&)> fits;         ///< Whether it is of the type.
    std::function<void(fxObj&, const std::string&)> set;  ///< Requires: whyNot() is "".
    std::function<std::string(const fxObj&)> get;         ///< As set() takes it.

    ///@{
    /// For descriptions: `element.property("per", &Rate::per, 60.0, "...").unit("s")`.
    fxElementProperty& unit(const char* unitName_);
    fxElementProperty& range(double lowest_, double highest_);
    fxElementProperty& oneOf(std::vector<std::string> choices_);
    fxElementProperty& testedBy(std::function<std::string(const std::string&)> test_);
    ///@}

    /// The fault of a value, such as "is not a number"; "" for none.
    std::string whyNot(const std::string& value) const;
};

/// An input or output of an element.
struct FX_API fxElementChannel {
    std::string name;        ///< As flows write it.
    std::string sentence;    ///< The meaning of its values.
    const fxFlowType* type;  ///< Of its values; not null.

    unsigned short typeNumber() const { return type->number(); }  ///< The data type number.
    const char* typeName() const;  ///< View, as fxDataTypeName() gives it.
};

/// The description of a class of elements. Descriptions are made by FX_ELEMENT, live as
/// long as the program, and are found by name.
///
/// A description may not throw, nor give two properties, two inputs or two outputs one name;
/// the name of a property is one that a text can write: letters, digits and _, the first no
/// digit. A faulty description is fatal, in a plug-in a reason not to load it.
class FX_API fxElementKind {
public:
    fxElementKind(const fxElementKind&) = delete;
    fxElementKind& operator=(const fxElementKind&) = delete;
    virtual ~fxElementKind();

    const std::string name;                     ///< That of the class.
    const std::string sentence;                 ///< Its purpose.
    std::vector<fxElementProperty> properties;  ///< In the order of the description.
    std::vector<fxElementChannel> inputs;       ///< Likewise.
    std::vector<fxElementChannel> outputs;      ///< Likewise.
    /// Whether its objects read or write something outside the flow: files, processes, the
    /// screen. A test does not start them; see fxFlow::Purpose.
    bool outside = false;

    /// A new object with its channels, and its properties with their standard values.
    /// Exceptions of the constructor pass.
    virtual fxRef<fxObj> make() const = 0;

    ///@{
    /// The description of the name, or null.
    const fxElementProperty* findProperty(std::string_view name) const;
    const fxElementChannel* findInput(std::string_view name) const;
    const fxElementChannel* findOutput(std::string_view name) const;
    ///@}

    static const fxElementKind* find(std::string_view name);  ///< Or null.
    static std::vector<const fxElementKind*> all();           ///< By name.
    /// Names that were described more than once; the first description holds.
    static const std::vector<std::string>& duplicates();

protected:
    /// Copies both texts; see enter().
    fxElementKind(const char* name, const char* sentence);
    /// Calls `describe`, and enters the description.
    void enter(const std::function<void()>& describe);
};

/// Describes the class C; the parameter of the body of FX_ELEMENT.
template <class C>
class fxElementOf final : public fxElementKind {
    static_assert(std::is_base_of_v<fxObj, C>, "an element derives from fxObj");
    static_assert(std::is_default_constructible_v<C>, "an element is made without arguments");

public:
    typedef void Describe(fxElementOf& element);  ///< The body of FX_ELEMENT.

    /// Describes the class by calling `describe`, and enters the description.
    fxElementOf(const char* name_, const char* sentence_, Describe* describe)
        : fxElementKind(name_, sentence_) {
        enter([this, describe] { describe(*this); });
    }

    ///@{
    /// A property that is a member of the class or of a base: a bool, a whole number, a
    /// double, an fxStr or a std::string. `standard` is its value if a flow does not give
    /// one; without it a flow must.
    template <class T, class B, class Standard>
    fxElementProperty& property(const char* name_, T B::*member, const Standard& standard,
                                const char* sentence_) {
        fxElementProperty& made = property(name_, member, sentence_);
        made.isRequired = false;
        made.standard = fxFlowDetail::shown<typename Stored<T>::Type>(
            static_cast<typename Stored<T>::Type>(standard));
        return made;
    }
    template <class T, class B>
    fxElementProperty& property(const char* name_, T B::*member, const char* sentence_) {
        typedef typename Stored<T>::Type Value;
        fxElementProperty made;
        made.name = name_;
        made.sentence = sentence_;
        made.isRequired = true;
        made.type = std::is_same_v<Value, unsigned char> ? "yes or no"
                    : std::is_integral_v<Value>          ? "whole number"
                    : std::is_floating_point_v<Value>    ? "number"
                                                         : "text";
        made.fits = [](const std::string& text) {
            return fxFlowDetail::parsed<Value>(text, [](const Value&) {});
        };
        made.set = [member](fxObj& object, const std::string& text) {
            fxFlowDetail::parsed<Value>(text, [&](const Value& value) {
                static_cast<C&>(object).*member = static_cast<T>(Stored<T>::from(value));
            });
        };
        made.get = [member](const fxObj& object) {
            return fxFlowDetail::shown<Value>(
                static_cast<Value>(Stored<T>::to(static_cast<const C&>(object).*member)));
        };
        properties.push_back(std::move(made));
        return properties.back();
    }
    ///@}

    /// Declares that start() of its objects reaches outside the flow.
    void reachesOutside() { outside = true; }

    /// An input that calls a member function, which takes a value or none. Its exceptions
    /// are shown to the user of the flow.
    template <class Method, std::enable_if_t<std::is_member_function_pointer_v<Method>, int> = 0>
    void input(const char* name_, Method method, const char* sentence_) {
        typedef typename fxDetail::CallableOf<Method>::Type Argument;
        typedef fxDetail::Bare<Argument> T;
        inputs.push_back({name_, sentence_, &fxFlowTypeOf<T>()});
        const std::string channel = name_;
        makers.push_back([channel, method](C& object) {
            C* const self = &object;
            if constexpr (std::is_void_v<Argument>) {
                object.addInput(channel.c_str(), [self, method] {
                    fxFlowDetail::act(*self, [&] { (self->*method)(); });
                });
            } else {
                object.template addInput<T>(channel.c_str(), [self, method](const T& value) {
                    fxFlowDetail::act(*self, [&] { (self->*method)(value); });
                });
            }
        });
    }
    /// An input that the class adds itself, for values of type T.
    template <class T>
    void input(const char* name_, const char* sentence_) {
        inputs.push_back({name_, sentence_, &fxFlowTypeOf<T>()});
    }

    /// An output that is a member of the class or of a base.
    template <class T, class B>
    void output(const char* name_, fxOutputView<T> B::*member, const char* sentence_) {
        output<T>(name_, sentence_);
        const std::string channel = name_;
        makers.push_back([channel, member](C& object) {
            object.*member = object.template addOutput<T>(channel.c_str());
        });
    }
    /// An output that the class adds itself, for values of type T.
    template <class T>
    void output(const char* name_, const char* sentence_) {
        outputs.push_back({name_, sentence_, &fxFlowTypeOf<T>()});
    }

    fxRef<fxObj> make() const override {
        const fxRef<C> object = new C;
        for (const auto& maker : makers) maker(*object);
        for (const fxElementProperty& each : properties) {
            if (!each.isRequired) each.set(*object, each.standard);
        }
        return object;
    }

private:
    // The type as which a member is sent, and the conversion to it.
    template <class T, class = void>
    struct Stored {
        typedef typename fxChannelType<T>::Value Type;
        static const Type& from(const Type& value) { return value; }
        static const T& to(const T& value) { return value; }
    };
    template <class Nothing>
    struct Stored<std::string, Nothing> {
        typedef fxStr Type;
        static std::string from(const fxStr& value) { return std::string(value.view()); }
        static fxStr to(const std::string& value) { return fxStr(std::string_view(value)); }
    };

    std::vector<std::function<void(C&)>> makers;
};

/// FX_ELEMENT(Class, sentence) { ... } is written once in a source file, in the global
/// namespace, and makes the class an element under its own name. Its body describes the
/// properties and channels of the class, with `element`, an fxElementOf<Class>:
///
///     class Level : public fxElement {
///     public:
///         void take(double value);
///         double high;
///         fxOutputView<bool> active;
///     };
///
///     FX_ELEMENT(Level, "sends when a value has become high") {
///         element.property("high", &Level::high, 1.0, "what is high");
///         element.input("level", &Level::take, "the value");
///         element.output("active", &Level::active, "whether it is high, when that changes");
///     }
#define FX_ELEMENT(Class, sentence)                                                               \
    static void fxDescribe##Class(fxElementOf<Class>& element);                                   \
    static const fxElementOf<Class> fxElementKindOf##Class(#Class, sentence, &fxDescribe##Class); \
    static void fxDescribe##Class(fxElementOf<Class>& element)

#endif
