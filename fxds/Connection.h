// Connections as values that can be queried and cut.
#ifndef FXDS_CONNECTION_H
#define FXDS_CONNECTION_H

#include <type_traits>
#include <utility>

#include "fxds/Obj.h"
#include "fxds/Ref.h"
#include "fxds/Str.h"

class fxConnection;

namespace fxDetail {

// Joins the output to an input without a name, made for the receiver.
template <class T, class Function>
fxConnection connectTo(const fxOutputView<T>& output, fxObj* context, Function receiver,
                       unsigned char replace);

}  // namespace fxDetail

/// What fxConnect() returns: whether two ends were joined, and why not. It may
/// outlive both and holds neither object, nor the receiver; copies refer to the same connection.
/// Destroying the value does not cut the connection: for one that ends with a scope see
/// fxScopedConnection.
///
/// A failure is reported: unless isConnected(), the conversion to bool or whyNot() was
/// called, the last copy of a result with a reason writes it to standard error when it is
/// destroyed.
class FX_API fxConnection {
public:
    fxConnection() = default;  ///< Joins nothing.
    /// Why there is no connection.
    explicit fxConnection(fxStr reason_) : reason(std::move(reason_)) {}
    /// Joins the output to the input, unless it is already. Where that is not
    /// possible, or one of them is null, whyNot() gives the reason.
    fxConnection(fxOutputChannel* output, fxInputChannel* input);
    /// A copy, which reports a failure in place of `other`.
    fxConnection(const fxConnection& other);
    fxConnection(fxConnection&&) = default;
    ~fxConnection() {
        if (!isAsked && !reason.isEmpty()) tellReason();
    }
    fxConnection& operator=(fxConnection other) noexcept;  ///< Becomes like `other`.

    ///@{
    /// Whether the two ends are joined now.
    bool isConnected() const {
        isAsked = true;
        return isJoined();
    }
    explicit operator bool() const { return isConnected(); }
    ///@}
    /// Cuts it; nothing when the ends are not joined. Messages already queued are
    /// still delivered.
    void disconnect();
    /// Why the ends could not be joined; empty when they were.
    const fxStr& whyNot() const {
        isAsked = true;
        return reason;
    }

private:
    template <class T, class Function>
    friend fxConnection fxDetail::connectTo(const fxOutputView<T>& output, fxObj* context,
                                            Function receiver, unsigned char replace);

    // Refers to an input. Only the channel itself is kept, not what it holds.
    class FX_API Input {
    public:
        Input() = default;
        explicit Input(fxInputChannel* channel_);
        Input(const Input& other) : Input(other.channel) {}
        Input(Input&& other) noexcept : channel(std::exchange(other.channel, nullptr)) {}
        Input& operator=(Input other) noexcept {
            std::swap(channel, other.channel);
            return *this;
        }
        ~Input();
        fxInputChannel* get() const { return channel; }

    private:
        fxInputChannel* channel = nullptr;
    };

    static fxConnection adopt(fxOutputChannel* output, fxObj* context, fxInputChannel* input);
    bool isJoined() const;
    void tellReason() const noexcept;

    Input input;
    fxOutputChannel* output = nullptr;  // dangles when the output has gone
    unsigned int serial = 0;            // of the output
    mutable bool isAsked = false;       // or a copy was
    fxStr reason;
};

/// A connection that is cut at the end of a scope, or of the object that has it
/// as a member.
class FX_API fxScopedConnection {
public:
    fxScopedConnection() = default;
    /// Implicit: `fxScopedConnection c = fxConnect(...)`.
    fxScopedConnection(fxConnection connection_) : connection(std::move(connection_)) {}
    /// Leaves `other` without a connection.
    fxScopedConnection(fxScopedConnection&& other) noexcept : connection(other.release()) {}
    /// Cuts the connection that it had.
    fxScopedConnection& operator=(fxScopedConnection&& other) noexcept;
    ~fxScopedConnection() { connection.disconnect(); }

    /// The connection, which is still cut by this object.
    const fxConnection& get() const { return connection; }
    bool isConnected() const { return connection.isConnected(); }  ///< As fxConnection's.
    void disconnect() { connection.disconnect(); }                 ///< As fxConnection's.
    /// Returns the connection, which this object does not cut any more.
    fxConnection release();

private:
    fxConnection connection;
};

/// Joins the named output of `source` to the named input of `target`, as
/// fxObj::connect() does, and returns the result. Nothing is fatal but a
/// receiver of another class:
///
///     if (auto c = fxConnect(&clock, "tick", &bar, "levle"); !c) report(c.whyNot());
///
///     Clock.tick -> Bar.levle: Bar has no input "levle"; did you mean "level"?
FX_API fxConnection fxConnect(fxObj* source, const char* output, fxObj* target, const char* input);
/// The same for references.
inline fxConnection fxConnect(fxObj& source, const char* output, fxObj& target, const char* input) {
    return fxConnect(&source, output, &target, input);
}

