#!/usr/bin/env bash
# Rewrites the golden files (under tests/data and tools/*/tests/data) from what the code does now
# and shows the difference. Run it after a deliberate change of behaviour, read the diff, and
# commit the data with the code.
# Usage: scripts/update-goldens.sh [CTEST-REGEX]   (default: every test but the network-namespace one)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${VOIPFILTER_BUILD_ROOT:-build}/goldens
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVOIPFILTER_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$build" -j"$(nproc)"
VOIPFILTER_UPDATE_GOLDENS=1 ctest --test-dir "$build" -j"$(nproc)" -E proxy_netns \
  ${1:+-R "$1"} --output-on-failure >/dev/null || true
echo "== Golden files changed or added:"
git status --short -- tests/data tools/*/tests/data
git --no-pager diff --stat -- tests/data tools/*/tests/data
git --no-pager diff -- tests/data tools/*/tests/data
