// The operations of a flow on the values of a data type.
#ifndef FLOW_VALUETYPE_H
#define FLOW_VALUETYPE_H

#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "fxds/Connection.h"
#include "fxds/Obj.h"
#include "fxds/Ref.h"
#include "fxds/StrArray.h"

/// The modes of delivery of a connection.
enum class fxFlowDelivery {
    queued,  ///< behind everything that waits
    urgent,  ///< before everything that waits
    newest,  ///< queued, and in place of an older value that still waits
    now      ///< inside the send
};

/// "queued", "urgent", "newest" or "now".
FX_API const char* fxFlowDeliveryName(fxFlowDelivery delivery);

namespace fxFlowDetail {

///@{
/// Numbers, truths ("yes" and "no") and texts as a flow writes them.
FX_API std::string textOf(bool value);
FX_API std::string textOf(long value);
FX_API std::string textOf(float value);
FX_API std::string textOf(double value);
FX_API std::string textOf(const fxStrArray& value);
///@}
///@{
/// The inverse; returns false and changes nothing for a text that is not wholly a value.
FX_API bool fromText(const std::string& text, bool& value);
FX_API bool fromText(const std::string& text, long& value);
FX_API bool fromText(const std::string& text, double& value);
FX_API bool fromText(const std::string& text, fxStrArray& value);
///@}

template <class T>
std::string shown(const T& value) {
    if constexpr (std::is_same_v<T, unsigned char> || std::is_same_v<T, bool>) {
        return textOf(value != 0);
    } else if constexpr (std::is_integral_v<T>) {
        return textOf(static_cast<long>(value));
    } else if constexpr (std::is_same_v<T, float> || std::is_same_v<T, fxStrArray>) {
        return textOf(value);
    } else if constexpr (std::is_floating_point_v<T>) {
        return textOf(static_cast<double>(value));
    } else if constexpr (std::is_same_v<T, const char*>) {
        return value != nullptr ? value : "";
    } else if constexpr (std::is_same_v<T, fxStr>) {
        return std::string(value.view());
    } else {
        return '<' + std::string(fxChannelType<T>::typeName()) + '>';
    }
}

// Calls use(value) with the value of a text; false when the text has none.
template <class T, class Use>
bool parsed(const std::string& text, Use use) {
    if constexpr (std::is_same_v<T, unsigned char>) {
        bool value = false;
        return fromText(text, value) && (use(static_cast<T>(value)), true);
    } else if constexpr (std::is_integral_v<T>) {
        long value = 0;
        return fromText(text, value) && value >= std::numeric_limits<T>::min() &&
               value <= std::numeric_limits<T>::max() && (use(static_cast<T>(value)), true);
    } else if constexpr (std::is_floating_point_v<T>) {
        double value = 0;
        constexpr double most = std::numeric_limits<T>::max();
        if (!fromText(text, value) || (std::isfinite(value) && std::fabs(value) > most))
            return false;
        return use(static_cast<T>(value)), true;
    } else if constexpr (std::is_same_v<T, const char*>) {
        return use(text.c_str()), true;
    } else if constexpr (std::is_same_v<T, fxStr>) {
        return use(fxStr(std::string_view(text))), true;
    } else if constexpr (std::is_same_v<T, fxStrArray>) {
        fxStrArray value;
        return fromText(text, value) && (use(value), true);
    } else {
        return false;
    }
}

/// Passes values on through its output "out", each by its delivery.
template <class T>
class Relay final : public fxObj {
public:
    explicit Relay(fxFlowDelivery delivery_)
        : delivery(delivery_), out(addOutput<T>("out")), hop(addOutput<T>("hop")) {
        if constexpr (std::is_void_v<T>) {
            addInput("in", [this] { pass(); });
            addInput(
                "last", [this] { out.send(fxSendNow); }, 1);
        } else {
            addInput<T>("in", [this](const T& value) { pass(value); });
            addInput<T>(
                "last", [this](const T& value) { out.send(value, fxSendNow); }, 1);
        }
        if (delivery == fxFlowDelivery::newest) connect("hop", this, "last");
    }
    const char* className() const override { return "fxFlowRelay"; }

private:
    template <class... Value>
    void pass(const Value&... value) {
        const fxSendFlags how = delivery == fxFlowDelivery::now      ? fxSendNow
                                : delivery == fxFlowDelivery::urgent ? fxSendUrgent
                                                                     : fxSendQueued;
        if (delivery == fxFlowDelivery::newest) {
            hop.send(value..., how);
        } else {
            out.send(value..., how);
        }
    }

    const fxFlowDelivery delivery;
    const fxOutput<T> out;
    const fxOutput<T> hop;  // leads to "last", which keeps only the newest
};

}  // namespace fxFlowDetail

/// The operations on the values of one data type; fxFlowTypeOf() gives them.
struct fxFlowType {
    typedef std::function<void(const std::string&)> Watcher;  ///< Gets a value as text.

    unsigned short (*number)();                 ///< The data type number.
    fxRef<fxObj> (*makeRelay)(fxFlowDelivery);  ///< From its input "in" to its output "out".
    /// Calls the watcher with each value of the output, until the context (borrowed) ends.
    fxConnection (*watch)(fxOutputChannel* output, fxObj* context, Watcher watcher);
    /// Sends the value of the text on the output, at once; false, and nothing is sent, when it
    /// is no value of the type.
    bool (*send)(fxOutputChannel* output, const std::string& text);
};

/// The operations for values of type T.
template <class T>
const fxFlowType& fxFlowTypeOf() {
    typedef typename fxChannelType<T>::Value Value;
    static const fxFlowType type = {
        [] { return fxChannelType<T>::type(); },
        [](fxFlowDelivery delivery) -> fxRef<fxObj> {
            return new fxFlowDetail::Relay<Value>(delivery);
        },
        [](fxOutputChannel* output, fxObj* context, fxFlowType::Watcher watcher) {
            const fxOutputView<Value> view(output);
            if constexpr (std::is_void_v<Value>) {
                return fxConnect(view, context, [watcher = std::move(watcher)] { watcher(""); });
            } else {
                return fxConnect(view, context, [watcher = std::move(watcher)](const Value& value) {
                    watcher(fxFlowDetail::shown<Value>(value));
                });
            }
        },
        [](fxOutputChannel* output, const std::string& text) {
            const fxOutputView<Value> view(output);
            if constexpr (std::is_void_v<Value>) {
                return text.empty() && (view.send(fxObj::fxSendNow), true);
            } else {
                return fxFlowDetail::parsed<Value>(
                    text, [&view](const Value& value) { view.send(value, fxObj::fxSendNow); });
            }
        }};
    return type;
}

#endif
