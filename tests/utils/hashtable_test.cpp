#include "kora/utils/hashtable.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

// Stands in for a term: hash-consed, compared by pointer, hashed by the
// identifier that it stores as its first field.
struct FakeTerm {
  std::uint64_t id;
};

// Stands in for a symbol: hashed by its address.
struct FakeSymbol {
  int unused = 0;
};

}  // namespace

// Declared after the generic pointer hash, as the term layer does.
template <>
struct kora::hsh::hash<const FakeTerm*> {
  std::uint64_t operator()(const FakeTerm* t) const noexcept { return t->id; }
};

namespace {

using kora::MemoryPool;
using kora::hsh::GetKey_pair;
using kora::hsh::Hashtable;

using TermPair = std::pair<const FakeTerm*, const FakeTerm*>;
using TermTable =
    Hashtable<TermPair, GetKey_pair<const FakeTerm*, const FakeTerm*>, const FakeTerm*,
              kora::hsh::hash<const FakeTerm*>, std::equal_to<const FakeTerm*>>;

static_assert(std::is_same_v<TermTable::pool_type, MemoryPool<24, false>>);
static_assert(sizeof(TermTable::Bucket) == 24);
static_assert(std::forward_iterator<TermTable::iterator>);
static_assert(std::forward_iterator<TermTable::const_iterator>);
static_assert(std::is_convertible_v<TermTable::iterator, TermTable::const_iterator>);
static_assert(!std::is_convertible_v<TermTable::const_iterator, TermTable::iterator>);
static_assert(!std::is_copy_constructible_v<TermTable>);
static_assert(!std::is_copy_constructible_v<MemoryPool<24, false>>);

// Terms with identifiers chosen by the test. The storage is stable, so
// pointers into it serve as keys.
class Terms {
 public:
  const FakeTerm* make(std::uint64_t id) {
    store_.push_back(std::make_unique<FakeTerm>(FakeTerm{id}));
    return store_.back().get();
  }

