#include "support/random_script.h"

#include <sstream>

#include "kora/smtlib/written.h"

namespace kora::test {

namespace {

// Two Booleans and four 4-bit constants, one with a quoted name.
const char* const kBools[] = {"p", "q"};
const char* const kBits[] = {"x", "y", "z", "|w v|"};

}  // namespace

std::string RandomScript::make() {
  asserts_.clear();
  std::string out = "(set-logic QF_BV)\n";
  for (const char* b : kBools) out += std::string("(declare-fun ") + b + " () Bool)\n";
  for (const char* x : kBits) out += std::string("(declare-const ") + x + " (_ BitVec 4))\n";
  const std::size_t n = 1 + pick(4);
  for (std::size_t i = 0; i < n; ++i) {
    asserts_.push_back("(assert " + boolean(3) + ")");
    out += asserts_.back() + "\n";
  }
  return out;
}

std::string RandomScript::bool_leaf() {
  if (!bool_vars_.empty() && pick(2) == 0) return bool_vars_[pick(bool_vars_.size())];
  return pick(8) == 0 ? "true" : kBools[pick(2)];
}

std::string RandomScript::bv_leaf() {
  if (!bv_vars_.empty() && pick(2) == 0) return bv_vars_[pick(bv_vars_.size())];
  switch (pick(6)) {
    case 0:
      return "#x" + std::string(1, "0123456789abcdef"[pick(16)]);
    case 1:
      return "(_ bv" + std::to_string(pick(16)) + " 4)";
    default:
      return kBits[pick(4)];
  }
}

std::string RandomScript::boolean(int depth) {
  if (depth == 0 || pick(5) == 0) return bool_leaf();
  const int d = depth - 1;
  switch (pick(10)) {
    case 0:
      return "(not " + boolean(d) + ")";
    case 1:
      return "(=> " + boolean(d) + " " + boolean(d) + (pick(2) == 0 ? "" : " " + boolean(d)) + ")";
    case 2:
      return std::string(pick(2) == 0 ? "(and " : "(or ") + boolean(d) + " " + boolean(d) +
             (pick(2) == 0 ? "" : " " + boolean(d)) + ")";
    case 3:
      return "(= " + bit_vector(d) + " " + bit_vector(d) +
             (pick(3) == 0 ? " " + bit_vector(d) : "") + ")";
    case 4:
      return "(distinct " + bit_vector(d) + " " + bit_vector(d) + ")";
    case 5: {
      const char* const cmp[] = {"bvult", "bvule", "bvuge", "bvugt", "bvslt", "bvsge"};
      return std::string("(") + cmp[pick(6)] + " " + bit_vector(d) + " " + bit_vector(d) + ")";
    }
    case 6:
      return "(ite " + boolean(d) + " " + boolean(d) + " " + boolean(d) + ")";
    case 7:
      return "(xor " + boolean(d) + " " + boolean(d) + ")";
    case 8:
      return let(d, true);
    default:
      return "(= " + boolean(d) + " " + boolean(d) + ")";
  }
}

std::string RandomScript::bit_vector(int depth) {
  if (depth == 0 || pick(4) == 0) return bv_leaf();
  const int d = depth - 1;
  switch (pick(9)) {
    case 0: {
      const char* const nary[] = {"bvadd", "bvmul", "bvand", "bvor", "bvxor"};
      return std::string("(") + nary[pick(5)] + " " + bit_vector(d) + " " + bit_vector(d) +
             (pick(3) == 0 ? " " + bit_vector(d) : "") + ")";
    }
    case 1: {
      const char* const binary[] = {"bvudiv", "bvurem", "bvsub", "bvshl", "bvlshr", "bvnand"};
      return std::string("(") + binary[pick(6)] + " " + bit_vector(d) + " " + bit_vector(d) + ")";
    }
    case 2:
      return std::string(pick(2) == 0 ? "(bvnot " : "(bvneg ") + bit_vector(d) + ")";
    case 3:
      return "(ite " + boolean(d) + " " + bit_vector(d) + " " + bit_vector(d) + ")";
    case 4:
      return "(concat ((_ extract 1 0) " + bit_vector(d) + ") ((_ extract 3 2) " + bit_vector(d) +
             "))";
    case 5:
      return "((_ rotate_left " + std::to_string(pick(4)) + ") " + bit_vector(d) + ")";
    case 6:
      return let(d, false);
    default:
      return "(bvadd " + bit_vector(d) + " " + bv_leaf() + ")";
  }
}

std::string RandomScript::let(int depth, bool boolean_body) {
  // Sometimes a name already in scope, so that lets shadow each other.
  const bool bool_value = pick(3) == 0;
  std::vector<std::string>& vars = bool_value ? bool_vars_ : bv_vars_;
  const std::string name =
      !vars.empty() && pick(3) == 0 ? vars[pick(vars.size())] : "v" + std::to_string(lets_++);
  const std::string value = bool_value ? boolean(depth) : bit_vector(depth);
  // A shadowed name keeps its sort: the other sort's list must not see it.
  std::vector<std::string>& other = bool_value ? bv_vars_ : bool_vars_;
  std::vector<std::string> saved = other;
  std::erase(other, name);
  vars.push_back(name);
  const std::string body = boolean_body ? boolean(depth) : bit_vector(depth);
  vars.pop_back();
  other = std::move(saved);
  return "(let ((" + name + " " + value + ")) " + body + ")";
}

KeptScript read_kept(TermManager& mgr, const std::string& text, bool keep_written) {
  std::istringstream in(text);
  smtlib::ScriptReader reader(in, &mgr, "t.smt2");
  reader.keep_written(keep_written);
  KeptScript out;
  for (;;) {
    try {
      std::optional<smtlib::Command> c = reader.next();
      if (!c) break;
      if (c->kind == smtlib::Command::Kind::Assert) {
        out.assertions.push_back(c->term);
        out.forms.push_back(c->form);
      }
    } catch (const smtlib::InputError& e) {
      out.errors.push_back(reader.message(e));
    }
  }
  out.declared = reader.declared();
  return out;
}

}  // namespace kora::test
