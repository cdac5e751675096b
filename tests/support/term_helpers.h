#pragma once

// Helpers shared by the tests of the term layer and the model store.

#include <gmpxx.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "kora/numbers/qnumber.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"

namespace kora::test {

// 2^n as a GMP integer.
inline mpz_class mpz_pow2(std::size_t n) {
  mpz_class r = 1;
  r <<= static_cast<mp_bitcnt_t>(n);
  return r;
}

// x mod 2^w, always in [0, 2^w).
inline mpz_class mpz_mod2w(const mpz_class& x, std::size_t w) {
  const mpz_class m = mpz_pow2(w);
  mpz_class r = x % m;
  if (r < 0) r += m;
  return r;
}

inline QNumber qnum(const mpz_class& v) {
  return QNumber(v);
}

// The value of a numeral term, or nothing when t is not a numeral.
inline std::optional<mpz_class> numeral_value(const TermManager& mgr, const Term* t) {
  QNumber q(0L);
  if (t == nullptr || !mgr.number_value(t->get_symbol(), &q)) return std::nullopt;
  return q.numerator();
}

// The width of a term's bit-vector type, 0 when it has none.
inline std::size_t width_of(const TermManager& mgr, const Term* t) {
  std::size_t w = 0;
  mgr.is_bv_type(t->type(), &w);
  return w;
}

// Seed of the randomised tests: fixed so that failures reproduce, and
// overridable through KORA_TEST_SEED to explore other inputs.
inline std::uint64_t test_seed(std::uint64_t fallback) {
  const char* env = std::getenv("KORA_TEST_SEED");
  if (env == nullptr || *env == '\0') return fallback;
  return std::strtoull(env, nullptr, 0);
}

}  // namespace kora::test
