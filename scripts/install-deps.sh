#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the tools need; only what is missing.
# Usage: scripts/install-deps.sh [build|test]   (default: test, which is everything)
set -euo pipefail

profile=${1:-test}

build_packages=(cmake ninja-build g++ pkg-config python3 libpcap-dev libuv1-dev)
test_packages=(libgtest-dev googletest clang-format
               g++-powerpc-linux-gnu qemu-user
               tshark clang-14 libclang-rt-14-dev
               sip-tester iproute2 bc)

packages=("${build_packages[@]}")
if [ "$profile" = test ]; then
  packages+=("${test_packages[@]}")
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
# tshark asks whether non-root users may capture; answer for it.
echo "wireshark-common wireshark-common/install-setuid boolean false" | $sudo debconf-set-selections
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
