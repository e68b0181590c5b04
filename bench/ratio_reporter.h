// Prints, after the usual table, each engine figure as a ratio to the raw
// SQLite baseline of the same name ("Engine/X" beside "Sqlite/X").
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>

namespace alertdb_bench {

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override;
  void Finalize() override;

 private:
  std::map<std::string, double> engine_, baseline_;
};

}  // namespace alertdb_bench
