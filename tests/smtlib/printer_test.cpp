#include "kora/smtlib/printer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "kora/model/model_store.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"
#include "support/smtlib_corpus.h"
#include "support/term_helpers.h"
#include "support/z3_oracle.h"

namespace kora::smtlib {
namespace {

// The script followed by check-sat, as z3 answers it: "sat\n", "unsat\n",
// or whatever error z3 reports.
std::string z3_check(const std::string& script) {
  return test::run_z3(script + "(check-sat)\n");
}

// --- Fixture ---------------------------------------------------------------------------

class PrinterTest : public ::testing::Test {
 protected:
  TermManager mgr;
  ModelStore store{&mgr};
  const DataType* bv8 = mgr.bv_type(8);
  const Term* x = mgr.make_constant("x", bv8);
  const Term* y = mgr.make_constant("y", bv8);
  const Term* p = mgr.make_constant("p", mgr.bool_type());
  const Term* q = mgr.make_constant("q", mgr.bool_type());

  const Term* app(const Symbol* s, std::vector<const Term*> args) { return mgr.make_term(s, args); }
  const Term* bv(Op op, const Term* a, const Term* b) {
    return app(mgr.make_bv_symbol(op, a->type()->width()), {a, b});
  }
  std::string term(const Term* t) {
    std::ostringstream os;
    print_term(os, mgr, t);
    return os.str();
  }
  std::string value(const Term* v) {
    std::ostringstream os;
    print_value(os, mgr, v);
    return os.str();
  }
  std::string sort(const DataType* s) {
    std::ostringstream os;
    print_sort(os, mgr, s);
    return os.str();
  }
  std::string script(const std::vector<const Term*>& assertions, const PrintOptions& o = {}) {
    std::ostringstream os;
    print_script(os, mgr, assertions, o);
    return os.str();
  }
};

// --- Symbols ---------------------------------------------------------------------------

TEST(QuoteSymbolTest, SimpleSymbolsStayAsTheyAre) {
  for (const char* name : {"x", "abc_1", "k!3", "a.b", "+x", "<=?", "Bool", "BitVec", "@def0"}) {
    EXPECT_EQ(quote_symbol(name), name);
  }
}

TEST(QuoteSymbolTest, OtherNamesGoBetweenBars) {
  const std::pair<const char*, const char*> cases[] = {
      {"1x", "|1x|"},     {"a b", "|a b|"},   {"", "||"},         {"x'", "|x'|"},
      {".x", "|.x|"},     {"(x)", "|(x)|"},   {"a\nb", "|a\nb|"}, {"caf\xc3\xa9", "|caf\xc3\xa9|"},
      {"#b01", "|#b01|"}, {":key", "|:key|"},
  };
  for (const auto& [name, quoted] : cases) EXPECT_EQ(quote_symbol(name), quoted) << name;
}

TEST(QuoteSymbolTest, ReservedWordsCommandsAndOperatorNamesAreQuoted) {
  for (const char* name : {"let",     "_",       "!",           "as",          "par",    "NUMERAL",
                           "forall",  "assert",  "check-sat",   "declare-fun", "true",   "false",
                           "and",     "=",       "=>",          "distinct",    "ite",    "bvadd",
                           "bvsmod",  "extract", "zero_extend", "rotate_left", "select", "store",
                           "bvredor", "bvuaddo", "bvnego",      "define-const"}) {
    EXPECT_EQ(quote_symbol(name), "|" + std::string(name) + "|");
  }
}

TEST(QuoteSymbolTest, NamesNoSymbolCanSpellAreRefused) {
  for (const std::string& name :
       {std::string("a|b"), std::string("a\\b"), std::string("a\x01z"), std::string("\x7f")}) {
    EXPECT_THROW(quote_symbol(name), std::invalid_argument) << name;
  }
  try {
    quote_symbol("a|b");
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find("a|b"), std::string::npos) << e.what();
  }
}

TEST_F(PrinterTest, ConstantNameUndoesTheManagersBars) {
  EXPECT_EQ(constant_name(x), "x");
  EXPECT_EQ(constant_name(mgr.make_constant("a b", bv8)), "a b");
  EXPECT_EQ(constant_name(mgr.make_constant("", bv8)), "");
  EXPECT_EQ(term(mgr.make_constant("a b", bv8)), "|a b|");
  EXPECT_EQ(term(mgr.make_constant("let", bv8)), "|let|");
}

// A line break is legal between bars in SMT-LIB, so a name holding one is
// printed with the byte itself and reads back as the same constant.
TEST_F(PrinterTest, NamesWithLineBreaksPrintAsThemselvesAndReadBack) {
  const Term* c = mgr.make_constant("two\nlines", bv8);
  EXPECT_EQ(constant_name(c), "two\nlines");
  EXPECT_EQ(term(c), "|two\nlines|");
  const Term* a = mgr.make_equal(c, mgr.make_bv_number(3, 8));
  test::ReadScript again = test::read_script_text(test::printed_script(mgr, {a}), &mgr, "p");
  ASSERT_TRUE(again.errors.empty()) << again.errors.front();
  ASSERT_EQ(again.assertions.size(), 1U);
  EXPECT_EQ(again.assertions[0], a);
}

// --- Sorts and values ------------------------------------------------------------------

TEST_F(PrinterTest, Sorts) {
  const DataType* u = mgr.sort_type("my sort");
  EXPECT_EQ(sort(mgr.bool_type()), "Bool");
  EXPECT_EQ(sort(bv8), "(_ BitVec 8)");
  EXPECT_EQ(sort(u), "|my sort|");
  const DataType* inner = mgr.array_type(u, mgr.bool_type());
  EXPECT_EQ(sort(mgr.array_type(mgr.bv_type(4), inner)),
            "(Array (_ BitVec 4) (Array |my sort| Bool))");
}

TEST_F(PrinterTest, ValuesInBinaryOrHexadecimalByWidth) {
  EXPECT_EQ(value(mgr.true_term()), "true");
  EXPECT_EQ(value(mgr.false_term()), "false");
  EXPECT_EQ(value(mgr.make_bv_number(1, 1)), "#b1");
  EXPECT_EQ(value(mgr.make_bv_number(5, 3)), "#b101");
  EXPECT_EQ(value(mgr.make_bv_number(5, 4)), "#x5");
  EXPECT_EQ(value(mgr.make_bv_number(-1, 8)), "#xff");
  EXPECT_EQ(value(mgr.make_bv_number(2, 6)), "#b000010");
  EXPECT_EQ(value(mgr.make_bv_number(test::qnum(test::mpz_pow2(99) + 1), 100)),
            "#x8000000000000000000000001");
  EXPECT_EQ(value(mgr.make_bv_number(test::qnum(test::mpz_pow2(64)), 65)),
            "#b1" + std::string(64, '0'));
}

TEST_F(PrinterTest, ArrayAndAbstractValues) {
  const DataType* u = mgr.sort_type("U");
  const DataType* a = mgr.array_type(mgr.bv_type(4), mgr.bool_type());
  const DataType* aa = mgr.array_type(u, a);
  const Term* inner = mgr.make_const_array(a, mgr.false_term());
  EXPECT_EQ(value(inner), "((as const (Array (_ BitVec 4) Bool)) false)");
  EXPECT_EQ(value(mgr.make_const_array(aa, inner)),
            "((as const (Array U (Array (_ BitVec 4) Bool))) "
            "((as const (Array (_ BitVec 4) Bool)) false))");
  EXPECT_EQ(value(mgr.make_abstract_value(2, u)), "(as @2 U)");
}

TEST_F(PrinterTest, PrintValueRefusesTermsThatAreNotValues) {
  EXPECT_THROW(value(x), std::invalid_argument);
  EXPECT_THROW(value(bv(Op::BVAdd, x, y)), std::invalid_argument);
}

// --- Every operator --------------------------------------------------------------------

TEST_F(PrinterTest, EveryOperatorWithItsSmtlibNameAndIndices) {
  const DataType* arr = mgr.array_type(bv8, mgr.bool_type());
  const Term* c = mgr.make_constant("c", arr);
  const Term* u = mgr.make_abstract_value(0, mgr.sort_type("U"));
  const std::vector<std::pair<const Term*, std::string>> cases = {
      {c, "c"},
      {mgr.true_term(), "true"},
      {mgr.false_term(), "false"},
      {mgr.make_bv_number(10, 8), "#x0a"},
      {mgr.make_const_array(arr, p), "((as const (Array (_ BitVec 8) Bool)) p)"},
      {mgr.make_not(p), "(not p)"},
      {mgr.make_and(p, q), "(and p q)"},
      {mgr.make_or(p, q), "(or p q)"},
      {mgr.make_iff(p, q), "(= p q)"},
      {mgr.make_equal(x, y), "(= x y)"},
      {mgr.make_ite(p, x, y), "(ite p x y)"},
      {bv(Op::BVAdd, x, y), "(bvadd x y)"},
      {bv(Op::BVSub, x, y), "(bvsub x y)"},
      {app(mgr.make_bv_neg_symbol(8), {x}), "(bvneg x)"},
      {bv(Op::BVMul, x, y), "(bvmul x y)"},
      {bv(Op::BVShl, x, y), "(bvshl x y)"},
      {bv(Op::BVLshr, x, y), "(bvlshr x y)"},
      {bv(Op::BVAshr, x, y), "(bvashr x y)"},
      {bv(Op::BVUdiv, x, y), "(bvudiv x y)"},
      {bv(Op::BVSdiv, x, y), "(bvsdiv x y)"},
      {bv(Op::BVUrem, x, y), "(bvurem x y)"},
      {bv(Op::BVSrem, x, y), "(bvsrem x y)"},
      {app(mgr.make_bv_not_symbol(8), {x}), "(bvnot x)"},
      {bv(Op::BVAnd, x, y), "(bvand x y)"},
      {bv(Op::BVOr, x, y), "(bvor x y)"},
      {bv(Op::BVXor, x, y), "(bvxor x y)"},
      {bv(Op::BVUlt, x, y), "(bvult x y)"},
      {bv(Op::BVUle, x, y), "(bvule x y)"},
      {bv(Op::BVSlt, x, y), "(bvslt x y)"},
      {bv(Op::BVSle, x, y), "(bvsle x y)"},
      {bv(Op::BVComp, x, y), "(bvcomp x y)"},
      {app(mgr.make_bv_concat_symbol(8, 8), {x, y}), "(concat x y)"},
      {app(mgr.make_bv_extract_symbol(5, 2, 8), {x}), "((_ extract 5 2) x)"},
      {app(mgr.make_bv_zero_extend_symbol(3, 8), {x}), "((_ zero_extend 3) x)"},
      {app(mgr.make_bv_sign_extend_symbol(4, 8), {x}), "((_ sign_extend 4) x)"},
      {app(mgr.make_bv_rotate_left_symbol(3, 8), {x}), "((_ rotate_left 3) x)"},
      {app(mgr.make_bv_rotate_right_symbol(11, 8), {x}), "((_ rotate_right 11) x)"},
      {mgr.make_select(c, x), "(select c x)"},
      {mgr.make_store(c, x, p), "(store c x p)"},
  };
  std::set<Op> seen{Op::AbstractValue};  // printed by print_value, refused in terms
  EXPECT_EQ(value(u), "(as @0 U)");
  for (const auto& [t, text] : cases) {
    EXPECT_EQ(term(t), text);
    seen.insert(t->get_symbol()->op());
  }
  // A new operator fails here until it has a case above.
  for (std::size_t i = 0; i < kOpCount; ++i) {
    EXPECT_TRUE(seen.count(static_cast<Op>(i))) << "no case for " << op_name(static_cast<Op>(i));
  }
}

TEST_F(PrinterTest, AbstractValuesHaveNoSyntaxInTermsAndScripts) {
  const Term* u = mgr.make_abstract_value(3, mgr.sort_type("U"));
  const Term* k = mgr.make_constant("k", mgr.sort_type("U"));
  const Term* eq = mgr.make_equal(k, u);
  EXPECT_THROW(term(eq), std::invalid_argument);
  try {
    script({eq});
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find("abstract value (as @3 U)"), std::string::npos)
        << e.what();
  }
}

