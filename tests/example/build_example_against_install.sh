#!/usr/bin/env bash
# Installs this build into a temporary prefix, builds the docs' example program
# against that install with CMake (find_package) and with pkg-config, and runs
# both: what a client of the installed library does, with nothing of the build
# tree in reach.
#
# usage: build_example_against_install.sh BUILD_DIR SOURCE_DIR CXX_COMPILER [EXTRA_FLAGS]
# EXTRA_FLAGS reach every compile and link (a sanitizer build's library needs
# its runtime in the program too).
set -euo pipefail

build_dir=$1
source_dir=$2
cxx=$3
extra_flags=${4:-}

work=$(mktemp -d "${TMPDIR:-/tmp}/alertdb-example.XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

fail() {
  echo "FAIL: $*" >&2
  exit 1
}

# Runs a command quietly, showing its output only when it fails.
quiet() {
  local log=$work/step.log
  if ! "$@" >"$log" 2>&1; then
    cat "$log" >&2
    fail "$*"
  fi
}

quiet cmake --install "$build_dir" --prefix "$prefix"
for f in include/alertdb/alertdb.h lib/cmake/AlertDB/AlertDBConfig.cmake \
  lib/pkgconfig/alertdb.pc bin/alertdb; do
  [[ -e $prefix/$f ]] || fail "the install lacks $f"
done

# ---- CMake: find_package(AlertDB) must find this prefix, not another install
quiet cmake -S "$source_dir/docs/example" -B "$work/cmake-build" \
  -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_FLAGS="$extra_flags" -DCMAKE_EXE_LINKER_FLAGS="$extra_flags"
found=$(sed -n 's/^AlertDB_DIR:PATH=//p' "$work/cmake-build/CMakeCache.txt")
[[ $found == "$prefix/lib/cmake/AlertDB" ]] || fail "find_package found AlertDB in '$found'"
quiet cmake --build "$work/cmake-build"
cmake_example=$work/cmake-build/alert_flow_example

# ---- pkg-config
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
pc_flags=$(pkg-config --cflags --libs alertdb) || fail "pkg-config knows no alertdb"
libdir=$(pkg-config --variable=libdir alertdb)
pc_example=$work/pc_example
# shellcheck disable=SC2086 # flags are words
quiet "$cxx" -std=c++20 $extra_flags "$source_dir/docs/example/alert_flow_example.cpp" \
  -o "$pc_example" $pc_flags -Wl,-rpath,"$libdir"

# Both programs load the installed library, not the build tree's.
for program in "$cmake_example" "$pc_example"; do
  loaded=$(env -u LD_LIBRARY_PATH ldd "$program" | sed -n 's/.*libalertdb\.so[^ ]* => \([^ ]*\).*/\1/p')
  [[ $(realpath "$loaded") == "$(realpath "$prefix/lib")"/libalertdb.so* ]] ||
    fail "$program loads libalertdb from '$loaded'"
done

# Runs the example in data directory $1; its output goes to $work/out.
run_example() {
  local program=$1 data_dir=$2
  mkdir -p "$data_dir"
  if ! env -u LD_LIBRARY_PATH ALERTDB_DATA_DIR="$data_dir" \
    ALERTDB_EVENT_NAMESPACE="alertdb-example-$$-${data_dir##*/}." \
    "$program" >"$work/out" 2>"$work/err"; then
    cat "$work/out" "$work/err" >&2
    fail "$program exited with a failure in $data_dir"
  fi
}

expect_line() {
  grep -qFx -- "$1" "$work/out" || {
    cat "$work/out" >&2
    fail "no line \"$1\""
  }
}

expect_first_run() {
  grep -qE '^event class "Disk Full" registered as \{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\}$' \
    "$work/out" || {
    cat "$work/out" >&2
    fail "the event class was not registered"
  }
  expect_line 'response "Page the operator" linked to the event class'
  expect_line 'occurrence logged; change event: not set (the event log never signals)'
  expect_line 'read back: "Disk Full" on FILESRV1: Volume D: is 99% full'
  expect_line 'occurrences of "Disk Full" in the log: 1'
  expect_line 'outcome recorded; change event: set'
}

run_example "$cmake_example" "$work/data-cmake"
expect_first_run
for f in AlEvntdb.dat AlRespDB.dat KEPLogDB.dat; do
  [[ -s $work/data-cmake/$f ]] || fail "no $f in the data directory"
done

# Again on the same directory: found, not added twice; the log grows.
run_example "$cmake_example" "$work/data-cmake"
expect_line 'event class "Disk Full" was registered already'
expect_line 'response "Page the operator" linked already (ALRT_E_LINKEXISTS)'
expect_line 'occurrences of "Disk Full" in the log: 2'
expect_line 'outcome recorded; change event: set'

run_example "$pc_example" "$work/data-pkg-config"
expect_first_run

echo "example built against $prefix with CMake and pkg-config; both ran"