 private:
  std::vector<std::unique_ptr<FakeTerm>> store_;
};

// Number of blocks in a list returned by grow_pool.
std::size_t list_length(void* block) {
  std::size_t n = 0;
  for (; block != nullptr; block = *static_cast<void**>(block)) ++n;
  return n;
}

// Sizes of the chunks that successive grow_pool calls produce.
template <class Pool>
std::vector<std::size_t> chunk_sizes(Pool& pool, int chunks) {
  std::vector<std::size_t> sizes;
  for (int i = 0; i < chunks; ++i) sizes.push_back(list_length(pool.grow_pool()));
  return sizes;
}

// ---------------------------------------------------------------------------
// MemoryPool

TEST(MemoryPoolTest, KeepsItsParameters) {
  MemoryPool<24, false> pool(10, 1.5f, 100);
  EXPECT_EQ(pool.next_chunk_blocks(), 10u);
  EXPECT_EQ(pool.growth(), 1.5f);
  EXPECT_EQ(pool.max_chunk_blocks(), 100u);
  EXPECT_EQ(pool.chunk_count(), 0u);
}

TEST(MemoryPoolTest, ChunkSizesDoubleWithGrowthTwo) {
  MemoryPool<24, false> pool(1, 2.0f, 0);
  EXPECT_EQ(chunk_sizes(pool, 4), (std::vector<std::size_t>{1, 2, 4, 8}));
  EXPECT_EQ(pool.next_chunk_blocks(), 16u);
  EXPECT_EQ(pool.chunk_count(), 4u);
}

TEST(MemoryPoolTest, ChunkSizesAreClampedToMaxChunkBlocks) {
  MemoryPool<24, false> pool(3, 2.0f, 10);
  EXPECT_EQ(chunk_sizes(pool, 4), (std::vector<std::size_t>{3, 6, 10, 10}));
  EXPECT_EQ(pool.next_chunk_blocks(), 10u);
}

TEST(MemoryPoolTest, MaxChunkBlocksZeroMeansUnbounded) {
  MemoryPool<24, false> pool(40000, 2.0f, 0);
  EXPECT_EQ(list_length(pool.grow_pool()), 40000u);
  EXPECT_EQ(pool.next_chunk_blocks(), 80000u);
}

TEST(MemoryPoolTest, GrowthOneKeepsEveryChunkTheSameSize) {
  MemoryPool<24, false> pool(5, 1.0f, 0);
  EXPECT_EQ(chunk_sizes(pool, 4), (std::vector<std::size_t>{5, 5, 5, 5}));
}

TEST(MemoryPoolTest, NextChunkBlocksOneGivesChunksOfOneBlock) {
  MemoryPool<24, false> pool(1, 1.0f, 0);
  EXPECT_EQ(chunk_sizes(pool, 3), (std::vector<std::size_t>{1, 1, 1}));
  EXPECT_EQ(pool.chunk_count(), 3u);
}

TEST(MemoryPoolTest, GrowthIsAppliedInSinglePrecisionAndTruncated) {
  // 3, 4.5 -> 4, 6, 9, 13.5 -> 13.
  MemoryPool<24, false> halves(3, 1.5f, 0);
  EXPECT_EQ(chunk_sizes(halves, 5), (std::vector<std::size_t>{3, 4, 6, 9, 13}));

  // 5 * 1.4f is 6.99999988 exactly but rounds to 7 in single precision.
  MemoryPool<24, false> rounded(5, 1.4f, 0);
  rounded.grow_pool();
  EXPECT_EQ(rounded.next_chunk_blocks(), 7u);
}

TEST(MemoryPoolTest, GrowPoolLinksBlocksInAddressOrder) {
  MemoryPool<24, false> pool(6, 2.0f, 0);
  auto* block = static_cast<unsigned char*>(pool.grow_pool());
  for (int i = 0; i < 5; ++i) {
    auto* next = static_cast<unsigned char*>(*reinterpret_cast<void**>(block));
    EXPECT_EQ(next, block + 24);
    block = next;
  }
  EXPECT_EQ(*reinterpret_cast<void**>(block), nullptr);
}

TEST(MemoryPoolTest, GrowPoolDoesNotFeedTheFreeList) {
  MemoryPool<24, false> pool(2, 1.0f, 0);
  pool.grow_pool();
  pool.allocate();
  EXPECT_EQ(pool.chunk_count(), 2u);
}

TEST(MemoryPoolTest, AllocateHandsOutBlocksInAddressOrderAndGrowsWhenEmpty) {
  MemoryPool<24, false> pool(3, 2.0f, 0);
  auto* a = static_cast<unsigned char*>(pool.allocate());
  auto* b = static_cast<unsigned char*>(pool.allocate());
  auto* c = static_cast<unsigned char*>(pool.allocate());
  EXPECT_EQ(b, a + 24);
  EXPECT_EQ(c, b + 24);
  EXPECT_EQ(pool.chunk_count(), 1u);
  pool.allocate();
  EXPECT_EQ(pool.chunk_count(), 2u);
  EXPECT_EQ(pool.next_chunk_blocks(), 12u);
}

TEST(MemoryPoolTest, DeallocatedBlockIsReusedFirst) {
  MemoryPool<24, false> pool(4, 2.0f, 0);
  void* a = pool.allocate();
  void* b = pool.allocate();
  pool.deallocate(a);
  EXPECT_EQ(pool.allocate(), a);
  pool.deallocate(b);
  pool.deallocate(a);
  EXPECT_EQ(pool.allocate(), a);
  EXPECT_EQ(pool.allocate(), b);
  EXPECT_EQ(pool.chunk_count(), 1u);
}

TEST(MemoryPoolTest, BlocksAreWritableOverTheirWholeSize) {
  MemoryPool<40, true> pool(2, 2.0f, 0);
  std::vector<void*> blocks;
  for (int i = 0; i < 50; ++i) {
    void* p = pool.allocate();
    std::memset(p, 0xab, 40);
    blocks.push_back(p);
  }
  std::set<void*> distinct(blocks.begin(), blocks.end());
  EXPECT_EQ(distinct.size(), blocks.size());
}

TEST(MemoryPoolTest, ZeroBlockChunksReportExhaustion) {
  MemoryPool<24, false> pool(0, 2.0f, 0);
  EXPECT_EQ(pool.grow_pool(), nullptr);
  EXPECT_THROW(pool.allocate(), std::bad_alloc);
}

// ---------------------------------------------------------------------------
// Hash functors and key extraction

TEST(HashFunctorTest, PointerHashIsTheAddress) {
  FakeSymbol s;
  const FakeSymbol* p = &s;
  EXPECT_EQ(kora::hsh::hash<const FakeSymbol*>{}(p),
            static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(p)));
}

