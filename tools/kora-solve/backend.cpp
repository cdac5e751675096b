#include "kora-solve/backend.h"

#include <algorithm>
#include <istream>
#include <optional>
#include <sstream>
#include <unordered_map>
#include <utility>

#include "kora-solve/response.h"

namespace kora::solve {

namespace {

// How long a solver that was told to exit gets before it is killed.
constexpr auto kExitGrace = std::chrono::milliseconds(500);
// How much of the solver's standard error goes into a message.
constexpr std::size_t kQuotedErrors = 2000;

Answer timed_out() {
  return Answer{Status::Unknown, {}, "timeout"};
}

std::optional<Status> status_named(std::string_view word) {
  if (word == "sat") return Status::Sat;
  if (word == "unsat") return Status::Unsat;
  if (word == "unknown") return Status::Unknown;
  return std::nullopt;
}

std::string trimmed(std::string_view text) {
  auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  auto last = text.find_last_not_of(" \t\r\n");
  return std::string(text.substr(first, last - first + 1));
}

std::string missing_message(const std::string& name, const std::string& package,
                            const SpawnError& e) {
  if (package.empty()) return e.what() + std::string(" (is it installed and on the PATH?)");
  return "the solver " + name + " is not installed: install the Debian package " + package +
         " (apt-get install " + package + ")";
}

// One run of a solver: the process, its output as a stream, and messages
// that say what went wrong with the solver's own words attached. The
// process dies with this object, however the run ends.
class Run {
 public:
  Run(const std::string& name, const std::vector<std::string>& argv, const std::string& package,
      Deadline deadline)
      : name_(name), deadline_(deadline) {
    try {
      process_.emplace(argv);
    } catch (const SpawnError& e) {
      if (e.missing()) throw BackendMissing(missing_message(name, package, e), {});
      throw BackendError(name + ": " + e.what(), {});
    }
    output_.emplace(*process_, deadline);
    stream_.emplace(&*output_);
    reader_.emplace(*stream_);
  }

  Process& process() { return *process_; }
  ResponseReader& reader() { return *reader_; }
  bool timed_out() const { return output_->status() == IoStatus::TimedOut; }

  // False when the deadline passed; a solver that stopped reading is not an
  // error here: what it said is read next.
  bool send(std::string_view text) {
    IoStatus s = process_->write(text, deadline_);
    if (s == IoStatus::Overflow) fail("wrote more output than kora accepts");
    return s != IoStatus::TimedOut;
  }

  Status expect_status(const Reply& r) {
    if (output_->status() == IoStatus::Overflow) fail("wrote more output than kora accepts");
    if (r.kind == Reply::Kind::Word) {
      if (auto s = status_named(r.text)) return *s;
    }
    switch (r.kind) {
      case Reply::Kind::End:
        fail("ended without an answer");
      case Reply::Kind::Error:
        fail("answered (error \"" + r.text + "\")");
      default:
        fail("gave the unexpected answer '" + r.text + "'");
    }
  }

  // Waits for what is left to read no longer than a solver is given to exit:
  // for an answer that a solver may not give.
  void wait_briefly() {
    output_->set_deadline(std::min<Deadline>(deadline_, Clock::now() + kExitGrace));
  }

  // Lets the solver exit on its own for a moment before it is killed.
  void finish() {
    process_->close_input();
    process_->wait(std::min<Deadline>(deadline_, Clock::now() + kExitGrace));
  }

  [[noreturn]] void fail(const std::string& what) {
    std::string message = name_ + " " + what;
    process_->close_input();
    // A solver that failed usually exits right after; its status says how.
    if (auto status = process_->wait(std::min<Deadline>(deadline_, Clock::now() + kExitGrace))) {
      message += " (" + status->describe() + ")";
    }
    process_->collect_error_output();
    std::string errors = trimmed(process_->error_output());
    if (!errors.empty()) {
      bool cut = errors.size() > kQuotedErrors || process_->error_bytes_dropped() > 0;
      message += "; its standard error: " + errors.substr(0, kQuotedErrors) + (cut ? " ..." : "");
    }
    throw BackendError(message, process_->error_output());
  }

