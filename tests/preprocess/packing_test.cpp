// Words packed from parts become concatenations: exhaustively at small
// widths, the rewritten term has the value of the original under every
// assignment (by the independent evaluator), and only disjoint parts are
// rewritten.

#include "kora/preprocess/packing.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "kora/model/model_store.h"
#include "kora/preprocess/model_builder.h"
#include "kora/preprocess/simplifier.h"
#include "kora/terms/term_manager.h"
#include "support/evaluator.h"

namespace kora::test {
namespace {

using preprocess::pack_words;

class Packing : public ::testing::Test {
 protected:
  const Term* bv(const std::string& name, std::size_t w) {
    const Term* c = mgr.make_constant(name, mgr.bv_type(w));
    constants.push_back(c);
    return c;
  }
  const Term* num(std::uint64_t v, std::size_t w) { return mgr.make_bv_word(v, w); }
  const Term* op(Op o, const Term* a, const Term* b) {
    return mgr.make_term(mgr.make_bv_symbol(o, a->type()->width()), {a, b});
  }
  const Term* zext(const Term* a, std::size_t k) {
    return mgr.make_term(mgr.make_bv_zero_extend_symbol(k, a->type()->width()), {a});
  }
  const Term* extract(const Term* a, std::size_t msb, std::size_t lsb) {
    return mgr.make_term(mgr.make_bv_extract_symbol(msb, lsb, a->type()->width()), {a});
  }
  const Term* concat(const Term* a, const Term* b) {
    return mgr.make_term(mgr.make_bv_concat_symbol(a->type()->width(), b->type()->width()), {a, b});
  }

  // Packs (= t t) and checks the image of t against t under every
  // assignment of the constants; the image.
  const Term* packed_and_checked(const Term* t) {
    const Term* a = mgr.make_equal(t, t);
    const preprocess::Packed p = pack_words(mgr, {a});
    const Term* image =
        t->id() < p.images.size() && p.images[t->id()] != nullptr ? p.images[t->id()] : t;
    std::size_t bits = 0;
    for (const Term* c : constants) bits += c->type()->width();
    std::ostringstream log;
    ModelStore store(&mgr, &log);
    for (std::uint64_t code = 0; code < (std::uint64_t{1} << bits); ++code) {
      std::uint64_t rest = code;
      for (const Term* c : constants) {
        const std::size_t w = c->type()->width();
        store.set_value(c, mgr.make_bv_word(rest & mask(w), w));
        rest >>= w;
      }
      const auto want = evaluate(mgr, store, t);
      const auto got = evaluate(mgr, store, image);
      EXPECT_TRUE(want.has_value() && got.has_value() && *want == *got)
          << *t << " became " << *image << " at " << code;
      if (testing::Test::HasFailure()) break;
    }
    return image;
  }

  TermManager mgr;
  std::vector<const Term*> constants;
};

TEST_F(Packing, ShiftedZeroExtensionsBecomeAConcatenation) {
  const Term* a = bv("a", 2);
  const Term* b = bv("b", 2);
  for (Op o : {Op::BVOr, Op::BVAdd}) {
    const Term* word = op(o, op(Op::BVShl, zext(a, 4), num(4, 6)), zext(b, 4));
    const Term* image = packed_and_checked(word);
    EXPECT_EQ(image, concat(concat(a, num(0, 2)), b)) << *image;
  }
}

// The nested form translated programs write: each step shifts the word so
// far and adds the next byte.
TEST_F(Packing, NestedShiftsOfPartialWords) {
  const Term* a = bv("a", 2);
  const Term* b = bv("b", 2);
  const Term* c = bv("c", 2);
  const Term* two = num(2, 6);
  const Term* ab = op(Op::BVOr, op(Op::BVShl, zext(a, 4), two), zext(b, 4));
  const Term* abc = op(Op::BVOr, op(Op::BVShl, ab, two), zext(c, 4));
  EXPECT_EQ(packed_and_checked(abc), concat(concat(a, b), c));
}

TEST_F(Packing, PartsOfTermsThroughExtractionsAndRightShifts) {
  const Term* a = bv("a", 4);
  const Term* b = bv("b", 2);
  // The high half of a in the low bits, b above it; a word of 6 bits.
  const Term* word =
      op(Op::BVOr, op(Op::BVLshr, zext(a, 2), num(2, 6)), op(Op::BVShl, zext(b, 4), num(2, 6)));
  const Term* image = packed_and_checked(word);
  EXPECT_EQ(image, concat(concat(num(0, 2), b), extract(a, 3, 2))) << *image;
  const Term* mixed = op(Op::BVAdd, zext(extract(a, 1, 0), 2), concat(b, num(0, 2)));
  const Term* mixed_image = packed_and_checked(mixed);
  EXPECT_EQ(mixed_image, concat(b, extract(a, 1, 0))) << *mixed_image;
}

TEST_F(Packing, OverlappingPartsStay) {
  const Term* a = bv("a", 2);
  const Term* b = bv("b", 2);
  const Term* c = bv("c", 1);
  const std::vector<const Term*> overlapping{
      op(Op::BVOr, op(Op::BVShl, zext(a, 2), num(1, 4)), zext(b, 2)),  // bit 1 twice
      op(Op::BVAdd, zext(a, 2), zext(b, 2)),
      op(Op::BVOr, op(Op::BVShl, zext(a, 2), num(2, 4)), num(1, 4)),    // a numeral part
      op(Op::BVOr, zext(a, 2), op(Op::BVShl, zext(b, 2), zext(c, 3))),  // shift by a term
  };
  for (const Term* t : overlapping) {
    EXPECT_EQ(packed_and_checked(t), t) << *t;
  }
}

// A word whose bytes occur nowhere else is eliminated whole once packed, and
// the rebuilt bytes give it the value the solver chose.
TEST_F(Packing, PackedWordsAreEliminatedAndRebuilt) {
  const Term* a = bv("a", 2);
  const Term* b = bv("b", 2);
  const Term* w = bv("w", 4);
  const Term* word = op(Op::BVOr, op(Op::BVShl, zext(a, 2), num(2, 4)), zext(b, 2));
  const std::vector<const Term*> assertions{mgr.make_equal(w, word), mgr.make_equal(w, w)};
  const preprocess::Simplified s = preprocess::simplify(mgr, assertions);
  EXPECT_EQ(s.packed, 1u);
  EXPECT_EQ(s.eliminated_by_op.at("concat"), 1u);
  preprocess::SimplifyOptions without;
  without.packing = false;
  EXPECT_EQ(preprocess::simplify(mgr, assertions, without).eliminated, 0u);
  for (std::uint64_t v = 0; v < 16; ++v) {
    std::ostringstream log;
    ModelStore store(&mgr, &log);
    for (const Term* c : preprocess::constants_of(s.assertions)) {
      store.set_value(c, c == w ? num(v, 4) : mgr.true_term());
    }
    preprocess::rebuild(mgr, store, s.trail, assertions);
    EXPECT_TRUE(preprocess::validate(store, assertions).empty()) << v;
  }
}

}  // namespace
}  // namespace kora::test
