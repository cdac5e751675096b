#include "kora-adhoc/session.h"

#include <algorithm>
#include <climits>
#include <ostream>
#include <utility>

#include "kora-adhoc/elaborator.h"
#include "kora/calculators/adhoc_calculator.h"
#include "kora/calculators/calculator_table.h"
#include "kora/model/model_store.h"
#include "kora/terms/term_manager.h"

namespace kora::frontend {

namespace {

using adhoccalculator::AdHocCalculator;
using adhoccalculator::CalculatorTable;
using adhoccalculator::SetFreeTermPredicate;

// Keeps a response on one line: a message may quote input or a calculator
// message with newlines, and a quote would end the string early.
std::string escape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c == '"') {
      out += "\"\"";
    } else if (c == '\n') {
      out += "\\n";
    } else {
      out += c;
    }
  }
  return out;
}

std::string error_response(const std::string& message) {
  return "(error \"" + escape(message) + "\")";
}

using smtlib::expect_arguments;
using smtlib::quote;

// Where a message about a term points: its operator when it has one.
Position operator_pos(const Node& n) {
  return n.is_list() && !n.children.empty() ? n.children[0]->pos : n.pos;
}

}  // namespace

class Session::Impl {
 public:
  Impl(std::ostream& out, std::ostream& err, Options options)
      : out_(out), err_(err), options_(std::move(options)) {
    fresh_state(options_.verbosity);
  }

  bool process(std::istream& in, const std::string& file_name);

  bool exited = false;
  bool ok = true;

 private:
  // Everything that (reset) forgets. Members are built in order and torn
  // down in reverse, so the calculators go before what they point to.
  struct State {
    State(std::ostream& err, int verbosity, const InverterFactory& make_inverter)
        : store(&mgr, &err), table(&mgr, &store, &free), elab(&mgr) {
      store.logger().set_verbosity(verbosity);
      if (make_inverter) inverter = make_inverter(&mgr, &store, &free);
    }

    TermManager mgr;
    ModelStore store;
    SetFreeTermPredicate free;
    CalculatorTable table;
    std::unique_ptr<Inverter> inverter;
    Elaborator elab;
    // The calculate and invert requests that recorded values: (t, v).
    std::vector<std::pair<const Term*, const Term*>> requests;
  };

  void fresh_state(int verbosity) {
    state_.reset();
    state_ = std::make_unique<State>(err_, verbosity, options_.make_inverter);
  }

  void respond(const std::string& line) {
    out_ << line << '\n';
    responded_ = true;
  }
  // Lists of terms are written piece by piece: one response can hold
  // thousands of values of 2^20 bits each, and building it in one string
  // first would keep them all in memory at once, gigabytes for a few
  // kilobytes of input.
  //   (T1 T2 ...)
  void respond_list(const std::vector<const Term*>& terms, std::size_t from = 0) {
    out_ << '(';
    for (std::size_t i = from; i < terms.size(); ++i) out_ << (i > from ? " " : "") << *terms[i];
    out_ << ")\n";
    responded_ = true;
  }
  //   ((T1 V1) (T2 V2) ...)
  void respond_pairs(const std::vector<std::pair<const Term*, const Term*>>& pairs) {
    out_ << '(';
    for (std::size_t i = 0; i < pairs.size(); ++i) {
      out_ << (i > 0 ? " (" : "(") << *pairs[i].first << ' ' << *pairs[i].second << ')';
    }
    out_ << ")\n";
    responded_ = true;
  }

  void command(const Node& cmd);
  void calculate(const Node& cmd, bool invert);
  void check_model();
  void get_value(const Node& cmd);
  void get_adhoc_values();
  void set_option(const Node& cmd);

  std::ostream& out_;
  std::ostream& err_;
  Options options_;
  std::unique_ptr<State> state_;
  bool responded_ = false;
};

bool Session::Impl::process(std::istream& in, const std::string& file_name) {
  Reader reader(in);
  bool all_ok = true;
  while (!exited) {
    try {
      std::optional<const Node*> cmd = reader.next();
      if (!cmd) break;
      command(**cmd);
    } catch (const InputError& e) {
      respond(error_response(file_name + ":" + std::to_string(e.pos().line) + ":" +
                             std::to_string(e.pos().column) + ": " + e.what()));
      all_ok = false;
    }
    // Answer each command before reading the next, for interactive use.
    if (responded_) out_.flush();
    responded_ = false;
  }
  ok = ok && all_ok;
  return all_ok;
}

