#!/usr/bin/env bash
# Soak test (not part of the test command): a million SIP dialogs and a hundred thousand H.323
# calls through the C API, reporting resident memory at intervals. Arguments override the counts:
#   scripts/soak.sh [SIP_DIALOGS [H323_CALLS [ABANDONED_DIALOGS]]]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build
out=${VOIPFILTER_BUILD_ROOT:-build}/soak
cmake -S . -B "$out" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVOIPFILTER_BUILD_TESTS=OFF >/dev/null
cmake --build "$out" -j"$(nproc)" --target voipfilter_soak >/dev/null
exec "$out/soak/voipfilter_soak" "$@"
