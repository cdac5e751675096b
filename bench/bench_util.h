#pragma once

// Shared declarations of the kora-bench translation units.

#include <cstdint>
#include <random>

namespace kora::bench {

#ifdef KORA_BENCH_HAVE_FLINT
inline constexpr bool kHaveFlint = true;
#else
inline constexpr bool kHaveFlint = false;
#endif
#ifdef KORA_BENCH_HAVE_ABSL
inline constexpr bool kHaveAbsl = true;
#else
inline constexpr bool kHaveAbsl = false;
#endif

// Every data set comes from this generator with a fixed seed, so two runs
// (and two libraries in one run) see the same values.
inline std::mt19937_64 make_rng(std::uint64_t salt) {
  return std::mt19937_64(0x6b6f7261ULL ^ (salt * 0x9e3779b97f4a7c15ULL));
}

// Benchmarks are registered by name at start-up; the names are
// family/case/library so that bench/summarize.py can pair the rows.
void register_qnumber_benchmarks();
void register_hashtable_benchmarks();
void register_calculator_benchmarks();
void register_preprocess_benchmarks();
void register_printer_benchmarks();

}  // namespace kora::bench