void Session::Impl::command(const Node& cmd) {
  if (cmd.children.empty()) throw InputError(cmd.pos, "empty command '()'");
  const Node& head = *cmd.children[0];
  if (!head.is_symbol()) throw InputError(head.pos, "expected a command name, got " + quote(head));
  const std::string& name = head.text;
  const std::vector<const Node*>& c = cmd.children;
  State& s = *state_;

  if (name == "declare-const") {
    expect_arguments(cmd, 2, "(declare-const NAME SORT)");
    s.elab.declare_constant(*c[1], *c[2]);
  } else if (name == "declare-fun") {
    expect_arguments(cmd, 3, "(declare-fun NAME () SORT)");
    if (!c[2]->is_list() || !c[2]->children.empty()) {
      throw InputError(c[2]->pos,
                       "only constants can be declared: the argument sorts must be "
                       "'()', got " +
                           quote(*c[2]));
    }
    s.elab.declare_constant(*c[1], *c[3]);
  } else if (name == "declare-sort") {
    expect_arguments(cmd, 2, "(declare-sort NAME 0)");
    if (c[2]->kind != Node::Kind::Numeral) {
      throw InputError(c[2]->pos, "expected the arity 0, got " + quote(*c[2]));
    }
    if (c[2]->text != "0") {
      throw InputError(c[2]->pos, "only sorts of arity 0 can be declared, got " + quote(*c[2]));
    }
    s.elab.declare_sort(*c[1]);
  } else if (name == "set-model-value") {
    expect_arguments(cmd, 2, "(set-model-value NAME VALUE)");
    const Term* constant = s.elab.constant(*c[1]);
    const Term* value = s.elab.term(*c[2]);
    if (value->type() != constant->type()) {
      throw InputError(c[2]->pos,
                       quote(*c[1]) + " has sort " + shorten(constant->type()->to_string()) +
                           " but the value has sort " + shorten(value->type()->to_string()));
    }
    if (!s.store.is_good_model_value(value)) {
      throw InputError(c[2]->pos,
                       "expected a model value (true, false, a bit-vector literal, "
                       "an abstract value or a constant array of a value), got " +
                           quote(*c[2]));
    }
    s.store.set_value(constant, value);
  } else if (name == "set-free") {
    expect_arguments(cmd, 1, "(set-free TERM)");
    s.free.mark_free(s.elab.term(*c[1]));
  } else if (name == "calculate" || name == "invert") {
    calculate(cmd, name == "invert");
  } else if (name == "check-model") {
    expect_arguments(cmd, 0, "(check-model)");
    check_model();
  } else if (name == "get-value") {
    get_value(cmd);
  } else if (name == "get-constraints") {
    expect_arguments(cmd, 0, "(get-constraints)");
    respond_list(s.store.constraints());
  } else if (name == "get-adhoc-values") {
    expect_arguments(cmd, 0, "(get-adhoc-values)");
    get_adhoc_values();
  } else if (name == "set-option") {
    set_option(cmd);
  } else if (name == "echo") {
    expect_arguments(cmd, 1, "(echo \"TEXT\")");
    if (c[1]->kind != Node::Kind::String) {
      throw InputError(c[1]->pos, "echo expects a string, got " + quote(*c[1]));
    }
    std::string text;
    for (char ch : c[1]->text) text += ch == '\n' ? std::string("\\n") : std::string(1, ch);
    respond(text);
  } else if (name == "reset") {
    expect_arguments(cmd, 0, "(reset)");
    fresh_state(s.store.logger().verbosity());
  } else if (name == "exit") {
    expect_arguments(cmd, 0, "(exit)");
    exited = true;
  } else {
    throw InputError(head.pos, "unknown command " + quote(head));
  }
}

void Session::Impl::calculate(const Node& cmd, bool invert) {
  State& s = *state_;
  const std::vector<const Node*>& c = cmd.children;
  if (invert && s.inverter == nullptr) {
    throw InputError(c[0]->pos, "invert: no complete inverter in this build");
  }
  expect_arguments(cmd, 2, invert ? "(invert TERM VALUE)" : "(calculate TERM VALUE)");
  const Term* t = s.elab.term(*c[1]);
  const Term* v = s.elab.term(*c[2]);
  if (v->type() != t->type()) {
    throw InputError(c[2]->pos, "the value must have the term's sort " +
                                    shorten(t->type()->to_string()) + ", got " +
                                    shorten(v->type()->to_string()));
  }
  if (t->arity() == 0) {
    throw InputError(c[1]->pos, c[0]->text + " needs an operator application, got " + quote(*c[1]));
  }
  std::string op = op_name(t->get_symbol()->op());

  std::size_t before = s.store.constraints().size();
  try {
    if (invert) {
      if (!s.inverter->handles(t)) {
        throw InputError(operator_pos(*c[1]), "invert: no inverter for operator '" + op + "'");
      }
      (*s.inverter)(t, v);
    } else {
      AdHocCalculator* calculator = s.table.find(t);
      if (calculator == nullptr) {
        throw InputError(operator_pos(*c[1]), "no calculator for operator '" + op + "'");
      }
      (*calculator)(t, v);
    }
  } catch (const AdHocCalculator::error& e) {
    // A refusal is an answer, not a malformed command; whatever the
    // calculator recorded before throwing stays in the store.
    respond(error_response(e.what()));
    return;
  }
  const std::vector<const Term*>& constraints = s.store.constraints();
  if (constraints.size() > before) s.requests.emplace_back(t, v);
  respond_list(constraints, before);
}

