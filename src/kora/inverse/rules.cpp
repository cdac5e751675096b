#include "kora/inverse/rules.h"

#include <algorithm>
#include <array>

#include "kora/terms/bv_values.h"

namespace kora::inverse {

namespace {

using namespace kora::bv;  // NOLINT(google-build-using-namespace): the rules read as formulas

// Each operator below opens with its equations, one line each:
//   value    what the operator computes (the evaluator's definition)
//   inverse  "equation: when some x exists; the x chosen", x the free
//            argument and c the known one
//   shared   the same free term at both positions
//   neutral  both free and distinct: the second argument's value
// An operator without a shared or neutral line of its own takes the
// defaults defined after the helpers: independent (the result does not
// depend on x) and zero.

// --- Helpers of several rows -----------------------------------------------------

// The other argument of a binary operator.
const mpz_class& other(const Values& a, std::size_t pos) {
  return a[1 - pos];
}

// x * c = v: v = 0 (x = 0), or c != 0, ctz(v) >= t = ctz(c); x = (v >> t) * inv(c >> t) mod 2^(w-t)
std::optional<mpz_class> mul_inverse(const mpz_class& c, const mpz_class& v, std::size_t w) {
  if (v == 0) return mpz_class(0);
  if (c == 0) return std::nullopt;
  const std::size_t tz = ctz(c);
  if (ctz(v) < tz) return std::nullopt;
  const std::size_t m = w - tz;
  const mpz_class modulus = pow2(m);
  const mpz_class odd = shr(c, tz);
  mpz_class inv;
  mpz_invert(inv.get_mpz_t(), odd.get_mpz_t(), modulus.get_mpz_t());
  return low(shr(v, tz) * inv, m);
}

// The first shift amount s in 0..w (as a value of the free argument) whose
// shift of c can equal v, read off the positions of the outermost one bits
// rather than searched; the caller checks it. A non-zero result fixes s, and
// 0 is first reached where the last one bit of c leaves the word.
// c << s = v: v = 0: s = 0 (c = 0) or w - ctz(c); v != 0: s = ctz(v) - ctz(c)
// c >> s = v: v = 0: s = bits(c); v != 0: s = bits(c) - bits(v)
// c >>a s = v: as c >> s = v for c >= 0; as ~c >> s = ~v for c < 0 (the sign fill)
std::optional<mpz_class> shift_amount(const Operator& f, const mpz_class& c, const mpz_class& v) {
  const std::size_t w = f.width;
  if (f.op == Op::BVShl) {
    if (c == 0) return mpz_class(0);
    if (v == 0) return mpz_class(static_cast<unsigned long>(w - ctz(c)));
    if (ctz(v) < ctz(c)) return std::nullopt;
    return mpz_class(static_cast<unsigned long>(ctz(v) - ctz(c)));
  }
  const bool fill = f.op == Op::BVAshr && msb(c, w);
  const mpz_class from = fill ? mpz_class(ones(w) ^ c) : c;
  const mpz_class to = fill ? mpz_class(ones(w) ^ v) : v;
  if (bit_length(to) > bit_length(from)) return std::nullopt;
  return mpz_class(static_cast<unsigned long>(bit_length(from) - bit_length(to)));
}

// x >> c = v, x >>a c = v: x = v << c (x = v when c >= w)
std::optional<mpz_class> right_shift_inverse(const Operator& f, std::size_t pos, const Values& a,
                                             const mpz_class& v) {
  const std::size_t w = f.width;
  const mpz_class& c = other(a, pos);
  if (pos == 0) return amount(c, w) == w ? v : low(shl(v, amount(c, w)), w);
  return shift_amount(f, c, v);
}

// Some a in [lo, hi] with a / d = q (unsigned, d = 0 giving all ones).
std::optional<mpz_class> udiv_dividend_in(const mpz_class& d, const mpz_class& q,
                                          const mpz_class& lo, const mpz_class& hi, std::size_t w) {
  if (d == 0) {
    if (q == ones(w) && lo <= hi) return lo;
    return std::nullopt;
  }
  const mpz_class first = std::max(mpz_class(q * d), lo);
  const mpz_class last = std::min(mpz_class(q * d + d - 1), hi);
  if (first <= last) return first;
  return std::nullopt;
}

// Some b in [lo, hi] with n / b = q (unsigned, b = 0 giving all ones).
std::optional<mpz_class> udiv_divisor_in(const mpz_class& n, const mpz_class& q,
                                         const mpz_class& lo, const mpz_class& hi, std::size_t w) {
  if (lo == 0 && q == ones(w)) return mpz_class(0);
  mpz_class first = n + 1;
  mpz_class last = hi;
  if (q != 0) {
    first = n / (q + 1) + 1;
    last = n / q;
  }
  first = std::max(first, std::max(lo, mpz_class(1)));
  last = std::min(last, hi);
  if (first <= last) return first;
  return std::nullopt;
}

// Some a in [lo, hi] with a % d = r (unsigned, d = 0 giving a).
std::optional<mpz_class> urem_dividend_in(const mpz_class& d, const mpz_class& r,
                                          const mpz_class& lo, const mpz_class& hi) {
  if (d == 0) {
    if (lo <= r && r <= hi) return r;
    return std::nullopt;
  }
  if (r >= d) return std::nullopt;
  mpz_class a = r;
  if (a < lo) {
    mpz_class steps;
    const mpz_class gap = lo - r;
    mpz_cdiv_q(steps.get_mpz_t(), gap.get_mpz_t(), d.get_mpz_t());
    a += steps * d;
  }
  if (a <= hi) return a;
  return std::nullopt;
}

// (x = c) = v, comp(x, c) = v: always; x = c when v, else c xor 1 (on Booleans: not c)
std::optional<mpz_class> equal_inverse(const Operator&, std::size_t pos, const Values& a,
                                       const mpz_class& v) {
  const mpz_class& c = other(a, pos);
  return truth(v) ? c : mpz_class(c ^ 1);
}

// The defaults.
// shared: x - x, x % x, x ^ x, x < x, x <= x, x = x, comp(x, x): the result does not depend on x
Values independent(const Operator&, const mpz_class&) {
  return {0};
}
// neutral: x or 0, x + 0, x - 0, x ^ 0, shifts by 0, x % 0 = x; (x <= 0) and (x <s 0) reach both
// truth values, and so do (x = 0) and comp(x, 0)
mpz_class zero(const Operator&, const mpz_class&) {
  return 0;
}
// neutral: x and 1 = x; x <=> 1 = x; x * 1 = x / 1 = x
mpz_class one(const Operator&, const mpz_class&) {
  return 1;
}
// shared over Booleans: both values
Values both_truths(const Operator&, const mpz_class&) {
  return {0, 1};
}
// shared: x & x = x | x = v: x = v
Values itself(const Operator&, const mpz_class& v) {
  return {v};
}
// shared: x / x = v: x = 1 gives 1, x = 0 gives ones (unsigned and signed)
Values one_and_zero(const Operator&, const mpz_class&) {
  return {1, 0};
}

// --- not ----------------------------------------------------------------------------
// value:   not x
// inverse: not x = v: always; x = not v
std::optional<mpz_class> not_inverse(const Operator&, std::size_t, const Values&,
                                     const mpz_class& v) {
  return boolean(!truth(v));
}

// --- and, or ------------------------------------------------------------------------
// value:   x and c, x or c
// inverse: x and c = v: c or not v; x = v
//          x or c = v: v or not c; x = v
// shared:  both values
// neutral: and 1, or 0
std::optional<mpz_class> and_or_inverse(const Operator&, std::size_t, const Values&,
                                        const mpz_class& v) {
  return v;
}

// --- iff ----------------------------------------------------------------------------
// value:   x <=> c
// inverse: (x <=> c) = v: always; x = (c <=> v)
// shared:  both values
// neutral: 1
std::optional<mpz_class> iff_inverse(const Operator&, std::size_t pos, const Values& a,
                                     const mpz_class& v) {
  return boolean(truth(other(a, pos)) == truth(v));
}

// --- = ------------------------------------------------------------------------------
// value:   x = c
// inverse: as equal_inverse
// shared:  over Booleans both values; otherwise x = x holds for every x
// neutral: 0
Values equal_shared(const Operator& f, const mpz_class& v) {
  if (f.width == 0) return both_truths(f, v);
  return independent(f, v);
}

// --- ite ----------------------------------------------------------------------------
// value:   c ? a : b
// whole:   a free condition is tried true, then false; the branch taken must be v (a free
//          one is set to v), a free branch not taken is set to v too. Positions of one term
//          are assigned together, so a condition shared with a branch fixes that branch.
std::optional<Values> ite_whole(const Operator& f, const Pattern& args, const mpz_class& v,
                                const std::vector<std::size_t>& same) {
  auto group = [&](std::size_t i) { return same.empty() ? i : same[i]; };
  Values conditions;
  if (args[0]) {
    conditions.push_back(*args[0]);
  } else {
    conditions = {1, 0};
  }
  for (const mpz_class& cond : conditions) {
    Pattern vals = args;
    auto assign = [&](std::size_t i, const mpz_class& x) {
      for (std::size_t j = 0; j < 3; ++j) {
        if (!args[j] && group(j) == group(i)) vals[j] = x;
      }
    };
    if (!vals[0]) assign(0, cond);
    const std::size_t taken = truth(cond) ? 1 : 2;
    if (!vals[taken]) assign(taken, v);
    if (!vals[3 - taken]) assign(3 - taken, v);
    Values done{*vals[0], *vals[1], *vals[2]};
    if (evaluate(f, done) == v) return done;
  }
  return std::nullopt;
}

// --- bvadd --------------------------------------------------------------------------
// value:   x + c mod 2^w
// inverse: x + c = v: always; x = v - c
// shared:  x + x = v: as x * 2 = v, solvable iff v is even (v = 0 for w = 1)
// neutral: 0
std::optional<mpz_class> add_inverse(const Operator& f, std::size_t pos, const Values& a,
                                     const mpz_class& v) {
  return low(v - other(a, pos), f.width);
}
Values add_shared(const Operator& f, const mpz_class& v) {
  if (auto x = mul_inverse(low(2, f.width), v, f.width)) return {*x};
  return {};
}

// --- bvsub --------------------------------------------------------------------------
// value:   x - c mod 2^w
// inverse: x - c = v: always; x = v + c
//          c - x = v: always; x = c - v
// shared:  x - x = 0
// neutral: 0
std::optional<mpz_class> sub_inverse(const Operator& f, std::size_t pos, const Values& a,
                                     const mpz_class& v) {
  const mpz_class& c = other(a, pos);
  if (pos == 0) return low(v + c, f.width);
  return low(c - v, f.width);
}

// --- bvneg --------------------------------------------------------------------------
// value:   -x mod 2^w
// inverse: -x = v: always; x = -v
std::optional<mpz_class> neg_inverse(const Operator& f, std::size_t, const Values&,
                                     const mpz_class& v) {
  return neg(v, f.width);
}

// --- bvmul --------------------------------------------------------------------------
// value:   x * c mod 2^w
// inverse: as mul_inverse
// shared:  x * x = v: v = 0 (x = 0), or ctz(v) = 2j, (v >> 2j) square mod 2^(w-2j);
//          x = 2^j * sqrt(v >> 2j)
// neutral: 1

// An odd y with y^2 = u mod 2^m, u odd: m = 1: y = 1; m = 2: solvable iff u = 1 mod 4;
// m >= 3: solvable iff u = 1 mod 8, and y is the root that is 1 mod 4 and below 2^(m-1)
std::optional<mpz_class> odd_square_root(const mpz_class& u, std::size_t m) {
  if (m == 1) return mpz_class(1);
  if (m == 2) return low(u, 2) == 1 ? std::optional<mpz_class>(1) : std::nullopt;
  if (low(u, 3) != 1) return std::nullopt;
  // Newton's iteration for r = 1 / sqrt(u) over the 2-adic integers: when
  // e = 1 - u r^2 = 0 mod 2^k, r' = r (1 + e/2) leaves 1 - u r'^2 = 0 mod
  // 2^(2k-2), so the precision nearly doubles per step from r = 1 (k = 3) and
  // a million bits take about twenty multiplications of growing size, not a
  // million of full size.
  mpz_class r = 1;
  for (std::size_t k = 3; k < m;) {
    const std::size_t next = std::min(2 * k - 2, m);
    const mpz_class e = low(1 - low(u, next + 1) * low(r * r, next + 1), next + 1);
    r = low(r + r * shr(e, 1), next);
    k = next;
  }
  // u r is a root, since (u r)^2 = u (u r^2); of the four, keep the one the
  // choice above names: +-y and +-y + 2^(m-1) square alike.
  mpz_class y = low(u * r, m);
  if (bit(y, 1)) y = neg(y, m);
  return low(y, m - 1);
}

std::optional<mpz_class> mul_inverse_at(const Operator& f, std::size_t pos, const Values& a,
                                        const mpz_class& v) {
  return mul_inverse(other(a, pos), v, f.width);
}
Values mul_shared(const Operator& f, const mpz_class& v) {
  if (v == 0) return {0};
  const std::size_t tz = ctz(v);
  if (tz % 2 != 0) return {};
  auto y = odd_square_root(shr(v, tz), f.width - tz);
  if (!y) return {};
  return {low(shl(*y, tz / 2), f.width)};
}

// --- bvshl --------------------------------------------------------------------------
// value:   x << c mod 2^w (0 for c >= w)
// inverse: x << c = v: the low min(c, w) bits of v are 0; x = v >> c
//          c << x = v: some s in 0..w has c << s = v (amounts past w act as w); x = the first
//          such s
// shared:  x << x = v: v = 0 (x = 0), or x < w and ctz(v) = x + ctz(x), so x is at most ctz(v)
//          and less than 64 below it (ctz(x) <= log2(x))
// neutral: 0
std::optional<mpz_class> shl_inverse(const Operator& f, std::size_t pos, const Values& a,
                                     const mpz_class& v) {
  const mpz_class& c = other(a, pos);
  if (pos == 0) return shr(v, amount(c, f.width));
  return shift_amount(f, c, v);
}
Values shl_shared(const Operator& f, const mpz_class& v) {
  if (v == 0) return {0};
  const std::size_t z = ctz(v);
  Values xs;
  for (std::size_t s = z > 64 ? z - 64 : 0; s <= z && s < f.width; ++s) xs.emplace_back(s);
  return xs;
}

// --- bvlshr -------------------------------------------------------------------------
// value:   x >> c (0 for c >= w)
// inverse: x >> c = v: c < w and v < 2^(w - c), or v = 0; as right_shift_inverse
//          c >> x = v: some s in 0..w has c >> s = v (amounts past w act as w); x = the first
//          such s
// shared:  x >> x = 0 for every x: below w, x < 2^x; from w on, every bit leaves
// neutral: 0

// --- bvashr -------------------------------------------------------------------------
// value:   x >> c with copies of the sign bit
// inverse: x >>a c = v: bits w-1 down to w-1-min(c, w-1) of v agree; as right_shift_inverse
//          c >>a x = v: some s in 0..w has c >>a s = v (amounts past w act as w); x = the
//          first such s
// shared:  x >>a x: 0 for x < w (its sign bit is clear then, as w - 1 < 2^(w-1)), the sign
//          fill for x >= w; x = 0 and x = ones reach both
// neutral: 0
Values ashr_shared(const Operator& f, const mpz_class&) {
  return {0, ones(f.width)};
}

// --- bvudiv -------------------------------------------------------------------------
// value:   x / c (all ones for c = 0)
// inverse: x / c = v: c = 0 and v = ones (x = 0), or c > 0 and v * c <= ones (x = v * c)
//          c / x = v: v = ones (x = 0), v = 0 < ones - c (x = c + 1), c / (c / v) = v (x = c / v)
// shared:  as one_and_zero
// neutral: 1
std::optional<mpz_class> udiv_inverse(const Operator& f, std::size_t pos, const Values& a,
                                      const mpz_class& v) {
  const mpz_class& c = other(a, pos);
  if (pos == 0) return c == 0 ? mpz_class(0) : mpz_class(v * c);
  if (v == ones(f.width)) return mpz_class(0);
  if (v == 0) return mpz_class(c + 1);
  return mpz_class(c / v);
}

// --- bvurem -------------------------------------------------------------------------
// value:   x % c (x for c = 0)
// inverse: x % c = v: c = 0 or v < c; x = v
//          c % x = v: v = c (x = 0), or c - v > v (x = c - v, the largest divisor of c - v)
// shared:  x % x = 0
// neutral: 0
std::optional<mpz_class> urem_inverse(const Operator&, std::size_t pos, const Values& a,
                                      const mpz_class& v) {
  const mpz_class& c = other(a, pos);
  if (pos == 0) return v;
  if (v == c) return mpz_class(0);
  if (c > v) return mpz_class(c - v);
  return std::nullopt;
}

// --- bvsdiv -------------------------------------------------------------------------
// value:   the quotient of the magnitudes, negated when the signs differ
// inverse: x /s c = v: a sign class of x holds an a = |x| with a / |c| = (signs differ ? -v : v);
//          x = +-a
//          c /s x = v: a sign class of x holds a b = |x| with |c| / b = (signs differ ? -v : v);
//          x = +-b
// shared:  as one_and_zero
// neutral: 1
// Each sign class of x is an interval of magnitudes, and so an interval
// problem on unsigned division: x >= 0 has |x| in [0, 2^(w-1) - 1], x < 0 has
// |x| in [1, 2^(w-1)].
// in is udiv_dividend_in or udiv_divisor_in: the interval problem of x's
// position.
template <class InInterval>
std::optional<mpz_class> sdiv_by_sign_class(const mpz_class& c, const mpz_class& v, std::size_t w,
                                            InInterval in) {
  const mpz_class m = magnitude(c, w);
  const mpz_class half = pow2(w - 1);
  for (bool negative : {false, true}) {
    const mpz_class q = msb(c, w) != negative ? neg(v, w) : v;
    auto a = negative ? in(m, q, 1, half, w) : in(m, q, 0, half - 1, w);
    if (a) return negative ? neg(*a, w) : *a;
  }
  return std::nullopt;
}

std::optional<mpz_class> sdiv_inverse(const Operator& f, std::size_t pos, const Values& a,
                                      const mpz_class& v) {
  const mpz_class& c = other(a, pos);
  if (pos == 0) return sdiv_by_sign_class(c, v, f.width, udiv_dividend_in);
  return sdiv_by_sign_class(c, v, f.width, udiv_divisor_in);
}

// --- bvsrem -------------------------------------------------------------------------
// value:   the remainder of the magnitudes, with the dividend's sign
// inverse: x %s c = v: a < 2^(w-1), a % |c| = v (x = a), or 0 < a <= 2^(w-1), a % |c| = -v
//          (x = -a)
//          c %s x = v, r = (c < 0 ? -v : v): r = |c| (x = 0), or |c| - r > r (x = |c| - r)
// shared:  x %s x = 0
// neutral: 0
std::optional<mpz_class> srem_dividend(const mpz_class& c, const mpz_class& v, std::size_t w) {
  const mpz_class d = magnitude(c, w);
  const mpz_class half = pow2(w - 1);
  if (auto a = urem_dividend_in(d, v, 0, half - 1)) return *a;
  if (auto a = urem_dividend_in(d, neg(v, w), 1, half)) return neg(*a, w);
  return std::nullopt;
}

// The divisor's sign does not matter, and every magnitude b in [0, 2^(w-1)] is
// that of the value b itself; |c| - r is the largest divisor of |c| - r.
std::optional<mpz_class> srem_divisor(const mpz_class& c, const mpz_class& v, std::size_t w) {
  const mpz_class n = magnitude(c, w);
  const mpz_class r = msb(c, w) ? neg(v, w) : v;
  if (n == r) return mpz_class(0);
  if (n > r && n - r > r) return mpz_class(n - r);
  return std::nullopt;
}

std::optional<mpz_class> srem_inverse(const Operator& f, std::size_t pos, const Values& a,
                                      const mpz_class& v) {
  const mpz_class& c = other(a, pos);
  return pos == 0 ? srem_dividend(c, v, f.width) : srem_divisor(c, v, f.width);
}

// --- bvnot --------------------------------------------------------------------------
// value:   ~x
// inverse: ~x = v: always; x = ~v
std::optional<mpz_class> bvnot_inverse(const Operator& f, std::size_t, const Values&,
                                       const mpz_class& v) {
  return ones(f.width) ^ v;
}

// --- bvand --------------------------------------------------------------------------
// value:   x & c
// inverse: x & c = v: v & ~c = 0; x = v
// shared:  as itself
// neutral: ones
std::optional<mpz_class> bvand_inverse(const Operator&, std::size_t, const Values&,
                                       const mpz_class& v) {
  return v;
}
mpz_class bvand_neutral(const Operator& f, const mpz_class&) {
  return ones(f.width);
}

// --- bvor ---------------------------------------------------------------------------
// value:   x | c
// inverse: x | c = v: c & ~v = 0; x = v & ~c
// shared:  as itself
// neutral: 0
std::optional<mpz_class> bvor_inverse(const Operator& f, std::size_t pos, const Values& a,
                                      const mpz_class& v) {
  return mpz_class(v & (ones(f.width) ^ other(a, pos)));
}

// --- bvxor --------------------------------------------------------------------------
// value:   x ^ c
// inverse: x ^ c = v: always; x = v ^ c
// shared:  x ^ x = 0
// neutral: 0
std::optional<mpz_class> bvxor_inverse(const Operator&, std::size_t pos, const Values& a,
                                       const mpz_class& v) {
  return mpz_class(v ^ other(a, pos));
}

// --- bvult, bvslt -------------------------------------------------------------------
// value:   x < c, unsigned and signed
// inverse: (x < c) = v: not v (x = c), or c > min (x = c - 1)
//          (c < x) = v: not v (x = c), or c < max (x = c + 1)
// shared:  x < x is false
// neutral: unsigned: (x < 1) holds at x = 0, (x < 0) fails at x = 0; signed: as zero
// c - 1 and c + 1 wrap past min and max, where the solver's check refuses them; the
// signed order shares the rules because both ends meet there too.
std::optional<mpz_class> less_inverse(const Operator& f, std::size_t pos, const Values& a,
                                      const mpz_class& v) {
  const mpz_class& c = other(a, pos);
  if (pos == 0) return truth(v) ? low(c - 1, f.width) : c;
  return truth(v) ? low(c + 1, f.width) : c;
}
mpz_class ult_neutral(const Operator&, const mpz_class& v) {
  return truth(v) ? 1 : 0;
}

// --- bvule, bvsle -------------------------------------------------------------------
// value:   x <= c, unsigned and signed
// inverse: (x <= c) = v: v (x = c), or c < max (x = c + 1)
//          (c <= x) = v: v (x = c), or c > min (x = c - 1)
// shared:  x <= x is true
// neutral: unsigned: as zero; signed: v: c = 0, x = 0; not v: c = the signed minimum,
//          x = min + 1 (even at w = 1)
std::optional<mpz_class> less_equal_inverse(const Operator& f, std::size_t pos, const Values& a,
                                            const mpz_class& v) {
  const mpz_class& c = other(a, pos);
  if (pos == 0) return truth(v) ? c : low(c + 1, f.width);
  return truth(v) ? c : low(c - 1, f.width);
}
mpz_class sle_neutral(const Operator& f, const mpz_class& v) {
  return truth(v) ? mpz_class(0) : pow2(f.width - 1);
}

// --- bvcomp -------------------------------------------------------------------------
// value:   1 when x = c, else 0
// inverse: as equal_inverse
// shared:  comp(x, x) = 1
// neutral: 0

// --- concat -------------------------------------------------------------------------
// value:   x ++ c, c of width lo
// inverse: x ++ c = v: v mod 2^lo = c; x = v >> lo
//          c ++ x = v: v >> lo = c; x = v mod 2^lo
// shared:  x ++ x = v: solvable iff both halves of v agree; x = v >> lo
// neutral: c = the low part of v
std::optional<mpz_class> concat_inverse(const Operator& f, std::size_t pos, const Values&,
                                        const mpz_class& v) {
  if (pos == 0) return shr(v, f.index0);
  return low(v, f.index0);
}
Values concat_shared(const Operator& f, const mpz_class& v) {
  return {shr(v, f.index0)};
}
mpz_class concat_neutral(const Operator& f, const mpz_class& v) {
  return low(v, f.index0);
}

// --- extract ------------------------------------------------------------------------
// value:   bits msb down to lsb of x
// inverse: x[msb:lsb] = v: always; x = v << lsb
std::optional<mpz_class> extract_inverse(const Operator& f, std::size_t, const Values&,
                                         const mpz_class& v) {
  return shl(v, f.index1);
}

// --- zero_extend --------------------------------------------------------------------
// value:   x
// inverse: zext(x, k) = v: v < 2^w; x = v
std::optional<mpz_class> zext_inverse(const Operator&, std::size_t, const Values&,
                                      const mpz_class& v) {
  return v;
}

// --- sign_extend --------------------------------------------------------------------
// value:   x with k copies of its sign bit above
// inverse: sext(x, k) = v: the top k + 1 bits of v agree; x = v mod 2^w
std::optional<mpz_class> sext_inverse(const Operator& f, std::size_t, const Values&,
                                      const mpz_class& v) {
  return low(v, f.width);
}

// --- rotate_left, rotate_right ------------------------------------------------------
// value:   x rotated by k
// inverse: rotl(x, k) = v: always; x = rotl(v, w - k mod w)
//          rotr(x, k) = v: always; x = rotl(v, k)
std::optional<mpz_class> rotl_inverse(const Operator& f, std::size_t, const Values&,
                                      const mpz_class& v) {
  return rotate_left(v, f.width - f.index0 % f.width, f.width);
}
std::optional<mpz_class> rotr_inverse(const Operator& f, std::size_t, const Values&,
                                      const mpz_class& v) {
  return rotate_left(v, f.index0, f.width);
}

// --- The table ----------------------------------------------------------------------

constexpr Rule kRules[] = {
    // {op, inverse, shared, neutral, whole}
    {Op::Not, not_inverse, nullptr, nullptr, nullptr},
    {Op::And, and_or_inverse, both_truths, one, nullptr},
    {Op::Or, and_or_inverse, both_truths, zero, nullptr},
    {Op::Iff, iff_inverse, both_truths, one, nullptr},
    {Op::Equal, equal_inverse, equal_shared, zero, nullptr},
    {Op::Ite, nullptr, nullptr, nullptr, ite_whole},
    {Op::BVAdd, add_inverse, add_shared, zero, nullptr},
    {Op::BVSub, sub_inverse, independent, zero, nullptr},
    {Op::BVNeg, neg_inverse, nullptr, nullptr, nullptr},
    {Op::BVMul, mul_inverse_at, mul_shared, one, nullptr},
    {Op::BVShl, shl_inverse, shl_shared, zero, nullptr},
    {Op::BVLshr, right_shift_inverse, independent, zero, nullptr},
    {Op::BVAshr, right_shift_inverse, ashr_shared, zero, nullptr},
    {Op::BVUdiv, udiv_inverse, one_and_zero, one, nullptr},
    {Op::BVSdiv, sdiv_inverse, one_and_zero, one, nullptr},
    {Op::BVUrem, urem_inverse, independent, zero, nullptr},
    {Op::BVSrem, srem_inverse, independent, zero, nullptr},
    {Op::BVNot, bvnot_inverse, nullptr, nullptr, nullptr},
    {Op::BVAnd, bvand_inverse, itself, bvand_neutral, nullptr},
    {Op::BVOr, bvor_inverse, itself, zero, nullptr},
    {Op::BVXor, bvxor_inverse, independent, zero, nullptr},
    {Op::BVUlt, less_inverse, independent, ult_neutral, nullptr},
    {Op::BVUle, less_equal_inverse, independent, zero, nullptr},
    {Op::BVSlt, less_inverse, independent, zero, nullptr},
    {Op::BVSle, less_equal_inverse, independent, sle_neutral, nullptr},
    {Op::BVComp, equal_inverse, independent, zero, nullptr},
    {Op::BVConcat, concat_inverse, concat_shared, concat_neutral, nullptr},
    {Op::BVExtract, extract_inverse, nullptr, nullptr, nullptr},
    {Op::BVZeroExtend, zext_inverse, nullptr, nullptr, nullptr},
    {Op::BVSignExtend, sext_inverse, nullptr, nullptr, nullptr},
    {Op::BVRotateLeft, rotl_inverse, nullptr, nullptr, nullptr},
    {Op::BVRotateRight, rotr_inverse, nullptr, nullptr, nullptr},
};

// Row numbers by operator, so that finding a row is one load.
constexpr std::array<const Rule*, kOpCount> index_rules() {
  std::array<const Rule*, kOpCount> by_op{};
  for (const Rule& r : kRules) by_op[static_cast<std::size_t>(r.op)] = &r;
  return by_op;
}

constexpr std::array<const Rule*, kOpCount> kByOp = index_rules();

}  // namespace

const Rule* rule_of(Op op) noexcept {
  const auto i = static_cast<std::size_t>(op);
  return i < kByOp.size() ? kByOp[i] : nullptr;
}

}  // namespace kora::inverse
