#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test in the release
# and the asan (AddressSanitizer + UndefinedBehaviorSanitizer) builds, the
# load and management tests under ThreadSanitizer, and 10 seconds of every
# fuzz target.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
jobs=$(nproc)
for preset in release asan; do
  echo "=== $preset: configure and build ($(date +%T))"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  echo "=== $preset: tests ($(date +%T))"
  ctest --preset "$preset" -j "$jobs"
done
bash scripts/ci_extra.sh 10
