#include "kora-solve/command_line.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>

#include "kora-solve/session.h"

namespace kora::solve {

namespace {

constexpr const char* kUsage =
    "usage: kora-solve [--solver NAME] [--no-elim] [--timeout S] [--stats] [--check-models]\n"
    "                  [--dump-reduced FILE] [-v N] [FILE]\n";

constexpr const char* kHelp = R"(
Solves an SMT-LIB 2 script over Booleans and bit-vectors (logic QF_BV) with an
SMT solver run as a child process. Before each check-sat it replaces the
unconstrained terms of the assertions by fresh constants, has the solver solve
the smaller problem, rebuilds the values of everything it eliminated with the
ad-hoc value calculators, and checks the whole model against the original
assertions. It answers as an SMT-LIB solver does.

Options:
  --solver NAME        the back end: z3 (default), cvc5, boolector, or
                       cmd:COMMAND LINE for any solver that reads SMT-LIB 2 on
                       standard input and answers get-value
  --no-elim            eliminate nothing: pass the problem through
  --no-equation-rules  leave asserted equations alone (by default one over an
                       unconstrained argument becomes the condition for it
                       to have a solution)
  --no-packing         leave words packed from bytes (bvor or bvadd of
                       shifted zero extensions) as written, not as concat
  --timeout S          wall-clock limit per check-sat in seconds, for all the
                       solver runs it takes; the solver is killed at the
                       limit and the answer is unknown
  --stats              one line of statistics per check-sat on standard error
  --check-models       have a fresh solver confirm each rebuilt model
  --dump-reduced FILE  write the script sent to the solver for the last
                       check-sat (a FILE that cannot be written is a usage
                       error)
  --print-form FORM    how that script is printed: written (default) keeps
                       the assertions' own text wherever nothing in them was
                       eliminated; kora prints every term with kora's printer
  -v N, --verbosity N  the model store's log level (2: every rebuilt value)
  --help               print this help and exit
  --version            print the version and exit

FILE, or standard input when absent or '-', is read as one script. Besides
SMT-LIB 2.6 it reads define-const, the overflow predicates of SMT-LIB 2.7
(bvnego bvuaddo bvsaddo bvumulo bvsmulo) and bvusubo bvssubo bvsdivo bvredor
bvredand bvredxor, names starting with '@', and and/or with one argument (the
README lists the whole language).

A refused command never changes the problem silently. While a refused assert
would still be in force (until the pop that closes its level), and after a
refused push, pop, reset or reset-assertions (until the next reset or
reset-assertions), every check-sat answers unknown, and
(get-info :reason-unknown) names the line of the refused command. A
check-sat-assuming whose assumptions are refused answers unknown too. A model
of the solver that fails validation is never served: the answer is unknown.

Exit status: 0 when every command was answered, 1 when some command was
malformed or unsupported (answered (error "...") and skipped), 2 for a usage
error, an unreadable file, a failure to write standard output, or a solver
that cannot be started.
)";

// Flushes out; 2 with a message on err when it cannot be written.
int written(std::ostream& out, std::ostream& err, int status) {
  if (out.flush()) return status;
  const int e = errno;
  err << "kora-solve: cannot write standard output";
  if (e != 0) err << ": " << std::strerror(e);
  err << '\n';
  return 2;
}

// Whether file can be written, found by opening it for appending; a file
// that did not exist is not left behind.
bool writable(const std::string& file) {
  std::error_code ec;
  const bool existed = std::filesystem::exists(file, ec);
  const bool ok = static_cast<bool>(std::ofstream(file, std::ios::binary | std::ios::app));
  if (ok && !existed) std::filesystem::remove(file, ec);
  return ok;
}

int usage_error(std::ostream& err, const std::string& message) {
  err << "kora-solve: " << message << '\n'
      << kUsage << "Try 'kora-solve --help' for more information.\n";
  return 2;
}

std::optional<double> parse_seconds(const std::string& text) {
  char* end = nullptr;
  errno = 0;
  double s = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || errno != 0 || !std::isfinite(s) || s <= 0) {
    return std::nullopt;
  }
  return s;
}

std::optional<int> parse_level(const std::string& text) {
  if (text.empty() || text.size() > 6 ||
      text.find_first_not_of("0123456789") != std::string::npos) {
    return std::nullopt;
  }
  return std::stoi(text);
}