TEST(HashFunctorTest, LaterFullSpecialisationReplacesTheAddressHash) {
  FakeTerm t{12345};
  EXPECT_EQ(kora::hsh::hash<const FakeTerm*>{}(&t), 12345u);
}

TEST(HashFunctorTest, GetKeyPairReturnsTheFirstMember) {
  FakeTerm a{1}, b{2};
  TermPair p{&a, &b};
  EXPECT_EQ(&(GetKey_pair<const FakeTerm*, const FakeTerm*>{}(p)), &p.first);
}

// ---------------------------------------------------------------------------
// Bucket counts and load

TEST(PrimeTableTest, HoldsTheTwentyEightBucketCounts) {
  const std::vector<std::uint64_t> expected = {
      31,       73,        151,       313,       643,        1291,       2593,
      5233,     10501,     21013,     42073,     84181,      168451,     337219,
      674701,   1349473,   2699299,   5398891,   10798093,   21596719,   43193641,
      86387383, 172775299, 345550609, 691101253, 1382202559, 2764405229, 4294867387};
  EXPECT_EQ(std::vector<std::uint64_t>(kora::hsh::primes.begin(), kora::hsh::primes.end()),
            expected);
}

TEST(PrimeTableTest, SelectsTheFirstPrimeNotBelowTheRequest) {
  using kora::hsh::prime_bucket_count;
  EXPECT_EQ(prime_bucket_count(0), 31u);
  EXPECT_EQ(prime_bucket_count(1), 31u);
  EXPECT_EQ(prime_bucket_count(31), 31u);
  EXPECT_EQ(prime_bucket_count(32), 73u);
  EXPECT_EQ(prime_bucket_count(73), 73u);
  EXPECT_EQ(prime_bucket_count(74), 151u);
  EXPECT_EQ(prime_bucket_count(100000), 168451u);
  EXPECT_EQ(prime_bucket_count(2764405230u), 4294867387u);
}

// A full table at 4294867387 buckets asks rehash for 4294867388; no larger
// entry exists, so the selection returns the same count and the table
// rebuilds its chains at that size on every such insertion. The selection is
// checked here without allocating billions of buckets.
TEST(PrimeTableTest, RequestBeyondLargestPrimeKeepsLargestSoTopTableRebuildsAtSameSize) {
  using kora::hsh::prime_bucket_count;
  EXPECT_EQ(prime_bucket_count(4294867387u), 4294867387u);
  EXPECT_EQ(prime_bucket_count(4294867388u), 4294867387u);
  EXPECT_EQ(prime_bucket_count(std::size_t{1} << 40), 4294867387u);
  EXPECT_EQ(prime_bucket_count(~std::size_t{0}), 4294867387u);
}

TEST(LoadFactorTest, ThresholdIsAboveSevenTenths) {
  using kora::hsh::exceeds_max_load;
  EXPECT_FALSE(exceeds_max_load(21, 31));
  EXPECT_TRUE(exceeds_max_load(22, 31));
  EXPECT_FALSE(exceeds_max_load(51, 73));
  EXPECT_TRUE(exceeds_max_load(52, 73));
  EXPECT_FALSE(exceeds_max_load(7, 10));  // 0.7f widened is below 0.7
  EXPECT_FALSE(exceeds_max_load(0, 1));
  EXPECT_TRUE(exceeds_max_load(1, 1));
}

