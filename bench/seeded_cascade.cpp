#include "seeded_cascade.h"

#include <filesystem>

#include "bench_support.h"

namespace alertdb_bench {

namespace {

void removeStore(const std::string &path) {
  std::error_code ignored;
  for (const char *suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path + suffix, ignored);
}

bool copyStore(const std::string &from, const std::string &to) {
  removeStore(to);
  std::error_code error;
  std::filesystem::copy_file(from, to, error);
  return !error;
}

}  // namespace

std::string SeedFiles::make(const std::function<std::string()> &fill) const {
  for (const std::string &file : files_) removeStore(BenchEnvironment::get().file(file));
  std::string error = fill();
  if (!error.empty()) return error;
  for (const std::string &file : files_) {
    const std::string live = BenchEnvironment::get().file(file);
    if (!checkpoint(live) || !copyStore(live, BenchEnvironment::get().file(seedPrefix_ + file))) {
      return "cannot keep the seed files";
    }
  }
  return "";
}

bool SeedFiles::restore(const std::string &prefix) const {
  for (const std::string &file : files_) {
    if (!copyStore(BenchEnvironment::get().file(seedPrefix_ + file),
                   BenchEnvironment::get().file(prefix + file))) {
      return false;
    }
  }
  return true;
}

void runCascade(benchmark::State &state, const std::string &seedError, const SeedFiles &seeds,
                const std::string &prefix, std::uint64_t rowsPerRun,
                const std::function<bool()> &cascade,
                const std::function<std::string(const std::string &prefix)> &check) {
  if (!seedError.empty()) {
    state.SkipWithError(seedError.c_str());
    return;
  }
  for (auto _ : state) {
    state.PauseTiming();
    bool ok = seeds.restore(prefix);
    state.ResumeTiming();
    ok = ok && cascade();
    state.PauseTiming();
    std::string wrong = ok ? check(prefix) : "the delete failed";
    state.ResumeTiming();
    if (!wrong.empty()) {
      state.SkipWithError(wrong.c_str());
      break;
    }
  }
  countRecords(state, state.iterations() * rowsPerRun);
}

}  // namespace alertdb_bench
