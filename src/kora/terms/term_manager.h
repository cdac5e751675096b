#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "kora/numbers/qnumber.h"
#include "kora/terms/term.h"
#include "kora/utils/hashtable.h"

namespace kora {

// Factory and query interface of the term layer. Types, symbols and terms are
// hash-consed: asking twice for the same thing gives the same pointer, and
// everything lives as long as the manager.
//
// Queries fill their out-parameters only when they answer true.
class TermManager {
 public:
  // A manager holding only Bool, true and false.
  TermManager();
  TermManager(const TermManager&) = delete;
  TermManager& operator=(const TermManager&) = delete;
  virtual ~TermManager();

  // The hash-consed term with symbol s over args (in order). Arity and sorts
  // are the caller's responsibility.
  virtual const Term* make_term(const Symbol* s, const std::vector<const Term*>& args);

  // --- Fixed objects ----------------------------------------------------
  // The Boolean type.
  const DataType* bool_type() const noexcept { return bool_type_; }
  // The constants true and false, and their symbols: a term is the constant
  // true exactly when its symbol is true_symbol().
  const Term* true_term() const noexcept { return true_term_; }
  const Term* false_term() const noexcept { return false_term_; }
  const Symbol* true_symbol() const noexcept { return true_term_->get_symbol(); }
  const Symbol* false_symbol() const noexcept { return false_term_->get_symbol(); }

  // --- Types ------------------------------------------------------------
  // The bit-vector type of the given width (at least 1).
  const DataType* bv_type(std::size_t width);
  // The array type from index to element.
  const DataType* array_type(const DataType* index, const DataType* element);
  // A declared (uninterpreted) sort; the same name gives the same type.
  const DataType* sort_type(const std::string& name);

  // True when t is a bit-vector type; then *width is its width.
  bool is_bv_type(const DataType* t, std::size_t* width) const;
  // True when t is an array type; then *index and *element are its index
  // and element types. Either out-parameter may be null.
  bool is_array_type(const DataType* t, const DataType** index, const DataType** element) const;

  // --- Constants and values ---------------------------------------------
  // A declared constant; the same name and type give the same term.
  const Term* make_constant(const std::string& name, const DataType* type);
  // A new constant of type named kFreshPrefix and a number, a name that no
  // constant of this manager has: the numbers count up, and names that a
  // declared constant of any sort took are stepped over. Declaring one of
  // these names later gives the fresh constant of that sort (as for any
  // name). Fresh names stay out of the name index until a declared name has
  // their prefix, so that making millions of them costs no string lookups.
  const Term* make_fresh_constant(const DataType* type);
  static constexpr std::string_view kFreshPrefix = "kora!e";
  // The numeral of value mod 2^width (negative values wrap to their two's
  // complement pattern).
  const Term* make_bv_number(const QNumber& value, std::size_t width);
  // The same for a machine integer, sign-extended first.
  const Term* make_bv_number(int value, std::size_t width);
  // The numeral of value mod 2^width for a value given as a machine word:
  // the same term as make_bv_number of that value, found without building a
  // QNumber.
  const Term* make_bv_word(std::uint64_t value, std::size_t width);
  // The same for a GMP integer: the folders' results on wide vectors, found
  // without building a QNumber unless the numeral is new.
  const Term* make_bv_gmp(mpz_srcptr value, std::size_t width);
  // The abstract value (as @index sort) of a declared sort.
  const Term* make_abstract_value(std::size_t index, const DataType* sort);
  // The constant array of type array_type whose every element is value.
  const Term* make_const_array(const DataType* array_type, const Term* value);

  // (select a i) and (store a i e) over an array a; the index and element
  // must have a's index and element types (checked by the callers).
  const Term* make_select(const Term* a, const Term* i);
  const Term* make_store(const Term* a, const Term* i, const Term* e);

  // True when s is a bit-vector numeral; then *value is its value.
  bool number_value(const Symbol* s, QNumber* value) const;
  // The value of a numeral symbol, or null for any other symbol.
  const QNumber* find_number(const Symbol* s) const;

  // --- Atoms and Boolean structure --------------------------------------
  // a = b, built as given (no reordering, no simplification).
  const Term* make_equal(const Term* a, const Term* b);
  // Boolean equivalence a <=> b, printed as (= a b).
  const Term* make_iff(const Term* a, const Term* b);
  // Boolean connectives and if-then-else over existing terms.
  const Term* make_not(const Term* a);
  const Term* make_and(const Term* a, const Term* b);
  const Term* make_or(const Term* a, const Term* b);
  const Term* make_ite(const Term* c, const Term* x, const Term* y);

