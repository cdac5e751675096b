// Arrays in scripts: sorts, select, store, constant arrays, and the
// constructs over them, with the errors of each.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "kora/smtlib/script.h"

namespace kora::smtlib {
namespace {

using Kind = Command::Kind;

class ScriptArrays : public ::testing::Test {
 protected:
  // Reads the whole script; errors are kept as their messages.
  std::vector<Command> read(const std::string& text) {
    in_ = std::make_unique<std::istringstream>(text);
    reader_ = std::make_unique<ScriptReader>(*in_, &mgr_, "t.smt2");
    std::vector<Command> commands;
    errors_.clear();
    for (;;) {
      try {
        std::optional<Command> c = reader_->next();
        if (!c) break;
        commands.push_back(std::move(*c));
      } catch (const InputError& e) {
        errors_.push_back(reader_->message(e));
      }
    }
    return commands;
  }
  // The term of the last assert, after the declarations of kPrelude.
  const Term* last_assert(const std::string& text) {
    std::vector<Command> commands = read(std::string(kPrelude) + text);
    EXPECT_TRUE(errors_.empty()) << (errors_.empty() ? "" : errors_.front());
    for (auto it = commands.rbegin(); it != commands.rend(); ++it) {
      if (it->kind == Kind::Assert) return it->term;
    }
    ADD_FAILURE() << "no assert in " << text;
    return nullptr;
  }
  std::string error_of(const std::string& text) {
    read(std::string(kPrelude) + text);
    EXPECT_EQ(errors_.size(), 1U) << text;
    return errors_.empty() ? "" : errors_.front();
  }
  const DataType* bv(std::size_t w) { return mgr_.bv_type(w); }

  static constexpr const char* kPrelude =
      "(set-logic QF_ABV)(declare-const i (_ BitVec 2))(declare-const e (_ BitVec 3))"
      "(declare-const a (Array (_ BitVec 2) (_ BitVec 3)))"
      "(declare-const m (Array (_ BitVec 2) (Array (_ BitVec 2) (_ BitVec 3))))\n";

  TermManager mgr_;
  std::unique_ptr<std::istringstream> in_;
  std::unique_ptr<ScriptReader> reader_;
  std::vector<std::string> errors_;
};

TEST_F(ScriptArrays, SortsNestAndSelectStoreBuildTheirOperators) {
  const Term* t = last_assert("(assert (= (select (store a i e) i) e))");
  ASSERT_NE(t, nullptr);
  const Term* sel = t->arg(0);
  EXPECT_EQ(sel->op(), Op::Select);
  EXPECT_EQ(sel->type(), bv(3));
  EXPECT_EQ(sel->arg(0)->op(), Op::Store);
  EXPECT_EQ(sel->arg(0)->type(), mgr_.array_type(bv(2), bv(3)));
  EXPECT_EQ(sel->arg(0)->arg(2)->get_symbol()->name(), "e");

  const Term* nested = last_assert("(assert (= (select (select m i) i) e))");
  ASSERT_NE(nested, nullptr);
  EXPECT_EQ(nested->arg(0)->arg(0)->type(), mgr_.array_type(bv(2), bv(3)));
  EXPECT_EQ(nested->arg(0)->arg(0)->arg(0)->type(),
            mgr_.array_type(bv(2), mgr_.array_type(bv(2), bv(3))));
}

TEST_F(ScriptArrays, ConstantArraysEqualityDistinctIteDefineFunAndLet) {
  const Term* c =
      last_assert("(assert (= a ((as const (Array (_ BitVec 2) (_ BitVec 3))) #b101)))");
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->op(), Op::Equal);
  EXPECT_EQ(c->arg(1)->op(), Op::ConstArray);
  EXPECT_TRUE(is_model_value(c->arg(1)));

  const Term* d = last_assert("(assert (distinct a (store a i e)))");
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d->op(), Op::Not);
  EXPECT_EQ(d->arg(0)->op(), Op::Equal);

  const Term* ite = last_assert("(assert (= (ite (= i #b00) a (store a i e)) a))");
  ASSERT_NE(ite, nullptr);
  EXPECT_EQ(ite->arg(0)->op(), Op::Ite);
  EXPECT_TRUE(ite->arg(0)->type()->is_array());

  const Term* f = last_assert(
      "(define-fun put ((x (Array (_ BitVec 2) (_ BitVec 3))) (v (_ BitVec 3))) "
      "(Array (_ BitVec 2) (_ BitVec 3)) (store x #b01 v))"
      "(assert (let ((b (put a e))) (= (select b #b01) e)))");
  ASSERT_NE(f, nullptr);
  const Term* store = f->arg(0)->arg(0);
  EXPECT_EQ(store->op(), Op::Store);
  EXPECT_EQ(store->arg(0)->get_symbol()->name(), "a");

