#pragma once

// Writes kora terms as SMT-LIB 2 text that a solver reads back.
//
// Every function here walks terms with explicit stacks, so arbitrarily deep
// terms print without exhausting the call stack, and takes time linear in
// the number of distinct terms it prints: a subterm with more than one parent
// is written once and referred to by a name (let in a single term,
// define-fun in a script). A term nesting deeper than 1000 levels (a long
// chain of binary ands, say) is cut the same way every 1000 levels, so the
// text never nests much deeper than that and readers with a nesting limit
// (ours refuses 10000 levels) take it back. Output goes through a buffer to
// the stream in large writes.
//
// Constructs that SMT-LIB has no input syntax for (abstract values inside a
// term or script, names containing '|' or '\') are refused with
// std::invalid_argument whose message names the construct.

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "kora/model/model_store.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"

namespace kora::smtlib {

struct PrintOptions {
  // The logic of the set-logic line; empty picks the smallest standard one
  // that covers the terms (QF_BV, QF_ABV, QF_UFBV or QF_AUFBV), or ALL when
  // a constant array occurs (no standard array theory has them).
  std::string logic;
  // Whether to write the set-logic line at all.
  bool set_logic = true;
};

// name as an SMT-LIB symbol: unchanged when it is a simple symbol that is
// no reserved word, command or operator name; otherwise between bars.
// Throws std::invalid_argument for a name no symbol can spell (one holding
// '|', '\' or a control character other than white space).
std::string quote_symbol(std::string_view name);

// The name a declared constant was made with (the manager keeps it in its
// printed form; this undoes the bars and the escapes between them).
std::string constant_name(const Term* constant);

// Bool, (_ BitVec W), (Array I E), or a declared sort's quoted name.
void print_sort(std::ostream& os, const TermManager& mgr, const DataType* sort);

// A model value: true/false, #b... (width not a multiple of 4) or #x...,
// (as @K U), ((as const (Array I E)) V). Throws std::invalid_argument for a
// term that is not a model value.
void print_value(std::ostream& os, const TermManager& mgr, const Term* value);

// One term. Subterms with more than one parent are bound with let (grouped
// so that bindings that do not depend on each other share one let), so a
// DAG prints in size linear in its number of distinct subterms.
void print_term(std::ostream& os, const TermManager& mgr, const Term* term);

// A whole script: set-logic, a declare-sort per declared sort and a
// declare-fun per constant that occurs (both in first-occurrence order),
// each shared subterm as a define-fun just before the first assertion that
// uses it, one assert per assertion. No check-sat. Names invented for shared
// subterms never clash with the constants' names. Throws
// std::invalid_argument when two different constants share one name.
void print_script(std::ostream& os, const TermManager& mgr,
                  const std::vector<const Term*>& assertions, const PrintOptions& options = {});

// A get-model answer: "(", one "(define-fun NAME () SORT VALUE)" line per
// constant in the given order, ")". A constant without a value in the store
// shows its sort's default value.
void print_model(std::ostream& os, const TermManager& mgr,
                 const std::vector<const Term*>& constants, ModelStore& store);

// The logic of a script over these terms: ALL when a constant array occurs
// in them (solvers read those only there), QF_ABV when some term is an
// array, else QF_BV.
std::string logic_of(const std::vector<const Term*>& terms);

}  // namespace kora::smtlib
