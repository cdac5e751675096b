// Inputs far beyond the front end's limits: literals and numerals with
// millions of digits. Each is refused with the same message as a slightly
// too large one, and in time linear in its length (the lexer's pass over
// it), never by reading it into a number first.

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <streambuf>
#include <string>

#include "kora-adhoc/session.h"

namespace kora::frontend {
namespace {

constexpr std::size_t kDigits = 3'000'000;

std::string run_text(const std::string& text) {
  std::istringstream in(text);
  std::ostringstream out;
  std::ostringstream err;
  run(in, "t.smt2", out, err);
  EXPECT_EQ(err.str(), "");
  return out.str();
}

// The response to a one-line input, which must start with want.
void expect_refused(const std::string& input, const std::string& want) {
  const auto start = std::chrono::steady_clock::now();
  const std::string out = run_text(input);
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(out.substr(0, want.size()), want) << out.substr(0, 300);
  EXPECT_EQ(out.back(), '\n');
  EXPECT_EQ(out.find('\n'), out.size() - 1) << "one response line";
  // Generous: a sanitizer build lexes a few megabytes in well under this.
  EXPECT_LT(elapsed, std::chrono::seconds(30));
}

TEST(InputLimits, LiteralsWithMillionsOfDigits) {
  expect_refused("(get-value (#x" + std::string(kDigits, 'f') + "))",
                 "(error \"t.smt2:1:13: bit-vector literal of 12000000 bits exceeds the limit of "
                 "1048576 bits\")");
  expect_refused("(get-value (#b" + std::string(kDigits, '1') + "))",
                 "(error \"t.smt2:1:13: bit-vector literal of 3000000 bits exceeds the limit of "
                 "1048576 bits\")");
  // A decimal value is refused by its number of digits alone, at any width.
  expect_refused("(get-value ((_ bv" + std::string(kDigits, '9') + " 8)))",
                 "(error \"t.smt2:1:16: the value of '(_ bv99999");
  expect_refused("(get-value ((_ bv" + std::string(kDigits, '9') + " 1048576)))",
                 "(error \"t.smt2:1:16: the value of '(_ bv99999");
}

// The digit count refuses only what cannot fit: 2^w - 1 is accepted at every
// width, 2^w refused, on both sides of the count's bound.
TEST(InputLimits, DecimalLiteralsAtTheirWidthsBound) {
  for (std::size_t w = 1; w <= 400; ++w) {
    mpz_class top = 1;
    top <<= w;
    const std::string fits = mpz_class(top - 1).get_str();
    const std::string over = top.get_str();
    const std::string width = " " + std::to_string(w) + ")))";
    EXPECT_EQ(run_text("(get-value ((_ bv" + fits + width).substr(0, 3), "((#") << w;
    EXPECT_EQ(run_text("(get-value ((_ bv" + over + width).substr(0, 7), "(error ") << w;
  }
}

TEST(InputLimits, NumeralsWithMillionsOfDigits) {
  const std::string n(kDigits, '7');
  expect_refused("(declare-const x (_ BitVec " + n + "))",
                 "(error \"t.smt2:1:28: bit-vector width 77777");
  expect_refused("(get-value ((_ bv1 " + n + ")))", "(error \"t.smt2:1:20: bit-vector width 77777");
  expect_refused("(get-value (((_ extract " + n + " 0) #b1)))",
                 "(error \"t.smt2:1:" + std::to_string(29 + kDigits) + ": (_ extract 77777");
  expect_refused("(get-value (((_ rotate_left " + n + ") #b1)))",
                 "(error \"t.smt2:1:29: rotation amount '77777");
  expect_refused("(get-value (((_ zero_extend " + n + ") #b1)))",
                 "(error \"t.smt2:1:14: the result of '(_ zero_extend 77777");
  expect_refused("(declare-sort U 0)(get-value ((as @" + n + " U)))",
                 "(error \"t.smt2:1:35: abstract value index '@77777");
}

TEST(InputLimits, HugeVerbositySaturates) {
  EXPECT_EQ(run_text("(set-option :verbosity " + std::string(kDigits, '9') + ")(echo \"ok\")"),
            "ok\n");
}

// Counts what is written and remembers the largest single write.
class CountingBuffer final : public std::streambuf {
 public:
  std::size_t total = 0;
  std::size_t largest_write = 0;
  std::size_t lines = 0;

 protected:
  int_type overflow(int_type c) override {
    if (c == '\n') ++lines;
    ++total;
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    const auto size = static_cast<std::size_t>(n);
    total += size;
    largest_write = std::max(largest_write, size);
    lines += static_cast<std::size_t>(std::count(s, s + n, '\n'));
    return n;
  }
};

// A response may list thousands of values of 2^20 bits each; it is written
// value by value, never built whole in memory (which took gigabytes for a
// few kilobytes of input).
TEST(InputLimits, WideResponsesAreWrittenPieceByPiece) {
  std::string script =
      "(declare-const x (_ BitVec 1048576))(declare-const y (_ BitVec 1048576))"
      "(set-free x)(set-free y)"
      "(calculate ((_ extract 7 0) x) #xa5)(calculate ((_ extract 7 0) y) #x5a)"
      "(set-model-value x #b" +
      std::string(1048576, '1') + ")";
  script += "(get-value (";
  for (int i = 0; i < 400; ++i) script += "x y ";
  script += "))(get-constraints)(check-model)";
  std::istringstream in(script);
  CountingBuffer out_buffer;
  std::ostream out(&out_buffer);
  std::ostringstream err;
  EXPECT_EQ(run(in, "t.smt2", out, err), 0);
  EXPECT_EQ(err.str(), "");
  // Two calculate responses, get-value, get-constraints, check-model: each
  // one line, together more than 800 values of 262144 hexadecimal digits.
  EXPECT_EQ(out_buffer.lines, 5u);
  EXPECT_GT(out_buffer.total, 800u * 262144u);
  EXPECT_LT(out_buffer.largest_write, 300000u);
}

}  // namespace
}  // namespace kora::frontend
