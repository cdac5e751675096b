// Calculators of the bit-vector comparisons: unsigned and signed less-than
// and less-or-equal, and comp.
//
// A comparison that must hold or fail against a known side takes the value
// nearest to that side: its successor or predecessor when it must hold, the
// same value when it must fail. There is no wrap-around: at the ends of the
// range the calculators refuse even where a value exists. The less-or-equal
// calculators own no arithmetic: a <= b is not (b < a), so they ask a
// less-than calculator with the arguments swapped and v negated.

#include "kora/calculators/adhoc_calculator.h"
#include "kora/calculators/twos_complement_internal.h"
#include "kora/terms/simplifiers.h"

namespace kora::adhoccalculator {

namespace detail {

QNumber twos_complement(const QNumber& n, unsigned long w) {
  {
    QNumber range;
    BVNumber::pow2(w, &range);
    if (n == range || range < n) {
      QNumber modulus;
      BVNumber::pow2(w, &modulus);
      return n - modulus;
    }
  }
  if (n < 0L) {
    // n + n + 2^(w-1) rather than n + 2^w: what a <s 0 records is built on
    // this, and that choice stays as it is.
    QNumber half;
    BVNumber::pow2(w - 1, &half);
    QNumber shifted = half + n;
    return n + shifted;
  }
  return n;
}

}  // namespace detail

namespace {

// The calculators call the helper by its plain name; its body sits in detail
// only so that the tests can reach it.
QNumber twos_complement(const QNumber& n, unsigned long w) {
  return detail::twos_complement(n, w);
}

}  // namespace

BVUltAdHocCalculator::~BVUltAdHocCalculator() = default;
BVUleAdHocCalculator::~BVUleAdHocCalculator() = default;
BVSltAdHocCalculator::~BVSltAdHocCalculator() = default;
BVSleAdHocCalculator::~BVSleAdHocCalculator() = default;
BVCompAdHocCalculator::~BVCompAdHocCalculator() = default;

// a <u b := v; qa, qb are the known values (a non-numeral reads as 0).
//   a free   b free    a := 0, b := (v ? 1 : 0)
//   a value  b free    v: b := qa + 1, error at qa = 2^w - 1;  not v: b := qa
//   a free   b value   v: a := qb - 1, error at qb = 0;        not v: a := qb
//   a value  b value   error (tested once both are classified)
void BVUltAdHocCalculator::operator()(const Term* t, const Term* v) {
  bool vt = is_true(v);
  std::size_t w = 0;
  mgr_->is_bv_ult(t->get_symbol(), &w);
  Arg a = classify(t->arg(0));
  Arg b = classify(t->arg(1));

  if (b.is_free()) {
    if (a.is_free()) {
      const Term* first = mgr_->make_bv_number(0, w);
      const Term* second = mgr_->make_bv_number(vt ? 1 : 0, w);
      calculated_value(a.term, first);
      calculated_value(b.term, second);
      return;
    }
    QNumber qa = number_of(a.term);
    if (!vt) {
      calculated_value(b.term, mgr_->make_bv_number(qa, w));
      return;
    }
    QNumber top;
    BVNumber::pow2(w, &top);
    if (qa == top - 1L) fail(kNoValueMessage);
    calculated_value(b.term, mgr_->make_bv_number(qa + 1L, w));
    return;
  }

  if (!a.is_free()) fail(kNotFreeMessage);
  QNumber qb = number_of(b.term);
  if (!vt) {
    calculated_value(a.term, mgr_->make_bv_number(qb, w));
    return;
  }
  if (qb.sign() == 0) fail(kNoValueMessage);
  calculated_value(a.term, mgr_->make_bv_number(qb - 1L, w));
}

// a <=u b := v is asked as b <u a := not v, so the less-than rows give:
//   a free   b free    b := 0, a := (v ? 0 : 1)   (b first: it leads b <u a)
//   a value  b free    v: b := qa;  not v: b := qa - 1, error at qa = 0
//   a free   b value   v: a := qb;  not v: a := qb + 1, error at qb = 2^w - 1
//   a value  b value   error, refused here before asking
void BVUleAdHocCalculator::operator()(const Term* t, const Term* v) {
  bool vt = is_true(v);
  std::size_t w = 0;
  mgr_->is_bv_ule(t->get_symbol(), &w);
  Arg a = classify(t->arg(0));
  Arg b = classify(t->arg(1));
  if (!b.is_free() && !a.is_free()) fail(kNotFreeMessage);

  std::vector<const Term*> swapped{b.term, a.term};
  const Term* b_lt_a = mgr_->make_term(mgr_->make_bv_ult_symbol(w), swapped);
  BVUltAdHocCalculator less_than(mgr_, store_, pred_);
  less_than(b_lt_a, bool_term(!vt));
}

// a <s b := v over patterns; max = 2^(w-1) - 1 and min = 2^(w-1) are the
// signed ends, and a computed pattern goes through twos_complement.
//   a free   b free    w = 1: a := (v ? 1 : 0), b := 0   (-1 <s 0)
//                      wider: a := 0, b := (v ? 1 : 0)
//   a value  b free    v: b := tc(qa + 1), error at qa = max;  not v: b := qa
//   a free   b value   v: a := tc(qb - 1), error at qb = min;  not v: a := qb
//   a value  b value   error, refused as soon as b is classified
// tc(-1) is 2^(w-1) - 2, so qb = 0 records a value that is not below 0 for
// w > 1 (and passes -1 itself to make_bv_number at w = 1). Kept as it is.
void BVSltAdHocCalculator::operator()(const Term* t, const Term* v) {
  bool vt = is_true(v);
  Arg a = classify(t->arg(0));
  Arg b = classify(t->arg(1));
  if (!b.is_free() && !a.is_free()) fail(kNotFreeMessage);
  // Read from the first argument's type, not from the symbol of t.
  std::size_t w = width_of(a.term);

  if (a.is_free() && b.is_free()) {
    // At width 1 the only pair with a <s b is -1 <s 0, that is 1 and 0.
    const Term* first = w == 1 ? mgr_->make_bv_number(vt ? 1 : 0, 1) : mgr_->make_bv_number(0, w);
    const Term* second = w == 1 ? mgr_->make_bv_number(0, w) : mgr_->make_bv_number(vt ? 1 : 0, w);
    calculated_value(a.term, first);
    calculated_value(b.term, second);
    return;
  }

  if (b.is_free()) {
    QNumber qa = number_of(a.term);
    if (!vt) {
      calculated_value(b.term, mgr_->make_bv_number(qa, w));
      return;
    }
    QNumber min;
    BVNumber::pow2(w - 1, &min);
    if (qa == min - 1L) fail(kNoValueMessage);
    calculated_value(b.term, mgr_->make_bv_number(twos_complement(qa + 1L, w), w));
    return;
  }

  QNumber qb = number_of(b.term);
  if (!vt) {
    calculated_value(a.term, mgr_->make_bv_number(qb, w));
    return;
  }
  QNumber min;
  BVNumber::pow2(w - 1, &min);
  if (qb == min) fail(kNoValueMessage);
  calculated_value(a.term, mgr_->make_bv_number(twos_complement(qb - 1L, w), w));
}

// a <=s b := v is asked as b <s a := not v:
//   a free   b free    v: b := 0, a := 0
//                      not v: w = 1: b := 1, a := 0; wider: b := 0, a := 1
//   a value  b free    v: b := qa;  not v: b := tc(qa - 1), error at qa = min
//                      (qa = 0 gives 2^(w-1) - 2 through the delegate)
//   a free   b value   v: a := qb;  not v: a := tc(qb + 1), error at qb = max
//   a value  b value   error, refused here before asking
void BVSleAdHocCalculator::operator()(const Term* t, const Term* v) {
  bool vt = is_true(v);
  std::size_t w = 0;
  mgr_->is_bv_sle(t->get_symbol(), &w);
  Arg a = classify(t->arg(0));
  Arg b = classify(t->arg(1));
  if (!b.is_free() && !a.is_free()) fail(kNotFreeMessage);

  std::vector<const Term*> swapped{b.term, a.term};
  const Term* b_lt_a = mgr_->make_term(mgr_->make_bv_slt_symbol(w), swapped);
  BVSltAdHocCalculator less_than(mgr_, store_, pred_);
  less_than(b_lt_a, bool_term(!vt));
}

// comp(a, b) := v: equality is required exactly when v is the numeral 1
// (anything else, a non-numeral included, asks for difference). w is the
// arguments' width, read from the first argument.
//   a free   b free    equal: a := 0, b := 0;  different: a := 1, b := 0
//   one free           equal: f := the other's value term itself
//                      different: f := other + 1 mod 2^w (never equal: 2^w >= 2)
//   a value  b value   error
void BVCompAdHocCalculator::operator()(const Term* t, const Term* v) {
  bool equal = number_of(v) == QNumber(1L);
  Arg a = classify(t->arg(0));
  Arg b = classify(t->arg(1));
  if (!b.is_free() && !a.is_free()) fail(kNotFreeMessage);
  std::size_t w = width_of(a.term);

  if (a.is_free() && b.is_free()) {
    const Term* first = mgr_->make_bv_number(QNumber(equal ? 0L : 1L), w);
    const Term* second = mgr_->make_bv_number(QNumber(0L), w);
    calculated_value(a.term, first);
    calculated_value(b.term, second);
    return;
  }

  const Term* free_side = a.is_free() ? a.term : b.term;
  const Term* other = a.is_free() ? b.term : a.term;
  if (equal) {
    calculated_value(free_side, other);
    return;
  }
  std::vector<const Term*> args{other, mgr_->make_bv_number(1, w)};
  const Term* successor = fold<termsimpl::BVAddSimpl>(mgr_->make_bv_add_symbol(w), args);
  calculated_value(free_side, successor);
}

}  // namespace kora::adhoccalculator
