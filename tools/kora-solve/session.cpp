#include "kora-solve/session.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

#include "kora/smtlib/printer.h"

namespace kora::solve {

namespace {

using Kind = smtlib::Command::Kind;

// text as an SMT-LIB string literal.
std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    out += c;
    if (c == '"') out += '"';
  }
  return out + "\"";
}

// A message on one line with no control character, whatever names, input
// or a solver's output it quotes: a line break or tab becomes a space,
// another control character its code.
std::string printable(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    const auto u = static_cast<unsigned char>(c);
    if (u >= 32 && u != 127) {
      out += c;
    } else if (c == '\n' || c == '\r' || c == '\t') {
      out += ' ';
    } else {
      char code[8];
      std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned>(u));
      out += code;
    }
  }
  return out;
}

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

}  // namespace

Session::Session(const Backend& backend, SessionOptions options, std::ostream& out,
                 std::ostream& err)
    : backend_(backend), options_(std::move(options)), out_(out), err_(err) {}

int Session::run(std::istream& in, const std::string& file_name) {
  smtlib::ScriptReader reader(in, &mgr_, file_name);
  reader.keep_written(options_.check.written_form);
  for (;;) {
    auto start = Clock::now();
    std::optional<smtlib::Command> c;
    try {
      c = reader.next();
    } catch (const smtlib::InputError& e) {
      read_seconds_ += seconds_since(start);
      error(reader.message(e));
      refused(reader);
      if (!out_.flush()) return output_failed();
      continue;
    }
    read_seconds_ += seconds_since(start);
    if (!c) break;
    if (c->kind == Kind::Exit) {
      success();
      break;
    }
    try {
      execute(*c, reader);
    } catch (const BackendMissing&) {
      throw;
    } catch (const std::exception& e) {
      // A command that failed half-way is a refused one (out of memory, say).
      error(e.what());
      refused(reader);
    }
    if (!out_.flush()) return output_failed();
  }
  if (!out_.flush()) return output_failed();
  return refused_ ? 1 : 0;
}

int Session::output_failed() {
  const int e = errno;
  err_ << "kora-solve: cannot write the answers to standard output";
  if (e != 0) err_ << ": " << std::strerror(e);
  err_ << '\n';
  return 2;
}

// A refused command that may have changed the problem keeps every check-sat
// from answering for as long as it would be in force; refused assumptions
// leave their check-sat without an answer.
void Session::refused(const smtlib::ScriptReader& reader) {
  std::optional<smtlib::ScriptReader::Head> head = reader.last_command();
  if (!head) return;
  if (head->name == "check-sat-assuming") {
    return answer_unknown("the check-sat-assuming at line " + std::to_string(head->pos.line) +
                          " was refused");
  }
  if (Refusals::changes_problem(head->name)) refusals_.refused(head->name, head->pos.line, depth_);
}

void Session::answer_unknown(const std::string& reason) {
  model_.reset();
  answered_ = true;
  status_ = Status::Unknown;
  reason_ = reason;
  out_ << "unknown\n";
}

void Session::execute(const smtlib::Command& c, const smtlib::ScriptReader& reader) {
  switch (c.kind) {
    case Kind::SetOption:
      return set_option(c);
    case Kind::Assert:
      assertions_.push_back(c.term);
      forms_.push_back(c.form);
      answered_ = false;
      return success();
    case Kind::CheckSat:
      return check({}, reader);
    case Kind::CheckSatAssuming:
      return check(c.terms, reader);
    case Kind::GetModel:
      if (need_model()) {
        smtlib::print_model(out_, mgr_, reader.declared(), *model_);
      }
      return;
    case Kind::GetValue:
      return get_value(c);
    case Kind::GetAssignment:
      return get_assignment(reader);
    case Kind::GetInfo:
      return get_info(c.name);
    case Kind::GetOption:
      return get_option(c.name);
    case Kind::Unsupported:
      out_ << "unsupported\n";
      return;
    case Kind::Push:
      push(c.count);
      return success();
    case Kind::Pop:
      pop(c.count);
      return success();
    case Kind::Reset:
      success();
      pop(depth_);
      assertions_.clear();
      forms_.clear();
      refusals_.cleared();
      print_success_ = false;
      produce_models_ = false;
      produce_assignments_ = false;
      return;
    case Kind::ResetAssertions:
      pop(depth_);
      assertions_.clear();
      forms_.clear();
      refusals_.cleared();
      return success();
    case Kind::Echo:
      out_ << quoted(c.name) << '\n';
      return;
    default:  // set-logic, set-info, declarations and definitions
      return success();
  }
}

// Levels opened with no assertion between them share one entry, so that
// (push N) costs the same for every N.
void Session::push(std::size_t levels) {
  if (levels == 0) return;
  if (scopes_.empty() || scopes_.back().assertions != assertions_.size()) {
    scopes_.push_back({assertions_.size(), 0});
  }
  scopes_.back().count += levels;
  depth_ += levels;
  answered_ = false;
}

void Session::pop(std::size_t levels) {
  // The reader has already refused a pop of more levels than are open.
  levels = std::min(levels, depth_);
  depth_ -= levels;
  while (levels > 0) {
    Level& top = scopes_.back();
    const std::size_t take = std::min(levels, top.count);
    top.count -= take;
    levels -= take;
    assertions_.resize(top.assertions);
    forms_.resize(top.assertions);
    if (top.count == 0) scopes_.pop_back();
  }
  refusals_.popped(depth_);
  answered_ = false;
}

