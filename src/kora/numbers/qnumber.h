#pragma once

#include <gmp.h>
#include <gmpxx.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <iosfwd>
#include <string>
#include <utility>

namespace kora {

namespace qnumber_detail {

// Small words are never -2^63, so the magnitude of every word fits a word.
inline std::int64_t abs_word(std::int64_t x) noexcept {
  return x < 0 ? -x : x;
}

// True when x * y would leave [-(2^63-1), 2^63-1]. Testing by division keeps
// the fast path free of wide multiplies; the test is exact for integers.
inline bool mul_overflows(std::int64_t x, std::int64_t y) noexcept {
  return y != 0 && abs_word(x) > INT64_MAX / abs_word(y);
}

// True when a + c would leave the small range. A sum of exactly -2^63 counts
// as overflow so that the small form never holds it.
inline bool add_overflows(std::int64_t a, std::int64_t c) noexcept {
  if (a > 0 && c > 0) return a > INT64_MAX - c;
  if (a < 0 && c < 0) return a <= INT64_MIN - c;
  return false;
}

}  // namespace qnumber_detail

class QNumber;
namespace BVNumber {
void pow2_general(unsigned long n, QNumber* out);
inline void pow2(unsigned long n, QNumber* out);
}  // namespace BVNumber

// Exact rational number. Values whose numerator and denominator fit a machine
// word live in two words (the small form) and never touch GMP; anything
// larger moves to a heap block of two mpz_t (the big form), marked by a zero
// denominator word. Both forms are always normalised: denominator positive,
// numerator and denominator coprime, zero stored as 0/1. The small form never
// holds -2^63 in either word, so negation and absolute value stay exact.
//
// Big-form operations share process-wide scratch integers (gmp_tmp) and small
// gcds come from a shared table: QNumber must not be used from two threads at
// once.
class QNumber {
 public:
  QNumber() noexcept : num_{0}, den_(1) {}
  // v/1; -2^63 is stored in the big form.
  // cppcheck-suppress noExplicitConstructor
  QNumber(long v)  // NOLINT(google-explicit-constructor): numbers mix with longs freely
      : num_{v}, den_(1) {
    if (v == kWordMin) [[unlikely]]
      init_word_min();
  }
  // n/d, normalised. Small only when both n and d fit a 32-bit int, otherwise
  // big even if they would fit 64 bits.
  QNumber(const mpz_class& n, const mpz_class& d);
  // The integer n: small whenever it fits a machine word (and is not -2^63).
  explicit QNumber(const mpz_class& n);

  // The small form is handled here, inline; the big form out of line.
  QNumber(const QNumber& o) : num_(o.num_), den_(o.den_) {
    if (!o.is_small()) [[unlikely]]
      copy_big(o);
  }
  QNumber(QNumber&& o) noexcept : num_(o.num_), den_(o.den_) {
    o.num_.small = 0;
    o.den_ = 1;
  }
  QNumber& operator=(const QNumber& o) {
    if (is_small() && o.is_small()) [[likely]] {
      num_ = o.num_;
      den_ = o.den_;
      return *this;
    }
    return assign_slow(o);
  }
  QNumber& operator=(QNumber&& o) noexcept {
    if (is_small() && o.is_small()) [[likely]] {
      num_ = o.num_;
      den_ = o.den_;
      return *this;
    }
    return move_assign_slow(std::move(o));
  }
  ~QNumber() {
    if (!is_small()) [[unlikely]]
      release();
  }

  // Restores the invariants after the words were set directly.
  void normalize();

