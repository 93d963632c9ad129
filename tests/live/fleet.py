#!/usr/bin/env python3
"""Forty switches beneath one Redis server: changes at random while daemons are killed, the server is killed
and restarted from its log, and connections are cut; each switch must be as a model says that is kept here.
fleet.py PROGRAMS: the directory that has velad and velatable."""
import json
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

SWITCHES = 40
CHAOS_SECONDS = float(os.environ.get("CHAOS_SECONDS", "45"))
with socket.create_server(("127.0.0.1", 0)) as free:
    PORT = free.getsockname()[1]
URL = f"redis://127.0.0.1:{PORT}"
DELAY_SECONDS = 3        # so long after a change was applied `fleet` tells of it, on two busy cores
AGE_SECONDS = 20         # no report is older
LAG_SECONDS = 60         # so long after the last change all of them are applied
LAG_CHANGES = 300        # so many at most wait while nothing disturbs
MEGABYTES = 64           # of a daemon
STATUS_ENTRIES = 300     # that the streams of statuses keep, about
FILL_LINES = 10000       # of each switch, for the rate

programs = os.path.abspath(sys.argv[1])
work = tempfile.mkdtemp(prefix="vela-fleet.")
rng = random.Random(int(os.environ.get("SEED", "0")) or None)


class Server:
    """redis-server with its log, and one connection to it."""

    def start(self):
        self.process = subprocess.Popen(
            ["redis-server", "--port", str(PORT), "--dir", work, "--appendonly", "yes", "--appendfsync", "always",
             "--save", "", "--requirepass", "secret"], stdout=subprocess.DEVNULL)
        self.peer = None
        for _ in range(200):
            try:
                self.connect()
                if self.ask("PING") == "PONG":
                    return
            except (OSError, RuntimeError):
                time.sleep(0.05)
        raise SystemExit("redis-server does not answer")

    def connect(self):
        self.peer = socket.create_connection(("127.0.0.1", PORT), 10)
        self.lines = self.peer.makefile("rb")
        self.ask("AUTH", "secret")

    def kill(self):
        self.process.kill()
        self.process.wait()

    def ask(self, *words):
        out = f"*{len(words)}\r\n".encode()
        for word in words:
            word = str(word).encode()
            out += b"$%d\r\n%s\r\n" % (len(word), word)
        self.peer.sendall(out)
        return self.reply()

    def reply(self):
        line = self.lines.readline()
        if not line.endswith(b"\r\n"):
            raise OSError("closed")
        kind, rest = line[:1], line[1:-2].decode()
        if kind == b"-":
            raise RuntimeError(rest)
        if kind == b"$":
            return None if rest == "-1" else self.lines.read(int(rest) + 2)[:-2].decode()
        if kind == b"*":
            return None if rest == "-1" else [self.reply() for _ in range(int(rest))]
        return int(rest) if kind == b":" else rest


