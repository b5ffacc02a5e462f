#!/usr/bin/env bash
# Extra test stage: the load test and the management dumps under
# ThreadSanitizer, then 10 seconds of every fuzz target. Run by
# scripts/test.sh after the release and asan builds.
#   scripts/ci_extra.sh [FUZZ_SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
echo "=== tsan: load test and management dumps under concurrent updates"
cmake --preset tsan >/dev/null
cmake --build --preset tsan --target e2e_load_test e2e_management_test tikron
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1"
TIKRON_LOAD_SECONDS=15 build/tsan/tests/e2e_load_test
build/tsan/tests/e2e_management_test
echo "=== fuzz: ${1:-10} s per target"
bash scripts/fuzz.sh "${1:-10}"
