// Normal forms of wide n-ary chains (left-grouped applications of bvadd,
// bvmul, bvand, bvor, bvxor): the value is the step-by-step fold, and only
// the chain's own result becomes a numeral, so folding a long chain leaves
// O(1) numerals behind however many steps it has.
#include <gmpxx.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <vector>

#include "kora/model/model_store.h"
#include "kora/numbers/qnumber.h"
#include "kora/terms/simplifiers.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"
#include "support/term_helpers.h"

namespace kora {
namespace {

using test::mpz_mod2w;
using test::mpz_pow2;
using test::numeral_value;
using test::qnum;

constexpr std::size_t kWidth = 300;

class ChainFold : public ::testing::Test {
 protected:
  TermManager mgr;
  ModelStore store{&mgr};
  const DataType* bv = mgr.bv_type(kWidth);
  const Term* c = mgr.make_constant("c", bv);
  const Term* d = mgr.make_constant("d", bv);
  // Values well beyond a word, so that every intermediate result would be a
  // wide numeral.
  const mpz_class cv = mpz_pow2(kWidth - 1) + mpz_pow2(170) + 12345;
  const mpz_class dv = mpz_pow2(kWidth - 3) + mpz_pow2(100) + 77;

  void SetUp() override {
    store.set_value(c, mgr.make_bv_number(qnum(cv), kWidth));
    store.set_value(d, mgr.make_bv_number(qnum(dv), kWidth));
  }
  // ((x0 op x1) op x2) ... as the front end groups n-ary input.
  const Term* chain(Op op, const std::vector<const Term*>& xs) {
    const Symbol* s = mgr.make_bv_symbol(op, kWidth);
    const Term* t = xs[0];
    for (std::size_t i = 1; i < xs.size(); ++i) t = mgr.make_term(s, {t, xs[i]});
    return t;
  }
  // The same chain folded one application at a time, on integers.
  static mpz_class expected(Op op, const std::vector<mpz_class>& vs) {
    mpz_class acc = vs[0];
    for (std::size_t i = 1; i < vs.size(); ++i) {
      switch (op) {
        case Op::BVAdd:
          acc = mpz_mod2w(acc + vs[i], kWidth);
          break;
        case Op::BVMul:
          acc = mpz_mod2w(acc * vs[i], kWidth);
          break;
        case Op::BVAnd:
          acc &= vs[i];
          break;
        case Op::BVOr:
          acc |= vs[i];
          break;
        default:
          acc ^= vs[i];
          break;
      }
    }
    return acc;
  }
};

TEST_F(ChainFold, LongChainLeavesOneNumeral) {
  std::vector<const Term*> xs(2000, c);
  const Term* t = chain(Op::BVAdd, xs);
  const std::size_t before = mgr.term_count();
  const Term* n = store.get_normalized(t);
  // The result numeral, and nothing for the 1998 applications below it.
  EXPECT_LE(mgr.term_count() - before, 1u);
  EXPECT_EQ(numeral_value(mgr, n), mpz_mod2w(cv * 2000, kWidth));
}

TEST_F(ChainFold, EveryOperatorGivesTheStepByStepValue) {
  for (Op op : {Op::BVAdd, Op::BVMul, Op::BVAnd, Op::BVOr, Op::BVXor}) {
    const Term* k = mgr.make_bv_number(qnum(mpz_pow2(200) + 3), kWidth);
    const std::vector<const Term*> xs{c, d, k, c, d, d, k};
    const std::vector<mpz_class> vs{cv, dv, mpz_pow2(200) + 3, cv, dv, dv, mpz_pow2(200) + 3};
    const Term* n = store.get_normalized(chain(op, xs));
    EXPECT_EQ(numeral_value(mgr, n), expected(op, vs)) << op_name(op);
  }
}

TEST_F(ChainFold, InnerApplicationsStillNormalise) {
  const Term* t = chain(Op::BVMul, {c, d, c, d, c});
  const Term* inner = t->arg(0)->arg(0);  // (c * d) * c
  ASSERT_NE(store.get_normalized(t), nullptr);
  EXPECT_EQ(numeral_value(mgr, store.get_normalized(inner)), expected(Op::BVMul, {cv, dv, cv}));
  EXPECT_EQ(numeral_value(mgr, store.get_normalized(t)), expected(Op::BVMul, {cv, dv, cv, dv, cv}));
}

TEST_F(ChainFold, SharedInnerApplicationAsOperand) {
  const Term* u = chain(Op::BVAdd, {c, d});
  const Term* t = chain(Op::BVAdd, {u, u, c});  // ((c + d) + (c + d)) + c
  EXPECT_EQ(numeral_value(mgr, store.get_normalized(t)), expected(Op::BVAdd, {cv, dv, cv, dv, cv}));
}

TEST_F(ChainFold, ChainOverAnUnvaluedConstantIsRebuilt) {
  const Term* x = mgr.make_constant("x", bv);
  const Term* t = chain(Op::BVXor, {c, d, x, c});
  const Term* n = store.get_normalized(t);
  // ((c ^ d) ^ x) ^ c: the values below x fold, the rest is rebuilt.
  const Symbol* s = mgr.make_bv_xor_symbol(kWidth);
  const Term* cd = mgr.make_bv_number(qnum(cv ^ dv), kWidth);
  const Term* cv_term = mgr.make_bv_number(qnum(cv), kWidth);
  EXPECT_EQ(n, mgr.make_term(s, {mgr.make_term(s, {cd, x}), cv_term}));
  // Once x has a value the whole chain folds.
  store.set_value(x, mgr.make_bv_number(QNumber(5L), kWidth));
  EXPECT_EQ(numeral_value(mgr, store.get_normalized(t)), expected(Op::BVXor, {cv, dv, 5, cv}));
}

TEST_F(ChainFold, ApplicationsOfThreeArgumentsAreNotChains) {
  // The folders fold unary and binary applications only; a wider one is
  // rebuilt over its normal forms, inside a chain or on top of one.
  const Symbol* s = mgr.make_bv_add_symbol(kWidth);
  const Term* n_c = store.get_normalized(c);
  const Term* n_d = store.get_normalized(d);
  const Term* cd = mgr.make_term(s, {c, d});
  const Term* top = mgr.make_term(s, {cd, c, d});
  const Term* n_cd = mgr.make_bv_number(qnum(mpz_mod2w(cv + dv, kWidth)), kWidth);
  EXPECT_EQ(store.get_normalized(top), mgr.make_term(s, {n_cd, n_c, n_d}));
  const Term* wide = mgr.make_term(s, {c, d, c});
  const Term* over = mgr.make_term(s, {mgr.make_term(s, {wide, d}), c});
  const Term* n_wide = mgr.make_term(s, {n_c, n_d, n_c});
  EXPECT_EQ(store.get_normalized(over), mgr.make_term(s, {mgr.make_term(s, {n_wide, n_d}), n_c}));
}

TEST_F(ChainFold, MatchesTheFoldersOnEveryStep) {
  // The chain's value is what folding each application with its folder
  // gives.
  const Term* t = chain(Op::BVAdd, {c, d, c, c, d});
  const Symbol* s = mgr.make_bv_add_symbol(kWidth);
  const Term* acc = store.get_normalized(c);
  for (const Term* x : {d, c, c, d}) acc = termsimpl::fold(&mgr, s, {acc, store.get_normalized(x)});
  EXPECT_EQ(store.get_normalized(t), acc);
}

}  // namespace
}  // namespace kora
