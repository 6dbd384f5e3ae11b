#!/usr/bin/env bash
# The main job on a fresh Debian machine: installs what the build needs, builds the library and
# voipfilter-replay in Release mode and replays the bundled sample calls, printing the report of
# what the library made of every signalling message. Arguments go to voipfilter-replay (for
# example a capture of your own, --nat rules, -w out.pcap, --json; see --help).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build
out=${VOIPFILTER_BUILD_ROOT:-build}/main
cmake -S . -B "$out" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVOIPFILTER_BUILD_TESTS=OFF \
  -DVOIPFILTER_BUILD_TOOLS=ON >/dev/null
cmake --build "$out" -j"$(nproc)" --target voipfilter-replay >/dev/null
exec "$out/tools/voipfilter-replay/voipfilter-replay" "$@"
