// Calls per second of the 32 calculators and of the complete inverter, and
// the term-manager work that a call cannot avoid, measured side by side.
//
// For each calculator and width (8, 64 and 256 bits; the four Boolean
// connectives have none) a case builds 1024 instances t_i = f(...) over fresh
// free constants, with the other arguments valued through one known constant,
// and a value v_i, so that every call takes a success row of the decision
// table. Three rows per case:
//   call      the calculator on every instance, through the CalculatorTable;
//             a batch of 1024 calls starts from a fresh ModelStore (made with
//             the timer paused), since each call gives its free arguments
//             values and a second call on the same instance would refuse
//   baseline  only what recording those values needs from the term manager:
//             the numeral of every recorded value (make_bv_number) and the
//             constraint (make_equal, or make_iff for a Boolean argument)
//   inverter  the complete inverter (inverse::Inverter) on the same instances
// A warm-up pass runs before timing, so every term that a call or the
// baseline makes already exists: both rows measure the steady state where
// the term manager finds its terms instead of creating them.
//
// zero_extend, sign_extend, bvurem and bvsrem have calculators that refuse
// every call ("is never free"): for them the throw path is the only path, and
// the call row measures a throw and its catch; there is no baseline. The
// inverter solves their instances.

#include <benchmark/benchmark.h>
#include <gmpxx.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "bench_util.h"
#include "kora/calculators/adhoc_calculator.h"
#include "kora/calculators/calculator_table.h"
#include "kora/inverse/inverter.h"
#include "kora/model/model_store.h"
#include "kora/terms/term_manager.h"

namespace kora::bench {
namespace {

using adhoccalculator::AdHocCalculator;
using adhoccalculator::CalculatorTable;
using adhoccalculator::SetFreeTermPredicate;

constexpr std::size_t kInstances = 1024;

// The terms of one benchmark: a term manager of its own, the free marks, and
// the known constants that every fresh store gets its values for.
class Env {
 public:
  explicit Env(std::size_t width) : width_(width), rng_(make_rng(width + 7)) {}

  std::size_t width() const { return width_; }
  TermManager& mgr() { return mgr_; }
  SetFreeTermPredicate& free() { return free_; }
  ModelStore* store() { return store_.get(); }

  // A new store holding the known values and nothing else.
  void fresh_store() {
    store_.reset();
    store_ = std::make_unique<ModelStore>(&mgr_, &log_);
    for (const auto& [c, v] : known_) store_->set_value(c, v);
  }

  const Term* free_bv(const char* prefix, std::size_t i, std::size_t w) {
    return mark(mgr_.make_constant(prefix + std::to_string(i), mgr_.bv_type(w)));
  }
  const Term* free_bool(const char* prefix, std::size_t i) {
    return mark(mgr_.make_constant(prefix + std::to_string(i), mgr_.bool_type()));
  }

  // The known bit-vector constant y of the benchmark's width. Its value is
  // odd (Mul inverts it), has bit w-3 set and nothing above (so 0 < y and y
  // is positive as a signed number, below the values of the remainder cases).
  const Term* known_y() {
    if (y_ == nullptr) {
      const std::size_t w = width_;
      mpz_class value = random(w - 3);
      mpz_setbit(value.get_mpz_t(), w - 3);
      mpz_setbit(value.get_mpz_t(), 0);
      y_ = known("y", number(value, w));
    }
    return y_;
  }
  // The known Boolean constant q, true.
  const Term* known_q() {
    if (q_ == nullptr) q_ = known("q", mgr_.true_term());
    return q_;
  }

  const Term* number(const mpz_class& v, std::size_t w) {
    return mgr_.make_bv_number(QNumber(v), w);
  }
  const Term* random_number(std::size_t w) { return number(random(w), w); }
  const Term* boolean(bool b) { return b ? mgr_.true_term() : mgr_.false_term(); }

  mpz_class random(std::size_t bits) {
    mpz_class r = 0;
    for (std::size_t k = 0; k < bits; k += 64) {
      r <<= 64;
      r += static_cast<unsigned long>(rng_());
    }
    mpz_fdiv_r_2exp(r.get_mpz_t(), r.get_mpz_t(), bits);
    return r;
  }

 private:
  const Term* mark(const Term* c) {
    free_.mark_free(c);
    return c;
  }
  const Term* known(const char* name, const Term* value) {
    const Term* c = mgr_.make_constant(name, value->type());
    known_.emplace_back(c, value);
    return c;
  }

