#include "kora/terms/term_manager.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <unordered_set>
#include <vector>

#include "kora/numbers/qnumber.h"
#include "kora/terms/simplifiers.h"
#include "kora/terms/term.h"
#include "support/term_helpers.h"

namespace kora {
namespace {

using test::mpz_pow2;
using test::numeral_value;
using test::qnum;

// Out-parameters start at these so that a query that answers false can be
// seen to have left them alone.
constexpr std::size_t kSentinel = 0xdeadbeef;

class TermManagerTest : public ::testing::Test {
 protected:
  TermManager mgr;
  const DataType* bv4 = mgr.bv_type(4);
  const DataType* bv8 = mgr.bv_type(8);
  const Term* x = mgr.make_constant("x", bv8);
  const Term* y = mgr.make_constant("y", bv8);
  const Term* p = mgr.make_constant("p", mgr.bool_type());
  const Term* q = mgr.make_constant("q", mgr.bool_type());
};

// --- The edge cases every implementation must get right -----------------------

// Fresh constants are new terms under new names, skip names declared with
// their prefix before them, and are found again by name once a name with
// their prefix is declared after them.
TEST_F(TermManagerTest, FreshConstantsHaveNamesNoOtherConstantHas) {
  const Term* declared = mgr.make_constant("kora!e1", mgr.bool_type());
  const Term* a = mgr.make_fresh_constant(bv8);
  const Term* b = mgr.make_fresh_constant(bv8);
  EXPECT_EQ(a->get_symbol()->name(), "kora!e0");
  EXPECT_EQ(b->get_symbol()->name(), "kora!e2");
  EXPECT_NE(a, x);
  EXPECT_NE(a, b);
  EXPECT_EQ(b->type(), bv8);
  const Term* c = mgr.make_fresh_constant(mgr.bool_type());
  EXPECT_EQ(mgr.make_constant("kora!e3", mgr.bool_type()), c);
  EXPECT_EQ(mgr.make_constant("kora!e2", bv8), b);
  EXPECT_NE(mgr.make_constant("kora!e1", mgr.bool_type()), a);
  EXPECT_EQ(mgr.make_constant("kora!e1", mgr.bool_type()), declared);
}

TEST_F(TermManagerTest, MakeBvNumberTwiceGivesSamePointerAndItsValueBack) {
  for (std::size_t w : {1u, 4u, 8u, 63u, 64u, 65u, 300u}) {
    const mpz_class v = mpz_pow2(w) - 3;  // at width 1 this is -1, i.e. 1
    const mpz_class expected = test::mpz_mod2w(v, w);
    const Term* a = mgr.make_bv_number(qnum(v), w);
    const Term* b = mgr.make_bv_number(qnum(v), w);
    EXPECT_EQ(a, b) << "width " << w;
    // An equal value built another way is still the same numeral.
    EXPECT_EQ(a, mgr.make_bv_number(qnum(expected), w)) << "width " << w;
    QNumber out(0L);
    ASSERT_TRUE(mgr.number_value(a->get_symbol(), &out)) << "width " << w;
    EXPECT_EQ(out.numerator(), expected) << "width " << w;
    EXPECT_EQ(out, qnum(expected));
  }
}

TEST_F(TermManagerTest, NumberValueOnNonNumeralIsFalseAndLeavesOutValueUntouched) {
  const Term* u_val = mgr.make_abstract_value(0, mgr.sort_type("U"));
  const Term* arr = mgr.make_const_array(mgr.array_type(bv4, mgr.bool_type()), mgr.false_term());
  const std::vector<const Symbol*> non_numerals = {
      mgr.true_term()->get_symbol(),
      mgr.false_term()->get_symbol(),
      mgr.true_symbol(),
      x->get_symbol(),  // a free constant
      p->get_symbol(),
      u_val->get_symbol(),
      arr->get_symbol(),
      mgr.make_bv_add_symbol(8),
      mgr.make_bv_not_symbol(8),
      mgr.make_bv_extract_symbol(3, 0, 8),
      mgr.make_and_symbol(),
      mgr.make_term(mgr.make_bv_add_symbol(8), {x, y})->get_symbol(),
  };
  for (const Symbol* s : non_numerals) {
    QNumber out(12345L);
    EXPECT_FALSE(mgr.number_value(s, &out)) << s->name();
    EXPECT_EQ(out, QNumber(12345L)) << s->name();
    EXPECT_EQ(mgr.find_number(s), nullptr) << s->name();
  }
  // A big out-value must survive too.
  QNumber big(mpz_pow2(200) + 7);
  EXPECT_FALSE(mgr.number_value(x->get_symbol(), &big));
  EXPECT_EQ(big.numerator(), mpz_pow2(200) + 7);
}

TEST_F(TermManagerTest, BVAddSimplOnAllOnesAndOneGivesZero) {
  for (std::size_t w : {1u, 2u, 7u, 8u, 32u, 63u, 64u, 65u, 128u, 300u}) {
    const Term* ones = mgr.make_bv_number(qnum(mpz_pow2(w) - 1), w);
    const Term* one = mgr.make_bv_number(1, w);
    termsimpl::BVAddSimpl add;
    const Term* r = add(&mgr, mgr.make_bv_add_symbol(w), {ones, one});
    EXPECT_EQ(r, mgr.make_bv_number(0, w)) << "width " << w;
    EXPECT_EQ(numeral_value(mgr, r), mpz_class(0)) << "width " << w;
    EXPECT_EQ(r->type(), mgr.bv_type(w));
    // Addition commutes, so the other order must wrap the same way.
    EXPECT_EQ(add(&mgr, mgr.make_bv_add_symbol(w), {one, ones}), r);
  }
}

TEST_F(TermManagerTest, BVNegSimplOnZeroGivesZero) {
  for (std::size_t w : {1u, 3u, 8u, 64u, 65u, 300u}) {
    const Term* zero = mgr.make_bv_number(0, w);
    termsimpl::BVNegSimpl neg;
    EXPECT_EQ(neg(&mgr, mgr.make_bv_neg_symbol(w), {zero}), zero) << "width " << w;
  }
}

TEST_F(TermManagerTest, IsArrayTypeAcceptsNullForEitherOutParameter) {
  const DataType* arr = mgr.array_type(bv4, mgr.bool_type());
  const DataType* index = nullptr;
  const DataType* element = nullptr;
  EXPECT_TRUE(mgr.is_array_type(arr, nullptr, nullptr));
  EXPECT_TRUE(mgr.is_array_type(arr, &index, nullptr));
  EXPECT_EQ(index, bv4);
  EXPECT_TRUE(mgr.is_array_type(arr, nullptr, &element));
  EXPECT_EQ(element, mgr.bool_type());
  EXPECT_FALSE(mgr.is_array_type(bv4, nullptr, nullptr));
  EXPECT_FALSE(mgr.is_array_type(mgr.bool_type(), nullptr, &element));
  EXPECT_FALSE(mgr.is_array_type(bv4, &index, nullptr));
}

// --- Hash-consing ---------------------------------------------------------------

TEST_F(TermManagerTest, TypesAreHashConsed) {
  EXPECT_EQ(mgr.bv_type(8), bv8);
  EXPECT_NE(mgr.bv_type(9), bv8);
  EXPECT_NE(mgr.bv_type(4), bv8);
  EXPECT_EQ(mgr.bool_type(), mgr.bool_type());
  EXPECT_NE(static_cast<const DataType*>(mgr.bool_type()), mgr.bv_type(1));
  const DataType* a1 = mgr.array_type(bv4, bv8);
  EXPECT_EQ(mgr.array_type(bv4, bv8), a1);
  EXPECT_NE(mgr.array_type(bv8, bv4), a1);
  EXPECT_NE(mgr.array_type(bv4, mgr.bool_type()), a1);
  // Nested arrays are hash-consed through their components.
  EXPECT_EQ(mgr.array_type(bv4, mgr.array_type(bv4, bv8)), mgr.array_type(bv4, a1));
  const DataType* u = mgr.sort_type("U");
  EXPECT_EQ(mgr.sort_type("U"), u);
  EXPECT_NE(mgr.sort_type("V"), u);
  EXPECT_TRUE(u->is_sort());
  EXPECT_EQ(u->name(), "U");
}

TEST_F(TermManagerTest, SymbolsAreHashConsed) {
  EXPECT_EQ(mgr.make_bv_add_symbol(8), mgr.make_bv_add_symbol(8));
  EXPECT_NE(mgr.make_bv_add_symbol(8), mgr.make_bv_add_symbol(16));
  EXPECT_NE(mgr.make_bv_add_symbol(8), mgr.make_bv_sub_symbol(8));
  EXPECT_EQ(mgr.make_bv_add_symbol(8), mgr.make_bv_symbol(Op::BVAdd, 8));
  EXPECT_EQ(mgr.make_bv_ult_symbol(8), mgr.make_bv_symbol(Op::BVUlt, 8));
  EXPECT_EQ(mgr.make_bv_extract_symbol(3, 0, 8), mgr.make_bv_extract_symbol(3, 0, 8));
  EXPECT_NE(mgr.make_bv_extract_symbol(3, 0, 8), mgr.make_bv_extract_symbol(3, 0, 9));
  EXPECT_NE(mgr.make_bv_extract_symbol(3, 0, 8), mgr.make_bv_extract_symbol(4, 1, 8));
  EXPECT_EQ(mgr.make_bv_concat_symbol(3, 5), mgr.make_bv_concat_symbol(3, 5));
  EXPECT_NE(mgr.make_bv_concat_symbol(3, 5), mgr.make_bv_concat_symbol(5, 3));
  EXPECT_EQ(mgr.make_bv_rotate_left_symbol(2, 8), mgr.make_bv_rotate_left_symbol(2, 8));
  EXPECT_NE(mgr.make_bv_rotate_left_symbol(2, 8), mgr.make_bv_rotate_right_symbol(2, 8));
  EXPECT_NE(mgr.make_bv_rotate_left_symbol(2, 8), mgr.make_bv_rotate_left_symbol(8, 2));
  EXPECT_EQ(mgr.make_bv_zero_extend_symbol(4, 8), mgr.make_bv_zero_extend_symbol(4, 8));
  EXPECT_NE(mgr.make_bv_zero_extend_symbol(4, 8), mgr.make_bv_sign_extend_symbol(4, 8));
  EXPECT_EQ(mgr.make_iff_symbol(), mgr.make_iff_symbol());
  EXPECT_EQ(mgr.make_equal_symbol(bv8), mgr.make_equal_symbol(bv8));
  EXPECT_NE(mgr.make_equal_symbol(bv8), mgr.make_equal_symbol(bv4));
  EXPECT_EQ(mgr.true_symbol(), mgr.true_term()->get_symbol());
  EXPECT_EQ(mgr.false_symbol(), mgr.false_term()->get_symbol());
  EXPECT_NE(mgr.true_symbol(), mgr.false_symbol());
}

TEST_F(TermManagerTest, TermsAreHashConsed) {
  const Symbol* add = mgr.make_bv_add_symbol(8);
  const Term* xy = mgr.make_term(add, {x, y});
  EXPECT_EQ(mgr.make_term(add, {x, y}), xy);
  EXPECT_NE(mgr.make_term(add, {y, x}), xy);
  EXPECT_NE(mgr.make_term(mgr.make_bv_sub_symbol(8), {x, y}), xy);
  EXPECT_EQ(xy->get_symbol(), add);
  ASSERT_EQ(xy->arity(), 2u);
  EXPECT_EQ(xy->arg(0), x);
  EXPECT_EQ(xy->arg(1), y);
  EXPECT_EQ(xy->type(), bv8);
  // Nested terms are shared through their arguments.
  const Term* nested = mgr.make_term(add, {xy, mgr.make_term(add, {x, y})});
  EXPECT_EQ(nested->arg(0), nested->arg(1));
  EXPECT_EQ(mgr.make_term(add, {mgr.make_term(add, {x, y}), xy}), nested);

  // Constants: the same name and type give the same term.
  EXPECT_EQ(mgr.make_constant("x", bv8), x);
  EXPECT_NE(mgr.make_constant("x", bv4), x);
  EXPECT_NE(mgr.make_constant("x", mgr.bool_type()), x);
  EXPECT_EQ(x->arity(), 0u);
  EXPECT_EQ(x->type(), bv8);

  // Values.
  EXPECT_EQ(mgr.make_bv_number(5, 8), mgr.make_bv_number(QNumber(5L), 8));
  EXPECT_NE(mgr.make_bv_number(5, 8), mgr.make_bv_number(5, 16));
  EXPECT_NE(mgr.make_bv_number(5, 8), mgr.make_bv_number(6, 8));
  EXPECT_EQ(mgr.make_not(p), mgr.make_term(mgr.make_not_symbol(), {p}));
  EXPECT_EQ(mgr.make_and(p, q), mgr.make_term(mgr.make_and_symbol(), {p, q}));
  EXPECT_EQ(mgr.make_or(p, q), mgr.make_term(mgr.make_or_symbol(), {p, q}));
  EXPECT_EQ(mgr.make_ite(p, x, y), mgr.make_term(mgr.make_ite_symbol(bv8), {p, x, y}));
  EXPECT_EQ(mgr.make_ite(p, x, y)->type(), bv8);
}

TEST_F(TermManagerTest, NumeralsAreSharedAcrossRepresentations) {
  // 2^40 fits a machine word, so however the caller built it the numeral is
  // the same; likewise a value that needs GMP.
  const QNumber from_long(std::int64_t{1} << 40);
  const QNumber from_mpz(mpz_pow2(40));
  const QNumber from_ratio(mpz_pow2(40), mpz_class(1));
  EXPECT_EQ(mgr.make_bv_number(from_long, 48), mgr.make_bv_number(from_mpz, 48));
  EXPECT_EQ(mgr.make_bv_number(from_long, 48), mgr.make_bv_number(from_ratio, 48));
  const QNumber huge(mpz_pow2(100) + 1);
  const QNumber huge_plus_period(mpz_pow2(100) + 1 + mpz_pow2(128));
  EXPECT_EQ(mgr.make_bv_number(huge, 128), mgr.make_bv_number(huge_plus_period, 128));
  // 2^63 .. 2^64 - 1 does not fit a signed word.
  const Term* top = mgr.make_bv_number(QNumber(mpz_pow2(64) - 1), 64);
  EXPECT_EQ(mgr.make_bv_number(-1, 64), top);
  EXPECT_EQ(mgr.make_bv_number(QNumber(-1L), 64), top);
}

TEST_F(TermManagerTest, TermIdentifiersAreDistinctAndAreTheHash) {
  std::vector<const Term*> all = {mgr.true_term(), mgr.false_term(), x, y, p, q};
  for (int i = 0; i < 50; ++i) all.push_back(mgr.make_bv_number(i, 8));
  all.push_back(mgr.make_term(mgr.make_bv_add_symbol(8), {x, y}));
  all.push_back(mgr.make_equal(x, y));
  all.push_back(mgr.make_iff(p, q));
  all.push_back(mgr.make_abstract_value(3, mgr.sort_type("U")));
  std::unordered_set<std::uint64_t> ids;
  std::unordered_set<const Term*> distinct(all.begin(), all.end());
  for (const Term* t : distinct) {
    EXPECT_TRUE(ids.insert(t->id()).second) << t->to_shallow_str();
    EXPECT_EQ(hsh::hash<const Term*>{}(t), t->id());
  }
  EXPECT_EQ(ids.size(), distinct.size());
  EXPECT_EQ(mgr.term_count(), distinct.size());
  // Rebuilding an existing term makes no new one.
  mgr.make_term(mgr.make_bv_add_symbol(8), {x, y});
  EXPECT_EQ(mgr.term_count(), distinct.size());
}

TEST_F(TermManagerTest, MakeTermIsTheVirtualBuilder) {
  struct CountingManager : TermManager {
    int calls = 0;
    const Term* make_term(const Symbol* s, const std::vector<const Term*>& args) override {
      ++calls;
      return TermManager::make_term(s, args);
    }
  };
  CountingManager counting;
  TermManager* base = &counting;
  const Term* a = counting.make_constant("a", counting.bv_type(8));
  const int before = counting.calls;
  const Term* t = base->make_term(counting.make_bv_neg_symbol(8), {a});
  EXPECT_EQ(counting.calls, before + 1);
  EXPECT_EQ(t->to_shallow_str(), "(bvneg a)");
}

// --- Queries fill out-parameters exactly when they answer true --------------------

TEST_F(TermManagerTest, IsBvType) {
  std::size_t w = kSentinel;
  EXPECT_FALSE(mgr.is_bv_type(mgr.bool_type(), &w));
  EXPECT_FALSE(mgr.is_bv_type(mgr.array_type(bv4, bv8), &w));
  EXPECT_FALSE(mgr.is_bv_type(mgr.sort_type("U"), &w));
  EXPECT_EQ(w, kSentinel);
  for (std::size_t width : {1u, 8u, 64u, 300u}) {
    w = kSentinel;
    EXPECT_TRUE(mgr.is_bv_type(mgr.bv_type(width), &w));
    EXPECT_EQ(w, width);
  }
  EXPECT_TRUE(mgr.is_bv_type(x->type(), &w));
  EXPECT_EQ(w, 8u);
}

TEST_F(TermManagerTest, IsArrayType) {
  const DataType* sentinel = mgr.sort_type("Sentinel");
  const DataType* index = sentinel;
  const DataType* element = sentinel;
  EXPECT_FALSE(mgr.is_array_type(bv8, &index, &element));
  EXPECT_FALSE(mgr.is_array_type(mgr.bool_type(), &index, &element));
  EXPECT_FALSE(mgr.is_array_type(mgr.sort_type("U"), &index, &element));
  EXPECT_EQ(index, sentinel);
  EXPECT_EQ(element, sentinel);
  const DataType* inner = mgr.array_type(bv4, mgr.bool_type());
  EXPECT_TRUE(mgr.is_array_type(mgr.array_type(bv8, inner), &index, &element));
  EXPECT_EQ(index, bv8);
  EXPECT_EQ(element, inner);
}

TEST_F(TermManagerTest, IsBvConcat) {
  std::size_t a = kSentinel, b = kSentinel;
  EXPECT_FALSE(mgr.is_bv_concat(mgr.make_bv_add_symbol(8), &a, &b));
  EXPECT_FALSE(mgr.is_bv_concat(mgr.make_bv_extract_symbol(3, 0, 8), &a, &b));
  EXPECT_FALSE(mgr.is_bv_concat(x->get_symbol(), &a, &b));
  EXPECT_EQ(a, kSentinel);
  EXPECT_EQ(b, kSentinel);
  const Symbol* s = mgr.make_bv_concat_symbol(3, 5);
  EXPECT_TRUE(mgr.is_bv_concat(s, &a, &b));
  EXPECT_EQ(a, 3u);
  EXPECT_EQ(b, 5u);
  EXPECT_EQ(s->get_output_type(), bv8);
}

TEST_F(TermManagerTest, IsBvExtract) {
  std::size_t msb = kSentinel, lsb = kSentinel, width = kSentinel;
  EXPECT_FALSE(mgr.is_bv_extract(mgr.make_bv_concat_symbol(3, 5), &msb, &lsb, &width));
  EXPECT_FALSE(mgr.is_bv_extract(mgr.make_bv_zero_extend_symbol(3, 5), &msb, &lsb, &width));
  EXPECT_FALSE(mgr.is_bv_extract(mgr.true_symbol(), &msb, &lsb, &width));
  EXPECT_EQ(msb, kSentinel);
  EXPECT_EQ(lsb, kSentinel);
  EXPECT_EQ(width, kSentinel);
  const Symbol* s = mgr.make_bv_extract_symbol(6, 2, 8);
  EXPECT_TRUE(mgr.is_bv_extract(s, &msb, &lsb, &width));
  EXPECT_EQ(msb, 6u);
  EXPECT_EQ(lsb, 2u);
  EXPECT_EQ(width, 8u);
  EXPECT_EQ(s->get_output_type(), mgr.bv_type(5));
  EXPECT_EQ(mgr.make_bv_extract_symbol(0, 0, 1)->get_output_type(), mgr.bv_type(1));
}

TEST_F(TermManagerTest, IsBvRotateReturnsConstructorParametersInOrder) {
  std::size_t first = kSentinel, second = kSentinel;
  const Symbol* rol = mgr.make_bv_rotate_left_symbol(3, 8);
  const Symbol* ror = mgr.make_bv_rotate_right_symbol(11, 8);
  EXPECT_FALSE(mgr.is_bv_rotate_left(ror, &first, &second));
  EXPECT_FALSE(mgr.is_bv_rotate_right(rol, &first, &second));
  EXPECT_FALSE(mgr.is_bv_rotate_left(mgr.make_bv_shl_symbol(8), &first, &second));
  EXPECT_FALSE(mgr.is_bv_rotate_right(x->get_symbol(), &first, &second));
  EXPECT_EQ(first, kSentinel);
  EXPECT_EQ(second, kSentinel);
  EXPECT_TRUE(mgr.is_bv_rotate_left(rol, &first, &second));
  EXPECT_EQ(first, 3u);
  EXPECT_EQ(second, 8u);
  // Rebuilding from the query's answer gives the same symbol back.
  EXPECT_EQ(mgr.make_bv_rotate_left_symbol(first, second), rol);
  EXPECT_TRUE(mgr.is_bv_rotate_right(ror, &first, &second));
  EXPECT_EQ(first, 11u);
  EXPECT_EQ(second, 8u);
  EXPECT_EQ(mgr.make_bv_rotate_right_symbol(first, second), ror);
  EXPECT_EQ(rol->get_output_type(), bv8);
  EXPECT_EQ(ror->get_output_type(), bv8);
}

TEST_F(TermManagerTest, ComparisonQueriesRecogniseOnlyTheirOwnSymbol) {
  using Query = bool (TermManager::*)(const Symbol*, std::size_t*) const;
  struct Row {
    const char* name;
    Query query;
    const Symbol* own;
  };
  const std::size_t w = 13;
  const Row rows[] = {
      {"bvult", &TermManager::is_bv_ult, mgr.make_bv_ult_symbol(w)},
      {"bvule", &TermManager::is_bv_ule, mgr.make_bv_ule_symbol(w)},
      {"bvslt", &TermManager::is_bv_slt, mgr.make_bv_slt_symbol(w)},
      {"bvsle", &TermManager::is_bv_sle, mgr.make_bv_sle_symbol(w)},
  };
  const Symbol* others[] = {mgr.make_bv_add_symbol(w), mgr.make_bv_comp_symbol(w),
                            mgr.make_iff_symbol(), mgr.true_symbol(),
                            mgr.make_bv_number(1, w)->get_symbol()};
  for (const Row& row : rows) {
    EXPECT_EQ(row.own->get_output_type(), mgr.bool_type()) << row.name;
    EXPECT_EQ(row.own->name(), row.name);
    for (const Row& other : rows) {
      std::size_t out = kSentinel;
      const bool answer = (mgr.*row.query)(other.own, &out);
      if (&row == &other) {
        EXPECT_TRUE(answer) << row.name;
        EXPECT_EQ(out, w) << row.name;
      } else {
        EXPECT_FALSE(answer) << row.name << " on " << other.name;
        EXPECT_EQ(out, kSentinel) << row.name << " on " << other.name;
      }
    }
    for (const Symbol* s : others) {
      std::size_t out = kSentinel;
      EXPECT_FALSE((mgr.*row.query)(s, &out)) << row.name << " on " << s->name();
      EXPECT_EQ(out, kSentinel);
    }
  }
}

TEST_F(TermManagerTest, OutputTypesOfBitVectorSymbols) {
  EXPECT_EQ(mgr.make_bv_add_symbol(8)->get_output_type(), bv8);
  EXPECT_EQ(mgr.make_bv_not_symbol(4)->get_output_type(), bv4);
  EXPECT_EQ(mgr.make_bv_comp_symbol(8)->get_output_type(), mgr.bv_type(1));
  EXPECT_EQ(mgr.make_bv_zero_extend_symbol(4, 8)->get_output_type(), mgr.bv_type(12));
  EXPECT_EQ(mgr.make_bv_sign_extend_symbol(0, 8)->get_output_type(), bv8);
  EXPECT_EQ(mgr.make_bv_concat_symbol(1, 299)->get_output_type(), mgr.bv_type(300));
  EXPECT_EQ(mgr.make_iff_symbol()->get_output_type(), mgr.bool_type());
  EXPECT_EQ(mgr.make_equal_symbol(bv8)->get_output_type(), mgr.bool_type());
  EXPECT_EQ(mgr.true_term()->type(), mgr.bool_type());
  EXPECT_EQ(mgr.false_term()->type(), mgr.bool_type());
  EXPECT_EQ(mgr.make_bv_number(3, 5)->type(), mgr.bv_type(5));
}

// --- make_bv_number reduces modulo 2^w -----------------------------------------------

TEST_F(TermManagerTest, MakeBvNumberReducesModuloTwoToTheWidth) {
  // -1 at width 1 is the single one bit.
  const Term* m1 = mgr.make_bv_number(QNumber(-1L), 1);
  EXPECT_EQ(m1->to_shallow_str(), "#b1");
  EXPECT_EQ(m1, mgr.make_bv_number(1, 1));
  EXPECT_EQ(numeral_value(mgr, m1), mpz_class(1));
  for (std::size_t w : {1u, 2u, 5u, 8u, 62u, 63u, 64u, 65u, 127u, 128u, 300u}) {
    // 2^w wraps to 0, 2^w + 1 to 1, -2^w to 0.
    EXPECT_EQ(mgr.make_bv_number(QNumber(mpz_pow2(w)), w), mgr.make_bv_number(0, w)) << w;
    EXPECT_EQ(mgr.make_bv_number(QNumber(mpz_pow2(w) + 1), w), mgr.make_bv_number(1, w)) << w;
    EXPECT_EQ(mgr.make_bv_number(QNumber(mpz_class(-mpz_pow2(w))), w), mgr.make_bv_number(0, w))
        << w;
    // Negative values give their two's complement pattern.
    EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(QNumber(-1L), w)), mpz_pow2(w) - 1) << w;
    EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(QNumber(-5L), w)), test::mpz_mod2w(-5, w)) << w;
    // Many periods away still lands in range.
    const mpz_class far = mpz_pow2(3 * w + 17) * 12345 + 77;
    EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(QNumber(far), w)), test::mpz_mod2w(77, w)) << w;
  }
  // Big values at width 300.
  const mpz_class big = mpz_pow2(299) + mpz_pow2(150) + 3;
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(QNumber(big), 300)), big);
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(QNumber(big + mpz_pow2(300)), 300)), big);
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(QNumber(mpz_class(-big)), 300)),
            mpz_pow2(300) - big);
  // Machine-sized values that do not fit the width.
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(QNumber(0x1ffL), 8)), mpz_class(0xff));
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(QNumber(LONG_MAX), 62)), mpz_pow2(62) - 1);
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(QNumber(LONG_MIN), 64)), mpz_pow2(63));
}

