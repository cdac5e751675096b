#include "kora/preprocess/simplifier.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <queue>
#include <string>
#include <unordered_map>
#include <utility>

#include "kora/numbers/qnumber.h"
#include "kora/preprocess/conditions.h"
#include "kora/preprocess/packing.h"

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
  enum class Kind { None, Fresh, Compare, Equation };
  Kind kind = Kind::None;
  // The unconstrained arguments the rule relies on, in argument order.
  std::vector<const Term*> free;
  // For Compare: the position of the unconstrained side. For Equation: the
  // side that holds the application over x.
  std::size_t side = 0;
  // For Equation: the position of x in that application.
  std::size_t position = 0;
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

// Whether a, an argument of a bvor or bvadd, looks like a part of a packed
// word: an extension or concatenation, or one shifted by a numeral. Looking
// no deeper keeps the test cheap; the packing itself decides.
bool may_be_part(const Term* a) {
  const auto shaped = [](const Term* b) {
    const Op op = b->op();
    return op == Op::BVZeroExtend || op == Op::BVConcat || op == Op::BVOr || op == Op::BVAdd;
  };
  const Op op = a->op();
  if (op == Op::BVShl || op == Op::BVLshr) {
    return a->arg(1)->op() == Op::BVNumber && shaped(a->arg(0));
  }
  return op == Op::BVZeroExtend || op == Op::BVConcat;
}

bool is_odd_numeral(const TermManager& mgr, const Term* t) {
  const QNumber* q = mgr.find_number(t->get_symbol());
  return q != nullptr && !(*q / 2L).is_integer();
}

// The end of the range that decides a comparison with one unconstrained
// side x: x <= t and t < x are fixed when t is the top (MAX), x < t and
// t <= x when t is the bottom (MIN); signed or unsigned as the operator.
QNumber comparison_end(const Term* t, std::size_t side) {
  const Op op = t->get_symbol()->op();
  const bool strict = op == Op::BVUlt || op == Op::BVSlt;
  const bool is_signed = op == Op::BVSlt || op == Op::BVSle;
  const bool top = (side == 0) != strict;
  const std::size_t w = t->arg(0)->type()->width();
  QNumber p;
  BVNumber::pow2(is_signed ? w - 1 : w, &p);
  if (is_signed) return top ? QNumber(p - 1L) : p;
  return top ? QNumber(p - 1L) : QNumber(0L);
}

// An asserted equation app = t (either side) where app has its only
// occurrence there and an unconstrained x at a position with an
// invertibility condition: the equation holds for some x exactly when the
// condition does, and nothing else sees x or app. Only an equation asserted
// by itself is taken: below a negation the condition would not do.
// What decide sees of a graph whose counts and assertions c holds; the
// equation rules only where equations is set.
template <class Counts>
struct View {
  const Counts& c;
  bool equations;
  std::size_t count(const Term* a) const { return c.count(a); }
  bool is_assertion(const Term* a) const { return c.is_assertion(a); }
  bool unconstrained(const Term* a) const {
    return a->op() == Op::Constant && count(a) == 1 && !is_assertion(a);
  }
  bool asserted_alone(const Term* a) const { return equations && is_assertion(a) && count(a) == 0; }
};

// positive: t is known to occur only as a conjunct of an assertion (below
// ands that occur only there), where, as for an asserted equation, only
// whether it can hold matters.
template <class Graph>
Decision decide_equation(const Term* t, const Graph& g, bool positive = false) {
  Decision d;
  const Op op = t->op();
  if ((op != Op::Equal && op != Op::Iff) || !(positive || g.asserted_alone(t))) return d;
  for (std::size_t side = 0; side < 2; ++side) {
    const Term* app = t->arg(side);
    if (app->arity() == 0 || g.count(app) != 1 || g.is_assertion(app)) continue;
    for (std::size_t p = 0; p < app->arity(); ++p) {
      if (!has_condition(app->op(), p) || !g.unconstrained(app->arg(p))) continue;
      d.kind = Decision::Kind::Equation;
      d.free = {app->arg(p)};
      d.side = side;
      d.position = p;
      return d;
    }
  }
  return d;
}

