#include "kora/terms/term_manager.h"

#include <bit>
#include <string>

namespace kora {

namespace {

std::size_t mix(std::size_t h, std::size_t v) noexcept {
  // Boost-style combine with a 64-bit golden-ratio constant.
  return h ^ (v + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2));
}

constexpr std::uint64_t word_mask(std::size_t width) noexcept {
  return width >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << width) - 1;
}

// True when the numerator of value mod 2^width is below 2^64; then *out is
// it. Asks GMP for nothing but the lowest limb.
bool reduced_word(const QNumber& value, std::size_t width, std::uint64_t* out) {
  if (value.is_small()) {
    const std::int64_t n = value.small_num();
    // A negative number wraps to 2^width - |n|, beyond a word when width
    // exceeds 64; within a word its two's complement is already right.
    if (n < 0 && width > 64) return false;
    *out = static_cast<std::uint64_t>(n) & word_mask(width);
    return true;
  }
  mpz_srcptr n = value.big_numerator();
  const std::uint64_t low = mpz_getlimbn(n, 0);
  if (width <= 64) {
    *out = (mpz_sgn(n) < 0 ? 0 - low : low) & word_mask(width);
    return true;
  }
  if (mpz_sgn(n) < 0 || mpz_sizeinbase(n, 2) > 64) return false;
  *out = low;
  return true;
}

// value mod 2^width, in the canonical form (small whenever it fits a word).
QNumber reduce(const QNumber& value, std::size_t width) {
  mpz_class v = value.numerator();
  mpz_fdiv_r_2exp(v.get_mpz_t(), v.get_mpz_t(), width);
  return QNumber(v);
}

// The canonical QNumber of a word: small up to 2^63 - 1, big above.
QNumber word_number(std::uint64_t v) {
  if (v <= static_cast<std::uint64_t>(INT64_MAX)) return QNumber(static_cast<long>(v));
  return QNumber(mpz_class(static_cast<unsigned long>(v)));
}

}  // namespace

std::size_t TermManager::SymbolKeyHash::operator()(const SymbolKey& k) const noexcept {
  std::size_t h = static_cast<std::size_t>(k.op);
  h = mix(h, reinterpret_cast<std::size_t>(k.type));
  h = mix(h, k.p0);
  h = mix(h, k.p1);
  h = mix(h, k.p2);
  return mix(h, std::hash<std::string>{}(k.name));
}

std::size_t TermManager::TypeKeyHash::operator()(const TypeKey& k) const noexcept {
  std::size_t h = static_cast<std::size_t>(k.kind);
  h = mix(h, k.width);
  h = mix(h, reinterpret_cast<std::size_t>(k.index));
  h = mix(h, reinterpret_cast<std::size_t>(k.element));
  return mix(h, std::hash<std::string>{}(k.name));
}

std::size_t TermManager::OpSymbolKeyHash::operator()(const OpSymbolKey& k) const noexcept {
  std::size_t h = static_cast<std::size_t>(k.op);
  h = mix(h, reinterpret_cast<std::size_t>(k.type));
  h = mix(h, k.p0);
  h = mix(h, k.p1);
  return mix(h, k.p2);
}

std::size_t TermManager::numeral_hash(mpz_srcptr value, std::size_t width) noexcept {
  // Wide values are non-negative: their limbs are the value.
  std::size_t h = width;
  for (std::size_t i = 0; i < mpz_size(value); ++i) {
    h = mix(h, mpz_getlimbn(value, static_cast<mp_size_t>(i)));
  }
  return h;
}

std::size_t TermManager::TermHash::operator()(const Term* t) const noexcept {
  return (*this)(TermKey{t->get_symbol(), t->args().data(), t->arity()});
}

std::size_t TermManager::TermHash::operator()(const TermKey& k) const noexcept {
  std::size_t h = reinterpret_cast<std::size_t>(k.symbol);
  for (std::size_t i = 0; i < k.arity; ++i) h = mix(h, k.args[i]->id());
  return h;
}