// --- Sharing ---------------------------------------------------------------------------

TEST_F(PrinterTest, SharedSubtermIsBoundOnce) {
  const Term* m = bv(Op::BVMul, x, y);
  EXPECT_EQ(term(bv(Op::BVAdd, m, m)), "(let ((k!1 (bvmul x y))) (bvadd k!1 k!1))");
}

TEST_F(PrinterTest, IndependentBindingsShareOneLetAndDependentOnesNest) {
  const Term* m = bv(Op::BVMul, x, y);
  const Term* a = bv(Op::BVAdd, x, y);
  EXPECT_EQ(term(bv(Op::BVSub, bv(Op::BVAnd, m, a), bv(Op::BVOr, m, a))),
            "(let ((k!1 (bvmul x y)) (k!2 (bvadd x y))) (bvsub (bvand k!1 k!2) (bvor k!1 k!2)))");
  const Term* d = bv(Op::BVAdd, m, m);
  EXPECT_EQ(term(bv(Op::BVSub, d, bv(Op::BVAnd, d, m))),
            "(let ((k!1 (bvmul x y))) (let ((k!2 (bvadd k!1 k!1))) "
            "(bvsub k!2 (bvand k!2 k!1))))");
}

// The same graph prints the same whether the manager holds little else or
// a great deal (the printer indexes small graphs of large managers
// differently).
TEST_F(PrinterTest, SmallGraphOfALargeManagerPrintsTheSame) {
  auto build = [](TermManager& m) {
    const Term* a = m.make_constant("a", m.bv_type(8));
    const Term* t = a;
    for (int i = 0; i < 40; ++i) {
      const Term* s = m.make_term(m.make_bv_mul_symbol(8), {t, a});
      t = m.make_term(m.make_bv_add_symbol(8), {s, s});
    }
    return t;
  };
  TermManager big;
  for (int i = 0; i < 20000; ++i) big.make_constant("filler" + std::to_string(i), big.bool_type());
  const std::string expected = term(build(mgr));
  std::ostringstream os;
  print_term(os, big, build(big));
  EXPECT_EQ(os.str(), expected);
  const std::string start = "(let ((k!1 (bvmul a a))) (let ((k!2 (bvmul (bvadd k!1 k!1) a))) ";
  EXPECT_EQ(expected.substr(0, start.size()), start);
}

