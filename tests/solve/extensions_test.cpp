// The reduction and overflow operators end to end: kora-solve with each
// installed back end, exhaustively at widths 1 to 4, judged by integer
// arithmetic. None of the back ends is sent the operators themselves (z3 4.8
// and Boolector read none of the overflow ones), so every answer here also
// shows that their definitions reached the back end instead.
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "kora-solve/command_line.h"
#include "solve/children.h"
#include "support/extension_reference.h"

namespace kora::solve {
namespace {

using u64 = std::uint64_t;

std::string binary(u64 v, std::size_t w) {
  std::string s = "#b";
  for (std::size_t k = w; k-- > 0;) s += ((v >> k) & 1) != 0 ? '1' : '0';
  return s;
}

// (op x) or (op x y) as written, and the literal of result r.
std::string application(std::string_view op) {
  return "(" + std::string(op) + (test::is_unary_extension(op) ? " x)" : " x y)");
}
std::string result(std::string_view op, u64 r) {
  if (op.starts_with("bvred")) return r != 0 ? "#b1" : "#b0";
  return r != 0 ? "true" : "false";
}

// The assignments of x (and y) for which op gives 1, as a disjunction.
std::string truth_table(std::string_view op, std::size_t w) {
  const bool unary = test::is_unary_extension(op);
  std::string table = "(or false";
  for (u64 s = 0; s < (u64{1} << w); ++s) {
    for (u64 t = 0; t < (unary ? 1 : u64{1} << w); ++t) {
      if (test::extension_value(op, s, t, w) == 0) continue;
      table +=
          " (and (= x " + binary(s, w) + ")" + (unary ? "" : " (= y " + binary(t, w) + ")") + ")";
    }
  }
  return table + ")";
}

struct Case {
  std::string_view op;
  std::size_t w;
  u64 wanted;  // the result asked for, or 2: the whole truth table
};

// Whether some arguments give the result asked for.
bool possible(const Case& c) {
  for (u64 s = 0; s < (u64{1} << c.w); ++s) {
    for (u64 t = 0; t < (u64{1} << c.w); ++t) {
      if (test::extension_value(c.op, s, t, c.w) == c.wanted) return true;
    }
  }
  return false;
}

// One scope per case: the truth table (unsat when the operator is right
// everywhere), or a result asked for (a model, or unsat when no arguments
// give it).
std::string script(const std::vector<Case>& cases) {
  std::string text = "(set-logic QF_BV)\n";
  for (const Case& c : cases) {
    const std::string sort = "(_ BitVec " + std::to_string(c.w) + ")";
    text += "(push 1)(declare-const x " + sort + ")(declare-const y " + sort + ")\n";
    if (c.wanted == 2) {
      const std::string is_one =
          c.op.starts_with("bvred") ? "(= " + application(c.op) + " #b1)" : application(c.op);
      text += "(assert (not (= " + is_one + " " + truth_table(c.op, c.w) + ")))\n(check-sat)\n";
    } else {
      text +=
          "(assert (= " + application(c.op) + " " + result(c.op, c.wanted) + "))\n(check-sat)\n";
      if (possible(c)) text += "(get-value (x y))\n";
    }
    text += "(pop 1)\n";
  }
  return text;
}

// The value after `prefix` in a get-value answer: #b... or #x...
std::optional<u64> value_of(const std::string& answer, const std::string& prefix) {
  const std::size_t at = answer.find(prefix);
  if (at == std::string::npos) return std::nullopt;
  const std::size_t start = at + prefix.size();
  const std::size_t end = answer.find(')', start);
  if (end == std::string::npos || end < start + 3 || answer[start] != '#') return std::nullopt;
  const int base = answer[start + 1] == 'b' ? 2 : 16;
  return std::stoull(answer.substr(start + 2, end - start - 2), nullptr, base);
}

class Extensions : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (!testing::on_path(GetParam())) {
      GTEST_SKIP() << GetParam() << " is not installed (apt-get install " << GetParam()
                   << "): its end-to-end tests are skipped";
    }
  }
};

TEST_P(Extensions, EveryOperatorAtWidthsOneToFour) {
  std::vector<Case> cases;
  for (std::string_view op : test::kExtensionNames) {
    for (std::size_t w = 1; w <= 4; ++w) {
      for (u64 wanted : {u64{2}, u64{0}, u64{1}}) cases.push_back({op, w, wanted});
    }
  }
  std::istringstream in(script(cases));
  std::ostringstream out;
  std::ostringstream err;
  ASSERT_EQ(run_command_line({"--solver", GetParam()}, in, out, err), 0) << out.str() << err.str();

  std::istringstream lines(out.str());
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.op) + " at width " + std::to_string(c.w) + ", asked " +
                 std::to_string(c.wanted));
    std::string answer;
    ASSERT_TRUE(std::getline(lines, answer));
    if (c.wanted == 2 || !possible(c)) {
      EXPECT_EQ(answer, "unsat");
      continue;
    }
    ASSERT_EQ(answer, "sat");
    std::string model;
    ASSERT_TRUE(std::getline(lines, model));
    const std::optional<u64> x = value_of(model, "((x ");
    const std::optional<u64> y = value_of(model, " (y ");
    ASSERT_TRUE(x && y) << model;
    EXPECT_EQ(test::extension_value(c.op, *x, *y, c.w), c.wanted) << model;
  }
  std::string rest;
  EXPECT_FALSE(std::getline(lines, rest)) << rest;
  EXPECT_TRUE(testing::children_of_self().empty()) << "a solver process was left";
}

INSTANTIATE_TEST_SUITE_P(Solvers, Extensions, ::testing::Values("z3", "cvc5", "boolector"),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                           return std::string(info.param);
                         });

}  // namespace
}  // namespace kora::solve
