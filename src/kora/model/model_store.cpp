#include "kora/model/model_store.h"

#include <iostream>

#include "kora/terms/simplifiers.h"

namespace kora {

ModelStore::ModelStore(TermManager* mgr, std::ostream* log_stream)
    : mgr_(mgr), logger_(log_stream != nullptr ? log_stream : &std::cerr) {}

ModelStore::~ModelStore() = default;

// The store itself calls is_model_value directly, so that its internal work
// never shows up as calls of the overridable interface.
bool ModelStore::is_good_model_value(const Term* t) {
  return is_model_value(t);
}

const Term* ModelStore::get_normalized(const Term* t) {
  if (t->arity() == 0) return leaf_normal_form(t);
  const Term* n = cached_normal_form(t);
  return n != nullptr ? n : normalize_uncached(t);
}

const Term* ModelStore::cached_normal_form(const Term* t) const {
  const std::uint64_t id = t->id();
  if (id >= normal_cache_.size()) return nullptr;
  const NormalForm& entry = normal_cache_[id];
  return entry.generation == generation_ ? entry.term : nullptr;
}

void ModelStore::cache_normal_form(const Term* t, const Term* n) {
  const std::uint64_t id = t->id();
  // Grown to cover every term made so far, not only this one, so that a
  // run of new entries does not resize the table each time.
  if (id >= normal_cache_.size()) normal_cache_.resize(mgr_->term_count() + 1);
  normal_cache_[id] = NormalForm{n, generation_};
}

const Term* ModelStore::normalize_uncached(const Term* root) {
  // Post-order over the DAG with an explicit stack: scripts and fuzzers can
  // build terms far deeper than the call stack allows. Leaves are never on
  // it: their normal form is one lookup away.
  auto done = [this](const Term* t) { return t->arity() == 0 || cached_normal_form(t) != nullptr; };
  auto normal_form = [this](const Term* t) {
    return t->arity() == 0 ? leaf_normal_form(t) : cached_normal_form(t);
  };
  std::vector<std::pair<const Term*, bool>> stack{{root, false}};
  std::vector<const Term*> args;
  while (!stack.empty()) {
    auto [t, expanded] = stack.back();
    if (done(t)) {
      stack.pop_back();
      continue;
    }
    if (!expanded) {
      stack.back().second = true;
      for (const Term* a : t->args()) {
        if (!done(a)) stack.emplace_back(a, false);
      }
      continue;
    }
    args.clear();
    bool all_values = true;
    for (const Term* a : t->args()) {
      const Term* n = normal_form(a);
      all_values = all_values && is_model_value(n);
      args.push_back(n);
    }
    const Symbol* s = t->get_symbol();
    const Term* n = all_values ? termsimpl::fold(mgr_, s, args) : mgr_->make_term(s, args);
    cache_normal_form(t, n);
    stack.pop_back();
  }
  return normal_form(root);
}

const Term* ModelStore::default_value(const DataType* type) {
  switch (type->kind()) {
    case DataType::Kind::Bool:
      return mgr_->false_term();
    case DataType::Kind::BitVec:
      return mgr_->make_bv_number(0, type->width());
    case DataType::Kind::Array:
      return mgr_->make_const_array(type, default_value(type->element()));
    case DataType::Kind::Sort:
      break;
  }
  return mgr_->make_abstract_value(0, type);
}

void ModelStore::assign_free_constants(const Term* t, int* counter) {
  std::vector<const Term*> stack{t};
  std::unordered_map<const Term*, bool> seen;
  while (!stack.empty()) {
    const Term* u = stack.back();
    stack.pop_back();
    if (!seen.emplace(u, true).second) continue;
    if (u->get_symbol()->op() == Op::Constant && value_of(u) == nullptr) {
      set_value(u, default_value(u->type()));
      ++*counter;
    }
    for (const Term* a : u->args()) stack.push_back(a);
  }
}

void ModelStore::add_model_constraint(const Term* c, bool /*flag*/) {
  constraints_.push_back(c);
  Op op = c->get_symbol()->op();
  if ((op == Op::Equal || op == Op::Iff) && c->arg(0)->get_symbol()->op() == Op::Constant &&
      is_model_value(c->arg(1))) {
    set_value(c->arg(0), c->arg(1));
  }
}

Logger& ModelStore::log(int level) {
  return logger_.start(level);
}

void ModelStore::set_value(const Term* constant, const Term* value) {
  const std::uint64_t id = constant->id();
  if (id >= values_.size()) values_.resize(mgr_->term_count() + 1, nullptr);
  values_[id] = value;
  ++generation_;
}

}  // namespace kora
