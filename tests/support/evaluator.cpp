#include "support/evaluator.h"

#include <vector>

namespace kora::test {

namespace {

using u64 = std::uint64_t;

std::int64_t to_signed(u64 x, std::size_t w) {
  if (w < 64 && (x >> (w - 1)) & 1) return static_cast<std::int64_t>(x | ~mask(w));
  return static_cast<std::int64_t>(x);
}

u64 shl(u64 a, u64 b, std::size_t w) {
  return b >= w ? 0 : (a << b) & mask(w);
}
u64 lshr(u64 a, u64 b, std::size_t w) {
  return b >= w ? 0 : a >> b;
}
u64 ashr(u64 a, u64 b, std::size_t w) {
  bool negative = (a >> (w - 1)) & 1;
  if (b >= w) return negative ? mask(w) : 0;
  u64 r = a >> b;
  if (negative && b > 0) r |= mask(w) & ~(mask(w) >> b);
  return r;
}
u64 udiv(u64 a, u64 b, std::size_t w) {
  return b == 0 ? mask(w) : a / b;
}
u64 urem(u64 a, u64 b) {
  return b == 0 ? a : a % b;
}
u64 neg(u64 a, std::size_t w) {
  return (~a + 1) & mask(w);
}
bool msb(u64 a, std::size_t w) {
  return (a >> (w - 1)) & 1;
}
u64 rotl(u64 a, std::size_t k, std::size_t w) {
  k %= w;
  return k == 0 ? a : ((a << k) | (a >> (w - k))) & mask(w);
}

std::optional<u64> apply_op(const Symbol* s, const std::vector<u64>& x) {
  std::size_t w = s->param(0);
  switch (s->op()) {
    case Op::Not:
      return !x[0];
    case Op::And:
      return x[0] && x[1];
    case Op::Or:
      return x[0] || x[1];
    case Op::Iff:
    case Op::Equal:
      return x[0] == x[1];
    case Op::Ite:
      return x[0] ? x[1] : x[2];
    case Op::BVAdd:
      return (x[0] + x[1]) & mask(w);
    case Op::BVSub:
      return (x[0] - x[1]) & mask(w);
    case Op::BVNeg:
      return neg(x[0], w);
    case Op::BVMul:
      return (x[0] * x[1]) & mask(w);
    case Op::BVShl:
      return shl(x[0], x[1], w);
    case Op::BVLshr:
      return lshr(x[0], x[1], w);
    case Op::BVAshr:
      return ashr(x[0], x[1], w);
    case Op::BVUdiv:
      return udiv(x[0], x[1], w);
    case Op::BVUrem:
      return urem(x[0], x[1]);
    case Op::BVSdiv: {
      u64 q = udiv(msb(x[0], w) ? neg(x[0], w) : x[0], msb(x[1], w) ? neg(x[1], w) : x[1], w);
      return msb(x[0], w) != msb(x[1], w) ? neg(q, w) : q;
    }
    case Op::BVSrem: {
      u64 r = urem(msb(x[0], w) ? neg(x[0], w) : x[0], msb(x[1], w) ? neg(x[1], w) : x[1]);
      return msb(x[0], w) ? neg(r, w) : r;
    }
    case Op::BVNot:
      return ~x[0] & mask(w);
    case Op::BVAnd:
      return x[0] & x[1];
    case Op::BVOr:
      return x[0] | x[1];
    case Op::BVXor:
      return x[0] ^ x[1];
    case Op::BVUlt:
      return x[0] < x[1];
    case Op::BVUle:
      return x[0] <= x[1];
    case Op::BVSlt:
      return to_signed(x[0], w) < to_signed(x[1], w);
    case Op::BVSle:
      return to_signed(x[0], w) <= to_signed(x[1], w);
    case Op::BVComp:
      return x[0] == x[1] ? 1 : 0;
    case Op::BVConcat:
      return (x[0] << s->param(1)) | x[1];
    case Op::BVExtract:
      return (x[0] >> s->param(1)) & mask(s->param(0) - s->param(1) + 1);
    case Op::BVZeroExtend:
      return x[0];
    case Op::BVSignExtend:
      return static_cast<u64>(to_signed(x[0], s->param(1))) & mask(s->param(0) + s->param(1));
    case Op::BVRotateLeft:
      return rotl(x[0], s->param(0), s->param(1));
    case Op::BVRotateRight:
      return rotl(x[0], s->param(1) - s->param(0) % s->param(1), s->param(1));
    default:
      break;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::uint64_t> evaluate(const TermManager& mgr, const ModelStore& store,
                                      const Term* t) {
  const Symbol* s = t->get_symbol();
  switch (s->op()) {
    case Op::True:
      return 1;
    case Op::False:
      return 0;
    case Op::BVNumber: {
      const QNumber* q = mgr.find_number(s);
      return q->numerator().get_ui();
    }
    case Op::Constant: {
      const Term* v = store.value_of(t);
      if (v == nullptr) return std::nullopt;
      return evaluate(mgr, store, v);
    }
    default:
      break;
  }
  std::vector<u64> args;
  for (const Term* a : t->args()) {
    auto v = evaluate(mgr, store, a);
    if (!v) return std::nullopt;
    args.push_back(*v);
  }
  return apply_op(s, args);
}

}  // namespace kora::test