  // The symbols of the Boolean connectives; equality and ite symbols are per
  // sort.
  const Symbol* make_not_symbol();
  const Symbol* make_and_symbol();
  const Symbol* make_or_symbol();
  const Symbol* make_iff_symbol();
  const Symbol* make_equal_symbol(const DataType* side_type);
  const Symbol* make_ite_symbol(const DataType* branch_type);

  // --- Bit-vector operator symbols over arguments of width w ------------
  const Symbol* make_bv_add_symbol(std::size_t w);
  const Symbol* make_bv_sub_symbol(std::size_t w);
  const Symbol* make_bv_neg_symbol(std::size_t w);
  const Symbol* make_bv_mul_symbol(std::size_t w);
  const Symbol* make_bv_shl_symbol(std::size_t w);
  const Symbol* make_bv_lshr_symbol(std::size_t w);
  const Symbol* make_bv_ashr_symbol(std::size_t w);
  const Symbol* make_bv_udiv_symbol(std::size_t w);
  const Symbol* make_bv_sdiv_symbol(std::size_t w);
  const Symbol* make_bv_urem_symbol(std::size_t w);
  const Symbol* make_bv_srem_symbol(std::size_t w);
  const Symbol* make_bv_not_symbol(std::size_t w);
  const Symbol* make_bv_and_symbol(std::size_t w);
  const Symbol* make_bv_or_symbol(std::size_t w);
  const Symbol* make_bv_xor_symbol(std::size_t w);
  const Symbol* make_bv_ult_symbol(std::size_t w);
  const Symbol* make_bv_ule_symbol(std::size_t w);
  const Symbol* make_bv_slt_symbol(std::size_t w);
  const Symbol* make_bv_sle_symbol(std::size_t w);
  const Symbol* make_bv_comp_symbol(std::size_t w);
  // A symbol of any of the operators above by its Op (w = argument width).
  const Symbol* make_bv_symbol(Op op, std::size_t w) {
    const std::size_t slot = w * kOpCount + static_cast<std::size_t>(op);
    if (slot < bv_symbols_.size() && bv_symbols_[slot] != nullptr) return bv_symbols_[slot];
    return make_bv_symbol_slow(op, w);
  }

  // Concatenation of a high part of first_width bits and a low part of
  // second_width bits.
  const Symbol* make_bv_concat_symbol(std::size_t first_width, std::size_t second_width);
  // Bits msb down to lsb (inclusive) of an argument of width bits.
  const Symbol* make_bv_extract_symbol(std::size_t msb, std::size_t lsb, std::size_t width);
  const Symbol* make_bv_zero_extend_symbol(std::size_t amount, std::size_t width);
  const Symbol* make_bv_sign_extend_symbol(std::size_t amount, std::size_t width);
  // Rotation by amount of an argument of width bits; the rotation queries
  // return the two parameters in this order.
  const Symbol* make_bv_rotate_left_symbol(std::size_t amount, std::size_t width);
  const Symbol* make_bv_rotate_right_symbol(std::size_t amount, std::size_t width);

  // --- Symbol queries ---------------------------------------------------
  // Each is true when s is that operator; then the out-parameters receive
  // its parameters (in the order its constructor takes them).
  bool is_bv_concat(const Symbol* s, std::size_t* first_width, std::size_t* second_width) const;
  bool is_bv_extract(const Symbol* s, std::size_t* msb, std::size_t* lsb, std::size_t* width) const;
  bool is_bv_rotate_left(const Symbol* s, std::size_t* amount, std::size_t* width) const;
  bool is_bv_rotate_right(const Symbol* s, std::size_t* amount, std::size_t* width) const;
  bool is_bv_ult(const Symbol* s, std::size_t* width) const;
  bool is_bv_ule(const Symbol* s, std::size_t* width) const;
  bool is_bv_slt(const Symbol* s, std::size_t* width) const;
  bool is_bv_sle(const Symbol* s, std::size_t* width) const;

  // Number of distinct terms made so far.
  std::size_t term_count() const noexcept { return terms_.size(); }

