#!/usr/bin/env bash
# Installs a configured build into a scratch prefix and builds the example host against the
# installed package twice: once with pkg-config, once with CMake's find_package.
# Usage: scripts/check-install.sh BUILD_DIR SCRATCH_DIR
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
scratch=$2
rm -rf "$scratch"
prefix="$scratch/prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null

libdir=$(find "$prefix" -name voipfilter.pc -printf '%h\n' | head -n 1)
export PKG_CONFIG_PATH="$libdir"
cc -std=c99 -Wall -Wextra -Wpedantic -Werror examples/example_host.c \
  $(pkg-config --cflags --libs voipfilter) -Wl,-rpath,"$(pkg-config --variable=libdir voipfilter)" \
  -o "$scratch/example_host_pkgconfig"
"$scratch/example_host_pkgconfig" >/dev/null

cmake -S examples -B "$scratch/find_package" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/find_package" >/dev/null
"$scratch/find_package/example_host" >/dev/null
# The tools, their man pages and the proxy's unit land under the prefix too.
if [ -e "$prefix/sbin/voipfilter-proxy" ]; then
  "$prefix/sbin/voipfilter-proxy" --version >/dev/null
  test -f "$prefix/lib/systemd/system/voipfilter-proxy.service"
  test -f "$prefix/share/man/man8/voipfilter-proxy.8"
  test -f "$prefix/etc/voipfilter/voipfilter-proxy.conf"
fi
if [ -e "$prefix/bin/voipfilter-replay" ]; then
  "$prefix/bin/voipfilter-replay" --version >/dev/null
  test -f "$prefix/share/man/man1/voipfilter-replay.1"
fi
echo "installed package works with pkg-config and find_package"