///@{
/// The same for an output at hand, such as what addOutput() gives. A null output joins
/// nothing.
///
///     fxConnect(clock.ticked, &bar, "level");
FX_API fxConnection fxConnect(fxOutputChannel* output, fxObj* target, const char* input);
inline fxConnection fxConnect(fxOutputChannel* output, fxObj& target, const char* input) {
    return fxConnect(output, &target, input);
}
///@}

template <class T, class Function>
fxConnection fxDetail::connectTo(const fxOutputView<T>& output, fxObj* context, Function receiver,
                                 unsigned char replace) {
    static_assert(fxDetail::receives<T, Function>,
                  "the receiver cannot be called with a value of the output's type");
    static_assert(fxDetail::keepsValue<T, fxDetail::ArgumentOf<Function>>,
                  "not every value of the output is one of the receiver's");
    if constexpr (fxDetail::receives<T, Function>) {
        return fxConnection::adopt(output.get(), context,
                                   fxDetail::newInput<T>(std::move(receiver), replace));
    }
    return fxConnection();
}

///@{
/// Calls `receiver`, a function object, with each value of the output, until the
/// connection is cut or the output goes; with a `context` (borrowed; null joins
/// nothing) also until that object begins to end. Messages already queued when the
/// connection is cut are still delivered; the receiver ends with the last of them. The
/// bit `replace` is that of fxInputChannel.
///
///     fxConnect(slider.moved, [](int level) { print(level); });
///     fxConnect(slider.moved, this, [this](int level) { draw(level); });
template <class T, class Function, std::enable_if_t<fxDetail::isCallable<Function>, int> = 0>
fxConnection fxConnect(const fxOutputView<T>& output, Function receiver) {
    return fxDetail::connectTo(output, nullptr, std::move(receiver), 0);
}
template <class T, class Function, std::enable_if_t<fxDetail::isCallable<Function>, int> = 0>
fxConnection fxConnect(const fxOutputView<T>& output, fxObj* context, Function receiver,
                       unsigned char replace = 0) {
    if (context == nullptr) return fxConnection("there is no context");
    return fxDetail::connectTo(output, context, std::move(receiver), replace);
}
///@}

/// Calls a member function of `target` (borrowed; null joins nothing) with each value of
/// the output, until the connection is cut or the target begins to end. The compiler checks
/// that every value of the output is one of the function's.
///
///     fxConnect(slider.moved, &view, &View::draw);
template <class T, class C, class Method,
          std::enable_if_t<std::is_member_function_pointer_v<Method>, int> = 0>
fxConnection fxConnect(const fxOutputView<T>& output, C* target, Method method,
                       unsigned char replace = 0) {
    static_assert(fxDetail::keepsValue<T, fxDetail::CallableOf<Method>>,
                  "not every value of the output is one of the receiver's");
    static_assert(
        std::is_base_of_v<fxObj, C>,
        "the target is an fxObj, with whose end the connection ends; others: by a lambda");
    static_assert(fxDetail::isMemberOf<C, Method>,
                  "the member function is one of another class than the target's");
    static_assert(fxDetail::takesOneAtMost<Method>, "a receiver takes nothing or one value");
    if (target == nullptr) return fxConnection("there is no target");
    if constexpr (fxDetail::isMemberOf<C, Method> && fxDetail::takesOneAtMost<Method>) {
        typedef typename fxDetail::CallableOf<Method>::Type Argument;
        if constexpr (std::is_void_v<Argument>) {
            const auto call = [target, method] { (target->*method)(); };
            return fxDetail::connectTo(output, target, call, replace);
        } else {
            const auto call = [target, method](Argument value) {
                (target->*method)(static_cast<Argument>(value));
            };
            return fxDetail::connectTo(output, target, call, replace);
        }
    }
    return fxConnection();
}

/// The same for a target that a reference holds; the connection does not hold it.
template <class T, class C, class Method,
          std::enable_if_t<std::is_member_function_pointer_v<Method>, int> = 0>
fxConnection fxConnect(const fxOutputView<T>& output, const fxRef<C>& target, Method method,
                       unsigned char replace = 0) {
    return fxConnect(output, target.get(), method, replace);
}

/// The same for a target or a context by reference.
template <
    class T, class C, class Receiver,
    std::enable_if_t<std::is_base_of_v<fxObj, C> && !std::is_convertible_v<Receiver, const char*>,
                     int> = 0>
fxConnection fxConnect(const fxOutputView<T>& output, C& target, Receiver receiver,
                       unsigned char replace = 0) {
    return fxConnect(output, &target, std::move(receiver), replace);
}

#endif
