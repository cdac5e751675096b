#pragma once

// Bit-vector values on GMP integers. A value of width w is an integer in
// [0, 2^w); these helpers keep it there. Booleans are 0 and 1.

#include <gmpxx.h>

#include <cstddef>

namespace kora::bv {

inline mpz_class pow2(std::size_t n) {
  mpz_class r;
  mpz_setbit(r.get_mpz_t(), n);
  return r;
}

inline mpz_class ones(std::size_t w) {
  return pow2(w) - 1;
}

// x mod 2^w, for any integer x (negative ones wrap to their two's complement).
inline mpz_class low(const mpz_class& x, std::size_t w) {
  mpz_class r;
  mpz_fdiv_r_2exp(r.get_mpz_t(), x.get_mpz_t(), w);
  return r;
}

inline mpz_class shr(const mpz_class& x, std::size_t n) {
  mpz_class r;
  mpz_fdiv_q_2exp(r.get_mpz_t(), x.get_mpz_t(), n);
  return r;
}

inline mpz_class shl(const mpz_class& x, std::size_t n) {
  mpz_class r;
  mpz_mul_2exp(r.get_mpz_t(), x.get_mpz_t(), n);
  return r;
}

inline bool bit(const mpz_class& x, std::size_t i) {
  return mpz_tstbit(x.get_mpz_t(), i) != 0;
}

inline bool msb(const mpz_class& x, std::size_t w) {
  return bit(x, w - 1);
}

inline mpz_class neg(const mpz_class& x, std::size_t w) {
  return low(-x, w);
}

// |x| of a signed value, as an unsigned number in [0, 2^(w-1)].
inline mpz_class magnitude(const mpz_class& x, std::size_t w) {
  return msb(x, w) ? neg(x, w) : x;
}

// Maps the signed order onto the unsigned one: s < t iff flip(s) < flip(t).
inline mpz_class flip(const mpz_class& x, std::size_t w) {
  mpz_class r = x;
  mpz_combit(r.get_mpz_t(), w - 1);
  return r;
}

// A shift amount; every amount from w on acts like w.
inline std::size_t amount(const mpz_class& s, std::size_t w) {
  return s >= w ? w : static_cast<std::size_t>(s.get_ui());
}

// Trailing zeros of a non-zero x.
inline std::size_t ctz(const mpz_class& x) {
  return mpz_scan1(x.get_mpz_t(), 0);
}

// Number of significant bits of x (0 for x = 0).
inline std::size_t bit_length(const mpz_class& x) {
  return x == 0 ? 0 : mpz_sizeinbase(x.get_mpz_t(), 2);
}

inline mpz_class rotate_left(const mpz_class& x, std::size_t k, std::size_t w) {
  k %= w;
  if (k == 0) return x;
  return low(shl(x, k), w) | shr(x, w - k);
}

// Division by zero gives all ones, and the remainder by zero the dividend.
inline mpz_class udiv(const mpz_class& a, const mpz_class& b, std::size_t w) {
  return b == 0 ? ones(w) : mpz_class(a / b);
}

inline mpz_class urem(const mpz_class& a, const mpz_class& b) {
  return b == 0 ? a : mpz_class(a % b);
}

inline bool truth(const mpz_class& b) {
  return b != 0;
}

inline mpz_class boolean(bool b) {
  return b ? 1 : 0;
}

}  // namespace kora::bv