 private:
  std::string name_;
  Deadline deadline_;
  std::optional<Process> process_;
  std::optional<OutputBuffer> output_;
  std::optional<std::istream> stream_;
  std::optional<ResponseReader> reader_;
};

std::string get_value_command(const std::vector<ValueRequest>& requests) {
  std::string command = "(get-value (";
  for (std::size_t i = 0; i < requests.size(); ++i) {
    if (i > 0) command += ' ';
    command += requests[i].term;
  }
  return command + "))\n";
}

std::string with_newline(std::string text) {
  if (!text.empty() && text.back() != '\n') text += '\n';
  return text;
}

// A back end that runs a program: its command line, and the Debian package
// to suggest when it is missing.
class ChildBackend : public Backend {
 public:
  ChildBackend(std::string name, std::vector<std::string> argv, std::string package)
      : Backend(std::move(name)), argv_(std::move(argv)), package_(std::move(package)) {}

 protected:
  Run start(Deadline deadline) const { return Run(name(), argv_, package_, deadline); }

 private:
  std::vector<std::string> argv_;
  std::string package_;
};

class InteractiveBackend final : public ChildBackend {
 public:
  using ChildBackend::ChildBackend;

  Answer check(const std::string& script, const std::vector<ValueRequest>& requests,
               Deadline deadline) const override {
    Run run = start(deadline);
    // Models on before the logic is set: some solvers refuse the option later.
    if (!run.send("(set-option :produce-models true)\n" + with_newline(script) + "(check-sat)\n")) {
      return timed_out();
    }
    Reply reply = run.reader().next_answer();
    if (run.timed_out()) return timed_out();
    Answer answer{run.expect_status(reply), {}, {}};
    if (answer.status == Status::Sat && !requests.empty()) {
      if (!run.send(get_value_command(requests))) return timed_out();
      try {
        answer.values = run.reader().values(requests);
      } catch (const std::runtime_error& e) {
        if (run.timed_out()) return timed_out();
        run.fail(e.what());
      }
    }
    if (answer.status == Status::Unknown) {
      if (!run.send("(get-info :reason-unknown)\n")) return timed_out();
      // The reason is a courtesy: a solver that ignores the question still
      // answered unknown.
      run.wait_briefly();
      answer.reason = run.reader().reason_unknown();
      if (run.timed_out()) return answer;
    }
    if (run.send("(exit)\n")) run.finish();
    return answer;
  }
};

std::string unquoted(std::string_view name) {
  if (name.size() >= 2 && name.front() == '|' && name.back() == '|') {
    return std::string(name.substr(1, name.size() - 2));
  }
  return std::string(name);
}

// The model lines `NAME BITS` after the status line; an unassigned bit
// ('x', "don't care") is taken as 0.
std::unordered_map<std::string, std::string> model_lines(std::istream& in) {
  std::unordered_map<std::string, std::string> model;
  std::string line;
  while (std::getline(in, line)) {
    std::string text = trimmed(line);
    auto blank = text.find_last_of(" \t");
    if (blank == std::string::npos) continue;
    std::string bits = text.substr(blank + 1);
    std::replace(bits.begin(), bits.end(), 'x', '0');
    model[unquoted(trimmed(text.substr(0, blank)))] = std::move(bits);
  }
  return model;
}

std::optional<Value> model_value(const std::string& bits, const ValueRequest& r) {
  if (bits.empty() || bits.find_first_not_of("01") != std::string::npos) return std::nullopt;
  if (r.width == 0) {
    if (bits.size() != 1) return std::nullopt;
    return Value::boolean(bits == "1");
  }
  if (bits.size() != r.width) return std::nullopt;
  return Value::bitvector(bits);
}

class ModelLinesBackend final : public ChildBackend {
 public:
  using ChildBackend::ChildBackend;

  // Boolector 1.5 refuses define-fun, and n-ary bit-vector operators.
  bool reads_define_fun() const noexcept override { return false; }
  bool reads_chains() const noexcept override { return false; }

