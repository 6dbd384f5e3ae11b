#!/usr/bin/env bash
# Builds the benchmarks (Release) and prints, for every per-message benchmark, the median wall
# time, the exact instruction count of one message (callgrind: two runs of a fixed number of
# iterations, the difference divided by the extra iterations) and heap allocations per message;
# then the memory a call and a dialog keep, and the peer anchors measured in the same run when
# their script is found. Every benchmark first checks that its output equals bench/expected/.
# Usage: scripts/bench.sh [FILTER-REGEX]
#   REPETITIONS=5 (wall-clock repetitions), ANCHORS=../shared/anchors/run.sh
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
filter=${1:-.}
build=${VOIPFILTER_BUILD_ROOT:-$root/build}/bench
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVOIPFILTER_BUILD_TESTS=OFF \
  -DVOIPFILTER_BUILD_BENCHMARKS=ON >/dev/null
cmake --build "$build" --target voipfilter_bench >/dev/null
bench=$build/bench/voipfilter_bench
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$bench" --benchmark_filter="$filter" --benchmark_repetitions="${REPETITIONS:-5}" \
  --benchmark_report_aggregates_only=true --benchmark_format=json >"$work/wall.json" 2>/dev/null

mapfile -t names < <("$bench" --benchmark_list_tests --benchmark_filter="$filter" | grep -v Memory)
: >"$work/instructions.txt"
if command -v valgrind >/dev/null; then
  refs() {
    VOIPFILTER_BENCH_ITERATIONS=$2 valgrind --tool=callgrind --callgrind-out-file=/dev/null \
      "$bench" --benchmark_filter="^$1(/|\$)" 2>&1 >/dev/null | sed -n 's/.*I *refs: *//p' | tr -d ,
  }
  for name in "${names[@]}"; do
    echo "$name $(( ($(refs "$name" 1100) - $(refs "$name" 100)) / 1000 ))" >>"$work/instructions.txt"
  done
else
  echo "valgrind not found: no instruction counts"
fi

python3 - "$work/wall.json" "$work/instructions.txt" <<'PY'
import json, sys
runs = json.load(open(sys.argv[1]))["benchmarks"]
instructions = dict(line.split() for line in open(sys.argv[2]) if line.strip())
failed = [r["name"] for r in runs if r.get("error_occurred")]
print(f"{'benchmark':<42} {'median ns':>10} {'instructions':>13} {'allocs/msg':>11}")
for r in runs:
    if r.get("aggregate_name") != "median":
        continue
    name = r["run_name"]
    if "Memory" in name:
        extra = ", ".join(f"{k}={r[k]:.0f}" for k in ("bytes/call", "bytes/dialog", "sizeof") if k in r)
        print(f"{name:<42} {extra}")
        continue
    ins = instructions.get(name, "-")
    ins = f"{int(ins):,}".replace(",", " ") if ins != "-" else ins
    print(f"{name:<42} {r['real_time']:>10.0f} {ins:>13} {r.get('allocs/msg', 0):>11.1f}")
for name in failed:
    print(f"{name}: {runs[[r['name'] for r in runs].index(name)].get('error_message')}")
sys.exit(1 if failed else 0)
PY

anchors=${ANCHORS:-$root/../shared/anchors/run.sh}
if [ -x "$anchors" ] || [ -f "$anchors" ]; then
  echo
  bash "$anchors"
else
  echo "anchors not found at $anchors (set ANCHORS): no peer figures"
fi