TEST_F(PrinterTest, UnspellableSortNameThrowsBeforeAnythingIsWritten) {
  const Term* k = mgr.make_constant("k", mgr.sort_type("a|b"));
  std::ostringstream os;
  EXPECT_THROW(print_script(os, mgr, {mgr.make_equal(k, k)}), std::invalid_argument);
  EXPECT_EQ(os.str(), "");
}

TEST_F(PrinterTest, SharedLeavesAreWrittenOutExceptWideNumerals) {
  const Term* small = mgr.make_bv_number(7, 8);
  EXPECT_EQ(term(bv(Op::BVAdd, bv(Op::BVMul, small, x), small)), "(bvadd (bvmul #x07 x) #x07)");
  const DataType* bv80 = mgr.bv_type(80);
  const Term* wide = mgr.make_bv_number(-1, 80);
  const Term* z = mgr.make_constant("z", bv80);
  EXPECT_EQ(term(bv(Op::BVAdd, bv(Op::BVMul, wide, z), wide)),
            "(let ((k!1 #xffffffffffffffffffff)) (bvadd (bvmul k!1 z) k!1))");
}

TEST_F(PrinterTest, InventedNamesAvoidTheConstantsNames) {
  const Term* a = mgr.make_constant("k!1", bv8);
  const Term* b = mgr.make_constant("k!!2", bv8);
  const Term* c = mgr.make_constant("k!!!", bv8);  // no digits: cannot clash
  const Term* m = bv(Op::BVMul, bv(Op::BVXor, a, c), b);
  const Term* t = bv(Op::BVAdd, m, m);
  EXPECT_EQ(term(t), "(let ((k!!!1 (bvmul (bvxor k!1 k!!!) k!!2))) (bvadd k!!!1 k!!!1))");
  KORA_REQUIRE_Z3();
  // With the constants valued, the printed sum must be the folded one.
  store.set_value(a, mgr.make_bv_number(3, 8));
  store.set_value(b, mgr.make_bv_number(5, 8));
  store.set_value(c, mgr.make_bv_number(6, 8));
  const Term* v = store.get_normalized(t);
  ASSERT_TRUE(is_model_value(v));
  std::vector<const Term*> asserted{mgr.make_not(mgr.make_equal(t, v))};
  for (const Term* k : {a, b, c}) asserted.push_back(mgr.make_equal(k, store.value_of(k)));
  EXPECT_EQ(z3_check(script(asserted)), "unsat\n");
}