bool TermManager::TermEq::operator()(const TermKey& k, const Term* t) const noexcept {
  if (k.symbol != t->get_symbol() || k.arity != t->arity()) return false;
  // A plain loop: terms have a handful of arguments, too few for memcmp.
  const Term* const* args = t->args().data();
  for (std::size_t i = 0; i < k.arity; ++i) {
    if (k.args[i] != args[i]) return false;
  }
  return true;
}

TermManager::TermManager() {
  bool_type_ = intern_type(DataType::Kind::Bool, 0, nullptr, nullptr, "");
  true_term_ = make_constant_term(intern_symbol(Op::True, bool_type_, 0, 0, 0, "true"));
  false_term_ = make_constant_term(intern_symbol(Op::False, bool_type_, 0, 0, 0, "false"));
}

TermManager::~TermManager() = default;

const Term* TermManager::make_term(const Symbol* s, const std::vector<const Term*>& args) {
  return find_or_make(s, args.data(), args.size());
}

namespace {

// The slot where probing for hash h starts: Fibonacci hashing takes the
// high bits of the product, which every bit of h reaches.
std::size_t first_slot(std::size_t h, std::size_t slots) noexcept {
  return static_cast<std::size_t>((h * 0x9e3779b97f4a7c15ULL) >> 32) & (slots - 1);
}

}  // namespace

const Term* TermManager::find_or_make(const Symbol* s, const Term* const* args, std::size_t arity) {
  if (arity == 0) {
    if (s->constant_term_ == nullptr) s->constant_term_ = new_term(s, nullptr, 0);
    return s->constant_term_;
  }
  const Term* youngest = args[0];
  for (std::size_t i = 1; i < arity; ++i) {
    if (args[i]->id() > youngest->id()) youngest = args[i];
  }
  const TermKey key{s, args, arity};
  if (youngest->uses_ == Term::kIndexedUses) return find_or_make_indexed(key);
  for (const Term* u = youngest->first_use_; u != nullptr; u = u->next_use_) {
    if (TermEq{}(key, u)) return u;
  }
  const Term* t = new_term(s, args, arity);
  t->next_use_ = youngest->first_use_;
  youngest->first_use_ = t;
  if (++youngest->uses_ > kMaxUses) index_uses(youngest);
  return t;
}

const Term* TermManager::new_term(const Symbol* s, const Term* const* args, std::size_t arity) {
  Term& t =
      terms_.emplace_back(Term(next_term_id_++, s, std::vector<const Term*>(args, args + arity)));
  if (s->has_word_) {
    // Only numerals have words, and they have no arguments.
    t.word_ = s->word_;
    t.has_word_ = true;
  }
  return &t;
}

void TermManager::index_uses(const Term* youngest) {
  for (const Term* u = youngest->first_use_; u != nullptr;) {
    const Term* next = u->next_use_;
    u->next_use_ = nullptr;
    insert_indexed(TermHash{}(u), u);
    u = next;
  }
  youngest->first_use_ = nullptr;
  youngest->uses_ = Term::kIndexedUses;
}

const Term* TermManager::find_or_make_indexed(const TermKey& key) {
  const std::size_t h = TermHash{}(key);
  if (!term_slots_.empty()) {
    const std::size_t mask = term_slots_.size() - 1;
    for (std::size_t i = first_slot(h, term_slots_.size()); term_slots_[i].term != nullptr;
         i = (i + 1) & mask) {
      if (term_slots_[i].hash == h && TermEq{}(key, term_slots_[i].term)) {
        return term_slots_[i].term;
      }
    }
  }
  const Term* t = new_term(key.symbol, key.args, key.arity);
  insert_indexed(h, t);
  return t;
}

void TermManager::insert_indexed(std::size_t h, const Term* t) {
  if ((indexed_terms_ + 1) * 10 > term_slots_.size() * 7) grow_term_index();
  const std::size_t mask = term_slots_.size() - 1;
  std::size_t i = first_slot(h, term_slots_.size());
  while (term_slots_[i].term != nullptr) i = (i + 1) & mask;
  term_slots_[i] = TermSlot{h, t};
  ++indexed_terms_;
}

