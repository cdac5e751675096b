// The calculator framework: classification, recording, errors.

#include <string>
#include <vector>

#include "support/calculator_fixture.h"

namespace kora::test {
namespace {

using namespace kora::adhoccalculator;

// --- Framework edge cases --------------------------------------------------------

using CalculatorBase = CalculatorTest;

TEST_F(CalculatorBase, ThrowAfterDefaultingKeepsDefaultsAndRecordsNothing) {
  const Term* a = boolean("a");
  const Term* b = boolean("b");
  // (and a b) is neither valued nor free: classification defaults a and b.
  const Term* arg = mgr.make_and(a, b);
  EXPECT_EQ(run<NotAdHocCalculator>(mgr.make_not(arg), mgr.true_term()), kNotFreeMessage);
  EXPECT_EQ(store.value_of(a), mgr.false_term());
  EXPECT_EQ(store.value_of(b), mgr.false_term());
  EXPECT_TRUE(store.constraints().empty());
  EXPECT_EQ(store.adhoc_values.size(), 0u);
  EXPECT_EQ(log.str(), "");
}

TEST_F(CalculatorBase, CalculatedValueOnBooleanWritesIffAndAdhocEntry) {
  const Term* a = free(boolean("a"));
  EXPECT_EQ(run<NotAdHocCalculator>(mgr.make_not(a), mgr.true_term()), "");
  ASSERT_EQ(store.constraints().size(), 1u);
  EXPECT_EQ(store.constraints()[0], mgr.make_iff(a, mgr.false_term()));
  ASSERT_EQ(store.adhoc_values.size(), 1u);
  EXPECT_EQ(store.adhoc_values.find(a)->second, mgr.false_term());
}

TEST_F(CalculatorBase, CalculatedValueOnBitVectorWritesEqualityAndNoAdhocEntry) {
  const Term* x = free(bv("x", 4));
  const Term* y = valued(bv("y", 4), num(7, 4));
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(x, y), mgr.true_term()), "");
  ASSERT_EQ(store.constraints().size(), 1u);
  EXPECT_EQ(store.constraints()[0], mgr.make_equal(x, num(7, 4)));
  EXPECT_EQ(store.adhoc_values.size(), 0u);
}

TEST_F(CalculatorBase, WhatOfAddMessageKeepsNewline) {
  AdHocCalculator::error e(std::string("term was not free..\n"));
  EXPECT_STREQ(e.what(), "term was not free..\n");
  AdHocCalculator::error copy = e;
  EXPECT_STREQ(copy.what(), "term was not free..\n");
}

TEST_F(CalculatorBase, LogLineIsWrittenAtLevelTwo) {
  const Term* x = free(bv("x", 8));
  const Term* y = valued(bv("y", 8), num(200, 8));
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(x, y), mgr.true_term()), "");
  EXPECT_EQ(log.str(), "calculated adhoc x := #xc8 ..\n");
}

TEST_F(CalculatorBase, LogLineIsDroppedAtLimitOne) {
  store.logger().set_verbosity(1);
  const Term* x = free(bv("x", 8));
  const Term* y = valued(bv("y", 8), num(200, 8));
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(x, y), mgr.true_term()), "");
  EXPECT_EQ(log.str(), "");
  EXPECT_EQ(constraints(), "((= x #xc8))");
}

TEST_F(CalculatorBase, ClassificationAsksIsFreeOfTheArgumentNotItsNormalForm) {
  const Term* x = free(bv("x", 4));
  const Term* y = valued(bv("y", 4), num(3, 4));
  // The argument (bvadd x y) is not marked free even though x is.
  const Term* sum = mgr.make_term(mgr.make_bv_add_symbol(4), {x, y});
  const Term* z = free(bv("z", 4));
  EXPECT_EQ(run<EqAdHocCalculator>(mgr.make_equal(sum, z), mgr.true_term()), "");
  // sum was defaulted (x := 0) and z takes its value 3.
  EXPECT_EQ(store.value_of(x), num(0, 4));
  EXPECT_EQ(constraints(), "((= z #x3))");
}

