// Occurrence analysis, the trail, the fixed point, fresh names and the
// operators reached by composition.

#include "kora/preprocess/simplifier.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "kora/model/model_store.h"
#include "kora/preprocess/model_builder.h"
#include "kora/terms/term_manager.h"
#include "support/preprocess_fixture.h"

namespace kora::test {
namespace {

using preprocess::eliminable;
using preprocess::Occurrences;
using preprocess::simplify;

using SimplifierTest = PreprocessTest;

TEST_F(SimplifierTest, OccurrencesCountParentEdgesWithRepeats) {
  const Term* x = bv("x");
  const Term* y = bv("y");
  const Term* sum = app(Op::BVAdd, {x, x});
  const Term* a1 = app(Op::BVUlt, {sum, y});
  const Term* a2 = mgr.make_equal(y, num(3));
  const Occurrences occ({a1, a2});
  EXPECT_EQ(occ.count(x), 2u);  // both arguments of one bvadd
  EXPECT_EQ(occ.count(y), 2u);
  EXPECT_EQ(occ.count(sum), 1u);
  EXPECT_EQ(occ.count(a1), 0u);
  EXPECT_FALSE(occ.is_unconstrained(x));
  EXPECT_FALSE(occ.is_unconstrained(sum));  // one occurrence, but not a constant
  EXPECT_FALSE(occ.is_unconstrained(num(3)));
  EXPECT_TRUE(occ.is_assertion(a1));
  // Children come before parents.
  const auto& order = occ.post_order();
  ASSERT_EQ(order.size(), 6u);
  EXPECT_EQ(order.back(), a2);
  EXPECT_LT(std::find(order.begin(), order.end(), sum), std::find(order.begin(), order.end(), a1));
}

// Arrays: occurrences under select and store count, and no rule fires on
// an array term or through one; a select is a constrained bit-vector term.
TEST_F(SimplifierTest, ArraysCountTheirOccurrencesAndNoRuleCrossesThem) {
  const Term* x = bv("x");
  const Term* y = bv("y");
  const Term* z = bv("z");
  const DataType* arr = mgr.array_type(mgr.bv_type(4), mgr.bv_type(4));
  const Term* a = mgr.make_constant("a", arr);
  const Term* b = mgr.make_constant("b", arr);
  const Term* sel = mgr.make_select(mgr.make_store(a, x, y), z);
  const Term* a1 = mgr.make_equal(app(Op::BVAdd, {x, sel}), num(3));  // x twice
  const Term* a2 = mgr.make_equal(b, mgr.make_store(a, z, num(1)));   // b once
  const Occurrences occ({a1, a2});
  EXPECT_EQ(occ.count(x), 2u);
  EXPECT_EQ(occ.count(z), 2u);
  EXPECT_EQ(occ.count(a), 2u);
  EXPECT_TRUE(occ.is_unconstrained(y));
  EXPECT_TRUE(occ.is_unconstrained(b));
  const preprocess::Simplified r = simplify(mgr, {a1, a2});
  EXPECT_EQ(r.eliminated, 0u);
  EXPECT_EQ(r.assertions[0], a1);
  EXPECT_EQ(r.assertions[1], a2);
}

TEST_F(SimplifierTest, ConstantsOfListEachOnceInFirstOccurrenceOrder) {
  const Term* x = bv("x");
  const Term* y = bv("y");
  const Term* p = boolean("p");
  const Term* a1 = mgr.make_and(mgr.make_equal(app(Op::BVAdd, {y, x}), num(1)), p);
  const Term* a2 = mgr.make_equal(x, bv("z"));
  EXPECT_EQ(preprocess::constants_of({a1, a2, a1}), (std::vector<const Term*>{y, x, p, bv("z")}));
  EXPECT_TRUE(preprocess::constants_of({mgr.true_term(), num(3)}).empty());
}

TEST_F(SimplifierTest, AnAssertionIsNeverUnconstrained) {
  const Term* b = boolean("b");
  const Occurrences occ({b});
  EXPECT_FALSE(occ.is_unconstrained(b));
  const Term* c = boolean("c");
  const Occurrences twice({mgr.make_not(c), c});
  EXPECT_EQ(twice.count(c), 1u);
  EXPECT_FALSE(twice.is_unconstrained(c));
  EXPECT_TRUE(simplify(mgr, {mgr.make_not(c), c}).trail.steps.empty());
}

TEST_F(SimplifierTest, ChainIsEliminatedBottomUpWithTheTrailInOrder) {
  const Term* x = bv("x");
  const Term* y = bv("y");
  const Term* inner = app(Op::BVNeg, {x});
  const Term* outer = app(Op::BVAdd, {inner, y});
  // outer occurs twice, so its fresh constant stays constrained.
  const auto s = simplify(mgr, {mgr.make_equal(outer, y), app(Op::BVUlt, {outer, y})});
  ASSERT_EQ(s.trail.steps.size(), 2u);
  const auto& first = s.trail.steps[0];
  const auto& second = s.trail.steps[1];
  EXPECT_EQ(first.term, inner);
  EXPECT_EQ(first.replacement, first.fresh);
  EXPECT_EQ(first.free_args, std::vector<const Term*>{x});
  // Recorded over the argument as it was then: the first fresh constant.
  EXPECT_EQ(second.term, app(Op::BVAdd, {first.fresh, y}));
  EXPECT_EQ(second.free_args, std::vector<const Term*>{first.fresh});
  EXPECT_EQ(s.assertions[0], mgr.make_equal(second.fresh, y));
  EXPECT_EQ(s.trail.fresh, (std::vector<const Term*>{first.fresh, second.fresh}));
  EXPECT_EQ(s.eliminated, 2u);
  EXPECT_EQ(s.eliminated_by_op.at("bvneg"), 1u);
  EXPECT_EQ(s.eliminated_by_op.at("bvadd"), 1u);
  EXPECT_EQ(s.passes, 1u + 1u);  // the last pass finds nothing
}

TEST_F(SimplifierTest, ComparisonWithOneUnconstrainedSideBecomesAnExpression) {
  const Term* x = bv("x");
  const Term* t = bv("t");
  const Term* keep = pin(t);
  struct Row {
    Op op;
    bool x_first;
    bool strict;
    long end;  // the value of the end t is compared with
  };
  const Row rows[] = {{Op::BVUle, true, false, 15}, {Op::BVUlt, true, true, 0},
                      {Op::BVUle, false, false, 0}, {Op::BVUlt, false, true, 15},
                      {Op::BVSle, true, false, 7},  {Op::BVSlt, true, true, 8},
                      {Op::BVSle, false, false, 8}, {Op::BVSlt, false, true, 7}};
  for (const Row& row : rows) {
    const Term* cmp = row.x_first ? app(row.op, {x, t}) : app(row.op, {t, x});
    const auto s = simplify(mgr, {cmp, keep});
    ASSERT_EQ(s.trail.steps.size(), 1u);
    const auto& step = s.trail.steps[0];
    const Term* eq = mgr.make_equal(t, num(row.end));
    const Term* want =
        row.strict ? mgr.make_and(step.fresh, mgr.make_not(eq)) : mgr.make_or(step.fresh, eq);
    EXPECT_EQ(step.replacement, want) << *cmp;
    EXPECT_TRUE(step.fresh->type()->is_bool());
    EXPECT_EQ(s.assertions[0], want);
  }
}

// Against a numeral the comparison is open unless the numeral is the end
// that fixes it: then it stays an expression.
TEST_F(SimplifierTest, ComparisonWithANumeralBecomesAFreshBoolean) {
  const Term* x = bv("x");
  const auto open = simplify(mgr, {app(Op::BVUle, {x, num(5)})});
  ASSERT_EQ(open.trail.steps.size(), 1u);
  EXPECT_EQ(open.trail.steps[0].replacement, open.trail.steps[0].fresh);
  EXPECT_EQ(open.assertions[0], open.trail.steps[0].fresh);
  // x <= MAX: always true, so the fresh Boolean cannot take it over alone.
  const Term* at_end = app(Op::BVUle, {x, num(15)});
  const auto fixed = simplify(mgr, {mgr.make_not(at_end), mgr.make_iff(at_end, at_end)});
  ASSERT_EQ(fixed.trail.steps.size(), 1u);
  const auto& step = fixed.trail.steps[0];
  EXPECT_EQ(step.replacement, mgr.make_or(step.fresh, mgr.make_equal(num(15), num(15))));
}

// x + (y * z) with x unconstrained drops the product, which leaves y with a
// single occurrence under a negation that the walk had already passed: the
// negation gets a second look in the same pass.
TEST_F(SimplifierTest, LateUnconstrainedTermsAreFoundInALaterPass) {
  const Term* x = bv("x");
  const Term* y = bv("y");
  const Term* z = bv("z");
  const Term* k = bv("k");
  const Term* a1 = app(
      Op::BVUle, {app(Op::BVNot, {y}), mgr.make_term(mgr.make_bv_symbol(Op::BVAnd, 4), {k, k})});
  const Term* a2 = mgr.make_equal(app(Op::BVAdd, {x, app(Op::BVMul, {y, z})}), k);
  const std::vector<const Term*> original{a1, a2};
  EXPECT_FALSE(eliminable(mgr, original).empty());
  const auto s = simplify(mgr, original);
  EXPECT_EQ(s.passes, 2u);  // the second finds nothing
  EXPECT_EQ(s.eliminated_by_op.at("bvnot"), 1u);
  EXPECT_EQ(s.eliminated_by_op.at("bvule"), 1u);
  EXPECT_TRUE(eliminable(mgr, s.assertions).empty());
  // The product's constants occur nowhere now: the rebuilt model defaults
  // them and still satisfies the original.
  std::ostringstream log;
  ModelStore store(&mgr, &log);
  // The reduced problem's fresh constants are the Boolean ones.
  for (const Term* c : s.trail.fresh) {
    if (c->type()->is_bool()) store.set_value(c, mgr.true_term());
  }
  store.set_value(k, num(9));
  const auto stats = preprocess::rebuild(mgr, store, s.trail, original);
  EXPECT_EQ(stats.unsolved, 0u);
  EXPECT_EQ(store.value_of(z), num(0));
  EXPECT_TRUE(preprocess::validate(store, original).empty());
}

// Level i is (= (bvadd (bvnot y_i) (bvmul y_i+1 k)) k), the levels asserted
// deepest first. Only y_1 starts unconstrained; eliminating level i drops the
// product, which leaves y_i+1 with one occurrence under a negation the walk
// passed long before. Each level frees the next, in reverse walk order.
TEST_F(SimplifierTest, CascadingEliminationsCostOneWalk) {
  const Term* k = bv("k");
  const auto cascade = [&](int depth) {
    std::vector<const Term*> levels;
    for (int i = depth; i >= 1; --i) {
      const Term* next = app(Op::BVMul, {bv("y" + std::to_string(i + 1)), k});
      const Term* y = bv("y" + std::to_string(i));
      levels.push_back(mgr.make_equal(app(Op::BVAdd, {app(Op::BVNot, {y}), next}), k));
    }
    return levels;
  };
  for (const int depth : {1, 10, 100, 1000}) {
    SCOPED_TRACE(depth);
    const std::vector<const Term*> original = cascade(depth);
    const auto s = simplify(mgr, original);
    const auto n = static_cast<std::size_t>(depth);
    EXPECT_EQ(s.eliminated, 3 * n);
    EXPECT_EQ(s.eliminated_by_op.at("bvnot"), n);
    EXPECT_EQ(s.eliminated_by_op.at("bvadd"), n);
    EXPECT_EQ(s.eliminated_by_op.at("="), n);
    EXPECT_TRUE(eliminable(mgr, s.assertions).empty());
    // One walk that eliminates and one that confirms, at any depth; each of
    // the four applications of a level is looked at no more than twice.
    EXPECT_EQ(s.passes, 2u);
    EXPECT_LE(s.visits, 2 * 4 * n);
    EXPECT_GE(s.visits, 4 * n);
  }
}

TEST_F(SimplifierTest, RulesThatDoNotApply) {
  const Term* x = bv("x");
  const Term* w = bv("w");
  const Term* t = bv("t");
  const Term* c = boolean("c");
  const std::vector<const Term*> untouched{
      mgr.make_term(mgr.make_bv_zero_extend_symbol(2, 4), {x}),  // never free
      app(Op::BVUrem, {x, t}),                                   // one side only
      app(Op::BVAnd, {x, t}),
      app(Op::BVShl, {t, x}),
      app(Op::BVMul, {x, num(6)}),  // even factor
      app(Op::BVMul, {x, t}),
      mgr.make_ite(c, x, t),   // one of three
      app(Op::BVAdd, {x, x}),  // x occurs twice
  };
  for (const Term* u : untouched) {
    // Below a negation, so that the equation rules stay away too.
    const Term* root =
        u->type()->is_bool() ? mgr.make_iff(u, u) : mgr.make_not(mgr.make_equal(u, w));
    const auto s = simplify(mgr, {root, pin(t), pin(w), mgr.make_iff(c, c)});
    EXPECT_EQ(s.eliminated, 0u) << *u;
  }
}

// The SMT-LIB operators the term layer has no symbol for arrive as their
// definitions and are eliminated through them.
TEST_F(SimplifierTest, OperatorsWrittenByTheirDefinitionsAreReachedByComposition) {
  const Term* x = bv("x");
  const Term* y = bv("y");
  const Term* t = bv("t");
  const Term* p = boolean("p");
  const Term* q = boolean("q");
  const Term* bvnand = app(Op::BVNot, {app(Op::BVAnd, {x, y})});
  const Term* bvnor = app(Op::BVNot, {app(Op::BVOr, {x, y})});
  const Term* bvxnor = app(Op::BVNot, {app(Op::BVXor, {x, t})});
  const Term* bool_xor = mgr.make_not(mgr.make_iff(p, mgr.make_equal(t, t)));
  const Term* distinct = mgr.make_not(mgr.make_equal(x, t));
  const Term* bvuge = app(Op::BVUle, {t, x});  // (bvuge x t)
  const Term* bvsgt = app(Op::BVSlt, {t, x});  // (bvsgt x t)
  const Term* nary_and = mgr.make_and(mgr.make_and(p, q), boolean("r"));
  // The operator, its negation, then the equality with t over the result.
  for (const Term* u : {bvnand, bvnor, bvxnor}) {
    const auto s = simplify(mgr, {mgr.make_equal(u, t), pin(t)});
    EXPECT_EQ(s.eliminated, 3u) << *u;
    EXPECT_EQ(s.assertions[0], s.trail.fresh.back()) << *u;
  }
  for (const Term* u : {bool_xor, distinct, nary_and}) {
    const auto s = simplify(mgr, {u, pin(t)});
    EXPECT_EQ(s.eliminated, 2u) << *u;
    EXPECT_EQ(s.assertions[0], s.trail.fresh.back()) << *u;
  }
  for (const Term* u : {bvuge, bvsgt}) {
    const auto s = simplify(mgr, {u, pin(t)});
    EXPECT_EQ(s.eliminated, 1u) << *u;
    EXPECT_NE(s.assertions[0], u);
  }
}

// Fresh names count up from kora!e0; user constants that already carry the
// next names, in either sort, must be stepped over, and a name declared after
// a fresh constant took it is that constant.
TEST_F(SimplifierTest, FreshNamesNeverClashWithUserNames) {
  const Term* t = bv("t");
  std::vector<const Term*> assertions{pin(t)};
  for (int i = 0; i < 20; ++i) {
    assertions.push_back(mgr.make_equal(app(Op::BVNeg, {bv("x" + std::to_string(i))}), t));
  }
  std::vector<const Term*> users;
  for (std::size_t n = 0; n < 30; n += 2) {
    const DataType* type = n % 4 == 0 ? mgr.bool_type() : mgr.bv_type(4);
    users.push_back(mgr.make_constant("kora!e" + std::to_string(n), type));
  }
  const auto s = simplify(mgr, assertions);
  ASSERT_EQ(s.trail.fresh.size(), 40u);
  const std::set<const Term*> user_set(users.begin(), users.end());
  std::set<std::string> names;
  for (const Term* f : s.trail.fresh) {
    EXPECT_EQ(user_set.count(f), 0u) << *f;
    EXPECT_TRUE(names.insert(f->get_symbol()->name()).second) << *f;
  }
  for (const Term* u : users) EXPECT_EQ(names.count(u->get_symbol()->name()), 0u) << *u;
  EXPECT_EQ(s.trail.fresh.front()->get_symbol()->name(), "kora!e1");
  const Term* last = s.trail.fresh.back();
  EXPECT_EQ(mgr.make_constant(last->get_symbol()->name(), last->type()), last);
}

TEST_F(SimplifierTest, DeepTermsUseNoRecursion) {
  const Term* x = bv("x", 8);
  const Term* t = bv("t", 8);
  const Term* chain = x;
  constexpr int kDepth = 100000;
  for (int i = 0; i < kDepth; ++i) chain = app(i % 2 == 0 ? Op::BVNot : Op::BVNeg, {chain});
  const std::vector<const Term*> original{mgr.make_equal(chain, t), pin(t)};
  const auto s = simplify(mgr, original);
  EXPECT_EQ(s.eliminated, static_cast<std::size_t>(kDepth) + 1);
  std::ostringstream log;
  ModelStore store(&mgr, &log);
  store.set_value(t, mgr.make_bv_number(QNumber(77L), 8));
  store.set_value(s.trail.fresh.back(), mgr.true_term());
  const auto stats = preprocess::rebuild(mgr, store, s.trail, original);
  EXPECT_EQ(stats.narrow_values, static_cast<std::size_t>(kDepth) + 1);
  EXPECT_TRUE(preprocess::validate(store, original).empty());
}

}  // namespace
}  // namespace kora::test
