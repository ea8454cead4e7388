// Functions that the templates of Channel.h call while sends are traced. Part
// of the public headers, not of the interface.
#ifndef FXDS_DETAIL_TRACEHOOKS_H
#define FXDS_DETAIL_TRACEHOOKS_H

#include "fxds/DataTypes.h"

class fxInputChannel;
class fxOutputChannel;

/// The kinds of lines that are written now; 0 while nothing is traced. Change
/// it through fxTrace only.
extern FX_API unsigned int fx_traceKinds;

namespace fxDetail {

// An unboxed value on its way, borrowed for one call.
class TracedValue {
public:
    TracedValue() : type(fxDT_void), value(nullptr) {}
    template <class T>
    explicit TracedValue(const T& value_) : type(typeOf(&value_, 0)), value(&value_) {}

    unsigned short type;  // of the C++ type, which the channel's need not be
    const void* value;

private:
    template <class T>
    static auto typeOf(const T*, int) -> decltype(fxChannelType<T>::type()) {
        return fxChannelType<T>::type();
    }
    template <class T>
    static unsigned short typeOf(const T*, long) {
        return fxDT_VoidPtr;
    }
};

// Trace a value that is sent at once. They write nothing when their kind is off,
// and only look at what they are given.
[[gnu::cold]] FX_API void traceSending(const fxOutputChannel& output, const TracedValue& value);
[[gnu::cold]] FX_API void traceDelivering(fxInputChannel& input, const TracedValue& value);

}  // namespace fxDetail

#endif
