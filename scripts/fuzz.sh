#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, address + undefined-behaviour
# sanitizers) and runs each one after the other for SECONDS (default 30)
# on a copy of its corpus, printing executions per second, coverage and
# features per target. A crash stops the script with the target's output;
# the crashing input is kept in build/fuzz/crashes/<target>/.
#   scripts/fuzz.sh [SECONDS] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
secs=${1:-30}
shift || true
root=$(pwd)
build=${TIKRON_FUZZ_BUILD:-build/fuzz}
case "$build" in /*) ;; *) build="$root/$build" ;; esac

CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DTIKRON_BUILD_FUZZ=ON -DTIKRON_BUILD_TESTS=OFF -DTIKRON_BUILD_BENCH=OFF >/dev/null
targets=("$@")
if [[ ${#targets[@]} -eq 0 ]]; then
  for f in fuzz/*_fuzz.cpp; do t=$(basename "$f" _fuzz.cpp); targets+=("$t"); done
fi
ninja -C "$build" $(printf 'fuzz_%s ' "${targets[@]}")

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
printf '%-14s %10s %8s %8s %8s\n' target exec/s cov ft corpus
status=0
for t in "${targets[@]}"; do
  work="$build/fuzz-work/$t"; crashes="$build/crashes/$t"; run="$build/fuzz-work/cwd"
  mkdir -p "$work" "$crashes" "$run"
  log="$build/fuzz-work/$t.log"
  # stdout is closed (-close_fd_mask=1): the plug-in prints its settings.
  # Absolute paths, run from a scratch directory (files the plug-in writes
  # into its current directory land there).
  if ! (cd "$run" && exec "$build/fuzz/fuzz_$t" -max_total_time="$secs" -print_final_stats=1 -close_fd_mask=1 \
       -artifact_prefix="$crashes/" -timeout=20 -rss_limit_mb=2048 \
       "$work" "$root/fuzz/corpus/$t") >"$log" 2>&1; then
    echo "== $t: FAILED (input kept in $crashes)"; tail -n 40 "$log"; status=1; continue
  fi
  last=$(grep -E '^#[0-9]+' "$log" | tail -n 1)
  cov=$(sed -nE 's/.* cov: ([0-9]+).*/\1/p' <<<"$last")
  ft=$(sed -nE 's/.* ft: ([0-9]+).*/\1/p' <<<"$last")
  corp=$(sed -nE 's/.* corp: ([0-9]+)\/.*/\1/p' <<<"$last")
  eps=$(sed -nE 's/^stat::average_exec_per_sec: *([0-9]+).*/\1/p' "$log")
  printf '%-14s %10s %8s %8s %8s\n' "$t" "${eps:-?}" "${cov:-?}" "${ft:-?}" "${corp:-?}"
done
exit $status
