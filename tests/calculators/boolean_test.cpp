// Boolean calculators: Not, And, Or, Iff, Ite and Eq.

#include "support/calculator_fixture.h"

namespace kora::test {
namespace {

using namespace kora::adhoccalculator;

// --- Signatures --------------------------------------------------------------

Signature unary_bool(const Term* (TermManager::*make)(const Term*)) {
  return {{bool_sort()}, bool_sort(), [make](TermManager& m, const auto& a) {
            return (m.*make)(a[0]);
          }};
}

Signature binary_bool(const Term* (TermManager::*make)(const Term*, const Term*)) {
  return {{bool_sort(), bool_sort()}, bool_sort(), [make](TermManager& m, const auto& a) {
            return (m.*make)(a[0], a[1]);
          }};
}

Signature ite_sig(Sort branch) {
  return {{bool_sort(), branch, branch}, branch, [](TermManager& m, const auto& a) {
            return m.make_ite(a[0], a[1], a[2]);
          }};
}

Signature eq_sig(std::size_t w) {
  return {{bv_sort(w), bv_sort(w)}, bool_sort(), [](TermManager& m, const auto& a) {
            return m.make_equal(a[0], a[1]);
          }};
}

// A Boolean v counts as true only when it is the constant true.
bool v_true(const Case& c) {
  return c.v && *c.v == 1;
}

// --- Oracles: the decision tables, row by row --------------------------------

Expect not_oracle(const Case& c, const CaseTerms& x) {
  if (!c.args[0].is_free()) return Expect::fail(kNotFreeMessage);
  return {nullptr, {{x.args[0], x.boolean(!v_true(c))}}};
}

Expect and_or_oracle(const Case& c, const CaseTerms& x) {
  if (!c.args[0].is_free() || !c.args[1].is_free()) return Expect::fail(kNotFreeMessage);
  const Term* b = x.boolean(v_true(c));
  return {nullptr, {{x.args[0], b}, {x.args[1], b}}};
}

Expect iff_oracle(const Case& c, const CaseTerms& x) {
  const ArgCase& a1 = c.args[0];
  const ArgCase& a2 = c.args[1];
  bool v = v_true(c);
  if (a1.is_free() && a2.is_free()) {
    return {nullptr, {{x.args[0], x.boolean(true)}, {x.args[1], x.boolean(v)}}};
  }
  if (a1.is_free()) return {nullptr, {{x.args[0], x.boolean((a2.value == 1) == v)}}};
  if (a2.is_free()) return {nullptr, {{x.args[1], x.boolean((a1.value == 1) == v)}}};
  return Expect::fail(kNotFreeMessage);
}

Expect ite_oracle(const Case& c, const CaseTerms& x) {
  const ArgCase& cond = c.args[0];
  const ArgCase& then_arg = c.args[1];
  const ArgCase& else_arg = c.args[2];
  int free_count = cond.is_free() + then_arg.is_free() + else_arg.is_free();
  if (free_count < 2) return Expect::fail(kNotFreeMessage);
  bool bv_branches = !c.sig->result.is_bool;
  auto term = [&](std::size_t i) { return x.values[i] != nullptr ? x.values[i] : x.args[i]; };
  if (!cond.is_free()) return {nullptr, {{x.args[1], x.v}, {x.args[2], x.v}}};
  if (bv_branches && then_arg.has_value()) {
    return {nullptr, {{x.args[0], x.boolean(false)}, {x.args[2], x.v}}};
  }
  if (bv_branches && else_arg.has_value()) {
    return {nullptr, {{x.args[0], x.boolean(true)}, {x.args[1], x.v}}};
  }
  // A Boolean branch with a value is recorded through its constant; t = v
  // then need not hold.
  Expect e{nullptr, {{x.args[0], x.boolean(true)}, {term(1), x.v}, {term(2), x.v}}};
  e.model_exempt = then_arg.has_value() || else_arg.has_value();
  return e;
}

Expect eq_oracle(const Case& c, const CaseTerms& x) {
  const ArgCase& a1 = c.args[0];
  const ArgCase& a2 = c.args[1];
  std::size_t w = c.sig->args[0].width;
  bool v = v_true(c);
  if (!a1.is_free() && !a2.is_free()) return Expect::fail(kNotFreeMessage);
  if (a1.is_free() && a2.is_free()) {
    return {nullptr, {{x.args[0], x.num(v ? 0 : 1, w)}, {x.args[1], x.num(0, w)}}};
  }
  std::size_t f = a1.is_free() ? 0 : 1;
  std::uint64_t other = c.args[1 - f].value;
  return {nullptr, {{x.args[f], x.num(v ? other : (other + 1) & mask(w), w)}}};
}

// --- Exhaustive tests ----------------------------------------------------------

TEST(BooleanExhaustive, Not) {
  check_all_cases<NotAdHocCalculator>(unary_bool(&TermManager::make_not), not_oracle);
}
TEST(BooleanExhaustive, And) {
  check_all_cases<AndAdHocCalculator>(binary_bool(&TermManager::make_and), and_or_oracle);
}
TEST(BooleanExhaustive, Or) {
  check_all_cases<OrAdHocCalculator>(binary_bool(&TermManager::make_or), and_or_oracle);
}
TEST(BooleanExhaustive, Iff) {
  check_all_cases<IffAdHocCalculator>(binary_bool(&TermManager::make_iff), iff_oracle);
}
TEST(BooleanExhaustive, IteBoolean) {
  check_all_cases<IteAdHocCalculator>(ite_sig(bool_sort()), ite_oracle);
}
TEST(BooleanExhaustive, IteBitVector) {
  for (std::size_t w = 1; w <= 4; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<IteAdHocCalculator>(ite_sig(bv_sort(w)), ite_oracle);
  }
}
TEST(BooleanExhaustive, EqBitVector) {
  for (std::size_t w = 1; w <= 4; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<EqAdHocCalculator>(eq_sig(w), eq_oracle);
  }
}

// --- Not, And, Or, Iff edge cases ------------------------------------------------

using BooleanCalc = CalculatorTest;

TEST_F(BooleanCalc, NotFreeWithVFalseRecordsTrue) {
  const Term* a = free(boolean("a"));
  EXPECT_EQ(run<NotAdHocCalculator>(mgr.make_not(a), mgr.false_term()), "");
  EXPECT_EQ(constraints(), "((= a true))");
}

TEST_F(BooleanCalc, AndBothFreeVFalseRecordsBothFalse) {
  const Term* a = free(boolean("a"));
  const Term* b = free(boolean("b"));
  EXPECT_EQ(run<AndAdHocCalculator>(mgr.make_and(a, b), mgr.false_term()), "");
  EXPECT_EQ(constraints(), "((= a false) (= b false))");
}

TEST_F(BooleanCalc, OrWithOneValuedArgumentThrowsWhateverV) {
  for (const Term* value : {mgr.true_term(), mgr.false_term()}) {
    for (const Term* v : {mgr.true_term(), mgr.false_term()}) {
      TermManager m;
      ModelStore s(&m);
      SetFreeTermPredicate p;
      const Term* a1 = m.make_constant("a1", m.bool_type());
      const Term* a2 = m.make_constant("a2", m.bool_type());
      p.mark_free(a1);
      s.set_value(a2, value == mgr.true_term() ? m.true_term() : m.false_term());
      OrAdHocCalculator calc(&m, &s, &p);
      try {
        calc(m.make_or(a1, a2), v == mgr.true_term() ? m.true_term() : m.false_term());
        ADD_FAILURE() << "expected a throw";
      } catch (const AdHocCalculator::error& e) {
        EXPECT_STREQ(e.what(), kNotFreeMessage);
      }
      EXPECT_TRUE(s.constraints().empty());
    }
  }
}

TEST_F(BooleanCalc, IffBothFreeVFalseRecordsTrueThenFalse) {
  const Term* a = free(boolean("a"));
  const Term* b = free(boolean("b"));
  EXPECT_EQ(run<IffAdHocCalculator>(mgr.make_iff(a, b), mgr.false_term()), "");
  EXPECT_EQ(constraints(), "((= a true) (= b false))");
}

TEST_F(BooleanCalc, IffFreeAgainstDefaultedFalseWithVTrueRecordsFalse) {
  const Term* a = free(boolean("a"));
  const Term* d = boolean("d");  // neither valued nor free: defaulted to false
  EXPECT_EQ(run<IffAdHocCalculator>(mgr.make_iff(a, d), mgr.true_term()), "");
  EXPECT_EQ(store.value_of(d), mgr.false_term());
  EXPECT_EQ(constraints(), "((= a false))");
}

TEST_F(BooleanCalc, NotWithDefaultedArgumentThrowsAndKeepsDefaults) {
  const Term* d = boolean("d");
  EXPECT_EQ(run<NotAdHocCalculator>(mgr.make_not(d), mgr.true_term()), kNotFreeMessage);
  EXPECT_EQ(store.value_of(d), mgr.false_term());
  EXPECT_EQ(constraints(), "()");
}

// --- Ite edge cases ----------------------------------------------------------------

using IteCalc = CalculatorTest;

TEST_F(IteCalc, ConditionValuedTrueBothBranchesFreeTakeV) {
  const Term* c = valued(boolean("c"), mgr.true_term());
  const Term* x = free(bv("x", 4));
  const Term* y = free(bv("y", 4));
  EXPECT_EQ(run<IteAdHocCalculator>(mgr.make_ite(c, x, y), num(9, 4)), "");
  EXPECT_EQ(constraints(), "((= x #x9) (= y #x9))");
}

TEST_F(IteCalc, ConditionFreeThenValuedElseFree) {
  const Term* c = free(boolean("c"));
  const Term* x = valued(bv("x", 4), num(2, 4));
  const Term* y = free(bv("y", 4));
  EXPECT_EQ(run<IteAdHocCalculator>(mgr.make_ite(c, x, y), num(9, 4)), "");
  EXPECT_EQ(constraints(), "((= c false) (= y #x9))");
}

TEST_F(IteCalc, ConditionFreeThenFreeElseValued) {
  const Term* c = free(boolean("c"));
  const Term* x = free(bv("x", 4));
  const Term* y = valued(bv("y", 4), num(2, 4));
  EXPECT_EQ(run<IteAdHocCalculator>(mgr.make_ite(c, x, y), num(9, 4)), "");
  EXPECT_EQ(constraints(), "((= c true) (= x #x9))");
}

TEST_F(IteCalc, AllFree) {
  const Term* c = free(boolean("c"));
  const Term* x = free(bv("x", 4));
  const Term* y = free(bv("y", 4));
  EXPECT_EQ(run<IteAdHocCalculator>(mgr.make_ite(c, x, y), num(9, 4)), "");
  EXPECT_EQ(constraints(), "((= c true) (= x #x9) (= y #x9))");
}

TEST_F(IteCalc, BooleanThenValuedTrueRecordsConstantAgainstV) {
  const Term* c = free(boolean("c"));
  const Term* x = valued(boolean("x"), mgr.true_term());
  const Term* y = free(boolean("y"));
  EXPECT_EQ(run<IteAdHocCalculator>(mgr.make_ite(c, x, y), mgr.false_term()), "");
  EXPECT_EQ(constraints(), "((= c true) (= true false) (= y false))");
  // The constant becomes a key of adhoc_values.
  ASSERT_NE(store.adhoc_values.find(mgr.true_term()), store.adhoc_values.end());
  EXPECT_EQ(store.adhoc_values.find(mgr.true_term())->second, mgr.false_term());
}

TEST_F(IteCalc, OnlyConditionFreeThrows) {
  const Term* c = free(boolean("c"));
  const Term* x = valued(bv("x", 4), num(1, 4));
  const Term* y = valued(bv("y", 4), num(2, 4));
  EXPECT_EQ(run<IteAdHocCalculator>(mgr.make_ite(c, x, y), num(1, 4)), kNotFreeMessage);
}

TEST_F(IteCalc, OnlyThenFreeThrowsEvenWhenConditionSelectsIt) {
  const Term* c = valued(boolean("c"), mgr.true_term());
  const Term* x = free(bv("x", 4));
  const Term* y = valued(bv("y", 4), num(2, 4));
  EXPECT_EQ(run<IteAdHocCalculator>(mgr.make_ite(c, x, y), num(1, 4)), kNotFreeMessage);
  EXPECT_EQ(constraints(), "()");
}

// --- Eq edge cases -------------------------------------------------------------------

using EqCalc = CalculatorTest;

TEST_F(EqCalc, FreeAgainstSevenWithVFalseTakesEight) {
  const Term* a1 = free(bv("a1", 4));
  const Term* a2 = valued(bv("a2", 4), num(7, 4));
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(a1, a2), mgr.false_term()), "");
  EXPECT_EQ(constraints(), "((= a1 #x8))");
}

