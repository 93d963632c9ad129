#!/usr/bin/env bash
# BIRD above the kernel above velad: one announces routes to another, which gives them to the kernel, and
# velad hears the kernel. The switch answers as the kernel's tables do, whatever changes, although velad's
# socket has room for few messages.
set -euo pipefail
cd "$(dirname "$0")/../.."
bin=${BIN:-$PWD/build/release}
. tests/live/network.sh
begin bird
export KERNEL=$near
announce() { # lines of prefixes and groups on standard input, next hops of the groups
    awk -v hops="$*" 'BEGIN {split(hops, hop)} {print "route " $1 " via " hop[$2] ";"}' >"$work/static.conf"
    if [ -S "$work/far/bird.ctl" ]; then birdc -s "$work/far/bird.ctl" configure >/dev/null; fi
}
hops=(10.9.0.11 10.9.0.12 10.9.1.11 10.9.1.12)
moved=(10.9.1.12 10.9.0.13 10.9.1.13 10.9.0.11)

py generate "$work/prefixes" 200 2
network_up
velad_configuration '"kernel": {"quiet": 2, "receiveBuffer": 2048}' >"$work/velad.json"
echo "  200 prefixes are announced"
start_velad
announce "${hops[@]}" <"$work/prefixes"
start_bird "$near" near
start_bird "$far" far
py check "$work" 204
py complete "$work" >/dev/null

echo "  their next hops change, a neighbour and an address come"
python3 tests/live/steps.py watch "$work" "$work/present" & watcher=$!
announce "${moved[@]}" <"$work/prefixes"
ip -n "$near" neigh add 10.9.0.77 lladdr 02:00:00:00:00:77 dev b0 nud permanent
ip -n "$near" addr add 10.8.0.1/24 dev b1
ip -n "$near" route add blackhole 20.0.0.0/7
ip -n "$near" route add 21.0.0.0/8 via 10.9.0.99 metric 9
ip -n "$near" route add 21.0.0.0/8 via 10.9.1.99 metric 3
sleep 2
py check "$work" 209
kill "$watcher"
wait "$watcher"

echo "  what is preferred goes"
ip -n "$near" route del 21.0.0.0/8 metric 3
ip -n "$near" neigh del 10.9.0.77 dev b0
py check "$work" 208

echo "  more changes than velad's socket has room for"
kill -STOP "$(cat "$work/near/velad.pid")"
awk 'BEGIN {for (n = 0; n < 2000; ++n) print "route add 22." int(n / 250) "." n % 250 ".0/24 via 10.9." n % 2 ".20"}' |
    ip -n "$near" -batch -
awk 'BEGIN {for (n = 0; n < 1990; ++n) print "route del 22." int(n / 250) "." n % 250 ".0/24"}' | ip -n "$near" -batch -
ip -n "$near" route del 21.0.0.0/8
kill -CONT "$(cat "$work/near/velad.pid")"
py check "$work" 218 218
grep -q "changes were lost" "$work/velad.log"

echo "  a link goes down, and comes back"
ip -n "$near" link set b1 down
sleep 1
py check "$work" 10 212
ip -n "$near" link set b1 up
ip -n "$near" addr replace 10.9.1.2/24 dev b1
py check "$work" 205

echo "  velad is killed, and nothing changed"
py complete "$work" >/dev/null
kill_velad
py saved "$work" "$work/present" "$bin/velatable"
start_velad
rows=$(py complete "$work")
echo "    $rows rows rewritten"
[ "$rows" = 0 ]
py check "$work" 205

echo "  half are withdrawn, then all"
awk 'NR % 2' "$work/prefixes" | announce "${hops[@]}"
py check "$work" 112 118
announce </dev/null
py check "$work" 10 18
py audit "$work"
kill -TERM "$(cat "$work/near/velad.pid")"
echo "bird: the switch answered as the kernel's tables said"
