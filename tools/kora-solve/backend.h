#pragma once

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <string_view>
#include <vector>

#include "kora-solve/process.h"

namespace kora::solve {

enum class Status : unsigned char { Sat, Unsat, Unknown };
const char* to_string(Status status) noexcept;

// A value of the back end's model, independent of any term manager: a
// Boolean, or the bits of a bit-vector, most significant first.
struct Value {
  bool is_bool = false;
  bool truth = false;
  std::string bits;

  // An array's value as the solver wrote it (a store chain over a constant
  // array); empty for the other sorts.
  std::string array;

  static Value boolean(bool truth) { return Value{true, truth, {}, {}}; }
  static Value bitvector(std::string bits) { return Value{false, false, std::move(bits), {}}; }
  static Value array_text(std::string text) { return Value{false, false, {}, std::move(text)}; }
  std::size_t width() const noexcept { return bits.size(); }
  // `true`/`false`, `#x...` when the width is a multiple of 4, `#b...` otherwise.
  std::string text() const;
  bool operator==(const Value&) const = default;
};

// A term whose value is wanted, as the back end is to read it, and its sort.
struct ValueRequest {
  std::string term;
  std::size_t width = 0;  // 0 for Bool
  std::string sort;       // an array's sort; empty for the other sorts

  ValueRequest() = default;
  ValueRequest(std::string term_, std::size_t width_, std::string sort_ = {})
      : term(std::move(term_)), width(width_), sort(std::move(sort_)) {}
};

struct Answer {
  Status status = Status::Unknown;
  std::vector<Value> values;  // on sat, one per request in order
  std::string reason;         // on unknown: "timeout", or what the back end said
};

// The back end failed (crashed, answered garbage or an error). The message
// names the solver and says what happened; solver_errors() is what it wrote
// on standard error (bounded).
class BackendError : public std::runtime_error {
 public:
  BackendError(const std::string& message, std::string solver_errors)
      : std::runtime_error(message), solver_errors_(std::move(solver_errors)) {}
  const std::string& solver_errors() const noexcept { return solver_errors_; }

 private:
  std::string solver_errors_;
};

// The back end could not be started at all; the message says what to install.
class BackendMissing : public BackendError {
 public:
  using BackendError::BackendError;
};

// A solver run as a child process, one fresh process per check.
class Backend {
 public:
  virtual ~Backend() = default;
  const std::string& name() const noexcept { return name_; }

  // Solves script (an SMT-LIB 2 script with its declarations and assertions,
  // without check-sat) and, on sat, gets the values of the requests. At the
  // deadline the solver is killed and the answer is unknown ("timeout").
  // Throws BackendMissing or BackendError.
  virtual Answer check(const std::string& script, const std::vector<ValueRequest>& requests,
                       Deadline deadline) const = 0;
  // Whether the script may define functions (define-fun); when not, it must
  // share subterms with let only.
  virtual bool reads_define_fun() const noexcept { return true; }
  // Whether the script may apply bvand, bvor, bvxor, bvadd, bvmul and concat
  // to more than two arguments; when not, they must be nested.
  virtual bool reads_chains() const noexcept { return true; }

 protected:
  explicit Backend(std::string name) : name_(std::move(name)) {}

 private:
  std::string name_;
};

// What the --solver option names: "z3", "cvc5", "boolector" or "cmd:COMMAND LINE".
// Throws std::invalid_argument for anything else.
std::unique_ptr<Backend> make_backend(std::string_view spec);

// A solver that reads SMT-LIB 2 on standard input and answers check-sat,
// get-value and get-info as each command arrives. package, when not empty,
// is the Debian package to suggest when the program is missing.
std::unique_ptr<Backend> make_interactive_backend(std::string name, std::vector<std::string> argv,
                                                  std::string package);
// A solver that reads the whole script, answers check-sat and then prints its
// model as lines `NAME BITS` (Boolector 1.5 with -m); it accepts neither
// set-option nor get-value, so the requests must be constant names.
std::unique_ptr<Backend> make_model_lines_backend(std::string name, std::vector<std::string> argv,
                                                  std::string package);

// A command line split on blanks (spaces and tabs); no quoting.
std::vector<std::string> split_command(std::string_view line);

}  // namespace kora::solve
