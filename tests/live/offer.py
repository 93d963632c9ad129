#!/usr/bin/env python3
"""Offers velad many more routes than a switch holds, as a client of its forwarding plane manager's
port, and asks it how it does throughout. offer.py VELAD COUNT: fails where an answer takes long, memory
grows beyond what is allowed, or the routes that there is no room for are not told or do not come in."""
import ipaddress
import json
import os
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

ANSWER_SECONDS = 0.1
MEGABYTES = 100
BYTES_A_ROUTE = 400


def route(address, length, withdrawn):
    def attribute(kind, data):
        return struct.pack("=HH", 4 + len(data), kind) + data
    body = struct.pack("=BBBBBBBBI", 2, length, 0, 0, 254, 186, 0, 0 if withdrawn else 1, 0)
    body += attribute(1, struct.pack("!I", address))
    if not withdrawn:
        body += attribute(5, bytes([10, 0, 0, 1 + address % 50])) + attribute(4, struct.pack("=I", 1))
    message = struct.pack("=IHHII", 16 + len(body), 25 if withdrawn else 24, 0, 0, 0) + body
    return struct.pack("!BBH", 1, 1, 4 + len(message)) + message


class Velad:
    def __init__(self, program, work):
        self.path = f"{work}/control"
        with open(f"{work}/velad.json", "w") as out:
            # The first interface there is, whatever its name is here.
            json.dump({"device": f"{work}/switch", "control": self.path, "tables": {"254": 0},
                       "interfaces": {socket.if_indextoname(1): 1},
                       "fpm": {"listen": "127.0.0.1:26200", "quiet": 60}}, out)
        self.process = subprocess.Popen([program, f"{work}/velad.json"], stderr=subprocess.DEVNULL)
        while not os.path.exists(self.path):
            if self.process.poll() is not None:
                fail("velad does not start")
            time.sleep(0.05)
        time.sleep(0.1)
        self.operator = Operator(self.path)
        self.ask = self.operator.ask

    def memory(self):
        """What is its own: the switch is a file."""
        with open(f"/proc/{self.process.pid}/status") as lines:
            return next(int(line.split()[1]) for line in lines if line.startswith("RssAnon")) * 1024


class Operator:
    def __init__(self, path):
        self.peer = socket.socket(socket.AF_UNIX)
        self.peer.connect(path)
        self.lines = self.peer.makefile()

    def ask(self, request):
        self.peer.sendall((json.dumps(request) + "\n").encode())
        answer = []
        while (line := self.lines.readline()) and not line.startswith('{"done"'):
            answer.append(line)
        assert line == '{"done":true}\n', line
        return [json.loads(each) for each in answer]


class Pulse(threading.Thread):
    """Asks for little, again and again, and keeps how long it took at most."""

    def __init__(self, path):
        super().__init__(daemon=True)
        self.operator = Operator(path)
        self.slowest = 0
        self.over = False
        self.start()

    def run(self):
        key = {"vrf": 0, "address": "20.0.0.1"}
        while not self.over:
            asked = time.time()
            self.operator.ask({"request": "lookup", "table": "Route", "keys": [key]})
            self.slowest = max(self.slowest, time.time() - asked)
            time.sleep(0.02)


def fail(what):
    raise SystemExit(f"offer: {what}")


def main(velad, count):
    empty = velad.memory()
    # One level holds them all.
    routes = [ipaddress.ip_network((0x14000000 + number * 512, 24)) for number in range(count)]
    frames = b"".join(route(int(each.network_address), each.prefixlen, False) for each in routes)
    sender = socket.create_connection(("127.0.0.1", 26200))
    pulse = Pulse(velad.path)
    begin = time.time()
    sender.sendall(frames)
    while True:
        status = velad.ask({"request": "status"})[0]
        if status["sources"][0]["messages"] == len(routes) and not status["queued"]:
            break
        time.sleep(0.02)
    seconds = time.time() - begin
    asked = time.time()
    listed = velad.ask({"request": "status", "refused": True})
    whole = time.time() - asked
    used = velad.memory()
    each_takes = (used - empty) / len(routes)
    print(f"    {len(routes)} routes offered in {seconds:.1f} s: {status['programmed']} programmed, "
          f"{status['waiting']} wait; {each_takes:.0f} bytes each, {used >> 20} MB in all; "
          f"the whole list in {whole:.1f} s")
    if status["programmed"] + status["waiting"] != len(routes):
        fail(f"routes without a status: {status}")
    if len(listed) - 1 != status["waiting"]:
        fail(f"{len(listed) - 1} of {status['waiting']} that wait are listed")
    waiting = {line["route"] for line in listed[1:]}
    there = [each for each in routes if str(each) not in waiting]
    sender.sendall(b"".join(route(int(each.network_address), each.prefixlen, True) for each in there))
    while True:
        after = velad.ask({"request": "status"})[0]
        if after["sources"][0]["messages"] == len(routes) + len(there) and not after["queued"]:
            break
        time.sleep(0.1)
    pulse.over = True
    pulse.join()
    print(f"    {len(there)} withdrawn: {after['programmed']} programmed, {after['waiting']} wait; "
          f"answers within {1000 * pulse.slowest:.0f} ms all along")
    # Another arrangement of others may hold a few more or less.
    if after["programmed"] < min(len(waiting), 0.98 * status["programmed"]):
        fail("those that waited did not come in")
    if pulse.slowest > ANSWER_SECONDS:
        fail(f"an answer took {pulse.slowest:.3f} s")
    if used > MEGABYTES << 20 or each_takes > BYTES_A_ROUTE:
        fail("that is too much memory")
    velad.process.terminate()
    if velad.process.wait() != 0:
        fail("velad did not end well")


if __name__ == "__main__":
    with tempfile.TemporaryDirectory() as folder:
        running = Velad(sys.argv[1], folder)
        try:
            main(running, int(sys.argv[2]))
        finally:
            running.process.kill()
