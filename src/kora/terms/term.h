#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kora/utils/hashtable.h"

namespace kora {

class TermManager;
class Symbol;
class Term;
class QNumber;

// The sort of a term. Types are unique per sort and compared by pointer.
class DataType {
 public:
  enum class Kind : std::uint8_t { Bool, BitVec, Array, Sort };

  // Which of the four kinds of sort this is.
  Kind kind() const noexcept { return kind_; }
  bool is_bool() const noexcept { return kind_ == Kind::Bool; }
  bool is_bv() const noexcept { return kind_ == Kind::BitVec; }
  bool is_array() const noexcept { return kind_ == Kind::Array; }
  bool is_sort() const noexcept { return kind_ == Kind::Sort; }
  // Bit width of a bit-vector type, 0 otherwise.
  std::size_t width() const noexcept { return width_; }
  // Index and element types of an array type, null otherwise.
  const DataType* index() const noexcept { return index_; }
  const DataType* element() const noexcept { return element_; }
  // Name of a declared sort.
  const std::string& name() const noexcept { return name_; }
  // SMT-LIB form: Bool, (_ BitVec 8), (Array (_ BitVec 4) Bool), U.
  std::string to_string() const;

 private:
  friend class TermManager;
  DataType(Kind kind, std::size_t width, const DataType* index, const DataType* element,
           std::string name)
      : kind_(kind), width_(width), index_(index), element_(element), name_(std::move(name)) {}

  Kind kind_;
  std::size_t width_;
  const DataType* index_;
  const DataType* element_;
  std::string name_;
  // The equality and ite symbols over this sort, once the manager has made
  // them: asking again costs one load instead of a lookup.
  mutable const Symbol* equal_symbol_ = nullptr;
  mutable const Symbol* ite_symbol_ = nullptr;
};

// Operators (and kinds of constants) that a symbol can stand for.
enum class Op : std::uint8_t {
  // Constants.
  Constant,  // declared (uninterpreted) constant
  True,
  False,
  BVNumber,       // bit-vector numeral
  AbstractValue,  // (as @K U)
  ConstArray,     // ((as const (Array I E)) v), one argument
  // Boolean and generic operators.
  Not,
  And,
  Or,
  Iff,
  Equal,
  Ite,
  // Bit-vector operators.
  BVAdd,
  BVSub,
  BVNeg,
  BVMul,
  BVShl,
  BVLshr,
  BVAshr,
  BVUdiv,
  BVSdiv,
  BVUrem,
  BVSrem,
  BVNot,
  BVAnd,
  BVOr,
  BVXor,
  BVUlt,
  BVUle,
  BVSlt,
  BVSle,
  BVComp,
  BVConcat,
  BVExtract,
  BVZeroExtend,
  BVSignExtend,
  BVRotateLeft,
  BVRotateRight,
  // Array operators; the symbol's type is the result's (the element type for
  // Select, the array type for Store).
  Select,  // (select a i)
  Store,   // (store a i e)
};

inline constexpr std::size_t kOpCount = static_cast<std::size_t>(Op::Store) + 1;

// SMT-LIB name of an operator ("bvadd", "extract", "=" ...).
const char* op_name(Op op) noexcept;

// The operator or constant of a term; hash-consed, compared by pointer.
// Parameterised operators keep their parameters here:
//   bit-vector operators over width w:  params {w}
//   BVConcat                             {first_width, second_width}
//   BVExtract                            {msb, lsb, width}
//   BVZeroExtend, BVSignExtend           {amount, width}
//   BVRotateLeft, BVRotateRight          {amount, width}
//   BVNumber                             {width}
//   AbstractValue                        {index}
class Symbol {
 public:
  // The operator (or kind of constant) the symbol stands for.
  Op op() const noexcept { return op_; }
  // The type of every term built with this symbol.
  const DataType* get_output_type() const noexcept { return output_; }
  // The printed name: the constant's name or the operator in SMT-LIB syntax
  // (indexed ones as "(_ extract 3 0)"). Empty for a numeral, whose text
  // (one character per bit or per four bits) is made only when it is
  // printed: see append_text.
  const std::string& name() const noexcept { return name_; }
  // Appends the printed form of the symbol to out: its name, or for a
  // numeral its literal (#x... when the width is a multiple of 4, else #b...).
  void append_text(std::string& out) const;
  // Parameter i (see the table above), 0 when absent.
  std::size_t param(std::size_t i) const noexcept { return i < 3 ? params_[i] : 0; }
  // Symbols of terms without arguments: declared constants and values.
  bool is_constant() const noexcept { return op_ < Op::ConstArray; }
  // For a numeral whose value is below 2^64: true, and *value is that
  // value. False (and *value untouched) for wider values and every other
  // symbol. The constant folders' word-sized path reads numerals this way.
  bool numeral_word(std::uint64_t* value) const noexcept {
    if (!has_word_) return false;
    *value = word_;
    return true;
  }

