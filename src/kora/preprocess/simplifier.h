#pragma once

// Unconstrained-term elimination. A term is unconstrained when it is an
// uninterpreted constant (declared, or fresh from an earlier elimination)
// with exactly one occurrence in the shared graph of the assertions (one
// parent edge, repeated arguments counted) and is not itself an assertion.
// An application whose unconstrained arguments let it take any value its
// other arguments allow is replaced by a fresh constant of its sort; the
// model builder later asks the calculators for argument values that agree
// with the value the solver gave that constant.
//
// The rules, with x and y unconstrained and distinct, t any term:
//   not, bvnot, bvneg, extract, rotate_left/right   the argument is x
//   bvadd, bvsub, bvxor, =, bvcomp                   any one argument is x
//   ite c a b                                        any two of c, a, b
//   and, or, bvand, bvor, concat, shifts, bvudiv,
//   bvurem, bvsdiv, bvsrem                           every argument
//   bvmul                                            every argument, or x and
//                                                    an odd numeral
//   bvult, bvule, bvslt, bvsle                       both: a fresh Boolean;
//     one, x against t: x <= t becomes (u or t = MAX), x < t becomes
//     (u and t != MIN), t <= x becomes (u or t = MIN), t < x becomes
//     (u and t != MAX), with the signed ends for the signed operators;
//     against a numeral other than that end, a fresh Boolean.
// The SMT-LIB operators the term layer lacks are built from these by their
// definitions, and the rules reach them by composition: bvnand and bvnor are
// bvnot over bvand/bvor, bvxnor is bvnot over bvxor, xor and distinct are
// not over =, and bvuge, bvugt, bvsge, bvsgt are the mirrored comparisons.
// bvsmod is not reached: its definition uses each argument several times.
// Zero and sign extension are left alone: their argument's value is fixed by
// the result.
//
// Equations. An asserted equation (= (f .. x ..) t), either side, that is no
// argument of anything, where (f .. x ..) occurs only there and x is
// unconstrained at a position listed in conditions.h (ite, and, or, bvand,
// bvor, bvmul, concat at any position; bvurem, the shifts and the
// extensions at the first), becomes the invertibility condition over the
// other arguments and t; so does one that is a conjunct of an assertion
// (below ands that occur only there). An equation below anything else is
// left alone: the condition only says that the equation can hold, not that
// it can fail.
// They are taken by a sweep over the assertions after a pass that found its
// fixed point; the trail records the condition (Replacement::condition).
//
// Packed words. Once, after the first pass, bvor/bvadd words made of parts
// on disjoint bits are written as concatenations (packing.h), which the
// concat and extract rules then take.

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"

namespace kora::preprocess {

// One elimination, recorded over the arguments current when it was made.
struct Replacement {
  // The replaced application.
  const Term* term = nullptr;
  // What took its place: the fresh constant, or for a comparison with one
  // unconstrained side the Boolean expression over it. For an equation
  // replaced by its condition, the other side of the equation: the value
  // term must take.
  const Term* replacement = nullptr;
  // The fresh constant made for this step (null for an equation).
  const Term* fresh = nullptr;
  // The unconstrained arguments of term: the ones the model builder marks
  // free.
  std::vector<const Term*> free_args;
  // For an equation (= term replacement) replaced by its invertibility
  // condition: that condition. Where the model makes it false no value of
  // the free argument makes the equation hold, and it keeps its default.
  const Term* condition = nullptr;
};

// The eliminations in the order they were made, and every fresh constant.
struct Trail {
  std::vector<Replacement> steps;
  std::vector<const Term*> fresh;
};

struct Simplified {
  // The reduced assertions, one per original assertion, in the same order.
  std::vector<const Term*> assertions;
  Trail trail;
  // Eliminations by the SMT-LIB name of the replaced term's operator; the
  // equations replaced by their conditions are counted apart, by the name
  // of the operator over x.
  std::map<std::string, std::size_t> eliminated_by_op;
  std::map<std::string, std::size_t> conditions_by_op;
  std::size_t eliminated = 0;
  // The packed words written as concatenations before eliminating.
  std::size_t packed = 0;
  // Bottom-up passes made until one eliminated nothing: normally two, the
  // second confirming the fixed point.
  std::size_t passes = 0;
  // Applications put through the rules, second looks included: each term of
  // the graph a bounded number of times, however deep eliminations cascade.
  std::size_t visits = 0;
  // By term identifier, where a term of the original assertions' graph went
  // (the passes' forms composed); null where it stayed itself. See image_of.
  std::vector<const Term*> images;
};

// The term that t became in the reduced problem: the image of an original
// assertion is its reduced assertion; a term that nothing under it changed
// is its own image. Terms outside the original graph are their own images.
const Term* image_of(const Simplified& s, const Term* t);

struct SimplifyOptions {
  // Whether asserted equations are replaced by their invertibility
  // conditions.
  bool equations = true;
  // Whether words packed from parts are first written as concatenations
  // (packing.h).
  bool packing = true;
};

// Eliminates unconstrained terms from the assertions to a fixed point: in
// the result no rule applies any more.
Simplified simplify(TermManager& mgr, const std::vector<const Term*>& assertions,
                    const SimplifyOptions& options = {});

class Eliminator;

// Occurrences over the shared graph of a set of assertions, in time linear
// in the size of the graph.
class Occurrences {
 public:
  explicit Occurrences(const std::vector<const Term*>& assertions);
  // Every distinct term of the graph, each after its arguments.
  const std::vector<const Term*>& post_order() const noexcept { return order_; }
  // Parent edges of t, repeated arguments counted.
  std::size_t count(const Term* t) const noexcept;
  bool is_assertion(const Term* t) const noexcept;
  bool is_unconstrained(const Term* t) const noexcept;

 private:
  friend class Eliminator;  // starts each pass from these tables
  std::vector<const Term*> order_;
  std::vector<std::size_t> count_;  // by term identifier
  std::vector<bool> assertion_;     // by term identifier
};

// The uninterpreted constants of the assertions, each once, in the order a
// left-to-right depth-first walk meets them: after simplify, the constants a
// back end must give values to.
std::vector<const Term*> constants_of(const std::vector<const Term*>& assertions);

// The applications of the graph of the assertions that still hold an
// unconstrained argument (typically at a fixed point, where no rule takes
// them): by "operator position" ("bvudiv 0"), and how many of them are an
// argument of an equation.
struct Leftovers {
  std::map<std::string, std::size_t> by_position;
  std::size_t applications = 0;
  std::size_t under_equation = 0;
};
Leftovers leftovers(const std::vector<const Term*>& assertions);

// The applications of the graph of the assertions that some rule would
// eliminate now; empty exactly at a fixed point.
std::vector<const Term*> eliminable(const TermManager& mgr,
                                    const std::vector<const Term*>& assertions,
                                    const SimplifyOptions& options = {});

}  // namespace kora::preprocess
