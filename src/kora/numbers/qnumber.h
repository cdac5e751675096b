#pragma once

#include <gmp.h>
#include <gmpxx.h>

#include <cstdint>
#include <iosfwd>
#include <string>

namespace kora {

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
  QNumber(long v);  // NOLINT(google-explicit-constructor): numbers mix with longs freely
  // n/d, normalised. Small only when both n and d fit a 32-bit int, otherwise
  // big even if they would fit 64 bits.
  QNumber(const mpz_class& n, const mpz_class& d);
  // The integer n: small whenever it fits a machine word (and is not -2^63).
  explicit QNumber(const mpz_class& n);

  QNumber(const QNumber& o);
  QNumber(QNumber&& o) noexcept;
  QNumber& operator=(const QNumber& o);
  QNumber& operator=(QNumber&& o) noexcept;
  ~QNumber();

  // Restores the invariants after the words were set directly.
  void normalize();

  QNumber& operator+=(const QNumber& o);
  QNumber& operator-=(const QNumber& o);
  QNumber& operator*=(const QNumber& o);
  // Multiplies by the reciprocal; o must not be zero.
  QNumber& operator/=(const QNumber& o);
  QNumber& operator+=(long o);
  QNumber& operator-=(long o);
  QNumber& operator/=(long o);

  // Integer quotient and remainder of this by d (both integers). On the small
  // path the quotient truncates toward zero (C's ldiv); when either operand
  // is big it is the floor quotient. Both agree on non-negative operands.
  void divmod(const QNumber& d, QNumber& q, QNumber& r) const;

  bool is_small() const noexcept { return den_ != 0; }
  bool is_integer() const noexcept;
  // -1, 0 or 1.
  int sign() const noexcept;

  mpq_class to_mpq() const;
  // The numerator (for an integer, its value) as a GMP integer.
  mpz_class numerator() const;
  mpz_class denominator() const;
  // "n" for an integer, "n/d" otherwise.
  std::string to_string() const;

  // The two words, for tests of the representation. For a big number the
  // numerator word is the block pointer.
  std::int64_t small_num() const noexcept { return num_.small; }
  std::int64_t small_den() const noexcept { return den_; }

  friend bool operator==(const QNumber& a, const QNumber& b);
  friend bool operator<(const QNumber& a, const QNumber& b);

  // Scratch integers of the big-form paths.
  static constexpr int kGmpTmpCount = 6;
  static mpz_t gmp_tmp[kGmpTmpCount];

 private:
  union Word {
    std::int64_t small;
    __mpz_struct* big;  // block of two mpz_t: numerator, denominator
  };

  mpz_ptr big_num() const noexcept { return num_.big; }
  mpz_ptr big_den() const noexcept { return num_.big + 1; }
  void make_big();  // converts the small value in place to the big form
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

QNumber operator+(const QNumber& a, const QNumber& b);
QNumber operator-(const QNumber& a, const QNumber& b);
QNumber operator*(const QNumber& a, const QNumber& b);
QNumber operator+(const QNumber& a, long b);
QNumber operator-(const QNumber& a, long b);
QNumber operator/(const QNumber& a, long b);
bool operator<(const QNumber& a, long b);
inline bool operator!=(const QNumber& a, const QNumber& b) {
  return !(a == b);
}

std::ostream& operator<<(std::ostream& os, const QNumber& q);

namespace BVNumber {
// *out = 2^n.
void pow2(unsigned long n, QNumber* out);
}  // namespace BVNumber

}  // namespace kora
