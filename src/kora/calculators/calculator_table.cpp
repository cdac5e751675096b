#include "kora/calculators/calculator_table.h"

namespace kora::adhoccalculator {

namespace {

template <class Calculator>
std::unique_ptr<AdHocCalculator> make(TermManager* mgr, ModelStore* store,
                                      FreeTermPredicate* pred) {
  return std::make_unique<Calculator>(mgr, store, pred);
}

}  // namespace

CalculatorTable::CalculatorTable(TermManager* mgr, ModelStore* store, FreeTermPredicate* pred) {
  auto add = [&](Op op, std::unique_ptr<AdHocCalculator> c) {
    by_op_[static_cast<std::size_t>(op)] = std::move(c);
  };
  add(Op::Not, make<NotAdHocCalculator>(mgr, store, pred));
  add(Op::And, make<AndAdHocCalculator>(mgr, store, pred));
  add(Op::Or, make<OrAdHocCalculator>(mgr, store, pred));
  add(Op::Iff, make<IffAdHocCalculator>(mgr, store, pred));
  add(Op::Ite, make<IteAdHocCalculator>(mgr, store, pred));
  add(Op::Equal, make<EqAdHocCalculator>(mgr, store, pred));
  // Bit-vector arithmetic.
  add(Op::BVAdd, make<BVAddAdHocCalculator>(mgr, store, pred));
  add(Op::BVSub, make<BVSubAdHocCalculator>(mgr, store, pred));
  add(Op::BVNeg, make<BVNegAdHocCalculator>(mgr, store, pred));
  add(Op::BVMul, make<BVMulAdHocCalculator>(mgr, store, pred));
  add(Op::BVShl, make<BVLslAdHocCalculator>(mgr, store, pred));
  add(Op::BVLshr, make<BVLsrAdHocCalculator>(mgr, store, pred));
  add(Op::BVAshr, make<BVAsrAdHocCalculator>(mgr, store, pred));
  add(Op::BVUdiv, make<BVUdivAdHocCalculator>(mgr, store, pred));
  add(Op::BVSdiv, make<BVSdivAdHocCalculator>(mgr, store, pred));
  // Bit-vector comparisons.
  add(Op::BVUlt, make<BVUltAdHocCalculator>(mgr, store, pred));
  add(Op::BVUle, make<BVUleAdHocCalculator>(mgr, store, pred));
  add(Op::BVSlt, make<BVSltAdHocCalculator>(mgr, store, pred));
  add(Op::BVSle, make<BVSleAdHocCalculator>(mgr, store, pred));
  add(Op::BVComp, make<BVCompAdHocCalculator>(mgr, store, pred));
  // Bitwise and structural.
  add(Op::BVNot, make<BVNotAdHocCalculator>(mgr, store, pred));
  add(Op::BVAnd, make<BVAndAdHocCalculator>(mgr, store, pred));
  add(Op::BVOr, make<BVOrAdHocCalculator>(mgr, store, pred));
  add(Op::BVXor, make<BVXorAdHocCalculator>(mgr, store, pred));
  add(Op::BVConcat, make<BVConcatAdHocCalculator>(mgr, store, pred));
  add(Op::BVExtract, make<BVSelectAdHocCalculator>(mgr, store, pred));
  add(Op::BVRotateLeft, make<BVRolAdHocCalculator>(mgr, store, pred));
  add(Op::BVRotateRight, make<BVRorAdHocCalculator>(mgr, store, pred));
  add(Op::BVZeroExtend, make<BVZextAdHocCalculator>(mgr, store, pred));
  add(Op::BVSignExtend, make<BVSextAdHocCalculator>(mgr, store, pred));
  add(Op::BVUrem, make<BVUremAdHocCalculator>(mgr, store, pred));
  add(Op::BVSrem, make<BVSremAdHocCalculator>(mgr, store, pred));
}

AdHocCalculator* CalculatorTable::find(const Term* t) const {
  Op op = t->get_symbol()->op();
  if (op == Op::Equal && t->arity() == 2 && t->arg(0)->type()->is_bool()) op = Op::Iff;
  return find(op);
}

std::size_t CalculatorTable::size() const noexcept {
  std::size_t n = 0;
  for (const auto& c : by_op_) n += c != nullptr ? 1 : 0;
  return n;
}

}  // namespace kora::adhoccalculator
