#pragma once

// The inverter's rules: one row per operator, in rules.cpp, holding what the
// solver needs to know of that operator beyond its value (the evaluator in
// terms/evaluator.h gives that).

#include <gmpxx.h>

#include <cstddef>
#include <optional>
#include <vector>

#include "kora/terms/evaluator.h"

namespace kora::inverse {

using Operator = bv::Operator;
using Values = std::vector<mpz_class>;
using Pattern = std::vector<std::optional<mpz_class>>;

struct Rule {
  Op op;
  // A candidate for the free argument at position pos, the other values in
  // a (a[pos] is ignored): a value that satisfies whenever any value does (the
  // solver checks it), or nothing when the equation already rules every value
  // out.
  std::optional<mpz_class> (*inverse)(const Operator& f, std::size_t pos, const Values& a,
                                      const mpz_class& v);
  // Values of x that between them cover every outcome of f(x, x); the solver
  // keeps the first that gives v. Null for unary operators.
  Values (*shared)(const Operator& f, const mpz_class& v);
  // The value given to the second argument when both are free and distinct,
  // so that the first can still reach every v. Null for unary operators.
  mpz_class (*neutral)(const Operator& f, const mpz_class& v);
  // For an operator whose free arguments are solved together rather than one
  // at a time (ite), the whole answer; same as for solve(). Null otherwise.
  std::optional<Values> (*whole)(const Operator& f, const Pattern& args, const mpz_class& v,
                                 const std::vector<std::size_t>& same);
};

// The row of op, or null when the inverter has none.
const Rule* rule_of(Op op) noexcept;

}  // namespace kora::inverse
