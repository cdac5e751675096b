#include "kora/model/model_store.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kora/calculators/adhoc_calculator.h"
#include "kora/model/logger.h"
#include "kora/terms/term.h"
#include "kora/terms/term_manager.h"
#include "support/term_helpers.h"

namespace kora {
namespace {

using test::numeral_value;

class ModelStoreTest : public ::testing::Test {
 protected:
  TermManager mgr;
  std::ostringstream log_text;
  ModelStore store{&mgr, &log_text};
  const DataType* bv8 = mgr.bv_type(8);
  const Term* x = mgr.make_constant("x", bv8);
  const Term* y = mgr.make_constant("y", bv8);
  const Term* p = mgr.make_constant("p", mgr.bool_type());
  const Term* q = mgr.make_constant("q", mgr.bool_type());

  const Term* num(int v, std::size_t w = 8) { return mgr.make_bv_number(v, w); }
  const Term* app(const Symbol* s, std::vector<const Term*> args) { return mgr.make_term(s, args); }
  const Term* add(const Term* a, const Term* b) { return app(mgr.make_bv_add_symbol(8), {a, b}); }
};

// Records values through the one path the calculators use.
class Recorder final : public adhoccalculator::AdHocCalculator {
 public:
  using AdHocCalculator::AdHocCalculator;
  void operator()(const Term* t, const Term* v) override { calculated_value(t, v); }
};

class NothingFree final : public adhoccalculator::FreeTermPredicate {
 public:
  bool is_free(const Term*) override { return false; }
};

// --- adhoc_values ---------------------------------------------------------------------

TEST_F(ModelStoreTest, ValueWrittenTwiceLeavesOneEntryHoldingTheSecond) {
  NothingFree pred;
  Recorder record(&mgr, &store, &pred);
  record(p, mgr.true_term());
  ASSERT_EQ(store.adhoc_values.size(), 1u);
  record(p, mgr.false_term());
  ASSERT_EQ(store.adhoc_values.size(), 1u);
  auto it = store.adhoc_values.find(p);
  ASSERT_NE(it, store.adhoc_values.end());
  EXPECT_EQ(it->first, p);
  EXPECT_EQ(it->second, mgr.false_term());
  // Both equivalences were recorded as constraints, in order, and the later
  // one decides p's value.
  ASSERT_EQ(store.constraints().size(), 2u);
  EXPECT_EQ(store.constraints()[0], mgr.make_iff(p, mgr.true_term()));
  EXPECT_EQ(store.constraints()[1], mgr.make_iff(p, mgr.false_term()));
  EXPECT_EQ(store.get_normalized(p), mgr.false_term());
  // A bit-vector value goes to the constraints only.
  record(x, num(0x9c));
  EXPECT_EQ(store.adhoc_values.size(), 1u);
  EXPECT_EQ(store.constraints().back()->to_shallow_str(), "(= x #x9c)");
}

TEST_F(ModelStoreTest, AdhocValuesTableFindOrInsertThenOverwrite) {
  // The write protocol itself: create the entry with a null value if the key
  // is absent, then overwrite the value.
  const auto write = [&](const Term* key, const Term* value) {
    auto [it, inserted] = store.adhoc_values.insert({key, nullptr});
    (void)inserted;
    it->second = value;
  };
  write(p, mgr.true_term());
  write(q, mgr.true_term());
  write(p, mgr.false_term());
  EXPECT_EQ(store.adhoc_values.size(), 2u);
  EXPECT_EQ(store.adhoc_values.find(p)->second, mgr.false_term());
  EXPECT_EQ(store.adhoc_values.find(q)->second, mgr.true_term());
  EXPECT_EQ(store.adhoc_values.find(mgr.make_not(p)), store.adhoc_values.end());
}

TEST_F(ModelStoreTest, SetAdhocValueMakesTheEntryThenOverwritesIt) {
  store.set_adhoc_value(p, mgr.true_term());
  store.set_adhoc_value(q, mgr.false_term());
  store.set_adhoc_value(p, mgr.false_term());
  EXPECT_EQ(store.adhoc_values.size(), 2u);
  EXPECT_EQ(store.adhoc_values.find(p)->second, mgr.false_term());
  EXPECT_EQ(store.adhoc_values.find(q)->second, mgr.false_term());
  // The table alone: no constraint, no value.
  EXPECT_TRUE(store.constraints().empty());
  EXPECT_EQ(store.value_of(p), nullptr);
}

// --- Diverted records -----------------------------------------------------------------

// Keeps what a diverted store sends it.
class KeepingRecorder final : public ModelStore::Recorder {
 public:
  std::vector<const Term*> constraints;
  std::vector<std::pair<const Term*, const Term*>> adhoc;
  std::ostringstream text;
  Logger log{&text};

