#pragma once

#include <array>
#include <memory>

#include "kora/calculators/adhoc_calculator.h"

namespace kora::adhoccalculator {

// One calculator object per operator, owned together and looked up by the
// operator of a term.
class CalculatorTable {
 public:
  // All 32 calculators over the three objects, which must outlive the table.
  CalculatorTable(TermManager* mgr, ModelStore* store, FreeTermPredicate* pred);

  // The calculator of t's operator (for an equality over Booleans, Iff's), or
  // null when the operator has none.
  AdHocCalculator* find(const Term* t) const;
  // The calculator registered for op, or null.
  AdHocCalculator* find(Op op) const { return by_op_[static_cast<std::size_t>(op)].get(); }
  // Number of calculators in the table.
  std::size_t size() const noexcept;

 private:
  std::array<std::unique_ptr<AdHocCalculator>, kOpCount> by_op_;
};

}  // namespace kora::adhoccalculator
