#include "kora/preprocess/model_builder.h"

#include <algorithm>
#include <optional>

#include "kora/calculators/adhoc_calculator.h"
#include "kora/calculators/calculator_table.h"
#include "kora/inverse/inverter.h"
#include "kora/preprocess/staging.h"
#include "kora/terms/simplifiers.h"

namespace kora::preprocess {

namespace {

using adhoccalculator::AdHocCalculator;
using adhoccalculator::CalculatorTable;
using adhoccalculator::FreeTermPredicate;

// Free exactly for the unconstrained arguments of the step being rebuilt; a
// step has at most three, so a scan beats any index.
class StepFreeTerms final : public FreeTermPredicate {
 public:
  void set(const std::vector<const Term*>* free) { free_ = free; }
  bool is_free(const Term* a) override {
    return free_ != nullptr && std::find(free_->begin(), free_->end(), a) != free_->end();
  }

 private:
  const std::vector<const Term*>* free_ = nullptr;
};

class Builder {
 public:
  Builder(TermManager& mgr, ModelStore& store)
      : mgr_(mgr),
        store_(store),
        staging_(store),
        table_(&mgr, &store, &pred_),
        inverter_(&mgr, &store, &pred_) {}

  void step(const Replacement& r);
  void default_remaining(const std::vector<const Term*>& assertions);
  const RebuildStats& stats() const { return stats_; }

 private:
  const Term* value_of(const Term* t);
  // The number of values one solver recorded, or nothing when it refused or
  // its values do not make r.term equal v.
  std::optional<std::size_t> attempt(AdHocCalculator& solver, const Replacement& r, const Term* v);
  bool agrees(const Replacement& r, const Term* v);
  std::optional<bool> agrees_as_words(const Symbol* s, const Term* const* values, std::size_t n,
                                      const Term* v);

  // Steps with more arguments are checked on terms.
  static constexpr std::size_t kMaxWordArgs = 3;

  TermManager& mgr_;
  ModelStore& store_;
  StepFreeTerms pred_;
  Staging staging_;
  CalculatorTable table_;
  inverse::Inverter inverter_;
  RebuildStats stats_;
};

void Builder::step(const Replacement& r) {
  // An equation replaced by its condition: where the condition is false no
  // value of x makes the equation hold, and x keeps its default.
  if (r.condition != nullptr && value_of(r.condition) != mgr_.true_term()) {
    ++stats_.false_conditions;
    return;
  }
  pred_.set(&r.free_args);
  const Term* v = value_of(r.replacement);
  AdHocCalculator* calculator = table_.find(r.term);
  if (calculator != nullptr) {
    if (auto n = attempt(*calculator, r, v)) {
      stats_.narrow_values += *n;
      return;
    }
  }
  if (auto n = attempt(inverter_, r, v)) {
    stats_.inverter_values += *n;
    return;
  }
  ++stats_.unsolved;
}

// The value of t under the model; constants without a value (a fresh
// constant the solver was not asked about) take their defaults first.
const Term* Builder::value_of(const Term* t) {
  const Term* v = store_.get_normalized(t);
  if (store_.is_good_model_value(v)) return v;
  int assigned = 0;
  store_.assign_free_constants(t, &assigned);
  stats_.defaulted += static_cast<std::size_t>(assigned);
  return store_.get_normalized(t);
}

std::optional<std::size_t> Builder::attempt(AdHocCalculator& solver, const Replacement& r,
                                            const Term* v) {
  try {
    const Diverted diverted(store_, staging_);
    solver(r.term, v);
  } catch (const AdHocCalculator::error&) {
    staging_.discard();
    return std::nullopt;
  }
  if (!agrees(r, v)) {
    staging_.discard();
    return std::nullopt;
  }
  return staging_.commit(r.free_args);
}

// Whether the recorded values of the free arguments make r.term equal v.
bool Builder::agrees(const Replacement& r, const Term* v) {
  const Term* values[kMaxWordArgs];
  const std::size_t n = r.term->arity();
  if (n <= kMaxWordArgs) {
    for (std::size_t i = 0; i < n; ++i) {
      const Term* a = r.term->arg(i);
      values[i] = pred_.is_free(a) ? staging_.recorded(a) : store_.get_normalized(a);
      if (values[i] == nullptr) return false;
    }
    if (auto same = agrees_as_words(r.term->get_symbol(), values, n, v)) return *same;
  }
  std::vector<const Term*> args = r.term->args();
  for (const Term*& a : args) {
    if (!pred_.is_free(a)) continue;
    a = staging_.recorded(a);
    if (a == nullptr) return false;
  }
  return store_.get_normalized(mgr_.make_term(r.term->get_symbol(), args)) == v;
}

// The check of agrees on machine words, when every value is a numeral below
// 2^64 and the folders have a word form for s: no term is made, so checking
// a step costs no new term, no cache entry and no numeral lookup. Nothing
// when the check needs terms.
std::optional<bool> Builder::agrees_as_words(const Symbol* s, const Term* const* values,
                                             std::size_t n, const Term* v) {
  std::uint64_t words[kMaxWordArgs];
  for (std::size_t i = 0; i < n; ++i) {
    if (!values[i]->numeral_word(&words[i])) return std::nullopt;
  }
  std::uint64_t result = 0;
  switch (termsimpl::fold_words(s, words, n, &result)) {
    case termsimpl::WordFold::Word: {
      std::uint64_t expected = 0;
      return v->numeral_word(&expected) && expected == result;
    }
    case termsimpl::WordFold::True:
      return v == mgr_.true_term();
    case termsimpl::WordFold::False:
      return v == mgr_.false_term();
    case termsimpl::WordFold::None:
      break;
  }
  return std::nullopt;
}

void Builder::default_remaining(const std::vector<const Term*>& assertions) {
  for (const Term* c : constants_of(assertions)) {
    if (store_.value_of(c) != nullptr) continue;
    store_.set_value(c, store_.default_value(c->type()));
    ++stats_.defaulted;
  }
}

}  // namespace

RebuildStats rebuild(TermManager& mgr, ModelStore& store, const Trail& trail,
                     const std::vector<const Term*>& original_assertions) {
  Builder builder(mgr, store);
  for (std::size_t i = trail.steps.size(); i-- > 0;) builder.step(trail.steps[i]);
  builder.default_remaining(original_assertions);
  return builder.stats();
}

std::vector<const Term*> validate(ModelStore& store, const std::vector<const Term*>& assertions) {
  const Term* true_term = store.term_manager()->true_term();
  std::vector<const Term*> false_ones;
  for (const Term* a : assertions) {
    if (store.get_normalized(a) != true_term) false_ones.push_back(a);
  }
  return false_ones;
}

}  // namespace kora::preprocess
