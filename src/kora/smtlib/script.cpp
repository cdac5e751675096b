#include "kora/smtlib/script.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <string_view>

#include "kora/smtlib/printer.h"
#include "kora/smtlib/script_internal.h"

namespace kora::smtlib {

namespace {

using Kind = Command::Kind;

// Commands without arguments, by name.
struct Plain {
  std::string_view name;
  Kind kind;
};
constexpr Plain kPlain[] = {
    {"check-sat", Kind::CheckSat},
    {"get-model", Kind::GetModel},
    {"get-assignment", Kind::GetAssignment},
    {"reset", Kind::Reset},
    {"reset-assertions", Kind::ResetAssertions},
    {"exit", Kind::Exit},
};

// Standard commands that only ask for something the reader does not give:
// they change nothing, so they are answered `unsupported` rather than
// refused.
constexpr std::string_view kUnsupported[] = {
    "get-assertions", "get-proof", "get-unsat-core", "get-unsat-assumptions", "get-interpolant",
};

// Standard commands outside QF_BV, with the reason given for refusing them.
struct Refused {
  std::string_view name;
  const char* reason;
};
constexpr Refused kRefused[] = {
    {"declare-sort", "uninterpreted sorts are not supported: the logic is QF_BV"},
    {"define-fun-rec", "recursive functions are not supported: the logic is QF_BV"},
    {"define-funs-rec", "recursive functions are not supported: the logic is QF_BV"},
    {"declare-datatype", "datatypes are not supported: the logic is QF_BV"},
    {"declare-datatypes", "datatypes are not supported: the logic is QF_BV"},
};

}  // namespace

std::string script_name(const Node& n, const char* what) {
  std::string name = new_name(n, what, Dialect::Standard);
  for (char c : name) {
    const auto u = static_cast<unsigned char>(c);
    const bool control = (u < 32 && c != '\t' && c != '\n' && c != '\r') || u == 127;
    if (!control && c != '|' && c != '\\') continue;
    std::string what_byte = std::string("'") + c + "'";
    if (control) {
      char code[8];
      std::snprintf(code, sizeof code, "0x%02x", static_cast<unsigned>(u));
      what_byte = std::string("the control character ") + code;
    }
    // The name as kora prints it: escaped, so that the message stays printable.
    throw InputError(n.pos, "cannot declare " + smtlib_symbol(name) + ": a " + what +
                                " name cannot hold " + what_byte);
  }
  return name;
}

std::optional<Command> ScriptReader::Impl::next() {
  std::optional<const Node*> cmd = reader_.next();
  if (!cmd) return std::nullopt;
  const std::size_t names = names_.mark();
  const std::size_t sorts = sorts_.mark();
  expansion_steps_ = 0;
  try {
    Command out = command(**cmd);
    commit_named();
    return out;
  } catch (...) {
    // A refused command leaves no trace: let variables, parameters and names
    // it bound are taken back.
    names_.restore(names);
    sorts_.restore(sorts);
    pending_.clear();
    in_function_ = false;
    noting_ = false;
    throw;
  }
}

std::string ScriptReader::Impl::message(const InputError& e) const {
  return file_name_ + ":" + std::to_string(e.pos().line) + ":" + std::to_string(e.pos().column) +
         ": " + e.message();
}

std::string ScriptReader::Impl::new_symbol(const Node& n, const char* what) const {
  std::string name = script_name(n, what);
  if (names_.find(name) != nullptr) {
    throw InputError(n.pos, quote(n) + " is already declared");
  }
  return name;
}

Command ScriptReader::Impl::command(const Node& cmd) {
  if (cmd.children.empty()) throw InputError(cmd.pos, "empty command '()'");
  const Node& head = *cmd.children[0];
  if (!head.is_symbol()) throw InputError(head.pos, "expected a command name, got " + quote(head));
  const std::string& name = head.text;
  const std::vector<const Node*>& c = cmd.children;
  Command out;
  out.pos = cmd.pos;
  for (const Plain& p : kPlain) {
    if (p.name != name) continue;
    expect_arguments(cmd, 0, ("(" + name + ")").c_str());
    out.kind = p.kind;
    if (p.kind == Kind::Reset) reset();
    if (p.kind == Kind::ResetAssertions) pop(depth_);
    return out;
  }
  if (name == "set-logic") {
    expect_arguments(cmd, 1, "(set-logic QF_BV)");
    if (!c[1]->is_symbol()) throw InputError(c[1]->pos, "expected a logic, got " + quote(*c[1]));
    const std::string& logic = c[1]->text;
    if (logic != "QF_BV" && logic != "QF_ABV" && logic != "QF_AUFBV") {
      throw InputError(c[1]->pos, "logic " + quote(*c[1]) +
                                      " is not supported: only QF_BV, QF_ABV and QF_AUFBV are");
    }
    arrays_ = logic != "QF_BV";
    out.kind = Kind::SetLogic;
    out.name = c[1]->text;
  } else if (name == "set-info" || name == "set-option") {
    out.kind = name == "set-info" ? Kind::SetInfo : Kind::SetOption;
    attribute(cmd, out, true);
  } else if (name == "get-info" || name == "get-option") {
    out.kind = name == "get-info" ? Kind::GetInfo : Kind::GetOption;
    attribute(cmd, out, false);
  } else if (name == "declare-const" || name == "declare-fun") {
    declare(cmd, out);
  } else if (name == "define-fun") {
    define_fun(cmd, out);
  } else if (name == "define-const") {
    define_const(cmd, out);
  } else if (name == "define-sort") {
    define_sort(cmd, out);
  } else if (name == "assert") {
    expect_arguments(cmd, 1, "(assert TERM)");
    out.kind = Kind::Assert;
    if (keep_written_) {
      noting_ = true;
      if (note_stamp_ == std::numeric_limits<std::uint32_t>::max()) {
        notes_.clear();  // the stamps are about to repeat: forget every old note
        note_stamp_ = 0;
      }
      ++note_stamp_;
    }
    out.term = term(*c[1], mgr_->bool_type());
    if (noting_) {
      out.form = written_form(*c[1]);
      noting_ = false;
    }
  } else if (name == "check-sat-assuming") {
    expect_arguments(cmd, 1, "(check-sat-assuming (LITERAL ...))");
    out.kind = Kind::CheckSatAssuming;
    terms(*c[1], out, false);
  } else if (name == "get-value") {
    expect_arguments(cmd, 1, "(get-value (TERM ...))");
    out.kind = Kind::GetValue;
    terms(*c[1], out, true);
  } else if (name == "push" || name == "pop") {
    out.kind = name == "push" ? Kind::Push : Kind::Pop;
    out.count = levels(cmd);
    name == "push" ? push(out.count) : pop(out.count);
  } else if (name == "echo") {
    expect_arguments(cmd, 1, "(echo \"TEXT\")");
    if (c[1]->kind != Node::Kind::String) {
      throw InputError(c[1]->pos, "echo expects a string, got " + quote(*c[1]));
    }
    out.kind = Kind::Echo;
    out.name = c[1]->text;
  } else {
    unsupported(cmd, out);
  }
  return out;
}

void ScriptReader::Impl::unsupported(const Node& cmd, Command& out) {
  const Node& head = *cmd.children[0];
  for (std::string_view name : kUnsupported) {
    if (name != head.text) continue;
    out.kind = Kind::Unsupported;
    out.name = head.text;
    return;
  }
  for (const Refused& r : kRefused) {
    if (r.name == head.text) throw InputError(head.pos, r.reason);
  }
  throw InputError(head.pos, "unknown command " + quote(head));
}

void ScriptReader::Impl::attribute(const Node& cmd, Command& out, bool with_value) {
  const std::vector<const Node*>& c = cmd.children;
  if (c.size() < 2 || c.size() > (with_value ? 3U : 2U)) {
    const std::string usage = "(" + c[0]->text + (with_value ? " :KEYWORD VALUE)" : " :KEYWORD)");
    expect_arguments(cmd, with_value && c.size() > 2 ? 2 : 1, usage.c_str());
  }
  if (c[1]->kind != Node::Kind::Keyword) {
    throw InputError(c[1]->pos, "expected a keyword such as :name, got " + quote(*c[1]));
  }
  out.name = c[1]->text;
  if (c.size() == 3) out.attribute = c[2];
}

void ScriptReader::Impl::declare(const Node& cmd, Command& out) {
  const std::vector<const Node*>& c = cmd.children;
  const Node* sort_node = nullptr;
  if (c[0]->text == "declare-const") {
    expect_arguments(cmd, 2, "(declare-const NAME SORT)");
    sort_node = c[2];
  } else {
    expect_arguments(cmd, 3, "(declare-fun NAME () SORT)");
    if (!c[2]->is_list()) {
      throw InputError(c[2]->pos, "expected the argument sorts '()', got " + quote(*c[2]));
    }
    if (!c[2]->children.empty()) {
      throw InputError(c[2]->pos, "functions with arguments are not supported: the logic is QF_BV");
    }
    sort_node = c[3];
  }
  std::string name = new_symbol(*c[1], "constant");
  const DataType* type = sort(*sort_node);
  out.kind = Kind::DeclareConst;
  out.term = mgr_->make_constant(name, type);
  out.name = name;
  names_.bind(name, {out.term, nullptr});
  declared_.push_back(out.term);
}

void ScriptReader::Impl::define_fun(const Node& cmd, Command& out) {
  const std::vector<const Node*>& c = cmd.children;
  expect_arguments(cmd, 4, "(define-fun NAME ((PARAM SORT) ...) SORT TERM)");
  std::string name = new_symbol(*c[1], "function");
  if (!c[2]->is_list()) {
    throw InputError(c[2]->pos, "expected the parameter list, got " + quote(*c[2]));
  }
  out.kind = Kind::DefineFun;
  out.name = name;
  const std::size_t mark = names_.mark();
  Function f;
  for (const Node* p : c[2]->children) {
    if (!p->is_list() || p->children.size() != 2) {
      throw InputError(p->pos, "expected a parameter (NAME SORT), got " + quote(*p));
    }
    std::string param = script_name(*p->children[0], "parameter");
    const DataType* type = sort(*p->children[1]);
    // A name nobody can write (it holds a bar), so no declared constant is
    // ever taken for a parameter.
    f.params.push_back(mgr_->make_constant(name + "|" + std::to_string(f.params.size()), type));
    names_.bind(param, {f.params.back(), nullptr});
  }
  const DataType* type = sort(*c[3]);
  in_function_ = !f.params.empty();
  f.body = term(*c[4], type);
  in_function_ = false;
  names_.restore(mark);
  if (f.params.empty()) {
    out.term = f.body;
    names_.bind(name, {f.body, nullptr, WrittenTerm::Role::Defined});
    return;
  }
  functions_.push_back(std::move(f));
  names_.bind(name, {nullptr, &functions_.back()});
}

// (define-const NAME SORT TERM) is (define-fun NAME () SORT TERM).
void ScriptReader::Impl::define_const(const Node& cmd, Command& out) {
  const std::vector<const Node*>& c = cmd.children;
  expect_arguments(cmd, 3, "(define-const NAME SORT TERM)");
  std::string name = new_symbol(*c[1], "constant");
  const DataType* type = sort(*c[2]);
  out.kind = Kind::DefineFun;
  out.name = name;
  out.term = term(*c[3], type);
  names_.bind(name, {out.term, nullptr, WrittenTerm::Role::Defined});
}

void ScriptReader::Impl::define_sort(const Node& cmd, Command& out) {
  const std::vector<const Node*>& c = cmd.children;
  expect_arguments(cmd, 3, "(define-sort NAME () SORT)");
  std::string name = script_name(*c[1], "sort");
  if (name == "Bool" || name == "BitVec" || name == "Array" || sorts_.find(name) != nullptr) {
    throw InputError(c[1]->pos, "sort " + quote(*c[1]) + " is already declared");
  }
  if (!c[2]->is_list() || !c[2]->children.empty()) {
    throw InputError(c[2]->pos, "sorts with parameters are not supported, got " + quote(*c[2]));
  }
  out.kind = Kind::DefineSort;
  out.name = name;
  sorts_.bind(name, sort(*c[3]));
}

void ScriptReader::Impl::terms(const Node& list, Command& out, bool written) {
  if (!list.is_list() || (written && list.children.empty())) {
    throw InputError(list.pos, std::string("expected a ") + (written ? "non-empty " : "") +
                                   "list of terms, got " + quote(list));
  }
  for (const Node* n : list.children) {
    out.terms.push_back(term(*n, written ? nullptr : mgr_->bool_type()));
    if (written) out.written.push_back(source_text(*n));
  }
}

std::size_t ScriptReader::Impl::levels(const Node& cmd) const {
  const std::vector<const Node*>& c = cmd.children;
  const std::string name = c[0]->text;
  std::size_t n = 1;
  if (c.size() > 1) {
    expect_arguments(cmd, 1, name == "push" ? "(push N)" : "(pop N)");
    if (c[1]->kind != Node::Kind::Numeral) {
      throw InputError(c[1]->pos, "expected a numeral, got " + quote(*c[1]));
    }
    n = saturated_value(c[1]->text);
  }
  const Position at = c.size() > 1 ? c[1]->pos : c[0]->pos;
  // The count as written: a saturated one would print as another number.
  const std::string levels = (c.size() > 1 ? c[1]->text : "1") + (n == 1 ? " level" : " levels");
  if (name == "pop" && n > depth_) {
    throw InputError(at, "cannot pop " + levels + ": " + std::to_string(depth_) + " open");
  }
  if (name == "push" && n > kMaxLevels - depth_) {
    throw InputError(at, "cannot push " + levels + ": " + std::to_string(depth_) +
                             " open, and at most " + std::to_string(kMaxLevels) + " can be");
  }
  return n;
}

void ScriptReader::Impl::push(std::size_t count) {
  if (count == 0) return;
  Level here{names_.mark(), sorts_.mark(), functions_.size(), declared_.size(), named_.size(), 0};
  // Levels opened with nothing declared between them share one entry, so
  // that (push 1000000000) costs no memory.
  if (levels_.empty() || levels_.back().names != here.names || levels_.back().sorts != here.sorts) {
    levels_.push_back(here);
  }
  levels_.back().count += count;
  depth_ += count;
}

void ScriptReader::Impl::pop(std::size_t count) {
  depth_ -= count;
  while (count > 0) {
    Level& top = levels_.back();
    std::size_t take = std::min(count, top.count);
    top.count -= take;
    count -= take;
    names_.restore(top.names);
    sorts_.restore(top.sorts);
    functions_.resize(top.functions);
    declared_.resize(top.declared);
    named_.resize(top.named);
    if (top.count == 0) levels_.pop_back();
  }
}

void ScriptReader::Impl::reset() {
  names_.clear();
  sorts_.clear();
  functions_.clear();
  levels_.clear();
  declared_.clear();
  named_.clear();
  depth_ = 0;
  arrays_ = true;
}

// --- ScriptReader --------------------------------------------------------------

ScriptReader::ScriptReader(std::istream& in, TermManager* mgr, std::string file_name)
    : impl_(std::make_unique<Impl>(in, mgr, std::move(file_name))) {}

ScriptReader::~ScriptReader() = default;

std::optional<Command> ScriptReader::next() {
  return impl_->next();
}

void ScriptReader::keep_written(bool on) {
  impl_->keep_written_ = on;
}

const std::vector<const Term*>& ScriptReader::declared() const {
  return impl_->declared_;
}

const std::vector<std::pair<std::string, const Term*>>& ScriptReader::named() const {
  return impl_->named_;
}

std::size_t ScriptReader::depth() const {
  return impl_->depth_;
}

std::string ScriptReader::message(const InputError& e) const {
  return impl_->message(e);
}

std::optional<ScriptReader::Head> ScriptReader::last_command() const {
  const Node* cmd = impl_->last_command();
  if (cmd == nullptr) return std::nullopt;
  Head head{{}, cmd->pos};
  if (!cmd->children.empty() && cmd->children[0]->is_symbol()) head.name = cmd->children[0]->text;
  return head;
}

std::string name_of(const Term* constant) {
  return constant_name(constant);
}

}  // namespace kora::smtlib
