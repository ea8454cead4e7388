// Tests of what elements are set to.
#ifndef FLOW_ELEMENTS_SETTINGS_H
#define FLOW_ELEMENTS_SETTINGS_H

#include <string>

namespace fxFlowDetail {

/// For a text that goes to the system, which would take it to end at a zero byte.
inline std::string whyZeroByte(const std::string& text) {
    return text.find('\0') == std::string::npos ? "" : "has a zero byte";
}

}  // namespace fxFlowDetail

#endif
