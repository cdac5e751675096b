#include "kora/smtlib/operators.h"

#include <gmpxx.h>

#include <limits>
#include <utility>

namespace kora::smtlib {

namespace {

enum Dialects : unsigned char { kNative = 1, kStandard = 2, kBoth = 3 };

struct Entry {
  OpInfo info;
  unsigned char dialects;
};

constexpr Entry kOps[] = {
    {{"not", Op::Not, Shape::BoolUnary}, kBoth},
    {{"and", Op::And, Shape::BoolNary}, kNative},
    {{"and", Op::And, Shape::Connective}, kStandard},
    {{"or", Op::Or, Shape::BoolNary}, kNative},
    {{"or", Op::Or, Shape::Connective}, kStandard},
    {{"xor", Op::Iff, Shape::BoolNary}, kStandard},
    {{"=>", Op::Or, Shape::Implies}, kStandard},
    {{"=", Op::Equal, Shape::Equal}, kNative},
    {{"=", Op::Equal, Shape::Chain}, kStandard},
    {{"distinct", Op::Equal, Shape::Distinct}, kStandard},
    {{"ite", Op::Ite, Shape::Ite}, kBoth},
    {{"bvadd", Op::BVAdd, Shape::BVNary}, kBoth},
    {{"bvsub", Op::BVSub, Shape::BVBinary}, kBoth},
    {{"bvneg", Op::BVNeg, Shape::BVUnary}, kBoth},
    {{"bvmul", Op::BVMul, Shape::BVNary}, kBoth},
    {{"bvshl", Op::BVShl, Shape::BVBinary}, kBoth},
    {{"bvlshr", Op::BVLshr, Shape::BVBinary}, kBoth},
    {{"bvashr", Op::BVAshr, Shape::BVBinary}, kBoth},
    {{"bvudiv", Op::BVUdiv, Shape::BVBinary}, kBoth},
    {{"bvsdiv", Op::BVSdiv, Shape::BVBinary}, kBoth},
    {{"bvurem", Op::BVUrem, Shape::BVBinary}, kBoth},
    {{"bvsrem", Op::BVSrem, Shape::BVBinary}, kBoth},
    {{"bvsmod", Op::BVUrem, Shape::BVSmod}, kStandard},
    {{"bvnot", Op::BVNot, Shape::BVUnary}, kBoth},
    {{"bvand", Op::BVAnd, Shape::BVNary}, kBoth},
    {{"bvor", Op::BVOr, Shape::BVNary}, kBoth},
    {{"bvxor", Op::BVXor, Shape::BVNary}, kBoth},
    {{"bvnand", Op::BVAnd, Shape::BVNegated}, kStandard},
    {{"bvnor", Op::BVOr, Shape::BVNegated}, kStandard},
    {{"bvxnor", Op::BVXor, Shape::BVNegated}, kStandard},
    {{"bvult", Op::BVUlt, Shape::BVCompare}, kBoth},
    {{"bvule", Op::BVUle, Shape::BVCompare}, kBoth},
    {{"bvslt", Op::BVSlt, Shape::BVCompare}, kBoth},
    {{"bvsle", Op::BVSle, Shape::BVCompare}, kBoth},
    {{"bvugt", Op::BVUlt, Shape::BVSwapped}, kStandard},
    {{"bvuge", Op::BVUle, Shape::BVSwapped}, kStandard},
    {{"bvsgt", Op::BVSlt, Shape::BVSwapped}, kStandard},
    {{"bvsge", Op::BVSle, Shape::BVSwapped}, kStandard},
    {{"bvcomp", Op::BVComp, Shape::BVComp}, kBoth},
    {{"concat", Op::BVConcat, Shape::Concat}, kBoth},
    // Extensions. The op names what the definition is built on.
    {{"bvredor", Op::BVComp, Shape::BVReduce}, kStandard},
    {{"bvredand", Op::BVComp, Shape::BVReduce}, kStandard},
    {{"bvredxor", Op::BVXor, Shape::BVReduce}, kStandard},
    {{"bvnego", Op::Equal, Shape::NegOverflow}, kStandard},
    {{"bvuaddo", Op::BVAdd, Shape::Overflow}, kStandard},
    {{"bvsaddo", Op::BVAdd, Shape::Overflow}, kStandard},
    {{"bvumulo", Op::BVMul, Shape::Overflow}, kStandard},
    {{"bvsmulo", Op::BVMul, Shape::Overflow}, kStandard},
    {{"bvusubo", Op::BVUlt, Shape::Overflow}, kStandard},
    {{"bvssubo", Op::BVSub, Shape::Overflow}, kStandard},
    {{"bvsdivo", Op::BVSdiv, Shape::Overflow}, kStandard},
    // Arrays.
    {{"select", Op::Select, Shape::Select}, kStandard},
    {{"store", Op::Store, Shape::Store}, kStandard},
};

constexpr Entry kIndexedOps[] = {
    {{"extract", Op::BVExtract, Shape::Extract}, kBoth},
    {{"rotate_left", Op::BVRotateLeft, Shape::Rotate}, kBoth},
    {{"rotate_right", Op::BVRotateRight, Shape::Rotate}, kBoth},
    {{"zero_extend", Op::BVZeroExtend, Shape::Extend}, kBoth},
    {{"sign_extend", Op::BVSignExtend, Shape::Extend}, kBoth},
    {{"repeat", Op::BVConcat, Shape::Repeat}, kStandard},
};

constexpr OpInfo kConstArray{"as const", Op::ConstArray, Shape::ConstArray};

// Names that a declaration may not take: they would be unreachable or would
// make the input mean two things.
constexpr std::string_view kReservedNames[] = {
    "true", "false", "_", "as", "let", "!", "forall", "exists", "match", "par",
};

template <std::size_t N>
const OpInfo* find_in(const Entry (&table)[N], std::string_view name, Dialect dialect) {
  const unsigned char want = dialect == Dialect::Native ? kNative : kStandard;
  for (const Entry& e : table) {
    if ((e.dialects & want) != 0 && e.info.name == name) return &e.info;
  }
  return nullptr;
}

std::string limit_text() {
  return "the limit of " + std::to_string(kMaxWidth) + " bits";
}

}  // namespace

std::string quote(const Node& n) {
  // Appended rather than "'" + describe(n): GCC 12 at -O2 warns falsely
  // (-Wrestrict) about inserting a literal before a temporary string.
  std::string text(1, '\'');
  text += describe(n);
  text += '\'';
  return text;
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

std::string OperatorHead::name() const {
  return node->is_list() ? describe(*node) : printed_symbol(std::string(info->name));
}

bool is_sendable_as_written(const OpInfo& info) {
  return info.shape != Shape::BVReduce && info.shape != Shape::Overflow &&
         info.shape != Shape::NegOverflow;
}

const OpInfo* find_operator(std::string_view name, Dialect dialect) {
  return find_in(kOps, name, dialect);
}

const OpInfo* find_indexed_operator(std::string_view name, Dialect dialect) {
  return find_in(kIndexedOps, name, dialect);
}

const OpInfo* const_array_operator() {
  return &kConstArray;
}

std::string new_name(const Node& n, const char* what, Dialect dialect) {
  if (!n.is_symbol())
    throw InputError(n.pos, std::string("expected a ") + what + " name, got " + quote(n));
  std::string_view name = n.text;
  bool builtin =
      find_operator(name, dialect) != nullptr || find_indexed_operator(name, dialect) != nullptr;
  for (std::string_view r : kReservedNames) builtin = builtin || r == name;
  if (builtin) throw InputError(n.pos, "cannot declare " + quote(n) + ": it is a built-in name");
  // kora-adhoc reads (as @K SORT) as an abstract value; a standard script
  // may declare such names (tools that write scripts do), and its abstract
  // values are never read.
  if (dialect == Dialect::Native && !name.empty() && name[0] == '@') {
    throw InputError(n.pos, "cannot declare " + quote(n) +
                                ": names starting with '@' are reserved for abstract values");
  }
  return n.text;
}

// --- Sorts and literals --------------------------------------------------------

std::size_t width(const Node& n) {
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

const DataType* bv_sort(TermManager& mgr, const Node& n) {
  if (!n.is_list() || n.children.size() < 2 || !n.children[0]->is_reserved("_") ||
      !n.children[1]->is_reserved("BitVec")) {
    return nullptr;
  }
  if (n.children.size() != 3) throw InputError(n.pos, "(_ BitVec W) expects one numeral width");
  return mgr.bv_type(width(*n.children[2]));
}

const Term* bv_literal(TermManager& mgr, const Node& n) {
  std::string digits = n.text.substr(2);
  std::size_t bits_per_digit = n.kind == Node::Kind::Binary ? 1 : 4;
  if (digits.size() > kMaxWidth / bits_per_digit) {
    throw InputError(n.pos, "bit-vector literal of " +
                                std::to_string(digits.size() * bits_per_digit) + " bits exceeds " +
                                limit_text());
  }
  std::size_t w = digits.size() * bits_per_digit;
  if (digits.size() <= 64 / bits_per_digit) {
    return mgr.make_bv_word(std::stoull(digits, nullptr, bits_per_digit == 1 ? 2 : 16), w);
  }
  mpz_class value(digits, bits_per_digit == 1 ? 2 : 16);
  return mgr.make_bv_gmp(value.get_mpz_t(), w);
}

const Term* bv_numeral(TermManager& mgr, const Node& n) {
  const std::vector<const Node*>& c = n.children;
  const Node& id = *c[1];
  if (!(id.text.size() > 2 && id.text.compare(0, 2, "bv") == 0 && !id.quoted &&
        id.text.find_first_not_of("0123456789", 2) == std::string::npos)) {
    return nullptr;
  }
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
    return InputError(id.pos, "the value of " + quote(n) + " does not fit in " + plural(w, "bit") +
                                  ": it must be below 2^" + std::to_string(w));
  };
  // A value below 2^w has at most w/3 + 1 decimal digits (log10 2 < 1/3):
  // longer numerals are refused unread, so that millions of digits cost no
  // more than the lexer's pass over them.
  if (digits.size() > w / 3 + 1) throw too_large();
  mpz_class value(digits, 10);
  if (value != 0 && mpz_sizeinbase(value.get_mpz_t(), 2) > w) throw too_large();
  return mgr.make_bv_gmp(value.get_mpz_t(), w);
}

const Term* atom(TermManager& mgr, const Node& n) {
  switch (n.kind) {
    case Node::Kind::Binary:
    case Node::Kind::Hex:
      return bv_literal(mgr, n);
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
    default:
      throw InputError(n.pos, "expected a term, got " + quote(n));
  }
}

const Term* indexed_constant(TermManager& mgr, const Node& n, Dialect dialect) {
  const std::vector<const Node*>& c = n.children;
  if (c.size() < 2 || !c[1]->is_symbol()) {
    throw InputError(n.pos, "expected an indexed identifier such as (_ bv5 8), got " + quote(n));
  }
  if (const Term* t = bv_numeral(mgr, n)) return t;
  const Node& id = *c[1];
  if (id.is_reserved("BitVec")) throw InputError(n.pos, quote(n) + " is a sort, not a term");
  if (find_indexed_operator(id.text, dialect) != nullptr) {
    throw InputError(n.pos, "indexed operator " + quote(n) + " needs an argument: write (" +
                                describe(n) + " TERM)");
  }
  throw InputError(id.pos, "unknown indexed identifier " + quote(id));
}

void unknown_constant(const Node& n, Dialect dialect) {
  if (find_operator(n.text, dialect) != nullptr) {
    throw InputError(n.pos,
                     "operator " + quote(n) + " needs arguments: write (" + n.text + " ...)");
  }
  throw InputError(n.pos, "unknown constant " + quote(n));
}

void expect_arguments(const Node& cmd, std::size_t n, const char* usage) {
  std::size_t got = cmd.children.size() - 1;
  if (got == n) return;
  const std::string& name = cmd.children[0]->text;
  std::string msg = name + " expects " +
                    (n == 0 ? std::string("no arguments")
                            : std::to_string(n) + (n == 1 ? " argument" : " arguments")) +
                    ", got " + std::to_string(got) + ": write " + usage;
  throw InputError(got < n ? cmd.end : cmd.children[n + 1]->pos, msg);
}

OperatorHead indexed_head(const Node& h, Dialect dialect) {
  const std::vector<const Node*>& c = h.children;
  if (c.size() < 2 || !c[0]->is_reserved("_") || !c[1]->is_symbol()) {
    throw InputError(h.pos, "expected an operator, got " + quote(h));
  }
  OperatorHead head;
  head.node = &h;
  head.info = find_indexed_operator(c[1]->text, dialect);
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
  } else if (head.info->shape == Shape::Repeat && head.i == 0) {
    throw InputError(c[2]->pos, "(_ repeat K) needs K of at least 1");
  }
  return head;
}

}  // namespace kora::smtlib
