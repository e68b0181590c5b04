#!/bin/sh
# Builds the library and the alertdb tool, then runs the main job on the
# tool's default data directory ($XDG_DATA_HOME/alertdb unless configured).
set -e
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target alertdb_tool
exec build/alertdb demo "$@"
