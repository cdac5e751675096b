// The multiplication calculator on wide vectors: the inverse of an odd
// operand comes from the extended Euclidean algorithm, whose steps update
// their numbers in place. A step must not allocate (every allocation of the
// binary is counted, GMP's while a test runs), so wide widths cost the
// arithmetic only; the value must be exactly c^-1 * v mod 2^w.
#include <gmpxx.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <sstream>

#include "kora/calculators/adhoc_calculator.h"
#include "kora/model/model_store.h"
#include "kora/numbers/qnumber.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"
#include "support/alloc_counting.h"
#include "support/term_helpers.h"

namespace kora {
namespace {

using test::mpz_mod2w;
using test::mpz_pow2;
using test::numeral_value;
using test::qnum;

// An odd w-bit constant as a script would build it: 22 squarings of 3.
mpz_class squared_seed(std::size_t w) {
  mpz_class a = 3;
  for (int i = 0; i < 22; ++i) a = mpz_mod2w(a * a, w);
  return a;
}

class MulInverse : public ::testing::Test {
 protected:
  void SetUp() override { alloc_counting::install_gmp_counters(); }
  void TearDown() override { alloc_counting::remove_gmp_counters(); }

  // Solves f * a = v at width w with a := c, f free, and returns f's value
  // and the allocations the call made (operator new, GMP).
  struct Result {
    mpz_class x;
    std::size_t news;
    std::size_t gmps;
  };
  static Result solve(std::size_t w, const mpz_class& c, const mpz_class& v, bool f_first) {
    TermManager mgr;
    std::ostringstream log;
    ModelStore store(&mgr, &log);
    adhoccalculator::SetFreeTermPredicate pred;
    const Term* f = mgr.make_constant("f", mgr.bv_type(w));
    const Term* a = mgr.make_constant("a", mgr.bv_type(w));
    store.set_value(a, mgr.make_bv_number(qnum(c), w));
    pred.mark_free(f);
    const Symbol* mul = mgr.make_bv_mul_symbol(w);
    const Term* t = f_first ? mgr.make_term(mul, {f, a}) : mgr.make_term(mul, {a, f});
    const Term* value = mgr.make_bv_number(qnum(v), w);
    adhoccalculator::BVMulAdHocCalculator calc(&mgr, &store, &pred);
    const std::size_t news = alloc_counting::g_new_calls;
    const std::size_t gmps = alloc_counting::g_gmp_calls;
    calc(t, value);
    Result r{0, alloc_counting::g_new_calls - news, alloc_counting::g_gmp_calls - gmps};
    r.x = *numeral_value(mgr, store.value_of(f));
    return r;
  }
};

TEST_F(MulInverse, WideInverseIsExactAndStepsDoNotAllocate) {
  constexpr std::size_t kWidth = std::size_t{1} << 16;
  const mpz_class c = squared_seed(kWidth);
  ASSERT_TRUE(mpz_odd_p(c.get_mpz_t()));
  const mpz_class v = mpz_pow2(kWidth) / 3 + 1;
  const Result r = solve(kWidth, c, v, true);
  mpz_class inverse;
  const mpz_class m = mpz_pow2(kWidth);
  ASSERT_NE(mpz_invert(inverse.get_mpz_t(), c.get_mpz_t(), m.get_mpz_t()), 0);
  EXPECT_EQ(r.x, mpz_mod2w(inverse * v, kWidth));
  EXPECT_EQ(mpz_mod2w(r.x * c, kWidth), v);
  // The algorithm takes tens of thousands of steps here (about 0.58 per
  // bit). Numbers are made once and their integers grow a limb at a time,
  // so the allocations are bounded by the width in limbs, not by the steps.
  const std::size_t limbs = kWidth / 64;
  EXPECT_LT(r.news, 200u);
  EXPECT_LT(r.gmps, 8 * limbs + 200);
}

TEST_F(MulInverse, EitherArgumentFreeGivesTheSameValue) {
  for (std::size_t w : {65u, 127u, 128u, 1000u, 4096u}) {
    const mpz_class c = squared_seed(w) | 1;
    const mpz_class v = mpz_pow2(w - 1) + 12345;
    const Result first = solve(w, c, v, true);
    const Result second = solve(w, c, v, false);
    EXPECT_EQ(mpz_mod2w(first.x * c, w), v) << "width " << w;
    EXPECT_EQ(first.x, second.x) << "width " << w;
  }
}

}  // namespace
}  // namespace kora
