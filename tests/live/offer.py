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
        self.peer = socket.socket(socket.AF_UNIX)
        self.peer.connect(self.path)
        self.lines = self.peer.makefile()

    def ask(self, request):
        self.peer.sendall((json.dumps(request) + "\n").encode())
        answer = []
        while True:
            line = json.loads(self.lines.readline())
            if "done" in line:
                assert line["done"], line
                return answer
            answer.append(line)

    def memory(self):
        """What is its own: the switch is a file."""
        with open(f"/proc/{self.process.pid}/status") as lines:
            return next(int(line.split()[1]) for line in lines if line.startswith("RssAnon")) * 1024


def fail(what):
    raise SystemExit(f"offer: {what}")


def main(velad, count):
    empty = velad.memory()
    # One level holds them all.
    routes = [ipaddress.ip_network((0x14000000 + number * 512, 24)) for number in range(count)]
    frames = b"".join(route(int(each.network_address), each.prefixlen, False) for each in routes)
    sender = socket.create_connection(("127.0.0.1", 26200))
    begin = time.time()
    thread = threading.Thread(target=sender.sendall, args=(frames,))
    thread.start()
    slowest = 0
    while True:
        asked = time.time()
        status = velad.ask({"request": "lookup", "table": "Route", "keys": [{"vrf": 0, "address": "20.0.0.1"}]})
        slowest = max(slowest, time.time() - asked)
        if not thread.is_alive():
            status = velad.ask({"request": "status"})[0]
            if status["sources"][0]["messages"] == len(routes) and not status["queued"]:
                break
        time.sleep(0.02)
    seconds = time.time() - begin
    used = velad.memory()
    asked = time.time()
    listed = velad.ask({"request": "status", "refused": True})
    whole = time.time() - asked
    print(f"    {len(routes)} routes offered in {seconds:.1f} s: {status['programmed']} programmed, "
          f"{status['waiting']} wait; {(used - empty) / len(routes):.0f} bytes each, {used >> 20} MB in all; "
          f"answers within {1000 * slowest:.0f} ms, the whole list in {whole:.1f} s")
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
    print(f"    {len(there)} withdrawn: {after['programmed']} programmed, {after['waiting']} wait")
    # Another arrangement of others may hold a few more or less.
    if after["programmed"] < min(len(waiting), 0.9 * status["programmed"]):
        fail("those that waited did not come in")
    if slowest > ANSWER_SECONDS:
        fail(f"an answer took {slowest:.3f} s")
    if used > (MEGABYTES << 20) + BYTES_A_ROUTE * len(routes):
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
