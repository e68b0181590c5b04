#!/bin/bash
# Instructions per row of a whole 1,000-record walk, engine against plain
# SQLite, under callgrind. Each side runs twice with two run lengths; the
# difference of the two totals over the difference in rows walked leaves
# out making the data set and the first walk. Counts do not depend on the
# machine's load, so they compare builds where timings cannot.
#
#   scripts/walk_instructions.sh [BENCH] [WALK...]
#   WALK: LinkFindNextByEventClass LinkFindNextById LogFindNextById LogFindNextByEventId
#
# Rows are the calls of the table's find-next on the engine's side and of the
# baseline's decoder on the other (one per row each, and the same per walk).
# ALERTDB_WALK_LONG sets the second run's minimum time (seconds; the event
# log's walks need about 3 for enough rows under callgrind).
set -e
bench=${1:-build/bench/alertdb_bench}
shift || true
walks=${*:-LinkFindNextByEventClass LinkFindNextById LogFindNextById LogFindNextByEventId}
long=${ALERTDB_WALK_LONG:-1.0}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

# Total instructions collected and calls of functions whose name holds $2.
count() {
  python3 - "$1" "$2" <<'EOF'
import re, sys
names, total, calls, callee = {}, 0, 0, ''
def name(text):
    m = re.match(r'\((\d+)\)(?: (.*))?', text)
    if not m:
        return text
    if m.group(2) is not None:
        names[m.group(1)] = m.group(2)
    return names.get(m.group(1), '')
for line in open(sys.argv[1]):
    if line.startswith('fn='):
        name(line[3:].strip())
    elif line.startswith('cfn='):
        callee = name(line[4:].strip())
    elif line.startswith('calls=') and sys.argv[2] in callee:
        calls += int(line[6:].split()[0])
    elif line.startswith(('totals:', 'summary:')):
        total = int(line.split()[1])
print(total, calls)
EOF
}

for walk in $walks; do
  kind=${walk%%FindNext*}Kind
  declare -A perRow
  for side in Engine Sqlite; do
    # The engine's walk is the 6th benchmark lambda of its record kind, the
    # baseline's the 7th (bench/table_bench.cpp).
    if [ $side = Engine ]; then lambda='#6' rows=DBAlertRecFindNext; else lambda='#7' rows=decodeImage; fi
    for t in 0.2 "$long"; do
      ALERTDB_BENCH_PAIRS=1 ALERTDB_BENCH_MIN_TIME=$t valgrind --tool=callgrind \
        --callgrind-out-file="$out/$side.$t" \
        --toggle-collect="*${kind}>(unsigned long, bool)::{lambda(benchmark::State&)${lambda}}>::_M_invoke*" \
        "$bench" --benchmark_filter="^$side/$walk/1000/" >/dev/null 2>&1
    done
    read -r a ra <<<"$(count "$out/$side.0.2" $rows)"
    read -r b rb <<<"$(count "$out/$side.$long" $rows)"
    if [ "$rb" -le "$ra" ]; then
      echo "$walk: the runs walked as many rows; raise ALERTDB_WALK_LONG" >&2
      exit 1
    fi
    perRow[$side]=$(((b - a) / (rb - ra)))
  done
  echo "$walk engine ${perRow[Engine]} sqlite ${perRow[Sqlite]}" \
    "ratio $(python3 -c "print(round(${perRow[Engine]} / ${perRow[Sqlite]}, 3))")"
done
