// fold_words is the folders' word path, which the model store also calls
// directly on the words it keeps instead of numerals. Whatever it answers
// must be what the folders give for the same numerals (their results are
// checked against reference semantics in simplifiers_test), and it must
// leave to the folders' general path exactly the cases past a word.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "kora/terms/simplifiers.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"

namespace kora {
namespace {

using termsimpl::fold_words;
using termsimpl::WordFold;

std::uint64_t mask(std::size_t w) {
  return w >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << w) - 1;
}

class FoldWords : public ::testing::Test {
 protected:
  // The symbols of every operator with a word form whose arguments have
  // width w, with their arities.
  std::vector<std::pair<const Symbol*, std::size_t>> symbols(std::size_t w) {
    std::vector<std::pair<const Symbol*, std::size_t>> out;
    for (Op op : {Op::BVAdd, Op::BVSub, Op::BVMul, Op::BVShl, Op::BVLshr, Op::BVAshr, Op::BVUdiv,
                  Op::BVSdiv, Op::BVUrem, Op::BVSrem, Op::BVAnd, Op::BVOr, Op::BVXor, Op::BVUlt,
                  Op::BVUle, Op::BVSlt, Op::BVSle, Op::BVComp}) {
      out.emplace_back(mgr.make_bv_symbol(op, w), 2);
    }
    out.emplace_back(mgr.make_bv_symbol(Op::BVNeg, w), 1);
    out.emplace_back(mgr.make_bv_symbol(Op::BVNot, w), 1);
    out.emplace_back(mgr.make_equal_symbol(mgr.bv_type(w)), 2);
    out.emplace_back(mgr.make_bv_concat_symbol(w, w), 2);
    out.emplace_back(mgr.make_bv_extract_symbol(w - 1, w / 2, w), 1);
    out.emplace_back(mgr.make_bv_zero_extend_symbol(3, w), 1);
    out.emplace_back(mgr.make_bv_sign_extend_symbol(3, w), 1);
    out.emplace_back(mgr.make_bv_rotate_left_symbol(w / 2 + 1, w), 1);
    out.emplace_back(mgr.make_bv_rotate_right_symbol(w / 2 + 1, w), 1);
    return out;
  }

  // fold_words against the folders on one application; its answer.
  WordFold check(const Symbol* s, std::size_t w, std::uint64_t a, std::uint64_t b,
                 std::size_t arity) {
    std::vector<const Term*> args = {mgr.make_bv_word(a, w)};
    if (arity == 2) args.push_back(mgr.make_bv_word(b, w));
    const std::uint64_t v[2] = {a & mask(w), b & mask(w)};
    std::uint64_t out = 0;
    const WordFold r = fold_words(s, v, arity, &out);
    const Term* folded = termsimpl::fold(&mgr, s, args);
    switch (r) {
      case WordFold::Word:
        EXPECT_EQ(out & ~mask(s->get_output_type()->width()), 0u) << op_name(s->op());
        EXPECT_EQ(folded, mgr.make_bv_word(out, s->get_output_type()->width()))
            << op_name(s->op()) << " " << a << " " << b << " at " << w;
        break;
      case WordFold::True:
      case WordFold::False:
        EXPECT_EQ(folded, r == WordFold::True ? mgr.true_term() : mgr.false_term())
            << op_name(s->op()) << " " << a << " " << b << " at " << w;
        break;
      case WordFold::None:
        EXPECT_TRUE(is_model_value(folded)) << op_name(s->op());
        break;
    }
    return r;
  }

  TermManager mgr;
};

TEST_F(FoldWords, AgreesWithTheFoldersExhaustivelyAtSmallWidths) {
  for (std::size_t w = 1; w <= 4; ++w) {
    for (const auto& [s, arity] : symbols(w)) {
      for (std::uint64_t a = 0; a <= mask(w); ++a) {
        for (std::uint64_t b = 0; b <= (arity == 2 ? mask(w) : 0); ++b) {
          EXPECT_NE(check(s, w, a, b, arity), WordFold::None) << op_name(s->op()) << " at " << w;
        }
      }
    }
  }
}

TEST_F(FoldWords, AgreesWithTheFoldersAroundTheWordSize) {
  std::mt19937_64 rng(64);
  for (std::size_t w : {8, 33, 63, 64, 65}) {
    for (const auto& [s, arity] : symbols(w)) {
      for (int i = 0; i < 200; ++i) {
        // Small shift amounts and sign-bit patterns turn up too.
        const std::uint64_t a = i % 4 == 0 ? mask(w) : rng();
        const std::uint64_t b = i % 3 == 0 ? rng() % (w + 2) : rng();
        check(s, w, a, b, arity);
      }
    }
  }
}

TEST_F(FoldWords, LeavesWhatIsPastAWordToTheGeneralPath) {
  std::uint64_t out = 0;
  const std::uint64_t v[2] = {1, 2};
  const std::uint64_t negative[2] = {std::uint64_t{1} << 59, 0};
  // Arguments of 65 bits: same-width operators and rotations.
  EXPECT_EQ(fold_words(mgr.make_bv_symbol(Op::BVAdd, 65), v, 2, &out), WordFold::None);
  EXPECT_EQ(fold_words(mgr.make_bv_symbol(Op::BVUlt, 65), v, 2, &out), WordFold::None);
  EXPECT_EQ(fold_words(mgr.make_bv_rotate_left_symbol(1, 65), v, 1, &out), WordFold::None);
  // Results past 64 bits that need more than the word.
  EXPECT_EQ(fold_words(mgr.make_bv_concat_symbol(40, 30), v, 2, &out), WordFold::None);
  EXPECT_EQ(fold_words(mgr.make_bv_sign_extend_symbol(10, 60), negative, 1, &out), WordFold::None);
  // But a non-negative value stays its own extension at any width.
  EXPECT_EQ(fold_words(mgr.make_bv_sign_extend_symbol(100, 60), v, 1, &out), WordFold::Word);
  EXPECT_EQ(out, 1u);
  // Operators without a word form, and more than two arguments.
  EXPECT_EQ(fold_words(mgr.make_not_symbol(), v, 1, &out), WordFold::None);
  EXPECT_EQ(fold_words(mgr.make_bv_symbol(Op::BVAdd, 8), v, 3, &out), WordFold::None);
}

}  // namespace
}  // namespace kora
