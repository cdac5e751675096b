// Differential test of QNumber against GMP's rationals. Random operands lean
// toward the values where the small form's overflow tests switch (0, ±1,
// ±2^31, ±2^32, ±2^62, 2^63-1, -2^63, √2^63, values beyond 2^64, big numbers
// that hold small values); every result is checked for its value, for the
// invariants of its representation and, where the form is determined, for
// the form itself.
//
// The seed is fixed; KORA_TEST_SEED=<n> replays another run. A failure prints
// the seed, the iteration and the operation with its operands.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kora/numbers/qnumber.h"

namespace kora {
namespace {

constexpr std::uint64_t kDefaultSeed = 20240611;

std::uint64_t base_seed() {
  static const std::uint64_t seed = [] {
    const char* env = std::getenv("KORA_TEST_SEED");
    return env != nullptr && *env != '\0' ? std::strtoull(env, nullptr, 0) : kDefaultSeed;
  }();
  return seed;
}

mpz_class pow2z(unsigned long n) {
  mpz_class r;
  mpz_ui_pow_ui(r.get_mpz_t(), 2, n);
  return r;
}

const mpz_class& word_max() {
  static const mpz_class m(LONG_MAX);
  return m;
}

// Whether the small form can hold m (it never holds -2^63).
bool fits_small(const mpq_class& m) {
  return mpz_cmpabs(m.get_num_mpz_t(), word_max().get_mpz_t()) <= 0 && m.get_den() <= word_max();
}

std::string show(const QNumber& q) {
  return q.to_string() + (q.is_small() ? " [small]" : " [big]");
}

// Empty when q holds want in a valid representation, else what is wrong.
std::string problem(const QNumber& q, const mpq_class& want) {
  if (q.is_small()) {
    const std::int64_t n = q.small_num();
    const std::int64_t d = q.small_den();
    if (n == INT64_MIN) return "small numerator word is -2^63";
    if (d == INT64_MIN) return "small denominator word is -2^63";
    if (d <= 0) return "small denominator not positive";
    if (n == 0 && d != 1) return "small zero not stored as 0/1";
    if (std::gcd(n, d) != 1) return "small form not reduced";
    if (mpz_cmp_si(want.get_num_mpz_t(), n) != 0 || mpz_cmp_si(want.get_den_mpz_t(), d) != 0)
      return "wrong value " + q.to_string() + ", expected " + want.get_str();
    return {};
  }
  const mpz_class n = q.numerator();
  const mpz_class d = q.denominator();
  if (sgn(d) <= 0) return "big denominator not positive";
  if (gcd(n, d) != 1) return "big form not reduced";
  if (n == 0 && d != 1) return "big zero not over 1";
  if (n != want.get_num() || d != want.get_den())
    return "wrong value " + q.to_string() + ", expected " + want.get_str();
  return {};
}

std::string form_problem(const QNumber& q, bool want_small) {
  if (q.is_small() == want_small) return {};
  return std::string("result should be ") + (want_small ? "small" : "big") + ": " + show(q);
}

class Gen {
 public:
  explicit Gen(std::uint64_t seed) : rng_(seed) {
    for (unsigned long k : {31UL, 32UL, 62UL, 63UL, 64UL}) edges_.push_back(pow2z(k));
    for (long v : {0L, 1L, 2L, 3L, 7L, 3037000499L, 3037000500L, 1000000007L})
      edges_.emplace_back(v);
  }

  std::uint64_t next() { return rng_(); }
  std::uint64_t below(std::uint64_t n) { return rng_() % n; }
  bool percent(unsigned p) { return below(100) < p; }
  long in(long lo, long hi) {
    return lo + static_cast<long>(below(static_cast<std::uint64_t>(hi - lo + 1)));
  }

  mpz_class bits(unsigned n) {
    mpz_class r = 0;
    for (unsigned have = 0; have < n; have += 64) {
      r <<= 64;
      r += mpz_class(static_cast<unsigned long>(next()));
    }
    const unsigned extra = (n + 63) / 64 * 64 - n;
    r >>= extra;
    return r;
  }

  // An edge (2^31, 2^63, √2^63 ...) moved by -2..2, with either sign.
  mpz_class edge_integer() {
    mpz_class v = edges_[below(edges_.size())] + in(-2, 2);
    return percent(50) ? mpz_class(-v) : v;
  }

