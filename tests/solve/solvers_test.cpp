// The real back ends on tiny scripts. Each solver is a Debian package that
// `make test` installs; a machine without one skips its tests and says so.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "kora-solve/backend.h"
#include "solve/children.h"

namespace kora::solve {
namespace {

const char* const kSat =
    "(set-logic QF_BV)\n"
    "(declare-fun x () (_ BitVec 8))\n"
    "(declare-fun y () (_ BitVec 8))\n"
    "(declare-fun |odd name| () (_ BitVec 3))\n"
    "(declare-fun b () Bool)\n"
    "(assert (= (bvadd x y) #x10))\n"
    "(assert (bvult x #x05))\n"
    "(assert (= b (bvult y x)))\n"
    "(assert (= ((_ extract 0 0) |odd name|) #b1))\n";

const char* const kUnsat =
    "(set-logic QF_BV)\n"
    "(declare-fun x () (_ BitVec 8))\n"
    "(assert (bvult x x))\n";

// Factoring a 128-bit number: far beyond any solver in a second.
const char* const kHard =
    "(set-logic QF_BV)\n"
    "(declare-fun p () (_ BitVec 128))\n"
    "(declare-fun q () (_ BitVec 128))\n"
    "(assert (bvugt p #x00000000000000000000000000000001))\n"
    "(assert (bvugt q #x00000000000000000000000000000001))\n"
    "(assert (bvult p #x00000000000000010000000000000000))\n"
    "(assert (bvult q #x00000000000000010000000000000000))\n"
    "(assert (= (bvmul p q) #xd1ad7c2a5ac8e0e9b58c86f2d7c1dd3f))\n";

class SolverTest : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (!testing::on_path(GetParam())) {
      GTEST_SKIP() << GetParam() << " is not installed (apt-get install " << GetParam()
                   << "): its back-end tests are skipped";
    }
    backend_ = make_backend(GetParam());
  }
  void TearDown() override {
    EXPECT_TRUE(testing::children_of_self().empty()) << "a solver process was left";
  }

  std::unique_ptr<Backend> backend_;
};

TEST_P(SolverTest, SatWithAModel) {
  Answer a = backend_->check(kSat, {{"x", 8}, {"y", 8}, {"|odd name|", 3}, {"b", 0}},
                             deadline_after(60.0));
  ASSERT_EQ(a.status, Status::Sat);
  ASSERT_EQ(a.values.size(), 4U);
  unsigned long x = std::stoul(a.values[0].bits, nullptr, 2);
  unsigned long y = std::stoul(a.values[1].bits, nullptr, 2);
  EXPECT_EQ((x + y) % 256, 0x10U);
  EXPECT_LT(x, 5U);
  ASSERT_TRUE(a.values[3].is_bool);
  EXPECT_EQ(a.values[3].truth, y < x);
  ASSERT_EQ(a.values[2].width(), 3U);
  EXPECT_EQ(a.values[2].bits.back(), '1');
}

TEST_P(SolverTest, Unsat) {
  Answer a = backend_->check(kUnsat, {{"x", 8}}, deadline_after(60.0));
  EXPECT_EQ(a.status, Status::Unsat);
  EXPECT_TRUE(a.values.empty());
}

TEST_P(SolverTest, TimeoutKillsTheSolver) {
  auto start = Clock::now();
  Answer a = backend_->check(kHard, {{"p", 128}, {"q", 128}}, deadline_after(0.5));
  EXPECT_EQ(a.status, Status::Unknown);
  EXPECT_EQ(a.reason, "timeout");
  // Killed at the deadline rather than waited for: a generous bound that
  // only a missed kill can exceed.
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));
}

INSTANTIATE_TEST_SUITE_P(RealSolvers, SolverTest, ::testing::Values("z3", "cvc5", "boolector"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace kora::solve