TEST_F(TermManagerTest, MakeBvNumberFromIntSignExtends) {
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(0, 8)), mpz_class(0));
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(1, 8)), mpz_class(1));
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(-1, 8)), mpz_class(255));
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(-1, 64)), mpz_pow2(64) - 1);
  // Sign extension to 64 bits, then reduction: at widths beyond 64 a
  // negative int still denotes 2^w - |v|.
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(-1, 100)), mpz_pow2(100) - 1);
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(-2, 70)), mpz_pow2(70) - 2);
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(INT_MIN, 40)), mpz_pow2(40) - mpz_pow2(31));
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(INT_MIN, 300)), mpz_pow2(300) - mpz_pow2(31));
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(INT_MAX, 32)), mpz_class(INT_MAX));
  EXPECT_EQ(numeral_value(mgr, mgr.make_bv_number(INT_MAX, 16)), mpz_class(0xffff));
  for (int v : {0, 1, -1, 7, -7, INT_MAX, INT_MIN}) {
    for (std::size_t w : {1u, 8u, 33u, 64u, 65u}) {
      EXPECT_EQ(mgr.make_bv_number(v, w), mgr.make_bv_number(QNumber(static_cast<long>(v)), w))
          << v << " at width " << w;
    }
  }
}

// --- Printing ------------------------------------------------------------------------

