// Entry point of kora-bench: Google Benchmark's own main, plus context lines
// (which optional comparison libraries were built in) that land in the JSON
// output, so that bench/summarize.py can say why a column is empty.

#include <benchmark/benchmark.h>
#include <gmp.h>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "bench_util.h"

namespace {

// glibc hands large blocks back to the kernel when they are freed, and the
// next iteration then pays for the kernel zeroing fresh pages at its first
// touch. Small runs never see that (their memory is reused from the free
// lists), so rows over a growing N would measure page faults that only the
// large ones take. Keeping freed memory in the process makes every size
// reuse the previous iteration's pages.
void keep_freed_memory() {
#if defined(__GLIBC__)
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, -1);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  keep_freed_memory();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::AddCustomContext("kora_gmp_version", gmp_version);
  benchmark::AddCustomContext("kora_have_flint", kora::bench::kHaveFlint ? "yes" : "no");
  benchmark::AddCustomContext("kora_have_absl", kora::bench::kHaveAbsl ? "yes" : "no");
  kora::bench::register_qnumber_benchmarks();
  kora::bench::register_hashtable_benchmarks();
  kora::bench::register_calculator_benchmarks();
  kora::bench::register_printer_benchmarks();
  kora::bench::register_preprocess_benchmarks();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
