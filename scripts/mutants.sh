#!/usr/bin/env bash
# Mutation run: measures what the tests catch by planting deliberate faults in the sources, one at a
# time, and running the test suite against each.
#
#   scripts/mutants.sh [NAME-FILTER]
#   scripts/mutants.sh --check [NAME-FILTER]   only lists stale faults (no build, no tests)
#
# The faults are the blocks of scripts/mutants.txt (the format is described at its top); a
# NAME-FILTER (a Python regular expression) keeps the faults whose name it matches. The script
# builds a native Release tree of its own (build/mutants, benchmarks off) and checks that the
# unchanged sources pass. Then, for each fault, it replaces the fault's text in its file (the text
# must occur exactly once: otherwise the fault is "stale", its code has moved or changed and the
# block needs adapting), builds incrementally and runs CTest without the network-namespace proxy
# test, each test under a time limit (a hang counts as a failure). A failing suite "kills" the
# fault; a passing one lets it "survive"; a fault that does not build is "invalid". The file is
# restored whatever happens, also when the run is interrupted (and at the next start, should the
# script have been killed outright).
#
# Prints one line per fault and a summary; exits 0 when no fault is stale or invalid, 1 when one
# is, 2 when the run could not start (bad fault file, no matching fault, a red baseline).
# Environment: JOBS (build and test parallelism, default 2), MUTANTS_TEST_TIMEOUT (seconds per
# test, default 120), MUTANTS_FILE (another fault file), VOIPFILTER_BUILD_ROOT (default build).
set -uo pipefail
cd "$(dirname "$0")/.." || exit 2
root=$(pwd)

check_only=0
if [ "${1:-}" = --check ]; then
  check_only=1
  shift
fi
filter=${1:-}
faults_file=${MUTANTS_FILE:-$root/scripts/mutants.txt}
jobs=${JOBS:-2}
test_timeout=${MUTANTS_TEST_TIMEOUT:-120}
out=${VOIPFILTER_BUILD_ROOT:-$root/build}/mutants
logs=$out/mutant-logs
pending_copy=$out/pending.orig
pending_path=$out/pending.path

# Reads the fault file. Commands:
#   list FILTER             one line per matching fault: name, room, file (tab-separated)
#   show NAME               the fault's "breaks" sentence
#   apply NAME              writes the fault into its file; exit 3 and the number of matches on
#                           standard output when its text does not occur exactly once
#   check NAME              the same test without writing anything
read -r -d '' FAULTS_PY <<'PY'
import re, sys

def parse(path):
    faults, block, key = [], None, None
    def close():
        if block is None:
            return
        for field in ("name", "room", "breaks", "file"):
            if not block.get(field):
                sys.exit(f"{path}:{block['line']}: fault without '{field}:'")
        if not block["find"]:
            sys.exit(f"{path}:{block['line']}: fault {block['name']} has no '-' lines to find")
        faults.append(block)
    with open(path, encoding="utf-8") as f:
        for number, raw in enumerate(f, 1):
            line = raw.rstrip("\n")
            if line.startswith("#"):
                continue
            if not line.strip():
                close()
                block, key = None, None
                continue
            if block is None:
                block = {"line": number, "find": [], "replace": []}
            if line[0] in "-+":
                block["find" if line[0] == "-" else "replace"].append(line[1:])
                key = None
            elif line[0] in " \t" and key is not None:
                block[key] += " " + line.strip()
            else:
                k, sep, value = line.partition(":")
                if not sep or k not in ("name", "room", "breaks", "file"):
                    sys.exit(f"{path}:{number}: expected name:, room:, breaks:, file:, '-' or '+'")
                key = k
                block[k] = value.strip()
    close()
    names = [fault["name"] for fault in faults]
    for name in names:
        if names.count(name) > 1:
            sys.exit(f"{path}: fault name {name} is used twice")
    return faults

command, path, arg = sys.argv[1], sys.argv[2], sys.argv[3]
faults = parse(path)
if command == "list":
    for fault in faults:
        if re.search(arg, fault["name"]):
            print(f"{fault['name']}\t{fault['room']}\t{fault['file']}")
    sys.exit(0)
fault = next(fault for fault in faults if fault["name"] == arg)
if command == "show":
    print(fault["breaks"])
    sys.exit(0)
# apply: the text is one or more whole lines; it must stand exactly once in the file.
with open(fault["file"], encoding="utf-8") as f:
    lines = f.read().split("\n")
find, n = fault["find"], len(fault["find"])
at = [i for i in range(len(lines) - n + 1) if lines[i:i + n] == find]
if len(at) != 1:
    print(len(at))
    sys.exit(3)
if command == "check":
    sys.exit(0)
lines[at[0]:at[0] + n] = fault["replace"]
with open(fault["file"], "w", encoding="utf-8") as f:
    f.write("\n".join(lines))
PY

faults() {
  python3 -c "$FAULTS_PY" "$@"
}

# Puts back the file a fault was written into. The copy is written over the file (not moved), so
# the file is newer than the mutant's objects and the next build recompiles it.
restore() {
  if [ -f "$pending_path" ]; then
    local file
    file=$(cat "$pending_path")
    cat "$pending_copy" >"$file"
    rm -f "$pending_copy" "$pending_path"
  fi
}
trap restore EXIT
trap 'restore; exit 130' INT TERM HUP

mkdir -p "$out"
if [ -f "$pending_path" ]; then
  echo "Restoring $(cat "$pending_path"), left mutated by an interrupted run"
  restore
fi

