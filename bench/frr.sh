#!/usr/bin/env bash
# How long FRR takes from its start until the last of its routes is in velad's switch, which is empty, beside
# a listener that drops them. They take turns, ROUNDS times each, with COUNT routes.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=${BIN:-$PWD/build/release}
. tests/live/network.sh
begin bench
count=${COUNT:-8000}
stop() { # daemons
    local daemon pid
    for daemon; do
        pid=$(cat "$work/near/$daemon.pid")
        kill -TERM "$pid"
        while kill -0 "$pid" 2>/dev/null; do sleep 0.05; done
        rm -f "$work/near/$daemon.pid"
    done
}

py generate "$work/prefixes" "$count" 1
count=$((count + 2)) # with the subnets of both links
network_up
far_configuration "$work/prefixes" 10.9.0.11 10.9.0.12 10.9.1.11 10.9.1.12 >"$work/far/bgpd.conf"
near_configuration >"$work/near/bgpd.conf"
echo "fpm address 127.0.0.1 port 2620" >"$work/near/zebra.conf"
velad_configuration >"$work/velad.json"
start_far

for round in $(seq "${ROUNDS:-5}"); do
    for listener in velad drop; do
        rm -f "$work/switch"*
        if [ $listener = velad ]; then start_velad; fi
        ip netns exec "$near" python3 bench/frr.py wait $listener "$work" "$count" >"$work/times" & waiting=$!
        # zebra tries again only after seconds where nobody listens.
        until ip netns exec "$near" ss -Hltn "sport = :2620" | grep -q .; do
            kill -0 $waiting
            sleep 0.05
        done
        started=$(date +%s.%N)
        start_zebra
        start_bgp
        wait $waiting
        echo "$listener $started $(cat "$work/times")" >>"$work/rounds"
        stop bgpd zebra
        if [ $listener = velad ]; then stop velad; fi
    done
done
python3 bench/frr.py summary "$work/rounds" "$count"