TEST(LoadFactorTest, QuotientIsTakenInSinglePrecision) {
  // Exactly 0.70000001, but 70000001 has no float of its own and the float
  // quotient lands below 0.7.
  EXPECT_FALSE(kora::hsh::exceeds_max_load(70000001, 100000000));
}

// ---------------------------------------------------------------------------
// Hashtable

TEST(HashtableTest, DefaultTableHasThirtyOneBucketsAndNoEntries) {
  TermTable table;
  EXPECT_EQ(table.bucket_count(), 31u);
  EXPECT_EQ(table.size(), 0u);
  EXPECT_TRUE(table.empty());
  EXPECT_EQ(table.pool().next_chunk_blocks(), 64u);
  EXPECT_EQ(table.pool().chunk_count(), 0u);
}

TEST(HashtableTest, ConstructorPassesPoolParameters) {
  TermTable table(101, 7, 3.0f, 500);
  EXPECT_EQ(table.bucket_count(), 101u);
  EXPECT_EQ(table.pool().next_chunk_blocks(), 7u);
  EXPECT_EQ(table.pool().growth(), 3.0f);
  EXPECT_EQ(table.pool().max_chunk_blocks(), 500u);
}

TEST(HashtableTest, ZeroInitialBucketsBecomesOne) {
  Terms terms;
  TermTable table(0);
  EXPECT_EQ(table.bucket_count(), 1u);
  EXPECT_TRUE(table.insert({terms.make(5), nullptr}).second);
  EXPECT_TRUE(table.insert({terms.make(6), nullptr}).second);
  EXPECT_EQ(table.bucket_count(), 31u);
}

TEST(HashtableTest, TableAndPoolShareAnAddress) {
  TermTable table;
  EXPECT_EQ(static_cast<const void*>(&table), static_cast<const void*>(&table.pool()));
}

TEST(HashtableTest, InsertReportsBucketAndNewNode) {
  Terms terms;
  TermTable table;
  const FakeTerm* k = terms.make(100);
  const FakeTerm* v = terms.make(1);
  std::size_t bucket = 999;
  TermTable::Bucket* node = nullptr;
  EXPECT_TRUE(table.do_insert({k, v}, &bucket, &node));
  EXPECT_EQ(bucket, 100u % 31u);
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->value.first, k);
  EXPECT_EQ(node->value.second, v);
  EXPECT_EQ(node->next, nullptr);
  EXPECT_EQ(table.size(), 1u);
}

TEST(HashtableTest, PresentKeyReturnsFalseAndExistingNodeAndKeepsValueAndSize) {
  Terms terms;
  TermTable table;
  const FakeTerm* k = terms.make(42);
  const FakeTerm* first = terms.make(1);
  const FakeTerm* second = terms.make(2);
  std::size_t b1 = 0, b2 = 0;
  TermTable::Bucket* n1 = nullptr;
  TermTable::Bucket* n2 = nullptr;
  ASSERT_TRUE(table.do_insert({k, first}, &b1, &n1));
  EXPECT_FALSE(table.do_insert({k, second}, &b2, &n2));
  EXPECT_EQ(n2, n1);
  EXPECT_EQ(b2, b1);
  EXPECT_EQ(n1->value.second, first);
  EXPECT_EQ(table.size(), 1u);
}

TEST(HashtableTest, MappedValueCanBeOverwrittenThroughTheNode) {
  Terms terms;
  TermTable table;
  const FakeTerm* k = terms.make(9);
  const FakeTerm* v = terms.make(10);
  for (int round = 0; round < 2; ++round) {
    std::size_t b;
    TermTable::Bucket* n;
    table.do_insert({k, nullptr}, &b, &n);
    n->value.second = v;
  }
  ASSERT_NE(table.find(k), table.end());
  EXPECT_EQ(table.find(k)->second, v);
  EXPECT_EQ(table.size(), 1u);
}