  mpz_class integer() {
    switch (below(10)) {
      case 0:
      case 1:
      case 2:
      case 3:
        return edge_integer();
      case 4:
      case 5:
        return in(-50, 50);
      case 6:
        return mpz_class(static_cast<long>(next()));
      case 7: {
        mpz_class v = bits(1 + static_cast<unsigned>(below(63)));
        return percent(50) ? mpz_class(-v) : v;
      }
      case 8: {
        mpz_class v = bits(64 + static_cast<unsigned>(below(137)));
        return percent(50) ? mpz_class(-v) : v;
      }
      default: {
        mpz_class v = pow2z(30 + below(101)) + in(-3, 3);
        return percent(50) ? mpz_class(-v) : v;
      }
    }
  }

  mpz_class positive_integer() {
    mpz_class v = abs(integer());
    return v == 0 ? mpz_class(1) : v;
  }

  mpq_class rational() {
    mpq_class m;
    switch (below(10)) {
      case 0:
      case 1:
      case 2:
        m = integer();
        break;
      case 3:
      case 4:
        m = mpq_class(in(-40, 40), in(1, 40));
        break;
      case 5:
      case 6:
        m = mpq_class(integer(), positive_integer());
        break;
      case 7:
        m = mpq_class(in(-9, 9), positive_integer());
        break;
      case 8:
        m = mpq_class(integer(), in(1, 12));
        break;
      default:
        m = mpq_class(bits(64 + static_cast<unsigned>(below(97))) * (percent(50) ? 1 : -1),
                      bits(64 + static_cast<unsigned>(below(97))) + 1);
        break;
    }
    m.canonicalize();
    return m;
  }

  // A value that the result of an operation should land on or next to.
  mpq_class target() {
    static const unsigned long kTargets[] = {31, 32, 62, 63, 63, 63, 64};
    mpz_class v = below(8) == 0 ? mpz_class(0) : pow2z(kTargets[below(7)]);
    v += in(-2, 2);
    if (percent(50)) v = -v;
    return mpq_class(v);
  }

  // A long near an edge, LONG_MIN included.
  long edge_long() {
    for (;;) {
      const mpz_class v = percent(70) ? edge_integer() : mpz_class(in(-50, 50));
      if (v.fits_slong_p()) return v.get_si();
    }
  }

 private:
  std::mt19937_64 rng_;
  std::vector<mpz_class> edges_;
};

// m in the small form where the value allows it.
QNumber natural(const mpq_class& m) {
  if (m.get_num().fits_slong_p() && m.get_den().fits_slong_p()) {
    QNumber r(m.get_num().get_si());
    if (m.get_den() != 1) r /= QNumber(m.get_den().get_si());
    return r;
  }
  return QNumber(m.get_num(), m.get_den());
}

// m built one of several ways, including big blocks that hold small values.
QNumber make(const mpq_class& m, Gen& g) {
  switch (g.below(8)) {
    case 0:
      return QNumber(m.get_num(), m.get_den());
    case 1:
      if (m.get_den() == 1) return QNumber(m.get_num());
      return natural(m);
    case 2: {
      QNumber b(pow2z(100), mpz_class(1));
      b = natural(m);
      return b;
    }
    default:
      return natural(m);
  }
}

struct Val {
  QNumber q;
  mpq_class m;
};

// Assignment keeps a big target big (it writes into the block); swapping
// hands the form over as well, which is what reusing a slot needs.
void put(Val& slot, Val&& v) {
  using std::swap;
  swap(slot.q, v.q);
  swap(slot.m, v.m);
}

// Shared driver: a pool of earlier results mixed with fresh operands, so that
// chains of operations (and the big numbers they grow) are covered too.
class Driver {
 public:
  Driver(const char* name, std::uint64_t salt) : seed_(base_seed() ^ salt), gen_(seed_) {
    std::cout << "[ seed     ] " << name << ": KORA_TEST_SEED=" << base_seed() << " (stream "
              << seed_ << ")\n";
    for (int i = 0; i < 32; ++i) pool_.push_back(fresh());
  }

  Gen& gen() { return gen_; }

  Val fresh() {
    mpq_class m = gen_.rational();
    QNumber q = make(m, gen_);
    return {std::move(q), std::move(m)};
  }

