// The back-end script printed from written forms: the user's text wherever
// the reduction left it alone, and always exactly the reduced assertions
// when read back.
#include "kora/smtlib/written.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kora/preprocess/simplifier.h"
#include "kora/smtlib/printer.h"
#include "support/random_script.h"

namespace kora::smtlib {
namespace {

using test::KeptScript;
using test::read_kept;

class Written : public ::testing::Test {
 protected:
  // Reads the script, simplifies it (or not) and prints the back end's
  // script from the written forms.
  std::string print(const std::string& text, bool eliminate = true) {
    read_ = read_kept(mgr_, text, true);
    EXPECT_TRUE(read_.errors.empty()) << read_.errors.front();
    reduced_ = {};
    reduced_.assertions = read_.assertions;
    // The equation rules would turn most of these equations into
    // conditions; the tests are about where the written text is kept.
    preprocess::SimplifyOptions options;
    options.equations = false;
    if (eliminate) reduced_ = preprocess::simplify(mgr_, read_.assertions, options);
    std::vector<WrittenAssertion> assertions;
    for (std::size_t i = 0; i < read_.assertions.size(); ++i) {
      EXPECT_EQ(preprocess::image_of(reduced_, read_.assertions[i]), reduced_.assertions[i]);
      assertions.push_back({read_.assertions[i], read_.forms[i].get(), reduced_.assertions[i]});
    }
    auto image = [this](const Term* t) { return preprocess::image_of(reduced_, t); };
    std::optional<std::string> script =
        print_written_script(mgr_, read_.declared, preprocess::constants_of(reduced_.assertions),
                             assertions, image, binary_chains_);
    EXPECT_TRUE(script.has_value());
    if (script) expect_reads_back(*script);
    return script.value_or("");
  }
  // Read back in the same manager, the script asserts exactly the reduced
  // assertions: the same terms, not merely equivalent ones.
  void expect_reads_back(const std::string& script) {
    KeptScript back = read_kept(mgr_, script, false);
    ASSERT_TRUE(back.errors.empty()) << back.errors.front() << "\n" << script;
    EXPECT_EQ(back.assertions, reduced_.assertions) << script;
  }
  std::size_t eliminated() const { return reduced_.eliminated; }
  // The script printed for the asserts over kDecls holds `fragment`.
  void expect_prints(const std::string& asserts, const std::string& fragment);

