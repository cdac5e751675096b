// The complete inverter: exhaustive agreement with brute force at small
// widths, random checks at wide ones, and the Inverter on a model store.

#include "kora/inverse/inverter.h"

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kora/model/model_store.h"
#include "kora/terms/simplifiers.h"
#include "kora/terms/term_manager.h"
#include "support/calculator_fixture.h"
#include "support/evaluator.h"
#include "support/term_helpers.h"

namespace kora::test {
namespace {

using inverse::Inverter;
using inverse::NoValue;
using inverse::Operator;
using inverse::Refused;
using Pattern = std::vector<std::optional<mpz_class>>;
using Values = std::vector<mpz_class>;

// --- Operators ------------------------------------------------------------------

Operator bv(Op op, std::size_t w) {
  return {op, w, 0, 0};
}
Operator boolean_op(Op op) {
  return {op, 0, 0, 0};
}
Operator concat(std::size_t high, std::size_t low) {
  return {Op::BVConcat, high, low, 0};
}
Operator extract(std::size_t msb, std::size_t lsb, std::size_t w) {
  return {Op::BVExtract, w, msb, lsb};
}
Operator indexed(Op op, std::size_t k, std::size_t w) {
  return {op, w, k, 0};
}

// Operators over two bit-vectors of one width, Equal included.
const std::vector<Op>& binary_ops() {
  static const std::vector<Op> ops{Op::BVAdd,  Op::BVSub,  Op::BVMul,  Op::BVShl,  Op::BVLshr,
                                   Op::BVAshr, Op::BVUdiv, Op::BVUrem, Op::BVSdiv, Op::BVSrem,
                                   Op::BVAnd,  Op::BVOr,   Op::BVXor,  Op::BVUlt,  Op::BVUle,
                                   Op::BVSlt,  Op::BVSle,  Op::BVComp, Op::Equal};
  return ops;
}

std::string describe(const Operator& f) {
  std::ostringstream os;
  os << op_name(f.op) << "[w=" << f.width << "," << f.index0 << "," << f.index1 << "]";
  return os.str();
}

std::string describe(const Pattern& p, const mpz_class& v) {
  std::ostringstream os;
  os << "(";
  for (std::size_t i = 0; i < p.size(); ++i) {
    os << (i ? " " : "");
    if (p[i]) {
      os << p[i]->get_str();
    } else {
      os << "free";
    }
  }
  os << ") = " << v.get_str();
  return os.str();
}

// --- An evaluator independent of the inverter -------------------------------------
// Terms over numerals, evaluated by the test evaluator (machine words, up to
// 64 bits) or, for wider ones, by the term layer's constant folders.

const Symbol* symbol_of(TermManager& mgr, const Operator& f) {
  auto side = [&](std::size_t w) { return w == 0 ? mgr.bool_type() : mgr.bv_type(w); };
  switch (f.op) {
    case Op::Not:
      return mgr.make_not_symbol();
    case Op::And:
      return mgr.make_and_symbol();
    case Op::Or:
      return mgr.make_or_symbol();
    case Op::Iff:
      return mgr.make_iff_symbol();
    case Op::Equal:
      return mgr.make_equal_symbol(side(f.width));
    case Op::Ite:
      return mgr.make_ite_symbol(side(f.width));
    case Op::BVConcat:
      return mgr.make_bv_concat_symbol(f.width, f.index0);
    case Op::BVExtract:
      return mgr.make_bv_extract_symbol(f.index0, f.index1, f.width);
    case Op::BVZeroExtend:
      return mgr.make_bv_zero_extend_symbol(f.index0, f.width);
    case Op::BVSignExtend:
      return mgr.make_bv_sign_extend_symbol(f.index0, f.width);
    case Op::BVRotateLeft:
      return mgr.make_bv_rotate_left_symbol(f.index0, f.width);
    case Op::BVRotateRight:
      return mgr.make_bv_rotate_right_symbol(f.index0, f.width);
    default:
      return mgr.make_bv_symbol(f.op, f.width);
  }
}

class Reference {
 public:
  const Symbol* symbol(const Operator& f) { return symbol_of(mgr_, f); }

  const Term* value(const mpz_class& x, std::size_t w) {
    if (w == 0) return x != 0 ? mgr_.true_term() : mgr_.false_term();
    return mgr_.make_bv_number(QNumber(x), w);
  }

  mpz_class eval(const Operator& f, const std::vector<mpz_class>& args) {
    std::vector<const Term*> terms;
    std::size_t widest = f.result_width();
    for (std::size_t i = 0; i < args.size(); ++i) {
      terms.push_back(value(args[i], f.arg_width(i)));
      widest = std::max(widest, f.arg_width(i));
    }
    const Symbol* s = symbol(f);
    if (widest <= 64) {
      auto r = evaluate(mgr_, store_, mgr_.make_term(s, terms));
      EXPECT_TRUE(r.has_value()) << describe(f);
      return r ? mpz_class(static_cast<unsigned long>(*r)) : mpz_class(-1);
    }
    const Term* r = termsimpl::fold(&mgr_, s, terms);
    if (r == mgr_.true_term()) return 1;
    if (r == mgr_.false_term()) return 0;
    auto n = numeral_value(mgr_, r);
    EXPECT_TRUE(n.has_value()) << describe(f);
    return n ? *n : mpz_class(-1);
  }

