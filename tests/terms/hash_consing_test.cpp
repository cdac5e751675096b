// Hash-consing across the places a term can be kept: on its symbol (no
// arguments), in the use list of its youngest argument, or in the term index
// once that list has grown long. Whatever the order of construction, the
// same symbol over the same arguments must give the same pointer; an
// independent map of every term made so far is the reference.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "kora/numbers/qnumber.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"

namespace kora {
namespace {

using Key = std::pair<const Symbol*, std::vector<const Term*>>;

// The manager under test beside a map from (symbol, arguments) to the term
// it gave the first time.
class Reference {
 public:
  explicit Reference(TermManager& mgr) : mgr_(mgr) {}

  // Asks the manager and checks its answer against the map: a known key must
  // give the known term without making one, a new key a term made just now.
  const Term* make(const Symbol* s, const std::vector<const Term*>& args) {
    const std::size_t before = mgr_.term_count();
    const Term* t = mgr_.make_term(s, args);
    auto [it, inserted] = known_.emplace(Key{s, args}, t);
    if (inserted) {
      EXPECT_EQ(mgr_.term_count(), before + 1);
      EXPECT_TRUE(made_.insert(t).second) << "one term for two keys";
      EXPECT_EQ(t->get_symbol(), s);
      EXPECT_EQ(t->args(), args);
    } else {
      EXPECT_EQ(t, it->second);
      EXPECT_EQ(mgr_.term_count(), before);
    }
    return t;
  }
  std::vector<Key> keys() const {
    std::vector<Key> out;
    for (const auto& [key, term] : known_) out.push_back(key);
    return out;
  }
  std::size_t size() const { return known_.size(); }

 private:
  TermManager& mgr_;
  std::map<Key, const Term*> known_;
  std::set<const Term*> made_;
};

class HashConsingTest : public ::testing::Test {
 protected:
  TermManager mgr;
  Reference ref{mgr};
  const DataType* bv8 = mgr.bv_type(8);
  const Symbol* add = mgr.make_bv_add_symbol(8);
  const Symbol* mul = mgr.make_bv_mul_symbol(8);
  const Symbol* neg = mgr.make_bv_neg_symbol(8);
  const Symbol* ite = mgr.make_ite_symbol(bv8);
  const Symbol* eq = mgr.make_equal_symbol(bv8);