  const Term* inner = last_assert(
      "(assert (= (store m i (store (select m i) i e)) ((as const (Array (_ BitVec 2) "
      "(Array (_ BitVec 2) (_ BitVec 3)))) ((as const (Array (_ BitVec 2) (_ BitVec 3))) e))))");
  ASSERT_NE(inner, nullptr);
  EXPECT_EQ(inner->arg(1)->op(), Op::ConstArray);
  EXPECT_FALSE(is_model_value(inner->arg(1)));
}

TEST_F(ScriptArrays, LogicsThatReadArrays) {
  read("(set-logic QF_AUFBV)(declare-const a (Array (_ BitVec 1) (_ BitVec 1)))");
  EXPECT_TRUE(errors_.empty());
  read("(declare-const a (Array (_ BitVec 1) (_ BitVec 1)))");
  EXPECT_TRUE(errors_.empty());
  read("(set-logic QF_BV)(declare-const a (Array (_ BitVec 1) (_ BitVec 1)))");
  ASSERT_EQ(errors_.size(), 1U);
  EXPECT_EQ(errors_[0], "t.smt2:1:35: arrays are not supported: the logic is QF_BV");
  read("(set-logic QF_BV)(declare-const x (_ BitVec 1))(assert (= x (select x x)))");
  ASSERT_EQ(errors_.size(), 1U);
  EXPECT_EQ(errors_[0], "t.smt2:1:62: arrays are not supported: the logic is QF_BV");
  read("(set-logic QF_LIA)");
  ASSERT_EQ(errors_.size(), 1U);
  EXPECT_EQ(errors_[0],
            "t.smt2:1:12: logic 'QF_LIA' is not supported: only QF_BV, QF_ABV and QF_AUFBV are");
  read("(set-logic QF_AUFBV)(declare-fun f ((_ BitVec 1)) (_ BitVec 1))");
  ASSERT_EQ(errors_.size(), 1U);
  EXPECT_NE(errors_[0].find("functions with arguments are not supported"), std::string::npos);
}

TEST_F(ScriptArrays, Errors) {
  EXPECT_EQ(error_of("(declare-const b (Array Bool (_ BitVec 1)))"),
            "t.smt2:2:25: array indices must be bit-vectors, got Bool");
  EXPECT_EQ(error_of("(declare-const b (Array (_ BitVec 1) Bool))"),
            "t.smt2:2:38: array elements must be bit-vectors or arrays, got Bool");
  EXPECT_EQ(error_of("(declare-const b (Array (_ BitVec 1)))"),
            "t.smt2:2:18: Array expects 2 sorts (index and element), got 1");
  EXPECT_EQ(error_of("(declare-const b Array)"),
            "t.smt2:2:18: Array needs an index and an element sort: write (Array I E)");
  EXPECT_EQ(error_of("(assert (= e (select e i)))"),
            "t.smt2:2:22: select expects an array as argument 1, got (_ BitVec 3)");
  EXPECT_EQ(error_of("(assert (= e (select a e)))"),
            "t.smt2:2:24: select expects argument 2 of sort (_ BitVec 2), got (_ BitVec 3)");
  EXPECT_EQ(error_of("(assert (= a (store a i i)))"),
            "t.smt2:2:25: store expects argument 3 of sort (_ BitVec 3), got (_ BitVec 2)");
  EXPECT_EQ(error_of("(assert (= a (store a i)))"),
            "t.smt2:2:24: store expects 3 arguments, got 2");
  EXPECT_EQ(error_of("(assert (= a ((as const (_ BitVec 2)) e)))"),
            "t.smt2:2:25: (as const SORT) needs an Array sort, got (_ BitVec 2)");
  EXPECT_EQ(error_of("(assert (= a ((as const (Array (_ BitVec 2) (_ BitVec 3))) i)))"),
            "t.smt2:2:60: (as const (Array (_ BitVec 2) (_ BitVec 3))) expects a value of sort "
            "(_ BitVec 3), got (_ BitVec 2)");
  EXPECT_EQ(
      error_of("(assert (= a m))"),
      "t.smt2:2:14: = expects 2 arguments of the same sort, got (Array (_ BitVec 2) (_ BitVec "
      "3)) and (Array (_ BitVec 2) (Array (_ BitVec 2) (_ BitVec 3)))");
}

}  // namespace
}  // namespace kora::smtlib
