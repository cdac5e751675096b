#include "kora/terms/term.h"

#include <unistd.h>

#include <cstring>
#include <iostream>
#include <optional>
#include <ostream>
#include <string_view>
#include <utility>

#include "kora/numbers/qnumber.h"

namespace kora {

namespace {

// Appends the w-bit literal of the non-negative integer v: #x with w/4 hex
// digits when 4 divides w, else #b with w binary digits. GMP writes the
// digits straight into out, after the zero padding.
void append_numeral(std::string& out, mpz_srcptr v, std::size_t width) {
  const bool hex = width % 4 == 0;
  const int base = hex ? 16 : 2;
  const std::size_t digits = hex ? width / 4 : width;
  out += hex ? "#x" : "#b";
  const std::size_t start = out.size();
  // sizeinbase may overstate by one; mpz_get_str writes the exact digits
  // and a terminating NUL, so room for one more is left and then trimmed.
  const std::size_t used = mpz_sgn(v) == 0 ? 0 : mpz_sizeinbase(v, base);
  out.resize(start + digits + 1, '0');
  char* end = out.data() + start + digits;
  if (used > 0) {
    char* first = end - used;
    mpz_get_str(first, base, v);
    const std::size_t written = std::strlen(first);
    if (written < used) {
      // One digit fewer than estimated: shift right over the padding.
      std::memmove(first + (used - written), first, written);
      std::memset(first, '0', used - written);
    }
  }
  out.resize(start + digits);
}

// The same for a value below 2^64, without GMP: numerals of machine-sized
// values are printed on every log line and answer.
void append_word_numeral(std::string& out, std::uint64_t v, std::size_t width) {
  const bool hex = width % 4 == 0;
  const unsigned bits = hex ? 4 : 1;
  out += hex ? "#x" : "#b";
  out.resize(out.size() + (hex ? width / 4 : width), '0');
  // The value is below 2^width, so its digits fit the padded field.
  char* p = out.data() + out.size();
  for (; v != 0; v >>= bits) *--p = "0123456789abcdef"[v & ((1U << bits) - 1)];
}

}  // namespace

void Symbol::append_text(std::string& out) const {
  if (op_ != Op::BVNumber || numeral_ == nullptr) {
    out += name_;
  } else if (has_word_) {
    append_word_numeral(out, word_, params_[0]);
  } else {
    append_numeral(out, numeral_->big_numerator(), params_[0]);
  }
}

std::string DataType::to_string() const {
  switch (kind_) {
    case Kind::Bool:
      return "Bool";
    case Kind::BitVec:
      return "(_ BitVec " + std::to_string(width_) + ")";
    case Kind::Array:
      return "(Array " + index_->to_string() + " " + element_->to_string() + ")";
    case Kind::Sort:
      break;
  }
  // Declared sort names come from scripts and may need bars to read back.
  return smtlib_symbol(name_);
}

namespace {

bool is_simple_symbol_char(char c) {
  const bool alnum = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  return alnum || (c != '\0' && std::strchr("~!@$%^&*_-+=<>.?/", c) != nullptr);
}

// Bytes that cannot stand as they are between bars: the bar and backslash
// would end the symbol or start an escape, and control characters (tab
// aside) would break the line that a response must fit on.
bool needs_escape(char c) {
  const auto b = static_cast<unsigned char>(c);
  return c == '|' || c == '\\' || (b < 0x20 && c != '\t') || b == 0x7f;
}

int hex_digit_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string smtlib_symbol(const std::string& name) {
  bool simple = !name.empty() && !(name[0] >= '0' && name[0] <= '9');
  for (char c : name) simple = simple && is_simple_symbol_char(c);
  if (simple) return name;
  std::string out = "|";
  out.reserve(name.size() + 2);
  for (char c : name) {
    if (!needs_escape(c)) {
      out += c;
    } else if (c == '\n' || c == '\r') {
      out += c == '\n' ? "\\n" : "\\r";
    } else {
      static constexpr char kHex[] = "0123456789abcdef";
      const auto b = static_cast<unsigned char>(c);
      out += "\\x";
      out += kHex[b >> 4];
      out += kHex[b & 0xfU];
    }
  }
  out += '|';
  return out;
}

std::optional<std::string> unquote_smtlib_symbol(std::string_view body) {
  std::string name;
  name.reserve(body.size());
  for (std::size_t i = 0; i < body.size(); ++i) {
    if (body[i] != '\\') {
      name += body[i];
      continue;
    }
    const std::string_view escape = body.substr(i + 1, 3);
    if (escape.starts_with('n') || escape.starts_with('r')) {
      name += escape[0] == 'n' ? '\n' : '\r';
      i += 1;
      continue;
    }
    if (escape.size() < 3 || escape[0] != 'x') return std::nullopt;
    const int high = hex_digit_value(escape[1]);
    const int low = hex_digit_value(escape[2]);
    if (high < 0 || low < 0) return std::nullopt;
    name += static_cast<char>(high * 16 + low);
    i += 3;
  }
  return name;
}

const char* op_name(Op op) noexcept {
  switch (op) {
    case Op::Constant:
      return "constant";
    case Op::True:
      return "true";
    case Op::False:
      return "false";
    case Op::BVNumber:
      return "numeral";
    case Op::AbstractValue:
      return "abstract value";
    case Op::ConstArray:
      return "const";
    case Op::Not:
      return "not";
    case Op::And:
      return "and";
    case Op::Or:
      return "or";
    case Op::Iff:
    case Op::Equal:
      return "=";
    case Op::Ite:
      return "ite";
    case Op::BVAdd:
      return "bvadd";
    case Op::BVSub:
      return "bvsub";
    case Op::BVNeg:
      return "bvneg";
    case Op::BVMul:
      return "bvmul";
    case Op::BVShl:
      return "bvshl";
    case Op::BVLshr:
      return "bvlshr";
    case Op::BVAshr:
      return "bvashr";
    case Op::BVUdiv:
      return "bvudiv";
    case Op::BVSdiv:
      return "bvsdiv";
    case Op::BVUrem:
      return "bvurem";
    case Op::BVSrem:
      return "bvsrem";
    case Op::BVNot:
      return "bvnot";
    case Op::BVAnd:
      return "bvand";
    case Op::BVOr:
      return "bvor";
    case Op::BVXor:
      return "bvxor";
    case Op::BVUlt:
      return "bvult";
    case Op::BVUle:
      return "bvule";
    case Op::BVSlt:
      return "bvslt";
    case Op::BVSle:
      return "bvsle";
    case Op::BVComp:
      return "bvcomp";
    case Op::BVConcat:
      return "concat";
    case Op::BVExtract:
      return "extract";
    case Op::BVZeroExtend:
      return "zero_extend";
    case Op::BVSignExtend:
      return "sign_extend";
    case Op::BVRotateLeft:
      return "rotate_left";
    case Op::BVRotateRight:
      return "rotate_right";
    case Op::Select:
      return "select";
    case Op::Store:
      return "store";
  }
  return "?";
}

std::string Term::to_shallow_str() const {
  // Iterative so that deeply nested terms cannot exhaust the stack. Each
  // frame is a term and the index of the next argument to print.
  std::string out;
  std::vector<std::pair<const Term*, std::size_t>> stack;
  stack.emplace_back(this, 0);
  while (!stack.empty()) {
    auto& [t, next] = stack.back();
    if (t->arity() == 0) {
      t->symbol_->append_text(out);
      stack.pop_back();
      continue;
    }
    if (next == 0) {
      out += '(';
      out += t->symbol_->name();
    }
    if (next == t->arity()) {
      out += ')';
      stack.pop_back();
      continue;
    }
    out += ' ';
    const Term* child = t->arg(next++);
    stack.emplace_back(child, 0);
  }
  return out;
}

std::ostream& operator<<(std::ostream& os, const Term& t) {
  return os << t.to_shallow_str();
}

bool is_model_value(const Term* t) {
  switch (t->op()) {
    case Op::True:
    case Op::False:
    case Op::BVNumber:
    case Op::AbstractValue:
      return true;
    case Op::ConstArray:
      return is_model_value(t->arg(0));
    case Op::Store:
      // A chain of stores over a constant array: walked, not recursed, as
      // chains can be long.
      for (; t->op() == Op::Store; t = t->arg(0)) {
        if (t->arg(1)->op() != Op::BVNumber || !is_model_value(t->arg(2))) return false;
      }
      return t->op() == Op::ConstArray && is_model_value(t->arg(0));
    default:
      return false;
  }
}

bool is_terminal(const std::ostream& os) {
  if (&os == &std::cout) return ::isatty(STDOUT_FILENO) != 0;
  if (&os == &std::cerr || &os == &std::clog) return ::isatty(STDERR_FILENO) != 0;
  return false;
}

}  // namespace kora
