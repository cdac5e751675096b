// kora-solve against the back end alone, on seeded random incremental
// scripts at widths 1 to 8 written with everything that a back end might
// read differently from kora: n-ary bit-vector operators, quoted symbols
// (|z| and z are one name), `as` with sorts from define-sort, `let`,
// `:named`, push/pop and check-sat-assuming. For each script and back end:
// kora's script is accepted (no error from the back end), every check-sat
// answers as z3 alone answers the original script, and every model kora
// gives satisfies the assertions in force, by an evaluator of its own. z3
// alone stands for every back end: the others do not read every original
// (Boolector 1.5 reads neither `as` nor n-ary operators, cvc5 no `:named`
// inside a `let`), which is why kora's script has to differ from it.
//
// KORA_DIFF_SCRIPTS in the environment sets the number of scripts for the
// three back ends together (each takes a share by what a run of it costs:
// z3 starts slowest); KORA_DIFF_SEED the first seed.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kora-solve/command_line.h"
#include "kora-solve/process.h"
#include "kora/model/model_store.h"
#include "kora/smtlib/reader.h"
#include "kora/smtlib/script.h"
#include "solve/children.h"
#include "support/evaluator.h"
#include "support/z3_oracle.h"

#ifndef KORA_DIFF_SCRIPTS
#define KORA_DIFF_SCRIPTS 600
#endif

namespace kora::solve {
namespace {

// The constants every script declares: two Booleans and four bit-vectors,
// one with a quoted simple name and one with a name that needs its bars.
const char* const kBools[] = {"p", "q"};
const char* const kWords[] = {"x", "y", "|z|", "|a b|"};
const char* const kValues = "(get-value (p q x y z |a b|))";

// One random script. Each command is on its own line; the reference run
// leaves out the get-value lines.
class RandomSolveScript {
 public:
  explicit RandomSolveScript(std::uint64_t seed) : rng_(seed) {}

  std::vector<std::string> make() {
    width_ = 1 + pick(8);
    std::vector<std::string> lines = {
        "(set-logic QF_BV)", "(define-sort Word () (_ BitVec " + std::to_string(width_) + "))",
        "(declare-fun p () Bool)", "(declare-const q Bool)"};
    for (const char* w : kWords) {
      const std::string sort = pick(2) == 0 ? "Word" : "(_ BitVec " + std::to_string(width_) + ")";
      lines.push_back(pick(2) == 0 ? std::string("(declare-fun ") + w + " () " + sort + ")"
                                   : std::string("(declare-const ") + w + " " + sort + ")");
    }
    std::size_t depth = 0;
    bool checked = false;
    const std::size_t steps = 3 + pick(6);
    for (std::size_t i = 0; i < steps || !checked; ++i) {
      switch (pick(8)) {
        case 0:
          lines.emplace_back("(push 1)");
          ++depth;
          break;
        case 1:
          if (depth > 0) {
            lines.emplace_back("(pop 1)");
            --depth;
          }
          break;
        case 2:
        case 3:
          lines.push_back(pick(3) == 0 ? "(check-sat-assuming (" + assumptions() + "))"
                                       : "(check-sat)");
          lines.emplace_back(kValues);
          checked = true;
          break;
        default:
          lines.push_back("(assert " + boolean(3) + ")");
          break;
      }
    }
    return lines;
  }

 private:
  std::size_t pick(std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n - 1)(rng_);
  }

  std::string assumptions() {
    std::string out;
    for (std::size_t n = 1 + pick(2); n > 0; --n) {
      const std::string b = kBools[pick(2)];
      out += (out.empty() ? "" : " ") + (pick(2) == 0 ? b : "(not " + b + ")");
    }
    return out;
  }

  std::string literal() {
    std::uint64_t v = pick(std::size_t{1} << width_);
    if (pick(2) == 0) return "(_ bv" + std::to_string(v) + " " + std::to_string(width_) + ")";
    std::string bits;
    for (std::size_t b = width_; b-- > 0;) bits += ((v >> b) & 1) != 0 ? '1' : '0';
    return "#b" + bits;
  }

