// The equation rules, exhaustively at widths 1 to 4: an asserted equation
// (= (f .. x ..) t), either side, becomes one condition over the other
// arguments and t; for every value of those, the condition holds exactly
// when some x satisfies the equation (found by brute force with the
// independent evaluator), and then the model builder gives x such a value.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "kora/model/model_store.h"
#include "kora/preprocess/model_builder.h"
#include "kora/preprocess/simplifier.h"
#include "kora/terms/term_manager.h"
#include "support/evaluator.h"

namespace kora::test {
namespace {

using Build = std::function<const Term*(TermManager&, const std::vector<const Term*>&)>;

struct EquationCase {
  std::string name;
  std::vector<std::size_t> widths;  // argument widths, 0 for Bool
  Build build;
  std::size_t position;  // of x
};

std::size_t bits_of(std::size_t w) {
  return w == 0 ? 1 : w;
}

const Term* value_term(TermManager& mgr, std::size_t w, std::uint64_t v) {
  if (w == 0) return v != 0 ? mgr.true_term() : mgr.false_term();
  return mgr.make_bv_word(v, w);
}

std::size_t width_of(const Term* t) {
  return t->type()->is_bool() ? 0 : t->type()->width();
}

const Term* twice(TermManager& mgr, const Term* t) {
  return t->type()->is_bool() ? mgr.make_iff(t, t) : mgr.make_equal(t, t);
}

class EquationChecker {
 public:
  EquationChecker(const EquationCase& c, std::size_t side) : c_(c), side_(side) {}

  void run() {
    std::vector<const Term*> args;
    for (std::size_t i = 0; i < c_.widths.size(); ++i) {
      const std::size_t w = c_.widths[i];
      const Term* a =
          mgr_.make_constant("a" + std::to_string(i), w == 0 ? mgr_.bool_type() : mgr_.bv_type(w));
      args.push_back(a);
      if (i == c_.position) {
        x_ = a;
      } else {
        known_.push_back(a);
      }
    }
    app_ = c_.build(mgr_, args);
    const std::size_t tw = width_of(app_);
    target_ = mgr_.make_constant("t", tw == 0 ? mgr_.bool_type() : mgr_.bv_type(tw));
    known_.push_back(target_);
    // The other arguments and t occur elsewhere too: only x is unconstrained.
    for (const Term* k : known_) assertions_.push_back(twice(mgr_, k));
    const bool is_bool = tw == 0;
    const Term* l = side_ == 0 ? app_ : target_;
    const Term* r = side_ == 0 ? target_ : app_;
    equation_ = is_bool ? mgr_.make_iff(l, r) : mgr_.make_equal(l, r);
    assertions_.push_back(equation_);
    simplified_ = preprocess::simplify(mgr_, assertions_);
    ASSERT_EQ(simplified_.trail.steps.size(), 1u) << name();
    const preprocess::Replacement& step = simplified_.trail.steps[0];
    ASSERT_NE(step.condition, nullptr) << name();
    EXPECT_EQ(step.term, app_) << name();
    EXPECT_EQ(step.replacement, target_) << name();
    EXPECT_EQ(step.free_args, std::vector<const Term*>{x_}) << name();
    EXPECT_EQ(simplified_.assertions.back(), step.condition) << name();
    EXPECT_TRUE(preprocess::eliminable(mgr_, simplified_.assertions).empty()) << name();
    std::vector<std::uint64_t> values(known_.size(), 0);
    each_value(values, 0);
  }

  std::size_t solvable = 0;
  std::size_t unsolvable = 0;

 private:
  std::string name() const { return c_.name + (side_ == 0 ? " (app = t)" : " (t = app)"); }

  void each_value(std::vector<std::uint64_t>& values, std::size_t i) {
    if (i == values.size()) {
      check(values);
      return;
    }
    for (std::uint64_t v = 0; v < (std::uint64_t{1} << bits_of(width_of(known_[i]))); ++v) {
      values[i] = v;
      each_value(values, i + 1);
    }
  }

  void set_known(ModelStore& store, const std::vector<std::uint64_t>& values) {
    for (std::size_t i = 0; i < known_.size(); ++i) {
      store.set_value(known_[i], value_term(mgr_, width_of(known_[i]), values[i]));
    }
  }

  bool some_x_satisfies(const std::vector<std::uint64_t>& values) {
    std::ostringstream log;
    ModelStore store(&mgr_, &log);
    set_known(store, values);
    const std::size_t xw = width_of(x_);
    for (std::uint64_t v = 0; v < (std::uint64_t{1} << bits_of(xw)); ++v) {
      store.set_value(x_, value_term(mgr_, xw, v));
      if (evaluate(mgr_, store, equation_) == std::uint64_t{1}) return true;
    }
    return false;
  }

