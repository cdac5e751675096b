#include "kora-solve/backend_names.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kora/smtlib/printer.h"

namespace kora::solve {
namespace {

class BackendNamesTest : public ::testing::Test {
 protected:
  const Term* constant(const std::string& name) {
    return mgr_.make_constant(name, mgr_.bv_type(4));
  }
  TermManager mgr_;
};

TEST_F(BackendNamesTest, OrdinaryNamesAreKept) {
  const Term* x = constant("x");
  const Term* t = mgr_.make_equal(x, constant("k@y"));
  BackendNames names(mgr_, {x, constant("k@y")});
  EXPECT_TRUE(names.empty());
  EXPECT_EQ(names.constant(x), x);
  EXPECT_EQ(names(t), t);
}

// Each reserved name gets as many 'k's as it takes to differ from every
// other constant's name, and terms are rebuilt over the new constants.
TEST_F(BackendNamesTest, ReservedNamesGetNamesNoOtherConstantHas) {
  const Term* at = constant("@a");
  const Term* dot = constant(".b");
  const Term* k1 = constant("k@a");
  const Term* k2 = constant("kk@a");
  BackendNames names(mgr_, {at, dot, k1, k2, at});
  EXPECT_FALSE(names.empty());
  EXPECT_EQ(smtlib::constant_name(names.constant(at)), "kkk@a");
  EXPECT_EQ(smtlib::constant_name(names.constant(dot)), "k.b");
  EXPECT_EQ(names.constant(k1), k1);
  EXPECT_EQ(names.constant(names.constant(at))->type(), at->type());

  const Term* sum = mgr_.make_term(mgr_.make_bv_add_symbol(4), {at, k1});
  const Term* t = mgr_.make_and(mgr_.make_equal(sum, dot), mgr_.make_equal(k2, at));
  const Term* renamed_sum = mgr_.make_term(mgr_.make_bv_add_symbol(4), {names.constant(at), k1});
  EXPECT_EQ(names(t), mgr_.make_and(mgr_.make_equal(renamed_sum, names.constant(dot)),
                                    mgr_.make_equal(k2, names.constant(at))));
  EXPECT_EQ(names(std::vector<const Term*>{k1, at}),
            (std::vector<const Term*>{k1, names.constant(at)}));
}

}  // namespace
}  // namespace kora::solve