TEST_F(EqCalc, FreeAgainstAllOnesWithVFalseWrapsToZero) {
  const Term* a1 = free(bv("a1", 4));
  const Term* a2 = valued(bv("a2", 4), num(15, 4));
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(a1, a2), mgr.false_term()), "");
  EXPECT_EQ(constraints(), "((= a1 #x0))");
}

TEST_F(EqCalc, BothFreeWidthOne) {
  const Term* a1 = free(bv("a1", 1));
  const Term* a2 = free(bv("a2", 1));
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(a1, a2), mgr.false_term()), "");
  EXPECT_EQ(constraints(), "((= a1 #b1) (= a2 #b0))");
  // The recorded values made a1 and a2 valued; use fresh sides for v true.
  const Term* b1 = free(bv("b1", 1));
  const Term* b2 = free(bv("b2", 1));
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(b1, b2), mgr.true_term()), "");
  EXPECT_EQ(constraints(), "((= a1 #b1) (= a2 #b0) (= b1 #b0) (= b2 #b0))");
}

class EqArrayCalc : public CalculatorTest {
 protected:
  const DataType* array = mgr.array_type(mgr.bv_type(4), mgr.bool_type());
  const Term* a1 = mgr.make_constant("a1", array);
  const Term* a2 = mgr.make_constant("a2", array);
  const Term* value = mgr.make_const_array(array, mgr.true_term());
};

