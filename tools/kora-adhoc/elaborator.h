#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>

#include "kora/smtlib/operators.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"

namespace kora::frontend {

// The front end reads its scripts with the shared SMT-LIB lexer and reader.
using smtlib::describe;
using smtlib::Dialect;
using smtlib::InputError;
using smtlib::kMaxWidth;
using smtlib::Node;
using smtlib::OperatorHead;
using smtlib::Position;
using smtlib::printed_symbol;
using smtlib::Reader;
using smtlib::saturated_value;
using smtlib::shorten;

// Array sorts nest no deeper than this; sorts are printed and defaulted
// recursively.
inline constexpr std::size_t kMaxSortDepth = 100;

// Turns S-expressions into sorts and terms of a term manager, checking
// sorts on the way, and keeps the names declared so far. Every problem is
// reported as an InputError at the offending token.
class Elaborator {
 public:
  explicit Elaborator(TermManager* mgr) : mgr_(mgr) {}

  const DataType* sort(const Node& n) { return sort(n, 0); }
  // Walks the term with an explicit stack, so the depth of the input costs
  // heap, not call stack.
  const Term* term(const Node& root);

  void declare_constant(const Node& name, const Node& sort);
  void declare_sort(const Node& name);
  // The declared constant that name denotes.
  const Term* constant(const Node& name) const;

 private:
  const DataType* sort(const Node& n, std::size_t depth);
  // The term of an atom or of a form without term arguments ((_ bvN W),
  // (as @K U)); null for an application.
  const Term* leaf(const Node& n);
  OperatorHead head(const Node& app);
  const Term* abstract_value(const Node& n);
  // name of a declaration, checked against the built-in names.
  std::string new_name(const Node& n, const char* what) const;

  TermManager* mgr_;
  std::unordered_map<std::string, const Term*> constants_;
  std::unordered_map<std::string, const DataType*> sorts_;
};

}  // namespace kora::frontend
