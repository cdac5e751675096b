#include "kora/terms/simplifiers.h"

#include <array>
#include <cstdint>

#include "kora/terms/array_values.h"
#include "kora/terms/evaluator.h"
#include "kora/terms/term_manager.h"

namespace kora::termsimpl {

namespace {

using Args = std::vector<const Term*>;
using Values = std::array<mpz_class, 2>;

// Applies f to the numeric values of the arguments (at most two) when all of
// them are numerals; otherwise the application is rebuilt as it is.
template <class F>
const Term* fold_numerals(TermManager* mgr, const Symbol* s, const Args& args, F f) {
  // The operands are read into integers that every fold reuses, which saves
  // an allocation per operand. Like QNumber's own scratch this makes the
  // folders single-threaded, as the whole library is; nothing called from f
  // folds again.
  static Values vals;
  // Only the unary and binary forms fold: a wider application would
  // silently lose its extra operands.
  if (args.size() > vals.size()) return mgr->make_term(s, args);
  for (std::size_t i = 0; i < args.size(); ++i) {
    const QNumber* q = mgr->find_number(args[i]->get_symbol());
    if (q == nullptr) return mgr->make_term(s, args);
    if (q->is_small()) {
      mpz_set_si(vals[i].get_mpz_t(), q->small_num());
    } else {
      mpz_set(vals[i].get_mpz_t(), q->big_numerator());
    }
  }
  for (std::size_t i = args.size(); i < vals.size(); ++i) mpz_set_ui(vals[i].get_mpz_t(), 0);
  return f(vals);
}

// --- The word path ---------------------------------------------------------
// Widths up to 64 bits are folded on machine words: no GMP integer, no
// QNumber, and the result numeral is found by its word. Wider widths (and
// values of 2^64 or more) take the GMP path above, which defines the results.

using u64 = std::uint64_t;

namespace word {

constexpr u64 mask(std::size_t w) noexcept {
  return w >= 64 ? ~u64{0} : (u64{1} << w) - 1;
}

constexpr bool msb(u64 a, std::size_t w) noexcept {
  // Bit-vector widths are at least 1, which the analyser cannot know here.
  // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult)
  return ((a >> (w - 1)) & 1) != 0;
}

// The signed value of a w-bit pattern.
constexpr std::int64_t to_signed(u64 a, std::size_t w) noexcept {
  return static_cast<std::int64_t>(msb(a, w) ? a | ~mask(w) : a);
}

constexpr u64 neg(u64 a, std::size_t w) noexcept {
  return (0 - a) & mask(w);
}

constexpr u64 udiv(u64 a, u64 b, std::size_t w) noexcept {
  return b == 0 ? mask(w) : a / b;
}

constexpr u64 urem(u64 a, u64 b) noexcept {
  return b == 0 ? a : a % b;
}

constexpr u64 rotate_left(u64 a, std::size_t amount, std::size_t w) noexcept {
  const std::size_t k = amount % w;
  return k == 0 ? a : ((a << k) | (a >> (w - k))) & mask(w);
}

}  // namespace word

// True when every argument (at most two) is a numeral below 2^64; then v
// holds their values.
bool numeral_words(const Args& args, u64 (&v)[2]) noexcept {
  v[0] = 0;
  v[1] = 0;
  if (args.size() > 2) return false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (!args[i]->numeral_word(&v[i])) return false;
  }
  return true;
}

// The bit-vector operators whose only parameter is the width of their
// arguments, which is their result's width too unless they compare.
bool is_same_width_op(Op op) noexcept {
  return op >= Op::BVAdd && op <= Op::BVSle;
}

// fold_words for the operators whose parameters are not just the argument
// width, and for the comparisons of two values.
WordFold fold_structure_words(const Symbol* s, u64 a, u64 b, std::size_t n, u64* out) {
  const std::size_t p0 = s->param(0);
  const std::size_t p1 = s->param(1);
  std::size_t w = 0;  // the result's width, set by each case
  u64 r = 0;
  switch (s->op()) {
    case Op::Equal:
      // Values are hash-consed: two numerals are the same term exactly when
      // their values are equal.
      if (n != 2) return WordFold::None;
      return a == b ? WordFold::True : WordFold::False;
    case Op::BVComp:
      if (n != 2) return WordFold::None;
      w = 1;
      r = a == b ? 1 : 0;
      break;
    case Op::BVConcat:
      w = p0 + p1;
      if (w > 64) return WordFold::None;
      r = (a << p1) | b;
      break;
    case Op::BVExtract:
      // A word argument has no bits at 64 or above.
      w = p0 - p1 + 1;
      r = p1 >= 64 ? 0 : a >> p1;
      break;
    case Op::BVZeroExtend:
      w = p0 + p1;
      r = a;
      break;
    case Op::BVSignExtend:
      // Without its sign bit set the value is its own extension; with it,
      // the all-ones prefix fits a word only up to 64 bits.
      w = p0 + p1;
      if (p1 <= 64 && word::msb(a, p1)) {
        if (w > 64) return WordFold::None;
        r = a | (word::mask(w) & ~word::mask(p1));
      } else {
        r = a;
      }
      break;
    case Op::BVRotateLeft:
    case Op::BVRotateRight:
      w = p1;
      if (w > 64) return WordFold::None;
      r = word::rotate_left(a, s->op() == Op::BVRotateLeft ? p0 : w - p0 % w, w);
      break;
    default:
      return WordFold::None;
  }
  *out = r & word::mask(w);
  return WordFold::Word;
}

}  // namespace

