#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "kora/smtlib/reader.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"

namespace kora::smtlib {

// Bit-vectors wider than this are refused: a numeral prints (and is stored)
// with one digit per four bits, so an unchecked width written in a few bytes
// of input could ask for gigabytes.
inline constexpr std::size_t kMaxWidth = std::size_t{1} << 20;
// distinct expands into one disequality per pair of arguments, so its
// argument count is bounded to keep that quadratic term small.
inline constexpr std::size_t kMaxDistinctArguments = 256;

// Which operators a reader accepts. Native: exactly the operators of the
// term layer, `=` binary (kora-adhoc's language). Standard: the whole of
// SMT-LIB's Core and FixedSizeBitVectors as QF_BV uses them; operators the
// term layer lacks are rewritten into those it has.
enum class Dialect : unsigned char { Native, Standard };

// How an operator takes its arguments.
enum class Shape : unsigned char {
  BoolUnary,    // not
  BoolNary,     // and, or, xor: left-associated
  Connective,   // and, or of the standard dialect: also one argument, itself
  Implies,      // =>: right-associated
  Equal,        // =, binary: iff over Bool, equality otherwise
  Chain,        // =, chainable over n arguments
  Distinct,     // distinct: pairwise
  Ite,          // ite
  BVNary,       // bvadd bvmul bvand bvor bvxor: left-associated
  BVBinary,     // two bit-vectors of one width, same width out
  BVNegated,    // bvnand bvnor bvxnor: bvnot of the operator
  BVSmod,       // bvsmod, by its definition over bvurem
  BVUnary,      // bvneg bvnot
  BVCompare,    // bvult ...: Bool out
  BVSwapped,    // bvuge ...: the mirrored comparison with arguments swapped
  BVComp,       // bvcomp: one bit out
  BVReduce,     // bvredor bvredand bvredxor: one bit out, by their definitions
  Overflow,     // bvuaddo ... bvsdivo: Bool out, by their definitions
  NegOverflow,  // bvnego: Bool out, s is the most negative value
  Concat,       // any widths, left-associated
  Extract,      // (_ extract i j)
  Rotate,       // (_ rotate_left k), (_ rotate_right k)
  Extend,       // (_ zero_extend k), (_ sign_extend k)
  Repeat,       // (_ repeat k)
  ConstArray,   // ((as const (Array I E)) v)
  Select,       // (select a i)
  Store,        // (store a i e)
};

struct OpInfo {
  std::string_view name;
  Op op;  // the term layer's operator that the rewriting is built on
  Shape shape;
};

// Whether a back end may be sent an application of the operator as the user
// wrote it. The reduction and overflow operators are not: few solvers read
// them, so their definitions are sent instead.
bool is_sendable_as_written(const OpInfo& info);

// The operator of an application as written at its head.
struct OperatorHead {
  const OpInfo* info = nullptr;
  const Node* node = nullptr;  // the operator as written
  std::size_t i = 0;           // indices of an indexed operator
  std::size_t j = 0;
  const DataType* array = nullptr;  // sort of a constant array

  // The operator as a message names it: "bvadd", "(_ extract 3 0)".
  std::string name() const;
};

// The operator called name in the dialect, or null.
const OpInfo* find_operator(std::string_view name, Dialect dialect);
// The indexed operator (_ name ...) in the dialect, or null.
const OpInfo* find_indexed_operator(std::string_view name, Dialect dialect);
// The constant-array pseudo operator of kora-adhoc.
const OpInfo* const_array_operator();
// Whether a declaration may not take name in the dialect: operators,
// reserved words and, in the native dialect, names starting with '@'. Throws
// for those, returns name.
std::string new_name(const Node& n, const char* what, Dialect dialect);

// Sorts and literals.
std::size_t width(const Node& n);
// (_ BitVec W), or null when n is not written that way.
const DataType* bv_sort(TermManager& mgr, const Node& n);
// #b... or #x...
const Term* bv_literal(TermManager& mgr, const Node& n);
// (_ bvN W), or null when the identifier is not bvDIGITS.
const Term* bv_numeral(TermManager& mgr, const Node& n);
// The term of an atom that is not a symbol: #b and #x literals; every other
// kind is refused.
const Term* atom(TermManager& mgr, const Node& n);
// (_ bvN W); anything else written (_ ...) as a term is refused.
const Term* indexed_constant(TermManager& mgr, const Node& n, Dialect dialect);
// Refuses a symbol that names no constant.
[[noreturn]] void unknown_constant(const Node& n, Dialect dialect);
// The head of ((_ NAME I [J]) ...), checked.
OperatorHead indexed_head(const Node& h, Dialect dialect);

// op(args), checked for arity and sorts (errors at the offending argument
// of app) and built through mgr, rewritten where the term layer lacks the
// operator.
const Term* apply_operator(TermManager& mgr, const OperatorHead& h, const Node& app,
                           const std::vector<const Term*>& args);

// Refuses a command that does not have exactly n arguments, with its usage.
void expect_arguments(const Node& cmd, std::size_t n, const char* usage);

// Pieces of messages.
std::string quote(const Node& n);
std::string sort_text(const Term* t);
std::string plural(std::size_t n, const char* word);
bool is_numeral_text(std::string_view s);
// A numeral's value, saturated at the largest std::size_t so that huge
// indices fail the range checks instead of wrapping.
std::size_t saturated_value(const std::string& digits) noexcept;

}  // namespace kora::smtlib
