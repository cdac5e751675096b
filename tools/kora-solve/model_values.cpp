#include "kora-solve/model_values.h"

#include <gmpxx.h>

#include <optional>
#include <sstream>
#include <stdexcept>

#include "kora/smtlib/printer.h"
#include "kora/smtlib/script.h"
#include "kora/terms/array_values.h"

namespace kora::solve {

namespace {

// Reads the solver's text as a term with kora's own script reader.
const Term* array_value(TermManager& mgr, const std::string& text, const DataType* sort) {
  std::istringstream in("(get-value (" + text + "))");
  smtlib::ScriptReader reader(in, &mgr, "value");
  const Term* t = nullptr;
  try {
    std::optional<smtlib::Command> c = reader.next();
    if (c && c->kind == smtlib::Command::Kind::GetValue && c->terms.size() == 1) t = c->terms[0];
  } catch (const smtlib::InputError& e) {
    throw std::runtime_error("unreadable array value: " + reader.message(e));
  }
  if (t == nullptr || t->type() != sort || !arrays::is_array_value(t)) {
    throw std::runtime_error("not an array value of sort " + sort->to_string() + ": " +
                             text.substr(0, 200));
  }
  return arrays::normal_form(mgr, t);
}

}  // namespace

const Term* make_value_term(TermManager& mgr, const Value& value, const DataType* array) {
  if (!value.array.empty() && array != nullptr) return array_value(mgr, value.array, array);
  if (value.is_bool) return value.truth ? mgr.true_term() : mgr.false_term();
  mpz_class n(value.bits, 2);
  return mgr.make_bv_gmp(n.get_mpz_t(), value.width());
}

}  // namespace kora::solve
