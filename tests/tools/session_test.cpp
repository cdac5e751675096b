#include "kora-adhoc/session.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kora/calculators/adhoc_calculator.h"

namespace kora::frontend {
namespace {

struct Result {
  std::string out;
  std::string err;
  int status = 0;
};

Result run_text(const std::string& text, Options options = {}) {
  std::istringstream in(text);
  std::ostringstream out;
  std::ostringstream err;
  Result r;
  r.status = run(in, "t.smt2", out, err, std::move(options));
  r.out = out.str();
  r.err = err.str();
  return r;
}

std::string repeat(const std::string& s, std::size_t n) {
  std::string out;
  out.reserve(s.size() * n);
  for (std::size_t i = 0; i < n; ++i) out += s;
  return out;
}

TEST(Session, WorkedExample) {
  Result r = run_text(
      "(declare-const x (_ BitVec 8))\n"
      "(declare-const y (_ BitVec 8))\n"
      "(set-model-value y #xc8)\n"
      "(set-free x)\n"
      "(calculate (= x y) true)\n"
      "(get-value (x (bvadd x y)))\n");
  EXPECT_EQ(r.out, "((= x #xc8))\n((x #xc8) ((bvadd x y) #x90))\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.status, 0);
}

TEST(Session, ErrorsCarryThePositionOfTheOffendingToken) {
  struct Case {
    const char* input;
    const char* response;
  };
  const Case cases[] = {
      {"(get-value (z))", "(error \"t.smt2:1:13: unknown constant 'z'\")"},
      {"(declare-const x (_ BitVec 8))\n(declare-const w (_ BitVec 4))\n"
       "(get-value ((bvadd x w)))",
       "(error \"t.smt2:3:22: bvadd expects 2 arguments of the same bit-vector sort, got "
       "(_ BitVec 8) and (_ BitVec 4)\")"},
      {"(declare-const a Bool)\n  (get-value ((not a a)))",
       "(error \"t.smt2:2:22: not expects 1 argument, got 2\")"},
      {"(declare-const a Bool)\n(get-value ((not)))",
       "(error \"t.smt2:2:17: not expects 1 argument, got 0\")"},
      {"(get-value ((_ bv256 8)))",
       "(error \"t.smt2:1:16: the value of '(_ bv256 8)' does not fit in 8 bits: it must be below "
       "2^8\")"},
      {"(frobnicate)", "(error \"t.smt2:1:2: unknown command 'frobnicate'\")"},
      {"(echo \"x\"",
       "(error \"t.smt2:1:10: expected ')' at end of input: the '(' at line 1, "
       "column 1 is not closed\")"},
      {"(declare-const a Bool)\n(declare-const b Bool)\n(set-model-value a b)",
       "(error \"t.smt2:3:20: expected a model value (true, false, a bit-vector literal, an "
       "abstract value or a constant array of a value), got 'b'\")"},
      {"(declare-const m (Array Bool Bool))\n(calculate ((as const (Array Bool Bool)) true) m)",
       "(error \"t.smt2:2:13: no calculator for operator 'const'\")"},
      {"(get-value (\"a \"\"b\"\"\"))",
       "(error \"t.smt2:1:13: a string is not a term, got '\"\"a \"\"\"\"b\"\"\"\"\"\"'\")"},
  };
  for (const Case& c : cases) {
    Result r = run_text(c.input);
    EXPECT_EQ(r.out, std::string(c.response) + "\n") << c.input;
    EXPECT_EQ(r.status, 1) << c.input;
  }
}

TEST(Session, MalformedCommandsAreSkipped) {
  Result r = run_text("(echo \"a\")\n(bad)\n(get-value ((not\n(echo \"b\")\n)))\n(echo \"c\")");
  EXPECT_EQ(r.out,
            "a\n(error \"t.smt2:2:2: unknown command 'bad'\")\n"
            "(error \"t.smt2:4:2: unknown operator 'echo'\")\nc\n");
  EXPECT_EQ(r.status, 1);
}

TEST(Session, AnErrorInsideACommandSkipsToItsEnd) {
  Result r = run_text("(get-value ([ (((x))) ]))(echo \"next\")");
  EXPECT_EQ(r.out, "(error \"t.smt2:1:13: unexpected character '['\")\nnext\n");
}

TEST(Session, NAryOperatorsAreLeftAssociated) {
  Result r = run_text(
      "(declare-const a Bool)(declare-const b Bool)(declare-const c Bool)\n"
      "(declare-const x (_ BitVec 2))\n"
      "(get-value ((and a b c) (or a b c) (bvadd x x x) (bvmul x x x) (bvand x x x) (bvor x x x) "
      "(bvxor x x x) (concat x x x)))");
  EXPECT_EQ(r.out,
            "(((and (and a b) c) (and (and a b) c)) ((or (or a b) c) (or (or a b) c)) "
            "((bvadd (bvadd x x) x) (bvadd (bvadd x x) x)) ((bvmul (bvmul x x) x) (bvmul (bvmul x "
            "x) x)) ((bvand (bvand x x) x) (bvand (bvand x x) x)) ((bvor (bvor x x) x) (bvor (bvor "
            "x x) x)) ((bvxor (bvxor x x) x) (bvxor (bvxor x x) x)) ((concat (concat x x) x) "
            "(concat (concat x x) x)))\n");
}

TEST(Session, DeepTermsAreBuiltWithoutRecursion) {
  const std::size_t depth = 9000;
  std::string term = repeat("(not ", depth) + "a" + std::string(depth, ')');
  Result r = run_text("(declare-const a Bool)(set-model-value a true)(get-value (" + term + "))");
  EXPECT_EQ(r.out, "((" + term + " " + (depth % 2 == 0 ? "true" : "false") + "))\n");
  EXPECT_EQ(r.status, 0);
}

TEST(Session, NestingBeyondTheLimitIsRefused) {
  std::string deep = "(echo " + repeat("(", 20000) + std::string(20000, ')') + ")";
  Result r = run_text(deep + "\n(echo \"still here\")");
  EXPECT_EQ(r.out,
            "(error \"t.smt2:1:10006: nesting deeper than 10000 levels is not supported\")\n"
            "still here\n");
  // Unbalanced as well: the end of the input comes first.
  r = run_text(repeat("(", 50000));
  EXPECT_EQ(r.out,
            "(error \"t.smt2:1:10001: nesting deeper than 10000 levels is not supported\")\n");
}

TEST(Session, DeepSortsAreRefused) {
  std::string sort = repeat("(Array Bool ", 150) + "Bool" + std::string(150, ')');
  Result r = run_text("(declare-const m " + sort + ")");
  EXPECT_EQ(r.out,
            "(error \"t.smt2:1:1225: sorts nested deeper than 100 levels are not supported\")\n");
}

TEST(Session, WidthsAreCapped) {
  Result r = run_text(
      "(declare-const x (_ BitVec 1048576))\n"
      "(declare-const y (_ BitVec 1048577))\n"
      "(declare-const z (_ BitVec 184467440737095516160))\n"
      "(get-value ((concat x #b1)))\n"
      "(get-value (((_ zero_extend 18446744073709551615) #b1)))\n"
      "(get-value (((_ extract 18446744073709551616 0) #b1)))\n"
      "(get-value ((_ bv1 99999999999999999999)))\n"
      "(get-value (((_ rotate_left 99999999999999999999) #b1)))\n");
  EXPECT_EQ(r.out,
            "(error \"t.smt2:2:28: bit-vector width 1048577 exceeds the limit of 1048576 bits\")\n"
            "(error \"t.smt2:3:28: bit-vector width 184467440737095516160 exceeds the limit of "
            "1048576 bits\")\n"
            "(error \"t.smt2:4:14: the result of concat would have 1048577 bits, beyond the limit "
            "of 1048576 bits\")\n"
            "(error \"t.smt2:5:14: the result of '(_ zero_extend 18446744073709551615)' would "
            "exceed the limit of 1048576 bits\")\n"
            "(error \"t.smt2:6:49: (_ extract 18446744073709551616 0) is out of range for an "
            "argument of sort (_ BitVec 1)\")\n"
            "(error \"t.smt2:7:20: bit-vector width 99999999999999999999 exceeds the limit of "
            "1048576 bits\")\n"
            "(error \"t.smt2:8:29: rotation amount '99999999999999999999' is too large\")\n");
}

TEST(Session, WideValuesWork) {
  Result r = run_text(
      "(declare-const x (_ BitVec 1048576))\n"
      "(get-value ((= x (bvnot x))))\n"
      "(set-model-value x (_ bv0 1048576))\n"
      "(get-value ((= x (bvnot x))))\n");
  EXPECT_EQ(r.out, "(((= x (bvnot x)) (= x (bvnot x))))\n(((= x (bvnot x)) false))\n");
}

TEST(Session, EndOfInputInsideTokens) {
  EXPECT_EQ(run_text("(echo \"open").out, "(error \"t.smt2:1:7: unterminated string literal\")\n");
  EXPECT_EQ(run_text("(get-value (|open").out,
            "(error \"t.smt2:1:13: unterminated quoted symbol\")\n");
  EXPECT_EQ(run_text("(echo \"a\") ; comment").out, "a\n");
  EXPECT_EQ(run_text("").out, "");
  EXPECT_EQ(run_text("").status, 0);
}

TEST(Session, EchoKeepsItsResponseOnOneLine) {
  EXPECT_EQ(run_text("(echo \"a \"\"q\"\" \nb\")").out, "a \"q\" \\nb\n");
}

TEST(Session, CarriageReturnsAndControlsInEchoAndErrorsAreEscaped) {
  // A carriage return would let the rest of the line overwrite its start,
  // and an escape sequence would drive the terminal that shows it.
  EXPECT_EQ(run_text("(echo \"a\rb\x1b[2J\tc\x7f\")").out, "a\\rb\\x1b[2J\tc\\x7f\n");
  EXPECT_EQ(run_text("(get-value (|x\r\ny\x01|))").out,
            "(error \"t.smt2:1:13: unknown constant '|x\\r\\ny\\x01|'\")\n");
}

TEST(Session, ANulByteInQuotedInputDoesNotCutTheMessage) {
  const std::string input("(get-value (|a\0b|))(echo \"c\0d\")", 31);
  EXPECT_EQ(run_text(input).out,
            "(error \"t.smt2:1:13: unknown constant '|a\\x00b|'\")\nc\\x00d\n");
}

// Every byte can be part of a name. Whatever it is, a response that shows
// the name stays on one line, and the name as printed, read back, is the
// same constant.
TEST(Session, PrintedNamesStayOnOneLineAndReadBack) {
  std::ostringstream out;
  std::ostringstream err;
  Session session(out, err);
  for (int b = 0; b < 256; ++b) {
    const char c = static_cast<char>(b);
    // The bar and the backslash can only be written with their escapes.
    const std::string name = "|n" +
                             (c == '|'    ? std::string("\\x7c")
                              : c == '\\' ? std::string("\\x5c")
                                          : std::string(1, c)) +
                             "m|";
    std::istringstream declare("(declare-const " + name + " (_ BitVec 8))(set-model-value " + name +
                               " (_ bv" + std::to_string(b) + " 8))(get-value (" + name + "))");
    out.str("");
    ASSERT_TRUE(session.process(declare, "t")) << b << ": " << out.str();
    const std::string line = out.str();
    ASSERT_EQ(line.find_first_of("\n\r"), line.size() - 1) << b << ": " << line;
    // ((NAME #xHH))
    const std::string printed = line.substr(2, line.rfind(' ') - 2);
    std::istringstream again("(get-value (" + printed + "))");
    out.str("");
    ASSERT_TRUE(session.process(again, "t")) << b << ": " << out.str();
    EXPECT_EQ(out.str(), line) << b;
  }
}

TEST(Session, PrintedSortNamesReadBack) {
  Result r = run_text(
      "(declare-sort |S\n\r| 0)(declare-const u |S\n\r|)(set-model-value u (as @1 |S\n\r|))\n"
      "(get-value (u))(get-value ((= u (as @1 |S\\n\\r|))))");
  EXPECT_EQ(r.out, "((u (as @1 |S\\n\\r|)))\n(((= u (as @1 |S\\n\\r|)) true))\n");
  EXPECT_EQ(r.status, 0);
}

// Stands in for the complete inverter: records a value for the only
// argument of a negation, refuses everything else with a message that
// needs escaping.
class FakeInverter final : public Inverter {
 public:
  FakeInverter(TermManager* mgr, ModelStore* store, int* built) : mgr_(mgr), store_(store) {
    ++*built;
  }
  bool handles(const Term* t) const override { return t->get_symbol()->op() != Op::Ite; }
  void operator()(const Term* t, const Term* v) override {
    if (t->get_symbol()->op() != Op::Not) {
      throw adhoccalculator::AdHocCalculator::error("say \"no\"\nplease");
    }
    const Term* value = v == mgr_->true_term() ? mgr_->false_term() : mgr_->true_term();
    store_->add_model_constraint(mgr_->make_iff(t->arg(0), value), true);
  }

 private:
  TermManager* mgr_;
  ModelStore* store_;
};

TEST(Session, InvertGoesThroughTheInstalledInverter) {
  int built = 0;
  Options options;
  options.make_inverter = [&built](TermManager* mgr, ModelStore* store,
                                   adhoccalculator::FreeTermPredicate*) {
    return std::make_unique<FakeInverter>(mgr, store, &built);
  };
  Result r = run_text(
      "(declare-const a Bool)(declare-const b Bool)(declare-const x (_ BitVec 1))\n"
      "(invert (not a) true)\n"
      "(invert (and a b) true)\n"
      "(invert (ite a x x) #b1)\n"
      "(check-model)\n"
      "(set-model-value a true)\n"
      "(check-model)\n"
      "(reset)\n"
      "(check-model)\n",
      std::move(options));
  EXPECT_EQ(r.out,
            "((= a false))\n"
            "(error \"say \"\"no\"\"\\nplease\")\n"
            "(error \"t.smt2:4:10: invert: no inverter for operator 'ite'\")\n"
            "(model-ok 1)\n"
            "(model-violations (((not a) true false)))\n"
            "(model-ok 0)\n");
  EXPECT_EQ(built, 2);
}

TEST(Session, InvertWithoutAnInverterIsMalformed) {
  Options options;
  options.make_inverter = nullptr;
  Result r = run_text("(declare-const a Bool)\n(invert (not a) true)", std::move(options));
  EXPECT_EQ(r.out, "(error \"t.smt2:2:2: invert: no complete inverter in this build\")\n");
  EXPECT_EQ(r.status, 1);
}

TEST(Session, LogRecordsGoToTheErrorStream) {
  Options options;
  options.verbosity = 2;
  Result r =
      run_text("(declare-const a Bool)(set-free a)(calculate (not a) true)", std::move(options));
  EXPECT_EQ(r.out, "((= a false))\n");
  EXPECT_EQ(r.err, "calculated adhoc a := false ..\n");
}

TEST(Session, InputsShareOneSessionUntilExit) {
  std::ostringstream out;
  std::ostringstream err;
  Session session(out, err);
  std::istringstream first("(declare-const a Bool)(oops)");
  std::istringstream second("(set-free a)(calculate (not a) false)(exit)(echo \"no\")");
  std::istringstream third("(echo \"never\")");
  EXPECT_FALSE(session.process(first, "first"));
  EXPECT_TRUE(session.process(second, "second"));
  EXPECT_TRUE(session.exited());
  EXPECT_FALSE(session.ok());
  EXPECT_EQ(out.str(), "(error \"first:1:24: unknown command 'oops'\")\n((= a true))\n");
}

// Arbitrary input must never crash, hang or leak (the sanitizer build
// checks the last two); the bytes favour the lexer's interesting characters.
TEST(Session, SurvivesArbitraryInput) {
  const std::string alphabet =
      "()()()  \n;|\"#bx01:_@ abxyz=.-\\\x01\xff"
      "(declare-const x (_ BitVec 8))(set-free x)(calculate (and a b) true)"
      "(get-value ((bvadd x x)))(as @1 U)((as const (Array Bool Bool)) true)"
      "(declare-sort U 0)(declare-const a Bool)(declare-const b Bool)(reset)(check-model)";
  std::mt19937 rng(12345);
  for (int i = 0; i < 3000; ++i) {
    std::string input;
    std::size_t length = rng() % 300;
    for (std::size_t k = 0; k < length; ++k) {
      if (rng() % 4 == 0) {
        std::size_t start = rng() % alphabet.size();
        input += alphabet.substr(start, rng() % 30);
      } else {
        input += alphabet[rng() % alphabet.size()];
      }
    }
    Result r = run_text(input);
    EXPECT_TRUE(r.status == 0 || r.status == 1) << input;
  }
}

}  // namespace
}  // namespace kora::frontend
