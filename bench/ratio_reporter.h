// Prints, after the usual table, each figure as the median per record of the
// engine's runs ("Engine/X/pair:n"), the median of plain SQLite's runs of the
// same work ("Sqlite/X/pair:n"), and the engine's median over SQLite's. The
// runs of a pair ran next to each other; the median of the pairs' own ratios
// is shown beside, as a check on drift.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace alertdb_bench {

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  // Coloured only on a terminal, so that saved output stays plain text.
  RatioReporter();
  void ReportRuns(const std::vector<Run> &runs) override;
  void Finalize() override;

 private:
  struct Samples {
    std::vector<double> engine, baseline;  // seconds per record, in run order
    bool failed = false;
  };
  std::vector<std::string> order_;
  std::map<std::string, Samples> works_;
};

}  // namespace alertdb_bench