void TermManager::grow_term_index() {
  std::vector<TermSlot> fresh(term_slots_.empty() ? 1024 : 2 * term_slots_.size());
  const std::size_t mask = fresh.size() - 1;
  for (const TermSlot& slot : term_slots_) {
    if (slot.term == nullptr) continue;
    std::size_t i = first_slot(slot.hash, fresh.size());
    while (fresh[i].term != nullptr) i = (i + 1) & mask;
    fresh[i] = slot;
  }
  term_slots_.swap(fresh);
}

const DataType* TermManager::intern_type(DataType::Kind kind, std::size_t width,
                                         const DataType* index, const DataType* element,
                                         const std::string& name) {
  TypeKey key{kind, width, index, element, name};
  auto found = type_index_.find(key);
  if (found != type_index_.end()) return found->second;
  const DataType* t = &types_.emplace_back(DataType(kind, width, index, element, name));
  type_index_.emplace(std::move(key), t);
  return t;
}

const Symbol* TermManager::intern_symbol(Op op, const DataType* type, std::size_t p0,
                                         std::size_t p1, std::size_t p2, std::string name) {
  SymbolKey key{op, type, p0, p1, p2, name};
  auto found = symbol_index_.find(key);
  if (found != symbol_index_.end()) return found->second;
  const Symbol* s = &symbols_.emplace_back(Symbol(op, type, std::move(name), p0, p1, p2));
  symbol_index_.emplace(std::move(key), s);
  return s;
}

template <class NameFn>
const Symbol* TermManager::intern_op_symbol(Op op, const DataType* type, std::size_t p0,
                                            std::size_t p1, std::size_t p2, NameFn name) {
  const OpSymbolKey key{op, type, p0, p1, p2};
  const std::size_t h = static_cast<std::size_t>(op) * 0x9e37U ^ p0 * 0x85ebU ^ p1 * 0xc2b3U ^
                        p2 * 0x27d5U ^ (reinterpret_cast<std::uintptr_t>(type) >> 4);
  OpSymbolSlot& slot = op_symbol_cache_[h % kOpSymbolSlots];
  if (slot.symbol != nullptr && slot.key == key) return slot.symbol;
  auto found = op_symbol_index_.find(key);
  const Symbol* s = nullptr;
  if (found != op_symbol_index_.end()) {
    s = found->second;
  } else {
    s = intern_symbol(op, type, p0, p1, p2, name());
    op_symbol_index_.emplace(key, s);
  }
  slot = OpSymbolSlot{key, s};
  return s;
}

// --- Types -----------------------------------------------------------------

const DataType* TermManager::bv_type(std::size_t width) {
  if (width >= kDirectWidths)
    return intern_type(DataType::Kind::BitVec, width, nullptr, nullptr, "");
  if (width >= bv_types_.size()) bv_types_.resize(width + 1, nullptr);
  if (bv_types_[width] == nullptr) {
    bv_types_[width] = intern_type(DataType::Kind::BitVec, width, nullptr, nullptr, "");
  }
  return bv_types_[width];
}

const DataType* TermManager::array_type(const DataType* index, const DataType* element) {
  return intern_type(DataType::Kind::Array, 0, index, element, "");
}

const DataType* TermManager::sort_type(const std::string& name) {
  return intern_type(DataType::Kind::Sort, 0, nullptr, nullptr, name);
}

bool TermManager::is_bv_type(const DataType* t, std::size_t* width) const {
  if (t == nullptr || !t->is_bv()) return false;
  *width = t->width();
  return true;
}

bool TermManager::is_array_type(const DataType* t, const DataType** index,
                                const DataType** element) const {
  if (t == nullptr || !t->is_array()) return false;
  if (index != nullptr) *index = t->index();
  if (element != nullptr) *element = t->element();
  return true;
}

// --- Constants and values ----------------------------------------------------

