#pragma once

#include <cstdint>
#include <iosfwd>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kora/model/logger.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"
#include "kora/utils/hashtable.h"

namespace kora {

// The model under construction: values of declared constants, the
// constraints that the final model must satisfy, and the Boolean values that
// the calculators computed (adhoc_values).
class ModelStore {
 public:
  using AdhocTable = hsh::Hashtable<std::pair<const Term*, const Term*>,
                                    hsh::GetKey_pair<const Term*, const Term*>, const Term*,
                                    hsh::hash<const Term*>, std::equal_to<const Term*>>;

  // An empty model over mgr's terms; the logger writes to log_stream
  // (standard error when null).
  explicit ModelStore(TermManager* mgr, std::ostream* log_stream = nullptr);
  ModelStore(const ModelStore&) = delete;
  ModelStore& operator=(const ModelStore&) = delete;
  virtual ~ModelStore();

  // t with every constant that has a model value replaced by it and every
  // application over values folded; never null.
  virtual const Term* get_normalized(const Term* t);
  // true exactly for values: true, false, numerals, abstract values and
  // constant arrays of a value.
  virtual bool is_good_model_value(const Term* t);
  // Gives every declared constant of t that has no value its default value
  // (false, zero, the constant array of the element default, (as @0 U)), and
  // counts the constants so assigned in *counter.
  virtual void assign_free_constants(const Term* t, int* counter);
  // Appends c to the constraints; an equality or equivalence between a
  // declared constant and a value also sets the constant's value.
  virtual void add_model_constraint(const Term* c, bool flag);
  // The logger, set up for a record at the given level.
  virtual Logger& log(int level);

  // Where the records of a call go while their caller holds them back until
  // it has checked them: the constraints, the adhoc values and the log
  // records. Reads and defaulting still reach the model.
  class Recorder {
   public:
    Recorder() = default;
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;
    virtual ~Recorder();
    virtual void add_model_constraint(const Term* c) = 0;
    virtual void set_adhoc_value(const Term* x, const Term* value) = 0;
    virtual Logger& logger() = 0;
  };
  // Sends the records to recorder from now on; null sends them to the model
  // again.
  void divert_records(Recorder* recorder) noexcept { recorder_ = recorder; }

  // Sets (or replaces) the model value of a declared constant.
  void set_value(const Term* constant, const Term* value);
  // The model value of a declared constant, or null.
  const Term* value_of(const Term* constant) const {
    const std::uint64_t id = constant->id();
    return id < values_.size() ? values_[id] : nullptr;
  }
  // The default value of a type.
  const Term* default_value(const DataType* type);
  // Every constraint added so far, in order.
  const std::vector<const Term*>& constraints() const noexcept { return constraints_; }
  // The logger itself, to set its limit and flags.
  Logger& logger() noexcept { return logger_; }
  // The manager whose terms the model is about.
  TermManager* term_manager() const noexcept { return mgr_; }

  // Sets the entry of x in adhoc_values to value, making the entry first
  // when x has none.
  void set_adhoc_value(const Term* x, const Term* value);

  // The Boolean values the calculators computed, by term.
  AdhocTable adhoc_values;

 private:
  // A cached normal form, valid while the values are those of its
  // generation. A bit-vector value below 2^64 is kept as its word until its
  // numeral is asked for: folding a chain of applications over values then
  // looks up no numeral for the values in between, whose numerals sit at
  // random places of the manager's table.
  struct NormalForm {
    union {
      const Term* term = nullptr;
      std::uint64_t word;
    };
    // The generation times two, plus one when the entry holds a word.
    std::uint64_t stamp = 0;
  };

  // How far normalize_uncached has got with a term on its stack: Fresh and
  // PlainFresh terms are not expanded yet (PlainFresh ones are never folded
  // as a chain); ChainExpanded ones wait for the operands of their spine.
  enum class Visit : std::uint8_t { Fresh, PlainFresh, Expanded, ChainExpanded };

  // Fills the cache for t and everything below it.
  const Term* normalize_uncached(const Term* t);
  // Folds t, whose operands are normalised, on the words of their values
  // when they are all numerals below 2^64 and the folders' word path
  // applies; then caches the result and answers true.
  bool fold_as_words(const Term* t);
  // The value of the chain t folded along its left spine, whose operands are
  // all normalised, or null when one of them is not a numeral. Only t's
  // normal form is made: no numeral for any application below it.
  const Term* fold_chain(const Term* t);
  void collect_spine(const Term* t);
  // Whether t is a leaf or its normal form is cached.
  bool normalised(const Term* t) const { return t->arity() == 0 || cached_entry(t) != nullptr; }
  // The normal form of a term that is a leaf or already cached.
  const Term* normal_form_of(const Term* t) {
    return t->arity() == 0 ? leaf_normal_form(t) : cached_normal_form(t);
  }
  // The same as a word: true when that normal form is a numeral below 2^64,
  // and then *word is its value.
  bool word_of(const Term* t, std::uint64_t* word) const;
  // The normal form of a term without arguments: a constant's value, or the
  // term itself. Never cached: it costs one lookup.
  const Term* leaf_normal_form(const Term* t) const {
    if (t->op() != Op::Constant) return t;
    const Term* v = value_of(t);
    return v != nullptr ? v : t;
  }
  // t's cache entry, or null when it is absent or stale.
  const NormalForm* cached_entry(const Term* t) const;
  // t's normal form from the cache (its numeral made now if the entry holds
  // a word), or null when it is absent or stale.
  const Term* cached_normal_form(const Term* t);
  void cache_normal_form(const Term* t, const Term* n);
  void cache_word(const Term* t, std::uint64_t word);
  NormalForm& cache_slot(const Term* t);

  TermManager* mgr_;
  Logger logger_;
  // Values and cached normal forms sit in side tables indexed by the term's
  // identifier: the manager numbers its terms densely from 1, so a lookup is
  // one bounds check and one load, with nothing hashed. A table grows to the
  // largest identifier stored in it.
  std::vector<const Term*> values_;
  // Normal forms depend on the values: every change of a value starts a new
  // generation, which drops the whole cache at once.
  std::vector<NormalForm> normal_cache_;
  std::uint64_t generation_ = 1;
  std::vector<const Term*> constraints_;
  // fold_chain's spine, kept to reuse its storage.
  std::vector<const Term*> spine_;
  Recorder* recorder_ = nullptr;
};

}  // namespace kora
