#pragma once

#include <cstddef>
#include <string>
#include <unordered_set>
#include <vector>

#include "kora/model/model_store.h"
#include "kora/numbers/qnumber.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"
#include "kora/utils/exception.h"

namespace kora::adhoccalculator {

// The fixed messages of AdHocCalculator::error.
inline constexpr const char* kNotFreeMessage = "Error: term is not free, cannot compute model!";
inline constexpr const char* kAddNotFreeMessage = "term was not free..\n";
inline constexpr const char* kArraysMessage = "arrays are not yet supported..\n";
inline constexpr const char* kUnsupportedTypeMessage = "asked to create non supported type..\n";
inline constexpr const char* kNeverFreeMessage = "Should not be called is never free!";
inline constexpr const char* kNoValueMessage = "We cannot find a value for this atom!";

// Tells which terms are free: unconstrained, so that the simplifier may give
// them any value.
class FreeTermPredicate {
 public:
  FreeTermPredicate() = default;
  FreeTermPredicate(const FreeTermPredicate&) = default;
  FreeTermPredicate& operator=(const FreeTermPredicate&) = default;
  virtual ~FreeTermPredicate();
  // Whether the term a is free.
  virtual bool is_free(const Term* a) = 0;
};

// A predicate that answers true exactly for the terms marked free.
class SetFreeTermPredicate final : public FreeTermPredicate {
 public:
  // Marks a (the term itself, not its normal form) as free.
  void mark_free(const Term* a) {
    if (a->id() >= free_.size()) free_.resize(a->id() + 1, false);
    free_[a->id()] = true;
  }
  void clear() { free_.clear(); }
  bool is_free(const Term* a) override { return a->id() < free_.size() && free_[a->id()]; }

 private:
  // One bit per term, indexed by the term's identifier (dense from 1): the
  // question every classification asks costs a load, not a hash lookup.
  std::vector<bool> free_;
};

// Base of the calculators. A calculator inverts one operator: given
// t = f(a1..an) and the value v that t must take, it gives the free
// arguments values such that f(...) = v, records them in the model store, or
// throws AdHocCalculator::error. It owns nothing and keeps no state between
// calls.
class AdHocCalculator {
 public:
  // The only failure a calculator reports.
  class error : public Exception {
   public:
    explicit error(const std::string& msg) : Exception(msg) {}
  };

  // The three objects must outlive the calculator; it owns none of them.
  AdHocCalculator(TermManager* mgr, ModelStore* store, FreeTermPredicate* pred)
      : mgr_(mgr), store_(store), pred_(pred) {}
  AdHocCalculator(const AdHocCalculator&) = delete;
  AdHocCalculator& operator=(const AdHocCalculator&) = delete;
  virtual ~AdHocCalculator();

  // Gives the free arguments of t values such that t equals v and records
  // them in the store, or throws error with one of the fixed messages.
  virtual void operator()(const Term* t, const Term* v) = 0;

 protected:
  // How an argument stands against the model.
  enum class Status : unsigned char {
    Valued,    // its normal form is a value
    Free,      // no value, and the predicate calls it free
    Defaulted  // neither: its constants were given default values
  };
  struct Arg {
    Status status;
    // The value for Valued and Defaulted, the argument itself for Free.
    const Term* term;
    bool is_free() const noexcept { return status == Status::Free; }
    bool has_value() const noexcept { return status != Status::Free; }
  };

  // The one classification every calculator runs on each of its arguments,
  // first to last, before deciding anything. Defaulting is a side effect on
  // the store that stays even when the calculator then throws.
  Arg classify(const Term* a);

  // Records that a takes value: one log line, then iff(a, value) (and the
  // adhoc_values entry) for a Boolean a, a = value otherwise.
  void calculated_value(const Term* a, const Term* value);

  [[noreturn]] static void fail(const char* message);

  // A Boolean value counts as true exactly when its symbol is true's.
  bool is_true(const Term* b) const noexcept { return b->get_symbol() == mgr_->true_symbol(); }
  const Term* bool_term(bool b) const noexcept {
    return b ? mgr_->true_term() : mgr_->false_term();
  }
  // Width of t's bit-vector type; 0 when it is not one.
  std::size_t width_of(const Term* t) const;
  // The value of a numeral term; 0 when t is not a numeral.
  QNumber number_of(const Term* t) const;

  // Folds one constant expression with a folder built on the stack.
  template <class Folder>
  const Term* fold(const Symbol* s, const std::vector<const Term*>& args) {
    Folder folder;
    return folder(mgr_, s, args);
  }

  TermManager* mgr_;
  ModelStore* store_;
  FreeTermPredicate* pred_;
};

#define KORA_ADHOC_CALCULATOR(Name)                         \
  class Name final : public AdHocCalculator {               \
   public:                                                  \
    using AdHocCalculator::AdHocCalculator;                 \
    ~Name() override;                                       \
    void operator()(const Term* t, const Term* v) override; \
  }

// Boolean connectives.
KORA_ADHOC_CALCULATOR(NotAdHocCalculator);
KORA_ADHOC_CALCULATOR(AndAdHocCalculator);
KORA_ADHOC_CALCULATOR(OrAdHocCalculator);
KORA_ADHOC_CALCULATOR(IffAdHocCalculator);
KORA_ADHOC_CALCULATOR(IteAdHocCalculator);

// Equality of non-Boolean terms.
class EqAdHocCalculator final : public AdHocCalculator {
 public:
  using AdHocCalculator::AdHocCalculator;
  ~EqAdHocCalculator() override;
  void operator()(const Term* t, const Term* v) override;
  // Unfinished witness construction for arrays: always null.
  const Term* create_witness(const Term* a, const Term* b);
};

// Bit-vector arithmetic.
KORA_ADHOC_CALCULATOR(BVAddAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVSubAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVNegAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVMulAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVLslAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVLsrAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVAsrAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVUdivAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVSdivAdHocCalculator);

// Bit-vector comparisons.
KORA_ADHOC_CALCULATOR(BVUltAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVUleAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVSltAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVSleAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVCompAdHocCalculator);

// Bitwise and structural.
KORA_ADHOC_CALCULATOR(BVNotAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVAndAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVOrAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVXorAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVConcatAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVSelectAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVRolAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVRorAdHocCalculator);

// Operators whose arguments are never free.
KORA_ADHOC_CALCULATOR(BVZextAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVSextAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVUremAdHocCalculator);
KORA_ADHOC_CALCULATOR(BVSremAdHocCalculator);

#undef KORA_ADHOC_CALCULATOR

}  // namespace kora::adhoccalculator
