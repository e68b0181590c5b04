#include "ratio_reporter.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace alertdb_bench {

namespace {

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  std::size_t middle = values.size() / 2;
  return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

}  // namespace

RatioReporter::RatioReporter()
    : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular) {}

void RatioReporter::ReportRuns(const std::vector<Run> &runs) {
  ConsoleReporter::ReportRuns(runs);
  for (const Run &run : runs) {
    if (run.run_type != Run::RT_Iteration) continue;
    const std::string &name = run.run_name.function_name;
    auto split = name.find('/');
    if (split == std::string::npos) continue;
    std::string side = name.substr(0, split);
    std::string work = name.substr(split + 1, name.find("/pair:") - split - 1);
    if (side != "Engine" && side != "Sqlite") continue;
    if (!works_.count(work)) order_.push_back(work);
    Samples &samples = works_[work];
    auto records = run.counters.find("records");
    if (run.error_occurred || records == run.counters.end() || records->second.value <= 0) {
      samples.failed = true;
      continue;
    }
    double perRecord = run.real_accumulated_time / records->second.value;
    (side == "Engine" ? samples.engine : samples.baseline).push_back(perRecord);
  }
}

void RatioReporter::Finalize() {
  ConsoleReporter::Finalize();
  std::printf("\nMedians per record in microseconds; ratio = engine median / SQLite median.\n");
  std::printf("%-34s %12s %12s %8s %8s %6s\n", "work", "engine", "sqlite", "ratio", "paired",
              "pairs");
  for (const std::string &work : order_) {
    const Samples &s = works_[work];
    if (s.failed) {
      std::printf("%-34s %12s\n", work.c_str(), "FAILED");
      continue;
    }
    double engine = median(s.engine) * 1e6, baseline = median(s.baseline) * 1e6;
    std::size_t pairs = std::min(s.engine.size(), s.baseline.size());
    std::vector<double> ratios;
    for (std::size_t i = 0; i < pairs; ++i) ratios.push_back(s.engine[i] / s.baseline[i]);
    if (pairs == 0) {
      std::printf("%-34s %12.2f %12.2f %8s %8s %6zu\n", work.c_str(), engine, baseline, "-", "-",
                  pairs);
      continue;
    }
    std::printf("%-34s %12.2f %12.2f %8.2f %8.2f %6zu\n", work.c_str(), engine, baseline,
                engine / baseline, median(ratios), pairs);
  }
}

}  // namespace alertdb_bench
