#include "kora/smtlib/script.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace kora::smtlib {
namespace {

using Kind = Command::Kind;

class Script : public ::testing::Test {
 protected:
  // Reads the whole script; errors are kept as their messages.
  std::vector<Command> read(const std::string& text) {
    in_ = std::make_unique<std::istringstream>(text);
    reader_ = std::make_unique<ScriptReader>(*in_, &mgr_, "t.smt2");
    std::vector<Command> commands;
    errors_.clear();
    attributes_.clear();
    for (;;) {
      try {
        std::optional<Command> c = reader_->next();
        if (!c) break;
        // An attribute lives until the next command is read.
        attributes_.push_back(c->attribute != nullptr ? source_text(*c->attribute) : "");
        commands.push_back(std::move(*c));
      } catch (const InputError& e) {
        errors_.push_back(reader_->message(e));
      }
    }
    return commands;
  }
  // The one error of a script that declares x and y of 8 bits first.
  std::string error_of(const std::string& text) {
    read("(declare-const x (_ BitVec 8))(declare-const y (_ BitVec 8))\n" + text);
    EXPECT_EQ(errors_.size(), 1U) << text;
    return errors_.empty() ? "" : errors_.front();
  }
  // The term of the last assert or get-value of a script.
  const Term* last_term(const std::string& text) {
    std::vector<Command> commands = read(text);
    EXPECT_TRUE(errors_.empty()) << (errors_.empty() ? "" : errors_.front());
    for (auto it = commands.rbegin(); it != commands.rend(); ++it) {
      if (it->kind == Kind::Assert) return it->term;
      if (it->kind == Kind::GetValue) return it->terms.back();
    }
    ADD_FAILURE() << "no term in " << text;
    return nullptr;
  }
  const Term* bv(Op op, const Term* a, const Term* b) {
    return mgr_.make_term(mgr_.make_bv_symbol(op, a->type()->width()), {a, b});
  }

