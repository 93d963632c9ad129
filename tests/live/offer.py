#!/usr/bin/env python3
"""Offers velad many more routes than a switch holds, as a client of its forwarding plane manager's
port, and asks it how it does throughout. offer.py VELAD COUNT: fails where an answer takes long, memory
grows beyond what is allowed, or the routes that there is no room for are not told or do not come in."""
import ipaddress
import socket
import threading
import time

from client import PORT, Operator, fail, route, run

ANSWER_SECONDS = 0.1
MEGABYTES = 100
BYTES_A_ROUTE = 400


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


def main(velad, count):
    count = int(count)
    empty = velad.memory()
    # One level holds them all.
    routes = [ipaddress.ip_network((0x14000000 + number * 512, 24)) for number in range(count)]
    frames = b"".join(route(int(each.network_address), each.prefixlen, False) for each in routes)
    sender = socket.create_connection(("127.0.0.1", PORT))
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
        fail(f"offer: routes without a status: {status}")
    if len(listed) - 1 != status["waiting"]:
        fail(f"offer: {len(listed) - 1} of {status['waiting']} that wait are listed")
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
        fail("offer: those that waited did not come in")
    if pulse.slowest > ANSWER_SECONDS:
        fail(f"offer: an answer took {pulse.slowest:.3f} s")
    if used > MEGABYTES << 20 or each_takes > BYTES_A_ROUTE:
        fail("offer: that is too much memory")
    velad.process.terminate()
    if velad.process.wait() != 0:
        fail("offer: velad did not end well")


if __name__ == "__main__":
    run(main)
