#include "kora/numbers/qnumber.h"

#include <climits>
#include <cstdlib>
#include <new>
#include <ostream>
#include <stdexcept>

#include "kora/numbers/qnumber_internal.h"

namespace kora {

static_assert(sizeof(long) == sizeof(std::int64_t), "the small form relies on a 64-bit long");
static_assert(sizeof(QNumber) == 2 * sizeof(std::int64_t), "a QNumber is two words");

std::int64_t gcd_cache[kGcdCacheSize][kGcdCacheSize];

mpz_t QNumber::gmp_tmp[QNumber::kGmpTmpCount];

namespace {

constexpr std::int64_t kMin = INT64_MIN;

// The scratch integers are set up on first use as well as by the static
// object below: numbers built during another translation unit's static
// initialisation may run before that object, and code that uses gmp_tmp
// directly after start-up finds them ready without asking.
bool scratch_ready = false;

inline void ensure_scratch() noexcept {
  if (scratch_ready) [[likely]]
    return;
  for (auto& t : QNumber::gmp_tmp) mpz_init(t);
  scratch_ready = true;
}

struct ScratchLifetime {
  ScratchLifetime() noexcept { ensure_scratch(); }
  ~ScratchLifetime() {
    if (!scratch_ready) return;
    for (auto& t : QNumber::gmp_tmp) mpz_clear(t);
    scratch_ready = false;  // a later user (another static's destructor) re-creates them
  }
};
ScratchLifetime scratch_lifetime;

// The overflow tests are shared with the inline fast paths of the header.
using qnumber_detail::abs_word;
using qnumber_detail::add_overflows;
using qnumber_detail::mul_overflows;

// x / g for a divisor g of x. Most gcds of the fast path are 1, and a
// division costs more than the test that skips it.
inline std::int64_t div_by_gcd(std::int64_t x, std::int64_t g) noexcept {
  return g == 1 ? x : x / g;
}

__mpz_struct* new_block() {
  return static_cast<__mpz_struct*>(::operator new(2 * sizeof(__mpz_struct)));
}

void delete_block(__mpz_struct* p) noexcept {
  mpz_clear(p);
  mpz_clear(p + 1);
  ::operator delete(p);
}

// Whether the GMP integer z is 1: the test of mpz_cmp_ui(z, 1) == 0 without
// the call, for the denominators that the big paths look at first.
inline bool is_one(mpz_srcptr z) noexcept {
  return z->_mp_size == 1 && z->_mp_d[0] == 1;
}

// x mod y (y > 0), by a 32-bit division when both fit 32 bits: the same
// remainder, for a fraction of the latency of a 64-bit division.
inline std::uint64_t word_mod(std::uint64_t x, std::uint64_t y) noexcept {
  // Euclid's quotients are mostly 1: then one subtraction is the remainder.
  if (x >= y && x - y < y) return x - y;
  if ((x | y) <= 0xffffffffULL) {
    return static_cast<std::uint32_t>(x) % static_cast<std::uint32_t>(y);
  }
  return x % y;
}

[[noreturn]] void division_by_zero() {
  throw std::domain_error("QNumber: division by zero");
}

}  // namespace

std::int64_t small_gcd(std::int64_t a, std::int64_t b) noexcept {
  std::uint64_t x = static_cast<std::uint64_t>(abs_word(a));
  std::uint64_t y = static_cast<std::uint64_t>(abs_word(b));
  while (y != 0) {
    if (x < kGcdCacheSize && y < kGcdCacheSize) {
      std::int64_t& entry = gcd_cache[x][y];
      if (entry == 0) {
        std::uint64_t u = x;
        std::uint64_t v = y;
        while (v != 0) {
          const std::uint64_t t = word_mod(u, v);
          u = v;
          v = t;
        }
        entry = static_cast<std::int64_t>(u);
        gcd_cache[y][x] = entry;
      }
      return entry;
    }
    const std::uint64_t t = word_mod(x, y);
    x = y;
    y = t;
  }
  return static_cast<std::int64_t>(x);
}

// ---------------------------------------------------------------------------
// Construction, copying, destruction

void QNumber::init_word_min() {
  num_.small = 0;  // leaves a valid zero should the block allocation throw
  make_big();
  mpz_set_si(big_num(), kMin);
}

QNumber::QNumber(const mpz_class& n, const mpz_class& d) : QNumber() {
  if (sgn(d) == 0) division_by_zero();
  if (mpz_fits_sint_p(n.get_mpz_t()) && mpz_fits_sint_p(d.get_mpz_t())) {
    num_.small = mpz_get_si(n.get_mpz_t());
    den_ = mpz_get_si(d.get_mpz_t());
  } else {
    __mpz_struct* block = new_block();
    mpz_init_set(block, n.get_mpz_t());
    mpz_init_set(block + 1, d.get_mpz_t());
    num_.big = block;
    den_ = 0;
  }
  normalize();
}

QNumber::QNumber(const mpz_class& n) : QNumber() {
  if (mpz_fits_slong_p(n.get_mpz_t()) && mpz_get_si(n.get_mpz_t()) != kMin) {
    num_.small = mpz_get_si(n.get_mpz_t());
  } else {
    __mpz_struct* block = new_block();
    mpz_init_set(block, n.get_mpz_t());
    mpz_init_set_si(block + 1, 1);
    num_.big = block;
    den_ = 0;
  }
}

void QNumber::copy_big(const QNumber& o) {
  // The words still hold o's block: a failed allocation must not leave them
  // looking like a second owner (the constructor then never completes, so
  // nothing frees them, but the number must not point at o's block).
  num_.small = 0;
  den_ = 1;
  __mpz_struct* block = new_block();
  mpz_init_set(block, o.big_num());
  mpz_init_set(block + 1, o.big_den());
  num_.big = block;
  den_ = 0;
}

QNumber& QNumber::assign_slow(const QNumber& o) {
  if (this == &o) return *this;
  if (o.is_small()) {
    set_small(o.num_.small, o.den_);
    return *this;
  }
  if (is_small()) {
    __mpz_struct* block = new_block();
    mpz_init(block);
    mpz_init(block + 1);
    num_.big = block;
    den_ = 0;
  }
  mpz_set(big_num(), o.big_num());
  mpz_set(big_den(), o.big_den());
  return *this;
}

// Leaves the same form as the copy would (a big target stays big), only
// without allocating: a big source hands over its block.
QNumber& QNumber::move_assign_slow(QNumber&& o) noexcept {
  if (this == &o) return *this;
  if (o.is_small()) {
    set_small(o.num_.small, o.den_);
    return *this;
  }
  release();
  num_.big = o.num_.big;
  den_ = 0;
  o.num_.small = 0;
  o.den_ = 1;
  return *this;
}

void QNumber::release() noexcept {
  if (is_small()) return;
  delete_block(num_.big);
  num_.small = 0;
  den_ = 1;
}

void QNumber::take_big_integer(mpz_ptr z) {
  if (is_small()) {
    __mpz_struct* block = new_block();
    mpz_init_set(block, z);
    mpz_init_set_si(block + 1, 1);
    num_.big = block;
    den_ = 0;
    return;
  }
  // The limbs change hands instead of being copied; z keeps the old
  // numerator, which its owner (a scratch integer) no longer needs.
  mpz_swap(big_num(), z);
  mpz_set_si(big_den(), 1);
}

void QNumber::make_big() {
  // Allocate before touching the words: if new throws, the number is unchanged.
  __mpz_struct* block = new_block();
  mpz_init_set_si(block, num_.small);
  mpz_init_set_si(block + 1, den_);
  num_.big = block;
  den_ = 0;
}

void QNumber::set_small(std::int64_t n, std::int64_t d) noexcept {
  if (is_small()) {
    num_.small = n;
    den_ = d;
  } else {
    mpz_set_si(big_num(), n);
    mpz_set_si(big_den(), d);
  }
}

void QNumber::store_integer(std::int64_t v) {
  if (v == kMin && is_small()) make_big();
  set_small(v, 1);
}

// ---------------------------------------------------------------------------
// Normalisation

void QNumber::normalize() {
  if (is_small()) {
    if (num_.small == 0) {
      den_ = 1;
      return;
    }
    const std::int64_t g = small_gcd(den_, num_.small);
    num_.small = div_by_gcd(num_.small, g);
    den_ = div_by_gcd(den_, g);
    if (den_ < 0) {
      num_.small = -num_.small;
      den_ = -den_;
    }
    return;
  }
  mpz_ptr n = big_num();
  mpz_ptr d = big_den();
  if (mpz_sgn(n) == 0) {
    mpz_set_si(d, 1);
    return;
  }
  if (mpz_cmpabs_ui(d, 1) == 0) {
    if (mpz_sgn(d) < 0) {
      mpz_neg(n, n);
      mpz_neg(d, d);
    }
    return;
  }
  ensure_scratch();
  mpz_gcd(gmp_tmp[0], n, d);
  mpz_divexact(n, n, gmp_tmp[0]);
  mpz_divexact(d, d, gmp_tmp[0]);
  if (mpz_sgn(d) < 0) {
    mpz_neg(n, n);
    mpz_neg(d, d);
  }
}

// ---------------------------------------------------------------------------
// Addition and subtraction

void QNumber::add_signed(const QNumber& o, bool negate) {
  if (!is_small()) {
    if (o.is_small()) {
      add_big_small(negate ? -o.num_.small : o.num_.small, o.den_);
    } else {
      add_big(o, negate);
    }
    return;
  }
  if (!o.is_small()) {
    make_big();
    add_big(o, negate);
    return;
  }
  // Read o into locals first: with x += x, converting this to the big form
  // below also converts o.
  const std::int64_t a = num_.small;
  const std::int64_t b = den_;
  const std::int64_t c = negate ? -o.num_.small : o.num_.small;
  const std::int64_t d = o.den_;
  if (b == 1 && d == 1) {
    if (!add_overflows(a, c)) {
      num_.small = a + c;
      return;
    }
  } else {
    // a/b + c/d = (a*d' + c*b') / (b'*d) with g = gcd(b, d), b' = b/g,
    // d' = d/g; the only common factors left are those of the sum with g.
    const std::int64_t g = small_gcd(b, d);
    const std::int64_t bp = div_by_gcd(b, g);
    const std::int64_t dp = div_by_gcd(d, g);
    if (!mul_overflows(c, bp) && !mul_overflows(dp, a)) {
      const std::int64_t x = a * dp;
      const std::int64_t y = c * bp;
      if (!add_overflows(x, y)) {
        const std::int64_t s = x + y;
        const std::int64_t g2 = small_gcd(s, g);
        const std::int64_t d2 = div_by_gcd(d, g2);
        if (!mul_overflows(bp, d2)) {
          num_.small = div_by_gcd(s, g2);
          den_ = bp * d2;
          return;
        }
      }
    }
  }
  make_big();
  add_big_small(c, d);
}

void QNumber::add_big(const QNumber& o, bool negate) noexcept {
  mpz_ptr n = big_num();
  mpz_ptr d = big_den();
  if (mpz_cmp_ui(d, 1) == 0 && mpz_cmp_ui(o.big_den(), 1) == 0) {
    if (negate) {
      mpz_sub(n, n, o.big_num());
    } else {
      mpz_add(n, n, o.big_num());
    }
    return;
  }
  ensure_scratch();
  mpz_ptr t0 = gmp_tmp[0];
  mpz_ptr t1 = gmp_tmp[1];
  mpz_ptr t2 = gmp_tmp[2];
  mpz_ptr t3 = gmp_tmp[3];
  // o is copied out first because it may be this.
  if (negate) {
    mpz_neg(t0, o.big_num());
  } else {
    mpz_set(t0, o.big_num());
  }
  mpz_set(t1, o.big_den());
  mpz_gcd(t2, d, t1);
  mpz_divexact(d, d, t2);
  mpz_divexact(t3, t1, t2);
  mpz_mul(n, n, t3);
  mpz_mul(t0, t0, d);
  mpz_add(n, n, t0);
  mpz_gcd(t2, n, t2);
  mpz_divexact(n, n, t2);
  mpz_divexact(t1, t1, t2);
  mpz_mul(d, d, t1);
}

void QNumber::add_big_small(std::int64_t c, std::int64_t d) noexcept {
  mpz_ptr n = big_num();
  mpz_ptr q = big_den();
  if (d == 1 && mpz_cmp_ui(q, 1) == 0) {
    if (c >= 0) {
      mpz_add_ui(n, n, static_cast<unsigned long>(c));
    } else {
      mpz_sub_ui(n, n, static_cast<unsigned long>(-c));
    }
    return;
  }
  ensure_scratch();
  const unsigned long g = mpz_gcd_ui(nullptr, q, static_cast<unsigned long>(d));
  mpz_divexact_ui(q, q, g);
  mpz_mul_si(n, n, d / static_cast<long>(g));
  mpz_mul_si(gmp_tmp[0], q, c);
  mpz_add(n, n, gmp_tmp[0]);
  const unsigned long g2 = mpz_gcd_ui(nullptr, n, g);
  mpz_divexact_ui(n, n, g2);
  mpz_mul_si(q, q, d / static_cast<long>(g2));
}

// ---------------------------------------------------------------------------
// Multiplication and division

QNumber& QNumber::mul_slow(const QNumber& o) {
  if (!is_small()) {
    if (o.is_small()) {
      mul_big_small(o.num_.small, o.den_);
    } else {
      mul_big(o);
    }
    return *this;
  }
  if (!o.is_small()) {
    make_big();
    mul_big(o);
    return *this;
  }
  // Locals first, as in addition: o may be this.
  const std::int64_t a = num_.small;
  const std::int64_t b = den_;
  const std::int64_t c = o.num_.small;
  const std::int64_t d = o.den_;
  if (b == 1 && d == 1) {
    if (c == 0) {
      num_.small = 0;
      return *this;
    }
    if (!mul_overflows(a, c)) {
      num_.small = a * c;
      return *this;
    }
  } else {
    // Cross-cancelling first makes both products already coprime, so a
    // result that fits is always found in the small form.
    const std::int64_t g1 = small_gcd(a, d);
    const std::int64_t g2 = small_gcd(c, b);
    const std::int64_t n1 = div_by_gcd(a, g1);
    const std::int64_t n2 = div_by_gcd(c, g2);
    const std::int64_t d1 = div_by_gcd(b, g2);
    const std::int64_t d2 = div_by_gcd(d, g1);
    if (!mul_overflows(n1, n2) && !mul_overflows(d1, d2)) {
      num_.small = n1 * n2;
      den_ = d1 * d2;
      return *this;
    }
  }
  make_big();
  mul_big_small(c, d);
  return *this;
}

void QNumber::mul_big(const QNumber& o) noexcept {
  ensure_scratch();
  mpz_ptr n = big_num();
  mpz_ptr d = big_den();
  mpz_ptr g1 = gmp_tmp[0];
  mpz_ptr g2 = gmp_tmp[1];
  mpz_ptr on = gmp_tmp[2];
  mpz_ptr od = gmp_tmp[3];
  mpz_gcd(g1, n, o.big_den());
  mpz_gcd(g2, o.big_num(), d);
  if (is_one(g1) && is_one(g2)) {
    // Nothing cancels (always so for integers): the products alone. With o
    // this, each product is a square, which mpz_mul takes aliased.
    mpz_mul(n, n, o.big_num());
    mpz_mul(d, d, o.big_den());
    return;
  }
  // o's reduced parts go to scratch before this changes, since o may be this.
  mpz_divexact(on, o.big_num(), g2);
  mpz_divexact(od, o.big_den(), g1);
  mpz_divexact(n, n, g1);
  mpz_mul(n, n, on);
  mpz_divexact(d, d, g2);
  mpz_mul(d, d, od);
}

void QNumber::mul_big_small(std::int64_t c, std::int64_t d) noexcept {
  mpz_ptr n = big_num();
  mpz_ptr q = big_den();
  const bool integer = mpz_cmp_ui(q, 1) == 0;
  if (c == 0 && !integer) {
    // The one way back to the small form: the block is dropped for 0/1.
    release();
    return;
  }
  if (d == 1 && integer) {
    mpz_mul_si(n, n, c);
    return;
  }
  const unsigned long g1 = mpz_gcd_ui(nullptr, n, static_cast<unsigned long>(d));
  const unsigned long g2 = mpz_gcd_ui(nullptr, q, static_cast<unsigned long>(abs_word(c)));
  mpz_divexact_ui(n, n, g1);
  mpz_mul_si(n, n, c / static_cast<long>(g2));
  mpz_divexact_ui(q, q, g2);
  mpz_mul_si(q, q, d / static_cast<long>(g1));
}

QNumber& QNumber::operator/=(const QNumber& o) {
  QNumber r;
  if (o.is_small()) {
    if (o.num_.small == 0) division_by_zero();
    // A small o never holds -2^63, so its reciprocal stays small.
    r.num_.small = o.den_;
    r.den_ = o.num_.small;
  } else {
    if (mpz_sgn(o.big_num()) == 0) division_by_zero();
    __mpz_struct* block = new_block();
    mpz_init_set(block, o.big_den());
    mpz_init_set(block + 1, o.big_num());
    r.num_.big = block;
    r.den_ = 0;
  }
  r.normalize();
  return *this *= r;
}

// ---------------------------------------------------------------------------
// Comparison

bool QNumber::equal_slow(const QNumber& a, const QNumber& b) {
  if (a.is_small()) {
    if (b.is_small()) return a.num_.small == b.num_.small && a.den_ == b.den_;
    return mpz_cmp_si(b.big_num(), a.num_.small) == 0 && mpz_cmp_si(b.big_den(), a.den_) == 0;
  }
  if (b.is_small()) {
    return mpz_cmp_si(a.big_num(), b.num_.small) == 0 && mpz_cmp_si(a.big_den(), b.den_) == 0;
  }
  return mpz_cmp(a.big_num(), b.big_num()) == 0 && mpz_cmp(a.big_den(), b.big_den()) == 0;
}

bool QNumber::less_slow(const QNumber& a, const QNumber& b) {
  if (a.is_small() && b.is_small()) {
    const std::int64_t x = a.num_.small;
    const std::int64_t y = b.num_.small;
    if (x < 0 && y >= 0) return true;
    if (x >= 0 && y <= 0) return false;
    if (a.den_ == 1 && b.den_ == 1) return x < y;
    // Same sign and not both zero, so g1 > 0.
    const std::int64_t g1 = small_gcd(x, y);
    const std::int64_t g2 = small_gcd(a.den_, b.den_);
    const std::int64_t l1 = div_by_gcd(x, g1);
    const std::int64_t l2 = div_by_gcd(b.den_, g2);
    const std::int64_t r1 = div_by_gcd(y, g1);
    const std::int64_t r2 = div_by_gcd(a.den_, g2);
    if (!mul_overflows(l1, l2) && !mul_overflows(r1, r2)) return l1 * l2 < r1 * r2;
    ensure_scratch();
    mpz_set_si(QNumber::gmp_tmp[0], l1);
    mpz_mul_si(QNumber::gmp_tmp[0], QNumber::gmp_tmp[0], l2);
    mpz_set_si(QNumber::gmp_tmp[1], r1);
    mpz_mul_si(QNumber::gmp_tmp[1], QNumber::gmp_tmp[1], r2);
    return mpz_cmp(QNumber::gmp_tmp[0], QNumber::gmp_tmp[1]) < 0;
  }
  if (!a.is_small() && !b.is_small() && is_one(a.big_den()) && is_one(b.big_den())) {
    // Two big integers: the sign test, then the numerators.
    const int sa = mpz_sgn(a.big_num());
    const int sb = mpz_sgn(b.big_num());
    if (sa < 0 && sb >= 0) return true;
    if (sa >= 0 && sb <= 0) return false;
    return mpz_cmp(a.big_num(), b.big_num()) < 0;
  }
  ensure_scratch();
  mpz_srcptr an;
  mpz_srcptr ad;
  mpz_srcptr bn;
  mpz_srcptr bd;
  if (a.is_small()) {
    mpz_set_si(QNumber::gmp_tmp[0], a.num_.small);
    mpz_set_si(QNumber::gmp_tmp[1], a.den_);
    an = QNumber::gmp_tmp[0];
    ad = QNumber::gmp_tmp[1];
  } else {
    an = a.big_num();
    ad = a.big_den();
  }
  if (b.is_small()) {
    mpz_set_si(QNumber::gmp_tmp[2], b.num_.small);
    mpz_set_si(QNumber::gmp_tmp[3], b.den_);
    bn = QNumber::gmp_tmp[2];
    bd = QNumber::gmp_tmp[3];
  } else {
    bn = b.big_num();
    bd = b.big_den();
  }
  const int sa = mpz_sgn(an);
  const int sb = mpz_sgn(bn);
  if (sa < 0 && sb >= 0) return true;
  if (sa >= 0 && sb <= 0) return false;
  if (mpz_cmp_ui(ad, 1) == 0 && mpz_cmp_ui(bd, 1) == 0) return mpz_cmp(an, bn) < 0;
  mpz_mul(QNumber::gmp_tmp[4], an, bd);
  mpz_mul(QNumber::gmp_tmp[5], bn, ad);
  return mpz_cmp(QNumber::gmp_tmp[4], QNumber::gmp_tmp[5]) < 0;
}

// ---------------------------------------------------------------------------
// Integer division

QNumber& QNumber::sub_mul_slow(const QNumber& a, const QNumber& b) {
  if (!is_integer() || !a.is_integer() || !b.is_integer()) {
    QNumber product(a);
    product *= b;
    return *this -= product;
  }
  // Both factors are read before this changes form: either may be this.
  ensure_scratch();
  mpz_srcptr x = a.is_small() ? nullptr : a.big_num();
  mpz_srcptr y = b.is_small() ? nullptr : b.big_num();
  if (x == nullptr) {
    mpz_set_si(gmp_tmp[4], a.num_.small);
    x = gmp_tmp[4];
  }
  if (y == nullptr) {
    mpz_set_si(gmp_tmp[5], b.num_.small);
    y = gmp_tmp[5];
  }
  if (is_small()) {
    // A small factor that is this was read above; a big one is not this.
    make_big();
  }
  mpz_submul(big_num(), x, y);
  return *this;
}

void QNumber::divmod_slow(const QNumber& d, QNumber& q, QNumber& r) const {
  if (is_small() && d.is_small()) {
    if (d.num_.small == 0) division_by_zero();
    // Both operands are read before q or r is written: either may be this or d.
    const std::ldiv_t qr = std::ldiv(num_.small, d.num_.small);
    q.store_integer(qr.quot);
    r.store_integer(qr.rem);
    return;
  }
  if (d.sign() == 0) division_by_zero();
  ensure_scratch();
  mpz_ptr t0 = gmp_tmp[0];
  mpz_ptr t1 = gmp_tmp[1];
  // A small operand is read into scratch before q or r changes (either may
  // be this or d); a big one is read in place.
  mpz_srcptr n = t0;
  mpz_srcptr m = t1;
  if (is_small()) {
    mpz_set_si(t0, num_.small);
  } else {
    n = big_num();
  }
  if (d.is_small()) {
    mpz_set_si(t1, d.num_.small);
  } else {
    m = d.big_num();
  }
  if (&q == &r) {
    // One number for both results: it ends up holding the remainder.
    mpz_ptr t2 = gmp_tmp[2];
    mpz_ptr t3 = gmp_tmp[3];
    mpz_fdiv_qr(t2, t3, n, m);
    if (q.is_small()) q.make_big();
    mpz_set(q.big_num(), t3);
    mpz_set_si(q.big_den(), 1);
    return;
  }
  // Growing q and r keeps their values, so an allocation failure here leaves
  // both numbers as they were. GMP reads the operands before it writes the
  // results, so q and r may share their integers with this and d.
  if (q.is_small()) q.make_big();
  if (r.is_small()) r.make_big();
  mpz_fdiv_qr(q.big_num(), r.big_num(), n, m);
  mpz_set_si(q.big_den(), 1);
  mpz_set_si(r.big_den(), 1);
}

// ---------------------------------------------------------------------------
// Queries and conversions

mpq_class QNumber::to_mpq() const {
  mpq_class v;
  if (is_small()) {
    mpz_set_si(mpq_numref(v.get_mpq_t()), num_.small);
    mpz_set_si(mpq_denref(v.get_mpq_t()), den_);
  } else {
    mpz_set(mpq_numref(v.get_mpq_t()), big_num());
    mpz_set(mpq_denref(v.get_mpq_t()), big_den());
  }
  return v;
}

mpz_class QNumber::numerator() const {
  return is_small() ? mpz_class(static_cast<long>(num_.small)) : mpz_class(big_num());
}

mpz_class QNumber::denominator() const {
  return is_small() ? mpz_class(static_cast<long>(den_)) : mpz_class(big_den());
}

namespace {
void append_mpz(std::string& out, mpz_srcptr z) {
  const std::size_t start = out.size();
  // mpz_sizeinbase may overstate by one; the sign takes one more.
  out.resize(start + mpz_sizeinbase(z, 10) + 2);
  mpz_get_str(out.data() + start, 10, z);
  out.resize(start + std::char_traits<char>::length(out.data() + start));
}
}  // namespace

std::string QNumber::to_string() const {
  if (is_small()) {
    std::string s = std::to_string(num_.small);
    if (den_ != 1) {
      s += '/';
      s += std::to_string(den_);
    }
    return s;
  }
  std::string s;
  append_mpz(s, big_num());
  if (mpz_cmp_ui(big_den(), 1) != 0) {
    s += '/';
    append_mpz(s, big_den());
  }
  return s;
}

std::ostream& operator<<(std::ostream& os, const QNumber& q) {
  return os << q.to_string();
}

// ---------------------------------------------------------------------------

namespace BVNumber {

void pow2_general(unsigned long n, QNumber* out) {
  // Assignment keeps a big out big, writing the value into its block.
  if (n <= 61) {
    *out = QNumber(1L << n);
    return;
  }
  ensure_scratch();
  mpz_ptr t = QNumber::gmp_tmp[0];
  mpz_set_ui(t, 1);
  mpz_mul_2exp(t, t, n);
  if (mpz_fits_slong_p(t)) {
    *out = QNumber(mpz_get_si(t));
    return;
  }
  // The number that the two-integer constructor builds from t over 1 (big:
  // t does not fit an int), written into out without the temporaries.
  out->take_big_integer(t);
}

}  // namespace BVNumber

}  // namespace kora
