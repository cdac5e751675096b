#include "kora-solve/check.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unordered_set>

#include "kora-solve/backend_names.h"
#include "kora-solve/model_values.h"
#include "kora/preprocess/model_builder.h"
#include "kora/preprocess/simplifier.h"
#include "kora/smtlib/printer.h"

namespace kora::solve {

namespace {

class Stopwatch {
 public:
  // Seconds since the start or the previous lap.
  double lap() {
    auto now = Clock::now();
    double s = std::chrono::duration<double>(now - start_).count();
    start_ = now;
    return s;
  }

 private:
  Clock::time_point start_ = Clock::now();
};

ValueRequest request_for(const TermManager& mgr, const Term* constant) {
  std::size_t width = 0;
  mgr.is_bv_type(constant->type(), &width);
  std::string sort;
  if (constant->type()->is_array()) sort = constant->type()->to_string();
  return {smtlib::quote_symbol(smtlib::constant_name(constant)), width, sort};
}

// The script for the back end: the printer's, or for a back end that reads no
// define-fun, each assertion on its own with its shared subterms bound by let.
std::string script_of(const TermManager& mgr, const std::vector<const Term*>& assertions,
                      const Backend& backend) {
  std::ostringstream script;
  if (backend.reads_define_fun()) {
    smtlib::print_script(script, mgr, assertions);
    return script.str();
  }
  // In the order they were declared (term ids grow with creation; fresh
  // constants come last): Boolector's search with -m depends on it, and on
  // spear's samba files the order of first occurrence costs it twice the time.
  std::vector<const Term*> constants = constants_of(assertions);
  script << "(set-logic " << smtlib::logic_of(assertions) << ")\n";
  std::sort(constants.begin(), constants.end(),
            [](const Term* a, const Term* b) { return a->id() < b->id(); });
  for (const Term* c : constants) {
    script << "(declare-fun " << smtlib::quote_symbol(smtlib::constant_name(c)) << " () ";
    smtlib::print_sort(script, mgr, c->type());
    script << ")\n";
  }
  for (const Term* a : assertions) {
    script << "(assert ";
    smtlib::print_term(script, mgr, a);
    script << ")\n";
  }
  return script.str();
}

// The script for the back end printed from the written forms, or the
// printer's when they cannot say the reduced problem; constants under the
// names the back end knows them by.
std::string script_of(TermManager& mgr, const std::vector<const Term*>& original,
                      const preprocess::Simplified& reduced, const WrittenInput* written,
                      const Backend& backend, BackendNames& names) {
  const std::vector<const Term*> sent = names(reduced.assertions);
  if (written != nullptr && written->forms.size() == original.size()) {
    std::vector<smtlib::WrittenAssertion> assertions;
    assertions.reserve(original.size());
    for (std::size_t i = 0; i < original.size(); ++i) {
      assertions.push_back({original[i], written->forms[i], sent[i]});
    }
    auto image = [&](const Term* t) { return names(preprocess::image_of(reduced, t)); };
    std::optional<std::string> script =
        smtlib::print_written_script(mgr, names(written->declared), constants_of(sent), assertions,
                                     image, !backend.reads_chains());
    if (script) return std::move(*script);
  }
  return script_of(mgr, sent, backend);
}

// The constants that the back end may be sent: those of the assertions and
// the declared ones.
std::vector<const Term*> named_constants(const std::vector<const Term*>& constants,
                                         const WrittenInput* written) {
  std::vector<const Term*> all = constants;
  if (written != nullptr) all.insert(all.end(), written->declared.begin(), written->declared.end());
  return all;
}

void dump(const std::string& file, const std::string& script) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out << script << "(check-sat)\n";
  if (!out.flush()) throw std::runtime_error("cannot write the reduced script to " + file);
}

// One round: simplify (or not), solve, and on sat rebuild and validate.
class Round {
 public:
  Round(TermManager& mgr, const Backend& backend, const std::vector<const Term*>& assertions,
        const CheckOptions& options, std::ostream& log, CheckResult& result,
        const WrittenInput* written)
      : mgr_(mgr),
        backend_(backend),
        assertions_(assertions),
        options_(options),
        log_(log),
        result_(result),
        written_(options.written_form ? written : nullptr),
        deadline_(deadline_after(options.timeout)) {}

