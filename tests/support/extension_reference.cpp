#include "support/extension_reference.h"

#include <bit>
#include <stdexcept>
#include <string>

namespace kora::test {

namespace {

std::int64_t as_signed(std::uint64_t x, std::size_t w) {
  const auto v = static_cast<std::int64_t>(x);
  return ((x >> (w - 1)) & 1) != 0 ? v - (std::int64_t{1} << w) : v;
}

bool outside_unsigned(std::int64_t r, std::size_t w) {
  return r < 0 || r >= (std::int64_t{1} << w);
}

bool outside_signed(std::int64_t r, std::size_t w) {
  const std::int64_t half = std::int64_t{1} << (w - 1);
  return r < -half || r >= half;
}

}  // namespace

bool is_unary_extension(std::string_view name) {
  return name.starts_with("bvred") || name == "bvnego";
}

std::uint64_t extension_value(std::string_view name, std::uint64_t s, std::uint64_t t,
                              std::size_t w) {
  const auto us = static_cast<std::int64_t>(s);
  const auto ut = static_cast<std::int64_t>(t);
  const std::int64_t ss = as_signed(s, w);
  const std::int64_t st = as_signed(t, w);
  bool r = false;
  if (name == "bvredor") {
    r = s != 0;
  } else if (name == "bvredand") {
    r = s == (std::uint64_t{1} << w) - 1;
  } else if (name == "bvredxor") {
    r = std::popcount(s) % 2 == 1;
  } else if (name == "bvnego") {
    r = outside_signed(-ss, w);
  } else if (name == "bvuaddo") {
    r = outside_unsigned(us + ut, w);
  } else if (name == "bvusubo") {
    r = outside_unsigned(us - ut, w);
  } else if (name == "bvumulo") {
    r = outside_unsigned(us * ut, w);
  } else if (name == "bvsaddo") {
    r = outside_signed(ss + st, w);
  } else if (name == "bvssubo") {
    r = outside_signed(ss - st, w);
  } else if (name == "bvsmulo") {
    r = outside_signed(ss * st, w);
  } else if (name == "bvsdivo") {
    // Division by zero has a defined result and never overflows.
    r = st != 0 && outside_signed(ss / st, w);
  } else {
    throw std::invalid_argument("no such operator: " + std::string(name));
  }
  return r ? 1 : 0;
}

}  // namespace kora::test