  TermManager mgr_;
  KeptScript read_;
  preprocess::Simplified reduced_;
  bool binary_chains_ = false;
};

// x, y, w of 8 bits, each constrained: they occur several times.
const char* const kDecls =
    "(declare-const x (_ BitVec 8))(declare-const y (_ BitVec 8))(declare-const w (_ BitVec 8))"
    "(declare-const z (_ BitVec 8))(declare-fun p () Bool)(declare-fun q () Bool)\n"
    "(assert (distinct x y w))(assert (or p q))(assert (xor p q))\n";

void Written::expect_prints(const std::string& asserts, const std::string& fragment) {
  const std::string script = print(std::string(kDecls) + asserts);
  EXPECT_NE(script.find(fragment), std::string::npos) << script;
}

TEST_F(Written, UnchangedAssertionsAreCopiedAsWritten) {
  const std::string text =
      std::string(kDecls) + "(assert (=>  p (and q (bvuge x y) (bvsgt w x)) ; comment\n q))\n";
  const std::string script = print(text);
  EXPECT_EQ(eliminated(), 0U);
  EXPECT_NE(script.find("(assert (distinct x y w))\n"), std::string::npos) << script;
  EXPECT_NE(script.find("(assert (=> p (and q (bvuge x y) (bvsgt w x)) q))\n"), std::string::npos)
      << script;
}

// Few back ends read the reduction and overflow operators, and not all read
// and/or with one argument: the script says them by their definitions,
// changed or not, and keeps the user's text around them.
TEST_F(Written, ExtensionsAreNeverSentAsWritten) {
  const char* const operators[] = {"bvredor", "bvredand", "bvredxor", "bvnego",
                                   "bvuaddo", "bvsaddo",  "bvumulo",  "bvsmulo",
                                   "bvusubo", "bvssubo",  "bvsdivo"};
  const std::string script = print(
      std::string(kDecls) +
      "(assert (=> p (and (bvuaddo x y) (bvsaddo x w) (bvumulo y w) (bvsmulo x y) (bvusubo w x)"
      " (bvssubo y x) (bvsdivo x w) (bvnego y))))\n"
      "(assert (= (bvredor x) (bvredand y) (bvredxor w)))\n"
      "(assert (and (or q)))\n(assert (=> q (bvuaddo x (bvadd y z))))\n");
  for (const char* op : operators) {
    EXPECT_EQ(script.find(op), std::string::npos) << op << " in\n" << script;
  }
  EXPECT_NE(script.find("(assert q)\n"), std::string::npos) << script;
  EXPECT_NE(script.find("(assert (=> p (and (bvult (bvadd x y) x) "), std::string::npos) << script;
}

TEST_F(Written, DeclaresEveryConstantInDeclarationOrderThenTheFreshOnes) {
  const std::string script = print(std::string(kDecls) + "(assert (= x (bvadd y z)))");
  const std::size_t x = script.find("(declare-fun x ");
  const std::size_t z = script.find("(declare-fun z ");
  const std::size_t q = script.find("(declare-fun q ");
  const std::size_t fresh = script.find("(declare-fun kora!e");
  ASSERT_NE(fresh, std::string::npos) << script;
  EXPECT_LT(x, z);  // z is eliminated, and declared all the same
  EXPECT_LT(z, q);
  EXPECT_LT(q, fresh);
}

TEST_F(Written, ChangedSubtermInsideImplication) {
  // z occurs once: (bvadd y z) becomes a fresh u, then (= x u) a fresh
  // Boolean; => keeps its own form over it.
  const std::string script = print(std::string(kDecls) + "(assert (=> p (= x (bvadd y z))))");
  EXPECT_EQ(eliminated(), 2U);
  EXPECT_NE(script.find("(assert (=> p kora!e"), std::string::npos) << script;
  EXPECT_EQ(script.find("(or (not p)"), std::string::npos) << script;
}

TEST_F(Written, ChangedSubtermInsideNaryAnd) {
  const std::string script =
      print(std::string(kDecls) + "(assert (and p q (= w (bvmul x (bvadd y z))) (not q) p))");
  EXPECT_EQ(eliminated(), 1U);
  EXPECT_NE(script.find("(assert (and p q (= w (bvmul x kora!e0)) (not q) p))"), std::string::npos)
      << script;
}

TEST_F(Written, ChangedLetBinderAndBody) {
  // The binder's value is eliminated; the body refers to the variable, so it
  // is printed with its own operators over the printed variable.
  const std::string script = print(
      std::string(kDecls) + "(assert (let ((t (bvadd y z)) (s (bvor x y))) (= (bvmul x t) s w)))");
  EXPECT_EQ(eliminated(), 1U);
  EXPECT_NE(script.find("(assert (let ((t kora!e0) (s (bvor x y))) (= (bvmul x t) s w)))"),
            std::string::npos)
      << script;
}

TEST_F(Written, UnchangedLetInsideChangedTerm) {
  expect_prints("(assert (and (let ((s (bvor x y))) (bvult s w)) (= w (bvmul x (bvadd y z)))))",
                "(assert (and (let ((s (bvor x y))) (bvult s w)) (= w (bvmul x kora!e0))))");
}

TEST_F(Written, ChangedTermInsideLetBody) {
  expect_prints(
      "(assert (let ((s (bvor x y))) (let ((s (bvand s w))) (= s (bvmul x (bvadd y z))))))",
      "(let ((s (bvor x y))) (let ((s (bvand s w))) (= s (bvmul x kora!e0))))");
}

TEST_F(Written, IndexedOperatorHeads) {
  expect_prints("(assert (= ((_ extract 3 0) (bvmul x (bvadd y z))) ((_ extract 7 4) x)))",
                "(= ((_ extract 3 0) (bvmul x kora!e0)) ((_ extract 7 4) x))");
}

TEST_F(Written, NamedTermsLoseTheirNames) {
  const std::string script =
      print(std::string(kDecls) +
            "(assert (! (=> p (= x (bvadd y z))) :named n1))(assert (or n1 (! q :named n2)))");
  EXPECT_EQ(script.find(":named"), std::string::npos) << script;
  EXPECT_EQ(script.find("n1"), std::string::npos) << script;
}

TEST_F(Written, DefinedNamesArePrintedAsTheirTerms) {
  const std::string script = print(std::string(kDecls) +
                                   "(define-fun d () (_ BitVec 8) (bvadd x y))"
                                   "(define-fun f ((a (_ BitVec 8))) (_ BitVec 8) (bvmul a a))"
                                   "(assert (= d w (f x)))");
  EXPECT_EQ(script.find("define-fun"), std::string::npos) << script;
  EXPECT_NE(script.find("(= (bvadd x y) w (bvmul x x))"), std::string::npos) << script;
}

TEST_F(Written, QuotedAndUnicodeSymbols) {
  const std::string script = print(
      "(declare-const |x y| (_ BitVec 8))(declare-const |ünï| (_ BitVec 8))"
      "(declare-const z (_ BitVec 8))"
      "(assert (distinct |x y| |ünï|))(assert (= |ünï| (bvmul |x y| (bvadd |x y| z))))");
  EXPECT_NE(script.find("(assert (distinct |x y| |ünï|))"), std::string::npos) << script;
  EXPECT_NE(script.find("(assert (= |ünï| (bvmul |x y| kora!e0)))"), std::string::npos) << script;
}

// A solver may take |x| and x for two names (Boolector 1.5 does): every
// quoted symbol is printed as its declaration is.
TEST_F(Written, QuotedSimpleSymbolsArePrintedAsDeclared) {
  const std::string script = print(
      "(declare-const |x| (_ BitVec 8))(declare-const y (_ BitVec 8))"
      "(assert (distinct |x| y))(assert (let ((|v| |x|)) (bvult |v| (bvadd y |x|))))",
      false);
  EXPECT_NE(script.find("(declare-fun x () (_ BitVec 8))"), std::string::npos) << script;
  EXPECT_NE(script.find("(assert (distinct x y))"), std::string::npos) << script;
  EXPECT_NE(script.find("(let ((v x)) (bvult v (bvadd y x)))"), std::string::npos) << script;
}

// A sort named by define-sort is not defined in the back end's script, and
// Boolector 1.5 reads no `as`: a qualified term is printed as its term.
TEST_F(Written, QualifiedTermsArePrintedAsTheirTerms) {
  const std::string script = print(
      "(define-sort Byte () (_ BitVec 8))(declare-const x Byte)(declare-const y (_ BitVec 8))"
      "(assert (distinct (as x Byte) y))(assert (bvult (as y (_ BitVec 8)) (bvadd x y)))",
      false);
  EXPECT_EQ(script.find("as "), std::string::npos) << script;
  EXPECT_EQ(script.find("Byte"), std::string::npos) << script;
  EXPECT_NE(script.find("(assert (distinct x y))"), std::string::npos) << script;
  EXPECT_NE(script.find("(assert (bvult y (bvadd x y)))"), std::string::npos) << script;
}

// For a solver that reads bvand, bvor, bvxor, bvadd, bvmul and concat with
// two arguments only, longer applications are nested; the rest is as written.
TEST_F(Written, ChainsForASolverThatReadsBinaryOnesOnly) {
  binary_chains_ = true;
  const std::string script =
      print(std::string(kDecls) +
                "(assert (= (bvadd x y w) (bvmul x (bvand y w x))))"
                "(assert (distinct (concat x y w) (concat w y x)))(assert (bvult x (bvor y w)))",
            false);
  for (const char* chain : {"(bvadd x y w", "(bvand y w x", "(concat x y w", "(concat w y x"}) {
    EXPECT_EQ(script.find(chain), std::string::npos) << chain << " in " << script;
  }
  EXPECT_NE(script.find("(bvadd (bvadd x y) w)"), std::string::npos) << script;
  EXPECT_NE(script.find("(assert (bvult x (bvor y w)))"), std::string::npos) << script;
  EXPECT_NE(script.find("(assert (distinct x y w))"), std::string::npos) << script;
}

TEST_F(Written, NothingEliminatedCopiesEverything) {
  const std::string text = std::string(kDecls) + "(assert (=> p (= x (bvadd y z))))";
  const std::string script = print(text, false);
  EXPECT_NE(script.find("(assert (=> p (= x (bvadd y z))))"), std::string::npos) << script;
}

TEST_F(Written, LetVariableNamedLikeAConstantGivesNoScript) {
  read_ = read_kept(mgr_, std::string(kDecls) + "(assert (let ((x (bvadd y z))) (= x w)))", true);
  reduced_ = preprocess::simplify(mgr_, read_.assertions);
  auto image = [this](const Term* t) { return preprocess::image_of(reduced_, t); };
  const std::vector<WrittenAssertion> last{
      {read_.assertions.back(), read_.forms.back().get(), reduced_.assertions.back()}};
  EXPECT_FALSE(print_written_script(mgr_, read_.declared, {}, last, image));
}

TEST_F(Written, WithoutAFormTheAssertionIsPrintedWhole) {
  read_ = read_kept(mgr_, std::string(kDecls) + "(assert (=> p (= x (bvadd y z))))", false);
  reduced_ = preprocess::simplify(mgr_, read_.assertions);
  auto image = [this](const Term* t) { return preprocess::image_of(reduced_, t); };
  std::vector<WrittenAssertion> assertions;
  for (std::size_t i = 0; i < read_.assertions.size(); ++i) {
    EXPECT_EQ(read_.forms[i], nullptr);
    assertions.push_back({read_.assertions[i], nullptr, reduced_.assertions[i]});
  }
  std::optional<std::string> script = print_written_script(
      mgr_, read_.declared, preprocess::constants_of(reduced_.assertions), assertions, image);
  ASSERT_TRUE(script);
  expect_reads_back(*script);
  EXPECT_NE(script->find("(or (not p) kora!e"), std::string::npos) << *script;
}

TEST_F(Written, AFormWithAnUnreadTermIsNotTrusted) {
  read_ = read_kept(mgr_, std::string(kDecls) + "(assert (=> p (= x (bvadd y z))))", true);
  reduced_ = preprocess::simplify(mgr_, read_.assertions);
  auto image = [this](const Term* t) { return preprocess::image_of(reduced_, t); };
  WrittenTerm broken = *read_.forms.back();
  ASSERT_EQ(broken.atom(4), "=");
  broken.nodes[3].term = nullptr;  // (= x (bvadd y z)) as if never read
  const std::vector<WrittenAssertion> last{
      {read_.assertions.back(), &broken, reduced_.assertions.back()}};
  std::optional<std::string> script = print_written_script(
      mgr_, read_.declared, preprocess::constants_of(reduced_.assertions), last, image);
  ASSERT_TRUE(script);
  EXPECT_NE(script->find("(assert (or (not p) kora!e"), std::string::npos) << *script;
  EXPECT_EQ(script->find("=>"), std::string::npos) << *script;
}

// Nesting just under the reader's limit, changed at the bottom: every level
// is printed with its own operator, without recursion.
TEST_F(Written, DeepNesting) {
  const std::size_t depth = Reader::kMaxDepth - 10;
  std::string deep;
  for (std::size_t i = 0; i < depth; ++i) deep += "(not ";
  deep += "(= w (bvmul x (bvadd y z)))";
  deep.append(depth, ')');
  const std::string script = print(std::string(kDecls) + "(assert " + deep + ")");
  EXPECT_EQ(eliminated(), 1U);
  EXPECT_NE(script.find("(not (not (= w (bvmul x kora!e0))))"), std::string::npos);
  // And unchanged, copied whole.
  const std::string copied = print(std::string(kDecls) + "(assert " + deep + ")", false);
  EXPECT_NE(copied.find("(assert " + deep + ")"), std::string::npos);
}

TEST_F(Written, ReaderKeepsNoFormUnlessAsked) {
  KeptScript r = read_kept(mgr_, std::string(kDecls), false);
  for (const auto& f : r.forms) EXPECT_EQ(f, nullptr);
  r = read_kept(mgr_, std::string(kDecls), true);
  for (const auto& f : r.forms) ASSERT_NE(f, nullptr);
  // (distinct x y w): the list, the operator, three constants.
  ASSERT_EQ(r.forms[0]->nodes.size(), 5U);
  EXPECT_EQ(r.forms[0]->nodes[0].term, r.assertions[0]);
  EXPECT_EQ(r.forms[0]->nodes[0].size, 5U);
  EXPECT_EQ(r.forms[0]->atom(1), "distinct");
}

// Random scripts in every written form the generator knows: simplified or
// not, the printed script reads back to exactly the reduced assertions, and
// with nothing eliminated every assert is copied as written.
TEST_F(Written, RandomScriptsReadBackExactly) {
  test::RandomScript gen(20261122);
  std::size_t eliminating = 0;
  for (int k = 0; k < 400; ++k) {
    const std::string text = gen.make();
    SCOPED_TRACE(text);
    const std::string copied = print(text, false);
    for (const std::string& a : gen.asserts()) {
      EXPECT_NE(copied.find(a + "\n"), std::string::npos) << a << "\n" << copied;
    }
    print(text, true);
    eliminating += eliminated() > 0 ? 1 : 0;
  }
  EXPECT_GT(eliminating, 100U);  // the scripts do exercise the changed paths
}

}  // namespace
}  // namespace kora::smtlib