  // The compound operators take the commonest case, two small integers,
  // inline; everything else (fractions, overflow, the big form) is the same
  // algorithm out of line, which repeats the integer tests.
  QNumber& operator+=(const QNumber& o) {
    if (both_small_integers(o)) [[likely]] {
      if (!qnumber_detail::add_overflows(num_.small, o.num_.small)) {
        num_.small += o.num_.small;
        return *this;
      }
    }
    add_signed(o, false);
    return *this;
  }
  QNumber& operator-=(const QNumber& o) {
    // A small word is never -2^63, so its negation is exact.
    if (both_small_integers(o)) [[likely]] {
      if (!qnumber_detail::add_overflows(num_.small, -o.num_.small)) {
        num_.small -= o.num_.small;
        return *this;
      }
    }
    add_signed(o, true);
    return *this;
  }
  QNumber& operator*=(const QNumber& o) {
    if (both_small_integers(o)) [[likely]] {
      if (o.num_.small == 0) {
        num_.small = 0;
        return *this;
      }
      if (!qnumber_detail::mul_overflows(num_.small, o.num_.small)) {
        num_.small *= o.num_.small;
        return *this;
      }
    }
    return mul_slow(o);
  }
  // this -= a * b, with no number made for the product: on integers in the
  // big form it is one GMP pass, so loops that update wide numbers (such as
  // the extended Euclidean algorithm) pay for the arithmetic only.
  QNumber& sub_mul(const QNumber& a, const QNumber& b) {
    if (both_small_integers(a) && b.den_ == 1 &&
        !qnumber_detail::mul_overflows(a.num_.small, b.num_.small)) [[likely]] {
      // The product is at most 2^63-1 in magnitude, so its negation is exact.
      const std::int64_t p = a.num_.small * b.num_.small;
      if (!qnumber_detail::add_overflows(num_.small, -p)) {
        num_.small -= p;
        return *this;
      }
    }
    return sub_mul_slow(a, b);
  }
  // Exchanges the two numbers; neither allocates nor copies an integer.
  void swap(QNumber& o) noexcept {
    std::swap(num_, o.num_);
    std::swap(den_, o.den_);
  }
  // Multiplies by the reciprocal; o must not be zero.
  QNumber& operator/=(const QNumber& o);
  QNumber& operator+=(long o) { return *this += QNumber(o); }
  QNumber& operator-=(long o) { return *this -= QNumber(o); }
  QNumber& operator/=(long o) { return *this /= QNumber(o); }

  // Integer quotient and remainder of this by d (both integers). On the small
  // path the quotient truncates toward zero (C's ldiv); when either operand
  // is big it is the floor quotient. Both agree on non-negative operands.
  void divmod(const QNumber& d, QNumber& q, QNumber& r) const {
    if (is_small() && d.is_small() && q.is_small() && r.is_small() && d.num_.small != 0)
        [[likely]] {
      // Both operands are read before q or r is written: either may be this
      // or d.
      const std::ldiv_t qr = std::ldiv(num_.small, d.num_.small);
      if (qr.quot != kWordMin && qr.rem != kWordMin) [[likely]] {
        q.num_.small = qr.quot;
        q.den_ = 1;
        r.num_.small = qr.rem;
        r.den_ = 1;
        return;
      }
    }
    divmod_slow(d, q, r);
  }

  bool is_small() const noexcept { return den_ != 0; }
  bool is_integer() const noexcept {
    return is_small() ? den_ == 1 : mpz_cmp_ui(big_den(), 1) == 0;
  }
  // -1, 0 or 1.
  int sign() const noexcept {
    return is_small() ? (num_.small > 0) - (num_.small < 0) : mpz_sgn(big_num());
  }

  mpq_class to_mpq() const;
  // The numerator (for an integer, its value) as a GMP integer.
  mpz_class numerator() const;
  // The numerator of a big number as GMP reads it, without a copy (is_small()
  // must be false): the first integer of the block.
  mpz_srcptr big_numerator() const noexcept { return num_.big; }
  mpz_class denominator() const;
  // "n" for an integer, "n/d" otherwise.
  std::string to_string() const;

  // The two words, for tests of the representation. For a big number the
  // numerator word is the block pointer.
  std::int64_t small_num() const noexcept { return num_.small; }
  std::int64_t small_den() const noexcept { return den_; }

  friend bool operator==(const QNumber& a, const QNumber& b) {
    if (a.is_small() && b.is_small()) return a.num_.small == b.num_.small && a.den_ == b.den_;
    return equal_slow(a, b);
  }
  // Two small integers compare by their words: the sign test that comes
  // first in general gives the same answer.
  friend bool operator<(const QNumber& a, const QNumber& b) {
    if (a.both_small_integers(b)) return a.num_.small < b.num_.small;
    return less_slow(a, b);
  }
  friend bool operator<(const QNumber& a, long b) {
    if (a.is_small() && a.den_ == 1 && b != kWordMin) return a.num_.small < b;
    return less_slow(a, QNumber(b));
  }

