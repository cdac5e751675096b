// Runs QNumber through sequences of operations decoded from the fuzzer's
// bytes and checks every result against GMP's rationals (mpq_class) and
// against the representation invariants: a small number has a positive
// denominator coprime with its numerator, stores zero as 0/1 and never holds
// -2^63 in either word; a big number is normalised the same way.
//
// Four registers hold the numbers, each shadowed by an mpq_class. Operations
// pick their operands among the registers, so aliasing (x += x, x = x,
// divmod into its own operand) comes up as often as distinct operands.
// Division by zero is exercised only where it must throw std::domain_error.
// The compound operators are also held to the fast path's promise: when the
// number and the operand are small and the result still is, nothing was
// allocated.

#include <fuzzer/FuzzedDataProvider.h>
#include <gmpxx.h>
#include <sanitizer/allocator_interface.h>

#include <array>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "kora/numbers/qnumber.h"

namespace {

using kora::QNumber;

constexpr std::size_t kRegisters = 4;
// Values beyond this many bits are replaced by zero, so that repeated
// squaring cannot make one input slow.
constexpr std::size_t kMaxBits = 2048;

// Allocations made by this thread (libFuzzer's own threads allocate too).
thread_local std::size_t allocations = 0;

void count_allocation(const volatile void* /*ptr*/, std::size_t /*size*/) {
  ++allocations;
}
void ignore_free(const volatile void* /*ptr*/) {}

const int hooks_installed =
    __sanitizer_install_malloc_and_free_hooks(count_allocation, ignore_free);

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "qnumber_fuzz: %s\n", what.c_str());
  std::abort();
}

mpq_class exact(const QNumber& q) {
  mpq_class v;
  if (q.is_small()) {
    mpz_set_si(mpq_numref(v.get_mpq_t()), q.small_num());
    mpz_set_si(mpq_denref(v.get_mpq_t()), q.small_den());
  } else {
    v = mpq_class(q.numerator(), q.denominator());
  }
  return v;
}

std::string show(const mpq_class& v) {
  return v.get_str();
}

// The invariants of both forms, and agreement of the queries with the
// words (or block) themselves.
void check_invariants(const QNumber& q, const char* where) {
  mpz_class n;
  mpz_class d;
  if (q.is_small()) {
    const std::int64_t sn = q.small_num();
    const std::int64_t sd = q.small_den();
    if (sd <= 0) fail(std::string(where) + ": small denominator not positive");
    if (sn == INT64_MIN) fail(std::string(where) + ": small numerator is -2^63");
    if (sn == 0 && sd != 1) fail(std::string(where) + ": small zero is not 0/1");
    const std::uint64_t un = sn < 0 ? 0 - static_cast<std::uint64_t>(sn) : sn;
    if (sn != 0 && std::gcd(un, static_cast<std::uint64_t>(sd)) != 1) {
      fail(std::string(where) + ": small form not reduced: " + std::to_string(sn) + "/" +
           std::to_string(sd));
    }
    n = static_cast<long>(sn);
    d = static_cast<long>(sd);
  } else {
    n = q.numerator();
    d = q.denominator();
    if (sgn(d) <= 0) fail(std::string(where) + ": big denominator not positive");
    if (sgn(n) == 0 && d != 1) fail(std::string(where) + ": big zero is not 0/1");
    mpz_class g;
    mpz_gcd(g.get_mpz_t(), n.get_mpz_t(), d.get_mpz_t());
    if (sgn(n) != 0 && g != 1) fail(std::string(where) + ": big form not reduced");
  }
  if (q.numerator() != n || q.denominator() != d) fail(std::string(where) + ": accessors disagree");
  if (q.is_integer() != (d == 1)) fail(std::string(where) + ": is_integer wrong");
  if (q.sign() != sgn(n)) fail(std::string(where) + ": sign wrong");
  const mpq_class v(n, d);
  if (q.to_mpq() != v) fail(std::string(where) + ": to_mpq wrong");
  const std::string text = d == 1 ? n.get_str() : n.get_str() + "/" + d.get_str();
  if (q.to_string() != text) fail(std::string(where) + ": to_string gave " + q.to_string());
}

