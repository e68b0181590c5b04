// Cascades measured on data sets written once by the engine through its own
// tables, kept as seed copies and put back before every run: the engine's
// side works on the files under their own names, the plain side on copies
// under a prefix of its own.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace alertdb_bench {

class SeedFiles {
 public:
  SeedFiles(std::vector<std::string> files, std::string seedPrefix)
      : files_(std::move(files)), seedPrefix_(std::move(seedPrefix)) {}

  // Writes the data set with `fill` ("" or what failed) into empty live
  // files (other figures of the run share the directory) and keeps it as the
  // seeds; "" or what failed.
  std::string make(const std::function<std::string()> &fill) const;
  // Puts fresh copies of the seeds under `prefix` (the files' own names when empty).
  bool restore(const std::string &prefix) const;

 private:
  std::vector<std::string> files_;
  std::string seedPrefix_;
};

// One side of a paired cascade figure: each run restores the seeds under
// `prefix`, times `cascade`, then checks the files with `check` ("" when
// right) outside the timing. Reports `rowsPerRun` rows a run.
void runCascade(benchmark::State &state, const std::string &seedError, const SeedFiles &seeds,
                const std::string &prefix, std::uint64_t rowsPerRun,
                const std::function<bool()> &cascade,
                const std::function<std::string(const std::string &prefix)> &check);

}  // namespace alertdb_bench
