#!/usr/bin/env bash
# Prints the size of the tests beside the size of the hand-written code they test, in non-blank
# lines: tests/ (without tests/data) and tools/*/tests, against src/ (without the generated
# modules) and tools/ (without their tests). Data files, ASN.1 inputs and documents do not count.
set -euo pipefail
cd "$(dirname "$0")/.."

is_code() {
  case "$1" in
    */data/*) return 1 ;;
    *.c | *.cpp | *.h | *.hpp | *.inl | *.py | *.sh | *.cmake | */CMakeLists.txt | CMakeLists.txt) return 0 ;;
  esac
  head -c 2 "$1" 2>/dev/null | grep -q '^#!'
}

count() {
  local total=0 file
  while IFS= read -r file; do
    [ -f "$file" ] && is_code "$file" || continue
    total=$((total + $(grep -cv '^[[:space:]]*$' "$file" || true)))
  done
  echo "$total"
}

files() { git ls-files --cached --others --exclude-standard -- "$@"; }

tests=$( (files tests; files tools | grep '^tools/[^/]*/tests/') | count)
code=$( (files src | grep -v '^src/libs/voipfilter/modules/'; files tools | grep -v '^tools/[^/]*/tests/') | count)
printf 'tests: %d lines\ncode:  %d lines\nshare: %d.%d %%\n' "$tests" "$code" $((100 * tests / code)) \
  $((1000 * tests / code % 10))