  TermManager mgr_;
  std::unique_ptr<std::istringstream> in_;
  std::unique_ptr<ScriptReader> reader_;
  std::vector<std::string> errors_;
  std::vector<std::string> attributes_;
};

TEST_F(Script, EveryCommandOfAStandardScript) {
  std::vector<Command> c = read(
      "(set-info :smt-lib-version 2.6)(set-option :produce-models true)(set-logic QF_BV)\n"
      "(declare-const x (_ BitVec 4))(declare-fun p () Bool)(define-sort W () (_ BitVec 4))\n"
      "(define-fun inc ((a W)) W (bvadd a #x1))(define-fun z () W #x0)\n"
      "(assert (! (= (inc x) z) :named goal))(check-sat)(check-sat-assuming (p (not p)))\n"
      "(get-model)(get-value (x (inc  x)))(get-assignment)(get-info :name)(push 2)(pop)\n"
      "(reset-assertions)(echo \"hi\")(reset)(exit)");
  ASSERT_TRUE(errors_.empty()) << errors_.front();
  std::vector<Kind> kinds;
  for (const Command& k : c) kinds.push_back(k.kind);
  EXPECT_EQ(kinds, (std::vector<Kind>{Kind::SetInfo,
                                      Kind::SetOption,
                                      Kind::SetLogic,
                                      Kind::DeclareConst,
                                      Kind::DeclareConst,
                                      Kind::DefineSort,
                                      Kind::DefineFun,
                                      Kind::DefineFun,
                                      Kind::Assert,
                                      Kind::CheckSat,
                                      Kind::CheckSatAssuming,
                                      Kind::GetModel,
                                      Kind::GetValue,
                                      Kind::GetAssignment,
                                      Kind::GetInfo,
                                      Kind::Push,
                                      Kind::Pop,
                                      Kind::ResetAssertions,
                                      Kind::Echo,
                                      Kind::Reset,
                                      Kind::Exit}));
  EXPECT_EQ(c[0].name, ":smt-lib-version");
  EXPECT_EQ(attributes_[0], "2.6");
  EXPECT_EQ(attributes_[1], "true");
  EXPECT_EQ(attributes_[14], "");
  EXPECT_EQ(c[2].name, "QF_BV");
  EXPECT_EQ(name_of(c[3].term), "x");
  EXPECT_EQ(c[4].term->type(), mgr_.bool_type());
  EXPECT_EQ(c[7].term, mgr_.make_bv_word(0, 4));
  const Term* x = c[3].term;
  const Term* inc_x = bv(Op::BVAdd, x, mgr_.make_bv_word(1, 4));
  EXPECT_EQ(c[8].term, mgr_.make_equal(inc_x, mgr_.make_bv_word(0, 4)));
  EXPECT_EQ(c[10].terms, (std::vector<const Term*>{c[4].term, mgr_.make_not(c[4].term)}));
  EXPECT_EQ(c[12].terms, (std::vector<const Term*>{x, inc_x}));
  EXPECT_EQ(c[12].written, (std::vector<std::string>{"x", "(inc x)"}));
  EXPECT_EQ(c[14].name, ":name");
  EXPECT_EQ(c[15].count, 2U);
  EXPECT_EQ(c[16].count, 1U);
  EXPECT_EQ(c[18].name, "hi");
}

TEST_F(Script, NamesAreGivenBackAsDeclared) {
  std::vector<Command> c = read("(declare-const |two words| Bool)(declare-fun |plain| () Bool)");
  ASSERT_EQ(reader_->declared().size(), 2U);
  EXPECT_EQ(c[0].name, "two words");
  EXPECT_EQ(name_of(reader_->declared()[0]), "two words");
  EXPECT_EQ(name_of(reader_->declared()[1]), "plain");
}

// Names with line breaks or control bytes are legal between bars; the term
// layer keeps them escaped so that its own output stays on one line, and
// name_of must give back the bytes that were declared.
TEST_F(Script, NamesWithLineBreaksAreGivenBackAsDeclared) {
  std::vector<Command> c = read("(declare-const |two\nlines| Bool)(declare-const |a\tb| Bool)");
  ASSERT_TRUE(errors_.empty()) << errors_.front();
  ASSERT_EQ(reader_->declared().size(), 2U);
  EXPECT_EQ(c[0].name, "two\nlines");
  EXPECT_EQ(name_of(reader_->declared()[0]), "two\nlines");
  EXPECT_EQ(name_of(reader_->declared()[1]), "a\tb");
}

// No solver reads a control character in a symbol (nor '|' or '\', which
// only kora's escapes can put there), so such a name is refused where it is
// declared, with the name escaped in the message, and the script goes on.
TEST_F(Script, NamesWithControlCharactersAreRefusedPrintably) {
  const std::string nul_name("nul\0name", 8);
  read("(declare-const |" + nul_name + "| Bool)(declare-fun |a\x01| () Bool)" +
       "(define-sort |s\x7f| () Bool)(declare-const |bar\\x7c| Bool)" +
       "(assert (let ((|v\x1b| true)) true))(declare-const ok Bool)");
  EXPECT_EQ(errors_, (std::vector<std::string>{
                         "t.smt2:1:16: cannot declare |nul\\x00name|: a constant name cannot "
                         "hold the control character 0x00",
                         "t.smt2:1:45: cannot declare |a\\x01|: a constant name cannot hold the "
                         "control character 0x01",
                         "t.smt2:1:71: cannot declare |s\\x7f|: a sort name cannot hold the "
                         "control character 0x7f",
                         "t.smt2:1:99: cannot declare |bar\\x7c|: a constant name cannot hold "
                         "'|'",
                         "t.smt2:1:129: cannot declare |v\\x1b|: a variable name cannot hold "
                         "the control character 0x1b"}));
  ASSERT_EQ(reader_->declared().size(), 1U);
  EXPECT_EQ(name_of(reader_->declared()[0]), "ok");
}

TEST_F(Script, LetBindsInParallelAndShadows) {
  const Term* t = last_term(
      "(declare-const x (_ BitVec 8))(declare-const y (_ BitVec 8))"
      "(get-value ((let ((x y) (y x)) (let ((x (bvneg x))) (bvsub x y)))))");
  const Term* x = mgr_.make_constant("x", mgr_.bv_type(8));
  const Term* y = mgr_.make_constant("y", mgr_.bv_type(8));
  const Term* neg_y = mgr_.make_term(mgr_.make_bv_neg_symbol(8), {y});
  EXPECT_EQ(t, bv(Op::BVSub, neg_y, x));
  // The variables are gone after the term.
  EXPECT_EQ(last_term("(get-value ((let ((q true)) q)))"), mgr_.true_term());
  EXPECT_NE(error_of("(get-value (q))").find("unknown constant 'q'"), std::string::npos);
}

TEST_F(Script, QualifiedIdentifiersAreChecked) {
  EXPECT_EQ(last_term("(declare-const x Bool)(assert (as x Bool))"),
            mgr_.make_constant("x", mgr_.bool_type()));
  EXPECT_EQ(error_of("(get-value ((as x Bool)))"),
            "t.smt2:2:13: 'x' has sort (_ BitVec 8), not Bool");
}

TEST_F(Script, NamedTermsAreDefinedAndListed) {
  read(
      "(declare-const p Bool)(assert (! (not p) :named np :other 1))(assert np)"
      "(get-value ((! p :named q)))(push)(assert (! p :named r))");
  ASSERT_TRUE(errors_.empty()) << errors_.front();
  const Term* p = mgr_.make_constant("p", mgr_.bool_type());
  ASSERT_EQ(reader_->named().size(), 3U);
  EXPECT_EQ(reader_->named()[0], std::make_pair(std::string("np"), mgr_.make_not(p)));
  EXPECT_EQ(reader_->named()[1], std::make_pair(std::string("q"), p));
  read("(declare-const p Bool)(push)(assert (! p :named r))(pop)(assert r)");
  EXPECT_EQ(errors_, std::vector<std::string>{"t.smt2:1:65: unknown constant 'r'"});
  EXPECT_TRUE(reader_->named().empty());
}

// Each definition doubles the size of the tree the last one denotes; the
// term graph grows by the size of one body per definition.
TEST_F(Script, DefinedFunctionsExpandWithoutBlowingUp) {
  std::string text =
      "(declare-const x (_ BitVec 16))(define-fun f0 ((a (_ BitVec 16))) "
      "(_ BitVec 16) (bvadd a #x0001))";
  for (int i = 1; i <= 64; ++i) {
    std::string prev = "f" + std::to_string(i - 1);
    text += "(define-fun f" + std::to_string(i) + " ((a (_ BitVec 16))) (_ BitVec 16) (bvmul (" +
            prev + " a) (" + prev + " a)))";
  }
  std::size_t before = mgr_.term_count();
  const Term* t = last_term(text + "(assert (= (f64 x) x))");
  ASSERT_NE(t, nullptr);
  EXPECT_LT(mgr_.term_count() - before, 64U * 64U);
  // The expansion of f1 by hand.
  EXPECT_EQ(last_term("(declare-const x (_ BitVec 16))"
                      "(get-value ((bvmul (bvadd x #x0001) (bvadd x #x0001))))"),
            last_term(text + "(get-value ((f1 x)))"));
}

// Each level calls the last with two different arguments: the body doubles
// per level, and the first definition past the budget is refused (so the
// later ones name an unknown function).
TEST_F(Script, ExpansionIsBounded) {
  std::string text = "(define-fun f0 ((a (_ BitVec 8))) (_ BitVec 8) a)";
  for (int i = 1; i <= 30; ++i) {
    std::string prev = "f" + std::to_string(i - 1);
    text += "(define-fun f" + std::to_string(i) + " ((a (_ BitVec 8))) (_ BitVec 8) (bvmul (" +
            prev + " (bvadd a #x01)) (" + prev + " (bvadd a #x02))))";
  }
  std::vector<Command> c =
      read(text + "(declare-const x (_ BitVec 8))(assert (= (f30 x) x))(assert (= (f0 x) x))");
  ASSERT_GT(errors_.size(), 1U);
  EXPECT_NE(errors_[0].find("takes more than 1048576 steps"), std::string::npos) << errors_[0];
  for (std::size_t k = 1; k < errors_.size(); ++k) {
    EXPECT_NE(errors_[k].find("unknown function or operator"), std::string::npos) << errors_[k];
  }
  ASSERT_FALSE(c.empty());
  EXPECT_EQ(c.back().kind, Kind::Assert);
}

TEST_F(Script, ParametersShadowConstantsAndArgumentsAreSubstitutedSimultaneously) {
  const Term* t = last_term(
      "(declare-const a (_ BitVec 8))(declare-const b (_ BitVec 8))"
      "(define-fun f ((a (_ BitVec 8)) (b (_ BitVec 8))) (_ BitVec 8) (bvsub a b))"
      "(get-value ((f b a)))");
  const Term* a = mgr_.make_constant("a", mgr_.bv_type(8));
  const Term* b = mgr_.make_constant("b", mgr_.bv_type(8));
  EXPECT_EQ(t, bv(Op::BVSub, b, a));
}

// A name bound three times over (a constant, a let, an inner let) comes back
// to each earlier meaning as the scopes close, inside one term and across
// commands.
TEST_F(Script, ShadowedNamesComeBackInnermostFirst) {
  const Term* t = last_term(
      "(declare-const x (_ BitVec 8))"
      "(get-value ((bvadd (let ((x (bvnot x))) (bvsub (let ((x (bvneg x))) x) x)) x)))");
  const Term* x = mgr_.make_constant("x", mgr_.bv_type(8));
  const Term* not_x = mgr_.make_term(mgr_.make_bv_not_symbol(8), {x});
  const Term* neg_not_x = mgr_.make_term(mgr_.make_bv_neg_symbol(8), {not_x});
  EXPECT_EQ(t, bv(Op::BVAdd, bv(Op::BVSub, neg_not_x, not_x), x));
  EXPECT_EQ(last_term("(assert (let ((x true)) (let ((x false)) x)))"), mgr_.false_term());
  EXPECT_EQ(last_term("(declare-const z Bool)(push)(assert (let ((z (_ bv1 8))) (= z z)))"
                      "(declare-const w Bool)(pop)(assert z)"),
            mgr_.make_constant("z", mgr_.bool_type()));
}

TEST_F(Script, DefinedSortsAndPopScopes) {
  read(
      "(define-sort B () (_ BitVec 3))(push 3)(declare-const x B)(define-sort C () Bool)"
      "(define-fun g ((v B)) B v)(pop 2)(declare-const x C)(pop)(declare-const x B)");
  EXPECT_EQ(errors_, std::vector<std::string>{"t.smt2:1:132: unknown sort 'C'"});
  ASSERT_EQ(reader_->declared().size(), 1U);
  EXPECT_EQ(reader_->declared()[0]->type(), mgr_.bv_type(3));
  EXPECT_EQ(reader_->depth(), 0U);
}

TEST_F(Script, ResetForgetsAndResetAssertionsPopsEveryLevel) {
  read(
      "(declare-const x Bool)(push 2)(declare-const y Bool)(reset-assertions)(assert y)"
      "(assert x)(reset)(assert x)");
  EXPECT_EQ(errors_, (std::vector<std::string>{"t.smt2:1:79: unknown constant 'y'",
                                               "t.smt2:1:106: unknown constant 'x'"}));
  EXPECT_TRUE(reader_->declared().empty());
}

TEST_F(Script, AHugePushCostsNothing) {
  read(
      "(declare-const x Bool)(push 4000000000)(declare-const y Bool)(pop 3999999999)"
      "(assert x)(assert y)");
  EXPECT_EQ(errors_, std::vector<std::string>{"t.smt2:1:96: unknown constant 'y'"});
  EXPECT_EQ(reader_->depth(), 1U);
  EXPECT_EQ(reader_->declared().size(), 1U);
}

TEST_F(Script, DeepTermsUseNoCallStack) {
  std::string text = "(declare-const x Bool)(assert ";
  for (int i = 0; i < 9000; ++i) text += "(let ((x (not x))) ";
  text += "x";
  for (int i = 0; i < 9000; ++i) text += ")";
  const Term* t = last_term(text + ")");
  const Term* expected = mgr_.make_constant("x", mgr_.bool_type());
  for (int i = 0; i < 9000; ++i) expected = mgr_.make_not(expected);
  EXPECT_EQ(t, expected);
}

TEST_F(Script, DefineConstIsANullaryDefineFun) {
  std::vector<Command> commands = read(
      "(declare-const x (_ BitVec 4))(define-const c (_ BitVec 4) (bvadd x #x1))(push 1)"
      "(define-const d Bool (bvult c x))(assert d)(pop 1)(assert d)(assert (= c x))");
  EXPECT_EQ(errors_, std::vector<std::string>{"t.smt2:1:140: unknown constant 'd'"});
  ASSERT_EQ(commands.size(), 7U);
  EXPECT_EQ(commands[1].kind, Kind::DefineFun);
  EXPECT_EQ(commands[1].name, "c");
  const Term* x = mgr_.make_constant("x", mgr_.bv_type(4));
  const Term* c = bv(Op::BVAdd, x, mgr_.make_bv_word(1, 4));
  EXPECT_EQ(commands[1].term, c);
  EXPECT_EQ(commands[4].term, bv(Op::BVUlt, c, x));
  EXPECT_EQ(commands[6].term, mgr_.make_equal(c, x));
  // Only declared constants are listed for get-model.
  EXPECT_EQ(reader_->declared(), std::vector<const Term*>{x});
}

// Names starting with '@' are the script's own: declared, looked up with or
// without bars, given back as declared, and never one of kora's fresh
// constants.
TEST_F(Script, NamesStartingWithAtAreDeclared) {
  std::vector<Command> commands = read(
      "(declare-fun @def0 () (_ BitVec 4))(declare-const |@1| Bool)(define-const @c Bool @1)"
      "(assert (= |@def0| (ite @c #x1 (as @def0 (_ BitVec 4)))))");
  EXPECT_TRUE(errors_.empty()) << errors_.front();
  ASSERT_EQ(reader_->declared().size(), 2U);
  const Term* def0 = reader_->declared()[0];
  const Term* one = reader_->declared()[1];
  EXPECT_EQ(name_of(def0), "@def0");
  EXPECT_EQ(name_of(one), "@1");
  EXPECT_EQ(commands.back().term,
            mgr_.make_equal(def0, mgr_.make_ite(one, mgr_.make_bv_word(1, 4), def0)));
  for (int i = 0; i < 4; ++i) {
    const Term* fresh = mgr_.make_fresh_constant(mgr_.bv_type(4));
    EXPECT_NE(fresh, def0);
    EXPECT_NE(name_of(fresh)[0], '@');
  }
}

TEST_F(Script, GetOptionAndUnsupportedStandardCommands) {
  std::vector<Command> commands = read(
      "(get-option :produce-models)(get-proof)(get-unsat-core)(get-unsat-assumptions)"
      "(get-assertions)(get-interpolant A B)(get-difficulty)(define-fun-rec f () Bool true)");
  EXPECT_EQ(errors_,
            (std::vector<std::string>{
                "t.smt2:1:117: unknown command 'get-difficulty'",
                "t.smt2:1:133: recursive functions are not supported: the logic is QF_BV"}));
  ASSERT_EQ(commands.size(), 6U);
  EXPECT_EQ(commands[0].kind, Kind::GetOption);
  EXPECT_EQ(commands[0].name, ":produce-models");
  const char* const unsupported[] = {"get-proof", "get-unsat-core", "get-unsat-assumptions",
                                     "get-assertions", "get-interpolant"};
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(commands[i + 1].kind, Kind::Unsupported);
    EXPECT_EQ(commands[i + 1].name, unsupported[i]);
  }
}

