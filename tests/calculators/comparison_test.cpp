// Bit-vector comparison calculators: Ult, Ule, Slt, Sle and Comp, and the
// two's complement helper of the signed ones.

#include <gmpxx.h>

#include <cstdint>
#include <string>
#include <vector>

#include "kora/calculators/twos_complement_internal.h"
#include "support/calculator_fixture.h"

namespace kora::test {
namespace {

using namespace kora::adhoccalculator;
using detail::twos_complement;

// --- Signatures --------------------------------------------------------------

Signature compare_sig(Op op, std::size_t w) {
  return {{bv_sort(w), bv_sort(w)}, bool_sort(), [op, w](TermManager& m, const auto& a) {
            return m.make_term(m.make_bv_symbol(op, w), {a[0], a[1]});
          }};
}

Signature comp_sig(std::size_t w) {
  return {{bv_sort(w), bv_sort(w)}, bv_sort(1), [w](TermManager& m, const auto& a) {
            return m.make_term(m.make_bv_comp_symbol(w), {a[0], a[1]});
          }};
}

// --- Oracles: the decision tables, row by row --------------------------------
//
// Values are machine words; the signed ends are max = 2^(w-1) - 1 and
// min = 2^(w-1) as patterns.

// A Boolean v counts as true only when it is the constant true.
bool v_true(const Case& c) {
  return c.v && *c.v == 1;
}

std::size_t arg_width(const Case& c) {
  return c.sig->args[0].width;
}
std::uint64_t signed_max(std::size_t w) {
  return mask(w - 1);
}
std::uint64_t signed_min(std::size_t w) {
  return std::uint64_t{1} << (w - 1);
}

Expect ult_oracle(const Case& c, const CaseTerms& x) {
  const ArgCase& a = c.args[0];
  const ArgCase& b = c.args[1];
  std::size_t w = arg_width(c);
  bool v = v_true(c);
  auto set_a = [&](std::uint64_t n) { return std::pair{x.args[0], x.num(n, w)}; };
  auto set_b = [&](std::uint64_t n) { return std::pair{x.args[1], x.num(n, w)}; };

  if (a.is_free() && b.is_free()) return {nullptr, {set_a(0), set_b(v ? 1 : 0)}};
  if (b.is_free() && v) {
    if (a.value == mask(w)) return Expect::fail(kNoValueMessage);
    return {nullptr, {set_b(a.value + 1)}};
  }
  if (b.is_free()) return {nullptr, {set_b(a.value)}};
  if (a.is_free() && v) {
    if (b.value == 0) return Expect::fail(kNoValueMessage);
    return {nullptr, {set_a(b.value - 1)}};
  }
  if (a.is_free()) return {nullptr, {set_a(b.value)}};
  return Expect::fail(kNotFreeMessage);
}

Expect ule_oracle(const Case& c, const CaseTerms& x) {
  const ArgCase& a = c.args[0];
  const ArgCase& b = c.args[1];
  std::size_t w = arg_width(c);
  bool v = v_true(c);
  auto set_a = [&](std::uint64_t n) { return std::pair{x.args[0], x.num(n, w)}; };
  auto set_b = [&](std::uint64_t n) { return std::pair{x.args[1], x.num(n, w)}; };

  if (a.is_free() && b.is_free()) return {nullptr, {set_b(0), set_a(v ? 0 : 1)}};
  if (b.is_free() && v) return {nullptr, {set_b(a.value)}};
  if (b.is_free()) {
    if (a.value == 0) return Expect::fail(kNoValueMessage);
    return {nullptr, {set_b(a.value - 1)}};
  }
  if (a.is_free() && v) return {nullptr, {set_a(b.value)}};
  if (a.is_free()) {
    if (b.value == mask(w)) return Expect::fail(kNoValueMessage);
    return {nullptr, {set_a(b.value + 1)}};
  }
  return Expect::fail(kNotFreeMessage);
}

// The documented signed cases whose recorded value does not satisfy t = v:
//   a <s b required true with b valued (or defaulted) 0: a := 2^(w-1) - 2,
//   a <=s b required false with a valued (or defaulted) 0: b := 2^(w-1) - 2.
// Both hold at width 1 (the pattern recorded there is 1, the number -1), so
// only wider cases are exempt.
std::uint64_t below_zero_quirk(std::size_t w) {
  return (signed_min(w) - 2) & mask(w);
}

Expect slt_oracle(const Case& c, const CaseTerms& x) {
  const ArgCase& a = c.args[0];
  const ArgCase& b = c.args[1];
  std::size_t w = arg_width(c);
  bool v = v_true(c);
  auto set_a = [&](std::uint64_t n) { return std::pair{x.args[0], x.num(n, w)}; };
  auto set_b = [&](std::uint64_t n) { return std::pair{x.args[1], x.num(n, w)}; };

  if (a.is_free() && b.is_free() && v && w == 1) return {nullptr, {set_a(1), set_b(0)}};
  if (a.is_free() && b.is_free()) return {nullptr, {set_a(0), set_b(v ? 1 : 0)}};
  if (b.is_free() && v) {
    if (a.value == signed_max(w)) return Expect::fail(kNoValueMessage);
    return {nullptr, {set_b((a.value + 1) & mask(w))}};
  }
  if (b.is_free()) return {nullptr, {set_b(a.value)}};
  if (a.is_free() && v) {
    if (b.value == signed_min(w)) return Expect::fail(kNoValueMessage);
    if (b.value != 0) return {nullptr, {set_a(b.value - 1)}};
    Expect quirk{nullptr, {set_a(below_zero_quirk(w))}};
    quirk.model_exempt = w > 1;
    return quirk;
  }
  if (a.is_free()) return {nullptr, {set_a(b.value)}};
  return Expect::fail(kNotFreeMessage);
}

Expect sle_oracle(const Case& c, const CaseTerms& x) {
  const ArgCase& a = c.args[0];
  const ArgCase& b = c.args[1];
  std::size_t w = arg_width(c);
  bool v = v_true(c);
  auto set_a = [&](std::uint64_t n) { return std::pair{x.args[0], x.num(n, w)}; };
  auto set_b = [&](std::uint64_t n) { return std::pair{x.args[1], x.num(n, w)}; };

  if (a.is_free() && b.is_free() && v) return {nullptr, {set_b(0), set_a(0)}};
  if (a.is_free() && b.is_free() && w == 1) return {nullptr, {set_b(1), set_a(0)}};
  if (a.is_free() && b.is_free()) return {nullptr, {set_b(0), set_a(1)}};
  if (b.is_free() && v) return {nullptr, {set_b(a.value)}};
  if (b.is_free()) {
    if (a.value == signed_min(w)) return Expect::fail(kNoValueMessage);
    if (a.value != 0) return {nullptr, {set_b(a.value - 1)}};
    Expect quirk{nullptr, {set_b(below_zero_quirk(w))}};
    quirk.model_exempt = w > 1;
    return quirk;
  }
  if (a.is_free() && v) return {nullptr, {set_a(b.value)}};
  if (a.is_free()) {
    if (b.value == signed_max(w)) return Expect::fail(kNoValueMessage);
    return {nullptr, {set_a((b.value + 1) & mask(w))}};
  }
  return Expect::fail(kNotFreeMessage);
}

Expect comp_oracle(const Case& c, const CaseTerms& x) {
  const ArgCase& a = c.args[0];
  const ArgCase& b = c.args[1];
  std::size_t w = arg_width(c);
  // Only the numeral 1 asks for equality; a v that is no numeral reads as 0.
  bool equal = c.v && *c.v == 1;

  if (a.is_free() && b.is_free()) {
    return {nullptr, {{x.args[0], x.num(equal ? 0 : 1, w)}, {x.args[1], x.num(0, w)}}};
  }
  if (a.is_free() == b.is_free()) return Expect::fail(kNotFreeMessage);
  std::size_t f = a.is_free() ? 0 : 1;
  std::size_t o = 1 - f;
  if (equal) return {nullptr, {{x.args[f], x.values[o]}}};
  return {nullptr, {{x.args[f], x.num((c.args[o].value + 1) & mask(w), w)}}};
}

// --- Exhaustive tests ----------------------------------------------------------

template <class Calculator>
void check_widths(Op op, const Oracle& oracle) {
  for (std::size_t w = 1; w <= 4; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<Calculator>(compare_sig(op, w), oracle);
  }
}

TEST(ComparisonExhaustive, Ult) {
  check_widths<BVUltAdHocCalculator>(Op::BVUlt, ult_oracle);
}
TEST(ComparisonExhaustive, Ule) {
  check_widths<BVUleAdHocCalculator>(Op::BVUle, ule_oracle);
}
TEST(ComparisonExhaustive, Slt) {
  check_widths<BVSltAdHocCalculator>(Op::BVSlt, slt_oracle);
}
TEST(ComparisonExhaustive, Sle) {
  check_widths<BVSleAdHocCalculator>(Op::BVSle, sle_oracle);
}
TEST(ComparisonExhaustive, Comp) {
  for (std::size_t w = 1; w <= 4; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<BVCompAdHocCalculator>(comp_sig(w), comp_oracle);
  }
}

// --- The resulting tables ----------------------------------------------------------
//
// Each row plays one call in a fresh model: a and b are bit-vector constants
// of width w, free or valued, and the outcome is read back from the
// constraints in the words of the tables ("a := 0, then b := 1").

struct Side {
  bool is_free;
  long value;
};
constexpr Side kFree{true, 0};
constexpr Side val(long x) {
  return {false, x};
}
constexpr const char* none = nullptr;

struct Row {
  std::size_t w;
  Side a;
  Side b;
  bool v;
  std::string recorded;  // "" when the call is refused
  const char* error;
};

std::string describe(const Row& r) {
  auto side = [](const Side& s) {
    return s.is_free ? std::string("free") : "valued " + std::to_string(s.value);
  };
  return "w=" + std::to_string(r.w) + " a " + side(r.a) + ", b " + side(r.b) +
         ", v=" + (r.v ? "true" : "false");
}

template <class Calculator>
void check_table(Op op, const std::vector<Row>& rows) {
  for (const Row& r : rows) {
    SCOPED_TRACE(describe(r));
    TermManager mgr;
    ModelStore store(&mgr);
    SetFreeTermPredicate pred;
    const Term* a = mgr.make_constant("a", mgr.bv_type(r.w));
    const Term* b = mgr.make_constant("b", mgr.bv_type(r.w));
    for (auto [term, side] : {std::pair{a, r.a}, std::pair{b, r.b}}) {
      if (side.is_free) {
        pred.mark_free(term);
      } else {
        store.set_value(term, mgr.make_bv_number(QNumber(side.value), r.w));
      }
    }
    const Term* t = mgr.make_term(mgr.make_bv_symbol(op, r.w), {a, b});
    std::string error;
    try {
      Calculator(&mgr, &store, &pred)(t, r.v ? mgr.true_term() : mgr.false_term());
    } catch (const AdHocCalculator::error& e) {
      error = e.what();
    }
    std::string recorded;
    for (const Term* c : store.constraints()) {
      QNumber n;
      mgr.number_value(c->arg(1)->get_symbol(), &n);
      recorded += (recorded.empty() ? "" : ", then ") + c->arg(0)->to_shallow_str() +
                  " := " + n.to_string();
    }
    EXPECT_EQ(recorded, r.recorded);
    EXPECT_EQ(error, r.error == none ? "" : r.error);
  }
}

// clang-format off

// Width 4: 2^w - 1 = 15.
TEST(ComparisonTable, Ult) {
  check_table<BVUltAdHocCalculator>(Op::BVUlt, {
      // w  a        b        v      recorded                error
      {4, kFree,   kFree,   true,  "a := 0, then b := 1", none},
      {4, kFree,   kFree,   false, "a := 0, then b := 0", none},
      {4, val(9),  kFree,   true,  "b := 10",             none},
      {4, val(15), kFree,   true,  "",                    kNoValueMessage},
      {4, val(9),  kFree,   false, "b := 9",              none},
      {4, val(15), kFree,   false, "b := 15",             none},
      {4, kFree,   val(9),  true,  "a := 8",              none},
      {4, kFree,   val(0),  true,  "",                    kNoValueMessage},
      {4, kFree,   val(9),  false, "a := 9",              none},
      {4, kFree,   val(0),  false, "a := 0",              none},
      {4, val(3),  val(9),  true,  "",                    kNotFreeMessage},
      {4, val(3),  val(9),  false, "",                    kNotFreeMessage},
  });
}

TEST(ComparisonTable, Ule) {
  check_table<BVUleAdHocCalculator>(Op::BVUle, {
      // w  a        b        v      recorded                error
      {4, kFree,   kFree,   true,  "b := 0, then a := 0", none},
      {4, kFree,   kFree,   false, "b := 0, then a := 1", none},
      {4, val(9),  kFree,   true,  "b := 9",              none},
      {4, val(9),  kFree,   false, "b := 8",              none},
      {4, val(0),  kFree,   false, "",                    kNoValueMessage},
      {4, kFree,   val(9),  true,  "a := 9",              none},
      {4, kFree,   val(9),  false, "a := 10",             none},
      {4, kFree,   val(15), false, "",                    kNoValueMessage},
      {4, val(3),  val(9),  true,  "",                    kNotFreeMessage},
      {4, val(3),  val(9),  false, "",                    kNotFreeMessage},
  });
}

// Width 4: max = 7, min = 8, 2^w - 1 = 15, 2^(w-1) - 2 = 6.
TEST(ComparisonTable, Slt) {
  check_table<BVSltAdHocCalculator>(Op::BVSlt, {
      // w  a        b        v      recorded                error
      {1, kFree,   kFree,   true,  "a := 1, then b := 0", none},
      {4, kFree,   kFree,   true,  "a := 0, then b := 1", none},
      {1, kFree,   kFree,   false, "a := 0, then b := 0", none},
      {4, kFree,   kFree,   false, "a := 0, then b := 0", none},
      {4, val(3),  kFree,   true,  "b := 4",              none},
      {4, val(8),  kFree,   true,  "b := 9",              none},
      {4, val(15), kFree,   true,  "b := 0",              none},
      {4, val(7),  kFree,   true,  "",                    kNoValueMessage},
      {4, val(7),  kFree,   false, "b := 7",              none},
      {4, kFree,   val(5),  true,  "a := 4",              none},
      {4, kFree,   val(0),  true,  "a := 6",              none},
      {4, kFree,   val(8),  true,  "",                    kNoValueMessage},
      {4, kFree,   val(8),  false, "a := 8",              none},
      {4, val(3),  val(9),  true,  "",                    kNotFreeMessage},
      {4, val(3),  val(9),  false, "",                    kNotFreeMessage},
  });
}

TEST(ComparisonTable, Sle) {
  check_table<BVSleAdHocCalculator>(Op::BVSle, {
      // w  a        b        v      recorded                error
      {4, kFree,   kFree,   true,  "b := 0, then a := 0", none},
      {1, kFree,   kFree,   false, "b := 1, then a := 0", none},
      {4, kFree,   kFree,   false, "b := 0, then a := 1", none},
      {4, val(9),  kFree,   true,  "b := 9",              none},
      {4, val(5),  kFree,   false, "b := 4",              none},
      {4, val(0),  kFree,   false, "b := 6",              none},
      {4, val(8),  kFree,   false, "",                    kNoValueMessage},
      {4, kFree,   val(9),  true,  "a := 9",              none},
      {4, kFree,   val(5),  false, "a := 6",              none},
      {4, kFree,   val(15), false, "a := 0",              none},
      {4, kFree,   val(7),  false, "",                    kNoValueMessage},
      {4, val(3),  val(9),  true,  "",                    kNotFreeMessage},
      {4, val(3),  val(9),  false, "",                    kNotFreeMessage},
  });
}

// clang-format on

// --- twos_complement ------------------------------------------------------------
//
// Width 0 is not a valid input (the negative rule would ask for 2^(2^64 - 1))
// and is not exercised.

QNumber q(long x) {
  return QNumber(x);
}
QNumber pow2(unsigned long n) {
  QNumber p;
  BVNumber::pow2(n, &p);
  return p;
}

TEST(TwosComplement, TwoToTheWidthGivesZero) {
  for (unsigned long w : {1UL, 4UL, 8UL, 63UL, 64UL, 65UL, 130UL}) {
    SCOPED_TRACE(w);
    EXPECT_EQ(twos_complement(pow2(w), w), q(0));
  }
}

TEST(TwosComplement, AllOnesIsUnchanged) {
  for (unsigned long w : {1UL, 4UL, 8UL, 64UL, 130UL}) {
    SCOPED_TRACE(w);
    EXPECT_EQ(twos_complement(pow2(w) - 1L, w), pow2(w) - 1L);
  }
}

TEST(TwosComplement, ZeroIsZero) {
  EXPECT_EQ(twos_complement(q(0), 1), q(0));
  EXPECT_EQ(twos_complement(q(0), 8), q(0));
}

TEST(TwosComplement, MinusOneDoublesAndAddsHalfTheRange) {
  EXPECT_EQ(twos_complement(q(-1), 8), q(126));
  EXPECT_EQ(twos_complement(q(-1), 1), q(-1));
  EXPECT_EQ(twos_complement(q(-1), 2), q(0));
  EXPECT_EQ(twos_complement(q(-1), 100), pow2(99) - 2L);
}

TEST(TwosComplement, NegativeResultIsReturnedAsItIs) {
  EXPECT_EQ(twos_complement(q(-128), 8), q(-128));
  EXPECT_EQ(twos_complement(q(-8), 4), q(-8));
  EXPECT_EQ(twos_complement(q(-1), 1), q(-1));
}

TEST(TwosComplement, SubtractsTheRangeOnlyOnce) {
  EXPECT_EQ(twos_complement(q(32), 4), q(16));
  EXPECT_EQ(twos_complement(pow2(65), 64), pow2(64));
}

TEST(TwosComplement, WidthOne) {
  EXPECT_EQ(twos_complement(q(2), 1), q(0));
  EXPECT_EQ(twos_complement(q(1), 1), q(1));
}

TEST(TwosComplement, LeavesItsArgumentAlone) {
  const QNumber n = q(-5);
  EXPECT_EQ(twos_complement(n, 8), q(118));
  EXPECT_EQ(n, q(-5));
}

// The whole contract on small widths, computed with machine integers.
TEST(TwosComplement, ContractOnSmallWidths) {
  for (unsigned long w = 1; w <= 10; ++w) {
    const long range = 1L << w;
    for (long n = -range; n <= 2 * range + 2; ++n) {
      long want = n >= range ? n - range : n < 0 ? 2 * n + range / 2 : n;
      ASSERT_EQ(twos_complement(q(n), w), q(want)) << "n=" << n << " w=" << w;
    }
  }
}

TEST(TwosComplement, BigNumbers) {
  const QNumber big = QNumber(mpz_class("123456789012345678901234567890"));
  // Below 2^100: unchanged; 2^100 above it comes back down once.
  EXPECT_EQ(twos_complement(big, 100), big);
  EXPECT_EQ(twos_complement(big + pow2(100), 100), big);
  EXPECT_EQ(twos_complement(q(0) - big, 100), pow2(99) - big - big);
}

// --- Unsigned comparison edge cases ---------------------------------------------------

using UnsignedCompare = CalculatorTest;

TEST_F(UnsignedCompare, UltTrueAgainstZeroThrows) {
  const Term* a = free(bv("a", 8));
  const Term* b = valued(bv("b", 8), num(0, 8));
  EXPECT_EQ(
      run<BVUltAdHocCalculator>(mgr.make_term(mgr.make_bv_ult_symbol(8), {a, b}), mgr.true_term()),
      kNoValueMessage);
  EXPECT_EQ(constraints(), "()");
  EXPECT_EQ(log.str(), "");
}

TEST_F(UnsignedCompare, UltFalseAgainstZeroGivesZero) {
  const Term* a = free(bv("a", 8));
  const Term* b = valued(bv("b", 8), num(0, 8));
  EXPECT_EQ(
      run<BVUltAdHocCalculator>(mgr.make_term(mgr.make_bv_ult_symbol(8), {a, b}), mgr.false_term()),
      "");
  EXPECT_EQ(constraints(), "((= a #x00))");
  EXPECT_EQ(log.str(), "calculated adhoc a := #x00 ..\n");
}

TEST_F(UnsignedCompare, UltTrueAboveAllOnesThrows) {
  const Term* a = valued(bv("a", 8), num(255, 8));
  const Term* b = free(bv("b", 8));
  EXPECT_EQ(
      run<BVUltAdHocCalculator>(mgr.make_term(mgr.make_bv_ult_symbol(8), {a, b}), mgr.true_term()),
      kNoValueMessage);
  EXPECT_EQ(constraints(), "()");
}

TEST_F(UnsignedCompare, UltTrueAboveAllOnesMinusOneGivesAllOnes) {
  const Term* a = valued(bv("a", 8), num(254, 8));
  const Term* b = free(bv("b", 8));
  EXPECT_EQ(
      run<BVUltAdHocCalculator>(mgr.make_term(mgr.make_bv_ult_symbol(8), {a, b}), mgr.true_term()),
      "");
  EXPECT_EQ(constraints(), "((= b #xff))");
}

TEST_F(UnsignedCompare, WidthOneBothFree) {
  const Term* a = free(bv("a", 1));
  const Term* b = free(bv("b", 1));
  EXPECT_EQ(
      run<BVUltAdHocCalculator>(mgr.make_term(mgr.make_bv_ult_symbol(1), {a, b}), mgr.true_term()),
      "");
  EXPECT_EQ(constraints(), "((= a #b0) (= b #b1))");

  const Term* c = free(bv("c", 1));
  const Term* d = free(bv("d", 1));
  EXPECT_EQ(
      run<BVUleAdHocCalculator>(mgr.make_term(mgr.make_bv_ule_symbol(1), {c, d}), mgr.false_term()),
      "");
  EXPECT_EQ(constraints(), "((= a #b0) (= b #b1) (= d #b0) (= c #b1))");
}

TEST_F(UnsignedCompare, ValueThatIsNotANumeralReadsAsZero) {
  // An abstract value of a bit-vector sort is a model value but no numeral.
  const Term* odd = mgr.make_abstract_value(7, mgr.bv_type(4));
  const Term* a = valued(bv("a", 4), odd);
  const Term* b = free(bv("b", 4));
  EXPECT_EQ(
      run<BVUltAdHocCalculator>(mgr.make_term(mgr.make_bv_ult_symbol(4), {a, b}), mgr.true_term()),
      "");
  EXPECT_EQ(constraints(), "((= b #x1))");

  // On the other side it is 0, below which nothing lies.
  const Term* c = free(bv("c", 4));
  const Term* d = valued(bv("d", 4), odd);
  EXPECT_EQ(
      run<BVUltAdHocCalculator>(mgr.make_term(mgr.make_bv_ult_symbol(4), {c, d}), mgr.true_term()),
      kNoValueMessage);
  // Through the less-or-equal delegate the value is passed on as it is.
  EXPECT_EQ(
      run<BVUleAdHocCalculator>(mgr.make_term(mgr.make_bv_ule_symbol(4), {c, d}), mgr.false_term()),
      "");
  EXPECT_EQ(constraints(), "((= b #x1) (= c #x1))");
}

TEST_F(UnsignedCompare, VThatIsNeitherConstantCountsAsFalse) {
  // Only the symbol of v is looked at: a Boolean constant whose model value
  // is true is still not the constant true.
  const Term* p = valued(boolean("p"), mgr.true_term());
  const Term* a = valued(bv("a", 4), num(5, 4));
  const Term* b = free(bv("b", 4));
  EXPECT_EQ(run<BVUltAdHocCalculator>(mgr.make_term(mgr.make_bv_ult_symbol(4), {a, b}), p), "");
  EXPECT_EQ(constraints(), "((= b #x5))");

  const Term* c = valued(bv("c", 4), num(5, 4));
  const Term* d = free(bv("d", 4));
  EXPECT_EQ(
      run<BVUleAdHocCalculator>(mgr.make_term(mgr.make_bv_ule_symbol(4), {c, d}), boolean("q")),
      "");
  EXPECT_EQ(constraints(), "((= b #x5) (= d #x4))");
}

TEST_F(UnsignedCompare, UleFalseAgainstAllOnesThrowsFromTheDelegate) {
  const Term* a = free(bv("a", 8));
  const Term* b = valued(bv("b", 8), num(255, 8));
  std::size_t before = mgr.term_count();
  EXPECT_EQ(
      run<BVUleAdHocCalculator>(mgr.make_term(mgr.make_bv_ule_symbol(8), {a, b}), mgr.false_term()),
      kNoValueMessage);
  EXPECT_EQ(constraints(), "()");
  // The refusal came after the question was rewritten: b <u a was built.
  const Term* asked = mgr.make_term(mgr.make_bv_ult_symbol(8), {num(255, 8), a});
  EXPECT_EQ(mgr.term_count(), before + 2);  // the ule term and the ult term
  EXPECT_EQ(asked, mgr.make_term(mgr.make_bv_ult_symbol(8), {num(255, 8), a}));
}

TEST_F(UnsignedCompare, UleAsksWithTheArgumentsSwapped) {
  const Term* a = valued(bv("a", 4), num(9, 4));
  const Term* b = free(bv("b", 4));
  const Term* t = mgr.make_term(mgr.make_bv_ule_symbol(4), {a, b});
  std::size_t before = mgr.term_count();
  EXPECT_EQ(run<BVUleAdHocCalculator>(t, mgr.false_term()), "");
  EXPECT_EQ(constraints(), "((= b #x8))");
  // (bvult b #x9) was made by the call; making it again adds nothing.
  std::size_t after = mgr.term_count();
  mgr.make_term(mgr.make_bv_ult_symbol(4), {b, num(9, 4)});
  EXPECT_EQ(mgr.term_count(), after);
  EXPECT_GT(after, before);
}

TEST_F(UnsignedCompare, UleRefusesTwoValuesBeforeAsking) {
  const Term* a = valued(bv("a", 4), num(3, 4));
  const Term* b = valued(bv("b", 4), num(9, 4));
  const Term* t = mgr.make_term(mgr.make_bv_ule_symbol(4), {a, b});
  std::size_t before = mgr.term_count();
  EXPECT_EQ(run<BVUleAdHocCalculator>(t, mgr.true_term()), kNotFreeMessage);
  EXPECT_EQ(mgr.term_count(), before);  // no b <u a was built
}

TEST_F(UnsignedCompare, WidthComesFromTheSymbolOfT) {
  // Sorts are not checked by make_term: the ult symbol says 8 while the
  // arguments are 4 bits wide, and the numbers follow the symbol.
  const Term* a = free(bv("a", 4));
  const Term* b = free(bv("b", 4));
  EXPECT_EQ(
      run<BVUltAdHocCalculator>(mgr.make_term(mgr.make_bv_ult_symbol(8), {a, b}), mgr.true_term()),
      "");
  EXPECT_EQ(constraints(), "((= a #x00) (= b #x01))");
  const Term* c = free(bv("c", 4));
  const Term* d = free(bv("d", 4));
  EXPECT_EQ(
      run<BVUleAdHocCalculator>(mgr.make_term(mgr.make_bv_ule_symbol(8), {c, d}), mgr.false_term()),
      "");
  EXPECT_EQ(constraints(), "((= a #x00) (= b #x01) (= d #x00) (= c #x01))");
}

TEST_F(UnsignedCompare, RefusalAfterDefaultingKeepsTheDefaults) {
  const Term* x = bv("x", 4);
  const Term* y = bv("y", 4);
  // (bvadd x y) is neither valued nor free: x and y get 0.
  const Term* sum = mgr.make_term(mgr.make_bv_add_symbol(4), {x, y});
  const Term* b = valued(bv("b", 4), num(3, 4));
  EXPECT_EQ(run<BVUltAdHocCalculator>(mgr.make_term(mgr.make_bv_ult_symbol(4), {sum, b}),
                                      mgr.true_term()),
            kNotFreeMessage);
  EXPECT_EQ(store.value_of(x), num(0, 4));
  EXPECT_EQ(store.value_of(y), num(0, 4));
  EXPECT_EQ(constraints(), "()");
}

TEST_F(UnsignedCompare, DefaultedSideCountsAsItsValue) {
  const Term* a = bv("a", 4);  // defaulted to 0
  const Term* b = free(bv("b", 4));
  EXPECT_EQ(
      run<BVUleAdHocCalculator>(mgr.make_term(mgr.make_bv_ule_symbol(4), {a, b}), mgr.false_term()),
      kNoValueMessage);
  EXPECT_EQ(store.value_of(a), num(0, 4));
  EXPECT_EQ(constraints(), "()");
}

// --- Signed comparison edge cases -------------------------------------------------------

class SignedCompare : public CalculatorTest {
 protected:
  // Runs a <s b at width 8 with one side valued; returns the error text and
  // leaves the records in the store.
  std::string slt8(const Term* a, const Term* b, bool v) {
    return run<BVSltAdHocCalculator>(mgr.make_term(mgr.make_bv_slt_symbol(8), {a, b}),
                                     v ? mgr.true_term() : mgr.false_term());
  }
};

TEST_F(SignedCompare, TrueAboveSignedMaxThrows) {
  EXPECT_EQ(slt8(valued(bv("a", 8), num(127, 8)), free(bv("b", 8)), true), kNoValueMessage);
  EXPECT_EQ(constraints(), "()");
}

TEST_F(SignedCompare, TrueAboveMinusOneGivesZero) {
  EXPECT_EQ(slt8(valued(bv("a", 8), num(255, 8)), free(bv("b", 8)), true), "");
  EXPECT_EQ(constraints(), "((= b #x00))");
}

TEST_F(SignedCompare, TrueAboveSignedMinGivesItsSuccessor) {
  EXPECT_EQ(slt8(valued(bv("a", 8), num(128, 8)), free(bv("b", 8)), true), "");
  EXPECT_EQ(constraints(), "((= b #x81))");
}

TEST_F(SignedCompare, TrueBelowSignedMinThrows) {
  EXPECT_EQ(slt8(free(bv("a", 8)), valued(bv("b", 8), num(128, 8)), true), kNoValueMessage);
  EXPECT_EQ(constraints(), "()");
}

TEST_F(SignedCompare, TrueBelowZeroGivesTheKeptValue126) {
  EXPECT_EQ(slt8(free(bv("a", 8)), valued(bv("b", 8), num(0, 8)), true), "");
  // 126 is not below 0: the negative rule of twos_complement, kept.
  EXPECT_EQ(twos_complement(QNumber(0L) - 1L, 8), QNumber(126L));
  EXPECT_EQ(constraints(), "((= a #x7e))");
}

TEST_F(SignedCompare, TrueBelowFiveGivesFour) {
  EXPECT_EQ(slt8(free(bv("a", 8)), valued(bv("b", 8), num(5, 8)), true), "");
  EXPECT_EQ(constraints(), "((= a #x04))");
}

TEST_F(SignedCompare, WidthOneBothFreeTrueGivesMinusOneBelowZero) {
  const Term* a = free(bv("a", 1));
  const Term* b = free(bv("b", 1));
  EXPECT_EQ(
      run<BVSltAdHocCalculator>(mgr.make_term(mgr.make_bv_slt_symbol(1), {a, b}), mgr.true_term()),
      "");
  EXPECT_EQ(constraints(), "((= a #b1) (= b #b0))");
}

TEST_F(SignedCompare, WidthOneBelowZeroPassesMinusOneToTheNumeral) {
  const Term* a = free(bv("a", 1));
  const Term* b = valued(bv("b", 1), num(0, 1));
  // pow2(0) = 1 differs from 0, so no refusal; twos_complement(-1, 1) = -1,
  // and the numeral of -1 at width 1 is #b1.
  EXPECT_EQ(twos_complement(QNumber(-1L), 1), QNumber(-1L));
  EXPECT_EQ(mgr.make_bv_number(QNumber(-1L), 1), num(1, 1));
  EXPECT_EQ(
      run<BVSltAdHocCalculator>(mgr.make_term(mgr.make_bv_slt_symbol(1), {a, b}), mgr.true_term()),
      "");
  EXPECT_EQ(constraints(), "((= a #b1))");
}

TEST_F(SignedCompare, SleFalseAboveZeroGivesTheKeptValueThroughTheDelegate) {
  for (std::size_t w : {2u, 4u, 8u}) {
    SCOPED_TRACE(w);
    TermManager m;
    ModelStore s(&m);
    SetFreeTermPredicate p;
    const Term* a = m.make_constant("a", m.bv_type(w));
    const Term* b = m.make_constant("b", m.bv_type(w));
    s.set_value(a, m.make_bv_number(0, w));
    p.mark_free(b);
    BVSleAdHocCalculator(&m, &s, &p)(m.make_term(m.make_bv_sle_symbol(w), {a, b}), m.false_term());
    ASSERT_EQ(s.constraints().size(), 1u);
    long kept = (1L << (w - 1)) - 2;
    EXPECT_EQ(s.constraints()[0], m.make_equal(b, m.make_bv_number(QNumber(kept), w)));
    // The delegate was asked b <s 0 := true.
    std::size_t count = m.term_count();
    m.make_term(m.make_bv_slt_symbol(w), {b, m.make_bv_number(0, w)});
    EXPECT_EQ(m.term_count(), count);
  }
}

TEST_F(SignedCompare, SltWidthComesFromTheFirstArgument) {
  // The slt symbol says 8; the first argument is 4 bits wide and wins.
  const Term* a = free(bv("a", 4));
  const Term* b = free(bv("b", 4));
  EXPECT_EQ(
      run<BVSltAdHocCalculator>(mgr.make_term(mgr.make_bv_slt_symbol(8), {a, b}), mgr.true_term()),
      "");
  EXPECT_EQ(constraints(), "((= a #x0) (= b #x1))");
}

TEST_F(SignedCompare, SleBuildsItsQuestionAtTheWidthOfItsSymbol) {
  const Term* a = valued(bv("a", 4), num(3, 4));
  const Term* b = free(bv("b", 4));
  EXPECT_EQ(
      run<BVSleAdHocCalculator>(mgr.make_term(mgr.make_bv_sle_symbol(8), {a, b}), mgr.true_term()),
      "");
  // The delegate reads its width from b, the first argument of b <s a.
  EXPECT_EQ(constraints(), "((= b #x3))");
  std::size_t count = mgr.term_count();
  mgr.make_term(mgr.make_bv_slt_symbol(8), {b, num(3, 4)});
  EXPECT_EQ(mgr.term_count(), count);
}

TEST_F(SignedCompare, SltRefusesTwoValuesBeforeReadingTheWidth) {
  // A first argument valued with a Boolean has no bit-vector width at all;
  // the refusal comes first.
  const Term* a = valued(bv("a", 8), mgr.true_term());
  const Term* b = valued(bv("b", 8), num(3, 8));
  EXPECT_EQ(slt8(a, b, true), kNotFreeMessage);
  EXPECT_EQ(constraints(), "()");
}

TEST_F(SignedCompare, SltRefusalAfterDefaultingKeepsTheDefault) {
  const Term* a = valued(bv("a", 8), num(3, 8));
  const Term* b = bv("b", 8);  // defaulted
  EXPECT_EQ(slt8(a, b, false), kNotFreeMessage);
  EXPECT_EQ(store.value_of(b), num(0, 8));
}

TEST_F(SignedCompare, SleRefusesTwoValuesItself) {
  const Term* a = valued(bv("a", 4), num(3, 4));
  const Term* b = valued(bv("b", 4), num(9, 4));
  const Term* t = mgr.make_term(mgr.make_bv_sle_symbol(4), {a, b});
  std::size_t before = mgr.term_count();
  EXPECT_EQ(run<BVSleAdHocCalculator>(t, mgr.false_term()), kNotFreeMessage);
  EXPECT_EQ(mgr.term_count(), before);
}

// --- Comp edge cases ------------------------------------------------------------------

class CompCalc : public CalculatorTest {
 protected:
  std::string comp(const Term* a, const Term* b, const Term* v) {
    std::size_t w = 0;
    mgr.is_bv_type(a->type(), &w);
    return run<BVCompAdHocCalculator>(mgr.make_term(mgr.make_bv_comp_symbol(w), {a, b}), v);
  }
};

TEST_F(CompCalc, WidthOneDifferentFromOneWrapsToZero) {
  EXPECT_EQ(comp(valued(bv("a", 1), num(1, 1)), free(bv("b", 1)), num(0, 1)), "");
  EXPECT_EQ(constraints(), "((= b #b0))");
}

TEST_F(CompCalc, WidthEightDifferentFromAllOnesWrapsToZero) {
  EXPECT_EQ(comp(free(bv("a", 8)), valued(bv("b", 8), num(255, 8)), num(0, 1)), "");
  EXPECT_EQ(constraints(), "((= a #x00))");
}

TEST_F(CompCalc, ZeroAndNonNumeralBothAskForDifference) {
  const Term* b = valued(bv("b", 4), num(6, 4));
  EXPECT_EQ(comp(free(bv("a", 4)), b, num(0, 1)), "");
  // A one-bit constant, even one whose model value is 1, is no numeral.
  const Term* v = valued(bv("v", 1), num(1, 1));
  EXPECT_EQ(comp(free(bv("c", 4)), b, v), "");
  EXPECT_EQ(constraints(), "((= a #x7) (= c #x7))");
}

TEST_F(CompCalc, EqualRecordsTheOtherNormalFormUnchanged) {
  // The other side normalises to a numeral that is recorded as it is.
  const Term* x = valued(bv("x", 4), num(2, 4));
  const Term* y = valued(bv("y", 4), num(3, 4));
  const Term* sum = mgr.make_term(mgr.make_bv_add_symbol(4), {x, y});
  const Term* a = free(bv("a", 4));
  const Term* t = mgr.make_term(mgr.make_bv_comp_symbol(4), {a, sum});
  const Term* five = num(5, 4);
  const Term* one = num(1, 1);
  ASSERT_EQ(store.get_normalized(sum), five);  // normal forms are cached
  std::size_t before = mgr.term_count();
  EXPECT_EQ(run<BVCompAdHocCalculator>(t, one), "");
  EXPECT_EQ(store.constraints().at(0), mgr.make_equal(a, five));
  EXPECT_EQ(mgr.term_count(), before + 1);  // only the equality is new

  // A value that is no numeral is recorded all the same.
  const Term* odd = mgr.make_abstract_value(7, mgr.bv_type(4));
  EXPECT_EQ(comp(valued(bv("c", 4), odd), free(bv("d", 4)), num(1, 1)), "");
  EXPECT_EQ(constraints(), "((= a #x5) (= d (as @7 (_ BitVec 4))))");
}

TEST_F(CompCalc, BothFree) {
  EXPECT_EQ(comp(free(bv("a", 8)), free(bv("b", 8)), num(1, 1)), "");
  EXPECT_EQ(comp(free(bv("c", 8)), free(bv("d", 8)), num(0, 1)), "");
  EXPECT_EQ(constraints(), "((= a #x00) (= b #x00) (= c #x01) (= d #x00))");
}

TEST_F(CompCalc, BothValuedThrowsAndKeepsDefaults) {
  const Term* b = bv("b", 4);  // defaulted
  EXPECT_EQ(comp(valued(bv("a", 4), num(1, 4)), b, num(1, 1)), kNotFreeMessage);
  EXPECT_EQ(store.value_of(b), num(0, 4));
  EXPECT_EQ(constraints(), "()");
}

}  // namespace
}  // namespace kora::test