TEST_F(EqArrayCalc, FreeArrayWithVTrueTakesTheOtherValue) {
  free(a1);
  valued(a2, value);
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(a1, a2), mgr.true_term()), "");
  EXPECT_EQ(constraints(), "((= a1 ((as const (Array (_ BitVec 4) Bool)) true)))");
  EXPECT_EQ(store.get_normalized(mgr.make_equal(a1, a2)), mgr.true_term());
}

TEST_F(EqArrayCalc, FreeArrayWithVFalseIsNotSupported) {
  free(a1);
  valued(a2, value);
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(a1, a2), mgr.false_term()), kArraysMessage);
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(a2, a1), mgr.false_term()), kArraysMessage);
  EXPECT_EQ(constraints(), "()");
}

TEST_F(EqArrayCalc, BothFreeArraysUseTheOtherMessage) {
  free(a1);
  free(a2);
  for (const Term* v : {mgr.true_term(), mgr.false_term()}) {
    EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(a1, a2), v), kUnsupportedTypeMessage);
  }
}

TEST_F(EqArrayCalc, DefaultedArraySideIsAValue) {
  free(a1);
  // a2 gets the default: the constant array of false.
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(a1, a2), mgr.true_term()), "");
  EXPECT_EQ(constraints(), "((= a1 ((as const (Array (_ BitVec 4) Bool)) false)))");
}

