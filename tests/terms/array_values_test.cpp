// Array values: select, store and equality judged against the arrays as
// plain functions, over every index and element of small sorts.
#include "kora/terms/array_values.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "kora/terms/simplifiers.h"

namespace kora {
namespace {

struct Sorts {
  std::size_t iw, ew;
};

class ArrayValues : public ::testing::TestWithParam<Sorts> {
 protected:
  TermManager mgr;
  const DataType* type() {
    return mgr.array_type(mgr.bv_type(GetParam().iw), mgr.bv_type(GetParam().ew));
  }
  const Term* idx(std::uint64_t k) { return mgr.make_bv_word(k, GetParam().iw); }
  const Term* elem(std::uint64_t k) { return mgr.make_bv_word(k, GetParam().ew); }
  // A random array as a function and as a chain of stores (not in normal
  // form) over a constant array.
  const Term* random_array(std::mt19937& rng, std::vector<std::uint64_t>& f) {
    const std::uint64_t n = std::uint64_t{1} << GetParam().iw;
    const std::uint64_t m = std::uint64_t{1} << GetParam().ew;
    const std::uint64_t d = rng() % m;
    f.assign(n, d);
    const Term* t = mgr.make_const_array(type(), elem(d));
    for (std::uint64_t s = rng() % (2 * n + 1); s-- > 0;) {
      const std::uint64_t i = rng() % n;
      const std::uint64_t e = rng() % m;
      t = mgr.make_store(t, idx(i), elem(e));
      f[i] = e;
    }
    return t;
  }
  const Term* fold(const Symbol* s, std::vector<const Term*> args) {
    return termsimpl::fold(&mgr, s, args);
  }
};

TEST_P(ArrayValues, SelectStoreAndEqualityAgreeWithTheFunctions) {
  std::mt19937 rng(20261124);
  const std::uint64_t n = std::uint64_t{1} << GetParam().iw;
  for (int round = 0; round < 300; ++round) {
    std::vector<std::uint64_t> f, g;
    const Term* a = random_array(rng, f);
    const Term* b = random_array(rng, g);
    ASSERT_TRUE(is_model_value(a));
    ASSERT_TRUE(arrays::is_array_value(a));
    const Term* na = arrays::normal_form(mgr, a);
    EXPECT_EQ(arrays::normal_form(mgr, na), na);
    for (std::uint64_t k = 0; k < n; ++k) {
      const Term* sel = mgr.make_select(a, idx(k));
      EXPECT_EQ(fold(sel->get_symbol(), {a, idx(k)}), elem(f[k]));
      EXPECT_EQ(fold(sel->get_symbol(), {na, idx(k)}), elem(f[k]));
    }
    const Term* eq = mgr.make_equal(a, b);
    const Term* want = f == g ? mgr.true_term() : mgr.false_term();
    EXPECT_EQ(fold(eq->get_symbol(), {a, b}), want);
    const std::uint64_t i = rng() % n;
    const std::uint64_t e = rng() % (std::uint64_t{1} << GetParam().ew);
    const Term* st = mgr.make_store(a, idx(i), elem(e));
    const Term* folded = fold(st->get_symbol(), {a, idx(i), elem(e)});
    f[i] = e;
    EXPECT_EQ(folded, arrays::normal_form(mgr, folded));
    for (std::uint64_t k = 0; k < n; ++k) {
      EXPECT_EQ(arrays::select_value(folded, idx(k)), elem(f[k]));
    }
    EXPECT_EQ(fold(eq->get_symbol(), {folded, b}), f == g ? mgr.true_term() : mgr.false_term());
  }
}

INSTANTIATE_TEST_SUITE_P(SmallSorts, ArrayValues,
                         ::testing::Values(Sorts{1, 1}, Sorts{1, 2}, Sorts{1, 3}, Sorts{2, 1},
                                           Sorts{2, 2}, Sorts{2, 3}, Sorts{3, 1}, Sorts{3, 2},
                                           Sorts{3, 3}));

TEST(ArrayValuesWide, StoresOverWideIndicesKeepTheDefault) {
  TermManager mgr;
  const DataType* t = mgr.array_type(mgr.bv_type(64), mgr.bv_type(8));
  const Term* a = mgr.make_const_array(t, mgr.make_bv_word(0, 8));
  const Term* b = arrays::store_value(mgr, a, mgr.make_bv_word(5, 64), mgr.make_bv_word(1, 8));
  const Term* c = arrays::store_value(mgr, b, mgr.make_bv_word(5, 64), mgr.make_bv_word(0, 8));
  EXPECT_EQ(c, a);
  EXPECT_EQ(arrays::select_value(b, mgr.make_bv_word(5, 64)), mgr.make_bv_word(1, 8));
  EXPECT_EQ(arrays::select_value(b, mgr.make_bv_word(6, 64)), mgr.make_bv_word(0, 8));
  // Nested: the inner arrays are compared in normal form too.
  const DataType* nt = mgr.array_type(mgr.bv_type(64), t);
  const Term* m1 = mgr.make_const_array(nt, a);
  const Term* m2 =
      mgr.make_store(m1, mgr.make_bv_word(3, 64),
                     mgr.make_store(b, mgr.make_bv_word(5, 64), mgr.make_bv_word(0, 8)));
  EXPECT_EQ(arrays::normal_form(mgr, m2), m1);
}

}  // namespace
}  // namespace kora