  void check(const std::vector<std::uint64_t>& values) {
    const bool exists = some_x_satisfies(values);
    std::ostringstream log;
    ModelStore store(&mgr_, &log);
    set_known(store, values);
    const preprocess::Replacement& step = simplified_.trail.steps[0];
    const auto condition = evaluate(mgr_, store, step.condition);
    ASSERT_TRUE(condition.has_value()) << name();
    if ((*condition == 1) != exists && ++failures_ <= 5) {
      ADD_FAILURE() << name() << ": condition " << *condition << ", solvable " << exists
                    << ", first value " << values[0] << ", t " << values.back();
    }
    const auto stats = preprocess::rebuild(mgr_, store, simplified_.trail, assertions_);
    if (exists) {
      ++solvable;
      const bool ok = stats.unsolved == 0 && preprocess::validate(store, assertions_).empty() &&
                      evaluate(mgr_, store, equation_) == std::uint64_t{1};
      if (!ok && ++failures_ <= 5) ADD_FAILURE() << name() << ": x not rebuilt";
    } else {
      ++unsolvable;
      EXPECT_EQ(stats.false_conditions, 1u) << name();
      EXPECT_NE(store.value_of(x_), nullptr) << name();
    }
  }

  const EquationCase& c_;
  std::size_t side_;
  TermManager mgr_;
  const Term* x_ = nullptr;
  const Term* app_ = nullptr;
  const Term* target_ = nullptr;
  const Term* equation_ = nullptr;
  std::vector<const Term*> known_;
  std::vector<const Term*> assertions_;
  preprocess::Simplified simplified_;
  int failures_ = 0;
};

Build bv_op(Op op) {
  return [op](TermManager& m, const std::vector<const Term*>& a) {
    return m.make_term(m.make_bv_symbol(op, a[0]->type()->width()), a);
  };
}

Build concat() {
  return [](TermManager& m, const std::vector<const Term*>& a) {
    return m.make_term(m.make_bv_concat_symbol(a[0]->type()->width(), a[1]->type()->width()), a);
  };
}

Build extend(Op op, std::size_t k) {
  return [op, k](TermManager& m, const std::vector<const Term*>& a) {
    const std::size_t w = a[0]->type()->width();
    return m.make_term(op == Op::BVZeroExtend ? m.make_bv_zero_extend_symbol(k, w)
                                              : m.make_bv_sign_extend_symbol(k, w),
                       a);
  };
}

Build ite() {
  return [](TermManager& m, const std::vector<const Term*>& a) {
    return m.make_ite(a[0], a[1], a[2]);
  };
}

std::vector<EquationCase> all_cases() {
  std::vector<EquationCase> out;
  const auto bool_and = [](TermManager& m, const std::vector<const Term*>& a) {
    return m.make_and(a[0], a[1]);
  };
  const auto bool_or = [](TermManager& m, const std::vector<const Term*>& a) {
    return m.make_or(a[0], a[1]);
  };
  for (std::size_t p = 0; p < 2; ++p) {
    out.push_back({"and", {0, 0}, bool_and, p});
    out.push_back({"or", {0, 0}, bool_or, p});
  }
  for (std::size_t p = 0; p < 3; ++p) out.push_back({"ite over Bool", {0, 0, 0}, ite(), p});
  for (std::size_t w = 1; w <= 4; ++w) {
    const std::string at = " w" + std::to_string(w);
    for (std::size_t p = 0; p < 3; ++p) out.push_back({"ite" + at, {0, w, w}, ite(), p});
    for (Op op : {Op::BVAnd, Op::BVOr, Op::BVMul}) {
      for (std::size_t p = 0; p < 2; ++p) out.push_back({op_name(op) + at, {w, w}, bv_op(op), p});
    }
    for (Op op : {Op::BVUrem, Op::BVShl, Op::BVLshr, Op::BVAshr}) {
      out.push_back({op_name(op) + at, {w, w}, bv_op(op), 0});
    }
    for (std::size_t v : {std::size_t{1}, std::size_t{3}}) {
      for (std::size_t p = 0; p < 2; ++p) out.push_back({"concat" + at, {w, v}, concat(), p});
    }
    for (std::size_t k = 1; k <= 2; ++k) {
      out.push_back({"zero_extend" + at, {w}, extend(Op::BVZeroExtend, k), 0});
      out.push_back({"sign_extend" + at, {w}, extend(Op::BVSignExtend, k), 0});
    }
  }
  return out;
}

TEST(EquationRules, ConditionHoldsExactlyWhenSomeValueSolvesAndTheValueIsRebuilt) {
  std::size_t solvable = 0;
  std::size_t unsolvable = 0;
  for (const EquationCase& c : all_cases()) {
    for (std::size_t side = 0; side < 2; ++side) {
      EquationChecker checker(c, side);
      checker.run();
      solvable += checker.solvable;
      unsolvable += checker.unsolvable;
    }
  }
  // Both outcomes are reached, so neither branch of the check is idle.
  EXPECT_GT(solvable, 1000u);
  EXPECT_GT(unsolvable, 1000u);
}

// x, s and t of 4 bits in a manager of their own.
class EquationTerms : public ::testing::Test {
 protected:
  const Term* app(Op op, const Term* a, const Term* b) {
    return mgr.make_term(mgr.make_bv_symbol(op, 4), {a, b});
  }
  TermManager mgr;
  const Term* x = mgr.make_constant("x", mgr.bv_type(4));
  const Term* s = mgr.make_constant("s", mgr.bv_type(4));
  const Term* t = mgr.make_constant("t", mgr.bv_type(4));
};

// Below a negation the equation can be made false as well as true: the
// condition alone would not say so, and the rule stays away.
TEST_F(EquationTerms, AnEquationBelowAnythingIsLeftAlone) {
  const Term* urem = app(Op::BVUrem, x, s);
  const std::vector<const Term*> assertions{twice(mgr, s), twice(mgr, t),
                                            mgr.make_not(mgr.make_equal(urem, t))};
  const preprocess::Simplified out = preprocess::simplify(mgr, assertions);
  EXPECT_EQ(out.eliminated, 0u);
  EXPECT_EQ(out.assertions, assertions);
}

// A conjunct of an assertion counts as asserted: the conjunction holds only
// where it does. Below a disjunction it does not.
TEST_F(EquationTerms, ConjunctsOfAnAssertionAreTaken) {
  const Term* p = mgr.make_constant("p", mgr.bool_type());
  const Term* q = mgr.make_constant("q", mgr.bool_type());
  const Term* urem = app(Op::BVUrem, x, s);
  const Term* inner = mgr.make_and(q, mgr.make_equal(t, urem));
  const std::vector<const Term*> assertions{twice(mgr, s), twice(mgr, t), mgr.make_iff(p, q),
                                            mgr.make_and(p, inner)};
  const preprocess::Simplified out = preprocess::simplify(mgr, assertions);
  ASSERT_EQ(out.trail.steps.size(), 1u);
  const Term* condition = out.trail.steps[0].condition;
  EXPECT_EQ(out.assertions.back(), mgr.make_and(p, mgr.make_and(q, condition)));
  EXPECT_EQ(preprocess::image_of(out, inner), mgr.make_and(q, condition));
  const Term* either = mgr.make_or(p, mgr.make_equal(t, urem));
  EXPECT_EQ(
      preprocess::simplify(mgr, {twice(mgr, s), twice(mgr, t), twice(mgr, p), either}).eliminated,
      0u);
}

// The operators whose condition would cost more than the operator stay.
TEST_F(EquationTerms, DearerPositionsAreLeftAlone) {
  for (const Term* a : {app(Op::BVUdiv, x, s), app(Op::BVUrem, s, x), app(Op::BVShl, s, x)}) {
    const std::vector<const Term*> assertions{twice(mgr, s), twice(mgr, t), mgr.make_equal(a, t)};
    EXPECT_EQ(preprocess::simplify(mgr, assertions).eliminated, 0u) << *a;
  }
}

// Counted apart from the eliminations by a fresh constant, under the
// operator over x.
TEST_F(EquationTerms, CountedByTheOperatorOverX) {
  const std::vector<const Term*> assertions{twice(mgr, s), twice(mgr, t),
                                            mgr.make_equal(t, app(Op::BVAnd, x, s))};
  const preprocess::Simplified out = preprocess::simplify(mgr, assertions);
  const Term* st = app(Op::BVAnd, t, s);
  EXPECT_EQ(out.conditions_by_op, (std::map<std::string, std::size_t>{{"bvand", 1}}));
  EXPECT_TRUE(out.eliminated_by_op.empty());
  EXPECT_EQ(out.eliminated, 1u);
  EXPECT_EQ(out.assertions.back(), mgr.make_equal(st, t));
  EXPECT_TRUE(preprocess::eliminable(mgr, out.assertions).empty());
  preprocess::SimplifyOptions without;
  without.equations = false;
  EXPECT_EQ(preprocess::simplify(mgr, assertions, without).eliminated, 0u);
}

}  // namespace
}  // namespace kora::test