  std::string word_leaf() {
    if (!words_.empty() && pick(3) == 0) return words_[pick(words_.size())];
    if (pick(4) == 0) return literal();
    std::string c = kWords[pick(4)];
    if (c == "|z|" && pick(2) == 0) c = "z";
    switch (pick(6)) {
      case 0:
        return "(as " + c + " Word)";
      case 1:
        return "(as " + c + " (_ BitVec " + std::to_string(width_) + "))";
      default:
        return c;
    }
  }

  std::string bool_leaf() {
    if (!bools_.empty() && pick(3) == 0) return bools_[pick(bools_.size())];
    return pick(10) == 0 ? "true" : kBools[pick(2)];
  }

  // Between two and `most` arguments.
  std::string args(int depth, std::size_t most) {
    std::string out;
    for (std::size_t n = 2 + pick(most - 1); n > 0; --n) out += " " + word(depth);
    return out;
  }

  std::string word(int depth) {
    if (depth <= 0 || pick(4) == 0) return word_leaf();
    const int d = depth - 1;
    const std::string w = std::to_string(width_);
    switch (pick(10)) {
      case 0:
      case 1: {
        const char* const chains[] = {"bvadd", "bvmul", "bvand", "bvor", "bvxor"};
        return std::string("(") + chains[pick(5)] + args(d, 4) + ")";
      }
      case 2: {
        const char* const binary[] = {"bvsub", "bvudiv", "bvurem", "bvshl", "bvlshr", "bvashr"};
        return std::string("(") + binary[pick(6)] + args(d, 2) + ")";
      }
      case 3:
        return std::string(pick(2) == 0 ? "(bvnot " : "(bvneg ") + word(d) + ")";
      case 4:
        return "(ite " + boolean(d) + " " + word(d) + " " + word(d) + ")";
      case 5:
        // An n-ary concat, cut back to the width.
        return "((_ extract " + std::to_string(width_ - 1) + " 0) (concat" + args(d, 4) + "))";
      case 6:
        return let(d, false);
      default:
        return "(bvadd " + word(d) + " " + word_leaf() + ")";
    }
  }

  std::string boolean(int depth) {
    if (depth <= 0 || pick(5) == 0) return bool_leaf();
    const int d = depth - 1;
    switch (pick(11)) {
      case 0:
        return "(not " + boolean(d) + ")";
      case 1:
        return "(=> " + boolean(d) + " " + boolean(d) + ")";
      case 2:
        return std::string(pick(2) == 0 ? "(and " : "(or ") + boolean(d) + " " + boolean(d) +
               (pick(2) == 0 ? "" : " " + boolean(d)) + ")";
      case 3:
      case 4:
        return "(=" + args(d, 3) + ")";
      case 5:
        return "(distinct" + args(d, 3) + ")";
      case 6:
      case 7: {
        const char* const cmp[] = {"bvult", "bvule", "bvugt", "bvuge",
                                   "bvslt", "bvsle", "bvsgt", "bvsge"};
        return std::string("(") + cmp[pick(8)] + args(d, 2) + ")";
      }
      case 8:
        return "(! " + boolean(d) + " :named n" + std::to_string(names_++) + ")";
      case 9:
        return let(d, true);
      default:
        return "(xor " + boolean(d) + " " + boolean(d) + ")";
    }
  }

  std::string let(int depth, bool boolean_body) {
    const bool bool_value = pick(3) == 0;
    const std::string name = "v" + std::to_string(lets_++);
    const std::string value = bool_value ? boolean(depth) : word(depth);
    std::vector<std::string>& vars = bool_value ? bools_ : words_;
    vars.push_back(name);
    const std::string body = boolean_body ? boolean(depth) : word(depth);
    vars.pop_back();
    return "(let ((" + name + " " + value + ")) " + body + ")";
  }

