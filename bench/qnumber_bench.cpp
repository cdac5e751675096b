// QNumber against GMP's mpq_class, FLINT's fmpq and a raw int64_t loop.
//
// Four data sets of 1024 operand pairs each, built once from a fixed seed and
// loaded into every library from the same mpq_class values:
//   small_int   integers in [-2^30, 2^30]: every result fits a word
//   small_frac  reduced fractions n/d, |n| < 10^4, 0 < d < 10^4
//   big         integers of 70 to 256 bits (QNumber's GMP form)
//   bitvec      the calculators' values: unsigned w-bit integers for a width
//               w drawn from {8, 32, 64, 128} per pair (the 64-bit ones at
//               or above 2^63 and all 128-bit ones are in the big form)
// Operations: add, sub, mul, div, compare (<), divmod (integers only) and
// pow2 (2^e with e in [0, 61], [70, 256] or the pair's width), plus, on
// bitvec, addmod: (a + b) mod 2^w as a calculator computes it.
//
// Each library writes into a result object made once per benchmark, with its
// cheapest form of "r = a op b": for QNumber the compound form on a copy
// (r = a; r += b, which reuses r's storage), for mpq_class the expression
// (r = a + b is one mpq_add into r), for fmpq fmpq_add(r, a, b). The row
// kora_2op shows QNumber's two-operand operators (r = a + b), which copy the
// left operand into a fresh number each time.
//
// The int64 rows are the physical limit: a word per integer (a pair of words
// per fraction, reduced with one std::gcd) and __builtin_*_overflow checks
// whose failure path is never taken on these data.

#include <benchmark/benchmark.h>
#include <gmpxx.h>

#include <cstdint>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "bench_util.h"
#include "kora/numbers/qnumber.h"

#ifdef KORA_BENCH_HAVE_FLINT
#include <flint/fmpq.h>
#include <flint/fmpz.h>
#endif