class Model:
    """What is desired of a switch, by table and key."""

    def __init__(self):
        self.entries = {}

    def change(self):
        """A random change, as an event."""
        table, key, result = rng.choice([self.route, self.counter, self.flood, self.rewrite, self.lag, self.test])()
        event = {"op": "set", "table": table, "key": key, "result": result}
        name = (table, json.dumps(key, sort_keys=True))
        if rng.random() < 0.3:
            event = {"op": "del", "table": table, "key": key}
            self.entries.pop(name, None)
        else:
            self.entries[name] = event
        return event

    def route(self):
        # The longer ones leave some of each shorter one, so that registers show it.
        site = rng.randrange(40)
        prefix = rng.choice([f"10.{site}.0.0/16", f"10.{site}.7.0/24", f"10.{site}.7.128/25", f"10.{site}.9.1/32"])
        return ("Route", {"vrf": site % 3, "prefix": prefix},
                {"l3LagIndex": rng.randrange(57), "rewriteIndex": rng.randrange(64)})

    def counter(self):
        return "AclIndirectCounterHash", 2048 + rng.randrange(300), rng.randrange(1, 1000)

    def flood(self):
        return "FloodSet", rng.randrange(1, 200), {"uucPortMask": f"0x{rng.randrange(1, 1 << 20):012x}",
                                                   "umcPortMask": f"0x{rng.randrange(1, 1 << 20):012x}"}

    def rewrite(self):
        return ("NatRewrite", {"baseChipPortId": 2 * rng.randrange(10), "rewriteIndex": rng.randrange(1, 20)},
                {"newIp": f"192.0.2.{rng.randrange(1, 255)}", "newPort": rng.randrange(1, 65536),
                 "l3ChecksumCorrection": rng.randrange(1, 65536)})

    def lag(self):
        return "L3Lag", rng.randrange(57), {"portMask": f"0x{rng.randrange(1, 1 << 20):012x}", "cpuPriority": False}

    def test(self):
        # Of these there are more than the switch has room for.
        return "HashTest", rng.randrange(60), rng.randrange(1, 200)

    def wrong(self, decoded, refused):
        """The entries that registers have and should not, or should and have not."""
        held = {}
        for line in decoded:
            name = (line["table"], json.dumps(line["key"], sort_keys=True))
            held[name] = line["result"]
        desired = {name: event["result"] for name, event in self.entries.items()}
        waiting = {name for name in desired if name[0] == "HashTest" and name not in held}
        for name in waiting:
            del desired[name]
        wrong = {name for name in held.keys() | desired.keys() if held.get(name) != desired.get(name)}
        if len(waiting) != refused:
            wrong.add(f"{len(waiting)} wait, {refused} are refused")
        return wrong


