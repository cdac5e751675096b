#include <algorithm>
#include <bit>
#include <cstdint>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "kora/inverse/inverter.h"  // IWYU pragma: associated
#include "kora/model/model_store.h"

// The inverter's search: free constants that also occur inside a non-free
// argument make that argument's value follow theirs, so their values are
// enumerated, and for each assignment the parts of the arguments that depend
// on them are evaluated again and the remaining free arguments solved.

namespace kora::inverse {

namespace {

using Values = std::vector<mpz_class>;

std::size_t bits_of(const DataType* type) {
  return type->is_bool() ? 1 : type->width();
}

std::uint64_t words_of(const mpz_class& x) {
  return mpz_size(x.get_mpz_t());
}

// What evaluating op over arguments of the given words costs, in the unit of
// Inverter::kSearchBudget: an overhead for the call and its small copies,
// plus four per word of the arguments as they are (each is copied, and
// large blocks cost more to allocate than small ones), so that wide but
// sparse values stay cheap. Products and quotients pay more: schoolbook cost
// while small, roughly FFT cost beyond.
std::uint64_t evaluation_cost(Op op, std::uint64_t words) {
  constexpr std::uint64_t kCallCost = 64;
  constexpr std::uint64_t kWordCost = 4;
  switch (op) {
    case Op::BVMul:
    case Op::BVUdiv:
    case Op::BVUrem:
    case Op::BVSdiv:
    case Op::BVSrem:
      return kCallCost +
             kWordCost * words * std::min<std::uint64_t>(words, 16 * std::bit_width(words));
    default:
      return kCallCost + kWordCost * words;
  }
}

// Whether each subterm of t contains one of roots, for every subterm.
std::unordered_map<const Term*, bool> dependence(const Term* t,
                                                 const std::unordered_set<const Term*>& roots) {
  std::unordered_map<const Term*, bool> depends;
  std::vector<std::pair<const Term*, bool>> stack{{t, false}};
  while (!stack.empty()) {
    auto [u, expanded] = stack.back();
    if (depends.contains(u)) {
      stack.pop_back();
      continue;
    }
    if (!expanded && !roots.contains(u)) {
      stack.back().second = true;
      for (const Term* b : u->args()) stack.emplace_back(b, false);
      continue;
    }
    bool d = roots.contains(u);
    for (const Term* b : u->args()) d = d || depends.at(b);
    depends.emplace(u, d);
    stack.pop_back();
  }
  return depends;
}

}  // namespace

// The state of one search: the part of t that depends on the searched
// constants, compiled once into applications over numbered slots (the
// searched constants first, then every value that does not depend on them,
// read from the store once, then one slot per application in evaluation
// order), so that an assignment costs the dependent applications only.
// Values of sorts without arithmetic stand in the slots as small ids.
struct Inverter::Search {
  struct Node {
    Operator op;
    std::vector<std::size_t> args;
    std::size_t out = 0;
  };

  std::unordered_map<const Term*, bool> depends;
  std::unordered_map<const Term*, std::size_t> slot_of;
  // By argument position: its slot, or nothing for a free argument that is
  // solved, not searched; and the first position of the same free term.
  std::vector<std::optional<std::size_t>> slot;
  std::vector<std::size_t> same;
  // The required value, as a number or an id.
  mpz_class want;
  Values slots;
  std::vector<Node> nodes;
  // The work done so far, in the unit of kSearchBudget.
  std::uint64_t cost = 0;
  std::vector<const Term*> opaque;  // by id
  std::unordered_map<const Term*, std::size_t> opaque_id;

