// The model builder: calculators first, the inverter where they refuse or
// miss, nothing left behind by a rejected call, defaults, and validation
// that reports every false assertion.

#include "kora/preprocess/model_builder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "kora/model/model_store.h"
#include "kora/preprocess/simplifier.h"
#include "kora/terms/term_manager.h"
#include "support/evaluator.h"
#include "support/preprocess_fixture.h"

namespace kora::test {
namespace {

using preprocess::rebuild;
using preprocess::Replacement;
using preprocess::simplify;
using preprocess::Trail;
using preprocess::validate;

class ModelBuilderTest : public PreprocessTest {
 protected:
  ModelBuilderTest() { store.logger().set_verbosity(2); }

  std::size_t log_lines() const {
    const std::string text = log.str();
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  }

  std::ostringstream log;
  ModelStore store{&mgr, &log};
};

// bvurem's calculator never accepts a free argument: every value comes from
// the inverter, and the refused call leaves no constraint and no log line.
TEST_F(ModelBuilderTest, RefusedCalculatorFallsBackToTheInverter) {
  const Term* x = bv("x");
  const Term* y = bv("y");
  const Term* t = bv("t");
  const std::vector<const Term*> original{mgr.make_equal(app(Op::BVUrem, {x, y}), t), pin(t)};
  const auto s = simplify(mgr, original);
  ASSERT_EQ(s.trail.steps.size(), 2u);  // the remainder, then the equality
  store.set_value(t, num(6));
  store.set_value(s.trail.fresh.back(), mgr.true_term());
  const auto stats = rebuild(mgr, store, s.trail, original);
  EXPECT_EQ(stats.narrow_values, 1u);    // the equality's free side
  EXPECT_EQ(stats.inverter_values, 2u);  // x and y
  EXPECT_EQ(stats.unsolved, 0u);
  EXPECT_EQ(store.constraints().size(), 3u);
  EXPECT_EQ(log_lines(), 3u);
  EXPECT_TRUE(validate(store, original).empty());
  EXPECT_EQ(evaluate(mgr, store, app(Op::BVUrem, {x, y})), 6u);
}

// x <s t must hold with t = 0: the signed calculator's documented choice
// (2^(w-1) - 2) is not below 0, so its value is dropped unrecorded and the
// inverter's is taken.
TEST_F(ModelBuilderTest, WrongCalculatorValueIsReplacedByTheInverters) {
  const Term* x = bv("x");
  const Term* t = bv("t");
  const std::vector<const Term*> original{app(Op::BVSlt, {x, t}), pin(t)};
  const auto s = simplify(mgr, original);
  ASSERT_EQ(s.trail.steps.size(), 1u);
  store.set_value(t, num(0));
  store.set_value(s.trail.fresh[0], mgr.true_term());
  const auto stats = rebuild(mgr, store, s.trail, original);
  EXPECT_EQ(stats.narrow_values, 0u);
  EXPECT_EQ(stats.inverter_values, 1u);
  ASSERT_EQ(store.constraints().size(), 1u);
  EXPECT_EQ(store.constraints()[0]->arg(0), x);
  EXPECT_EQ(log_lines(), 1u);
  EXPECT_TRUE(validate(store, original).empty());
}

// With c and x free and a valued Boolean else-branch, the ite calculator
// also records the branch's value; only the free arguments reach the model.
TEST_F(ModelBuilderTest, RecordsForTermsThatAreNotFreeAreDropped) {
  const Term* c = boolean("c");
  const Term* x = boolean("x");
  const Term* b = boolean("b");
  const std::vector<const Term*> original{mgr.make_ite(c, x, b), mgr.make_iff(b, b)};
  const auto s = simplify(mgr, original);
  ASSERT_EQ(s.trail.steps.size(), 1u);
  store.set_value(b, mgr.false_term());
  store.set_value(s.trail.fresh[0], mgr.true_term());
  const auto stats = rebuild(mgr, store, s.trail, original);
  EXPECT_EQ(stats.narrow_values, 2u);
  ASSERT_EQ(store.constraints().size(), 2u);
  EXPECT_EQ(store.constraints()[0]->arg(0), c);
  EXPECT_EQ(store.constraints()[1]->arg(0), x);
  EXPECT_EQ(store.adhoc_values.size(), 2u);
  // The log keeps the accepted call's own account: all three records.
  EXPECT_EQ(log_lines(), 3u);
  EXPECT_TRUE(validate(store, original).empty());
}

// The fresh Boolean of x = t gets no value from the back end: it takes its
// default, false, and x is rebuilt to differ from t; the assertion that this
// breaks is reported.
TEST_F(ModelBuilderTest, UnvaluedFreshConstantsAndOrphansGetDefaults) {
  const Term* x = bv("x");
  const Term* y = bv("y");
  const Term* t = bv("t");
  const Term* lonely = bv("lonely");
  const Term* x_is_t = mgr.make_equal(x, t);
  const std::vector<const Term*> original{x_is_t, pin(t), mgr.make_equal(lonely, lonely), pin(y)};
  const auto s = simplify(mgr, original);
  ASSERT_EQ(s.trail.steps.size(), 1u);
  const auto stats = rebuild(mgr, store, s.trail, original);
  // The fresh Boolean, lonely and y; t is defaulted by the calculator's own
  // classification.
  EXPECT_EQ(stats.defaulted, 3u);
  EXPECT_EQ(store.value_of(s.trail.fresh[0]), mgr.false_term());
  EXPECT_EQ(store.value_of(t), num(0));
  EXPECT_EQ(store.value_of(lonely), num(0));
  EXPECT_EQ(store.value_of(y), num(0));
  EXPECT_EQ(store.value_of(x), num(1));
  EXPECT_EQ(validate(store, original), std::vector<const Term*>{x_is_t});
}

// A step that no value can satisfy is counted, and the assertions it breaks
// are reported.
TEST_F(ModelBuilderTest, ImpossibleStepIsCountedAndReportedNeverHidden) {
  const Term* x = bv("x");
  const Term* doubled = app(Op::BVMul, {x, num(2)});
  const Term* bad = mgr.make_equal(doubled, num(1));
  const Term* good = mgr.make_equal(num(3), num(3));
  Trail trail;
  trail.steps.push_back(Replacement{doubled, num(1), nullptr, {x}});
  const std::vector<const Term*> original{good, bad, bad};
  const auto stats = rebuild(mgr, store, trail, original);
  EXPECT_EQ(stats.unsolved, 1u);
  EXPECT_EQ(stats.narrow_values + stats.inverter_values, 0u);
  EXPECT_TRUE(store.constraints().empty());
  EXPECT_EQ(store.value_of(x), num(0));
  EXPECT_EQ(validate(store, original), (std::vector<const Term*>{bad, bad}));
}

// With one term as both arguments of bvadd, the calculator computes its
// value as if the two were independent, and the sum of that value with
// itself misses v: the check must see it, on the values' words, and hand the
// step to the inverter.
TEST_F(ModelBuilderTest, ValueThatMissesOnWordsGoesToTheInverter) {
  const Term* x = bv("x");
  const Term* twice = app(Op::BVAdd, {x, x});
  const Term* wanted = mgr.make_equal(twice, num(6));
  Trail trail;
  trail.steps.push_back(Replacement{twice, num(6), nullptr, {x}});
  const auto stats = rebuild(mgr, store, trail, {wanted});
  EXPECT_EQ(stats.narrow_values, 0u);
  EXPECT_EQ(stats.inverter_values, 1u);
  EXPECT_EQ(stats.unsolved, 0u);
  EXPECT_TRUE(validate(store, {wanted}).empty());
}

TEST_F(ModelBuilderTest, ValidateReportsEveryFalseAssertionInOrder) {
  const Term* p = boolean("p");
  const Term* q = boolean("q");
  const Term* r = boolean("r");
  store.set_value(p, mgr.true_term());
  store.set_value(q, mgr.false_term());
  // r has no value: not true, so reported.
  EXPECT_EQ(validate(store, {p, q, mgr.make_not(p), r, mgr.make_not(q)}),
            (std::vector<const Term*>{q, mgr.make_not(p), r}));
  EXPECT_TRUE(validate(store, {}).empty());
}

}  // namespace
}  // namespace kora::test
