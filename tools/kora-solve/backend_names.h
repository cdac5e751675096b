#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "kora/terms/term_manager.h"

namespace kora::solve {

// SMT-LIB reserves names starting with '@' or '.' for solvers, and some
// solvers refuse to declare them (cvc5) or tell |@x| from @x (Boolector),
// yet scripts that model checkers write declare such names. The back end is
// sent each such constant under another name: the name with 'k's before it,
// as few as make it differ from every other constant's name. Stripping the
// leading 'k's gives the name back, so no two constants get one name.
class BackendNames {
 public:
  // Renames the constants among `constants` whose names need it; the new
  // names differ from the names of all of them.
  BackendNames(TermManager& mgr, const std::vector<const Term*>& constants);

  bool empty() const noexcept { return renamed_.empty(); }
  // The constant the back end knows c by (c itself when not renamed).
  const Term* constant(const Term* c) const;
  // t with every renamed constant replaced.
  const Term* operator()(const Term* t);
  std::vector<const Term*> operator()(const std::vector<const Term*>& terms);

 private:
  TermManager& mgr_;
  std::unordered_map<const Term*, const Term*> renamed_;
  std::unordered_map<const Term*, const Term*> memo_;  // of operator()
};

}  // namespace kora::solve
