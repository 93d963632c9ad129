#!/usr/bin/env python3
"""The page that shows a switch, in Chromium. report.py VELATABLE VELAD [PICTURES]: fails where the page complains
to the console, asks anybody for anything, shows other numbers than --json, finds another route than the
data path, or is larger or slower than allowed; and where a daemon's does not follow the switch. Pictures of
it go to the folder PICTURES."""
import json
import os
import pty
import random
import socket
import subprocess
import sys
import tempfile
import time

from browser import Browser
from client import PORT, Velad, wait
from client import route as message
from figures import Told

MEGABYTES = 3
PAINT_MILLISECONDS = 1000
ADDRESSES = 1000
FLIPPED = 200
FIGURES = 300
LOAD = 0.7
tool = os.path.abspath(sys.argv[1])
work = tempfile.mkdtemp(prefix="vela-report.")
rng = random.Random(1)


def check(good, what):
    if not good:
        sys.exit(f"report: {what}; files are in {work}")


def run(*words, codes=(0,)):
    done = subprocess.run([tool, *words], capture_output=True, text=True)
    check(done.returncode in codes, f"{words[:6]}: {done.stderr[:500]}")
    return done.stdout


def ask(*words):
    return run(*words, codes=(0, 1))


def lines(name, items):
    with open(f"{work}/{name}", "w") as out:
        out.writelines(json.dumps(item) + "\n" for item in items)
    return f"{work}/{name}"


def address():
    return ".".join(str(rng.randrange(256)) for _ in range(4))


def mask():
    return rng.getrandbits(48)


def route(shortest, longest, vrfs=8):
    length = rng.randint(shortest, longest)
    bits = rng.getrandbits(length) << (32 - length)
    text = ".".join(str(bits >> shift & 255) for shift in (24, 16, 8, 0))
    return {"vrf": rng.randrange(vrfs), "prefix": f"{text}/{length}"}


def flow(*ends):
    key = {"natType": 3, "proto": rng.randrange(1, 3)}
    for host, port in ends:
        key.update({host: address(), port: rng.randrange(1, 65536)})
    return key


def translation():
    return {"valid": True, "natRewriteId": rng.randrange(4096), "l3LagIndex": 3}


