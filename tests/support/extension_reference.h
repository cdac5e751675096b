#pragma once

// The reduction and overflow operators computed with plain integer
// arithmetic, as a judge independent of the reader's definitions.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kora::test {

// The value (0 or 1) of the operator called name at width w (1 to 16) over
// s and t, given as unsigned integers below 2^w (t is ignored by the unary
// ones). The reductions give a one-bit vector, the rest a Boolean.
std::uint64_t extension_value(std::string_view name, std::uint64_t s, std::uint64_t t,
                              std::size_t w);

// Whether the operator takes one argument.
bool is_unary_extension(std::string_view name);

// Every such operator's name.
inline constexpr std::string_view kExtensionNames[] = {"bvredor", "bvredand", "bvredxor", "bvnego",
                                                       "bvuaddo", "bvsaddo",  "bvumulo",  "bvsmulo",
                                                       "bvusubo", "bvssubo",  "bvsdivo"};

}  // namespace kora::test