TEST(HashtableTest, EqualHashesDifferentPointersAreDifferentKeys) {
  Terms terms;
  TermTable table;
  const FakeTerm* a = terms.make(7);
  const FakeTerm* b = terms.make(7);
  EXPECT_TRUE(table.insert({a, nullptr}).second);
  EXPECT_TRUE(table.insert({b, nullptr}).second);
  EXPECT_EQ(table.size(), 2u);
  EXPECT_EQ(table.find(a)->first, a);
  EXPECT_EQ(table.find(b)->first, b);
}

TEST(HashtableTest, NewNodeIsLinkedAtTheHeadOfItsChain) {
  Terms terms;
  TermTable table;
  const FakeTerm* a = terms.make(3);
  const FakeTerm* b = terms.make(3 + 31);
  std::size_t bucket;
  TermTable::Bucket* na;
  TermTable::Bucket* nb;
  table.do_insert({a, nullptr}, &bucket, &na);
  table.do_insert({b, nullptr}, &bucket, &nb);
  EXPECT_EQ(nb->next, na);
  auto it = table.begin();
  EXPECT_EQ(it->first, b);
  EXPECT_EQ(it.bucket(), 3u);
  ++it;
  EXPECT_EQ(it->first, a);
}

TEST(HashtableTest, GrowsFromThirtyOneToSeventyThreeAtInsertionThatFindsTwentyTwoEntries) {
  Terms terms;
  TermTable table;
  for (std::uint64_t i = 0; i < 22; ++i) {
    table.insert({terms.make(i), nullptr});
    EXPECT_EQ(table.bucket_count(), 31u) << "after " << i + 1 << " entries";
  }
  std::size_t bucket;
  TermTable::Bucket* node;
  EXPECT_TRUE(table.do_insert({terms.make(1000), nullptr}, &bucket, &node));
  EXPECT_EQ(table.bucket_count(), 73u);
  EXPECT_EQ(bucket, 1000u % 73u);  // index after the growth
  EXPECT_EQ(table.size(), 23u);
}

TEST(HashtableTest, GrowsToTheNextPrimeAtEachThreshold) {
  Terms terms;
  TermTable table;
  std::vector<std::size_t> counts;
  for (std::uint64_t i = 0; i < 500; ++i) {
    table.insert({terms.make(i), nullptr});
    if (counts.empty() || counts.back() != table.bucket_count()) {
      counts.push_back(table.bucket_count());
    }
  }
  EXPECT_EQ(counts, (std::vector<std::size_t>{31, 73, 151, 313, 643, 1291}));
}

TEST(HashtableTest, LoadCheckRunsForPresentKeysSoRepeatedKeyCanGrow) {
  Terms terms;
  TermTable table;
  std::vector<const FakeTerm*> keys;
  for (std::uint64_t i = 0; i < 22; ++i) {
    keys.push_back(terms.make(i * 5));
    table.insert({keys.back(), nullptr});
  }
  ASSERT_EQ(table.bucket_count(), 31u);
  std::size_t bucket;
  TermTable::Bucket* node;
  EXPECT_FALSE(table.do_insert({keys[20], nullptr}, &bucket, &node));
  EXPECT_EQ(table.bucket_count(), 73u);
  EXPECT_EQ(bucket, 100u % 73u);
  EXPECT_EQ(node->value.first, keys[20]);
  EXPECT_EQ(table.size(), 22u);
}

TEST(HashtableTest, RehashRelinksNodesWithoutMovingThem) {
  Terms terms;
  TermTable table;
  std::map<const FakeTerm*, const TermTable::Bucket*> nodes;
  for (std::uint64_t i = 0; i < 200; ++i) {
    const FakeTerm* k = terms.make(i * 17 + 3);
    std::size_t b;
    TermTable::Bucket* n;
    table.do_insert({k, nullptr}, &b, &n);
    nodes[k] = n;
  }
  EXPECT_EQ(table.bucket_count(), 313u);
  const std::size_t chunks = table.pool().chunk_count();
  table.rehash(1000);
  EXPECT_EQ(table.bucket_count(), 1291u);
  EXPECT_EQ(table.pool().chunk_count(), chunks);
  for (const auto& [key, node] : nodes) {
    auto it = table.find(key);
    ASSERT_NE(it, table.end());
    EXPECT_EQ(it.node(), node);
    EXPECT_EQ(it.bucket(), key->id % 1291u);
  }
}