void check_value(const QNumber& q, const mpq_class& want, const char* where) {
  check_invariants(q, where);
  const mpq_class got = exact(q);
  if (got != want) fail(std::string(where) + ": got " + show(got) + ", expected " + show(want));
}

bool fits_small(const mpz_class& z) {
  return mpz_fits_slong_p(z.get_mpz_t()) != 0 && z != mpz_class(static_cast<long>(INT64_MIN));
}

class Machine {
 public:
  explicit Machine(FuzzedDataProvider& in) : in_(in) {}

  void run() {
    while (in_.remaining_bytes() > 0) {
      step();
      for (std::size_t i = 0; i < kRegisters; ++i) {
        check_value(r_[i], s_[i], "register");
        if (too_big(s_[i])) {
          r_[i] = QNumber();
          s_[i] = 0;
        }
      }
    }
  }

 private:
  std::size_t reg() { return in_.ConsumeIntegralInRange<std::size_t>(0, kRegisters - 1); }

  long word() {
    static constexpr long kEdges[] = {0,
                                      1,
                                      -1,
                                      2,
                                      -2,
                                      3,
                                      INT32_MAX,
                                      INT32_MIN,
                                      static_cast<long>(INT32_MAX) + 1,
                                      static_cast<long>(INT32_MIN) - 1,
                                      1023,
                                      1024,
                                      INT64_MAX,
                                      INT64_MIN,
                                      INT64_MIN + 1,
                                      INT64_MAX - 1,
                                      1L << 62,
                                      -(1L << 62),
                                      (1L << 31) * 3,
                                      3037000499L,  // floor(sqrt(2^63 - 1))
                                      3037000500L};
    switch (in_.ConsumeIntegralInRange<int>(0, 3)) {
      case 0:
        return in_.PickValueInArray(kEdges);
      case 1:
        return in_.ConsumeIntegral<std::int8_t>();
      case 2:
        return in_.ConsumeIntegral<std::int32_t>();
      default:
        return in_.ConsumeIntegral<std::int64_t>();
    }
  }

  // An integer of up to 40 bytes, or a word, or a power of two near a word
  // boundary.
  mpz_class integer() {
    switch (in_.ConsumeIntegralInRange<int>(0, 3)) {
      case 0:
        return mpz_class(word());
      case 1: {
        mpz_class z = 1;
        z <<= in_.ConsumeIntegralInRange<unsigned>(0, 130);
        z += in_.ConsumeIntegralInRange<int>(-2, 2);
        return in_.ConsumeBool() ? mpz_class(-z) : z;
      }
      default: {
        const std::string bytes = in_.ConsumeBytesAsString(in_.ConsumeIntegralInRange(0, 40));
        mpz_class z;
        for (unsigned char c : bytes) z = z * 256 + c;
        return in_.ConsumeBool() ? mpz_class(-z) : z;
      }
    }
  }

  static bool too_big(const mpq_class& v) {
    return mpz_sizeinbase(v.get_num_mpz_t(), 2) > kMaxBits ||
           mpz_sizeinbase(v.get_den_mpz_t(), 2) > kMaxBits;
  }

  // After a move, the source is either untouched or zero.
  void moved_from(std::size_t j, const mpq_class& before) {
    const mpq_class now = exact(r_[j]);
    check_invariants(r_[j], "moved-from");
    if (now != before && now != 0) fail("moved-from number is neither its old value nor 0");
    s_[j] = now;
  }