  // False when the back end's model, rebuilt, does not satisfy the assertions.
  bool run(bool eliminate) {
    CheckStats& stats = result_.stats;
    preprocess::Simplified reduced;
    Stopwatch watch;
    if (eliminate) {
      preprocess::SimplifyOptions simplify_options;
      simplify_options.equations = options_.equation_rules;
      simplify_options.packing = options_.packing;
      reduced = preprocess::simplify(mgr_, assertions_, simplify_options);
      stats.eliminated = reduced.eliminated;
      stats.eliminated_by_op = reduced.eliminated_by_op;
      stats.conditions_by_op = reduced.conditions_by_op;
      if (options_.count_leftovers) {
        const preprocess::Leftovers left = preprocess::leftovers(reduced.assertions);
        stats.left = left.applications;
        stats.left_under_equation = left.under_equation;
      }
    } else {
      reduced.assertions = assertions_;
    }
    std::vector<const Term*> constants = constants_of(reduced.assertions);
    BackendNames names(mgr_, named_constants(constants, written_));
    std::vector<ValueRequest> requests;
    requests.reserve(constants.size());
    for (const Term* c : constants) requests.push_back(request_for(mgr_, names.constant(c)));
    std::string script = script_of(mgr_, assertions_, reduced, written_, backend_, names);
    if (!options_.dump_reduced.empty()) dump(options_.dump_reduced, script);
    stats.simplify_seconds += watch.lap();

    Answer answer = solve(script, requests);
    stats.backend_seconds += watch.lap();
    result_.status = answer.status;
    result_.reason = answer.reason;
    result_.model.reset();
    if (answer.status != Status::Sat) return true;

    auto store = std::make_unique<ModelStore>(&mgr_, &log_);
    store->logger().set_verbosity(options_.verbosity);
    for (std::size_t i = 0; i < constants.size(); ++i) {
      store->set_value(constants[i], make_value_term(mgr_, answer.values[i], constants[i]->type()));
    }
    preprocess::RebuildStats rebuilt =
        preprocess::rebuild(mgr_, *store, reduced.trail, assertions_);
    stats.narrow_values += rebuilt.narrow_values;
    stats.inverter_values += rebuilt.inverter_values;
    stats.rebuild_seconds += watch.lap();
    bool valid = preprocess::validate(*store, assertions_).empty();
    stats.validate_seconds += watch.lap();
    result_.model = std::move(store);
    return valid;
  }

  // Asks a fresh back end whether the assertions hold with the model's
  // values; when not, the model is withdrawn and the answer is unknown.
  void confirm() {
    ModelStore& store = *result_.model;
    std::vector<const Term*> with_model = assertions_;
    for (const Term* c : constants_of(assertions_)) {
      const Term* v = store.value_of(c);
      if (v == nullptr) v = store.default_value(c->type());
      with_model.push_back(c->type()->is_bool() ? mgr_.make_iff(c, v) : mgr_.make_equal(c, v));
    }
    BackendNames names(mgr_, constants_of(assertions_));
    Answer answer;
    try {
      answer = solve(script_of(mgr_, names(with_model), backend_), {});
    } catch (const BackendMissing&) {
      throw;
    } catch (const BackendError& e) {
      return reject(std::string("the model was not confirmed: ") + e.what());
    }
    if (answer.status == Status::Sat) return;
    std::string why = answer.reason == "timeout"
                          ? answer.reason
                          : "the model was not confirmed: " + backend_.name() + " answered " +
                                to_string(answer.status) + " on the assertions with the model";
    if (!answer.reason.empty() && why != answer.reason) why += " (" + answer.reason + ")";
    reject(why);
  }

  // The answer is unknown, for the reason given, and no model is served.
  void reject(const std::string& why) {
    result_.status = Status::Unknown;
    result_.reason = why;
    result_.model.reset();
    ++result_.stats.rejected_models;
  }

 private:
  TermManager& mgr_;
  const Backend& backend_;
  const std::vector<const Term*>& assertions_;
  const CheckOptions& options_;
  std::ostream& log_;
  CheckResult& result_;
  const WrittenInput* written_;
  // One for the whole check-sat, whichever runs it takes.
  Deadline deadline_;