  std::size_t width_;
  std::mt19937_64 rng_;
  TermManager mgr_;
  SetFreeTermPredicate free_;
  std::ostringstream log_;  // the stores' log stream; verbosity 0 writes nothing
  std::vector<std::pair<const Term*, const Term*>> known_;
  std::unique_ptr<ModelStore> store_;
  const Term* y_ = nullptr;
  const Term* q_ = nullptr;
};

struct Instance {
  const Term* t;
  const Term* v;
};

struct Case {
  std::string name;
  bool boolean = false;     // no width: run once
  bool never_free = false;  // the calculator always throws
  std::function<Instance(Env&, std::size_t)> build;
};

// t_i over fresh free constants; a second argument, when there is one, is
// either a second free constant or the known y.
using TermMaker = std::function<const Term*(Env&, std::size_t)>;

Case bool_case(const char* name, std::function<const Term*(Env&, std::size_t)> make) {
  return {name, true, false, [make](Env& e, std::size_t i) {
            return Instance{make(e, i), e.boolean(i % 2 == 0)};
          }};
}

// A bit-vector case whose value is a random numeral of width result_width(w).
Case bv_case(const char* name, TermMaker make,
             std::function<std::size_t(std::size_t)> result_width = {}, bool never_free = false) {
  return {name, false, never_free, [make, result_width](Env& e, std::size_t i) {
            const Term* t = make(e, i);
            const std::size_t w = result_width ? result_width(e.width()) : e.width();
            return Instance{t, e.random_number(w)};
          }};
}

// A Boolean-valued case over bit-vector arguments, v alternating.
Case pred_case(const char* name, TermMaker make, bool always_true = false) {
  return {name, false, false, [make, always_true](Env& e, std::size_t i) {
            return Instance{make(e, i), e.boolean(always_true || i % 2 == 0)};
          }};
}

TermMaker free_known(Op op) {
  return [op](Env& e, std::size_t i) {
    const Symbol* s = e.mgr().make_bv_symbol(op, e.width());
    return e.mgr().make_term(s, {e.free_bv("x", i, e.width()), e.known_y()});
  };
}

TermMaker free_free(Op op) {
  return [op](Env& e, std::size_t i) {
    const Symbol* s = e.mgr().make_bv_symbol(op, e.width());
    return e.mgr().make_term(s, {e.free_bv("x", i, e.width()), e.free_bv("z", i, e.width())});
  };
}

TermMaker unary(Op op) {
  return [op](Env& e, std::size_t i) {
    const Symbol* s = e.mgr().make_bv_symbol(op, e.width());
    return e.mgr().make_term(s, {e.free_bv("x", i, e.width())});
  };
}

std::vector<Case> make_cases() {
  std::vector<Case> c;
  // Boolean connectives.
  c.push_back(bool_case(
      "not", [](Env& e, std::size_t i) { return e.mgr().make_not(e.free_bool("p", i)); }));
  c.push_back(bool_case("and", [](Env& e, std::size_t i) {
    return e.mgr().make_and(e.free_bool("p", i), e.free_bool("r", i));
  }));
  c.push_back(bool_case("or", [](Env& e, std::size_t i) {
    return e.mgr().make_or(e.free_bool("p", i), e.free_bool("r", i));
  }));
  c.push_back(bool_case("iff", [](Env& e, std::size_t i) {
    return e.mgr().make_iff(e.free_bool("p", i), e.known_q());
  }));
  // ite(c, y, z) with y valued: c := false, z := v.
  c.push_back(bv_case("ite", [](Env& e, std::size_t i) {
    return e.mgr().make_ite(e.free_bool("p", i), e.known_y(), e.free_bv("z", i, e.width()));
  }));
  // x = y with y valued, v alternating: x := y, or x := y + 1.
  c.push_back(pred_case("eq", [](Env& e, std::size_t i) {
    return e.mgr().make_equal(e.free_bv("x", i, e.width()), e.known_y());
  }));
  // Arithmetic.
  c.push_back(bv_case("bvadd", free_known(Op::BVAdd)));
  c.push_back(bv_case("bvsub", free_known(Op::BVSub)));
  c.push_back(bv_case("bvneg", unary(Op::BVNeg)));
  c.push_back(bv_case("bvmul", free_known(Op::BVMul)));
  c.push_back(bv_case("bvshl", free_free(Op::BVShl)));
  c.push_back(bv_case("bvlshr", free_free(Op::BVLshr)));
  c.push_back(bv_case("bvashr", free_free(Op::BVAshr)));
  c.push_back(bv_case("bvudiv", free_free(Op::BVUdiv)));
  c.push_back(bv_case("bvsdiv", free_free(Op::BVSdiv)));
  // Comparisons: x free against the valued y, v true (and alternating for
  // comp, whose v is a 1-bit numeral).
  c.push_back(pred_case("bvult", free_known(Op::BVUlt), true));
  c.push_back(pred_case("bvule", free_known(Op::BVUle), true));
  c.push_back(pred_case("bvslt", free_known(Op::BVSlt), true));
  c.push_back(pred_case("bvsle", free_known(Op::BVSle), true));
  c.push_back(
      bv_case("bvcomp", free_known(Op::BVComp), [](std::size_t) { return std::size_t{1}; }));
  // Bitwise and structural.
  c.push_back(bv_case("bvnot", unary(Op::BVNot)));
  c.push_back(bv_case("bvand", free_free(Op::BVAnd)));
  c.push_back(bv_case("bvor", free_free(Op::BVOr)));
  c.push_back(bv_case("bvxor", free_known(Op::BVXor)));
  c.push_back(bv_case("concat", [](Env& e, std::size_t i) {
    const std::size_t h = e.width() / 2;
    return e.mgr().make_term(e.mgr().make_bv_concat_symbol(h, e.width() - h),
                             {e.free_bv("x", i, h), e.free_bv("z", i, e.width() - h)});
  }));
  c.push_back(bv_case(
      "extract",
      [](Env& e, std::size_t i) {
        const std::size_t w = e.width();
        return e.mgr().make_term(e.mgr().make_bv_extract_symbol(w - 2, 1, w),
                                 {e.free_bv("x", i, w)});
      },
      [](std::size_t w) { return w - 2; }));
  c.push_back(bv_case("rotate_left", [](Env& e, std::size_t i) {
    return e.mgr().make_term(e.mgr().make_bv_rotate_left_symbol(3, e.width()),
                             {e.free_bv("x", i, e.width())});
  }));
  c.push_back(bv_case("rotate_right", [](Env& e, std::size_t i) {
    return e.mgr().make_term(e.mgr().make_bv_rotate_right_symbol(3, e.width()),
                             {e.free_bv("x", i, e.width())});
  }));
  // Never free: the calculator always throws. The values are small, so the
  // inverter finds a value for each (x := v).
  auto small_value = [](std::size_t extra) {
    return [extra](Env& e, std::size_t i, const Term* t) {
      return Instance{t,
                      e.number(mpz_class(static_cast<unsigned long>(i % 16)), e.width() + extra)};
    };
  };
  auto never = [&](const char* name, std::size_t extra, TermMaker make) {
    auto value = small_value(extra);
    return Case{name, false, true,
                [make, value](Env& e, std::size_t i) { return value(e, i, make(e, i)); }};
  };
  c.push_back(never("zero_extend", 8, [](Env& e, std::size_t i) {
    return e.mgr().make_term(e.mgr().make_bv_zero_extend_symbol(8, e.width()),
                             {e.free_bv("x", i, e.width())});
  }));
  c.push_back(never("sign_extend", 8, [](Env& e, std::size_t i) {
    return e.mgr().make_term(e.mgr().make_bv_sign_extend_symbol(8, e.width()),
                             {e.free_bv("x", i, e.width())});
  }));
  c.push_back(never("bvurem", 0, free_known(Op::BVUrem)));
  c.push_back(never("bvsrem", 0, free_known(Op::BVSrem)));
  return c;
}

enum class Mode { Call, Baseline, Inverter };

// What a call recorded: a constraint (= arg value), and for the baseline the
// number and width to make the value's numeral from.
struct Record {
  const Term* arg;
  const Term* value;
  bool boolean;
  QNumber number;
  std::size_t width;
};

// Runs f (a calculator or the inverter) over every instance on a fresh store;
// returns the number of refusals and, when records is given, what each call
// recorded.
std::size_t run_batch(Env& e, const std::vector<Instance>& inst, Mode mode,
                      std::vector<Record>* records = nullptr) {
  e.fresh_store();
  CalculatorTable table(&e.mgr(), e.store(), &e.free());
  inverse::Inverter inverter(&e.mgr(), e.store(), &e.free());
  std::size_t refused = 0;
  for (const Instance& in : inst) {
    AdHocCalculator* f = mode == Mode::Inverter ? &inverter : table.find(in.t);
    const std::size_t before = e.store()->constraints().size();
    try {
      (*f)(in.t, in.v);
    } catch (const AdHocCalculator::error&) {
      ++refused;
    }
    if (records == nullptr) continue;
    const std::vector<const Term*>& cs = e.store()->constraints();
    for (std::size_t k = before; k < cs.size(); ++k) {
      const Term* c = cs[k];
      Record r{c->arg(0), c->arg(1), c->get_symbol()->op() == Op::Iff, QNumber(), 0};
      if (!r.boolean) {
        r.number = *e.mgr().find_number(r.value->get_symbol());
        r.width = r.value->type()->width();
      }
      records->push_back(std::move(r));
    }
  }
  return refused;
}

// The timed loops, kept out of line so that a profiler can single them out
// (valgrind --toggle-collect='*timed_calls*' counts the calls alone).
[[gnu::noinline]] void timed_calls(AdHocCalculator& f, const std::vector<Instance>& inst) {
  for (const Instance& in : inst) {
    try {
      f(in.t, in.v);
    } catch (const AdHocCalculator::error& err) {
      benchmark::DoNotOptimize(err);
    }
  }
}

[[gnu::noinline]] void timed_baseline(TermManager& mgr, const std::vector<Record>& records) {
  for (const Record& r : records) {
    const Term* value = r.boolean ? r.value : mgr.make_bv_number(r.number, r.width);
    const Term* constraint = r.boolean ? mgr.make_iff(r.arg, value) : mgr.make_equal(r.arg, value);
    benchmark::DoNotOptimize(constraint);
  }
}

void bench_case(benchmark::State& state, const Case& c, std::size_t width, Mode mode) {
  Env e(width);
  std::vector<Instance> inst;
  inst.reserve(kInstances);
  for (std::size_t i = 0; i < kInstances; ++i) inst.push_back(c.build(e, i));

  // Warm-up: every term that the timed calls make exists from here on.
  std::vector<Record> records;
  const std::size_t refused = run_batch(e, inst, Mode::Call, &records);
  const std::size_t expected = c.never_free ? kInstances : 0;
  if (refused != expected) {
    state.SkipWithError("the calculator did not take the benchmarked row");
    return;
  }
  if (mode == Mode::Inverter && run_batch(e, inst, Mode::Inverter) != 0) {
    state.SkipWithError("the inverter refused an instance");
    return;
  }

  TermManager& mgr = e.mgr();
  if (mode == Mode::Baseline) {
    for (auto _ : state) timed_baseline(mgr, records);
  } else {
    std::unique_ptr<CalculatorTable> table;
    std::unique_ptr<inverse::Inverter> inverter;
    for (auto _ : state) {
      state.PauseTiming();
      table.reset();
      inverter.reset();
      e.fresh_store();
      table = std::make_unique<CalculatorTable>(&mgr, e.store(), &e.free());
      inverter = std::make_unique<inverse::Inverter>(&mgr, e.store(), &e.free());
      AdHocCalculator* f = mode == Mode::Inverter ? static_cast<AdHocCalculator*>(inverter.get())
                                                  : table->find(inst[0].t);
      state.ResumeTiming();
      timed_calls(*f, inst);
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(kInstances));
  state.counters["records_per_call"] =
      static_cast<double>(records.size()) / static_cast<double>(kInstances);
}

}  // namespace

void register_calculator_benchmarks() {
  static const std::vector<Case> cases = make_cases();
  for (const Case& c : cases) {
    const std::vector<std::size_t> widths =
        c.boolean ? std::vector<std::size_t>{0} : std::vector<std::size_t>{8, 64, 256};
    for (std::size_t w : widths) {
      const std::string prefix =
          "calc/" + c.name + "/" + (c.boolean ? std::string("bool") : std::to_string(w)) + "/";
      const Case* cp = &c;
      benchmark::RegisterBenchmark((prefix + "call").c_str(), [cp, w](benchmark::State& st) {
        bench_case(st, *cp, w, Mode::Call);
      });
      if (!c.never_free) {
        benchmark::RegisterBenchmark((prefix + "baseline").c_str(), [cp, w](benchmark::State& st) {
          bench_case(st, *cp, w, Mode::Baseline);
        });
      }
      benchmark::RegisterBenchmark((prefix + "inverter").c_str(), [cp, w](benchmark::State& st) {
        bench_case(st, *cp, w, Mode::Inverter);
      });
    }
  }
}

}  // namespace kora::bench