  std::mt19937_64 rng_;
  std::size_t width_ = 4;
  std::vector<std::string> words_;  // let variables in scope
  std::vector<std::string> bools_;
  int lets_ = 0;
  int names_ = 0;
};

std::string joined(const std::vector<std::string>& lines, bool with_values) {
  std::string out;
  for (const std::string& l : lines) {
    if (with_values || l != kValues) out += l + "\n";
  }
  return out;
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

// The assertions (and assumptions) in force at each check-sat, read with a
// reader of the test's own.
struct Replay {
  TermManager mgr;
  std::vector<std::vector<const Term*>> checks;
  std::map<std::string, const Term*> constants;
};

void replay(const std::string& script, Replay& r) {
  std::istringstream in(script);
  smtlib::ScriptReader reader(in, &r.mgr, "t.smt2");
  std::vector<const Term*> assertions;
  std::vector<std::size_t> scopes;
  using Kind = smtlib::Command::Kind;
  while (std::optional<smtlib::Command> c = reader.next()) {
    if (c->kind == Kind::Assert) assertions.push_back(c->term);
    if (c->kind == Kind::Push) scopes.push_back(assertions.size());
    if (c->kind == Kind::Pop) {
      assertions.resize(scopes.back());
      scopes.pop_back();
    }
    if (c->kind == Kind::CheckSat || c->kind == Kind::CheckSatAssuming) {
      r.checks.push_back(assertions);
      r.checks.back().insert(r.checks.back().end(), c->terms.begin(), c->terms.end());
    }
  }
  for (const Term* c : reader.declared()) r.constants[smtlib::name_of(c)] = c;
}

// How many check-sats kora answered sat (each model evaluated) and unsat.
struct Tally {
  std::size_t sat = 0;
  std::size_t unsat = 0;
};

// The problems found with one script; empty when there are none.
std::string judge(const std::string& script, const std::string& reference,
                  const std::string& kora_out, Tally& tally) {
  Replay r;
  try {
    replay(script, r);
  } catch (const smtlib::InputError& e) {
    return std::string("the script is not one kora reads: ") + e.what();
  }
  const std::vector<std::string> want = lines_of(reference);
  const std::vector<std::string> got = lines_of(kora_out);
  if (want.size() != r.checks.size()) return "the back end alone answered: " + reference;
  if (got.size() != 2 * r.checks.size()) return "kora answered: " + kora_out;
  for (std::size_t i = 0; i < r.checks.size(); ++i) {
    const std::string& answer = got[2 * i];
    if (want[i] != "unknown" && answer != want[i]) {
      return "check-sat " + std::to_string(i + 1) + ": kora " + answer + ", alone " + want[i];
    }
    if (answer == "unsat") ++tally.unsat;
    if (answer != "sat") continue;
    ++tally.sat;
    std::istringstream values(got[2 * i + 1]);
    smtlib::Reader read(values);
    std::optional<const smtlib::Node*> list;
    try {
      list = read.next();
    } catch (const smtlib::InputError& e) {
      return std::string("unreadable values: ") + e.what();
    }
    if (!list || (*list)->children.size() != r.constants.size()) {
      return "values: " + got[2 * i + 1];
    }
    ModelStore model(&r.mgr);
    for (const smtlib::Node* pair : (*list)->children) {
      const Term* c = r.constants.at(pair->children[0]->text);
      const smtlib::Node& v = *pair->children[1];
      if (v.kind == smtlib::Node::Kind::Symbol) {
        model.set_value(c, v.text == "true" ? r.mgr.true_term() : r.mgr.false_term());
        continue;
      }
      std::size_t width = 0;
      r.mgr.is_bv_type(c->type(), &width);
      const int base = v.kind == smtlib::Node::Kind::Binary ? 2 : 16;
      model.set_value(c, r.mgr.make_bv_word(std::stoull(v.text.substr(2), nullptr, base), width));
    }
    for (const Term* a : r.checks[i]) {
      if (test::evaluate(r.mgr, model, a) != std::optional<std::uint64_t>(1)) {
        return "check-sat " + std::to_string(i + 1) + ": the model " + got[2 * i + 1] +
               " does not satisfy an assertion";
      }
    }
  }
  return {};
}

// z3 alone on a batch of scripts (its whole output): one process, the
// scripts separated by reset.
std::string z3_alone(const std::string& batch) {
  Process process({"z3", "-in", "-smt2"});
  const Deadline deadline = deadline_after(300.0);
  std::string out;
  if (process.write(batch, deadline) == IoStatus::Ok) {
    process.close_input();
    process.read_all(out, deadline);
  }
  return out;
}

std::size_t setting(const char* name, std::size_t fallback) {
  const char* text = std::getenv(name);
  return text != nullptr && *text != '\0' ? std::stoull(text) : fallback;
}

class Differential : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (!test::have_z3() || !testing::on_path(GetParam())) {
      GTEST_SKIP() << "z3 and " << GetParam() << " are needed (apt-get install z3 " << GetParam()
                   << ")";
    }
  }
  void TearDown() override { EXPECT_TRUE(testing::children_of_self().empty()); }
};