WordFold fold_words(const Symbol* s, const u64* v, std::size_t n, u64* out) {
  if (n > 2) return WordFold::None;
  const u64 a = n > 0 ? v[0] : 0;
  const u64 b = n > 1 ? v[1] : 0;
  const std::size_t w = s->param(0);
  const auto truth = [](bool holds) { return holds ? WordFold::True : WordFold::False; };
  if (!is_same_width_op(s->op())) return fold_structure_words(s, a, b, n, out);
  // Below, w is the width of the arguments and of the result.
  if (w > 64) return WordFold::None;
  u64 r = 0;
  switch (s->op()) {
    case Op::BVAdd:
      r = a + b;
      break;
    case Op::BVSub:
      r = a - b;
      break;
    case Op::BVNeg:
      r = word::neg(a, w);
      break;
    case Op::BVMul:
      r = a * b;
      break;
    case Op::BVShl:
      r = b >= w ? 0 : a << b;
      break;
    case Op::BVLshr:
      r = b >= w ? 0 : a >> b;
      break;
    case Op::BVAshr:
      // A shift by the width or more leaves only copies of the sign bit.
      if (b >= w) {
        r = word::msb(a, w) ? ~u64{0} : 0;
      } else {
        r = static_cast<u64>(word::to_signed(a, w) >> b);
      }
      break;
    case Op::BVUdiv:
      r = word::udiv(a, b, w);
      break;
    case Op::BVSdiv: {
      const bool na = word::msb(a, w);
      const bool nb = word::msb(b, w);
      const u64 q = word::udiv(na ? word::neg(a, w) : a, nb ? word::neg(b, w) : b, w);
      r = na != nb ? word::neg(q, w) : q;
      break;
    }
    case Op::BVUrem:
      r = word::urem(a, b);
      break;
    case Op::BVSrem: {
      // The remainder takes the sign of the dividend.
      const bool na = word::msb(a, w);
      const u64 m = word::urem(na ? word::neg(a, w) : a, word::msb(b, w) ? word::neg(b, w) : b);
      r = na ? word::neg(m, w) : m;
      break;
    }
    case Op::BVNot:
      r = word::mask(w) - a;
      break;
    case Op::BVAnd:
      r = a & b;
      break;
    case Op::BVOr:
      r = a | b;
      break;
    case Op::BVXor:
      r = a ^ b;
      break;
    case Op::BVUlt:
      return truth(a < b);
    case Op::BVUle:
      return truth(a <= b);
    case Op::BVSlt:
      return truth(word::to_signed(a, w) < word::to_signed(b, w));
    case Op::BVSle:
      return truth(word::to_signed(a, w) <= word::to_signed(b, w));
    default:
      return WordFold::None;
  }
  *out = r & word::mask(w);
  return WordFold::Word;
}