const Term* TermManager::make_constant(const std::string& name, const DataType* type) {
  if (name.starts_with(kFreshPrefix)) {
    // The name may be a fresh one: from here on lookups must see them.
    for (const Symbol* s : unindexed_fresh_) {
      symbol_index_.emplace(SymbolKey{Op::Constant, s->get_output_type(), 0, 0, 0, s->name()}, s);
    }
    unindexed_fresh_.clear();
    declared_fresh_names_.insert(name);
  }
  return make_constant_term(intern_symbol(Op::Constant, type, 0, 0, 0, smtlib_symbol(name)));
}

const Term* TermManager::make_fresh_constant(const DataType* type) {
  std::string name;
  do {
    name = std::string(kFreshPrefix) + std::to_string(fresh_count_++);
  } while (!declared_fresh_names_.empty() && declared_fresh_names_.contains(name));
  const Symbol* s = &symbols_.emplace_back(Symbol(Op::Constant, type, std::move(name), 0, 0, 0));
  unindexed_fresh_.push_back(s);
  return make_constant_term(s);
}

// Numerals are found by (width, value) in one of two indexes: values below
// 2^64 by the word itself, wider ones by a view of the QNumber. Neither
// lookup copies a number; only a new numeral stores one.
const Term* TermManager::make_bv_number(const QNumber& value, std::size_t width) {
  std::uint64_t word = 0;
  if (reduced_word(value, width, &word)) return make_bv_word(word, width);
  // An integer already in [2^64, 2^width) is its own residue.
  if (!value.is_small() && value.is_integer() && value.sign() > 0 &&
      mpz_sizeinbase(value.big_numerator(), 2) <= width) {
    return make_wide_number(value, width);
  }
  const QNumber reduced = reduce(value, width);
  if (reduced_word(reduced, width, &word)) return make_bv_word(word, width);
  return make_wide_number(reduced, width);
}

const Term* TermManager::make_bv_number(int value, std::size_t width) {
  return make_bv_number(QNumber(static_cast<long>(value)), width);
}

const Term* TermManager::make_bv_word(std::uint64_t value, std::size_t width) {
  value &= word_mask(width);
  WordNumerals& table = word_numerals(width);
  table.reserve_one();
  const Term*& slot = table.find(value);
  if (slot == nullptr) {
    // Nothing made below touches this width's table: the slot stays valid.
    slot = new_numeral(word_number(value), width);
    table.inserted();
  }
  return slot;
}

TermManager::WordNumerals& TermManager::word_numerals(std::size_t width) {
  if (width >= kDirectWidths) return wide_word_numerals_[width];
  if (width >= word_numerals_.size()) word_numerals_.resize(width + 1);
  return word_numerals_[width];
}

const Term*& TermManager::WordNumerals::find(std::uint64_t value) {
  // Fibonacci hashing: the top bits of the product depend on every bit of
  // the value.
  const std::size_t mask = slots_.size() - 1;
  std::size_t i = static_cast<std::size_t>((value * 0x9e3779b97f4a7c15ULL) >> shift_);
  while (slots_[i].term != nullptr && slots_[i].value != value) i = (i + 1) & mask;
  slots_[i].value = value;
  return slots_[i].term;
}

void TermManager::WordNumerals::reserve_one() {
  if ((size_ + 1) * 10 <= slots_.size() * 7) return;
  std::vector<Slot> old(slots_.empty() ? 64 : 2 * slots_.size());
  old.swap(slots_);
  shift_ = 64 - static_cast<unsigned>(std::countr_zero(slots_.size()));
  for (const Slot& s : old) {
    if (s.term != nullptr) find(s.value) = s.term;
  }
}

const Term* TermManager::make_wide_number(const QNumber& value, std::size_t width) {
  const NumeralView view{width, value.big_numerator(), numeral_hash(value.big_numerator(), width)};
  auto found = numeral_index_.find(view);
  if (found != numeral_index_.end()) return found->second;
  return new_wide_numeral(QNumber(value), view);
}

const Term* TermManager::make_wide_number(mpz_srcptr value, std::size_t width) {
  const NumeralView view{width, value, numeral_hash(value, width)};
  auto found = numeral_index_.find(view);
  if (found != numeral_index_.end()) return found->second;
  return new_wide_numeral(QNumber(mpz_class(value)), view);
}