void Session::Impl::check_model() {
  State& s = *state_;
  struct Violation {
    const Term* t;
    const Term* v;
    const Term* got;
  };
  std::vector<Violation> violations;
  for (const auto& [t, v] : s.requests) {
    const Term* got = s.store.get_normalized(t);
    // v may be any term of t's sort, so it is compared by its value too.
    if (got == s.store.get_normalized(v)) continue;
    violations.push_back({t, v, got});
  }
  if (violations.empty()) {
    respond("(model-ok " + std::to_string(s.requests.size()) + ")");
    return;
  }
  out_ << "(model-violations (";
  for (std::size_t i = 0; i < violations.size(); ++i) {
    const Violation& x = violations[i];
    out_ << (i > 0 ? " (" : "(") << *x.t << ' ' << *x.v << ' ' << *x.got << ')';
  }
  out_ << "))\n";
  responded_ = true;
}

void Session::Impl::get_value(const Node& cmd) {
  State& s = *state_;
  expect_arguments(cmd, 1, "(get-value (TERM ...))");
  const Node& terms = *cmd.children[1];
  if (!terms.is_list() || terms.children.empty()) {
    throw InputError(terms.pos, "get-value expects a non-empty list of terms, got " + quote(terms) +
                                    ": write (get-value (TERM ...))");
  }
  // Every term is checked before anything is printed.
  std::vector<const Term*> ts;
  for (const Node* n : terms.children) ts.push_back(s.elab.term(*n));
  std::vector<std::pair<const Term*, const Term*>> values;
  values.reserve(ts.size());
  for (const Term* t : ts) values.emplace_back(t, s.store.get_normalized(t));
  respond_pairs(values);
}

void Session::Impl::get_adhoc_values() {
  const State& s = *state_;
  std::vector<std::pair<const Term*, const Term*>> entries;
  for (const auto& entry : s.store.adhoc_values) {
    if (entry.second != nullptr) entries.push_back(entry);
  }
  // The table's own order depends on its bucket count; identifiers give an
  // order that a script can rely on.
  std::sort(entries.begin(), entries.end(),
            [](const auto& a, const auto& b) { return a.first->id() < b.first->id(); });
  respond_pairs(entries);
}

void Session::Impl::set_option(const Node& cmd) {
  expect_arguments(cmd, 2, "(set-option :verbosity N)");
  const Node& key = *cmd.children[1];
  const Node& value = *cmd.children[2];
  if (key.kind != Node::Kind::Keyword) {
    throw InputError(key.pos, "expected an option keyword such as :verbosity, got " + quote(key));
  }
  if (key.text != ":verbosity") {
    throw InputError(key.pos,
                     "unsupported option " + quote(key) + ": only :verbosity is supported");
  }
  if (value.kind != Node::Kind::Numeral) {
    throw InputError(value.pos, ":verbosity expects a numeral, got " + quote(value));
  }
  std::size_t level = saturated_value(value.text);
  state_->store.logger().set_verbosity(level > INT_MAX ? INT_MAX : static_cast<int>(level));
}

Session::Session(std::ostream& out, std::ostream& err, Options options)
    : impl_(std::make_unique<Impl>(out, err, std::move(options))) {}

Session::~Session() = default;

bool Session::process(std::istream& in, const std::string& file_name) {
  return impl_->process(in, file_name);
}

bool Session::exited() const noexcept {
  return impl_->exited;
}

bool Session::ok() const noexcept {
  return impl_->ok;
}

int run(std::istream& in, const std::string& file_name, std::ostream& out, std::ostream& err,
        Options options) {
  Session session(out, err, std::move(options));
  session.process(in, file_name);
  return session.ok() ? 0 : 1;
}

}  // namespace kora::frontend