TEST_P(Differential, AgreesWithTheBackEndAloneAndEveryModelHolds) {
  const std::string solver = GetParam();
  const std::size_t share = solver == "z3" ? 20 : solver == "cvc5" ? 30 : 50;
  const std::size_t count = setting("KORA_DIFF_SCRIPTS", KORA_DIFF_SCRIPTS) * share / 100;
  // Each back end its own scripts.
  const std::uint64_t first =
      setting("KORA_DIFF_SEED", 1) + 1000003 * std::string(GetParam()).size();
  // z3 alone answers a batch of scripts in one process.
  constexpr std::size_t kBatch = 50;
  std::size_t failures = 0;
  Tally tally;
  for (std::size_t start = 0; start < count && failures < 5; start += kBatch) {
    std::vector<std::vector<std::string>> scripts;
    std::string batch;
    for (std::size_t i = start; i < std::min(count, start + kBatch); ++i) {
      scripts.push_back(RandomSolveScript(first + i).make());
      batch += joined(scripts.back(), false) + "(echo \"--\")\n(reset)\n";
    }
    std::vector<std::string> references;
    std::string current;
    for (const std::string& line : lines_of(z3_alone(batch))) {
      if (line == "--") {
        references.push_back(current);
        current.clear();
      } else {
        current += line + "\n";
      }
    }
    ASSERT_EQ(references.size(), scripts.size()) << "z3 alone: " << current;
    for (std::size_t k = 0; k < scripts.size() && failures < 5; ++k) {
      const std::string script = joined(scripts[k], true);
      std::istringstream in(script);
      std::ostringstream out;
      std::ostringstream err;
      const int status =
          run_command_line({"--solver", GetParam(), "--timeout", "20"}, in, out, err);
      std::string problem = judge(script, references[k], out.str(), tally);
      // Only the get-values after unsat may be refused.
      for (const std::string& line : lines_of(out.str())) {
        if (line.rfind("(error ", 0) == 0 && line.find("no model available") == std::string::npos) {
          problem += " refused: " + line;
        }
      }
      if (status > 1) problem += " exit status " + std::to_string(status) + ": " + err.str();
      if (!problem.empty()) {
        ++failures;
        ADD_FAILURE() << "seed " << first + start + k << ": " << problem << "\n" << script;
      }
    }
  }
  // The scripts have both answers, so both kinds of disagreement can show.
  std::cout << count << " scripts: " << tally.sat << " models checked, " << tally.unsat
            << " unsat answers\n";
  if (count >= 100) {
    EXPECT_GT(tally.sat, count / 10);
    EXPECT_GT(tally.unsat, count / 10);
  }
}

INSTANTIATE_TEST_SUITE_P(RealSolvers, Differential, ::testing::Values("z3", "cvc5", "boolector"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace kora::solve
