#!/usr/bin/env bash
# Shows velad at work under FRR: what is programmed, and what a change of a next hop costs.
set -euo pipefail
cd "$(dirname "$0")/../.."
bin=${BIN:-$PWD/build/release}
work=$(mktemp -d "${TMPDIR:-/tmp}/vela-live.XXXXXX")
chmod 755 "$work"
. tests/live/network.sh
trap 'network_down; rm -rf "$work"' EXIT
network_possible || { echo "there are no network namespaces here"; exit 0; }
say() { printf '\n$ %s\n' "$*"; "$@"; }
status() { "$bin/velatable" status --connect "$work/control"; }
rows() { status | sed 's/.*"rowWrites":\([0-9]*\).*/\1/'; }
told() { status | grep -q '"queued":0,"programmed":'"$1"; }

network_up
printf '20.0.0.0/16 1\n20.0.1.0/24 2\n20.0.2.0/24 3\n20.0.2.128/25 4\n203.0.113.0/24 1\n' >"$work/prefixes"
far_configuration "$work/prefixes" 10.9.0.11 10.9.0.12 10.9.1.11 10.9.1.12 >"$work/far/bgpd.conf"
near_configuration >"$work/near/bgpd.conf"
echo "fpm address 127.0.0.1 port 2620" >"$work/near/zebra.conf"
velad_configuration >"$work/velad.json"
echo "A BGP daemon announces these to another, whose zebra tells velad of them:"
sed 's/ /  next hop group /; s/^/    /' "$work/prefixes"
start_velad
start_zebra
start_bgp
start_far
for tries in $(seq 300); do told 7 && break; sleep 0.1; done
say vtysh --vty_socket "$work/near" -c "show ip route" | grep -E '^\$|^[A-Z]>'
say "$bin/velatable" decode Route --connect "$work/control"
say "$bin/velatable" decode L3Lag --connect "$work/control"
say "$bin/velatable" lookup Route 20.0.2.200 20.0.3.1 --connect "$work/control"
before=$(rows)
printf '\nThe next hop of the third group changes from 10.9.1.11 to 10.9.0.12.\n'
{ echo configure; route_maps 10.9.0.11 10.9.0.12 10.9.0.12 10.9.1.12; } | tell far >/dev/null
for tries in $(seq 100); do [ "$(rows)" != "$before" ] && break; sleep 0.1; done
sleep 0.5
say "$bin/velatable" lookup Route 20.0.2.1 --connect "$work/control"
echo "That cost $(($(rows) - before)) rows."
