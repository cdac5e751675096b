#include "kora/terms/term.h"

#include <unistd.h>

#include <cstring>
#include <iostream>
#include <optional>
#include <ostream>
#include <string_view>
#include <utility>

namespace kora {

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
      out += t->symbol_->name();
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
  switch (t->get_symbol()->op()) {
    case Op::True:
    case Op::False:
    case Op::BVNumber:
    case Op::AbstractValue:
      return true;
    case Op::ConstArray:
      return is_model_value(t->arg(0));
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
