#include "kora/terms/simplifiers.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "kora/numbers/qnumber.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"
#include "support/term_helpers.h"

// The folders are checked against reference semantics written here directly
// from the SMT-LIB definitions, on plain GMP integers, so that a mistake in
// the library's arithmetic cannot hide behind the same mistake in the test.

namespace kora {
namespace {

using Args = std::vector<const Term*>;
using test::mpz_mod2w;
using test::mpz_pow2;

// --- Reference semantics ----------------------------------------------------------

bool bit(const mpz_class& a, std::size_t i) {
  return mpz_tstbit(a.get_mpz_t(), i) != 0;
}

mpz_class with_bit(mpz_class r, std::size_t i) {
  mpz_setbit(r.get_mpz_t(), i);
  return r;
}

mpz_class ones(std::size_t w) {
  return mpz_pow2(w) - 1;
}

// Two's complement reading of a w-bit pattern.
mpz_class as_signed(const mpz_class& a, std::size_t w) {
  return bit(a, w - 1) ? mpz_class(a - mpz_pow2(w)) : a;
}

mpz_class ref_add(const mpz_class& a, const mpz_class& b, std::size_t w) {
  return mpz_mod2w(a + b, w);
}
mpz_class ref_sub(const mpz_class& a, const mpz_class& b, std::size_t w) {
  return mpz_mod2w(a - b, w);
}
mpz_class ref_mul(const mpz_class& a, const mpz_class& b, std::size_t w) {
  return mpz_mod2w(a * b, w);
}
mpz_class ref_and(const mpz_class& a, const mpz_class& b, std::size_t) {
  return a & b;
}
mpz_class ref_or(const mpz_class& a, const mpz_class& b, std::size_t) {
  return a | b;
}
mpz_class ref_xor(const mpz_class& a, const mpz_class& b, std::size_t) {
  return a ^ b;
}

// Shifts, bit by bit: result bit i comes from operand bit i -/+ amount.
mpz_class ref_shl(const mpz_class& a, const mpz_class& b, std::size_t w) {
  mpz_class r = 0;
  if (b >= w) return r;
  const std::size_t k = b.get_ui();
  for (std::size_t i = k; i < w; ++i) {
    if (bit(a, i - k)) r = with_bit(r, i);
  }
  return r;
}
mpz_class shift_right_filled(const mpz_class& a, const mpz_class& b, std::size_t w, bool fill) {
  mpz_class r = 0;
  const std::size_t k = b >= w ? w : b.get_ui();
  for (std::size_t i = 0; i < w; ++i) {
    const bool v = i + k < w ? bit(a, i + k) : fill;
    if (v) r = with_bit(r, i);
  }
  return r;
}
mpz_class ref_lshr(const mpz_class& a, const mpz_class& b, std::size_t w) {
  return shift_right_filled(a, b, w, false);
}
mpz_class ref_ashr(const mpz_class& a, const mpz_class& b, std::size_t w) {
  return shift_right_filled(a, b, w, bit(a, w - 1));
}

// Division by zero: bvudiv gives all ones, bvurem the dividend.
mpz_class ref_udiv(const mpz_class& a, const mpz_class& b, std::size_t w) {
  if (b == 0) return ones(w);
  mpz_class q;
  mpz_tdiv_q(q.get_mpz_t(), a.get_mpz_t(), b.get_mpz_t());
  return q;
}
mpz_class ref_urem(const mpz_class& a, const mpz_class& b, std::size_t) {
  if (b == 0) return a;
  mpz_class r;
  mpz_tdiv_r(r.get_mpz_t(), a.get_mpz_t(), b.get_mpz_t());
  return r;
}

// The signed forms on signed integers: the quotient truncates toward zero
// and the remainder takes the dividend's sign, which is what the SMT-LIB
// case split over the two sign bits amounts to. Division by zero follows
// from the unsigned cases: a non-negative dividend gives all ones (-1), a
// negative one gives 1; the remainder is the dividend.
mpz_class ref_sdiv(const mpz_class& a, const mpz_class& b, std::size_t w) {
  const mpz_class sa = as_signed(a, w);
  const mpz_class sb = as_signed(b, w);
  if (sb == 0) return sa >= 0 ? ones(w) : mpz_class(1);
  mpz_class q;
  mpz_tdiv_q(q.get_mpz_t(), sa.get_mpz_t(), sb.get_mpz_t());
  return mpz_mod2w(q, w);
}
mpz_class ref_srem(const mpz_class& a, const mpz_class& b, std::size_t w) {
  const mpz_class sa = as_signed(a, w);
  const mpz_class sb = as_signed(b, w);
  if (sb == 0) return a;
  mpz_class r;
  mpz_tdiv_r(r.get_mpz_t(), sa.get_mpz_t(), sb.get_mpz_t());
  return mpz_mod2w(r, w);
}

mpz_class ref_ult(const mpz_class& a, const mpz_class& b, std::size_t) {
  return a < b ? 1 : 0;
}
mpz_class ref_ule(const mpz_class& a, const mpz_class& b, std::size_t) {
  return a <= b ? 1 : 0;
}
mpz_class ref_slt(const mpz_class& a, const mpz_class& b, std::size_t w) {
  return as_signed(a, w) < as_signed(b, w) ? 1 : 0;
}
mpz_class ref_sle(const mpz_class& a, const mpz_class& b, std::size_t w) {
  return as_signed(a, w) <= as_signed(b, w) ? 1 : 0;
}
mpz_class ref_comp(const mpz_class& a, const mpz_class& b, std::size_t) {
  return a == b ? 1 : 0;
}

mpz_class ref_neg(const mpz_class& a, std::size_t w) {
  return mpz_mod2w(-a, w);
}
mpz_class ref_not(const mpz_class& a, std::size_t w) {
  mpz_class r = 0;
  for (std::size_t i = 0; i < w; ++i) {
    if (!bit(a, i)) r = with_bit(r, i);
  }
  return r;
}

mpz_class ref_extract(const mpz_class& a, std::size_t msb, std::size_t lsb) {
  mpz_class r = 0;
  for (std::size_t i = lsb; i <= msb; ++i) {
    if (bit(a, i)) r = with_bit(r, i - lsb);
  }
  return r;
}
mpz_class ref_concat(const mpz_class& hi, const mpz_class& lo, std::size_t lo_width) {
  return hi * mpz_pow2(lo_width) + lo;
}
mpz_class ref_sext(const mpz_class& a, std::size_t amount, std::size_t w) {
  mpz_class r = a;
  if (bit(a, w - 1)) {
    for (std::size_t i = w; i < w + amount; ++i) r = with_bit(r, i);
  }
  return r;
}
// Result bit (i + k) mod w is operand bit i.
mpz_class ref_rol(const mpz_class& a, std::size_t k, std::size_t w) {
  mpz_class r = 0;
  for (std::size_t i = 0; i < w; ++i) {
    if (bit(a, i)) r = with_bit(r, (i + k % w) % w);
  }
  return r;
}
// Result bit i is operand bit (i + k) mod w.
mpz_class ref_ror(const mpz_class& a, std::size_t k, std::size_t w) {
  mpz_class r = 0;
  for (std::size_t i = 0; i < w; ++i) {
    if (bit(a, (i + k % w) % w)) r = with_bit(r, i);
  }
  return r;
}

// --- The operator table ------------------------------------------------------------

using FolderFn = const Term* (*)(TermManager*, const Symbol*, const Args&);
using SymbolFn = const Symbol* (TermManager::*)(std::size_t);
using Ref2 = mpz_class (*)(const mpz_class&, const mpz_class&, std::size_t);
using Ref1 = mpz_class (*)(const mpz_class&, std::size_t);

// Calls a folder the way the calculators do: built on the stack, used once.
template <class Folder>
const Term* run(TermManager* mgr, const Symbol* s, const Args& args) {
  Folder folder;
  return folder(mgr, s, args);
}

enum class Result { Word, Bit, Bool };  // width w, width 1, Boolean

struct BinaryOp {
  const char* name;
  Ref2 ref;
  FolderFn fold;
  SymbolFn symbol;
  Result result;
};

struct UnaryOp {
  const char* name;
  Ref1 ref;
  FolderFn fold;
  SymbolFn symbol;
};

// Parameterised tests print the operator, not the bytes of the row.
void PrintTo(const BinaryOp& op, std::ostream* os) {
  *os << op.name;
}
void PrintTo(const UnaryOp& op, std::ostream* os) {
  *os << op.name;
}

const BinaryOp kBinaryOps[] = {
    {"bvadd", ref_add, run<termsimpl::BVAddSimpl>, &TermManager::make_bv_add_symbol, Result::Word},
    {"bvsub", ref_sub, run<termsimpl::BVSubSimpl>, &TermManager::make_bv_sub_symbol, Result::Word},
    {"bvmul", ref_mul, run<termsimpl::BVMulSimpl>, &TermManager::make_bv_mul_symbol, Result::Word},
    {"bvshl", ref_shl, run<termsimpl::BVLslSimpl>, &TermManager::make_bv_shl_symbol, Result::Word},
    {"bvlshr", ref_lshr, run<termsimpl::BVLsrSimpl>, &TermManager::make_bv_lshr_symbol,
     Result::Word},
    {"bvashr", ref_ashr, run<termsimpl::BVAsrSimpl>, &TermManager::make_bv_ashr_symbol,
     Result::Word},
    {"bvudiv", ref_udiv, run<termsimpl::BVUdivSimpl>, &TermManager::make_bv_udiv_symbol,
     Result::Word},
    {"bvurem", ref_urem, run<termsimpl::BVUremSimpl>, &TermManager::make_bv_urem_symbol,
     Result::Word},
    {"bvsdiv", ref_sdiv, run<termsimpl::BVSdivSimpl>, &TermManager::make_bv_sdiv_symbol,
     Result::Word},
    {"bvsrem", ref_srem, run<termsimpl::BVSremSimpl>, &TermManager::make_bv_srem_symbol,
     Result::Word},
    {"bvand", ref_and, run<termsimpl::BVAndSimpl>, &TermManager::make_bv_and_symbol, Result::Word},
    {"bvor", ref_or, run<termsimpl::BVOrSimpl>, &TermManager::make_bv_or_symbol, Result::Word},
    {"bvxor", ref_xor, run<termsimpl::BVXorSimpl>, &TermManager::make_bv_xor_symbol, Result::Word},
    {"bvult", ref_ult, run<termsimpl::BVUltSimpl>, &TermManager::make_bv_ult_symbol, Result::Bool},
    {"bvule", ref_ule, run<termsimpl::BVUleSimpl>, &TermManager::make_bv_ule_symbol, Result::Bool},
    {"bvslt", ref_slt, run<termsimpl::BVSltSimpl>, &TermManager::make_bv_slt_symbol, Result::Bool},
    {"bvsle", ref_sle, run<termsimpl::BVSleSimpl>, &TermManager::make_bv_sle_symbol, Result::Bool},
    {"bvcomp", ref_comp, run<termsimpl::BVCompSimpl>, &TermManager::make_bv_comp_symbol,
     Result::Bit},
};

const UnaryOp kUnaryOps[] = {
    {"bvneg", ref_neg, run<termsimpl::BVNegSimpl>, &TermManager::make_bv_neg_symbol},
    {"bvnot", ref_not, run<termsimpl::BVNotSimpl>, &TermManager::make_bv_not_symbol},
};

// --- Checking one application -------------------------------------------------------

// Collects mismatches and reports the first few, so that a broken folder
// does not flood the log with thousands of counterexamples.
class Mismatches {
 public:
  explicit Mismatches(std::string what) : what_(std::move(what)) {}
  ~Mismatches() {
    if (count_ > kShown) {
      ADD_FAILURE() << what_ << ": " << count_ << " mismatches in all (first " << kShown
                    << " shown)";
    }
  }
  Mismatches(const Mismatches&) = delete;
  Mismatches& operator=(const Mismatches&) = delete;