 private:
  friend class TermManager;
  Symbol(Op op, const DataType* output, std::string name, std::size_t p0, std::size_t p1,
         std::size_t p2)
      : op_(op), output_(output), name_(std::move(name)), params_{p0, p1, p2} {}

  Op op_;
  const DataType* output_;
  std::string name_;
  std::size_t params_[3];
  std::uint64_t word_ = 0;  // see numeral_word
  bool has_word_ = false;
  // A numeral's value: the manager's numeral table owns it.
  const QNumber* numeral_ = nullptr;
  // The term of this symbol without arguments, once made: a constant is
  // found from its symbol, never through the manager's term index, so a new
  // symbol (a fresh constant, a new numeral) makes its term without a probe.
  mutable const Term* constant_term_ = nullptr;
};

// An immutable, hash-consed term: a symbol over an ordered list of arguments.
// Two terms are the same term exactly when their pointers are equal.
class Term {
 public:
  // The identifier comes first: the hash tables read it as the term's hash.
  std::uint64_t id() const noexcept { return id_; }
  // The operator or constant of the term.
  const Symbol* get_symbol() const noexcept { return symbol_; }
  // The operator of the term's symbol. It and a numeral's word are kept in
  // the term itself: telling a value from other terms and reading a
  // numeral's value then touch the term's own cache line, not its symbol.
  Op op() const noexcept { return op_; }
  // For a numeral whose value is below 2^64: true, and *value is that value
  // (as Symbol::numeral_word). False for every other term.
  bool numeral_word(std::uint64_t* value) const noexcept {
    if (!has_word_) return false;
    *value = word_;
    return true;
  }
  // The term's type: its symbol's output type.
  const DataType* type() const noexcept { return symbol_->get_output_type(); }
  // The arguments, in order (argument 0 is the first).
  std::size_t arity() const noexcept { return args_.size(); }
  const Term* arg(std::size_t i) const noexcept { return args_[i]; }
  const std::vector<const Term*>& args() const noexcept { return args_; }
  // The term in SMT-LIB syntax.
  std::string to_shallow_str() const;

 private:
  friend class TermManager;
  Term(std::uint64_t id, const Symbol* symbol, std::vector<const Term*> args)
      : id_(id), symbol_(symbol), args_(std::move(args)), op_(symbol->op()) {}

  std::uint64_t id_;
  const Symbol* symbol_;
  std::vector<const Term*> args_;
  // The terms whose youngest argument (the one with the highest identifier)
  // is this term, newest first, linked through next_use_; uses_ counts them,
  // or is kIndexedUses once they have moved to the manager's term index.
  // The manager looks a term up in exactly one place, decided by its
  // arguments: building bottom-up then touches memory just written.
  static constexpr std::uint32_t kIndexedUses = ~std::uint32_t{0};
  mutable const Term* first_use_ = nullptr;
  // A term without arguments has no youngest argument, so it is in no use
  // list: its link holds a numeral's word instead (has_word_ tells which).
  union {
    mutable const Term* next_use_ = nullptr;
    std::uint64_t word_;
  };
  mutable std::uint32_t uses_ = 0;
  Op op_;
  bool has_word_ = false;
};

// Writes the term in SMT-LIB syntax.
std::ostream& operator<<(std::ostream& os, const Term& t);

// Whether t is a model value: true, false, a numeral, an abstract value, or
// a constant array of a value. Declared constants are not values.
bool is_model_value(const Term* t);

// Whether the stream writes to a terminal (only the standard streams can).
bool is_terminal(const std::ostream& os);

// name as it must be written in SMT-LIB: unchanged when it is a simple
// symbol, otherwise between bars (|a b|). Between the bars a line feed is
// written \n, a carriage return \r, and the bar, the backslash and every
// other control character but tab \xHH (two lowercase hex digits), so that
// the symbol stays on one line and unquote_smtlib_symbol reads it back.
std::string smtlib_symbol(const std::string& name);

// The name that the text between the bars of a printed quoted symbol stands
// for: \n, \r and \xHH are read back as the bytes they stand for, every
// other byte as itself. Null when a backslash starts anything else.
std::optional<std::string> unquote_smtlib_symbol(std::string_view body);

namespace hsh {
// Terms hash by their identifier, never by address, so that iteration order
// does not depend on where the allocator put them.
template <>
struct hash<const Term*> {
  std::uint64_t operator()(const Term* t) const noexcept { return t->id(); }
};
}  // namespace hsh

}  // namespace kora
