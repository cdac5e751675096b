// Entry point of kora-bench: Google Benchmark's own main, plus context lines
// (which optional comparison libraries were built in) that land in the JSON
// output, so that bench/summarize.py can say why a column is empty.

#include <benchmark/benchmark.h>
#include <gmp.h>

#include "bench_util.h"

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::AddCustomContext("kora_gmp_version", gmp_version);
  benchmark::AddCustomContext("kora_have_flint", kora::bench::kHaveFlint ? "yes" : "no");
  benchmark::AddCustomContext("kora_have_absl", kora::bench::kHaveAbsl ? "yes" : "no");
  kora::bench::register_qnumber_benchmarks();
  kora::bench::register_hashtable_benchmarks();
  kora::bench::register_calculator_benchmarks();
  kora::bench::register_preprocess_benchmarks();
  kora::bench::register_printer_benchmarks();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