  void add_model_constraint(const Term* c) override { constraints.push_back(c); }
  void set_adhoc_value(const Term* x, const Term* value) override { adhoc.emplace_back(x, value); }
  Logger& logger() override { return log; }
};

TEST_F(ModelStoreTest, DivertedRecordsReachTheRecorderAndNotTheModel) {
  KeepingRecorder kept;
  kept.log.set_verbosity(2);
  store.logger().set_verbosity(2);
  store.set_value(y, num(7));
  NothingFree pred;
  Recorder record(&mgr, &store, &pred);
  store.divert_records(&kept);
  record(p, mgr.true_term());
  record(x, num(5));
  // Reads and defaulting still reach the model.
  EXPECT_EQ(store.get_normalized(add(y, num(1))), num(8));
  int assigned = 0;
  store.assign_free_constants(add(x, y), &assigned);
  EXPECT_EQ(assigned, 1);
  store.divert_records(nullptr);

  EXPECT_EQ(kept.constraints, (std::vector<const Term*>{mgr.make_iff(p, mgr.true_term()),
                                                        mgr.make_equal(x, num(5))}));
  ASSERT_EQ(kept.adhoc.size(), 1u);
  EXPECT_EQ(kept.adhoc[0], std::make_pair(p, mgr.true_term()));
  EXPECT_NE(kept.text.str().find("calculated adhoc p := true .."), std::string::npos);
  EXPECT_TRUE(store.constraints().empty());
  EXPECT_EQ(store.adhoc_values.size(), 0u);
  EXPECT_EQ(store.value_of(p), nullptr);
  EXPECT_EQ(store.value_of(x), num(0));  // the default, not the diverted 5
  EXPECT_EQ(log_text.str(), "");

  // Undiverted, the same records reach the model.
  record(p, mgr.true_term());
  EXPECT_EQ(store.constraints().size(), 1u);
  EXPECT_EQ(store.adhoc_values.size(), 1u);
  EXPECT_NE(log_text.str().find("calculated adhoc p := true .."), std::string::npos);
}

// --- Logger -----------------------------------------------------------------------------

TEST_F(ModelStoreTest, LevelTwoRecordWrittenAtLimitTwoOrMoreDroppedAtOne) {
  for (int limit : {0, 1, 2, 3, 10}) {
    log_text.str("");
    store.logger().set_verbosity(limit);
    store.log(2) << "calculated adhoc " << x << " := " << num(0x9c) << " .." << endlog;
    if (limit >= 2) {
      EXPECT_EQ(log_text.str(), "calculated adhoc x := #x9c ..\n") << "limit " << limit;
    } else {
      EXPECT_EQ(log_text.str(), "") << "limit " << limit;
    }
  }
}

TEST_F(ModelStoreTest, LogReturnsTheStoresLogger) {
  EXPECT_EQ(&store.log(2), &store.logger());
  EXPECT_EQ(&store.log(-1), &store.logger());
}

TEST(LoggerTest, ItemsChain) {
  TermManager mgr;
  std::ostringstream out;
  Logger log(&out);
  log.set_verbosity(5);
  const Term* t = mgr.make_iff(mgr.make_constant("a b", mgr.bool_type()), mgr.true_term());
  Logger& same = log.start(1) << "one " << std::string("two ") << t;
  EXPECT_EQ(&same, &log);
  same << " three" << endlog;
  log.start(0) << "next" << endlog;
  EXPECT_EQ(out.str(), "one two (= |a b| true) three\nnext\n");
}

TEST(LoggerTest, LevelsAgainstTheLimit) {
  std::ostringstream out;
  Logger log(&out);
  log.set_verbosity(1);
  log.start(0) << "zero" << endlog;
  log.start(1) << "one" << endlog;
  log.start(2) << "two" << endlog;
  log.start(-1) << "negative" << endlog;
  EXPECT_EQ(out.str(), "zero\none\n");
  // A negative level is dropped whatever the limit, even a negative one.
  out.str("");
  log.set_verbosity(-1);
  log.start(-1) << "negative" << endlog;
  log.start(0) << "zero" << endlog;
  log.set_verbosity(100);
  log.start(-5) << "negative" << endlog;
  EXPECT_EQ(out.str(), "");
  // Nothing is written before a record is started.
  Logger fresh(&out);
  fresh.set_verbosity(100);
  fresh << "unstarted";
  EXPECT_EQ(out.str(), "");
}

TEST(LoggerTest, DisabledLoggerDropsEverything) {
  TermManager mgr;
  std::ostringstream out;
  Logger log(&out);
  log.set_verbosity(10);
  log.set_disabled(true);
  EXPECT_TRUE(log.disabled());
  log.start(0) << "dropped " << mgr.true_term() << endlog;
  EXPECT_EQ(out.str(), "");
  log.set_disabled(false);
  log.start(0) << "kept" << endlog;
  EXPECT_EQ(out.str(), "kept\n");
}

TEST(LoggerTest, DroppedTermsAreNotPrinted) {
  // Printing a large term for a record that is dropped would be wasted work;
  // at least it must leave no trace.
  TermManager mgr;
  std::ostringstream out;
  Logger log(&out);
  log.set_verbosity(0);
  log.start(3) << mgr.make_constant("x", mgr.bool_type()) << endlog;
  EXPECT_EQ(out.str(), "");
}

TEST(LoggerTest, CarriageReturnIsNotWrittenToANonTerminal) {
  std::ostringstream out;
  ASSERT_FALSE(is_terminal(out));
  Logger log(&out);
  log.set_verbosity(2);
  log.set_carriage_return_pending();
  log.start(2) << "a"
               << "b" << endlog;
  EXPECT_EQ(out.str(), "ab\n");
  EXPECT_EQ(out.str().find('\r'), std::string::npos);
}

// Runs body with standard error connected to a fresh pseudo-terminal and
// returns everything body wrote there. Skips when no terminal is available.
class TerminalCapture {
 public:
  TerminalCapture() {
    master_ = ::posix_openpt(O_RDWR | O_NOCTTY);
    if (master_ < 0 || ::grantpt(master_) != 0 || ::unlockpt(master_) != 0) return;
    const char* name = ::ptsname(master_);
    if (name == nullptr) return;
    slave_ = ::open(name, O_RDWR | O_NOCTTY);
    if (slave_ < 0) return;
    // Raw mode, so that the line discipline passes bytes through untouched.
    termios tio{};
    if (::tcgetattr(slave_, &tio) != 0) return;
    ::cfmakeraw(&tio);
    if (::tcsetattr(slave_, TCSANOW, &tio) != 0) return;
    ok_ = true;
  }
  ~TerminalCapture() {
    if (slave_ >= 0) ::close(slave_);
    if (master_ >= 0) ::close(master_);
  }
  TerminalCapture(const TerminalCapture&) = delete;
  TerminalCapture& operator=(const TerminalCapture&) = delete;

