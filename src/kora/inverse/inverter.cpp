#include "kora/inverse/inverter.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "kora/model/model_store.h"
#include "kora/numbers/qnumber.h"
#include "kora/terms/term_manager.h"

namespace kora::inverse {

namespace {

using Values = std::vector<mpz_class>;

// --- Bit-vector arithmetic on GMP integers ------------------------------------
// Every value of width w lives in [0, 2^w); these helpers keep it there.

mpz_class pow2(std::size_t n) {
  mpz_class r;
  mpz_setbit(r.get_mpz_t(), n);
  return r;
}

mpz_class ones(std::size_t w) {
  return pow2(w) - 1;
}

// x mod 2^w, for any integer x (negative ones wrap to their two's complement).
mpz_class low(const mpz_class& x, std::size_t w) {
  mpz_class r;
  mpz_fdiv_r_2exp(r.get_mpz_t(), x.get_mpz_t(), w);
  return r;
}

mpz_class shr(const mpz_class& x, std::size_t n) {
  mpz_class r;
  mpz_fdiv_q_2exp(r.get_mpz_t(), x.get_mpz_t(), n);
  return r;
}

mpz_class shl(const mpz_class& x, std::size_t n) {
  mpz_class r;
  mpz_mul_2exp(r.get_mpz_t(), x.get_mpz_t(), n);
  return r;
}

bool bit(const mpz_class& x, std::size_t i) {
  return mpz_tstbit(x.get_mpz_t(), i) != 0;
}

bool msb(const mpz_class& x, std::size_t w) {
  return bit(x, w - 1);
}

mpz_class neg(const mpz_class& x, std::size_t w) {
  return low(-x, w);
}

// |x| of a signed value, as an unsigned number in [0, 2^(w-1)].
mpz_class magnitude(const mpz_class& x, std::size_t w) {
  return msb(x, w) ? neg(x, w) : x;
}

// Maps the signed order onto the unsigned one: s < t iff flip(s) < flip(t).
mpz_class flip(const mpz_class& x, std::size_t w) {
  mpz_class r = x;
  mpz_combit(r.get_mpz_t(), w - 1);
  return r;
}

// A shift amount; every amount from w on acts like w.
std::size_t amount(const mpz_class& s, std::size_t w) {
  return s >= w ? w : static_cast<std::size_t>(s.get_ui());
}

// Trailing zeros of a non-zero x.
std::size_t ctz(const mpz_class& x) {
  return mpz_scan1(x.get_mpz_t(), 0);
}

mpz_class rotate_left(const mpz_class& x, std::size_t k, std::size_t w) {
  k %= w;
  if (k == 0) return x;
  return low(shl(x, k), w) | shr(x, w - k);
}

mpz_class udiv(const mpz_class& a, const mpz_class& b, std::size_t w) {
  return b == 0 ? ones(w) : mpz_class(a / b);
}

mpz_class urem(const mpz_class& a, const mpz_class& b) {
  return b == 0 ? a : mpz_class(a % b);
}

bool truth(const mpz_class& b) {
  return b != 0;
}

mpz_class boolean(bool b) {
  return b ? 1 : 0;
}

bool boolean_op(Op op) {
  return op == Op::Not || op == Op::And || op == Op::Or || op == Op::Iff;
}

// --- Single free argument -----------------------------------------------------

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

// Number of significant bits of x (0 for x = 0).
std::size_t bit_length(const mpz_class& x) {
  return x == 0 ? 0 : mpz_sizeinbase(x.get_mpz_t(), 2);
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

// Signed division works on magnitudes in the two sign classes of x: x >= 0
// has |x| in [0, 2^(w-1) - 1], x < 0 has |x| in [1, 2^(w-1)], and the quotient
// of magnitudes is negated when the signs differ. Each class is an interval
// problem on unsigned division.
// x /s c = v: a sign class of x holds an a = |x| with a / |c| = (signs differ ? -v : v); x = +-a
std::optional<mpz_class> sdiv_dividend(const mpz_class& c, const mpz_class& v, std::size_t w) {
  const mpz_class d = magnitude(c, w);
  const mpz_class half = pow2(w - 1);
  for (bool negative : {false, true}) {
    const mpz_class q = msb(c, w) != negative ? neg(v, w) : v;
    auto a = negative ? udiv_dividend_in(d, q, 1, half, w) : udiv_dividend_in(d, q, 0, half - 1, w);
    if (a) return negative ? neg(*a, w) : *a;
  }
  return std::nullopt;
}

// c /s x = v: a sign class of x holds a b = |x| with |c| / b = (signs differ ? -v : v); x = +-b
std::optional<mpz_class> sdiv_divisor(const mpz_class& c, const mpz_class& v, std::size_t w) {
  const mpz_class n = magnitude(c, w);
  const mpz_class half = pow2(w - 1);
  for (bool negative : {false, true}) {
    const mpz_class q = msb(c, w) != negative ? neg(v, w) : v;
    auto b = negative ? udiv_divisor_in(n, q, 1, half, w) : udiv_divisor_in(n, q, 0, half - 1, w);
    if (b) return negative ? neg(*b, w) : *b;
  }
  return std::nullopt;
}

// The signed remainder is the remainder of magnitudes with the dividend's sign.
// x %s c = v: a < 2^(w-1), a % |c| = v (x = a), or 0 < a <= 2^(w-1), a % |c| = -v (x = -a)
std::optional<mpz_class> srem_dividend(const mpz_class& c, const mpz_class& v, std::size_t w) {
  const mpz_class d = magnitude(c, w);
  const mpz_class half = pow2(w - 1);
  if (auto a = urem_dividend_in(d, v, 0, half - 1)) return *a;
  if (auto a = urem_dividend_in(d, neg(v, w), 1, half)) return neg(*a, w);
  return std::nullopt;
}

// The divisor's sign does not matter, and every magnitude b in [0, 2^(w-1)] is
// that of the value b itself; |c| - r is the largest divisor of |c| - r.
// c %s x = v, r = (c < 0 ? -v : v): r = |c| (x = 0), or |c| - r > r (x = |c| - r)
std::optional<mpz_class> srem_divisor(const mpz_class& c, const mpz_class& v, std::size_t w) {
  const mpz_class n = magnitude(c, w);
  const mpz_class r = msb(c, w) ? neg(v, w) : v;
  if (n == r) return mpz_class(0);
  if (n > r && n - r > r) return mpz_class(n - r);
  return std::nullopt;
}

// A candidate for the free argument at position pos: a value that satisfies
// whenever any value does (the caller checks it), or nothing when the
// condition already rules every value out. Each rule reads
// "equation: when some x exists; the x chosen", c being the known argument
// and min/max the ends of the order compared.
std::optional<mpz_class> candidate(const Operator& f, std::size_t pos, const Values& a,
                                   const mpz_class& v) {
  const std::size_t w = f.width;
  const mpz_class c = f.arity() == 2 ? a[1 - pos] : mpz_class(0);
  const bool first = pos == 0;
  switch (f.op) {
    // not x = v: always; x = not v
    case Op::Not:
      return boolean(!truth(v));
    // x and c = v: c or not v; x = v
    // x or c = v: v or not c; x = v
    case Op::And:
    case Op::Or:
      return v;
    // (x <=> c) = v: always; x = (c <=> v)
    case Op::Iff:
      return boolean(truth(c) == truth(v));
    // (x = c) = v, comp(x, c) = v: always; x = c when v, else c xor 1 (on Booleans: not c)
    case Op::Equal:
    case Op::BVComp:
      return truth(v) ? c : mpz_class(c ^ 1);
    // x + c = v: always; x = v - c
    case Op::BVAdd:
      return low(v - c, w);
    case Op::BVSub:
      // x - c = v: always; x = v + c
      if (first) return low(v + c, w);
      // c - x = v: always; x = c - v
      return low(c - v, w);
    // -x = v: always; x = -v
    case Op::BVNeg:
      return neg(v, w);
    // x * c = v: as mul_inverse
    case Op::BVMul:
      return mul_inverse(c, v, w);
    case Op::BVShl:
      // x << c = v: the low min(c, w) bits of v are 0; x = v >> c
      if (first) return shr(v, amount(c, w));
      // c << x = v: some s in 0..w has c << s = v (amounts past w act as w); x = the first such s
      return shift_amount(f, c, v);
    // x >> c = v: c < w and v < 2^(w - c), or v = 0; x = v << c (x = v when c >= w)
    // c >> x = v: some s in 0..w has c >> s = v (amounts past w act as w); x = the first such s
    // x >>a c = v: bits w-1 down to w-1-min(c, w-1) of v agree; x = v << c (x = v when c >= w)
    // c >>a x = v: some s in 0..w has c >>a s = v (amounts past w act as w); x = the first such s
    case Op::BVLshr:
    case Op::BVAshr:
      if (first) return amount(c, w) == w ? v : low(shl(v, amount(c, w)), w);
      return shift_amount(f, c, v);
    case Op::BVUdiv:
      // x / c = v: c = 0 and v = ones (x = 0), or c > 0 and v * c <= ones (x = v * c)
      if (first) return c == 0 ? mpz_class(0) : mpz_class(v * c);
      // c / x = v: v = ones (x = 0), v = 0 < ones - c (x = c + 1), c / (c / v) = v (x = c / v)
      if (v == ones(w)) return mpz_class(0);
      if (v == 0) return mpz_class(c + 1);
      return mpz_class(c / v);
    case Op::BVUrem:
      // x % c = v: c = 0 or v < c; x = v
      if (first) return v;
      // c % x = v: v = c (x = 0), or c - v > v (x = c - v, the largest divisor of c - v)
      if (v == c) return mpz_class(0);
      if (c > v) return mpz_class(c - v);
      return std::nullopt;
    // x /s c = v, c /s x = v: as sdiv_dividend and sdiv_divisor
    case Op::BVSdiv:
      return first ? sdiv_dividend(c, v, w) : sdiv_divisor(c, v, w);
    // x %s c = v, c %s x = v: as srem_dividend and srem_divisor
    case Op::BVSrem:
      return first ? srem_dividend(c, v, w) : srem_divisor(c, v, w);
    // ~x = v: always; x = ~v
    case Op::BVNot:
      return ones(w) ^ v;
    // x & c = v: v & ~c = 0; x = v
    case Op::BVAnd:
      return v;
    // x | c = v: c & ~v = 0; x = v & ~c
    case Op::BVOr:
      return mpz_class(v & (ones(w) ^ c));
    // x ^ c = v: always; x = v ^ c
    case Op::BVXor:
      return mpz_class(v ^ c);
    // c - 1 and c + 1 below wrap past min and max, where the caller's check refuses them; the
    // signed orders share the rules because both ends meet there too.
    case Op::BVUlt:
    case Op::BVSlt:
      // (x < c) = v: not v (x = c), or c > min (x = c - 1)
      if (first) return truth(v) ? low(c - 1, w) : c;
      // (c < x) = v: not v (x = c), or c < max (x = c + 1)
      return truth(v) ? low(c + 1, w) : c;
    case Op::BVUle:
    case Op::BVSle:
      // (x <= c) = v: v (x = c), or c < max (x = c + 1)
      if (first) return truth(v) ? c : low(c + 1, w);
      // (c <= x) = v: v (x = c), or c > min (x = c - 1)
      return truth(v) ? c : low(c - 1, w);
    case Op::BVConcat:
      // x ++ c = v: v mod 2^lo = c; x = v >> lo
      if (first) return shr(v, f.index0);
      // c ++ x = v: v >> lo = c; x = v mod 2^lo
      return low(v, f.index0);
    // x[msb:lsb] = v: always; x = v << lsb
    case Op::BVExtract:
      return shl(v, f.index1);
    // zext(x, k) = v: v < 2^w; x = v
    case Op::BVZeroExtend:
      return v;
    // sext(x, k) = v: the top k + 1 bits of v agree; x = v mod 2^w
    case Op::BVSignExtend:
      return low(v, w);
    // rotl(x, k) = v: always; x = rotl(v, w - k mod w)
    case Op::BVRotateLeft:
      return rotate_left(v, w - f.index0 % w, w);
    // rotr(x, k) = v: always; x = rotl(v, k)
    case Op::BVRotateRight:
      return rotate_left(v, f.index0, w);
    default:
      break;
  }
  return std::nullopt;
}

bool in_range(const mpz_class& x, std::size_t width) {
  return x >= 0 && x <= ones(width == 0 ? 1 : width);
}

std::optional<mpz_class> solve_single(const Operator& f, std::size_t pos, Values a,
                                      const mpz_class& v) {
  auto x = candidate(f, pos, a, v);
  if (!x || !in_range(*x, f.arg_width(pos))) return std::nullopt;
  a[pos] = *x;
  if (evaluate(f, a) != v) return std::nullopt;
  return x;
}

// --- The same free term at both positions ---------------------------------------

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

// x * x = v: v = 0 (x = 0), or ctz(v) = 2j, (v >> 2j) square mod 2^(w-2j); x = 2^j * sqrt(v >> 2j)
std::optional<mpz_class> mul_square_root(const mpz_class& v, std::size_t w) {
  if (v == 0) return mpz_class(0);
  const std::size_t tz = ctz(v);
  if (tz % 2 != 0) return std::nullopt;
  auto y = odd_square_root(shr(v, tz), w - tz);
  if (!y) return std::nullopt;
  return low(shl(*y, tz / 2), w);
}

// Values of x that between them cover every outcome of f(x, x); the caller
// keeps the first that gives v.
Values shared_candidates(const Operator& f, const mpz_class& v) {
  const std::size_t w = f.width;
  switch (f.op) {
    // Booleans: both values
    case Op::And:
    case Op::Or:
    case Op::Iff:
      return {0, 1};
    case Op::Equal:
      if (w == 0) return {0, 1};
      break;
    // x + x = v: as x * 2 = v, solvable iff v is even (v = 0 for w = 1)
    case Op::BVAdd:
      if (auto x = mul_inverse(low(2, w), v, w)) return {*x};
      return {};
    case Op::BVMul:
      if (auto x = mul_square_root(v, w)) return {*x};
      return {};
    // x << x = v: v = 0 (x = 0), or x < w and ctz(v) = x + ctz(x), so x is at most ctz(v) and
    // less than 64 below it (ctz(x) <= log2(x))
    case Op::BVShl: {
      if (v == 0) return {0};
      const std::size_t z = ctz(v);
      Values xs;
      for (std::size_t s = z > 64 ? z - 64 : 0; s <= z && s < w; ++s) xs.emplace_back(s);
      return xs;
    }
    // x >> x = 0 for every x: below w, x < 2^x; from w on, every bit leaves
    case Op::BVLshr:
      return {0};
    // x >>a x: 0 for x < w (its sign bit is clear then, as w - 1 < 2^(w-1)), the sign fill for
    // x >= w; x = 0 and x = ones reach both
    case Op::BVAshr:
      return {0, ones(w)};
    // x / x = v: x = 1 gives 1, x = 0 gives ones (unsigned and signed)
    case Op::BVUdiv:
    case Op::BVSdiv:
      return {1, 0};
    // x & x = x | x = v: x = v
    case Op::BVAnd:
    case Op::BVOr:
      return {v};
    // x ++ x = v: solvable iff both halves of v agree; x = v >> lo
    case Op::BVConcat:
      return {shr(v, f.index0)};
    default:
      break;
  }
  // x - x, x % x, x ^ x, x < x, x <= x, x = x, comp(x, x): the result does not depend on x
  return {0};
}

// --- Both arguments free and distinct --------------------------------------------

// The value given to the second argument so that the first can still reach
// every v: the right identity where there is one.
mpz_class neutral(const Operator& f, const mpz_class& v) {
  const std::size_t w = f.width;
  switch (f.op) {
    // x and 1 = x; x <=> 1 = x; x * 1 = x / 1 = x; x & ones = x
    case Op::And:
    case Op::Iff:
    case Op::BVMul:
    case Op::BVUdiv:
    case Op::BVSdiv:
      return 1;
    case Op::BVAnd:
      return ones(w);
    // (x < 1) holds at x = 0, (x < 0) fails at x = 0
    case Op::BVUlt:
      return truth(v) ? 1 : 0;
    // (x <=s c) = v: v: c = 0, x = 0; not v: c = the signed minimum, x = min + 1 (even at w = 1)
    case Op::BVSle:
      return truth(v) ? mpz_class(0) : pow2(w - 1);
    // x ++ c = v: c = the low part of v
    case Op::BVConcat:
      return low(v, f.index0);
    default:
      break;
  }
  // x or 0, x + 0, x - 0, x ^ 0, shifts by 0, x % 0 = x; (x <= 0) and (x <s 0) reach both
  // truth values, and so do (x = 0) and comp(x, 0)
  return 0;
}

// --- ite ------------------------------------------------------------------------

// c ? a : b = v: a free condition is tried true, then false; the branch taken
// must be v (a free one is set to v), a free branch not taken is set to v too.
// Positions of one term are assigned together, so a condition shared with a
// branch fixes that branch.
std::optional<Values> solve_ite(const Operator& f,
                                const std::vector<std::optional<mpz_class>>& args,
                                const mpz_class& v, const std::vector<std::size_t>& same) {
  auto group = [&](std::size_t i) { return same.empty() ? i : same[i]; };
  Values conditions;
  if (args[0]) {
    conditions.push_back(*args[0]);
  } else {
    conditions = {1, 0};
  }
  for (const mpz_class& cond : conditions) {
    std::vector<std::optional<mpz_class>> vals = args;
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

}  // namespace

// --- Operator ---------------------------------------------------------------------

bool invertible(Op op) noexcept {
  return op >= Op::Not && op <= Op::BVRotateRight;
}

std::optional<Operator> Operator::of(const Term* t) {
  const Symbol* s = t->get_symbol();
  if (!invertible(s->op())) return std::nullopt;
  Operator f;
  f.op = s->op();
  switch (f.op) {
    case Op::Not:
    case Op::And:
    case Op::Or:
    case Op::Iff:
      break;
    case Op::Equal:
      f.width = t->arg(0)->type()->width();
      break;
    case Op::Ite:
      f.width = t->type()->width();
      break;
    case Op::BVConcat:
      f.width = s->param(0);
      f.index0 = s->param(1);
      break;
    case Op::BVExtract:
      f.width = s->param(2);
      f.index0 = s->param(0);
      f.index1 = s->param(1);
      break;
    case Op::BVZeroExtend:
    case Op::BVSignExtend:
    case Op::BVRotateLeft:
    case Op::BVRotateRight:
      f.width = s->param(1);
      f.index0 = s->param(0);
      break;
    default:
      f.width = s->param(0);
      break;
  }
  return f;
}

std::size_t Operator::arity() const noexcept {
  switch (op) {
    case Op::Not:
    case Op::BVNeg:
    case Op::BVNot:
    case Op::BVExtract:
    case Op::BVZeroExtend:
    case Op::BVSignExtend:
    case Op::BVRotateLeft:
    case Op::BVRotateRight:
      return 1;
    case Op::Ite:
      return 3;
    default:
      return 2;
  }
}

std::size_t Operator::arg_width(std::size_t i) const noexcept {
  if (boolean_op(op)) return 0;
  if (op == Op::Ite && i == 0) return 0;
  if (op == Op::BVConcat && i == 1) return index0;
  return width;
}

std::size_t Operator::result_width() const noexcept {
  switch (op) {
    case Op::Not:
    case Op::And:
    case Op::Or:
    case Op::Iff:
    case Op::Equal:
    case Op::BVUlt:
    case Op::BVUle:
    case Op::BVSlt:
    case Op::BVSle:
      return 0;
    case Op::BVComp:
      return 1;
    case Op::BVConcat:
    case Op::BVZeroExtend:
    case Op::BVSignExtend:
      return width + index0;
    case Op::BVExtract:
      return index0 - index1 + 1;
    default:
      return width;
  }
}

// --- Evaluation -------------------------------------------------------------------

mpz_class evaluate(const Operator& f, const Values& x) {
  const std::size_t w = f.width;
  switch (f.op) {
    case Op::Not:
      return boolean(!truth(x[0]));
    case Op::And:
      return boolean(truth(x[0]) && truth(x[1]));
    case Op::Or:
      return boolean(truth(x[0]) || truth(x[1]));
    case Op::Iff:
      return boolean(truth(x[0]) == truth(x[1]));
    case Op::Equal:
      return boolean(x[0] == x[1]);
    case Op::Ite:
      return truth(x[0]) ? x[1] : x[2];
    case Op::BVAdd:
      return low(x[0] + x[1], w);
    case Op::BVSub:
      return low(x[0] - x[1], w);
    case Op::BVNeg:
      return neg(x[0], w);
    case Op::BVMul:
      return low(x[0] * x[1], w);
    case Op::BVShl: {
      const std::size_t s = amount(x[1], w);
      return s == w ? mpz_class(0) : low(shl(x[0], s), w);
    }
    case Op::BVLshr:
      return shr(x[0], amount(x[1], w));
    case Op::BVAshr: {
      const std::size_t s = amount(x[1], w);
      mpz_class r = shr(x[0], s);
      if (msb(x[0], w)) r |= ones(w) ^ ones(w - s);
      return r;
    }
    case Op::BVUdiv:
      return udiv(x[0], x[1], w);
    case Op::BVUrem:
      return urem(x[0], x[1]);
    case Op::BVSdiv: {
      const mpz_class q = udiv(magnitude(x[0], w), magnitude(x[1], w), w);
      return msb(x[0], w) != msb(x[1], w) ? neg(q, w) : q;
    }
    case Op::BVSrem: {
      const mpz_class r = urem(magnitude(x[0], w), magnitude(x[1], w));
      return msb(x[0], w) ? neg(r, w) : r;
    }
    case Op::BVNot:
      return ones(w) ^ x[0];
    case Op::BVAnd:
      return x[0] & x[1];
    case Op::BVOr:
      return x[0] | x[1];
    case Op::BVXor:
      return x[0] ^ x[1];
    case Op::BVUlt:
      return boolean(x[0] < x[1]);
    case Op::BVUle:
      return boolean(x[0] <= x[1]);
    case Op::BVSlt:
      return boolean(flip(x[0], w) < flip(x[1], w));
    case Op::BVSle:
      return boolean(flip(x[0], w) <= flip(x[1], w));
    case Op::BVComp:
      return boolean(x[0] == x[1]);
    case Op::BVConcat:
      return shl(x[0], f.index0) | x[1];
    case Op::BVExtract:
      return low(shr(x[0], f.index1), f.index0 - f.index1 + 1);
    case Op::BVZeroExtend:
      return x[0];
    case Op::BVSignExtend:
      return msb(x[0], w) ? mpz_class(x[0] | (ones(w + f.index0) ^ ones(w))) : x[0];
    case Op::BVRotateLeft:
      return rotate_left(x[0], f.index0, w);
    case Op::BVRotateRight:
      return rotate_left(x[0], w - f.index0 % w, w);
    default:
      break;
  }
  throw std::invalid_argument("kora::inverse::apply: operator without an inverse");
}

// --- Solving ------------------------------------------------------------------------

namespace {

// Widths of zero would make the arithmetic above ask for 2^(2^64 - 1).
void check_shape(const Operator& f) {
  bool ok = invertible(f.op);
  if (ok && !boolean_op(f.op) && f.op != Op::Equal && f.op != Op::Ite) {
    ok = f.width >= 1;
    if (f.op == Op::BVConcat) ok = ok && f.index0 >= 1;
    if (f.op == Op::BVExtract) ok = ok && f.index1 <= f.index0 && f.index0 < f.width;
  }
  if (!ok) throw std::invalid_argument("kora::inverse::solve: malformed operator");
}

}  // namespace

std::optional<mpz_class> solve(const Operator& f, std::size_t position, const Values& args,
                               const mpz_class& v) {
  check_shape(f);
  if (args.size() != f.arity() || position >= args.size()) {
    throw std::invalid_argument("kora::inverse::solve: wrong number of arguments");
  }
  if (f.op == Op::Ite) {
    std::vector<std::optional<mpz_class>> pattern(args.begin(), args.end());
    pattern[position].reset();
    auto done = solve(f, pattern, v);
    if (!done) return std::nullopt;
    return (*done)[position];
  }
  return solve_single(f, position, args, v);
}

std::optional<Values> solve(const Operator& f, const std::vector<std::optional<mpz_class>>& args,
                            const mpz_class& v, const std::vector<std::size_t>& same) {
  check_shape(f);
  const std::size_t n = f.arity();
  if (args.size() != n || (!same.empty() && same.size() != n)) {
    throw std::invalid_argument("kora::inverse::solve: wrong number of arguments");
  }
  for (std::size_t i = 0; i < same.size(); ++i) {
    if (!args[i]) {
      const std::size_t j = same[i];
      if (j > i || args[j] || same[j] != j) {
        throw std::invalid_argument("kora::inverse::solve: malformed sharing");
      }
    }
  }

  std::optional<Values> out;
  std::vector<std::size_t> free;
  for (std::size_t i = 0; i < n; ++i) {
    if (!args[i]) free.push_back(i);
  }
  if (f.op == Op::Ite) {
    out = solve_ite(f, args, v, same);
  } else if (free.empty()) {
    Values known;
    for (const auto& a : args) known.push_back(*a);
    if (evaluate(f, known) == v) out = known;
  } else if (free.size() == 1) {
    Values known(n);
    for (std::size_t i = 0; i < n; ++i) {
      if (args[i]) known[i] = *args[i];
    }
    if (auto x = solve_single(f, free[0], known, v)) {
      known[free[0]] = *x;
      out = known;
    }
  } else if (!same.empty() && same[1] == 0) {
    for (const mpz_class& x : shared_candidates(f, v)) {
      if (in_range(x, f.width) && evaluate(f, {x, x}) == v) {
        out = Values{x, x};
        break;
      }
    }
  } else {
    Values known{0, neutral(f, v)};
    if (auto x = solve_single(f, 0, known, v)) {
      known[0] = *x;
      out = known;
    }
  }
  // Every answer has been checked on the way; this guards the guarantee that
  // a returned vector satisfies against a slip in the bookkeeping above.
  if (out && evaluate(f, *out) != v) {
    throw std::logic_error("kora::inverse::solve: answer does not satisfy");
  }
  return out;
}

// --- Inverter ----------------------------------------------------------------------

namespace {

// Booleans and bit-vectors: the sorts whose values the search can enumerate.
bool enumerable(const DataType* type) {
  return type->is_bool() || type->is_bv();
}

std::size_t bits_of(const DataType* type) {
  return type->is_bool() ? 1 : type->width();
}

std::uint64_t words_of(const mpz_class& x) {
  return mpz_size(x.get_mpz_t());
}

// What evaluating op over arguments of the given words costs, in the unit of
// Inverter::kSearchBudget: an overhead for the call and its small copies,
// plus four per word of the arguments as they are (each is copied, and
// large blocks cost more to allocate than small ones), so that wide but
// sparse values stay cheap. Products and quotients pay more: schoolbook cost
// while small, roughly FFT cost beyond.
std::uint64_t evaluation_cost(Op op, std::uint64_t words) {
  constexpr std::uint64_t kCallCost = 64;
  constexpr std::uint64_t kWordCost = 4;
  switch (op) {
    case Op::BVMul:
    case Op::BVUdiv:
    case Op::BVUrem:
    case Op::BVSdiv:
    case Op::BVSrem:
      return kCallCost +
             kWordCost * words * std::min<std::uint64_t>(words, 16 * std::bit_width(words));
    default:
      return kCallCost + kWordCost * words;
  }
}

// Whether each subterm of t contains one of roots, for every subterm.
std::unordered_map<const Term*, bool> dependence(const Term* t,
                                                 const std::unordered_set<const Term*>& roots) {
  std::unordered_map<const Term*, bool> depends;
  std::vector<std::pair<const Term*, bool>> stack{{t, false}};
  while (!stack.empty()) {
    auto [u, expanded] = stack.back();
    if (depends.contains(u)) {
      stack.pop_back();
      continue;
    }
    if (!expanded && !roots.contains(u)) {
      stack.back().second = true;
      for (const Term* b : u->args()) stack.emplace_back(b, false);
      continue;
    }
    bool d = roots.contains(u);
    for (const Term* b : u->args()) d = d || depends.at(b);
    depends.emplace(u, d);
    stack.pop_back();
  }
  return depends;
}

}  // namespace

// The state of one search: the part of t that depends on the searched
// constants, compiled once into applications over numbered slots (the
// searched constants first, then every value that does not depend on them,
// read from the store once, then one slot per application in evaluation
// order), so that an assignment costs the dependent applications only.
// Values of sorts without arithmetic stand in the slots as small ids.
struct Inverter::Search {
  struct Node {
    Operator op;
    std::vector<std::size_t> args;
    std::size_t out = 0;
  };

  std::unordered_map<const Term*, bool> depends;
  std::unordered_map<const Term*, std::size_t> slot_of;
  // By argument position: its slot, or nothing for a free argument that is
  // solved, not searched; and the first position of the same free term.
  std::vector<std::optional<std::size_t>> slot;
  std::vector<std::size_t> same;
  // The required value, as a number or an id.
  mpz_class want;
  Values slots;
  std::vector<Node> nodes;
  // The work done so far, in the unit of kSearchBudget.
  std::uint64_t cost = 0;
  std::vector<const Term*> opaque;  // by id
  std::unordered_map<const Term*, std::size_t> opaque_id;

  std::size_t add_slot(const mpz_class& x) {
    slots.push_back(x);
    return slots.size() - 1;
  }
  mpz_class id(const Term* value) {
    auto [it, fresh] = opaque_id.emplace(value, opaque.size());
    if (fresh) opaque.push_back(value);
    return mpz_class(static_cast<unsigned long>(it->second));
  }
  // Evaluates the dependent part for the assignment in the first slots.
  void run() {
    Values xs;
    for (const Node& node : nodes) {
      xs.clear();
      std::uint64_t words = 1;
      for (std::size_t a : node.args) {
        xs.push_back(slots[a]);
        words += words_of(slots[a]);
      }
      cost += evaluation_cost(node.op.op, words);
      slots[node.out] = evaluate(node.op, xs);
    }
  }
};

Inverter::~Inverter() = default;

mpz_class Inverter::to_number(const Term* value) const {
  if (value->type() == mgr_->bool_type()) return boolean(is_true(value));
  return number_of(value).numerator();
}

const Term* Inverter::to_term(const mpz_class& x, const DataType* type) {
  if (type == mgr_->bool_type()) return bool_term(truth(x));
  return mgr_->make_bv_number(QNumber(x), type->width());
}

void Inverter::record(const std::vector<Arg>& args, const std::vector<std::size_t>& same,
                      const std::vector<const Term*>& values) {
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i].is_free() && same[i] == i) calculated_value(args[i].term, values[i]);
  }
}

const Term* Inverter::other_value(const Term* value) {
  const DataType* type = value->type();
  switch (type->kind()) {
    case DataType::Kind::Bool:
      return bool_term(!is_true(value));
    case DataType::Kind::BitVec:
      return to_term(to_number(value) ^ 1, type);
    case DataType::Kind::Sort: {
      // Abstract values with different indices are different values. The
      // next index, unless that one could not be read back: then the
      // smallest, which differs from an index that large.
      const std::size_t k = value->get_symbol()->param(0);
      return mgr_->make_abstract_value(k < kLargestAbstractIndex ? k + 1 : 0, type);
    }
    case DataType::Kind::Array:
      // A model value of an array sort is a constant array.
      return mgr_->make_const_array(type, other_value(value->arg(0)));
  }
  return nullptr;
}

// (x = c) = v over a sort without arithmetic: v: x = c; not v: x = a value other than c.
// Both free: y = the default value and x as above; one term on both sides: solvable iff v.
std::optional<std::vector<const Term*>> Inverter::equal_opaque_values(
    const std::vector<Arg>& args, const std::vector<std::size_t>& same, const Term* v) {
  const bool want = is_true(v);
  std::vector<const Term*> values(2, nullptr);
  if (args[0].is_free() && args[1].is_free()) {
    if (same[1] == 0) {
      if (!want) return std::nullopt;
      values[0] = values[1] = store_->default_value(args[0].term->type());
    } else {
      values[1] = store_->default_value(args[1].term->type());
      values[0] = want ? values[1] : other_value(values[1]);
    }
  } else {
    const std::size_t x = args[0].is_free() ? 0 : 1;
    const Term* c = args[1 - x].term;
    values[x] = want ? c : other_value(c);
  }
  return values;
}

// ite over a sort without arithmetic: the branch values (and v) become small
// integers for the pure solver, which only ever compares them or copies v.
std::optional<std::vector<const Term*>> Inverter::ite_opaque_values(
    const Term* t, const std::vector<Arg>& args, const std::vector<std::size_t>& same,
    const Term* v) {
  std::vector<const Term*> table{v};
  auto id = [&](const Term* value) {
    auto it = std::find(table.begin(), table.end(), value);
    if (it != table.end()) return mpz_class(static_cast<unsigned long>(it - table.begin()));
    table.push_back(value);
    return mpz_class(static_cast<unsigned long>(table.size() - 1));
  };
  std::vector<std::optional<mpz_class>> pattern(3);
  if (args[0].has_value()) pattern[0] = to_number(args[0].term);
  for (std::size_t i = 1; i < 3; ++i) {
    if (args[i].has_value()) pattern[i] = id(args[i].term);
  }
  const Operator f{Op::Ite, 0, 0, 0};
  auto done = solve(f, pattern, mpz_class(0), same);
  if (!done) return std::nullopt;
  return std::vector<const Term*>{to_term((*done)[0], t->arg(0)->type()),
                                  table[(*done)[1].get_ui()], table[(*done)[2].get_ui()]};
}

std::optional<std::vector<const Term*>> Inverter::opaque_values(
    const Term* t, const std::vector<Arg>& args, const std::vector<std::size_t>& same,
    const Term* v) {
  if (t->get_symbol()->op() == Op::Equal) return equal_opaque_values(args, same, v);
  return ite_opaque_values(t, args, same, v);
}

Inverter::Placed Inverter::unvalued_free_constants(const Term* t) {
  Placed found;
  std::unordered_set<const Term*> seen;
  for (std::size_t i = 0; i < t->arity(); ++i) {
    std::vector<const Term*> stack{t->arg(i)};
    while (!stack.empty()) {
      const Term* u = stack.back();
      stack.pop_back();
      if (!seen.insert(u).second) continue;
      if (u->get_symbol()->op() == Op::Constant && store_->value_of(u) == nullptr &&
          pred_->is_free(u)) {
        found.emplace_back(u, i);
      }
      // Reversed, so that the arguments come off the stack left to right.
      for (std::size_t j = u->arity(); j-- > 0;) stack.push_back(u->arg(j));
    }
  }
  return found;
}

mpz_class Inverter::search_number(Search& s, const Term* value) const {
  return enumerable(value->type()) ? to_number(value) : s.id(value);
}

const Term* Inverter::search_term(const Search& s, const mpz_class& x, const DataType* type) {
  return enumerable(type) ? to_term(x, type) : s.opaque[x.get_ui()];
}

std::size_t Inverter::compile(Search& s, const Term* root) {
  std::vector<std::pair<const Term*, bool>> stack{{root, false}};
  while (!stack.empty()) {
    auto [u, expanded] = stack.back();
    if (s.slot_of.contains(u)) {
      stack.pop_back();
      continue;
    }
    if (!s.depends.at(u)) {
      const Term* normal = store_->get_normalized(u);
      if (!store_->is_good_model_value(normal)) throw Refused(kOpaqueMessage);
      s.slot_of.emplace(u, s.add_slot(search_number(s, normal)));
      stack.pop_back();
      continue;
    }
    if (!expanded) {
      stack.back().second = true;
      for (const Term* b : u->args()) stack.emplace_back(b, false);
      continue;
    }
    auto g = Operator::of(u);
    if (!g || u->arity() != g->arity()) throw Refused(kOpaqueMessage);
    Search::Node node{*g, {}, 0};
    for (const Term* b : u->args()) node.args.push_back(s.slot_of.at(b));
    node.out = s.add_slot(0);
    s.slot_of.emplace(u, node.out);
    s.nodes.push_back(std::move(node));
    stack.pop_back();
  }
  return s.slot_of.at(root);
}

void Inverter::place_arguments(Search& s, const Term* t, const std::vector<Arg>& args) {
  const std::size_t n = args.size();
  s.slot.assign(n, std::nullopt);
  s.same.resize(n);
  for (std::size_t i = 0; i < n; ++i) {
    s.same[i] = i;
    const Term* a = t->arg(i);
    if (s.depends.at(a) && (args[i].has_value() || s.slot_of.contains(a))) {
      s.slot[i] = compile(s, a);
    } else if (args[i].has_value()) {
      s.slot[i] = s.add_slot(search_number(s, args[i].term));
    } else {
      for (std::size_t j = 0; j < i; ++j) {
        if (!s.slot[j] && t->arg(j) == a) {
          s.same[i] = j;
          break;
        }
      }
    }
  }
}

std::optional<std::vector<const Term*>> Inverter::solve_assignment(Search& s, const Term* t,
                                                                   const std::vector<Arg>& args,
                                                                   const Term* v) {
  const std::size_t n = args.size();
  const bool opaque = !enumerable(t->arg(n - 1)->type());
  const bool any_free = std::find(s.slot.begin(), s.slot.end(), std::nullopt) != s.slot.end();
  if (opaque && any_free) {
    std::vector<Arg> known = args;
    for (std::size_t i = 0; i < n; ++i) {
      if (s.slot[i]) {
        known[i] = {Status::Valued, search_term(s, s.slots[*s.slot[i]], t->arg(i)->type())};
      }
    }
    return opaque_values(t, known, s.same, v);
  }
  const Operator f = *Operator::of(t);
  std::vector<std::optional<mpz_class>> pattern(n);
  // Solving costs about what evaluating t does.
  std::uint64_t words = 1 + words_of(s.want);
  for (std::size_t i = 0; i < n; ++i) {
    if (!s.slot[i]) continue;
    pattern[i] = s.slots[*s.slot[i]];
    words += words_of(*pattern[i]);
  }
  s.cost += evaluation_cost(f.op, words);
  auto done = solve(f, pattern, s.want, s.same);
  if (!done) return std::nullopt;
  std::vector<const Term*> values(n, nullptr);
  for (std::size_t i = 0; i < n; ++i) {
    if (!s.slot[i]) values[i] = search_term(s, (*done)[i], t->arg(i)->type());
  }
  return values;
}

// One record per free term, in the order of first occurrence; recording a
// searched constant replaces the default it was given.
void Inverter::record_search(const Search& s, const Term* t, const Placed& searched,
                             const std::vector<const Term*>& values) {
  for (std::size_t i = 0; i < t->arity(); ++i) {
    if (!s.slot[i] && s.same[i] == i) calculated_value(t->arg(i), values[i]);
    for (std::size_t k = 0; k < searched.size(); ++k) {
      const Term* c = searched[k].first;
      if (searched[k].second == i) calculated_value(c, to_term(s.slots[k], c->type()));
    }
  }
}

// Free constants that occur inside a non-free argument got default values
// when that argument was classified, so the values of such arguments follow
// the constants'. The constants' values are searched exhaustively; for each
// assignment the dependent part is re-evaluated and the remaining free
// arguments are solved.
void Inverter::invert_dependent(const Term* t, const std::vector<Arg>& args, const Placed& searched,
                                const Term* v) {
  Search s;
  std::unordered_set<const Term*> roots;
  std::size_t bits = 0;
  for (const auto& [c, where] : searched) {
    if (!enumerable(c->type())) throw Refused(kOpaqueMessage);
    bits += bits_of(c->type());
    roots.insert(c);
    s.slot_of.emplace(c, s.add_slot(0));
  }
  if (bits > kMaxSearchBits) throw Refused(kTooWideMessage);
  s.depends = dependence(t, roots);
  place_arguments(s, t, args);
  s.want = search_number(s, v);

  const std::uint64_t combinations = std::uint64_t{1} << bits;
  for (std::uint64_t code = 0; code < combinations; ++code) {
    std::size_t offset = 0;
    for (std::size_t k = 0; k < searched.size(); ++k) {
      const std::size_t width = bits_of(searched[k].first->type());
      s.slots[k] = static_cast<unsigned long>((code >> offset) & ((std::uint64_t{1} << width) - 1));
      offset += width;
    }
    s.run();
    auto values = solve_assignment(s, t, args, v);
    // Bounded by the work actually done, not by widths: wide values that
    // stay small cost little.
    if (s.cost > kSearchBudget) throw Refused(kTooWideMessage);
    if (!values) continue;
    record_search(s, t, searched, *values);
    return;
  }
  throw NoValue();
}

void Inverter::operator()(const Term* t, const Term* v) {
  // Classification gives default values to the constants inside a non-free
  // argument, free ones included; those are told apart by having had none
  // before.
  const Placed unvalued = unvalued_free_constants(t);
  std::vector<Arg> args;
  args.reserve(t->arity());
  for (const Term* a : t->args()) args.push_back(classify(a));

  auto f = Operator::of(t);
  if (!f || t->arity() != f->arity()) throw Refused(kNoInverseMessage);
  const Term* want = store_->get_normalized(v);
  if (!store_->is_good_model_value(want) || want->type() != t->type()) {
    throw Refused(kNotAValueMessage);
  }
  Placed searched;
  for (const auto& placed : unvalued) {
    if (store_->value_of(placed.first) != nullptr) searched.push_back(placed);
  }
  if (!searched.empty()) {
    invert_dependent(t, args, searched, want);
    return;
  }

  const std::size_t n = args.size();
  std::vector<std::size_t> same(n);
  bool any_free = false;
  for (std::size_t i = 0; i < n; ++i) {
    same[i] = i;
    if (!args[i].is_free()) continue;
    any_free = true;
    for (std::size_t j = 0; j < i; ++j) {
      if (args[j].is_free() && args[j].term == args[i].term) {
        same[i] = j;
        break;
      }
    }
  }
  if (!any_free) {
    if (store_->get_normalized(t) != want) throw NoValue();
    return;
  }
  if (!enumerable(t->arg(n - 1)->type())) {
    auto values = opaque_values(t, args, same, want);
    if (!values) throw NoValue();
    record(args, same, *values);
    return;
  }

  std::vector<std::optional<mpz_class>> pattern(n);
  for (std::size_t i = 0; i < n; ++i) {
    if (args[i].has_value()) pattern[i] = to_number(args[i].term);
  }
  auto done = solve(*f, pattern, to_number(want), same);
  if (!done) throw NoValue();
  std::vector<const Term*> values(n, nullptr);
  for (std::size_t i = 0; i < n; ++i) values[i] = to_term((*done)[i], t->arg(i)->type());
  record(args, same, values);
}

}  // namespace kora::inverse