TEST_F(TermManagerTest, PrintsNumeralsInHexWhenTheWidthIsAMultipleOfFour) {
  EXPECT_EQ(mgr.make_bv_number(0, 4)->to_shallow_str(), "#x0");
  EXPECT_EQ(mgr.make_bv_number(10, 4)->to_shallow_str(), "#xa");
  EXPECT_EQ(mgr.make_bv_number(0x9c, 8)->to_shallow_str(), "#x9c");
  EXPECT_EQ(mgr.make_bv_number(10, 8)->to_shallow_str(), "#x0a");
  EXPECT_EQ(mgr.make_bv_number(0xabc, 12)->to_shallow_str(), "#xabc");
  EXPECT_EQ(mgr.make_bv_number(1, 16)->to_shallow_str(), "#x0001");
  EXPECT_EQ(mgr.make_bv_number(-1, 32)->to_shallow_str(), "#xffffffff");
  EXPECT_EQ(mgr.make_bv_number(-1, 64)->to_shallow_str(), "#xffffffffffffffff");
  const std::string wide = mgr.make_bv_number(QNumber(mpz_pow2(299)), 300)->to_shallow_str();
  EXPECT_EQ(wide, "#x8" + std::string(74, '0'));
  EXPECT_EQ(mgr.make_bv_number(0, 300)->to_shallow_str(), "#x" + std::string(75, '0'));
}

