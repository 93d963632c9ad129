#!/usr/bin/env python3
"""Operates velad as people and their tools do, while a client of its forwarding plane manager's port
has it program routes: watches, asks for much, corrupts rows, fills a table, changes the configuration.
operate.py VELAD PROMTOOL: velad has velatable and its unit beside it."""
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import threading
import time
import urllib.request

from client import PORT, Operator, fail, route, run, wait

ANSWER_SECONDS = 0.1
ROUTES = 20000
SCRAPED = 26202
SETTINGS = {"metrics": {"listen": f"127.0.0.1:{SCRAPED}"}, "scrub": {"rows": 100000, "repair": True}, "hits": 0.5}


def tool(velad, command, *arguments, **options):
    """velatable, asked of the running switch."""
    return subprocess.run([f"{os.path.dirname(velad.program)}/velatable", command, "--connect", velad.path,
                           *arguments], capture_output=True, text=True, **options)


class Watcher(threading.Thread):
    """Hears everything; each line has the next number."""
    def __init__(self, path):
        super().__init__(daemon=True)
        self.peer, self.events, self.statuses = Operator(path), [], {}
        self.peer.send({"request": "watch"})
        self.last = json.loads(self.peer.lines.readline())["sequence"]
        self.start()

    def run(self):
        for line in map(json.loads, self.peer.lines):
            self.last += 1
            if line["sequence"] != self.last:
                self.events.append({"event": "gap", "line": line})
            if line["event"] == "status":
                self.statuses[line["table"], json.dumps(line["key"])] = line["status"]
            else:
                self.events.append(line)

    def programmed(self):
        return sum(table == "Route" and status == "programmed"
                   for (table, _), status in self.statuses.copy().items())

    def heard(self, **members):
        return [each for each in self.events if members.items() <= each.items()]


def ask_much(path, stopping):
    """Those who ask for as much as they can, at once."""
    requests = [{"request": "audit"}, {"request": "decode"}, {"request": "status", "refused": True},
                {"request": "run", "events": [{"op": "sync", "table": "NatRewrite"}] * 64},
                {"request": "lookup", "table": "Route", "keys": [{"vrf": 0, "address": "20.0.0.1"}] * 20000}]

    def asking(request):
        peer = Operator(path)
        while not stopping.is_set():
            peer.ask(request)
    threads = [threading.Thread(target=asking, args=(each,)) for each in requests]
    for each in threads:
        each.start()
    return threads


def check_routes(velad, watcher, idle):
    """All are programmed while others ask for much; each answer comes in time."""
    stopping = threading.Event()
    threads = ask_much(velad.path, stopping)
    sender = socket.create_connection(("127.0.0.1", PORT))
    begin = time.time()
    feeding = threading.Thread(target=sender.sendall, args=(
        b"".join(route(0x14000000 + number * 512, 24, False) for number in range(ROUTES)),))
    feeding.start()
    peer, slowest = Operator(velad.path), 0
    while True:
        asked = time.time()
        status = peer.ask({"request": "status"})[0]
        slowest = max(slowest, time.time() - asked)
        if status["offered"] == ROUTES and not status["queued"]:
            break
        time.sleep(0.01)
    seconds = time.time() - begin
    stopping.set()
    for each in [feeding, *threads]:
        each.join()
    wait("the watcher knows what is programmed", lambda: watcher.programmed() == status["programmed"])
    wait("the slow watcher is dropped", lambda: "closed for reading too slowly" in velad.log())
    if idle.lines.read().count("\n") > ROUTES:
        fail("the slow watcher heard everything")
    print(f"    {ROUTES} routes in {seconds:.1f} s amid requests, {status['programmed']} programmed, which a "
          f"watcher heard; answers within {1000 * slowest:.0f} ms")
    # Each of those who ask may have a piece made before.
    if slowest > ANSWER_SECONDS * len(threads) or seconds > ROUTES / 2000:
        fail("that took too long")
    return sender


def check_scrubbing(velad, watcher):
    wait("a whole pass", lambda: Operator(velad.path).ask({"request": "status"})[0]["scrub"]["passes"] > 0)
    events = "".join(json.dumps({"op": "corrupt", "table": "L3Lag", "key": 0, "bit": bit}) + "\n" for bit in (1, 3))
    ran = tool(velad, "run", "-", input=events)
    if ran.returncode:
        fail(ran.stderr)
    wait("the finding is told and mended", lambda: watcher.heard(event="finding", table="L3Lag", repaired=True))
    if tool(velad, "audit").returncode or "scrub: L3Lag/0: 1 findings, of which 1 are repaired" not in velad.log():
        fail("an audit finds more, or the log has nothing of it")


def check_hits(velad):
    """Routes that a packet takes have the time."""
    def entries():
        keys = [{"vrf": 0, "prefix": f"20.{number}.0.0/24"} for number in range(64)]
        return [each for each in Operator(velad.path).ask({"request": "entry", "table": "Route", "keys": keys})
                if each["status"] == "programmed"]
    key = entries()[0]["key"]
    packet = {"vrf": 0, "address": key["prefix"].split("/")[0]}
    tool(velad, "run", "-", input=json.dumps({"op": "lookup", "table": "Route", "key": packet}))
    wait("a poll finds the hit", lambda: abs(time.time() - entries()[0]["lastHit"]) < 10)
    if any(each["lastHit"] for each in entries()[1:]):
        fail("other routes were hit")


