#include "kora-adhoc/elaborator.h"

#include <gmpxx.h>

#include <limits>
#include <string_view>
#include <utility>
#include <vector>

namespace kora::frontend {

namespace {

// How an operator takes its arguments.
enum class Shape : unsigned char {
  BoolUnary,   // not
  BoolNary,    // and, or: left-associated
  Equal,       // =: iff over Bool, equality otherwise
  Ite,         // ite
  BVNary,      // bvadd bvmul bvand bvor bvxor: left-associated
  BVBinary,    // two bit-vectors of one width, same width out
  BVUnary,     // bvneg bvnot
  BVCompare,   // bvult ...: Bool out
  BVComp,      // bvcomp: one bit out
  Concat,      // any widths, left-associated
  Extract,     // (_ extract i j)
  Rotate,      // (_ rotate_left k), (_ rotate_right k)
  Extend,      // (_ zero_extend k), (_ sign_extend k)
  ConstArray,  // (as const (Array I E))
};

struct OpInfo {
  std::string_view name;
  Op op;
  Shape shape;
};

constexpr OpInfo kOps[] = {
    {"not", Op::Not, Shape::BoolUnary},
    {"and", Op::And, Shape::BoolNary},
    {"or", Op::Or, Shape::BoolNary},
    {"=", Op::Equal, Shape::Equal},
    {"ite", Op::Ite, Shape::Ite},
    {"bvadd", Op::BVAdd, Shape::BVNary},
    {"bvsub", Op::BVSub, Shape::BVBinary},
    {"bvneg", Op::BVNeg, Shape::BVUnary},
    {"bvmul", Op::BVMul, Shape::BVNary},
    {"bvshl", Op::BVShl, Shape::BVBinary},
    {"bvlshr", Op::BVLshr, Shape::BVBinary},
    {"bvashr", Op::BVAshr, Shape::BVBinary},
    {"bvudiv", Op::BVUdiv, Shape::BVBinary},
    {"bvsdiv", Op::BVSdiv, Shape::BVBinary},
    {"bvurem", Op::BVUrem, Shape::BVBinary},
    {"bvsrem", Op::BVSrem, Shape::BVBinary},
    {"bvnot", Op::BVNot, Shape::BVUnary},
    {"bvand", Op::BVAnd, Shape::BVNary},
    {"bvor", Op::BVOr, Shape::BVNary},
    {"bvxor", Op::BVXor, Shape::BVNary},
    {"bvult", Op::BVUlt, Shape::BVCompare},
    {"bvule", Op::BVUle, Shape::BVCompare},
    {"bvslt", Op::BVSlt, Shape::BVCompare},
    {"bvsle", Op::BVSle, Shape::BVCompare},
    {"bvcomp", Op::BVComp, Shape::BVComp},
    {"concat", Op::BVConcat, Shape::Concat},
};

constexpr OpInfo kIndexedOps[] = {
    {"extract", Op::BVExtract, Shape::Extract},
    {"rotate_left", Op::BVRotateLeft, Shape::Rotate},
    {"rotate_right", Op::BVRotateRight, Shape::Rotate},
    {"zero_extend", Op::BVZeroExtend, Shape::Extend},
    {"sign_extend", Op::BVSignExtend, Shape::Extend},
};

constexpr OpInfo kConstArray{"as const", Op::ConstArray, Shape::ConstArray};

// Names that a declaration may not take: they would be unreachable or would
// make the input mean two things.
constexpr std::string_view kReservedNames[] = {
    "true", "false", "_", "as", "let", "!", "forall", "exists", "match", "par",
};

template <std::size_t N>
const OpInfo* find_op(const OpInfo (&table)[N], std::string_view name) {
  for (const OpInfo& info : table) {
    if (info.name == name) return &info;
  }
  return nullptr;
}

std::string quote(const Node& n) {
  return "'" + describe(n) + "'";
}

std::string sort_text(const Term* t) {
  return shorten(t->type()->to_string());
}

std::string plural(std::size_t n, const char* word) {
  return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

bool is_numeral_text(std::string_view s) {
  if (s.empty() || s.find_first_not_of("0123456789") != std::string_view::npos) return false;
  return s.size() == 1 || s[0] != '0';
}

std::string limit_text() {
  return "the limit of " + std::to_string(kMaxWidth) + " bits";
}

}  // namespace

std::size_t saturated_value(const std::string& digits) noexcept {
  constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();
  std::size_t v = 0;
  for (char c : digits) {
    auto d = static_cast<std::size_t>(c - '0');
    if (v > (kMax - d) / 10) return kMax;
    v = v * 10 + d;
  }
  return v;
}

struct Elaborator::Head {
  const OpInfo* info = nullptr;
  const Node* node = nullptr;  // the operator as written
  std::size_t i = 0;           // indices of an indexed operator
  std::size_t j = 0;
  const DataType* array = nullptr;  // sort of a constant array

