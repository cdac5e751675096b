#include <cerrno>
#include <charconv>
#include <cstring>
#include <istream>
#include <memory>
#include <ostream>

#include "kora-adhoc/file_io.h"
#include "kora-adhoc/session.h"

#ifndef KORA_VERSION
#define KORA_VERSION "unknown"
#endif

namespace kora::frontend {

namespace {

constexpr const char* kUsage = "usage: kora-adhoc [-v N | --verbosity N] [FILE ...]\n";

int usage_error(std::ostream& err, const std::string& message) {
  err << "kora-adhoc: " << message << '\n'
      << kUsage << "Try 'kora-adhoc --help' for more information.\n";
  err.flush();
  return 2;
}

bool parse_int(const std::string& text, int* value) {
  const char* first = text.data();
  const char* last = first + text.size();
  auto [end, ec] = std::from_chars(first, last, *value);
  return ec == std::errc() && end == last && !text.empty();
}

int cannot_read(std::ostream& err, const std::string& what, const char* why) {
  err << "kora-adhoc: cannot read " << what << ": " << why << '\n';
  err.flush();
  return 2;
}

// Ends the run with `status` once every response is written, or with 2 and
// the reason when some could not be: a run whose answers are lost has not
// done its job, whatever the commands were.
int finish(std::ostream& out, std::ostream& err, int status) {
  out.flush();
  if (out) return status;
  const auto* file = dynamic_cast<const OutputFileBuffer*>(out.rdbuf());
  const int code = file != nullptr ? file->error() : 0;
  err << "kora-adhoc: cannot write to standard output: "
      << (code != 0 ? std::strerror(code) : "the output stream failed") << '\n';
  err.flush();
  return 2;
}

struct Input {
  std::string name;                       // as error positions show it
  std::string what;                       // as a read error names it
  std::unique_ptr<InputFileBuffer> file;  // null for standard input
};

}  // namespace

std::string version_text() {
  return std::string("kora-adhoc ") + KORA_VERSION + "\n";
}

std::string help_text() {
  return std::string(kUsage) +
         R"(
Reads SMT-LIB 2 commands from each FILE in turn as one session (standard input
when no FILE is given, or for '-'), builds the terms, keeps a model, and runs
the ad-hoc value calculator of a term's operator on request.

Options:
  -v N, --verbosity N   write log records up to level N to standard error
                        (default 0; level 2 shows every value a calculator
                        records: "calculated adhoc x := #x9c ..")
  --help                print this help and exit
  --version             print the version and exit

Commands (one response line on standard output where shown):
  (declare-const NAME SORT)        declare a constant
  (declare-fun NAME () SORT)       the same
  (declare-sort NAME 0)            declare an uninterpreted sort
  (set-model-value NAME VALUE)     give a constant a value in the model
  (set-free TERM)                  mark a term as free (unconstrained)
  (calculate TERM VALUE)           run the calculator of TERM's operator for
                                   TERM = VALUE; prints the constraints it
                                   added, (C1 ... Cn), or (error "MESSAGE")
                                   when it refuses
  (invert TERM VALUE)              the same with the complete inverter,
                                   which finds a value whenever one exists:
                                   (error "no value exists for the free
                                   argument") when none does
  (check-model)                    re-check every calculate and invert that
                                   recorded values: (model-ok N) or
                                   (model-violations ((T V GOT) ...))
  (get-value (TERM ...))           ((TERM VALUE) ...) under the current model
  (get-constraints)                every constraint added so far
  (get-adhoc-values)               the Boolean values calculators recorded
  (set-option :verbosity N)        change the log level
  (echo "TEXT")                    print TEXT
  (reset)                          forget everything but the log level
  (exit)                           stop reading

Sorts: Bool, (_ BitVec W), (Array S1 S2), declared sorts.
Terms: constants, true, false, #b0101, #xa5, (_ bvN W), (as @K SORT),
((as const (Array S1 S2)) VALUE), and applications of
  not and or = ite
  bvadd bvsub bvmul bvshl bvlshr bvashr bvudiv bvsdiv bvurem bvsrem
  bvand bvor bvxor bvneg bvnot bvult bvule bvslt bvsle bvcomp concat
  (_ extract I J) (_ rotate_left K) (_ rotate_right K)
  (_ zero_extend K) (_ sign_extend K)
and, or, bvadd, bvmul, bvand, bvor, bvxor and concat take two or more
arguments, grouped from the left.

A malformed command is answered with (error "FILE:LINE:COLUMN: what is wrong")
and skipped; processing goes on with the next command.

A name that holds a line break or another control character prints between
bars with the escapes \n, \r and \xHH, which read back as the same name.

Exit status: 0 when every command was well formed (a calculator's refusal is
a normal answer), 1 when some command was malformed, 2 for a usage error, an
input that cannot be read or responses that cannot be written.
)";
}

int run_command_line(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
                     std::ostream& err, InverterFactory make_inverter) {
  Options options;
  options.make_inverter = std::move(make_inverter);
  std::vector<std::string> files;
  bool only_files = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (only_files || a == "-" || a.empty() || a[0] != '-') {
      files.push_back(a);
    } else if (a == "--") {
      only_files = true;
    } else if (a == "--help" || a == "-h") {
      out << help_text();
      return finish(out, err, 0);
    } else if (a == "--version") {
      out << version_text();
      return finish(out, err, 0);
    } else if (a == "-v" || a == "--verbosity") {
      if (i + 1 == args.size()) return usage_error(err, a + " needs a number");
      if (!parse_int(args[++i], &options.verbosity)) {
        return usage_error(err, a + " needs a number, got '" + args[i] + "'");
      }
    } else if (a.rfind("--verbosity=", 0) == 0 || (a.rfind("-v", 0) == 0 && a.size() > 2)) {
      std::string number = a.substr(a[1] == '-' ? 12 : 2);
      if (!parse_int(number, &options.verbosity)) {
        return usage_error(err, "verbosity needs a number, got '" + number + "'");
      }
    } else {
      return usage_error(err, "unknown option '" + a + "'");
    }
  }
  if (files.empty()) files.emplace_back("-");

  // Every file is opened before the first command runs, so that a typo in
  // the last name does not leave a half-processed session behind.
  std::vector<Input> inputs;
  for (const std::string& f : files) {
    if (f == "-") {
      // A directory given as standard input opens as well as it does by
      // name, and only reading it fails.
      const auto* file = dynamic_cast<const InputFileBuffer*>(in.rdbuf());
      if (file != nullptr && file->is_directory()) {
        return cannot_read(err, "standard input", "it is a directory");
      }
      inputs.push_back({"<stdin>", "standard input", nullptr});
      continue;
    }
    int error = 0;
    std::unique_ptr<InputFileBuffer> file = InputFileBuffer::open(f, &error);
    const std::string what = "'" + f + "'";
    if (file == nullptr) {
      return cannot_read(err, what, error == EISDIR ? "it is a directory" : std::strerror(error));
    }
    inputs.push_back({f, what, std::move(file)});
  }

  Session session(out, err, std::move(options));
  for (const Input& input : inputs) {
    if (session.exited() || !out) break;
    try {
      if (input.file == nullptr) {
        session.process(in, input.name);
      } else {
        std::istream stream(input.file.get());
        session.process(stream, input.name);
      }
    } catch (const ReadError& e) {
      // What was answered before the failure is still shown, but the
      // session cannot go on from a script it could not read to the end.
      if (finish(out, err, 0) != 0) return 2;
      return cannot_read(err, input.what, e.what());
    }
  }
  return finish(out, err, session.ok() ? 0 : 1);
}

}  // namespace kora::frontend
