#!/usr/bin/env bash
# Demo: installs what is missing, builds the release preset, starts
# tikron-host on conf/tikron.xml, replays samples/backend_capture.txt with
# tikron-feed, shows some publications and table dumps, and stops the host.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

bash scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target tikron tikron-host tikron-ctl tikron-feed tikron-dbdump

bin="$root/build/release"
work=$(mktemp -d /tmp/tikron-demo.XXXXXX)
sock="$work/control.sock"
pubs="$work/publications.jsonl"
# No "| head" under pipefail: a reader that stops early kills the writer
# with SIGPIPE and the script with it.
port=$(sed -n 's/.*<args[^>]* port="\([0-9]*\)".*/\1/p;T;q' conf/tikron.xml)
port=${port:-9090}

host_pid=""
cleanup() {
  if [[ -n "$host_pid" ]] && kill -0 "$host_pid" 2>/dev/null; then
    kill -TERM "$host_pid" 2>/dev/null || true
    wait "$host_pid" 2>/dev/null || true
  fi
}
trap cleanup EXIT

echo "=== starting tikron-host (working directory $work, UDP port $port)"
(cd "$work" && exec "$bin/tikron-host" --config "$root/conf/tikron.xml" \
    --control "$sock" --publications "$pubs") &
host_pid=$!
for _ in $(seq 1 100); do
  [[ -S "$sock" ]] && break
  kill -0 "$host_pid" 2>/dev/null || { echo "tikron-host did not start" >&2; exit 1; }
  sleep 0.1
done

echo "=== replaying samples/backend_capture.txt"
"$bin/tikron-feed" --port "$port" --file samples/backend_capture.txt --rate 200
sleep 1

echo "=== publications: $(grep -c '"function":620003' "$pubs") quote messages, $(grep -c '"function":620031' "$pubs") report messages; the first three quotes:"
grep -m 3 '"function":620003' "$pubs"

echo "=== option and STP pushes (issue types 33400-33404), cut to 300 characters:"
grep -E '"issue_type":334(00|01|02|03|04)[,}]' "$pubs" | LC_ALL=C.UTF-8 sed -E 's/^(.{0,300}).*/\1 .../' || true

echo "=== tikron-ctl mgr 0 (management functions)"
"$bin/tikron-ctl" --control "$sock" mgr 0
echo "=== tikron-ctl mgr 4 (exchange status)"
"$bin/tikron-ctl" --control "$sock" mgr 4
echo "=== tikron-ctl mgr 1 (single-leg table, first columns)"
# Cut by characters, not bytes: the captions are Chinese.
"$bin/tikron-ctl" --control "$sock" mgr 1 | LC_ALL=C.UTF-8 sed -E 's/^(.{0,120}).*/\1/'
echo "=== tikron-ctl query 620200 IF2412 rb2505 (the answer's rows; without --compact it prints the whole answer)"
"$bin/tikron-ctl" --control "$sock" query 620200 --compact IF2412 rb2505 | grep -o '"rows":.*' | LC_ALL=C.UTF-8 sed -E 's/^(.{0,400}).*/\1 .../'
echo "=== tikron-ctl stats"
"$bin/tikron-ctl" --control "$sock" stats
echo "=== tikron-dbdump (the exchange-status snapshot file while the host runs)"
"$bin/tikron-dbdump" "$work"/futuexchstatus_*.db --json

echo "=== stopping tikron-host"
kill -TERM "$host_pid"
wait "$host_pid"
host_pid=""
echo "=== done; publications and host.log are in $work"
