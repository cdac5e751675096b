#include "kora/preprocess/simplifier.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>

#include "kora/numbers/qnumber.h"

namespace kora::preprocess {

namespace {

template <class T>
void ensure_slot(std::vector<T>& v, std::uint64_t id) {
  if (id >= v.size()) v.resize(std::max<std::size_t>(id + 1, v.size() * 2), T{});
}

bool is_bool_or_bv(const Term* t) {
  return t->type()->is_bool() || t->type()->is_bv();
}

// What a rule says about one application.
struct Decision {
  enum class Kind { None, Fresh, Compare };
  Kind kind = Kind::None;
  // The unconstrained arguments the rule relies on, in argument order.
  std::vector<const Term*> free;
  // For Compare: the position of the unconstrained side.
  std::size_t side = 0;
};

enum class Needs { Nothing, One, Any, Two, Every, Mul, Compare };

Needs needs_of(Op op) {
  switch (op) {
    case Op::Not:
    case Op::BVNot:
    case Op::BVNeg:
    case Op::BVExtract:
    case Op::BVRotateLeft:
    case Op::BVRotateRight:
      return Needs::One;
    case Op::BVAdd:
    case Op::BVSub:
    case Op::BVXor:
    case Op::Iff:
    case Op::Equal:
    case Op::BVComp:
      return Needs::Any;
    case Op::Ite:
      return Needs::Two;
    case Op::And:
    case Op::Or:
    case Op::BVAnd:
    case Op::BVOr:
    case Op::BVConcat:
    case Op::BVShl:
    case Op::BVLshr:
    case Op::BVAshr:
    case Op::BVUdiv:
    case Op::BVUrem:
    case Op::BVSdiv:
    case Op::BVSrem:
      return Needs::Every;
    case Op::BVMul:
      return Needs::Mul;
    case Op::BVUlt:
    case Op::BVUle:
    case Op::BVSlt:
    case Op::BVSle:
      return Needs::Compare;
    default:
      return Needs::Nothing;
  }
}

bool is_odd_numeral(const TermManager& mgr, const Term* t) {
  const QNumber* q = mgr.find_number(t->get_symbol());
  return q != nullptr && !(*q / 2L).is_integer();
}

// The rule that applies to t, given which terms are unconstrained. Only
// Boolean and bit-vector terms over Boolean and bit-vector arguments are
// considered: those are the sorts whose values the calculators and the
// inverter rebuild.
template <class Unconstrained>
Decision decide(const TermManager& mgr, const Term* t, Unconstrained unconstrained) {
  Decision d;
  const Needs needs = needs_of(t->get_symbol()->op());
  if (needs == Needs::Nothing || !is_bool_or_bv(t)) return d;
  for (const Term* a : t->args()) {
    if (!is_bool_or_bv(a)) return d;
    if (unconstrained(a)) d.free.push_back(a);
  }
  const std::size_t n = d.free.size();
  const std::size_t arity = t->arity();
  bool ok = false;
  switch (needs) {
    case Needs::One:
    case Needs::Any:
      ok = n >= 1;
      break;
    case Needs::Two:
      ok = n >= 2;
      break;
    case Needs::Every:
      ok = n == arity;
      break;
    case Needs::Mul:
      ok = n == 2 || (n == 1 && is_odd_numeral(mgr, t->arg(d.free[0] == t->arg(0) ? 1 : 0)));
      break;
    case Needs::Compare:
      if (n == 1) {
        d.kind = Decision::Kind::Compare;
        d.side = d.free[0] == t->arg(0) ? 0 : 1;
        return d;
      }
      ok = n == 2;
      break;
    case Needs::Nothing:
      break;
  }
  if (ok) d.kind = Decision::Kind::Fresh;
  return d;
}

// The ends of a comparison's range: signed or unsigned, top or bottom.
const Term* range_end(TermManager& mgr, std::size_t w, bool is_signed, bool top) {
  if (!is_signed) return top ? mgr.make_bv_number(-1, w) : mgr.make_bv_number(0, w);
  QNumber half;
  BVNumber::pow2(w - 1, &half);
  return mgr.make_bv_number(top ? QNumber(half - 1L) : half, w);
}

}  // namespace

// One application per distinct term; counts and assertion marks of the terms
// made during a pass live in the same tables.
class Eliminator {
 public:
  Eliminator(TermManager& mgr, Simplified& out) : mgr_(mgr), out_(out) {}
  // One bottom-up pass over the current assertions; the number of
  // eliminations made.
  std::size_t pass();

