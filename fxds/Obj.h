// The base object: properties, named inputs and outputs, connections, sending.
// Sources: dataflow/Obj.cc; dataflow/ObjChannels.cc for inputs and outputs.
#ifndef FXDS_OBJ_H
#define FXDS_OBJ_H

#include <string_view>
#include <type_traits>
#include <utility>

#include "fxds/Channel.h"
#include "fxds/DataTypes.h"
#include "fxds/Property.h"
#include "fxds/Str.h"
#include "fxds/VoidPtrArray.h"
#include "fxds/XDRObj.h"
#include "fxds/detail/Callable.h"
#include "fxds/detail/TypedChannels.h"

class fxBelongings;
class fxData;
class fxStrArray;
class fxVoidPtrDict;

template <class T>
class fxOutputView;

/// Base of objects that carry properties and exchange values through named, typed channels.
/// The channels are kept as two properties, "inputs" and "outputs", which count as any
/// other and are released in the order of their tags.
///
/// Copying an object copies neither properties nor channels.
///
/// The tables of channels may be shared and held like any property. A channel
/// belongs to the object that it was added to, wherever its table is: when that
/// object begins to end (in ~fxObj()), its inputs call nothing any more and its
/// outputs have no owner.
///
/// Objects whose last holder is a property are destroyed inside one another, each before
/// the one that held it, up to 128 deep and 256 KB of the stack. Deeper ones are destroyed
/// after the object that held them and must not use it; they are destroyed before the
/// outermost call returns.
///
/// The send functions take a null or unconnected output, which reaches no input.
/// Requires: the type of the value is that of the output; connections convert.
/// Releasing the value of a property or a channel may run any code of the program,
/// which may change this object again and destroy it. Receivers may throw: the
/// exception leaves through the send, which calls none after it. Destructors may
/// not.
class FX_API fxObj : public fxXDRObj {
public:
    /// When a value is delivered. Any other value cancels the messages that
    /// wait for replacing inputs and does nothing more.
    enum fxSendFlags : int {
        fxSendQueued = 0,  ///< behind everything in the event queue
        fxSendNow = 1,     ///< inside the send call
        fxSendUrgent = 2   ///< before everything in the event queue
    };

    fxObj() : properties(nullptr) {}
    fxObj(const fxObj& other) : fxXDRObj(other), properties(nullptr) {}
    fxObj& operator=(const fxObj&) { return *this; }
    /// Releases all properties; with them go the channels, their connections and the
    /// messages that wait for this object. A channel that is added meanwhile belongs to no
    /// object, and such an input calls nothing.
    ~fxObj() override;

    /// Joins the named output of this object to the named input of `target`.
    /// Nothing happens when either is missing or they are joined already.
    /// Fatal when no converter leads from the one data type to the other, after a line on
    /// standard error that names both ends and their types.
    virtual void connect(const char* outputName, fxObj* target, const char* inputName);

    /// Undoes connect(). Messages already queued are still delivered.
    virtual void disconnect(const char* outputName, fxObj* target, const char* inputName);

    /// Fatal: names the class and the method that it should have defined.
    virtual void subClassMustDefine(char const* method) const;

    /// Orders objects. This one is fatal: a class whose objects are to be ordered
    /// defines its own.
    int compare(fxObj const* other) const;

    // Properties.

    ///@{
    /// The property with the tag, or null. `index`, when given, receives its position, or
    /// on a miss the position examined last.
    fxProperty* findProperty(unsigned short tag, unsigned int* index = nullptr);
    fxProperty* findProperty(char const* name, unsigned int* index = nullptr);
    ///@}

    /// Adds the property (shared), in place of one with the same tag. Returns this object,
    /// as do the other three. Requires: it is not null.
    fxObj* setProperty(fxProperty* property);
    ///@{
    /// Releases the property; nothing when there is none.
    fxObj* removeProperty(unsigned short tag);
    fxObj* removeProperty(char const* name);
    ///@}
    /// Releases all properties, in the order of their tags, the channels included.
    fxObj* removeAllProperties();

    /// Channels included: their tables are two properties.
    unsigned int getNumberOfProperties() const;
    /// The property at `index`, in the order of tags; null when the object
    /// never had one. Requires: index < getNumberOfProperties() otherwise.
    fxProperty* getProperty(unsigned int index) const;

    ///@{
    /// An output that sends, at once, whenever the property is set or removed through this
    /// object; changes inside the property itself are not noticed. It belongs to the object
    /// and has no name; a property name without a tag gets one. Nothing is sent while the
    /// object ends.
    fxOutputView<void> propertyChanged(unsigned short tag);
    fxOutputView<void> propertyChanged(char const* name);
    ///@}

