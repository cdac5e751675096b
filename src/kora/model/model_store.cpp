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
  auto found = normal_cache_.find(t);
  if (found != normal_cache_.end()) return found->second;
  return normalize_uncached(t);
}

const Term* ModelStore::normalize_uncached(const Term* root) {
  // Post-order over the DAG with an explicit stack: scripts and fuzzers can
  // build terms far deeper than the call stack allows.
  std::vector<std::pair<const Term*, bool>> stack{{root, false}};
  while (!stack.empty()) {
    auto [t, expanded] = stack.back();
    if (normal_cache_.count(t) != 0) {
      stack.pop_back();
      continue;
    }
    if (t->arity() == 0) {
      const Term* v = t->get_symbol()->op() == Op::Constant ? value_of(t) : nullptr;
      normal_cache_.emplace(t, v != nullptr ? v : t);
      stack.pop_back();
      continue;
    }
    if (!expanded) {
      stack.back().second = true;
      for (const Term* a : t->args()) {
        if (normal_cache_.count(a) == 0) stack.emplace_back(a, false);
      }
      continue;
    }
    std::vector<const Term*> args;
    args.reserve(t->arity());
    bool all_values = true;
    for (const Term* a : t->args()) {
      const Term* n = normal_cache_.at(a);
      all_values = all_values && is_model_value(n);
      args.push_back(n);
    }
    const Symbol* s = t->get_symbol();
    const Term* n = all_values ? termsimpl::fold(mgr_, s, args) : mgr_->make_term(s, args);
    normal_cache_.emplace(t, n);
    stack.pop_back();
  }
  return normal_cache_.at(root);
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
  values_[constant] = value;
  normal_cache_.clear();
}

const Term* ModelStore::value_of(const Term* constant) const {
  auto it = values_.find(constant);
  return it == values_.end() ? nullptr : it->second;
}

}  // namespace kora
