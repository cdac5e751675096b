#include "kora-solve/backend.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "solve/children.h"

namespace kora::solve {
namespace {

using testing::children_of_self;
using testing::reaped;

const std::string kFake = std::string(KORA_SOLVE_TEST_DIR) + "/fake_solver.sh";
const std::string kScript =
    "(set-logic QF_BV)\n(declare-fun x () (_ BitVec 8))\n(declare-fun b () Bool)\n"
    "(assert (= (bvadd x #x01) #x10))\n(assert b)";
const std::vector<ValueRequest> kRequests = {{"x", 8}, {"b", 0}};

std::vector<std::string> fake_argv(std::vector<std::string> args) {
  args.insert(args.begin(), {"bash", kFake});
  return args;
}

std::unique_ptr<Backend> fake(std::vector<std::string> args) {
  return make_interactive_backend("fake", fake_argv(std::move(args)), "");
}

std::unique_ptr<Backend> fake_lines(std::vector<std::string> args) {
  return make_model_lines_backend("fake", fake_argv(std::move(args)), "");
}

Deadline soon() {
  return deadline_after(20.0);
}

// The message of the BackendError that check throws.
std::string failure(const Backend& b, const std::vector<ValueRequest>& requests = kRequests,
                    const std::string& script = kScript) {
  try {
    b.check(script, requests, soon());
  } catch (const BackendError& e) {
    return e.what();
  }
  ADD_FAILURE() << "the check did not fail";
  return {};
}

void expect_contains(const std::string& text, const std::string& part) {
  EXPECT_NE(text.find(part), std::string::npos) << "'" << part << "' not in: " << text;
}

class BackendTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_TRUE(children_of_self().empty()) << "a child was left"; }
};

TEST_F(BackendTest, SatWithValues) {
  auto b = fake({"answer", "sat", "((x #x0f) (b true))"});
  Answer a = b->check(kScript, kRequests, soon());
  EXPECT_EQ(a.status, Status::Sat);
  ASSERT_EQ(a.values.size(), 2U);
  EXPECT_EQ(a.values[0], Value::bitvector("00001111"));
  EXPECT_EQ(a.values[1], Value::boolean(true));
  EXPECT_EQ(a.values[0].text(), "#x0f");
  EXPECT_EQ(a.values[1].text(), "true");
}

TEST_F(BackendTest, ValuesInEveryNotationAreNormalised) {
  auto b = fake({"answer", "sat", "((x (_ bv15 8)) (y #b101) (z #xA0) (b false))"});
  Answer a = b->check(kScript, {{"x", 8}, {"y", 3}, {"z", 8}, {"b", 0}}, soon());
  ASSERT_EQ(a.values.size(), 4U);
  EXPECT_EQ(a.values[0].bits, "00001111");
  EXPECT_EQ(a.values[1].text(), "#b101");
  EXPECT_EQ(a.values[2].text(), "#xa0");
  EXPECT_EQ(a.values[3], Value::boolean(false));
}

TEST_F(BackendTest, SatWithoutRequestsAsksNothing) {
  // The fake's values answer would be garbage: not asking must not read it.
  auto b = fake({"answer", "sat", "garbage"});
  Answer a = b->check(kScript, {}, soon());
  EXPECT_EQ(a.status, Status::Sat);
  EXPECT_TRUE(a.values.empty());
}

TEST_F(BackendTest, UnsatAndUnknown) {
  Answer unsat = fake({"answer", "unsat"})->check(kScript, kRequests, soon());
  EXPECT_EQ(unsat.status, Status::Unsat);
  EXPECT_TRUE(unsat.values.empty());
  Answer unknown =
      fake({"answer", "unknown", "()", "incomplete"})->check(kScript, kRequests, soon());
  EXPECT_EQ(unknown.status, Status::Unknown);
  EXPECT_EQ(unknown.reason, "incomplete");
  Answer quoted =
      fake({"answer", "unknown", "()", "\"out of memory\""})->check(kScript, {}, soon());
  EXPECT_EQ(quoted.reason, "out of memory");
}

TEST_F(BackendTest, ErrorAnswerIsQuoted) {
  std::string m = failure(*fake({"error", "unknown constant y"}));
  expect_contains(m, "fake answered (error \"unknown constant y\")");
}

TEST_F(BackendTest, GarbageIsAnError) {
  expect_contains(failure(*fake({"garbage"})), "fake gave the unexpected answer 'hello'");
}

TEST_F(BackendTest, CrashNamesTheSignalAndQuotesStandardError) {
  std::string m = failure(*fake({"crash"}));
  expect_contains(m, "fake ended without an answer");
  expect_contains(m, "killed by signal 11");
  expect_contains(m, "its standard error: fake: internal failure");
}

