// Bitwise and structural calculators: BVNot, BVXor, BVAnd, BVOr, BVConcat,
// BVSelect, BVRol, BVRor, and the never-free BVZext, BVSext, BVUrem, BVSrem.

#include "support/calculator_fixture.h"
#include "support/term_helpers.h"

namespace kora::test {
namespace {

using namespace kora::adhoccalculator;
using u64 = std::uint64_t;

// --- Signatures --------------------------------------------------------------

Signature unary_bv(Op op, std::size_t w) {
  return {{bv_sort(w)}, bv_sort(w), [op, w](TermManager& m, const auto& a) {
            return m.make_term(m.make_bv_symbol(op, w), {a[0]});
          }};
}

Signature binary_bv(Op op, std::size_t w) {
  return {{bv_sort(w), bv_sort(w)}, bv_sort(w), [op, w](TermManager& m, const auto& a) {
            return m.make_term(m.make_bv_symbol(op, w), {a[0], a[1]});
          }};
}

Signature concat_sig(std::size_t w1, std::size_t w2) {
  return {{bv_sort(w1), bv_sort(w2)}, bv_sort(w1 + w2), [w1, w2](TermManager& m, const auto& a) {
            return m.make_term(m.make_bv_concat_symbol(w1, w2), {a[0], a[1]});
          }};
}

Signature extract_sig(std::size_t msb, std::size_t lsb, std::size_t w) {
  return {{bv_sort(w)}, bv_sort(msb - lsb + 1), [msb, lsb, w](TermManager& m, const auto& a) {
            return m.make_term(m.make_bv_extract_symbol(msb, lsb, w), {a[0]});
          }};
}

Signature rotate_sig(bool left, std::size_t amount, std::size_t w) {
  return {{bv_sort(w)}, bv_sort(w), [left, amount, w](TermManager& m, const auto& a) {
            const Symbol* s = left ? m.make_bv_rotate_left_symbol(amount, w)
                                   : m.make_bv_rotate_right_symbol(amount, w);
            return m.make_term(s, {a[0]});
          }};
}

Signature extend_sig(bool sign, std::size_t amount, std::size_t w) {
  return {{bv_sort(w)}, bv_sort(w + amount), [sign, amount, w](TermManager& m, const auto& a) {
            const Symbol* s = sign ? m.make_bv_sign_extend_symbol(amount, w)
                                   : m.make_bv_zero_extend_symbol(amount, w);
            return m.make_term(s, {a[0]});
          }};
}

// --- Machine-word reference ------------------------------------------------------

u64 rotl(u64 x, std::size_t k, std::size_t w) {
  k %= w;
  return k == 0 ? x : ((x << k) | (x >> (w - k))) & mask(w);
}
u64 rotr(u64 x, std::size_t k, std::size_t w) {
  return rotl(x, w - k % w, w);
}

// v's number where the calculator reads one: 0 when v is not a numeral.
u64 v_number(const Case& c) {
  return c.v.value_or(0);
}

// The application that a folder hands back unchanged when v is not a
// numeral.
const Term* app(const CaseTerms& x, const Symbol* s, std::vector<const Term*> args) {
  return x.mgr.make_term(s, args);
}

// --- Oracles: the decision tables, row by row --------------------------------

Expect bvnot_oracle(const Case& c, const CaseTerms& x) {
  std::size_t w = c.width();
  if (!c.args[0].is_free()) return Expect::fail(kNotFreeMessage);
  const Term* value = c.v ? x.num(~*c.v & mask(w), w) : app(x, x.mgr.make_bv_not_symbol(w), {x.v});
  return {nullptr, {{x.args[0], value}}};
}

Expect bvxor_oracle(const Case& c, const CaseTerms& x) {
  std::size_t w = c.width();
  const ArgCase& a = c.args[0];
  const ArgCase& b = c.args[1];
  auto v_xor = [&](std::size_t known) {
    if (!c.v) return app(x, x.mgr.make_bv_xor_symbol(w), {x.v, x.values[known]});
    return x.num(*c.v ^ c.args[known].value, w);
  };
  if (a.is_free() && b.is_free()) {
    return {nullptr, {{x.args[0], x.num(v_number(c), w)}, {x.args[1], x.num(0, w)}}};
  }
  if (a.is_free()) return {nullptr, {{x.args[0], v_xor(1)}}};
  if (b.is_free()) return {nullptr, {{x.args[1], v_xor(0)}}};
  return Expect::fail(kNotFreeMessage);
}

// And and Or: only both-free is solved.
Expect bvand_or_oracle(const Case& c, const CaseTerms& x) {
  if (!c.args[0].is_free() || !c.args[1].is_free()) return Expect::fail(kNotFreeMessage);
  const Term* n = x.num(v_number(c), c.width());
  return {nullptr, {{x.args[0], n}, {x.args[1], n}}};
}

Oracle concat_oracle(std::size_t w1, std::size_t w2) {
  return [w1, w2](const Case& c, const CaseTerms& x) -> Expect {
    if (!c.args[0].is_free() || !c.args[1].is_free()) return Expect::fail(kNotFreeMessage);
    std::size_t w = w1 + w2;
    if (!c.v) {
      return {nullptr,
              {{x.args[0], app(x, x.mgr.make_bv_extract_symbol(w - 1, w2, w), {x.v})},
               {x.args[1], app(x, x.mgr.make_bv_extract_symbol(w2 - 1, 0, w), {x.v})}}};
    }
    return {nullptr, {{x.args[0], x.num(*c.v >> w2, w1)}, {x.args[1], x.num(*c.v & mask(w2), w2)}}};
  };
}

Oracle extract_oracle(std::size_t lsb, std::size_t w) {
  return [lsb, w](const Case& c, const CaseTerms& x) -> Expect {
    if (!c.args[0].is_free()) return Expect::fail(kNotFreeMessage);
    return {nullptr, {{x.args[0], x.num(v_number(c) << lsb, w)}}};
  };
}

Oracle rotate_oracle(bool left, std::size_t amount, std::size_t w) {
  return [left, amount, w](const Case& c, const CaseTerms& x) -> Expect {
    if (!c.args[0].is_free()) return Expect::fail(kNotFreeMessage);
    if (!c.v) {
      // The inverse rotation folded over a v that is not a numeral.
      const Symbol* inverse = left ? x.mgr.make_bv_rotate_right_symbol(amount, w)
                                   : x.mgr.make_bv_rotate_left_symbol(amount, w);
      return {nullptr, {{x.args[0], app(x, inverse, {x.v})}}};
    }
    u64 a = left ? rotr(*c.v, amount, w) : rotl(*c.v, amount, w);
    return {nullptr, {{x.args[0], x.num(a, w)}}};
  };
}

// --- Exhaustive tests ----------------------------------------------------------

TEST(BitwiseExhaustive, Not) {
  for (std::size_t w = 1; w <= 4; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<BVNotAdHocCalculator>(unary_bv(Op::BVNot, w), bvnot_oracle);
  }
}

TEST(BitwiseExhaustive, Xor) {
  for (std::size_t w = 1; w <= 4; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<BVXorAdHocCalculator>(binary_bv(Op::BVXor, w), bvxor_oracle);
  }
}

TEST(BitwiseExhaustive, And) {
  for (std::size_t w = 1; w <= 4; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<BVAndAdHocCalculator>(binary_bv(Op::BVAnd, w), bvand_or_oracle);
  }
}

TEST(BitwiseExhaustive, Or) {
  for (std::size_t w = 1; w <= 4; ++w) {
    SCOPED_TRACE(w);
    check_all_cases<BVOrAdHocCalculator>(binary_bv(Op::BVOr, w), bvand_or_oracle);
  }
}

TEST(StructuralExhaustive, ConcatEverySplit) {
  for (std::size_t w1 = 1; w1 <= 4; ++w1) {
    for (std::size_t w2 = 1; w2 <= 4; ++w2) {
      SCOPED_TRACE(::testing::Message() << "concat " << w1 << "+" << w2);
      check_all_cases<BVConcatAdHocCalculator>(concat_sig(w1, w2), concat_oracle(w1, w2));
    }
  }
}

TEST(StructuralExhaustive, ExtractEveryRange) {
  for (std::size_t w = 1; w <= 4; ++w) {
    for (std::size_t msb = 0; msb < w; ++msb) {
      for (std::size_t lsb = 0; lsb <= msb; ++lsb) {
        SCOPED_TRACE(::testing::Message() << "extract " << msb << " " << lsb << " of " << w);
        check_all_cases<BVSelectAdHocCalculator>(extract_sig(msb, lsb, w), extract_oracle(lsb, w));
      }
    }
  }
}

TEST(StructuralExhaustive, RotateLeftEveryAmount) {
  for (std::size_t w = 1; w <= 4; ++w) {
    for (std::size_t amount = 0; amount <= 2 * w + 1; ++amount) {
      SCOPED_TRACE(::testing::Message() << "rotate_left " << amount << " of " << w);
      check_all_cases<BVRolAdHocCalculator>(rotate_sig(true, amount, w),
                                            rotate_oracle(true, amount, w));
    }
  }
}

TEST(StructuralExhaustive, RotateRightEveryAmount) {
  for (std::size_t w = 1; w <= 4; ++w) {
    for (std::size_t amount = 0; amount <= 2 * w + 1; ++amount) {
      SCOPED_TRACE(::testing::Message() << "rotate_right " << amount << " of " << w);
      check_all_cases<BVRorAdHocCalculator>(rotate_sig(false, amount, w),
                                            rotate_oracle(false, amount, w));
    }
  }
}

// --- Never-free: the store must not even be asked -----------------------------------

// A store that counts every call of its overridable interface.
class CountingStore : public ModelStore {
 public:
  using ModelStore::ModelStore;
  const Term* get_normalized(const Term* t) override {
    ++calls;
    return ModelStore::get_normalized(t);
  }
  bool is_good_model_value(const Term* t) override {
    ++calls;
    return ModelStore::is_good_model_value(t);
  }
  void assign_free_constants(const Term* t, int* counter) override {
    ++calls;
    ModelStore::assign_free_constants(t, counter);
  }
  void add_model_constraint(const Term* c, bool flag) override {
    ++calls;
    ModelStore::add_model_constraint(c, flag);
  }
  Logger& log(int level) override {
    ++calls;
    return ModelStore::log(level);
  }
  int calls = 0;
};

// Marks free through the fixture's predicate and counts the questions asked.
class CountingPredicate : public FreeTermPredicate {
 public:
  bool is_free(const Term* a) override {
    ++calls;
    return inner.is_free(a);
  }
  SetFreeTermPredicate inner;
  int calls = 0;
};

// Every case of sig, and once more with null t and v: the calculator must
// throw the never-free message without a single call to the store or the
// predicate, leaving defaulted arguments without values and recording
// nothing.
template <class Calculator>
void check_never_free(const Signature& sig) {
  int failures = 0;
  for (const Case& c : all_cases(sig)) {
    TermManager mgr;
    std::ostringstream log;
    CountingStore store(&mgr, &log);
    store.logger().set_verbosity(2);
    CountingPredicate pred;
    CaseTerms terms = make_case_terms(c, mgr, store, pred.inner);
    store.calls = 0;
    std::size_t term_count = mgr.term_count();
    Calculator calc(&mgr, &store, &pred);
    std::ostringstream problem;
    for (bool null_inputs : {false, true}) {
      try {
        calc(null_inputs ? nullptr : terms.t, null_inputs ? nullptr : terms.v);
        problem << "did not throw; ";
      } catch (const AdHocCalculator::error& e) {
        if (std::string(e.what()) != kNeverFreeMessage) problem << "threw \"" << e.what() << "\"; ";
      }
    }
    if (store.calls != 0) problem << store.calls << " store calls; ";
    if (pred.calls != 0) problem << pred.calls << " predicate calls; ";
    if (mgr.term_count() != term_count) problem << "terms were made; ";
    if (!store.constraints().empty() || !log.str().empty() || store.adhoc_values.size() != 0) {
      problem << "recorded something; ";
    }
    for (std::size_t i = 0; i < c.args.size(); ++i) {
      const Term* want = c.args[i].kind == Kind::Valued ? terms.values[i] : nullptr;
      if (store.value_of(terms.args[i]) != want) problem << "a" << i << "'s value changed; ";
    }
    if (problem.str().empty()) continue;
    ADD_FAILURE() << c.describe() << ": " << problem.str();
    if (++failures == 10) return;
  }
}

TEST(NeverFreeExhaustive, ZeroExtend) {
  for (std::size_t w = 1; w <= 4; ++w) {
    for (std::size_t amount = 0; amount <= 3; ++amount) {
      SCOPED_TRACE(::testing::Message() << "zero_extend " << amount << " of " << w);
      check_never_free<BVZextAdHocCalculator>(extend_sig(false, amount, w));
    }
  }
}

TEST(NeverFreeExhaustive, SignExtend) {
  for (std::size_t w = 1; w <= 4; ++w) {
    for (std::size_t amount = 0; amount <= 3; ++amount) {
      SCOPED_TRACE(::testing::Message() << "sign_extend " << amount << " of " << w);
      check_never_free<BVSextAdHocCalculator>(extend_sig(true, amount, w));
    }
  }
}

TEST(NeverFreeExhaustive, Urem) {
  for (std::size_t w = 1; w <= 4; ++w) {
    SCOPED_TRACE(w);
    check_never_free<BVUremAdHocCalculator>(binary_bv(Op::BVUrem, w));
  }
}

TEST(NeverFreeExhaustive, Srem) {
  for (std::size_t w = 1; w <= 4; ++w) {
    SCOPED_TRACE(w);
    check_never_free<BVSremAdHocCalculator>(binary_bv(Op::BVSrem, w));
  }
}

// --- Bitwise edge cases ------------------------------------------------------------

class BitwiseCalc : public CalculatorTest {
 protected:
  const Term* op(Op o, std::size_t w, std::vector<const Term*> args) {
    return mgr.make_term(mgr.make_bv_symbol(o, w), args);
  }
};

TEST_F(BitwiseCalc, XorBothFreeFirstTakesVSecondTakesZero) {
  const Term* a = free(bv("a", 4));
  const Term* b = free(bv("b", 4));
  EXPECT_EQ(run<BVXorAdHocCalculator>(op(Op::BVXor, 4, {a, b}), num(0b1010, 4)), "");
  EXPECT_EQ(constraints(), "((= a #xa) (= b #x0))");
  EXPECT_EQ(log.str(), "calculated adhoc a := #xa ..\ncalculated adhoc b := #x0 ..\n");
}

TEST_F(BitwiseCalc, XorFreeFirstAgainstThreeGivesSix) {
  const Term* x = free(bv("x", 4));
  const Term* k = valued(bv("k", 4), num(3, 4));
  EXPECT_EQ(run<BVXorAdHocCalculator>(op(Op::BVXor, 4, {x, k}), num(5, 4)), "");
  EXPECT_EQ(constraints(), "((= x #x6))");
}

TEST_F(BitwiseCalc, XorFreeSecondAgainstThreeGivesSix) {
  const Term* k = valued(bv("k", 4), num(3, 4));
  const Term* x = free(bv("x", 4));
  EXPECT_EQ(run<BVXorAdHocCalculator>(op(Op::BVXor, 4, {k, x}), num(5, 4)), "");
  EXPECT_EQ(constraints(), "((= x #x6))");
}

TEST_F(BitwiseCalc, XorFreeAgainstLiteralNumeralSolves) {
  // A numeral argument is valued by its own normal form.
  const Term* x = free(bv("x", 4));
  EXPECT_EQ(run<BVXorAdHocCalculator>(op(Op::BVXor, 4, {num(3, 4), x}), num(5, 4)), "");
  EXPECT_EQ(constraints(), "((= x #x6))");
}

TEST_F(BitwiseCalc, XorAgainstDefaultedSideUsesZero) {
  const Term* x = free(bv("x", 4));
  const Term* d = bv("d", 4);  // neither valued nor free
  EXPECT_EQ(run<BVXorAdHocCalculator>(op(Op::BVXor, 4, {x, d}), num(9, 4)), "");
  EXPECT_EQ(store.value_of(d), num(0, 4));
  EXPECT_EQ(constraints(), "((= x #x9))");
}

TEST_F(BitwiseCalc, XorWithNoFreeSideThrows) {
  const Term* a = valued(bv("a", 4), num(1, 4));
  const Term* d = bv("d", 4);
  EXPECT_EQ(run<BVXorAdHocCalculator>(op(Op::BVXor, 4, {a, d}), num(1, 4)), kNotFreeMessage);
  EXPECT_EQ(store.value_of(d), num(0, 4));
  EXPECT_EQ(constraints(), "()");
}

TEST_F(BitwiseCalc, NotOfZeroAtWidthEightIs255) {
  const Term* a = free(bv("a", 8));
  EXPECT_EQ(run<BVNotAdHocCalculator>(op(Op::BVNot, 8, {a}), num(0, 8)), "");
  EXPECT_EQ(constraints(), "((= a #xff))");
}

TEST_F(BitwiseCalc, NotOfValuedOrDefaultedArgumentThrows) {
  const Term* a = valued(bv("a", 8), num(255, 8));
  EXPECT_EQ(run<BVNotAdHocCalculator>(op(Op::BVNot, 8, {a}), num(0, 8)), kNotFreeMessage);
  const Term* d = bv("d", 8);
  EXPECT_EQ(run<BVNotAdHocCalculator>(op(Op::BVNot, 8, {d}), num(0, 8)), kNotFreeMessage);
  EXPECT_EQ(store.value_of(d), num(0, 8));
  EXPECT_EQ(constraints(), "()");
}

TEST_F(BitwiseCalc, AndFirstFreeSecondValuedThrowsEvenThoughSolvable) {
  // a := 0b0110 would do (0b0110 and 0b1111), but a single free side is
  // never solved.
  const Term* a = free(bv("a", 4));
  const Term* b = valued(bv("b", 4), num(0b1111, 4));
  EXPECT_EQ(run<BVAndAdHocCalculator>(op(Op::BVAnd, 4, {a, b}), num(0b0110, 4)), kNotFreeMessage);
  EXPECT_EQ(constraints(), "()");
  EXPECT_EQ(log.str(), "");
}

TEST_F(BitwiseCalc, AndBothFreeBothTakeV) {
  const Term* a = free(bv("a", 4));
  const Term* b = free(bv("b", 4));
  EXPECT_EQ(run<BVAndAdHocCalculator>(op(Op::BVAnd, 4, {a, b}), num(0b0110, 4)), "");
  EXPECT_EQ(constraints(), "((= a #x6) (= b #x6))");
}

TEST_F(BitwiseCalc, OrBothFreeBothTakeV) {
  const Term* a = free(bv("a", 4));
  const Term* b = free(bv("b", 4));
  EXPECT_EQ(run<BVOrAdHocCalculator>(op(Op::BVOr, 4, {a, b}), num(0b0110, 4)), "");
  EXPECT_EQ(constraints(), "((= a #x6) (= b #x6))");
}

TEST_F(BitwiseCalc, OrSecondFreeFirstValuedThrowsEvenThoughSolvable) {
  const Term* a = valued(bv("a", 4), num(0, 4));
  const Term* b = free(bv("b", 4));
  EXPECT_EQ(run<BVOrAdHocCalculator>(op(Op::BVOr, 4, {a, b}), num(7, 4)), kNotFreeMessage);
  EXPECT_EQ(constraints(), "()");
}

TEST_F(BitwiseCalc, AndValuedFirstDefaultedSecondDefaultsThenThrows) {
  const Term* a = valued(bv("a", 4), num(5, 4));
  // (bvadd p q) is neither valued nor free: p and q get their defaults.
  const Term* p = bv("p", 4);
  const Term* q = bv("q", 4);
  const Term* b = op(Op::BVAdd, 4, {p, q});
  EXPECT_EQ(run<BVAndAdHocCalculator>(op(Op::BVAnd, 4, {a, b}), num(5, 4)), kNotFreeMessage);
  EXPECT_EQ(store.value_of(p), num(0, 4));
  EXPECT_EQ(store.value_of(q), num(0, 4));
  EXPECT_EQ(constraints(), "()");
}

TEST_F(BitwiseCalc, OrValuedFirstDefaultedSecondDefaultsThenThrows) {
  const Term* a = valued(bv("a", 4), num(5, 4));
  const Term* d = bv("d", 4);
  EXPECT_EQ(run<BVOrAdHocCalculator>(op(Op::BVOr, 4, {a, d}), num(5, 4)), kNotFreeMessage);
  EXPECT_EQ(store.value_of(d), num(0, 4));
  EXPECT_EQ(constraints(), "()");
}

TEST_F(BitwiseCalc, NonNumeralVCountsAsZeroForAndOrAndBothFreeXor) {
  const Term* v = bv("v", 4);  // not a numeral
  const Term* a1 = free(bv("a1", 4));
  const Term* b1 = free(bv("b1", 4));
  EXPECT_EQ(run<BVAndAdHocCalculator>(op(Op::BVAnd, 4, {a1, b1}), v), "");
  const Term* a2 = free(bv("a2", 4));
  const Term* b2 = free(bv("b2", 4));
  EXPECT_EQ(run<BVOrAdHocCalculator>(op(Op::BVOr, 4, {a2, b2}), v), "");
  const Term* a3 = free(bv("a3", 4));
  const Term* b3 = free(bv("b3", 4));
  EXPECT_EQ(run<BVXorAdHocCalculator>(op(Op::BVXor, 4, {a3, b3}), v), "");
  EXPECT_EQ(constraints(), "((= a1 #x0) (= b1 #x0) (= a2 #x0) (= b2 #x0) (= a3 #x0) (= b3 #x0))");
}

TEST_F(BitwiseCalc, NonNumeralVWithOneFreeXorSideRecordsTheUnfoldedXor) {
  // The folder cannot fold over v, so the application comes back as it is.
  const Term* v = bv("v", 4);
  const Term* x = free(bv("x", 4));
  const Term* k = valued(bv("k", 4), num(3, 4));
  EXPECT_EQ(run<BVXorAdHocCalculator>(op(Op::BVXor, 4, {x, k}), v), "");
  EXPECT_EQ(constraints(), "((= x (bvxor v #x3)))");
}

TEST_F(BitwiseCalc, WideValuesFoldExactly) {
  // Beyond a machine word the numbers move to their big form.
  const std::size_t w = 100;
  const Term* x = free(bv("x", w));
  const Term* k = valued(bv("k", w), num(1, w));
  const Term* v = mgr.make_bv_number(QNumber(-1L), w);  // all ones
  EXPECT_EQ(run<BVXorAdHocCalculator>(op(Op::BVXor, w, {x, k}), v), "");
  const Term* y = free(bv("y", w));
  EXPECT_EQ(run<BVNotAdHocCalculator>(op(Op::BVNot, w, {y}), v), "");
  ASSERT_EQ(store.constraints().size(), 2u);
  EXPECT_EQ(store.constraints()[0], mgr.make_equal(x, mgr.make_bv_number(QNumber(-2L), w)));
  EXPECT_EQ(store.constraints()[1], mgr.make_equal(y, num(0, w)));
}

// --- Concat and extract edge cases ---------------------------------------------------

class StructuralCalc : public CalculatorTest {
 protected:
  const Term* concat(const Term* a, const Term* b) {
    return mgr.make_term(mgr.make_bv_concat_symbol(width_of(mgr, a), width_of(mgr, b)), {a, b});
  }
  const Term* extract(std::size_t msb, std::size_t lsb, const Term* a) {
    return mgr.make_term(mgr.make_bv_extract_symbol(msb, lsb, width_of(mgr, a)), {a});
  }
};

TEST_F(StructuralCalc, ConcatBothFreeSplitsA5) {
  const Term* a = free(bv("a", 4));
  const Term* b = free(bv("b", 4));
  EXPECT_EQ(run<BVConcatAdHocCalculator>(concat(a, b), num(0xA5, 8)), "");
  EXPECT_EQ(constraints(), "((= a #xa) (= b #x5))");
}

TEST_F(StructuralCalc, ConcatUnevenSplit) {
  const Term* a = free(bv("a", 3));
  const Term* b = free(bv("b", 5));
  EXPECT_EQ(run<BVConcatAdHocCalculator>(concat(a, b), num(0b10111001, 8)), "");
  EXPECT_EQ(constraints(), "((= a #b101) (= b #b11001))");
}

TEST_F(StructuralCalc, ConcatFirstFreeSecondValuedThrows) {
  const Term* a = free(bv("a", 4));
  const Term* b = valued(bv("b", 4), num(5, 4));
  // Even though b agrees with the low half of v.
  EXPECT_EQ(run<BVConcatAdHocCalculator>(concat(a, b), num(0xA5, 8)), kNotFreeMessage);
  EXPECT_EQ(constraints(), "()");
}

TEST_F(StructuralCalc, ConcatSecondFreeFirstDefaultedThrowsAndKeepsDefault) {
  const Term* d = bv("d", 4);
  const Term* b = free(bv("b", 4));
  EXPECT_EQ(run<BVConcatAdHocCalculator>(concat(d, b), num(0x05, 8)), kNotFreeMessage);
  EXPECT_EQ(store.value_of(d), num(0, 4));
  EXPECT_EQ(constraints(), "()");
}

TEST_F(StructuralCalc, ExtractBitsFiveToTwoOfFree8Bit) {
  const Term* a = free(bv("a", 8));
  EXPECT_EQ(run<BVSelectAdHocCalculator>(extract(5, 2, a), num(0b1011, 4)), "");
  EXPECT_EQ(constraints(), "((= a #x2c))");  // 0b00101100 = 44
}

TEST_F(StructuralCalc, ExtractWithLsbZero) {
  const Term* a = free(bv("a", 8));
  EXPECT_EQ(run<BVSelectAdHocCalculator>(extract(3, 0, a), num(0b1011, 4)), "");
  EXPECT_EQ(constraints(), "((= a #x0b))");
}

TEST_F(StructuralCalc, ExtractWithMsbAtTop) {
  const Term* a = free(bv("a", 8));
  EXPECT_EQ(run<BVSelectAdHocCalculator>(extract(7, 4, a), num(0b1011, 4)), "");
  EXPECT_EQ(constraints(), "((= a #xb0))");
}

TEST_F(StructuralCalc, ExtractOfWholeWidthRecordsVUnchanged) {
  const Term* a = free(bv("a", 8));
  const Term* v = num(0x9c, 8);
  EXPECT_EQ(run<BVSelectAdHocCalculator>(extract(7, 0, a), v), "");
  ASSERT_EQ(store.constraints().size(), 1u);
  EXPECT_EQ(store.constraints()[0], mgr.make_equal(a, v));
}

TEST_F(StructuralCalc, ExtractIgnoresTheArgumentsOtherBits) {
  // Bits outside msb..lsb become zero whatever a might have held.
  const Term* a = free(bv("a", 8));
  EXPECT_EQ(run<BVSelectAdHocCalculator>(extract(4, 4, a), num(1, 1)), "");
  EXPECT_EQ(constraints(), "((= a #x10))");
}

TEST_F(StructuralCalc, ExtractWithNonNumeralVUsesZero) {
  const Term* a = free(bv("a", 8));
  EXPECT_EQ(run<BVSelectAdHocCalculator>(extract(5, 2, a), bv("v", 4)), "");
  EXPECT_EQ(constraints(), "((= a #x00))");
}

TEST_F(StructuralCalc, ExtractOfValuedArgumentThrows) {
  const Term* a = valued(bv("a", 8), num(0x2c, 8));
  // Even though a's value already extracts to v.
  EXPECT_EQ(run<BVSelectAdHocCalculator>(extract(5, 2, a), num(0b1011, 4)), kNotFreeMessage);
  EXPECT_EQ(constraints(), "()");
}

TEST_F(StructuralCalc, ExtractOfDefaultedArgumentThrowsAndKeepsDefault) {
  const Term* d = bv("d", 8);
  EXPECT_EQ(run<BVSelectAdHocCalculator>(extract(5, 2, d), num(0, 4)), kNotFreeMessage);
  EXPECT_EQ(store.value_of(d), num(0, 8));
}

// --- Rotation and never-free edge cases ----------------------------------------------

class RotationCalc : public CalculatorTest {
 protected:
  const Term* rol(std::size_t amount, const Term* a) {
    return mgr.make_term(mgr.make_bv_rotate_left_symbol(amount, width_of(mgr, a)), {a});
  }
  const Term* ror(std::size_t amount, const Term* a) {
    return mgr.make_term(mgr.make_bv_rotate_right_symbol(amount, width_of(mgr, a)), {a});
  }
};

TEST_F(RotationCalc, RotateLeftByThreeOfFree8BitUndoesTheRotation) {
  const Term* a = free(bv("a", 8));
  EXPECT_EQ(run<BVRolAdHocCalculator>(rol(3, a), num(0b00000001, 8)), "");
  EXPECT_EQ(constraints(), "((= a #x20))");  // 0b00100000
}

TEST_F(RotationCalc, RotateRightByOneOfFree4Bit) {
  const Term* a = free(bv("a", 4));
  EXPECT_EQ(run<BVRorAdHocCalculator>(ror(1, a), num(0b0001, 4)), "");
  EXPECT_EQ(constraints(), "((= a #x2))");
}

TEST_F(RotationCalc, RotationByAWholeTurnOrMoreReducesModuloTheWidth) {
  const Term* a = free(bv("a", 4));
  const Term* b = free(bv("b", 4));
  const Term* c = free(bv("c", 4));
  EXPECT_EQ(run<BVRolAdHocCalculator>(rol(4, a), num(0b0011, 4)), "");
  EXPECT_EQ(run<BVRolAdHocCalculator>(rol(5, b), num(0b0011, 4)), "");
  EXPECT_EQ(run<BVRorAdHocCalculator>(ror(9, c), num(0b0011, 4)), "");
  EXPECT_EQ(constraints(), "((= a #x3) (= b #x9) (= c #x6))");
}

TEST_F(RotationCalc, RotationOfValuedArgumentThrowsEvenWhenItAgrees) {
  // rotate_left 3 of 0x20 is 0x01, and rotate_right 1 of 0x2 is 0x1.
  const Term* a = valued(bv("a", 8), num(0x20, 8));
  EXPECT_EQ(run<BVRolAdHocCalculator>(rol(3, a), num(1, 8)), kNotFreeMessage);
  const Term* b = valued(bv("b", 4), num(2, 4));
  EXPECT_EQ(run<BVRorAdHocCalculator>(ror(1, b), num(1, 4)), kNotFreeMessage);
  EXPECT_EQ(constraints(), "()");
}

TEST_F(RotationCalc, RotationOfDefaultedArgumentThrowsAndKeepsDefault) {
  const Term* d = bv("d", 4);
  EXPECT_EQ(run<BVRorAdHocCalculator>(ror(1, d), num(1, 4)), kNotFreeMessage);
  EXPECT_EQ(store.value_of(d), num(0, 4));
  EXPECT_EQ(constraints(), "()");
}

TEST_F(RotationCalc, RotationWithNonNumeralVRecordsTheUnfoldedInverse) {
  const Term* a = free(bv("a", 4));
  EXPECT_EQ(run<BVRolAdHocCalculator>(rol(1, a), bv("v", 4)), "");
  EXPECT_EQ(constraints(), "((= a ((_ rotate_right 1) v)))");
}

using NeverFreeCalc = CalculatorTest;

TEST_F(NeverFreeCalc, ZeroExtensionOnAnyTermThrowsAndLeavesTheStoreUnchanged) {
  const Term* a = free(bv("a", 4));
  const Term* t = mgr.make_term(mgr.make_bv_zero_extend_symbol(4, 4), {a});
  EXPECT_EQ(run<BVZextAdHocCalculator>(t, num(7, 8)), kNeverFreeMessage);
  // Not even a term of the right operator is needed.
  EXPECT_EQ(run<BVZextAdHocCalculator>(mgr.true_term(), a), kNeverFreeMessage);
  EXPECT_EQ(run<BVZextAdHocCalculator>(nullptr, nullptr), kNeverFreeMessage);
  EXPECT_EQ(store.value_of(a), nullptr);
  EXPECT_EQ(constraints(), "()");
  EXPECT_EQ(log.str(), "");
  EXPECT_EQ(store.adhoc_values.size(), 0u);
}

TEST_F(NeverFreeCalc, OtherNeverFreeCalculatorsThrowTheSameMessage) {
  const Term* d = bv("d", 4);  // would be defaulted if it were classified
  const Term* e = bv("e", 4);
  const Term* urem = mgr.make_term(mgr.make_bv_urem_symbol(4), {d, e});
  const Term* srem = mgr.make_term(mgr.make_bv_srem_symbol(4), {d, e});
  const Term* sext = mgr.make_term(mgr.make_bv_sign_extend_symbol(2, 4), {d});
  EXPECT_EQ(run<BVUremAdHocCalculator>(urem, num(1, 4)), kNeverFreeMessage);
  EXPECT_EQ(run<BVSremAdHocCalculator>(srem, num(1, 4)), kNeverFreeMessage);
  EXPECT_EQ(run<BVSextAdHocCalculator>(sext, num(1, 6)), kNeverFreeMessage);
  EXPECT_EQ(store.value_of(d), nullptr);
  EXPECT_EQ(store.value_of(e), nullptr);
  EXPECT_EQ(constraints(), "()");
}

}  // namespace
}  // namespace kora::test
