// Bit-vector arithmetic calculators: Add, Sub, Neg, Mul, the shifts and the
// divisions.

#include <gmpxx.h>

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "support/calculator_fixture.h"
#include "support/term_helpers.h"

namespace kora::test {
namespace {

using namespace kora::adhoccalculator;

// --- Signatures --------------------------------------------------------------

Signature binary_bv(Op op, std::size_t w) {
  return {{bv_sort(w), bv_sort(w)}, bv_sort(w), [op, w](TermManager& m, const auto& a) {
            return m.make_term(m.make_bv_symbol(op, w), {a[0], a[1]});
          }};
}

Signature neg_sig(std::size_t w) {
  return {{bv_sort(w)}, bv_sort(w), [w](TermManager& m, const auto& a) {
            return m.make_term(m.make_bv_neg_symbol(w), {a[0]});
          }};
}

// --- Oracles: the decision tables, row by row --------------------------------

// The number of v; a v that is not a numeral counts as 0.
std::uint64_t v_number(const Case& c) {
  return c.v ? *c.v : 0;
}

// Both free: the first argument carries v, the second the neutral element.
Expect both_free(const CaseTerms& x, const Case& c, std::uint64_t neutral) {
  std::size_t w = c.width();
  return {nullptr, {{x.args[0], x.num(v_number(c), w)}, {x.args[1], x.num(neutral, w)}}};
}

// The folded difference lhs - rhs with lhs or rhs possibly v: a v that is not
// a value leaves the application unfolded.
const Term* difference(const Case& c, const CaseTerms& x, bool v_first, std::uint64_t other,
                       const Term* other_term) {
  std::size_t w = c.width();
  if (!c.v) {
    std::vector<const Term*> args =
        v_first ? std::vector<const Term*>{x.v, other_term} : std::vector{other_term, x.v};
    return x.mgr.make_term(x.mgr.make_bv_sub_symbol(w), args);
  }
  std::uint64_t r = v_first ? *c.v - other : other - *c.v;
  return x.num(r & mask(w), w);
}

Expect add_oracle(const Case& c, const CaseTerms& x) {
  const ArgCase& a0 = c.args[0];
  const ArgCase& a1 = c.args[1];
  if (a0.is_free() && a1.is_free()) return both_free(x, c, 0);
  if (a0.is_free()) return {nullptr, {{x.args[0], difference(c, x, true, a1.value, x.values[1])}}};
  if (a1.is_free()) return {nullptr, {{x.args[1], difference(c, x, true, a0.value, x.values[0])}}};
  return Expect::fail(kAddNotFreeMessage);
}

Expect sub_oracle(const Case& c, const CaseTerms& x) {
  const ArgCase& a0 = c.args[0];
  const ArgCase& a1 = c.args[1];
  std::size_t w = c.width();
  if (a0.is_free() && a1.is_free()) return both_free(x, c, 0);
  if (a0.is_free()) {
    // B + v, folded as [B, v].
    const Term* sum = c.v ? x.num((a1.value + *c.v) & mask(w), w)
                          : x.mgr.make_term(x.mgr.make_bv_add_symbol(w), {x.values[1], x.v});
    return {nullptr, {{x.args[0], sum}}};
  }
  if (a1.is_free()) return {nullptr, {{x.args[1], difference(c, x, false, a0.value, x.values[0])}}};
  return Expect::fail(kNotFreeMessage);
}

Expect neg_oracle(const Case& c, const CaseTerms& x) {
  std::size_t w = c.width();
  if (!c.args[0].is_free()) return Expect::fail(kNotFreeMessage);
  const Term* value =
      c.v ? x.num((0 - *c.v) & mask(w), w) : x.mgr.make_term(x.mgr.make_bv_neg_symbol(w), {x.v});
  return {nullptr, {{x.args[0], value}}};
}

Expect mul_oracle(const Case& c, const CaseTerms& x) {
  const ArgCase& a0 = c.args[0];
  const ArgCase& a1 = c.args[1];
  std::size_t w = c.width();
  if (a0.is_free() && a1.is_free()) return both_free(x, c, 1);
  if (!a0.is_free() && !a1.is_free()) return Expect::fail(kNotFreeMessage);
  std::size_t target = a0.is_free() ? 0 : 1;
  std::uint64_t operand = c.args[1 - target].value;
  if (operand % 2 == 0) return Expect::fail(kNoValueMessage);
  // An odd operand is invertible, so exactly one x has x * operand = v.
  std::uint64_t v = v_number(c);
  std::uint64_t solution = 0;
  while (((solution * operand) & mask(w)) != v) ++solution;
  return {nullptr, {{x.args[target], x.num(solution, w)}}};
}

Oracle identity_pair_oracle(std::uint64_t neutral) {
  return [neutral](const Case& c, const CaseTerms& x) {
    if (c.args[0].is_free() && c.args[1].is_free()) return both_free(x, c, neutral);
    return Expect::fail(kNotFreeMessage);
  };
}

// --- Exhaustive tests ----------------------------------------------------------

constexpr std::size_t kMaxExhaustiveWidth = 4;

TEST(ArithmeticExhaustive, Add) {
  for (std::size_t w = 1; w <= kMaxExhaustiveWidth; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<BVAddAdHocCalculator>(binary_bv(Op::BVAdd, w), add_oracle);
  }
}
TEST(ArithmeticExhaustive, Sub) {
  for (std::size_t w = 1; w <= kMaxExhaustiveWidth; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<BVSubAdHocCalculator>(binary_bv(Op::BVSub, w), sub_oracle);
  }
}
TEST(ArithmeticExhaustive, Neg) {
  for (std::size_t w = 1; w <= kMaxExhaustiveWidth; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<BVNegAdHocCalculator>(neg_sig(w), neg_oracle);
  }
}
TEST(ArithmeticExhaustive, Mul) {
  for (std::size_t w = 1; w <= kMaxExhaustiveWidth; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<BVMulAdHocCalculator>(binary_bv(Op::BVMul, w), mul_oracle);
  }
}
TEST(ArithmeticExhaustive, Lsl) {
  for (std::size_t w = 1; w <= kMaxExhaustiveWidth; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<BVLslAdHocCalculator>(binary_bv(Op::BVShl, w), identity_pair_oracle(0));
  }
}
TEST(ArithmeticExhaustive, Lsr) {
  for (std::size_t w = 1; w <= kMaxExhaustiveWidth; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<BVLsrAdHocCalculator>(binary_bv(Op::BVLshr, w), identity_pair_oracle(0));
  }
}
TEST(ArithmeticExhaustive, Asr) {
  for (std::size_t w = 1; w <= kMaxExhaustiveWidth; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<BVAsrAdHocCalculator>(binary_bv(Op::BVAshr, w), identity_pair_oracle(0));
  }
}
TEST(ArithmeticExhaustive, Udiv) {
  for (std::size_t w = 1; w <= kMaxExhaustiveWidth; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<BVUdivAdHocCalculator>(binary_bv(Op::BVUdiv, w), identity_pair_oracle(1));
  }
}
TEST(ArithmeticExhaustive, Sdiv) {
  for (std::size_t w = 1; w <= kMaxExhaustiveWidth; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<BVSdivAdHocCalculator>(binary_bv(Op::BVSdiv, w), identity_pair_oracle(1));
  }
}

// --- Shared fixture for the named cases --------------------------------------------

// Counts how often the calculator asks whether a term is free.
class CountingPredicate final : public FreeTermPredicate {
 public:
  bool is_free(const Term* a) override {
    ++calls;
    return free_terms.count(a) != 0;
  }
  std::unordered_set<const Term*> free_terms;
  int calls = 0;
};

class ArithmeticCalc : public CalculatorTest {
 protected:
  const Term* apply(Op op, const Term* a, const Term* b) {
    std::size_t w = width_of(mgr, a);
    return mgr.make_term(mgr.make_bv_symbol(op, w), {a, b});
  }
  const Term* neg(const Term* a) {
    return mgr.make_term(mgr.make_bv_neg_symbol(width_of(mgr, a)), {a});
  }
};

// --- Add, Sub and Neg --------------------------------------------------------------

using AddSubNegCalc = ArithmeticCalc;

TEST_F(AddSubNegCalc, AddBothFreeFirstTakesVSecondTakesZero) {
  const Term* a0 = free(bv("a0", 8));
  const Term* a1 = free(bv("a1", 8));
  EXPECT_EQ(run<BVAddAdHocCalculator>(apply(Op::BVAdd, a0, a1), num(5, 8)), "");
  EXPECT_EQ(constraints(), "((= a0 #x05) (= a1 #x00))");
  EXPECT_EQ(log.str(), "calculated adhoc a0 := #x05 ..\ncalculated adhoc a1 := #x00 ..\n");
}

TEST_F(AddSubNegCalc, AddFreeFirstAgainstValuedSecondWraps) {
  const Term* a0 = free(bv("a0", 8));
  const Term* a1 = valued(bv("a1", 8), num(200, 8));
  EXPECT_EQ(run<BVAddAdHocCalculator>(apply(Op::BVAdd, a0, a1), num(100, 8)), "");
  EXPECT_EQ(constraints(), "((= a0 #x9c))");  // 156
}

TEST_F(AddSubNegCalc, AddValuedFirstFreeSecondAtWidthFour) {
  const Term* a0 = valued(bv("a0", 4), num(3, 4));
  const Term* a1 = free(bv("a1", 4));
  EXPECT_EQ(run<BVAddAdHocCalculator>(apply(Op::BVAdd, a0, a1), num(1, 4)), "");
  EXPECT_EQ(constraints(), "((= a1 #xe))");  // 14
}

TEST_F(AddSubNegCalc, AddWithoutFreeArgumentUsesItsOwnMessage) {
  const Term* a0 = valued(bv("a0", 4), num(3, 4));
  const Term* a1 = bv("a1", 4);  // defaulted
  EXPECT_EQ(run<BVAddAdHocCalculator>(apply(Op::BVAdd, a0, a1), num(1, 4)),
            "term was not free..\n");
  EXPECT_EQ(store.value_of(a1), num(0, 4));
  EXPECT_EQ(constraints(), "()");
}

TEST_F(AddSubNegCalc, SubFreeFirstAgainstValuedSecondWraps) {
  const Term* a0 = free(bv("a0", 8));
  const Term* a1 = valued(bv("a1", 8), num(250, 8));
  EXPECT_EQ(run<BVSubAdHocCalculator>(apply(Op::BVSub, a0, a1), num(10, 8)), "");
  EXPECT_EQ(constraints(), "((= a0 #x04))");
}

TEST_F(AddSubNegCalc, SubValuedFirstFreeSecond) {
  const Term* a0 = valued(bv("a0", 8), num(3, 8));
  const Term* a1 = free(bv("a1", 8));
  EXPECT_EQ(run<BVSubAdHocCalculator>(apply(Op::BVSub, a0, a1), num(5, 8)), "");
  EXPECT_EQ(constraints(), "((= a1 #xfe))");  // 254
}

TEST_F(AddSubNegCalc, SubWithoutFreeArgumentUsesTheCommonMessage) {
  const Term* a0 = bv("a0", 8);  // defaulted
  const Term* a1 = valued(bv("a1", 8), num(1, 8));
  EXPECT_EQ(run<BVSubAdHocCalculator>(apply(Op::BVSub, a0, a1), num(5, 8)), kNotFreeMessage);
  EXPECT_EQ(store.value_of(a0), num(0, 8));
}

TEST_F(AddSubNegCalc, NegOfZeroIsZero) {
  const Term* a0 = free(bv("a0", 8));
  EXPECT_EQ(run<BVNegAdHocCalculator>(neg(a0), num(0, 8)), "");
  EXPECT_EQ(constraints(), "((= a0 #x00))");
}

TEST_F(AddSubNegCalc, NegOfHalfRangeIsItself) {
  for (std::size_t w : {1u, 4u, 8u, 16u}) {
    SCOPED_TRACE(w);
    const Term* a0 = free(bv("h" + std::to_string(w), w));
    const Term* half = num(1L << (w - 1), w);
    std::size_t before = store.constraints().size();
    EXPECT_EQ(run<BVNegAdHocCalculator>(neg(a0), half), "");
    ASSERT_EQ(store.constraints().size(), before + 1);
    EXPECT_EQ(store.constraints().back(), mgr.make_equal(a0, half));
  }
}

TEST_F(AddSubNegCalc, NegOfOneAtWidthSixteenIsAllOnes) {
  const Term* a0 = free(bv("a0", 16));
  EXPECT_EQ(run<BVNegAdHocCalculator>(neg(a0), num(1, 16)), "");
  EXPECT_EQ(constraints(), "((= a0 #xffff))");  // 65535
}

TEST_F(AddSubNegCalc, AddSameFreeTermTwiceRecordsVThenZero) {
  const Term* x = free(bv("x", 8));
  EXPECT_EQ(run<BVAddAdHocCalculator>(apply(Op::BVAdd, x, x), num(9, 8)), "");
  EXPECT_EQ(constraints(), "((= x #x09) (= x #x00))");
  // The later record wins; x + x = v no longer holds, as documented.
  EXPECT_EQ(store.value_of(x), num(0, 8));
}

TEST_F(AddSubNegCalc, SubSameFreeTermTwiceRecordsVThenZero) {
  const Term* x = free(bv("x", 8));
  EXPECT_EQ(run<BVSubAdHocCalculator>(apply(Op::BVSub, x, x), num(9, 8)), "");
  EXPECT_EQ(constraints(), "((= x #x09) (= x #x00))");
}

TEST_F(AddSubNegCalc, BothFreeWithNonNumeralVGivesFirstZero) {
  const Term* v = bv("v", 8);  // not a numeral
  const Term* a0 = free(bv("a0", 8));
  const Term* a1 = free(bv("a1", 8));
  EXPECT_EQ(run<BVAddAdHocCalculator>(apply(Op::BVAdd, a0, a1), v), "");
  const Term* b0 = free(bv("b0", 8));
  const Term* b1 = free(bv("b1", 8));
  EXPECT_EQ(run<BVSubAdHocCalculator>(apply(Op::BVSub, b0, b1), v), "");
  EXPECT_EQ(constraints(), "((= a0 #x00) (= a1 #x00) (= b0 #x00) (= b1 #x00))");
}

TEST_F(AddSubNegCalc, NegWithValuedArgumentThrowsWithoutAskingThePredicate) {
  CountingPredicate counting;
  const Term* a0 = valued(bv("a0", 8), num(7, 8));
  counting.free_terms.insert(a0);
  BVNegAdHocCalculator calc(&mgr, &store, &counting);
  try {
    calc(neg(a0), num(1, 8));
    ADD_FAILURE() << "expected a throw";
  } catch (const AdHocCalculator::error& e) {
    EXPECT_STREQ(e.what(), kNotFreeMessage);
  }
  EXPECT_EQ(counting.calls, 0);
  EXPECT_EQ(constraints(), "()");
}

TEST_F(AddSubNegCalc, NegWithDefaultedArgumentAssignsDefaultsThenThrows) {
  const Term* x = bv("x", 8);
  const Term* y = valued(bv("y", 8), num(3, 8));
  // (bvadd x y) is neither valued nor free: x gets its default.
  EXPECT_EQ(run<BVNegAdHocCalculator>(neg(apply(Op::BVAdd, x, y)), num(1, 8)), kNotFreeMessage);
  EXPECT_EQ(store.value_of(x), num(0, 8));
  EXPECT_EQ(constraints(), "()");
  EXPECT_EQ(log.str(), "");
}

TEST_F(AddSubNegCalc, AddDefaultsSecondArgumentEvenWhenFirstIsFree) {
  const Term* a0 = free(bv("a0", 8));
  const Term* x = bv("x", 8);
  const Term* y = valued(bv("y", 8), num(5, 8));
  // a1 = x - y, defaulted to 0 - 5 = 251; a0 := 1 - 251 = 6.
  EXPECT_EQ(run<BVAddAdHocCalculator>(apply(Op::BVAdd, a0, apply(Op::BVSub, x, y)), num(1, 8)), "");
  EXPECT_EQ(store.value_of(x), num(0, 8));
  EXPECT_EQ(constraints(), "((= a0 #x06))");
}

// --- Mul ---------------------------------------------------------------------------

using MulCalc = ArithmeticCalc;

TEST_F(MulCalc, BothFreeFirstTakesVSecondTakesOne) {
  const Term* a0 = free(bv("a0", 8));
  const Term* a1 = free(bv("a1", 8));
  EXPECT_EQ(run<BVMulAdHocCalculator>(apply(Op::BVMul, a0, a1), num(6, 8)), "");
  EXPECT_EQ(constraints(), "((= a0 #x06) (= a1 #x01))");
}

TEST_F(MulCalc, FreeFirstTimesThreeIsOneGivesInverse) {
  const Term* a0 = free(bv("a0", 8));
  const Term* a1 = valued(bv("a1", 8), num(3, 8));
  EXPECT_EQ(run<BVMulAdHocCalculator>(apply(Op::BVMul, a0, a1), num(1, 8)), "");
  EXPECT_EQ(constraints(), "((= a0 #xab))");  // 171: 3 * 171 = 2 * 256 + 1
}

TEST_F(MulCalc, OneTimesFreeIsV) {
  const Term* a0 = valued(bv("a0", 8), num(1, 8));
  const Term* a1 = free(bv("a1", 8));
  EXPECT_EQ(run<BVMulAdHocCalculator>(apply(Op::BVMul, a0, a1), num(200, 8)), "");
  EXPECT_EQ(constraints(), "((= a1 #xc8))");
}

TEST_F(MulCalc, MinusOneIsItsOwnInverse) {
  const Term* a0 = valued(bv("a0", 8), num(255, 8));
  const Term* a1 = free(bv("a1", 8));
  EXPECT_EQ(run<BVMulAdHocCalculator>(apply(Op::BVMul, a0, a1), num(1, 8)), "");
  EXPECT_EQ(constraints(), "((= a1 #xff))");
}

TEST_F(MulCalc, EvenOperandIsRefusedWhateverV) {
  for (long operand : {0L, 2L}) {
    for (long v = 0; v < 256; ++v) {
      TermManager m;
      ModelStore s(&m);
      SetFreeTermPredicate p;
      const Term* a0 = m.make_constant("a0", m.bv_type(8));
      const Term* a1 = m.make_constant("a1", m.bv_type(8));
      p.mark_free(a0);
      s.set_value(a1, m.make_bv_number(QNumber(operand), 8));
      BVMulAdHocCalculator calc(&m, &s, &p);
      try {
        calc(m.make_term(m.make_bv_mul_symbol(8), {a0, a1}), m.make_bv_number(QNumber(v), 8));
        ADD_FAILURE() << "operand " << operand << " v " << v << ": expected a throw";
      } catch (const AdHocCalculator::error& e) {
        EXPECT_STREQ(e.what(), kNoValueMessage);
      }
      EXPECT_TRUE(s.constraints().empty());
    }
  }
}

TEST_F(MulCalc, DefaultedOperandCountsAsZeroAndIsRefused) {
  const Term* a0 = bv("a0", 8);
  const Term* a1 = free(bv("a1", 8));
  EXPECT_EQ(run<BVMulAdHocCalculator>(apply(Op::BVMul, a0, a1), num(0, 8)), kNoValueMessage);
  EXPECT_EQ(store.value_of(a0), num(0, 8));
  EXPECT_EQ(constraints(), "()");
}

TEST_F(MulCalc, WidthOneWithOperandOneGivesV) {
  for (long v : {0L, 1L}) {
    const Term* a0 = free(bv("a" + std::to_string(v), 1));
    const Term* a1 = valued(bv("b" + std::to_string(v), 1), num(1, 1));
    std::size_t before = store.constraints().size();
    EXPECT_EQ(run<BVMulAdHocCalculator>(apply(Op::BVMul, a0, a1), num(v, 1)), "");
    ASSERT_EQ(store.constraints().size(), before + 1);
    EXPECT_EQ(store.constraints().back(), mgr.make_equal(a0, num(v, 1)));
  }
}

TEST_F(MulCalc, NonNumeralVCountsAsZero) {
  const Term* a0 = free(bv("a0", 8));
  const Term* a1 = valued(bv("a1", 8), num(3, 8));
  EXPECT_EQ(run<BVMulAdHocCalculator>(apply(Op::BVMul, a0, a1), bv("v", 8)), "");
  EXPECT_EQ(constraints(), "((= a0 #x00))");
}

TEST_F(MulCalc, NoFreeArgumentIsNotFree) {
  const Term* a0 = valued(bv("a0", 8), num(3, 8));
  const Term* a1 = valued(bv("a1", 8), num(2, 8));
  EXPECT_EQ(run<BVMulAdHocCalculator>(apply(Op::BVMul, a0, a1), num(6, 8)), kNotFreeMessage);
}

TEST_F(MulCalc, SameFreeTermTwiceRecordsVThenOne) {
  const Term* x = free(bv("x", 8));
  EXPECT_EQ(run<BVMulAdHocCalculator>(apply(Op::BVMul, x, x), num(6, 8)), "");
  EXPECT_EQ(constraints(), "((= x #x06) (= x #x01))");
}

// --- Shifts and divisions ------------------------------------------------------------

using ShiftDivCalc = ArithmeticCalc;

TEST_F(ShiftDivCalc, LslBothFreeFirstTakesVSecondTakesZero) {
  const Term* a0 = free(bv("a0", 8));
  const Term* a1 = free(bv("a1", 8));
  EXPECT_EQ(run<BVLslAdHocCalculator>(apply(Op::BVShl, a0, a1), num(12, 8)), "");
  EXPECT_EQ(constraints(), "((= a0 #x0c) (= a1 #x00))");
}

TEST_F(ShiftDivCalc, UdivBothFreeFirstTakesVSecondTakesOne) {
  const Term* a0 = free(bv("a0", 8));
  const Term* a1 = free(bv("a1", 8));
  EXPECT_EQ(run<BVUdivAdHocCalculator>(apply(Op::BVUdiv, a0, a1), num(7, 8)), "");
  EXPECT_EQ(constraints(), "((= a0 #x07) (= a1 #x01))");
}

TEST_F(ShiftDivCalc, SdivBothFreeFirstTakesVSecondTakesOneAlsoForMinusOne) {
  const Term* a0 = free(bv("a0", 8));
  const Term* a1 = free(bv("a1", 8));
  EXPECT_EQ(run<BVSdivAdHocCalculator>(apply(Op::BVSdiv, a0, a1), num(7, 8)), "");
  const Term* b0 = free(bv("b0", 8));
  const Term* b1 = free(bv("b1", 8));
  EXPECT_EQ(run<BVSdivAdHocCalculator>(apply(Op::BVSdiv, b0, b1), num(255, 8)), "");
  EXPECT_EQ(constraints(), "((= a0 #x07) (= a1 #x01) (= b0 #xff) (= b1 #x01))");
}

TEST_F(ShiftDivCalc, AsrWithKnownZeroAmountIsRefused) {
  const Term* a0 = free(bv("a0", 8));
  const Term* a1 = valued(bv("a1", 8), num(0, 8));
  EXPECT_EQ(run<BVAsrAdHocCalculator>(apply(Op::BVAshr, a0, a1), num(12, 8)), kNotFreeMessage);
  EXPECT_EQ(constraints(), "()");
}

TEST_F(ShiftDivCalc, DivisionWithKnownDividendIsRefused) {
  const Term* a0 = valued(bv("a0", 8), num(12, 8));
  const Term* a1 = free(bv("a1", 8));
  EXPECT_EQ(run<BVUdivAdHocCalculator>(apply(Op::BVUdiv, a0, a1), num(12, 8)), kNotFreeMessage);
  EXPECT_EQ(run<BVSdivAdHocCalculator>(apply(Op::BVSdiv, a0, a1), num(12, 8)), kNotFreeMessage);
  EXPECT_EQ(constraints(), "()");
}

TEST_F(ShiftDivCalc, DefaultedAmountIsAssignedBeforeTheRefusal) {
  const Term* a0 = free(bv("a0", 8));
  const Term* a1 = bv("a1", 8);
  EXPECT_EQ(run<BVLsrAdHocCalculator>(apply(Op::BVLshr, a0, a1), num(12, 8)), kNotFreeMessage);
  EXPECT_EQ(store.value_of(a1), num(0, 8));
  EXPECT_EQ(constraints(), "()");
}

TEST_F(ShiftDivCalc, BothFreeWithNonNumeralVGivesFirstZeroAndSecondNeutral) {
  struct Row {
    Op op;
    const char* expected;
  };
  const Row rows[] = {{Op::BVShl, "((= p #x0) (= q #x0))"},
                      {Op::BVLshr, "((= p #x0) (= q #x0))"},
                      {Op::BVAshr, "((= p #x0) (= q #x0))"},
                      {Op::BVUdiv, "((= p #x0) (= q #x1))"},
                      {Op::BVSdiv, "((= p #x0) (= q #x1))"}};
  for (const Row& row : rows) {
    TermManager m;
    ModelStore s(&m);
    SetFreeTermPredicate p;
    const Term* a0 = m.make_constant("p", m.bv_type(4));
    const Term* a1 = m.make_constant("q", m.bv_type(4));
    p.mark_free(a0);
    p.mark_free(a1);
    const Term* t = m.make_term(m.make_bv_symbol(row.op, 4), {a0, a1});
    const Term* mv = m.make_constant("v", m.bv_type(4));
    switch (row.op) {
      case Op::BVShl:
        BVLslAdHocCalculator(&m, &s, &p)(t, mv);
        break;
      case Op::BVLshr:
        BVLsrAdHocCalculator(&m, &s, &p)(t, mv);
        break;
      case Op::BVAshr:
        BVAsrAdHocCalculator(&m, &s, &p)(t, mv);
        break;
      case Op::BVUdiv:
        BVUdivAdHocCalculator(&m, &s, &p)(t, mv);
        break;
      default:
        BVSdivAdHocCalculator(&m, &s, &p)(t, mv);
        break;
    }
    std::string got = "(";
    for (std::size_t i = 0; i < s.constraints().size(); ++i) {
      got += (i ? " " : "") + s.constraints()[i]->to_shallow_str();
    }
    EXPECT_EQ(got + ")", row.expected) << static_cast<int>(row.op);
  }
}

TEST_F(ShiftDivCalc, SameFreeTermTwiceRecordsVThenNeutral) {
  const Term* x = free(bv("x", 8));
  EXPECT_EQ(run<BVLslAdHocCalculator>(apply(Op::BVShl, x, x), num(12, 8)), "");
  EXPECT_EQ(constraints(), "((= x #x0c) (= x #x00))");
  const Term* y = free(bv("y", 8));
  EXPECT_EQ(run<BVSdivAdHocCalculator>(apply(Op::BVSdiv, y, y), num(12, 8)), "");
  EXPECT_EQ(constraints(), "((= x #x0c) (= x #x00) (= y #x0c) (= y #x01))");
}

// --- Wide widths against GMP ----------------------------------------------------------

constexpr std::size_t kWideWidths[] = {63, 64, 65, 128, 521};
constexpr int kWideRounds = 40;

class WideArithmetic : public ::testing::Test {
 protected:
  WideArithmetic() : rng(gmp_randinit_mt) {
    rng.seed(static_cast<unsigned long>(test_seed(20240611)));
  }

