#pragma once

// The inverter's pure layer over GMP integers: it knows the 32 operators of
// the calculator table through their rows in rules.cpp. Booleans are 0 and
// 1, a bit-vector of width w is an integer in [0, 2^w).

#include <gmpxx.h>

#include <cstddef>
#include <optional>
#include <vector>

#include "kora/terms/evaluator.h"

namespace kora::inverse {

using Operator = bv::Operator;
using bv::evaluate;

// Whether op is one of the operators that the inverter knows: those with a
// row in its table.
bool invertible(Op op) noexcept;

// Some x with f(args[0..position-1], x, args[position+1..]) = v, or nothing
// when there is none. args[position] is ignored; the other values and v must
// be in range. Both solve overloads throw std::invalid_argument for a wrong
// number of values, malformed sharing, or an operator outside the 32 or with
// a zero width or impossible indices.
std::optional<mpz_class> solve(const Operator& f, std::size_t position,
                               const std::vector<mpz_class>& args, const mpz_class& v);

// Values for every free argument (an empty entry of args) such that f of the
// completed vector is v, or nothing when there are none. same[i] names the
// first position that holds the same free term as position i (same[i] == i for
// a first occurrence); an empty same means that all free arguments are
// distinct. The answer is the completed vector: known values are copied,
// positions of one term share a value.
std::optional<std::vector<mpz_class>> solve(const Operator& f,
                                            const std::vector<std::optional<mpz_class>>& args,
                                            const mpz_class& v,
                                            const std::vector<std::size_t>& same = {});

}  // namespace kora::inverse
