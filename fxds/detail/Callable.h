// Inputs that call a function object, which the channel keeps. Part of the
// public headers, not of the interface.
#ifndef FXDS_DETAIL_CALLABLE_H
#define FXDS_DETAIL_CALLABLE_H

#include <utility>

#include "fxds/Channel.h"
#include "fxds/detail/Hold.h"
#include "fxds/detail/TypedChannels.h"

namespace fxDetail {

// A callable for the values of a T. Its channel deletes it in its own
// destructor, so a callable that removes its own input is held by the call.
template <class T, class F>
class Callable final : public KeptCallable {
public:
    explicit Callable(F function_) : function(std::move(function_)) {}

    static InputFunction inputFunction() {
        if constexpr (std::is_void_v<T>) {
            return {fxDT_void, reinterpret_cast<void (*)()>(&Callable::call), nullptr};
        } else {
            return {fxChannelType<T>::type(),
                    reinterpret_cast<void (*)()>(&Callable::template callWith<Passed<T>>), nullptr};
        }
    }

private:
    static void call(void* self) {
        auto* const callable = static_cast<Callable*>(self);
        const fxHold<fxInputChannel> hold(callable->channel);
        static_cast<void>(callable->function());
    }
    template <class Value>
    static void callWith(void* self, Value value) {
        auto* const callable = static_cast<Callable*>(self);
        const fxHold<fxInputChannel> hold(callable->channel);
        typedef ArgumentFor<T, F> Argument;
        if constexpr (std::is_void_v<Argument>) {
            static_cast<void>(value);
            static_cast<void>(callable->function());
        } else {
            static_cast<void>(callable->function(received<Argument>(value)));
        }
    }

    F function;
};

// A new channel, without holders, whose values go to `function`.
template <class T, class F>
fxInputChannel* newInput(F function, unsigned char replace) {
    auto* const callable = new Callable<T, F>(std::move(function));
    return newInputFor(callable, callable, Callable<T, F>::inputFunction(), replace);
}

}  // namespace fxDetail

#endif
