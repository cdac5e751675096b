// A solver's view of the preprocess layer: simplify the assertions, solve the
// smaller problem (here its model is written by hand), rebuild the values of
// what was eliminated, and check the whole model against the original.
#include <iostream>

#include "kora/preprocess/model_builder.h"

int main() {
  using namespace kora;
  TermManager mgr;
  const Term* x = mgr.make_constant("x", mgr.bv_type(8));  // occurs once: unconstrained
  const Term* y = mgr.make_constant("y", mgr.bv_type(8));
  const Term* sum = mgr.make_term(mgr.make_bv_add_symbol(8), {x, y});
  const Term* zero = mgr.make_bv_number(0, 8);
  const std::vector<const Term*> assertions{mgr.make_equal(sum, mgr.make_bv_number(100, 8)),
                                            mgr.make_term(mgr.make_bv_ult_symbol(8), {zero, y}),
                                            mgr.make_not(mgr.make_equal(y, zero))};

  const preprocess::Simplified reduced = preprocess::simplify(mgr, assertions);
  for (const Term* a : reduced.assertions) std::cout << "reduced: " << *a << '\n';

  ModelStore store(&mgr);                                   // the back end's model of what remains:
  store.set_value(reduced.assertions[0], mgr.true_term());  // the fresh Boolean
  store.set_value(y, mgr.make_bv_number(200, 8));

  const preprocess::RebuildStats stats = preprocess::rebuild(mgr, store, reduced.trail, assertions);
  std::cout << "x = " << *store.value_of(x) << " (" << stats.narrow_values
            << " values from the calculators, " << stats.inverter_values << " from the inverter)\n";
  std::cout << (preprocess::validate(store, assertions).empty() ? "model valid" : "model INVALID")
            << '\n';
  return 0;
}