  // Compares the folder's answer with the expected term.
  void check(const Term* got, const Term* expected, const std::function<std::string()>& where) {
    ++checked_;
    if (got == expected) return;
    if (++count_ <= kShown) {
      ADD_FAILURE() << what_ << " " << where() << ": got "
                    << (got == nullptr ? std::string("null") : got->to_shallow_str())
                    << ", expected " << expected->to_shallow_str();
    }
  }
  std::size_t checked() const noexcept { return checked_; }

 private:
  static constexpr int kShown = 8;
  std::string what_;
  int count_ = 0;
  std::size_t checked_ = 0;
};

std::string hex(const mpz_class& v) {
  return "0x" + v.get_str(16);
}

const Term* expected_term(TermManager& mgr, Result kind, const mpz_class& v, std::size_t w) {
  switch (kind) {
    case Result::Word:
      return mgr.make_bv_number(QNumber(v), w);
    case Result::Bit:
      return mgr.make_bv_number(QNumber(v), 1);
    case Result::Bool:
      break;
  }
  return v != 0 ? mgr.true_term() : mgr.false_term();
}

void check_binary(TermManager& mgr, const BinaryOp& op, std::size_t w, const mpz_class& a,
                  const mpz_class& b, Mismatches& out) {
  const Symbol* s = (mgr.*op.symbol)(w);
  const Term* ta = mgr.make_bv_number(QNumber(a), w);
  const Term* tb = mgr.make_bv_number(QNumber(b), w);
  const Term* got = op.fold(&mgr, s, {ta, tb});
  out.check(got, expected_term(mgr, op.result, op.ref(a, b, w), w),
            [&] { return "width " + std::to_string(w) + " a=" + hex(a) + " b=" + hex(b); });
}

void check_unary(TermManager& mgr, const UnaryOp& op, std::size_t w, const mpz_class& a,
                 Mismatches& out) {
  const Symbol* s = (mgr.*op.symbol)(w);
  const Term* got = op.fold(&mgr, s, {mgr.make_bv_number(QNumber(a), w)});
  out.check(got, mgr.make_bv_number(QNumber(op.ref(a, w)), w),
            [&] { return "width " + std::to_string(w) + " a=" + hex(a); });
}

// --- Operand generation ---------------------------------------------------------------

constexpr std::size_t kMaxExhaustiveWidth = 6;
constexpr std::size_t kRandomWidths[] = {8, 63, 64, 65, 128, 300};
constexpr int kRandomCases = 2000;
constexpr std::uint64_t kDefaultSeed = 0x6b6f7261u;

// Random w-bit values, a quarter of them drawn from the values where
// arithmetic tends to break: 0, 1, all ones, the sign bit and its
// neighbours, and amounts around the width for shifts and rotations.
class Operands {
 public:
  Operands(std::size_t w, std::uint64_t salt) : w_(w), rng_(test::test_seed(kDefaultSeed) ^ salt) {}

