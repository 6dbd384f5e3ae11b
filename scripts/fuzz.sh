#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan + UBSan) on the hardened flavour of the library
# and runs each for a bounded time on a scratch copy of its saved corpus, with inputs up to the
# network's sizes (a TPKT or UDP payload of 65 535 octets plus the targets' record headers). New
# findings are left in the scratch folder (crash-*, leak-*, timeout-*, oom-*): copy the input into
# fuzz/corpus/<target>/ once the fault is fixed, so it stays a regression test.
# Usage: scripts/fuzz.sh [SECONDS_PER_TARGET] [TARGET...]
#   SECONDS_PER_TARGET 0: no time bound (use with FUZZ_RUNS).
#   FUZZ_RUNS=N: each target also stops after N executions (a campaign: FUZZ_RUNS=10000000).
#   FUZZ_RESUME=1: start from the scratch corpus the last run of the target left, so that a long
#   campaign can run in parts on unchanged code.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
seconds=${1:-60}
shift || true

out=${VOIPFILTER_BUILD_ROOT:-$root/build}/fuzz
CC=clang-14 CXX=clang++-14 cmake -S . -B "$out" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVOIPFILTER_FUZZ=ON -DVOIPFILTER_SANITIZE=address,undefined \
  -DVOIPFILTER_BUILD_TESTS=OFF -DVOIPFILTER_BUILD_EXAMPLES=OFF -DVOIPFILTER_BUILD_TOOLS=OFF \
  -DVOIPFILTER_BUILD_PROXY=OFF -DVOIPFILTER_WERROR="${VOIPFILTER_WERROR:-OFF}" >/dev/null
cmake --build "$out" -j"$(nproc)"

if [ $# -gt 0 ]; then
  targets=("$@")
else
  mapfile -t targets < <(find "$out/fuzz" -maxdepth 1 -type f -name 'fuzz_*' -perm -u+x \
    -printf '%f\n' | sed 's/^fuzz_//' | sort)
fi

status=0
for target in "${targets[@]}"; do
  work="$out/run/$target"
  if [ "${FUZZ_RESUME:-0}" != 1 ] || [ ! -d "$work/corpus" ]; then
    rm -rf "$work"
    mkdir -p "$work/corpus" "$work/findings"
    cp -r "fuzz/corpus/$target/." "$work/corpus/" 2>/dev/null || true
  fi
  bounds=()
  [ "$seconds" != 0 ] && bounds+=("${seconds}s")
  [ -n "${FUZZ_RUNS:-}" ] && bounds+=("$FUZZ_RUNS executions")
  bound=$(printf '%s or ' "${bounds[@]}")
  bound=${bound% or }
  if [ -n "$bound" ]; then
    echo "== fuzz_$target for $bound"
  else
    echo "== fuzz_$target with no bound (stop it with Ctrl-C)"
  fi
  if ! (cd "$work/findings" && "$out/fuzz/fuzz_$target" -max_total_time="$seconds" \
        -runs="${FUZZ_RUNS:--1}" -timeout=10 -rss_limit_mb=2048 -max_len=65540 -print_final_stats=1 \
        ${FUZZ_DICT_ARGS:-} "$work/corpus" >"$work/log.txt" 2>&1); then
    echo "fuzz_$target found a fault:"
    tail -n 60 "$work/log.txt"
    ls "$work/findings"
    status=1
  else
    grep -E '^stat::number_of_executed_units|^Done' "$work/log.txt" || true
  fi
done
exit "$status"