const Term* TermManager::new_wide_numeral(QNumber value, const NumeralView& view) {
  const Term* t = new_numeral(std::move(value), view.width);
  // The index refers to the value that the numeral table holds: one copy of
  // the integer per numeral.
  const QNumber* stored = t->get_symbol()->numeral_;
  numeral_index_.emplace(NumeralKey{view.width, view.hash, stored}, t);
  return t;
}

const Term* TermManager::make_bv_gmp(mpz_srcptr value, std::size_t width) {
  mpz_fdiv_r_2exp(residue_.get_mpz_t(), value, width);
  if (mpz_sizeinbase(residue_.get_mpz_t(), 2) <= 64) {
    return make_bv_word(mpz_getlimbn(residue_.get_mpz_t(), 0), width);
  }
  return make_wide_number(residue_.get_mpz_t(), width);
}

const Term* TermManager::new_numeral(QNumber value, std::size_t width) {
  // Numeral symbols are unique per (value, width), so they need no interning
  // of their own: the numeral indexes already guarantee it. They keep no
  // text: a numeral is printed from its value.
  Symbol& s = symbols_.emplace_back(Symbol(Op::BVNumber, bv_type(width), "", width, 0, 0));
  s.has_word_ = reduced_word(value, width, &s.word_);
  // A deque never moves its elements, so the symbol may keep the address of
  // its value, and finding the value of a numeral is one load.
  s.numeral_ = &numeral_values_.emplace_back(std::move(value));
  return make_constant_term(&s);
}

const Term* TermManager::make_abstract_value(std::size_t index, const DataType* sort) {
  return make_constant_term(intern_op_symbol(Op::AbstractValue, sort, index, 0, 0, [&] {
    return "(as @" + std::to_string(index) + " " + sort->to_string() + ")";
  }));
}

const Term* TermManager::make_const_array(const DataType* array_type, const Term* value) {
  const Symbol* s = intern_op_symbol(Op::ConstArray, array_type, 0, 0, 0,
                                     [&] { return "(as const " + array_type->to_string() + ")"; });
  return find_or_make(s, &value, 1);
}

const Term* TermManager::make_select(const Term* a, const Term* i) {
  const DataType* element = a->type()->element();
  const Symbol* s = intern_op_symbol(Op::Select, element, 0, 0, 0, [] { return "select"; });
  const Term* args[] = {a, i};
  return find_or_make(s, args, 2);
}

const Term* TermManager::make_store(const Term* a, const Term* i, const Term* e) {
  const Symbol* s = intern_op_symbol(Op::Store, a->type(), 0, 0, 0, [] { return "store"; });
  const Term* args[] = {a, i, e};
  return find_or_make(s, args, 3);
}

bool TermManager::number_value(const Symbol* s, QNumber* value) const {
  const QNumber* v = find_number(s);
  if (v == nullptr) return false;
  *value = *v;
  return true;
}

const QNumber* TermManager::find_number(const Symbol* s) const {
  return s != nullptr && s->op() == Op::BVNumber ? s->numeral_ : nullptr;
}

// --- Boolean structure ---------------------------------------------------------