  std::size_t add_slot(const mpz_class& x) {
    slots.push_back(x);
    return slots.size() - 1;
  }
  mpz_class id(const Term* value) {
    auto [it, fresh] = opaque_id.emplace(value, opaque.size());
    if (fresh) opaque.push_back(value);
    return mpz_class(static_cast<unsigned long>(it->second));
  }
  // Evaluates the dependent part for the assignment in the first slots.
  void run() {
    Values xs;
    for (const Node& node : nodes) {
      xs.clear();
      std::uint64_t words = 1;
      for (std::size_t a : node.args) {
        xs.push_back(slots[a]);
        words += words_of(slots[a]);
      }
      cost += evaluation_cost(node.op.op, words);
      slots[node.out] = evaluate(node.op, xs);
    }
  }
};

mpz_class Inverter::search_number(Search& s, const Term* value) const {
  return enumerable(value->type()) ? to_number(value) : s.id(value);
}

const Term* Inverter::search_term(const Search& s, const mpz_class& x, const DataType* type) {
  return enumerable(type) ? to_term(x, type) : s.opaque[x.get_ui()];
}

std::size_t Inverter::compile(Search& s, const Term* root) {
  std::vector<std::pair<const Term*, bool>> stack{{root, false}};
  while (!stack.empty()) {
    auto [u, expanded] = stack.back();
    if (s.slot_of.contains(u)) {
      stack.pop_back();
      continue;
    }
    if (!s.depends.at(u)) {
      const Term* normal = store_->get_normalized(u);
      if (!store_->is_good_model_value(normal)) throw Refused(kOpaqueMessage);
      s.slot_of.emplace(u, s.add_slot(search_number(s, normal)));
      stack.pop_back();
      continue;
    }
    if (!expanded) {
      stack.back().second = true;
      for (const Term* b : u->args()) stack.emplace_back(b, false);
      continue;
    }
    auto g = Operator::of(u);
    if (!g || u->arity() != g->arity()) throw Refused(kOpaqueMessage);
    Search::Node node{*g, {}, 0};
    for (const Term* b : u->args()) node.args.push_back(s.slot_of.at(b));
    node.out = s.add_slot(0);
    s.slot_of.emplace(u, node.out);
    s.nodes.push_back(std::move(node));
    stack.pop_back();
  }
  return s.slot_of.at(root);
}

void Inverter::place_arguments(Search& s, const Term* t, const std::vector<Arg>& args) {
  const std::size_t n = args.size();
  s.slot.assign(n, std::nullopt);
  s.same.resize(n);
  for (std::size_t i = 0; i < n; ++i) {
    s.same[i] = i;
    const Term* a = t->arg(i);
    if (s.depends.at(a) && (args[i].has_value() || s.slot_of.contains(a))) {
      s.slot[i] = compile(s, a);
    } else if (args[i].has_value()) {
      s.slot[i] = s.add_slot(search_number(s, args[i].term));
    } else {
      for (std::size_t j = 0; j < i; ++j) {
        if (!s.slot[j] && t->arg(j) == a) {
          s.same[i] = j;
          break;
        }
      }
    }
  }
}

std::optional<std::vector<const Term*>> Inverter::solve_assignment(Search& s, const Term* t,
                                                                   const std::vector<Arg>& args,
                                                                   const Term* v) {
  const std::size_t n = args.size();
  const bool opaque = !enumerable(t->arg(n - 1)->type());
  const bool any_free = std::find(s.slot.begin(), s.slot.end(), std::nullopt) != s.slot.end();
  if (opaque && any_free) {
    std::vector<Arg> known = args;
    for (std::size_t i = 0; i < n; ++i) {
      if (s.slot[i]) {
        known[i] = {Status::Valued, search_term(s, s.slots[*s.slot[i]], t->arg(i)->type())};
      }
    }
    return opaque_values(t, known, s.same, v);
  }
  const Operator f = *Operator::of(t);
  std::vector<std::optional<mpz_class>> pattern(n);
  // Solving costs about what evaluating t does.
  std::uint64_t words = 1 + words_of(s.want);
  for (std::size_t i = 0; i < n; ++i) {
    if (!s.slot[i]) continue;
    pattern[i] = s.slots[*s.slot[i]];
    words += words_of(*pattern[i]);
  }
  s.cost += evaluation_cost(f.op, words);
  auto done = solve(f, pattern, s.want, s.same);
  if (!done) return std::nullopt;
  std::vector<const Term*> values(n, nullptr);
  for (std::size_t i = 0; i < n; ++i) {
    if (!s.slot[i]) values[i] = search_term(s, (*done)[i], t->arg(i)->type());
  }
  return values;
}

// One record per free term, in the order of first occurrence; recording a
// searched constant replaces the default it was given.
void Inverter::record_search(const Search& s, const Term* t, const Placed& searched,
                             const std::vector<const Term*>& values) {
  for (std::size_t i = 0; i < t->arity(); ++i) {
    if (!s.slot[i] && s.same[i] == i) calculated_value(t->arg(i), values[i]);
    for (std::size_t k = 0; k < searched.size(); ++k) {
      const Term* c = searched[k].first;
      if (searched[k].second == i) calculated_value(c, to_term(s.slots[k], c->type()));
    }
  }
}

// Free constants that occur inside a non-free argument got default values
// when that argument was classified, so the values of such arguments follow
// the constants'. The constants' values are searched exhaustively; for each
// assignment the dependent part is re-evaluated and the remaining free
// arguments are solved.
void Inverter::invert_dependent(const Term* t, const std::vector<Arg>& args, const Placed& searched,
                                const Term* v) {
  Search s;
  std::unordered_set<const Term*> roots;
  std::size_t bits = 0;
  for (const auto& [c, where] : searched) {
    if (!enumerable(c->type())) throw Refused(kOpaqueMessage);
    bits += bits_of(c->type());
    roots.insert(c);
    s.slot_of.emplace(c, s.add_slot(0));
  }
  if (bits > kMaxSearchBits) throw Refused(kTooWideMessage);
  s.depends = dependence(t, roots);
  place_arguments(s, t, args);
  s.want = search_number(s, v);

  const std::uint64_t combinations = std::uint64_t{1} << bits;
  for (std::uint64_t code = 0; code < combinations; ++code) {
    std::size_t offset = 0;
    for (std::size_t k = 0; k < searched.size(); ++k) {
      const std::size_t width = bits_of(searched[k].first->type());
      s.slots[k] = static_cast<unsigned long>((code >> offset) & ((std::uint64_t{1} << width) - 1));
      offset += width;
    }
    s.run();
    auto values = solve_assignment(s, t, args, v);
    // Bounded by the work actually done, not by widths: wide values that
    // stay small cost little.
    if (s.cost > kSearchBudget) throw Refused(kTooWideMessage);
    if (!values) continue;
    record_search(s, t, searched, *values);
    return;
  }
  throw NoValue();
}

}  // namespace kora::inverse
