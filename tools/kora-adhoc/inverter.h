#pragma once

#include <functional>
#include <memory>

#include "kora/calculators/adhoc_calculator.h"
#include "kora/model/model_store.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"

namespace kora::frontend {

// The complete inverter behind the `invert` command. Unlike a calculator,
// which handles a fixed set of cases and refuses the rest, it finds a value
// for the free arguments whenever one exists. The front end only drives it
// through this interface, so that it can be supplied without touching the
// command loop.
class Inverter {
 public:
  Inverter() = default;
  Inverter(const Inverter&) = delete;
  Inverter& operator=(const Inverter&) = delete;
  virtual ~Inverter();

  // Whether t's operator is inverted; `invert` on any other term is a
  // malformed command.
  virtual bool handles(const Term* t) const = 0;
  // Classifies t's arguments as a calculator does, records values for the
  // free ones in the model store such that t equals v, or throws
  // adhoccalculator::AdHocCalculator::error (with "no value exists for the
  // free argument" when no value does).
  virtual void operator()(const Term* t, const Term* v) = 0;
};

// Builds an inverter over a session's term manager, model store and free-term
// predicate; called again on every reset.
using InverterFactory = std::function<std::unique_ptr<Inverter>(
    TermManager*, ModelStore*, adhoccalculator::FreeTermPredicate*)>;

// The inverter of this build: empty while there is none.
InverterFactory builtin_inverter();

}  // namespace kora::frontend