// --- Errors: one message at the offending token, and the script goes on. ----

TEST_F(Script, ErrorsOfCommands) {
  EXPECT_EQ(error_of("(frobnicate)"), "t.smt2:2:2: unknown command 'frobnicate'");
  EXPECT_EQ(error_of("(declare-sort U 0)"),
            "t.smt2:2:2: uninterpreted sorts are not supported: the logic is QF_BV");
  EXPECT_EQ(error_of("(set-logic QF_UFBV)"),
            "t.smt2:2:12: logic 'QF_UFBV' is not supported: only QF_BV, QF_ABV and QF_AUFBV are");
  EXPECT_EQ(error_of("(assert)"),
            "t.smt2:2:8: assert expects 1 argument, got 0: write (assert TERM)");
  EXPECT_EQ(error_of("(check-sat 1)"),
            "t.smt2:2:12: check-sat expects no arguments, got 1: write (check-sat)");
  EXPECT_EQ(error_of("(pop 1)"), "t.smt2:2:6: cannot pop 1 level: 0 open");
  EXPECT_EQ(error_of("(pop)"), "t.smt2:2:2: cannot pop 1 level: 0 open");
  EXPECT_EQ(error_of("(push 1)(push 4294967295)"),
            "t.smt2:2:15: cannot push 4294967295 levels: 1 open, and at most 4294967295 can be");
  EXPECT_EQ(error_of("(push 99999999999999999999999)"),
            "t.smt2:2:7: cannot push 99999999999999999999999 levels: 0 open, and at most "
            "4294967295 can be");
  EXPECT_EQ(error_of("(push 2)(pop 99999999999999999999999)"),
            "t.smt2:2:14: cannot pop 99999999999999999999999 levels: 2 open");
  EXPECT_EQ(error_of("(echo x)"), "t.smt2:2:7: echo expects a string, got 'x'");
  EXPECT_EQ(error_of("(set-option produce-models)"),
            "t.smt2:2:13: expected a keyword such as :name, got 'produce-models'");
  EXPECT_EQ(error_of("()"), "t.smt2:2:1: empty command '()'");
  EXPECT_EQ(error_of("(set-info :a b c)"),
            "t.smt2:2:16: set-info expects 2 arguments, got 3: write (set-info :KEYWORD VALUE)");
  EXPECT_EQ(error_of("(get-info)"),
            "t.smt2:2:10: get-info expects 1 argument, got 0: write (get-info :KEYWORD)");
  EXPECT_EQ(error_of("(get-option)"),
            "t.smt2:2:12: get-option expects 1 argument, got 0: write (get-option :KEYWORD)");
  EXPECT_EQ(error_of("(define-const c Bool)"),
            "t.smt2:2:21: define-const expects 3 arguments, got 2: write (define-const NAME SORT "
            "TERM)");
  EXPECT_EQ(error_of("(define-const c Bool x)"),
            "t.smt2:2:22: expected a term of sort Bool, got one of sort (_ BitVec 8)");
  EXPECT_EQ(error_of("(define-const x Bool true)"), "t.smt2:2:15: 'x' is already declared");
  EXPECT_EQ(error_of("(get-value ())"),
            "t.smt2:2:12: expected a non-empty list of terms, got '()'");
}

