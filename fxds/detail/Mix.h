// The multiplication that all hash tables of the library mix bits with. Part of
// the public headers, not of the interface.
#ifndef FXDS_DETAIL_MIX_H
#define FXDS_DETAIL_MIX_H

#include <cstdint>

/// The product with 2^64 divided by the golden ratio (Fibonacci hashing). Each
/// bit of it depends on all bits of `number` below, so the upper bits are the
/// good ones.
constexpr uint64_t fxMix64(uint64_t number) { return number * 0x9E3779B97F4A7C15U; }

/// The upper half of fxMix64(), which depends on all bits of `number`.
constexpr uint32_t fxMix32(uint64_t number) { return static_cast<uint32_t>(fxMix64(number) >> 32); }

#endif
