// The image of each original term in the reduced problem.
#include <gtest/gtest.h>

#include "kora/preprocess/simplifier.h"
#include "support/preprocess_fixture.h"
#include "support/random_script.h"

namespace kora::test {
namespace {

using preprocess::image_of;
using preprocess::simplify;

class Image : public PreprocessTest {};

TEST_F(Image, EliminatedTermsGoToTheirReplacementsAndTheRestStays) {
  const Term* x = bv("x");
  const Term* y = bv("y");
  const Term* z = bv("z");
  const Term* sum = app(Op::BVAdd, {y, z});     // z occurs once: eliminated
  const Term* prod = app(Op::BVMul, {x, sum});  // x is constrained: stays, over u
  const Term* a = mgr.make_equal(prod, y);
  const Term* b = mgr.make_equal(x, y);
  // Without the equation rules, which would replace a by a condition.
  preprocess::SimplifyOptions options;
  options.equations = false;
  const preprocess::Simplified s = simplify(mgr, {a, b, pin(x)}, options);
  ASSERT_EQ(s.eliminated, 1U);
  const Term* u = s.trail.steps[0].fresh;
  EXPECT_EQ(image_of(s, sum), u);
  EXPECT_EQ(image_of(s, prod), app(Op::BVMul, {x, u}));
  EXPECT_EQ(image_of(s, a), s.assertions[0]);
  EXPECT_EQ(image_of(s, b), b);
  EXPECT_EQ(image_of(s, x), x);
  EXPECT_EQ(image_of(s, z), z);  // a leaf is its own image
}

// Cascades and later passes: the images compose to the reduced assertions.
TEST_F(Image, AssertionsGoToTheReducedAssertions) {
  RandomScript gen(17);
  std::size_t eliminating = 0;
  for (int k = 0; k < 300; ++k) {
    const std::string text = gen.make();
    KeptScript r = read_kept(mgr, text, false);
    ASSERT_TRUE(r.errors.empty()) << r.errors.front();
    const preprocess::Simplified s = simplify(mgr, r.assertions);
    eliminating += s.eliminated > 0 ? 1 : 0;
    for (std::size_t i = 0; i < r.assertions.size(); ++i) {
      EXPECT_EQ(image_of(s, r.assertions[i]), s.assertions[i]) << text;
    }
  }
  EXPECT_GT(eliminating, 100U);
}

TEST_F(Image, NothingEliminatedIsTheIdentity) {
  const Term* x = bv("x");
  const Term* a = mgr.make_equal(x, num(3));
  const preprocess::Simplified s = simplify(mgr, {a, pin(x)});
  EXPECT_EQ(s.eliminated, 0U);
  EXPECT_EQ(image_of(s, a), a);
}

}  // namespace
}  // namespace kora::test