class Switch:
    def __init__(self, number):
        self.name = f"leaf-{number}"
        self.path = f"{work}/{self.name}"
        self.model = Model()
        self.publisher = None
        self.process = None
        self.has_snapshot = False
        self.seen = 0     # the sequence that the daemon said last,
        self.since = 0.0  # and when it was started
        with open(f"{self.path}.json", "w") as out:
            json.dump({"profile": "vela-20-4.0", "device": f"{self.path}.switch", "control": f"{self.path}.control",
                       "stream": {"server": URL, "switch": self.name, "credentials": f"{work}/credentials",
                                  "keep": STATUS_ENTRIES},
                       # Of the first all rows are read again every other second.
                       "scrub": {"rows": 0 if number else 100000}}, out)

    def start(self):
        self.since = time.time()
        self.log = open(f"{self.path}.log", "a")
        self.process = subprocess.Popen([f"{programs}/velad", f"{self.path}.json"], stderr=self.log)

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.log.close()

    def ask(self, **request):
        """The lines of the daemon's answer; none where it is not there yet."""
        answer = []
        try:
            with socket.socket(socket.AF_UNIX) as peer:
                peer.connect(f"{self.path}.control")
                peer.sendall((json.dumps(request) + "\n").encode())
                for line in peer.makefile():
                    line = json.loads(line)
                    if "done" in line:
                        assert line["done"], line
                        return answer
                    answer.append(line)
        except OSError:
            pass
        return []

    def stream(self):
        answer = self.ask(request="status")
        return answer[0]["stream"] if answer else None

    def command(self, *more, owner="controller"):
        return [f"{programs}/velatable", "publish", "--stream", URL, "--credentials", f"{work}/credentials",
                "--switch", self.name, "--owner", owner, *more, "-"]

    def open(self):
        self.publisher = subprocess.Popen(self.command(), stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def close(self):
        """Returns how many lines are in the stream by then."""
        out, _ = self.publisher.communicate()
        assert self.publisher.returncode == 0, out
        return int(re.search(r": (\d+) lines", out)[1])

    def tell(self, events):
        self.publisher.stdin.write("".join(json.dumps(event) + "\n" for event in events))
        self.publisher.stdin.flush()

    def publish_snapshot(self, closes=True):
        if closes:
            self.close()
        lines = "".join(json.dumps(event) + "\n" for event in self.model.entries.values())
        subprocess.run(self.command("--snapshot=empty"), input=lines, check=True, text=True, stdout=subprocess.DEVNULL)
        self.has_snapshot = True
        self.open()


def fleet():
    told = subprocess.run([f"{programs}/velatable", "fleet", "--stream", URL, "--credentials", f"{work}/credentials",
                           "--json"], capture_output=True, text=True)
    if told.returncode != 0:
        return None
    return {line["switch"]: line for line in map(json.loads, told.stdout.splitlines())}


class Watcher:
    """Compares what `fleet` tells with what the daemons said somewhat before and say now."""

    def __init__(self):
        self.before = []
        self.disturbed = None  # when something was disturbed that not all have got over
        self.calm = 0.0        # since when all are connected
        self.compared = 0
        self.whole = 0
        self.lag = 0

    def disturb(self):
        self.disturbed = time.time()

    def all_connected(self, switches):
        # What is cut is noticed within a read.
        if self.disturbed is None:
            return True
        if time.time() - self.disturbed < 2 or not all((switch.stream() or {}).get("connected")
                                                       for switch in switches.values()):
            return False
        self.disturbed = None
        self.calm = time.time()
        return True

    def look(self, switches):
        now = time.time()
        if not self.all_connected(switches):
            self.before = []
            return
        view = fleet()
        if view is None:
            raise SystemExit("fleet fails while all are connected")
        # It is never ahead of what a daemon says after it.
        for name in rng.sample(sorted(switches), 4):
            status = switches[name].stream()
            if status and status["loads"] > 0 and now - switches[name].since > DELAY_SECONDS:
                assert view[name]["sequence"] <= status["sequence"], (view[name], status)
        for then, name, since, before in self.before:
            switch = switches[name]
            if now - then < DELAY_SECONDS or self.calm > then or switch.since != since:
                continue
            line = view[name]
            if line["sequence"] < before["sequence"]:
                raise SystemExit(f"fleet tells of {line['sequence']} of {name}, which {now - then:.1f} s ago "
                                 f"was at {before['sequence']}")
            self.compared += 1
            # What did not change since is told as it is.
            status = switch.stream()
            if status == before:
                told = {field: line[field] for field in status if field != "connected"}
                told["connected"] = True
                assert told == status and line["age"] < AGE_SECONDS, (line, status)
                self.whole += 1
        if now - self.calm > DELAY_SECONDS:
            quiet = [line["lag"] for name, line in view.items() if now - switches[name].since > DELAY_SECONDS]
            self.lag = max([self.lag, *quiet])
            assert self.lag < LAG_CHANGES, view
        self.before = [each for each in self.before if now - each[0] < 2 * DELAY_SECONDS]
        for name in rng.sample(sorted(switches), 8):
            status = switches[name].stream()
            if status:
                self.before.append((time.time(), name, switches[name].since, status))


def until(what, seconds, done):
    begin = time.time()
    while not done():
        if time.time() - begin > seconds:
            raise SystemExit(f"{what} takes more than {seconds} s")
        time.sleep(0.1)
    return time.time() - begin


def all_applied(server, switches):
    def applied(switch):
        last = server.ask("XREVRANGE", f"vela:{{{switch.name}}}:changes", "+", "-", "COUNT", 1)
        status = switch.stream()
        return status and status["loads"] > 0 and last and status["position"] == last[0][0]
    return lambda: all(applied(switch) for switch in switches.values())


def chaos(server, switches):
    watcher = Watcher()
    counts = {"changes": 0, "daemons killed": 0, "server killed": 0, "connections cut": 0, "snapshots": 0,
              "positions lost": 0}

    def kill_daemons():
        for switch in rng.sample(list(switches.values()), 3):
            switch.kill()
            # Without a position a snapshot is needed.
            if switch.has_snapshot and rng.random() < 0.5:
                pathlib.Path(f"{switch.path}.switch.position").unlink(missing_ok=True)
                counts["positions lost"] += 1
            switch.start()
            counts["daemons killed"] += 1

    def kill_server():
        server.kill()
        time.sleep(rng.random())
        server.start()
        watcher.disturb()
        counts["server killed"] += 1

    def cut():
        server.ask("CLIENT", "KILL", "TYPE", "normal", "SKIPME", "yes")
        watcher.disturb()
        counts["connections cut"] += 1

    def snapshot():
        rng.choice(list(switches.values())).publish_snapshot()
        counts["snapshots"] += 1

    end = time.time() + CHAOS_SECONDS
    calm = time.time() + 5
    while time.time() < end:
        # Some are left alone for a while.
        busy = list(switches.values())
        rest = int(time.time()) // 10 % 2 * (SWITCHES // 2)
        del busy[rest:rest + SWITCHES // 2]
        for switch in rng.sample(busy, 10):
            events = [switch.model.change() for _ in range(rng.randrange(1, 20))]
            counts["changes"] += len(events)
            switch.tell(events)
        if rng.random() < 0.15:
            rng.choices([kill_daemons, snapshot], [3, 1])[0]()
        # Between what disturbs all there is time to compare.
        if time.time() > calm:
            (cut if counts["server killed"] > counts["connections cut"] else kill_server)()
            calm = time.time() + 15
        watcher.look(switches)
        time.sleep(0.05)
    print("    " + ", ".join(f"{count} {what}" for what, count in counts.items()))
    print(f"    {watcher.compared} comparisons of fleet with what daemons said, {watcher.whole} of all figures, "
          f"{watcher.lag} the largest lag")
    assert watcher.compared > 0 and watcher.whole > 0 and min(counts.values()) > 0, "nothing was tried"


def check(server, switches):
    for switch in switches.values():
        switch.close()
    seconds = until("applying the last changes", LAG_SECONDS, all_applied(server, switches))
    wrong = {}
    for name, switch in switches.items():
        refused = switch.stream()["refused"]
        bad = switch.model.wrong(switch.ask(request="decode"), refused)
        if bad:
            wrong[name] = sorted(map(str, bad))[:5]
    if wrong:
        raise SystemExit(f"switches that are not as desired: {wrong}")
    # Each says once more how it does.
    time.sleep(DELAY_SECONDS)
    view = fleet()
    for name, switch in switches.items():
        status = switch.stream()
        assert status.pop("connected")
        told = {field: view[name][field] for field in status}
        assert told == status, (name, told, status)
        assert view[name]["lag"] == 0 and view[name]["age"] < AGE_SECONDS, view[name]
        length = server.ask("XLEN", f"vela:{{{name}}}:status")
        assert length < STATUS_ENTRIES + 200, (name, length)
        with open(f"/proc/{switch.process.pid}/status") as lines:
            memory = int(re.search(r"VmHWM:\s+(\d+)", lines.read())[1]) // 1024
        assert memory < MEGABYTES, (name, memory)
    entries = sum(len(switch.model.entries) for switch in switches.values())
    print(f"    all {len(switches)} as the model after {seconds:.1f} s: {entries} entries, "
          f"{sum(line['refused'] for line in view.values())} of them without room; fleet says the same")
    for switch in switches.values():
        switch.open()


def two_controllers(server, switch):
    key = f"vela:{{{switch.name}}}:changes"
    length = server.ask("XLEN", key)
    line = '{"op":"del","table":"HashTest","key":1}\n'
    result = subprocess.run(switch.command(owner="other"), input=line, capture_output=True, text=True)
    expected = f"velatable: {switch.name} is controller's, who published last (--take-over if that is meant)\n"
    assert (result.returncode, result.stderr) == (2, expected), result
    assert server.ask("XLEN", key) == length, "it was published all the same"
    # The one that was taken over is refused amid its work.
    subprocess.run(switch.command("--take-over", owner="other"), input=line, check=True, text=True,
                   stdout=subprocess.DEVNULL)
    switch.tell([json.loads(line)])
    switch.publisher.stdin.close()
    assert switch.publisher.wait(60) == 2, "who was taken over goes on"
    print("    a second controller is refused, and so is one that was taken over")
    # An attempt that arrives late, when the server had been asked once more, changes nothing.
    switch.publisher = subprocess.Popen(switch.command("--take-over"), stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        text=True)
    switch.tell([json.loads(line)])
    until("publishing", 10, lambda: server.ask("XLEN", key) > length + 1)
    last = int(dict(zip(*[iter(server.ask("XREVRANGE", key, "+", "-", "COUNT", 1)[0][1])] * 2))["sequence"])
    server.process.send_signal(signal.SIGSTOP)
    switch.tell([json.loads(line)])
    time.sleep(7)
    server.process.send_signal(signal.SIGCONT)
    switch.close()
    fields = dict(zip(*[iter(server.ask("XREVRANGE", key, "+", "-", "COUNT", 1)[0][1])] * 2))
    assert int(fields["sequence"]) == last + 1, "what was tried twice is there twice"
    # Of two snapshots that are put together at once one is there, whole.
    def snapshot(result):
        lines = (json.dumps({"op": "set", "table": "AclIndirectCounterHash", "key": key, "result": result}) + "\n"
                 for key in range(3000))
        path = f"{work}/snapshot.{result}"
        pathlib.Path(path).write_text("".join(lines))
        return subprocess.Popen([*switch.command("--snapshot")[:-1], path], stdout=subprocess.DEVNULL)
    for publisher in [snapshot(1), snapshot(2)]:
        assert publisher.wait(60) == 0
    parts = server.ask("XRANGE", f"vela:{{{switch.name}}}:snapshot", "-", "+")
    told = [json.loads(line)["result"] for _, fields in parts[:-1] for line in fields[1].splitlines()]
    assert len(told) == 3000 and len(set(told)) == 1, (len(told), set(told))
    # Who owned the changes that went, and how many they were, is known from the snapshot.
    server.ask("XTRIM", key, "MAXLEN", 0)
    assert subprocess.run(switch.command(owner="other"), input=line, text=True, capture_output=True).returncode == 2
    subprocess.run(switch.command(), input=line, check=True, text=True, stdout=subprocess.DEVNULL)
    until("applying what came behind them", 20, all_applied(server, {switch.name: switch}))
    switch.publish_snapshot(closes=False)
    print("    what is tried twice is there once; of two snapshots at once one is there")


def happenings(server, switch):
    """What goes wrong in a switch, and a table that is full, are told by its stream of statuses."""
    def told():
        lines = []
        for _, fields in server.ask("XRANGE", f"vela:{{{switch.name}}}:status", "-", "+"):
            lines += dict(zip(fields[::2], fields[1::2])).get("lines", "").splitlines()
        return {(line["event"], line["table"]) for line in map(json.loads, lines) if "event" in line}
    before = fleet()[switch.name]["findings"]
    switch.ask(request="run", events=[{"op": "corrupt", "table": "L3Lag", "key": 5, "bit": 2}])
    until("finding a flipped bit", 60, lambda: fleet()[switch.name]["findings"] > before)
    until("telling of it", 60, lambda: {("finding", "L3Lag"), ("threshold", "HashTest")} <= told())
    print("    a flipped bit and a full table are told of")


def emptied(server, switch):
    """A switch whose streams are gone stays as it is until a snapshot says what is desired."""
    def wants():
        status = switch.stream()
        return status and status["connected"] and status["wantsSnapshot"]
    held = switch.ask(request="decode")
    assert held, "there is nothing to lose"
    switch.close()
    server.ask("DEL", *(f"vela:{{{switch.name}}}:{stream}" for stream in ("changes", "snapshot", "status")))
    server.ask("CLIENT", "KILL", "TYPE", "normal", "SKIPME", "yes")
    until("asking for a snapshot", 30, wants)
    switch.kill()
    switch.start()
    until("asking for a snapshot after a restart", 30, wants)
    until("reporting it", 30, lambda: fleet().get(switch.name, {}).get("wantsSnapshot"))
    switch.open()
    switch.tell([switch.model.change()])
    time.sleep(3)
    assert wants() and switch.ask(request="decode") == held, "it is not as it was"
    switch.publish_snapshot()
    switch.close()
    until("taking the snapshot", 30, all_applied(server, {switch.name: switch}))
    wrong = switch.model.wrong(switch.ask(request="decode"), switch.stream()["refused"])
    assert not wrong and not switch.stream()["wantsSnapshot"], wrong
    switch.open()
    print("    a switch whose streams are gone stays as it is, and a snapshot brings it on")


def rate(server, switches):
    lines = []
    for number in range(FILL_LINES):
        lines.append(json.dumps({"op": "set", "table": "FloodSet", "key": 1 + number % 200,
                                 "result": {"uucPortMask": number % 1000, "umcPortMask": number % 7}}) + "\n")
    data = "".join(lines).encode()
    statuses = [switch.stream()["sequence"] for switch in switches.values()]
    begin = time.time()
    publishers = []
    for switch in switches.values():
        publisher = subprocess.Popen([*switch.command("--take-over")], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL)
        publisher.stdin.write(data)
        publisher.stdin.close()
        publishers.append(publisher)
    for publisher in publishers:
        assert publisher.wait() == 0
    until("applying what was published at once", 300, all_applied(server, switches))
    seconds = time.time() - begin
    count = FILL_LINES * len(switches)
    entries = sum(switch.stream()["sequence"] for switch in switches.values()) - sum(statuses)
    payload = data[:len(data) * len(switches) // entries].decode()
    told = subprocess.run(["redis-benchmark", "-p", str(PORT), "-a", "secret", "-n", str(max(2000, entries)), "-c",
                           str(len(switches)), "-q", "XADD", "benchmark", "MAXLEN", "~", "1000", "*", "lines", payload],
                          capture_output=True, text=True, check=True).stdout
    server_rate = float(re.findall(r"([\d.]+) requests per second", told)[-1])
    print(f"    {count / seconds:.0f} changes a second through the streams into registers ({entries / seconds:.0f} "
          f"entries); the server alone takes {server_rate * count / entries:.0f} ({server_rate:.0f} entries)")


def main():
    # A line for each switch, each with its sockets.
    resource.setrlimit(resource.RLIMIT_NOFILE, (min(4096, resource.getrlimit(resource.RLIMIT_NOFILE)[1]),) * 2)
    with open(f"{work}/credentials", "w") as out:
        out.write("secret\n")
    server = Server()
    switches = {}
    try:
        server.start()
        for number in range(SWITCHES):
            switch = Switch(number)
            switches[switch.name] = switch
            switch.start()
            switch.open()
            if number % 2:
                switch.publish_snapshot()
        until("starting", 60, lambda: all(switch.stream() for switch in switches.values()))
        print(f"  {SWITCHES} daemons, and changes at random for {CHAOS_SECONDS:.0f} s")
        chaos(server, switches)
        check(server, switches)
        print("  two controllers")
        two_controllers(server, switches["leaf-0"])
        happenings(server, switches["leaf-0"])
        print("  streams that are gone")
        emptied(server, switches["leaf-1"])
        print("  as many changes as there may be")
        rate(server, switches)
        memory = re.search(r"used_memory:(\d+)", server.ask("INFO", "memory"))[1]
        print(f"    the server has {int(memory) / SWITCHES / 1e6:.1f} MB a switch")
    except BaseException:
        print(f"fleet: failed; logs are in {work}", file=sys.stderr)
        raise
    finally:
        for switch in switches.values():
            for process in (switch.process, switch.publisher):
                if process and process.poll() is None:
                    process.kill()
                    process.wait()
        server.kill()
    shutil.rmtree(work)
    print("fleet: every switch was as its model said")


main()
