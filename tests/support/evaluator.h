#pragma once

#include <cstdint>
#include <optional>

#include "kora/model/model_store.h"
#include "kora/terms/term_manager.h"

namespace kora::test {

// Evaluates a Boolean or bit-vector term (widths up to 64) under the values
// that the store holds for declared constants. Written from the SMT-LIB
// definitions with machine words, independently of the library's folders, so
// that calculator tests do not check the library against itself. Booleans
// are 0 or 1. Empty when some constant has no value or the term has a sort
// or operator the evaluator does not know.
std::optional<std::uint64_t> evaluate(const TermManager& mgr, const ModelStore& store,
                                      const Term* t);

// All ones at width w (w <= 64).
inline std::uint64_t mask(std::size_t w) {
  return w >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << w) - 1;
}

}  // namespace kora::test
