#!/usr/bin/env bash
# FRR above velad: a BGP daemon announces prefixes to another one, whose zebra tells velad of them. The
# switch answers as FRR's table does, whatever changes and whoever is killed. PREFIXES is a file of
# "prefix group" lines; COUNT prefixes are made up without one. SOURCES are those of the configuration.
set -euo pipefail
cd "$(dirname "$0")/../.."
bin=${BIN:-$PWD/build/release}
. tests/live/network.sh
begin frr
count=${COUNT:-8000}
if [ -n "${PREFIXES:-}" ]; then cp "$PREFIXES" "$work/prefixes"; else py generate "$work/prefixes" "$count" 1; fi
count=$(wc -l <"$work/prefixes")
hops=(10.9.0.11 10.9.0.12 10.9.1.11 10.9.1.12)
moved=(10.9.1.12 10.9.0.13 10.9.1.13 10.9.0.11)
reroute() { { echo configure; route_maps "$@"; } | tell far >/dev/null; }
withdraw() { # lines of prefixes
    { echo "configure"; echo "router bgp 65001"; echo "address-family ipv4 unicast"
      awk '{print "no network " $1}'; } | tell far >/dev/null
}

network_up
far_configuration "$work/prefixes" "${hops[@]}" >"$work/far/bgpd.conf"
near_configuration >"$work/near/bgpd.conf"
echo "fpm address 127.0.0.1 port 2620" >"$work/near/zebra.conf"
velad_configuration "${SOURCES:-}" >"$work/velad.json"
"$bin/velad" --check "$work/velad.json"

echo "  $count prefixes are announced"
begin=$(date +%s.%N)
start_velad
start_zebra
start_bgp
start_far
py check "$work" "$count"
awk -v b="$begin" -v e="$(date +%s.%N)" 'BEGIN {printf "    after %.1f s\n", e - b}'
py complete "$work" >/dev/null

sleep 1.5
py metrics "$work" "$(ip netns exec "$near" python3 -c \
    'import urllib.request as r; print(r.urlopen("http://127.0.0.1:9109/metrics").read().decode())')"

echo "  their next hops change"
python3 tests/live/steps.py watch "$work" "$work/present" & watcher=$!
reroute "${moved[@]}"
sleep 3
py check "$work" "$count"
kill "$watcher"
wait "$watcher"

echo "  velad is killed, ${KILLS:=5} times amid changes"
for kill in $(seq "$KILLS"); do
    if [ $((kill % 2)) = 1 ]; then reroute "${hops[@]}"; else reroute "${moved[@]}"; fi
    py amid "$work"
    kill_velad
    py saved "$work" "$work/present" "$bin/velatable"
    cp "$work/switch" "$work/left"
    start_velad
    py check "$work" "$count"
    py rewritten "$work" "$bin/velatable" "$(py complete "$work")"
done

echo "  velad is killed, and nothing changed"
kill_velad
start_velad
rows=$(py complete "$work")
echo "    $rows rows rewritten"
[ "$rows" = 0 ]

echo "  FRR is killed and started again"
for pid in zebra bgpd; do kill -KILL "$(cat "$work/near/$pid.pid")"; done
start_zebra
start_bgp
py check "$work" "$count"
[ "$(py complete "$work")" = 0 ]

echo "  half are withdrawn"
awk 'NR % 2' "$work/prefixes" | withdraw
py check "$work" $((count / 2)) $((count / 2 + 10))
py audit "$work"

echo "  all are withdrawn"
awk 'NR % 2 == 0' "$work/prefixes" | withdraw
py check "$work" 2 10
"$bin/velatable" decode --connect "$work/control" Route >"$work/left"
if grep -v '"10\.9\.' "$work/left"; then
    echo "routes are left" >&2
    exit 1
fi
py audit "$work"
kill -TERM "$(cat "$work/near/velad.pid")"
echo "frr: the switch answered as FRR's table said"