TEST_F(TermManagerTest, PrintsNumeralsInBinaryOtherwise) {
  EXPECT_EQ(mgr.make_bv_number(0, 1)->to_shallow_str(), "#b0");
  EXPECT_EQ(mgr.make_bv_number(1, 1)->to_shallow_str(), "#b1");
  EXPECT_EQ(mgr.make_bv_number(5, 5)->to_shallow_str(), "#b00101");
  EXPECT_EQ(mgr.make_bv_number(-1, 3)->to_shallow_str(), "#b111");
  EXPECT_EQ(mgr.make_bv_number(2, 6)->to_shallow_str(), "#b000010");
  EXPECT_EQ(mgr.make_bv_number(0, 65)->to_shallow_str(), "#b" + std::string(65, '0'));
  EXPECT_EQ(mgr.make_bv_number(QNumber(mpz_pow2(64)), 65)->to_shallow_str(),
            "#b1" + std::string(64, '0'));
}

TEST_F(TermManagerTest, PrintsTypes) {
  EXPECT_EQ(mgr.bool_type()->to_string(), "Bool");
  EXPECT_EQ(bv8->to_string(), "(_ BitVec 8)");
  EXPECT_EQ(mgr.array_type(bv4, mgr.bool_type())->to_string(), "(Array (_ BitVec 4) Bool)");
  EXPECT_EQ(mgr.sort_type("U")->to_string(), "U");
  EXPECT_EQ(mgr.sort_type("my sort")->to_string(), "|my sort|");
}