listing=$(faults list "$faults_file" "$filter") || exit 2
if [ -z "$listing" ]; then
  echo "No fault in $faults_file matches '$filter'"
  exit 2
fi
mapfile -t selected <<<"$listing"

if [ "$check_only" = 1 ]; then
  bad=0
  for entry in "${selected[@]}"; do
    IFS=$'\t' read -r name room file <<<"$entry"
    if [ ! -f "$file" ]; then
      echo "stale  $name: $file does not exist"
      bad=$((bad + 1))
    elif ! matches=$(faults check "$faults_file" "$name"); then
      echo "stale  $name: its text occurs ${matches:-?} times in $file (must be once)"
      bad=$((bad + 1))
    fi
  done
  echo "${#selected[@]} faults, $bad stale"
  [ "$bad" -eq 0 ]
  exit
fi

scripts/install-deps.sh test || exit 2

format_time() {
  local s=$1
  if [ "$s" -ge 3600 ]; then
    printf '%dh %02dm %02ds' $((s / 3600)) $((s % 3600 / 60)) $((s % 60))
  else
    printf '%dm %02ds' $((s / 60)) $((s % 60))
  fi
}

build() {
  cmake --build "$out" -j"$jobs" >"$1" 2>&1
}

# Runs the suite; the first failure ends the run (its verdict is all a fault needs). Prints the
# names of the failed tests.
run_tests() {
  ctest --test-dir "$out" -E '^proxy_netns$' --timeout "$test_timeout" -j"$jobs" \
    --stop-on-failure --output-on-failure >"$1" 2>&1
  local rc=$?
  sed -n '/The following tests FAILED:/,$s/^[[:space:]]*[0-9]* - \([^ ]*\) .*/\1/p' "$1" |
    paste -sd' ' -
  return $rc
}

started=$(date +%s)
echo "== Baseline: native Release build in $out and the tests on unchanged sources"
rm -rf "$logs"
mkdir -p "$logs"
cmake -S . -B "$out" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVOIPFILTER_BUILD_BENCHMARKS=OFF \
  -DVOIPFILTER_WERROR=OFF >"$logs/configure.log" 2>&1 || {
  echo "Configuration failed: $logs/configure.log"
  exit 2
}
if ! build "$logs/baseline-build.log"; then
  echo "The unchanged sources do not build: $logs/baseline-build.log"
  exit 2
fi
baseline_start=$(date +%s)
if ! failed=$(run_tests "$logs/baseline-test.log"); then
  echo "The tests fail on unchanged sources ($failed): $logs/baseline-test.log"
  exit 2
fi
echo "baseline green, tests took $(format_time $(($(date +%s) - baseline_start)))"

killed=0
survived=0
stale=0
invalid=0
survivors=()
stale_list=()
invalid_list=()
declare -A room_total room_killed
total=${#selected[@]}
index=0

echo "== Faults: ${total}"
for entry in "${selected[@]}"; do
  IFS=$'\t' read -r name room file <<<"$entry"
  index=$((index + 1))
  log=$logs/$name
  t0=$(date +%s)
  verdict=""
  detail=""
  if [ ! -f "$file" ]; then
    verdict=stale
    detail="$file does not exist"
  else
    cp "$file" "$pending_copy"
    echo "$file" >"$pending_path"
    if matches=$(faults apply "$faults_file" "$name"); then
      if ! build "$log.build.log"; then
        verdict=invalid
        detail="does not build: $log.build.log"
      elif failed=$(run_tests "$log.test.log"); then
        verdict=survived
      else
        verdict=killed
        detail="by ${failed:-the test run}"
      fi
    else
      verdict=stale
      detail="its text occurs ${matches:-?} times in $file (must be once)"
    fi
    restore
  fi
  case $verdict in
  killed)
    killed=$((killed + 1))
    room_killed[$room]=$((${room_killed[$room]:-0} + 1))
    room_total[$room]=$((${room_total[$room]:-0} + 1))
    ;;
  survived)
    survived=$((survived + 1))
    room_total[$room]=$((${room_total[$room]:-0} + 1))
    survivors+=("$name")
    detail=$(faults show "$faults_file" "$name")
    ;;
  stale)
    stale=$((stale + 1))
    stale_list+=("$name")
    ;;
  invalid)
    invalid=$((invalid + 1))
    invalid_list+=("$name")
    ;;
  esac
  printf '[%2d/%d] %-8s %-40s %-12s %6s  %s\n' "$index" "$total" "$verdict" "$name" "$room" \
    "$(($(date +%s) - t0))s" "$detail"
done

# Leave the build tree matching the sources.
build "$logs/final-build.log" || true

echo
echo "== Summary: $total faults in $(format_time $(($(date +%s) - started)))"
echo "killed:   $killed"
echo "survived: $survived"
echo "stale:    $stale"
echo "invalid:  $invalid"
echo "killed per room:"
while IFS= read -r room; do
  [ -n "$room" ] &&
    printf '  %-14s %d of %d\n' "$room" "${room_killed[$room]:-0}" "${room_total[$room]}"
done < <(printf '%s\n' "${!room_total[@]}" | sort)
[ ${#survivors[@]} -gt 0 ] && echo "survivors: ${survivors[*]}"
[ ${#stale_list[@]} -gt 0 ] && echo "stale (adapt their text): ${stale_list[*]}"
[ ${#invalid_list[@]} -gt 0 ] && echo "invalid (do not build): ${invalid_list[*]}"
if [ "$stale" -ne 0 ] || [ "$invalid" -ne 0 ]; then
  exit 1
fi
exit 0
