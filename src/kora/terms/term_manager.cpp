#include "kora/terms/term_manager.h"

#include <string>

namespace kora {

namespace {

std::size_t mix(std::size_t h, std::size_t v) noexcept {
  // Boost-style combine with a 64-bit golden-ratio constant.
  return h ^ (v + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2));
}

std::string numeral_text(const QNumber& value, std::size_t width) {
  mpz_class v = value.numerator();
  std::string digits;
  if (width % 4 == 0) {
    digits = v.get_str(16);
    return "#x" + std::string(width / 4 - digits.size(), '0') + digits;
  }
  digits = v.get_str(2);
  return "#b" + std::string(width - digits.size(), '0') + digits;
}

// value mod 2^width, in the canonical form (small whenever it fits a word).
QNumber reduce(const QNumber& value, std::size_t width) {
  if (value.is_small() && value.sign() >= 0 &&
      (width >= 63 || value.small_num() < (std::int64_t{1} << width))) {
    return value;
  }
  mpz_class v = value.numerator();
  mpz_fdiv_r_2exp(v.get_mpz_t(), v.get_mpz_t(), width);
  return QNumber(v);
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

std::size_t TermManager::NumeralKeyHash::operator()(const NumeralKey& k) const noexcept {
  // Keys are canonical, so a small value never meets an equal big one.
  if (k.value.is_small()) return mix(k.width, static_cast<std::size_t>(k.value.small_num()));
  mpz_class v = k.value.numerator();
  std::size_t h = k.width;
  for (std::size_t i = 0; i < mpz_size(v.get_mpz_t()); ++i)
    h = mix(h, mpz_getlimbn(v.get_mpz_t(), i));
  return h;
}

std::size_t TermManager::TermHash::operator()(const Term* t) const noexcept {
  return (*this)(std::make_pair(t->get_symbol(), &t->args()));
}

std::size_t TermManager::TermHash::operator()(
    const std::pair<const Symbol*, const std::vector<const Term*>*>& k) const noexcept {
  std::size_t h = reinterpret_cast<std::size_t>(k.first);
  for (const Term* a : *k.second) h = mix(h, a->id());
  return h;
}

bool TermManager::TermEq::operator()(
    const std::pair<const Symbol*, const std::vector<const Term*>*>& k,
    const Term* t) const noexcept {
  return k.first == t->get_symbol() && *k.second == t->args();
}

TermManager::TermManager() {
  bool_type_ = intern_type(DataType::Kind::Bool, 0, nullptr, nullptr, "");
  true_term_ = make_constant_term(intern_symbol(Op::True, bool_type_, 0, 0, 0, "true"));
  false_term_ = make_constant_term(intern_symbol(Op::False, bool_type_, 0, 0, 0, "false"));
}

TermManager::~TermManager() = default;

const Term* TermManager::make_term(const Symbol* s, const std::vector<const Term*>& args) {
  auto found = term_index_.find(std::make_pair(s, &args));
  if (found != term_index_.end()) return *found;
  const Term* t = &terms_.emplace_back(Term(next_term_id_++, s, args));
  term_index_.insert(t);
  return t;
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

// --- Types -----------------------------------------------------------------

const DataType* TermManager::bv_type(std::size_t width) {
  return intern_type(DataType::Kind::BitVec, width, nullptr, nullptr, "");
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
  return make_constant_term(intern_symbol(Op::Constant, type, 0, 0, 0, smtlib_symbol(name)));
}

const Term* TermManager::make_bv_number(const QNumber& value, std::size_t width) {
  NumeralKey key{width, reduce(value, width)};
  auto found = numeral_index_.find(key);
  if (found != numeral_index_.end()) return found->second;
  // Numeral symbols are unique per (value, width), so they need no interning
  // of their own: the numeral index already guarantees it.
  const Symbol* s = &symbols_.emplace_back(
      Symbol(Op::BVNumber, bv_type(width), numeral_text(key.value, width), width, 0, 0));
  numerals_.insert(std::make_pair(s, key.value));
  const Term* t = make_constant_term(s);
  numeral_index_.emplace(std::move(key), t);
  return t;
}

const Term* TermManager::make_bv_number(int value, std::size_t width) {
  return make_bv_number(QNumber(static_cast<long>(value)), width);
}

const Term* TermManager::make_abstract_value(std::size_t index, const DataType* sort) {
  std::string name = "(as @" + std::to_string(index) + " " + sort->to_string() + ")";
  return make_constant_term(intern_symbol(Op::AbstractValue, sort, index, 0, 0, std::move(name)));
}

const Term* TermManager::make_const_array(const DataType* array_type, const Term* value) {
  const Symbol* s = intern_symbol(Op::ConstArray, array_type, 0, 0, 0,
                                  "(as const " + array_type->to_string() + ")");
  return make_term(s, {value});
}

bool TermManager::number_value(const Symbol* s, QNumber* value) const {
  const QNumber* v = find_number(s);
  if (v == nullptr) return false;
  *value = *v;
  return true;
}

const QNumber* TermManager::find_number(const Symbol* s) const {
  auto it = numerals_.find(s);
  return it == numerals_.end() ? nullptr : &it->second;
}

// --- Boolean structure ---------------------------------------------------------

const Symbol* TermManager::make_not_symbol() {
  return intern_symbol(Op::Not, bool_type_, 0, 0, 0, "not");
}
const Symbol* TermManager::make_and_symbol() {
  return intern_symbol(Op::And, bool_type_, 0, 0, 0, "and");
}
const Symbol* TermManager::make_or_symbol() {
  return intern_symbol(Op::Or, bool_type_, 0, 0, 0, "or");
}
const Symbol* TermManager::make_iff_symbol() {
  return intern_symbol(Op::Iff, bool_type_, 0, 0, 0, "=");
}
const Symbol* TermManager::make_equal_symbol(const DataType* side_type) {
  // The side type is part of the key so that equalities over different sorts
  // stay distinct symbols, as the sort checker expects.
  return intern_symbol(Op::Equal, bool_type_, reinterpret_cast<std::size_t>(side_type), 0, 0, "=");
}
const Symbol* TermManager::make_ite_symbol(const DataType* branch_type) {
  return intern_symbol(Op::Ite, branch_type, 0, 0, 0, "ite");
}

const Term* TermManager::make_equal(const Term* a, const Term* b) {
  return make_term(make_equal_symbol(a->type()), {a, b});
}
const Term* TermManager::make_iff(const Term* a, const Term* b) {
  return make_term(make_iff_symbol(), {a, b});
}
const Term* TermManager::make_not(const Term* a) {
  return make_term(make_not_symbol(), {a});
}
const Term* TermManager::make_and(const Term* a, const Term* b) {
  return make_term(make_and_symbol(), {a, b});
}
const Term* TermManager::make_or(const Term* a, const Term* b) {
  return make_term(make_or_symbol(), {a, b});
}
const Term* TermManager::make_ite(const Term* c, const Term* x, const Term* y) {
  return make_term(make_ite_symbol(x->type()), {c, x, y});
}

// --- Bit-vector symbols -----------------------------------------------------

const Symbol* TermManager::make_bv_symbol(Op op, std::size_t w) {
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
  return intern_symbol(op, out, w, 0, 0, op_name(op));
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

const Symbol* TermManager::make_bv_concat_symbol(std::size_t first_width,
                                                 std::size_t second_width) {
  return intern_symbol(Op::BVConcat, bv_type(first_width + second_width), first_width, second_width,
                       0, "concat");
}

const Symbol* TermManager::make_bv_extract_symbol(std::size_t msb, std::size_t lsb,
                                                  std::size_t width) {
  return intern_symbol(Op::BVExtract, bv_type(msb - lsb + 1), msb, lsb, width,
                       "(_ extract " + std::to_string(msb) + " " + std::to_string(lsb) + ")");
}

const Symbol* TermManager::make_bv_zero_extend_symbol(std::size_t amount, std::size_t width) {
  return intern_symbol(Op::BVZeroExtend, bv_type(width + amount), amount, width, 0,
                       "(_ zero_extend " + std::to_string(amount) + ")");
}

const Symbol* TermManager::make_bv_sign_extend_symbol(std::size_t amount, std::size_t width) {
  return intern_symbol(Op::BVSignExtend, bv_type(width + amount), amount, width, 0,
                       "(_ sign_extend " + std::to_string(amount) + ")");
}

const Symbol* TermManager::make_bv_rotate_left_symbol(std::size_t amount, std::size_t width) {
  return intern_symbol(Op::BVRotateLeft, bv_type(width), amount, width, 0,
                       "(_ rotate_left " + std::to_string(amount) + ")");
}

const Symbol* TermManager::make_bv_rotate_right_symbol(std::size_t amount, std::size_t width) {
  return intern_symbol(Op::BVRotateRight, bv_type(width), amount, width, 0,
                       "(_ rotate_right " + std::to_string(amount) + ")");
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