struct Parsed {
  SessionOptions session;
  std::string solver = "z3";
  std::string file = "-";
  bool file_given = false;
};

// Applies one option that takes a value; false when the value is bad.
bool apply(Parsed& p, const std::string& option, const std::string& value, std::string& problem) {
  if (option == "--solver") {
    p.solver = value;
  } else if (option == "--timeout") {
    p.session.check.timeout = parse_seconds(value);
    if (!p.session.check.timeout)
      problem = "--timeout needs a positive number of seconds, got '" + value + "'";
  } else if (option == "--dump-reduced") {
    p.session.check.dump_reduced = value;
  } else if (option == "--print-form") {
    p.session.check.written_form = value == "written";
    if (value != "written" && value != "kora") {
      problem = "--print-form needs 'written' or 'kora', got '" + value + "'";
    }
  } else {
    auto level = parse_level(value);
    if (level) p.session.check.verbosity = *level;
    if (!level) problem = option + " needs a number, got '" + value + "'";
  }
  return problem.empty();
}

bool takes_value(const std::string& option) {
  return option == "--solver" || option == "--timeout" || option == "--dump-reduced" ||
         option == "--print-form" || option == "-v" || option == "--verbosity";
}

}  // namespace

int run_command_line(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
                     std::ostream& err) {
  Parsed p;
  for (std::size_t i = 0; i < args.size(); ++i) {
    std::string a = args[i];
    std::string value;
    bool has_value = false;
    if (auto eq = a.find('='); a.rfind("--", 0) == 0 && eq != std::string::npos) {
      value = a.substr(eq + 1);
      a.resize(eq);
      has_value = true;
    }
    if (a == "--help" || a == "-h") {
      out << kUsage << kHelp;
      return written(out, err, 0);
    }
    if (a == "--version") {
      out << "kora-solve " << KORA_VERSION << '\n';
      return written(out, err, 0);
    }
    if (takes_value(a)) {
      if (!has_value && i + 1 == args.size()) return usage_error(err, a + " needs a value");
      if (!has_value) value = args[++i];
      std::string problem;
      if (!apply(p, a, value, problem)) return usage_error(err, problem);
    } else if (has_value) {
      return usage_error(err, "option '" + a + "' takes no value");
    } else if (a == "--no-elim") {
      p.session.check.eliminate = false;
    } else if (a == "--no-equation-rules") {
      p.session.check.equation_rules = false;
    } else if (a == "--no-packing") {
      p.session.check.packing = false;
    } else if (a == "--stats") {
      p.session.stats = true;
      p.session.check.count_leftovers = true;
    } else if (a == "--check-models") {
      p.session.check.check_models = true;
    } else if (a.size() > 1 && a[0] == '-') {
      return usage_error(err, "unknown option '" + a + "'");
    } else if (p.file_given) {
      return usage_error(err, "only one FILE can be given");
    } else {
      p.file = a;
      p.file_given = true;
    }
  }

  const std::string& dump = p.session.check.dump_reduced;
  if (!dump.empty() && !writable(dump)) {
    return usage_error(err, "cannot write --dump-reduced " + dump + ": " + std::strerror(errno));
  }
  std::unique_ptr<Backend> backend;
  try {
    backend = make_backend(p.solver);
  } catch (const std::invalid_argument& e) {
    return usage_error(err, e.what());
  }
  std::ifstream file;
  std::istream* script = &in;
  std::string name = "<stdin>";
  if (p.file != "-") {
    std::error_code ec;
    if (std::filesystem::is_directory(p.file, ec)) {
      err << "kora-solve: cannot read " << p.file << ": it is a directory\n";
      return 2;
    }
    file.open(p.file, std::ios::binary);
    if (!file) {
      err << "kora-solve: cannot read " << p.file << ": " << std::strerror(errno) << '\n';
      return 2;
    }
    script = &file;
    name = p.file;
  }
  Session session(*backend, p.session, out, err);
  try {
    return session.run(*script, name);
  } catch (const BackendMissing& e) {
    out.flush();
    err << "kora-solve: " << e.what() << '\n';
    return 2;
  }
}

}  // namespace kora::solve
