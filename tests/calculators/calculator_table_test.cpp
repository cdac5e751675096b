// The calculator table: one calculator of the right class per operator that
// has one, and nothing for constants and values.

#include "kora/calculators/calculator_table.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace kora::adhoccalculator {
namespace {

struct Entry {
  Op op;
  const char* class_name;
  std::function<bool(AdHocCalculator*)> is_expected_class;
};

template <class Calculator>
Entry entry(Op op, const char* class_name) {
  return {op, class_name,
          [](AdHocCalculator* c) { return dynamic_cast<Calculator*>(c) != nullptr; }};
}

// Every operator with a calculator, and the class that must serve it.
const std::vector<Entry>& expected_entries() {
  static const std::vector<Entry> entries = {
      entry<NotAdHocCalculator>(Op::Not, "NotAdHocCalculator"),
      entry<AndAdHocCalculator>(Op::And, "AndAdHocCalculator"),
      entry<OrAdHocCalculator>(Op::Or, "OrAdHocCalculator"),
      entry<IffAdHocCalculator>(Op::Iff, "IffAdHocCalculator"),
      entry<IteAdHocCalculator>(Op::Ite, "IteAdHocCalculator"),
      entry<EqAdHocCalculator>(Op::Equal, "EqAdHocCalculator"),
      entry<BVAddAdHocCalculator>(Op::BVAdd, "BVAddAdHocCalculator"),
      entry<BVSubAdHocCalculator>(Op::BVSub, "BVSubAdHocCalculator"),
      entry<BVNegAdHocCalculator>(Op::BVNeg, "BVNegAdHocCalculator"),
      entry<BVMulAdHocCalculator>(Op::BVMul, "BVMulAdHocCalculator"),
      entry<BVLslAdHocCalculator>(Op::BVShl, "BVLslAdHocCalculator"),
      entry<BVLsrAdHocCalculator>(Op::BVLshr, "BVLsrAdHocCalculator"),
      entry<BVAsrAdHocCalculator>(Op::BVAshr, "BVAsrAdHocCalculator"),
      entry<BVUdivAdHocCalculator>(Op::BVUdiv, "BVUdivAdHocCalculator"),
      entry<BVSdivAdHocCalculator>(Op::BVSdiv, "BVSdivAdHocCalculator"),
      entry<BVUltAdHocCalculator>(Op::BVUlt, "BVUltAdHocCalculator"),
      entry<BVUleAdHocCalculator>(Op::BVUle, "BVUleAdHocCalculator"),
      entry<BVSltAdHocCalculator>(Op::BVSlt, "BVSltAdHocCalculator"),
      entry<BVSleAdHocCalculator>(Op::BVSle, "BVSleAdHocCalculator"),
      entry<BVCompAdHocCalculator>(Op::BVComp, "BVCompAdHocCalculator"),
      entry<BVNotAdHocCalculator>(Op::BVNot, "BVNotAdHocCalculator"),
      entry<BVAndAdHocCalculator>(Op::BVAnd, "BVAndAdHocCalculator"),
      entry<BVOrAdHocCalculator>(Op::BVOr, "BVOrAdHocCalculator"),
      entry<BVXorAdHocCalculator>(Op::BVXor, "BVXorAdHocCalculator"),
      entry<BVConcatAdHocCalculator>(Op::BVConcat, "BVConcatAdHocCalculator"),
      entry<BVSelectAdHocCalculator>(Op::BVExtract, "BVSelectAdHocCalculator"),
      entry<BVRolAdHocCalculator>(Op::BVRotateLeft, "BVRolAdHocCalculator"),
      entry<BVRorAdHocCalculator>(Op::BVRotateRight, "BVRorAdHocCalculator"),
      entry<BVZextAdHocCalculator>(Op::BVZeroExtend, "BVZextAdHocCalculator"),
      entry<BVSextAdHocCalculator>(Op::BVSignExtend, "BVSextAdHocCalculator"),
      entry<BVUremAdHocCalculator>(Op::BVUrem, "BVUremAdHocCalculator"),
      entry<BVSremAdHocCalculator>(Op::BVSrem, "BVSremAdHocCalculator"),
  };
  return entries;
}

class CalculatorTableTest : public ::testing::Test {
 protected:
  TermManager mgr;
  std::ostringstream log;
  ModelStore store{&mgr, &log};
  SetFreeTermPredicate pred;
  CalculatorTable table{&mgr, &store, &pred};
};

TEST_F(CalculatorTableTest, ListsThirtyTwoDistinctOperators) {
  ASSERT_EQ(expected_entries().size(), 32u);
  std::vector<bool> seen(kOpCount, false);
  for (const Entry& e : expected_entries()) {
    auto i = static_cast<std::size_t>(e.op);
    EXPECT_FALSE(seen[i]) << op_name(e.op) << " listed twice";
    seen[i] = true;
  }
}

TEST_F(CalculatorTableTest, HoldsExactlyThirtyTwoCalculators) {
  EXPECT_EQ(table.size(), 32u);
}

TEST_F(CalculatorTableTest, EachOperatorHasACalculatorOfItsClass) {
  for (const Entry& e : expected_entries()) {
    AdHocCalculator* c = table.find(e.op);
    if (c == nullptr) {
      ADD_FAILURE() << op_name(e.op) << " has no calculator; expected " << e.class_name;
      continue;
    }
    EXPECT_TRUE(e.is_expected_class(c)) << op_name(e.op) << " is not served by " << e.class_name;
  }
}

TEST_F(CalculatorTableTest, EachCalculatorServesOneOperator) {
  std::vector<AdHocCalculator*> all;
  for (std::size_t i = 0; i < kOpCount; ++i) {
    AdHocCalculator* c = table.find(static_cast<Op>(i));
    if (c == nullptr) continue;
    for (AdHocCalculator* other : all) EXPECT_NE(c, other) << op_name(static_cast<Op>(i));
    all.push_back(c);
  }
}

TEST_F(CalculatorTableTest, OperatorsWithoutCalculatorsFindNothing) {
  std::vector<bool> expected(kOpCount, false);
  for (const Entry& e : expected_entries()) expected[static_cast<std::size_t>(e.op)] = true;
  for (std::size_t i = 0; i < kOpCount; ++i) {
    if (expected[i]) continue;
    EXPECT_EQ(table.find(static_cast<Op>(i)), nullptr) << op_name(static_cast<Op>(i));
  }
  // In particular constants and values.
  EXPECT_EQ(table.find(mgr.true_term()), nullptr);
  EXPECT_EQ(table.find(mgr.make_bv_number(3, 4)), nullptr);
  EXPECT_EQ(table.find(mgr.make_constant("x", mgr.bv_type(4))), nullptr);
}

TEST_F(CalculatorTableTest, EqualityOverBooleansGoesToIff) {
  const Term* p = mgr.make_constant("p", mgr.bool_type());
  const Term* q = mgr.make_constant("q", mgr.bool_type());
  // An equality whose sides are Boolean, built with the equality symbol.
  const Term* eq = mgr.make_equal(p, q);
  ASSERT_EQ(eq->get_symbol()->op(), Op::Equal);
  AdHocCalculator* c = table.find(eq);
  EXPECT_NE(dynamic_cast<IffAdHocCalculator*>(c), nullptr);
  EXPECT_EQ(c, table.find(Op::Iff));
  EXPECT_EQ(table.find(mgr.make_iff(p, q)), table.find(Op::Iff));
}

TEST_F(CalculatorTableTest, EqualityOverBitVectorsGoesToEq) {
  const Term* x = mgr.make_constant("x", mgr.bv_type(4));
  const Term* y = mgr.make_constant("y", mgr.bv_type(4));
  AdHocCalculator* c = table.find(mgr.make_equal(x, y));
  EXPECT_NE(dynamic_cast<EqAdHocCalculator*>(c), nullptr);
}

TEST_F(CalculatorTableTest, FindByTermUsesTheTermsOperator) {
  const Term* x = mgr.make_constant("x", mgr.bv_type(4));
  const Term* y = mgr.make_constant("y", mgr.bv_type(4));
  for (const Entry& e : expected_entries()) {
    const Term* t = nullptr;
    switch (e.op) {
      case Op::BVConcat:
        t = mgr.make_term(mgr.make_bv_concat_symbol(4, 4), {x, y});
        break;
      case Op::BVExtract:
        t = mgr.make_term(mgr.make_bv_extract_symbol(2, 1, 4), {x});
        break;
      case Op::BVZeroExtend:
        t = mgr.make_term(mgr.make_bv_zero_extend_symbol(2, 4), {x});
        break;
      case Op::BVSignExtend:
        t = mgr.make_term(mgr.make_bv_sign_extend_symbol(2, 4), {x});
        break;
      case Op::BVRotateLeft:
        t = mgr.make_term(mgr.make_bv_rotate_left_symbol(1, 4), {x});
        break;
      case Op::BVRotateRight:
        t = mgr.make_term(mgr.make_bv_rotate_right_symbol(1, 4), {x});
        break;
      case Op::BVNeg:
      case Op::BVNot:
        t = mgr.make_term(mgr.make_bv_symbol(e.op, 4), {x});
        break;
      default:
        if (e.op >= Op::BVAdd) t = mgr.make_term(mgr.make_bv_symbol(e.op, 4), {x, y});
        break;
    }
    if (t == nullptr) continue;  // the Boolean operators are covered above
    AdHocCalculator* c = table.find(t);
    EXPECT_TRUE(c != nullptr && e.is_expected_class(c)) << t->to_shallow_str();
  }
}

}  // namespace
}  // namespace kora::adhoccalculator