    // Channels. The names are copied, and null is the name ""; the channels
    // belong to the object.

    /// Adds an input; see fxInputChannel for the arguments. An input that has the name
    /// already is replaced: it is destroyed, unless it is connected, and then it keeps its
    /// connections until they are cut or this object is destroyed.
    fxInputChannel* addInput(char const* name, unsigned short type, void* closure,
                             void (*function)(), unsigned char replace = 0);

    /// Adds an input that calls a member function of the object's class, as in
    /// addInput<&Gauge::setLevel>("level"). The data type follows from the
    /// function's parameter; a function without one makes a fxDT_void input.
    /// Fatal when the object turns out to be of another class; that is seen when
    /// the input is connected or called for the first time, so a base class may
    /// add inputs for the classes derived from it.
    template <auto Method>
    fxInputChannel* addInput(char const* name, unsigned char replace = 0);

    ///@{
    /// Adds an input that calls `receiver`, a function object, with each value of type T; a
    /// receiver that takes nothing is called without it. T is the receiver's parameter,
    /// unless it is given. The channel keeps the receiver as long as it exists, so a
    /// receiver that holds the object keeps it for ever.
    ///
    ///     addInput("level", [this](int level) { draw(level); });
    ///     addInput<fxStr>("name", [this](std::string_view name) { greet(name); });
    template <class T = fxDetail::Deduced, class F,
              std::enable_if_t<fxDetail::isCallable<F>, int> = 0>
    fxInputChannel* addInput(char const* name, F receiver, unsigned char replace = 0);
    ///@}
    // clang-format off
    template <class Type, class Class>
    fxInputChannel* addInput(char const* name, Type Class::*member, unsigned char replace = 0) = delete;  // write addInput<&Class::function>(name)
    // clang-format on

    /// Adds an output. One that has the name already is destroyed.
    fxOutputChannel* addOutput(char const* name, unsigned short type);

    /// Adds an output for values of type T. Sending what is not a T for every
    /// value of its type does not compile.
    template <class T>
    fxOutputView<T> addOutput(char const* name);

    /// Removes the channel; unknown names are ignored. Messages that wait for
    /// the input are discarded, and its function is not called any more, in a
    /// send under way either.
    void removeInput(char const* name);
    /// Destroys the channel, which cuts its connections; unknown names are
    /// ignored. Messages already sent on it are still delivered.
    void removeOutput(char const* name);

    ///@{
    /// The named channel, or null. View.
    fxInputChannel* getInput(char const* name);
    fxOutputChannel* getOutput(char const* name);
    ///@}
    /// The named output if it carries values of this data type, or null.
    fxOutputChannel* getOutput(char const* name, unsigned short type);
    /// The named output if it carries values of type T, otherwise a view of none, on which
    /// sends do nothing: `object.getOutput<int>("count").send(1)`.
    template <class T>
    fxOutputView<T> getOutput(char const* name) const;

    ///@{
    /// Name to channel; null before the first channel. View. An entry without a channel,
    /// which [] makes where a name is missing, counts as missing. An entry holds its channel:
    /// a program that removes one has to release() the input or delete the output, and one
    /// that enters an input once more has to take() it.
    fxVoidPtrDict* getInputs();
    fxVoidPtrDict* getOutputs();
    ///@}

    ///@{
    /// The names of all channels, in the order of their bytes. getInput(), getOutput() and
    /// the channel itself have the rest.
    fxStrArray getInputNames();
    fxStrArray getOutputNames();
    ///@}

    // Sending.