TEST(HashtableTest, RehashVisitsOldBucketsInOrderAndPushesEachNodeAtTheHead) {
  Terms terms;
  TermTable table;
  // All five land in bucket 5 of 73. Old buckets: 5 (two nodes), 16, 27,
  // and 5 again for the last.
  const FakeTerm* a = terms.make(5);
  const FakeTerm* b = terms.make(5 + 31 * 73);
  const FakeTerm* c = terms.make(78);
  const FakeTerm* d = terms.make(151);
  for (const FakeTerm* k : {a, b, c, d}) table.insert({k, nullptr});
  // Old chains: bucket 5 is b, a; bucket 16 is c; bucket 27 is d.
  table.rehash(32);
  ASSERT_EQ(table.bucket_count(), 73u);
  std::vector<const FakeTerm*> order;
  for (auto it = table.begin(); it != table.end(); ++it) {
    EXPECT_EQ(it.bucket(), 5u);
    order.push_back(it->first);
  }
  EXPECT_EQ(order, (std::vector<const FakeTerm*>{d, c, a, b}));
}

TEST(HashtableTest, RehashToSmallerOrEqualCountDoesNothing) {
  Terms terms;
  TermTable table(73);
  const FakeTerm* a = terms.make(1);
  const FakeTerm* b = terms.make(74);
  table.insert({a, nullptr});
  table.insert({b, nullptr});
  table.rehash(73);
  table.rehash(5);
  table.rehash(0);
  EXPECT_EQ(table.bucket_count(), 73u);
  auto it = table.begin();
  EXPECT_EQ(it->first, b);  // chain order untouched
}

TEST(HashtableTest, RehashFromNonPrimeCountChoosesFromTheTable) {
  TermTable table(10);
  table.rehash(11);
  EXPECT_EQ(table.bucket_count(), 31u);
  table.rehash(200);
  EXPECT_EQ(table.bucket_count(), 313u);
}

// Counts hash calls so that the empty-table lookup can be seen not to hash.
struct CountingHash {
  static inline int calls = 0;
  std::uint64_t operator()(const FakeTerm* t) const noexcept {
    ++calls;
    return t->id;
  }
};

TEST(HashtableTest, FindOnEmptyTableReturnsEndWithoutHashing) {
  using Table = Hashtable<TermPair, GetKey_pair<const FakeTerm*, const FakeTerm*>, const FakeTerm*,
                          CountingHash, std::equal_to<const FakeTerm*>>;
  FakeTerm t{3};
  Table table;
  CountingHash::calls = 0;
  EXPECT_EQ(table.find(&t), table.end());
  const Table& ctable = table;
  EXPECT_EQ(ctable.find(&t), ctable.end());
  EXPECT_EQ(CountingHash::calls, 0);
  table.insert({&t, nullptr});
  const int after_insert = CountingHash::calls;
  EXPECT_NE(table.find(&t), table.end());
  EXPECT_EQ(CountingHash::calls, after_insert + 1);
}

TEST(HashtableTest, FindReturnsNodeAndBucketOfThePosition) {
  Terms terms;
  TermTable table;
  const FakeTerm* k = terms.make(40);
  std::size_t bucket;
  TermTable::Bucket* node;
  table.do_insert({k, nullptr}, &bucket, &node);
  auto it = table.find(k);
  EXPECT_EQ(it.node(), node);
  EXPECT_EQ(it.bucket(), bucket);
  EXPECT_EQ(table.find(terms.make(40)), table.end());
  EXPECT_EQ(table.find(terms.make(41)), table.end());
}

