// Which types may be moved by their bytes. Programs include it with an array, and specialise
// fxMovesAsBytes for elements of their own.
#ifndef FXDS_DETAIL_MOVESASBYTES_H
#define FXDS_DETAIL_MOVESASBYTES_H

#include <type_traits>

/// Whether an object of type T may be moved by copying its bytes and forgetting
/// the original, as realloc() does: it keeps no pointer into itself, and its
/// address is kept nowhere. True for every trivially copyable type, and for
/// fxStr, RPtr and the arrays. For another class say so:
///
///     template <>
///     struct fxMovesAsBytes<Session> : std::true_type {};
template <class T, class = void>
struct fxMovesAsBytes : std::is_trivially_copyable<T> {};

#endif
