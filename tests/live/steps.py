#!/usr/bin/env python3
"""What live tests ask of FRR, of the kernel and of velad; each command is a step of frr.sh or bird.sh."""
import ipaddress
import json
import os
import random
import shutil
import signal
import subprocess
import sys
import time

from client import Operator

PORTS = {"b0": 0x2, "b1": 0xC}
CPU = 1 << 48
BATCH = 64  # Routes that go down together.
FIRST, LAST = 0x14000000, 0x143FFFFF  # Addresses of the prefixes that are made up.


def generate(file, count, seed):
    """Prefixes in the shape of a real table: most are /24, some cover others."""
    rng = random.Random(int(seed))
    lengths = [24] * 36 + [22, 23] * 4 + [19, 20, 21] * 3 + [16, 17, 18] * 2 + [12, 14, 28] + [32] * 14
    prefixes = set()
    while len(prefixes) < int(count):
        # Few of the first bits differ, so that there is something to cover.
        address = rng.randint(FIRST, LAST)
        prefixes.add(ipaddress.ip_network((address, rng.choice(lengths)), strict=False))
    with open(file, "w") as out:
        for prefix in sorted(prefixes):
            out.write(f"{prefix} {rng.randint(1, 4)}\n")


def ask(work, request):
    """The lines of velad's answer."""
    return Operator(f"{work}/control").ask(request)


def routes_of_frr(work):
    """By prefix: the ports, interface and gateway that FRR's table says."""
    told = subprocess.run(
        ["vtysh", "--vty_socket", f"{work}/near", "-c", "show ip route json"],
        capture_output=True, check=True, text=True).stdout
    routes = {}
    for prefix, entries in json.loads(told).items():
        for entry in entries:
            if not entry.get("selected"):
                continue
            hop = entry["nexthops"][0]
            way = (CPU, "", "0.0.0.0")
            if "ip" in hop:
                way = (PORTS[hop["interfaceName"]], hop["interfaceName"], hop["ip"])
            routes[ipaddress.ip_network(prefix)] = way
    return routes


def routes_of_kernel(_):
    """The same of the tables of the namespace KERNEL: of one prefix the least metric, neighbours last."""
    def ip(*what):
        return json.loads(subprocess.run(["ip", "-n", os.environ["KERNEL"], "-j", *what],
                                         capture_output=True, check=True, text=True).stdout or "[]")
    def way(at):
        at = at.get("nexthops", [at])[0]
        if "gateway" not in at:
            return (CPU, "", "0.0.0.0")
        return (PORTS[at["dev"]], at["dev"], at["gateway"])
    routes = {}
    for route in ip("route", "show", "table", "local", "type", "local"):
        if not route["dst"].startswith("127."):
            routes[ipaddress.ip_network(route["dst"])] = (CPU, "", "0.0.0.0")
    for route in sorted(ip("route"), key=lambda each: each.get("metric", 0)):
        dropped = route.get("type") in ("blackhole", "unreachable", "prohibit")
        routes.setdefault(ipaddress.ip_network(route["dst"]), (0, "", "0.0.0.0") if dropped else way(route))
    for each in ip("-4", "neigh"):
        if {"PERMANENT", "REACHABLE", "STALE", "DELAY", "PROBE"} & set(each["state"]):
            routes.setdefault(ipaddress.ip_network(each["dst"]), (PORTS[each["dev"]], each["dev"], each["dst"]))
    return routes


def routes_there(work):
    return routes_of_kernel(work) if "KERNEL" in os.environ else routes_of_frr(work)


def longest(by_length, address):
    for length in range(32, -1, -1):
        way = by_length.get(length, {}).get(address >> (32 - length))
        if way:
            return way
    return None


def difference(work, rng):
    """How many addresses the switch takes elsewhere than the table above it, and one of them."""
    routes = routes_there(work)
    count = len(routes)
    bad = 0
    example = None
    # For these there is no room, and the switch says so.
    for line in ask(work, {"request": "status", "refused": True})[1:]:
        if line["why"] == "tableFull" and not routes.pop(ipaddress.ip_network(line["route"]), None):
            bad += 1
            example = line
    by_length = {}
    addresses = {rng.randint(FIRST, LAST) for _ in range(2000)}
    for prefix, way in routes.items():
        first = int(prefix.network_address)
        by_length.setdefault(prefix.prefixlen, {})[first >> (32 - prefix.prefixlen)] = way
        addresses |= {first, int(prefix.broadcast_address)}
    status = ask(work, {"request": "status"})[0]
    ways = {(hop["l3LagIndex"], hop["rewriteIndex"]):
            (int(hop["portMask"], 16), hop["interface"], hop["gateway"])
            for hop in status["nexthops"]}
    keys = [{"vrf": 0, "address": str(ipaddress.ip_address(each))} for each in sorted(addresses)]
    masks = {}
    for slot in ways:
        lag = ask(work, {"request": "lookup", "table": "L3Lag", "keys": [slot[0]]})[0]["hit"]
        masks[slot[0]] = int(lag["portMask"], 16) if lag else 0
    for line in ask(work, {"request": "lookup", "table": "Route", "keys": keys}):
        address = int(ipaddress.ip_address(line["key"]["address"]))
        hit = line["hit"]
        found = hit and ways.get((hit["l3LagIndex"], hit["rewriteIndex"]))
        if hit and masks.get(hit["l3LagIndex"]) != (found or [0])[0]:
            found = None
        if found != longest(by_length, address):
            bad += 1
            example = (line["key"]["address"], found, longest(by_length, address))
    return bad, example, count, len(keys), status, routes


