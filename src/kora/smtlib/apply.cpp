// Sort checking and term building for every operator application, shared by
// the standard script reader and kora-adhoc's elaborator.
#include <string_view>
#include <vector>

#include "kora/numbers/qnumber.h"
#include "kora/smtlib/operators.h"

namespace kora::smtlib {

namespace {

// The checks and builders of one application.
class Application {
 public:
  Application(TermManager& mgr, const OperatorHead& h, const Node& app,
              const std::vector<const Term*>& args)
      : mgr_(mgr), h_(h), app_(app), args_(args) {}

  const Term* build();

 private:
  const Node& arg_node(std::size_t k) const { return *app_.children[k + 1]; }
  // The operator as messages name it; only errors need it.
  std::string name() const { return h_.name(); }
  void check_arity() const;
  void check_bool() const;
  void check_same_sort() const;
  std::size_t same_bv() const;
  std::size_t one_bv() const;
  const Term* bv(Op op, std::size_t w, const Term* a, const Term* b) {
    return mgr_.make_term(mgr_.make_bv_symbol(op, w), {a, b});
  }
  const Term* bv(Op op, std::size_t w, const Term* a) {
    return mgr_.make_term(mgr_.make_bv_symbol(op, w), {a});
  }
  const Term* equal(const Term* a, const Term* b) {
    return a->type()->is_bool() ? mgr_.make_iff(a, b) : mgr_.make_equal(a, b);
  }
  const Term* boolean();
  const Term* chain();
  const Term* distinct();
  const Term* ite();
  const Term* bit_vector();
  const Term* smod(std::size_t w, const Term* s, const Term* t);
  const Term* reduce(std::size_t w, const Term* s);
  const Term* xor_bits(const Term* s, std::size_t high, std::size_t low);
  const Term* overflow(std::size_t w, const Term* s, const Term* t);
  const Term* msb(std::size_t w, const Term* s) {
    return mgr_.make_term(mgr_.make_bv_extract_symbol(w - 1, w - 1, w), {s});
  }
  // The most negative value at width w, 10...0.
  const Term* min_signed(std::size_t w) {
    QNumber value;
    BVNumber::pow2(w - 1, &value);
    return mgr_.make_bv_number(value, w);
  }
  const Term* concat();
  const Term* concat2(const Term* high, const Term* low);
  const Term* repeat();
  const Term* indexed();
  const Term* const_array();
  const Term* array_access();