TEST(HashtableTest, MillionInsertsAreAllFoundAndAbsentKeysAreNot) {
  constexpr std::uint64_t kCount = 1000000;
  std::vector<FakeTerm> present(kCount);
  std::vector<FakeTerm> absent(kCount / 10);
  for (std::uint64_t i = 0; i < kCount; ++i) present[i].id = i * 2654435761u;
  // Half of the absent keys share identifiers (and so buckets) with present
  // ones; the rest have identifiers of their own.
  for (std::uint64_t i = 0; i < absent.size(); ++i) {
    absent[i].id = i % 2 == 0 ? present[i * 7].id : i * 2654435761u + 1;
  }
  TermTable table;
  for (std::uint64_t i = 0; i < kCount; ++i) {
    ASSERT_TRUE(table.insert({&present[i], &present[kCount - 1 - i]}).second);
  }
  EXPECT_EQ(table.size(), kCount);
  EXPECT_EQ(table.bucket_count(), 2699299u);
  for (std::uint64_t i = 0; i < kCount; ++i) {
    auto it = table.find(&present[i]);
    ASSERT_NE(it, table.end());
    ASSERT_EQ(it->second, &present[kCount - 1 - i]);
  }
  for (const FakeTerm& t : absent) ASSERT_EQ(table.find(&t), table.end());
}

TEST(HashtableTest, IterationVisitsEveryEntryExactlyOnce) {
  Terms terms;
  TermTable table;
  std::set<const FakeTerm*> inserted;
  for (std::uint64_t i = 0; i < 1000; ++i) {
    const FakeTerm* k = terms.make(i % 3 == 0 ? i * 31 : i);  // some long chains
    inserted.insert(k);
    table.insert({k, nullptr});
  }
  std::multiset<const FakeTerm*> seen;
  std::size_t last_bucket = 0;
  for (auto it = table.begin(); it != table.end(); it++) {
    EXPECT_GE(it.bucket(), last_bucket);  // buckets are scanned upward
    last_bucket = it.bucket();
    seen.insert(it->first);
  }
  EXPECT_EQ(seen.size(), 1000u);
  EXPECT_EQ(std::set<const FakeTerm*>(seen.begin(), seen.end()), inserted);

  const TermTable& ctable = table;
  EXPECT_EQ(static_cast<std::size_t>(std::distance(ctable.begin(), ctable.end())), 1000u);
  TermTable::const_iterator converted = table.begin();
  EXPECT_EQ(converted, ctable.cbegin());
  EXPECT_TRUE(table.begin() == ctable.begin());
}

TEST(HashtableTest, EmptyTableIterationIsEmpty) {
  TermTable table;
  EXPECT_EQ(table.begin(), table.end());
  const TermTable& ctable = table;
  EXPECT_EQ(ctable.begin(), ctable.end());
}

TEST(HashtableTest, PositionPastTheLastBucketIsTheEnd) {
  Terms terms;
  TermTable table;
  table.insert({terms.make(30), nullptr});  // last bucket of 31
  auto it = table.begin();
  EXPECT_EQ(it.bucket(), 30u);
  ++it;
  EXPECT_EQ(it, table.end());
  EXPECT_EQ(it.node(), nullptr);
}

// A value whose copies and destructions are counted, with a copy that can be
// made to fail.
struct Counted {
  static inline int live = 0;
  static inline bool fail_copy = false;
  int payload;
  explicit Counted(int p) : payload(p) { ++live; }
  Counted(const Counted& o) : payload(o.payload) {
    if (fail_copy) throw std::runtime_error("copy failed");
    ++live;
  }
  Counted& operator=(const Counted&) = default;
  ~Counted() { --live; }
};

using SymbolValue = std::pair<const FakeSymbol*, Counted>;
using SymbolTable =
    Hashtable<SymbolValue, GetKey_pair<const FakeSymbol*, Counted>, const FakeSymbol*,
              kora::hsh::hash<const FakeSymbol*>, std::equal_to<const FakeSymbol*>>;

class CountedValueTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Counted::live = 0;
    Counted::fail_copy = false;
  }
  void TearDown() override { Counted::fail_copy = false; }
};