TEST_F(TermManagerTest, PrintsApplications) {
  EXPECT_EQ(x->to_shallow_str(), "x");
  EXPECT_EQ(mgr.true_term()->to_shallow_str(), "true");
  EXPECT_EQ(mgr.false_term()->to_shallow_str(), "false");
  EXPECT_EQ(mgr.make_iff(p, q)->to_shallow_str(), "(= p q)");
  EXPECT_EQ(mgr.make_equal(x, y)->to_shallow_str(), "(= x y)");
  EXPECT_EQ(mgr.make_not(p)->to_shallow_str(), "(not p)");
  EXPECT_EQ(mgr.make_and(p, mgr.make_or(q, p))->to_shallow_str(), "(and p (or q p))");
  EXPECT_EQ(mgr.make_ite(p, x, y)->to_shallow_str(), "(ite p x y)");
  const struct {
    const Symbol* s;
    const char* expected;
  } binary[] = {
      {mgr.make_bv_add_symbol(8), "(bvadd x y)"},
      {mgr.make_bv_sub_symbol(8), "(bvsub x y)"},
      {mgr.make_bv_mul_symbol(8), "(bvmul x y)"},
      {mgr.make_bv_shl_symbol(8), "(bvshl x y)"},
      {mgr.make_bv_lshr_symbol(8), "(bvlshr x y)"},
      {mgr.make_bv_ashr_symbol(8), "(bvashr x y)"},
      {mgr.make_bv_udiv_symbol(8), "(bvudiv x y)"},
      {mgr.make_bv_sdiv_symbol(8), "(bvsdiv x y)"},
      {mgr.make_bv_urem_symbol(8), "(bvurem x y)"},
      {mgr.make_bv_srem_symbol(8), "(bvsrem x y)"},
      {mgr.make_bv_and_symbol(8), "(bvand x y)"},
      {mgr.make_bv_or_symbol(8), "(bvor x y)"},
      {mgr.make_bv_xor_symbol(8), "(bvxor x y)"},
      {mgr.make_bv_ult_symbol(8), "(bvult x y)"},
      {mgr.make_bv_ule_symbol(8), "(bvule x y)"},
      {mgr.make_bv_slt_symbol(8), "(bvslt x y)"},
      {mgr.make_bv_sle_symbol(8), "(bvsle x y)"},
      {mgr.make_bv_comp_symbol(8), "(bvcomp x y)"},
      {mgr.make_bv_concat_symbol(8, 8), "(concat x y)"},
  };
  for (const auto& row : binary) {
    EXPECT_EQ(mgr.make_term(row.s, {x, y})->to_shallow_str(), row.expected);
  }
  EXPECT_EQ(mgr.make_term(mgr.make_bv_neg_symbol(8), {x})->to_shallow_str(), "(bvneg x)");
  EXPECT_EQ(mgr.make_term(mgr.make_bv_not_symbol(8), {x})->to_shallow_str(), "(bvnot x)");
  const Term* nine_c = mgr.make_bv_number(0x9c, 8);
  EXPECT_EQ(mgr.make_equal(x, nine_c)->to_shallow_str(), "(= x #x9c)");
  std::ostringstream os;
  os << *mgr.make_term(mgr.make_bv_add_symbol(8), {x, nine_c});
  EXPECT_EQ(os.str(), "(bvadd x #x9c)");
}