 private:
  TermManager mgr_;
  ModelStore store_{&mgr_};
};

std::size_t bits(std::size_t w) {
  return w == 0 ? 1 : w;
}

// --- Conditions, written out independently of the inverter ----------------------------

mpz_class pow2(std::size_t n) {
  return mpz_class(1) << n;
}

mpz_class signed_of(const mpz_class& x, std::size_t w) {
  return x >= pow2(w - 1) ? mpz_class(x - pow2(w)) : x;
}

mpz_class mod(const mpz_class& x, const mpz_class& m) {
  mpz_class r = x % m;
  return r < 0 ? mpz_class(r + m) : r;
}

mpz_class truncated(const mpz_class& a, const mpz_class& b) {
  mpz_class q;
  mpz_tdiv_q(q.get_mpz_t(), a.get_mpz_t(), b.get_mpz_t());
  return q;
}

// Whether no value of the argument at pos makes f equal v, by each
// operator's condition written out independently of the inverter (signed
// division over mathematical integers, quotient ranges rather than witnesses).
bool no_value_exists(Reference& ref, const Operator& f, std::size_t pos,
                     const std::vector<mpz_class>& a, const mpz_class& v) {
  const std::size_t w = f.width;
  const mpz_class top = pow2(w);
  const mpz_class ones = top - 1;
  const mpz_class half = pow2(w == 0 ? 0 : w - 1);
  const mpz_class c = f.arity() == 2 ? a[1 - pos] : mpz_class(0);
  const bool t = v != 0;
  // Shift amounts: every amount from w on acts like w.
  auto no_amount = [&]() {
    for (std::size_t s = 0; s <= w; ++s) {
      if (ref.eval(f, {c, mpz_class(static_cast<unsigned long>(s))}) == v) return false;
    }
    return true;
  };
  auto ctz = [](const mpz_class& x) { return mpz_scan1(x.get_mpz_t(), 0); };
  switch (f.op) {
    case Op::And:
      return t && c == 0;
    case Op::Or:
      return !t && c != 0;
    case Op::Ite:
      if (pos == 0) return v != a[1] && v != a[2];
      return pos == 1 ? a[0] == 0 && a[2] != v : a[0] != 0 && a[1] != v;
    case Op::BVMul:
      return v != 0 && (c == 0 || ctz(v) < ctz(c));
    case Op::BVShl:
      if (pos == 1) return no_amount();
      return c >= w ? v != 0 : mod(v, pow2(c.get_ui())) != 0;
    case Op::BVLshr:
      if (pos == 1) return no_amount();
      return c >= w ? v != 0 : v >= pow2(w - c.get_ui());
    case Op::BVAshr: {
      if (pos == 1) return no_amount();
      if (c >= w) return v != 0 && v != ones;
      const mpz_class top_bits = v >> (w - 1 - c.get_ui());
      return top_bits != 0 && top_bits != pow2(c.get_ui() + 1) - 1;
    }
    case Op::BVUdiv:
      if (pos == 0) return c == 0 ? v != ones : v * c > ones;
      if (v == ones) return false;
      if (v == 0) return c == ones;
      // Some integer lies in (c / (v + 1), c / v].
      return mpz_class(c / v) == mpz_class(c / (v + 1));
    case Op::BVUrem:
      if (pos == 0) return c != 0 && v >= c;
      return v != c && c <= 2 * v;
    case Op::BVSdiv: {
      const mpz_class cs = signed_of(c, w);
      const mpz_class vs = signed_of(v, w);
      if (pos == 0) {
        if (cs == 0) return v != ones && v != 1;
        // trunc(x / c) over x in [-half, half - 1] covers an interval (wrapping at half).
        mpz_class lo = truncated(-half, cs);
        mpz_class hi = truncated(half - 1, cs);
        if (lo > hi) std::swap(lo, hi);
        for (const mpz_class& cand : {vs, mpz_class(vs + top), mpz_class(vs - top)}) {
          if (lo <= cand && cand <= hi) return false;
        }
        return true;
      }
      // x = 0 gives -1 or 1 by c's sign; otherwise trunc(c / x) for each sign of x.
      if (v == (cs >= 0 ? ones : mpz_class(1))) return false;
      const mpz_class n = abs(cs);
      for (int sign : {1, -1}) {
        const mpz_class hi = sign > 0 ? mpz_class(half - 1) : half;
        const mpz_class q = mod(sign * (cs < 0 ? -1 : 1) * vs, top);  // wanted n / |x|
        if (q == 0) {
          if (hi > n) return false;
          continue;
        }
        const mpz_class b = std::min(mpz_class(n / q), hi);
        if (b >= 1 && n / b == q) return false;
      }
      return true;
    }
    case Op::BVSrem: {
      const mpz_class cs = signed_of(c, w);
      if (pos == 0) {
        // The remainder has x's sign and a magnitude below |c|.
        return cs != 0 && abs(signed_of(v, w)) >= abs(cs);
      }
      const mpz_class n = abs(cs);
      const mpz_class r = cs < 0 ? mod(-v, top) : v;
      return r != n && 2 * r >= n;
    }
    case Op::BVAnd:
      return (v & ~c) != 0;
    case Op::BVOr:
      return (c & ~v) != 0;
    case Op::BVUlt:
      return t && c == (pos == 0 ? mpz_class(0) : ones);
    case Op::BVUle:
      return !t && c == (pos == 0 ? ones : mpz_class(0));
    case Op::BVSlt:
      return t && c == (pos == 0 ? half : mpz_class(half - 1));
    case Op::BVSle:
      return !t && c == (pos == 0 ? mpz_class(half - 1) : half);
    case Op::BVConcat:
      return pos == 0 ? mod(v, pow2(f.index0)) != c : (v >> f.index0) != c;
    case Op::BVZeroExtend:
      return v >= top;
    case Op::BVSignExtend: {
      const mpz_class top_bits = v >> (w - 1);
      return top_bits != 0 && top_bits != pow2(f.index0 + 1) - 1;
    }
    default:
      // not, iff, =, comp, add, sub, neg, xor, bvnot, extract, rotations: always solvable.
      return false;
  }
}

// --- Exhaustive agreement with brute force -------------------------------------------

struct Counts {
  std::size_t cases = 0;
  std::size_t solved = 0;
  int failures = 0;
};

// Every value of the known arguments and every v, for one choice of free
// positions (same as for solve): solve answers iff some assignment of the free
// terms gives v, and its answer keeps the known values, gives one term one
// value, and evaluates to v.
void check_exhaustive(Reference& ref, const Operator& f, const std::vector<bool>& is_free,
                      const std::vector<std::size_t>& same, Counts& counts) {
  const std::size_t n = f.arity();
  auto group = [&](std::size_t i) { return same.empty() ? i : same[i]; };
  std::vector<std::size_t> known;
  std::vector<std::size_t> unknown;  // first positions of the free terms
  for (std::size_t i = 0; i < n; ++i) {
    if (!is_free[i]) {
      known.push_back(i);
    } else if (group(i) == i) {
      unknown.push_back(i);
    }
  }
  auto count_of = [&](const std::vector<std::size_t>& positions) {
    std::size_t total = 0;
    for (std::size_t i : positions) total += bits(f.arg_width(i));
    return std::uint64_t{1} << total;
  };
  auto spread = [&](std::uint64_t code, const std::vector<std::size_t>& positions,
                    std::vector<mpz_class>& args) {
    for (std::size_t i : positions) {
      const std::size_t b = bits(f.arg_width(i));
      args[i] = static_cast<unsigned long>(code & mask(b));
      code >>= b;
    }
  };
  const std::uint64_t results = std::uint64_t{1} << bits(f.result_width());
  for (std::uint64_t kc = 0; kc < count_of(known); ++kc) {
    std::vector<mpz_class> args(n);
    spread(kc, known, args);
    std::vector<char> reachable(results, 0);
    for (std::uint64_t fc = 0; fc < count_of(unknown); ++fc) {
      spread(fc, unknown, args);
      for (std::size_t i = 0; i < n; ++i) {
        if (is_free[i]) args[i] = args[group(i)];
      }
      reachable[ref.eval(f, args).get_ui()] = 1;
    }
    Pattern pattern(n);
    for (std::size_t i : known) pattern[i] = args[i];
    for (std::uint64_t vc = 0; vc < results; ++vc) {
      const mpz_class v = static_cast<unsigned long>(vc);
      ++counts.cases;
      auto got = inverse::solve(f, pattern, v, same);
      std::string problem;
      if (got.has_value() != (reachable[vc] != 0)) {
        problem = got ? "answered, but brute force finds no value" : "refused, but a value exists";
      } else if (got) {
        ++counts.solved;
        for (std::size_t i = 0; i < n && problem.empty(); ++i) {
          const mpz_class& x = (*got)[i];
          if (!is_free[i] && x != *pattern[i]) problem = "changed a known value";
          if (is_free[i] && x != (*got)[group(i)]) problem = "split one term";
          if (x < 0 || x >= (mpz_class(1) << bits(f.arg_width(i)))) problem = "out of range";
        }
        if (problem.empty() && ref.eval(f, *got) != v) problem = "answer does not give v";
      }
      // The conditions that confirm refusals at wide widths are checked here.
      if (problem.empty() && unknown.size() == 1 && same.empty() &&
          no_value_exists(ref, f, unknown[0], args, v) == (reachable[vc] != 0)) {
        problem = "the written-out condition disagrees with brute force";
      }
      if (!problem.empty() && ++counts.failures <= 10) {
        ADD_FAILURE() << describe(f) << " " << describe(pattern, v) << ": " << problem;
      }
    }
  }
}

// Fails on any mismatch; the case counts land in the test's XML report.
void finish(const Counts& counts) {
  EXPECT_EQ(counts.failures, 0);
  EXPECT_GT(counts.solved, 0u);
  ::testing::Test::RecordProperty("cases", std::to_string(counts.cases));
  ::testing::Test::RecordProperty("solved", std::to_string(counts.solved));
}

// All patterns of a binary operator: either side free, both free, one term
// on both sides (when the sides have one width).
void check_binary(Reference& ref, const Operator& f, Counts& counts) {
  check_exhaustive(ref, f, {true, false}, {}, counts);
  check_exhaustive(ref, f, {false, true}, {}, counts);
  check_exhaustive(ref, f, {true, true}, {}, counts);
  if (f.arg_width(0) == f.arg_width(1)) check_exhaustive(ref, f, {true, true}, {0, 0}, counts);
}

TEST(InverterExhaustive, BinaryBitVectorOperators) {
  Reference ref;
  Counts counts;
  for (Op op : binary_ops()) {
    for (std::size_t w = 1; w <= 5; ++w) check_binary(ref, bv(op, w), counts);
  }
  finish(counts);
}

TEST(InverterExhaustive, BooleanOperators) {
  Reference ref;
  Counts counts;
  check_exhaustive(ref, boolean_op(Op::Not), {true}, {}, counts);
  for (Op op : {Op::And, Op::Or, Op::Iff, Op::Equal}) check_binary(ref, boolean_op(op), counts);
  finish(counts);
}

TEST(InverterExhaustive, UnaryBitVectorOperators) {
  Reference ref;
  Counts counts;
  for (std::size_t w = 1; w <= 5; ++w) {
    check_exhaustive(ref, bv(Op::BVNeg, w), {true}, {}, counts);
    check_exhaustive(ref, bv(Op::BVNot, w), {true}, {}, counts);
  }
  finish(counts);
}

// Every pattern of free positions and every sharing among them.
void check_ite(Reference& ref, std::size_t w, Counts& counts) {
  const Operator f{Op::Ite, w, 0, 0};
  for (unsigned mask_bits = 1; mask_bits < 8; ++mask_bits) {
    std::vector<bool> is_free{(mask_bits & 1) != 0, (mask_bits & 2) != 0, (mask_bits & 4) != 0};
    check_exhaustive(ref, f, is_free, {}, counts);
  }
  // The branches as one term, with the condition free or known.
  check_exhaustive(ref, f, {false, true, true}, {0, 1, 1}, counts);
  check_exhaustive(ref, f, {true, true, true}, {0, 1, 1}, counts);
  if (w != 0) return;
  // Boolean branches can share the condition's term.
  check_exhaustive(ref, f, {true, true, false}, {0, 0, 2}, counts);
  check_exhaustive(ref, f, {true, false, true}, {0, 1, 0}, counts);
  check_exhaustive(ref, f, {true, true, true}, {0, 0, 2}, counts);
  check_exhaustive(ref, f, {true, true, true}, {0, 1, 0}, counts);
  check_exhaustive(ref, f, {true, true, true}, {0, 0, 0}, counts);
}

TEST(InverterExhaustive, Ite) {
  Reference ref;
  Counts counts;
  for (std::size_t w = 0; w <= 4; ++w) check_ite(ref, w, counts);
  finish(counts);
}

TEST(InverterExhaustive, ConcatSplits) {
  Reference ref;
  Counts counts;
  for (std::size_t high = 1; high <= 4; ++high) {
    for (std::size_t low = 1; low <= 4; ++low) check_binary(ref, concat(high, low), counts);
  }
  finish(counts);
}

TEST(InverterExhaustive, ExtractExtendRotate) {
  Reference ref;
  Counts counts;
  for (std::size_t w = 1; w <= 4; ++w) {
    for (std::size_t msb = 0; msb < w; ++msb) {
      for (std::size_t lsb = 0; lsb <= msb; ++lsb) {
        check_exhaustive(ref, extract(msb, lsb, w), {true}, {}, counts);
      }
    }
    for (std::size_t k = 0; k <= 3; ++k) {
      check_exhaustive(ref, indexed(Op::BVZeroExtend, k, w), {true}, {}, counts);
      check_exhaustive(ref, indexed(Op::BVSignExtend, k, w), {true}, {}, counts);
    }
    for (std::size_t k = 0; k <= 2 * w; ++k) {
      check_exhaustive(ref, indexed(Op::BVRotateLeft, k, w), {true}, {}, counts);
      check_exhaustive(ref, indexed(Op::BVRotateRight, k, w), {true}, {}, counts);
    }
  }
  finish(counts);
}

// The inverter's own evaluation agrees with the reference, so that its
// internal checks mean what they should.
TEST(InverterExhaustive, EvaluationAgreesWithReference) {
  Reference ref;
  int failures = 0;
  for (Op op : binary_ops()) {
    for (std::size_t w = 1; w <= 4; ++w) {
      const Operator f = bv(op, w);
      for (unsigned long a = 0; a < (1ul << w); ++a) {
        for (unsigned long b = 0; b < (1ul << w); ++b) {
          const std::vector<mpz_class> args{a, b};
          if (inverse::evaluate(f, args) != ref.eval(f, args) && ++failures <= 10) {
            ADD_FAILURE() << describe(f) << " " << a << " " << b;
          }
        }
      }
    }
  }
  EXPECT_EQ(failures, 0);
}

// x * x = v is decided through square roots modulo powers of two; all of
// 16 bits against the squares counted with machine words.
TEST(InverterExhaustive, SquaresAtSixteenBits) {
  for (std::size_t w : {7u, 12u, 16u}) {
    const std::uint64_t m = mask(w);
    std::vector<char> square(m + 1, 0);
    for (std::uint64_t x = 0; x <= m; ++x) square[(x * x) & m] = 1;
    int failures = 0;
    for (std::uint64_t v = 0; v <= m; ++v) {
      auto got = inverse::solve(bv(Op::BVMul, w), Pattern{std::nullopt, std::nullopt},
                                mpz_class(static_cast<unsigned long>(v)), {0, 0});
      bool ok = got.has_value() == (square[v] != 0);
      if (ok && got) {
        const std::uint64_t x = (*got)[0].get_ui();
        ok = ((x * x) & m) == v;
      }
      if (!ok && ++failures <= 10) ADD_FAILURE() << "w=" << w << " v=" << v;
    }
    EXPECT_EQ(failures, 0);
  }
}

// --- Free constants nested inside arguments, exhaustively -----------------------------
// Through a model store: x (and y) free, k valued, and the free constants also
// inside an argument: before their own position, after it, in several
// arguments, or only there. Brute force over the free constants with the test
// evaluator is the judge: the inverter answers exactly when some assignment
// gives v, then records one value per free constant (which replaces the
// default classification gave it) and t normalises to v.

struct NestedCase {
  const Term* t;
  std::vector<const Term*> free;  // the free constants in t
};

using Known = std::vector<std::pair<const Term*, const Term*>>;

const Term* value_of_width(TermManager& mgr, std::uint64_t x, std::size_t width) {
  if (width == 0) return x != 0 ? mgr.true_term() : mgr.false_term();
  return mgr.make_bv_number(QNumber(static_cast<long>(x)), width);
}

// Whether some assignment of the free constants gives each value of t, by
// brute force over them.
std::vector<char> reachable_values(TermManager& mgr, const NestedCase& c, const Known& known) {
  std::ostringstream sink;
  ModelStore judge(&mgr, &sink);
  for (const auto& [constant, value] : known) judge.set_value(constant, value);
  std::size_t total = 0;
  for (const Term* x : c.free) total += bits(width_of(mgr, x));
  std::vector<char> reachable(std::size_t{1} << bits(width_of(mgr, c.t)), 0);
  for (std::uint64_t code = 0; code < (std::uint64_t{1} << total); ++code) {
    std::uint64_t rest = code;
    for (const Term* x : c.free) {
      const std::size_t w = width_of(mgr, x);
      judge.set_value(x, value_of_width(mgr, rest & mask(bits(w)), w));
      rest >>= bits(w);
    }
    auto r = evaluate(mgr, judge, c.t);
    EXPECT_TRUE(r.has_value()) << c.t->to_shallow_str();
    if (r) reachable[*r] = 1;
  }
  return reachable;
}

// One case for every v, each in a fresh store holding the known values.
void check_nested(TermManager& mgr, SetFreeTermPredicate& pred, const NestedCase& c,
                  const Known& known, Counts& counts) {
  const std::vector<char> reachable = reachable_values(mgr, c, known);
  std::ostringstream sink;
  for (std::uint64_t vc = 0; vc < reachable.size(); ++vc) {
    ++counts.cases;
    ModelStore store(&mgr, &sink);
    for (const auto& [constant, value] : known) store.set_value(constant, value);
    const Term* v = value_of_width(mgr, vc, width_of(mgr, c.t));
    std::string error;
    try {
      Inverter(&mgr, &store, &pred)(c.t, v);
    } catch (const adhoccalculator::AdHocCalculator::error& e) {
      error = e.what();
    }
    std::string problem;
    if (!reachable[vc]) {
      if (error != inverse::kNoValueMessage)
        problem = "answered '" + error + "' where no value exists";
    } else if (!error.empty()) {
      problem = "refused '" + error + "' where a value exists";
    } else if (store.get_normalized(c.t) != v) {
      problem = "the recorded values do not give v";
    } else if (store.constraints().size() != c.free.size()) {
      problem = "not one record per free constant";
    } else {
      ++counts.solved;
      for (std::size_t i = 0; i < c.free.size() && problem.empty(); ++i) {
        const Term* recorded = store.constraints()[i];
        if (recorded->arg(0) != c.free[i] || store.value_of(c.free[i]) != recorded->arg(1)) {
          problem = "the model keeps a value other than the one recorded";
        }
      }
    }
    if (!problem.empty() && ++counts.failures <= 10) {
      std::string where = c.t->to_shallow_str();
      for (const auto& [constant, value] : known) {
        where += " " + constant->to_shallow_str() + " := " + value->to_shallow_str();
      }
      ADD_FAILURE() << where << ", v = " << v->to_shallow_str() << ": " << problem;
    }
  }
}

TEST(InverterExhaustive, FreeConstantsNestedInArguments) {
  Counts counts;
  for (std::size_t w = 1; w <= 4; ++w) {
    TermManager mgr;
    SetFreeTermPredicate pred;
    const DataType* type = mgr.bv_type(w);
    const Term* x = mgr.make_constant("x", type);
    const Term* y = mgr.make_constant("y", type);
    const Term* k = mgr.make_constant("k", type);
    pred.mark_free(x);
    pred.mark_free(y);
    auto app = [&](Op op, const Term* a, const Term* b) {
      return mgr.make_term(mgr.make_bv_symbol(op, w), {a, b});
    };
    const Term* not_x = mgr.make_term(mgr.make_bv_not_symbol(w), {x});
    const Term* mul_x = app(Op::BVMul, x, k);
    const Term* shift_x = app(Op::BVLshr, k, x);
    for (Op op : binary_ops()) {
      const Symbol* f = symbol_of(mgr, bv(op, w));
      auto top = [&](const Term* a, const Term* b) { return mgr.make_term(f, {a, b}); };
      const std::vector<NestedCase> cases{
          // earlier
          {top(not_x, x), {x}},
          {top(mul_x, x), {x}},
          {top(shift_x, x), {x}},
          // later
          {top(x, not_x), {x}},
          {top(x, mul_x), {x}},
          {top(x, shift_x), {x}},
          // several arguments
          {top(not_x, mul_x), {x}},
          {top(shift_x, not_x), {x}},
          // only nested
          {top(mul_x, k), {x}},
          {top(k, shift_x), {x}},
          // several constants
          {top(app(Op::BVAdd, x, y), app(Op::BVMul, y, k)), {x, y}},
          {top(y, app(Op::BVSub, x, y)), {y, x}},
      };
      for (std::uint64_t kv = 0; kv <= mask(w); ++kv) {
        const Known known{{k, value_of_width(mgr, kv, w)}};
        for (const NestedCase& c : cases) check_nested(mgr, pred, c, known, counts);
      }
    }
  }
  finish(counts);
}

// A free Boolean inside conditions and connectives, with branches of width 1 to 4.
TEST(InverterExhaustive, BooleanConstantsNestedInArguments) {
  Counts counts;
  for (std::size_t w = 1; w <= 4; ++w) {
    TermManager mgr;
    SetFreeTermPredicate pred;
    const Term* p = mgr.make_constant("p", mgr.bool_type());
    const Term* q = mgr.make_constant("q", mgr.bool_type());
    const Term* a = mgr.make_constant("a", mgr.bv_type(w));
    const Term* b = mgr.make_constant("b", mgr.bv_type(w));
    pred.mark_free(p);
    const Term* not_p = mgr.make_not(p);
    const std::vector<NestedCase> cases{
        {mgr.make_ite(p, a, mgr.make_ite(not_p, b, a)), {p}},
        {mgr.make_ite(mgr.make_and(q, not_p), a, mgr.make_ite(p, b, a)), {p}},
        {mgr.make_equal(mgr.make_ite(p, a, b), mgr.make_ite(not_p, a, b)), {p}},
        {mgr.make_or(mgr.make_and(not_p, q), p), {p}},
        {mgr.make_iff(mgr.make_or(q, p), p), {p}},
        {mgr.make_ite(mgr.make_equal(a, b), mgr.make_ite(p, a, b), a), {p}},
    };
    for (std::uint64_t av = 0; av <= mask(w); ++av) {
      for (std::uint64_t bv = 0; bv <= mask(w); ++bv) {
        for (std::uint64_t qv = 0; qv <= 1; ++qv) {
          const Known known{{a, value_of_width(mgr, av, w)},
                            {b, value_of_width(mgr, bv, w)},
                            {q, value_of_width(mgr, qv, 0)}};
          for (const NestedCase& c : cases) check_nested(mgr, pred, c, known, counts);
        }
      }
    }
  }
  finish(counts);
}

// --- Random checks at wide widths ------------------------------------------------------

class Random {
 public:
  explicit Random(std::uint64_t seed) : pick_(seed), gmp_(gmp_randinit_default) {
    gmp_.seed(static_cast<unsigned long>(seed));
  }