// The rule that applies to t, given what g says of the graph: which terms
// are unconstrained, how often a term occurs, which are assertions. Only
// Boolean and bit-vector terms over Boolean and bit-vector arguments are
// considered: those are the sorts whose values the calculators and the
// inverter rebuild.
template <class Graph>
Decision decide(const TermManager& mgr, const Term* t, const Graph& g) {
  auto unconstrained = [&g](const Term* a) { return g.unconstrained(a); };
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
        // Against a numeral other than the end, x can give the comparison
        // either value: a fresh Boolean, as with both sides unconstrained.
        d.side = d.free[0] == t->arg(0) ? 0 : 1;
        const QNumber* c = mgr.find_number(t->arg(1 - d.side)->get_symbol());
        const bool open = c != nullptr && !(*c == comparison_end(t, d.side));
        d.kind = open ? Decision::Kind::Fresh : Decision::Kind::Compare;
        return d;
      }
      ok = n == 2;
      break;
    case Needs::Nothing:
      break;
  }
  if (ok) {
    d.kind = Decision::Kind::Fresh;
  } else if (needs == Needs::Any && n == 0) {
    return decide_equation(t, g);
  }
  return d;
}

}  // namespace

// Runs the passes of simplify. Each pass starts from exact occurrence counts
// and keeps them up to date as it removes edges; the terms it makes (rebuilt
// parents, fresh constants, comparison expressions) get their entries in the
// same tables. A constant left with one occurrence, or a term that changes
// form after its parents were passed, queues those parents for another look,
// so a cascade of eliminations costs one walk rather than a pass per level.
class Eliminator {
 public:
  Eliminator(TermManager& mgr, Simplified& out, const SimplifyOptions& options)
      : mgr_(mgr), out_(out), options_(options) {}
  // One bottom-up pass over the current assertions; the number of
  // eliminations made.
  std::size_t pass();
  // After a pass that met a candidate: writes packed words as
  // concatenations; whether it rewrote any.
  bool pack();
  // After a pass: replaces the asserted equations the equation rules take
  // by their conditions; whether that may enable a rule somewhere (a term
  // left with one occurrence), so that another pass is needed.
  bool sweep();
  // What decide sees of the graph (View).
  std::size_t count(const Term* t) const { return count_of(t); }
  bool is_assertion(const Term* t) const {
    return t->id() < assertion_.size() && assertion_[t->id()];
  }
  // Fills the result's counts by operator name.
  // Carries the images of the original terms through this pass's forms.
  void compose_images();
  void name_counts() const {
    for (std::size_t op = 0; op < kOpCount; ++op) {
      const char* name = op_name(static_cast<Op>(op));
      if (by_op_[op] != 0) out_.eliminated_by_op[name] += by_op_[op];
      if (by_condition_[op] != 0) out_.conditions_by_op[name] += by_condition_[op];
    }
  }

 private:
  std::size_t& count(const Term* t) {
    ensure_slot(count_, t->id());
    return count_[t->id()];
  }