TEST_F(Script, ErrorsOfDeclarations) {
  EXPECT_EQ(error_of("(declare-const x Bool)"), "t.smt2:2:16: 'x' is already declared");
  EXPECT_EQ(error_of("(declare-fun f ((_ BitVec 8)) Bool)"),
            "t.smt2:2:16: functions with arguments are not supported: the logic is QF_BV");
  EXPECT_EQ(error_of("(declare-const a (Array Bool Bool))"),
            "t.smt2:2:25: array indices must be bit-vectors, got Bool");
  EXPECT_EQ(error_of("(declare-const bvadd Bool)"),
            "t.smt2:2:16: cannot declare 'bvadd': it is a built-in name");
  EXPECT_EQ(error_of("(declare-const z (_ BitVec 0))"),
            "t.smt2:2:28: bit-vector width must be at least 1");
  EXPECT_EQ(error_of("(define-fun f () Bool x)"),
            "t.smt2:2:23: expected a term of sort Bool, got one of sort (_ BitVec 8)");
  EXPECT_EQ(error_of("(define-sort S (X) X)"),
            "t.smt2:2:16: sorts with parameters are not supported, got '(X)'");
  EXPECT_EQ(error_of("(define-fun f ((a Bool)) Bool (! a :named n))"),
            "t.smt2:2:36: :named is not supported inside a function with parameters");
}

