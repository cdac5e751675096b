#pragma once

// An asserted term as the user wrote it, and the back-end script printed from
// it. A solver's search depends on the form of its input (the order and
// nesting of operands, => against or/not, let against define-fun), so a
// script handed to a solver after simplification keeps the user's text
// wherever the simplification left a subterm alone, and prints its own only
// for what changed.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kora/smtlib/operators.h"
#include "kora/smtlib/reader.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"

namespace kora::smtlib {

// The S-expression of one asserted term in pre-order, each node with the term
// it read to. A node's subtree is the `size` nodes from it on, so the
// children of node i are i + 1, then each next one just past the last one's
// subtree.
struct WrittenTerm {
  // What a node is to the printer.
  enum class Role : unsigned char {
    Text,         // not a term: a let's bindings, an indexed operator, a sort
    Plain,        // a literal, true/false, or a declared constant
    Variable,     // a let variable: `binder` is its (NAME VALUE) node
    Defined,      // a name or call of a define-fun, or a :named name
    Application,  // an operator over arguments: `op`, `i`, `j`
    Let,          // (let (...) BODY)
    Annotated,    // (! TERM ...)
    Qualified,    // (as TERM SORT)
  };
  struct Node {
    const Term* term = nullptr;  // null for Role::Text
    const OpInfo* op = nullptr;  // Application: the operator as written
    std::uint32_t size = 1;      // nodes of the subtree, this one included
    std::uint32_t text = 0;      // an atom's text: offset into WrittenTerm::text
    std::uint32_t length = 0;
    std::uint32_t binder = 0;  // Variable
    std::size_t i = 0;         // indices of an indexed operator
    std::size_t j = 0;
    smtlib::Node::Kind kind = smtlib::Node::Kind::List;
    bool quoted = false;  // a |quoted| symbol
    Role role = Role::Text;
  };

  std::vector<Node> nodes;
  std::string text;  // the atoms' texts, one after the other

  // The atom at i as SMT-LIB writes it (bars, string quotes).
  std::string atom(std::size_t i) const;
};

// One assertion for print_written_script.
struct WrittenAssertion {
  const Term* term = nullptr;         // as read
  const WrittenTerm* form = nullptr;  // null: none kept
  const Term* reduced = nullptr;      // what the back end is to solve
};

// Where each term went in the reduced problem: the identity on terms that
// did not change.
using ImageOf = std::function<const Term*(const Term*)>;

// The script (without check-sat) that asserts the reduced assertions, printed
// from the written forms: set-logic, a declare-fun for each of `declared` in
// that order, then for each of `more` not among them, then one assert per
// assertion. Each written node that the reduction left alone is copied as
// written; a changed operator application is printed with its own operator
// over its printed arguments when that operator over the arguments' images
// gives exactly the node's image, and otherwise, like anything the written
// form cannot say (calls of defined functions, :named names), the image is
// printed with print_term. An assertion without a written form, or whose
// image is not its reduced assertion, is printed with print_term whole.
// nullopt when the names would not read back to the same terms (two
// constants with one name, a let variable named like a constant).
// A qualified term (as TERM SORT) is printed as its TERM: the sort may be
// one that define-sort named, which the script does not define. With
// binary_chains, an application of bvand, bvor, bvxor, bvadd, bvmul or
// concat to more than two arguments is printed with print_term, as nested
// binary applications, for a solver that reads no other (Boolector 1.5).
std::optional<std::string> print_written_script(TermManager& mgr,
                                                const std::vector<const Term*>& declared,
                                                const std::vector<const Term*>& more,
                                                const std::vector<WrittenAssertion>& assertions,
                                                const ImageOf& image, bool binary_chains = false);

}  // namespace kora::smtlib
