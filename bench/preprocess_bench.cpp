// Elimination and rebuilding on a chain of n eliminable applications, at
// n = 10^4, 10^5 and 10^6: the time per application stays flat when both
// are linear in the size of the term graph.
//
// The chain t_i = f_i(t_{i-1}, ...) starts from one unconstrained constant
// and cycles through bvnot, bvadd with a constrained k, bvneg, bvxor with k,
// bvmul by an odd numeral and rotate_left, so that the rebuilding calls six
// different calculators; the one assertion is t_n = k, which is eliminated
// too. Rows:
//   simplify/N  simplify() on a new manager holding the chain
//   rebuild/N   rebuild() from the model of the reduced problem (its one
//               fresh Boolean true; k, left with a single occurrence once
//               the chain is gone, is eliminated with the last equality),
//               then validate()
//   rebuild_alone/N, validate_alone/N  the same, timing only rebuild() or
//               only validate()
//   new_numerals/N  the baseline of rebuild_alone/N: N new numerals of
//               random values made in the same manager
// The counter per_app is the time per eliminated application. Time also
// shows the memory hierarchy: at 10^6 applications the terms and the
// numeral index no longer fit in the caches, so every lookup at a random
// place costs a miss; bench/RESULTS.md gives instruction counts beside it,
// taken with callgrind, which show the work itself.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <sstream>
#include <vector>

#include "bench_util.h"
#include "kora/model/model_store.h"
#include "kora/preprocess/model_builder.h"
#include "kora/preprocess/simplifier.h"
#include "kora/terms/term_manager.h"

namespace kora::bench {
namespace {

constexpr std::size_t kWidth = 32;

struct Chain {
  std::unique_ptr<TermManager> mgr = std::make_unique<TermManager>();
  const Term* k = nullptr;
  std::vector<const Term*> assertions;
};

Chain make_chain(std::size_t n) {
  Chain c;
  TermManager& m = *c.mgr;
  c.k = m.make_constant("k", m.bv_type(kWidth));
  const Term* three = m.make_bv_number(3, kWidth);
  const Term* t = m.make_constant("x", m.bv_type(kWidth));
  for (std::size_t i = 0; i < n; ++i) {
    switch (i % 6) {
      case 0:
        t = m.make_term(m.make_bv_not_symbol(kWidth), {t});
        break;
      case 1:
        t = m.make_term(m.make_bv_add_symbol(kWidth), {t, c.k});
        break;
      case 2:
        t = m.make_term(m.make_bv_neg_symbol(kWidth), {t});
        break;
      case 3:
        t = m.make_term(m.make_bv_xor_symbol(kWidth), {c.k, t});
        break;
      case 4:
        t = m.make_term(m.make_bv_mul_symbol(kWidth), {t, three});
        break;
      default:
        t = m.make_term(m.make_bv_rotate_left_symbol(5, kWidth), {t});
        break;
    }
  }
  c.assertions = {m.make_equal(t, c.k)};
  return c;
}

void set_per_app(benchmark::State& state, std::size_t n) {
  const auto apps = static_cast<double>(state.iterations()) * static_cast<double>(n);
  state.SetItemsProcessed(static_cast<std::int64_t>(apps));
  state.counters["per_app"] =
      benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsIterationInvariantRate |
                                                     benchmark::Counter::kInvert);
}

void simplify_chain(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    Chain c = make_chain(n);
    state.ResumeTiming();
    auto s = std::make_unique<preprocess::Simplified>(preprocess::simplify(*c.mgr, c.assertions));
    benchmark::DoNotOptimize(s->eliminated);
    state.PauseTiming();
    if (s->eliminated != n + 1) {
      state.SkipWithError("not every application was eliminated");
      break;
    }
    // Freed outside the timing: the result too, whose trail holds a vector
    // per eliminated application.
    s.reset();
    c = Chain{};
    state.ResumeTiming();
  }
  set_per_app(state, n);
}

// Which calls of the rebuilding row are timed.
enum class Timed { Both, Rebuild, Validate };

template <Timed kTimed>
void rebuild_chain(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    Chain c = make_chain(n);
    auto s = std::make_unique<preprocess::Simplified>(preprocess::simplify(*c.mgr, c.assertions));
    std::ostringstream log;
    auto store = std::make_unique<ModelStore>(c.mgr.get(), &log);
    store->set_value(s->trail.fresh.back(), c.mgr->true_term());
    if (kTimed != Timed::Validate) state.ResumeTiming();
    const auto stats = preprocess::rebuild(*c.mgr, *store, s->trail, c.assertions);
    if (kTimed == Timed::Validate) state.ResumeTiming();
    if (kTimed == Timed::Rebuild) state.PauseTiming();
    const bool valid = preprocess::validate(*store, c.assertions).empty();
    if (kTimed != Timed::Rebuild) state.PauseTiming();
    if (!valid || stats.unsolved != 0) {
      state.SkipWithError("invalid rebuilt model");
      break;
    }
    store.reset();
    s.reset();
    c = Chain{};
    state.ResumeTiming();
  }
  set_per_app(state, n);
}

// The baseline for rebuild/N: n new numerals of random 32-bit values made
// in the manager of a simplified chain of n applications, the state rebuild
// starts from. Rebuilding makes about one new numeral per application (the
// calculators' values), and each costs a probe of the numeral index at a
// place no earlier work has touched; this row is that cost alone, so the
// growth of rebuild/N with N can be set against it in the same run.
void new_numerals(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  std::uint64_t seed = 0x2545f4914f6cdd1dULL;
  for (auto _ : state) {
    state.PauseTiming();
    Chain c = make_chain(n);
    auto s = std::make_unique<preprocess::Simplified>(preprocess::simplify(*c.mgr, c.assertions));
    state.ResumeTiming();
    for (std::size_t i = 0; i < n; ++i) {
      // xorshift64: distinct values at random places of the index.
      seed ^= seed << 13;
      seed ^= seed >> 7;
      seed ^= seed << 17;
      benchmark::DoNotOptimize(c.mgr->make_bv_word(seed, kWidth));
    }
    state.PauseTiming();
    s.reset();
    c = Chain{};
    state.ResumeTiming();
  }
  set_per_app(state, n);
}

}  // namespace

void register_preprocess_benchmarks() {
  // Every row runs over the same three chain lengths.
  const auto over_chain_sizes = [](benchmark::internal::Benchmark* b) {
    b->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
  };
  benchmark::RegisterBenchmark("preprocess/simplify", simplify_chain)->Apply(over_chain_sizes);
  benchmark::RegisterBenchmark("preprocess/rebuild", rebuild_chain<Timed::Both>)
      ->Apply(over_chain_sizes);
  benchmark::RegisterBenchmark("preprocess/rebuild_alone", rebuild_chain<Timed::Rebuild>)
      ->Apply(over_chain_sizes);
  benchmark::RegisterBenchmark("preprocess/validate_alone", rebuild_chain<Timed::Validate>)
      ->Apply(over_chain_sizes);
  benchmark::RegisterBenchmark("preprocess/new_numerals", new_numerals)->Apply(over_chain_sizes);
}

}  // namespace kora::bench