  TermManager& mgr_;
  const OperatorHead& h_;
  const Node& app_;
  const std::vector<const Term*>& args_;
};

void Application::check_arity() const {
  const Shape shape = h_.info->shape;
  bool nary = shape == Shape::BoolNary || shape == Shape::BVNary || shape == Shape::Concat ||
              shape == Shape::Implies || shape == Shape::Chain || shape == Shape::Distinct ||
              shape == Shape::Connective;
  std::size_t arity = 1;
  switch (shape) {
    case Shape::BoolUnary:
    case Shape::Connective:
    case Shape::BVUnary:
    case Shape::BVReduce:
    case Shape::NegOverflow:
    case Shape::Extract:
    case Shape::Rotate:
    case Shape::Extend:
    case Shape::Repeat:
    case Shape::ConstArray:
      break;
    case Shape::Ite:
    case Shape::Store:
      arity = 3;
      break;
    default:
      arity = 2;
      break;
  }
  if (args_.size() < arity || (!nary && args_.size() > arity)) {
    // A missing argument is reported at the ')', a surplus one at itself.
    std::string msg = name() + " expects " + (nary ? "at least " : "") + plural(arity, "argument") +
                      ", got " + std::to_string(args_.size());
    throw InputError(args_.size() < arity ? app_.end : arg_node(arity).pos, msg);
  }
  if (shape == Shape::Distinct && args_.size() > kMaxDistinctArguments) {
    throw InputError(arg_node(kMaxDistinctArguments).pos,
                     "distinct over more than " + std::to_string(kMaxDistinctArguments) +
                         " arguments is not supported");
  }
}

void Application::check_bool() const {
  for (std::size_t k = 0; k < args_.size(); ++k) {
    if (!args_[k]->type()->is_bool()) {
      throw InputError(arg_node(k).pos, name() + " expects Bool arguments, got " +
                                            sort_text(args_[k]) + " for argument " +
                                            std::to_string(k + 1));
    }
  }
}

void Application::check_same_sort() const {
  for (std::size_t k = 1; k < args_.size(); ++k) {
    if (args_[k]->type() != args_[0]->type()) {
      throw InputError(arg_node(k).pos, name() + " expects " +
                                            (args_.size() == 2 ? "2 arguments" : "arguments") +
                                            " of the same sort, got " + sort_text(args_[0]) +
                                            " and " + sort_text(args_[k]));
    }
  }
}

// The common width of operators over one bit-vector sort.
std::size_t Application::same_bv() const {
  for (std::size_t k = 0; k < args_.size(); ++k) {
    if (args_[k]->type()->is_bv() && args_[k]->type() == args_[0]->type()) continue;
    std::size_t other = k == 0 ? 1 : k;
    throw InputError(arg_node(k).pos, name() + " expects " +
                                          (args_.size() == 2 ? "2 arguments" : "arguments") +
                                          " of the same bit-vector sort, got " +
                                          sort_text(args_[0]) + " and " + sort_text(args_[other]));
  }
  return args_[0]->type()->width();
}

std::size_t Application::one_bv() const {
  if (!args_[0]->type()->is_bv()) {
    throw InputError(arg_node(0).pos,
                     name() + " expects a bit-vector argument, got " + sort_text(args_[0]));
  }
  return args_[0]->type()->width();
}

const Term* Application::build() {
  check_arity();
  switch (h_.info->shape) {
    case Shape::BoolUnary:
    case Shape::BoolNary:
    case Shape::Connective:
    case Shape::Implies:
      return boolean();
    case Shape::Equal:
    case Shape::Chain:
      return chain();
    case Shape::Distinct:
      return distinct();
    case Shape::Ite:
      return ite();
    case Shape::Concat:
      return concat();
    case Shape::Repeat:
      return repeat();
    case Shape::Extract:
    case Shape::Rotate:
    case Shape::Extend:
      return indexed();
    case Shape::ConstArray:
      return const_array();
    case Shape::Select:
    case Shape::Store:
      return array_access();
    default:
      return bit_vector();
  }
}

const Term* Application::boolean() {
  check_bool();
  const Op op = h_.info->op;
  if (h_.info->shape == Shape::BoolUnary) return mgr_.make_not(args_[0]);
  if (h_.info->shape == Shape::Implies) {
    // a => b => c is a => (b => c), and a => b is (or (not a) b).
    const Term* t = args_.back();
    for (std::size_t k = args_.size() - 1; k-- > 0;) t = mgr_.make_or(mgr_.make_not(args_[k]), t);
    return t;
  }
  const Term* t = args_[0];
  for (std::size_t k = 1; k < args_.size(); ++k) {
    if (op == Op::And) {
      t = mgr_.make_and(t, args_[k]);
    } else if (op == Op::Or) {
      t = mgr_.make_or(t, args_[k]);
    } else {  // xor: a xor b is (not (= a b))
      t = mgr_.make_not(mgr_.make_iff(t, args_[k]));
    }
  }
  return t;
}

// (= a b c) is (and (= a b) (= b c)).
const Term* Application::chain() {
  if (h_.info->shape == Shape::Equal) {
    if (args_[0]->type() != args_[1]->type()) {
      throw InputError(arg_node(1).pos, "= expects 2 arguments of the same sort, got " +
                                            sort_text(args_[0]) + " and " + sort_text(args_[1]));
    }
    return equal(args_[0], args_[1]);
  }
  check_same_sort();
  const Term* t = equal(args_[0], args_[1]);
  for (std::size_t k = 2; k < args_.size(); ++k) {
    t = mgr_.make_and(t, equal(args_[k - 1], args_[k]));
  }
  return t;
}

// (distinct a b c) is (and (not (= a b)) (not (= a c)) (not (= b c))).
const Term* Application::distinct() {
  check_same_sort();
  const Term* t = nullptr;
  for (std::size_t i = 0; i < args_.size(); ++i) {
    for (std::size_t j = i + 1; j < args_.size(); ++j) {
      const Term* d = mgr_.make_not(equal(args_[i], args_[j]));
      t = t == nullptr ? d : mgr_.make_and(t, d);
    }
  }
  return t;
}

const Term* Application::ite() {
  if (!args_[0]->type()->is_bool()) {
    throw InputError(arg_node(0).pos, "ite expects a Bool condition, got " + sort_text(args_[0]));
  }
  if (args_[1]->type() != args_[2]->type()) {
    throw InputError(arg_node(2).pos, "ite expects branches of the same sort, got " +
                                          sort_text(args_[1]) + " and " + sort_text(args_[2]));
  }
  return mgr_.make_ite(args_[0], args_[1], args_[2]);
}

const Term* Application::bit_vector() {
  const Op op = h_.info->op;
  switch (h_.info->shape) {
    case Shape::BVUnary:
      return bv(op, one_bv(), args_[0]);
    case Shape::BVNegated: {
      std::size_t w = same_bv();
      return bv(Op::BVNot, w, bv(op, w, args_[0], args_[1]));
    }
    case Shape::BVSwapped: {
      std::size_t w = same_bv();
      return bv(op, w, args_[1], args_[0]);
    }
    case Shape::BVSmod: {
      std::size_t w = same_bv();
      return smod(w, args_[0], args_[1]);
    }
    case Shape::BVReduce:
      return reduce(one_bv(), args_[0]);
    case Shape::NegOverflow: {
      std::size_t w = one_bv();
      return mgr_.make_equal(args_[0], min_signed(w));
    }
    case Shape::Overflow: {
      std::size_t w = same_bv();
      return overflow(w, args_[0], args_[1]);
    }
    default: {
      std::size_t w = same_bv();
      const Term* t = args_[0];
      for (std::size_t k = 1; k < args_.size(); ++k) t = bv(op, w, t, args_[k]);
      return t;
    }
  }
}

// SMT-LIB's definition: the remainder of the absolute values, given the
// sign of the divisor.
const Term* Application::smod(std::size_t w, const Term* s, const Term* t) {
  const Symbol* top = mgr_.make_bv_extract_symbol(w - 1, w - 1, w);
  const Term* zero_bit = mgr_.make_bv_word(0, 1);
  const Term* one_bit = mgr_.make_bv_word(1, 1);
  const Term* msb_s = mgr_.make_term(top, {s});
  const Term* msb_t = mgr_.make_term(top, {t});
  const Term* s_pos = mgr_.make_equal(msb_s, zero_bit);
  const Term* t_pos = mgr_.make_equal(msb_t, zero_bit);
  const Term* abs_s = mgr_.make_ite(s_pos, s, bv(Op::BVNeg, w, s));
  const Term* abs_t = mgr_.make_ite(t_pos, t, bv(Op::BVNeg, w, t));
  const Term* u = bv(Op::BVUrem, w, abs_s, abs_t);
  const Term* neg_u = bv(Op::BVNeg, w, u);
  const Term* s_neg = mgr_.make_equal(msb_s, one_bit);
  const Term* t_neg = mgr_.make_equal(msb_t, one_bit);
  const Term* inner = mgr_.make_ite(mgr_.make_and(s_pos, t_neg), bv(Op::BVAdd, w, u, t), neg_u);
  inner = mgr_.make_ite(mgr_.make_and(s_neg, t_pos), bv(Op::BVAdd, w, neg_u, t), inner);
  inner = mgr_.make_ite(mgr_.make_and(s_pos, t_pos), u, inner);
  return mgr_.make_ite(mgr_.make_equal(u, mgr_.make_bv_word(0, w)), u, inner);
}

// bvredor: some bit is set; bvredand: every bit is; bvredxor: an odd number
// of bits are. Each is one bit.
const Term* Application::reduce(std::size_t w, const Term* s) {
  const std::string_view op = h_.info->name;
  if (op == "bvredxor") return xor_bits(s, w - 1, 0);
  const Term* zeros = mgr_.make_bv_word(0, w);
  if (op == "bvredor") return bv(Op::BVNot, 1, bv(Op::BVComp, w, s, zeros));
  return bv(Op::BVComp, w, s, mgr_.make_bv_number(-1, w));
}

// The exclusive or of the bits high..low of s, halving the range so that
// the term nests log2(w) levels deep.
const Term* Application::xor_bits(const Term* s, std::size_t high, std::size_t low) {
  const std::size_t w = s->type()->width();
  if (high == low) return mgr_.make_term(mgr_.make_bv_extract_symbol(high, low, w), {s});
  const std::size_t mid = low + (high - low) / 2;
  return bv(Op::BVXor, 1, xor_bits(s, high, mid + 1), xor_bits(s, mid, low));
}

// The overflow predicates, each true when the exact result of the operation
// on the arguments read as unsigned (u) or signed (s) integers does not fit
// in w bits:
//   bvuaddo  s + t (u)   the w-bit sum is below s
//   bvusubo  s - t (u)   s < t
//   bvumulo  s * t (u)   the high half of the 2w-bit product is not zero
//   bvsaddo  s + t (s)   s and t have one sign and the sum the other
//   bvssubo  s - t (s)   s and t differ in sign and the difference has t's
//   bvsmulo  s * t (s)   the 2w-bit product is not the w-bit one extended
//   bvsdivo  s / t (s)   s is the most negative value and t is -1
const Term* Application::overflow(std::size_t w, const Term* s, const Term* t) {
  const std::string_view op = h_.info->name;
  if (op == "bvuaddo") return bv(Op::BVUlt, w, bv(Op::BVAdd, w, s, t), s);
  if (op == "bvusubo") return bv(Op::BVUlt, w, s, t);
  if (op == "bvsdivo") {
    return mgr_.make_and(mgr_.make_equal(s, min_signed(w)),
                         mgr_.make_equal(t, mgr_.make_bv_number(-1, w)));
  }
  if (op == "bvumulo" || op == "bvsmulo") {
    if (w > kMaxWidth / 2) {
      throw InputError(h_.node->pos, name() + " over " + std::to_string(w) +
                                         " bits is not supported: its definition multiplies at " +
                                         "twice the width, beyond the limit of " +
                                         std::to_string(kMaxWidth) + " bits");
    }
    const bool is_signed = op == "bvsmulo";
    const Symbol* extend =
        is_signed ? mgr_.make_bv_sign_extend_symbol(w, w) : mgr_.make_bv_zero_extend_symbol(w, w);
    const Term* product =
        bv(Op::BVMul, 2 * w, mgr_.make_term(extend, {s}), mgr_.make_term(extend, {t}));
    const Term* low = mgr_.make_term(mgr_.make_bv_extract_symbol(w - 1, 0, 2 * w), {product});
    const Term* fits =
        is_signed ? mgr_.make_equal(product, mgr_.make_term(extend, {low}))
                  : mgr_.make_equal(
                        mgr_.make_term(mgr_.make_bv_extract_symbol(2 * w - 1, w, 2 * w), {product}),
                        mgr_.make_bv_word(0, w));
    return mgr_.make_not(fits);
  }
  const bool add = op == "bvsaddo";
  const Term* result = bv(add ? Op::BVAdd : Op::BVSub, w, s, t);
  const Term* same_signs = mgr_.make_equal(msb(w, s), msb(w, t));
  return mgr_.make_and(add ? same_signs : mgr_.make_not(same_signs),
                       mgr_.make_not(mgr_.make_equal(msb(w, result), msb(w, s))));
}

const Term* Application::concat2(const Term* high, const Term* low) {
  std::size_t hw = high->type()->width();
  std::size_t lw = low->type()->width();
  if (hw + lw > kMaxWidth) {
    throw InputError(h_.node->pos, "the result of " + name() + " would have " +
                                       std::to_string(hw + lw) + " bits, beyond the limit of " +
                                       std::to_string(kMaxWidth) + " bits");
  }
  return mgr_.make_term(mgr_.make_bv_concat_symbol(hw, lw), {high, low});
}

const Term* Application::concat() {
  for (std::size_t k = 0; k < args_.size(); ++k) {
    if (!args_[k]->type()->is_bv()) {
      throw InputError(arg_node(k).pos, "concat expects bit-vector arguments, got " +
                                            sort_text(args_[k]) + " for argument " +
                                            std::to_string(k + 1));
    }
  }
  const Term* t = args_[0];
  for (std::size_t k = 1; k < args_.size(); ++k) t = concat2(t, args_[k]);
  return t;
}

// (_ repeat k) is k copies concatenated. Built by doubling, so that the
// term has O(log k) distinct subterms.
const Term* Application::repeat() {
  std::size_t w = one_bv();
  if (h_.i > kMaxWidth / w) {
    throw InputError(h_.node->pos, "the result of " + quote(*h_.node) +
                                       " would exceed the limit of " + std::to_string(kMaxWidth) +
                                       " bits");
  }
  const Term* result = nullptr;
  const Term* power = args_[0];  // 2^bit copies
  for (std::size_t k = h_.i;;) {
    if ((k & 1) != 0) result = result == nullptr ? power : concat2(result, power);
    k >>= 1;
    if (k == 0) break;
    power = concat2(power, power);
  }
  return result;
}

const Term* Application::indexed() {
  std::size_t w = one_bv();
  switch (h_.info->shape) {
    case Shape::Extract:
      if (h_.i >= w) {
        throw InputError(arg_node(0).pos, name() + " is out of range for an argument of sort " +
                                              sort_text(args_[0]));
      }
      return mgr_.make_term(mgr_.make_bv_extract_symbol(h_.i, h_.j, w), {args_[0]});
    case Shape::Rotate: {
      const Symbol* s = h_.info->op == Op::BVRotateLeft ? mgr_.make_bv_rotate_left_symbol(h_.i, w)
                                                        : mgr_.make_bv_rotate_right_symbol(h_.i, w);
      return mgr_.make_term(s, {args_[0]});
    }
    default: {
      if (h_.i > kMaxWidth - w) {
        throw InputError(h_.node->pos, "the result of " + quote(*h_.node) +
                                           " would exceed the limit of " +
                                           std::to_string(kMaxWidth) + " bits");
      }
      const Symbol* s = h_.info->op == Op::BVZeroExtend ? mgr_.make_bv_zero_extend_symbol(h_.i, w)
                                                        : mgr_.make_bv_sign_extend_symbol(h_.i, w);
      return mgr_.make_term(s, {args_[0]});
    }
  }
}

const Term* Application::const_array() {
  if (args_[0]->type() != h_.array->element()) {
    throw InputError(arg_node(0).pos, name() + " expects a value of sort " +
                                          shorten(h_.array->element()->to_string()) + ", got " +
                                          sort_text(args_[0]));
  }
  return mgr_.make_const_array(h_.array, args_[0]);
}

// select and store: an array, an index of its index sort and, for store,
// an element of its element sort.
const Term* Application::array_access() {
  const DataType* a = args_[0]->type();
  if (!a->is_array()) {
    throw InputError(arg_node(0).pos,
                     name() + " expects an array as argument 1, got " + sort_text(args_[0]));
  }
  for (std::size_t k = 1; k < args_.size(); ++k) {
    const DataType* want = k == 1 ? a->index() : a->element();
    if (args_[k]->type() != want) {
      throw InputError(arg_node(k).pos, name() + " expects argument " + std::to_string(k + 1) +
                                            " of sort " + shorten(want->to_string()) + ", got " +
                                            sort_text(args_[k]));
    }
  }
  if (h_.info->shape == Shape::Select) return mgr_.make_select(args_[0], args_[1]);
  return mgr_.make_store(args_[0], args_[1], args_[2]);
}

}  // namespace

const Term* apply_operator(TermManager& mgr, const OperatorHead& h, const Node& app,
                           const std::vector<const Term*>& args) {
  return Application(mgr, h, app, args).build();
}

}  // namespace kora::smtlib