  // The operator as a message names it: "bvadd", "(_ extract 3 0)".
  std::string name() const {
    return node->is_list() ? describe(*node) : printed_symbol(std::string(info->name));
  }
};

// --- Sorts -------------------------------------------------------------------

std::size_t Elaborator::width(const Node& n) {
  if (n.kind != Node::Kind::Numeral) {
    throw InputError(n.pos, "expected a numeral bit-vector width, got " + quote(n));
  }
  std::size_t w = saturated_value(n.text);
  if (w == 0) throw InputError(n.pos, "bit-vector width must be at least 1");
  if (w > kMaxWidth) {
    throw InputError(n.pos, "bit-vector width " + shorten(n.text) + " exceeds " + limit_text());
  }
  return w;
}

const DataType* Elaborator::sort(const Node& n, std::size_t depth) {
  if (depth > kMaxSortDepth) {
    throw InputError(n.pos, "sorts nested deeper than " + std::to_string(kMaxSortDepth) +
                                " levels are not supported");
  }
  if (n.is_symbol()) {
    if (n.text == "Bool") return mgr_->bool_type();
    auto it = sorts_.find(n.text);
    if (it != sorts_.end()) return it->second;
    if (n.text == "BitVec") {
      throw InputError(n.pos, "BitVec needs a width: write (_ BitVec W)");
    }
    if (n.text == "Array") {
      throw InputError(n.pos, "Array needs an index and an element sort: write (Array S1 S2)");
    }
    throw InputError(n.pos, "unknown sort " + quote(n));
  }
  if (!n.is_list()) throw InputError(n.pos, "expected a sort, got " + quote(n));
  if (n.children.empty()) throw InputError(n.pos, "expected a sort, got '()'");
  const Node& h = *n.children[0];
  if (h.is_reserved("_") && n.children.size() >= 2 && n.children[1]->is_reserved("BitVec")) {
    if (n.children.size() != 3) {
      throw InputError(n.pos, "(_ BitVec W) expects one numeral width");
    }
    return mgr_->bv_type(width(*n.children[2]));
  }
  if (h.is_reserved("Array")) {
    if (n.children.size() != 3) {
      throw InputError(n.pos, "Array expects 2 sorts (index and element), got " +
                                  std::to_string(n.children.size() - 1));
    }
    const DataType* index = sort(*n.children[1], depth + 1);
    const DataType* element = sort(*n.children[2], depth + 1);
    return mgr_->array_type(index, element);
  }
  throw InputError(n.pos, "unknown sort " + quote(n));
}

// --- Declarations --------------------------------------------------------------

std::string Elaborator::new_name(const Node& n, const char* what) const {
  if (!n.is_symbol())
    throw InputError(n.pos, std::string("expected a ") + what + " name, got " + quote(n));
  std::string_view name = n.text;
  bool builtin = find_op(kOps, name) != nullptr || find_op(kIndexedOps, name) != nullptr;
  for (std::string_view r : kReservedNames) builtin = builtin || r == name;
  if (builtin) throw InputError(n.pos, "cannot declare " + quote(n) + ": it is a built-in name");
  if (!name.empty() && name[0] == '@') {
    throw InputError(n.pos, "cannot declare " + quote(n) +
                                ": names starting with '@' are reserved for abstract values");
  }
  return n.text;
}

void Elaborator::declare_constant(const Node& name_node, const Node& sort_node) {
  std::string name = new_name(name_node, "constant");
  if (constants_.contains(name)) {
    throw InputError(name_node.pos, "constant " + quote(name_node) + " is already declared");
  }
  const DataType* type = sort(sort_node);
  constants_.emplace(name, mgr_->make_constant(name, type));
}

void Elaborator::declare_sort(const Node& name_node) {
  std::string name = new_name(name_node, "sort");
  if (name == "Bool" || name == "BitVec" || name == "Array") {
    throw InputError(name_node.pos,
                     "cannot declare " + quote(name_node) + ": it is a built-in sort");
  }
  if (sorts_.contains(name)) {
    throw InputError(name_node.pos, "sort " + quote(name_node) + " is already declared");
  }
  sorts_.emplace(name, mgr_->sort_type(name));
}

const Term* Elaborator::constant(const Node& n) const {
  if (!n.is_symbol()) throw InputError(n.pos, "expected a constant name, got " + quote(n));
  auto it = constants_.find(n.text);
  if (it == constants_.end()) throw InputError(n.pos, "unknown constant " + quote(n));
  return it->second;
}

// --- Terms ---------------------------------------------------------------------

const Term* Elaborator::term(const Node& root) {
  struct Frame {
    const Node* node;
    bool expanded;
    Head head;
    std::size_t base;  // where this application's arguments start in results
  };
  std::vector<Frame> stack;
  std::vector<const Term*> results;
  stack.push_back({&root, false, {}, 0});
  while (!stack.empty()) {
    Frame& f = stack.back();
    if (f.expanded) {
      std::vector<const Term*> args(results.begin() + static_cast<std::ptrdiff_t>(f.base),
                                    results.end());
      const Term* t = apply(f.head, *f.node, args);
      results.resize(f.base);
      results.push_back(t);
      stack.pop_back();
      continue;
    }
    const Node* n = f.node;
    if (const Term* t = leaf(*n)) {
      results.push_back(t);
      stack.pop_back();
      continue;
    }
    // The operator is checked before its arguments, as it is read first.
    f.head = head(*n);
    f.expanded = true;
    f.base = results.size();
    // Pushed last to first so that arguments are built (and their errors
    // found) left to right.
    for (std::size_t k = n->children.size(); k-- > 1;)
      stack.push_back({n->children[k], false, {}, 0});
  }
  return results.back();
}

const Term* Elaborator::leaf(const Node& n) {
  switch (n.kind) {
    case Node::Kind::Symbol: {
      if (n.text == "true") return mgr_->true_term();
      if (n.text == "false") return mgr_->false_term();
      auto it = constants_.find(n.text);
      if (it != constants_.end()) return it->second;
      if (find_op(kOps, n.text) != nullptr) {
        throw InputError(n.pos,
                         "operator " + quote(n) + " needs arguments: write (" + n.text + " ...)");
      }
      throw InputError(n.pos, "unknown constant " + quote(n));
    }
    case Node::Kind::Binary:
    case Node::Kind::Hex:
      return bv_literal(n);
    case Node::Kind::Numeral:
      throw InputError(n.pos,
                       "a bare numeral is not a term: write a bit-vector literal such as "
                       "#x0a, #b1010 or (_ bv" +
                           shorten(n.text) + " 8)");
    case Node::Kind::Decimal:
      throw InputError(n.pos, "decimals are not supported, got " + quote(n));
    case Node::Kind::String:
      throw InputError(n.pos, "a string is not a term, got " + quote(n));
    case Node::Kind::Keyword:
      throw InputError(n.pos, "a keyword is not a term, got " + quote(n));
    case Node::Kind::List:
      break;
  }
  if (n.children.empty()) throw InputError(n.pos, "expected a term, got '()'");
  const Node& h = *n.children[0];
  if (h.is_reserved("_")) return indexed_literal(n);
  if (h.is_reserved("as")) return abstract_value(n);
  return nullptr;
}

const Term* Elaborator::bv_literal(const Node& n) {
  std::string digits = n.text.substr(2);
  std::size_t bits_per_digit = n.kind == Node::Kind::Binary ? 1 : 4;
  if (digits.size() > kMaxWidth / bits_per_digit) {
    throw InputError(n.pos, "bit-vector literal of " +
                                std::to_string(digits.size() * bits_per_digit) + " bits exceeds " +
                                limit_text());
  }
  mpz_class value(digits, bits_per_digit == 1 ? 2 : 16);
  return mgr_->make_bv_number(QNumber(value), digits.size() * bits_per_digit);
}

const Term* Elaborator::indexed_literal(const Node& n) {
  const std::vector<const Node*>& c = n.children;
  if (c.size() < 2 || !c[1]->is_symbol()) {
    throw InputError(n.pos, "expected an indexed identifier such as (_ bv5 8), got " + quote(n));
  }
  const Node& id = *c[1];
  if (id.text.size() > 2 && id.text.compare(0, 2, "bv") == 0 && !id.quoted &&
      id.text.find_first_not_of("0123456789", 2) == std::string::npos) {
    std::string digits = id.text.substr(2);
    if (!is_numeral_text(digits)) {
      throw InputError(id.pos, "invalid bit-vector literal " + quote(n) +
                                   ": the value must be a numeral without leading zeros");
    }
    if (c.size() != 3) {
      throw InputError(n.pos, "a bit-vector literal is written (_ bvN W), got " + quote(n));
    }
    std::size_t w = width(*c[2]);
    auto too_large = [&] {
      return InputError(id.pos, "the value of " + quote(n) + " does not fit in " +
                                    plural(w, "bit") + ": it must be below 2^" + std::to_string(w));
    };
    // A value below 2^w has at most w/3 + 1 decimal digits (log10 2 < 1/3):
    // longer numerals are refused unread, so that millions of digits cost no
    // more than the lexer's pass over them.
    if (digits.size() > w / 3 + 1) throw too_large();
    mpz_class value(digits, 10);
    if (value != 0 && mpz_sizeinbase(value.get_mpz_t(), 2) > w) throw too_large();
    return mgr_->make_bv_number(QNumber(value), w);
  }
  if (id.is_reserved("BitVec")) throw InputError(n.pos, quote(n) + " is a sort, not a term");
  if (find_op(kIndexedOps, id.text) != nullptr) {
    throw InputError(n.pos, "indexed operator " + quote(n) + " needs an argument: write (" +
                                describe(n) + " TERM)");
  }
  throw InputError(id.pos, "unknown indexed identifier " + quote(id));
}

const Term* Elaborator::abstract_value(const Node& n) {
  const std::vector<const Node*>& c = n.children;
  if (c.size() == 3 && c[1]->is_reserved("const")) {
    throw InputError(n.pos, quote(n) + " needs a value: write (" + describe(n) + " VALUE)");
  }
  if (c.size() != 3 || !c[1]->is_symbol() || c[1]->text.empty() || c[1]->text[0] != '@') {
    throw InputError(n.pos,
                     "expected an abstract value (as @K SORT) or a constant array "
                     "((as const (Array S1 S2)) VALUE), got " +
                         quote(n));
  }
  const Node& id = *c[1];
  std::string digits = id.text.substr(1);
  if (!is_numeral_text(digits)) {
    throw InputError(
        id.pos, "invalid abstract value " + quote(id) + ": expected '@' followed by a numeral");
  }
  std::size_t k = saturated_value(digits);
  if (k == std::numeric_limits<std::size_t>::max()) {
    throw InputError(id.pos, "abstract value index " + quote(id) + " is too large");
  }
  const DataType* s = sort(*c[2]);
  if (!s->is_sort()) {
    throw InputError(
        c[2]->pos, "abstract values exist only in declared sorts, got " + shorten(s->to_string()));
  }
  return mgr_->make_abstract_value(k, s);
}

Elaborator::Head Elaborator::head(const Node& app) {
  const Node& h = *app.children[0];
  Head head;
  head.node = &h;
  if (h.is_symbol()) {
    head.info = find_op(kOps, h.text);
    if (head.info != nullptr) return head;
    if (constants_.contains(h.text) || h.text == "true" || h.text == "false") {
      throw InputError(h.pos, quote(h) + " is a constant, not an operator");
    }
    if (find_op(kIndexedOps, h.text) != nullptr) {
      throw InputError(h.pos,
                       quote(h) + " is an indexed operator: write ((_ " + h.text + " ...) TERM)");
    }
    throw InputError(h.pos, "unknown operator " + quote(h));
  }
  if (!h.is_list()) throw InputError(h.pos, "expected an operator, got " + quote(h));

  const std::vector<const Node*>& c = h.children;
  if (c.size() == 3 && c[0]->is_reserved("as") && c[1]->is_reserved("const")) {
    head.info = &kConstArray;
    head.array = sort(*c[2]);
    if (!head.array->is_array()) {
      throw InputError(c[2]->pos, "(as const SORT) needs an Array sort, got " +
                                      shorten(head.array->to_string()));
    }
    return head;
  }
  if (c.size() < 2 || !c[0]->is_reserved("_") || !c[1]->is_symbol()) {
    throw InputError(h.pos, "expected an operator, got " + quote(h));
  }
  head.info = find_op(kIndexedOps, c[1]->text);
  if (head.info == nullptr) throw InputError(c[1]->pos, "unknown indexed operator " + quote(*c[1]));
  std::size_t wanted = head.info->shape == Shape::Extract ? 2 : 1;
  for (std::size_t k = 2; k < c.size(); ++k) {
    if (c[k]->kind != Node::Kind::Numeral) {
      throw InputError(c[k]->pos,
                       "expected a numeral index of " + quote(h) + ", got " + quote(*c[k]));
    }
  }
  if (c.size() - 2 != wanted) {
    throw InputError(h.pos, "(_ " + c[1]->text + (wanted == 2 ? " I J)" : " K)") + " expects " +
                                (wanted == 2 ? "2 numeral indices" : "1 numeral index") + ", got " +
                                std::to_string(c.size() - 2));
  }
  head.i = saturated_value(c[2]->text);
  if (wanted == 2) {
    head.j = saturated_value(c[3]->text);
    if (head.i < head.j) {
      throw InputError(h.pos, "in " + quote(h) + " the first index must not be below the second");
    }
  } else if (head.info->shape == Shape::Rotate &&
             head.i == std::numeric_limits<std::size_t>::max()) {
    throw InputError(c[2]->pos, "rotation amount " + quote(*c[2]) + " is too large");
  }
  return head;
}

const Term* Elaborator::apply(const Head& h, const Node& app,
                              const std::vector<const Term*>& args) {
  const Shape shape = h.info->shape;
  const std::string op = h.name();
  auto arg_node = [&](std::size_t k) -> const Node& { return *app.children[k + 1]; };

  // Arity first: a missing argument is reported at the ')', a surplus one
  // at itself.
  bool nary = shape == Shape::BoolNary || shape == Shape::BVNary || shape == Shape::Concat;
  std::size_t arity = 1;
  switch (shape) {
    case Shape::Equal:
    case Shape::BVBinary:
    case Shape::BVCompare:
    case Shape::BVComp:
    case Shape::BoolNary:
    case Shape::BVNary:
    case Shape::Concat:
      arity = 2;
      break;
    case Shape::Ite:
      arity = 3;
      break;
    default:
      break;
  }
  if (args.size() < arity || (!nary && args.size() > arity)) {
    std::string msg = op + " expects " + (nary ? "at least " : "") + plural(arity, "argument") +
                      ", got " + std::to_string(args.size());
    throw InputError(args.size() < arity ? app.end : arg_node(arity).pos, msg);
  }

  auto is_bv = [](const Term* t) { return t->type()->is_bv(); };
  // The common width of operators over one bit-vector sort.
  auto same_bv = [&]() -> std::size_t {
    std::string what = op + " expects " + (args.size() == 2 ? "2 arguments" : "arguments") +
                       " of the same bit-vector sort, got ";
    for (std::size_t k = 0; k < args.size(); ++k) {
      if (is_bv(args[k]) && args[k]->type() == args[0]->type()) continue;
      std::size_t other = k == 0 ? 1 : k;
      throw InputError(arg_node(k).pos,
                       what + sort_text(args[0]) + " and " + sort_text(args[other]));
    }
    return args[0]->type()->width();
  };
  auto one_bv = [&]() -> std::size_t {
    if (!is_bv(args[0])) {
      throw InputError(arg_node(0).pos,
                       op + " expects a bit-vector argument, got " + sort_text(args[0]));
    }
    return args[0]->type()->width();
  };

  switch (shape) {
    case Shape::BoolUnary:
    case Shape::BoolNary: {
      for (std::size_t k = 0; k < args.size(); ++k) {
        if (!args[k]->type()->is_bool()) {
          throw InputError(arg_node(k).pos, op + " expects Bool arguments, got " +
                                                sort_text(args[k]) + " for argument " +
                                                std::to_string(k + 1));
        }
      }
      if (shape == Shape::BoolUnary) return mgr_->make_not(args[0]);
      const Term* t = args[0];
      for (std::size_t k = 1; k < args.size(); ++k) {
        t = h.info->op == Op::And ? mgr_->make_and(t, args[k]) : mgr_->make_or(t, args[k]);
      }
      return t;
    }
    case Shape::Equal:
      if (args[0]->type() != args[1]->type()) {
        throw InputError(arg_node(1).pos, "= expects 2 arguments of the same sort, got " +
                                              sort_text(args[0]) + " and " + sort_text(args[1]));
      }
      return args[0]->type()->is_bool() ? mgr_->make_iff(args[0], args[1])
                                        : mgr_->make_equal(args[0], args[1]);
    case Shape::Ite:
      if (!args[0]->type()->is_bool()) {
        throw InputError(arg_node(0).pos,
                         "ite expects a Bool condition, got " + sort_text(args[0]));
      }
      if (args[1]->type() != args[2]->type()) {
        throw InputError(arg_node(2).pos, "ite expects branches of the same sort, got " +
                                              sort_text(args[1]) + " and " + sort_text(args[2]));
      }
      return mgr_->make_ite(args[0], args[1], args[2]);
    case Shape::BVNary:
    case Shape::BVBinary:
    case Shape::BVCompare:
    case Shape::BVComp: {
      const Symbol* s = mgr_->make_bv_symbol(h.info->op, same_bv());
      const Term* t = args[0];
      for (std::size_t k = 1; k < args.size(); ++k) t = mgr_->make_term(s, {t, args[k]});
      return t;
    }
    case Shape::BVUnary:
      return mgr_->make_term(mgr_->make_bv_symbol(h.info->op, one_bv()), {args[0]});
    case Shape::Concat: {
      for (std::size_t k = 0; k < args.size(); ++k) {
        if (!is_bv(args[k])) {
          throw InputError(arg_node(k).pos, "concat expects bit-vector arguments, got " +
                                                sort_text(args[k]) + " for argument " +
                                                std::to_string(k + 1));
        }
      }
      const Term* t = args[0];
      for (std::size_t k = 1; k < args.size(); ++k) {
        std::size_t high = t->type()->width();
        std::size_t low = args[k]->type()->width();
        if (high + low > kMaxWidth) {
          throw InputError(h.node->pos, "the result of concat would have " +
                                            std::to_string(high + low) + " bits, beyond " +
                                            limit_text());
        }
        t = mgr_->make_term(mgr_->make_bv_concat_symbol(high, low), {t, args[k]});
      }
      return t;
    }
    case Shape::Extract: {
      std::size_t w = one_bv();
      if (h.i >= w) {
        throw InputError(arg_node(0).pos,
                         op + " is out of range for an argument of sort " + sort_text(args[0]));
      }
      return mgr_->make_term(mgr_->make_bv_extract_symbol(h.i, h.j, w), {args[0]});
    }
    case Shape::Rotate: {
      std::size_t w = one_bv();
      const Symbol* s = h.info->op == Op::BVRotateLeft ? mgr_->make_bv_rotate_left_symbol(h.i, w)
                                                       : mgr_->make_bv_rotate_right_symbol(h.i, w);
      return mgr_->make_term(s, {args[0]});
    }
    case Shape::Extend: {
      std::size_t w = one_bv();
      if (h.i > kMaxWidth - w) {
        throw InputError(h.node->pos,
                         "the result of " + quote(*h.node) + " would exceed " + limit_text());
      }
      const Symbol* s = h.info->op == Op::BVZeroExtend ? mgr_->make_bv_zero_extend_symbol(h.i, w)
                                                       : mgr_->make_bv_sign_extend_symbol(h.i, w);
      return mgr_->make_term(s, {args[0]});
    }
    case Shape::ConstArray:
      if (args[0]->type() != h.array->element()) {
        throw InputError(arg_node(0).pos, op + " expects a value of sort " +
                                              shorten(h.array->element()->to_string()) + ", got " +
                                              sort_text(args[0]));
      }
      return mgr_->make_const_array(h.array, args[0]);
  }
  return nullptr;
}

}  // namespace kora::frontend
