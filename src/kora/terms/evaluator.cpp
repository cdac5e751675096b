#include "kora/terms/evaluator.h"

#include <stdexcept>

#include "kora/terms/bv_values.h"

namespace kora::bv {

std::optional<Operator> Operator::of(const Symbol* s) {
  Operator f;
  f.op = s->op();
  switch (f.op) {
    case Op::Constant:
    case Op::True:
    case Op::False:
    case Op::BVNumber:
    case Op::AbstractValue:
    case Op::ConstArray:
      return std::nullopt;
    case Op::Not:
    case Op::And:
    case Op::Or:
    case Op::Iff:
    case Op::Equal:
    case Op::Ite:
      break;
    case Op::BVConcat:
      f.width = s->param(0);
      f.index0 = s->param(1);
      break;
    case Op::BVExtract:
      f.width = s->param(2);
      f.index0 = s->param(0);
      f.index1 = s->param(1);
      break;
    case Op::BVZeroExtend:
    case Op::BVSignExtend:
    case Op::BVRotateLeft:
    case Op::BVRotateRight:
      f.width = s->param(1);
      f.index0 = s->param(0);
      break;
    default:
      f.width = s->param(0);
      break;
  }
  return f;
}

std::optional<Operator> Operator::of(const Term* t) {
  auto f = of(t->get_symbol());
  if (f && f->op == Op::Equal) f->width = t->arg(0)->type()->width();
  if (f && f->op == Op::Ite) f->width = t->type()->width();
  return f;
}

std::size_t Operator::arity() const noexcept {
  switch (op) {
    case Op::Not:
    case Op::BVNeg:
    case Op::BVNot:
    case Op::BVExtract:
    case Op::BVZeroExtend:
    case Op::BVSignExtend:
    case Op::BVRotateLeft:
    case Op::BVRotateRight:
      return 1;
    case Op::Ite:
      return 3;
    default:
      return 2;
  }
}

std::size_t Operator::arg_width(std::size_t i) const noexcept {
  if (op == Op::Not || op == Op::And || op == Op::Or || op == Op::Iff) return 0;
  if (op == Op::Ite && i == 0) return 0;
  if (op == Op::BVConcat && i == 1) return index0;
  return width;
}

std::size_t Operator::result_width() const noexcept {
  switch (op) {
    case Op::Not:
    case Op::And:
    case Op::Or:
    case Op::Iff:
    case Op::Equal:
    case Op::BVUlt:
    case Op::BVUle:
    case Op::BVSlt:
    case Op::BVSle:
      return 0;
    case Op::BVComp:
      return 1;
    case Op::BVConcat:
    case Op::BVZeroExtend:
    case Op::BVSignExtend:
      return width + index0;
    case Op::BVExtract:
      return index0 - index1 + 1;
    default:
      return width;
  }
}

mpz_class evaluate(const Operator& f, std::span<const mpz_class> x) {
  const std::size_t w = f.width;
  switch (f.op) {
    case Op::Not:
      return boolean(!truth(x[0]));
    case Op::And:
      return boolean(truth(x[0]) && truth(x[1]));
    case Op::Or:
      return boolean(truth(x[0]) || truth(x[1]));
    case Op::Iff:
      return boolean(truth(x[0]) == truth(x[1]));
    case Op::Equal:
    case Op::BVComp:
      return boolean(x[0] == x[1]);
    case Op::Ite:
      return truth(x[0]) ? x[1] : x[2];
    case Op::BVAdd:
      return low(x[0] + x[1], w);
    case Op::BVSub:
      return low(x[0] - x[1], w);
    case Op::BVNeg:
      return neg(x[0], w);
    case Op::BVMul:
      return low(x[0] * x[1], w);
    case Op::BVShl: {
      const std::size_t s = amount(x[1], w);
      return s == w ? mpz_class(0) : low(shl(x[0], s), w);
    }
    case Op::BVLshr:
      return shr(x[0], amount(x[1], w));
    case Op::BVAshr: {
      // The vacated high bits take copies of the sign bit.
      const std::size_t s = amount(x[1], w);
      mpz_class r = shr(x[0], s);
      if (msb(x[0], w)) r |= ones(w) ^ ones(w - s);
      return r;
    }
    case Op::BVUdiv:
      return udiv(x[0], x[1], w);
    case Op::BVUrem:
      return urem(x[0], x[1]);
    case Op::BVSdiv: {
      // The quotient of the magnitudes, negated when the signs differ.
      const mpz_class q = udiv(magnitude(x[0], w), magnitude(x[1], w), w);
      return msb(x[0], w) != msb(x[1], w) ? neg(q, w) : q;
    }
    case Op::BVSrem: {
      // The remainder of the magnitudes, with the dividend's sign.
      const mpz_class r = urem(magnitude(x[0], w), magnitude(x[1], w));
      return msb(x[0], w) ? neg(r, w) : r;
    }
    case Op::BVNot:
      return ones(w) ^ x[0];
    case Op::BVAnd:
      return x[0] & x[1];
    case Op::BVOr:
      return x[0] | x[1];
    case Op::BVXor:
      return x[0] ^ x[1];
    case Op::BVUlt:
      return boolean(x[0] < x[1]);
    case Op::BVUle:
      return boolean(x[0] <= x[1]);
    case Op::BVSlt:
      return boolean(flip(x[0], w) < flip(x[1], w));
    case Op::BVSle:
      return boolean(flip(x[0], w) <= flip(x[1], w));
    case Op::BVConcat:
      return shl(x[0], f.index0) | x[1];
    case Op::BVExtract:
      return low(shr(x[0], f.index1), f.index0 - f.index1 + 1);
    case Op::BVZeroExtend:
      return x[0];
    case Op::BVSignExtend:
      return msb(x[0], w) ? mpz_class(x[0] | (ones(w + f.index0) ^ ones(w))) : x[0];
    case Op::BVRotateLeft:
      return rotate_left(x[0], f.index0, w);
    case Op::BVRotateRight:
      return rotate_left(x[0], w - f.index0 % w, w);
    default:
      break;
  }
  throw std::invalid_argument("kora::bv::evaluate: not an operator over values");
}

}  // namespace kora::bv