TEST_F(EqArrayCalc, NoFreeSideThrowsNotFree) {
  valued(a1, value);
  valued(a2, value);
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(a1, a2), mgr.true_term()), kNotFreeMessage);
}

class EqSortCalc : public CalculatorTest {
 protected:
  const DataType* u = mgr.sort_type("U");
  const Term* a1 = mgr.make_constant("a1", u);
  const Term* a2 = mgr.make_constant("a2", u);
};

TEST_F(EqSortCalc, FreeSideWithVTrueTakesTheAbstractValue) {
  free(a1);
  valued(a2, mgr.make_abstract_value(3, u));
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(a1, a2), mgr.true_term()), "");
  EXPECT_EQ(constraints(), "((= a1 (as @3 U)))");
}

TEST_F(EqSortCalc, FreeSideWithVFalseIsNotSupported) {
  free(a2);
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(a1, a2), mgr.false_term()),
            kUnsupportedTypeMessage);
  // a1 was defaulted before the refusal.
  EXPECT_EQ(store.value_of(a1), mgr.make_abstract_value(0, u));
}

TEST_F(EqSortCalc, BothFreeIsNotSupported) {
  free(a1);
  free(a2);
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(a1, a2), mgr.true_term()),
            kUnsupportedTypeMessage);
}

TEST_F(EqCalc, CreateWitnessReturnsNull) {
  const DataType* array =
      mgr.array_type(mgr.bv_type(2), mgr.array_type(mgr.bv_type(2), mgr.bool_type()));
  const Term* a = mgr.make_constant("a", array);
  EqAdHocCalculator calc(&mgr, &store, &pred);
  EXPECT_EQ(calc.create_witness(a, a), nullptr);
  EXPECT_EQ(calc.create_witness(bv("x", 4), bv("y", 4)), nullptr);
  EXPECT_EQ(constraints(), "()");
}

}  // namespace
}  // namespace kora::test
