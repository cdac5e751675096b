// Builds x + y = 100 at width 8 with y = 200 in the model and x free, asks
// the calculator table for the addition's calculator, and prints the
// constraint it records: (= x #x9c), since 156 + 200 = 100 mod 256.
#include <iostream>

#include "kora/calculators/calculator_table.h"

int main() {
  using namespace kora;
  TermManager mgr;
  ModelStore store(&mgr);
  adhoccalculator::SetFreeTermPredicate free_terms;
  adhoccalculator::CalculatorTable calculators(&mgr, &store, &free_terms);

  const DataType* bv8 = mgr.bv_type(8);
  const Term* x = mgr.make_constant("x", bv8);
  const Term* y = mgr.make_constant("y", bv8);
  store.set_value(y, mgr.make_bv_number(QNumber(200L), 8));
  free_terms.mark_free(x);

  const Term* sum = mgr.make_term(mgr.make_bv_add_symbol(8), {x, y});
  adhoccalculator::AdHocCalculator* calculate = calculators.find(sum);
  if (calculate == nullptr) {
    std::cerr << "no calculator for bvadd\n";
    return 1;
  }
  (*calculate)(sum, mgr.make_bv_number(QNumber(100L), 8));
  for (const Term* c : store.constraints()) std::cout << c->to_shallow_str() << '\n';
  return 0;
}