// The connective symbols are made once and then read from a field; the
// equality and ite symbols are kept on their sort.
const Symbol* TermManager::make_not_symbol() {
  if (not_symbol_ == nullptr) not_symbol_ = intern_symbol(Op::Not, bool_type_, 0, 0, 0, "not");
  return not_symbol_;
}
const Symbol* TermManager::make_and_symbol() {
  if (and_symbol_ == nullptr) and_symbol_ = intern_symbol(Op::And, bool_type_, 0, 0, 0, "and");
  return and_symbol_;
}
const Symbol* TermManager::make_or_symbol() {
  if (or_symbol_ == nullptr) or_symbol_ = intern_symbol(Op::Or, bool_type_, 0, 0, 0, "or");
  return or_symbol_;
}
const Symbol* TermManager::make_iff_symbol() {
  if (iff_symbol_ == nullptr) iff_symbol_ = intern_symbol(Op::Iff, bool_type_, 0, 0, 0, "=");
  return iff_symbol_;
}
const Symbol* TermManager::make_equal_symbol(const DataType* side_type) {
  // The side type is part of the key so that equalities over different sorts
  // stay distinct symbols, as the sort checker expects.
  if (side_type->equal_symbol_ == nullptr) {
    side_type->equal_symbol_ =
        intern_symbol(Op::Equal, bool_type_, reinterpret_cast<std::size_t>(side_type), 0, 0, "=");
  }
  return side_type->equal_symbol_;
}
const Symbol* TermManager::make_ite_symbol(const DataType* branch_type) {
  if (branch_type->ite_symbol_ == nullptr) {
    branch_type->ite_symbol_ = intern_symbol(Op::Ite, branch_type, 0, 0, 0, "ite");
  }
  return branch_type->ite_symbol_;
}

// The builders look terms up with their arguments on the stack; only a new
// term gets its argument vector.
const Term* TermManager::make_equal(const Term* a, const Term* b) {
  const Term* args[] = {a, b};
  return find_or_make(make_equal_symbol(a->type()), args, 2);
}
const Term* TermManager::make_iff(const Term* a, const Term* b) {
  const Term* args[] = {a, b};
  return find_or_make(make_iff_symbol(), args, 2);
}
const Term* TermManager::make_not(const Term* a) {
  return find_or_make(make_not_symbol(), &a, 1);
}
const Term* TermManager::make_and(const Term* a, const Term* b) {
  const Term* args[] = {a, b};
  return find_or_make(make_and_symbol(), args, 2);
}
const Term* TermManager::make_or(const Term* a, const Term* b) {
  const Term* args[] = {a, b};
  return find_or_make(make_or_symbol(), args, 2);
}
const Term* TermManager::make_ite(const Term* c, const Term* x, const Term* y) {
  const Term* args[] = {c, x, y};
  return find_or_make(make_ite_symbol(x->type()), args, 3);
}

// --- Bit-vector symbols -----------------------------------------------------

const Symbol* TermManager::make_bv_symbol_slow(Op op, std::size_t w) {
  const DataType* out = bv_type(w);
  switch (op) {
    case Op::BVUlt:
    case Op::BVUle:
    case Op::BVSlt:
    case Op::BVSle:
      out = bool_type_;
      break;
    case Op::BVComp:
      out = bv_type(1);
      break;
    default:
      break;
  }
  const Symbol* s = intern_symbol(op, out, w, 0, 0, op_name(op));
  if (w < kDirectWidths) {
    const std::size_t slot = w * kOpCount + static_cast<std::size_t>(op);
    if (slot >= bv_symbols_.size()) bv_symbols_.resize((w + 1) * kOpCount, nullptr);
    bv_symbols_[slot] = s;
  }
  return s;
}

const Symbol* TermManager::make_bv_add_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVAdd, w);
}
const Symbol* TermManager::make_bv_sub_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVSub, w);
}
const Symbol* TermManager::make_bv_neg_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVNeg, w);
}
const Symbol* TermManager::make_bv_mul_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVMul, w);
}
const Symbol* TermManager::make_bv_shl_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVShl, w);
}
const Symbol* TermManager::make_bv_lshr_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVLshr, w);
}
const Symbol* TermManager::make_bv_ashr_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVAshr, w);
}
const Symbol* TermManager::make_bv_udiv_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVUdiv, w);
}
const Symbol* TermManager::make_bv_sdiv_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVSdiv, w);
}
const Symbol* TermManager::make_bv_urem_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVUrem, w);
}
const Symbol* TermManager::make_bv_srem_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVSrem, w);
}
const Symbol* TermManager::make_bv_not_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVNot, w);
}
const Symbol* TermManager::make_bv_and_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVAnd, w);
}
const Symbol* TermManager::make_bv_or_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVOr, w);
}
const Symbol* TermManager::make_bv_xor_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVXor, w);
}
const Symbol* TermManager::make_bv_ult_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVUlt, w);
}
const Symbol* TermManager::make_bv_ule_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVUle, w);
}
const Symbol* TermManager::make_bv_slt_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVSlt, w);
}
const Symbol* TermManager::make_bv_sle_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVSle, w);
}
const Symbol* TermManager::make_bv_comp_symbol(std::size_t w) {
  return make_bv_symbol(Op::BVComp, w);
}

