#pragma once

// Exhaustive driver for the calculators. A test names the operator's
// signature (argument and result sorts and how to build the term) and an
// oracle that says, for one case, what the calculator must do; the driver
// runs every case: every argument free, valued with every value of its sort,
// or defaulted, against every value of v and one v that is not a value. For
// each case it checks the exact constraints (in order), the log lines, the
// adhoc_values entries, the error message, that defaulting stays after a
// throw, and that the model then satisfies t = v by an independent
// evaluator. The first failures print the case.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kora/calculators/adhoc_calculator.h"
#include "kora/model/model_store.h"
#include "kora/terms/term_manager.h"
#include "support/evaluator.h"

namespace kora::test {

using adhoccalculator::AdHocCalculator;
using adhoccalculator::SetFreeTermPredicate;

struct Sort {
  bool is_bool = true;
  std::size_t width = 0;
  std::uint64_t value_count() const { return is_bool ? 2 : mask(width) + 1; }
};
inline Sort bool_sort() {
  return {true, 0};
}
inline Sort bv_sort(std::size_t w) {
  return {false, w};
}

enum class Kind { Free, Valued, Defaulted };

struct ArgCase {
  Kind kind = Kind::Free;
  // The given value (Valued) or the default value, 0 (Defaulted).
  std::uint64_t value = 0;
  bool is_free() const { return kind == Kind::Free; }
  bool has_value() const { return kind != Kind::Free; }
};

struct Signature {
  std::vector<Sort> args;
  Sort result;
  // Builds t from its argument terms.
  std::function<const Term*(TermManager&, const std::vector<const Term*>&)> build;
};

// One case as the calculator sees it.
struct Case {
  std::vector<ArgCase> args;
  // Empty when v is not a value.
  std::optional<std::uint64_t> v;
  const Signature* sig = nullptr;

  // The result width (bit-vector results) or 0.
  std::size_t width() const { return sig->result.width; }
  std::string describe() const;
};

// The terms of one case, for oracles that need to name them.
struct CaseTerms {
  TermManager& mgr;
  std::vector<const Term*> args;    // the argument terms
  std::vector<const Term*> values;  // each argument's value term, or null when free
  const Term* t = nullptr;
  const Term* v = nullptr;

  const Term* num(std::uint64_t x, std::size_t w) const {
    return mgr.make_bv_number(QNumber(static_cast<long>(x)), w);
  }
  const Term* boolean(bool b) const { return b ? mgr.true_term() : mgr.false_term(); }
};

// What a call must do: throw error, or record exactly these (target, value)
// pairs in order.
struct Expect {
  const char* error = nullptr;
  std::vector<std::pair<const Term*, const Term*>> records;
  // Set for the documented cases in which the recorded values do not make
  // t = v hold.
  bool model_exempt = false;

  static Expect fail(const char* message) { return Expect{message, {}, false}; }
};

using Oracle = std::function<Expect(const Case&, const CaseTerms&)>;

// Runs one case; returns a description of what went wrong, or "".
template <class Calculator>
std::string run_case(const Case& c, const Oracle& oracle);

// Runs every case of the signature; fails the current test on mismatches.
template <class Calculator>
void check_all_cases(const Signature& sig, const Oracle& oracle);

// A manager, a store logging at level 2 into a string, and a predicate, for
// the named edge-case tests.
class CalculatorTest : public ::testing::Test {
 protected:
  CalculatorTest() { store.logger().set_verbosity(2); }

  const Term* bv(const std::string& name, std::size_t w) {
    return mgr.make_constant(name, mgr.bv_type(w));
  }
  const Term* boolean(const std::string& name) { return mgr.make_constant(name, mgr.bool_type()); }
  const Term* num(long x, std::size_t w) { return mgr.make_bv_number(QNumber(x), w); }
  const Term* free(const Term* a) {
    pred.mark_free(a);
    return a;
  }
  const Term* valued(const Term* a, const Term* value) {
    store.set_value(a, value);
    return a;
  }
  // Runs the calculator; returns the error text, or "" when it did not throw.
  template <class Calculator>
  std::string run(const Term* t, const Term* v) {
    Calculator calc(&mgr, &store, &pred);
    try {
      calc(t, v);
    } catch (const AdHocCalculator::error& e) {
      return e.what();
    }
    return "";
  }
  // The constraints recorded so far, printed as one list.
  std::string constraints() const {
    std::string out = "(";
    for (std::size_t i = 0; i < store.constraints().size(); ++i) {
      out += (i ? " " : "") + store.constraints()[i]->to_shallow_str();
    }
    return out + ")";
  }

  TermManager mgr;
  std::ostringstream log;
  ModelStore store{&mgr, &log};
  SetFreeTermPredicate pred;
};

// --- implementation --------------------------------------------------------

std::string describe_case(const Case& c);
const DataType* type_of(TermManager& mgr, const Sort& s);
const Term* value_term(TermManager& mgr, const Sort& s, std::uint64_t x);
// Builds the terms of a case in a fresh manager/store and marks free
// arguments in pred.
CaseTerms make_case_terms(const Case& c, TermManager& mgr, ModelStore& store,
                          SetFreeTermPredicate& pred);
// Compares what the call did (error text or nothing) with the expectation.
std::string check_outcome(const Case& c, const CaseTerms& terms, const ModelStore& store,
                          const std::string* error, const std::string& log, const Expect& want);
// Every case of a signature.
std::vector<Case> all_cases(const Signature& sig);

inline std::string Case::describe() const {
  return describe_case(*this);
}

template <class Calculator>
std::string run_case(const Case& c, const Oracle& oracle) {
  TermManager mgr;
  std::ostringstream log;
  ModelStore store(&mgr, &log);
  store.logger().set_verbosity(2);
  SetFreeTermPredicate pred;
  CaseTerms terms = make_case_terms(c, mgr, store, pred);
  Expect want = oracle(c, terms);
  Calculator calc(&mgr, &store, &pred);
  std::string error;
  bool threw = false;
  try {
    calc(terms.t, terms.v);
  } catch (const AdHocCalculator::error& e) {
    threw = true;
    error = e.what();
  }
  return check_outcome(c, terms, store, threw ? &error : nullptr, log.str(), want);
}

template <class Calculator>
void check_all_cases(const Signature& sig, const Oracle& oracle) {
  int failures = 0;
  std::size_t count = 0;
  for (const Case& c : all_cases(sig)) {
    ++count;
    std::string problem = run_case<Calculator>(c, oracle);
    if (problem.empty()) continue;
    ADD_FAILURE() << c.describe() << ": " << problem;
    if (++failures == 10) {
      ADD_FAILURE() << "stopping after 10 failing cases";
      return;
    }
  }
  EXPECT_GT(count, 0u);
}

}  // namespace kora::test