// x doubled 60 times: a tree of 2^60 leaves, a DAG of 61 terms.
TEST_F(PrinterTest, DoublingChainOfTreeSize2To60PrintsInLinearSize) {
  const Term* x64 = mgr.make_constant("x", mgr.bv_type(64));
  const Term* t = x64;
  for (int i = 0; i < 60; ++i) t = bv(Op::BVAdd, t, t);
  const std::string text = term(t);
  EXPECT_LT(text.size(), 60u * 40u);
  EXPECT_EQ(text.substr(0, 54), "(let ((k!1 (bvadd x x))) (let ((k!2 (bvadd k!1 k!1))) ");
  EXPECT_EQ(text.substr(text.size() - 17 - 59), "(bvadd k!59 k!59)" + std::string(59, ')'));
  const Term* start = mgr.make_bv_word(0x0123456789abcdefULL, 64);
  store.set_value(x64, start);
  const Term* folded = store.get_normalized(t);
  ASSERT_TRUE(is_model_value(folded));
  // x * 2^60 keeps only x's lowest nibble, 0xf, at the top.
  EXPECT_EQ(value(folded), "#xf000000000000000");
  const std::string sat = script({mgr.make_equal(t, folded)});
  const std::string unsat =
      script({mgr.make_equal(x64, start), mgr.make_not(mgr.make_equal(t, folded))});
  EXPECT_LT(sat.size(), 60u * 60u);
  KORA_REQUIRE_Z3();
  EXPECT_EQ(z3_check(sat), "sat\n");
  EXPECT_EQ(z3_check(unsat), "unsat\n");
}

