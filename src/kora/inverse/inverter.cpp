#include "kora/inverse/inverter.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "kora/model/model_store.h"
#include "kora/numbers/qnumber.h"
#include "kora/terms/bv_values.h"
#include "kora/terms/term_manager.h"

// The inverter as a calculator: classification and recording as every
// calculator does them, the request read into numbers for the pure layer,
// and equality and ite over sorts without arithmetic solved on their values
// as terms.

namespace kora::inverse {

using bv::boolean;
using bv::truth;

Inverter::~Inverter() = default;

mpz_class Inverter::to_number(const Term* value) const {
  if (value->type() == mgr_->bool_type()) return boolean(is_true(value));
  return number_of(value).numerator();
}

const Term* Inverter::to_term(const mpz_class& x, const DataType* type) {
  if (type == mgr_->bool_type()) return bool_term(truth(x));
  return mgr_->make_bv_number(QNumber(x), type->width());
}

void Inverter::record(const std::vector<Arg>& args, const std::vector<std::size_t>& same,
                      const std::vector<const Term*>& values) {
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i].is_free() && same[i] == i) calculated_value(args[i].term, values[i]);
  }
}

const Term* Inverter::other_value(const Term* value) {
  const DataType* type = value->type();
  switch (type->kind()) {
    case DataType::Kind::Bool:
      return bool_term(!is_true(value));
    case DataType::Kind::BitVec:
      return to_term(to_number(value) ^ 1, type);
    case DataType::Kind::Sort: {
      // Abstract values with different indices are different values. The
      // next index, unless that one could not be read back: then the
      // smallest, which differs from an index that large.
      const std::size_t k = value->get_symbol()->param(0);
      return mgr_->make_abstract_value(k < kLargestAbstractIndex ? k + 1 : 0, type);
    }
    case DataType::Kind::Array:
      // A model value of an array sort is a constant array.
      return mgr_->make_const_array(type, other_value(value->arg(0)));
  }
  return nullptr;
}

// (x = c) = v over a sort without arithmetic: v: x = c; not v: x = a value other than c.
// Both free: y = the default value and x as above; one term on both sides: solvable iff v.
std::optional<std::vector<const Term*>> Inverter::equal_opaque_values(
    const std::vector<Arg>& args, const std::vector<std::size_t>& same, const Term* v) {
  const bool want = is_true(v);
  std::vector<const Term*> values(2, nullptr);
  if (args[0].is_free() && args[1].is_free()) {
    if (same[1] == 0) {
      if (!want) return std::nullopt;
      values[0] = values[1] = store_->default_value(args[0].term->type());
    } else {
      values[1] = store_->default_value(args[1].term->type());
      values[0] = want ? values[1] : other_value(values[1]);
    }
  } else {
    const std::size_t x = args[0].is_free() ? 0 : 1;
    const Term* c = args[1 - x].term;
    values[x] = want ? c : other_value(c);
  }
  return values;
}

// ite over a sort without arithmetic: the branch values (and v) become small
// integers for the pure solver, which only ever compares them or copies v.
std::optional<std::vector<const Term*>> Inverter::ite_opaque_values(
    const Term* t, const std::vector<Arg>& args, const std::vector<std::size_t>& same,
    const Term* v) {
  std::vector<const Term*> table{v};
  auto id = [&](const Term* value) {
    auto it = std::find(table.begin(), table.end(), value);
    if (it != table.end()) return mpz_class(static_cast<unsigned long>(it - table.begin()));
    table.push_back(value);
    return mpz_class(static_cast<unsigned long>(table.size() - 1));
  };
  std::vector<std::optional<mpz_class>> pattern(3);
  if (args[0].has_value()) pattern[0] = to_number(args[0].term);
  for (std::size_t i = 1; i < 3; ++i) {
    if (args[i].has_value()) pattern[i] = id(args[i].term);
  }
  const Operator f{Op::Ite, 0, 0, 0};
  auto done = solve(f, pattern, mpz_class(0), same);
  if (!done) return std::nullopt;
  return std::vector<const Term*>{to_term((*done)[0], t->arg(0)->type()),
                                  table[(*done)[1].get_ui()], table[(*done)[2].get_ui()]};
}

std::optional<std::vector<const Term*>> Inverter::opaque_values(
    const Term* t, const std::vector<Arg>& args, const std::vector<std::size_t>& same,
    const Term* v) {
  if (t->get_symbol()->op() == Op::Equal) return equal_opaque_values(args, same, v);
  return ite_opaque_values(t, args, same, v);
}

Inverter::Placed Inverter::unvalued_free_constants(const Term* t) {
  Placed found;
  std::unordered_set<const Term*> seen;
  for (std::size_t i = 0; i < t->arity(); ++i) {
    std::vector<const Term*> stack{t->arg(i)};
    while (!stack.empty()) {
      const Term* u = stack.back();
      stack.pop_back();
      if (!seen.insert(u).second) continue;
      if (u->get_symbol()->op() == Op::Constant && store_->value_of(u) == nullptr &&
          pred_->is_free(u)) {
        found.emplace_back(u, i);
      }
      // Reversed, so that the arguments come off the stack left to right.
      for (std::size_t j = u->arity(); j-- > 0;) stack.push_back(u->arg(j));
    }
  }
  return found;
}

bool Inverter::enumerable(const DataType* type) {
  return type->is_bool() || type->is_bv();
}

void Inverter::operator()(const Term* t, const Term* v) {
  // Classification gives default values to the constants inside a non-free
  // argument, free ones included; those are told apart by having had none
  // before.
  const Placed unvalued = unvalued_free_constants(t);
  std::vector<Arg> args;
  args.reserve(t->arity());
  for (const Term* a : t->args()) args.push_back(classify(a));

  auto f = Operator::of(t);
  if (!f || !invertible(f->op) || t->arity() != f->arity()) throw Refused(kNoInverseMessage);
  const Term* want = store_->get_normalized(v);
  if (!store_->is_good_model_value(want) || want->type() != t->type()) {
    throw Refused(kNotAValueMessage);
  }
  Placed searched;
  for (const auto& placed : unvalued) {
    if (store_->value_of(placed.first) != nullptr) searched.push_back(placed);
  }
  if (!searched.empty()) {
    invert_dependent(t, args, searched, want);
    return;
  }

  const std::size_t n = args.size();
  std::vector<std::size_t> same(n);
  bool any_free = false;
  for (std::size_t i = 0; i < n; ++i) {
    same[i] = i;
    if (!args[i].is_free()) continue;
    any_free = true;
    for (std::size_t j = 0; j < i; ++j) {
      if (args[j].is_free() && args[j].term == args[i].term) {
        same[i] = j;
        break;
      }
    }
  }
  if (!any_free) {
    if (store_->get_normalized(t) != want) throw NoValue();
    return;
  }
  if (!enumerable(t->arg(n - 1)->type())) {
    auto values = opaque_values(t, args, same, want);
    if (!values) throw NoValue();
    record(args, same, *values);
    return;
  }

  std::vector<std::optional<mpz_class>> pattern(n);
  for (std::size_t i = 0; i < n; ++i) {
    if (args[i].has_value()) pattern[i] = to_number(args[i].term);
  }
  auto done = solve(*f, pattern, to_number(want), same);
  if (!done) throw NoValue();
  std::vector<const Term*> values(n, nullptr);
  for (std::size_t i = 0; i < n; ++i) values[i] = to_term((*done)[i], t->arg(i)->type());
  record(args, same, values);
}

}  // namespace kora::inverse
