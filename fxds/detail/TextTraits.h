// Which overload of a string's functions and operators takes which type.
#ifndef FXDS_DETAIL_TEXTTRAITS_H
#define FXDS_DETAIL_TEXTTRAITS_H

#include <string>
#include <type_traits>

#include "fxds/TextView.h"

class fxStr;

namespace fxDetail {
/// Types of a text's contents, of a truth and of fractions.
template <class T>
inline constexpr bool countsNothing =
    std::is_same_v<T, char> || std::is_same_v<T, bool> || std::is_floating_point_v<T>;

/// Numbers as text: integers, and fractions.
template <class T>
inline constexpr bool isNumber = (std::is_integral_v<T> && !countsNothing<T>) ||
                                 std::is_same_v<T, float> || std::is_same_v<T, double>;

/// A std::string converts to a view and to an fxStr. So that neither way is
/// taken for the other, functions that have both take it by a template of their own.
template <class T>
using IfStdString = std::enable_if_t<std::is_same_v<std::string, T>, int>;

/// A text of ours, and any other that is a view or becomes one. What converts to a
/// `const char*` has operators of its own, and the standard's texts have theirs
/// among themselves.
template <class T>
using IsOurs = std::disjunction<std::is_base_of<fxStr, T>, std::is_same<fxTempStr, T>>;
template <class T>
using IsView =
    std::conjunction<std::negation<IsOurs<T>>, std::is_convertible<const T&, std::string_view>,
                     std::negation<std::is_convertible<const T&, const char*>>>;
template <class T>
using IsByte = std::is_same<char, T>;
template <class A, class B>
using IfMixed = std::enable_if_t<std::disjunction_v<std::conjunction<IsOurs<A>, IsView<B>>,
                                                    std::conjunction<IsOurs<B>, IsView<A>>>,
                                 int>;

/// Types that `|` concatenates, besides strings and terminated texts.
template <class T>
using IsJoined = std::disjunction<IsByte<T>, IsView<T>>;
template <class A, class B>
using IfJoins =
    std::enable_if_t<std::disjunction_v<std::conjunction<std::is_base_of<fxStr, A>, IsJoined<B>>,
                                        std::conjunction<IsOurs<B>, IsJoined<A>>>,
                     int>;
template <class T>
using IfAppends = std::enable_if_t<IsJoined<T>::value, int>;

/// A text of ours with any other text, or with a number, for what is refused.
template <class T>
using IsNumber = std::conjunction<std::is_arithmetic<T>, std::negation<IsByte<T>>>;
template <class T>
using IsText =
    std::conjunction<std::negation<IsNumber<T>>, std::is_convertible<const T&, fxTextView>>;
template <class A, class B>
using IfTexts = std::enable_if_t<std::disjunction_v<std::conjunction<IsOurs<A>, IsText<B>>,
                                                    std::conjunction<IsOurs<B>, IsText<A>>>,
                                 int>;
template <class A, class B>
using IfNumbered = std::enable_if_t<std::disjunction_v<std::conjunction<IsOurs<A>, IsNumber<B>>,
                                                       std::conjunction<IsOurs<B>, IsNumber<A>>>,
                                    int>;
}  // namespace fxDetail

#endif
