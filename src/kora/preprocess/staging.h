#pragma once

// The model builder's staging of a calculator call: the store's records are
// held back until the builder has checked them.

#include <cstddef>
#include <sstream>
#include <vector>

#include "kora/model/logger.h"
#include "kora/model/model_store.h"
#include "kora/terms/term.h"

namespace kora::preprocess {

// Where a calculator's records go during one call. Reads and defaulting go
// to the model under construction; the constraints, adhoc values and log
// lines that the call records are held back until the model builder has
// checked them, so that a refused or wrong answer leaves no trace.
//
// Defaults given while a non-free argument is classified do go through, even
// when the call is then rejected: the constants they reach occur in no
// reduced assertion and in no later step (those already have values), and no
// earlier step can mark them free (an eliminated argument occurs nowhere
// else), so the default is as good as any value, and the inverter would give
// the same one.
class Staging final : public ModelStore::Recorder {
 public:
  explicit Staging(ModelStore& target) : target_(target), logger_(&log_) {
    logger_.set_verbosity(target.logger().verbosity());
    logger_.set_disabled(target.logger().disabled());
  }

  void add_model_constraint(const Term* c) override { staged_.push_back(c); }
  // The entries follow from the constraints, so commit makes them there.
  void set_adhoc_value(const Term* /*x*/, const Term* /*value*/) override {}
  Logger& logger() override { return logger_; }

  // The last value recorded for x in this call, or null.
  const Term* recorded(const Term* x) const {
    for (std::size_t i = staged_.size(); i-- > 0;) {
      if (staged_[i]->arg(0) == x) return staged_[i]->arg(1);
    }
    return nullptr;
  }
  void discard() {
    staged_.clear();
    log_.str("");
  }
  // Passes the values recorded for the free terms on to the model, with the
  // call's log; the number of values.
  std::size_t commit(const std::vector<const Term*>& free);

 private:
  ModelStore& target_;
  std::vector<const Term*> staged_;
  std::ostringstream log_;
  Logger logger_;
};

// Diverts the store's records to the staging for one call, whichever way
// the call ends.
class Diverted {
 public:
  Diverted(ModelStore& store, Staging& staging) : store_(store) { store_.divert_records(&staging); }
  Diverted(const Diverted&) = delete;
  Diverted& operator=(const Diverted&) = delete;
  ~Diverted() { store_.divert_records(nullptr); }

 private:
  ModelStore& store_;
};

}  // namespace kora::preprocess
