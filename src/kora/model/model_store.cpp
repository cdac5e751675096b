#include "kora/model/model_store.h"

#include <algorithm>
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

const ModelStore::NormalForm* ModelStore::cached_entry(const Term* t) const {
  const std::uint64_t id = t->id();
  if (id >= normal_cache_.size()) return nullptr;
  const NormalForm& entry = normal_cache_[id];
  return entry.stamp >> 1 == generation_ ? &entry : nullptr;
}

const Term* ModelStore::cached_normal_form(const Term* t) {
  const NormalForm* entry = cached_entry(t);
  if (entry == nullptr) return nullptr;
  if ((entry->stamp & 1) == 0) return entry->term;
  // The numeral is asked for at last: made (or found) once, then kept.
  const Term* n = mgr_->make_bv_word(entry->word, t->type()->width());
  cache_normal_form(t, n);
  return n;
}

bool ModelStore::word_of(const Term* t, std::uint64_t* word) const {
  if (t->arity() == 0) return leaf_normal_form(t)->numeral_word(word);
  const NormalForm* entry = cached_entry(t);
  if ((entry->stamp & 1) == 0) return entry->term->numeral_word(word);
  *word = entry->word;
  return true;
}

ModelStore::NormalForm& ModelStore::cache_slot(const Term* t) {
  const std::uint64_t id = t->id();
  // Grown to cover every term made so far, not only this one, so that a
  // run of new entries does not resize the table each time.
  if (id >= normal_cache_.size()) normal_cache_.resize(mgr_->term_count() + 1);
  return normal_cache_[id];
}

void ModelStore::cache_normal_form(const Term* t, const Term* n) {
  NormalForm& entry = cache_slot(t);
  entry.term = n;
  entry.stamp = generation_ << 1;
}

void ModelStore::cache_word(const Term* t, std::uint64_t word) {
  NormalForm& entry = cache_slot(t);
  entry.word = word;
  entry.stamp = generation_ << 1 | 1;
}

bool ModelStore::fold_as_words(const Term* t) {
  std::uint64_t v[2] = {0, 0};
  if (t->arity() > 2) return false;
  for (std::size_t i = 0; i < t->arity(); ++i) {
    if (!word_of(t->arg(i), &v[i])) return false;
  }
  std::uint64_t r = 0;
  switch (termsimpl::fold_words(t->get_symbol(), v, t->arity(), &r)) {
    case termsimpl::WordFold::Word:
      cache_word(t, r);
      return true;
    case termsimpl::WordFold::True:
      cache_normal_form(t, mgr_->true_term());
      return true;
    case termsimpl::WordFold::False:
      cache_normal_form(t, mgr_->false_term());
      return true;
    case termsimpl::WordFold::None:
      break;
  }
  return false;
}

namespace {

// Wide applications of these operators over values are folded along their
// left spine in one accumulator: n-ary input is grouped from the left, and
// folding it one application at a time would leave a numeral of the full
// width behind for every intermediate result. Reducing modulo 2^w after
// each step gives the value of the step-by-step fold.
bool is_chain_operator(const Symbol* s) {
  switch (s->op()) {
    case Op::BVAdd:
    case Op::BVMul:
    case Op::BVAnd:
    case Op::BVOr:
    case Op::BVXor:
      return s->param(0) > 64;
    default:
      return false;
  }
}

void chain_step(Op op, std::size_t width, mpz_class& acc, const mpz_class& operand) {
  switch (op) {
    case Op::BVAdd:
      acc += operand;
      break;
    case Op::BVMul:
      acc *= operand;
      break;
    case Op::BVAnd:
      acc &= operand;
      return;
    case Op::BVOr:
      acc |= operand;
      return;
    default:
      acc ^= operand;
      return;
  }
  mpz_fdiv_r_2exp(acc.get_mpz_t(), acc.get_mpz_t(), width);
}

}  // namespace

// The left spine of a chain: t, t's first argument while it is the same
// operator and not yet normalised, and so on. spine_ holds it bottom first,
// the order in which the applications fold.
void ModelStore::collect_spine(const Term* t) {
  spine_.clear();
  const Symbol* s = t->get_symbol();
  const Term* u = t;
  do {
    spine_.push_back(u);
    u = u->arg(0);
  } while (u->get_symbol() == s && u->arity() == 2 && cached_entry(u) == nullptr);
  std::reverse(spine_.begin(), spine_.end());
}