  // Scratch integers of the big-form paths.
  static constexpr int kGmpTmpCount = 6;
  static mpz_t gmp_tmp[kGmpTmpCount];

 private:
  union Word {
    std::int64_t small;
    __mpz_struct* big;  // block of two mpz_t: numerator, denominator
  };

  static constexpr std::int64_t kWordMin = INT64_MIN;

  bool both_small_integers(const QNumber& o) const noexcept {
    return den_ == 1 && o.den_ == 1;  // den 1 implies the small form
  }
  mpz_ptr big_num() const noexcept { return num_.big; }
  mpz_ptr big_den() const noexcept { return num_.big + 1; }
  // The out-of-line halves of the inline operations above.
  void init_word_min();             // QNumber(-2^63): the big form
  void copy_big(const QNumber& o);  // the words are o's, o is big
  QNumber& assign_slow(const QNumber& o);
  QNumber& move_assign_slow(QNumber&& o) noexcept;
  QNumber& mul_slow(const QNumber& o);
  QNumber& sub_mul_slow(const QNumber& a, const QNumber& b);
  void divmod_slow(const QNumber& d, QNumber& q, QNumber& r) const;
  static bool equal_slow(const QNumber& a, const QNumber& b);
  static bool less_slow(const QNumber& a, const QNumber& b);
  void make_big();  // converts the small value in place to the big form
  // *this = z/1 in the big form: into the existing block (z then holds the
  // block's old numerator), or into a new one.
  void take_big_integer(mpz_ptr z);
  friend void BVNumber::pow2_general(unsigned long n, QNumber* out);
  friend void BVNumber::pow2(unsigned long n, QNumber* out);
  // Writes the small value n/d: into the words of a small number, into the
  // block of a big one (which stays big).
  void set_small(std::int64_t n, std::int64_t d) noexcept;
  // Writes an integer result; -2^63 forces the big form.
  void store_integer(std::int64_t v);
  void release() noexcept;  // frees the block, leaving the small 0/1
  void add_signed(const QNumber& o, bool negate);
  void add_big(const QNumber& o, bool negate) noexcept;
  void add_big_small(std::int64_t c, std::int64_t d) noexcept;
  void mul_big(const QNumber& o) noexcept;
  void mul_big_small(std::int64_t c, std::int64_t d) noexcept;

  Word num_;
  std::int64_t den_;
};

// Two-operand forms: one copy of the left operand, then the compound operator.
inline QNumber operator+(const QNumber& a, const QNumber& b) {
  QNumber r(a);
  r += b;
  return r;
}
inline QNumber operator-(const QNumber& a, const QNumber& b) {
  QNumber r(a);
  r -= b;
  return r;
}
inline QNumber operator*(const QNumber& a, const QNumber& b) {
  QNumber r(a);
  r *= b;
  return r;
}
inline QNumber operator+(const QNumber& a, long b) {
  QNumber r(a);
  r += b;
  return r;
}
inline QNumber operator-(const QNumber& a, long b) {
  QNumber r(a);
  r -= b;
  return r;
}
inline QNumber operator/(const QNumber& a, long b) {
  QNumber r(a);
  r /= b;
  return r;
}
inline bool operator!=(const QNumber& a, const QNumber& b) {
  return !(a == b);
}

std::ostream& operator<<(std::ostream& os, const QNumber& q);

namespace BVNumber {
// *out = 2^n, for every n and every out.
void pow2_general(unsigned long n, QNumber* out);
// *out = 2^n; exponents up to 61 into a small out inline.
inline void pow2(unsigned long n, QNumber* out) {
  if (n <= 61 && out->is_small()) [[likely]] {
    out->num_.small = 1L << n;
    out->den_ = 1;
    return;
  }
  pow2_general(n, out);
}
}  // namespace BVNumber

}  // namespace kora