void Session::check(const std::vector<const Term*>& assumptions,
                    const smtlib::ScriptReader& reader) {
  std::vector<const Term*> all = assertions_;
  all.insert(all.end(), assumptions.begin(), assumptions.end());
  if (std::string why = refusals_.reason(); !why.empty()) {
    answer_unknown(why);
    if (options_.stats) {
      CheckStats stats;
      stats.assertions = all.size();
      stats.read_seconds = std::exchange(read_seconds_, 0);
      err_ << stats_line(Status::Unknown, stats) << '\n' << std::flush;
    }
    return;
  }
  WrittenInput written{reader.declared(), {}};
  written.forms.reserve(all.size());
  for (const auto& f : forms_) written.forms.push_back(f.get());
  written.forms.resize(all.size(), nullptr);  // assumptions: printed by the term printer
  model_.reset();
  answered_ = true;
  status_ = Status::Unknown;
  CheckResult result;
  try {
    result = check_sat(mgr_, backend_, all, options_.check, err_, &written);
  } catch (const BackendMissing&) {
    throw;
  } catch (const std::exception& e) {
    reason_ = e.what();
    error(e.what());
    return;
  }
  out_ << to_string(result.status) << '\n';
  result.stats.read_seconds = read_seconds_;
  read_seconds_ = 0;
  if (options_.stats) err_ << stats_line(result.status, result.stats) << '\n' << std::flush;
  add_stats(total_, result.stats);
  status_ = result.status;
  reason_ = result.reason.empty() ? "unknown" : result.reason;
  model_ = std::move(result.model);
}

void Session::set_option(const smtlib::Command& c) {
  bool is_bool = c.attribute != nullptr &&
                 (c.attribute->is_reserved("true") || c.attribute->is_reserved("false"));
  if (c.name == ":print-success" || c.name == ":produce-models" ||
      c.name == ":produce-assignments") {
    if (!is_bool) return error(c.name + " expects true or false");
    const bool on = c.attribute->is_reserved("true");
    if (c.name == ":print-success") {
      print_success_ = on;
    } else if (c.name == ":produce-models") {
      produce_models_ = on;
    } else {
      produce_assignments_ = on;
    }
    return success();
  }
  out_ << "unsupported\n";
}

void Session::get_info(const std::string& keyword) {
  if (keyword == ":name") {
    out_ << "(:name \"kora-solve\")\n";
  } else if (keyword == ":version") {
    out_ << "(:version \"" << KORA_VERSION << "\")\n";
  } else if (keyword == ":error-behavior") {
    out_ << "(:error-behavior continued-execution)\n";
  } else if (keyword == ":reason-unknown") {
    if (!answered_ || status_ != Status::Unknown) {
      return error("no reason to give: the last check-sat did not answer unknown");
    }
    const std::string why = printable(reason_);
    out_ << "(:reason-unknown " << (smtlib::is_simple_symbol(why) ? why : quoted(why)) << ")\n";
  } else if (keyword == ":all-statistics") {
    out_ << stats_line(status_, total_) << '\n';
  } else {
    out_ << "unsupported\n";
  }
}

void Session::get_option(const std::string& keyword) {
  if (keyword == ":print-success") {
    out_ << (print_success_ ? "true" : "false") << '\n';
  } else if (keyword == ":produce-models") {
    out_ << (produce_models_ ? "true" : "false") << '\n';
  } else if (keyword == ":produce-assignments") {
    out_ << (produce_assignments_ ? "true" : "false") << '\n';
  } else {
    out_ << "unsupported\n";
  }
}

bool Session::need_model() {
  if (model_ && answered_) return true;
  error("no model available: the last check-sat did not answer sat");
  return false;
}

const Term* Session::value_of(const Term* t) {
  const Term* v = model_->get_normalized(t);
  if (is_model_value(v)) return v;
  // Constants declared after the check-sat take their defaults.
  int assigned = 0;
  model_->assign_free_constants(t, &assigned);
  return model_->get_normalized(t);
}

void Session::get_value(const smtlib::Command& c) {
  if (!need_model()) return;
  out_ << '(';
  for (std::size_t i = 0; i < c.terms.size(); ++i) {
    out_ << (i > 0 ? " (" : "(") << c.written[i] << ' ';
    smtlib::print_value(out_, mgr_, value_of(c.terms[i]));
    out_ << ')';
  }
  out_ << ")\n";
}

void Session::get_assignment(const smtlib::ScriptReader& reader) {
  if (!need_model()) return;
  out_ << '(';
  bool first = true;
  for (const auto& [name, term] : reader.named()) {
    out_ << (first ? "(" : " (") << smtlib::quote_symbol(name) << ' '
         << (value_of(term) == mgr_.true_term() ? "true" : "false") << ')';
    first = false;
  }
  out_ << ")\n";
}

void Session::success() {
  if (print_success_) out_ << "success\n";
}

void Session::error(const std::string& message) {
  refused_ = true;
  out_ << "(error " << quoted(printable(message)) << ")\n";
}

}  // namespace kora::solve