 private:
  struct SymbolKey {
    Op op;
    const DataType* type;
    std::size_t p0, p1, p2;
    std::string name;
    bool operator==(const SymbolKey&) const = default;
  };
  struct SymbolKeyHash {
    std::size_t operator()(const SymbolKey& k) const noexcept;
  };
  struct TypeKey {
    DataType::Kind kind;
    std::size_t width;
    const DataType* index;
    const DataType* element;
    std::string name;
    bool operator==(const TypeKey&) const = default;
  };
  struct TypeKeyHash {
    std::size_t operator()(const TypeKey& k) const noexcept;
  };
  // Operator symbols are determined by operator, sort and parameters: their
  // names follow from those, so looking one up needs no string.
  struct OpSymbolKey {
    Op op;
    const DataType* type;
    std::size_t p0, p1, p2;
    bool operator==(const OpSymbolKey&) const = default;
  };
  struct OpSymbolKeyHash {
    std::size_t operator()(const OpSymbolKey& k) const noexcept;
  };
  // Numerals below 2^64 of one width, by value: open addressing with linear
  // probing over a power-of-two array of (value, term) slots, at most 70%
  // full. A lookup reads one slot (usually one cache line) and nothing of
  // the terms; one table per width keeps the width out of the slots.
  class WordNumerals {
   public:
    // The slot for value: holding its numeral, or empty (term null) where
    // the numeral goes. Valid until the next insert.
    const Term*& find(std::uint64_t value);
    // Grows the table, when needed, for one more numeral; call before find
    // when the numeral may be new.
    void reserve_one();
    void inserted() { ++size_; }

   private:
    struct Slot {
      std::uint64_t value = 0;
      const Term* term = nullptr;
    };
    std::vector<Slot> slots_;
    std::size_t size_ = 0;
    unsigned shift_ = 64;
  };
  WordNumerals& word_numerals(std::size_t width);
  // Wider numerals (values of 2^64 and more, always big QNumbers). The key
  // points at the value that the numeral table holds, so the integer is kept
  // once; lookups go through a view of the value, so asking copies nothing.
  struct NumeralKey {
    std::size_t width;
    std::size_t hash;
    const QNumber* value;
  };
  struct NumeralView {
    std::size_t width;
    mpz_srcptr value;  // the integer, already reduced
    std::size_t hash;  // numeral_hash(value, width)
  };
  struct NumeralKeyHash {
    using is_transparent = void;
    std::size_t operator()(const NumeralKey& k) const noexcept { return k.hash; }
    std::size_t operator()(const NumeralView& k) const noexcept { return k.hash; }
  };
  struct NumeralKeyEq {
    using is_transparent = void;
    bool operator()(const NumeralKey& a, const NumeralKey& b) const noexcept {
      return a.width == b.width && *a.value == *b.value;
    }
    bool operator()(const NumeralView& a, const NumeralKey& b) const noexcept {
      return a.width == b.width && mpz_cmp(a.value, b.value->big_numerator()) == 0;
    }
    bool operator()(const NumeralKey& a, const NumeralView& b) const noexcept {
      return (*this)(b, a);
    }
  };
  static std::size_t numeral_hash(mpz_srcptr value, std::size_t width) noexcept;
  // A term asked for by symbol and a run of arguments, without a vector.
  struct TermKey {
    const Symbol* symbol;
    const Term* const* args;
    std::size_t arity;
  };
  struct TermHash {
    using is_transparent = void;
    std::size_t operator()(const Term* t) const noexcept;
    std::size_t operator()(const TermKey& k) const noexcept;
  };
  struct TermEq {
    using is_transparent = void;
    bool operator()(const Term* a, const Term* b) const noexcept { return a == b; }
    bool operator()(const TermKey& k, const Term* t) const noexcept;
    bool operator()(const Term* t, const TermKey& k) const noexcept { return (*this)(k, t); }
  };
  const DataType* intern_type(DataType::Kind kind, std::size_t width, const DataType* index,
                              const DataType* element, const std::string& name);
  const Symbol* intern_symbol(Op op, const DataType* type, std::size_t p0, std::size_t p1,
                              std::size_t p2, std::string name);
  // intern_symbol for an operator symbol, whose name (made by name() only
  // when the symbol is new) follows from the other fields.
  template <class NameFn>
  const Symbol* intern_op_symbol(Op op, const DataType* type, std::size_t p0, std::size_t p1,
                                 std::size_t p2, NameFn name);
  // The hash-consed term s(args[0..arity)); a vector is built only for a new
  // term. A term without arguments is kept on its symbol; any other term in
  // the use list of its youngest argument while that list is short, and in
  // the term index once the list has grown past kMaxUses.
  const Term* find_or_make(const Symbol* s, const Term* const* args, std::size_t arity);
  const Term* find_or_make_indexed(const TermKey& key);
  const Term* new_term(const Symbol* s, const Term* const* args, std::size_t arity);
  // Moves the use list of a term to the term index, for good.
  void index_uses(const Term* youngest);
  void insert_indexed(std::size_t h, const Term* t);
  static constexpr std::uint32_t kMaxUses = 8;
  // make_bv_symbol past its cache: interns the symbol and caches it.
  const Symbol* make_bv_symbol_slow(Op op, std::size_t w);
  const Term* make_constant_term(const Symbol* s) { return find_or_make(s, nullptr, 0); }
  // The numeral term of a value already reduced to [0, 2^width) that is at
  // least 2^64.
  const Term* make_wide_number(const QNumber& value, std::size_t width);
  const Term* make_wide_number(mpz_srcptr value, std::size_t width);
  // Creates the numeral term of a reduced value (none exists yet).
  const Term* new_numeral(QNumber value, std::size_t width);
  // new_numeral for a wide value, entered in numeral_index_ under view.
  const Term* new_wide_numeral(QNumber value, const NumeralView& view);
  bool query_params(const Symbol* s, Op op, std::size_t* a, std::size_t* b = nullptr,
                    std::size_t* c = nullptr) const;