TEST_F(TermManagerTest, PrintsIndexedOperators) {
  EXPECT_EQ(mgr.make_term(mgr.make_bv_extract_symbol(3, 0, 8), {x})->to_shallow_str(),
            "((_ extract 3 0) x)");
  EXPECT_EQ(mgr.make_term(mgr.make_bv_zero_extend_symbol(4, 8), {x})->to_shallow_str(),
            "((_ zero_extend 4) x)");
  EXPECT_EQ(mgr.make_term(mgr.make_bv_sign_extend_symbol(0, 8), {x})->to_shallow_str(),
            "((_ sign_extend 0) x)");
  EXPECT_EQ(mgr.make_term(mgr.make_bv_rotate_left_symbol(3, 8), {x})->to_shallow_str(),
            "((_ rotate_left 3) x)");
  EXPECT_EQ(mgr.make_term(mgr.make_bv_rotate_right_symbol(10, 8), {x})->to_shallow_str(),
            "((_ rotate_right 10) x)");
}

TEST_F(TermManagerTest, PrintsConstantArraysAndAbstractValues) {
  const DataType* arr = mgr.array_type(bv4, mgr.bool_type());
  const Term* a = mgr.make_const_array(arr, mgr.false_term());
  EXPECT_EQ(a->to_shallow_str(), "((as const (Array (_ BitVec 4) Bool)) false)");
  EXPECT_EQ(a->type(), arr);
  EXPECT_EQ(mgr.make_const_array(arr, mgr.false_term()), a);
  EXPECT_NE(mgr.make_const_array(arr, mgr.true_term()), a);
  const DataType* nested = mgr.array_type(bv8, arr);
  EXPECT_EQ(mgr.make_const_array(nested, a)->to_shallow_str(),
            "((as const (Array (_ BitVec 8) (Array (_ BitVec 4) Bool))) ((as const (Array (_ "
            "BitVec 4) Bool)) false))");
  const DataType* u = mgr.sort_type("U");
  EXPECT_EQ(mgr.make_abstract_value(0, u)->to_shallow_str(), "(as @0 U)");
  EXPECT_EQ(mgr.make_abstract_value(12, u)->to_shallow_str(), "(as @12 U)");
}