  Answer check(const std::string& script, const std::vector<ValueRequest>& requests,
               Deadline deadline) const override {
    for (const ValueRequest& r : requests) {
      if (!r.sort.empty()) {
        throw BackendError(name() + " cannot give the values of arrays (" + r.term +
                               "): use z3 or cvc5 for scripts with arrays",
                           {});
      }
    }
    Run run = start(deadline);
    if (!run.send(with_newline(script) + "(check-sat)\n(exit)\n")) return timed_out();
    run.process().close_input();
    std::string out;
    IoStatus s = run.process().read_all(out, deadline);
    if (s == IoStatus::TimedOut || !run.process().wait(deadline)) return timed_out();
    if (s == IoStatus::Overflow) run.fail("wrote more output than kora accepts");
    if (run.process().exit_status()->signaled) run.fail("crashed");
    return parse(run, out, requests);
  }

 private:
  Answer parse(Run& run, const std::string& out, const std::vector<ValueRequest>& requests) const {
    std::istringstream in(out);
    std::string line;
    // Boolector writes its warnings ("[btorsmt2] WARNING ...") on standard output.
    while (std::getline(in, line) && (trimmed(line).empty() || line[0] == '[')) {
    }
    std::string first = trimmed(line);
    auto status = status_named(first);
    if (!status) {
      run.fail(first.empty() ? "ended without an answer"
                             : "gave the unexpected answer '" + first.substr(0, 200) + "'");
    }
    Answer answer{*status, {}, {}};
    if (answer.status != Status::Sat) return answer;
    auto model = model_lines(in);
    for (const ValueRequest& r : requests) {
      auto it = model.find(unquoted(r.term));
      std::optional<Value> v;
      if (it != model.end()) v = model_value(it->second, r);
      if (!v) run.fail("gave no usable value for " + r.term);
      answer.values.push_back(std::move(*v));
    }
    return answer;
  }
};

}  // namespace

const char* to_string(Status status) noexcept {
  switch (status) {
    case Status::Sat:
      return "sat";
    case Status::Unsat:
      return "unsat";
    default:
      return "unknown";
  }
}

std::string Value::text() const {
  if (!array.empty()) return array;
  if (is_bool) return truth ? "true" : "false";
  if (bits.size() % 4 != 0) return "#b" + bits;
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out = "#x";
  for (std::size_t i = 0; i < bits.size(); i += 4) {
    int d = 0;
    for (std::size_t j = i; j < i + 4; ++j) d = d * 2 + (bits[j] == '1' ? 1 : 0);
    out += kDigits[d];
  }
  return out;
}

std::vector<std::string> split_command(std::string_view line) {
  std::vector<std::string> words;
  std::size_t i = 0;
  while (i < line.size()) {
    i = line.find_first_not_of(" \t", i);
    if (i == std::string_view::npos) break;
    std::size_t end = std::min(line.find_first_of(" \t", i), line.size());
    words.emplace_back(line.substr(i, end - i));
    i = end;
  }
  return words;
}

std::unique_ptr<Backend> make_interactive_backend(std::string name, std::vector<std::string> argv,
                                                  std::string package) {
  return std::make_unique<InteractiveBackend>(std::move(name), std::move(argv), std::move(package));
}

std::unique_ptr<Backend> make_model_lines_backend(std::string name, std::vector<std::string> argv,
                                                  std::string package) {
  return std::make_unique<ModelLinesBackend>(std::move(name), std::move(argv), std::move(package));
}

std::unique_ptr<Backend> make_backend(std::string_view spec) {
  if (spec == "z3") return make_interactive_backend("z3", {"z3", "-in", "-smt2"}, "z3");
  // Models on; cvc5's own unconstrained simplification is never asked for:
  // it cannot produce models.
  if (spec == "cvc5") {
    return make_interactive_backend("cvc5", {"cvc5", "--lang", "smt2", "--produce-models"}, "cvc5");
  }
  if (spec == "boolector") {
    return make_model_lines_backend("boolector", {"boolector", "--smt2", "-m"}, "boolector");
  }
  if (spec.substr(0, 4) == "cmd:") {
    auto argv = split_command(spec.substr(4));
    if (argv.empty()) throw std::invalid_argument("--solver cmd: needs a command line");
    std::string name = argv[0];
    return make_interactive_backend(std::move(name), std::move(argv), {});
  }
  throw std::invalid_argument("unknown solver '" + std::string(spec) +
                              "' (expected z3, cvc5, boolector or cmd:COMMAND LINE)");
}

}  // namespace kora::solve