  mpz_class random(std::size_t w) { return rng.get_z_bits(static_cast<mp_bitcnt_t>(w)); }

  // One fresh manager and store per call, so that earlier records do not
  // turn free arguments into valued ones.
  struct World {
    TermManager mgr;
    ModelStore store{&mgr};
    SetFreeTermPredicate pred;
    const Term* constant(const std::string& name, std::size_t w) {
      return mgr.make_constant(name, mgr.bv_type(w));
    }
    const Term* number(const mpz_class& x, std::size_t w) { return mgr.make_bv_number(qnum(x), w); }
  };

  // Runs the calculator on op(a0, a1) = v, where a given value marks the
  // argument valued and none marks it free; returns the recorded values in
  // order (an empty list when the calculator threw, with *error set).
  template <class Calculator>
  std::vector<std::pair<std::string, mpz_class>> run(Op op, std::size_t w,
                                                     const std::optional<mpz_class>& x0,
                                                     const std::optional<mpz_class>& x1,
                                                     const mpz_class& v,
                                                     std::string* error = nullptr) {
    World world;
    std::vector<const Term*> args;
    const std::optional<mpz_class>* given[] = {&x0, &x1};
    std::size_t arity = op == Op::BVNeg ? 1 : 2;
    for (std::size_t i = 0; i < arity; ++i) {
      const Term* a = world.constant("a" + std::to_string(i), w);
      if (given[i]->has_value()) {
        world.store.set_value(a, world.number(**given[i], w));
      } else {
        world.pred.mark_free(a);
      }
      args.push_back(a);
    }
    const Term* t = world.mgr.make_term(world.mgr.make_bv_symbol(op, w), args);
    Calculator calc(&world.mgr, &world.store, &world.pred);
    std::vector<std::pair<std::string, mpz_class>> out;
    try {
      calc(t, world.number(v, w));
    } catch (const AdHocCalculator::error& e) {
      if (error != nullptr) *error = e.what();
      return out;
    }
    for (const Term* c : world.store.constraints()) {
      EXPECT_EQ(c->arity(), 2u);
      auto value = numeral_value(world.mgr, c->arg(1));
      EXPECT_TRUE(value.has_value()) << c->to_shallow_str();
      EXPECT_EQ(width_of(world.mgr, c->arg(1)), w);
      out.emplace_back(c->arg(0)->to_shallow_str(), value.value_or(mpz_class(-1)));
    }
    return out;
  }

