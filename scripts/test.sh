#!/usr/bin/env bash
# Runs every test configuration on a fresh Debian machine:
#   formatting, native Release, ASan+UBSan Debug, 32-bit big-endian PowerPC under qemu,
#   an installed-package consumer build, and a short run of every fuzz target.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

scripts/install-deps.sh test

jobs=${JOBS:-$(nproc)}
# Warnings are errors in every configuration built here (the fuzz build reads the variable);
# consumers building the project themselves get warnings only.
export VOIPFILTER_WERROR=ON
out=${VOIPFILTER_BUILD_ROOT:-$root/build}
mkdir -p "$out"
summary=()
total_passed=0
total_failed=0

# Runs ctest in a build folder and adds its counts to the totals.
run_ctest() {
  local name=$1 dir=$2 log
  log="$out/ctest-$name.log"
  local rc=0
  ctest --test-dir "$dir" --output-on-failure -j"$jobs" 2>&1 | tee "$log" || rc=${PIPESTATUS[0]}
  local line passed failed count
  line=$(grep -E 'tests passed, [0-9]+ tests failed out of [0-9]+' "$log" | tail -n 1 || true)
  failed=$(sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\1/' <<<"$line")
  count=$(sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\2/' <<<"$line")
  if [ -z "$line" ]; then failed=1; count=1; fi
  passed=$((count - failed))
  total_passed=$((total_passed + passed))
  total_failed=$((total_failed + failed))
  summary+=("$name: $passed passed, $failed failed")
  return "$rc"
}

status=0

echo "== Formatting"
mapfile -t sources < <(git ls-files '*.c' '*.h' '*.cpp' '*.hpp' | grep -v '^src/libs/voipfilter/modules/')
if ! clang-format --dry-run --Werror "${sources[@]}"; then
  echo "Formatting differs from .clang-format (run clang-format -i on the files above)"
  status=1
  summary+=("format: 0 passed, 1 failed")
  total_failed=$((total_failed + 1))
else
  summary+=("format: 1 passed, 0 failed")
  total_passed=$((total_passed + 1))
fi

echo "== Native Release"
cmake -S . -B "$out/native" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVOIPFILTER_WERROR=ON >/dev/null
cmake --build "$out/native" -j"$jobs"
run_ctest native "$out/native" || status=1

echo "== ASan + UBSan Debug (installing the hardened flavour; the tests check both)"
cmake -S . -B "$out/asan" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVOIPFILTER_WERROR=ON \
  -DVOIPFILTER_SANITIZE=address,undefined -DVOIPFILTER_HARDENED=ON >/dev/null
cmake --build "$out/asan" -j"$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  run_ctest asan "$out/asan" || status=1

echo "== PowerPC (32-bit big-endian) under qemu, UBSan in trap mode"
cmake -S . -B "$out/ppc" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/powerpc-linux-gnu.cmake" \
  -DVOIPFILTER_SANITIZE=undefined -DVOIPFILTER_SANITIZE_TRAP=ON -DVOIPFILTER_WERROR=ON >/dev/null
cmake --build "$out/ppc" -j"$jobs"
run_ctest ppc "$out/ppc" || status=1

echo "== Installed package: a host builds against it with pkg-config and with find_package"
if scripts/check-install.sh "$out/native" "$out/install-check"; then
  summary+=("install: 1 passed, 0 failed")
  total_passed=$((total_passed + 1))
else
  status=1
  summary+=("install: 0 passed, 1 failed")
  total_failed=$((total_failed + 1))
fi

echo "== Fuzzing: every libFuzzer target for a short, bounded time on its saved corpus"
if scripts/fuzz.sh "${FUZZ_SECONDS:-10}"; then
  summary+=("fuzz: 1 passed, 0 failed")
  total_passed=$((total_passed + 1))
else
  status=1
  summary+=("fuzz: 0 passed, 1 failed")
  total_failed=$((total_failed + 1))
fi

echo
echo "== Summary"
printf '%s\n' "${summary[@]}"
echo "total: $total_passed passed, $total_failed failed"
exit "$status"
