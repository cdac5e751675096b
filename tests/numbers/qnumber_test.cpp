#include "kora/numbers/qnumber.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "kora/numbers/qnumber_internal.h"

namespace kora {
namespace {

constexpr long kMax = LONG_MAX;
constexpr long kMin = LONG_MIN;

mpz_class pow2z(unsigned long n) {
  mpz_class r;
  mpz_ui_pow_ui(r.get_mpz_t(), 2, n);
  return r;
}

mpq_class frac(const mpz_class& n, const mpz_class& d) {
  mpq_class r(n, d);
  r.canonicalize();
  return r;
}

// n/d in the small form whenever the reduced value fits two words.
QNumber q(long n, long d = 1) {
  QNumber r(n);
  r /= QNumber(d);
  return r;
}

// A big number (block) holding v, which may well fit the small form.
QNumber big_holding(const QNumber& v) {
  QNumber b(pow2z(100), mpz_class(1));
  b = v;
  return b;
}

QNumber big(const mpz_class& n, const mpz_class& d = 1) {
  QNumber r(n, d);
  if (r.is_small()) r = big_holding(r);
  return r;
}

// Value check plus the representation invariants of whichever form v has.
::testing::AssertionResult Is(const QNumber& v, const mpq_class& want) {
  if (v.is_small()) {
    const std::int64_t n = v.small_num();
    const std::int64_t d = v.small_den();
    if (n == INT64_MIN || d == INT64_MIN || d <= 0)
      return ::testing::AssertionFailure() << "bad small words " << n << "/" << d;
    if (n == 0 && d != 1) return ::testing::AssertionFailure() << "zero over " << d;
  } else {
    const mpz_class n = v.numerator();
    const mpz_class d = v.denominator();
    if (sgn(d) <= 0) return ::testing::AssertionFailure() << "non-positive big denominator";
    if (gcd(n, d) != 1) return ::testing::AssertionFailure() << "big form not reduced";
  }
  if (v.to_mpq() != want)
    return ::testing::AssertionFailure() << "value " << v << " expected " << want.get_str();
  return ::testing::AssertionSuccess();
}

// ---------------------------------------------------------------------------
// Edge cases

TEST(QNumberEdge, MaxPlusOneAndMinPlusOneMinusOneBecomeBig) {
  QNumber a(kMax);
  ASSERT_TRUE(a.is_small());
  a += QNumber(1);
  EXPECT_FALSE(a.is_small());
  EXPECT_TRUE(Is(a, mpq_class(pow2z(63))));

  QNumber b(-kMax);
  ASSERT_TRUE(b.is_small());
  b -= QNumber(1);
  EXPECT_FALSE(b.is_small());
  EXPECT_TRUE(Is(b, mpq_class(-pow2z(63))));

  // The long forms take the same path.
  const QNumber c = QNumber(kMax) + 1L;
  EXPECT_FALSE(c.is_small());
  EXPECT_TRUE(Is(c, mpq_class(pow2z(63))));
  const QNumber d = QNumber(-kMax) - 1L;
  EXPECT_FALSE(d.is_small());
  EXPECT_TRUE(Is(d, mpq_class(-pow2z(63))));

  // One less stays small.
  const QNumber e = QNumber(kMax - 1) + 1L;
  EXPECT_TRUE(e.is_small());
  EXPECT_EQ(e.small_num(), kMax);
  const QNumber f = QNumber(-kMax + 1) - 1L;
  EXPECT_TRUE(f.is_small());
  EXPECT_EQ(f.small_num(), -kMax);
}

TEST(QNumberEdge, LongMinAndGmpTwoToTheFortyAreBig) {
  const QNumber m(kMin);
  EXPECT_FALSE(m.is_small());
  EXPECT_TRUE(Is(m, mpq_class(-pow2z(63))));

  const QNumber p(pow2z(40), mpz_class(1));
  EXPECT_FALSE(p.is_small());
  EXPECT_TRUE(Is(p, mpq_class(pow2z(40))));

  // The 32-bit limit of the two-integer constructor, on both words.
  EXPECT_TRUE(QNumber(mpz_class(INT_MAX), mpz_class(1)).is_small());
  EXPECT_TRUE(QNumber(mpz_class(INT_MIN), mpz_class(1)).is_small());
  EXPECT_FALSE(QNumber(mpz_class(static_cast<long>(INT_MAX) + 1), mpz_class(1)).is_small());
  EXPECT_FALSE(QNumber(mpz_class(static_cast<long>(INT_MIN) - 1), mpz_class(1)).is_small());
  EXPECT_FALSE(QNumber(mpz_class(1), mpz_class(static_cast<long>(INT_MAX) + 1)).is_small());
  const QNumber reducible(mpz_class(static_cast<long>(INT_MAX) + 1), mpz_class(2));
  EXPECT_FALSE(reducible.is_small());
  EXPECT_TRUE(Is(reducible, mpq_class(pow2z(30))));
}

TEST(QNumberEdge, ZeroTimesThreeHalvesAndThirdsSumNormalise) {
  QNumber z(0);
  z *= q(3, 2);
  EXPECT_TRUE(z.is_small());
  EXPECT_EQ(z.small_num(), 0);
  EXPECT_EQ(z.small_den(), 1);

  QNumber h = q(3, 2);
  h *= QNumber(0);
  EXPECT_TRUE(h.is_small());
  EXPECT_EQ(h.small_num(), 0);
  EXPECT_EQ(h.small_den(), 1);

  const QNumber s = q(1, 3) + q(2, 3);
  EXPECT_TRUE(s.is_small());
  EXPECT_EQ(s.small_num(), 1);
  EXPECT_EQ(s.small_den(), 1);
  EXPECT_TRUE(s.is_integer());
}

TEST(QNumberEdge, BigFiveEqualsAndComparesWithSmallFive) {
  const QNumber b5 = big_holding(QNumber(5));
  const QNumber s5(5);
  ASSERT_FALSE(b5.is_small());
  ASSERT_TRUE(s5.is_small());
  EXPECT_TRUE(b5 == s5);
  EXPECT_TRUE(s5 == b5);
  EXPECT_FALSE(b5 != s5);
  EXPECT_FALSE(b5 < s5);
  EXPECT_FALSE(s5 < b5);
  EXPECT_FALSE(b5 < 5L);
  EXPECT_TRUE(b5 < 6L);
  EXPECT_FALSE(b5 < 4L);
  EXPECT_TRUE(QNumber(4) < b5);
  EXPECT_TRUE(b5 < QNumber(6));
  EXPECT_FALSE(b5 == QNumber(6));
  EXPECT_TRUE(q(9, 2) < b5);
  EXPECT_TRUE(b5 < q(11, 2));
}

TEST(QNumberEdge, BigNonIntegerTimesZeroIsSmallBigIntegerStaysBig) {
  QNumber frac_big = big(mpz_class(1), pow2z(70));
  ASSERT_FALSE(frac_big.is_small());
  frac_big *= QNumber(0);
  EXPECT_TRUE(frac_big.is_small());
  EXPECT_EQ(frac_big.small_num(), 0);
  EXPECT_EQ(frac_big.small_den(), 1);

  QNumber int_big = big(pow2z(70));
  int_big *= QNumber(0);
  EXPECT_FALSE(int_big.is_small());
  EXPECT_TRUE(Is(int_big, mpq_class(0)));
  EXPECT_EQ(int_big.denominator(), 1);

  // A big zero is a big integer: it stays big as well.
  QNumber zero_big = big_holding(QNumber(0));
  zero_big *= QNumber(0);
  EXPECT_FALSE(zero_big.is_small());
  EXPECT_TRUE(Is(zero_big, mpq_class(0)));
}

TEST(QNumberEdge, DivmodMinusSevenByTwoRoundsPerPath) {
  QNumber qt, rt;
  QNumber(-7).divmod(QNumber(2), qt, rt);
  EXPECT_TRUE(qt.is_small());
  EXPECT_TRUE(rt.is_small());
  EXPECT_TRUE(Is(qt, mpq_class(-3)));
  EXPECT_TRUE(Is(rt, mpq_class(-1)));

  const QNumber big_dividend = big_holding(QNumber(-7));
  const QNumber big_divisor = big_holding(QNumber(2));
  for (int which = 0; which < 3; ++which) {
    const QNumber& a = which == 1 ? QNumber(-7) : big_dividend;
    const QNumber& b = which == 0 ? QNumber(2) : big_divisor;
    QNumber qf, rf;
    a.divmod(b, qf, rf);
    EXPECT_FALSE(qf.is_small()) << which;
    EXPECT_FALSE(rf.is_small()) << which;
    EXPECT_TRUE(Is(qf, mpq_class(-4))) << which;
    EXPECT_TRUE(Is(rf, mpq_class(1))) << which;
  }
}

TEST(QNumberEdge, Pow2SixtyOneAndSixtyTwoSmallSixtyThreeBig) {
  QNumber p;
  BVNumber::pow2(61, &p);
  EXPECT_TRUE(p.is_small());
  EXPECT_TRUE(Is(p, mpq_class(pow2z(61))));
  BVNumber::pow2(62, &p);
  EXPECT_TRUE(p.is_small());
  EXPECT_TRUE(Is(p, mpq_class(pow2z(62))));
  BVNumber::pow2(63, &p);
  EXPECT_FALSE(p.is_small());
  EXPECT_TRUE(Is(p, mpq_class(pow2z(63))));
}

// ---------------------------------------------------------------------------
// Construction, copying, assignment

TEST(QNumberConstruct, DefaultAndLong) {
  const QNumber z;
  EXPECT_TRUE(z.is_small());
  EXPECT_EQ(z.small_num(), 0);
  EXPECT_EQ(z.small_den(), 1);
  for (long v : {0L, 1L, -1L, kMax, -kMax, 1L << 40}) {
    const QNumber x(v);
    EXPECT_TRUE(x.is_small()) << v;
    EXPECT_EQ(x.small_num(), v);
    EXPECT_EQ(x.small_den(), 1);
  }
}

TEST(QNumberConstruct, TwoIntegersNormalise) {
  const QNumber a(mpz_class(6), mpz_class(-4));
  EXPECT_TRUE(a.is_small());
  EXPECT_EQ(a.small_num(), -3);
  EXPECT_EQ(a.small_den(), 2);

  const QNumber z(mpz_class(0), mpz_class(-17));
  EXPECT_TRUE(z.is_small());
  EXPECT_EQ(z.small_den(), 1);

  const QNumber b(3 * pow2z(40), -6 * pow2z(40));
  EXPECT_FALSE(b.is_small());
  EXPECT_TRUE(Is(b, mpq_class(-1, 2)));

  const QNumber bz(mpz_class(0), pow2z(80));
  EXPECT_FALSE(bz.is_small());
  EXPECT_TRUE(Is(bz, mpq_class(0)));
  EXPECT_EQ(bz.denominator(), 1);

  const QNumber neg_den(pow2z(70), mpz_class(-1));
  EXPECT_TRUE(Is(neg_den, mpq_class(-pow2z(70))));

  EXPECT_THROW(QNumber(mpz_class(1), mpz_class(0)), std::domain_error);
}

TEST(QNumberConstruct, SingleInteger) {
  const QNumber a(pow2z(40));
  EXPECT_TRUE(a.is_small());
  EXPECT_EQ(a.small_num(), 1L << 40);
  const QNumber m{mpz_class(-kMax)};
  EXPECT_TRUE(m.is_small());
  const QNumber lm{mpz_class(kMin)};
  EXPECT_FALSE(lm.is_small());
  EXPECT_TRUE(Is(lm, mpq_class(-pow2z(63))));
  const QNumber huge(pow2z(64) + 1);
  EXPECT_FALSE(huge.is_small());
  EXPECT_TRUE(Is(huge, mpq_class(pow2z(64) + 1)));
}

TEST(QNumberCopy, CopyOfBigIsIndependent) {
  const QNumber a = big(pow2z(90) + 3, mpz_class(7));
  QNumber b(a);
  EXPECT_FALSE(b.is_small());
  EXPECT_NE(b.small_num(), a.small_num());  // separate blocks
  b += QNumber(1);
  EXPECT_TRUE(Is(a, frac(pow2z(90) + 3, 7)));
  EXPECT_TRUE(Is(b, frac(pow2z(90) + 10, 7)));

  const QNumber s = q(-5, 3);
  const QNumber t(s);
  EXPECT_TRUE(t.is_small());
  EXPECT_TRUE(t == s);
}

TEST(QNumberMove, SourceBecomesSmallZero) {
  QNumber a = big(pow2z(80));
  const std::int64_t block = a.small_num();
  QNumber b(std::move(a));
  EXPECT_FALSE(b.is_small());
  EXPECT_EQ(b.small_num(), block);  // the block moved, nothing was copied
  EXPECT_TRUE(Is(b, mpq_class(pow2z(80))));
  EXPECT_TRUE(a.is_small());  // NOLINT(bugprone-use-after-move): a moved-from number is a valid 0
  EXPECT_EQ(a.small_num(), 0);
  EXPECT_EQ(a.small_den(), 1);
  a += QNumber(3);  // still usable
  EXPECT_TRUE(Is(a, mpq_class(3)));

  QNumber c = q(2, 3);
  QNumber d(std::move(c));
  EXPECT_TRUE(Is(d, mpq_class(2, 3)));
  EXPECT_TRUE(Is(c, mpq_class(0)));  // NOLINT(bugprone-use-after-move)
}

TEST(QNumberAssign, FormRules) {
  // small into small: small
  QNumber s(1);
  s = q(7, 9);
  EXPECT_TRUE(s.is_small());
  EXPECT_TRUE(Is(s, mpq_class(7, 9)));

  // small into big: the block is reused and the target stays big
  QNumber b = big(pow2z(70));
  const std::int64_t block = b.small_num();
  const QNumber seven_ninths = q(7, 9);
  b = seven_ninths;
  EXPECT_FALSE(b.is_small());
  EXPECT_EQ(b.small_num(), block);
  EXPECT_TRUE(Is(b, mpq_class(7, 9)));

  // big into small: a new block
  QNumber t(4);
  const QNumber src = big(pow2z(75), mpz_class(3));
  t = src;
  EXPECT_FALSE(t.is_small());
  EXPECT_NE(t.small_num(), src.small_num());
  EXPECT_TRUE(Is(t, frac(pow2z(75), 3)));

  // big into big: the target's block is reused
  QNumber u = big(pow2z(66));
  const std::int64_t ublock = u.small_num();
  u = src;
  EXPECT_EQ(u.small_num(), ublock);
  EXPECT_TRUE(Is(u, frac(pow2z(75), 3)));

  // self-assignment
  QNumber& alias = u;
  u = alias;
  EXPECT_TRUE(Is(u, frac(pow2z(75), 3)));
}

TEST(QNumberAssign, MoveAssignKeepsTheSameForms) {
  QNumber b = big(pow2z(70));
  b = q(-1, 2);
  EXPECT_FALSE(b.is_small());
  EXPECT_TRUE(Is(b, mpq_class(-1, 2)));

  QNumber s(3);
  QNumber src = big(pow2z(65));
  const std::int64_t block = src.small_num();
  s = std::move(src);
  EXPECT_FALSE(s.is_small());
  EXPECT_EQ(s.small_num(), block);
  EXPECT_TRUE(Is(s, mpq_class(pow2z(65))));
  EXPECT_TRUE(Is(src, mpq_class(0)));  // NOLINT(bugprone-use-after-move)

  QNumber x = big(pow2z(67));
  QNumber y = big(pow2z(68));
  x = std::move(y);
  EXPECT_TRUE(Is(x, mpq_class(pow2z(68))));

  QNumber plain(8);
  plain = QNumber(9);
  EXPECT_TRUE(plain.is_small());
  EXPECT_TRUE(Is(plain, mpq_class(9)));
}

// ---------------------------------------------------------------------------
// Arithmetic

TEST(QNumberAdd, SmallFractions) {
  EXPECT_TRUE(Is(q(1, 2) + q(1, 3), mpq_class(5, 6)));
  EXPECT_TRUE(Is(q(1, 6) + q(1, 10), mpq_class(4, 15)));
  EXPECT_TRUE(Is(q(-1, 6) + q(1, 6), mpq_class(0)));
  EXPECT_TRUE(Is(q(5) + q(1, 7), mpq_class(36, 7)));
  const QNumber r = q(1, 4) + q(3, 4);
  EXPECT_TRUE(r.is_small());
  EXPECT_EQ(r.small_den(), 1);
}

TEST(QNumberAdd, OverflowFallsBackExactly) {
  // a*d' overflows although the result would be small.
  const QNumber a = q(kMax, 2);
  const QNumber b = q(1, 3);
  const QNumber s = a + b;
  EXPECT_TRUE(Is(s, mpq_class(mpz_class(kMax), 2) + mpq_class(1, 3)));

  const QNumber x = q(kMax, 3) + q(kMax, 5);
  EXPECT_FALSE(x.is_small());
  EXPECT_TRUE(Is(x, frac(8 * mpz_class(kMax), 15)));

  // The sum of exactly -2^63 is not kept small.
  const QNumber m = QNumber(-(1L << 62)) + QNumber(-(1L << 62));
  EXPECT_FALSE(m.is_small());
  EXPECT_TRUE(Is(m, mpq_class(-pow2z(63))));
  // Opposite signs never overflow.
  const QNumber o = QNumber(kMax) + QNumber(-kMax);
  EXPECT_TRUE(o.is_small());
  EXPECT_TRUE(Is(o, mpq_class(0)));
}

TEST(QNumberAdd, MixedAndBig) {
  const QNumber b = big(pow2z(70), mpz_class(3));
  EXPECT_TRUE(Is(b + q(1, 3), frac(pow2z(70) + 1, 3)));
  EXPECT_TRUE(Is(q(1, 3) + b, frac(pow2z(70) + 1, 3)));
  EXPECT_TRUE(Is(b + b, frac(pow2z(71), 3)));
  EXPECT_TRUE(Is(b + QNumber(-5), frac(pow2z(70) - 15, 3)));
  const QNumber i = big(pow2z(70));
  EXPECT_TRUE(Is(i + QNumber(-7), mpq_class(pow2z(70) - 7)));
  EXPECT_TRUE(Is(i + big(-pow2z(70)), mpq_class(0)));
  // Denominators that share factors.
  const QNumber c = big(mpz_class(1), pow2z(70));
  const QNumber s = c + c;
  EXPECT_TRUE(Is(s, frac(1, pow2z(69))));
  EXPECT_TRUE(Is(c + q(1, 6), frac(1, pow2z(70)) + mpq_class(1, 6)));
  // A big result holding a small value stays big.
  const QNumber back = i + big(1 - pow2z(70));
  EXPECT_FALSE(back.is_small());
  EXPECT_TRUE(Is(back, mpq_class(1)));
}

TEST(QNumberSub, SmallAndBig) {
  EXPECT_TRUE(Is(q(1, 2) - q(1, 3), mpq_class(1, 6)));
  EXPECT_TRUE(Is(QNumber(3) - QNumber(10), mpq_class(-7)));
  EXPECT_TRUE(Is(QNumber(-kMax) - QNumber(kMax), mpq_class(-2 * mpz_class(kMax))));
  const QNumber b = big(pow2z(70), mpz_class(3));
  EXPECT_TRUE(Is(b - q(1, 3), frac(pow2z(70) - 1, 3)));
  EXPECT_TRUE(Is(q(1, 3) - b, frac(1 - pow2z(70), 3)));
  EXPECT_TRUE(Is(b - big(pow2z(69), mpz_class(5)), frac(pow2z(70), 3) - frac(pow2z(69), 5)));
  EXPECT_TRUE(Is(big(pow2z(70)) - QNumber(-1), mpq_class(pow2z(70) + 1)));
  EXPECT_TRUE(Is(big(pow2z(70)) - QNumber(1), mpq_class(pow2z(70) - 1)));
}

TEST(QNumberMul, SmallAndOverflow) {
  EXPECT_TRUE(Is(q(2, 3) * q(9, 4), mpq_class(3, 2)));
  EXPECT_TRUE(Is(q(-2, 3) * q(3, 2), mpq_class(-1)));
  EXPECT_TRUE(Is(QNumber(-6) * QNumber(7), mpq_class(-42)));

  const QNumber m = QNumber(-(1L << 62)) * QNumber(2);
  EXPECT_FALSE(m.is_small());
  EXPECT_TRUE(Is(m, mpq_class(-pow2z(63))));

  const QNumber p = QNumber(3037000499L) * QNumber(3037000499L);  // just below 2^63
  EXPECT_TRUE(p.is_small());
  const QNumber p2 = QNumber(3037000500L) * QNumber(3037000500L);  // just above
  EXPECT_FALSE(p2.is_small());
  EXPECT_TRUE(Is(p2, mpq_class(mpz_class(3037000500L) * 3037000500L)));

  // Cross cancellation keeps a fitting result small.
  const QNumber c = q(kMax, 3) * q(3, kMax);
  EXPECT_TRUE(c.is_small());
  EXPECT_TRUE(Is(c, mpq_class(1)));
  const QNumber f = q(1, 1L << 40) * q(1, 1L << 30);
  EXPECT_FALSE(f.is_small());
  EXPECT_TRUE(Is(f, frac(1, pow2z(70))));
}

TEST(QNumberMul, Big) {
  const QNumber b = big(pow2z(70), mpz_class(9));
  EXPECT_TRUE(Is(b * q(3, 2), frac(pow2z(69), 3)));
  EXPECT_TRUE(Is(q(3, 2) * b, frac(pow2z(69), 3)));
  EXPECT_TRUE(Is(b * QNumber(-9), mpq_class(-pow2z(70))));
  EXPECT_TRUE(Is(b * big(mpz_class(9), pow2z(70)), mpq_class(1)));
  EXPECT_TRUE(Is(big(pow2z(70)) * QNumber(-3), mpq_class(-3 * pow2z(70))));
  EXPECT_TRUE(Is(big(pow2z(70)) * big(-pow2z(70)), mpq_class(-pow2z(140))));
  const QNumber z = big(pow2z(70)) * big_holding(QNumber(0));
  EXPECT_FALSE(z.is_small());
  EXPECT_TRUE(Is(z, mpq_class(0)));
  const QNumber zf = big(mpz_class(1), pow2z(70)) * big_holding(QNumber(0));
  EXPECT_TRUE(Is(zf, mpq_class(0)));
}

TEST(QNumberSubMul, SmallOverflowBigAndFractions) {
  // Small integers stay small.
  QNumber a(100);
  a.sub_mul(QNumber(7), QNumber(-3));
  EXPECT_TRUE(Is(a, 121));
  EXPECT_TRUE(a.is_small());
  // The product overflows a word; the difference still fits the big form.
  QNumber b(5);
  b.sub_mul(QNumber(kMax), QNumber(4));
  EXPECT_TRUE(Is(b, mpq_class(mpz_class(5) - mpz_class(kMax) * 4)));
  // The difference overflows though the product fits.
  QNumber c(kMin + 1);
  c.sub_mul(QNumber(kMax / 2), QNumber(2));
  EXPECT_TRUE(Is(c, mpq_class(mpz_class(kMin + 1) - mpz_class(kMax / 2) * 2)));
  // Big operands, in every position.
  const mpz_class x = pow2z(130) + 7;
  const mpz_class y = pow2z(70) - 1;
  QNumber d = big(x);
  d.sub_mul(big(y), QNumber(-9));
  EXPECT_TRUE(Is(d, mpq_class(x + y * 9)));
  QNumber e(3);
  e.sub_mul(QNumber(-2), big(y));
  EXPECT_TRUE(Is(e, mpq_class(3 + 2 * y)));
  QNumber f = big(x);
  f.sub_mul(big(y), big(x));
  EXPECT_TRUE(Is(f, mpq_class(x - y * x)));
  // Fractions take the product, then the difference.
  QNumber g = q(1, 2);
  g.sub_mul(q(1, 3), QNumber(3));
  EXPECT_TRUE(Is(g, frac(-1, 2)));
  QNumber h(1);
  h.sub_mul(q(2, 3), q(3, 4));
  EXPECT_TRUE(Is(h, frac(1, 2)));
}

TEST(QNumberSubMul, AliasedOperands) {
  QNumber a(6);
  a.sub_mul(a, a);  // 6 - 36
  EXPECT_TRUE(Is(a, -30));
  QNumber b(kMax);
  b.sub_mul(b, QNumber(2));  // overflow with this as a factor
  EXPECT_TRUE(Is(b, mpq_class(-mpz_class(kMax))));
  const mpz_class x = pow2z(90) + 1;
  QNumber c = big(x);
  c.sub_mul(c, c);
  EXPECT_TRUE(Is(c, mpq_class(x - x * x)));
}

TEST(QNumberSwap, ExchangesBothForms) {
  const mpz_class x = pow2z(100) + 3;
  QNumber a(5);
  QNumber b = big(x);
  a.swap(b);
  EXPECT_TRUE(Is(a, mpq_class(x)));
  EXPECT_FALSE(a.is_small());
  EXPECT_TRUE(Is(b, 5));
  EXPECT_TRUE(b.is_small());
  QNumber c = q(2, 7);
  c.swap(c);
  EXPECT_TRUE(Is(c, frac(2, 7)));
}

TEST(QNumberDiv, SmallBigAndZero) {
  QNumber a = q(3, 4);
  a /= q(-3, 8);
  EXPECT_TRUE(a.is_small());
  EXPECT_TRUE(Is(a, mpq_class(-2)));

  QNumber b(7);
  b /= big(pow2z(70), mpz_class(-3));
  EXPECT_FALSE(b.is_small());
  EXPECT_TRUE(Is(b, frac(-21, pow2z(70))));

  QNumber c = big(pow2z(70));
  c /= QNumber(1L << 35);
  EXPECT_FALSE(c.is_small());
  EXPECT_TRUE(Is(c, mpq_class(pow2z(35))));

  QNumber d(1);
  d /= QNumber(kMin);
  EXPECT_TRUE(Is(d, frac(-1, pow2z(63))));

  QNumber e(5);
  EXPECT_THROW(e /= QNumber(0), std::domain_error);
  EXPECT_THROW(e /= big_holding(QNumber(0)), std::domain_error);
  EXPECT_TRUE(Is(e, mpq_class(5)));
}

TEST(QNumberLongForms, AllSix) {
  EXPECT_TRUE(Is(q(1, 2) + 3L, mpq_class(7, 2)));
  EXPECT_TRUE(Is(q(1, 2) - 3L, mpq_class(-5, 2)));
  EXPECT_TRUE(Is(q(1, 2) / 3L, mpq_class(1, 6)));
  EXPECT_TRUE(Is(q(1, 2) / -3L, mpq_class(-1, 6)));
  QNumber x(10);
  x += 5L;
  EXPECT_TRUE(Is(x, mpq_class(15)));
  x -= 20L;
  EXPECT_TRUE(Is(x, mpq_class(-5)));
  x /= 10L;
  EXPECT_TRUE(Is(x, mpq_class(-1, 2)));

  // LONG_MIN converts to the big form, so the result is big.
  QNumber y(1);
  y += kMin;
  EXPECT_FALSE(y.is_small());
  EXPECT_TRUE(Is(y, mpq_class(1 - pow2z(63))));
  const QNumber w = QNumber(0) - kMin;
  EXPECT_TRUE(Is(w, mpq_class(pow2z(63))));
  const QNumber v = QNumber(kMin) / kMin;
  EXPECT_TRUE(Is(v, mpq_class(1)));
  EXPECT_TRUE(QNumber(5) < kMax);
  EXPECT_FALSE(QNumber(5) < kMin);
  EXPECT_TRUE(QNumber(kMin) < -kMax);
}

TEST(QNumberCompare, SignsFractionsAndFallback) {
  EXPECT_TRUE(QNumber(-1) < QNumber(0));
  EXPECT_FALSE(QNumber(0) < QNumber(0));
  EXPECT_FALSE(QNumber(0) < QNumber(-1));
  EXPECT_TRUE(QNumber(0) < q(1, 5));
  EXPECT_TRUE(q(1, 3) < q(1, 2));
  EXPECT_FALSE(q(1, 2) < q(1, 3));
  EXPECT_TRUE(q(-1, 2) < q(-1, 3));
  EXPECT_FALSE(q(2, 4) < q(1, 2));
  EXPECT_TRUE(q(-7, 3) < -2L);
  EXPECT_FALSE(q(-5, 3) < -2L);
  // Cross products that need more than a word.
  const QNumber a = q(kMax - 2, kMax - 1);
  const QNumber b = q(kMax - 1, kMax);
  EXPECT_TRUE(a < b);
  EXPECT_FALSE(b < a);
  const QNumber c = q(-(kMax - 2), kMax - 1);
  const QNumber d = q(-(kMax - 1), kMax);
  EXPECT_TRUE(d < c);
  EXPECT_FALSE(c < d);
  const QNumber e = q(kMax, kMax - 1);      // 1 + 1/(2^63-2)
  const QNumber f = q(kMax - 1, kMax - 2);  // 1 + 1/(2^63-3)
  EXPECT_TRUE(e < f);
  EXPECT_FALSE(f < e);
  // Big operands on either side.
  const QNumber big_half = big(pow2z(69), pow2z(70) + 1);  // just under 1/2
  EXPECT_TRUE(big_half < q(1, 2));
  EXPECT_FALSE(q(1, 2) < big_half);
  EXPECT_TRUE(q(-1, 2) < big_half);
  EXPECT_TRUE(big(-pow2z(70)) < QNumber(kMin));
  EXPECT_TRUE(QNumber(kMax) < big(pow2z(63)));
  EXPECT_TRUE(big(pow2z(63)) < big(pow2z(63) + 1));
  EXPECT_FALSE(big(pow2z(63)) < big(pow2z(63)));
}

TEST(QNumberEquality, AcrossForms) {
  EXPECT_TRUE(q(2, 4) == q(1, 2));
  EXPECT_FALSE(q(1, 2) == q(1, 3));
  EXPECT_TRUE(q(1, 2) != q(-1, 2));
  EXPECT_TRUE(big_holding(q(1, 2)) == q(1, 2));
  EXPECT_TRUE(q(1, 2) == big_holding(q(1, 2)));
  EXPECT_FALSE(big_holding(q(1, 2)) == q(1, 4));
  EXPECT_FALSE(big_holding(q(1, 3)) == q(1, 5));
  EXPECT_FALSE(q(1, 5) == big_holding(q(1, 3)));
  EXPECT_FALSE(big_holding(q(1, 3)) == big_holding(q(1, 5)));
  EXPECT_TRUE(big_holding(q(-3, 2)) == big_holding(q(-3, 2)));
  EXPECT_TRUE(big(pow2z(70), 3) == big(pow2z(70), 3));
  EXPECT_FALSE(big(pow2z(70), 3) == big(pow2z(70), 5));
  EXPECT_FALSE(big(pow2z(70), 3) == QNumber(3));
}

TEST(QNumberDivmod, PathsAndTargets) {
  QNumber qt, rt;
  QNumber(17).divmod(QNumber(5), qt, rt);
  EXPECT_TRUE(Is(qt, mpq_class(3)));
  EXPECT_TRUE(Is(rt, mpq_class(2)));
  QNumber(7).divmod(QNumber(-2), qt, rt);  // truncating on the small path
  EXPECT_TRUE(Is(qt, mpq_class(-3)));
  EXPECT_TRUE(Is(rt, mpq_class(1)));
  QNumber(-kMax).divmod(QNumber(-1), qt, rt);
  EXPECT_TRUE(Is(qt, mpq_class(mpz_class(kMax))));
  EXPECT_TRUE(Is(rt, mpq_class(0)));

  // Big path: floor, remainder with the sign of the divisor.
  QNumber qb, rb;
  big(pow2z(70) + 5).divmod(QNumber(1L << 35), qb, rb);
  EXPECT_TRUE(Is(qb, mpq_class(pow2z(35))));
  EXPECT_TRUE(Is(rb, mpq_class(5)));
  QNumber(7).divmod(big_holding(QNumber(-2)), qb, rb);
  EXPECT_TRUE(Is(qb, mpq_class(-4)));
  EXPECT_TRUE(Is(rb, mpq_class(-1)));

  // Targets that are already big keep their blocks on the small path.
  QNumber qbig = big(pow2z(80));
  QNumber rbig = big(pow2z(81));
  const std::int64_t qblock = qbig.small_num();
  QNumber(23).divmod(QNumber(4), qbig, rbig);
  EXPECT_FALSE(qbig.is_small());
  EXPECT_FALSE(rbig.is_small());
  EXPECT_EQ(qbig.small_num(), qblock);
  EXPECT_TRUE(Is(qbig, mpq_class(5)));
  EXPECT_TRUE(Is(rbig, mpq_class(3)));

  // The quotient may be the dividend or the divisor itself.
  QNumber x(100);
  QNumber r;
  x.divmod(QNumber(7), x, r);
  EXPECT_TRUE(Is(x, mpq_class(14)));
  EXPECT_TRUE(Is(r, mpq_class(2)));
  QNumber y = big(pow2z(70));
  QNumber dv(1L << 40);
  y.divmod(dv, dv, y);
  EXPECT_TRUE(Is(dv, mpq_class(pow2z(30))));
  EXPECT_TRUE(Is(y, mpq_class(0)));

  EXPECT_THROW(QNumber(1).divmod(QNumber(0), qt, rt), std::domain_error);
  EXPECT_THROW(big(pow2z(70)).divmod(QNumber(0), qt, rt), std::domain_error);
}

TEST(QNumberPow2, RangeAndTargets) {
  for (unsigned long n = 0; n <= 130; ++n) {
    QNumber p(-3);
    BVNumber::pow2(n, &p);
    EXPECT_EQ(p.is_small(), n <= 62) << n;
    EXPECT_TRUE(Is(p, mpq_class(pow2z(n)))) << n;
  }
  // A big out is written in place and stays big.
  QNumber b = big(pow2z(90));
  const std::int64_t block = b.small_num();
  BVNumber::pow2(5, &b);
  EXPECT_FALSE(b.is_small());
  EXPECT_EQ(b.small_num(), block);
  EXPECT_TRUE(Is(b, mpq_class(32)));
  BVNumber::pow2(62, &b);
  EXPECT_FALSE(b.is_small());
  EXPECT_TRUE(Is(b, mpq_class(pow2z(62))));
  BVNumber::pow2(200, &b);
  EXPECT_TRUE(Is(b, mpq_class(pow2z(200))));
}

TEST(QNumberNormalize, AlreadyNormalisedIsUnchanged) {
  QNumber a = q(-6, 4);
  a.normalize();
  EXPECT_TRUE(Is(a, mpq_class(-3, 2)));
  QNumber b = big(pow2z(70), mpz_class(-3));
  b.normalize();
  EXPECT_TRUE(Is(b, frac(-pow2z(70), 3)));
  QNumber z = big_holding(QNumber(0));
  z.normalize();
  EXPECT_TRUE(Is(z, mpq_class(0)));
}

TEST(QNumberQueries, IntegerSignParts) {
  EXPECT_TRUE(QNumber(4).is_integer());
  EXPECT_FALSE(q(1, 4).is_integer());
  EXPECT_TRUE(big(pow2z(70)).is_integer());
  EXPECT_FALSE(big(mpz_class(1), pow2z(70)).is_integer());
  EXPECT_EQ(QNumber(0).sign(), 0);
  EXPECT_EQ(q(-1, 4).sign(), -1);
  EXPECT_EQ(QNumber(9).sign(), 1);
  EXPECT_EQ(big(-pow2z(70)).sign(), -1);
  EXPECT_EQ(big_holding(QNumber(0)).sign(), 0);
  EXPECT_EQ(q(-3, 8).numerator(), -3);
  EXPECT_EQ(q(-3, 8).denominator(), 8);
  EXPECT_EQ(big(pow2z(70), mpz_class(3)).numerator(), pow2z(70));
  EXPECT_EQ(big(pow2z(70), mpz_class(3)).denominator(), 3);
  EXPECT_EQ(q(-3, 8).to_mpq(), mpq_class(-3, 8));
}

TEST(QNumberToString, SmallBigAndStream) {
  EXPECT_EQ(QNumber(0).to_string(), "0");
  EXPECT_EQ(QNumber(-5).to_string(), "-5");
  EXPECT_EQ(q(3, 4).to_string(), "3/4");
  EXPECT_EQ(q(-3, 4).to_string(), "-3/4");
  EXPECT_EQ(QNumber(kMax).to_string(), "9223372036854775807");
  EXPECT_EQ(QNumber(kMin).to_string(), "-9223372036854775808");
  EXPECT_EQ(big(pow2z(64)).to_string(), "18446744073709551616");
  EXPECT_EQ(big(mpz_class(-1), pow2z(64)).to_string(), "-1/18446744073709551616");
  EXPECT_EQ(big_holding(QNumber(7)).to_string(), "7");
  EXPECT_EQ(big_holding(q(9, 10)).to_string(), "9/10");
  EXPECT_EQ(big(pow2z(10) * 1000, mpz_class(1)).to_string(), "1024000");
  for (unsigned long n = 60; n < 70; ++n) {
    mpz_class p = pow2z(n) - 1;
    EXPECT_EQ(QNumber(p).to_string(), p.get_str());
  }
  std::ostringstream os;
  os << q(-7, 2) << ' ' << big(pow2z(65));
  EXPECT_EQ(os.str(), "-7/2 36893488147419103232");
}

// ---------------------------------------------------------------------------
// Aliasing: the operand is the target itself

TEST(QNumberAliasing, SmallSelfOperations) {
  QNumber a = q(3, 4);
  a += a;
  EXPECT_TRUE(Is(a, mpq_class(3, 2)));
  a *= a;
  EXPECT_TRUE(Is(a, mpq_class(9, 4)));
  a /= a;
  EXPECT_TRUE(Is(a, mpq_class(1)));
  a -= a;
  EXPECT_TRUE(Is(a, mpq_class(0)));

  // Self-operations whose result leaves the small form.
  QNumber b(1L << 62);
  b += b;
  EXPECT_FALSE(b.is_small());
  EXPECT_TRUE(Is(b, mpq_class(pow2z(63))));
  QNumber c(-(1L << 62));
  c += c;
  EXPECT_FALSE(c.is_small());
  EXPECT_TRUE(Is(c, mpq_class(-pow2z(63))));
  QNumber d(3037000500L);
  d *= d;
  EXPECT_FALSE(d.is_small());
  EXPECT_TRUE(Is(d, mpq_class(mpz_class(3037000500L) * 3037000500L)));
  QNumber e = q(kMax, 3);
  e += e;
  EXPECT_TRUE(Is(e, mpq_class(2 * mpz_class(kMax), 3)));
  QNumber f = q(1, 1L << 40);
  f *= f;
  EXPECT_TRUE(Is(f, frac(1, pow2z(80))));
  QNumber g(kMax);
  g -= g;
  EXPECT_TRUE(g.is_small());
  EXPECT_TRUE(Is(g, mpq_class(0)));
}

TEST(QNumberAliasing, BigSelfOperations) {
  QNumber a = big(pow2z(70), mpz_class(3));
  a += a;
  EXPECT_TRUE(Is(a, frac(pow2z(71), 3)));
  a *= a;
  EXPECT_TRUE(Is(a, frac(pow2z(142), 9)));
  a /= a;
  EXPECT_FALSE(a.is_small());
  EXPECT_TRUE(Is(a, mpq_class(1)));
  a -= a;
  EXPECT_FALSE(a.is_small());
  EXPECT_TRUE(Is(a, mpq_class(0)));

  QNumber i = big(pow2z(70));
  i += i;
  EXPECT_TRUE(Is(i, mpq_class(pow2z(71))));
  i -= i;
  EXPECT_TRUE(Is(i, mpq_class(0)));
  QNumber j = big_holding(q(-2, 3));
  j *= j;
  EXPECT_TRUE(Is(j, mpq_class(4, 9)));
  j /= j;
  EXPECT_TRUE(Is(j, mpq_class(1)));
}

// ---------------------------------------------------------------------------
// The gcd table

TEST(QNumberGcdCache, FilledLazilyAndSymmetrically) {
  // Only this test touches the pair (1022, 1020).
  EXPECT_EQ(gcd_cache[1022][1020], 0);
  EXPECT_EQ(gcd_cache[1020][1022], 0);
  const QNumber s = q(1, 1022) + q(1, 1020);
  EXPECT_TRUE(Is(s, mpq_class(1021, 521220)));
  EXPECT_EQ(gcd_cache[1022][1020], 2);
  EXPECT_EQ(gcd_cache[1020][1022], 2);

  EXPECT_EQ(small_gcd(-84, 36), 12);
  EXPECT_EQ(gcd_cache[84][36], 12);
  EXPECT_EQ(gcd_cache[36][84], 12);
  EXPECT_EQ(small_gcd(36, -84), 12);
  EXPECT_EQ(small_gcd(0, -9), 9);
  EXPECT_EQ(small_gcd(9, 0), 9);
  EXPECT_EQ(small_gcd(0, 0), 0);
  EXPECT_EQ(small_gcd(kMax, kMax - 1), 1);
  EXPECT_EQ(small_gcd(1L << 62, 3L << 40), 1L << 40);
  EXPECT_EQ(small_gcd(-kMax, 7), 7);  // 2^63-1 = 7 * 73 * ...
  // Large pairs reduce into the table.
  EXPECT_EQ(small_gcd(1000003L * 6, 1000003L * 4), 2000006);

  for (int x = 0; x < kGcdCacheSize; x += 37) {
    for (int y = 1; y < kGcdCacheSize; y += 41) {
      const std::int64_t g = small_gcd(x, y);
      EXPECT_EQ(g, std::gcd(x, y));
      EXPECT_EQ(gcd_cache[x][y], gcd_cache[y][x]);
      EXPECT_EQ(gcd_cache[x][y], g);
    }
  }
}

}  // namespace
}  // namespace kora