namespace {

// The folders' word path: the value of s over args when every argument is
// a numeral below 2^64 and fold_words has it; null otherwise.
const Term* fold_word_path(TermManager* mgr, const Symbol* s, const Args& args) {
  u64 v[2];
  u64 r = 0;
  if (!numeral_words(args, v)) return nullptr;
  switch (fold_words(s, v, args.size(), &r)) {
    case WordFold::Word:
      return mgr->make_bv_word(r, s->get_output_type()->width());
    case WordFold::True:
      return mgr->true_term();
    case WordFold::False:
      return mgr->false_term();
    case WordFold::None:
      break;
  }
  return nullptr;
}

// A bit-vector operator over numerals: the word path, then the library's
// evaluator on the integers. A comparison gives true or false, anything else
// a numeral of the result's width.
const Term* fold_evaluated(TermManager* mgr, const Symbol* s, const Args& args) {
  if (const Term* t = fold_word_path(mgr, s, args)) return t;
  const auto f = bv::Operator::of(s);
  if (!f) return mgr->make_term(s, args);
  return fold_numerals(mgr, s, args, [&](const Values& v) {
    const mpz_class r = bv::evaluate(*f, v);
    const std::size_t w = f->result_width();
    if (w == 0) return r != 0 ? mgr->true_term() : mgr->false_term();
    return mgr->make_bv_gmp(r.get_mpz_t(), w);
  });
}

}  // namespace

const Term* BVAddSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVSubSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVNegSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVMulSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVLslSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVLsrSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVAsrSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVUdivSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVUremSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVSdivSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVSremSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVNotSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVAndSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVOrSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVXorSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVUltSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVUleSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVSltSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVSleSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVCompSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVConcatSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVSelectSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVZextSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVSextSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVRolSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

const Term* BVRorSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_evaluated(mgr, s, args);
}

namespace {

bool all_values(const Args& args) {
  for (const Term* a : args) {
    if (!is_model_value(a)) return false;
  }
  return true;
}

// Boolean folders fold only when every argument is true or false.
template <class F>
const Term* fold_bool(TermManager* mgr, const Symbol* s, const Args& args, F f) {
  bool v[2] = {false, false};
  if (args.size() > 2) return mgr->make_term(s, args);
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] != mgr->true_term() && args[i] != mgr->false_term()) {
      return mgr->make_term(s, args);
    }
    v[i] = args[i] == mgr->true_term();
  }
  return f(v[0], v[1]) ? mgr->true_term() : mgr->false_term();
}

}  // namespace

const Term* NotSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_bool(mgr, s, args, [](bool a, bool) { return !a; });
}

const Term* AndSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_bool(mgr, s, args, [](bool a, bool b) { return a && b; });
}

const Term* OrSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_bool(mgr, s, args, [](bool a, bool b) { return a || b; });
}

const Term* IffSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  return fold_bool(mgr, s, args, [](bool a, bool b) { return a == b; });
}

const Term* EqualSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  // Values are hash-consed, so two values are equal exactly when they are
  // the same term.
  if (const Term* t = fold_word_path(mgr, s, args)) return t;
  if (args.size() != 2 || !all_values(args)) return mgr->make_term(s, args);
  if (args[0]->type()->is_array()) {
    // Array values have more than one form: compared in normal form.
    const bool same = arrays::normal_form(*mgr, args[0]) == arrays::normal_form(*mgr, args[1]);
    return same ? mgr->true_term() : mgr->false_term();
  }
  return args[0] == args[1] ? mgr->true_term() : mgr->false_term();
}