  void step() {
    const std::size_t i = reg();
    const std::size_t j = reg();
    const std::size_t k = reg();
    switch (in_.ConsumeIntegralInRange<int>(0, 27)) {
      case 0: {
        const long v = word();
        QNumber q(v);
        if (q.is_small() == (v == INT64_MIN)) fail("QNumber(long) chose the wrong form");
        // Assignment keeps a big target big, so the form is checked before.
        r_[i] = q;
        s_[i] = v;
        break;
      }
      case 1: {
        const mpz_class z = integer();
        QNumber q(z);
        if (q.is_small() != fits_small(z)) fail("QNumber(mpz) chose the wrong form");
        r_[i] = q;
        s_[i] = z;
        break;
      }
      case 2: {
        const mpz_class n = integer();
        const mpz_class d = integer();
        if (sgn(d) == 0) {
          expect_domain_error([&] { QNumber q(n, d); });
          break;
        }
        QNumber q(n, d);
        const bool small_args =
            mpz_fits_sint_p(n.get_mpz_t()) != 0 && mpz_fits_sint_p(d.get_mpz_t()) != 0;
        if (q.is_small() != small_args) fail("QNumber(n, d) chose the wrong form");
        mpq_class want(n, d);
        want.canonicalize();
        check_value(q, want, "QNumber(n, d)");
        r_[i] = q;
        s_[i] = want;
        break;
      }
      case 3: {
        QNumber copy(r_[j]);
        check_value(copy, s_[j], "copy constructor");
        if (copy.is_small() != r_[j].is_small()) fail("copy changed the form");
        r_[i] = copy;
        s_[i] = s_[j];
        break;
      }
      case 4: {
        const bool was_big = !r_[i].is_small();
        r_[i] = r_[j];
        s_[i] = s_[j];
        // Copy assignment reuses a big target's block.
        if (was_big && r_[i].is_small()) fail("copy assignment shrank a big target");
        break;
      }
      case 5: {
        const mpq_class before = s_[j];
        r_[i] = std::move(r_[j]);
        s_[i] = before;
        if (i != j) moved_from(j, before);
        break;
      }
      case 6: {
        const mpq_class before = s_[j];
        QNumber taken(std::move(r_[j]));
        check_value(taken, before, "move constructor");
        moved_from(j, before);
        r_[i] = std::move(taken);
        s_[i] = before;
        break;
      }
      case 7:
        compound(i, r_[j].is_small(), [&] { r_[i] += r_[j]; });
        s_[i] += s_[j];
        break;
      case 8:
        compound(i, r_[j].is_small(), [&] { r_[i] -= r_[j]; });
        s_[i] -= s_[j];
        break;
      case 9:
        compound(i, r_[j].is_small(), [&] { r_[i] *= r_[j]; });
        s_[i] *= s_[j];
        break;
      case 10:
        if (sgn(s_[j]) == 0) {
          const mpq_class before = s_[i];
          expect_domain_error([&] { r_[i] /= r_[j]; });
          check_value(r_[i], before, "after division by zero");
          break;
        }
        compound(i, r_[j].is_small(), [&] { r_[i] /= r_[j]; });
        s_[i] /= mpq_class(s_[j]);  // a copy: s_[j] may be s_[i]
        break;
      case 11: {
        const long v = word();
        compound(i, v != INT64_MIN, [&] { r_[i] += v; });
        s_[i] += mpq_class(mpz_class(v));
        break;
      }
      case 12: {
        const long v = word();
        compound(i, v != INT64_MIN, [&] { r_[i] -= v; });
        s_[i] -= mpq_class(mpz_class(v));
        break;
      }
      case 13: {
        const long v = word();
        if (v == 0) {
          const mpq_class before = s_[i];
          expect_domain_error([&] { r_[i] /= v; });
          check_value(r_[i], before, "after division by zero");
          break;
        }
        compound(i, v != INT64_MIN, [&] { r_[i] /= v; });
        s_[i] /= mpq_class(mpz_class(v));
        break;
      }
      case 14:
        r_[k] = r_[i] + r_[j];
        s_[k] = s_[i] + s_[j];
        break;
      case 15:
        r_[k] = r_[i] - r_[j];
        s_[k] = s_[i] - s_[j];
        break;
      case 16:
        r_[k] = r_[i] * r_[j];
        s_[k] = s_[i] * s_[j];
        break;
      case 17: {
        const long v = word();
        r_[k] = r_[i] + v;
        s_[k] = s_[i] + mpq_class(mpz_class(v));
        break;
      }
      case 18: {
        const long v = word();
        r_[k] = r_[i] - v;
        s_[k] = s_[i] - mpq_class(mpz_class(v));
        break;
      }
      case 19: {
        const long v = word();
        if (v == 0) {
          expect_domain_error([&] { QNumber q = r_[i] / v; });
          break;
        }
        r_[k] = r_[i] / v;
        s_[k] = s_[i] / mpq_class(mpz_class(v));
        break;
      }
      case 20:
        if ((r_[i] == r_[j]) != (s_[i] == s_[j])) fail("== wrong");
        if ((r_[i] != r_[j]) != (s_[i] != s_[j])) fail("!= wrong");
        if ((r_[i] < r_[j]) != (s_[i] < s_[j])) {
          fail("< wrong for " + show(s_[i]) + " and " + show(s_[j]));
        }
        break;
      case 21: {
        const long v = word();
        if ((r_[i] < v) != (s_[i] < mpq_class(mpz_class(v)))) fail("< long wrong");
        break;
      }
      case 22:
        divmod(i, j, k, reg());
        break;
      case 23: {
        const unsigned long n = in_.ConsumeIntegralInRange<unsigned long>(0, 200);
        const bool was_small = r_[i].is_small();
        kora::BVNumber::pow2(n, &r_[i]);
        mpz_class p = 1;
        p <<= n;
        s_[i] = p;
        if (n >= 63 && r_[i].is_small()) fail("pow2 of 63 or more is small");
        if (n <= 62 && was_small && !r_[i].is_small())
          fail("pow2 below 63 made a small target big");
        break;
      }
      case 24:
        r_[i].normalize();
        break;
      case 25: {
        std::ostringstream os;
        os << r_[i];
        if (os.str() != r_[i].to_string()) fail("operator<< differs from to_string");
        break;
      }
      case 26: {
        // The compound forms of two different numbers that are equal in value
        // must agree whatever their forms.
        QNumber big(mpz_class(s_[i].get_num()), mpz_class(s_[i].get_den()));
        if (!(big == r_[i]) || !(r_[i] == big)) fail("equal values in different forms differ");
        if (big < r_[i] || r_[i] < big) fail("equal values in different forms are ordered");
        break;
      }
      default:
        r_[i] = QNumber();
        s_[i] = 0;
        break;
    }
  }

