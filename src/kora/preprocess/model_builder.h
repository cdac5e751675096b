#pragma once

// The model builder: once a solver has a model of the reduced assertions,
// it gives every eliminated argument a value that agrees with it, and checks
// the whole model against the original assertions.

#include <cstddef>
#include <vector>

#include "kora/model/model_store.h"
#include "kora/preprocess/simplifier.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"

namespace kora::preprocess {

struct RebuildStats {
  // Values recorded by the calculators, and by the complete inverter where a
  // calculator refused or chose a value that does not give the replaced term
  // its value.
  std::size_t narrow_values = 0;
  std::size_t inverter_values = 0;
  // Steps for which neither found values (their arguments keep defaults;
  // validate then reports the assertions this breaks).
  std::size_t unsolved = 0;
  // Equation steps whose invertibility condition the model makes false:
  // their argument keeps its default.
  std::size_t false_conditions = 0;
  // Constants given their default value: a replacement's constants without
  // a value, and the constants of the original assertions left without one.
  std::size_t defaulted = 0;
};

// Completes store, which holds values for the constants of the reduced
// assertions: walks the trail last to first, and for each replaced term t
// with value v (its replacement's value) marks t's unconstrained arguments
// free and asks the calculator of t's operator for their values, then the
// complete inverter when the calculator refuses or its values do not make t
// equal v. Only the values of accepted calls reach store (as constraints
// `(= x VALUE)`, with their log lines). Constants of the original assertions
// that still have no value then get their defaults.
//
// The eliminated arguments must have no value in store when it starts.
RebuildStats rebuild(TermManager& mgr, ModelStore& store, const Trail& trail,
                     const std::vector<const Term*>& original_assertions);

// The assertions that are not true under store's model, in order; empty
// exactly when the model satisfies all of them.
std::vector<const Term*> validate(ModelStore& store, const std::vector<const Term*>& assertions);

}  // namespace kora::preprocess