const Term* IteSimpl::operator()(TermManager* mgr, const Symbol* s, const Args& args) {
  if (args[0] == mgr->true_term()) return args[1];
  if (args[0] == mgr->false_term()) return args[2];
  return mgr->make_term(s, args);
}

namespace {

template <class Folder>
const Term* apply(TermManager* mgr, const Symbol* s, const Args& args) {
  Folder f;
  return f(mgr, s, args);
}

}  // namespace

const Term* fold(TermManager* mgr, const Symbol* s, const Args& args) {
  switch (s->op()) {
    case Op::Not:
      return apply<NotSimpl>(mgr, s, args);
    case Op::And:
      return apply<AndSimpl>(mgr, s, args);
    case Op::Or:
      return apply<OrSimpl>(mgr, s, args);
    case Op::Iff:
      return apply<IffSimpl>(mgr, s, args);
    case Op::Equal:
      return apply<EqualSimpl>(mgr, s, args);
    case Op::Ite:
      return apply<IteSimpl>(mgr, s, args);
    case Op::BVAdd:
      return apply<BVAddSimpl>(mgr, s, args);
    case Op::BVSub:
      return apply<BVSubSimpl>(mgr, s, args);
    case Op::BVNeg:
      return apply<BVNegSimpl>(mgr, s, args);
    case Op::BVMul:
      return apply<BVMulSimpl>(mgr, s, args);
    case Op::BVShl:
      return apply<BVLslSimpl>(mgr, s, args);
    case Op::BVLshr:
      return apply<BVLsrSimpl>(mgr, s, args);
    case Op::BVAshr:
      return apply<BVAsrSimpl>(mgr, s, args);
    case Op::BVUdiv:
      return apply<BVUdivSimpl>(mgr, s, args);
    case Op::BVSdiv:
      return apply<BVSdivSimpl>(mgr, s, args);
    case Op::BVUrem:
      return apply<BVUremSimpl>(mgr, s, args);
    case Op::BVSrem:
      return apply<BVSremSimpl>(mgr, s, args);
    case Op::BVNot:
      return apply<BVNotSimpl>(mgr, s, args);
    case Op::BVAnd:
      return apply<BVAndSimpl>(mgr, s, args);
    case Op::BVOr:
      return apply<BVOrSimpl>(mgr, s, args);
    case Op::BVXor:
      return apply<BVXorSimpl>(mgr, s, args);
    case Op::BVUlt:
      return apply<BVUltSimpl>(mgr, s, args);
    case Op::BVUle:
      return apply<BVUleSimpl>(mgr, s, args);
    case Op::BVSlt:
      return apply<BVSltSimpl>(mgr, s, args);
    case Op::BVSle:
      return apply<BVSleSimpl>(mgr, s, args);
    case Op::BVComp:
      return apply<BVCompSimpl>(mgr, s, args);
    case Op::BVConcat:
      return apply<BVConcatSimpl>(mgr, s, args);
    case Op::BVExtract:
      return apply<BVSelectSimpl>(mgr, s, args);
    case Op::BVZeroExtend:
      return apply<BVZextSimpl>(mgr, s, args);
    case Op::BVSignExtend:
      return apply<BVSextSimpl>(mgr, s, args);
    case Op::BVRotateLeft:
      return apply<BVRolSimpl>(mgr, s, args);
    case Op::BVRotateRight:
      return apply<BVRorSimpl>(mgr, s, args);
    case Op::Select:
      if (!all_values(args)) return mgr->make_term(s, args);
      return arrays::select_value(args[0], args[1]);
    case Op::Store:
      if (!all_values(args)) return mgr->make_term(s, args);
      return arrays::store_value(*mgr, args[0], args[1], args[2]);
    default:
      return mgr->make_term(s, args);
  }
}

}  // namespace kora::termsimpl