  std::uint64_t below(std::uint64_t n) { return pick_() % n; }

  // Mostly uniform, with the edges that the conditions turn on mixed in.
  mpz_class value(std::size_t w) {
    if (w == 0) return static_cast<unsigned long>(below(2));
    const mpz_class top = mpz_class(1) << w;
    switch (below(10)) {
      case 0:
        return 0;
      case 1:
        return top - 1;
      case 2:
        return top / 2;
      case 3:
        return top / 2 - 1;
      case 4:
        return static_cast<unsigned long>(below(w + 3)) % top;
      case 5:
        return (gmp_.get_z_bits(w) << below(w)) % top;
      case 6:
        return gmp_.get_z_bits(below(w) + 1);
      default:
        return gmp_.get_z_bits(w);
    }
  }

 private:
  std::mt19937_64 pick_;
  gmp_randclass gmp_;
};

struct RandomCounts {
  std::size_t solved = 0;
  std::size_t refused = 0;
  int failures = 0;
};

void fail_random(RandomCounts& counts, const std::string& what) {
  if (++counts.failures <= 10) ADD_FAILURE() << what;
}

// Random known values, one free position: v reached from a random x must be
// answered; a random v must be answered correctly or refused by the condition.
void check_random_single(Reference& ref, Random& rnd, const Operator& f, std::size_t rounds,
                         RandomCounts& counts) {
  const std::size_t n = f.arity();
  for (std::size_t pos = 0; pos < n; ++pos) {
    for (std::size_t round = 0; round < rounds; ++round) {
      std::vector<mpz_class> args(n);
      for (std::size_t i = 0; i < n; ++i) args[i] = rnd.value(f.arg_width(i));
      const bool reached = round % 2 == 0;
      const mpz_class v = reached ? ref.eval(f, args) : rnd.value(f.result_width());
      auto got = inverse::solve(f, pos, args, v);
      Pattern pattern(args.begin(), args.end());
      pattern[pos].reset();
      const std::string where = describe(f) + " " + describe(pattern, v);
      if (got.has_value() == no_value_exists(ref, f, pos, args, v)) {
        fail_random(counts, where + ": the written-out condition disagrees");
      }
      if (!got) {
        ++counts.refused;
        if (reached) fail_random(counts, where + ": refused a reachable value");
        continue;
      }
      ++counts.solved;
      args[pos] = *got;
      if (*got < 0 || *got >= pow2(bits(f.arg_width(pos))) || ref.eval(f, args) != v) {
        fail_random(counts, where + ": answer " + got->get_str() + " does not give v");
      }
    }
  }
}

// Both sides free (never refused) and one term on both sides (answered when
// v comes from some x).
void check_random_pairs(Reference& ref, Random& rnd, const Operator& f, std::size_t rounds,
                        RandomCounts& counts) {
  for (std::size_t round = 0; round < rounds; ++round) {
    const mpz_class v = rnd.value(f.result_width());
    auto both = inverse::solve(f, Pattern(2), v);
    if (!both || ref.eval(f, *both) != v) {
      fail_random(counts, describe(f) + " both free = " + v.get_str());
    }
    if (f.arg_width(0) != f.arg_width(1)) continue;
    const mpz_class x = rnd.value(f.arg_width(0));
    const mpz_class reached = ref.eval(f, {x, x});
    auto shared = inverse::solve(f, Pattern(2), reached, {0, 0});
    if (!shared || (*shared)[0] != (*shared)[1] || ref.eval(f, *shared) != reached) {
      fail_random(counts, describe(f) + " one term twice = " + reached.get_str());
    }
    // Where the result does not depend on x, a refusal is confirmed by v.
    const mpz_class other = rnd.value(f.result_width());
    auto any = inverse::solve(f, Pattern(2), other, {0, 0});
    if (any) {
      if (ref.eval(f, *any) != other) fail_random(counts, describe(f) + " shared answer");
    } else if (f.op == Op::BVSub || f.op == Op::BVXor || f.op == Op::BVUrem || f.op == Op::BVSrem) {
      if (other == 0) fail_random(counts, describe(f) + " shared refusal of 0");
    } else if (f.op == Op::BVAdd) {
      if (mpz_even_p(other.get_mpz_t())) fail_random(counts, describe(f) + " 2x refusal");
    }
  }
}

void check_random_width(std::size_t w, std::size_t rounds, std::uint64_t seed) {
  Reference ref;
  Random rnd(test_seed(seed));
  RandomCounts counts;
  for (Op op : binary_ops()) {
    const Operator f = bv(op, w);
    check_random_single(ref, rnd, f, rounds, counts);
    check_random_pairs(ref, rnd, f, rounds / 4, counts);
  }
  for (Op op : {Op::BVNeg, Op::BVNot}) check_random_single(ref, rnd, bv(op, w), rounds, counts);
  check_random_single(ref, rnd, Operator{Op::Ite, w, 0, 0}, rounds, counts);
  for (std::size_t round = 0; round < rounds / 8; ++round) {
    const std::size_t high = 1 + rnd.below(w);
    const Operator cat = concat(high, w + 1 - high);
    check_random_single(ref, rnd, cat, 4, counts);
    check_random_pairs(ref, rnd, cat, 1, counts);
    const std::size_t msb = rnd.below(w);
    check_random_single(ref, rnd, extract(msb, rnd.below(msb + 1), w), 4, counts);
    const std::size_t k = rnd.below(2 * w + 2);
    check_random_single(ref, rnd, indexed(Op::BVZeroExtend, k, w), 4, counts);
    check_random_single(ref, rnd, indexed(Op::BVSignExtend, k, w), 4, counts);
    check_random_single(ref, rnd, indexed(Op::BVRotateLeft, k, w), 4, counts);
    check_random_single(ref, rnd, indexed(Op::BVRotateRight, k, w), 4, counts);
  }
  EXPECT_EQ(counts.failures, 0);
  EXPECT_GT(counts.solved, 0u);
  EXPECT_GT(counts.refused, 0u);
}

TEST(InverterRandom, Width16) {
  check_random_width(16, 1000, 16);
}
TEST(InverterRandom, Width64) {
  check_random_width(64, 1000, 64);
}
TEST(InverterRandom, Width65) {
  check_random_width(65, 1000, 65);
}
TEST(InverterRandom, Width128) {
  check_random_width(128, 1000, 128);
}

// Widths of thousands of bits stay exact (no machine-word shortcuts).
TEST(InverterRandom, Width3000) {
  Reference ref;
  Random rnd(test_seed(3000));
  RandomCounts counts;
  for (Op op : {Op::BVMul, Op::BVShl, Op::BVAshr, Op::BVUdiv, Op::BVSdiv, Op::BVSrem, Op::BVSlt}) {
    check_random_single(ref, rnd, bv(op, 3000), 6, counts);
  }
  const mpz_class x = rnd.value(3000);
  const Operator square = bv(Op::BVMul, 3000);
  auto root = inverse::solve(square, Pattern(2), ref.eval(square, {x, x}), {0, 0});
  ASSERT_TRUE(root.has_value());
  EXPECT_EQ(ref.eval(square, *root), ref.eval(square, {x, x}));
  EXPECT_EQ(counts.failures, 0);
}

// --- The widest widths -------------------------------------------------------------------
// Square roots, shift amounts and shifts by the shifted value itself at 2^20
// bits, read off the values rather than searched.

constexpr std::size_t kWidest = std::size_t{1} << 20;

mpz_class widest_ones() {
  return pow2(kWidest) - 1;
}

TEST(InverterWidest, SquareRoots) {
  const Operator f = bv(Op::BVMul, kWidest);
  const Pattern both{std::nullopt, std::nullopt};
  // 9, an odd number that is 1 mod 8 with a dense root, and an even square.
  mpz_class dense = widest_ones() / 3;  // 0101...01
  const mpz_class dense_square = (dense * dense) % pow2(kWidest);
  for (const mpz_class& v : {mpz_class(9), dense_square, mpz_class(mpz_class(49) << 4000)}) {
    auto got = inverse::solve(f, both, v, {0, 0});
    ASSERT_TRUE(got.has_value());
    const mpz_class& x = (*got)[0];
    EXPECT_EQ(mpz_class((x * x) % pow2(kWidest)), v);
  }
  // Odd numbers that are not 1 mod 8 and odd powers of two have no root.
  EXPECT_FALSE(inverse::solve(f, both, mpz_class(3), {0, 0}).has_value());
  EXPECT_FALSE(inverse::solve(f, both, mpz_class(mpz_class(9) << 5), {0, 0}).has_value());
}

TEST(InverterWidest, ShiftAmounts) {
  const mpz_class ones = widest_ones();
  const Values shifted{ones, 0};
  // ones << s = v: s from the trailing zeros of v; 3 is no shift of ones.
  EXPECT_FALSE(inverse::solve(bv(Op::BVShl, kWidest), 1, shifted, 3).has_value());
  auto s = inverse::solve(bv(Op::BVShl, kWidest), 1, shifted, mpz_class((ones << 12345) & ones));
  ASSERT_TRUE(s.has_value());
  EXPECT_EQ(*s, 12345);
  // The first amount that shifts everything out is the width itself.
  EXPECT_EQ(inverse::solve(bv(Op::BVShl, kWidest), 1, shifted, 0), mpz_class(kWidest));
  // ones >> s and the sign fill of ones >>a s, from the leading bits.
  EXPECT_EQ(inverse::solve(bv(Op::BVLshr, kWidest), 1, shifted, 3), mpz_class(kWidest - 2));
  EXPECT_FALSE(inverse::solve(bv(Op::BVLshr, kWidest), 1, shifted, 5).has_value());
  EXPECT_EQ(inverse::solve(bv(Op::BVLshr, kWidest), 1, shifted, mpz_class(ones >> 777)),
            mpz_class(777));
  const Values negative{mpz_class(ones - 5), 0};  // ...1010 >>a 1 = ...1101
  EXPECT_EQ(inverse::solve(bv(Op::BVAshr, kWidest), 1, negative, mpz_class(ones - 2)),
            mpz_class(1));
  EXPECT_EQ(inverse::solve(bv(Op::BVAshr, kWidest), 1, negative, ones), mpz_class(3));
  EXPECT_FALSE(inverse::solve(bv(Op::BVAshr, kWidest), 1, negative, 0).has_value());
}

TEST(InverterWidest, ShiftByItself) {
  const Pattern both{std::nullopt, std::nullopt};
  const std::vector<std::size_t> same{0, 0};
  // x << x = 3 has no x: the answer is decided, not searched.
  EXPECT_FALSE(inverse::solve(bv(Op::BVShl, kWidest), both, 3, same).has_value());
  auto got = inverse::solve(bv(Op::BVShl, kWidest), both, mpz_class(mpz_class(1000) << 1000), same);
  ASSERT_TRUE(got.has_value());
  EXPECT_EQ((*got)[0], 1000);
  EXPECT_FALSE(inverse::solve(bv(Op::BVLshr, kWidest), both, 1, same).has_value());
  EXPECT_EQ(inverse::solve(bv(Op::BVLshr, kWidest), both, 0, same), Values({0, 0}));
  auto fill = inverse::solve(bv(Op::BVAshr, kWidest), both, widest_ones(), same);
  ASSERT_TRUE(fill.has_value());
  EXPECT_EQ(inverse::evaluate(bv(Op::BVAshr, kWidest), *fill), widest_ones());
  EXPECT_FALSE(inverse::solve(bv(Op::BVAshr, kWidest), both, 5, same).has_value());
}

// --- Named cases of the pure layer -------------------------------------------------------

TEST(InverterSolve, DocumentedChoices) {
  // x * 12 = 40 at 8 bits: 12 = 4 * 3, x = 10 * inv(3) mod 64 = 10 * 43 mod 64 = 46.
  EXPECT_EQ(inverse::solve(bv(Op::BVMul, 8), 0, {0, 12}, 40), mpz_class(46));
  EXPECT_FALSE(inverse::solve(bv(Op::BVMul, 8), 0, {0, 12}, 42).has_value());
  EXPECT_EQ(inverse::solve(bv(Op::BVMul, 8), 1, {0, 0}, 0), mpz_class(0));
  // Division by zero: udiv gives all ones, urem the dividend.
  EXPECT_EQ(inverse::solve(bv(Op::BVUdiv, 8), 1, {7, 0}, 255), mpz_class(0));
  EXPECT_EQ(inverse::solve(bv(Op::BVUrem, 8), 1, {7, 0}, 7), mpz_class(0));
  EXPECT_EQ(inverse::solve(bv(Op::BVUrem, 8), 1, {100, 0}, 4), mpz_class(96));
  // The shift amount: the first that works; past the width every amount is alike.
  EXPECT_EQ(inverse::solve(bv(Op::BVShl, 8), 1, {3, 0}, 24), mpz_class(3));
  EXPECT_EQ(inverse::solve(bv(Op::BVLshr, 8), 1, {3, 0}, 0), mpz_class(2));
  EXPECT_EQ(inverse::solve(bv(Op::BVAshr, 8), 1, {128, 0}, 255), mpz_class(7));
  // Comparisons pick the value next to the known side.
  EXPECT_EQ(inverse::solve(bv(Op::BVUlt, 8), 0, {0, 10}, 1), mpz_class(9));
  EXPECT_FALSE(inverse::solve(bv(Op::BVUlt, 8), 0, {0, 0}, 1).has_value());
  EXPECT_FALSE(inverse::solve(bv(Op::BVSlt, 8), 0, {0, 128}, 1).has_value());
  EXPECT_EQ(inverse::solve(bv(Op::BVSle, 8), 1, {127, 0}, 0), mpz_class(126));
  // Both free: the second side is neutral.
  auto both = inverse::solve(bv(Op::BVMul, 8), Pattern(2), 77);
  ASSERT_TRUE(both.has_value());
  EXPECT_EQ((*both)[0], 77);
  EXPECT_EQ((*both)[1], 1);
}

TEST(InverterSolve, RejectsMalformedRequests) {
  EXPECT_THROW(inverse::solve(bv(Op::BVAdd, 8), 0, {1}, 1), std::invalid_argument);
  EXPECT_THROW(inverse::solve(bv(Op::BVAdd, 8), Pattern(2), 1, {1, 1}), std::invalid_argument);
  EXPECT_THROW(inverse::solve(Operator{Op::Constant, 0, 0, 0}, Pattern{}, 1),
               std::invalid_argument);
  EXPECT_THROW(inverse::solve(bv(Op::BVAdd, 0), 0, {0, 0}, 0), std::invalid_argument);
  EXPECT_THROW(inverse::solve(extract(4, 2, 4), 0, {0}, 0), std::invalid_argument);
}

// --- The Inverter on a model store ----------------------------------------------------------

// The shared calculator fixture, with the inverter in the calculator's place.
class InverterTest : public CalculatorTest {
 protected:
  const Term* bvc(const std::string& name, std::size_t w) { return bv(name, w); }
  const Term* boolc(const std::string& name) { return boolean(name); }
  const Term* num(const mpz_class& x, std::size_t w) { return mgr.make_bv_number(QNumber(x), w); }
  // Runs the inverter; returns the error text, or "" when it did not throw.
  std::string run(const Term* t, const Term* v) { return CalculatorTest::run<Inverter>(t, v); }
  // The operator builder of this file, hidden by the fixture's bv(name, w).
  static Operator bv(Op op, std::size_t w) { return test::bv(op, w); }
  using CalculatorTest::bv;
};

TEST_F(InverterTest, RecordsLikeTheCalculators) {
  const Term* x = free(bvc("x", 8));
  const Term* y = valued(bvc("y", 8), num(200, 8));
  const Term* t = mgr.make_term(mgr.make_bv_add_symbol(8), {x, y});
  EXPECT_EQ(run(t, num(100, 8)), "");
  EXPECT_EQ(constraints(), "((= x #x9c))");
  EXPECT_EQ(log.str(), "calculated adhoc x := #x9c ..\n");
  EXPECT_EQ(store.get_normalized(t), num(100, 8));
}

TEST_F(InverterTest, BooleanValuesGoToAdhocValues) {
  const Term* p = free(boolc("p"));
  const Term* q = free(boolc("q"));
  EXPECT_EQ(run(mgr.make_and(p, q), mgr.true_term()), "");
  EXPECT_EQ(constraints(), "((= p true) (= q true))");
  ASSERT_EQ(store.adhoc_values.size(), 2u);
  ASSERT_NE(store.adhoc_values.find(p), store.adhoc_values.end());
  EXPECT_EQ(store.adhoc_values.find(p)->second, mgr.true_term());
  EXPECT_EQ(store.get_normalized(mgr.make_and(p, q)), mgr.true_term());
}

TEST_F(InverterTest, NoValueRecordsNothing) {
  const Term* x = free(bvc("x", 8));
  const Term* c = valued(bvc("c", 8), num(12, 8));
  const Term* t = mgr.make_term(mgr.make_bv_mul_symbol(8), {x, c});
  EXPECT_EQ(run(t, num(42, 8)), inverse::kNoValueMessage);
  EXPECT_EQ(constraints(), "()");
  EXPECT_THROW(Inverter(&mgr, &store, &pred)(t, num(42, 8)), NoValue);
  EXPECT_EQ(run(t, num(40, 8)), "");
  EXPECT_EQ(store.get_normalized(t), num(40, 8));
}

TEST_F(InverterTest, BothFreeAndOneTermTwice) {
  const Term* x = free(bvc("x", 8));
  const Term* y = free(bvc("y", 8));
  const Term* t = mgr.make_term(mgr.make_bv_udiv_symbol(8), {x, y});
  EXPECT_EQ(run(t, num(77, 8)), "");
  EXPECT_EQ(constraints(), "((= x #x4d) (= y #x01))");
  EXPECT_EQ(store.get_normalized(t), num(77, 8));

  const Term* z = free(bvc("z", 8));
  const Term* twice = mgr.make_term(mgr.make_bv_add_symbol(8), {z, z});
  EXPECT_EQ(run(twice, num(5, 8)), inverse::kNoValueMessage);
  EXPECT_EQ(run(twice, num(6, 8)), "");
  EXPECT_EQ(store.constraints().back()->to_shallow_str(), "(= z #x03)");
  EXPECT_EQ(store.constraints().size(), 3u);  // one record for the one term
  EXPECT_EQ(store.get_normalized(twice), num(6, 8));

  const Term* s = free(bvc("s", 16));
  const Term* square = mgr.make_term(mgr.make_bv_mul_symbol(16), {s, s});
  EXPECT_EQ(run(square, num(9 * 1024, 16)), "");
  EXPECT_EQ(store.get_normalized(square), num(9 * 1024, 16));
}

TEST_F(InverterTest, NothingFree) {
  const Term* x = valued(bvc("x", 8), num(3, 8));
  const Term* t = mgr.make_term(mgr.make_bv_neg_symbol(8), {x});
  EXPECT_EQ(run(t, num(253, 8)), "");
  EXPECT_EQ(constraints(), "()");
  EXPECT_EQ(run(t, num(3, 8)), inverse::kNoValueMessage);
}

TEST_F(InverterTest, DefaultedArgumentsCountAsKnown) {
  const Term* x = free(bvc("x", 8));
  const Term* y = bvc("y", 8);  // neither valued nor free: defaulted to 0
  const Term* t = mgr.make_term(mgr.make_bv_sub_symbol(8), {x, y});
  EXPECT_EQ(run(t, num(5, 8)), "");
  EXPECT_EQ(constraints(), "((= x #x05))");
  EXPECT_EQ(store.value_of(y), num(0, 8));
}

TEST_F(InverterTest, RequiredValueIsNormalised) {
  const Term* x = free(bvc("x", 8));
  const Term* t = mgr.make_term(mgr.make_bv_not_symbol(8), {x});
  const Term* k = valued(bvc("k", 8), num(15, 8));
  EXPECT_EQ(run(t, k), "");
  EXPECT_EQ(constraints(), "((= x #xf0))");
  EXPECT_EQ(run(t, bvc("unknown", 8)), inverse::kNotAValueMessage);
}

TEST_F(InverterTest, FreeConstantInsideALaterArgument) {
  const Term* x = free(bvc("x", 8));
  const Term* y = valued(bvc("y", 8), num(3, 8));
  // x + x * y = 4x: classifying x * y gives x its default first.
  const Term* t = mgr.make_term(mgr.make_bv_add_symbol(8),
                                {x, mgr.make_term(mgr.make_bv_mul_symbol(8), {x, y})});
  EXPECT_EQ(run(t, num(8, 8)), "");
  EXPECT_EQ(constraints(), "((= x #x02))");
  EXPECT_EQ(store.get_normalized(t), num(8, 8));

  const Term* z = free(bvc("z", 8));
  const Term* u4 = mgr.make_term(mgr.make_bv_add_symbol(8),
                                 {z, mgr.make_term(mgr.make_bv_mul_symbol(8), {z, y})});
  EXPECT_EQ(run(u4, num(2, 8)), inverse::kNoValueMessage);
  // The default that classification gave z stays, so z is no longer free.
  EXPECT_EQ(store.value_of(z), num(0, 8));
  EXPECT_EQ(run(u4, num(8, 8)), inverse::kNoValueMessage);

  const Term* wide = free(bvc("wide", 32));
  const Term* u = mgr.make_term(mgr.make_bv_add_symbol(32),
                                {wide, mgr.make_term(mgr.make_bv_neg_symbol(32), {wide})});
  EXPECT_EQ(run(u, num(0, 32)), inverse::kTooWideMessage);
}

TEST_F(InverterTest, FreeConstantInsideAnEarlierArgument) {
  // Classifying ~x gives x its default before x's own position is read.
  const Term* x = free(bvc("x", 4));
  const Term* t =
      mgr.make_term(mgr.make_bv_sub_symbol(4), {mgr.make_term(mgr.make_bv_not_symbol(4), {x}), x});
  EXPECT_EQ(run(t, num(1, 4)), "");
  EXPECT_EQ(constraints(), "((= x #x7))");
  EXPECT_EQ(store.value_of(x), num(7, 4));
  EXPECT_EQ(store.get_normalized(t), num(1, 4));

  const Term* y = free(bvc("y", 8));
  const Term* u = mgr.make_term(mgr.make_bv_add_symbol(8),
                                {mgr.make_term(mgr.make_bv_mul_symbol(8), {y, num(3, 8)}), y});
  EXPECT_EQ(run(u, num(100, 8)), "");
  EXPECT_EQ(store.value_of(y), num(25, 8));
  EXPECT_EQ(store.get_normalized(u), num(100, 8));
}

TEST_F(InverterTest, FreeConstantOnlyInsideArguments) {
  // x has no position of its own; its value is searched and recorded all the same.
  const Term* x = free(bvc("x", 8));
  const Term* t =
      mgr.make_term(mgr.make_bv_add_symbol(8),
                    {mgr.make_term(mgr.make_bv_mul_symbol(8), {x, num(3, 8)}), num(1, 8)});
  EXPECT_EQ(run(t, num(10, 8)), "");
  EXPECT_EQ(constraints(), "((= x #x03))");
  EXPECT_EQ(run(t, num(10, 8)), "");  // now valued: nothing to record
  EXPECT_EQ(constraints(), "((= x #x03))");

  // Several constants, in several arguments: recorded in order of first occurrence.
  const Term* a = free(bvc("a", 4));
  const Term* b = free(bvc("b", 4));
  const Term* u =
      mgr.make_term(mgr.make_bv_xor_symbol(4), {mgr.make_term(mgr.make_bv_shl_symbol(4), {b, a}),
                                                mgr.make_term(mgr.make_bv_sub_symbol(4), {a, b})});
  EXPECT_EQ(run(u, num(9, 4)), "");
  EXPECT_EQ(store.get_normalized(u), num(9, 4));
  ASSERT_EQ(store.constraints().size(), 3u);
  EXPECT_EQ(store.constraints()[1]->arg(0), b);
  EXPECT_EQ(store.constraints()[2]->arg(0), a);
}

TEST_F(InverterTest, FreeBooleanWithBranchesOfADeclaredSort) {
  const DataType* sort = mgr.sort_type("U");
  const Term* f = free(boolc("f"));
  const Term* a = valued(mgr.make_constant("a", sort), mgr.make_abstract_value(0, sort));
  const Term* b = valued(mgr.make_constant("b", sort), mgr.make_abstract_value(1, sort));
  const Term* t = mgr.make_ite(f, a, mgr.make_ite(mgr.make_not(f), b, a));
  EXPECT_EQ(run(t, mgr.make_abstract_value(1, sort)), "");
  EXPECT_EQ(constraints(), "((= f false))");
  EXPECT_EQ(store.get_normalized(t), mgr.make_abstract_value(1, sort));
  EXPECT_EQ(run(t, mgr.make_abstract_value(2, sort)), inverse::kNoValueMessage);

  // An equality over the sort decides the condition; the other side stays free.
  const Term* g = free(boolc("g"));
  const Term* u = free(mgr.make_constant("u", sort));
  const Term* eq = mgr.make_equal(u, mgr.make_ite(g, a, mgr.make_ite(g, b, b)));
  EXPECT_EQ(run(eq, mgr.false_term()), "");
  EXPECT_EQ(store.get_normalized(eq), mgr.false_term());
}

TEST_F(InverterTest, AbstractValuesReadBack) {
  const DataType* sort = mgr.sort_type("U");
  const Term* y = free(mgr.make_constant("y", sort));
  const Term* b = valued(mgr.make_constant("b", sort),
                         mgr.make_abstract_value(inverse::kLargestAbstractIndex, sort));
  EXPECT_EQ(run(mgr.make_equal(y, b), mgr.false_term()), "");
  EXPECT_EQ(store.value_of(y), mgr.make_abstract_value(0, sort));

  const DataType* arr = mgr.array_type(mgr.bool_type(), sort);
  const Term* c = free(mgr.make_constant("c", arr));
  const Term* d = valued(
      mgr.make_constant("d", arr),
      mgr.make_const_array(arr, mgr.make_abstract_value(inverse::kLargestAbstractIndex, sort)));
  EXPECT_EQ(run(mgr.make_equal(c, d), mgr.false_term()), "");
  EXPECT_EQ(store.value_of(c), mgr.make_const_array(arr, mgr.make_abstract_value(0, sort)));

  // Below the limit the next index is taken, as always.
  const Term* z = free(mgr.make_constant("z", sort));
  const Term* e = valued(mgr.make_constant("e", sort),
                         mgr.make_abstract_value(inverse::kLargestAbstractIndex - 1, sort));
  EXPECT_EQ(run(mgr.make_equal(z, e), mgr.false_term()), "");
  EXPECT_EQ(store.value_of(z), mgr.make_abstract_value(inverse::kLargestAbstractIndex, sort));
}

TEST_F(InverterTest, SearchWorkIsBounded) {
  // A 16-bit constant under million-bit products: refused after bounded work,
  // recording nothing.
  constexpr std::size_t kWide = std::size_t{1} << 20;
  const Term* x = free(bvc("x", 16));
  const Term* ones = mgr.make_term(mgr.make_bv_not_symbol(kWide), {num(0, kWide)});
  const Term* wide_x = mgr.make_term(mgr.make_bv_zero_extend_symbol(kWide - 16, 16), {x});
  const Term* product =
      mgr.make_term(mgr.make_bv_mul_symbol(kWide),
                    {mgr.make_term(mgr.make_bv_not_symbol(kWide), {wide_x}), ones});
  const Term* t =
      mgr.make_term(mgr.make_bv_add_symbol(16),
                    {x, mgr.make_term(mgr.make_bv_extract_symbol(15, 0, kWide), {product})});
  EXPECT_EQ(run(t, num(0, 16)), inverse::kTooWideMessage);
  EXPECT_EQ(constraints(), "()");

  // Wide sorts whose values stay small are searched in full.
  const Term* c = bvc("c", kWide);  // defaulted to 0
  auto twice = [&](const Term* y, std::size_t w) {
    const Term* wide_y = mgr.make_term(mgr.make_bv_zero_extend_symbol(kWide - w, w), {y});
    const Term* sum = mgr.make_term(mgr.make_bv_add_symbol(kWide), {c, wide_y});
    return mgr.make_term(mgr.make_bv_add_symbol(w),
                         {y, mgr.make_term(mgr.make_bv_extract_symbol(w - 1, 0, kWide), {sum})});
  };
  const Term* y = free(bvc("y", 12));
  EXPECT_EQ(run(twice(y, 12), num(6, 12)), "");
  EXPECT_EQ(store.value_of(y), num(3, 12));
  const Term* z = free(bvc("z", 12));
  EXPECT_EQ(run(twice(z, 12), num(1, 12)), inverse::kNoValueMessage);
  // Every value of a 16-bit constant is tried when it costs a few evaluations each ...
  const Term* s = free(bvc("s", 16));
  const Term* small = mgr.make_term(
      mgr.make_bv_add_symbol(16), {s, mgr.make_term(mgr.make_bv_mul_symbol(16), {s, num(3, 16)})});
  EXPECT_EQ(run(small, num(1, 16)), inverse::kNoValueMessage);
  // ... but not under four.
  const Term* r = free(bvc("r", 16));
  EXPECT_EQ(run(twice(r, 16), num(1, 16)), inverse::kTooWideMessage);
}

TEST_F(InverterTest, UninterpretedAndArraySorts) {
  const DataType* sort = mgr.sort_type("U");
  const Term* x = free(mgr.make_constant("x", sort));
  const Term* y = valued(mgr.make_constant("y", sort), mgr.make_abstract_value(0, sort));
  EXPECT_EQ(run(mgr.make_equal(x, y), mgr.false_term()), "");
  EXPECT_EQ(store.value_of(x), mgr.make_abstract_value(1, sort));
  EXPECT_EQ(store.get_normalized(mgr.make_equal(x, y)), mgr.false_term());
  EXPECT_EQ(run(mgr.make_equal(x, x), mgr.false_term()), inverse::kNoValueMessage);

  const DataType* arr = mgr.array_type(mgr.bv_type(4), mgr.bool_type());
  const Term* a = free(mgr.make_constant("a", arr));
  const Term* b = valued(mgr.make_constant("b", arr), mgr.make_const_array(arr, mgr.false_term()));
  EXPECT_EQ(run(mgr.make_equal(a, b), mgr.false_term()), "");
  EXPECT_EQ(store.value_of(a), mgr.make_const_array(arr, mgr.true_term()));

  const Term* c = free(boolc("c"));
  const Term* z = valued(mgr.make_constant("z", sort), mgr.make_abstract_value(5, sort));
  const Term* ite = mgr.make_ite(c, y, z);
  EXPECT_EQ(run(ite, mgr.make_abstract_value(5, sort)), "");
  EXPECT_EQ(store.get_normalized(ite), mgr.make_abstract_value(5, sort));
  EXPECT_EQ(run(ite, mgr.make_abstract_value(7, sort)), inverse::kNoValueMessage);
}

TEST_F(InverterTest, SharedAndOpaqueCorners) {
  // ite(p, p, q) = false: p true would give p itself, so p := false and q := false.
  const Term* p = free(boolc("p"));
  const Term* q = free(boolc("q"));
  const Term* ite = mgr.make_ite(p, p, q);
  EXPECT_EQ(run(ite, mgr.false_term()), "");
  EXPECT_EQ(constraints(), "((= p false) (= q false))");
  EXPECT_EQ(store.get_normalized(ite), mgr.false_term());

  // Both sides of an equality over a declared sort free: y takes the default.
  const DataType* sort = mgr.sort_type("U");
  const Term* x = free(mgr.make_constant("x", sort));
  const Term* y = free(mgr.make_constant("y", sort));
  EXPECT_EQ(run(mgr.make_equal(x, y), mgr.false_term()), "");
  EXPECT_EQ(store.value_of(y), mgr.make_abstract_value(0, sort));
  EXPECT_EQ(store.value_of(x), mgr.make_abstract_value(1, sort));

  // Both branches one term over a declared sort, with the condition known.
  const Term* b = free(mgr.make_constant("b", sort));
  const Term* k = valued(boolc("k"), mgr.true_term());
  EXPECT_EQ(run(mgr.make_ite(k, b, b), mgr.make_abstract_value(4, sort)), "");
  EXPECT_EQ(store.value_of(b), mgr.make_abstract_value(4, sort));

  // A free constant of a declared sort inside a later argument cannot be searched.
  const Term* u = free(mgr.make_constant("u", sort));
  const Term* w = mgr.make_constant("w", sort);
  const Term* inner = mgr.make_ite(boolc("g"), u, w);
  EXPECT_EQ(run(mgr.make_equal(u, inner), mgr.true_term()), inverse::kOpaqueMessage);

  // A Boolean one inside a later argument is searched like a bit-vector.
  const Term* r = free(boolc("r"));
  const Term* s = valued(boolc("s"), mgr.false_term());
  const Term* t = mgr.make_or(r, mgr.make_and(mgr.make_not(r), s));
  EXPECT_EQ(run(t, mgr.true_term()), "");
  EXPECT_EQ(store.value_of(r), mgr.true_term());
  EXPECT_EQ(store.get_normalized(t), mgr.true_term());
}

TEST_F(InverterTest, RefusesWhatItDoesNotKnow) {
  const Term* x = free(bvc("x", 8));
  EXPECT_EQ(run(x, num(1, 8)), inverse::kNoInverseMessage);
  const Term* t = mgr.make_term(mgr.make_bv_neg_symbol(8), {x});
  EXPECT_EQ(run(t, mgr.true_term()), inverse::kNotAValueMessage);
  EXPECT_EQ(constraints(), "()");
  EXPECT_THROW(Inverter(&mgr, &store, &pred)(t, num(1, 9)), Refused);
}

// Every operator at two widths through the store: a value is recorded exactly
// when the pure layer finds one, and t then normalises to v.
TEST_F(InverterTest, EveryOperatorThroughTheStore) {
  Reference ref;
  Random rnd(test_seed(7));
  std::vector<Operator> ops;
  for (std::size_t w : {8u, 70u}) {
    for (Op op : binary_ops()) ops.push_back(bv(op, w));
    ops.push_back(bv(Op::BVNeg, w));
    ops.push_back(bv(Op::BVNot, w));
    ops.push_back(Operator{Op::Ite, w, 0, 0});
    ops.push_back(concat(w, 3));
    ops.push_back(extract(w - 2, 1, w));
    ops.push_back(indexed(Op::BVZeroExtend, 2, w));
    ops.push_back(indexed(Op::BVSignExtend, 2, w));
    ops.push_back(indexed(Op::BVRotateLeft, 3, w));
    ops.push_back(indexed(Op::BVRotateRight, 3, w));
  }
  for (Op op : {Op::Not, Op::And, Op::Or, Op::Iff}) ops.push_back(boolean_op(op));
  int serial = 0;
  for (const Operator& f : ops) {
    const std::size_t n = f.arity();
    for (unsigned free_mask = 1; free_mask < (1u << n); ++free_mask) {
      for (int round = 0; round < 6; ++round) {
        std::vector<const Term*> args;
        Pattern pattern(n);
        std::vector<mpz_class> values(n);
        for (std::size_t i = 0; i < n; ++i) {
          const std::size_t aw = f.arg_width(i);
          const DataType* type = aw == 0 ? mgr.bool_type() : mgr.bv_type(aw);
          const Term* a = mgr.make_constant("a" + std::to_string(serial++), type);
          values[i] = rnd.value(aw);
          if ((free_mask >> i) & 1) {
            free(a);
          } else {
            valued(a, aw == 0 ? (values[i] != 0 ? mgr.true_term() : mgr.false_term())
                              : num(values[i], aw));
            pattern[i] = values[i];
          }
          args.push_back(a);
        }
        const mpz_class v = round % 2 == 0 ? ref.eval(f, values) : rnd.value(f.result_width());
        const Term* t = mgr.make_term(symbol_of(mgr, f), args);
        const Term* vt = f.result_width() == 0 ? (v != 0 ? mgr.true_term() : mgr.false_term())
                                               : num(v, f.result_width());
        const std::size_t before = store.constraints().size();
        const std::string error = run(t, vt);
        const bool expected = inverse::solve(f, pattern, v).has_value();
        const std::string where = describe(f) + " " + describe(pattern, v);
        if (!expected) {
          EXPECT_EQ(error, inverse::kNoValueMessage) << where;
          EXPECT_EQ(store.constraints().size(), before) << where;
          continue;
        }
        EXPECT_EQ(error, "") << where;
        EXPECT_EQ(store.constraints().size(), before + std::popcount(free_mask)) << where;
        EXPECT_EQ(store.get_normalized(t), vt) << where;
      }
    }
  }
}

}  // namespace
}  // namespace kora::test