  std::size_t count_of(const Term* t) const {
    return t->id() < count_.size() ? count_[t->id()] : 0;
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

  // t rebuilt over the current forms of its arguments; old is the form it
  // had so far, whose place in the graph the result takes over.
  const Term* with_current_args(const Term* t, const Term* old);
  // Decides t's current form and records it.
  void visit(const Term* t, const Term* old);
  // Made at the first need: a pass that frees nothing late never pays.
  void index_parents();
  // A change to n can enable a rule at its parents: those not reached yet
  // see it when their turn comes, the others are looked at again.
  void touch_parents(const Term* n);
  // Looks again at the term at position i of the pass's graph.
  void look_again(std::size_t i);
  // Sets t's current form.
  void set_form(const Term* t, const Term* cur) {
    ensure_slot(form_, t->id());
    ensure_slot(form_id_, t->id());
    form_[t->id()] = cur;
    form_id_[t->id()] = cur->id();
  }
  const Term* origin(const Term* t) const {
    return t->id() < origin_.size() && origin_[t->id()] != nullptr ? origin_[t->id()] : t;
  }
  const Term* eliminate(const Term* t, const Decision& d);
  // The expression over u that stands for t, with other as t's constrained
  // side (at position 1 - side).
  const Term* compare_replacement(const Term* t, std::size_t side, const Term* u,
                                  const Term* other);
  // Rebuilds the expression that replaced the comparison t over the current
  // form of its constrained side.
  void refresh_comparison(const Term* t);
  // The equation rule applied to the equation e: its condition, recorded on
  // the trail; the counts are left to the caller.
  const Term* eliminate_equation(const Term* e, const Decision& d);
  const Term* conjunction(const Term* a,
                          std::vector<std::pair<const Term*, const Term*>>& replaced);
  // Adds one occurrence of a; a term that had none adds its arguments'.
  void acquire(const Term* a);
  template <class Step>
  void walk_down(const Term* a, Step step);
  // In a sweep; and whether a release there left a term with one
  // occurrence.
  bool sweeping_ = false;
  // The terms whose counts a sweep changed, with their counts before it.
  std::vector<std::pair<const Term*, std::size_t>> touched_;
  std::vector<bool> is_touched_;
  void note(const Term* b) {
    if (!sweeping_) return;
    ensure_slot(is_touched_, b->id());
    if (is_touched_[b->id()]) return;
    is_touched_[b->id()] = true;
    touched_.emplace_back(b, count_of(b));
  }
  // Whether the sweep left some term with one occurrence that had more.
  bool freed();
  // Whether a pass met a bvor or bvadd that is a packed word.
  bool packable_ = false;
  // Drops one occurrence of a; a term left with none drops its arguments'.
  void release(const Term* a);
  const Term* fresh_constant(const DataType* type);

  TermManager& mgr_;
  Simplified& out_;
  SimplifyOptions options_;
  // Tells the packed words, with the layouts it has worked out so far.
  WordTest word_test_{mgr_};
  std::vector<std::size_t> count_;
  std::vector<bool> assertion_;
  std::vector<const Term*> form_;
  // The identifier of each form, beside it: looking again at a term whose
  // form has died then reads no term.
  std::vector<std::uint64_t> form_id_;
  // By term identifier: the term of the pass's graph a form stands for.
  std::vector<const Term*> origin_;
  std::vector<bool> eliminated_;
  // The positions of the parents of each term of the pass's graph, by
  // identifier ranges: touching the parents reads no term.
  std::vector<std::size_t> first_parent_;
  std::vector<std::size_t> parents_;
  // The pass's graph in post-order, and the identifiers of its terms (filled
  // by the first walk).
  std::vector<const Term*> order_;
  std::vector<std::uint64_t> order_id_;
  // The position being looked at; whether the first walk is still on.
  std::size_t at_ = 0;
  bool walking_ = false;
  bool indexed_ = false;
  // Positions to look at again: below the current one in the next round,
  // above it in this one.
  std::vector<std::size_t> later_;
  std::vector<std::size_t> above_;
  // By identifier of a comparison of the pass's graph replaced by an
  // expression: its fresh constant (null for any other term) and
  // unconstrained side.
  std::vector<std::pair<const Term*, std::size_t>> compared_;
  bool is_compared(const Term* t) const {
    return t->id() < compared_.size() && compared_[t->id()].first != nullptr;
  }

  // Counted by operator while eliminating: naming them costs a string each.
  std::array<std::size_t, kOpCount> by_op_{};
  // The equations replaced by their conditions, by the application's
  // operator.
  std::array<std::size_t, kOpCount> by_condition_{};
};

std::size_t Eliminator::pass() {
  Occurrences occ(out_.assertions);
  count_ = std::move(occ.count_);
  assertion_ = std::move(occ.assertion_);
  order_ = std::move(occ.order_);
  const std::size_t size = mgr_.term_count() + 1;
  form_.assign(size, nullptr);
  form_id_.assign(size, 0);
  order_id_.assign(order_.size(), 0);
  origin_.assign(size, nullptr);
  eliminated_.assign(size, false);
  compared_.clear();
  compared_.resize(size);
  indexed_ = false;
  const std::size_t before = out_.eliminated;
  walking_ = true;
  for (at_ = 0; at_ < order_.size(); ++at_) {
    const Term* t = order_[at_];
    order_id_[at_] = t->id();
    if (t->arity() != 0) visit(t, t);
  }
  walking_ = false;
  // Each round looks again, bottom-up, at what the last one changed below
  // it; a change above the current position joins the round itself.
  while (!later_.empty()) {
    std::priority_queue<std::size_t, std::vector<std::size_t>, std::greater<>> round(
        std::greater<>{}, std::move(later_));
    later_.clear();
    bool first = true;
    while (!round.empty()) {
      const std::size_t i = round.top();
      round.pop();
      if (!first && i == at_) continue;  // queued twice
      first = false;
      at_ = i;
      look_again(i);
      for (const std::size_t above : above_) round.push(above);
      above_.clear();
    }
  }
  compose_images();
  for (const Term*& a : out_.assertions) a = form(a);
  return out_.eliminated - before;
}

void Eliminator::compose_images() {
  std::vector<const Term*>& images = out_.images;
  for (const Term*& i : images) {
    if (i != nullptr) i = form(i);
  }
  for (const Term* t : order_) {
    ensure_slot(images, t->id());
    if (images[t->id()] == nullptr && form(t) != t) images[t->id()] = form(t);
  }
}

void Eliminator::index_parents() {
  if (indexed_) return;
  indexed_ = true;
  first_parent_.assign(mgr_.term_count() + 2, 0);
  for (const Term* t : order_) {
    for (const Term* a : t->args()) ++first_parent_[a->id() + 1];
  }
  for (std::size_t i = 1; i < first_parent_.size(); ++i) first_parent_[i] += first_parent_[i - 1];
  parents_.assign(first_parent_.back(), 0);
  std::vector<std::size_t> next(first_parent_.begin(), first_parent_.end() - 1);
  for (std::size_t i = 0; i < order_.size(); ++i) {
    for (const Term* a : order_[i]->args()) parents_[next[a->id()]++] = i;
  }
}

void Eliminator::visit(const Term* t, const Term* old) {
  ++out_.visits;
  const Term* cur = with_current_args(t, old);
  if (!packable_ && options_.packing && (cur->op() == Op::BVOr || cur->op() == Op::BVAdd) &&
      may_be_part(cur->arg(0)) && may_be_part(cur->arg(1))) {
    packable_ = word_test_.packs(cur);
  }
  const Decision d = decide(mgr_, cur, View<Eliminator>{*this, false});
  if (d.kind != Decision::Kind::None) {
    cur = eliminate(cur, d);
    eliminated_[t->id()] = true;
    if (d.kind == Decision::Kind::Compare) {
      ensure_slot(compared_, t->id());
      compared_[t->id()] = {out_.trail.steps.back().fresh, d.side};
    }
  }
  set_form(t, cur);
  ensure_slot(origin_, cur->id());
  origin_[cur->id()] = t;
  // In the first walk the parents are all still ahead.
  if (cur != old && !walking_) touch_parents(t);
}

void Eliminator::touch_parents(const Term* n) {
  index_parents();
  if (n->id() + 1 >= first_parent_.size()) return;
  for (std::size_t i = first_parent_[n->id()]; i < first_parent_[n->id() + 1]; ++i) {
    const std::size_t p = parents_[i];
    if (p <= at_) {
      later_.push_back(p);
    } else if (!walking_) {
      above_.push_back(p);
    }
  }
}

void Eliminator::look_again(std::size_t i) {
  const std::uint64_t id = order_id_[i];
  const Term* old = form_[id];
  if (old == nullptr) return;
  const std::uint64_t old_id = form_id_[id];
  const bool dead = (old_id >= count_.size() || count_[old_id] == 0) &&
                    (old_id >= assertion_.size() || !assertion_[old_id]);
  if (dead) return;
  const Term* p = order_[i];
  if (!eliminated_[id]) {
    visit(p, old);
  } else if (is_compared(p)) {
    // The expression that replaced it still holds its other side.
    refresh_comparison(p);
  }
}

const Term* Eliminator::with_current_args(const Term* t, const Term* old) {
  std::vector<const Term*> args;
  args.reserve(t->arity());
  bool changed = false;
  for (std::size_t i = 0; i < t->arity(); ++i) {
    args.push_back(form(t->arg(i)));
    changed = changed || args.back() != old->arg(i);
  }
  if (!changed) return old;
  const Term* cur = mgr_.make_term(t->get_symbol(), args);
  inherit(old, cur);
  return cur;
}

const Term* Eliminator::eliminate(const Term* t, const Decision& d) {
  const Term* u = fresh_constant(d.kind == Decision::Kind::Fresh ? t->type() : mgr_.bool_type());
  const Term* replacement = u;
  if (d.kind == Decision::Kind::Fresh) {
    inherit(t, u);
    for (const Term* a : t->args()) release(a);
  } else {
    replacement = compare_replacement(t, d.side, u, t->arg(1 - d.side));
    count(u) = 1;
    inherit(t, replacement);
    release(t->arg(d.side));
  }
  out_.trail.steps.push_back({t, replacement, u, d.free, nullptr});
  ++by_op_[static_cast<std::size_t>(t->get_symbol()->op())];
  ++out_.eliminated;
  return replacement;
}

// x <= t: (u or t = MAX); x < t: (u and t != MIN); t <= x: (u or t = MIN);
// t < x: (u and t != MAX). Whatever t is, some x gives the comparison the
// value of the replacement, and u is free to take either value where x can.
const Term* Eliminator::compare_replacement(const Term* t, std::size_t side, const Term* u,
                                            const Term* other) {
  const Op op = t->get_symbol()->op();
  const bool strict = op == Op::BVUlt || op == Op::BVSlt;
  const Term* end = mgr_.make_bv_number(comparison_end(t, side), other->type()->width());
  const Term* eq = mgr_.make_equal(other, end);
  // The new terms count as occurring once more than they may: a count too
  // high only ever holds an elimination back.
  ++count(eq);
  if (!strict) return mgr_.make_or(u, eq);
  const Term* ne = mgr_.make_not(eq);
  ++count(ne);
  return mgr_.make_and(u, ne);
}

void Eliminator::refresh_comparison(const Term* t) {
  const auto [u, side] = compared_[t->id()];
  const Term* old = form_[t->id()];
  const Term* cur = compare_replacement(t, side, u, form(t->arg(1 - side)));
  if (cur == old) return;
  inherit(old, cur);
  set_form(t, cur);
  ensure_slot(origin_, cur->id());
  origin_[cur->id()] = t;
  touch_parents(t);
}

// The equations are taken between passes, where every form is settled: a
// condition's new terms may coincide with terms of the graph, and a pass
// would have to carry them along when those change form. The decisions of
// one sweep are independent: a condition holds only terms over its own
// equation's other arguments, never another equation's x or application.
bool Eliminator::pack() {
  if (!packable_) return false;
  Packed p = pack_words(mgr_, out_.assertions);
  if (p.rewritten == 0) return false;
  out_.packed += p.rewritten;
  out_.assertions = std::move(p.assertions);
  auto image = [&p](const Term* t) {
    return t->id() < p.images.size() && p.images[t->id()] != nullptr ? p.images[t->id()] : t;
  };
  std::vector<const Term*>& images = out_.images;
  for (const Term*& i : images) {
    if (i != nullptr) i = image(i);
  }
  // A term the first pass left as it was has its image from the packing.
  for (std::size_t id = 0; id < p.images.size(); ++id) {
    if (p.images[id] == nullptr) continue;
    ensure_slot(images, id);
    if (images[id] == nullptr) images[id] = p.images[id];
  }
  return true;
}

bool Eliminator::sweep() {
  sweeping_ = true;
  std::vector<std::pair<const Term*, const Term*>> replaced;
  std::vector<bool> seen;
  for (const Term* first : out_.assertions) {
    ensure_slot(seen, first->id());
    if (seen[first->id()]) continue;  // a repeated assertion is taken once
    seen[first->id()] = true;
    // At a pass's end no other rule applies: only the equation rules are
    // asked, again of each new form (a condition can be an equation that a
    // rule takes in turn), until a form is not new.
    for (const Term* e = first;;) {
      const Term* cur = e;
      if (e->op() == Op::And && count_of(e) == 0) {
        cur = conjunction(e, replaced);
      } else {
        const Decision d = decide_equation(e, View<Eliminator>{*this, true});
        if (d.kind == Decision::Kind::Equation) cur = eliminate_equation(e, d);
      }
      if (cur == e) break;
      // The counts follow, so that a term the new form leaves with one
      // occurrence (its parts merged by hash-consing) is seen.
      const bool present = count_of(cur) != 0 || is_assertion(cur);
      inherit(e, cur);
      if (!present) {
        for (const Term* a : cur->args()) acquire(a);
      }
      for (const Term* a : e->args()) release(a);
      replaced.emplace_back(e, cur);
      if (present) break;  // another assertion, or a term with parents
      e = cur;
    }
  }
  sweeping_ = false;
  if (replaced.empty()) return false;
  const bool more = freed();
  std::vector<const Term*> to(mgr_.term_count() + 1, nullptr);
  for (const auto& [e, c] : replaced) to[e->id()] = c;
  // Forms may have been replaced in turn: follow them to the last.
  auto image = [&to](const Term* t) {
    while (t->id() < to.size() && to[t->id()] != nullptr) t = to[t->id()];
    return t;
  };
  for (const Term*& a : out_.assertions) a = image(a);
  std::vector<const Term*>& images = out_.images;
  for (const Term*& i : images) {
    if (i != nullptr) i = image(i);
  }
  for (const auto& [e, c] : replaced) {
    ensure_slot(images, e->id());
    if (images[e->id()] == nullptr) images[e->id()] = image(c);
  }
  return more;
}

// A condition holds the equation's other arguments at least as often as
// the equation did, unless hash-consing merges two of their occurrences
// into one term: only then may the sweep have enabled a rule.
bool Eliminator::freed() {
  bool found = false;
  for (const auto& [t, before] : touched_) {
    found = found || (before > 1 && count_of(t) == 1);
    is_touched_[t->id()] = false;
  }
  touched_.clear();
  return found;
}

const Term* Eliminator::eliminate_equation(const Term* e, const Decision& d) {
  const Term* app = e->arg(d.side);
  const Term* target = e->arg(1 - d.side);
  const Term* condition = invertibility_condition(mgr_, app, d.position, target);
  out_.trail.steps.push_back({app, target, nullptr, d.free, condition});
  ++by_condition_[static_cast<std::size_t>(app->op())];
  ++out_.eliminated;
  return condition;
}

// The asserted conjunction a with the equations among its conjuncts (below
// ands that occur only there) replaced by their conditions; each and and
// equation rewritten is added to replaced, with its new form.
const Term* Eliminator::conjunction(const Term* a,
                                    std::vector<std::pair<const Term*, const Term*>>& replaced) {
  // Only there, and not asserted apart as well (which the sweep meets again).
  auto only_here = [this](const Term* t) { return count_of(t) == 1 && !is_assertion(t); };
  auto below = [&only_here](const Term* t) { return t->op() == Op::And && only_here(t); };
  std::unordered_map<std::uint64_t, const Term*> now;  // new forms by identifier
  auto form_of = [&now](const Term* t) {
    auto it = now.find(t->id());
    return it == now.end() ? t : it->second;
  };
  auto rewrite = [&](const Term* t, const Term* cur) {
    now[t->id()] = cur;
    if (t != a) replaced.emplace_back(t, cur);
  };
  std::vector<std::pair<const Term*, std::size_t>> stack{{a, 0}};
  while (!stack.empty()) {
    auto& [t, next] = stack.back();
    if (next < t->arity()) {
      const Term* c = t->arg(next++);
      if (below(c)) {
        stack.emplace_back(c, 0);
      } else if (only_here(c)) {
        const Decision d = decide_equation(c, View<Eliminator>{*this, true}, true);
        if (d.kind == Decision::Kind::Equation) rewrite(c, eliminate_equation(c, d));
      }
      continue;
    }
    const Term* done = t;
    stack.pop_back();
    std::vector<const Term*> args;
    bool changed = false;
    for (const Term* c : done->args()) {
      args.push_back(form_of(c));
      changed = changed || args.back() != c;
    }
    if (changed) rewrite(done, mgr_.make_term(done->get_symbol(), args));
  }
  return form_of(a);
}

// Walks down from a: step(b) for each term b reached, which says whether
// to go on to b's arguments.
template <class Step>
void Eliminator::walk_down(const Term* a, Step step) {
  std::vector<const Term*> stack{a};
  while (!stack.empty()) {
    const Term* b = stack.back();
    stack.pop_back();
    note(b);
    if (step(b)) {
      for (const Term* child : b->args()) stack.push_back(child);
    }
  }
}

void Eliminator::acquire(const Term* a) {
  walk_down(a, [this](const Term* b) { return count(b)++ == 0 && !is_assertion(b); });
}

void Eliminator::release(const Term* a) {
  walk_down(a, [this](const Term* b) {
    std::size_t& c = count(b);
    if (c == 0) return false;
    // An assertion stays in the graph without parents.
    if (--c == 0 && !is_assertion(b)) return true;
    if (c == 1 && !sweeping_ && b->get_symbol()->op() == Op::Constant) {
      // Its one remaining parent may have been passed already.
      touch_parents(origin(b));
    }
    return false;
  });
}

// The manager names it so that it cannot clash with a user's constant.
const Term* Eliminator::fresh_constant(const DataType* type) {
  const Term* u = mgr_.make_fresh_constant(type);
  out_.trail.fresh.push_back(u);
  return u;
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

Simplified simplify(TermManager& mgr, const std::vector<const Term*>& assertions,
                    const SimplifyOptions& options) {
  Simplified out;
  out.assertions = assertions;
  Eliminator eliminator(mgr, out, options);
  // Within a pass, a term made unconstrained after its parent was passed
  // sends that parent back through the rules, so the next pass normally
  // only confirms the fixed point.
  // A sweep seldom enables a rule (see freed): only then, or after a pass
  // that eliminated something, is another pass made.
  // Packed words are looked for once, after the first pass and only where
  // it met a bvor or bvadd over a shift or extension: the eliminations of a
  // pass leave such words whole, and most graphs have none. The counts of a
  // pass no longer hold for the words rewritten: another pass follows.
  bool again = false;
  bool packed = !options.packing;
  do {
    ++out.passes;
    again = eliminator.pass() != 0;
    if (!packed) {
      packed = true;
      if (eliminator.pack()) {
        again = true;
        continue;
      }
    }
    // Swept where the pass found its fixed point: its counts are exact then.
    if (!again && options.equations && eliminator.sweep()) again = true;
  } while (again);
  eliminator.name_counts();
  return out;
}

const Term* image_of(const Simplified& s, const Term* t) {
  return t->id() < s.images.size() && s.images[t->id()] != nullptr ? s.images[t->id()] : t;
}

std::vector<const Term*> constants_of(const std::vector<const Term*>& assertions) {
  // The same walk as Occurrences, without its counts: only the order of the
  // first visits matters here.
  std::vector<bool> seen;
  std::vector<const Term*> found;
  std::vector<std::pair<const Term*, std::size_t>> stack;
  auto visit = [&](const Term* t) {
    ensure_slot(seen, t->id());
    if (seen[t->id()]) return;
    seen[t->id()] = true;
    if (t->arity() > 0) {
      stack.emplace_back(t, 0);
    } else if (t->op() == Op::Constant) {
      found.push_back(t);
    }
  };
  for (const Term* a : assertions) {
    visit(a);
    while (!stack.empty()) {
      auto& [t, next] = stack.back();
      if (next == t->arity()) {
        stack.pop_back();
      } else {
        visit(t->arg(next++));
      }
    }
  }
  return found;
}

Leftovers leftovers(const std::vector<const Term*>& assertions) {
  const Occurrences occ(assertions);
  Leftovers out;
  std::vector<bool> counted;
  for (const Term* t : occ.post_order()) {
    bool any = false;
    for (std::size_t p = 0; p < t->arity(); ++p) {
      if (!occ.is_unconstrained(t->arg(p))) continue;
      ++out.by_position[std::string(op_name(t->op())) + " " + std::to_string(p)];
      any = true;
    }
    if (!any) continue;
    ++out.applications;
    ensure_slot(counted, t->id());
    counted[t->id()] = true;
  }
  // An application with two equations above it counts once.
  for (const Term* t : occ.post_order()) {
    if (t->op() != Op::Equal && t->op() != Op::Iff) continue;
    for (const Term* a : t->args()) {
      if (a->id() < counted.size() && counted[a->id()]) {
        ++out.under_equation;
        counted[a->id()] = false;
      }
    }
  }
  return out;
}

std::vector<const Term*> eliminable(const TermManager& mgr,
                                    const std::vector<const Term*>& assertions,
                                    const SimplifyOptions& options) {
  const Occurrences occ(assertions);
  std::vector<const Term*> found;
  for (const Term* t : occ.post_order()) {
    const Decision d = decide(mgr, t, View<Occurrences>{occ, options.equations});
    if (d.kind != Decision::Kind::None) found.push_back(t);
  }
  return found;
}

}  // namespace kora::preprocess