TEST_F(Script, ErrorsOfTerms) {
  EXPECT_EQ(error_of("(assert (forall ((z Bool)) z))"),
            "t.smt2:2:10: quantifiers are not supported: the logic is QF_BV");
  EXPECT_EQ(error_of("(assert (= (select x y) x))"),
            "t.smt2:2:20: select expects an array as argument 1, got (_ BitVec 8)");
  EXPECT_EQ(error_of("(assert (bvadd x y))"),
            "t.smt2:2:9: expected a term of sort Bool, got one of sort (_ BitVec 8)");
  EXPECT_EQ(error_of("(assert (bvuge x true))"),
            "t.smt2:2:18: bvuge expects 2 arguments of the same bit-vector sort, got (_ BitVec 8) "
            "and Bool");
  EXPECT_EQ(error_of("(assert (distinct x))"),
            "t.smt2:2:20: distinct expects at least 2 arguments, got 1");
  EXPECT_EQ(error_of("(assert (= x y true))"),
            "t.smt2:2:16: = expects arguments of the same sort, got (_ BitVec 8) and Bool");
  std::string many = "(assert (distinct";
  for (int i = 0; i < 257; ++i) many += " x";
  EXPECT_EQ(error_of(many + "))"),
            "t.smt2:2:531: distinct over more than 256 arguments is not supported");
  EXPECT_EQ(error_of("(assert (let ((z x) (z y)) true))"),
            "t.smt2:2:21: 'z' is bound twice in one let");
  EXPECT_EQ(error_of("(assert (let () true))"),
            "t.smt2:2:9: expected (let ((NAME TERM) ...) TERM), got '(let () true)'");
  EXPECT_EQ(error_of("(assert ((_ repeat 0) x))"),
            "t.smt2:2:20: (_ repeat K) needs K of at least 1");
  EXPECT_EQ(
      error_of("(assert (= ((_ repeat 1048576) x) x))"),
      "t.smt2:2:13: the result of '(_ repeat 1048576)' would exceed the limit of 1048576 bits");
  EXPECT_EQ(error_of("(assert (x y))"), "t.smt2:2:10: 'x' is a constant, not a function");
  EXPECT_EQ(error_of("(assert (f y))"), "t.smt2:2:10: unknown function or operator 'f'");
  EXPECT_EQ(error_of("(assert (= 5 x))"),
            "t.smt2:2:12: a bare numeral is not a term: write a bit-vector literal such as #x0a, "
            "#b1010 or (_ bv5 8)");
}