// A store that writes down the order of the calls a calculator makes.
class RecordingStore : public ModelStore {
 public:
  using ModelStore::ModelStore;
  const Term* get_normalized(const Term* t) override {
    calls.push_back("get_normalized " + t->to_shallow_str());
    return ModelStore::get_normalized(t);
  }
  bool is_good_model_value(const Term* t) override {
    calls.push_back("is_good_model_value " + t->to_shallow_str());
    return ModelStore::is_good_model_value(t);
  }
  void assign_free_constants(const Term* t, int* counter) override {
    calls.push_back("assign_free_constants " + t->to_shallow_str() + " " +
                    std::to_string(*counter));
    ModelStore::assign_free_constants(t, counter);
  }
  void add_model_constraint(const Term* c, bool flag) override {
    calls.push_back("add_model_constraint " + c->to_shallow_str() + (flag ? " true" : " false"));
    ModelStore::add_model_constraint(c, flag);
  }
  Logger& log(int level) override {
    calls.push_back("log " + std::to_string(level));
    return ModelStore::log(level);
  }
  std::vector<std::string> calls;
};

TEST(CalculatorProtocol, CallsTheStoreInTheDocumentedOrder) {
  TermManager mgr;
  RecordingStore store(&mgr);
  SetFreeTermPredicate pred;
  const Term* a = mgr.make_constant("a", mgr.bool_type());
  const Term* d = mgr.make_constant("d", mgr.bool_type());
  pred.mark_free(a);
  IffAdHocCalculator calc(&mgr, &store, &pred);
  calc(mgr.make_iff(a, d), mgr.true_term());
  std::vector<std::string> expected = {
      "get_normalized a",
      "is_good_model_value a",
      "get_normalized d",
      "is_good_model_value d",
      "assign_free_constants d 0",
      "get_normalized d",
      "log 2",
      "add_model_constraint (= a false) true",
  };
  EXPECT_EQ(store.calls, expected);
}

TEST(CalculatorProtocol, ValuedArgumentIsNeverAskedIsFree) {
  struct CountingPredicate : FreeTermPredicate {
    bool is_free(const Term*) override {
      ++asked;
      return false;
    }
    int asked = 0;
  };
  TermManager mgr;
  ModelStore store(&mgr);
  CountingPredicate pred;
  const Term* a = mgr.make_constant("a", mgr.bool_type());
  store.set_value(a, mgr.true_term());
  NotAdHocCalculator calc(&mgr, &store, &pred);
  EXPECT_THROW(calc(mgr.make_not(a), mgr.true_term()), AdHocCalculator::error);
  EXPECT_EQ(pred.asked, 0);
}

TEST(CalculatorProtocol, ErrorsAreExceptions) {
  AdHocCalculator::error e{std::string(kNotFreeMessage)};
  const Exception& base = e;
  const std::exception& std_base = e;
  EXPECT_STREQ(base.what(), "Error: term is not free, cannot compute model!");
  EXPECT_STREQ(std_base.what(), "Error: term is not free, cannot compute model!");
}

TEST(CalculatorProtocol, MessagesAreExact) {
  EXPECT_STREQ(kNotFreeMessage, "Error: term is not free, cannot compute model!");
  EXPECT_STREQ(kAddNotFreeMessage, "term was not free..\n");
  EXPECT_STREQ(kArraysMessage, "arrays are not yet supported..\n");
  EXPECT_STREQ(kUnsupportedTypeMessage, "asked to create non supported type..\n");
  EXPECT_STREQ(kNeverFreeMessage, "Should not be called is never free!");
  EXPECT_STREQ(kNoValueMessage, "We cannot find a value for this atom!");
}

}  // namespace
}  // namespace kora::test
