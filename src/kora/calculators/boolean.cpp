// Calculators of the Boolean connectives, if-then-else and equality.

#include "kora/calculators/adhoc_calculator.h"
#include "kora/terms/simplifiers.h"

namespace kora::adhoccalculator {

NotAdHocCalculator::~NotAdHocCalculator() = default;
AndAdHocCalculator::~AndAdHocCalculator() = default;
OrAdHocCalculator::~OrAdHocCalculator() = default;
IffAdHocCalculator::~IffAdHocCalculator() = default;
IteAdHocCalculator::~IteAdHocCalculator() = default;
EqAdHocCalculator::~EqAdHocCalculator() = default;

// Inverse value: not v.
//   a free              a := not v
//   a valued/defaulted  error
void NotAdHocCalculator::operator()(const Term* t, const Term* v) {
  Arg a = classify(t->arg(0));
  if (!a.is_free()) fail(kNotFreeMessage);
  calculated_value(a.term, bool_term(!is_true(v)));
}

// And and Or share one rule on purpose: giving both arguments the value of t
// satisfies either connective, so the choice need not know which it is.
//   a1 free, a2 free    a1 := v, a2 := v
//   anything else       error (even where a value would exist)
void AndAdHocCalculator::operator()(const Term* t, const Term* v) {
  Arg a1 = classify(t->arg(0));
  Arg a2 = classify(t->arg(1));
  if (!a1.is_free() || !a2.is_free()) fail(kNotFreeMessage);
  const Term* b = bool_term(is_true(v));
  calculated_value(a1.term, b);
  calculated_value(a2.term, b);
}

void OrAdHocCalculator::operator()(const Term* t, const Term* v) {
  AndAdHocCalculator(mgr_, store_, pred_)(t, v);
}

// Inverse value: a1 = (a2 <=> v); a defaulted argument counts as valued.
//   free   free     a1 := true, a2 := v
//   free   value    a1 := (a2 <=> v)
//   value  free     a2 := (a1 <=> v)
//   value  value    error
void IffAdHocCalculator::operator()(const Term* t, const Term* v) {
  Arg a1 = classify(t->arg(0));
  Arg a2 = classify(t->arg(1));
  bool vt = is_true(v);
  if (a1.is_free() && a2.is_free()) {
    calculated_value(a1.term, mgr_->true_term());
    calculated_value(a2.term, bool_term(vt));
  } else if (a1.is_free()) {
    calculated_value(a1.term, bool_term(is_true(a2.term) == vt));
  } else if (a2.is_free()) {
    calculated_value(a2.term, bool_term(is_true(a1.term) == vt));
  } else {
    fail(kNotFreeMessage);
  }
}

// Needs two free arguments among c, x, y; then, in this order:
//   c has a Boolean value        x := v, y := v (whatever c is)
//   c free, x's term a numeral   c := false, y := v
//   c free, y's term a numeral   c := true, x := v
//   otherwise                    c := true, x := v, y := v
// The numeral tests only tell a valued branch from a free one for
// bit-vectors; a Boolean branch with a value falls through to the last row
// and its constant is recorded := v. That is kept as it is.
void IteAdHocCalculator::operator()(const Term* t, const Term* v) {
  Arg c = classify(t->arg(0));
  Arg x = classify(t->arg(1));
  Arg y = classify(t->arg(2));
  int free_count = int{c.is_free()} + int{x.is_free()} + int{y.is_free()};
  if (free_count < 2) fail(kNotFreeMessage);

  const Symbol* cs = c.term->get_symbol();
  if (!c.is_free() && (cs == mgr_->true_symbol() || cs == mgr_->false_symbol())) {
    calculated_value(x.term, v);
    calculated_value(y.term, v);
  } else if (mgr_->find_number(x.term->get_symbol()) != nullptr) {
    calculated_value(c.term, mgr_->false_term());
    calculated_value(y.term, v);
  } else if (mgr_->find_number(y.term->get_symbol()) != nullptr) {
    calculated_value(c.term, mgr_->true_term());
    calculated_value(x.term, v);
  } else {
    calculated_value(c.term, mgr_->true_term());
    calculated_value(x.term, v);
    calculated_value(y.term, v);
  }
}

// One side free (n the other side's value):
//   v true                   f := n (any type, arrays included)
//   v false, array           error "arrays are not yet supported"
//   v false, not bit-vector  error "asked to create non supported type"
//   v false, bit-vector      f := n + 1 mod 2^w
// Both free: arrays and other non-bit-vectors are refused with the second
// message; bit-vectors get a1 := (v ? 0 : 1), a2 := 0.
void EqAdHocCalculator::operator()(const Term* t, const Term* v) {
  Arg a1 = classify(t->arg(0));
  Arg a2 = classify(t->arg(1));
  bool vt = is_true(v);
  std::size_t w = 0;

  if (!a1.is_free() && !a2.is_free()) fail(kNotFreeMessage);
  if (a1.is_free() != a2.is_free()) {
    const Arg& f = a1.is_free() ? a1 : a2;
    const Term* other_value = a1.is_free() ? a2.term : a1.term;
    if (vt) {
      calculated_value(f.term, other_value);
      return;
    }
    const DataType* type = f.term->get_symbol()->get_output_type();
    if (mgr_->is_array_type(type, nullptr, nullptr)) fail(kArraysMessage);
    if (!mgr_->is_bv_type(type, &w)) fail(kUnsupportedTypeMessage);
    const Term* successor = fold<termsimpl::BVAddSimpl>(mgr_->make_bv_add_symbol(w),
                                                        {other_value, mgr_->make_bv_number(1, w)});
    calculated_value(f.term, successor);
    return;
  }

  const DataType* type = a1.term->get_symbol()->get_output_type();
  if (mgr_->is_array_type(type, nullptr, nullptr)) fail(kUnsupportedTypeMessage);
  if (!mgr_->is_bv_type(type, &w)) fail(kUnsupportedTypeMessage);
  calculated_value(a1.term, mgr_->make_bv_number(QNumber(vt ? 0L : 1L), w));
  calculated_value(a2.term, mgr_->make_bv_number(QNumber(0L), w));
}

const Term* EqAdHocCalculator::create_witness(const Term* a, const Term* /*b*/) {
  // Witnesses for arrays are not built yet: the element type is inspected
  // and the answer discarded.
  const DataType* index = nullptr;
  const DataType* element = nullptr;
  mgr_->is_array_type(a->get_symbol()->get_output_type(), &index, &element);
  if (element != nullptr) mgr_->is_array_type(element, nullptr, nullptr);
  return nullptr;
}

}  // namespace kora::adhoccalculator
