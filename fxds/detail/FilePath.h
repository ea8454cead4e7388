// The path of a file as an argument. Part of the public headers, not of the
// interface.
#ifndef FXDS_DETAIL_FILEPATH_H
#define FXDS_DETAIL_FILEPATH_H

#include <string>
#include <string_view>
#include <type_traits>

namespace fxDetail {

// Made of zero-terminated text (null is the empty path), of whatever converts to a view,
// such as fxStr, and of what converts to a std::string only, as std::filesystem::path.
class FilePath : public std::string {
    template <class Text>
    static constexpr bool isView = std::is_convertible_v<const Text&, std::string_view>;
    template <class Text>
    static constexpr bool isPath = std::is_class_v<Text> &&
                                   (isView<Text> ||
                                    std::is_convertible_v<const Text&, std::string>);

public:
    FilePath(const char* text) : std::string(text != nullptr ? text : "") {}
    template <class Text, std::enable_if_t<isPath<Text>, int> = 0>
    FilePath(const Text& text)
        : std::string(
              static_cast<std::conditional_t<isView<Text>, std::string_view, std::string>>(text)) {}
};

}  // namespace fxDetail

#endif
