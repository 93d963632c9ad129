# Two namespaces with two links between them: "far", where a BGP daemon announces prefixes, and "near",
# where another one has its zebra tell velad of them. To be sourced; needs $work, a folder of its own,
# and $bin, where velad and velatable are; from the project's folder.
far=vela-far-$$
near=vela-near-$$
frr=/usr/lib/frr

# Of a test: leaves where there are no namespaces, and cleans up when it ends.
begin() { # name
    name=$1
    work=$(mktemp -d "${TMPDIR:-/tmp}/vela-$name.XXXXXX")
    chmod 755 "$work"
    if ! network_possible; then
        echo "$name: skipped, there are no network namespaces here"
        rm -rf "$work"
        exit 0
    fi
    trap end EXIT
}
end() {
    local result=$?
    network_down
    if [ $result = 0 ]; then rm -rf "$work"; else echo "$name: failed; logs are in $work" >&2; fi
}
py() { python3 tests/live/steps.py "$@"; }

network_possible() {
    ip netns add "$far" 2>/dev/null && ip netns exec "$far" true 2>/dev/null && ip netns add "$near"
}

network_up() {
    ip link add b0 netns "$near" type veth peer name a0 netns "$far"
    ip link add b1 netns "$near" type veth peer name a1 netns "$far"
    local side
    for side in "$far" "$near"; do ip -n "$side" link set lo up; done
    for link in 0 1; do
        ip -n "$far" addr add 10.9.$link.1/24 dev a$link
        ip -n "$near" addr add 10.9.$link.2/24 dev b$link
        ip -n "$far" link set a$link up
        ip -n "$near" link set b$link up
    done
    mkdir -p "$work"/far "$work"/near
    chmod 777 "$work"/far "$work"/near
}

network_down() {
    local pid
    for pid in "$work"/*/*.pid; do
        [ -f "$pid" ] && kill -KILL "$(cat "$pid")" 2>/dev/null
    done
    ip netns del "$far" 2>/dev/null
    ip netns del "$near" 2>/dev/null
    true
}

# The announcing daemon's configuration: routes of the groups 1 to 4 have the next hops given; each
# prefix of a file has the group that stands behind it.
far_configuration() { # prefixes, next hops
    echo "bgp route-map delay-timer 1"
    route_maps "${@:2}"
    echo "router bgp 65001
 bgp router-id 10.9.0.1
 no bgp ebgp-requires-policy
 no bgp network import-check
 neighbor 10.9.0.2 remote-as 65002
 neighbor 10.9.0.2 disable-connected-check
 neighbor 10.9.0.2 timers 3 9
 neighbor 10.9.0.2 timers connect 1
 address-family ipv4 unicast
  neighbor 10.9.0.2 route-map out out"
    networks "$1"
    echo " exit-address-family"
}
route_maps() {
    local number=0 gateway
    for gateway; do
        echo "route-map group$((++number)) permit 10
 set community 65001:$number
exit
bgp community-list standard group$number permit 65001:$number
route-map out permit $number
 match community group$number
 set ip next-hop $gateway
exit"
    done
}
networks() { awk '{print "  network " $1 " route-map group" $2}' "$1"; }

near_configuration() {
    echo "router bgp 65002
 bgp router-id 10.9.0.2
 no bgp ebgp-requires-policy
 neighbor 10.9.0.1 remote-as 65001
 neighbor 10.9.0.1 disable-connected-check
 neighbor 10.9.0.1 timers 3 9
 neighbor 10.9.0.1 timers connect 1"
}

start_frr() { # namespace, folder, daemon, arguments
    local ns=$1 dir=$work/$2 daemon=$3
    ip netns exec "$ns" $frr/$daemon -d -u frr -g frr --vty_socket "$dir" -z "$dir/zserv.api" \
        -i "$dir/$daemon.pid" -f "$dir/$daemon.conf" --log file:"$dir/$daemon.log" "${@:4}" \
        >"$dir/$daemon.out" 2>&1
}
start_zebra() { start_frr "$near" near zebra -M dplane_fpm_nl; }
start_bgp() { start_frr "$near" near bgpd; }
start_far() { start_frr "$far" far bgpd -n -S -p 179; }
# Commands for a daemon, from standard input or as arguments.
tell() { # folder, commands
    local arguments=() command
    for command in "${@:2}"; do arguments+=(-c "$command"); done
    vtysh --vty_socket "$work/$1" "${arguments[@]}"
}

velad_configuration() { # sources
    echo '{"device": "'$work'/switch", "control": "'$work'/control", "interfaces": {"b0": 1, "b1": [2, 3]},
 "tables": {"254": 0}, '${1:-"\"fpm\": {\"quiet\": 2}"}', "metrics": {"listen": "127.0.0.1:9109"}}'
}
start_velad() {
    ip netns exec "$near" "$bin/velad" "$work/velad.json" >>"$work/velad.log" 2>&1 &
    echo $! >"$work/near/velad.pid"
    disown
    local tries
    for tries in $(seq 100); do
        "$bin/velatable" status --connect "$work/control" >/dev/null 2>&1 && return
        sleep 0.1
    done
    echo "velad does not start" >&2
    tail "$work/velad.log" >&2
    return 1
}
kill_velad() {
    kill -KILL "$(cat "$work/near/velad.pid")"
    while kill -0 "$(cat "$work/near/velad.pid")" 2>/dev/null; do sleep 0.05; done
}

# BIRD in both namespaces: "far" announces the routes of $work/static.conf, "near" gives them to the kernel.
bird_configuration() { # folder
    local number=1 other=2
    if [ "$1" = near ]; then number=2 other=1; fi
    echo "router id 10.9.0.$number;
protocol device {}
protocol direct { ipv4; }"
    if [ "$1" = near ]; then
        echo "protocol kernel { ipv4 { import none; export where source = RTS_BGP; }; }"
    else
        printf 'protocol static {\nipv4;\ninclude "%s/static.conf";\n}\n' "$work"
    fi
    echo "protocol bgp {
    local 10.9.0.$number as 6500$number;
    neighbor 10.9.0.$other as 6500$other;
    connect delay time 1;
    ipv4 { import all; export where source = RTS_STATIC; next hop keep; gateway recursive; };
}"
}
start_bird() { # namespace, folder
    bird_configuration "$2" >"$work/$2/bird.conf"
    ip netns exec "$1" bird -c "$work/$2/bird.conf" -s "$work/$2/bird.ctl" -P "$work/$2/bird.pid"
}
