// kora-solve end to end, in process: every command and output form against
// the real solvers (each skipped, saying so, when not installed), and every
// failure path against the fake solver.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kora-solve/command_line.h"
#include "solve/children.h"

namespace kora::solve {
namespace {

const std::string kFake = std::string(KORA_SOLVE_TEST_DIR) + "/fake_solver.sh";

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

Outcome kora_solve(const std::vector<std::string>& args, const std::string& script) {
  std::istringstream in(script);
  std::ostringstream out;
  std::ostringstream err;
  Outcome o;
  o.status = run_command_line(args, in, out, err);
  o.out = out.str();
  o.err = err.str();
  return o;
}

// Every command, with constraints that leave one model only, so that every
// solver gives the same answers. y occurs once: its equation is eliminated
// and its value rebuilt by a calculator.
const char* const kSession = R"((set-option :print-success true)
(set-logic QF_BV)
(set-info :status sat)
(declare-fun x () (_ BitVec 8))
(declare-const y (_ BitVec 6))
(declare-fun p () Bool)
(define-fun two () (_ BitVec 8) #x02)
(define-sort Byte () (_ BitVec 8))
(declare-fun unused () Byte)
(assert (= (bvadd x two) #x11))
(assert (! (= y #b000101) :named is5))
(assert (=> (bvult x #x10) p))
(check-sat)
(get-value (x (bvmul x two) y p))
(get-model)
(get-assignment)
(push 1)
(assert (bvult x #x0f))
(check-sat)
(get-model)
(pop 1)
(check-sat-assuming ((not p)))
(check-sat)
(get-value (x))
(get-info :name)
(get-info :reason-unknown)
(set-option :produce-unsat-cores true)
(echo "a ""quoted"" word")
(reset-assertions)
(check-sat)
(reset)
(check-sat)
(exit)
(check-sat)
)";

const char* const kSessionAnswers = R"(success
success
success
success
success
success
success
success
success
success
success
success
sat
((x #x0f) ((bvmul x two) #x1e) (y #b000101) (p true))
(
  (define-fun x () (_ BitVec 8) #x0f)
  (define-fun y () (_ BitVec 6) #b000101)
  (define-fun p () Bool true)
  (define-fun unused () (_ BitVec 8) #x00)
)
((is5 true))
success
success
unsat
(error "no model available: the last check-sat did not answer sat")
success
unsat
sat
((x #x0f))
(:name "kora-solve")
(error "no reason to give: the last check-sat did not answer unknown")
unsupported
"a ""quoted"" word"
success
sat
success
sat
)";

class SessionTest : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (!testing::on_path(GetParam())) {
      GTEST_SKIP() << GetParam() << " is not installed (apt-get install " << GetParam()
                   << "): kora-solve's tests with it are skipped";
    }
  }
  void TearDown() override { EXPECT_TRUE(testing::children_of_self().empty()); }
};

TEST_P(SessionTest, EveryCommandAnswered) {
  Outcome o = kora_solve({"--solver", GetParam()}, kSession);
  EXPECT_EQ(o.out, kSessionAnswers);
  EXPECT_EQ(o.status, 1);  // the get-model and get-info refused
}

TEST_P(SessionTest, WithoutEliminationTheAnswersAreTheSame) {
  Outcome o = kora_solve({"--solver", GetParam(), "--no-elim"}, kSession);
  EXPECT_EQ(o.out, kSessionAnswers);
}

TEST_P(SessionTest, StatisticsAndConfirmedModels) {
  Outcome o = kora_solve({"--solver", GetParam(), "--stats", "--check-models"},
                         "(declare-fun x () (_ BitVec 8))(declare-fun y () (_ BitVec 8))"
                         "(declare-fun z () (_ BitVec 8))"
                         "(assert (= (bvmul (bvadd x y) z) #x10))(assert (bvult y #x05))"
                         "(check-sat)(get-value ((bvmul (bvadd x y) z)))");
  EXPECT_EQ(o.out, "sat\n(((bvmul (bvadd x y) z) #x10))\n");
  EXPECT_EQ(o.status, 0);
  // Every attribute, in order, on one line.
  EXPECT_EQ(o.err.rfind("(:kora-result sat :kora-assertions 2 :kora-terms ", 0), 0U) << o.err;
  std::size_t at = 0;
  for (const char* key : {":kora-eliminated ", ":kora-eliminated-by-op ((", ":kora-narrow-values ",
                          ":kora-inverter-values ", ":kora-fallbacks 0 ", ":kora-read-seconds ",
                          ":kora-simplify-seconds ", ":kora-backend-seconds ",
                          ":kora-rebuild-seconds ", ":kora-validate-seconds "}) {
    at = o.err.find(key, at);
    ASSERT_NE(at, std::string::npos) << key << " missing or out of order: " << o.err;
  }
  EXPECT_EQ(o.err.find(":kora-eliminated 0 "), std::string::npos) << o.err;
  EXPECT_EQ(o.err.find('\n'), o.err.size() - 1) << o.err;
  EXPECT_EQ(o.err.substr(o.err.size() - 2), ")\n");
}

// kora-solve with --dump-reduced added to args: its standard output, and the
// script it wrote.
std::pair<std::string, std::string> with_dump(std::vector<std::string> args,
                                              const std::string& script) {
  auto file = std::filesystem::temp_directory_path() /
              ("kora_reduced_" + std::to_string(::getpid()) + ".smt2");
  args.push_back("--dump-reduced");
  args.push_back(file.string());
  Outcome o = kora_solve(args, script);
  std::ifstream in(file);
  std::string dumped((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::filesystem::remove(file);
  return {o.out, dumped};
}

TEST_P(SessionTest, DumpReducedWritesTheBackEndsScript) {
  auto [out, dumped] = with_dump({"--solver", GetParam()},
                                 "(declare-fun x () (_ BitVec 8))(declare-fun y () (_ BitVec 8))"
                                 "(assert (= (bvadd x y) #x10))(assert (bvult y #x05))(check-sat)");
  EXPECT_EQ(out, "sat\n");
  EXPECT_EQ(dumped.rfind("(set-logic QF_BV)\n", 0), 0U) << dumped;
  // x is still declared (every declared constant is), but no longer asserted on.
  EXPECT_EQ(dumped.find("x)"), std::string::npos) << "not eliminated: " << dumped;
  EXPECT_EQ(dumped.find("bvadd"), std::string::npos) << "not eliminated: " << dumped;
  EXPECT_EQ(dumped.substr(dumped.size() - 12), "(check-sat)\n");
}

TEST_P(SessionTest, DumpReducedDeclaresInDeclarationOrder) {
  // a occurs first, b was declared first.
  auto [out, dumped] = with_dump({"--solver", GetParam(), "--no-elim"},
                                 "(declare-fun b () (_ BitVec 8))(declare-fun a () (_ BitVec 8))"
                                 "(assert (bvult a b))(assert (bvult b #x05))(check-sat)");
  EXPECT_EQ(out, "sat\n");
  auto b = dumped.find("(declare-fun b ");
  auto a = dumped.find("(declare-fun a ");
  ASSERT_NE(a, std::string::npos) << dumped;
  ASSERT_NE(b, std::string::npos) << dumped;
  EXPECT_LT(b, a) << dumped;
}

TEST_P(SessionTest, TimeoutAnswersUnknown) {
  // Factoring a 128-bit number: no solver answers within the limit.
  Outcome o = kora_solve({"--solver", GetParam(), "--timeout", "0.5"},
                         "(declare-fun p () (_ BitVec 128))(declare-fun q () (_ BitVec 128))"
                         "(assert (bvugt p #x00000000000000000000000000000001))"
                         "(assert (bvugt q #x00000000000000000000000000000001))"
                         "(assert (bvult p #x00000000000000010000000000000000))"
                         "(assert (bvult q #x00000000000000010000000000000000))"
                         "(assert (= (bvmul p q) #xd1ad7c2a5ac8e0e9b58c86f2d7c1dd3f))"
                         "(check-sat)(get-info :reason-unknown)");
  EXPECT_EQ(o.out, "unknown\n(:reason-unknown timeout)\n");
  EXPECT_EQ(o.status, 0);
}

INSTANTIATE_TEST_SUITE_P(RealSolvers, SessionTest, ::testing::Values("z3", "cvc5", "boolector"),
                         [](const auto& info) { return std::string(info.param); });

// The fake solver behind cmd: (the command line is split on blanks). The
// generous limit only keeps a broken test from hanging.
std::vector<std::string> with_fake(const std::string& args) {
  return {"--solver", "cmd:bash " + kFake + " " + args, "--timeout", "20"};
}

class FailureTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_TRUE(testing::children_of_self().empty()); }
};

const char* const kSmall = "(declare-fun x () (_ BitVec 8))(assert (= x x))(check-sat)";

TEST_F(FailureTest, CrashIsAnError) {
  Outcome o = kora_solve(with_fake("crash"), kSmall);
  EXPECT_EQ(o.out,
            "(error \"bash ended without an answer (was killed by signal 11 (Segmentation fault)); "
            "its standard error: fake: internal failure\")\n");
  EXPECT_EQ(o.status, 1);
}

TEST_F(FailureTest, GarbageAndEarlyExitAreErrors) {
  Outcome garbage = kora_solve(with_fake("garbage"), kSmall);
  EXPECT_EQ(garbage.out.rfind("(error \"bash gave the unexpected answer 'hello'", 0), 0U)
      << garbage.out;
  Outcome early = kora_solve(with_fake("early"), kSmall);
  EXPECT_EQ(early.out.rfind("(error \"bash ended without an answer (exited with status 3)", 0), 0U)
      << early.out;
  EXPECT_EQ(early.status, 1);
}

TEST_F(FailureTest, HangIsKilledAtTheTimeout) {
  std::vector<std::string> args = with_fake("hang");
  args.insert(args.end(), {"--timeout", "0.3"});
  Outcome o = kora_solve(args, std::string(kSmall) + "(get-info :reason-unknown)(check-sat)");
  EXPECT_EQ(o.out, "unknown\n(:reason-unknown timeout)\nunknown\n");
  EXPECT_EQ(o.status, 0);
}

// A model that fails validation, for the reduced problem and again for the
// problem as given, is never served: unknown, with the reason, no model, and
// counted.
TEST_F(FailureTest, InvalidModelIsNeverServed) {
  const std::string script =
      "(declare-fun x () (_ BitVec 8))(assert (= x #x01))(assert (bvult x #x05))(check-sat)"
      "(get-info :reason-unknown)(get-model)(get-value (x))(get-assignment)";
  const std::string answers =
      "unknown\n(:reason-unknown \"the model of bash failed validation: it does not satisfy the "
      "assertions\")\n"
      "(error \"no model available: the last check-sat did not answer sat\")\n"
      "(error \"no model available: the last check-sat did not answer sat\")\n"
      "(error \"no model available: the last check-sat did not answer sat\")\n";
  for (const char* extra : {"--stats", "--no-elim", "--check-models"}) {
    Outcome o = kora_solve({"--solver", "cmd:bash " + kFake + " answer sat ((x#x02))", "--timeout",
                            "20", "--stats", extra},
                           script);
    EXPECT_EQ(o.out, answers) << extra;
    EXPECT_EQ(o.status, 1) << extra;  // the refused get-model, get-value, get-assignment
    EXPECT_NE(o.err.find("(:kora-result unknown "), std::string::npos) << o.err;
    EXPECT_NE(o.err.find(":kora-rejected-models 1 "), std::string::npos) << o.err;
    const bool fell_back = std::string(extra) != "--no-elim";
    EXPECT_NE(o.err.find(fell_back ? ":kora-fallbacks 1 " : ":kora-fallbacks 0 "),
              std::string::npos)
        << o.err;
  }
}

// A counter file for the fake's `runs` mode, removed with the fixture.
class RunsTest : public FailureTest {
 protected:
  void TearDown() override {
    std::filesystem::remove(counter_);
    FailureTest::TearDown();
  }
  std::string runs(const std::string& values, const std::string& statuses) const {
    return "cmd:bash " + kFake + " runs " + counter_.string() + " " + values + " " + statuses;
  }
  std::filesystem::path counter_ =
      std::filesystem::temp_directory_path() / ("kora_runs_" + std::to_string(::getpid()));
};

TEST_F(RunsTest, UnconfirmedModelIsNeverServed) {
  // The fake says sat to the problem, then unsat to the problem with the model.
  Outcome o = kora_solve(
      {"--solver", runs("((x#x01))", "sat unsat"), "--check-models", "--timeout", "20", "--stats"},
      "(declare-fun x () (_ BitVec 8))(assert (= x #x01))(assert (bvult x #x05))"
      "(check-sat)(get-info :reason-unknown)(get-value (x))");
  EXPECT_EQ(o.out,
            "unknown\n(:reason-unknown \"the model was not confirmed: bash answered unsat on the "
            "assertions with the model\")\n"
            "(error \"no model available: the last check-sat did not answer sat\")\n");
  EXPECT_NE(o.err.find(":kora-rejected-models 1 "), std::string::npos) << o.err;
  EXPECT_EQ(o.status, 1);
}

TEST_F(RunsTest, ModelRefusedByTheBackEndIsNeverServed) {
  // The fake says sat to the problem, then nonsense to the problem with the model.
  Outcome o = kora_solve(
      {"--solver", runs("((x#x01))", "sat nonsense"), "--check-models", "--timeout", "20"},
      "(declare-fun x () (_ BitVec 8))(assert (= x #x01))(assert (bvult x #x05))(check-sat)"
      "(get-info :reason-unknown)");
  EXPECT_EQ(o.out,
            "unknown\n(:reason-unknown \"the model was not confirmed: bash gave the unexpected "
            "answer 'nonsense' (exited with status 0)\")\n");
}

// --timeout bounds the whole check-sat: a rerun without elimination, or the
// confirmation of a model, gets what the first run left, not a fresh limit.
// Each run of the fake takes 0.7 s of a 1 s limit, so a second one can only
// finish with a limit of its own.
TEST_F(RunsTest, OneDeadlinePerCheckSat) {
  const std::string script =
      "(declare-fun x () (_ BitVec 8))(assert (= x #x01))(assert (bvult x #x05))"
      "(check-sat)(get-info :reason-unknown)";
  const std::string delayed = "cmd:bash " + kFake + " delayed 0.7 ";
  // A wrong model, then the rerun.
  Outcome rerun =
      kora_solve({"--solver", delayed + "answer sat ((x#x02))", "--timeout", "1"}, script);
  EXPECT_EQ(rerun.out, "unknown\n(:reason-unknown timeout)\n");
  // A right model, then its confirmation.
  Outcome confirm = kora_solve(
      {"--solver", delayed + "answer sat ((x#x01))", "--timeout", "1", "--check-models"}, script);
  EXPECT_EQ(confirm.out, "unknown\n(:reason-unknown timeout)\n");
  EXPECT_EQ(confirm.status, 0);
}

// A back end that answers unknown and then ignores (get-info :reason-unknown)
// costs a moment, not the whole limit (nor for ever without one).
TEST_F(FailureTest, SilentBackEndAfterUnknown) {
  Outcome o = kora_solve({"--solver", "cmd:bash " + kFake + " mute unknown"},
                         std::string(kSmall) + "(get-info :reason-unknown)");
  EXPECT_EQ(o.out, "unknown\n(:reason-unknown unknown)\n");
  EXPECT_EQ(o.status, 0);
}

TEST_F(FailureTest, MissingSolverExitsTwoNamingThePackage) {
  Outcome cmd = kora_solve({"--solver", "cmd:kora-no-such-solver -q"}, "(check-sat)");
  EXPECT_EQ(cmd.status, 2);
  EXPECT_NE(cmd.err.find("cannot start 'kora-no-such-solver'"), std::string::npos) << cmd.err;

  const char* path = std::getenv("PATH");
  std::string saved = path ? path : "";
  ::setenv("PATH", "/nonexistent", 1);
  Outcome named = kora_solve({"--solver", "cvc5"}, "(echo \"first\")(check-sat)");
  ::setenv("PATH", saved.c_str(), 1);
  EXPECT_EQ(named.status, 2);
  EXPECT_EQ(named.out, "\"first\"\n");
  EXPECT_EQ(named.err,
            "kora-solve: the solver cvc5 is not installed: install the Debian package cvc5 "
            "(apt-get install cvc5)\n");
}

TEST(CommandLineTest, UsageErrorsExitTwo) {
  for (const std::vector<std::string>& args : {std::vector<std::string>{"--bogus"},
                                               {"--timeout", "soon"},
                                               {"--timeout", "0"},
                                               {"--timeout"},
                                               {"--solver", "yices"},
                                               {"--solver", "cmd:"},
                                               {"-v", "x"},
                                               {"a.smt2", "b.smt2"},
                                               {"--stats=yes"},
                                               {"--dump-reduced", "/nonexistent/reduced.smt2"},
                                               {"--dump-reduced", "/"}}) {
    Outcome o = kora_solve(args, "");
    EXPECT_EQ(o.status, 2) << args[0];
    EXPECT_NE(o.err.find("usage: kora-solve"), std::string::npos) << o.err;
  }
  Outcome missing = kora_solve({"/nonexistent/script.smt2"}, "");
  EXPECT_EQ(missing.status, 2);
  EXPECT_EQ(missing.err,
            "kora-solve: cannot read /nonexistent/script.smt2: No such file or directory\n");
  Outcome directory = kora_solve({"/"}, "");
  EXPECT_EQ(directory.status, 2);
}

// A stream that takes nothing, as standard output on a full disk.
class FullBuffer : public std::streambuf {
 protected:
  int_type overflow(int_type) override { return traits_type::eof(); }
};

TEST(CommandLineTest, FailuresToWriteExitTwo) {
  FullBuffer full;
  std::ostream out(&full);
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"--version"}, {"--help"}, {"--solver", "cmd:true"}}) {
    std::istringstream in("(echo \"answer\")");
    std::ostringstream err;
    out.clear();
    EXPECT_EQ(run_command_line(args, in, out, err), 2) << args[0];
    EXPECT_EQ(err.str().rfind("kora-solve: cannot write ", 0), 0U) << err.str();
  }
}

// Names, input and solvers' messages may hold any byte; what kora writes
// holds no control character but its line breaks, and no message stops at
// a NUL.
TEST(CommandLineTest, MessagesHoldNoControlCharacter) {
  const char text[] =
      "(declare-fun |a\x01"
      "b| () Bool)(assert |c\x02|)(declare-fun |n\0x| () Bool)(check-sat)";
  const std::string script(text, sizeof text - 1);
  Outcome o = kora_solve({"--solver", "cmd:bash " + kFake + " answer sat"}, script);
  for (char c : o.out) {
    EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 32) << static_cast<int>(c);
  }
  EXPECT_NE(o.out.find("cannot declare |a\\x01b|: a constant name cannot hold the control "
                       "character 0x01\")"),
            std::string::npos)
      << o.out;
  EXPECT_NE(o.out.find("'|c\\x02|'"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("cannot declare |n\\x00x|: a constant name cannot hold the control "
                       "character 0x00\")"),
            std::string::npos)
      << o.out;
  EXPECT_EQ(o.out.substr(o.out.size() - 8), "unknown\n");  // the refused assert
}

TEST(CommandLineTest, HelpAndVersion) {
  Outcome help = kora_solve({"--help"}, "");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("--check-models"), std::string::npos);
  EXPECT_NE(help.out.find("A refused command never changes the problem silently"),
            std::string::npos);
  Outcome version = kora_solve({"--version"}, "");
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out.rfind("kora-solve ", 0), 0U);
}

TEST(CommandLineTest, RefusedCommandsAreAnsweredAndSkipped) {
  Outcome o = kora_solve({"--solver", "cmd:bash " + kFake + " answer sat"},
                         "(set-logic QF_LIA)(declare-fun f (Bool) Bool)(check-sat)");
  EXPECT_EQ(o.status, 1);
  std::istringstream lines(o.out);
  std::string line;
  ASSERT_TRUE(std::getline(lines, line));
  EXPECT_EQ(line.rfind("(error \"<stdin>:1:12: logic", 0), 0U) << line;
  ASSERT_TRUE(std::getline(lines, line));
  EXPECT_EQ(line.rfind("(error \"<stdin>:1:", 0), 0U) << line;
  ASSERT_TRUE(std::getline(lines, line));
  EXPECT_EQ(line, "sat");
}

}  // namespace
}  // namespace kora::solve