    /// Sends a boxed value (adopted). Requires: it is of the output's type, and
    /// has no holder when it is sent at once; it is not null if it is delivered.
    static void sendData(fxOutputChannel* output, fxData* data, fxSendFlags how = fxSendQueued);
    ///@{
    /// Sends one value of the kind in the name; nothing is boxed when
    /// it is sent at once.
    static void sendVoid(fxOutputChannel* output, fxSendFlags how = fxSendQueued);
    static void sendBool(fxOutputChannel* output, unsigned char value,
                         fxSendFlags how = fxSendQueued) {
        send(output, &value, how);
    }
    static void sendInt(fxOutputChannel* output, int value, fxSendFlags how = fxSendQueued) {
        send(output, &value, how);
    }
    static void sendLong(fxOutputChannel* output, long value, fxSendFlags how = fxSendQueued) {
        send(output, &value, how);
    }
    static void sendFloat(fxOutputChannel* output, float value, fxSendFlags how = fxSendQueued) {
        send(output, &value, how);
    }
    static void sendDouble(fxOutputChannel* output, double value, fxSendFlags how = fxSendQueued) {
        send(output, &value, how);
    }
    ///@}
    /// Sends a copy of the text.
    static void sendCharPtr(fxOutputChannel* output, char const* text,
                            fxSendFlags how = fxSendQueued);
    ///@{
    /// Sends a copy of the string or strings.
    static void sendStr(fxOutputChannel* output, const fxStr& value,
                        fxSendFlags how = fxSendQueued);
    static void sendStrArray(fxOutputChannel* output, const fxStrArray& value,
                             fxSendFlags how = fxSendQueued);
    ///@}

    ///@{
    /// The destructors of the "inputs" and "outputs" properties, for their tables.
    static void dt_input_dict(void* table);
    static void dt_output_dict(void* table);
    ///@}

private:
    friend class fxBelongings;
    friend class fxConnection;
    friend class fxEvent;
    friend class fxInputChannel;
    friend class fxOutputChannel;
    fxInputChannel* addInput(char const* name, void* closure,
                             const fxDetail::InputFunction& function, unsigned char replace);
    fxInputChannel* addInput(char const* name, fxInputChannel* input);
    void adoptInput(fxInputChannel* input);
    fxBelongings& makeBelongings();
    [[gnu::noinline]] void endBelongings();
    void disownChannels();
    void discardNameless();
    static void discard(fxInputChannel* input);

    template <class T>
    friend class fxOutputView;

    // All typed sends. T is an fxChannelType's Value, and `value` is null for
    // void. Immediate sends of numbers, of void and of a program's own values skip
    // boxing. Text is always boxed: receivers get a copy.
    template <class T>
    static void send(fxOutputChannel* output, const T* value, fxSendFlags how) {
        FX_ASSERT(output == nullptr || output->getType() == fxChannelType<T>::type());
        if constexpr (std::is_arithmetic_v<T> || std::is_void_v<T>) {
            if (how == fxSendNow) {
                if (output == nullptr) return;
                if constexpr (std::is_void_v<T>) {
                    output->deliver();
                } else {
                    output->deliver(*value);
                }
                return;
            }
        }
        if constexpr (fxDetail::isOwnKind<T>) {
            if (how == fxSendNow) {
                if (output != nullptr) output->deliver<const T&>(*value);
            } else {
                typedef typename fxChannelType<T>::Box Box;
                sendData(output, fxDetail::delivers(how) ? new Box(*value) : nullptr, how);
            }
        } else {
            sendBoxed(output, value, how);
        }
    }
#define FX_SENT(number, name, Value, Passed, Box) \
    static void sendBoxed(fxOutputChannel* output, Value const* value, fxSendFlags how);
#define FX_HELD(...)
    FX_DATA_TYPES(FX_SENT, FX_HELD)
#undef FX_HELD
#undef FX_SENT

    fxBelongings* properties;  // null until the first
};

/// An output together with its C++ type, as addOutput() gives it. A view: good as
/// long as the output, and freely copied. Keep it in an fxOutput.
template <class T>
class fxOutputView {
    static_assert(fxDetail::IsSent<T>::value, "an output carries one of:" FX_SENT_NAMES);

public:
    /// `channel_` may be null: values are dropped then.
    /// Requires: the output has the data type of T.
    explicit fxOutputView(fxOutputChannel* channel_ = nullptr) : channel(channel_) {}

    /// Sends a value; for fxStr and const char* a copy of it.
    void send(const T& value, fxObj::fxSendFlags how = fxObj::fxSendQueued) const {
        const typename fxChannelType<T>::Value& sent = fxDetail::sentFor<T>(value);
        fxObj::send(channel, &sent, how);
    }
    /// Sends any text on an output for texts: a view, a concatenation.
    template <class V, std::enable_if_t<fxDetail::isText<T, V>(), int> = 0>
    void send(const V& text, fxObj::fxSendFlags how = fxObj::fxSendQueued) const {
        if constexpr (std::is_convertible_v<const V&, std::string_view>) {
            const std::string_view view = text;
            send(std::conditional_t<std::is_same_v<T, std::string>, T, fxStr>(view), how);
        } else {
            send(fxStr(text), how);
        }
    }
    // clang-format off
    template <class V, std::enable_if_t<!fxDetail::fits<T, V>() && !fxDetail::isText<T, V>(), int> = 0>
    void send(const V&, fxObj::fxSendFlags = fxObj::fxSendQueued) const = delete;  // not every value of this type is one of the output's
    // clang-format on

