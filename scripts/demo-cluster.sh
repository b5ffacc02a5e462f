#!/usr/bin/env bash
# Demo of several nodes on NATS: starts nats-server on a free 127.0.0.1 port
# and three tikron-host nodes (A fed over UDP, B subscribed to A's quotes,
# C started after the feed and filled from A by synchronisation), shows that
# B and C agree with A, runs a query with tikron-ctl --nats, and stops and
# removes everything.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

bash scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target tikron tikron-host tikron-ctl tikron-feed

bin="$root/build/release"
server=$(command -v nats-server || echo /usr/sbin/nats-server)
work=$(mktemp -d /tmp/tikron-cluster.XXXXXX)
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill -TERM "$p" 2>/dev/null || true; done
  for p in "${pids[@]}"; do wait "$p" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT

free_port() {  # a TCP/UDP port nobody listens on
  local p
  for _ in $(seq 1 50); do
    p=$((20000 + RANDOM % 20000))
    if ! (exec 3<>"/dev/tcp/127.0.0.1/$p") 2>/dev/null; then echo "$p"; return; fi
  done
  return 1
}
nats_port=$(free_port)
udp_port=$(free_port)
url="nats://127.0.0.1:$nats_port"

echo "=== nats-server on $url"
"$server" -a 127.0.0.1 -p "$nats_port" >"$work/nats.log" 2>&1 &
pids+=($!)
for _ in $(seq 1 50); do (exec 3<>"/dev/tcp/127.0.0.1/$nats_port") 2>/dev/null && break; sleep 0.1; done

node() {  # node ID UDP-PORT MC-REQUESTS
  local dir="$work/node$1"
  mkdir -p "$dir"
  cat >"$dir/tikron.xml" <<XML
<tikron><pub><node AppName="demo" AppID="$1" SvrName="quote" SvrID="1"/></pub>
<plugin><args enableudprecv="$([[ $2 -gt 0 ]] && echo 1 || echo 0)" port="$2" subscibetomc="1" heartbeattimeout="5"/>
<mc>$3</mc></plugin>
<host heartbeat_ms="1000" log_file="host.log" nats_sync_peer="demo#1"/></tikron>
XML
  (cd "$dir" && exec "$bin/tikron-host" --config tikron.xml --nats "$url" --publications publications.jsonl) \
    >"$dir/out" 2>"$dir/err" &
  pids+=($!)
}
sub() { echo "<request issuetype=\"$1\" functionno=\"620001\" note=\"issue $1\"><param name=\"issue_type\" value=\"$1\"/></request>"; }
sync_req() { echo "<request issuetype=\"0\" functionno=\"$1\" note=\"sync $1\"><param name=\"result_type\" value=\"0\"/></request>"; }
ctl() { "$bin/tikron-ctl" --nats "$url" "$@"; }
wait_node() {
  for _ in $(seq 1 100); do ctl --node "demo#$1" --timeout-ms 500 mgr 0 >/dev/null 2>&1 && return; sleep 0.1; done
  echo "node demo#$1 did not come up" >&2; cat "$work/node$1/err" >&2; exit 1
}

echo "=== node A (UDP $udp_port) and node B (subscribed to A's quotes)"
node 1 "$udp_port" ""
node 2 0 "$(sub 22)$(sub 18)$(sub 24)"
wait_node 1
wait_node 2
sleep 1

echo "=== feeding A with samples/backend_capture.txt"
"$bin/tikron-feed" --port "$udp_port" --file samples/backend_capture.txt --rate 200

echo "=== node C, started after the feed, synchronises from A"
node 3 0 "$(sub 24)$(sync_req 620202)$(sync_req 620203)$(sync_req 620204)$(sync_req 620206)"
wait_node 3

# Each management dump of the four tables, A against B and C.
agree=1
for n in 2 3; do
  for f in 1 2 3 4; do
    ok=0
    for _ in $(seq 1 50); do
      if [[ "$(ctl --node demo#1 mgr $f --json)" == "$(ctl --node "demo#$n" mgr $f --json)" ]]; then ok=1; break; fi
      sleep 0.1
    done
    [[ $ok == 1 ]] || { echo "table dump $f of node demo#$n differs from demo#1" >&2; agree=0; }
  done
done
[[ $agree == 1 ]] || exit 1
echo "=== B and C agree with A on all four tables"
ctl --node demo#1 mgr 1 | head -n 6

echo "=== query 620200 IF2412 from tikron-ctl --nats (any node of the group)"
ctl query 620200 --compact IF2412 | cut -c1-300
echo "=== statistics of node A on the bus"
ctl --node demo#1 stats --json | grep -E '"(publications|json_publications|requests|bus_sent|bus_dropped)"'