// The deepest nesting of parentheses in text (no bars or strings in it).
std::size_t max_nesting(const std::string& text) {
  std::size_t depth = 0;
  std::size_t deepest = 0;
  for (char c : text) {
    if (c == '(') deepest = std::max(deepest, ++depth);
    if (c == ')') --depth;
  }
  return deepest;
}

TEST_F(PrinterTest, DeepTermsPrintWithoutRecursionInBoundedNesting) {
  const std::size_t depth = 200000;
  const Symbol* bvnot = mgr.make_bv_not_symbol(8);
  const Term* t = x;
  for (std::size_t i = 0; i < depth; ++i) t = app(bvnot, {t});
  const std::string text = term(t);
  // Cut every 1000 levels into a let binding: 200 lets of about 8 bytes a level.
  EXPECT_LT(text.size(), depth * 9);
  EXPECT_LE(max_nesting(text), 200U + 1002U);
  EXPECT_EQ(text.substr(0, 23), "(let ((k!1 (bvnot (bvno");
  const std::string s = script({mgr.make_equal(t, y)});
  EXPECT_LT(s.size(), depth * 9);
  EXPECT_LE(max_nesting(s), 1002U);
  test::ReadScript again = test::read_script_text(s, &mgr, "printed");
  ASSERT_TRUE(again.errors.empty()) << again.errors.front();
  ASSERT_EQ(again.assertions.size(), 1U);
  EXPECT_EQ(again.assertions[0], mgr.make_equal(t, y));
}

// A conjunction of many terms is a chain of binary ands as deep as it is
// long; the script reads back although our reader refuses nesting deeper
// than 10000 levels.
TEST_F(PrinterTest, LongConjunctionReadsBackAsTheSameTerm) {
  const std::size_t n = 30000;
  const Term* all = p;
  for (std::size_t i = 0; i < n; ++i) {
    const Term* b = mgr.make_constant("b" + std::to_string(i), mgr.bool_type());
    all = mgr.make_and(b, all);
  }
  const std::string s = script({all});
  EXPECT_LE(max_nesting(s), 1002U);
  test::ReadScript again = test::read_script_text(s, &mgr, "printed");
  ASSERT_TRUE(again.errors.empty()) << again.errors.front();
  ASSERT_EQ(again.assertions.size(), 1U);
  EXPECT_EQ(again.assertions[0], all);
}

// --- Scripts ---------------------------------------------------------------------------

TEST_F(PrinterTest, ScriptDeclaresDefinesAndAssertsInFirstOccurrenceOrder) {
  const Term* s = bv(Op::BVAdd, x, y);
  const Term* n = mgr.make_not(p);
  const std::string text =
      script({bv(Op::BVUlt, s, x), mgr.make_or(n, mgr.make_equal(s, y)), mgr.make_and(n, q)});
  EXPECT_EQ(text,
            "(set-logic QF_BV)\n"
            "(declare-fun x () (_ BitVec 8))\n"
            "(declare-fun y () (_ BitVec 8))\n"
            "(declare-fun p () Bool)\n"
            "(declare-fun q () Bool)\n"
            "(define-fun k!1 () (_ BitVec 8) (bvadd x y))\n"
            "(assert (bvult k!1 x))\n"
            "(define-fun k!2 () Bool (not p))\n"
            "(assert (or k!2 (= k!1 y)))\n"
            "(assert (and k!2 q))\n");
}

