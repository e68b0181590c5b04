#!/bin/sh
# ThreadSanitizer for the concurrency harness: builds the library and the
# harness's worker program with it (build-tsan) and runs the harness with
# the test driver of the plain build (build). Four worker processes run two
# threads each on one data directory; a race, a lock misuse or a deadlock
# that ThreadSanitizer finds in one of them ends it, which fails the test.
#
#   scripts/tsan.sh [SECONDS]        the harness's working time (default 10)
#   scripts/tsan.sh --all [SECONDS]  also builds the whole test program with
#                                    ThreadSanitizer and runs, with the harness,
#                                    the tests that share the library between
#                                    threads (some minutes more)
#
# ALERTDB_TSAN_BUILD and ALERTDB_PLAIN_BUILD name other build directories
# than build-tsan and build.
set -e
cd "$(dirname "$0")/.."
all=""
if [ "$1" = --all ]; then
  all=1
  shift
fi
export ALERTDB_CONCURRENCY_SECONDS="${1:-10}"
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1"
jobs="$(nproc)"
[ "$jobs" -gt 2 ] && jobs=2
tsan="${ALERTDB_TSAN_BUILD:-build-tsan}"
plain="${ALERTDB_PLAIN_BUILD:-build}"
case "$tsan" in /*) ;; *) tsan="$(pwd)/$tsan" ;; esac

cmake -S . -B "$tsan" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=ON \
  -DALERTDB_TSAN=ON -DALERTDB_BUILD_BENCH=OFF >/dev/null
if [ -z "$all" ]; then
  cmake --build "$tsan" -j"$jobs" --target concurrency_worker
  [ -f "$plain/CMakeCache.txt" ] ||
    cmake -S . -B "$plain" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=ON >/dev/null
  cmake --build "$plain" -j"$jobs" --target alertdb_tests
  ALERTDB_CONCURRENCY_WORKER="$tsan/tests/programs/concurrency_worker" \
    "$plain/tests/alertdb_tests" --gtest_filter='ConcurrencyTest.*'
else
  cmake --build "$tsan" -j"$jobs" --target alertdb_tests
  tests='^(ConcurrencyTest|RecordStoreTest|BackupTest|NamedEventTest|EventSetCountTest|ObjectManagerTest|ChangeSignalTest)\.'
  tests="$tests"'|^(ParameterNames\.ThreadsFilling|SeverityTexts\.ThreadsAsking|StringTableTest\.FirstUseFromManyThreads)'
  # A holder killed inside the event's robust mutex hands the next timed lock
  # EOWNERDEAD, which ThreadSanitizer does not count as a lock.
  ctest --test-dir "$tsan" -R "$tests" -E 'KilledProcessesDoNotWedgeTheEvent' -j"$jobs" \
    --output-on-failure
fi