def check(work, least, most="100000", seconds="60"):
    """Waits until the table has so many routes and the switch answers as it does."""
    rng = random.Random(1)
    end = time.time() + float(seconds)
    while True:
        bad, example, count, asked, status, routes = difference(work, rng)
        if not bad and int(least) <= count <= int(most) and not status["queued"]:
            with open(f"{work}/present", "w") as out:
                out.writelines(f"{each}\n" for each in routes)
            print(f"    {count} routes, {asked} addresses as in the table; "
                  f"{status['programmed']} programmed, {status['waiting']} wait, "
                  f"refused: {status['refused']}, "
                  f"{status['rowWrites']} rows written")
            return
        if time.time() > end:
            raise SystemExit(f"{bad} of {asked} addresses differ, such as {example}; "
                             f"the table has {count} routes; {status}")
        time.sleep(0.5)


def complete(work, seconds="60"):
    """Waits until velad has heard everything; prints the rows that it wrote since it started."""
    end = time.time() + float(seconds)
    while not (status := ask(work, {"request": "status"})[0])["sources"][0]["complete"]:
        if time.time() > end:
            raise SystemExit(f"the source is not complete: {status}")
        time.sleep(0.2)
    print(status["rowWrites"])


def amid(work, seconds="10"):
    """Waits until changes have begun, and for a part of the fifth of a second that they go on."""
    def rows():
        return ask(work, {"request": "status"})[0]["rowWrites"]
    before = rows()
    end = time.time() + float(seconds)
    while rows() == before:
        if time.time() > end:
            raise SystemExit("nothing changes")
        time.sleep(0.002)
    time.sleep(random.uniform(0, 0.1))


def rewritten(work, tool, written):
    """The switch that velad found is left behind: of the rows that it wrote since, none was right there."""
    shutil.copy(f"{work}/switch", f"{work}/now")
    told = subprocess.run([tool, "diff", "--json", "--device", f"sim:{work}/left", "--device", f"sim:{work}/now"],
                          capture_output=True, text=True).stdout
    *lines, total = map(json.loads, told.splitlines())
    # A row in each pipeline, for each of the routes that share one; the first level has rows of its own
    # for what routes of up to 11 bits cover. A batch that was cut by the kill may be in one pipeline only.
    hashed = sum(1 for line in lines if line["differs"] == "entry" and line["table"] == "Route"
                 and int(line["key"]["prefix"].split("/")[1]) > 11)
    first = sum(1 for line in lines if line["differs"] == "row" and line["table"] == "Lpm11")
    print(f"    {written} rows rewritten, where {total['entries']} routes differ in {total['rows']} rows")
    if not total["rows"] <= int(written) <= 2 * hashed + first + BATCH:
        raise SystemExit(f"right rows were written: {first} in the first level and 2 of {hashed} routes differ")


def watch(work, file):
    """Until it is told to stop: no prefix of the file is ever absent."""
    prefixes = [ipaddress.ip_network(line.split()[0]) for line in open(file)]
    keys = [{"vrf": 0, "address": str(each.network_address)} for each in prefixes]
    lengths = {str(each.network_address): each.prefixlen for each in prefixes}
    stopping = []
    signal.signal(signal.SIGTERM, lambda *_: stopping.append(True))
    rounds = 0
    while not stopping:
        for line in ask(work, {"request": "lookup", "table": "Route", "keys": keys}):
            least = lengths[line["key"]["address"]]
            if not line["hit"] or line["hit"]["realPrefixLen"] < least:
                raise SystemExit(f"absent amid a change: {line}")
        rounds += 1
    print(f"    {len(keys)} routes were there all along, asked {rounds} times")


def saved(work, file, tool):
    """Nobody runs the switch just now; no prefix of the file is absent."""
    addresses = [line.split("/")[0] for line in open(file)]
    told = subprocess.run([tool, "lookup", "--device", f"sim:{work}/switch", "Route", *addresses],
                          capture_output=True, check=True, text=True).stdout
    for line in told.splitlines():
        if not json.loads(line)["hit"]:
            raise SystemExit(f"absent from the saved switch: {line}")


def audit(work):
    """Every row is as it should be."""
    findings = ask(work, {"request": "audit"})
    if findings:
        raise SystemExit(f"{len(findings)} findings, such as {findings[0]}")


def metrics(work, text):
    """What was scraped says what the status says; a checker of the format has read it if there is one."""
    scraped = {}
    for line in text.splitlines():
        if line and not line.startswith("#"):
            name, value = line.rsplit(" ", 1)
            scraped[name] = float(value)
    status = ask(work, {"request": "status"})[0]
    said = {'velad_routes{state="wanted"}': status["offered"],
            'velad_routes{state="programmed"}': status["programmed"],
            'velad_routes_refused{reason="ipv6"}': status["refused"]["ipv6"],
            'velad_row_writes_total': status["rowWrites"],
            'velad_source_connected{source="fpm"}': 1}
    for table in status["tables"]:
        said[f'velad_table_entries{{instance="{table["instance"]}",table="{table["table"]}"}}'] = (
            table["entries"])
    for name, value in said.items():
        if scraped.get(name) != value:
            raise SystemExit(f"{name} is {scraped.get(name)}, not {value}: {text}")
    if not scraped["velad_change_seconds_count"]:
        raise SystemExit("no time was measured")
    tool = shutil.which("promtool")
    if tool:
        subprocess.run([tool, "check", "metrics"], input=text, check=True, text=True)
    print(f"    {len(scraped)} metrics say what the status says")


if __name__ == "__main__":
    globals()[sys.argv[1]](*sys.argv[2:])