TEST_F(PrinterTest, ScriptOptionsAndRepeatedAssertions) {
  const Term* a = mgr.make_and(p, q);
  PrintOptions o;
  o.logic = "ALL";
  EXPECT_EQ(script({a, a}, o),
            "(set-logic ALL)\n(declare-fun p () Bool)\n(declare-fun q () Bool)\n"
            "(define-fun k!1 () Bool (and p q))\n(assert k!1)\n(assert k!1)\n");
  o.set_logic = false;
  EXPECT_EQ(script({}, o), "");
  EXPECT_EQ(script({}), "(set-logic QF_BV)\n");
}

TEST_F(PrinterTest, TwoConstantsOfOneNameAreRefused) {
  const Term* xb = mgr.make_constant("x", mgr.bool_type());
  try {
    script({mgr.make_and(xb, mgr.make_equal(x, y))});
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find("\"x\""), std::string::npos) << e.what();
  }
}

TEST_F(PrinterTest, NamesNeedingBarsReadBackInZ3) {
  std::vector<const Term*> names;
  for (const char* n : {"a b", "let", "and", "1x", "", "@x", "bvadd", "assert", "k!1", "|"}) {
    names.push_back(mgr.make_constant(n, bv8));
  }
  names.pop_back();  // "|" cannot be written
  EXPECT_THROW(script({mgr.make_equal(mgr.make_constant("|", bv8), x)}), std::invalid_argument);
  // All different, and each one more than the one before.
  std::vector<const Term*> asserted;
  for (std::size_t i = 0; i + 1 < names.size(); ++i) {
    asserted.push_back(bv(Op::BVUlt, names[i], names[i + 1]));
  }
  const std::string text = script(asserted);
  EXPECT_NE(text.find("(declare-fun |a b| () (_ BitVec 8))\n(declare-fun |let| ()"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("(declare-fun || ()"), std::string::npos) << text;
  KORA_REQUIRE_Z3();
  EXPECT_EQ(z3_check(text), "sat\n");
  asserted.push_back(bv(Op::BVUlt, names.back(), names.front()));
  EXPECT_EQ(z3_check(script(asserted)), "unsat\n");
}

TEST_F(PrinterTest, ArraysAndDeclaredSortsInZ3) {
  const DataType* u = mgr.sort_type("U");
  const DataType* arr = mgr.array_type(mgr.bv_type(4), u);
  const Term* u1 = mgr.make_constant("u1", u);
  const Term* u2 = mgr.make_constant("u2", u);
  const Term* a = mgr.make_constant("a", arr);
  const Term* c = mgr.make_const_array(arr, u1);
  const std::vector<const Term*> asserted = {mgr.make_equal(a, c),
                                             mgr.make_not(mgr.make_equal(u1, u2)),
                                             mgr.make_equal(mgr.make_ite(p, a, c), c)};
  const std::string text = script(asserted);
  EXPECT_EQ(text,
            "(set-logic ALL)\n"
            "(declare-sort U 0)\n"
            "(declare-fun a () (Array (_ BitVec 4) U))\n"
            "(declare-fun u1 () U)\n"
            "(declare-fun u2 () U)\n"
            "(declare-fun p () Bool)\n"
            "(define-fun k!1 () (Array (_ BitVec 4) U) ((as const (Array (_ BitVec 4) U)) u1))\n"
            "(assert (= a k!1))\n"
            "(assert (not (= u1 u2)))\n"
            "(assert (= (ite p a k!1) k!1))\n");
  const std::string arrays_only =
      script({mgr.make_equal(mgr.make_constant("b", mgr.array_type(bv8, bv8)),
                             mgr.make_const_array(mgr.array_type(bv8, bv8), x))});
  EXPECT_EQ(arrays_only.substr(0, 15), "(set-logic ALL)");
  const Term* e = mgr.make_constant("e", mgr.array_type(bv8, bv8));
  EXPECT_EQ(script({mgr.make_equal(e, e)}).substr(0, 18), "(set-logic QF_ABV)");
  EXPECT_EQ(script({mgr.make_equal(u1, u2)}).substr(0, 19), "(set-logic QF_UFBV)");
  EXPECT_EQ(script({mgr.make_equal(a, a)}).substr(0, 20), "(set-logic QF_AUFBV)");
  KORA_REQUIRE_Z3();
  EXPECT_EQ(z3_check(text), "sat\n");
  EXPECT_EQ(z3_check(arrays_only), "sat\n");
  EXPECT_EQ(z3_check(script({mgr.make_equal(a, c), mgr.make_not(mgr.make_equal(a, c))})),
            "unsat\n");
}

// --- Agreement with z3 on random DAGs over every operator -------------------------

// Grows a random DAG bottom-up: every step applies a random operator to
// terms already made (recent ones preferred, so that terms get deep and
// share arguments). Widths stay at most 16.
class RandomDag {
 public:
  RandomDag(TermManager& mgr, std::uint64_t seed) : mgr_(mgr), rng_(seed) {
    for (std::size_t w : {1, 3, 4, 8}) {
      for (const char* n : {"x", "y"})
        add(mgr_.make_constant(n + std::to_string(w), mgr_.bv_type(w)));
      add(mgr_.make_bv_word(rng_(), w));
    }
    add(mgr_.make_constant("p", mgr_.bool_type()));
    add(mgr_.make_constant("q", mgr_.bool_type()));
  }

  void grow(std::size_t steps) {
    for (std::size_t i = 0; i < steps; ++i) add(step());
  }
  // Every term made, in order.
  const std::vector<const Term*>& terms() const { return all_; }

 private:
  void add(const Term* t) {
    all_.push_back(t);
    if (t->type()->is_bool()) {
      bools_.push_back(t);
    } else {
      by_width_[t->type()->width()].push_back(t);
    }
  }
  std::size_t below(std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n - 1)(rng_);
  }
  const Term* pick(const std::vector<const Term*>& pool) {
    const std::size_t recent = std::min<std::size_t>(pool.size(), 6);
    return below(2) == 0 ? pool[pool.size() - 1 - below(recent)] : pool[below(pool.size())];
  }
  const Term* pick_bv() {
    auto it = by_width_.begin();
    std::advance(it, static_cast<std::ptrdiff_t>(below(by_width_.size())));
    return pick(it->second);
  }
  const Term* same_width(const Term* a) { return pick(by_width_[a->type()->width()]); }

  const Term* step() {
    static constexpr Op kBinary[] = {Op::BVAdd,  Op::BVSub,  Op::BVMul,  Op::BVShl,  Op::BVLshr,
                                     Op::BVAshr, Op::BVUdiv, Op::BVSdiv, Op::BVUrem, Op::BVSrem,
                                     Op::BVAnd,  Op::BVOr,   Op::BVXor,  Op::BVComp, Op::BVUlt,
                                     Op::BVUle,  Op::BVSlt,  Op::BVSle};
    const Term* a = pick_bv();
    const std::size_t w = a->type()->width();
    switch (below(14)) {
      case 0:
        return mgr_.make_not(pick(bools_));
      case 1:
        return below(2) == 0 ? mgr_.make_and(pick(bools_), pick(bools_))
                             : mgr_.make_or(pick(bools_), pick(bools_));
      case 2:
        return below(2) == 0 ? mgr_.make_iff(pick(bools_), pick(bools_))
                             : mgr_.make_equal(a, same_width(a));
      case 3:
        return below(2) == 0 ? mgr_.make_ite(pick(bools_), a, same_width(a))
                             : mgr_.make_ite(pick(bools_), pick(bools_), pick(bools_));
      case 4:
        return mgr_.make_term(mgr_.make_bv_symbol(below(2) == 0 ? Op::BVNeg : Op::BVNot, w), {a});
      case 5: {
        const Term* b = pick_bv();
        if (w + b->type()->width() > 16) return a;
        return mgr_.make_term(mgr_.make_bv_concat_symbol(w, b->type()->width()), {a, b});
      }
      case 6: {
        const std::size_t lsb = below(w);
        return mgr_.make_term(mgr_.make_bv_extract_symbol(lsb + below(w - lsb), lsb, w), {a});
      }
      case 7: {
        const std::size_t n = below(17 - w);
        return mgr_.make_term(below(2) == 0 ? mgr_.make_bv_zero_extend_symbol(n, w)
                                            : mgr_.make_bv_sign_extend_symbol(n, w),
                              {a});
      }
      case 8: {
        const std::size_t n = below(2 * w + 1);
        return mgr_.make_term(below(2) == 0 ? mgr_.make_bv_rotate_left_symbol(n, w)
                                            : mgr_.make_bv_rotate_right_symbol(n, w),
                              {a});
      }
      default: {
        const Op op = kBinary[below(std::size(kBinary))];
        return mgr_.make_term(mgr_.make_bv_symbol(op, w), {a, same_width(a)});
      }
    }
  }

  TermManager& mgr_;
  std::mt19937_64 rng_;
  std::vector<const Term*> all_;
  std::vector<const Term*> bools_;
  std::map<std::size_t, std::vector<const Term*>> by_width_;
};

