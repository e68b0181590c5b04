#include "ratio_reporter.h"

#include <cstdio>

namespace alertdb_bench {

void RatioReporter::ReportRuns(const std::vector<Run> &runs) {
  ConsoleReporter::ReportRuns(runs);
  for (const Run &run : runs) {
    if (run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
    std::string name = run.benchmark_name();
    double perItem = run.GetAdjustedRealTime();
    auto split = name.find('/');
    if (split == std::string::npos) continue;
    std::string side = name.substr(0, split), work = name.substr(split + 1);
    if (side == "Engine") engine_[work] = perItem;
    if (side == "Sqlite") baseline_[work] = perItem;
  }
}

void RatioReporter::Finalize() {
  ConsoleReporter::Finalize();
  std::printf("\n%-40s %14s %14s %8s\n", "work", "engine", "raw sqlite", "ratio");
  for (const auto &[work, engine] : engine_) {
    auto it = baseline_.find(work);
    if (it == baseline_.end()) continue;
    std::printf("%-40s %14.1f %14.1f %8.2f\n", work.c_str(), engine, it->second,
                engine / it->second);
  }
}

}  // namespace alertdb_bench
