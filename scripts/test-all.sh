#!/usr/bin/env bash
# Builds everything twice (optimised, and with AddressSanitizer + UndefinedBehaviorSanitizer)
# and runs every test in both builds; then builds the tests labelled threaded with ThreadSanitizer
# and runs them.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
jobs=$(nproc 2>/dev/null || echo 2)
for preset in default sanitize; do
  echo "== $preset build"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  echo "== $preset tests"
  ctest --preset "$preset" -j "$jobs"
done
echo "== tsan build (tests labelled threaded)"
cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$jobs"
echo "== tsan tests"
ctest --preset tsan -j "$jobs"