// With every constant valued at random, each term of a random DAG must equal
// the value that the model store folds it to: z3 finds the negation unsat
// (printed once with define-fun, once with let) and the equations together
// with the constants' values sat.
TEST_F(PrinterTest, Z3AgreesWithTheFoldedValuesOfRandomDags) {
  KORA_REQUIRE_Z3();
  for (std::uint64_t round = 0; round < 3; ++round) {
    TermManager m;
    ModelStore s(&m);
    RandomDag dag(m, test::test_seed(round + 1));
    dag.grow(300);
    std::mt19937_64 rng(round);
    std::vector<const Term*> fixed;
    std::vector<const Term*> equations;
    std::vector<const Term*> wrong;
    for (const Term* t : dag.terms()) {
      if (t->get_symbol()->op() != Op::Constant) continue;
      const Term* v = t->type()->is_bool() ? (rng() % 2 ? m.true_term() : m.false_term())
                                           : m.make_bv_word(rng(), t->type()->width());
      s.set_value(t, v);
      fixed.push_back(m.make_equal(t, v));
    }
    for (const Term* t : dag.terms()) {
      if (t->arity() == 0) continue;
      const Term* v = s.get_normalized(t);
      ASSERT_TRUE(is_model_value(v)) << t->to_shallow_str();
      equations.push_back(m.make_equal(t, v));
      wrong.push_back(m.make_not(equations.back()));
    }
    const Term* any_wrong = wrong.front();
    for (std::size_t i = 1; i < wrong.size(); ++i) any_wrong = m.make_or(any_wrong, wrong[i]);
    std::ostringstream defined;
    std::vector<const Term*> all = fixed;
    all.push_back(any_wrong);
    print_script(defined, m, all);
    EXPECT_EQ(z3_check(defined.str()), "unsat\n") << "round " << round;
    std::ostringstream with_let;
    print_script(with_let, m, fixed);
    with_let << "(assert ";
    print_term(with_let, m, any_wrong);
    with_let << ")\n";
    EXPECT_NE(with_let.str().find("(let (("), std::string::npos);
    EXPECT_EQ(z3_check(with_let.str()), "unsat\n") << "round " << round;
    std::ostringstream agreed;
    all = fixed;
    all.insert(all.end(), equations.begin(), equations.end());
    print_script(agreed, m, all);
    EXPECT_EQ(z3_check(agreed.str()), "sat\n") << "round " << round;
    if (std::getenv("KORA_PRINTER_DUMP") != nullptr)
      std::ofstream("/tmp/printer_dump.smt2") << agreed.str();
  }
}