TEST_F(TermManagerTest, QuotesSymbolsThatAreNotSimple) {
  EXPECT_EQ(mgr.make_constant("a b", bv8)->to_shallow_str(), "|a b|");
  EXPECT_EQ(mgr.make_constant("1x", bv8)->to_shallow_str(), "|1x|");
  EXPECT_EQ(mgr.make_constant("", bv8)->to_shallow_str(), "||");
  EXPECT_EQ(mgr.make_constant("x(y)", bv8)->to_shallow_str(), "|x(y)|");
  EXPECT_EQ(mgr.make_constant(std::string("a\0b", 3), bv8)->to_shallow_str(), "|a\\x00b|");
  // Simple symbols may use these punctuation characters unquoted.
  EXPECT_EQ(mgr.make_constant("a.b!1_c-d+e=<>?/~@$%^&*", bv8)->to_shallow_str(),
            "a.b!1_c-d+e=<>?/~@$%^&*");
  EXPECT_EQ(mgr.make_constant("x1", bv8)->to_shallow_str(), "x1");
  // The quoted constant is still found again by its plain name.
  EXPECT_EQ(mgr.make_constant("a b", bv8), mgr.make_constant("a b", bv8));
  const Term* ab = mgr.make_constant("a b", bv8);
  EXPECT_EQ(mgr.make_equal(ab, x)->to_shallow_str(), "(= |a b| x)");
  const DataType* odd = mgr.sort_type("odd sort");
  EXPECT_EQ(mgr.make_abstract_value(0, odd)->to_shallow_str(), "(as @0 |odd sort|)");
}

