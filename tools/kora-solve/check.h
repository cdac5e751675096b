#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "kora-solve/backend.h"
#include "kora/model/model_store.h"
#include "kora/smtlib/written.h"
#include "kora/terms/term_manager.h"

namespace kora::solve {

struct CheckOptions {
  bool eliminate = true;         // false: --no-elim
  bool equation_rules = true;    // false: --no-equation-rules
  bool packing = true;           // false: --no-packing
  bool count_leftovers = false;  // fill CheckStats::left (--stats)
  // Seconds for a whole check-sat: the rerun without elimination and the
  // confirmation of the model share them.
  std::optional<double> timeout;
  bool check_models = false;  // confirm each model with a fresh back end
  std::string dump_reduced;   // file for the script sent to the back end
  int verbosity = 0;          // the model store's log level
  // Print the back end's script from the assertions as written (where they
  // have written forms) rather than with the term printer alone.
  bool written_form = true;
};

// The assertions as the user wrote them, for the back end's script.
struct WrittenInput {
  std::vector<const Term*> declared;              // in declaration order
  std::vector<const smtlib::WrittenTerm*> forms;  // per assertion; null: none
};

// What one check-sat did, for --stats.
struct CheckStats {
  std::size_t assertions = 0;
  std::size_t terms = 0;  // distinct terms of the assertions' shared graph
  std::size_t eliminated = 0;
  std::map<std::string, std::size_t> eliminated_by_op;
  // Equations replaced by their conditions, by the operator over x.
  std::map<std::string, std::size_t> conditions_by_op;
  // Applications of the reduced assertions still holding an unconstrained
  // argument, and those of them under an equation.
  std::size_t left = 0;
  std::size_t left_under_equation = 0;
  std::size_t narrow_values = 0;
  std::size_t inverter_values = 0;
  std::size_t fallbacks = 0;
  // Models of the back end that failed validation or confirmation even
  // without elimination: the answer was unknown.
  std::size_t rejected_models = 0;
  double read_seconds = 0;  // filled in by the caller
  double simplify_seconds = 0;
  double backend_seconds = 0;
  double rebuild_seconds = 0;
  double validate_seconds = 0;
};

struct CheckResult {
  Status status = Status::Unknown;
  std::string reason;                 // on unknown
  std::unique_ptr<ModelStore> model;  // on sat: every constant of the assertions valued
  CheckStats stats;
};

// Solves the assertions: simplifies them, has the back end solve what is
// left, rebuilds the eliminated values and validates the model against the
// assertions, solving again without elimination when it is not valid. A
// model that is still not valid (or, with check_models, not confirmed) is
// never served: the answer is then unknown, with the reason.
// The model store logs to log. Throws BackendError and BackendMissing.
// written, when given, is how the assertions were written.
CheckResult check_sat(TermManager& mgr, const Backend& backend,
                      const std::vector<const Term*>& assertions, const CheckOptions& options,
                      std::ostream& log, const WrittenInput* written = nullptr);

// The --stats line (without a newline).
std::string stats_line(Status status, const CheckStats& stats);
// Adds more's counts and times to total.
void add_stats(CheckStats& total, const CheckStats& more);

// The declared constants of the terms, each once, in first-occurrence order.
std::vector<const Term*> constants_of(const std::vector<const Term*>& terms);

}  // namespace kora::solve
