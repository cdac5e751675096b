// Unconstrained-term elimination on a directory of SMT-LIB QF_BV files: per
// file the eliminations, their counts by operator, the equations replaced by
// their conditions (by the operator over x), the applications left holding
// an unconstrained argument (all, and those under an equation), the passes
// and the CPU time simplify() took (best of --repeat runs, each on a newly
// read graph), then the same summed per family (the part of the file name
// before "__"), and the applications left by operator and position. The
// output is the Markdown of the tables in bench/RESULTS.md.
//
//   kora-corpus-counts DIR [--repeat N] [--no-equation-rules] [--no-packing]

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "kora/preprocess/simplifier.h"
#include "kora/smtlib/script.h"
#include "kora/terms/term_manager.h"

namespace {

namespace fs = std::filesystem;
using kora::TermManager;
using kora::preprocess::Simplified;

struct Row {
  std::string name;
  std::size_t bytes = 0;
  std::size_t assertions = 0;
  std::size_t eliminated = 0;
  std::size_t passes = 0;
  std::map<std::string, std::size_t> by_op;
  std::map<std::string, std::size_t> conditions;
  kora::preprocess::Leftovers left;
  double seconds = 0;
};

// Reads the file's assertions into mgr; returns how many it found.
std::vector<const kora::Term*> assertions_of(const fs::path& path, TermManager& mgr) {
  std::ifstream in(path, std::ios::binary);
  kora::smtlib::ScriptReader reader(in, &mgr, path.filename().string());
  std::vector<const kora::Term*> found;
  while (auto c = reader.next()) {
    if (c->kind == kora::smtlib::Command::Kind::Assert) found.push_back(c->term);
  }
  return found;
}

// CPU time of this thread: on a shared machine wall time also counts the
// other processes.
double cpu_seconds() {
  timespec ts{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

Row measure(const fs::path& path, int repeat, const kora::preprocess::SimplifyOptions& options) {
  Row r;
  r.name = path.filename().string();
  r.bytes = fs::file_size(path);
  r.seconds = 1e100;
  for (int i = 0; i < repeat; ++i) {
    auto mgr = std::make_unique<TermManager>();
    const auto assertions = assertions_of(path, *mgr);
    const double start = cpu_seconds();
    const Simplified s = kora::preprocess::simplify(*mgr, assertions, options);
    r.seconds = std::min(r.seconds, cpu_seconds() - start);
    r.conditions = s.conditions_by_op;
    r.left = kora::preprocess::leftovers(s.assertions);
    r.assertions = assertions.size();
    r.eliminated = s.eliminated;
    r.passes = s.passes;
    r.by_op = s.eliminated_by_op;
  }
  return r;
}

std::string ops_text(const std::map<std::string, std::size_t>& by_op) {
  std::ostringstream os;
  const char* sep = "";
  for (const auto& [op, n] : by_op) {
    os << sep << op << " " << n;
    sep = ", ";
  }
  return by_op.empty() ? "-" : os.str();
}

std::string time_text(double seconds) {
  std::ostringstream os;
  os << std::fixed << std::setprecision(seconds < 0.01 ? 3 : 1) << seconds * 1e3 << " ms";
  return os.str();
}

std::string family_of(const std::string& name) {
  const auto cut = name.find("__");
  return cut == std::string::npos ? name : name.substr(0, cut);
}

void print_family(const std::string& family, const std::vector<Row>& rows) {
  std::cout << "\n#### " << family << "\n\n"
            << "| file | KB | assertions | eliminated | by operator | equations by conditions "
               "| left (under =) | passes | simplify |\n"
            << "|---|---|---|---|---|---|---|---|---|\n";
  Row sum;
  for (const Row& r : rows) {
    std::cout << "| " << r.name.substr(family.size() + (r.name == family ? 0 : 2)) << " | "
              << (r.bytes + 512) / 1024 << " | " << r.assertions << " | " << r.eliminated << " | "
              << ops_text(r.by_op) << " | " << ops_text(r.conditions) << " | "
              << r.left.applications << " (" << r.left.under_equation << ") | " << r.passes << " | "
              << time_text(r.seconds) << " |\n";
    sum.eliminated += r.eliminated;
    sum.seconds += r.seconds;
    for (const auto& [op, n] : r.by_op) sum.by_op[op] += n;
    for (const auto& [op, n] : r.conditions) sum.conditions[op] += n;
    for (const auto& [at, n] : r.left.by_position) sum.left.by_position[at] += n;
    sum.left.applications += r.left.applications;
    sum.left.under_equation += r.left.under_equation;
  }
  if (rows.size() > 1) {
    std::cout << "| **all " << rows.size() << "** | | | " << sum.eliminated << " | "
              << ops_text(sum.by_op) << " | " << ops_text(sum.conditions) << " | "
              << sum.left.applications << " (" << sum.left.under_equation << ") | | "
              << time_text(sum.seconds) << " |\n";
  }
  std::cout << "\nLeft with an unconstrained argument, by operator and position: "
            << ops_text(sum.left.by_position) << "\n";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: kora-corpus-counts DIR [--repeat N]\n";
    return 2;
  }
  int repeat = 3;
  kora::preprocess::SimplifyOptions options;
  for (int i = 2; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--repeat" && i + 1 < argc) {
      repeat = std::atoi(argv[++i]);
    } else if (arg == "--no-equation-rules") {
      options.equations = false;
    } else if (arg == "--no-packing") {
      options.packing = false;
    } else {
      std::cerr << "kora-corpus-counts: unknown option " << arg << "\n";
      return 2;
    }
  }
  std::vector<fs::path> files;
  for (const auto& e : fs::directory_iterator(argv[1])) {
    if (e.path().extension() == ".smt2") files.push_back(e.path());
  }
  std::sort(files.begin(), files.end());
  std::map<std::string, std::vector<Row>> families;
  for (const fs::path& f : files) {
    Row r = measure(f, std::max(repeat, 1), options);
    families[family_of(r.name)].push_back(std::move(r));
  }
  for (const auto& [family, rows] : families) print_family(family, rows);
  return 0;
}
