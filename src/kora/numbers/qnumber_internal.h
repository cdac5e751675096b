#pragma once

// Shared state and helpers of the QNumber fast path, visible to the tests that
// check how the table is filled. Not part of the public number interface.

#include <cstdint>

namespace kora {

inline constexpr int kGcdCacheSize = 1024;

// gcd_cache[x][y] = gcd(x, y) for 0 <= x, y < kGcdCacheSize once computed; 0
// means not computed yet (no pair reached through Euclid's loop has gcd 0).
// Filled lazily, both [x][y] and [y][x] at once.
extern std::int64_t gcd_cache[kGcdCacheSize][kGcdCacheSize];

// gcd(|a|, |b|) of two words that are never -2^63; positive unless both are 0.
std::int64_t small_gcd(std::int64_t a, std::int64_t b) noexcept;

}  // namespace kora
