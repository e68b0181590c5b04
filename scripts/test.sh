#!/bin/sh
# Builds everything and runs every test, then again under AddressSanitizer and
# UndefinedBehaviorSanitizer, then a short run of each fuzz target.
set -e
cd "$(dirname "$0")/.."
scripts/deps.sh tests
jobs="$(nproc)"

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=ON
cmake --build build -j"$jobs"
ctest --test-dir build -j"$jobs" --output-on-failure

cmake -S . -B build-sanitize -DCMAKE_BUILD_TYPE=Debug -DBUILD_TESTING=ON \
  -DALERTDB_SANITIZE=ON -DALERTDB_BUILD_BENCH=OFF
cmake --build build-sanitize -j"$jobs"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-sanitize -j"$jobs" --output-on-failure

scripts/tsan.sh
scripts/fuzz.sh "${ALERTDB_FUZZ_SECONDS:-10}"
