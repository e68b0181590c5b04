#!/bin/sh
# Builds the libFuzzer targets with clang and runs each for SECONDS (default
# 10) from the corpus kept in fuzz/corpus. New inputs go to a scratch folder;
# to keep them, merge: build-fuzz/fuzz/<target>_fuzzer -merge=1 fuzz/corpus/<target> DIR
set -e
cd "$(dirname "$0")/.."
seconds="${1:-10}"
CC=clang-14 CXX=clang++-14 cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DALERTDB_FUZZ=ON -DBUILD_TESTING=OFF -DALERTDB_BUILD_BENCH=OFF >/dev/null
targets="expansion settings image_lookup store_open"
cmake --build build-fuzz -j"$(nproc)" --target $(for t in $targets; do printf '%s_fuzzer ' "$t"; done)
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
export ALERTDB_EVENT_NAMESPACE="fuzz-$$"
for t in $targets; do
  mkdir -p "$scratch/$t"
  echo "fuzzing $t for $seconds s"
  build-fuzz/fuzz/${t}_fuzzer -max_total_time="$seconds" -print_final_stats=1 \
    -artifact_prefix="$scratch/" "$scratch/$t" "fuzz/corpus/$t" 2>"$scratch/$t.log" ||
    { tail -50 "$scratch/$t.log"; cp "$scratch"/crash-* "$scratch"/leak-* "$scratch"/timeout-* . 2>/dev/null || true; exit 1; }
  grep -E "stat::number_of_executed_units" "$scratch/$t.log" | sed "s/^/  $t: /"
done
