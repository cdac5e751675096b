#include "kora-solve/model_values.h"

#include <gtest/gtest.h>

#include <string>

namespace kora::solve {
namespace {

QNumber numeral(TermManager& mgr, const Term* t) {
  QNumber value;
  EXPECT_TRUE(mgr.number_value(t->get_symbol(), &value));
  return value;
}

TEST(ModelValuesTest, Booleans) {
  TermManager mgr;
  EXPECT_EQ(make_value_term(mgr, Value::boolean(true)), mgr.true_term());
  EXPECT_EQ(make_value_term(mgr, Value::boolean(false)), mgr.false_term());
}

TEST(ModelValuesTest, NumeralsKeepTheirWidth) {
  TermManager mgr;
  const Term* t = make_value_term(mgr, Value::bitvector("00001111"));
  EXPECT_EQ(t, mgr.make_bv_number(15, 8));
  EXPECT_EQ(numeral(mgr, t), QNumber(15L));
  EXPECT_EQ(make_value_term(mgr, Value::bitvector("0")), mgr.make_bv_number(0, 1));
}

TEST(ModelValuesTest, WideNumerals) {
  TermManager mgr;
  std::string bits = "1" + std::string(199, '0');
  const Term* t = make_value_term(mgr, Value::bitvector(bits));
  mpz_class expected = mpz_class(1) << 199;
  EXPECT_EQ(t, mgr.make_bv_gmp(expected.get_mpz_t(), 200));
  EXPECT_EQ(numeral(mgr, t), QNumber(expected));
}

}  // namespace
}  // namespace kora::solve