  Answer solve(const std::string& script, const std::vector<ValueRequest>& requests) const {
    if (Clock::now() >= deadline_) return Answer{Status::Unknown, {}, "timeout"};
    return backend_.check(script, requests, deadline_);
  }
};

std::string seconds(double s) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.3f", s);
  return buf;
}

}  // namespace

std::vector<const Term*> constants_of(const std::vector<const Term*>& terms) {
  std::vector<const Term*> found;
  std::unordered_set<const Term*> seen;
  std::vector<const Term*> stack(terms.rbegin(), terms.rend());
  while (!stack.empty()) {
    const Term* t = stack.back();
    stack.pop_back();
    if (!seen.insert(t).second) continue;
    if (t->get_symbol()->op() == Op::Constant) found.push_back(t);
    // Reversed, so that the first argument is visited first.
    stack.insert(stack.end(), t->args().rbegin(), t->args().rend());
  }
  return found;
}

CheckResult check_sat(TermManager& mgr, const Backend& backend,
                      const std::vector<const Term*>& assertions, const CheckOptions& options,
                      std::ostream& log, const WrittenInput* written) {
  CheckResult result;
  result.stats.assertions = assertions.size();
  result.stats.terms = preprocess::Occurrences(assertions).post_order().size();
  Round round(mgr, backend, assertions, options, log, result, written);
  // A model that fails validation is a defect of the elimination: the
  // answer then comes from the problem as it was given.
  bool valid = round.run(options.eliminate);
  if (!valid && options.eliminate) {
    ++result.stats.fallbacks;
    valid = round.run(false);
  }
  if (!valid) {
    round.reject("the model of " + backend.name() +
                 " failed validation: it does not satisfy the assertions");
    return result;
  }
  if (result.status == Status::Sat && options.check_models) round.confirm();
  return result;
}

static std::string counts_text(const std::map<std::string, std::size_t>& counts) {
  std::string text;
  for (const auto& [op, n] : counts) {
    text += (text.empty() ? "(" : " (") + op + " " + std::to_string(n) + ")";
  }
  return text;
}

std::string stats_line(Status status, const CheckStats& s) {
  const std::string by_op = counts_text(s.eliminated_by_op);
  return std::string("(:kora-result ") + to_string(status) + " :kora-assertions " +
         std::to_string(s.assertions) + " :kora-terms " + std::to_string(s.terms) +
         " :kora-eliminated " + std::to_string(s.eliminated) + " :kora-eliminated-by-op (" + by_op +
         ")" + " :kora-conditions-by-op (" + counts_text(s.conditions_by_op) + ")" +
         " :kora-left " + std::to_string(s.left) + " :kora-left-under-equation " +
         std::to_string(s.left_under_equation) + " :kora-narrow-values " +
         std::to_string(s.narrow_values) + " :kora-inverter-values " +
         std::to_string(s.inverter_values) + " :kora-fallbacks " + std::to_string(s.fallbacks) +
         " :kora-rejected-models " + std::to_string(s.rejected_models) + " :kora-read-seconds " +
         seconds(s.read_seconds) + " :kora-simplify-seconds " + seconds(s.simplify_seconds) +
         " :kora-backend-seconds " + seconds(s.backend_seconds) + " :kora-rebuild-seconds " +
         seconds(s.rebuild_seconds) + " :kora-validate-seconds " + seconds(s.validate_seconds) +
         ")";
}

void add_stats(CheckStats& total, const CheckStats& more) {
  total.assertions += more.assertions;
  total.terms += more.terms;
  total.eliminated += more.eliminated;
  for (const auto& [op, n] : more.eliminated_by_op) total.eliminated_by_op[op] += n;
  for (const auto& [op, n] : more.conditions_by_op) total.conditions_by_op[op] += n;
  total.left += more.left;
  total.left_under_equation += more.left_under_equation;
  total.narrow_values += more.narrow_values;
  total.inverter_values += more.inverter_values;
  total.fallbacks += more.fallbacks;
  total.rejected_models += more.rejected_models;
  total.read_seconds += more.read_seconds;
  total.simplify_seconds += more.simplify_seconds;
  total.backend_seconds += more.backend_seconds;
  total.rebuild_seconds += more.rebuild_seconds;
  total.validate_seconds += more.validate_seconds;
}

}  // namespace kora::solve
