#include "kora/preprocess/conditions.h"

namespace kora::preprocess {

namespace {

// a = b over either sort.
const Term* same(TermManager& mgr, const Term* a, const Term* b) {
  return a->type()->is_bool() ? mgr.make_iff(a, b) : mgr.make_equal(a, b);
}

const Term* bv(TermManager& mgr, Op op, const Term* a, const Term* b) {
  return mgr.make_term(mgr.make_bv_symbol(op, a->type()->width()), {a, b});
}

const Term* bv(TermManager& mgr, Op op, const Term* a) {
  return mgr.make_term(mgr.make_bv_symbol(op, a->type()->width()), {a});
}

const Term* extract(TermManager& mgr, const Term* t, std::size_t msb, std::size_t lsb) {
  return mgr.make_term(mgr.make_bv_extract_symbol(msb, lsb, t->type()->width()), {t});
}

const Term* ite_condition(TermManager& mgr, const Term* app, std::size_t p, const Term* t) {
  const Term* c = app->arg(0);
  if (p == 0) return mgr.make_or(same(mgr, app->arg(1), t), same(mgr, app->arg(2), t));
  if (p == 1) return mgr.make_or(c, same(mgr, app->arg(2), t));
  return mgr.make_or(mgr.make_not(c), same(mgr, app->arg(1), t));
}

// x shifted by s equals t exactly when shifting t back and forth by s keeps
// it: the bits the shift fills are the ones t must already have.
const Term* shift_condition(TermManager& mgr, Op op, const Term* s, const Term* t) {
  if (op == Op::BVShl) return same(mgr, bv(mgr, Op::BVShl, bv(mgr, Op::BVLshr, t, s), s), t);
  const Term* back = bv(mgr, Op::BVShl, t, s);
  if (op == Op::BVLshr) return same(mgr, bv(mgr, Op::BVLshr, back, s), t);
  // An arithmetic shift by the width or more gives 0 or all ones: the
  // second disjunct, which the first misses there.
  return mgr.make_or(same(mgr, bv(mgr, Op::BVAshr, back, s), t),
                     same(mgr, bv(mgr, Op::BVAshr, t, s), t));
}

const Term* concat_condition(TermManager& mgr, const Term* app, std::size_t p, const Term* t) {
  const std::size_t w = t->type()->width();
  const Term* s = app->arg(1 - p);
  const std::size_t ws = s->type()->width();
  // x high: s is t's low bits; x low: s is t's high bits.
  return p == 0 ? same(mgr, extract(mgr, t, ws - 1, 0), s)
                : same(mgr, extract(mgr, t, w - 1, w - ws), s);
}

const Term* extend_condition(TermManager& mgr, const Term* app, const Term* t) {
  const std::size_t k = app->get_symbol()->param(0);
  const std::size_t w = app->arg(0)->type()->width();
  if (app->op() == Op::BVZeroExtend) {
    return same(mgr, extract(mgr, t, w + k - 1, w), mgr.make_bv_word(0, k));
  }
  const Term* low = extract(mgr, t, w - 1, 0);
  return same(mgr, mgr.make_term(mgr.make_bv_sign_extend_symbol(k, w), {low}), t);
}

// The condition of a binary operator, with s the argument beside x.
const Term* binary_condition(TermManager& mgr, Op op, const Term* s, const Term* t) {
  switch (op) {
    case Op::And:
      return mgr.make_or(s, mgr.make_not(t));
    case Op::Or:
      return mgr.make_or(mgr.make_not(s), t);
    case Op::BVAnd:
    case Op::BVOr:
      return same(mgr, bv(mgr, op, t, s), t);
    case Op::BVMul:
      return same(mgr, bv(mgr, Op::BVAnd, bv(mgr, Op::BVOr, s, bv(mgr, Op::BVNeg, s)), t), t);
    case Op::BVUrem:
      return bv(mgr, Op::BVUle, t, bv(mgr, Op::BVNot, bv(mgr, Op::BVNeg, s)));
    default:
      return shift_condition(mgr, op, s, t);
  }
}

}  // namespace

bool has_condition(Op op, std::size_t p) {
  switch (op) {
    case Op::Ite:
    case Op::And:
    case Op::Or:
    case Op::BVAnd:
    case Op::BVOr:
    case Op::BVMul:
    case Op::BVConcat:
      return true;
    case Op::BVUrem:
    case Op::BVShl:
    case Op::BVLshr:
    case Op::BVAshr:
    case Op::BVZeroExtend:
    case Op::BVSignExtend:
      return p == 0;
    default:
      return false;
  }
}

const Term* invertibility_condition(TermManager& mgr, const Term* app, std::size_t p,
                                    const Term* t) {
  switch (app->op()) {
    case Op::Ite:
      return ite_condition(mgr, app, p, t);
    case Op::BVConcat:
      return concat_condition(mgr, app, p, t);
    case Op::BVZeroExtend:
    case Op::BVSignExtend:
      return extend_condition(mgr, app, t);
    default:
      return binary_condition(mgr, app->op(), app->arg(1 - p), t);
  }
}

}  // namespace kora::preprocess