// --- Models ----------------------------------------------------------------------------

TEST_F(PrinterTest, ModelOneDefineFunPerConstantInTheGivenOrder) {
  const DataType* u = mgr.sort_type("U");
  const DataType* arr = mgr.array_type(mgr.bv_type(4), mgr.bool_type());
  const Term* k = mgr.make_constant("a b", u);
  const Term* a = mgr.make_constant("arr", arr);
  const Term* w = mgr.make_constant("w", mgr.bv_type(6));
  store.set_value(x, mgr.make_bv_number(42, 8));
  store.set_value(p, mgr.true_term());
  store.set_value(k, mgr.make_abstract_value(1, u));
  store.set_value(a, mgr.make_const_array(arr, mgr.true_term()));
  std::ostringstream os;
  print_model(os, mgr, {y, x, p, k, a, w}, store);
  EXPECT_EQ(os.str(),
            "(\n"
            "  (define-fun y () (_ BitVec 8) #x00)\n"
            "  (define-fun x () (_ BitVec 8) #x2a)\n"
            "  (define-fun p () Bool true)\n"
            "  (define-fun |a b| () U (as @1 U))\n"
            "  (define-fun arr () (Array (_ BitVec 4) Bool) ((as const (Array (_ BitVec 4) Bool)) "
            "true))\n"
            "  (define-fun w () (_ BitVec 6) #b000000)\n"
            ")\n");
  std::ostringstream empty;
  print_model(empty, mgr, {}, store);
  EXPECT_EQ(empty.str(), "(\n)\n");
}

}  // namespace
}  // namespace kora::smtlib