  // Asks for every key again in a shuffled order: nothing new is made.
  void ask_again_shuffled(std::mt19937& rng) {
    std::vector<Key> keys = ref.keys();
    std::shuffle(keys.begin(), keys.end(), rng);
    const std::size_t count = mgr.term_count();
    for (const auto& [s, args] : keys) ref.make(s, args);
    EXPECT_EQ(mgr.term_count(), count);
  }
};

TEST_F(HashConsingTest, RandomDagsInAnyOrderGiveOneTermPerKey) {
  std::mt19937 rng(16);
  std::vector<const Term*> pool{mgr.make_constant("a", bv8), mgr.make_bv_number(1, bv8->width())};
  auto pick = [&] {
    // Mostly recent terms, so that use lists fill and overflow, sometimes
    // any term at all.
    const std::size_t n = pool.size();
    const std::size_t back =
        std::uniform_int_distribution<std::size_t>(0, 3)(rng) == 0
            ? std::uniform_int_distribution<std::size_t>(0, n - 1)(rng)
            : std::uniform_int_distribution<std::size_t>(0, std::min<std::size_t>(n - 1, 5))(rng);
    return pool[n - 1 - back];
  };
  for (int i = 0; i < 20000; ++i) {
    switch (std::uniform_int_distribution<int>(0, 5)(rng)) {
      case 0:
        pool.push_back(mgr.make_fresh_constant(bv8));
        break;
      case 1:
        pool.push_back(ref.make(neg, {pick()}));
        break;
      case 2:
        pool.push_back(ref.make(add, {pick(), pick()}));
        break;
      case 3:
        pool.push_back(ref.make(mul, {pick(), pick()}));
        break;
      case 4:
        pool.push_back(ref.make(ite, {ref.make(eq, {pick(), pick()}), pick(), pick()}));
        break;
      default:
        pool.push_back(mgr.make_bv_word(std::uniform_int_distribution<int>(0, 255)(rng), 8));
        break;
    }
  }
  ASSERT_GT(ref.size(), 10000U);
  ask_again_shuffled(rng);
}

TEST_F(HashConsingTest, LargeFanOutOfOneYoungTermStaysCanonical) {
  // Far more parents than a use list holds: the list moves to the index and
  // every parent is still found, whether asked in order or not.
  const Term* young = mgr.make_fresh_constant(bv8);
  std::vector<const Term*> older;
  for (int i = 0; i < 200; ++i) older.push_back(mgr.make_bv_word(static_cast<std::uint64_t>(i), 8));
  std::vector<const Term*> parents;
  for (const Term* o : older) {
    parents.push_back(ref.make(add, {o, young}));
    parents.push_back(ref.make(add, {young, o}));
    parents.push_back(ref.make(mul, {young, o}));
  }
  EXPECT_EQ(std::set<const Term*>(parents.begin(), parents.end()).size(), parents.size());
  std::mt19937 rng(7);
  ask_again_shuffled(rng);
  // A parent over two arguments of which neither is the young one is not
  // confused with those over it.
  EXPECT_NE(ref.make(add, {older[0], older[1]}), ref.make(add, {older[0], young}));
}

TEST_F(HashConsingTest, RepeatedAndSwappedArgumentsAreDifferentKeys) {
  const Term* u = mgr.make_fresh_constant(bv8);
  const Term* v = mgr.make_fresh_constant(bv8);
  const Term* uu = ref.make(add, {u, u});
  const Term* uv = ref.make(add, {u, v});
  const Term* vu = ref.make(add, {v, u});
  const Term* vv = ref.make(add, {v, v});
  EXPECT_EQ(std::set<const Term*>({uu, uv, vu, vv}).size(), 4U);
  EXPECT_NE(ref.make(mul, {u, v}), uv);
  EXPECT_EQ(ref.make(add, {v, u}), vu);
  // The same term through the named builders.
  EXPECT_EQ(mgr.make_equal(u, v), ref.make(eq, {u, v}));
}

TEST_F(HashConsingTest, ConstantsAreFoundThroughTheirSymbols) {
  const Term* x = mgr.make_constant("x", bv8);
  EXPECT_EQ(mgr.make_constant("x", bv8), x);
  EXPECT_NE(mgr.make_constant("x", mgr.bv_type(4)), x);
  EXPECT_EQ(mgr.make_term(x->get_symbol(), {}), x);
  const Term* fresh = mgr.make_fresh_constant(bv8);
  EXPECT_EQ(mgr.make_term(fresh->get_symbol(), {}), fresh);
  EXPECT_NE(mgr.make_fresh_constant(bv8), fresh);
  // Declaring the fresh constant's name gives the fresh constant.
  EXPECT_EQ(mgr.make_constant(fresh->get_symbol()->name(), bv8), fresh);
  EXPECT_EQ(mgr.make_term(mgr.true_symbol(), {}), mgr.true_term());
}

TEST_F(HashConsingTest, WordNumeralsAreOnePerWidthAndValueAcrossGrowth) {
  // Enough values to grow each width's table several times; widths beyond
  // the directly indexed ones too.
  const std::size_t widths[] = {1, 8, 64, 65, 2000};
  std::map<std::pair<std::size_t, std::uint64_t>, const Term*> seen;
  std::mt19937_64 rng(3);
  for (int i = 0; i < 3000; ++i) {
    for (const std::size_t w : widths) {
      // Reduced to the width, so that the map's key is the numeral's value.
      std::uint64_t value = rng() % 5000;
      if (w < 64) value &= (std::uint64_t{1} << w) - 1;
      const Term* t = mgr.make_bv_word(value, w);
      auto [it, inserted] = seen.emplace(std::make_pair(w, value), t);
      EXPECT_EQ(t, it->second);
      EXPECT_EQ(t->type(), mgr.bv_type(w));
      if (inserted) {
        const QNumber* q = mgr.find_number(t->get_symbol());
        ASSERT_NE(q, nullptr);
        EXPECT_EQ(*q, QNumber(static_cast<long>(value)));
      }
    }
  }
  std::set<const Term*> distinct;
  for (const auto& [key, t] : seen) distinct.insert(t);
  EXPECT_EQ(distinct.size(), seen.size());
  // The other ways to ask for a numeral reach the same terms.
  EXPECT_EQ(mgr.make_bv_number(QNumber(-1L), 8), mgr.make_bv_word(255, 8));
  EXPECT_EQ(mgr.make_bv_number(3, 64), mgr.make_bv_word(3, 64));
  EXPECT_EQ(mgr.find_number(mgr.make_constant("n", bv8)->get_symbol()), nullptr);
  EXPECT_EQ(mgr.find_number(add), nullptr);
}

}  // namespace
}  // namespace kora
