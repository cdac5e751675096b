// Calculators of the bit-vector arithmetic operators: addition, subtraction,
// negation, multiplication, the shifts and the divisions.

#include <cstddef>

#include "kora/calculators/adhoc_calculator.h"
#include "kora/numbers/qnumber.h"
#include "kora/terms/simplifiers.h"

namespace kora::adhoccalculator {

BVAddAdHocCalculator::~BVAddAdHocCalculator() = default;
BVSubAdHocCalculator::~BVSubAdHocCalculator() = default;
BVNegAdHocCalculator::~BVNegAdHocCalculator() = default;
BVMulAdHocCalculator::~BVMulAdHocCalculator() = default;
BVLslAdHocCalculator::~BVLslAdHocCalculator() = default;
BVLsrAdHocCalculator::~BVLsrAdHocCalculator() = default;
BVAsrAdHocCalculator::~BVAsrAdHocCalculator() = default;
BVUdivAdHocCalculator::~BVUdivAdHocCalculator() = default;
BVSdivAdHocCalculator::~BVSdivAdHocCalculator() = default;

namespace {

// The shifts and divisions are only ever solved by making the operator the
// identity on its first argument, so one rule serves all five; they differ
// only in the neutral second argument (shift by 0, divide by 1).
//   a0 free, a1 free   a0 := v, a1 := Neutral
//   anything else      error (even where an inverse would exist)
template <int Neutral>
class IdentityPairCalculator final : public AdHocCalculator {
 public:
  using AdHocCalculator::AdHocCalculator;
  void operator()(const Term* t, const Term* v) override {
    const std::size_t w = width_of(t);
    const QNumber n = number_of(v);
    Arg a0 = classify(t->arg(0));
    Arg a1 = classify(t->arg(1));
    if (!a0.is_free() || !a1.is_free()) fail(kNotFreeMessage);
    calculated_value(a0.term, mgr_->make_bv_number(n, w));
    calculated_value(a1.term, mgr_->make_bv_number(Neutral, w));
  }
};

}  // namespace

// Inverse value: the free side is v minus the other side, folded as [v, other].
//   a0 free    a1 free    a0 := v, a1 := 0
//   a0 free    a1 = B     a0 := v - B
//   a0 = A     a1 free    a1 := v - A
//   a0 = A     a1 = B     error (Add's own wording)
// N is read before classification; a v that is not a numeral counts as 0.
void BVAddAdHocCalculator::operator()(const Term* t, const Term* v) {
  const std::size_t w = width_of(t);
  const QNumber n = number_of(v);
  Arg a0 = classify(t->arg(0));
  Arg a1 = classify(t->arg(1));
  if (a0.is_free() && a1.is_free()) {
    calculated_value(a0.term, mgr_->make_bv_number(n, w));
    calculated_value(a1.term, mgr_->make_bv_number(0, w));
  } else if (a0.is_free()) {
    calculated_value(a0.term,
                     fold<termsimpl::BVSubSimpl>(mgr_->make_bv_sub_symbol(w), {v, a1.term}));
  } else if (a1.is_free()) {
    calculated_value(a1.term,
                     fold<termsimpl::BVSubSimpl>(mgr_->make_bv_sub_symbol(w), {v, a0.term}));
  } else {
    fail(kAddNotFreeMessage);
  }
}

// Inverse values, folded with the other side first:
//   a0 free    a1 free    a0 := v, a1 := 0
//   a0 free    a1 = B     a0 := B + v
//   a0 = A     a1 free    a1 := A - v
//   a0 = A     a1 = B     error
void BVSubAdHocCalculator::operator()(const Term* t, const Term* v) {
  const std::size_t w = width_of(t);
  const QNumber n = number_of(v);
  Arg a0 = classify(t->arg(0));
  Arg a1 = classify(t->arg(1));
  if (a0.is_free() && a1.is_free()) {
    calculated_value(a0.term, mgr_->make_bv_number(n, w));
    calculated_value(a1.term, mgr_->make_bv_number(0, w));
  } else if (a0.is_free()) {
    calculated_value(a0.term,
                     fold<termsimpl::BVAddSimpl>(mgr_->make_bv_add_symbol(w), {a1.term, v}));
  } else if (a1.is_free()) {
    calculated_value(a1.term,
                     fold<termsimpl::BVSubSimpl>(mgr_->make_bv_sub_symbol(w), {a0.term, v}));
  } else {
    fail(kNotFreeMessage);
  }
}

// Inverse value: -v.
//   a0 free              a0 := -v (width taken from v)
//   a0 valued/defaulted  error
// Nothing is read before classification, so a valued argument is refused
// without asking the predicate.
void BVNegAdHocCalculator::operator()(const Term* t, const Term* v) {
  Arg a0 = classify(t->arg(0));
  if (!a0.is_free()) fail(kNotFreeMessage);
  const std::size_t w = width_of(v);
  calculated_value(a0.term, fold<termsimpl::BVNegSimpl>(mgr_->make_bv_neg_symbol(w), {v}));
}

// Inverse value: x = c^-1 * v mod 2^w, c the other side's value.
//   a0 free    a1 free    a0 := v, a1 := 1
//   one free, c odd       x := c^-1 * v
//   one free, c even      error "no value" (even where x * c = v is solvable,
//                         v = 0 included)
//   none free             error
// The inverse comes from the extended Euclidean algorithm on (2^w, c); the
// coefficients of 2^w are carried along though only those of c are used.
// Each step updates its numbers in place: the new coefficient overwrites the
// older one (sub_mul) and the pairs then trade places (swap), so a step costs
// its division and two multiply-subtracts, never a copy of a w-bit number.
void BVMulAdHocCalculator::operator()(const Term* t, const Term* v) {
  const std::size_t w = width_of(t);
  const QNumber n = number_of(v);
  Arg a0 = classify(t->arg(0));
  Arg a1 = classify(t->arg(1));
  if (a0.is_free() && a1.is_free()) {
    calculated_value(a0.term, mgr_->make_bv_number(n, w));
    calculated_value(a1.term, mgr_->make_bv_number(1, w));
    return;
  }
  if (!a0.is_free() && !a1.is_free()) fail(kNotFreeMessage);
  const Term* target = a0.is_free() ? a0.term : a1.term;
  const Term* operand = a0.is_free() ? a1.term : a0.term;

  const QNumber c = number_of(operand);
  if ((c / 2L).is_integer()) fail(kNoValueMessage);

  QNumber m(0L);
  BVNumber::pow2(w, &m);
  QNumber scratch = n;
  QNumber r_prev = m;
  QNumber r_cur = c;
  QNumber s_prev(0L);
  QNumber s_cur(1L);
  QNumber u_prev(1L);
  QNumber u_cur(0L);
  QNumber q(0L);
  QNumber rem(0L);
  while (r_cur.sign() != 0) {
    r_prev.divmod(r_cur, q, rem);
    s_prev.sub_mul(s_cur, q);  // s_next
    u_prev.sub_mul(u_cur, q);  // u_next
    r_prev.swap(r_cur);        // r_prev = r_cur
    r_cur.swap(rem);           // r_cur = rem
    s_prev.swap(s_cur);        // s_prev = s_cur, s_cur = s_next
    u_prev.swap(u_cur);        // u_prev = u_cur, u_cur = u_next
  }
  if (s_prev < 0L) s_prev += m;
  s_prev *= n;
  QNumber& x = s_prev;
  x.divmod(m, scratch, x);
  calculated_value(target, mgr_->make_bv_number(x, w));
}

void BVLslAdHocCalculator::operator()(const Term* t, const Term* v) {
  IdentityPairCalculator<0>(mgr_, store_, pred_)(t, v);
}

void BVLsrAdHocCalculator::operator()(const Term* t, const Term* v) {
  IdentityPairCalculator<0>(mgr_, store_, pred_)(t, v);
}

void BVAsrAdHocCalculator::operator()(const Term* t, const Term* v) {
  IdentityPairCalculator<0>(mgr_, store_, pred_)(t, v);
}

void BVUdivAdHocCalculator::operator()(const Term* t, const Term* v) {
  IdentityPairCalculator<1>(mgr_, store_, pred_)(t, v);
}

void BVSdivAdHocCalculator::operator()(const Term* t, const Term* v) {
  IdentityPairCalculator<1>(mgr_, store_, pred_)(t, v);
}

}  // namespace kora::adhoccalculator