namespace kora::bench {
namespace {

constexpr std::size_t kPairs = 1024;

enum class Set { SmallInt, SmallFrac, Big, BitVec };
enum class Opk { Add, Sub, Mul, Div, Less, Divmod, Pow2, AddMod };

const char* set_name(Set s) {
  switch (s) {
    case Set::SmallInt:
      return "small_int";
    case Set::SmallFrac:
      return "small_frac";
    case Set::Big:
      return "big";
    case Set::BitVec:
      return "bitvec";
  }
  return "?";
}

const char* op_name(Opk k) {
  switch (k) {
    case Opk::Add:
      return "add";
    case Opk::Sub:
      return "sub";
    case Opk::Mul:
      return "mul";
    case Opk::Div:
      return "div";
    case Opk::Less:
      return "compare";
    case Opk::Divmod:
      return "divmod";
    case Opk::Pow2:
      return "pow2";
    case Opk::AddMod:
      return "addmod";
  }
  return "?";
}

struct Data {
  std::vector<mpq_class> a;
  std::vector<mpq_class> b;
  std::vector<unsigned long> exps;  // pow2 exponents; for bitvec, the widths
};

mpz_class random_bits(gmp_randclass& gen, unsigned long bits) {
  return gen.get_z_bits(bits);
}

Data make_data(Set set) {
  std::mt19937_64 rng = make_rng(static_cast<std::uint64_t>(set) + 1);
  gmp_randclass gen(gmp_randinit_default);
  gen.seed(static_cast<unsigned long>(rng()));
  Data d;
  auto uniform = [&](std::int64_t lo, std::int64_t hi) {
    return std::uniform_int_distribution<std::int64_t>(lo, hi)(rng);
  };
  for (std::size_t i = 0; i < kPairs; ++i) {
    switch (set) {
      case Set::SmallInt: {
        std::int64_t b = 0;
        while (b == 0) b = uniform(-(1LL << 30), 1LL << 30);
        d.a.emplace_back(static_cast<long>(uniform(-(1LL << 30), 1LL << 30)));
        d.b.emplace_back(static_cast<long>(b));
        d.exps.push_back(static_cast<unsigned long>(uniform(0, 61)));
        break;
      }
      case Set::SmallFrac: {
        for (int k = 0; k < 2; ++k) {
          std::int64_t n = 0;
          while (n == 0) n = uniform(-9999, 9999);
          mpq_class q(static_cast<long>(n), static_cast<unsigned long>(uniform(1, 9999)));
          q.canonicalize();
          (k == 0 ? d.a : d.b).push_back(q);
        }
        d.exps.push_back(0);
        break;
      }
      case Set::Big: {
        for (int k = 0; k < 2; ++k) {
          const auto bits = static_cast<unsigned long>(uniform(70, 256));
          mpz_class z = random_bits(gen, bits);
          mpz_setbit(z.get_mpz_t(), bits - 1);  // exactly `bits` bits, so at least 2^69
          if (uniform(0, 1) == 1) z = -z;
          (k == 0 ? d.a : d.b).emplace_back(z);
        }
        d.exps.push_back(static_cast<unsigned long>(uniform(70, 256)));
        break;
      }
      case Set::BitVec: {
        static constexpr unsigned long kWidths[] = {8, 32, 64, 128};
        const unsigned long w = kWidths[uniform(0, 3)];
        mpz_class b = 0;
        while (b == 0) b = random_bits(gen, w);
        d.a.emplace_back(random_bits(gen, w));
        d.b.emplace_back(b);
        d.exps.push_back(w);
        break;
      }
    }
  }
  return d;
}

const Data& data(Set set) {
  static const Data sets[] = {make_data(Set::SmallInt), make_data(Set::SmallFrac),
                              make_data(Set::Big), make_data(Set::BitVec)};
  return sets[static_cast<int>(set)];
}

// Taken only when a raw word operation overflows, which these data never do;
// it keeps the check (and its branch) in the loop.
[[gnu::noinline, gnu::cold]] void raw_overflow() {
  static volatile int count = 0;
  count = count + 1;
}

// --- Libraries ---------------------------------------------------------------

struct Kora {
  using T = QNumber;
  using Q = QNumber;
  static void load(T& out, const mpq_class& v) {
    if (v.get_den() == 1) {
      out = QNumber(v.get_num());
    } else {
      out = QNumber(v.get_num(), v.get_den());
    }
  }
  static void add(T& r, const T& a, const T& b) {
    r = a;
    r += b;
  }
  static void sub(T& r, const T& a, const T& b) {
    r = a;
    r -= b;
  }
  static void mul(T& r, const T& a, const T& b) {
    r = a;
    r *= b;
  }
  static void div(Q& r, const T& a, const T& b) {
    r = a;
    r /= b;
  }
  static bool less(const T& a, const T& b) { return a < b; }
  static void divmod(T& q, T& r, const T& a, const T& b) { a.divmod(b, q, r); }
  static void pow2(T& r, unsigned long n) { BVNumber::pow2(n, &r); }
  static void addmod(T& m, T& s, T& q, T& r, const T& a, const T& b, unsigned long w) {
    BVNumber::pow2(w, &m);
    s = a;
    s += b;
    s.divmod(m, q, r);
  }
};

// QNumber through its two-operand operators: one copy of the left operand per
// operation, then the compound form.
struct Kora2Op : Kora {
  static void add(T& r, const T& a, const T& b) { r = a + b; }
  static void sub(T& r, const T& a, const T& b) { r = a - b; }
  static void mul(T& r, const T& a, const T& b) { r = a * b; }
};

struct Mpq {
  using T = mpq_class;
  using Q = mpq_class;
  static void load(T& out, const mpq_class& v) { out = v; }
  static void add(T& r, const T& a, const T& b) { r = a + b; }
  static void sub(T& r, const T& a, const T& b) { r = a - b; }
  static void mul(T& r, const T& a, const T& b) { r = a * b; }
  static void div(Q& r, const T& a, const T& b) { r = a / b; }
  static bool less(const T& a, const T& b) { return a < b; }
  // mpq_class has no integer division; its numerators are the integers.
  // Floor division, as QNumber's big form computes it.
  static void divmod(T& q, T& r, const T& a, const T& b) {
    mpz_fdiv_qr(q.get_num_mpz_t(), r.get_num_mpz_t(), a.get_num_mpz_t(), b.get_num_mpz_t());
  }
  static void pow2(T& r, unsigned long n) {
    mpq_set_ui(r.get_mpq_t(), 1, 1);
    mpq_mul_2exp(r.get_mpq_t(), r.get_mpq_t(), n);
  }
  static void addmod(T& m, T& s, T& q, T& r, const T& a, const T& b, unsigned long w) {
    pow2(m, w);
    s = a + b;
    mpz_fdiv_qr(q.get_num_mpz_t(), r.get_num_mpz_t(), s.get_num_mpz_t(), m.get_num_mpz_t());
  }
};

#ifdef KORA_BENCH_HAVE_FLINT
struct Fmpq {
  struct T {
    fmpq_t v;
    T() { fmpq_init(v); }
    ~T() { fmpq_clear(v); }
    T(const T&) = delete;
    T& operator=(const T&) = delete;
  };
  using Q = T;
  static void load(T& out, const mpq_class& v) { fmpq_set_mpq(out.v, v.get_mpq_t()); }
  static void add(T& r, const T& a, const T& b) { fmpq_add(r.v, a.v, b.v); }
  static void sub(T& r, const T& a, const T& b) { fmpq_sub(r.v, a.v, b.v); }
  static void mul(T& r, const T& a, const T& b) { fmpq_mul(r.v, a.v, b.v); }
  static void div(Q& r, const T& a, const T& b) { fmpq_div(r.v, a.v, b.v); }
  static bool less(const T& a, const T& b) { return fmpq_cmp(a.v, b.v) < 0; }
  static void divmod(T& q, T& r, const T& a, const T& b) {
    fmpz_fdiv_qr(fmpq_numref(q.v), fmpq_numref(r.v), fmpq_numref(a.v), fmpq_numref(b.v));
  }
  static void pow2(T& r, unsigned long n) {
    fmpq_one(r.v);
    fmpq_mul_2exp(r.v, r.v, n);
  }
  static void addmod(T& m, T& s, T& q, T& r, const T& a, const T& b, unsigned long w) {
    pow2(m, w);
    fmpq_add(s.v, a.v, b.v);
    fmpz_fdiv_qr(fmpq_numref(q.v), fmpq_numref(r.v), fmpq_numref(s.v), fmpq_numref(m.v));
  }
};
#endif

// A fraction in two words, the raw counterpart of QNumber's small form.
struct RawFrac {
  std::int64_t n = 0;
  std::int64_t d = 1;
};

inline void reduce(RawFrac& r, std::int64_t n, std::int64_t d) {
  if (d < 0) {
    n = -n;
    d = -d;
  }
  const std::int64_t g = std::gcd(n, d);
  r.n = n / g;
  r.d = d / g;
}

struct RawInt {
  using T = std::int64_t;
  using Q = RawFrac;
  static void load(T& out, const mpq_class& v) { out = v.get_num().get_si(); }
  static void add(T& r, T a, T b) {
    if (__builtin_add_overflow(a, b, &r)) raw_overflow();
  }
  static void sub(T& r, T a, T b) {
    if (__builtin_sub_overflow(a, b, &r)) raw_overflow();
  }
  static void mul(T& r, T a, T b) {
    if (__builtin_mul_overflow(a, b, &r)) raw_overflow();
  }
  static void div(Q& r, T a, T b) { reduce(r, a, b); }
  static bool less(T a, T b) { return a < b; }
  static void divmod(T& q, T& r, T a, T b) {
    if (b == 0 || (a == INT64_MIN && b == -1)) {
      raw_overflow();
      return;
    }
    q = a / b;
    r = a % b;
  }
  static void pow2(T& r, unsigned long n) {
    if (n > 61) raw_overflow();
    r = std::int64_t{1} << (n & 63);
  }
};

struct RawFracLib {
  using T = RawFrac;
  using Q = RawFrac;
  static void load(T& out, const mpq_class& v) {
    out.n = v.get_num().get_si();
    out.d = v.get_den().get_si();
  }
  static void add(T& r, const T& a, const T& b) {
    std::int64_t x, y, n, d;
    if (__builtin_mul_overflow(a.n, b.d, &x) | __builtin_mul_overflow(b.n, a.d, &y) |
        __builtin_add_overflow(x, y, &n) | __builtin_mul_overflow(a.d, b.d, &d)) {
      raw_overflow();
    }
    reduce(r, n, d);
  }
  static void sub(T& r, const T& a, const T& b) {
    std::int64_t x, y, n, d;
    if (__builtin_mul_overflow(a.n, b.d, &x) | __builtin_mul_overflow(b.n, a.d, &y) |
        __builtin_sub_overflow(x, y, &n) | __builtin_mul_overflow(a.d, b.d, &d)) {
      raw_overflow();
    }
    reduce(r, n, d);
  }
  static void mul(T& r, const T& a, const T& b) {
    std::int64_t n, d;
    if (__builtin_mul_overflow(a.n, b.n, &n) | __builtin_mul_overflow(a.d, b.d, &d)) {
      raw_overflow();
    }
    reduce(r, n, d);
  }
  static void div(Q& r, const T& a, const T& b) {
    std::int64_t n, d;
    if (__builtin_mul_overflow(a.n, b.d, &n) | __builtin_mul_overflow(a.d, b.n, &d)) {
      raw_overflow();
    }
    reduce(r, n, d);
  }
  static bool less(const T& a, const T& b) {
    std::int64_t x, y;
    if (__builtin_mul_overflow(a.n, b.d, &x) | __builtin_mul_overflow(b.n, a.d, &y)) {
      raw_overflow();
    }
    return x < y;
  }
};

// --- The benchmark loop ------------------------------------------------------

template <class L>
std::unique_ptr<typename L::T[]> load_all(const std::vector<mpq_class>& values) {
  auto out = std::make_unique<typename L::T[]>(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) L::load(out[i], values[i]);
  return out;
}

template <class L, Opk K>
void run(benchmark::State& state, Set set) {
  const Data& d = data(set);
  const std::size_t n = d.a.size();
  const auto a = load_all<L>(d.a);
  const auto b = load_all<L>(d.b);
  // Results go to arrays (r_i = a_i op b_i), so that no library pays for a
  // compiler barrier per operation; the barrier comes once per pass.
  auto r = std::make_unique<typename L::T[]>(n);
  auto q = std::make_unique<typename L::T[]>(n);
  auto f = std::make_unique<typename L::Q[]>(n);
  typename L::T m{};
  typename L::T s{};
  std::size_t less_count = 0;
  for (auto _ : state) {
    for (std::size_t i = 0; i < n; ++i) {
      if constexpr (K == Opk::Add) {
        L::add(r[i], a[i], b[i]);
      } else if constexpr (K == Opk::Sub) {
        L::sub(r[i], a[i], b[i]);
      } else if constexpr (K == Opk::Mul) {
        L::mul(r[i], a[i], b[i]);
      } else if constexpr (K == Opk::Div) {
        L::div(f[i], a[i], b[i]);
      } else if constexpr (K == Opk::Less) {
        less_count += L::less(a[i], b[i]) ? 1 : 0;
      } else if constexpr (K == Opk::Divmod) {
        L::divmod(q[i], r[i], a[i], b[i]);
      } else if constexpr (K == Opk::Pow2) {
        L::pow2(r[i], d.exps[i]);
      } else {
        L::addmod(m, s, q[i], r[i], a[i], b[i], d.exps[i]);
      }
    }
    benchmark::DoNotOptimize(less_count);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(n));
}

template <class L, Opk K>
void add_one(Set set, const char* lib) {
  const std::string name = std::string("qnumber/") + set_name(set) + "/" + op_name(K) + "/" + lib;
  benchmark::RegisterBenchmark(name.c_str(), [set](benchmark::State& st) { run<L, K>(st, set); });
}

// The operations every library has, on one set.
template <class L, bool Integers>
void add_arith(Set set, const char* lib) {
  add_one<L, Opk::Add>(set, lib);
  add_one<L, Opk::Sub>(set, lib);
  add_one<L, Opk::Mul>(set, lib);
  add_one<L, Opk::Div>(set, lib);
  add_one<L, Opk::Less>(set, lib);
  if constexpr (Integers) {
    add_one<L, Opk::Divmod>(set, lib);
    add_one<L, Opk::Pow2>(set, lib);
  }
}

template <class L>
void add_library(const char* lib) {
  add_arith<L, true>(Set::SmallInt, lib);
  add_arith<L, false>(Set::SmallFrac, lib);
  add_arith<L, true>(Set::Big, lib);
  add_arith<L, true>(Set::BitVec, lib);
  add_one<L, Opk::AddMod>(Set::BitVec, lib);
}

}  // namespace

void register_qnumber_benchmarks() {
  add_library<Kora>("kora");
  add_library<Mpq>("mpq");
#ifdef KORA_BENCH_HAVE_FLINT
  add_library<Fmpq>("fmpq");
#endif
  for (Set s : {Set::SmallInt, Set::SmallFrac, Set::Big, Set::BitVec}) {
    add_one<Kora2Op, Opk::Add>(s, "kora_2op");
    add_one<Kora2Op, Opk::Sub>(s, "kora_2op");
    add_one<Kora2Op, Opk::Mul>(s, "kora_2op");
  }
  add_arith<RawInt, true>(Set::SmallInt, "int64");
  add_arith<RawFracLib, false>(Set::SmallFrac, "int64");
}

}  // namespace kora::bench
