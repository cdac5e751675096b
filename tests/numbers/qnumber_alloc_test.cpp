// Allocation behaviour of QNumber: the small form must never allocate, and a
// failed block allocation must leave every number as it was. Global operator
// new/delete are replaced by counting versions for the whole binary, and GMP's
// memory functions are swapped for counting ones while a test runs.
#include <gmp.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <new>

#include "kora/numbers/qnumber.h"
#include "support/alloc_counting.h"

using alloc_counting::g_fail_next_new;
using alloc_counting::g_gmp_calls;
using alloc_counting::g_new_calls;

namespace kora {
namespace {

// Counting GMP allocator for the lifetime of a test; the default functions
// also use malloc/free, so memory may cross the switch in either direction.
class QNumberAlloc : public ::testing::Test {
 protected:
  void SetUp() override { alloc_counting::install_gmp_counters(); }
  void TearDown() override {
    g_fail_next_new = false;
    alloc_counting::remove_gmp_counters();
  }
};

struct Counts {
  std::size_t news;
  std::size_t gmps;
};

Counts snapshot() {
  return {g_new_calls, g_gmp_calls};
}

struct Workload {
  std::int64_t checksum = 0;
  int big_results = 0;  // results that left the small form; must stay 0
};

// The small-form workload: every operator on values whose results fit. The
// checksum keeps the work observable and lets the caller compare two runs.
Workload small_workload(int rounds) {
  Workload w;
  std::int64_t& check = w.checksum;
  for (int i = 1; i <= rounds; ++i) {
    const long k = i % 997 + 1;
    const QNumber a(k);
    const QNumber b(-(k % 13) - 1);
    QNumber f(k);
    f /= QNumber(k + 1);  // k/(k+1)
    QNumber g(3);
    g /= QNumber(-(k % 7) - 2);

    QNumber s = a + b;
    QNumber d = a - b;
    QNumber p = a * b;
    QNumber fs = f + g;
    QNumber fd = f - g;
    QNumber fp = f * g;
    QNumber fq = f;
    fq /= g;
    fq += 7L;
    fq -= 3L;
    fq /= 5L;
    QNumber l = f + 11L;
    l = l - 4L;
    l = l / 3L;
    s += d;
    s -= p;
    p *= f;
    QNumber near_limit(INT64_MAX / 4);
    near_limit += QNumber(INT64_MAX / 4);  // 2^62 - 2, still small
    QNumber qt, rt;
    near_limit.divmod(QNumber(k), qt, rt);
    QNumber pw;
    BVNumber::pow2(static_cast<unsigned long>(k % 62), &pw);
    QNumber copy(fs);
    QNumber moved(std::move(copy));
    copy = moved;
    copy = std::move(fd);

    check += (a < b) + 2 * (f < g) + 4 * (fs == fd) + 8 * (fp < 0L) + 16 * (g < -1L) +
             32 * (s != d) + 64 * (fq < l);
    check += s.small_num() + p.small_den() + fq.small_num() + l.small_den() + rt.small_num() +
             qt.small_num() % 1000 + pw.small_num() % 1000 + copy.small_den() + moved.small_num();
    for (const QNumber* v :
         {&s, &d, &p, &fs, &fp, &fq, &l, &near_limit, &qt, &rt, &pw, &copy, &moved})
      w.big_results += !v->is_small();
  }
  return w;
}

TEST_F(QNumberAlloc, CountersSeeBothAllocators) {
  // The instrument itself: a big number allocates through both paths.
  const Counts before = snapshot();
  mpz_class n;
  mpz_ui_pow_ui(n.get_mpz_t(), 2, 200);
  QNumber b(n, mpz_class(3));
  const QNumber c = b;
  const Counts after = snapshot();
  EXPECT_FALSE(c.is_small());
  EXPECT_GE(after.news - before.news, 2u);  // the two blocks
  EXPECT_GE(after.gmps - before.gmps, 1u);  // the limbs of 2^200
}

TEST_F(QNumberAlloc, SmallFormAllocatesNothing) {
  // Warm-up: the same work once before counting, so anything filled lazily
  // (the gcd table, the test framework's own state) is in place.
  const Workload expected = small_workload(4000);
  const Counts before = snapshot();
  const Workload got = small_workload(4000);
  const Counts after = snapshot();
  EXPECT_EQ(after.news - before.news, 0u);
  EXPECT_EQ(after.gmps - before.gmps, 0u);
  EXPECT_EQ(got.checksum, expected.checksum);
  EXPECT_EQ(got.big_results, 0);
}

TEST_F(QNumberAlloc, SmallWorkloadResultsAreSmallAndRight) {
  // One round checked by hand, to make sure the counted loop runs the fast
  // path and not a fallback that happens to allocate nothing.
  const QNumber a(5);
  const QNumber b(-6);
  QNumber f(5);
  f /= QNumber(6);
  QNumber g(3);
  g /= QNumber(-7);
  const QNumber fs = f + g;
  const QNumber fp = f * g;
  EXPECT_TRUE(fs.is_small());
  EXPECT_EQ(fs.small_num(), 17);
  EXPECT_EQ(fs.small_den(), 42);
  EXPECT_TRUE(fp.is_small());
  EXPECT_EQ(fp.small_num(), -5);
  EXPECT_EQ(fp.small_den(), 14);
  QNumber near_limit(INT64_MAX / 4);
  near_limit += QNumber(INT64_MAX / 4);
  EXPECT_TRUE(near_limit.is_small());
  QNumber qt, rt;
  near_limit.divmod(QNumber(5), qt, rt);
  EXPECT_TRUE(qt.is_small());
  EXPECT_TRUE(rt.is_small());
  EXPECT_EQ(qt.small_num() * 5 + rt.small_num(), near_limit.small_num());
  QNumber pw;
  BVNumber::pow2(61, &pw);
  EXPECT_TRUE(pw.is_small());
  EXPECT_TRUE(a * b < 0L);
}

TEST_F(QNumberAlloc, SubMulAndSwapUpdateBigNumbersInPlace) {
  // A Euclid-like round on numbers of a few thousand bits: once every number
  // is big and large enough, the updates neither make blocks nor grow limbs.
  mpz_class m;
  mpz_ui_pow_ui(m.get_mpz_t(), 2, 4000);
  QNumber a(m + 12345);
  QNumber b(m / 3);
  QNumber q(m / 5);
  QNumber k(7L);
  auto round = [&] {
    a.sub_mul(b, k);  // a - 7b, then back to a
    a.sub_mul(b, QNumber(-7L));
    a.swap(b);
    q.swap(a);
    q.swap(a);
  };
  round();  // warm-up, twice since the roles swap: every integer, the
  round();  // scratch ones too, has its room
  const Counts before = snapshot();
  for (int i = 0; i < 1000; ++i) round();
  const Counts after = snapshot();
  EXPECT_EQ(after.news - before.news, 0u);
  EXPECT_EQ(after.gmps - before.gmps, 0u);
  EXPECT_FALSE(a.is_small());
}

TEST_F(QNumberAlloc, OverflowFallbackDoesAllocate) {
  QNumber x(INT64_MAX);
  const Counts before = snapshot();
  x += 1L;
  const Counts after = snapshot();
  EXPECT_FALSE(x.is_small());
  EXPECT_EQ(after.news - before.news, 1u);  // exactly the block
}

// A failing block allocation throws std::bad_alloc and leaves the number
// untouched; the sanitizer build checks that nothing leaks on the way.
TEST_F(QNumberAlloc, FailedBlockAllocationLeavesNumbersIntact) {
  mpz_class two70;
  mpz_ui_pow_ui(two70.get_mpz_t(), 2, 70);
  const QNumber big(two70, mpz_class(3));
  ASSERT_FALSE(big.is_small());

  QNumber x(5);
  EXPECT_THROW((g_fail_next_new = true, x += big), std::bad_alloc);
  EXPECT_TRUE(x.is_small());
  EXPECT_EQ(x.small_num(), 5);

  EXPECT_THROW((g_fail_next_new = true, x *= big), std::bad_alloc);
  EXPECT_TRUE(x.is_small());
  EXPECT_EQ(x.small_num(), 5);

  // The reciprocal of a big divisor is a block of its own.
  EXPECT_THROW((g_fail_next_new = true, x /= big), std::bad_alloc);
  EXPECT_EQ(x.small_num(), 5);

  // Overflow of the fast path.
  QNumber m(INT64_MAX);
  EXPECT_THROW((g_fail_next_new = true, m += 1L), std::bad_alloc);
  EXPECT_TRUE(m.is_small());
  EXPECT_EQ(m.small_num(), INT64_MAX);
  EXPECT_THROW((g_fail_next_new = true, m *= QNumber(2)), std::bad_alloc);
  EXPECT_EQ(m.small_num(), INT64_MAX);
  m += 1L;  // and it still works afterwards
  EXPECT_FALSE(m.is_small());

  // Copying and assigning a big number.
  EXPECT_THROW((g_fail_next_new = true, QNumber{big}), std::bad_alloc);
  QNumber y(7);
  EXPECT_THROW((g_fail_next_new = true, y = big), std::bad_alloc);
  EXPECT_TRUE(y.is_small());
  EXPECT_EQ(y.small_num(), 7);

  // Constructors that build the big form.
  EXPECT_THROW((g_fail_next_new = true, QNumber{LONG_MIN}), std::bad_alloc);
  EXPECT_THROW((g_fail_next_new = true, QNumber(two70, mpz_class(1))), std::bad_alloc);

  // divmod on the big path grows q and r before writing either.
  QNumber q(11);
  QNumber r(12);
  EXPECT_THROW((g_fail_next_new = true, big.divmod(QNumber(3), q, r)), std::bad_alloc);
  EXPECT_EQ(q.small_num(), 11);
  EXPECT_EQ(r.small_num(), 12);
  big.divmod(QNumber(3), q, r);
  EXPECT_FALSE(q.is_small());
  EXPECT_EQ(r.to_mpq(), mpq_class(two70 % 3));  // denominators are not consulted

  // pow2 beyond a word.
  QNumber p(1);
  EXPECT_THROW((g_fail_next_new = true, BVNumber::pow2(100, &p)), std::bad_alloc);
  EXPECT_TRUE(p.is_small());
  EXPECT_EQ(p.small_num(), 1);
}

}  // namespace
}  // namespace kora
