#include "kora/calculators/adhoc_calculator.h"

namespace kora::adhoccalculator {

FreeTermPredicate::~FreeTermPredicate() = default;
AdHocCalculator::~AdHocCalculator() = default;

AdHocCalculator::Arg AdHocCalculator::classify(const Term* a) {
  const Term* n = store_->get_normalized(a);
  if (store_->is_good_model_value(n)) return {Status::Valued, n};
  if (pred_->is_free(a)) return {Status::Free, a};
  int assigned = 0;
  store_->assign_free_constants(n, &assigned);
  return {Status::Defaulted, store_->get_normalized(a)};
}

void AdHocCalculator::calculated_value(const Term* a, const Term* value) {
  store_->log(2) << "calculated adhoc " << a << " := " << value << " .." << endlog;
  const Term* c = nullptr;
  if (a->get_symbol()->get_output_type() == mgr_->bool_type()) {
    c = mgr_->make_iff(a, value);
    store_->set_adhoc_value(a, value);
  } else {
    c = mgr_->make_equal(a, value);
  }
  store_->add_model_constraint(c, true);
}

void AdHocCalculator::fail(const char* message) {
  throw error(std::string(message));
}

std::size_t AdHocCalculator::width_of(const Term* t) const {
  std::size_t w = 0;
  mgr_->is_bv_type(t->get_symbol()->get_output_type(), &w);
  return w;
}

QNumber AdHocCalculator::number_of(const Term* t) const {
  QNumber n(0L);
  mgr_->number_value(t->get_symbol(), &n);
  return n;
}

}  // namespace kora::adhoccalculator