def check_thresholds(velad, watcher):
    for op, above in ("set", True), ("del", False):
        events = [json.dumps({"op": op, "table": "HashTest", "key": key}) for key in range(256)]
        tool(velad, "run", "-", input="\n".join(events))
        wait(f"above is {above}", lambda: watcher.heard(event="threshold", table="HashTest", above=above))
    ran = tool(velad, "run", "-", input=events[0] + "\n\n{\"op\":\"st\"}\n")
    if ran.returncode != 2 or not ran.stderr.startswith("stdin:3: "):
        fail(f"a wrong event was told as {ran.stderr}")


def check_reload(velad):
    for changes, told in (({"scrub": {"rows": -1}}, "nothing is changed, "),
                          ({"scrub": {"rows": 0}, "queue": 9, "log": "error"}, "only a restart changes queue"),
                          ({"log": "info"}, "changed log")):
        velad.configure(**changes)
        velad.process.send_signal(signal.SIGHUP)
        wait(f"the log has {told}", lambda: f"reload: {told}" in velad.log())
    rows = [Operator(velad.path).ask({"request": "status"})[0]["scrub"]["rows"] for _ in range(2) if not time.sleep(0.3)]
    if rows[0] != rows[1] or "reload: changed log, scrub" not in velad.log():
        fail(f"it scrubs on: {rows}")


def check_doors(velad):
    """Strangers cannot shut others out: another velad, too many connections, lines that are no text, half requests."""
    second = subprocess.run([velad.program, velad.configure(device=f"{velad.work}/other",
                                                            fpm={"listen": f"127.0.0.1:{PORT + 1}"})],
                            capture_output=True, text=True, timeout=30)
    if second.returncode != 2 or f"another process serves {velad.path}" not in second.stderr:
        fail(f"a second one said {second.stderr}")
    # The watcher and velad's own operator are the first two of 64.
    crowd = [Operator(velad.path) for _ in range(62)]
    if tool(velad, "status").stderr != "velatable: too many are connected\n":
        fail("one too many does not hear why")
    for each in crowd:
        each.peer.sendall(b"\xff\n")
    if not all("column 1 of" in each.lines.readline() for each in crowd):
        fail("nobody hears what is wrong with a line")
    for each in crowd:
        each.lines.close()
        each.peer.close()
    velad.status()
    half = [socket.create_connection(("127.0.0.1", SCRAPED)) for _ in range(16)]
    for each in half:
        each.sendall(b"GET /metrics HTTP/1.1\r\n")
    urllib.request.urlopen(f"http://127.0.0.1:{SCRAPED}/metrics", timeout=10)
    for each in half:
        each.close()


def check_unit(velad):
    if not shutil.which("systemd-analyze"):
        return print("    the unit is not verified, there is no systemd-analyze")
    with open(f"{os.path.dirname(velad.program)}/velad.service") as lines:
        unit = re.sub("^ExecStart=[^ ]*", f"ExecStart={os.path.abspath(velad.program)}", lines.read(), flags=re.M)
    with open(f"{velad.work}/velad.service", "w") as out:
        out.write(unit)
    subprocess.run(["systemd-analyze", "verify", "--man=no", f"{velad.work}/velad.service"], check=True)


def check_metrics(velad, promtool):
    time.sleep(1.2)
    text = urllib.request.urlopen(f"http://127.0.0.1:{SCRAPED}/metrics").read().decode()
    subprocess.run([promtool, "check", "metrics"], input=text, check=True, text=True)
    scraped = dict(line.rsplit(" ", 1) for line in text.splitlines() if not line.startswith("#"))
    status = Operator(velad.path).ask({"request": "status"})[0]
    found = next(each for each in status["scrub"]["findings"] if each["table"] == "L3Lag")
    level = max(status["tables"], key=lambda each: each["used"])
    table = f'{{instance="0",table="{level["table"]}"}}'
    said = {f"velad_table_used{table}": level["used"], f"velad_table_capacity{table}": level["capacity"],
            f"velad_table_peak{table}": level["peak"], "velad_scrubbed_rows_total": status["scrub"]["rows"],
            'velad_scrub_findings_total{finding="%s",instance="0",table="L3Lag"}' % found["finding"]: found["count"],
            'velad_table_threshold_crossings_total{direction="up",instance="0",table="HashTest"}': 1,
            'velad_table_above_threshold{instance="0",table="HashTest"}': 0, "velad_bus_failures_total": 0,
            "velad_change_seconds_count": ROUTES}
    for name, value in said.items():
        if float(scraped.get(name, "nan")) != value:
            fail(f"{name} is {scraped.get(name)}, not {value}")
    print(f"    {len(scraped)} metrics say what the status says, and are as promtool wants them")


def main(velad, promtool):
    watcher, idle = Watcher(velad.path), Operator(velad.path)
    idle.send({"request": "watch"})
    feed = check_routes(velad, watcher, idle)
    check_scrubbing(velad, watcher)
    check_hits(velad)
    check_thresholds(velad, watcher)
    check_reload(velad)
    check_metrics(velad, promtool)
    check_unit(velad)
    check_doors(velad)
    feed.close()
    if watcher.heard(event="gap"):
        fail(f"a gap: {watcher.heard(event='gap')[0]}")
    velad.process.terminate()
    if velad.process.wait(10):
        fail("velad did not end well")


if __name__ == "__main__":
    run(main, settings=SETTINGS)