const Term* ModelStore::fold_chain(const Term* t) {
  collect_spine(t);
  const Term* base = normal_form_of(spine_.front()->arg(0));
  const QNumber* first = mgr_->find_number(base->get_symbol());
  if (first == nullptr) return nullptr;
  const Op op = t->get_symbol()->op();
  const std::size_t w = t->get_symbol()->param(0);
  mpz_class acc = first->numerator();
  for (const Term* u : spine_) {
    const QNumber* operand = mgr_->find_number(normal_form_of(u->arg(1))->get_symbol());
    if (operand == nullptr) return nullptr;
    chain_step(op, w, acc, operand->numerator());
  }
  return mgr_->make_bv_gmp(acc.get_mpz_t(), w);
}

const Term* ModelStore::normalize_uncached(const Term* root) {
  // Post-order over the DAG with an explicit stack: scripts and fuzzers can
  // build terms far deeper than the call stack allows. Leaves are never on
  // it: their normal form is one lookup away.
  auto done = [this](const Term* t) { return normalised(t); };
  std::vector<std::pair<const Term*, Visit>> stack{{root, Visit::Fresh}};
  std::vector<const Term*> args;
  while (!stack.empty()) {
    auto [t, visit] = stack.back();
    if (done(t)) {
      stack.pop_back();
      continue;
    }
    if (visit == Visit::Fresh && is_chain_operator(t->get_symbol()) && t->arity() == 2 &&
        t->arg(0)->get_symbol() == t->get_symbol() && !done(t->arg(0))) {
      // Normalise what hangs off the spine, then fold the spine at once.
      stack.back().second = Visit::ChainExpanded;
      collect_spine(t);
      if (!done(spine_.front()->arg(0))) stack.emplace_back(spine_.front()->arg(0), Visit::Fresh);
      for (const Term* u : spine_) {
        if (!done(u->arg(1))) stack.emplace_back(u->arg(1), Visit::Fresh);
      }
      continue;
    }
    if (visit == Visit::ChainExpanded) {
      const Term* n = fold_chain(t);
      if (n != nullptr) {
        cache_normal_form(t, n);
        stack.pop_back();
        continue;
      }
      // Something on the spine is not a value: each application is rebuilt
      // over its normal forms, one by one.
      visit = Visit::PlainFresh;
      stack.back().second = visit;
    }
    if (visit == Visit::Fresh || visit == Visit::PlainFresh) {
      stack.back().second = Visit::Expanded;
      for (const Term* a : t->args()) {
        if (!done(a)) stack.emplace_back(a, visit);
      }
      continue;
    }
    stack.pop_back();
    if (fold_as_words(t)) continue;
    args.clear();
    bool all_values = true;
    for (const Term* a : t->args()) {
      const Term* n = normal_form_of(a);
      all_values = all_values && is_model_value(n);
      args.push_back(n);
    }
    const Symbol* s = t->get_symbol();
    const Term* n = all_values ? termsimpl::fold(mgr_, s, args) : mgr_->make_term(s, args);
    cache_normal_form(t, n);
  }
  return normal_form_of(root);
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
    if (u->op() == Op::Constant && value_of(u) == nullptr) {
      set_value(u, default_value(u->type()));
      ++*counter;
    }
    for (const Term* a : u->args()) stack.push_back(a);
  }
}

void ModelStore::add_model_constraint(const Term* c, bool /*flag*/) {
  if (recorder_ != nullptr) {
    recorder_->add_model_constraint(c);
    return;
  }
  constraints_.push_back(c);
  Op op = c->op();
  if ((op == Op::Equal || op == Op::Iff) && c->arg(0)->op() == Op::Constant &&
      is_model_value(c->arg(1))) {
    set_value(c->arg(0), c->arg(1));
  }
}

Logger& ModelStore::log(int level) {
  if (recorder_ != nullptr) return recorder_->logger().start(level);
  return logger_.start(level);
}

void ModelStore::set_adhoc_value(const Term* x, const Term* value) {
  if (recorder_ != nullptr) {
    recorder_->set_adhoc_value(x, value);
    return;
  }
  auto entry = adhoc_values.insert({x, nullptr}).first;
  entry->second = value;
}

ModelStore::Recorder::~Recorder() = default;

void ModelStore::set_value(const Term* constant, const Term* value) {
  const std::uint64_t id = constant->id();
  if (id >= values_.size()) values_.resize(mgr_->term_count() + 1, nullptr);
  values_[id] = value;
  ++generation_;
}

}  // namespace kora