TEST_F(TermManagerTest, PrintsDeepTermsWithoutExhaustingTheStack) {
  constexpr int kDepth = 100000;
  const Symbol* bvnot = mgr.make_bv_not_symbol(8);
  const Term* t = x;
  for (int i = 0; i < kDepth; ++i) t = mgr.make_term(bvnot, {t});
  const std::string printed = t->to_shallow_str();
  const std::string expected = [&] {
    std::string s;
    s.reserve(kDepth * 8 + 1);
    for (int i = 0; i < kDepth; ++i) s += "(bvnot ";
    s += "x";
    s.append(kDepth, ')');
    return s;
  }();
  EXPECT_EQ(printed.size(), expected.size());
  EXPECT_TRUE(printed == expected);
  // A deep right spine through a binary operator too.
  const Symbol* add = mgr.make_bv_add_symbol(8);
  const Term* chain = y;
  for (int i = 0; i < kDepth; ++i) chain = mgr.make_term(add, {x, chain});
  const std::string chain_text = chain->to_shallow_str();
  EXPECT_EQ(chain_text.size(), static_cast<std::size_t>(kDepth) * 10 + 1);
  EXPECT_EQ(chain_text.substr(0, 22), "(bvadd x (bvadd x (bva");
}

// --- Declared sorts and abstract values ---------------------------------------------

TEST_F(TermManagerTest, DeclaredSortsAndAbstractValues) {
  const DataType* u = mgr.sort_type("U");
  const DataType* v = mgr.sort_type("V");
  const Term* u0 = mgr.make_abstract_value(0, u);
  EXPECT_EQ(mgr.make_abstract_value(0, u), u0);
  EXPECT_NE(mgr.make_abstract_value(1, u), u0);
  EXPECT_NE(mgr.make_abstract_value(0, v), u0);
  EXPECT_EQ(u0->type(), u);
  EXPECT_EQ(u0->arity(), 0u);
  EXPECT_EQ(u0->get_symbol()->op(), Op::AbstractValue);
  EXPECT_EQ(u0->get_symbol()->param(0), 0u);
  EXPECT_EQ(mgr.make_abstract_value(7, u)->get_symbol()->param(0), 7u);
  std::size_t w = kSentinel;
  EXPECT_FALSE(mgr.is_bv_type(u, &w));
  EXPECT_EQ(w, kSentinel);
  QNumber out(9L);
  EXPECT_FALSE(mgr.number_value(u0->get_symbol(), &out));
  EXPECT_EQ(out, QNumber(9L));
  // Constants of a declared sort.
  const Term* c = mgr.make_constant("c", u);
  EXPECT_EQ(c->type(), u);
  EXPECT_NE(c, u0);
  EXPECT_EQ(mgr.make_equal(c, u0)->to_shallow_str(), "(= c (as @0 U))");
}

// --- make_equal and make_iff build exactly what they are given ----------------------

TEST_F(TermManagerTest, MakeEqualAndMakeIffKeepTheirArgumentsAsGiven) {
  const Term* xy = mgr.make_equal(x, y);
  const Term* yx = mgr.make_equal(y, x);
  EXPECT_NE(xy, yx);
  EXPECT_EQ(xy->arg(0), x);
  EXPECT_EQ(xy->arg(1), y);
  EXPECT_EQ(yx->arg(0), y);
  EXPECT_EQ(yx->arg(1), x);
  EXPECT_EQ(yx->to_shallow_str(), "(= y x)");
  EXPECT_EQ(xy->type(), mgr.bool_type());

  // No simplification: trivially true or false atoms stay atoms.
  const Term* xx = mgr.make_equal(x, x);
  EXPECT_EQ(xx->arity(), 2u);
  EXPECT_NE(xx, mgr.true_term());
  const Term* five = mgr.make_bv_number(5, 8);
  const Term* six = mgr.make_bv_number(6, 8);
  EXPECT_EQ(mgr.make_equal(five, six)->to_shallow_str(), "(= #x05 #x06)");
  EXPECT_EQ(mgr.make_equal(six, x)->to_shallow_str(), "(= #x06 x)");

  const Term* tf = mgr.make_iff(mgr.true_term(), mgr.false_term());
  EXPECT_EQ(tf->to_shallow_str(), "(= true false)");
  EXPECT_NE(tf, mgr.false_term());
  EXPECT_EQ(tf->arg(0), mgr.true_term());
  EXPECT_EQ(tf->arg(1), mgr.false_term());
  EXPECT_EQ(tf->type(), mgr.bool_type());
  const Term* ft = mgr.make_iff(mgr.false_term(), mgr.true_term());
  EXPECT_NE(ft, tf);
  EXPECT_EQ(ft->to_shallow_str(), "(= false true)");
  EXPECT_NE(mgr.make_iff(p, q), mgr.make_iff(q, p));
  EXPECT_EQ(mgr.make_iff(q, p)->to_shallow_str(), "(= q p)");
  EXPECT_EQ(mgr.make_iff(p, p)->arity(), 2u);
  EXPECT_EQ(mgr.make_iff(p, mgr.true_term())->to_shallow_str(), "(= p true)");
}

TEST(IsTerminalTest, StringStreamsAreNotTerminals) {
  std::ostringstream os;
  EXPECT_FALSE(is_terminal(os));
  std::stringstream ss;
  EXPECT_FALSE(is_terminal(ss));
}

}  // namespace
}  // namespace kora
