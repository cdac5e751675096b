// What a numeral costs: a small value in any width is a few machine words, a
// wide value is its integer kept once (about width/8 bytes), and no numeral
// keeps its printed text, which is made when the numeral is printed. Every
// allocation of the binary is counted (support/alloc_counting.h), GMP's
// while a test runs.
#include <gmpxx.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "kora/numbers/qnumber.h"
#include "kora/terms/simplifiers.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"
#include "support/alloc_counting.h"
#include "support/term_helpers.h"

namespace kora {
namespace {

using test::mpz_pow2;
using test::qnum;

// The widest bit-vector that scripts may declare, minus one: a width that
// is not a multiple of 4 prints one character per bit.
constexpr std::size_t kHugeWidth = (std::size_t{1} << 20) - 1;
// Room for the bookkeeping of one numeral: its symbol and term, table nodes,
// and an occasional growth of an index or a deque block.
constexpr std::size_t kBookkeeping = 16 * 1024;

class NumeralMemory : public ::testing::Test {
 protected:
  void SetUp() override {
    alloc_counting::install_gmp_counters();
    // Warm-up: the types, symbols and first blocks of every table exist.
    mgr.make_bv_number(QNumber(1L), kHugeWidth);
    mgr.make_bv_number(qnum(mpz_pow2(kHugeWidth - 1)), kHugeWidth);
  }
  void TearDown() override { alloc_counting::remove_gmp_counters(); }

  // Bytes requested while f runs.
  template <class F>
  static std::size_t bytes_during(F f) {
    const std::size_t before = alloc_counting::bytes_requested();
    f();
    return alloc_counting::bytes_requested() - before;
  }

  TermManager mgr;
};

TEST_F(NumeralMemory, SmallValueInHugeWidthHoldsNoBigAllocation) {
  const Term* n = nullptr;
  const std::size_t bytes = bytes_during([&] { n = mgr.make_bv_number(QNumber(7L), kHugeWidth); });
  EXPECT_LT(bytes, kBookkeeping);
  // Still the numeral of 7 at that width.
  std::uint64_t word = 0;
  ASSERT_TRUE(n->get_symbol()->numeral_word(&word));
  EXPECT_EQ(word, 7u);
  EXPECT_EQ(n->type(), mgr.bv_type(kHugeWidth));
}

TEST_F(NumeralMemory, FoldingSmallValuesInHugeWidthStaysSmall) {
  // The chain: 1 + 1 + ... at 2^20 - 1 bits, one new numeral a step.
  const Symbol* add = mgr.make_bv_add_symbol(kHugeWidth);
  const Term* one = mgr.make_bv_number(QNumber(1L), kHugeWidth);
  const Term* acc = one;
  const std::size_t bytes = bytes_during([&] {
    for (int i = 0; i < 100; ++i) acc = termsimpl::fold(&mgr, add, {acc, one});
  });
  EXPECT_LT(bytes, 100 * kBookkeeping);
  EXPECT_EQ(acc, mgr.make_bv_number(QNumber(101L), kHugeWidth));
}

TEST_F(NumeralMemory, WideValueKeepsItsIntegerOnce) {
  const mpz_class v = mpz_pow2(kHugeWidth - 1) + 12345;
  const QNumber q = qnum(v);
  const Term* n = nullptr;
  const std::size_t bytes = bytes_during([&] { n = mgr.make_bv_number(q, kHugeWidth); });
  // One integer of kHugeWidth bits; neither a second copy nor the text.
  EXPECT_LT(bytes, kHugeWidth / 8 + kBookkeeping);
  QNumber back(0L);
  ASSERT_TRUE(mgr.number_value(n->get_symbol(), &back));
  EXPECT_EQ(back, q);
  // Asking again finds the same numeral without copying the value.
  const Term* again = nullptr;
  EXPECT_LT(bytes_during([&] { again = mgr.make_bv_number(q, kHugeWidth); }), 1024u);
  EXPECT_EQ(again, n);
  EXPECT_EQ(mgr.make_bv_gmp(v.get_mpz_t(), kHugeWidth), n);
}

TEST_F(NumeralMemory, TextIsMadeWhenPrinted) {
  const mpz_class v = mpz_pow2(kHugeWidth - 1) + 5;
  const Term* n = mgr.make_bv_number(qnum(v), kHugeWidth);
  const std::string text = n->to_shallow_str();
  ASSERT_EQ(text.size(), 2 + kHugeWidth);
  EXPECT_EQ(text.substr(0, 3), "#b1");
  EXPECT_EQ(text.substr(text.size() - 4), "0101");
  EXPECT_EQ(text.find('1', 3), text.size() - 3);
  EXPECT_TRUE(n->get_symbol()->name().empty());
}

TEST(NumeralText, PaddedToTheWidthInHexOrBinary) {
  TermManager mgr;
  struct Row {
    long value;
    std::size_t width;
    const char* text;
  };
  for (const Row& row :
       {Row{0, 1, "#b0"}, Row{1, 1, "#b1"}, Row{5, 3, "#b101"}, Row{0, 8, "#x00"},
        Row{0xa5, 8, "#xa5"}, Row{1, 12, "#x001"}, Row{6, 7, "#b0000110"}, Row{255, 8, "#xff"}}) {
    EXPECT_EQ(mgr.make_bv_number(QNumber(row.value), row.width)->to_shallow_str(), row.text);
  }
  // Values of a word and beyond, where the digits come from GMP.
  EXPECT_EQ(mgr.make_bv_number(qnum(mpz_pow2(64) - 1), 64)->to_shallow_str(), "#xffffffffffffffff");
  EXPECT_EQ(mgr.make_bv_number(qnum(mpz_pow2(64) + 10), 68)->to_shallow_str(),
            "#x1000000000000000a");
  EXPECT_EQ(mgr.make_bv_number(qnum(mpz_pow2(65)), 66)->to_shallow_str(),
            "#b1" + std::string(65, '0'));
  // Inside a term.
  const Term* x = mgr.make_constant("x", mgr.bv_type(8));
  const Term* t = mgr.make_equal(x, mgr.make_bv_number(QNumber(0x9cL), 8));
  EXPECT_EQ(t->to_shallow_str(), "(= x #x9c)");
}

}  // namespace
}  // namespace kora