TEST_F(Script, TheMultiplicationOverflowsStayWithinTheWidthLimit) {
  read(
      "(declare-const x (_ BitVec 524289))(assert (bvumulo x x))(assert (bvsmulo x x))"
      "(assert (bvuaddo x x))");
  EXPECT_EQ(errors_, (std::vector<std::string>{
                         "t.smt2:1:45: bvumulo over 524289 bits is not supported: its definition "
                         "multiplies at twice the width, beyond the limit of 1048576 bits",
                         "t.smt2:1:67: bvsmulo over 524289 bits is not supported: its definition "
                         "multiplies at twice the width, beyond the limit of 1048576 bits"}));
}

TEST_F(Script, ErrorsOfFunctionCalls) {
  std::string f = "(define-fun f ((a (_ BitVec 8)) (b Bool)) Bool b)";
  EXPECT_EQ(error_of(f + "(assert (f x))"), "t.smt2:2:62: f expects 2 arguments, got 1");
  EXPECT_EQ(error_of(f + "(assert (f x x))"),
            "t.smt2:2:63: f expects argument 2 of sort Bool, got (_ BitVec 8)");
  EXPECT_EQ(error_of(f + "(assert f)"), "t.smt2:2:58: 'f' is a function: write (f ARGUMENTS)");
}