# Of each table a key by its number, and a result.
ENTRIES = {
    "VlanMembership": (lambda n: n + 1, lambda: {"permitMask": mask(), "unicastRoute": True}),
    "FloodSet": (lambda n: n + 1, lambda: {"uucPortMask": mask(), "umcPortMask": mask()}),
    "MacVlan": (lambda n: n, lambda: {"valid": True, "vlanId": 7, "portMask": mask()}),
    "VlanGroup": (lambda n: n, lambda: {"vlanIds": [rng.randrange(1, 4095)]}),
    "NativeVlan": (lambda n: n, lambda: {"nativeVlanId": rng.randrange(1, 4095)}),
    "PortConfig": (lambda n: n, lambda: {"portMode": "access"}),
    "L2Control": (lambda n: n, lambda: {"learnDisabled": True}),
    "LagGroup": (lambda n: n, lambda: {"lagGroupId": 3}),
    "LagLookUp": (lambda n: n, lambda: {"buckets": rng.getrandbits(32)}),
    "LagMembership": (lambda n: n, lambda: {"port": [rng.randrange(48)], "lagGroupId": 3}),
    "LagHashControl": (lambda n: n, lambda: {"hashSeed": 3}),
    "RxPortMirror": (lambda n: n, lambda: {"portMask": mask(), "enabled": True}),
    "Copp": (lambda n: n, lambda: {"increment": 77, "interval": 5}),
    "AclHash": (lambda n: {"aclId": rng.randrange(1, 16), "type": 11, "srcIp": address(), "dstIp": address(),
                           "l4Port": rng.randrange(65536)}, lambda: {"counterIndex": rng.randrange(512)}),
    "AclIndirectCounterHash": (lambda n: rng.randrange(65536), lambda: rng.randrange(512)),
    "HashTest": (lambda n: rng.randrange(200), lambda: rng.randrange(100)),
    "SG": (lambda n: {"source": address(), "group": f"224.{n >> 8}.0.{n & 255}", "vlanId": n % 4094 + 1},
           lambda: {"portMask": mask()}),
    "StarG": (lambda n: {"group": f"225.{n >> 8}.1.{n & 255}", "vlanId": n % 4094 + 1},
              lambda: {"portMask": mask()}),
    "NatMatch": (lambda n: flow(("dstIp", "dport")), translation),
    "NatDynMatch": (lambda n: flow(("dstIp", "dport"), ("srcIp", "sport")), translation),
    "NatRewrite": (lambda n: {"baseChipPortId": n // 4096 * 2, "rewriteIndex": n % 4096},
                   lambda: {"newIp": address(), "newPort": rng.randrange(65536)}),
    "L3FloodArp": (lambda n: n, lambda: {"ethAddr": "02:00:00:00:00:07", "vlanId": 9}),
    "L3FloodBitmap": (lambda n: n, lambda: {"portMask": mask()}),
    "L3Lag": (lambda n: n, lambda: {"portMask": mask()}),
    "Lpm11": (lambda n: route(11, 11), lambda: {"l3LagIndex": rng.randrange(57), "rewriteIndex": rng.randrange(64)}),
}
for longest in range(14, 33, 3):
    ENTRIES[f"Lpm{longest}"] = (lambda n, top=longest: route(top - 2, top), ENTRIES["Lpm11"][1])


def check_progress(*words):
    """What takes long shows on a terminal how far it is, without colour for those who want none."""
    ours, theirs = pty.openpty()
    process = subprocess.Popen([tool, *words], stdout=subprocess.DEVNULL, stderr=theirs,
                               env={**os.environ, "NO_COLOR": "1"})
    os.close(theirs)
    said = b""
    try:
        while part := os.read(ours, 4096):
            said += part
    except OSError:  # nobody has the other end any more
        pass
    check(process.wait() in (0, 1), f"{words}: {said[-500:]}")
    check(b" %\r" in said and said.endswith(b"\r\x1b[K") and b"\x1b[3" not in said, f"shown is {said[-200:]}")


def full_switch():
    """Events that fill every table to LOAD: twice as many are offered, and of those that came in as many
    are kept as are wanted."""
    none = lines("none", [{"op": "set", "table": "HashTest", "key": 1, "result": 5}])
    picture = json.loads(run("report", "--json", "--events", none))
    offered, wanted = {}, {}
    for table in picture["tables"]:
        name, instance = table["table"], table["instance"]
        if not table.get("capacity"):
            continue
        rows = picture["rows"][table["rows"]]
        wanted[name, instance] = int(LOAD * table["capacity"] / len(rows["tables"]))
        make_key, make_result = ENTRIES[name]
        whole = "Route" if name.startswith("Lpm") else name
        for n in range(wanted[name, instance] * (2 if "ways" in rows or whole == "Route" else 1)):
            key = make_key(n)
            offered[whole, instance, json.dumps(key)] = (name, {
                "op": "set", "table": whole, "instance": instance, "key": key, "result": make_result()})
    events = [event for _, event in offered.values()]
    rng.shuffle(events)
    check_progress("run", "--json", "--results", f"{work}/results", lines("offered", events))
    with open(f"{work}/results") as results:
        for line in map(json.loads, results):
            offered.pop((line["table"], line.get("instance", 0), json.dumps(line["key"])), None)
    kept = []
    for name, event in offered.values():
        wanted[name, event["instance"]] -= 1
        if wanted[name, event["instance"]] >= 0:
            kept.append(event)
    return kept


def flips(events):
    """Flips a bit of rows of the route levels, so that lookups depend on what registers hold."""
    routes = [event["key"] for event in events if event["table"] == "Route"]
    for key in rng.sample(routes, FLIPPED):
        first, length = key["prefix"].split("/")
        base = int(length) // 3 * 3 if int(length) > 11 else 11
        octets = int.from_bytes(bytes(map(int, first.split("."))), "big") >> (32 - base) << (32 - base)
        text = ".".join(map(str, octets.to_bytes(4, "big")))
        name, bits = ("Lpm11", 19) if base == 11 else (f"Lpm{base + 2}", 80)
        yield {"op": "corrupt", "table": name, "bit": rng.randrange(bits),
               "key": {"vrf": key["vrf"], "prefix": f"{text}/{base}"}}


def hits(events):
    """Packets that hit some entries of a table."""
    keys = [event["key"] for event in events if (event["table"], event["instance"]) == ("NatMatch", 0)]
    return ({"op": "lookup", "table": "NatMatch", "key": key} for key in keys[::9])


def addresses(events):
    """Half of them within routes; the last bits are anything."""
    routes = [event["key"] for event in events if event["table"] == "Route"]
    for n in range(ADDRESSES):
        key = rng.choice(routes)
        if n % 2:
            yield f"{key['vrf']}:{address()}"
            continue
        first, length = key["prefix"].split("/")
        inside = int.from_bytes(bytes(map(int, first.split("."))), "big") | rng.getrandbits(32 - int(length))
        yield f"{key['vrf']}:" + ".".join(map(str, inside.to_bytes(4, "big")))


ASK = """(asked) => asked.map((each) => {
  const [vrf, address] = each.split(":");
  document.getElementById("vrf").value = vrf;
  document.getElementById("address").value = address;
  document.getElementById("ask").requestSubmit();
  return JSON.parse(document.getElementById("answer").dataset.hit);
})"""


def check_figures(browser, told):
    shown, differ = told.compare(browser)
    check(shown > FIGURES and not differ, f"of {shown} numbers are not what is told: {differ[:5]}")


def check_routes(browser, device, events, *profile):
    asked = list(addresses(events))
    answers = [json.loads(line)["hit"]
               for line in run("lookup", *profile, "--device", device, "Route", *asked).splitlines()]
    shown = browser.run(f"({ASK})({json.dumps(asked)})")
    for key, hit, seen in zip(asked, answers, shown, strict=True):
        check(hit == seen, f"{key} takes {hit}, the page says {seen}")
    check(sum(hit is not None for hit in answers) > ADDRESSES // 3, "hardly an address has a route")
    return next(key for key, hit in zip(asked, answers) if hit and hit["realPrefixLen"] == 29)


def check_entry(browser, picture, events, table):
    """An entry that is searched for is found in its row, with its fields and its other rows."""
    event = rng.choice([each for each in events if each["table"] == table])
    why = json.loads(run("why", f"{table}/{event['instance']}", json.dumps(event["key"]), "--events", f"{work}/full",
                         "--json"))
    number = next(t["rows"] for t in picture["tables"] if (t["table"], t["instance"]) == (table, event["instance"]))
    text = json.dumps(why["key"], separators=(",", ":"))
    shown = browser.run(f"""(async () => {{
      const item = document.getElementById("rows-{number}");
      item.open = true;
      await new Promise((done) => setTimeout(done, 200));
      item.querySelector("input").value = {json.dumps(text)};
      item.querySelector("form").requestSubmit();
      return [item.querySelector(".told").textContent,
        Object.fromEntries([...item.querySelectorAll(".bits tbody tr")].map((row) =>
          [row.children[1].textContent, row.children[3].textContent]))];
    }})()""")
    check(text in shown[0], f"{text} is not found: {shown[0]}")
    for row in why["mayTake"]:
        check(f"way {row['way']}, row {row['row']}" in shown[0], f"{row} of {text} is not told: {shown[0]}")
    check(shown[1] == why["rows"][0]["fields"], f"{text} has {why['rows'][0]['fields']}, shown is {shown[1]}")


def open_page(browser, url):
    browser.asked.clear()
    browser.open(url)
    check(browser.asked == [url], f"the page asked for {browser.asked[1:]}")


def take_pictures(browser, folder, asked):
    wait = "new Promise((done) => setTimeout(done, 400))"
    browser.look(1100, 900)
    browser.run("scrollTo(0, 0); " + wait)
    browser.picture(f"{folder}/report-light.png")
    browser.look(1100, 1250, dark=True)
    browser.run("dispatchEvent(new Event('resize')); document.querySelector('[aria-label*=NatMatch]')"
                ".scrollIntoView(); " + wait)
    browser.picture(f"{folder}/report-dark.png")
    browser.look(400, 900)
    browser.run(f"({ASK})(['{asked}']); document.getElementById('routes').scrollIntoView(); " + wait)
    browser.picture(f"{folder}/report-phone.png")


def check_full(browser, pictures):
    events = full_switch()
    full, device = lines("full", events), f"sim:{work}/switch"
    run("run", "--device", device, "--json", "--results", f"{work}/none", full, lines("flips", [*flips(events), *hits(events)]))
    page = f"{work}/full.html"
    picture = json.loads(run("report", "-o", page, "--json", "--device", device, "--events", full))
    check(min(t["load"] for t in picture["tables"] if t["entries"] and "load" in t) > 0.9 * LOAD, "tables are not full")
    size = os.path.getsize(page)
    check(size < MEGABYTES * 1e6, f"the page has {size} bytes")
    browser.look(1100, 1500)
    open_page(browser, f"file://{page}")
    paint = browser.run("new Promise((done) => requestAnimationFrame(() => "
                        "done(performance.getEntriesByName('overview')[0].startTime)))")
    check(paint < PAINT_MILLISECONDS, f"the overview took {paint} ms")
    check(json.loads(browser.run("document.getElementById('picture').textContent")) == picture, "the data differ")
    asked = check_routes(browser, device, events)
    for table in ("NatMatch", "AclHash", "SG", "NatDynMatch"):
        check_entry(browser, picture, events, table)
    check(picture["totals"]["findings"] > 0, "no flipped bit is found")
    check(browser.run("document.querySelectorAll('#finding-list svg .flipped').length") ==
          sum(word.bit_count() for word in picture["findings"][0]["first"][0]["flipped"]), "flipped bits are not marked")
    if pictures:
        take_pictures(browser, pictures, asked)
    print(f"report: {size / 1e6:.2f} MB, overview after {paint:.0f} ms, {ADDRESSES} addresses")


def check_profile(browser, name, vrfs):
    """Routes of a switch with other rows, by registers alone."""
    events = [{"op": "set", "table": "Route", "key": route(*rng.choice([(4, 11), (12, 32), (29, 29)]), vrfs),
               "result": ENTRIES["Lpm11"][1]()} for _ in range(2000)]
    device, profile = f"sim:{work}/{name}", ("--profile", name)
    run("run", *profile, "--device", device, "--json", "--results", f"{work}/none", lines("routes", events), codes=(0, 1))
    run("report", *profile, "-o", f"{work}/{name}.html", "--device", device)
    open_page(browser, f"file://{work}/{name}.html")
    check(browser.run("document.getElementById('state').textContent").startswith("What is desired is not known"),
          "registers alone are said to tell what is desired")
    check_routes(browser, device, events, *profile)


def some_refused():
    """Events of a switch that has no place for all, nor are all rows taken; some are hit by packets."""
    tables = {"HashTest": 20, "Route": 2200, "NatMatch": 50, "VlanMembership": 50}
    lengths = random.Random(2).choices((8, 12, 13, 14, 16, 24, 28), (1, 1, 3, 20, 1, 1, 1), k=tables["Route"])
    keys = {"Route": lambda n: route(lengths[n], lengths[n], 1), "VlanMembership": lambda n: n + 1}
    events = {}
    for name, number in tables.items():
        make_key, make_result = keys.get(name, ENTRIES.get(name, [None])[0]), ENTRIES.get(name, ENTRIES["Lpm11"])[1]
        for key in map(make_key, range(number)):
            events[name, json.dumps(key)] = {"op": "set", "table": name, "key": key, "result": make_result()}
    keys = [event["key"] for event in events.values() if event["table"] == "NatMatch"]
    return [*events.values(), *({"op": "lookup", "table": "NatMatch", "key": key} for key in keys[:20])]


def check_numbers(browser, events):
    """Rows are full, entries wait, packets hit rows and bits flip: the page has the numbers of the other commands."""
    device, mixed = f"sim:{work}/mixed.switch", lines("mixed", events)
    flipped = lines("flipped", [{"op": "corrupt", "table": event["table"], "key": event["key"], "bit": rng.randrange(90)}
                                for event in events[-70:-20:2]])
    run("run", "--device", device, "--json", "--results", f"{work}/none", mixed, codes=(0, 1))
    run("run", "--device", device, "--json", "--results", f"{work}/none", flipped)
    source = ("--device", device, "--events", mixed)
    run("report", "-o", f"{work}/mixed.html", *source)
    subprocess.run(["cp", f"{work}/mixed.switch", f"{work}/copy"], check=True)
    summary = run("run", "--json", "--results", f"{work}/none", "--status", f"{work}/status", "--device",
                  f"sim:{work}/copy", mixed, codes=(0, 1))
    open_page(browser, f"file://{work}/mixed.html")
    with open(f"{work}/status") as statuses:
        told = Told(ask, mixed, source, map(json.loads, statuses), json.loads(summary)["tables"])
    check_figures(browser, told)


def check_refusal(browser):
    events = [{"op": "set", "table": "HashTest", "key": key, "result": key} for key in (0, 64, 128)]
    run("report", "-o", f"{work}/small.html", "--events", lines("small", events))
    open_page(browser, f"file://{work}/small.html")
    counts = browser.run("['.lies', '.edge', '.wants', 'text'].map((each) =>"
                         " document.querySelectorAll('#refusal-list svg ' + each).length)")
    check(counts == [2, 2, 2, 5], f"the refusal is drawn with {counts}")
    says = browser.run("document.querySelector('#refusal-list .list').textContent")
    check(says.count("the refused one comes in") == 2, f"the refusal says {says}")
    closed = "document.querySelectorAll('details:not([open])').length"
    before, printed, after = browser.run(f"[{closed}, (dispatchEvent(new Event('beforeprint')), {closed}),"
                                         f" (dispatchEvent(new Event('afterprint')), {closed})]")
    check(before == after > 0 == printed, f"closed parts: {before}, in print {printed}, then {after}")
    browser.run("dispatchEvent(new Event('resize'))")


def check_live_numbers(browser, daemon, events):
    routes = [event["key"] for event in events if event["table"] == "Route"]
    source = ("--connect", daemon.path)
    ask("run", *source, lines("others", [event for event in events if event["table"] != "Route"]))
    with socket.create_connection(("127.0.0.1", PORT)) as peer:
        for key in routes:
            first, length = key["prefix"].split("/")
            peer.sendall(message(int.from_bytes(socket.inet_aton(first), "big"), int(length)))
        wait("routes", lambda: daemon.status()["offered"] == len(routes))
        status = daemon.status()
        tables = [{**status, "table": "Route", "instance": 0, "entries": status["offered"]},
                  *({**table, "programmed": table["used"]} for table in status["tables"])]
        statuses = map(json.loads, ask("status", *source, "Route", *map(json.dumps, routes)).splitlines())
        told = Told(ask, lines("held", events), source, statuses, tables, ["too full above 85 %, until it is at 70 %"])
    all_there = "document.querySelector('[data-figure=\"all programmed\"]').textContent"
    wait("all on the page", lambda: browser.run(all_there) == told.figures["all programmed"])
    check_figures(browser, told)


def check_live(browser, velad, events):
    """What a browser shows follows the switch, without being loaded anew."""
    with socket.create_server(("127.0.0.1", 0)) as free:
        page = f"127.0.0.1:{free.getsockname()[1]}"
    os.mkdir(f"{work}/live")
    daemon = Velad(velad, f"{work}/live", {"page": {"listen": page}})
    control = daemon.path
    try:
        daemon.status()  # Whose answer comes once all doors are open.
        open_page(browser, f"http://{page}/")
        shown = "document.getElementById('totals').textContent"
        browser.run("document.querySelector('#row-sets details:last-child').open = true")
        browser.run("new Promise((done) => setTimeout(done, 200)).then(() => {"
                    " const input = document.querySelector('#row-sets input');"
                    " input.value = 'abc'; input.dispatchEvent(new Event('input')); input.focus(); input.setSelectionRange(1, 2); })")
        final = "entries in hardware2refused1of them waiting1audit findings0"
        run("run", "--connect", control, f"{work}/small", codes=(0, 1))
        for _ in range(100):
            if browser.run(shown) == final:
                break
            time.sleep(0.1)
        picture = json.loads(run("report", "--json", "--connect", control))
        totals = picture["totals"]
        check([totals["programmed"], totals["waiting"]] == [2, 1], f"the switch has {totals}")
        focus = browser.run("[document.activeElement.value, document.activeElement.selectionStart]")
        check(focus == ["abc", 1], f"the focus is at {focus}")
        check(browser.run(shown) == final, f"shown is {browser.run(shown)}")
        check(set(browser.asked) == {f"http://{page}/", f"http://{page}/picture.json"}, f"it asked for {browser.asked}")
        why = json.loads(run("why", "HashTest", "128", "--connect", control, "--json"))
        check(why["causes"] == ["waiting"] and why["turn"] == {"place": 1, "waiting": 1}, f"why says {why}")
        check_live_numbers(browser, daemon, [event for event in events if event["op"] == "set"])
    finally:
        daemon.process.terminate()
        check(daemon.process.wait() == 0, "velad did not end well")


def main():
    browser = Browser(work)
    try:
        check_full(browser, sys.argv[3] if len(sys.argv) > 3 else None)
        check_profile(browser, "vela-48-32vrf", 32)
        check_profile(browser, "vela-20-4.0", 4)
        check_refusal(browser)
        events = some_refused()
        check_numbers(browser, events)
        check_live(browser, sys.argv[2], events)
        check(not browser.said, f"the console says {browser.said[:3]}")
    finally:
        browser.close()
    subprocess.run(["rm", "-rf", work], check=True)


main()