  bool ok() const noexcept { return ok_; }

  template <class F>
  std::string capture(F body) {
    std::cerr.flush();
    const int saved = ::dup(STDERR_FILENO);
    ::dup2(slave_, STDERR_FILENO);
    body();
    std::cerr.flush();
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    std::string text;
    char buf[256];
    ::fcntl(master_, F_SETFL, ::fcntl(master_, F_GETFL) | O_NONBLOCK);
    for (;;) {
      const ssize_t n = ::read(master_, buf, sizeof buf);
      if (n <= 0) break;
      text.append(buf, static_cast<std::size_t>(n));
    }
    return text;
  }

 private:
  int master_ = -1;
  int slave_ = -1;
  bool ok_ = false;
};

TEST(LoggerTest, CarriageReturnBeforeTheFirstItemOnATerminal) {
  TerminalCapture term;
  if (!term.ok()) GTEST_SKIP() << "no pseudo-terminal available";
  bool was_terminal = false;
  const std::string text = term.capture([&] {
    was_terminal = is_terminal(std::cerr);
    Logger log(&std::cerr);
    log.set_verbosity(2);
    log.set_carriage_return_pending();
    // A dropped item is not written, so the return stays pending.
    log.start(3) << "dropped" << endlog;
    log.start(2) << "a"
                 << "b" << endlog;
    // Cleared after one use.
    log.start(2) << "c" << endlog;
    log.set_carriage_return_pending();
    log.start(1) << "d" << endlog;
  });
  ASSERT_TRUE(was_terminal);
  EXPECT_EQ(text, "\rab\nc\n\rd\n");
}

TEST(LoggerTest, PendingCarriageReturnIsClearedEvenWhenNotWritten) {
  // Written first to a string stream, where no return may appear, and then
  // to a terminal: the flag must already be gone.
  TerminalCapture term;
  if (!term.ok()) GTEST_SKIP() << "no pseudo-terminal available";
  std::ostringstream out;
  const std::string text = term.capture([&] {
    Logger log(&out);
    log.set_verbosity(2);
    log.set_carriage_return_pending();
    log.start(2) << "first" << endlog;
    log.set_stream(&std::cerr);
    log.start(2) << "second" << endlog;
  });
  EXPECT_EQ(out.str(), "first\n");
  EXPECT_EQ(text, "second\n");
}

// --- get_normalized -----------------------------------------------------------------

TEST_F(ModelStoreTest, NormalizedReplacesConstantsByTheirValues) {
  EXPECT_EQ(store.get_normalized(x), x);
  store.set_value(x, num(0x9c));
  EXPECT_EQ(store.get_normalized(x), num(0x9c));
  EXPECT_EQ(store.value_of(x), num(0x9c));
  EXPECT_EQ(store.value_of(y), nullptr);
  EXPECT_EQ(store.get_normalized(y), y);
  // Values normalise to themselves.
  EXPECT_EQ(store.get_normalized(num(3)), num(3));
  EXPECT_EQ(store.get_normalized(mgr.true_term()), mgr.true_term());
  const Term* u0 = mgr.make_abstract_value(0, mgr.sort_type("U"));
  EXPECT_EQ(store.get_normalized(u0), u0);
}

TEST_F(ModelStoreTest, NormalizedFoldsApplicationsOverValues) {
  store.set_value(x, num(100));
  store.set_value(y, num(200));
  EXPECT_EQ(store.get_normalized(add(x, y)), num(44));
  EXPECT_EQ(store.get_normalized(mgr.make_equal(add(x, y), num(44))), mgr.true_term());
  EXPECT_EQ(store.get_normalized(mgr.make_equal(x, y)), mgr.false_term());
  EXPECT_EQ(store.get_normalized(app(mgr.make_bv_ult_symbol(8), {x, y})), mgr.true_term());
  EXPECT_EQ(store.get_normalized(app(mgr.make_bv_slt_symbol(8), {x, y})), mgr.false_term());
  EXPECT_EQ(store.get_normalized(app(mgr.make_bv_extract_symbol(7, 4, 8), {y})), num(0xc, 4));
  EXPECT_EQ(store.get_normalized(app(mgr.make_bv_concat_symbol(8, 8), {x, y})),
            num(100 * 256 + 200, 16));
  // Division and remainder by zero follow the SMT-LIB definitions.
  EXPECT_EQ(store.get_normalized(app(mgr.make_bv_udiv_symbol(8), {x, num(0)})), num(0xff));
  EXPECT_EQ(store.get_normalized(app(mgr.make_bv_urem_symbol(8), {x, num(0)})), num(100));
  EXPECT_EQ(store.get_normalized(app(mgr.make_bv_sdiv_symbol(8), {y, num(0)})), num(1));
  EXPECT_EQ(store.get_normalized(app(mgr.make_bv_srem_symbol(8), {y, num(0)})), num(200));
  // Booleans.
  store.set_value(p, mgr.true_term());
  EXPECT_EQ(store.get_normalized(mgr.make_and(p, mgr.make_not(p))), mgr.false_term());
  EXPECT_EQ(store.get_normalized(mgr.make_iff(p, mgr.true_term())), mgr.true_term());
  EXPECT_EQ(store.get_normalized(mgr.make_ite(p, x, y)), num(100));
  // Only applications whose arguments are all values fold: a known condition
  // with a branch that has no value stays an application.
  const Term* z = mgr.make_constant("z", bv8);
  EXPECT_EQ(store.get_normalized(mgr.make_ite(mgr.make_not(p), z, y)),
            mgr.make_ite(mgr.false_term(), z, num(200)));
}

TEST_F(ModelStoreTest, NormalizedRebuildsWhatTheModelDoesNotDetermine) {
  store.set_value(y, num(0xc8));
  const Term* t = add(x, y);
  EXPECT_EQ(store.get_normalized(t), add(x, num(0xc8)));
  const Term* nested = add(add(y, y), x);
  EXPECT_EQ(store.get_normalized(nested), add(num(0x90), x));
  EXPECT_EQ(store.get_normalized(mgr.make_and(p, q)), mgr.make_and(p, q));
  // No short-circuit: false and an unknown stays an application.
  EXPECT_EQ(store.get_normalized(mgr.make_and(mgr.false_term(), p)),
            mgr.make_and(mgr.false_term(), p));
  EXPECT_EQ(store.get_normalized(mgr.make_equal(x, x)), mgr.make_equal(x, x));
  EXPECT_EQ(store.get_normalized(mgr.make_ite(p, y, y)), mgr.make_ite(p, num(0xc8), num(0xc8)));
}

TEST_F(ModelStoreTest, NormalizedIsNeverNull) {
  const DataType* u = mgr.sort_type("U");
  const DataType* arr = mgr.array_type(bv8, mgr.bool_type());
  const std::vector<const Term*> terms = {
      x,
      p,
      mgr.make_constant("c", u),
      mgr.make_constant("a", arr),
      mgr.make_const_array(arr, p),
      mgr.make_const_array(arr, mgr.true_term()),
      add(x, num(1)),
      mgr.make_not(p),
      mgr.make_abstract_value(2, u),
      mgr.make_equal(mgr.make_constant("c", u), mgr.make_abstract_value(2, u)),
  };
  for (const Term* t : terms) {
    EXPECT_NE(store.get_normalized(t), nullptr) << t->to_shallow_str();
  }
}

TEST_F(ModelStoreTest, NormalizedCacheFollowsValueChanges) {
  const Term* t = add(x, num(1));
  EXPECT_EQ(store.get_normalized(t), t);
  store.set_value(x, num(5));
  EXPECT_EQ(store.get_normalized(t), num(6));
  store.set_value(x, num(9));
  EXPECT_EQ(store.get_normalized(t), num(10));
  // A value set through a constraint invalidates it as well.
  store.add_model_constraint(mgr.make_equal(x, num(41)), true);
  EXPECT_EQ(store.get_normalized(t), num(42));
  // And through defaulting.
  const Term* u = add(y, num(3));
  EXPECT_EQ(store.get_normalized(u), u);
  int counter = 0;
  store.assign_free_constants(u, &counter);
  EXPECT_EQ(store.get_normalized(u), num(3));
}

TEST_F(ModelStoreTest, NormalizesDeepTermsWithoutExhaustingTheStack) {
  constexpr int kDepth = 100000;
  const Symbol* bvnot = mgr.make_bv_not_symbol(8);
  const Term* t = x;
  for (int i = 0; i < kDepth; ++i) t = app(bvnot, {t});
  // Without a value the term is rebuilt as it is.
  EXPECT_EQ(store.get_normalized(t), t);
  // With one, every level folds; an even number of negations is the value.
  store.set_value(x, num(0x5a));
  EXPECT_EQ(store.get_normalized(t), num(0x5a));
  EXPECT_EQ(store.get_normalized(app(bvnot, {t})), num(0xa5));
  // A deep spine with a shared unknown leaf.
  const Term* chain = y;
  for (int i = 0; i < kDepth; ++i) chain = add(x, chain);
  const Term* n = store.get_normalized(chain);
  ASSERT_NE(n, nullptr);
  EXPECT_EQ(n->arg(0), num(0x5a));
  store.set_value(y, num(0));
  EXPECT_EQ(store.get_normalized(chain), num((0x5a * kDepth) & 0xff));
  // Defaulting walks the same depth.
  int counter = 0;
  const Term* z = mgr.make_constant("z", bv8);
  const Term* deep_z = z;
  for (int i = 0; i < kDepth; ++i) deep_z = app(bvnot, {deep_z});
  store.assign_free_constants(deep_z, &counter);
  EXPECT_EQ(counter, 1);
  EXPECT_EQ(store.get_normalized(deep_z), num(0));
}

// --- is_good_model_value --------------------------------------------------------------

TEST_F(ModelStoreTest, GoodModelValues) {
  const DataType* u = mgr.sort_type("U");
  const DataType* arr = mgr.array_type(bv8, mgr.bool_type());
  const DataType* arr2 = mgr.array_type(mgr.bool_type(), arr);
  const Term* const_false = mgr.make_const_array(arr, mgr.false_term());
  const std::vector<const Term*> good = {
      mgr.true_term(),
      mgr.false_term(),
      num(0),
      num(255),
      mgr.make_bv_number(QNumber(test::mpz_pow2(299)), 300),
      mgr.make_abstract_value(0, u),
      mgr.make_abstract_value(7, u),
      const_false,
      mgr.make_const_array(arr2, const_false),
      mgr.make_const_array(mgr.array_type(bv8, bv8), num(3)),
  };
  for (const Term* t : good) EXPECT_TRUE(store.is_good_model_value(t)) << t->to_shallow_str();
  const std::vector<const Term*> bad = {
      x,
      p,
      mgr.make_constant("c", u),
      mgr.make_constant("a", arr),
      add(num(1), num(2)),
      mgr.make_not(mgr.true_term()),
      mgr.make_iff(mgr.true_term(), mgr.false_term()),
      mgr.make_equal(num(1), num(1)),
      mgr.make_const_array(arr, p),
      mgr.make_const_array(arr2, mgr.make_const_array(arr, p)),
  };
  for (const Term* t : bad) EXPECT_FALSE(store.is_good_model_value(t)) << t->to_shallow_str();
  // A constant with a value is still not a value itself; its normal form is.
  store.set_value(x, num(1));
  EXPECT_FALSE(store.is_good_model_value(x));
  EXPECT_TRUE(store.is_good_model_value(store.get_normalized(x)));
}

// --- assign_free_constants --------------------------------------------------------------

TEST_F(ModelStoreTest, AssignFreeConstantsGivesDefaults) {
  const DataType* u = mgr.sort_type("U");
  const DataType* arr = mgr.array_type(bv8, mgr.bool_type());
  const DataType* arr2 = mgr.array_type(mgr.bool_type(), mgr.array_type(bv8, u));
  const Term* b = mgr.make_constant("b", mgr.bool_type());
  const Term* v = mgr.make_constant("v", mgr.bv_type(300));
  const Term* a = mgr.make_constant("a", arr);
  const Term* a2 = mgr.make_constant("a2", arr2);
  const Term* c = mgr.make_constant("c", u);
  for (const Term* t : {b, v, a, a2, c}) {
    int counter = 0;
    store.assign_free_constants(t, &counter);
    EXPECT_EQ(counter, 1) << t->to_shallow_str();
  }
  EXPECT_EQ(store.get_normalized(b), mgr.false_term());
  EXPECT_EQ(store.get_normalized(v), mgr.make_bv_number(0, 300));
  EXPECT_EQ(store.get_normalized(a), mgr.make_const_array(arr, mgr.false_term()));
  EXPECT_EQ(store.get_normalized(a)->to_shallow_str(),
            "((as const (Array (_ BitVec 8) Bool)) false)");
  EXPECT_EQ(store.get_normalized(a2)->to_shallow_str(),
            "((as const (Array Bool (Array (_ BitVec 8) U))) ((as const (Array (_ BitVec 8) U)) "
            "(as @0 U)))");
  EXPECT_EQ(store.get_normalized(c), mgr.make_abstract_value(0, u));
  EXPECT_EQ(store.get_normalized(c)->to_shallow_str(), "(as @0 U)");
  for (const Term* t : {b, v, a, a2, c}) {
    EXPECT_TRUE(store.is_good_model_value(store.get_normalized(t))) << t->to_shallow_str();
  }
  EXPECT_EQ(store.default_value(bv8), num(0));
  EXPECT_EQ(store.default_value(mgr.bool_type()), mgr.false_term());
}

TEST_F(ModelStoreTest, AssignFreeConstantsCountsEachConstantOnce) {
  store.set_value(y, num(7));
  const Term* z = mgr.make_constant("z", bv8);
  // x twice, y valued, z once, p once inside a Boolean structure.
  const Term* t = mgr.make_ite(mgr.make_and(p, mgr.make_equal(x, y)), add(x, x), add(y, z));
  int counter = 0;
  store.assign_free_constants(t, &counter);
  EXPECT_EQ(counter, 3);
  EXPECT_EQ(store.value_of(x), num(0));
  EXPECT_EQ(store.value_of(y), num(7));  // untouched
  EXPECT_EQ(store.value_of(z), num(0));
  EXPECT_EQ(store.value_of(p), mgr.false_term());
  EXPECT_TRUE(store.is_good_model_value(store.get_normalized(t)));
  EXPECT_EQ(store.get_normalized(t), num(7));
  // A second pass finds nothing left to assign; the counter only grows.
  store.assign_free_constants(t, &counter);
  EXPECT_EQ(counter, 3);
  int from_five = 5;
  store.assign_free_constants(add(mgr.make_constant("w", bv8), x), &from_five);
  EXPECT_EQ(from_five, 6);
  // Values and constant-free terms assign nothing.
  int none = 0;
  store.assign_free_constants(num(3), &none);
  store.assign_free_constants(add(num(1), num(2)), &none);
  store.assign_free_constants(mgr.true_term(), &none);
  EXPECT_EQ(none, 0);
}

TEST_F(ModelStoreTest, AssignFreeConstantsLeavesValuedConstantsAlone) {
  store.set_value(x, num(0x42));
  store.set_value(p, mgr.true_term());
  int counter = 0;
  store.assign_free_constants(mgr.make_ite(p, x, num(1)), &counter);
  EXPECT_EQ(counter, 0);
  EXPECT_EQ(store.value_of(x), num(0x42));
  EXPECT_EQ(store.value_of(p), mgr.true_term());
}

// --- add_model_constraint ---------------------------------------------------------------

TEST_F(ModelStoreTest, AddModelConstraintAppendsInOrder) {
  EXPECT_TRUE(store.constraints().empty());
  const Term* c1 = app(mgr.make_bv_ult_symbol(8), {x, y});
  const Term* c2 = mgr.make_equal(x, y);
  const Term* c3 = mgr.make_iff(mgr.true_term(), mgr.false_term());
  store.add_model_constraint(c1, true);
  store.add_model_constraint(c2, true);
  store.add_model_constraint(c3, true);
  store.add_model_constraint(c1, true);
  const std::vector<const Term*> expected = {c1, c2, c3, c1};
  EXPECT_EQ(store.constraints(), expected);
}

TEST_F(ModelStoreTest, EqualityWithAValueSetsTheConstant) {
  store.add_model_constraint(mgr.make_equal(x, num(0x9c)), true);
  EXPECT_EQ(store.value_of(x), num(0x9c));
  EXPECT_EQ(store.get_normalized(x), num(0x9c));
  // A later one replaces it.
  store.add_model_constraint(mgr.make_equal(x, num(0x01)), true);
  EXPECT_EQ(store.value_of(x), num(0x01));
  EXPECT_EQ(store.get_normalized(add(x, x)), num(0x02));
  // Equivalences of Boolean constants too.
  store.add_model_constraint(mgr.make_iff(p, mgr.true_term()), true);
  EXPECT_EQ(store.value_of(p), mgr.true_term());
  store.add_model_constraint(mgr.make_iff(p, mgr.false_term()), true);
  EXPECT_EQ(store.value_of(p), mgr.false_term());
  // Other sorts: abstract values and constant arrays are values as well.
  const DataType* u = mgr.sort_type("U");
  const Term* c = mgr.make_constant("c", u);
  store.add_model_constraint(mgr.make_equal(c, mgr.make_abstract_value(3, u)), true);
  EXPECT_EQ(store.value_of(c), mgr.make_abstract_value(3, u));
  const DataType* arr = mgr.array_type(bv8, mgr.bool_type());
  const Term* a = mgr.make_constant("a", arr);
  const Term* all_true = mgr.make_const_array(arr, mgr.true_term());
  store.add_model_constraint(mgr.make_equal(a, all_true), true);
  EXPECT_EQ(store.value_of(a), all_true);
  EXPECT_EQ(store.constraints().size(), 6u);
}

TEST_F(ModelStoreTest, OtherConstraintsSetNoValue) {
  const Term* z = mgr.make_constant("z", bv8);
  const std::vector<const Term*> others = {
      mgr.make_equal(x, y),                         // no value on the right
      mgr.make_equal(x, add(num(1), num(2))),       // an application, not a value
      mgr.make_equal(add(x, y), num(0)),            // not a constant on the left
      app(mgr.make_bv_ult_symbol(8), {x, num(3)}),  // not an equality
      mgr.make_not(p),                              // not an equality
      mgr.make_iff(p, q),                           // no value on the right
      mgr.make_iff(mgr.make_and(p, q), mgr.true_term()),
      mgr.make_equal(z, z),
  };
  for (const Term* c : others) store.add_model_constraint(c, true);
  EXPECT_EQ(store.constraints().size(), others.size());
  for (const Term* k : {x, y, z, p, q}) {
    EXPECT_EQ(store.value_of(k), nullptr) << k->to_shallow_str();
    EXPECT_EQ(store.get_normalized(k), k);
  }
}

}  // namespace
}  // namespace kora