    ///@{
    /// The channel, or null. View.
    fxOutputChannel* get() const { return channel; }
    operator fxOutputChannel*() const { return channel; }
    ///@}

private:
    fxOutputChannel* channel;
};

/// An output without a value: it signals only that something happened.
template <>
class fxOutputView<void> {
public:
    /// `channel_` may be null: sends do nothing then.
    /// Requires: the output has the data type fxDT_void.
    explicit fxOutputView(fxOutputChannel* channel_ = nullptr) : channel(channel_) {}
    /// Calls every connected input without a value.
    void send(fxObj::fxSendFlags how = fxObj::fxSendQueued) const {
        fxObj::send<void>(channel, nullptr, how);
    }
    ///@{
    /// The channel, or null. View.
    fxOutputChannel* get() const { return channel; }
    operator fxOutputChannel*() const { return channel; }
    ///@}

private:
    fxOutputChannel* channel;
};

/// An output as a member of the object that adds it:
///
///     Gauge() : changed(addOutput<int>("changed")) {}
///     fxOutput<int> changed;
///
/// It is not copied, and so neither are objects with such a member: copies of
/// objects carry no channels, and the member would go on sending on the channel
/// of the original.
template <class T>
class fxOutput : public fxOutputView<T> {
public:
    using fxOutputView<T>::fxOutputView;
    fxOutput() = default;
    fxOutput(const fxOutputView<T>& output)
        : fxOutputView<T>(output) {}  ///< As addOutput() gives it.
    /// Sends on this output from now on.
    fxOutput& operator=(const fxOutputView<T>& output) {
        fxOutputView<T>::operator=(output);
        return *this;
    }
    // clang-format off
    fxOutput(const fxOutput&) = delete;  // an fxOutput sends for one object: copies of objects carry no channels
    fxOutput& operator=(const fxOutput&) = delete;  // an fxOutput sends for one object: copies of objects carry no channels
    template <class U>
    fxOutput(const fxOutputView<U>&) = delete;  // this output has another type
    // clang-format on
};

// A base may add receivers of the class that derives from it, whose constructor
// has not run yet; the class is tested when the object is whole.
template <auto Method>
__attribute__((no_sanitize("vptr"))) inline fxInputChannel* fxObj::addInput(char const* name,
                                                                            unsigned char replace) {
    typedef fxDetail::Receiver<decltype(Method)> Receiver;
    static_assert(Receiver::isFit,
                  "a receiver is a member function that returns void and takes nothing or one "
                  "of:" FX_SENT_NAMES);
    if constexpr (Receiver::isFit) {
        typedef typename Receiver::Class Class;
        static_assert(fxDetail::IsObject<Class>::value,
                      "a receiver's class derives from fxObj, once and not virtually");
        if constexpr (fxDetail::IsObject<Class>::value) {
            auto thunk = &Receiver::template call<Method>;
            return addInput(name, static_cast<Class*>(this),
                            {Receiver::type(), reinterpret_cast<void (*)()>(thunk),
                             &fxDetail::testClass<Class>},
                            replace);
        }
    }
    return nullptr;
}

template <class T, class F, std::enable_if_t<fxDetail::isCallable<F>, int>>
inline fxInputChannel* fxObj::addInput(char const* name, F receiver, unsigned char replace) {
    typedef typename fxDetail::ReceivedBy<T, F>::Type Value;
    static_assert(fxDetail::IsSent<Value>::value,
                  "a receiver takes nothing or one of:" FX_SENT_NAMES);
    if constexpr (fxDetail::IsSent<Value>::value) {
        static_assert(fxDetail::receives<Value, F>,
                      "the receiver cannot be called with a value of the input's type");
        if constexpr (fxDetail::receives<Value, F>) {
            return addInput(name, fxDetail::newInput<Value>(std::move(receiver), replace));
        }
    }
    return nullptr;
}

template <class T>
inline fxOutputView<T> fxObj::getOutput(char const* name) const {
    return fxOutputView<T>(const_cast<fxObj*>(this)->getOutput(name, fxChannelType<T>::type()));
}

template <class T>
inline fxOutputView<T> fxObj::addOutput(char const* name) {
    return fxOutputView<T>(addOutput(name, fxChannelType<T>::type()));
}

#endif