TEST_F(BackendTest, EarlyExitGivesStatusAndStandardError) {
  std::string m = failure(*fake({"early"}));
  expect_contains(m, "fake ended without an answer (exited with status 3)");
  expect_contains(m, "unknown option --frobnicate");
}

TEST_F(BackendTest, HangIsATimeoutAndTheSolverIsKilled) {
  auto file =
      std::filesystem::temp_directory_path() / ("kora_fake_pid_" + std::to_string(::getpid()));
  auto b = make_interactive_backend("fake", fake_argv({"pidfile", file.string(), "hang"}), "");
  Answer a = b->check(kScript, kRequests, deadline_after(0.3));
  EXPECT_EQ(a.status, Status::Unknown);
  EXPECT_EQ(a.reason, "timeout");
  std::ifstream in(file);
  pid_t pid = 0;
  ASSERT_TRUE(in >> pid);
  std::filesystem::remove(file);
  EXPECT_TRUE(reaped(pid));
}

TEST_F(BackendTest, HangAtGetValueIsATimeout) {
  Answer a = fake({"hang-values", "sat"})->check(kScript, kRequests, deadline_after(0.3));
  EXPECT_EQ(a.status, Status::Unknown);
  EXPECT_EQ(a.reason, "timeout");
}

TEST_F(BackendTest, FloodedStandardErrorDoesNotBlock) {
  auto b = fake({"flood", "10000000", "sat", "((x #x0f) (b true))"});
  Answer a = b->check(kScript, kRequests, soon());
  EXPECT_EQ(a.status, Status::Sat);
  EXPECT_EQ(a.values.size(), 2U);
}

TEST_F(BackendTest, FloodedStandardErrorIsCutInMessages) {
  std::string m = failure(*fake({"flood", "10000000", "bogus"}));
  expect_contains(m, "fake gave the unexpected answer 'bogus'");
  EXPECT_LT(m.size(), 3000U);
  expect_contains(m, "eeee ...");
}

TEST_F(BackendTest, SolverThatStopsReadingStillAnswers) {
  std::string big = kScript + "\n" + std::string(4 << 20, ' ');
  Answer a = fake({"close-input", "unsat"})->check(big, kRequests, soon());
  EXPECT_EQ(a.status, Status::Unsat);
}

TEST_F(BackendTest, WrongValuesAreErrors) {
  expect_contains(failure(*fake({"answer", "sat", "((x #x0f))"})),
                  "fake gave an unexpected answer to get-value: 1 values for 2 terms");
  expect_contains(failure(*fake({"answer", "sat", "((x #x0f) (b true) (b true))"})),
                  "fake gave more values than the 2 it was asked for in its answer to get-value");
  expect_contains(failure(*fake({"answer", "sat", "((x #x0f) (b true) junk)"})),
                  "fake gave more values than the 2 it was asked for");
  expect_contains(failure(*fake({"answer", "sat", "((x #x0f) b)"})),
                  "unexpected value for b of sort Bool: b");
  expect_contains(failure(*fake({"answer", "sat", "((x #x0f) (b true false))"})),
                  "unexpected value for b of sort Bool: (b true false)");
  expect_contains(failure(*fake({"answer", "sat", "((x #b101) (b true))"})),
                  "unexpected value for x of sort (_ BitVec 8): (x #b101)");
  expect_contains(failure(*fake({"answer", "sat", "((x #x0f) (b #b1))"})),
                  "unexpected value for b of sort Bool");
  expect_contains(failure(*fake({"answer", "sat", "((x (_ bv256 8)) (b true))"})),
                  "unexpected value for x");
  expect_contains(failure(*fake({"answer", "sat", "(error \"no model\")"})),
                  "fake answered (error \"no model\") to get-value");
}

// The answer to get-value is read no further than what was asked could
// take: a value too many, or a token longer than any value or term asked
// for, ends the run there, however much the solver would write.
TEST_F(BackendTest, FloodedAnswersAreCutWhereTheyPassWhatWasAsked) {
  const std::vector<ValueRequest> one = {{"x", 8}};
  expect_contains(failure(*fake({"values-flood", "100000000"}), one),
                  "fake gave more values than the 1 it was asked for in its answer to get-value");
  expect_contains(failure(*fake({"endless", "value"}), one),
                  "fake wrote a token longer than any value it was asked for (16 bytes) in its "
                  "answer to get-value");
  expect_contains(failure(*fake({"endless", "status"}), one),
                  "fake gave the unexpected answer 'a response of more than 1048576 bytes'");
}

// Values in any notation and names of any length within what was asked.
TEST_F(BackendTest, LongValuesAndNamesAreRead) {
  const std::string bits(300, '1');
  const std::string name = "|" + std::string(200, 'n') + "|";
  Answer a = fake({"answer", "sat", "((" + name + "  #b" + bits + ") (b (_ bv0 1)))"})
                 ->check(kScript, {{name, 300}, {"b", 1}}, soon());
  ASSERT_EQ(a.values.size(), 2U);
  EXPECT_EQ(a.values[0].bits, bits);
  EXPECT_EQ(a.values[1].bits, "0");
}