  mpz_class next() {
    if (rng_() % 4 == 0) return special();
    mpz_class r = 0;
    for (std::size_t done = 0; done < w_; done += 64) {
      r <<= 64;
      r += static_cast<unsigned long>(rng_());
    }
    return mpz_mod2w(r, w_);
  }
  std::size_t below(std::size_t n) { return static_cast<std::size_t>(rng_() % n); }

 private:
  mpz_class special() {
    const mpz_class sign = mpz_pow2(w_ - 1);
    switch (rng_() % 9) {
      case 0:
        return 0;
      case 1:
        return mpz_mod2w(1, w_);
      case 2:
        return ones(w_);
      case 3:
        return mpz_mod2w(ones(w_) - 1, w_);
      case 4:
        return sign;
      case 5:
        return sign - 1;
      case 6:
        return mpz_mod2w(sign + 1, w_);
      case 7:
        return mpz_mod2w(rng_() % (w_ + 3), w_);
      default:
        return mpz_mod2w(mpz_class(static_cast<unsigned long>(rng_() % 16)), w_);
    }
  }

  std::size_t w_;
  std::mt19937_64 rng_;
};

std::uint64_t salt_of(const std::string& name, std::size_t w) {
  return std::hash<std::string>{}(name)*1000003u + w;
}

std::string seed_note() {
  return "(seed " + std::to_string(test::test_seed(kDefaultSeed)) + ", KORA_TEST_SEED overrides)";
}

// --- Exhaustive and random checks of the word operators ----------------------------------

class BinaryFolderTest : public ::testing::TestWithParam<BinaryOp> {};

TEST_P(BinaryFolderTest, ExhaustiveUpToWidthSix) {
  const BinaryOp& op = GetParam();
  for (std::size_t w = 1; w <= kMaxExhaustiveWidth; ++w) {
    TermManager mgr;
    Mismatches out(op.name);
    const unsigned long n = 1ul << w;
    for (unsigned long a = 0; a < n; ++a) {
      for (unsigned long b = 0; b < n; ++b) check_binary(mgr, op, w, a, b, out);
    }
    EXPECT_EQ(out.checked(), n * n);
  }
}

TEST_P(BinaryFolderTest, RandomAtWideWidths) {
  const BinaryOp& op = GetParam();
  for (std::size_t w : kRandomWidths) {
    TermManager mgr;
    Mismatches out(std::string(op.name) + " " + seed_note());
    Operands gen(w, salt_of(op.name, w));
    for (int i = 0; i < kRandomCases; ++i) {
      const mpz_class a = gen.next();
      const mpz_class b = gen.next();
      check_binary(mgr, op, w, a, b, out);
    }
  }
}

TEST_P(BinaryFolderTest, NonNumeralArgumentRebuildsTheApplication) {
  const BinaryOp& op = GetParam();
  for (std::size_t w : {1u, 8u, 300u}) {
    TermManager mgr;
    const Symbol* s = (mgr.*op.symbol)(w);
    const Term* x = mgr.make_constant("x", mgr.bv_type(w));
    const Term* y = mgr.make_constant("y", mgr.bv_type(w));
    const Term* n = mgr.make_bv_number(1, w);
    const Term* app = mgr.make_term(mgr.make_bv_add_symbol(w), {x, n});
    for (const Args& args : {Args{x, n}, Args{n, x}, Args{x, y}, Args{x, x}, Args{app, n}}) {
      EXPECT_EQ(op.fold(&mgr, s, args), mgr.make_term(s, args))
          << op.name << " width " << w << " on " << args[0]->to_shallow_str() << ", "
          << args[1]->to_shallow_str();
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Folders, BinaryFolderTest, ::testing::ValuesIn(kBinaryOps),
                         [](const auto& info) { return std::string(info.param.name); });

class UnaryFolderTest : public ::testing::TestWithParam<UnaryOp> {};

TEST_P(UnaryFolderTest, ExhaustiveUpToWidthSix) {
  const UnaryOp& op = GetParam();
  for (std::size_t w = 1; w <= kMaxExhaustiveWidth; ++w) {
    TermManager mgr;
    Mismatches out(op.name);
    for (unsigned long a = 0; a < (1ul << w); ++a) check_unary(mgr, op, w, a, out);
  }
}

TEST_P(UnaryFolderTest, RandomAtWideWidths) {
  const UnaryOp& op = GetParam();
  for (std::size_t w : kRandomWidths) {
    TermManager mgr;
    Mismatches out(std::string(op.name) + " " + seed_note());
    Operands gen(w, salt_of(op.name, w));
    for (int i = 0; i < kRandomCases; ++i) check_unary(mgr, op, w, gen.next(), out);
  }
}

TEST_P(UnaryFolderTest, NonNumeralArgumentRebuildsTheApplication) {
  const UnaryOp& op = GetParam();
  TermManager mgr;
  const Symbol* s = (mgr.*op.symbol)(8);
  const Term* x = mgr.make_constant("x", mgr.bv_type(8));
  const Term* app = mgr.make_term(s, {x});
  EXPECT_EQ(op.fold(&mgr, s, {x}), app);
  EXPECT_EQ(op.fold(&mgr, s, {app}), mgr.make_term(s, {app}));
}

INSTANTIATE_TEST_SUITE_P(Folders, UnaryFolderTest, ::testing::ValuesIn(kUnaryOps),
                         [](const auto& info) { return std::string(info.param.name); });

// --- Parameterised operators -------------------------------------------------------------

// One application of a parameterised folder: its symbol, the operand values
// with their widths, and the expected value at the result width.
struct Case {
  const Symbol* symbol;
  std::vector<std::pair<mpz_class, std::size_t>> operands;
  mpz_class expected;
  std::size_t result_width;
};

template <class Folder>
void check_case(TermManager& mgr, const Case& c, Mismatches& out) {
  Args args;
  for (const auto& [v, w] : c.operands) args.push_back(mgr.make_bv_number(QNumber(v), w));
  const Term* got = run<Folder>(&mgr, c.symbol, args);
  out.check(got, mgr.make_bv_number(QNumber(c.expected), c.result_width), [&] {
    std::string where = c.symbol->name();
    for (const auto& [v, w] : c.operands) where += " " + hex(v) + "[" + std::to_string(w) + "]";
    return where;
  });
}

Case extract_case(TermManager& mgr, const mpz_class& a, std::size_t msb, std::size_t lsb,
                  std::size_t w) {
  return {
      mgr.make_bv_extract_symbol(msb, lsb, w), {{a, w}}, ref_extract(a, msb, lsb), msb - lsb + 1};
}

TEST(StructureFolderTest, ExtractEveryBitRangeExhaustively) {
  TermManager mgr;
  Mismatches out("extract");
  for (std::size_t w = 1; w <= kMaxExhaustiveWidth; ++w) {
    for (std::size_t msb = 0; msb < w; ++msb) {
      for (std::size_t lsb = 0; lsb <= msb; ++lsb) {
        for (unsigned long a = 0; a < (1ul << w); ++a) {
          check_case<termsimpl::BVSelectSimpl>(mgr, extract_case(mgr, a, msb, lsb, w), out);
        }
      }
    }
  }
}

TEST(StructureFolderTest, ExtractRandomAtWideWidths) {
  for (std::size_t w : kRandomWidths) {
    TermManager mgr;
    Mismatches out("extract " + seed_note());
    Operands gen(w, salt_of("extract", w));
    for (int i = 0; i < kRandomCases / 4; ++i) {
      const mpz_class a = gen.next();
      const std::size_t msb = gen.below(w);
      const std::size_t lsb = gen.below(msb + 1);
      check_case<termsimpl::BVSelectSimpl>(mgr, extract_case(mgr, a, msb, lsb, w), out);
      check_case<termsimpl::BVSelectSimpl>(mgr, extract_case(mgr, a, w - 1, 0, w), out);
      check_case<termsimpl::BVSelectSimpl>(mgr, extract_case(mgr, a, w - 1, w - 1, w), out);
      check_case<termsimpl::BVSelectSimpl>(mgr, extract_case(mgr, a, 0, 0, w), out);
    }
  }
}

Case concat_case(TermManager& mgr, const mpz_class& a, std::size_t w1, const mpz_class& b,
                 std::size_t w2) {
  return {mgr.make_bv_concat_symbol(w1, w2), {{a, w1}, {b, w2}}, ref_concat(a, b, w2), w1 + w2};
}

TEST(StructureFolderTest, ConcatEveryWidthSplitExhaustively) {
  TermManager mgr;
  Mismatches out("concat");
  for (std::size_t w1 = 1; w1 <= kMaxExhaustiveWidth; ++w1) {
    for (std::size_t w2 = 1; w2 <= kMaxExhaustiveWidth; ++w2) {
      for (unsigned long a = 0; a < (1ul << w1); ++a) {
        for (unsigned long b = 0; b < (1ul << w2); ++b) {
          check_case<termsimpl::BVConcatSimpl>(mgr, concat_case(mgr, a, w1, b, w2), out);
        }
      }
    }
  }
}

TEST(StructureFolderTest, ConcatRandomAtWideWidths) {
  const std::pair<std::size_t, std::size_t> splits[] = {{1, 7},   {4, 4},     {32, 31}, {63, 1},
                                                        {1, 63},  {64, 64},   {1, 64},  {64, 1},
                                                        {65, 63}, {150, 150}, {1, 299}, {299, 1}};
  for (const auto& [w1, w2] : splits) {
    TermManager mgr;
    Mismatches out("concat " + seed_note());
    Operands hi(w1, salt_of("concat-high", w1 * 1000 + w2));
    Operands lo(w2, salt_of("concat-low", w1 * 1000 + w2));
    for (int i = 0; i < kRandomCases / 4; ++i) {
      check_case<termsimpl::BVConcatSimpl>(mgr, concat_case(mgr, hi.next(), w1, lo.next(), w2),
                                           out);
    }
  }
}

template <class Folder>
void check_extensions(bool sign, const char* name) {
  {
    TermManager mgr;
    Mismatches out(name);
    for (std::size_t w = 1; w <= kMaxExhaustiveWidth; ++w) {
      for (std::size_t n = 0; n <= kMaxExhaustiveWidth; ++n) {
        const Symbol* s =
            sign ? mgr.make_bv_sign_extend_symbol(n, w) : mgr.make_bv_zero_extend_symbol(n, w);
        for (unsigned long a = 0; a < (1ul << w); ++a) {
          check_case<Folder>(mgr, {s, {{a, w}}, sign ? ref_sext(a, n, w) : mpz_class(a), w + n},
                             out);
        }
      }
    }
  }
  for (std::size_t w : kRandomWidths) {
    TermManager mgr;
    Mismatches out(std::string(name) + " " + seed_note());
    Operands gen(w, salt_of(name, w));
    for (std::size_t n : {0u, 1u, 7u, 63u, 64u, 65u, 200u}) {
      const Symbol* s =
          sign ? mgr.make_bv_sign_extend_symbol(n, w) : mgr.make_bv_zero_extend_symbol(n, w);
      for (int i = 0; i < kRandomCases / 8; ++i) {
        const mpz_class a = gen.next();
        check_case<Folder>(mgr, {s, {{a, w}}, sign ? ref_sext(a, n, w) : a, w + n}, out);
      }
    }
  }
}

TEST(StructureFolderTest, ZeroExtend) {
  check_extensions<termsimpl::BVZextSimpl>(false, "zero_extend");
}

TEST(StructureFolderTest, SignExtend) {
  check_extensions<termsimpl::BVSextSimpl>(true, "sign_extend");
}

template <class Folder>
void check_rotations(bool left, const char* name) {
  const auto make = [left](TermManager& mgr, std::size_t k, std::size_t w) {
    return left ? mgr.make_bv_rotate_left_symbol(k, w) : mgr.make_bv_rotate_right_symbol(k, w);
  };
  {
    TermManager mgr;
    Mismatches out(name);
    for (std::size_t w = 1; w <= kMaxExhaustiveWidth; ++w) {
      // Amounts of a width or more wrap around.
      for (std::size_t k = 0; k <= 3 * w + 1; ++k) {
        for (unsigned long a = 0; a < (1ul << w); ++a) {
          const mpz_class expected = left ? ref_rol(a, k, w) : ref_ror(a, k, w);
          check_case<Folder>(mgr, {make(mgr, k, w), {{a, w}}, expected, w}, out);
        }
      }
    }
  }
  for (std::size_t w : kRandomWidths) {
    TermManager mgr;
    Mismatches out(std::string(name) + " " + seed_note());
    Operands gen(w, salt_of(name, w));
    for (int i = 0; i < kRandomCases / 2; ++i) {
      const std::size_t amounts[] = {
          0, 1, w - 1, w, w + 1, 2 * w + 3, 1000003, gen.below(w), gen.below(4 * w)};
      const std::size_t k = amounts[gen.below(std::size(amounts))];
      const mpz_class a = gen.next();
      const mpz_class expected = left ? ref_rol(a, k, w) : ref_ror(a, k, w);
      check_case<Folder>(mgr, {make(mgr, k, w), {{a, w}}, expected, w}, out);
    }
  }
}

TEST(StructureFolderTest, RotateLeft) {
  check_rotations<termsimpl::BVRolSimpl>(true, "rotate_left");
}

TEST(StructureFolderTest, RotateRight) {
  check_rotations<termsimpl::BVRorSimpl>(false, "rotate_right");
}

TEST(StructureFolderTest, RotationsAreInverse) {
  TermManager mgr;
  const Term* v = mgr.make_bv_number(0x1b3, 11);
  for (std::size_t k = 0; k < 40; ++k) {
    const Term* l = run<termsimpl::BVRolSimpl>(&mgr, mgr.make_bv_rotate_left_symbol(k, 11), {v});
    EXPECT_EQ(run<termsimpl::BVRorSimpl>(&mgr, mgr.make_bv_rotate_right_symbol(k, 11), {l}), v)
        << "amount " << k;
  }
}

TEST(StructureFolderTest, NonNumeralArgumentRebuildsTheApplication) {
  TermManager mgr;
  const Term* x = mgr.make_constant("x", mgr.bv_type(8));
  const Term* n = mgr.make_bv_number(3, 8);
  const struct {
    const Symbol* s;
    FolderFn fold;
  } unary[] = {
      {mgr.make_bv_extract_symbol(5, 2, 8), run<termsimpl::BVSelectSimpl>},
      {mgr.make_bv_zero_extend_symbol(4, 8), run<termsimpl::BVZextSimpl>},
      {mgr.make_bv_sign_extend_symbol(4, 8), run<termsimpl::BVSextSimpl>},
      {mgr.make_bv_rotate_left_symbol(3, 8), run<termsimpl::BVRolSimpl>},
      {mgr.make_bv_rotate_right_symbol(3, 8), run<termsimpl::BVRorSimpl>},
  };
  for (const auto& row : unary) {
    EXPECT_EQ(row.fold(&mgr, row.s, {x}), mgr.make_term(row.s, {x})) << row.s->name();
  }
  const Symbol* cat = mgr.make_bv_concat_symbol(8, 8);
  for (const Args& args : {Args{x, n}, Args{n, x}, Args{x, x}}) {
    EXPECT_EQ(run<termsimpl::BVConcatSimpl>(&mgr, cat, args), mgr.make_term(cat, args));
  }
}

// --- Boolean and generic folders ---------------------------------------------------------

class BooleanFolderTest : public ::testing::Test {
 protected:
  const Term* b(bool v) const { return v ? mgr.true_term() : mgr.false_term(); }

  TermManager mgr;
  const Term* p = mgr.make_constant("p", mgr.bool_type());
  const Term* q = mgr.make_constant("q", mgr.bool_type());
};

TEST_F(BooleanFolderTest, NotAndOrIffOnConstants) {
  for (bool u : {false, true}) {
    EXPECT_EQ(run<termsimpl::NotSimpl>(&mgr, mgr.make_not_symbol(), {b(u)}), b(!u));
    for (bool v : {false, true}) {
      EXPECT_EQ(run<termsimpl::AndSimpl>(&mgr, mgr.make_and_symbol(), {b(u), b(v)}), b(u && v));
      EXPECT_EQ(run<termsimpl::OrSimpl>(&mgr, mgr.make_or_symbol(), {b(u), b(v)}), b(u || v));
      EXPECT_EQ(run<termsimpl::IffSimpl>(&mgr, mgr.make_iff_symbol(), {b(u), b(v)}), b(u == v));
    }
  }
}

TEST_F(BooleanFolderTest, NotAndOrIffRebuildOtherwise) {
  // No short-circuit simplification: an unknown operand keeps the term.
  const Term* pq = mgr.make_and(p, q);
  EXPECT_EQ(run<termsimpl::NotSimpl>(&mgr, mgr.make_not_symbol(), {p}), mgr.make_not(p));
  EXPECT_EQ(run<termsimpl::NotSimpl>(&mgr, mgr.make_not_symbol(), {pq}), mgr.make_not(pq));
  for (const Args& args : {Args{p, q}, Args{p, mgr.true_term()}, Args{mgr.false_term(), p},
                           Args{pq, mgr.true_term()}}) {
    EXPECT_EQ(run<termsimpl::AndSimpl>(&mgr, mgr.make_and_symbol(), args),
              mgr.make_term(mgr.make_and_symbol(), args));
    EXPECT_EQ(run<termsimpl::OrSimpl>(&mgr, mgr.make_or_symbol(), args),
              mgr.make_term(mgr.make_or_symbol(), args));
    EXPECT_EQ(run<termsimpl::IffSimpl>(&mgr, mgr.make_iff_symbol(), args),
              mgr.make_term(mgr.make_iff_symbol(), args));
  }
}

TEST_F(BooleanFolderTest, WiderApplicationsAreRebuiltNotTruncated) {
  const Args three = {mgr.true_term(), mgr.true_term(), mgr.false_term()};
  EXPECT_EQ(run<termsimpl::AndSimpl>(&mgr, mgr.make_and_symbol(), three),
            mgr.make_term(mgr.make_and_symbol(), three));
  const Symbol* add = mgr.make_bv_add_symbol(8);
  const Args nums = {mgr.make_bv_number(1, 8), mgr.make_bv_number(2, 8), mgr.make_bv_number(4, 8)};
  EXPECT_EQ(run<termsimpl::BVAddSimpl>(&mgr, add, nums), mgr.make_term(add, nums));
  const Symbol* eq = mgr.make_equal_symbol(mgr.bv_type(8));
  EXPECT_EQ(run<termsimpl::EqualSimpl>(&mgr, eq, nums), mgr.make_term(eq, nums));
  EXPECT_EQ(run<termsimpl::EqualSimpl>(&mgr, eq, {nums[0]}), mgr.make_term(eq, {nums[0]}));
}

TEST_F(BooleanFolderTest, EqualOnValues) {
  const Symbol* eq4 = mgr.make_equal_symbol(mgr.bv_type(4));
  for (int a = 0; a < 16; ++a) {
    for (int c = 0; c < 16; ++c) {
      EXPECT_EQ(run<termsimpl::EqualSimpl>(&mgr, eq4,
                                           {mgr.make_bv_number(a, 4), mgr.make_bv_number(c, 4)}),
                b(a == c))
          << a << " " << c;
    }
  }
  const DataType* u = mgr.sort_type("U");
  const Symbol* eq_u = mgr.make_equal_symbol(u);
  const Term* u0 = mgr.make_abstract_value(0, u);
  const Term* u1 = mgr.make_abstract_value(1, u);
  EXPECT_EQ(run<termsimpl::EqualSimpl>(&mgr, eq_u, {u0, u0}), mgr.true_term());
  EXPECT_EQ(run<termsimpl::EqualSimpl>(&mgr, eq_u, {u0, u1}), mgr.false_term());
  const DataType* arr = mgr.array_type(mgr.bv_type(4), mgr.bool_type());
  const Symbol* eq_a = mgr.make_equal_symbol(arr);
  const Term* all_false = mgr.make_const_array(arr, mgr.false_term());
  const Term* all_true = mgr.make_const_array(arr, mgr.true_term());
  EXPECT_EQ(run<termsimpl::EqualSimpl>(&mgr, eq_a, {all_false, all_false}), mgr.true_term());
  EXPECT_EQ(run<termsimpl::EqualSimpl>(&mgr, eq_a, {all_false, all_true}), mgr.false_term());
  const Symbol* eq_b = mgr.make_equal_symbol(mgr.bool_type());
  EXPECT_EQ(run<termsimpl::EqualSimpl>(&mgr, eq_b, {b(true), b(false)}), mgr.false_term());
  EXPECT_EQ(run<termsimpl::EqualSimpl>(&mgr, eq_b, {b(false), b(false)}), mgr.true_term());
}

TEST_F(BooleanFolderTest, EqualRebuildsWhenASideIsNotAValue) {
  // Two different declared constants may well be equal: never fold them.
  const DataType* bv8 = mgr.bv_type(8);
  const Term* x = mgr.make_constant("x", bv8);
  const Term* y = mgr.make_constant("y", bv8);
  const Term* five = mgr.make_bv_number(5, 8);
  const Symbol* eq = mgr.make_equal_symbol(bv8);
  for (const Args& args : {Args{x, y}, Args{x, five}, Args{five, x}, Args{x, x}}) {
    EXPECT_EQ(run<termsimpl::EqualSimpl>(&mgr, eq, args), mgr.make_term(eq, args))
        << args[0]->to_shallow_str() << " " << args[1]->to_shallow_str();
  }
  const DataType* u = mgr.sort_type("U");
  const Term* c = mgr.make_constant("c", u);
  const Term* d = mgr.make_constant("d", u);
  const Symbol* eq_u = mgr.make_equal_symbol(u);
  EXPECT_EQ(run<termsimpl::EqualSimpl>(&mgr, eq_u, {c, d}), mgr.make_term(eq_u, {c, d}));
  EXPECT_EQ(run<termsimpl::EqualSimpl>(&mgr, eq_u, {c, mgr.make_abstract_value(0, u)}),
            mgr.make_term(eq_u, {c, mgr.make_abstract_value(0, u)}));
  // A constant array over a non-value is not a value.
  const DataType* arr = mgr.array_type(bv8, mgr.bool_type());
  const Term* over_p = mgr.make_const_array(arr, p);
  const Term* all_false = mgr.make_const_array(arr, mgr.false_term());
  const Symbol* eq_a = mgr.make_equal_symbol(arr);
  EXPECT_EQ(run<termsimpl::EqualSimpl>(&mgr, eq_a, {over_p, all_false}),
            mgr.make_term(eq_a, {over_p, all_false}));
}

TEST_F(BooleanFolderTest, Ite) {
  const DataType* bv8 = mgr.bv_type(8);
  const Term* x = mgr.make_constant("x", bv8);
  const Term* one = mgr.make_bv_number(1, 8);
  const Term* two = mgr.make_bv_number(2, 8);
  const Symbol* ite = mgr.make_ite_symbol(bv8);
  EXPECT_EQ(run<termsimpl::IteSimpl>(&mgr, ite, {mgr.true_term(), one, two}), one);
  EXPECT_EQ(run<termsimpl::IteSimpl>(&mgr, ite, {mgr.false_term(), one, two}), two);
  // A known condition selects its branch even when that branch is no value.
  EXPECT_EQ(run<termsimpl::IteSimpl>(&mgr, ite, {mgr.true_term(), x, two}), x);
  EXPECT_EQ(run<termsimpl::IteSimpl>(&mgr, ite, {mgr.false_term(), one, x}), x);
  EXPECT_EQ(run<termsimpl::IteSimpl>(&mgr, ite, {p, one, two}), mgr.make_ite(p, one, two));
  EXPECT_EQ(run<termsimpl::IteSimpl>(&mgr, ite, {p, one, one}), mgr.make_ite(p, one, one));
  const Symbol* ite_b = mgr.make_ite_symbol(mgr.bool_type());
  EXPECT_EQ(run<termsimpl::IteSimpl>(&mgr, ite_b, {mgr.true_term(), q, p}), q);
}

// --- fold() dispatches to the folder of the symbol's operator -------------------------------

TEST(FoldDispatchTest, EveryOperatorReachesItsFolder) {
  TermManager mgr;
  const std::size_t w = 8;
  const Term* a = mgr.make_bv_number(0xb6, w);
  const Term* c = mgr.make_bv_number(0x05, w);
  const Term* tt = mgr.true_term();
  const Term* ff = mgr.false_term();
  const struct {
    const Symbol* s;
    Args args;
    FolderFn folder;
  } rows[] = {
      {mgr.make_not_symbol(), {tt}, run<termsimpl::NotSimpl>},
      {mgr.make_and_symbol(), {tt, ff}, run<termsimpl::AndSimpl>},
      {mgr.make_or_symbol(), {ff, tt}, run<termsimpl::OrSimpl>},
      {mgr.make_iff_symbol(), {ff, ff}, run<termsimpl::IffSimpl>},
      {mgr.make_equal_symbol(mgr.bv_type(w)), {a, c}, run<termsimpl::EqualSimpl>},
      {mgr.make_ite_symbol(mgr.bv_type(w)), {ff, a, c}, run<termsimpl::IteSimpl>},
      {mgr.make_bv_add_symbol(w), {a, c}, run<termsimpl::BVAddSimpl>},
      {mgr.make_bv_sub_symbol(w), {a, c}, run<termsimpl::BVSubSimpl>},
      {mgr.make_bv_neg_symbol(w), {a}, run<termsimpl::BVNegSimpl>},
      {mgr.make_bv_mul_symbol(w), {a, c}, run<termsimpl::BVMulSimpl>},
      {mgr.make_bv_shl_symbol(w), {a, c}, run<termsimpl::BVLslSimpl>},
      {mgr.make_bv_lshr_symbol(w), {a, c}, run<termsimpl::BVLsrSimpl>},
      {mgr.make_bv_ashr_symbol(w), {a, c}, run<termsimpl::BVAsrSimpl>},
      {mgr.make_bv_udiv_symbol(w), {a, c}, run<termsimpl::BVUdivSimpl>},
      {mgr.make_bv_sdiv_symbol(w), {a, c}, run<termsimpl::BVSdivSimpl>},
      {mgr.make_bv_urem_symbol(w), {a, c}, run<termsimpl::BVUremSimpl>},
      {mgr.make_bv_srem_symbol(w), {a, c}, run<termsimpl::BVSremSimpl>},
      {mgr.make_bv_not_symbol(w), {a}, run<termsimpl::BVNotSimpl>},
      {mgr.make_bv_and_symbol(w), {a, c}, run<termsimpl::BVAndSimpl>},
      {mgr.make_bv_or_symbol(w), {a, c}, run<termsimpl::BVOrSimpl>},
      {mgr.make_bv_xor_symbol(w), {a, c}, run<termsimpl::BVXorSimpl>},
      {mgr.make_bv_ult_symbol(w), {a, c}, run<termsimpl::BVUltSimpl>},
      {mgr.make_bv_ule_symbol(w), {a, c}, run<termsimpl::BVUleSimpl>},
      {mgr.make_bv_slt_symbol(w), {a, c}, run<termsimpl::BVSltSimpl>},
      {mgr.make_bv_sle_symbol(w), {a, c}, run<termsimpl::BVSleSimpl>},
      {mgr.make_bv_comp_symbol(w), {a, c}, run<termsimpl::BVCompSimpl>},
      {mgr.make_bv_concat_symbol(w, w), {a, c}, run<termsimpl::BVConcatSimpl>},
      {mgr.make_bv_extract_symbol(6, 1, w), {a}, run<termsimpl::BVSelectSimpl>},
      {mgr.make_bv_zero_extend_symbol(3, w), {a}, run<termsimpl::BVZextSimpl>},
      {mgr.make_bv_sign_extend_symbol(3, w), {a}, run<termsimpl::BVSextSimpl>},
      {mgr.make_bv_rotate_left_symbol(3, w), {a}, run<termsimpl::BVRolSimpl>},
      {mgr.make_bv_rotate_right_symbol(3, w), {a}, run<termsimpl::BVRorSimpl>},
  };
  for (const auto& row : rows) {
    const Term* expected = row.folder(&mgr, row.s, row.args);
    EXPECT_EQ(termsimpl::fold(&mgr, row.s, row.args), expected) << row.s->name();
    // Every one of these folds to a value.
    EXPECT_EQ(expected->arity(), 0u) << row.s->name();
  }
}

TEST(FoldDispatchTest, SymbolsWithoutAFolderAreRebuilt) {
  TermManager mgr;
  const DataType* arr = mgr.array_type(mgr.bv_type(4), mgr.bool_type());
  const Term* all_false = mgr.make_const_array(arr, mgr.false_term());
  EXPECT_EQ(termsimpl::fold(&mgr, all_false->get_symbol(), {mgr.false_term()}), all_false);
  const Term* x = mgr.make_constant("x", mgr.bv_type(4));
  EXPECT_EQ(termsimpl::fold(&mgr, x->get_symbol(), {}), x);
  const Term* nine = mgr.make_bv_number(9, 4);
  EXPECT_EQ(termsimpl::fold(&mgr, nine->get_symbol(), {}), nine);
  EXPECT_EQ(termsimpl::fold(&mgr, mgr.true_symbol(), {}), mgr.true_term());
}

TEST(FoldDispatchTest, FoldsThroughTheBaseClass) {
  TermManager mgr;
  std::unique_ptr<termsimpl::StdTermSimplifier::simpl_fun> f =
      std::make_unique<termsimpl::BVSubSimpl>();
  const Term* r = (*f)(&mgr, mgr.make_bv_sub_symbol(8),
                       {mgr.make_bv_number(100, 8), mgr.make_bv_number(200, 8)});
  EXPECT_EQ(r, mgr.make_bv_number(156, 8));
  EXPECT_EQ(r->to_shallow_str(), "#x9c");
}

}  // namespace
}  // namespace kora
