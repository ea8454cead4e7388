// Tests of values of properties.
#ifndef FLOW_ELEMENTS_SETTINGS_H
#define FLOW_ELEMENTS_SETTINGS_H

#include <string>

namespace fxFlowDetail {

/// For a text that is passed to the system, which would cut it at a zero byte.
inline std::string whyZeroByte(const std::string& text) {
    return text.find('\0') == std::string::npos ? "" : "has a zero byte";
}

}  // namespace fxFlowDetail

#endif