// A solver that answered unknown and then ignores (get-info :reason-unknown)
// is waited for no longer than one that ignores (exit): the answer stands,
// without a reason.
TEST_F(BackendTest, SilenceAfterUnknownIsNotWaitedFor) {
  Answer a = fake({"mute", "unknown"})->check(kScript, kRequests, soon());
  EXPECT_EQ(a.status, Status::Unknown);
  EXPECT_EQ(a.reason, "");
}

TEST_F(BackendTest, MissingProgramNamesThePackage) {
  auto b = make_interactive_backend("nosolver", {"kora-no-such-solver"}, "nosolver-pkg");
  try {
    b->check(kScript, kRequests, soon());
    FAIL() << "a missing solver ran";
  } catch (const BackendMissing& e) {
    EXPECT_STREQ(e.what(),
                 "the solver nosolver is not installed: install the Debian package nosolver-pkg "
                 "(apt-get install nosolver-pkg)");
  }
  auto cmd = make_backend("cmd:kora-no-such-solver --flag");
  EXPECT_EQ(cmd->name(), "kora-no-such-solver");
  EXPECT_THROW(cmd->check(kScript, kRequests, soon()), BackendMissing);
}

TEST_F(BackendTest, ModelLines) {
  auto b = fake_lines(
      {"lines", "[btorsmt2] WARNING no 'exit' command", "sat", "x 00001111", "|a b| xxx", "b 1"});
  Answer a = b->check(kScript, {{"x", 8}, {"|a b|", 3}, {"b", 0}}, soon());
  EXPECT_EQ(a.status, Status::Sat);
  ASSERT_EQ(a.values.size(), 3U);
  EXPECT_EQ(a.values[0].text(), "#x0f");
  EXPECT_EQ(a.values[1].text(), "#b000");
  EXPECT_EQ(a.values[2], Value::boolean(true));
  Answer u = fake_lines({"lines", "unsat"})->check(kScript, kRequests, soon());
  EXPECT_EQ(u.status, Status::Unsat);
}

TEST_F(BackendTest, ModelLinesFailures) {
  expect_contains(failure(*fake_lines({"lines", "<stdin>:2: unsupported command 'get-value'"})),
                  "fake gave the unexpected answer '<stdin>:2: unsupported command 'get-value''");
  expect_contains(failure(*fake_lines({"lines", "sat", "x 00001111"})),
                  "fake gave no usable value for b");
  expect_contains(failure(*fake_lines({"lines", "sat", "x 0101", "b 1"})),
                  "fake gave no usable value for x");
  expect_contains(
      failure(*fake_lines({"lines", "[btorsmt2] WARNING no 'assert' command", "bogus"})),
      "fake gave the unexpected answer 'bogus'");
  expect_contains(failure(*fake_lines({"early"})), "fake ended without an answer");
  expect_contains(failure(*fake_lines({"crash"})), "fake crashed");
  Answer a = fake_lines({"hang"})->check(kScript, kRequests, deadline_after(0.3));
  EXPECT_EQ(a.status, Status::Unknown);
  EXPECT_EQ(a.reason, "timeout");
}

TEST(BackendNamesTest, MakeBackend) {
  EXPECT_EQ(make_backend("z3")->name(), "z3");
  EXPECT_EQ(make_backend("cvc5")->name(), "cvc5");
  EXPECT_EQ(make_backend("boolector")->name(), "boolector");
  EXPECT_EQ(make_backend("cmd:  my-solver\t-q ")->name(), "my-solver");
  EXPECT_THROW(make_backend("cmd:   "), std::invalid_argument);
  EXPECT_THROW(make_backend("yices"), std::invalid_argument);
  EXPECT_THROW(make_backend(""), std::invalid_argument);
}

TEST(BackendNamesTest, SplitCommand) {
  EXPECT_EQ(split_command(" a  b\tc "), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_TRUE(split_command(" \t ").empty());
}

TEST(BackendNamesTest, ValueText) {
  EXPECT_EQ(Value::bitvector("1").text(), "#b1");
  EXPECT_EQ(Value::bitvector("1010").text(), "#xa");
  EXPECT_EQ(Value::bitvector("111111110000").text(), "#xff0");
  EXPECT_EQ(Value::boolean(false).text(), "false");
  EXPECT_STREQ(to_string(Status::Sat), "sat");
  EXPECT_STREQ(to_string(Status::Unsat), "unsat");
  EXPECT_STREQ(to_string(Status::Unknown), "unknown");
}

}  // namespace
}  // namespace kora::solve
