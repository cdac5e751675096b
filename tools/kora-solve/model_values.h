#pragma once

#include "kora-solve/backend.h"
#include "kora/terms/term_manager.h"

namespace kora::solve {

// A back end's value as a term of mgr: true or false, the numeral of its
// bits at its width, or for an array of sort `array` its store chain read
// and put in normal form. Throws std::runtime_error for an array value that
// is not a store chain over a constant array of that sort.
const Term* make_value_term(TermManager& mgr, const Value& value, const DataType* array = nullptr);

}  // namespace kora::solve