 private:
  std::size_t& count(const Term* t) {
    ensure_slot(count_, t->id());
    return count_[t->id()];
  }
  bool is_assertion(const Term* t) const {
    return t->id() < assertion_.size() && assertion_[t->id()];
  }
  bool unconstrained(const Term* t) {
    return t->get_symbol()->op() == Op::Constant && count(t) == 1 && !is_assertion(t);
  }
  const Term* form(const Term* t) const {
    if (t->arity() == 0 || t->id() >= form_.size() || form_[t->id()] == nullptr) return t;
    return form_[t->id()];
  }
  // cur takes over old's place in the graph.
  void inherit(const Term* old, const Term* cur) {
    count(cur) += count(old);
    if (is_assertion(old)) {
      ensure_slot(assertion_, cur->id());
      assertion_[cur->id()] = true;
    }
  }
  const Term* with_current_args(const Term* t);
  const Term* eliminate(const Term* t, const Decision& d);
  const Term* compare_replacement(const Term* t, const Decision& d, const Term* u);
  // Drops one occurrence of a; a term left with none drops its arguments'.
  void release(const Term* a);
  const Term* fresh_constant(const DataType* type);

  TermManager& mgr_;
  Simplified& out_;
  std::vector<std::size_t> count_;
  std::vector<bool> assertion_;
  std::vector<const Term*> form_;
};

std::size_t Eliminator::pass() {
  Occurrences occ(out_.assertions);
  count_ = occ.count_;
  assertion_ = occ.assertion_;
  form_.assign(mgr_.term_count() + 1, nullptr);
  std::size_t made = 0;
  for (const Term* t : occ.post_order()) {
    if (t->arity() == 0) continue;
    const Term* cur = with_current_args(t);
    const Decision d = decide(mgr_, cur, [this](const Term* a) { return unconstrained(a); });
    if (d.kind != Decision::Kind::None) {
      cur = eliminate(cur, d);
      ++made;
    }
    ensure_slot(form_, t->id());
    form_[t->id()] = cur;
  }
  for (const Term*& a : out_.assertions) a = form(a);
  return made;
}

const Term* Eliminator::with_current_args(const Term* t) {
  std::vector<const Term*> args;
  args.reserve(t->arity());
  bool changed = false;
  for (const Term* a : t->args()) {
    args.push_back(form(a));
    changed = changed || args.back() != a;
  }
  if (!changed) return t;
  const Term* cur = mgr_.make_term(t->get_symbol(), args);
  inherit(t, cur);
  return cur;
}

const Term* Eliminator::eliminate(const Term* t, const Decision& d) {
  const Term* u = fresh_constant(d.kind == Decision::Kind::Fresh ? t->type() : mgr_.bool_type());
  const Term* replacement = u;
  if (d.kind == Decision::Kind::Fresh) {
    inherit(t, u);
    for (const Term* a : t->args()) release(a);
  } else {
    replacement = compare_replacement(t, d, u);
    count(u) = 1;
    inherit(t, replacement);
    release(t->arg(d.side));
  }
  out_.trail.steps.push_back({t, replacement, u, d.free});
  ++out_.eliminated_by_op[op_name(t->get_symbol()->op())];
  ++out_.eliminated;
  return replacement;
}

// x <= t: (u or t = MAX); x < t: (u and t != MIN); t <= x: (u or t = MIN);
// t < x: (u and t != MAX). Whatever t is, some x gives the comparison the
// value of the replacement, and u is free to take either value where x can.
const Term* Eliminator::compare_replacement(const Term* t, const Decision& d, const Term* u) {
  const Op op = t->get_symbol()->op();
  const bool strict = op == Op::BVUlt || op == Op::BVSlt;
  const bool is_signed = op == Op::BVSlt || op == Op::BVSle;
  const Term* other = t->arg(1 - d.side);
  const bool x_first = d.side == 0;
  const bool top = x_first != strict;
  const Term* eq = mgr_.make_equal(other, range_end(mgr_, other->type()->width(), is_signed, top));
  // The new terms count as occurring once more than they may: a count too
  // high only ever holds an elimination back.
  ++count(eq);
  if (!strict) return mgr_.make_or(u, eq);
  const Term* ne = mgr_.make_not(eq);
  ++count(ne);
  return mgr_.make_and(u, ne);
}

void Eliminator::release(const Term* a) {
  std::vector<const Term*> stack{a};
  while (!stack.empty()) {
    const Term* b = stack.back();
    stack.pop_back();
    std::size_t& c = count(b);
    if (c == 0) continue;
    // An assertion stays in the graph without parents.
    if (--c == 0 && !is_assertion(b)) {
      for (const Term* child : b->args()) stack.push_back(child);
    }
  }
}

// Named after the number of terms made so far, so names never repeat within
// one manager; a name some user already gave a constant of this sort is
// skipped, which the manager shows by making no new term.
const Term* Eliminator::fresh_constant(const DataType* type) {
  const std::string stem = "kora!e" + std::to_string(mgr_.term_count());
  for (std::size_t k = 0;; ++k) {
    const std::size_t before = mgr_.term_count();
    const Term* u = mgr_.make_constant(k == 0 ? stem : stem + "!" + std::to_string(k), type);
    if (mgr_.term_count() > before) {
      out_.trail.fresh.push_back(u);
      return u;
    }
  }
}

Occurrences::Occurrences(const std::vector<const Term*>& assertions) {
  std::vector<bool> seen;
  auto first_visit = [&seen](const Term* t) {
    ensure_slot(seen, t->id());
    if (seen[t->id()]) return false;
    seen[t->id()] = true;
    return true;
  };
  std::vector<std::pair<const Term*, std::size_t>> stack;
  for (const Term* a : assertions) {
    ensure_slot(assertion_, a->id());
    assertion_[a->id()] = true;
    if (first_visit(a)) stack.emplace_back(a, 0);
    while (!stack.empty()) {
      auto& [t, next] = stack.back();
      if (next == t->arity()) {
        order_.push_back(t);
        stack.pop_back();
        continue;
      }
      const Term* child = t->arg(next++);
      ensure_slot(count_, child->id());
      ++count_[child->id()];
      if (first_visit(child)) stack.emplace_back(child, 0);
    }
  }
}

std::size_t Occurrences::count(const Term* t) const noexcept {
  return t->id() < count_.size() ? count_[t->id()] : 0;
}

bool Occurrences::is_assertion(const Term* t) const noexcept {
  return t->id() < assertion_.size() && assertion_[t->id()];
}

bool Occurrences::is_unconstrained(const Term* t) const noexcept {
  return t->get_symbol()->op() == Op::Constant && count(t) == 1 && !is_assertion(t);
}

Simplified simplify(TermManager& mgr, const std::vector<const Term*>& assertions) {
  Simplified out;
  out.assertions = assertions;
  Eliminator eliminator(mgr, out);
  // A pass catches everything whose parents come after it; a term made
  // unconstrained by a later elimination waits for the next pass.
  do {
    ++out.passes;
  } while (eliminator.pass() != 0);
  return out;
}

std::vector<const Term*> eliminable(const TermManager& mgr,
                                    const std::vector<const Term*>& assertions) {
  const Occurrences occ(assertions);
  std::vector<const Term*> found;
  for (const Term* t : occ.post_order()) {
    const Decision d = decide(mgr, t, [&occ](const Term* a) { return occ.is_unconstrained(a); });
    if (d.kind != Decision::Kind::None) found.push_back(t);
  }
  return found;
}

}  // namespace kora::preprocess
