// The model store keeps a bit-vector value below 2^64 as its word until its
// numeral is asked for. Folding a chain of such applications then makes no
// numeral for the values in between, and every normal form asked for is
// still the numeral (or truth value) that folding term by term gives.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kora/model/model_store.h"
#include "kora/terms/simplifiers.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"

namespace kora {
namespace {

class WordNormalForms : public ::testing::TestWithParam<std::size_t> {
 protected:
  std::size_t w = GetParam();
  TermManager mgr;
  ModelStore store{&mgr};
  const DataType* bv = mgr.bv_type(w);
  const Term* x = mgr.make_constant("x", bv);
  const Term* k = mgr.make_constant("k", bv);

  // x, then bvnot, bvadd k, bvneg, bvxor k, bvmul 3, rotate_left 1 in turn.
  std::vector<const Term*> chain(std::size_t n) {
    std::vector<const Term*> ts = {x};
    const Term* three = mgr.make_bv_word(3, w);
    for (std::size_t i = 0; i < n; ++i) {
      const Term* t = ts.back();
      switch (i % 6) {
        case 0:
          t = mgr.make_term(mgr.make_bv_not_symbol(w), {t});
          break;
        case 1:
          t = mgr.make_term(mgr.make_bv_add_symbol(w), {t, k});
          break;
        case 2:
          t = mgr.make_term(mgr.make_bv_neg_symbol(w), {t});
          break;
        case 3:
          t = mgr.make_term(mgr.make_bv_xor_symbol(w), {k, t});
          break;
        case 4:
          t = mgr.make_term(mgr.make_bv_mul_symbol(w), {t, three});
          break;
        default:
          t = mgr.make_term(mgr.make_bv_rotate_left_symbol(1, w), {t});
          break;
      }
      ts.push_back(t);
    }
    return ts;
  }

  // The normal forms of ts folded one term at a time by the folders.
  std::vector<const Term*> folded(const std::vector<const Term*>& ts) {
    std::vector<const Term*> out;
    for (const Term* t : ts) {
      if (t->arity() == 0) {
        out.push_back(store.value_of(t));
        continue;
      }
      std::vector<const Term*> args;
      for (const Term* a : t->args()) {
        if (a->arity() > 0 || a == x) {
          args.push_back(out[index_of(ts, a)]);
        } else {
          args.push_back(a == k ? store.value_of(k) : a);
        }
      }
      out.push_back(termsimpl::fold(&mgr, t->get_symbol(), args));
    }
    return out;
  }
  static std::size_t index_of(const std::vector<const Term*>& ts, const Term* t) {
    for (std::size_t i = 0; i < ts.size(); ++i) {
      if (ts[i] == t) return i;
    }
    return ts.size();
  }
};

TEST_P(WordNormalForms, ComparingAChainMakesNoNumeralBetween) {
  store.set_value(x, mgr.make_bv_word(0x5a5a5a5a5a5a5a5aULL, w));
  store.set_value(k, mgr.make_bv_word(0x0123456789abcdefULL, w));
  const std::vector<const Term*> ts = chain(60);
  const Term* root = mgr.make_equal(ts.back(), k);
  const std::size_t terms_before = mgr.term_count();
  const Term* n = store.get_normalized(root);
  // Past 64 bits the values are numerals, made as the folders make them.
  if (w <= 64) {
    EXPECT_EQ(mgr.term_count(), terms_before);
  }
  // The comparison's value is the one that folding term by term gives.
  const std::vector<const Term*> expected = folded(ts);
  const Term* value = expected.back() == store.value_of(k) ? mgr.true_term() : mgr.false_term();
  EXPECT_EQ(n, value);
  // Each intermediate normal form, asked for now, is the folders' numeral.
  for (std::size_t i = 1; i < ts.size(); ++i) {
    EXPECT_EQ(store.get_normalized(ts[i]), expected[i]) << "step " << i;
  }
}

TEST_P(WordNormalForms, ValuesChangedLaterAreSeen) {
  const std::vector<const Term*> ts = chain(12);
  store.set_value(k, mgr.make_bv_word(7, w));
  for (std::uint64_t v : {std::uint64_t{0}, std::uint64_t{1}, ~std::uint64_t{0}}) {
    store.set_value(x, mgr.make_bv_word(v, w));
    // The root first, so that everything below it is kept as a word.
    const Term* root = mgr.make_equal(ts.back(), k);
    const std::vector<const Term*> expected = folded(ts);
    EXPECT_EQ(store.get_normalized(root),
              expected.back() == store.value_of(k) ? mgr.true_term() : mgr.false_term());
    for (std::size_t i = 1; i < ts.size(); ++i) {
      ASSERT_EQ(store.get_normalized(ts[i]), expected[i]) << "value " << v << " step " << i;
      EXPECT_TRUE(store.is_good_model_value(store.get_normalized(ts[i])));
    }
  }
}

TEST_P(WordNormalForms, UnvaluedOperandsRebuildTheApplication) {
  store.set_value(k, mgr.make_bv_word(5, w));
  const Term* y = mgr.make_constant("y", bv);
  const Term* inner = mgr.make_term(mgr.make_bv_add_symbol(w), {k, k});
  const Term* outer = mgr.make_term(mgr.make_bv_mul_symbol(w), {inner, y});
  const Term* n = store.get_normalized(outer);
  EXPECT_EQ(n, mgr.make_term(mgr.make_bv_mul_symbol(w), {mgr.make_bv_word(10, w), y}));
  EXPECT_EQ(store.get_normalized(inner), mgr.make_bv_word(10, w));
}

INSTANTIATE_TEST_SUITE_P(Widths, WordNormalForms, ::testing::Values(1, 8, 63, 64, 65));

}  // namespace
}  // namespace kora
