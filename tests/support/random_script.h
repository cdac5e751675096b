#pragma once

// Random small QF_BV scripts as text, written the many ways SMT-LIB allows:
// n-ary and chainable operators, =>, the mirrored comparisons, indexed
// operators, let (with shadowing) and quoted symbols. Constants occur once or
// several times, so simplification has something to eliminate.

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "kora/smtlib/script.h"
#include "kora/terms/term_manager.h"

namespace kora::test {

class RandomScript {
 public:
  explicit RandomScript(std::uint64_t seed) : rng_(seed) {}

  // Declarations, then one to four asserts, each on its own line and written
  // with single spaces (as a written form prints it back).
  std::string make();
  // The assert lines of the last script.
  const std::vector<std::string>& asserts() const { return asserts_; }

 private:
  std::size_t pick(std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n - 1)(rng_);
  }
  std::string boolean(int depth);
  std::string bit_vector(int depth);
  std::string bool_leaf();
  std::string bv_leaf();
  // (let ((v VALUE)) BODY) with BODY of the given sort.
  std::string let(int depth, bool boolean_body);

  std::mt19937_64 rng_;
  std::vector<std::string> asserts_;
  std::vector<std::string> bool_vars_;  // let variables in scope
  std::vector<std::string> bv_vars_;
  int lets_ = 0;
};

// What a script says, read into mgr: the asserted terms, their written forms
// (when keep_written) and the declared constants.
struct KeptScript {
  std::vector<const Term*> assertions;
  std::vector<std::shared_ptr<const smtlib::WrittenTerm>> forms;
  std::vector<const Term*> declared;
  std::vector<std::string> errors;
};
// Reads text into mgr, keeping the written forms when keep_written.
KeptScript read_kept(TermManager& mgr, const std::string& text, bool keep_written);

}  // namespace kora::test
