#include "bench_main.h"

#include <benchmark/benchmark.h>

#include "bench_support.h"
#include "ratio_reporter.h"
#include "table_sides.h"

int main(int argc, char **argv) {
  alertdb_bench::registerTableBenchmarks();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  alertdb_bench::RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  alertdb_bench::releaseDatasets();
  alertdb_bench::BenchEnvironment::remove();
  return 0;
}