  // q and r distinct; either may be the dividend or the divisor.
  void divmod(std::size_t a, std::size_t d, std::size_t q, std::size_t r) {
    if (q == r) return;
    if (!r_[a].is_integer() || !r_[d].is_integer()) return;
    const mpz_class x = s_[a].get_num();
    const mpz_class y = s_[d].get_num();
    if (sgn(y) == 0) {
      expect_domain_error([&] { r_[a].divmod(r_[d], r_[q], r_[r]); });
      // Nothing may have been written.
      return;
    }
    const bool truncating = r_[a].is_small() && r_[d].is_small();
    mpz_class quot;
    mpz_class rem;
    if (truncating) {
      mpz_tdiv_qr(quot.get_mpz_t(), rem.get_mpz_t(), x.get_mpz_t(), y.get_mpz_t());
    } else {
      mpz_fdiv_qr(quot.get_mpz_t(), rem.get_mpz_t(), x.get_mpz_t(), y.get_mpz_t());
    }
    r_[a].divmod(r_[d], r_[q], r_[r]);
    s_[q] = quot;
    s_[r] = rem;
  }

  // Runs a compound operator on register i; operand_small tells whether the
  // other operand is in the small form.
  template <class F>
  void compound(std::size_t i, bool operand_small, F op) {
    const bool fast = r_[i].is_small() && operand_small;
    const std::size_t before = allocations;
    op();
    if (fast && r_[i].is_small() && allocations != before) {
      fail("a small operation with a small result allocated");
    }
  }

  template <class F>
  void expect_domain_error(F f) {
    try {
      f();
    } catch (const std::domain_error&) {
      return;
    }
    fail("division by zero did not throw std::domain_error");
  }

  FuzzedDataProvider& in_;
  std::array<QNumber, kRegisters> r_{};
  std::array<mpq_class, kRegisters> s_{};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  Machine machine(in);
  machine.run();
  return 0;
}
