// A term keeps its operator and, for a numeral below 2^64, its word, so that
// telling values apart and reading them never touches the symbol. These
// copies must agree with the symbol for every kind of term, survive the
// growth of the numeral tables, and leave the use lists (whose link a
// numeral's word shares) intact.
#include <gmpxx.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "kora/numbers/qnumber.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"
#include "support/term_helpers.h"

namespace kora {
namespace {

using test::mpz_pow2;
using test::numeral_value;
using test::qnum;

std::uint64_t mask(std::size_t w) {
  return w >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << w) - 1;
}

// The term's copies against its symbol.
void expect_fields_agree(const Term* t) {
  EXPECT_EQ(t->op(), t->get_symbol()->op());
  std::uint64_t from_term = 0;
  std::uint64_t from_symbol = 0;
  const bool term_has = t->numeral_word(&from_term);
  EXPECT_EQ(term_has, t->get_symbol()->numeral_word(&from_symbol));
  if (term_has) {
    EXPECT_EQ(from_term, from_symbol);
  }
}

class TermFields : public ::testing::TestWithParam<std::size_t> {
 protected:
  TermManager mgr;
};

TEST_P(TermFields, NumeralsKeepIdentityAndWordAcrossTableGrowth) {
  const std::size_t w = GetParam();
  std::mt19937_64 rng(w);
  // Enough numerals to grow the width's table from its first 64 slots many
  // times; the first ones are asked for again after every growth.
  std::vector<std::uint64_t> values;
  std::vector<const Term*> terms;
  for (std::size_t i = 0; i < 5000; ++i) {
    const std::uint64_t v = (i < 4 ? i : rng()) & mask(w);
    const Term* t = mgr.make_bv_word(v, w);
    values.push_back(v);
    terms.push_back(t);
    for (std::size_t j = 0; j < 4 && j < terms.size(); ++j) {
      ASSERT_EQ(mgr.make_bv_word(values[j], w), terms[j]);
    }
  }
  for (std::size_t i = 0; i < values.size(); ++i) {
    const Term* t = terms[i];
    ASSERT_EQ(mgr.make_bv_word(values[i], w), t);
    ASSERT_EQ(mgr.make_bv_number(QNumber(mpz_class(static_cast<unsigned long>(values[i]))), w), t);
    EXPECT_EQ(t->op(), Op::BVNumber);
    std::uint64_t word = 0;
    ASSERT_TRUE(t->numeral_word(&word));
    EXPECT_EQ(word, values[i]);
    expect_fields_agree(t);
    EXPECT_EQ(numeral_value(mgr, t), mpz_class(static_cast<unsigned long>(values[i])));
    EXPECT_TRUE(is_model_value(t));
  }
}

TEST_P(TermFields, WideNumeralsHaveNoWord) {
  const std::size_t w = GetParam();
  if (w <= 64) GTEST_SKIP() << "no value of 2^64 or more at this width";
  const Term* t = mgr.make_bv_number(qnum(mpz_pow2(64) + 5), w);
  std::uint64_t word = 0;
  EXPECT_FALSE(t->numeral_word(&word));
  expect_fields_agree(t);
  EXPECT_EQ(t->op(), Op::BVNumber);
  EXPECT_TRUE(is_model_value(t));
}

TEST_P(TermFields, NumeralsAsYoungestArgumentsStillHashCons) {
  // A numeral's word shares its storage with the use-list link of terms
  // with arguments; terms over a numeral use the numeral's list head, which
  // is separate. Many terms over one numeral move its list to the index.
  const std::size_t w = GetParam();
  const Term* x = mgr.make_constant("x", mgr.bv_type(w));
  const Term* n = mgr.make_bv_word(3, w);
  std::vector<const Term*> made;
  std::vector<const Symbol*> symbols;
  for (Op op : {Op::BVAdd, Op::BVSub, Op::BVMul, Op::BVAnd, Op::BVOr, Op::BVXor, Op::BVUdiv,
                Op::BVUrem, Op::BVShl, Op::BVLshr, Op::BVAshr, Op::BVSdiv}) {
    symbols.push_back(mgr.make_bv_symbol(op, w));
    made.push_back(mgr.make_term(symbols.back(), {x, n}));
  }
  for (std::size_t i = 0; i < made.size(); ++i) {
    EXPECT_EQ(mgr.make_term(symbols[i], {x, n}), made[i]);
    expect_fields_agree(made[i]);
    EXPECT_FALSE(is_model_value(made[i]));
  }
  std::uint64_t word = 0;
  ASSERT_TRUE(n->numeral_word(&word));
  EXPECT_EQ(word, 3 & mask(w));
  EXPECT_EQ(mgr.make_bv_word(3, w), n);
}

INSTANTIATE_TEST_SUITE_P(Widths, TermFields, ::testing::Values(1, 8, 63, 64, 65));

TEST(TermFieldsOther, EveryKindOfTermAgreesWithItsSymbol) {
  TermManager mgr;
  const DataType* bv = mgr.bv_type(8);
  const DataType* u = mgr.sort_type("U");
  const Term* x = mgr.make_constant("x", bv);
  const Term* e = mgr.make_fresh_constant(bv);
  const Term* p = mgr.make_constant("p", mgr.bool_type());
  const Term* arr = mgr.make_const_array(mgr.array_type(bv, bv), mgr.make_bv_word(0, 8));
  const std::vector<const Term*> terms = {x,
                                          e,
                                          p,
                                          mgr.true_term(),
                                          mgr.false_term(),
                                          mgr.make_abstract_value(0, u),
                                          arr,
                                          mgr.make_not(p),
                                          mgr.make_equal(x, e),
                                          mgr.make_term(mgr.make_bv_add_symbol(8), {x, e})};
  for (const Term* t : terms) expect_fields_agree(t);
  EXPECT_EQ(x->op(), Op::Constant);
  EXPECT_EQ(mgr.true_term()->op(), Op::True);
  EXPECT_EQ(arr->op(), Op::ConstArray);
  EXPECT_TRUE(is_model_value(arr));
  EXPECT_FALSE(is_model_value(x));
  EXPECT_FALSE(is_model_value(e));
}

}  // namespace
}  // namespace kora