TEST_F(CountedValueTest, DestructorDestroysEveryValue) {
  std::vector<FakeSymbol> symbols(300);
  {
    SymbolTable table;
    for (std::size_t i = 0; i < symbols.size(); ++i) {
      table.insert({&symbols[i], Counted(static_cast<int>(i))});
    }
    EXPECT_EQ(Counted::live, 300);
    for (std::size_t i = 0; i < symbols.size(); ++i) {
      auto it = table.find(&symbols[i]);
      ASSERT_NE(it, table.end());
      EXPECT_EQ(it->second.payload, static_cast<int>(i));
    }
  }
  EXPECT_EQ(Counted::live, 0);
}

TEST_F(CountedValueTest, PresentKeyDoesNotCopyTheValue) {
  FakeSymbol s;
  SymbolTable table;
  table.insert({&s, Counted(1)});
  const SymbolValue again{&s, Counted(2)};
  EXPECT_EQ(Counted::live, 2);
  EXPECT_FALSE(table.insert(again).second);
  EXPECT_EQ(Counted::live, 2);
  EXPECT_EQ(table.find(&s)->second.payload, 1);
}

TEST_F(CountedValueTest, ClearDestroysValuesKeepsBucketsAndReusesBlocks) {
  std::vector<FakeSymbol> symbols(100);
  SymbolTable table(31, 8, 2.0f, 0);
  for (FakeSymbol& s : symbols) table.insert({&s, Counted(0)});
  const std::size_t buckets = table.bucket_count();
  const std::size_t chunks = table.pool().chunk_count();
  table.clear();
  EXPECT_EQ(Counted::live, 0);
  EXPECT_EQ(table.size(), 0u);
  EXPECT_EQ(table.bucket_count(), buckets);
  EXPECT_EQ(table.begin(), table.end());
  EXPECT_EQ(table.find(&symbols[0]), table.end());
  for (FakeSymbol& s : symbols) table.insert({&s, Counted(0)});
  EXPECT_EQ(table.pool().chunk_count(), chunks);
  EXPECT_EQ(table.size(), 100u);
  EXPECT_EQ(Counted::live, 100);
}

TEST_F(CountedValueTest, FailedValueCopyLeavesTableUnchangedAndReturnsTheBlock) {
  FakeSymbol a, b, c;
  SymbolTable table(31, 1, 1.0f, 0);  // one block per chunk
  table.insert({&a, Counted(1)});
  ASSERT_EQ(table.pool().chunk_count(), 1u);

  const SymbolValue failing{&b, Counted(2)};
  Counted::fail_copy = true;
  std::size_t bucket;
  SymbolTable::Bucket* node = nullptr;
  EXPECT_THROW(table.do_insert(failing, &bucket, &node), std::runtime_error);
  Counted::fail_copy = false;
  EXPECT_EQ(table.pool().chunk_count(), 2u);
  EXPECT_EQ(table.size(), 1u);
  EXPECT_EQ(table.find(&b), table.end());
  EXPECT_EQ(std::distance(table.begin(), table.end()), 1);

  // The block of the failed insertion is the next one handed out.
  table.insert({&c, Counted(3)});
  EXPECT_EQ(table.pool().chunk_count(), 2u);
  EXPECT_EQ(table.size(), 2u);
}

TEST_F(CountedValueTest, GrowthBeforeAFailedInsertionStays) {
  std::vector<FakeSymbol> symbols(23);
  SymbolTable table;
  for (int i = 0; i < 22; ++i) table.insert({&symbols[i], Counted(i)});
  ASSERT_EQ(table.bucket_count(), 31u);
  const SymbolValue failing{&symbols[22], Counted(22)};
  Counted::fail_copy = true;
  EXPECT_THROW(table.insert(failing), std::runtime_error);
  Counted::fail_copy = false;
  EXPECT_EQ(table.bucket_count(), 73u);
  EXPECT_EQ(table.size(), 22u);
  for (int i = 0; i < 22; ++i) EXPECT_NE(table.find(&symbols[i]), table.end());
  EXPECT_EQ(table.find(&symbols[22]), table.end());
}

}  // namespace