// Indexed symbols are found by their parameters; the name is only printed
// for a new one.
const Symbol* TermManager::make_bv_concat_symbol(std::size_t first_width,
                                                 std::size_t second_width) {
  return intern_op_symbol(Op::BVConcat, bv_type(first_width + second_width), first_width,
                          second_width, 0, [] { return std::string("concat"); });
}

const Symbol* TermManager::make_bv_extract_symbol(std::size_t msb, std::size_t lsb,
                                                  std::size_t width) {
  return intern_op_symbol(Op::BVExtract, bv_type(msb - lsb + 1), msb, lsb, width, [&] {
    return "(_ extract " + std::to_string(msb) + " " + std::to_string(lsb) + ")";
  });
}

const Symbol* TermManager::make_bv_zero_extend_symbol(std::size_t amount, std::size_t width) {
  return intern_op_symbol(Op::BVZeroExtend, bv_type(width + amount), amount, width, 0,
                          [&] { return "(_ zero_extend " + std::to_string(amount) + ")"; });
}

const Symbol* TermManager::make_bv_sign_extend_symbol(std::size_t amount, std::size_t width) {
  return intern_op_symbol(Op::BVSignExtend, bv_type(width + amount), amount, width, 0,
                          [&] { return "(_ sign_extend " + std::to_string(amount) + ")"; });
}

const Symbol* TermManager::make_bv_rotate_left_symbol(std::size_t amount, std::size_t width) {
  return intern_op_symbol(Op::BVRotateLeft, bv_type(width), amount, width, 0,
                          [&] { return "(_ rotate_left " + std::to_string(amount) + ")"; });
}

const Symbol* TermManager::make_bv_rotate_right_symbol(std::size_t amount, std::size_t width) {
  return intern_op_symbol(Op::BVRotateRight, bv_type(width), amount, width, 0,
                          [&] { return "(_ rotate_right " + std::to_string(amount) + ")"; });
}

// --- Symbol queries ------------------------------------------------------------

bool TermManager::query_params(const Symbol* s, Op op, std::size_t* a, std::size_t* b,
                               std::size_t* c) const {
  if (s == nullptr || s->op() != op) return false;
  *a = s->param(0);
  if (b != nullptr) *b = s->param(1);
  if (c != nullptr) *c = s->param(2);
  return true;
}

bool TermManager::is_bv_concat(const Symbol* s, std::size_t* first_width,
                               std::size_t* second_width) const {
  return query_params(s, Op::BVConcat, first_width, second_width);
}
bool TermManager::is_bv_extract(const Symbol* s, std::size_t* msb, std::size_t* lsb,
                                std::size_t* width) const {
  return query_params(s, Op::BVExtract, msb, lsb, width);
}
bool TermManager::is_bv_rotate_left(const Symbol* s, std::size_t* amount,
                                    std::size_t* width) const {
  return query_params(s, Op::BVRotateLeft, amount, width);
}
bool TermManager::is_bv_rotate_right(const Symbol* s, std::size_t* amount,
                                     std::size_t* width) const {
  return query_params(s, Op::BVRotateRight, amount, width);
}
bool TermManager::is_bv_ult(const Symbol* s, std::size_t* width) const {
  return query_params(s, Op::BVUlt, width);
}
bool TermManager::is_bv_ule(const Symbol* s, std::size_t* width) const {
  return query_params(s, Op::BVUle, width);
}
bool TermManager::is_bv_slt(const Symbol* s, std::size_t* width) const {
  return query_params(s, Op::BVSlt, width);
}
bool TermManager::is_bv_sle(const Symbol* s, std::size_t* width) const {
  return query_params(s, Op::BVSle, width);
}

}  // namespace kora