  using Records = std::vector<std::pair<std::string, mpz_class>>;

  gmp_randclass rng;
};

TEST_F(WideArithmetic, AddAgainstGmp) {
  for (std::size_t w : kWideWidths) {
    SCOPED_TRACE(w);
    for (int i = 0; i < kWideRounds; ++i) {
      mpz_class a = random(w), b = random(w), v = random(w);
      EXPECT_EQ((run<BVAddAdHocCalculator>(Op::BVAdd, w, std::nullopt, b, v)),
                (Records{{"a0", mpz_mod2w(v - b, w)}}));
      EXPECT_EQ((run<BVAddAdHocCalculator>(Op::BVAdd, w, a, std::nullopt, v)),
                (Records{{"a1", mpz_mod2w(v - a, w)}}));
      EXPECT_EQ((run<BVAddAdHocCalculator>(Op::BVAdd, w, std::nullopt, std::nullopt, v)),
                (Records{{"a0", v}, {"a1", 0}}));
    }
  }
}

TEST_F(WideArithmetic, SubAgainstGmp) {
  for (std::size_t w : kWideWidths) {
    SCOPED_TRACE(w);
    for (int i = 0; i < kWideRounds; ++i) {
      mpz_class a = random(w), b = random(w), v = random(w);
      EXPECT_EQ((run<BVSubAdHocCalculator>(Op::BVSub, w, std::nullopt, b, v)),
                (Records{{"a0", mpz_mod2w(b + v, w)}}));
      EXPECT_EQ((run<BVSubAdHocCalculator>(Op::BVSub, w, a, std::nullopt, v)),
                (Records{{"a1", mpz_mod2w(a - v, w)}}));
      EXPECT_EQ((run<BVSubAdHocCalculator>(Op::BVSub, w, std::nullopt, std::nullopt, v)),
                (Records{{"a0", v}, {"a1", 0}}));
    }
  }
}

TEST_F(WideArithmetic, NegAgainstGmp) {
  for (std::size_t w : kWideWidths) {
    SCOPED_TRACE(w);
    for (int i = 0; i < kWideRounds; ++i) {
      mpz_class v = random(w);
      EXPECT_EQ((run<BVNegAdHocCalculator>(Op::BVNeg, w, std::nullopt, std::nullopt, v)),
                (Records{{"a0", mpz_mod2w(-v, w)}}));
    }
    // The edges: 0, 1, 2^(w-1) and all ones.
    for (const mpz_class& v :
         {mpz_class(0), mpz_class(1), mpz_pow2(w - 1), mpz_class(mpz_pow2(w) - 1)}) {
      EXPECT_EQ((run<BVNegAdHocCalculator>(Op::BVNeg, w, std::nullopt, std::nullopt, v)),
                (Records{{"a0", mpz_mod2w(-v, w)}}));
    }
  }
}

TEST_F(WideArithmetic, MulAgainstGmpInverse) {
  for (std::size_t w : kWideWidths) {
    SCOPED_TRACE(w);
    const mpz_class m = mpz_pow2(w);
    for (int i = 0; i < kWideRounds; ++i) {
      mpz_class c = random(w) | 1;
      mpz_class v = random(w);
      mpz_class inverse;
      ASSERT_NE(mpz_invert(inverse.get_mpz_t(), c.get_mpz_t(), m.get_mpz_t()), 0);
      const mpz_class expected = mpz_mod2w(inverse * v, w);
      for (int side = 0; side < 2; ++side) {
        Records got = side == 0 ? run<BVMulAdHocCalculator>(Op::BVMul, w, std::nullopt, c, v)
                                : run<BVMulAdHocCalculator>(Op::BVMul, w, c, std::nullopt, v);
        ASSERT_EQ(got.size(), 1u);
        EXPECT_EQ(got[0].first, side == 0 ? "a0" : "a1");
        EXPECT_EQ(mpz_mod2w(got[0].second * c, w), v) << "c=" << c << " v=" << v;
        EXPECT_EQ(got[0].second, expected) << "c=" << c << " v=" << v;
      }
    }
    // All ones (-1) and 1 are their own inverses.
    mpz_class v = random(w);
    EXPECT_EQ((run<BVMulAdHocCalculator>(Op::BVMul, w, m - 1, std::nullopt, v)),
              (Records{{"a1", mpz_mod2w(-v, w)}}));
    EXPECT_EQ((run<BVMulAdHocCalculator>(Op::BVMul, w, mpz_class(1), std::nullopt, v)),
              (Records{{"a1", v}}));
    EXPECT_EQ((run<BVMulAdHocCalculator>(Op::BVMul, w, std::nullopt, std::nullopt, v)),
              (Records{{"a0", v}, {"a1", 1}}));
  }
}

TEST_F(WideArithmetic, MulRefusesEvenOperands) {
  for (std::size_t w : kWideWidths) {
    SCOPED_TRACE(w);
    for (const mpz_class& c :
         {mpz_class(0), mpz_class(2), mpz_pow2(w - 1), mpz_class(mpz_pow2(w) - 2)}) {
      std::string error;
      EXPECT_TRUE(
          (run<BVMulAdHocCalculator>(Op::BVMul, w, std::nullopt, c, random(w), &error)).empty());
      EXPECT_EQ(error, kNoValueMessage);
    }
  }
}

}  // namespace
}  // namespace kora::test
