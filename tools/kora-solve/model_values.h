#pragma once

#include "kora-solve/backend.h"
#include "kora/terms/term_manager.h"

namespace kora::solve {

// A back end's value as a term of mgr: true or false, or the numeral of its
// bits at its width.
const Term* make_value_term(TermManager& mgr, const Value& value);

}  // namespace kora::solve
