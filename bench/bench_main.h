// The benchmarks, registered in the order they run: all figures of one size
// before the next size, so that each data set is made once.
#pragma once

#include <cstdint>

namespace alertdb_bench {

void registerTableBenchmarks();
// PurgeLog over a log of `count` entries (a copy of the log data set).
void registerPurgeBenchmarks(std::uint64_t count);

}  // namespace alertdb_bench
