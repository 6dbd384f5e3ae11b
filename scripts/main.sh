#!/usr/bin/env bash
# The main job on a fresh Debian machine: installs what the build needs, builds the library in
# Release mode and runs the example host, which shows the library at work through the C API.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build
out=${VOIPFILTER_BUILD_ROOT:-build}/main
cmake -S . -B "$out" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVOIPFILTER_BUILD_TESTS=OFF >/dev/null
cmake --build "$out" -j"$(nproc)" >/dev/null
exec "$out/examples/example_host" "$@"