TEST_F(Script, AFailedCommandLeavesNoTrace) {
  read(
      "(declare-const x Bool)(assert (! (let ((z x)) (and z (bvadd z))) :named n))"
      "(assert z)(assert n)(assert x)");
  EXPECT_EQ(errors_.size(), 3U);
  EXPECT_EQ(errors_[1], "t.smt2:1:84: unknown constant 'z'");
  EXPECT_EQ(errors_[2], "t.smt2:1:94: unknown constant 'n'");
  EXPECT_TRUE(reader_->named().empty());
}

TEST_F(Script, MalformedInputIsReportedAndSkipped) {
  read("(assert (= #b1 #b2))\n) (declare-const x Bool) \"stray\" (assert (not x)) (assert");
  ASSERT_EQ(errors_.size(), 4U);
  EXPECT_EQ(errors_[0].substr(0, 13), "t.smt2:1:16: ");
  EXPECT_EQ(errors_[1], "t.smt2:2:1: unexpected ')' with no matching '('");
  EXPECT_EQ(errors_[2].substr(0, 12), "t.smt2:2:26:");
  EXPECT_EQ(errors_[3].substr(0, 13), "t.smt2:2:58: ");
  EXPECT_EQ(reader_->declared().size(), 1U);
}

// Arrays in scripts: sorts, select, store, constant arrays, and the
// constructs over them, with the errors of each.
class ScriptArrays : public Script {
 protected:
  // The term of the last assert, after the declarations of kPrelude.
  const Term* last_assert(const std::string& text) {
    std::vector<Command> commands = read(std::string(kPrelude) + text);
    EXPECT_TRUE(errors_.empty()) << (errors_.empty() ? "" : errors_.front());
    for (auto it = commands.rbegin(); it != commands.rend(); ++it) {
      if (it->kind == Kind::Assert) return it->term;
    }
    ADD_FAILURE() << "no assert in " << text;
    return nullptr;
  }
  std::string array_error_of(const std::string& text) {
    read(std::string(kPrelude) + text);
    EXPECT_EQ(errors_.size(), 1U) << text;
    return errors_.empty() ? "" : errors_.front();
  }
  const DataType* bv(std::size_t w) { return mgr_.bv_type(w); }

  static constexpr const char* kPrelude =
      "(set-logic QF_ABV)(declare-const i (_ BitVec 2))(declare-const e (_ BitVec 3))"
      "(declare-const a (Array (_ BitVec 2) (_ BitVec 3)))"
      "(declare-const m (Array (_ BitVec 2) (Array (_ BitVec 2) (_ BitVec 3))))\n";
};

TEST_F(ScriptArrays, SortsNestAndSelectStoreBuildTheirOperators) {
  const Term* t = last_assert("(assert (= (select (store a i e) i) e))");
  ASSERT_NE(t, nullptr);
  const Term* sel = t->arg(0);
  EXPECT_EQ(sel->op(), Op::Select);
  EXPECT_EQ(sel->type(), bv(3));
  EXPECT_EQ(sel->arg(0)->op(), Op::Store);
  EXPECT_EQ(sel->arg(0)->type(), mgr_.array_type(bv(2), bv(3)));
  EXPECT_EQ(sel->arg(0)->arg(2)->get_symbol()->name(), "e");

  const Term* nested = last_assert("(assert (= (select (select m i) i) e))");
  ASSERT_NE(nested, nullptr);
  EXPECT_EQ(nested->arg(0)->arg(0)->type(), mgr_.array_type(bv(2), bv(3)));
  EXPECT_EQ(nested->arg(0)->arg(0)->arg(0)->type(),
            mgr_.array_type(bv(2), mgr_.array_type(bv(2), bv(3))));
}

TEST_F(ScriptArrays, ConstantArraysEqualityDistinctIteDefineFunAndLet) {
  const Term* c =
      last_assert("(assert (= a ((as const (Array (_ BitVec 2) (_ BitVec 3))) #b101)))");
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->op(), Op::Equal);
  EXPECT_EQ(c->arg(1)->op(), Op::ConstArray);
  EXPECT_TRUE(is_model_value(c->arg(1)));

  const Term* d = last_assert("(assert (distinct a (store a i e)))");
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d->op(), Op::Not);
  EXPECT_EQ(d->arg(0)->op(), Op::Equal);

  const Term* ite = last_assert("(assert (= (ite (= i #b00) a (store a i e)) a))");
  ASSERT_NE(ite, nullptr);
  EXPECT_EQ(ite->arg(0)->op(), Op::Ite);
  EXPECT_TRUE(ite->arg(0)->type()->is_array());

  const Term* f = last_assert(
      "(define-fun put ((x (Array (_ BitVec 2) (_ BitVec 3))) (v (_ BitVec 3))) "
      "(Array (_ BitVec 2) (_ BitVec 3)) (store x #b01 v))"
      "(assert (let ((b (put a e))) (= (select b #b01) e)))");
  ASSERT_NE(f, nullptr);
  const Term* store = f->arg(0)->arg(0);
  EXPECT_EQ(store->op(), Op::Store);
  EXPECT_EQ(store->arg(0)->get_symbol()->name(), "a");

  const Term* inner = last_assert(
      "(assert (= (store m i (store (select m i) i e)) ((as const (Array (_ BitVec 2) "
      "(Array (_ BitVec 2) (_ BitVec 3)))) ((as const (Array (_ BitVec 2) (_ BitVec 3))) e))))");
  ASSERT_NE(inner, nullptr);
  EXPECT_EQ(inner->arg(1)->op(), Op::ConstArray);
  EXPECT_FALSE(is_model_value(inner->arg(1)));
}

