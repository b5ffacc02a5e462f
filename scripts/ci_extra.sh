#!/usr/bin/env bash
# Extra CI stage: the load test under ThreadSanitizer for 25 seconds, then
# 30 seconds of every fuzz target. Meant to run after scripts/test.sh.
#   scripts/ci_extra.sh [FUZZ_SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
echo "=== tsan: load test"
cmake --preset tsan >/dev/null
cmake --build --preset tsan --target e2e_load_test tikron
TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1" TIKRON_LOAD_SECONDS=25 build/tsan/tests/e2e_load_test
echo "=== fuzz: ${1:-30} s per target"
bash scripts/fuzz.sh "${1:-30}"