  Val fresh_integer() {
    mpq_class m(gen_.integer());
    QNumber q = make(m, gen_);
    return {std::move(q), std::move(m)};
  }

  // An operand chosen so that combining it with x under op lands on or near
  // an edge of the small form, where the overflow tests decide.
  const Val& partner(const Val& x, char op) {
    if (!gen_.percent(35)) return pick();
    mpq_class t = gen_.target();
    mpq_class m;
    switch (op) {
      case '+':
        m = t - x.m;
        break;
      case '-':
        m = x.m - t;
        break;
      case '*':
        if (sgn(x.m) == 0) return pick();
        m = t / x.m;
        if (gen_.percent(50)) m = mpq_class(m.get_num() / m.get_den() + gen_.in(-1, 1));
        break;
      case '/':
        if (sgn(t) == 0) return pick();
        m = x.m / t;
        break;
      default: {
        // Close to x: a/b against a/b + delta/D for a large D.
        mpq_class delta(gen_.in(-1, 1), gen_.positive_integer());
        delta.canonicalize();
        m = x.m + delta;
        break;
      }
    }
    m.canonicalize();
    put(scratch_[turn_ ^= 1], {make(m, gen_), m});
    return scratch_[turn_];
  }

  const Val& pick() {
    if (gen_.percent(50)) {
      put(scratch_[turn_ ^= 1], fresh());
      return scratch_[turn_];
    }
    return pool_[gen_.below(pool_.size())];
  }

  // Keeps results for later operands while they stay a reasonable size.
  void keep(const QNumber& q, const mpq_class& m) {
    if (mpz_sizeinbase(m.get_num_mpz_t(), 2) + mpz_sizeinbase(m.get_den_mpz_t(), 2) > 600) return;
    // Big results never return to the small form, so without this the pool
    // would drift to big numbers only.
    QNumber kept = !q.is_small() && fits_small(m) && gen_.percent(75) ? natural(m) : q;
    put(pool_[gen_.below(pool_.size())], {std::move(kept), m});
  }

  std::string where(long iteration) const {
    std::ostringstream os;
    os << "KORA_TEST_SEED=" << base_seed() << " (stream " << seed_ << "), iteration " << iteration
       << ": ";
    return os.str();
  }

