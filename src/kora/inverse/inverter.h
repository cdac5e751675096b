#pragma once

// The complete inverter: unlike the calculators, which each handle a fixed set
// of combinations and pick one particular value, it decides exactly whether
// some value of the free argument(s) of t = f(a1, ..., an) makes t equal v, and
// if so records one. It lives beside the calculators and shares their
// classification and recording, so that the model store sees its values
// exactly as it sees theirs.
//
// Its rooms:
//  - the library's evaluator and bit-vector values (terms/evaluator.h,
//    terms/bv_values.h);
//  - rules.cpp, one row per operator: its inverse at one position, its
//    candidates when one free term stands at both, its neutral value;
//  - solve.h, the pure layer over GMP integers that applies the rows;
//  - Inverter (this header), which reads a term against the model store,
//    calls the pure layer and records the values; search.cpp, its exhaustive
//    search over constants that other arguments depend on.

#include <gmpxx.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kora/calculators/adhoc_calculator.h"
#include "kora/inverse/solve.h"
#include "kora/terms/term.h"

namespace kora::inverse {

inline constexpr const char* kNoValueMessage = "no value exists for the free argument";
inline constexpr const char* kNotAValueMessage = "the required value is not a value";
inline constexpr const char* kNoInverseMessage = "no inverse for this operator";
inline constexpr const char* kTooWideMessage =
    "a free argument also occurs inside another argument and is too wide to search";
inline constexpr const char* kOpaqueMessage =
    "a free argument of an uninterpreted or array sort also occurs inside another argument";

// The largest abstract value index that reads back as written: the readers
// of values refuse 2^64 - 1. The inverter never answers a larger one.
inline constexpr std::size_t kLargestAbstractIndex = std::numeric_limits<std::size_t>::max() - 1;

// No value of the free arguments makes the term take the required value.
// Derives from the calculators' error so that one handler serves both.
class NoValue : public adhoccalculator::AdHocCalculator::error {
 public:
  NoValue() : error(kNoValueMessage) {}
};

// The inverter cannot decide (see Inverter::operator()); this is never a
// claim that no value exists.
class Refused : public adhoccalculator::AdHocCalculator::error {
 public:
  explicit Refused(const std::string& why) : error(why) {}
};

// The inverter as the model builder (or the front end's `invert`) uses it.
//
// operator()(t, v):
//  1. classifies every argument of t, first to last, exactly as the
//     calculators do (valued, free or defaulted; defaulting stays in the
//     store unless a value is then recorded for the same constant); valued
//     and defaulted arguments both count as known, except for the free
//     constants without a value that classification defaulted (below);
//  2. normalises v through the store; Refused(kNotAValueMessage) unless that
//     gives a value;
//  3. with no free argument and no such constant: records nothing when t
//     already normalises to v, otherwise throws NoValue (the call is a
//     question about t, and the answer is already fixed);
//  4. otherwise finds values for the free arguments and those constants, or
//     throws NoValue when none exist, and records them with
//     calculated_value, one per distinct free term, in order of first
//     occurrence in t's arguments.
//
// Equality and ite over declared sorts and arrays are solved on the values
// as terms: a value different from a known one is the next abstract value
// (the smallest, @0, past kLargestAbstractIndex), or the constant array of a
// different element.
//
// Refused is thrown, after classification and before any recording, for an
// operator outside the 32 (kNoInverseMessage), for a v that does not
// normalise to a value of t's sort (kNotAValueMessage), and in the two
// searched cases below.
//
// A free term at several positions is solved as one unknown. A free declared
// constant without a value that occurs inside a non-free argument (before,
// after or beside its own position, or only there) gets a default value when
// that argument is classified. The inverter then searches the values of all
// such constants exhaustively, re-evaluating only the parts of the arguments
// that depend on them, and records the value found for each of them, which
// replaces its default. It throws Refused when those constants take more than
// kMaxSearchBits bits together or once the work done, counted on the values
// as they are, passes kSearchBudget (kTooWideMessage), and when one of them has
// a sort it cannot enumerate (kOpaqueMessage). Equality and ite over other
// sorts take part in the evaluation. A free term that occurs inside another
// free argument is treated as independent of it: the recorded equalities then
// hold as constraints.
class Inverter final : public adhoccalculator::AdHocCalculator {
 public:
  static constexpr std::size_t kMaxSearchBits = 16;
  // The work one search may do, counted as it goes: 64 per evaluation plus
  // four per machine word of the values it reads. That is some 260,000
  // evaluations of small values, a few hundredths of a second in a release
  // build and under a second in a sanitized one. All 2^16 values of a 16-bit
  // constant fit for up to three evaluations each (t's own operator included).
  static constexpr std::uint64_t kSearchBudget = std::uint64_t{1} << 24;

  using AdHocCalculator::AdHocCalculator;
  ~Inverter() override;

  void operator()(const Term* t, const Term* v) override;

 private:
  // Constants with the index of the argument they first occur in.
  using Placed = std::vector<std::pair<const Term*, std::size_t>>;

  // --- The adapter (inverter.cpp) ---
  // The free declared constants inside t's arguments that have no value, in
  // order of first occurrence.
  Placed unvalued_free_constants(const Term* t);
  std::optional<std::vector<const Term*>> equal_opaque_values(const std::vector<Arg>& args,
                                                              const std::vector<std::size_t>& same,
                                                              const Term* v);
  std::optional<std::vector<const Term*>> ite_opaque_values(const Term* t,
                                                            const std::vector<Arg>& args,
                                                            const std::vector<std::size_t>& same,
                                                            const Term* v);
  // Values for the free arguments of an equality or ite over a sort without
  // arithmetic, or nothing when there are none.
  std::optional<std::vector<const Term*>> opaque_values(const Term* t, const std::vector<Arg>& args,
                                                        const std::vector<std::size_t>& same,
                                                        const Term* v);
  // A value of the type of value other than value itself.
  const Term* other_value(const Term* value);
  mpz_class to_number(const Term* value) const;
  const Term* to_term(const mpz_class& x, const DataType* type);
  void record(const std::vector<Arg>& args, const std::vector<std::size_t>& same,
              const std::vector<const Term*>& values);
  // Booleans and bit-vectors: the sorts whose values the search can enumerate.
  static bool enumerable(const DataType* type);

  // --- The search over dependent constants (search.cpp) ---
  struct Search;
  void invert_dependent(const Term* t, const std::vector<Arg>& args, const Placed& searched,
                        const Term* v);
  // The slot that holds root's value once the search's dependent part is evaluated.
  std::size_t compile(Search& s, const Term* root);
  // Gives every argument of t its slot, or marks it as a free one to solve.
  void place_arguments(Search& s, const Term* t, const std::vector<Arg>& args);
  // Values for the free arguments under the assignment in s, or nothing.
  std::optional<std::vector<const Term*>> solve_assignment(Search& s, const Term* t,
                                                           const std::vector<Arg>& args,
                                                           const Term* v);
  void record_search(const Search& s, const Term* t, const Placed& searched,
                     const std::vector<const Term*>& values);
  mpz_class search_number(Search& s, const Term* value) const;
  const Term* search_term(const Search& s, const mpz_class& x, const DataType* type);
};

}  // namespace kora::inverse
