#pragma once

// The library's one evaluator of operators over numbers: the 32 operators
// that the calculators invert, with the SMT-LIB definitions (division by zero
// included), on values as bv_values.h holds them. The constant folders' wide
// path and the complete inverter both evaluate through it.

#include <gmpxx.h>

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "kora/terms/term.h"

namespace kora::bv {

// An operator with its indices. The fields mean, by operator:
//   Not, And, Or, Iff           nothing (width 0)
//   Equal                       width of the sides, 0 for Boolean sides
//   Ite                         width of the branches, 0 for Boolean ones
//   bit-vector operators        width of the arguments
//   BVConcat                    width = high part, index0 = low part
//   BVExtract                   width = argument, index0 = msb, index1 = lsb
//   BVZeroExtend, BVSignExtend  width = argument, index0 = amount
//   BVRotateLeft/Right          width = argument, index0 = amount
struct Operator {
  Op op = Op::Not;
  std::size_t width = 0;
  std::size_t index0 = 0;
  std::size_t index1 = 0;

  // The operator of t, or nothing when t is not an application of one of
  // the 32 (a constant, a value).
  static std::optional<Operator> of(const Term* t);
  // The same for a symbol; Equal and Ite take their widths from the term,
  // so they come out with width 0.
  static std::optional<Operator> of(const Symbol* s);

  std::size_t arity() const noexcept;
  // Width of argument i; 0 for a Boolean (or, for Equal and Ite, any
  // non-bit-vector) argument.
  std::size_t arg_width(std::size_t i) const noexcept;
  // Width of the result; 0 for a Boolean result.
  std::size_t result_width() const noexcept;
};

// f over the argument values x, each in range, with the SMT-LIB definitions
// (division by zero included). For Ite with width 0 the branches may be any
// integers. Throws std::invalid_argument for an operator outside the 32.
mpz_class evaluate(const Operator& f, std::span<const mpz_class> x);
inline mpz_class evaluate(const Operator& f, const std::vector<mpz_class>& x) {
  return evaluate(f, std::span<const mpz_class>(x));
}

}  // namespace kora::bv
