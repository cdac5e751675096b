#include "kora-solve/model_values.h"

#include <gmpxx.h>

namespace kora::solve {

const Term* make_value_term(TermManager& mgr, const Value& value) {
  if (value.is_bool) return value.truth ? mgr.true_term() : mgr.false_term();
  mpz_class n(value.bits, 2);
  return mgr.make_bv_gmp(n.get_mpz_t(), value.width());
}

}  // namespace kora::solve