  std::deque<DataType> types_;
  std::deque<Symbol> symbols_;
  std::deque<Term> terms_;
  std::unordered_map<TypeKey, const DataType*, TypeKeyHash> type_index_;
  std::unordered_map<SymbolKey, const Symbol*, SymbolKeyHash> symbol_index_;
  std::unordered_map<OpSymbolKey, const Symbol*, OpSymbolKeyHash> op_symbol_index_;
  // A direct-mapped cache in front of op_symbol_index_: the indexed symbols
  // that the calculators ask for repeat, and a hit costs one compare.
  struct OpSymbolSlot {
    OpSymbolKey key{};
    const Symbol* symbol = nullptr;
  };
  static constexpr std::size_t kOpSymbolSlots = 256;
  std::array<OpSymbolSlot, kOpSymbolSlots> op_symbol_cache_{};
  // By width below kDirectWidths, and a map for wider ones.
  std::vector<WordNumerals> word_numerals_;
  std::unordered_map<std::size_t, WordNumerals> wide_word_numerals_;
  std::unordered_map<NumeralKey, const Term*, NumeralKeyHash, NumeralKeyEq> numeral_index_;
  // The hash-consing index of the terms whose youngest argument has many
  // parents: open addressing with linear probing over a
  // power-of-two array of (hash, term) slots, at most 70% full. No node per
  // term, so building and tearing down a large manager allocates and frees
  // nothing per term, and a lookup compares stored hashes before it touches
  // a term.
  struct TermSlot {
    std::size_t hash = 0;
    const Term* term = nullptr;
  };
  std::vector<TermSlot> term_slots_;
  std::size_t indexed_terms_ = 0;
  // Doubles term_slots_ (or makes the first 1024 slots) and reinserts.
  void grow_term_index();
  // The numerals' values; each numeral symbol points at its own.
  std::deque<QNumber> numeral_values_;
  std::uint64_t next_term_id_ = 1;
  // Fresh constants' symbols not yet in symbol_index_, the number of the
  // next fresh name, and the declared names that begin with kFreshPrefix.
  std::vector<const Symbol*> unindexed_fresh_;
  std::uint64_t fresh_count_ = 0;
  std::unordered_set<std::string> declared_fresh_names_;
  mpz_class residue_;  // make_bv_gmp's scratch: value mod 2^width

  // Direct caches in front of the indexes for what the calculators and
  // folders ask for on every call: bit-vector types and operator symbols by
  // width (below kDirectWidths), and the connectives.
  static constexpr std::size_t kDirectWidths = 1024;
  std::vector<const DataType*> bv_types_;
  std::vector<const Symbol*> bv_symbols_;  // [w * kOpCount + op]
  const Symbol* not_symbol_ = nullptr;
  const Symbol* and_symbol_ = nullptr;
  const Symbol* or_symbol_ = nullptr;
  const Symbol* iff_symbol_ = nullptr;

  const DataType* bool_type_ = nullptr;
  const Term* true_term_ = nullptr;
  const Term* false_term_ = nullptr;
};

}  // namespace kora