 private:
  std::uint64_t seed_;
  Gen gen_;
  std::vector<Val> pool_;
  Val scratch_[2];
  int turn_ = 0;
};

// The operand checks run first: a wrong operand makes every later message
// misleading.
std::string check_operand(const Val& v, const char* name) {
  std::string p = problem(v.q, v.m);
  return p.empty() ? p : std::string("operand ") + name + " " + show(v.q) + ": " + p;
}

// ---------------------------------------------------------------------------

enum ArithOp {
  kAdd,
  kSub,
  kMul,
  kDiv,
  kAddEq,
  kSubEq,
  kMulEq,
  kDivEq,
  kSelfAdd,
  kSelfSub,
  kSelfMul,
  kSelfDiv,
  kArithOps
};
const char* const kArithNames[] = {"a + b",  "a - b",  "a * b",  "a /= b (copy)",
                                   "a += b", "a -= b", "a *= b", "a /= b",
                                   "a += a", "a -= a", "a *= a", "a /= a"};

std::string arith_step(Driver& d) {
  const Val& x = d.pick();
  int op = static_cast<int>(d.gen().below(kArithOps));
  static const char kKind[] = {'+', '-', '*', '/', '+', '-', '*', '/'};
  const Val& y = op < kSelfAdd ? d.partner(x, kKind[op]) : d.pick();
  if ((op == kDiv || op == kDivEq) && sgn(y.m) == 0) op = kMul;
  if (op == kSelfDiv && sgn(x.m) == 0) op = kSelfMul;
  const bool self = op >= kSelfAdd;

  if (std::string p = check_operand(x, "a"); !p.empty()) return p;
  if (std::string p = check_operand(y, "b"); !p.empty()) return p;

  QNumber r;
  mpq_class want;
  switch (op) {
    case kAdd:
      r = x.q + y.q;
      want = x.m + y.m;
      break;
    case kSub:
      r = x.q - y.q;
      want = x.m - y.m;
      break;
    case kMul:
      r = x.q * y.q;
      want = x.m * y.m;
      break;
    case kDiv:
      r = x.q;
      r /= y.q;
      want = x.m / y.m;
      break;
    case kAddEq:
      r = x.q;
      r += y.q;
      want = x.m + y.m;
      break;
    case kSubEq:
      r = x.q;
      r -= y.q;
      want = x.m - y.m;
      break;
    case kMulEq:
      r = x.q;
      r *= y.q;
      want = x.m * y.m;
      break;
    case kDivEq: {
      QNumber t(x.q);  // through a copy-constructed target as well
      t /= y.q;
      r = std::move(t);
      want = x.m / y.m;
      break;
    }
    case kSelfAdd:
      r = x.q;
      r += r;
      want = x.m + x.m;
      break;
    case kSelfSub:
      r = x.q;
      r -= r;
      want = 0;
      break;
    case kSelfMul:
      r = x.q;
      r *= r;
      want = x.m * x.m;
      break;
    default:
      r = x.q;
      r /= r;
      want = 1;
      break;
  }
  // r was assigned into a small default target, so it has the form of the
  // computed result.
  auto describe = [&] {
    std::string s = std::string(kArithNames[op]) + " with a = " + show(x.q);
    if (!self) s += ", b = " + show(y.q);
    return s + ": ";
  };
  if (std::string p = problem(r, want); !p.empty()) return describe() + p;

  const bool xs = x.q.is_small();
  const bool ys = self ? xs : y.q.is_small();
  const bool mul = op == kMul || op == kMulEq || op == kSelfMul;
  const bool mul_like = mul || op == kDiv || op == kDivEq || op == kSelfDiv;
  std::string f;
  if (!xs) {
    // Big stays big; the one way back is a big non-integer times a small zero.
    const bool back = mul && ys && sgn(y.m) == 0 && x.m.get_den() != 1;
    f = form_problem(r, back);
  } else if (!ys) {
    f = form_problem(r, false);
  } else if (mul_like) {
    f = form_problem(r, fits_small(want));
  } else if (x.m.get_den() == 1 && (self || y.m.get_den() == 1)) {
    f = form_problem(r, fits_small(want));
  } else if (!fits_small(want)) {
    f = form_problem(r, false);
  }
  if (!f.empty()) return describe() + f;
  d.keep(r, want);
  return {};
}

// ---------------------------------------------------------------------------

const char* const kLongNames[] = {"a + l", "a - l", "a / l", "a += l", "a -= l", "a /= l"};

std::string long_step(Driver& d) {
  const Val& x = d.pick();
  int op = static_cast<int>(d.gen().below(6));
  long l = d.gen().edge_long();
  if (d.gen().percent(35) && op % 3 != 2) {
    // Aim the sum or difference at an edge.
    const mpq_class t = d.gen().target();
    const mpq_class aim = op % 3 == 0 ? mpq_class(t - x.m) : mpq_class(x.m - t);
    const mpz_class whole = aim.get_num() / aim.get_den();
    if (whole.fits_slong_p()) l = whole.get_si();
  }
  if (l == 0 && (op == 2 || op == 5)) op = 0;
  if (std::string p = check_operand(x, "a"); !p.empty()) return p;

  QNumber r;
  mpq_class want;
  const mpq_class lm(l);
  switch (op) {
    case 0:
      r = x.q + l;
      want = x.m + lm;
      break;
    case 1:
      r = x.q - l;
      want = x.m - lm;
      break;
    case 2:
      r = x.q / l;
      want = x.m / lm;
      break;
    case 3:
      r = x.q;
      r += l;
      want = x.m + lm;
      break;
    case 4:
      r = x.q;
      r -= l;
      want = x.m - lm;
      break;
    default:
      r = x.q;
      r /= l;
      want = x.m / lm;
      break;
  }
  auto describe = [&] {
    return std::string(kLongNames[op]) + " with a = " + show(x.q) + ", l = " + std::to_string(l) +
           ": ";
  };
  if (std::string p = problem(r, want); !p.empty()) return describe() + p;
  // The long becomes a QNumber first: LONG_MIN is big and makes the result big.
  std::string f;
  if (!x.q.is_small() || l == LONG_MIN) {
    f = form_problem(r, false);
  } else if (op == 2 || op == 5 || x.m.get_den() == 1) {
    f = form_problem(r, fits_small(want));
  } else if (!fits_small(want)) {
    f = form_problem(r, false);
  }
  if (!f.empty()) return describe() + f;
  d.keep(r, want);
  return {};
}

// ---------------------------------------------------------------------------

std::string compare_step(Driver& d) {
  const Val& x = d.pick();
  Val same;
  const Val* yp = &d.partner(x, '<');
  if (d.gen().percent(20)) {
    // The same value in a possibly different form.
    same = {make(x.m, d.gen()), x.m};
    yp = &same;
  }
  const Val& y = *yp;
  if (std::string p = check_operand(x, "a"); !p.empty()) return p;
  if (std::string p = check_operand(y, "b"); !p.empty()) return p;

  const int c = cmp(x.m, y.m);
  const auto bad = [&](const char* what, bool got) {
    return std::string(what) + " with a = " + show(x.q) + ", b = " + show(y.q) + " gave " +
           (got ? "true" : "false");
  };
  if ((x.q == y.q) != (c == 0)) return bad("a == b", x.q == y.q);
  if ((x.q != y.q) != (c != 0)) return bad("a != b", x.q != y.q);
  if ((x.q < y.q) != (c < 0)) return bad("a < b", x.q < y.q);
  if ((y.q < x.q) != (c > 0)) return bad("b < a", y.q < x.q);

  // a < l, with l often right next to a.
  long l = d.gen().edge_long();
  if (d.gen().percent(40)) {
    mpz_class near = x.m.get_num() / x.m.get_den() + d.gen().in(-1, 1);
    if (near.fits_slong_p()) l = near.get_si();
  }
  const bool got = x.q < l;
  if (got != (x.m < mpq_class(l)))
    return "a < l with a = " + show(x.q) + ", l = " + std::to_string(l) + " gave " +
           (got ? "true" : "false");
  // The operands are untouched by comparing.
  if (std::string p = problem(x.q, x.m); !p.empty()) return "a changed by comparing: " + p;
  if (std::string p = problem(y.q, y.m); !p.empty()) return "b changed by comparing: " + p;
  return {};
}

// ---------------------------------------------------------------------------

std::string divmod_step(Driver& d) {
  Gen& g = d.gen();
  const Val x = d.fresh_integer();
  Val y = d.fresh_integer();
  if (sgn(y.m) == 0) y = {QNumber(mpz_class(1), mpz_class(1)), mpq_class(1)};
  if (std::string p = check_operand(x, "a"); !p.empty()) return p;
  if (std::string p = check_operand(y, "d"); !p.empty()) return p;

  const mpz_class& a = x.m.get_num();
  const mpz_class& b = y.m.get_num();
  const bool small_path = x.q.is_small() && y.q.is_small();
  mpz_class wq, wr;
  if (small_path) {
    mpz_tdiv_qr(wq.get_mpz_t(), wr.get_mpz_t(), a.get_mpz_t(), b.get_mpz_t());
  } else {
    mpz_fdiv_qr(wq.get_mpz_t(), wr.get_mpz_t(), a.get_mpz_t(), b.get_mpz_t());
  }

  QNumber q;
  QNumber r;
  bool q_was_small = true;
  bool r_was_small = true;
  const int variant = static_cast<int>(g.below(4));
  const char* how = "";
  switch (variant) {
    case 0:
      // Targets of either form, with stale values.
      q = make(g.rational(), g);
      r = make(g.rational(), g);
      q_was_small = q.is_small();
      r_was_small = r.is_small();
      x.q.divmod(y.q, q, r);
      how = "a.divmod(d, q, r)";
      break;
    case 1: {
      // The quotient overwrites the dividend.
      q = x.q;
      q_was_small = q.is_small();
      q.divmod(y.q, q, r);
      how = "a.divmod(d, a, r)";
      break;
    }
    case 2: {
      // The remainder overwrites the divisor.
      r = y.q;
      r_was_small = r.is_small();
      x.q.divmod(r, q, r);
      how = "a.divmod(d, q, d)";
      break;
    }
    default:
      x.q.divmod(y.q, q, r);
      how = "a.divmod(d, q, r)";
      break;
  }
  auto describe = [&] {
    return std::string(how) + " with a = " + show(x.q) + ", d = " + show(y.q) +
           (small_path ? " (truncating path): " : " (floor path): ");
  };
  if (std::string p = problem(q, mpq_class(wq)); !p.empty()) return describe() + "quotient " + p;
  if (std::string p = problem(r, mpq_class(wr)); !p.empty()) return describe() + "remainder " + p;
  std::string f = form_problem(q, small_path && q_was_small);
  if (f.empty()) f = form_problem(r, small_path && r_was_small);
  if (!f.empty()) return describe() + f;
  return {};
}

// ---------------------------------------------------------------------------

std::string misc_step(Driver& d) {
  Gen& g = d.gen();
  const Val& x = d.pick();
  if (std::string p = check_operand(x, "a"); !p.empty()) return p;
  const int op = static_cast<int>(g.below(6));
  switch (op) {
    case 0: {
      const QNumber c(x.q);
      if (std::string p = problem(c, x.m); !p.empty()) return "copy of " + show(x.q) + ": " + p;
      if (c.is_small() != x.q.is_small()) return "copy of " + show(x.q) + " changed form";
      return {};
    }
    case 1:
    case 2: {
      QNumber t = make(g.rational(), g);
      const bool t_small = t.is_small();
      const std::string before = show(t);
      QNumber s(x.q);
      if (op == 1) {
        t = s;
      } else {
        t = std::move(s);
        // The moved-from source must still be a valid number.
        if (std::string p = problem(s, s.to_mpq()); !p.empty())  // NOLINT(bugprone-use-after-move)
          return "moved-from source: " + p;
      }
      const char* name = op == 1 ? "copy-assign " : "move-assign ";
      const std::string desc = std::string(name) + show(x.q) + " into " + before + ": ";
      if (std::string p = problem(t, x.m); !p.empty()) return desc + p;
      if (std::string f = form_problem(t, t_small && x.q.is_small()); !f.empty()) return desc + f;
      d.keep(t, x.m);
      return {};
    }
    case 3: {
      QNumber s(x.q);
      const QNumber c(std::move(s));
      const std::string desc = "move-construct from " + show(x.q) + ": ";
      if (std::string p = problem(c, x.m); !p.empty()) return desc + p;
      if (c.is_small() != x.q.is_small()) return desc + "form changed";
      if (std::string p = problem(s, mpq_class(0)); !p.empty())  // NOLINT(bugprone-use-after-move)
        return desc + "source: " + p;
      if (!s.is_small()) return desc + "source not small";
      return {};
    }
    case 4: {
      QNumber t = make(g.rational(), g);
      const bool t_small = t.is_small();
      const std::string before = show(t);
      const unsigned long n = g.below(140);
      BVNumber::pow2(n, &t);
      const std::string desc = "pow2(" + std::to_string(n) + ") into " + before + ": ";
      if (std::string p = problem(t, mpq_class(pow2z(n))); !p.empty()) return desc + p;
      if (std::string f = form_problem(t, n <= 62 && t_small); !f.empty()) return desc + f;
      return {};
    }
    default: {
      QNumber c(x.q);
      c.normalize();
      const std::string desc = "normalize() of " + show(x.q) + ": ";
      if (std::string p = problem(c, x.m); !p.empty()) return desc + p;
      if (c.is_small() != x.q.is_small()) return desc + "form changed";
      return {};
    }
  }
}

// ---------------------------------------------------------------------------

template <typename Step>
void run(const char* name, std::uint64_t salt, long iterations, Step step) {
  Driver d(name, salt);
  for (long i = 0; i < iterations; ++i) {
    const std::string p = step(d);
    if (!p.empty()) {
      FAIL() << d.where(i) << p;
    }
  }
}

// Two million operations in all, split so that each test stays short.
TEST(QNumberDiff, ArithmeticA) {
  run("ArithmeticA", 0x11, 500000, arith_step);
}
TEST(QNumberDiff, ArithmeticB) {
  run("ArithmeticB", 0x12, 500000, arith_step);
}
TEST(QNumberDiff, LongForms) {
  run("LongForms", 0x21, 300000, long_step);
}
TEST(QNumberDiff, Comparisons) {
  run("Comparisons", 0x31, 300000, compare_step);
}
TEST(QNumberDiff, Divmod) {
  run("Divmod", 0x41, 250000, divmod_step);
}
TEST(QNumberDiff, CopyAssignPow2Normalize) {
  run("CopyAssignPow2Normalize", 0x51, 150000, misc_step);
}

}  // namespace
}  // namespace kora