TEST_F(ScriptArrays, LogicsThatReadArrays) {
  read("(set-logic QF_AUFBV)(declare-const a (Array (_ BitVec 1) (_ BitVec 1)))");
  EXPECT_TRUE(errors_.empty());
  read("(declare-const a (Array (_ BitVec 1) (_ BitVec 1)))");
  EXPECT_TRUE(errors_.empty());
  read("(set-logic QF_BV)(declare-const a (Array (_ BitVec 1) (_ BitVec 1)))");
  ASSERT_EQ(errors_.size(), 1U);
  EXPECT_EQ(errors_[0], "t.smt2:1:35: arrays are not supported: the logic is QF_BV");
  read("(set-logic QF_BV)(declare-const x (_ BitVec 1))(assert (= x (select x x)))");
  ASSERT_EQ(errors_.size(), 1U);
  EXPECT_EQ(errors_[0], "t.smt2:1:62: arrays are not supported: the logic is QF_BV");
  read("(set-logic QF_LIA)");
  ASSERT_EQ(errors_.size(), 1U);
  EXPECT_EQ(errors_[0],
            "t.smt2:1:12: logic 'QF_LIA' is not supported: only QF_BV, QF_ABV and QF_AUFBV are");
  read("(set-logic QF_AUFBV)(declare-fun f ((_ BitVec 1)) (_ BitVec 1))");
  ASSERT_EQ(errors_.size(), 1U);
  EXPECT_NE(errors_[0].find("functions with arguments are not supported"), std::string::npos);
}

TEST_F(ScriptArrays, Errors) {
  EXPECT_EQ(array_error_of("(declare-const b (Array Bool (_ BitVec 1)))"),
            "t.smt2:2:25: array indices must be bit-vectors, got Bool");
  EXPECT_EQ(array_error_of("(declare-const b (Array (_ BitVec 1) Bool))"),
            "t.smt2:2:38: array elements must be bit-vectors or arrays, got Bool");
  EXPECT_EQ(array_error_of("(declare-const b (Array (_ BitVec 1)))"),
            "t.smt2:2:18: Array expects 2 sorts (index and element), got 1");
  EXPECT_EQ(array_error_of("(declare-const b Array)"),
            "t.smt2:2:18: Array needs an index and an element sort: write (Array I E)");
  EXPECT_EQ(array_error_of("(assert (= e (select e i)))"),
            "t.smt2:2:22: select expects an array as argument 1, got (_ BitVec 3)");
  EXPECT_EQ(array_error_of("(assert (= e (select a e)))"),
            "t.smt2:2:24: select expects argument 2 of sort (_ BitVec 2), got (_ BitVec 3)");
  EXPECT_EQ(array_error_of("(assert (= a (store a i i)))"),
            "t.smt2:2:25: store expects argument 3 of sort (_ BitVec 3), got (_ BitVec 2)");
  EXPECT_EQ(array_error_of("(assert (= a (store a i)))"),
            "t.smt2:2:24: store expects 3 arguments, got 2");
  EXPECT_EQ(array_error_of("(assert (= a ((as const (_ BitVec 2)) e)))"),
            "t.smt2:2:25: (as const SORT) needs an Array sort, got (_ BitVec 2)");
  EXPECT_EQ(array_error_of("(assert (= a ((as const (Array (_ BitVec 2) (_ BitVec 3))) i)))"),
            "t.smt2:2:60: (as const (Array (_ BitVec 2) (_ BitVec 3))) expects a value of sort "
            "(_ BitVec 3), got (_ BitVec 2)");
  EXPECT_EQ(
      array_error_of("(assert (= a m))"),
      "t.smt2:2:14: = expects 2 arguments of the same sort, got (Array (_ BitVec 2) (_ BitVec "
      "3)) and (Array (_ BitVec 2) (Array (_ BitVec 2) (_ BitVec 3)))");
}

}  // namespace
}  // namespace kora::smtlib
